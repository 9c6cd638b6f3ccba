// The cadastre processes: Rosreestr extracts into session items through tables of formulas,
// one formula per value slot of an item (csRosreestrXMLFormula.h). TcsRosReestrKad holds what
// all extracts share: the document's number, date, version and area, the statistic of what the
// file holds, the spatial data. TcsRosReestrKadNew reads the newer family (geometry under
// entity_spatial/spatials_elements); TcsRosReestrKadPlNew is its plan of territory, version 11.
//
// Part types of the items: 0 block, 1 parcel, 3 building or construction, 4 zone, 5 survey
// point, 6 boundary, 7 survey project, 8 a right of a parcel or object (a child of its item).
//
// The classic family (Region_Cadastr, KPT, KVZU, KPZU, KVOKS, KPOKS) has processes of its own on
// TcsRosReestrKad that keep the new family's slot layout, so both fill the same tables.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "csRosreestrXMLFormula.h"
#include "csRosreestrXMLUniversalProcess.h"

namespace tmi {

class TXSDObject;
class TGrParcel;

inline constexpr int kPartBlock = 0;
inline constexpr int kPartParcel = 1;
inline constexpr int kPartBuilding = 3;
inline constexpr int kPartZone = 4;
inline constexpr int kPartOmsPoint = 5;
inline constexpr int kPartBound = 6;
inline constexpr int kPartSurveying = 7;
inline constexpr int kPartRight = 8;

// The kinds of record a conversion may leave out, one bit each.
enum TcsRosReestrExclude : uint32_t {
    reParcels = 2,
    reObjects = 8,
    reZones = 16,
    rePoints = 32,
    reBounds = 64,
    reProjects = 128,
};

class TcsRosReestrStat {
public:
    int64_t BuildCount = 0;
    int64_t ParselCount = 0;
    int64_t ConstructionCount = 0;
    int64_t Under_ConstructionCount = 0;
    int64_t Inhabited_Locality_Boundary_RecordCount = 0;
    int64_t Coastline_RecordCount = 0;
    int64_t Municipal_Boundary_RecordCount = 0;
    int64_t Zones_and_territories_recordCount = 0;
    int64_t Oms_PointCount = 0;
    int64_t Surveying_Project_RecordCount = 0;
    [[nodiscard]] int64_t OKSCount() const noexcept { return BuildCount + ConstructionCount + Under_ConstructionCount; }
    void Clear() { *this = TcsRosReestrStat(); }

    struct TCounter {
        const char* Name;
        const char* Label;
        int64_t TcsRosReestrStat::*Field;
    };
    // The counters with their names and labels, in the order they are shown.
    static const std::array<TCounter, 10>& Counters();
    // The counter a record element counts into, by its name; nil for other elements.
    int64_t* CounterOf(std::string_view aElement);
};

enum TcsXmlInfoRosReestrFileType : uint8_t { rrUnknown, rrKPT, rrZUInfo, rrOKSInfo, rrExtractInfo, rrZONEInfo, rrBoundaryInfo };

class TcsXmlInfoRosReestr : public TcsXMLInfo {
    TCS_PERSISTENT(TcsXmlInfoRosReestr)
public:
    using TcsXMLInfo::TcsXMLInfo;
    TcsXmlInfoRosReestrFileType FileType = rrUnknown;
    bool HasGeometryInDB = false;
    std::string KvartalID;
    std::string ObjectID;
    // One line: the type, the number and the date as dd.mm.yyyy.
    [[nodiscard]] std::string GetInfoText() const;
};

// Attributes keyed by Key, attached to a part of a geometry: a classic record's Borders, one
// per edge of a ring ("1:3-4" is ring 1 from point 3 to point 4).
class TcsGeometryAttributionObject : public TcsInfo {
    TCS_PERSISTENT(TcsGeometryAttributionObject)
public:
    using TcsInfo::TcsInfo;
    struct TAttribute {
        std::string Key;
        std::string Length;
        std::string DirectionAngle;
        std::string Definition;
    };
    std::vector<TAttribute> Attributes;
    void Clear() { Attributes.clear(); }
};

// The process's settings: the kinds left out.
class TcsRosReestrProcessConfig : public TcsXMLFileProcessConfig {
    TCS_PERSISTENT(TcsRosReestrProcessConfig)
public:
    using TcsXMLFileProcessConfig::TcsXMLFileProcessConfig;
    uint32_t Exclude = 0;
};

class TcsRosReestrKad : public TcsXMLFileUniversalProcess, protected TcsFormulaDecoder {
    TCS_PERSISTENT(TcsRosReestrKad)
public:
    explicit TcsRosReestrKad(TcsComponent* aOwner = nullptr);

