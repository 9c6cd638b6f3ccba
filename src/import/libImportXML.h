// TlibImportXML: one import of one XML file. The console makes one per file, fills its
// choices, calls Execute, reads the outcome and frees it; freeing closes the tables, which
// is what makes them complete on disk. Every reader and writer is one of its operations;
// their implementations stand in one file per reader family.
#pragma once

#include <array>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "OXmlPDOM.h"
#include "csClassifiers.h"
#include "csGeometryCore.h"
#include "csGrParcel.h"
#include "csMapinfoTab.h"
#include "csProgress.h"
#include "csSpatialRings.h"
#include "csVariant.h"

namespace tmi {

// One turning point kept for the table "Точки". Its texts stand once in the list that holds
// it (TPointList) and are named here by reference; a plan of a whole district holds hundreds
// of thousands of points, and the parcel's number is shared by all the points of the parcel.
struct TPointDecl {
    double x = 0;
    double y = 0;
    double tol = 0;        // the delta as its text form reads back; meaningful when hasTol
    uint32_t npt = 0;      // references into the list's texts
    uint32_t npt2 = 0;
    uint32_t knuch = 0;
    int16_t status = 0;
    bool hasTol = false;
};

// The points of a job: records in chunks that never move, their texts, each after its length,
// in blocks beside them, all freed together.
class TPointList {
public:
    TPointList() = default;
    TPointList(const TPointList&) = delete;
    TPointList& operator=(const TPointList&) = delete;

    void Add(double aX, double aY, std::string_view aNpt, std::string_view aNpt2, std::string_view aKnuch,
             int32_t aStatus, double aDelta);
    [[nodiscard]] size_t size() const noexcept { return fCount; }
    [[nodiscard]] const TPointDecl& operator[](size_t aIndex) const noexcept {
        return fChunks[aIndex / kChunk][aIndex % kChunk];
    }
    [[nodiscard]] std::string_view Text(uint32_t aRef) const noexcept;
    void clear() noexcept;

private:
    static constexpr size_t kChunk = 4096;
    static constexpr size_t kTextBlock = size_t(64) << 10;
    uint32_t Keep(std::string_view aText);

    xml::TBlockArena fArena{size_t(1) << 20, size_t(8) << 20};
    std::vector<TPointDecl*> fChunks;
    size_t fCount = 0;
    std::vector<char*> fTextBlocks;  // a reference is block * kTextBlock + offset; a long text
                                     // takes several slots, the first naming its block
    size_t fTextUsed = kTextBlock;   // in the last block; full before the first
    std::string fLastKnuch;          // consecutive points of one parcel share its number
    uint32_t fLastKnuchRef = 0;
    bool fHasKnuch = false;
    uint64_t fLastDeltaBits = 0;     // the last delta's conversion, kept for the next point
    double fLastTol = 0;
    bool fLastHasTol = false;
    bool fHasDelta = false;
};

struct TXMLSert {
    std::string Organization;
    TDateTime Date;
    std::string Number;
    std::string Appointment;
    std::string FIO;
};

struct TGeomRect {
    double x1 = 0, y1 = 0, x2 = 0, y2 = 0;
};

struct TtmRect {
    double left = 0, bottom = 0, right = 0, top = 0;
};

struct TXMLeDoc {
    std::string DocType;
    int32_t SchemaType = 0;
    std::string DocVer;
    int32_t DocStyle = 0;
    std::string DocSubStyle;
    std::string SenderName;
    TDateTime SenderDate;
    std::string Recipient;
};

struct SpecAlgo {
    std::string caption, cswkt, csmapinfo;
    double ifxmin = 0, ifxmax = 0, dx = 0, dy = 0;
    int32_t styleimport = 0;
    double x1 = 0, y1 = 0, x2 = 0, y2 = 0, deg = 0, min = 0, sec = 0, dms = 0, scale = 0;
};

// A bound or zone of the current document.
struct TXMLBound {
    bool IsGraphic = false;
    TGrParcelRef Obj;
    std::string UchNum, BType, BName;
    std::array<std::string, 5> DocType, DocName, DocNumber;
    std::array<TDateTime, 5> DocDate;
    std::array<std::string, 5> DocOrgan;
    TtmRect GRect;
    std::string UtName;
};

struct TXMLArea {
    std::string Type_, TypeStr;
    double Value = 0;
    std::string Eiz;
    double Tolerance = 0;
};

struct TXMLChar {
    std::string Type_, TypeStr;
    double Value = 0;
    std::string Eiz;
    TDateTime Date;
};

struct TXMLRight {
    std::string Kind, Owner, DocKind1, Number1;
    TDateTime Date1, DateStart1;
    std::string Organ1;
    TDateTime DateReg1;
    std::string Register1, DocKind2, Number2;
    TDateTime Date2, DateStart2;
    std::string Organ2;
    TDateTime DateReg2;
    std::string Register2;
};

struct TXMLSubParcel {
    bool IsGraphic = false;
    TGrParcelRef Obj;
    std::shared_ptr<TcsGeometry> csGeom;
    std::string CadastralNumber;
    TDateTime Date;
    std::string Mean;
    int32_t EncumbranceCode = 0;
    std::string Encumbrance, CalcNumber;
    TDateTime DateEnd;
    double Area = 0;
    int32_t AreaCnt = 0;
    std::vector<TXMLArea> XMLArea;
};

struct TXMLEnc {
    int32_t Code = 0;
    std::string Name_;
};

struct TXMLContour {
    TGrContRef Obj;
    std::string Name_;
};

struct TXMLOn {
    std::string CadastralNumber, Address, Email;
};

struct TXMlEntryParcel {
    bool IsGraphic = false;
    TGrParcelRef Obj;
    std::string Block, Number, NumberEZ, Status;
    TDateTime DateEnd;
    double Area = 0;
    int32_t AreaCnt = 0;
    std::vector<TXMLArea> XMLArea;
};

// The parcel being read; one record reused for a whole job. Arrays keep their entries from
// parcel to parcel: the counts say how many count, and fields a reader does not name keep
// what an earlier parcel put there.
struct TXMLParcel {
    bool IsGraphic = false;
    TGrParcelRef Obj;
    std::string Block, Number, NumberEZ, Kind, Status, Owner;
    TDateTime Date1, Date2;
    int32_t AreaCnt = 0;
    std::vector<TXMLArea> XMLArea;
    std::string Place, OKATO, KLADR;
    int32_t Katzem = 0;
    std::string Category, Mean, Remarka, Name_;
    int32_t RightCnt = 0;
    std::vector<TXMLRight> XMLRight;
    int32_t SubParcelCnt = 0;
    std::vector<TXMLSubParcel> XMLSubParcel;
    int32_t EncCnt = 0;
    std::vector<TXMLEnc> Encs;
    int32_t CharCnt = 0;
    std::vector<TXMLChar> Chars;
    TXMLChar Ks;
    int32_t ContCnt = 0;
    std::vector<TXMLContour> Contours;
    TDateTime ContDate;
    std::string ContGUID;
    int32_t NeiDefCnt = 0;
    std::vector<TXMLOn> NeiDefs;
    int32_t OldKnCnt = 0;
    std::vector<std::string> OldKns;
    int32_t NewKnCnt = 0;
    std::vector<std::string> NewKns;
    int32_t EntryCnt = 0;
    std::vector<TXMlEntryParcel> EntryParcel;
    std::string SpecialNote;
};

// Error codes of fImpError.
enum : int32_t { kImpErrorNoFile = 2, kImpErrorForbiddenDocument = 3, kImpErrorNoRoot = 4 };

class TlibImportXML : private TcsSpatialRingEvents {
public:
    TlibImportXML();
    ~TlibImportXML();
    TlibImportXML(const TlibImportXML&) = delete;
    TlibImportXML& operator=(const TlibImportXML&) = delete;

    // One import: true when the document was processed or the user stopped at a
    // checkpoint; false when fImpError is 2 (no file) or 4 (no root element).
    bool Execute();
    // The text for fImpError; empty when the code has none.
    [[nodiscard]] std::string GetError() const;
    // Closes the tables and releases the points.
    void Clear();
    void ProcessXmlEvent(int64_t aPosition);
    void ShowProgressOxml(int64_t aPosition);

    // --- the table layer
    void ClearGMFields();
    void AddGMField(std::string_view aName, int aType, bool aGeometry, bool aPrimaryKey, bool aKey, int aSize);
    void CreateGMTable(std::string_view aName, int aKind);
    void CreateGMTables();
    void OpenGMTable(std::string_view aName);
    void CloseGMTable() {}
    void NewGMRecord(bool aGraphic, int8_t aKind);
    void SetGMField(std::string_view aName, const TcsVariant& aValue);
    void SetParcelColumns(const TXMLParcel& p, const std::string& aHolders);
    void PostGMRecord();
    [[nodiscard]] TMITable& OpenTable();