    int GetAnalizeMode() const override { return 1; }
    bool NededUpdateFullInfo() const override { return true; }
    void Clean() override;
    bool IgnoreNode(TcsXMLProcessController& aController, TcsXMLProcessSessionItem* aItem, std::string_view aPath,
                    xml::PXMLNode aNode) override;
    void ProcessXmlFile(TcsXMLProcessController& aController, TcsXMLFileAnalizer& aAnalizer) override;
    void UpdateStringInfo(std::vector<std::pair<std::string, std::string>>& aInfo) override;
    void AfterUpdateFullInfo() override;
    void ProcessExternalValues(TcsXMLProcessSessionItem& aItem) override;
    std::unique_ptr<TcsXMLInfo> GetXmlInfoClass() const override { return std::make_unique<TcsXmlInfoRosReestr>(); }
    std::unique_ptr<TcsXMLFileProcessConfig> GetProcessConfigClass() const override {
        return std::make_unique<TcsRosReestrProcessConfig>();
    }

    // Every slot of a table evaluated on the record: a non-empty result becomes value number
    // slot of the item, its source the formula; a "*" form adds its values after.
    void FillSessionItemFormula(TcsXMLProcessSessionItem& aItem, const TcsFormulaTable& aTable, xml::PXMLNode aNode);
    // The document's area: Total, or Area/area with Unit/unit, below aNode.
    void ProcessArea(xml::PXMLNode aNode);
    // The key of a block's item, opened and committed the first time its number is met.
    TcsVariant ProcessCreateOrFindQuartal(TcsXMLProcessController& aController, const std::string& aNumber);
    // The object's rings as the item's geometry; false when it has none.
    bool SetItemGeometry(TcsXMLProcessSessionItem& aItem, const TGrParcel* aParcel);

    [[nodiscard]] TcsRosReestrProcessConfig& Config();
    [[nodiscard]] bool Excluded(TcsRosReestrExclude aKind) { return (Config().Exclude & aKind) != 0; }

    std::string FKadNum;
    std::string FVersion;
    double FArea = 0;
    std::string CodeType;
    TDateTime Date;
    TcsRosReestrStat Stat;
    // The block key of the records being read.
    TcsVariant KvartalID;

protected:
    // The common end of a record: its file and block keys (the block its number names when no
    // block is being read), its row found again when a conversion is repeated, the commit.
    // The key of the block of that number: opened, found in the destination or made, and
    // committed the first time it is met; its area when given.
    TcsVariant OpenBlock(TcsXMLProcessController& aController, const std::string& aNumber, const double* aArea,
                         std::string_view aPath, xml::PXMLNode aNode);
    // Gives the record's key.
    TcsVariant CommitRecord(TcsXMLProcessController& aController, TcsXMLProcessSessionItem& aItem, const std::string& aNumber);
    // A zone's kind by its TerritorialZone or SpecialZone child, added as a value; nil for none.
    static const char* ZoneKind(TcsXMLProcessSessionItem& aItem, xml::PXMLNode aNode);
    // A survey point: the document's X (north) and Y (east) as a point of the item.
    void SetPointGeometry(TcsXMLProcessSessionItem& aItem, xml::PXMLNode aNode, std::string_view aX, std::string_view aY);
    // One child item (part type 8) per right of the record, numbered "<number> №<n>".
    // aParent nil: the rights belong to aParentKey, committed before. aPath is the rights' own
    // path, for their values' schema.
    void ProcessRights(TcsXMLProcessController& aController, TcsXMLProcessSessionItem* aParent, const TcsVariant& aParentKey,
                       const std::vector<xml::PXMLNode>& aRights, const std::string& aNumber, std::string_view aPath);
    void Status(const std::string& aText);
    // The record's path: formulas' paths are found in the XSD below it.
    void SetRecordPath(std::string_view aPath);
    std::string Decode(std::string_view aRelative, std::string aValue) override;
    [[nodiscard]] TcsXmlInfoRosReestr* RosInfo() const;
    // The first three parts of a number, the block's.
    static std::string BlockOfNumber(const std::string& aNumber);
    bool fHasArea = false;

private:
    struct THash {
        using is_transparent = void;
        size_t operator()(std::string_view s) const noexcept { return std::hash<std::string_view>{}(s); }
    };
    using TObjects = std::unordered_map<std::string, const TXSDObject*, THash, std::equal_to<>>;
    std::unordered_map<std::string, TObjects, THash, std::equal_to<>> fDecoders;  // by record path
    TObjects* fRecordObjects = nullptr;
    std::string fRecordPath;
};

class TcsRosReestrKadNew : public TcsRosReestrKad {
    TCS_PERSISTENT(TcsRosReestrKadNew)
public:
    using TcsRosReestrKad::TcsRosReestrKad;
    void Clean() override;
    // The full look: the document's date and number, the statistic, the coordinate systems
    // named by its spatial elements, rights and restrictions.
    void InfoStartElement(xml::PXMLNode aNode, std::string_view aPath) override;
    void InfoCharacters(std::string_view aPath, std::string_view aText) override;
    void AfterUpdateFullInfo() override;
    // A record's ring holds nothing the full look counts.
    bool FullAnalizeSkipNode(xml::PXMLNode aNode, std::string_view aPath) override;
    // The contours below aNode ("contours" lists) as the item's geometry.
    bool FillSpatialDataNewContours(TcsXMLProcessSessionItem& aItem, xml::PXMLNode aNode, bool aCheckClosed);