    // --- node accessors every reader uses
    // Element-level children, by the sibling chain.
    int ChildCount(xml::PXMLNode aNode) const;
    // A loop over ChildAt(node, 0), ChildAt(node, 1), ... steps one sibling at a time.
    xml::PXMLNode ChildAt(xml::PXMLNode aNode, int aIndex);
    static std::string_view GetAttr(xml::PXMLNode aNode, std::string_view aName) { return aNode->GetAttribute(aName); }
    // Text as a float with "." ; 0 when it does not parse.
    static double FloatText(xml::PXMLNode aNode);
    // Text of the first child whose name contains aName (case-sensitive); empty when none.
    static std::string ChildTextLike(xml::PXMLNode aNode, std::string_view aName);
    // Text of the first child whose name equals aName, case ignored.
    static std::string ChildTextIs(xml::PXMLNode aNode, std::string_view aName);
    // Depth first: text of the first descendant of that name (case ignored) with a text.
    static std::string DeepChildText(xml::PXMLNode aNode, std::string_view aName);
    // 0 for blank text; "." and "," both read as the decimal mark; 0 when it does not parse.
    static double LooseFloat(std::string_view aText);

    // --- the spatial reader
    xml::PXMLNode CurrentChild() const noexcept { return fChildNode; }
    TGrParcelRef ReadEntitySpatial(xml::PXMLNode aNode);
    TGrParcelRef ReadEntitySpatialPlain(xml::PXMLNode aNode, bool aSortRings);
    TGrContRef ReadRealtyContour(xml::PXMLNode aNode);
    TGrParcelRef ReadContours(xml::PXMLNode aNode);
    TGrParcelRef ReadEntitySpatialNew(xml::PXMLNode aNode, bool aCheckClosed);
    TGrParcelRef ReadEntitySpatialPrefixed(xml::PXMLNode aNode, bool aCheckClosed);
    TGrParcelRef ReadContoursNew(xml::PXMLNode aNode, bool aCheckClosed, bool aShowProgress, bool& aFound);
    TGrParcelRef ReadContoursPrefixed(xml::PXMLNode aNode, bool aCheckClosed, bool aShowProgress, bool& aFound);
    void ReadGeometryContour(xml::PXMLNode aNode, TcsGeometry& aGeometry);
    int32_t AddPointDecl(const std::string& aNpt, const std::string& aNpt2, const std::string& aKnuch, int32_t aStatus,
                         double aDelta, double aY, double aX);
    void ClearSPList() { fRings.Clear(); }

    // --- geometry clauses
    void WriteGrParcel(TGrParcel& aParcel, bool aAsRegion);
    void WriteGrParcelLines(const TGrParcel& aParcel);
    void WriteGrCont(const TGrCont& aCont);
    void WriteGeometry(const TcsGeometry& aGeometry);
    void WriteGeometryParts(const TcsGeometry& aGeometry, double aRadius, int aPosition, int aPartKind,
                            const std::vector<int>& aIndices);
    bool CheckObject() const { return true; }
    bool CheckObjectLinear(const TGrCont& aCont, bool aCheck) const;
    static int CountGMContours(const TGrParcel& aParcel);
    void WriteGrPoint(double aX, double aY);
    // Every written coordinate passes here.
    void TransformPoint(double& aX, double& aY, double aY0, double aX0) const;
    [[nodiscard]] static std::string FormatCoord(double aValue);

    // --- the document pass
    bool ProcessDocument(xml::PXMLNode aRoot);
    void ScanExtremes(xml::PXMLNode aRoot);
    static void WidenExtremes(double& aMin, double& aMax);
    // Tells the kind of document by the root: XMLeDoc, rootnm.
    void RecogniseDocument(xml::PXMLNode aRoot);
    // After Execute: the root was one the readers take (a classic document with its code,
    // a classic plan or parcel extract, or a root of the new family).
    [[nodiscard]] bool KnownDocumentKind() const;

    // --- classic family
    int32_t ReadEDocument(xml::PXMLNode aNode);
    void ReadCertificationDoc(xml::PXMLNode aNode);
    void ReadPackage(xml::PXMLNode aNode);
    void ReadRegionLevel(xml::PXMLNode aNode);
    void ReadParcel(xml::PXMLNode aNode, std::string_view aName);
    void ReadClassicBlocks(xml::PXMLNode aNode);
    void ReadClassicBlock(xml::PXMLNode aNode);
    int CountParcelSteps(xml::PXMLNode aNode);

    // --- classic realty, zones and bounds
    void ReadClassicBounds(xml::PXMLNode aNode);
    void ReadClassicZones(xml::PXMLNode aNode);
    void ReadObjectsRealty(xml::PXMLNode aNode);
    void ReadBound(xml::PXMLNode aNode, int aNumber);
    void ReadZone(xml::PXMLNode aNode, int aNumber);
    void ReadRealtyAddress(xml::PXMLNode aNode, std::string& aPlace, std::string& aOKATO, std::string& aKLADR);

    // --- classic parcel details (aOwner: 1 the parcel, 2 the last sub-parcel, 3 the last entry)
    void ReadAreaList(xml::PXMLNode aNode, int aOwner);
    void ReadArea(xml::PXMLNode aNode, int aOwner);
    void ReadLocation(xml::PXMLNode aNode);
    void ReadCategory(xml::PXMLNode aNode);
    void ReadUtilization(xml::PXMLNode aNode);
    void ReadRights(xml::PXMLNode aNode);
    void ReadRightType(xml::PXMLNode aNode, std::string& aText, int32_t& aNumber);
    std::string ReadOwner(xml::PXMLNode aNode);
    void ReadRightDocuments(xml::PXMLNode aNode, TXMLRight& aRight);
    void ReadSubParcels(xml::PXMLNode aNode);
    void ReadEncumbrances(xml::PXMLNode aNode, int aOwner);
    void ReadEncumbrance(xml::PXMLNode aNode, int aOwner);
    void ReadGroundPayments(xml::PXMLNode aNode);
    void ReadContactor(xml::PXMLNode aNode);
    void ReadParcelNeighbours(xml::PXMLNode aNode);
    void ReadOffspringParcels(xml::PXMLNode aNode);
    void ReadPrevNumbers(xml::PXMLNode aNode);
    void ReadCompositionEZ(xml::PXMLNode aNode);
    // A date of the text, 0 when it is not one: DD.MM.YYYY or YYYY-MM-DD.
    static TDateTime ParseXmlDate(std::string_view aText);

    // --- new family
    void ReadDetailsStatement(xml::PXMLNode aNode);
    void ReadLandRecord(xml::PXMLNode aNode);
    void ReadCadastralBlocks(xml::PXMLNode aNode);
    void ReadCadastralBlock(xml::PXMLNode aNode);
    int CountLandProgress(xml::PXMLNode aNode);
    static std::string_view StripNodePrefix(std::string_view aName);
    void ResetGRect();
    void ReadAddressLocation(xml::PXMLNode aNode);
    void ReadLandParams(xml::PXMLNode aNode);
    void ReadObjectParts(xml::PXMLNode aNode);
    void ReadRightRecords(xml::PXMLNode aNode);
    static std::string ShortParcelNumber(std::string_view aNumber);
    void ReadRealtyRecord(xml::PXMLNode aNode, int aKind);
    // The boundary and zone records of the new family; false when nothing was taken.
    bool ReadBoundaryRecord(xml::PXMLNode aNode, int aNumber, std::string_view aGroup);
    bool ReadZoneRecord(xml::PXMLNode aNode, int aNumber);
    void ReadConstructionExtract(xml::PXMLNode aNode);
    void ReadZoneTerritorySurveying(xml::PXMLNode aNode);
    void ReadRegistryBoundaries(xml::PXMLNode aNode);

    // --- the choices of the console
    std::string fXMLName;
    // The document itself when it was read from elsewhere (a zip archive): loaded from here
    // (Execute takes it), and fXMLName only names it.
    std::optional<std::string> fXMLData;
    // Where the list of this file's tables goes; empty for the usual place (ResultListPath).
    std::string fResultListFile;
    int32_t fOutputType = 0;
    std::string fOutputFile;
    int32_t fClearType = 0;
    bool fReversXY = false;
    bool fWriteObj = false;
    bool fWriteParcels = true;
    bool fWriteZones = true;
    bool fWriteBounds = true;
    bool fWriteCenter = false;
    int32_t fWriteStyle = 0;  // 0 MIF/MID; 1 TAB instead, parcels without objects, no list; 2 MIF/MID and TAB
    TcsProgress* FProgress = nullptr;  // not owned
    int32_t fPoints = 0;
    std::string miCoordSys;
    bool chkBounds = false;
    double wrX1 = 0, wrX2 = 0, wrY1 = 0, wrY2 = 0;
    std::string XSDPath;
    std::string AppDir;
    double csXmin = 0, csYmin = 0, csXmax = 0, csYmax = 0;
    std::vector<std::string> arrCn;
    bool ispacket = false;
    std::string qgisPath;
    // Notices for the operator (a missing classifier, a table that could not be closed).
    std::function<void(const std::string&)> OnMessage;
    // The diagnostic log: with debugPrint set, the geometry reader writes each element name
    // it visits here.
    std::function<void(const std::string&)> OnLog;