    int64_t RightCount = 0;
    int64_t RestrictCount = 0;
};

class TcsRosReestrKadPlNew : public TcsRosReestrKadNew {
    TCS_PERSISTENT(TcsRosReestrKadPlNew)
public:
    using TcsRosReestrKadNew::TcsRosReestrKadNew;
    static bool SupportClass(const TcsXMLInfo& aInfo);
    std::string GetTitle() const override { return "Кадастровый план территории вер. 11"; }
    std::string GetRootNodeName() const override { return "extract_cadastral_plan_territory"; }
    std::string GetXSDFileName() const override { return "KPT/KPT_v11/extract_cadastral_plan_territory_v01.xsd"; }
    [[nodiscard]] static const char* StyleSheetBase() { return "KPT"; }
    void Clean() override;
    void InfoCharacters(std::string_view aPath, std::string_view aText) override;
    // The blocks' own rings give the plan's extent: only theirs are looked into.
    bool FullAnalizeSkipNode(xml::PXMLNode aNode, std::string_view aPath) override;
    void UpdateStringInfo(std::vector<std::pair<std::string, std::string>>& aInfo) override;
    bool ProcessXmlReadAllNode(TcsXMLProcessController& aController, xml::PXMLNode aNode, std::string_view aPath) override;
    void ProcessXmlNode(TcsXMLProcessController& aController, xml::PXMLNode aNode, std::string_view aPath) override;
    void PrepareProcessXmlNode(TcsXMLProcessController& aController) override;

    void ProcessParcel(TcsXMLProcessController& aController, xml::PXMLNode aNode, std::string_view aPath);
    void ProcessBuildNew(TcsXMLProcessController& aController, xml::PXMLNode aNode, std::string_view aPath);
    void ProcessZone(TcsXMLProcessController& aController, xml::PXMLNode aNode, std::string_view aPath);
    void ProcessOMSNew(TcsXMLProcessController& aController, xml::PXMLNode aNode, std::string_view aPath);
    void ProcessBound(TcsXMLProcessController& aController, xml::PXMLNode aNode, std::string_view aPath);
    void ProcessSurveying_project(TcsXMLProcessController& aController, xml::PXMLNode aNode, std::string_view aPath);

    TcsRosReestrStat FStat;
    // The blocks' numbers and areas as the full look found them, in document order.
    std::vector<std::string> FKadNumList;
    std::vector<double> FAreaList;
    std::string FLastKadNum;
    int KadPlType = 0;
    // The extent of the blocks' own spatial elements, as the full look saw them.
    double XMin = 0, XMax = 0, YMin = 0, YMax = 0;

private:
    // Opens the block item of the next cadastral_block.
    void ProcessBlock(TcsXMLProcessController& aController, xml::PXMLNode aNode, std::string_view aPath);
    size_t fBlockIndex = 0;
    bool fHasExtent = false;
};

// The classic family's process: records are read whole and mapped by the classic tables; rings
// are Entity_Spatial of Spatial_Element in either spelling, and Contours of several make one
// geometry. The three documents below differ in their roots and schemas only.
class TcsRosReestrKadClassic : public TcsRosReestrKad {
    TCS_PERSISTENT(TcsRosReestrKadClassic)
public:
    using TcsRosReestrKad::TcsRosReestrKad;
    void Clean() override;
    // The full look: the certificate's date and number, the blocks' numbers and areas, the
    // statistic, the coordinate systems, the rights.
    void InfoStartElement(xml::PXMLNode aNode, std::string_view aPath) override;
    void InfoCharacters(std::string_view aPath, std::string_view aText) override;
    void AfterUpdateFullInfo() override;
    // A ring's points hold nothing the full look counts.
    bool FullAnalizeSkipNode(xml::PXMLNode aNode, std::string_view aPath) override;
    // The schema the document's namespace or version names; none for one we do not know.
    std::string GetXSDFileName() const override;
    bool ProcessXmlReadAllNode(TcsXMLProcessController& aController, xml::PXMLNode aNode, std::string_view aPath) override;
    void ProcessXmlNode(TcsXMLProcessController& aController, xml::PXMLNode aNode, std::string_view aPath) override;
    void PrepareProcessXmlNode(TcsXMLProcessController& aController) override;

    // The record's rings as the item's geometry: its Entity_Spatial, or its Contours.
    bool FillSpatialDataClassic(TcsXMLProcessSessionItem& aItem, xml::PXMLNode aNode);
    // The record's Borders (the lengths and directions of its edges): attributes of its
    // geometry, kept apart from the rings; the count read.
    int FillSpatialData(xml::PXMLNode aNode);
    // The rights of an extract (ReestrExtract), each a child of the document's object.
    void ProcessFullParcelAnyRights(TcsXMLProcessController& aController, xml::PXMLNode aNode);

    TcsGeometryAttributionObject FUchInfo;
    std::vector<std::string> FKadNumList;
    std::vector<double> FAreaList;
    int64_t RightCount = 0;

protected:
    virtual TcsXmlInfoRosReestrFileType DocumentType() const { return rrUnknown; }

private:
    void ProcessBlock(TcsXMLProcessController& aController, xml::PXMLNode aNode, std::string_view aPath);
    void ProcessRecord(TcsXMLProcessController& aController, int aKind, xml::PXMLNode aNode, std::string_view aPath);
    size_t fBlockIndex = 0;
    // The object the extract's rights belong to: the last record committed.
    TcsVariant fObjectKey;
    std::string fObjectNumber;
};

// The classic plan of territory: Region_Cadastr of CodeType 101, and KPT.
class TcsRosReestrKadPlClassic : public TcsRosReestrKadClassic {
    TCS_PERSISTENT(TcsRosReestrKadPlClassic)
public:
    using TcsRosReestrKadClassic::TcsRosReestrKadClassic;
    static bool SupportClass(const TcsXMLInfo& aInfo);
    std::string GetTitle() const override { return "Кадастровый план территории"; }
    std::string GetRootNodeName() const override { return "KPT"; }
    [[nodiscard]] static const char* StyleSheetBase() { return "KPT"; }

protected:
    TcsXmlInfoRosReestrFileType DocumentType() const override { return rrKPT; }
};

// The parcel extracts: KVZU and KPZU.
class TcsRosReestrKadZUClassic : public TcsRosReestrKadClassic {
    TCS_PERSISTENT(TcsRosReestrKadZUClassic)
public:
    using TcsRosReestrKadClassic::TcsRosReestrKadClassic;
    static bool SupportClass(const TcsXMLInfo& aInfo);
    std::string GetTitle() const override { return "Кадастровая выписка о земельном участке"; }
    std::string GetRootNodeName() const override { return "KVZU"; }

protected:
    TcsXmlInfoRosReestrFileType DocumentType() const override { return rrZUInfo; }
};

// The building extracts: KVOKS and KPOKS.
class TcsRosReestrKadOKSClassic : public TcsRosReestrKadClassic {
    TCS_PERSISTENT(TcsRosReestrKadOKSClassic)
public:
    using TcsRosReestrKadClassic::TcsRosReestrKadClassic;
    static bool SupportClass(const TcsXMLInfo& aInfo);
    std::string GetTitle() const override { return "Кадастровая выписка об объекте капитального строительства"; }
    std::string GetRootNodeName() const override { return "KVOKS"; }

protected:
    TcsXmlInfoRosReestrFileType DocumentType() const override { return rrOKSInfo; }
};

// The tables of formulas, each in slot order (csRosreestrXMLCadastrTables.cpp).
struct TcsCadastrTables {
    TcsFormulaTable Parcel;
    TcsFormulaTable Build;
    TcsFormulaTable Construction;
    TcsFormulaTable UnderConstruction;
    TcsFormulaTable Zone;
    TcsFormulaTable OmsPoint;
    TcsFormulaTable SubjectBound;
    TcsFormulaTable Coastline;
    TcsFormulaTable LocalityBound;
    TcsFormulaTable MunicipalBound;
    TcsFormulaTable Surveying;
};
// Parsed once, on first use.
const TcsCadastrTables& CadastrTablesNew();

// The classic family's tables, in the same slot layout.
struct TcsCadastrTablesClassic {
    TcsFormulaTable Parcel;
    TcsFormulaTable Building;
    TcsFormulaTable Construction;
    TcsFormulaTable Uncompleted;
    TcsFormulaTable Flat;
    TcsFormulaTable Object;
    TcsFormulaTable Zone;
    TcsFormulaTable OmsPoint;
    TcsFormulaTable Bound;
    TcsFormulaTable Right;
};
const TcsCadastrTablesClassic& CadastrTablesClassic();

// Registers the cadastre processes with the process registry.
void RegisterCadastrProcesses();

}  // namespace tmi