    // --- the state of the job
    int32_t fPntMain = 0;
    // The number and type of the classic unit being read.
    std::string fUnitNumber, fUnitType;
    int32_t fImpError = 0;
    int32_t fSplitContours = 0;
    bool DoAbort = false;
    bool DoAll = false;
    bool RewriteXML = false;
    xml::IXMLDocument FNTDoc;
    // What the XML layer said of the file when it did not load; kept after the document is freed.
    xml::IOTextParseError fLoadError;
    xml::PXMLNode FNTCurrentNode = nullptr;
    int32_t nPoints = 0;
    // Turning points arrive by the million: the list grows in chunks and never moves what it
    // already holds.
    TPointList arPoints;
    double tolerance = 0.01;
    int32_t contour = 0;
    std::vector<std::string> arrayKn;
    std::vector<TXMLBound> XMLBound;
    std::vector<TXMLBound> XMLZone;
    std::vector<std::string> XMLSpecZones;
    TXMLSert XMLSert;
    int32_t nSpecZones = 0;
    int32_t fCode_Type = 0;
    std::string fDoc_Name;
    TDateTime fDu;
    TGeomRect WorkRect;
    int32_t StatusStyle = 0;
    bool XMLStopCont = false;
    double xmin = 0, ymin = 0, xmax = 0, ymax = 0;
    bool fGraphic = false;
    std::string fTabName;
    int32_t fSpType = 0;
    int32_t fListInd = -1;
    std::string fStateXML;
    int8_t fTypeGr = 0;
    std::string docGUID;
    TXMLeDoc XMLeDoc;
    TXMLParcel XMLParcel;
    bool FindNewData = false;
    TtmRect GRect;
    TtmRect qvRect;
    std::string rootnm;
    std::vector<SpecAlgo> specAr;
    int32_t nspec = 0;
    std::string blockCn;
    bool simpleProgress = true;
    std::string docDate;
    std::string fcnbuf;
    bool debugPrint = false;
    int32_t iMode = 0;

    TClassList fClassList;

    // --- spatial state
    TcsSpatialRings fRings{this};
    TPointRad fPointRad;
    bool fWriteRad = false;
    std::string NumbPp;
    std::string ParcelStr, ContourStr, ElementStr;
    int32_t FMaxElementCount = 0;

    // The open tables, in order of creation.
    [[nodiscard]] const std::vector<std::unique_ptr<TMITable>>& Tables() const noexcept { return fMITables; }
    // The folder the tables go to, with its trailing "/".
    [[nodiscard]] std::string OutputFolder() const;
    // Where the result list is written.
    [[nodiscard]] static std::string ResultListPath();

private:
    void WriteResultList() const;
    void FlushTables();
    void SetProgressText(std::string_view aText);
    [[nodiscard]] bool Cancelled();

    void ShowElementProgress();
    void ShowContourProgress();
    bool SpatialElement(int aIndex, int aCount) override;
    bool ContourListItem(int aIndex, int aCount) override;
    bool ContourFound(xml::PXMLNode aContour, bool aShowProgress) override;
    bool ContourListEnd(int aCount, bool aShowProgress) override;
    void ClassicRing(xml::PXMLNode aRing) override;
    void ClassicUnit(xml::PXMLNode aUnit) override;
    void ClassicOrdinate(double aX, double aY, xml::PXMLNode aOrdinate, double aDelta) override;
    void Ordinate(double aX, double aY, xml::PXMLNode aOrdinate) override;
    void DecidePointNumbering(xml::PXMLNode aRing);
    void Extremes(double aX, double aY, bool aRect);

    std::vector<TGMField> FieldList;
    std::vector<std::unique_ptr<TMITable>> fMITables;
    // The cursor of ChildAt.
    xml::PXMLNode fChildParent = nullptr;
    xml::PXMLNode fChildNode = nullptr;
    int fChildIndex = -1;
};

// The local name of a node: the part after the first ":" of its name.
std::string_view LocalNameOf(xml::PXMLNode aNode);

// The two name tests of the readers. Contains: aPart is a case-sensitive part of the node's
// name, so a prefix or a longer name passes. Equals: the whole name, case ignored (Cyrillic
// as well as Latin).
inline bool NameContains(xml::PXMLNode aNode, std::string_view aPart) {
    return aNode->NodeName().find(aPart) != std::string_view::npos;
}
inline bool NameEquals(xml::PXMLNode aNode, std::string_view aName) { return SameText(aNode->NodeName(), aName); }

}  // namespace tmi
