// The classic family's cadastre processes: the plan of territory (Region_Cadastr, KPT), the
// parcel extracts (KVZU, KPZU) and the building extracts (KVOKS, KPOKS). Records are read whole;
// a block is opened from its header, with the area the full look found for it.
#include <array>

#include "csRosreestrXMLCadastr.h"
#include "csSpatialRings.h"
#include "xml_errors.h"

namespace tmi {

using xml::PXMLNode;

TCS_PROPERTIES(TcsRosReestrKadClassic, TcsRosReestrKad)
TCS_PROPERTIES(TcsRosReestrKadPlClassic, TcsRosReestrKadClassic)
TCS_PROPERTIES(TcsRosReestrKadZUClassic, TcsRosReestrKadClassic)
TCS_PROPERTIES(TcsRosReestrKadOKSClassic, TcsRosReestrKadClassic)

namespace {

enum TClassicKind : uint8_t {
    ckNone, ckBlock, ckParcel, ckBuilding, ckConstruction, ckUncompleted, ckFlat, ckObject, ckZone, ckOms, ckBound, ckExtract
};

std::string_view LocalOf(std::string_view aStep) {
    const size_t colon = aStep.find(':');
    return colon == std::string_view::npos ? aStep : aStep.substr(colon + 1);
}

// What the element at the end of a path is to the classic walk, by its name and its parent's.
TClassicKind ClassicKind(std::string_view aPath) {
    const size_t slash = aPath.rfind('/');
    if (slash == std::string_view::npos) return ckNone;
    const std::string_view name = LocalOf(aPath.substr(slash + 1));
    // Most elements are ordinates and their kin: turned away by their first letter.
    switch (name.empty() ? '\0' : name.front()) {
    case 'B': case 'C': case 'E': case 'F': case 'N': case 'O': case 'P': case 'R': case 'U': case 'Z': break;
    default: return ckNone;
    }
    const std::string_view head = aPath.substr(0, slash);
    const size_t above = head.rfind('/');
    const std::string_view parent = LocalOf(above == std::string_view::npos ? head : head.substr(above + 1));
    if (name == "Cadastral_Block" || name == "CadastralBlock")
        return parent == "Cadastral_Blocks" || parent == "CadastralBlocks" ? ckBlock : ckNone;
    if (name == "Parcel" || name == "ExistParcel" || name == "NewParcel")
        return parent == "Parcels" || parent == "KPZU" ? ckParcel : ckNone;
    if (parent == "ObjectRealty" || parent == "Realty") {
        if (name == "Building") return ckBuilding;
        if (name == "Construction") return ckConstruction;
        if (name == "Uncompleted") return ckUncompleted;
        if (name == "Flat") return ckFlat;
        return ckNone;
    }
    if (name == "Zone") return parent == "Zones" ? ckZone : ckNone;
    if (name == "OMSPoint") return parent == "OMSPoints" ? ckOms : ckNone;
    if (name == "Bound") return parent == "Bounds" ? ckBound : ckNone;
    if (name == "ReestrExtract") return above == 0 ? ckExtract : ckNone;
    // The registry's form of a building extract: its object, whatever kind, under the root.
    if (name == "Object") return above == 0 && (parent == "KVOKS" || parent == "KPOKS") ? ckObject : ckNone;
    return ckNone;
}

int64_t TcsRosReestrStat::*ClassicCounter(TClassicKind aKind) {
    switch (aKind) {
    case ckParcel: return &TcsRosReestrStat::ParselCount;
    case ckBuilding: return &TcsRosReestrStat::BuildCount;
    case ckConstruction: return &TcsRosReestrStat::ConstructionCount;
    case ckUncompleted: return &TcsRosReestrStat::Under_ConstructionCount;
    case ckZone: return &TcsRosReestrStat::Zones_and_territories_recordCount;
    case ckOms: return &TcsRosReestrStat::Oms_PointCount;
    default: return nullptr;
    }
}

bool EndsWithStep(std::string_view aPath, std::string_view aTail) {
    return aPath.size() > aTail.size() && aPath.ends_with(aTail) && aPath[aPath.size() - aTail.size() - 1] == '/';
}

double AreaNumber(std::string_view aText) {
    double v = 0;
    return TryStrToFloat(Trim(aText), v) ? v : 0;
}

// Every element named Right below aNode, in document order.
std::vector<PXMLNode> RightsBelow(PXMLNode aNode) {
    std::vector<PXMLNode> rights;
    std::vector<PXMLNode> pending{aNode->FirstChild()};
    while (!pending.empty()) {
        PXMLNode c = pending.back();
        if (!c) {
            pending.pop_back();
            continue;
        }
        pending.back() = c->NextSibling();
        if (c->NodeType() != xml::ntElement) continue;
        if (c->LocalName() == "Right") rights.push_back(c);
        else pending.push_back(c->FirstChild());
    }
    return rights;
}

// The schemas of the documents by their namespace; the plan of Region_Cadastr by its version.
struct TClassicSchema {
    const char* Namespace;
    const char* File;
};
constexpr TClassicSchema kClassicSchemas[] = {
    {"urn://x-artefacts-rosreestr-ru/outgoing/kpt/9.", "KPT_v09/KPT/KPT_v09.xsd"},
    {"urn://x-artefacts-rosreestr-ru/outgoing/kpt/10.", "KPT_v10/KPT/KPT_v10.xsd"},
    {"urn://x-artefacts-rosreestr-ru/outgoing/kvzu/6.", "KVZU_v06/KVZU/KVZU_v06.xsd"},
    {"urn://x-artefacts-rosreestr-ru/outgoing/kvzu/7.", "KVZU_v07/KVZU/KVZU_v07.xsd"},
    {"urn://x-artefacts-rosreestr-ru/outgoing/kpzu/5.", "KPZU_v05/KPZU/KPZU_v05.xsd"},
    {"urn://x-artefacts-rosreestr-ru/outgoing/kpzu/6.", "KPZU_v06/KPZU/KPZU_v06.xsd"},
    {"urn://x-artefacts-rosreestr-ru/outgoing/kvoks/2.", "KVOKS_v02/KVOKS_v02.xsd"},
    {"urn://x-artefacts-rosreestr-ru/outgoing/kvoks/3.", "KVOKS_v07/KVOKS/KVOKS_v07.xsd"},
    {"urn://x-artefacts-rosreestr-ru/outgoing/kpoks/3.", "KPOKS_v03/KPOKS/KPOKS_v03.xsd"},
    {"urn://x-artefacts-rosreestr-ru/outgoing/kpoks/4.", "KPOKS_v04/KPOKS/KPOKS_v04.xsd"},
};

std::string RootAttribute(const TcsXMLInfo& aInfo, std::string_view aName) {
    for (const auto& [name, value] : aInfo.RootAttributes)
        if (name == aName) return value;
    return {};
}

bool RootIs(const TcsXMLInfo& aInfo, std::string_view aName) { return LocalOf(aInfo.RootNodeName) == aName; }

}  // namespace

// ---------------------------------------------------------------------------------------------
// The documents

bool TcsRosReestrKadPlClassic::SupportClass(const TcsXMLInfo& aInfo) {
    return RootIs(aInfo, "KPT") || (RootIs(aInfo, "Region_Cadastr") && RootAttribute(aInfo, "CodeType") == "101");
}

bool TcsRosReestrKadZUClassic::SupportClass(const TcsXMLInfo& aInfo) { return RootIs(aInfo, "KVZU") || RootIs(aInfo, "KPZU"); }

bool TcsRosReestrKadOKSClassic::SupportClass(const TcsXMLInfo& aInfo) {
    return RootIs(aInfo, "KVOKS") || RootIs(aInfo, "KPOKS");
}

// ---------------------------------------------------------------------------------------------
// TcsRosReestrKadClassic

void TcsRosReestrKadClassic::Clean() {
    TcsRosReestrKad::Clean();
    FUchInfo.Clear();
    FKadNumList.clear();
    FAreaList.clear();
    RightCount = 0;
    fBlockIndex = 0;
    fObjectKey = TcsVariant();
    fObjectNumber.clear();
}

std::string TcsRosReestrKadClassic::GetXSDFileName() const {
    if (!FXmlInfo) return {};
    if (RootIs(*FXmlInfo, "Region_Cadastr")) {
        const std::string version = RootAttribute(*FXmlInfo, "Version");
        if (version.size() != 2 || version < "05" || version > "08") return {};
        return "V" + version + "_STD_KPT/STD_KPT.xsd";
    }
    const std::string ns = RootAttribute(*FXmlInfo, "xmlns");
    for (const TClassicSchema& s : kClassicSchemas)
        if (ns.starts_with(s.Namespace)) return s.File;
    return {};
}

void TcsRosReestrKadClassic::InfoStartElement(PXMLNode aNode, std::string_view aPath) {
    const TClassicKind kind = ClassicKind(aPath);
    if (kind == ckBlock) {
        FKadNumList.emplace_back(Trim(aNode->GetAttribute("CadastralNumber")));
        FAreaList.push_back(0);
        if (FKadNum.empty()) FKadNum = FKadNumList.back();
        return;
    }
    if (const auto counter = ClassicCounter(kind)) {
        ++(Stat.*counter);
        if (FKadNum.empty() && FKadNumList.empty()) FKadNum = Trim(aNode->GetAttribute("CadastralNumber"));
        return;
    }
    if (kind != ckNone) return;
    const std::string_view name = aNode->LocalName();
    if (name == "Right") {
        ++RightCount;
    } else if (name == "Area" && !FAreaList.empty() && aNode->HasAttribute("Total")) {
        // The plan's block gives its area as attributes; later versions as elements.
        const size_t slash = aPath.rfind('/');
        if (ClassicKind(aPath.substr(0, slash)) != ckBlock) return;
        FAreaList.back() = AreaNumber(aNode->GetAttribute("Total")) * (aNode->GetAttribute("Unit") == "059" ? 10000 : 1);
        if (FAreaList.size() == 1) FArea = FAreaList.back(), fHasArea = true;
    } else if ((name == "CoordSystem" || name == "Coord_System") && FXmlInfo) {
        const std::string id(aNode->HasAttribute("CsId") ? aNode->GetAttribute("CsId") : aNode->GetAttribute("Cs_Id"));
        if (FXmlInfo->CoordSysDocName.empty()) FXmlInfo->CoordSysDocName = std::string(aNode->GetAttribute("Name"));
        if (FXmlInfo->CoordSysDocID.empty()) FXmlInfo->CoordSysDocID = id;
        if (TcsXMLCoordSystemsInfo* systems = FXmlInfo->CoordSystemsInfo(); systems && !id.empty())
            systems->AddCoordSystemID(id, nullptr);
    }
}

bool TcsRosReestrKadClassic::FullAnalizeSkipNode(PXMLNode aNode, std::string_view) {
    const std::string_view name = aNode->LocalName();
    return name == "Spatial_Element" || name == "SpatialElement";
}

void TcsRosReestrKadClassic::InfoCharacters(std::string_view aPath, std::string_view aText) {
    if (!FXmlInfo) return;
    const bool certificate = aPath.find("/CertificationDoc/") != std::string_view::npos ||
                             aPath.find("/Certification_Doc/") != std::string_view::npos;
    if (certificate) {
        const std::string text = Trim(aText);
        if (text.empty()) return;
        TDateTime date;
        if (EndsWithStep(aPath, "Date") && !FXmlInfo->HasDateDocument && TryStrToDateTime(text, date)) {
            Date = date;
            FXmlInfo->DateDocument = date;
            FXmlInfo->HasDateDocument = true;
        } else if (EndsWithStep(aPath, "Number") && FXmlInfo->Number.empty()) {
            FXmlInfo->Number = text;
        }
        return;
    }
    // A block's area as elements: Total, then Unit.
    if (FAreaList.empty() || !(aPath.ends_with("/Area/Total") || aPath.ends_with("/Area/Unit"))) return;
    const std::string_view area = aPath.substr(0, aPath.rfind('/'));
    if (ClassicKind(area.substr(0, area.rfind('/'))) != ckBlock) return;
    if (aPath.ends_with("/Total")) FAreaList.back() = AreaNumber(aText);
    else if (Trim(aText) == "059") FAreaList.back() *= 10000;
    if (FAreaList.size() == 1) FArea = FAreaList.back(), fHasArea = true;
}

void TcsRosReestrKadClassic::AfterUpdateFullInfo() {
    if (TcsXmlInfoRosReestr* info = RosInfo()) info->FileType = DocumentType();
    if (FXmlInfo && FVersion.empty()) {
        FVersion = RootAttribute(*FXmlInfo, "Version");
        if (FVersion.empty()) {
            // The version the namespace names, as "10.0.1".
            const std::string ns = RootAttribute(*FXmlInfo, "xmlns");
            FVersion = ns.substr(ns.rfind('/') + 1);
        }
    }
    TcsRosReestrKad::AfterUpdateFullInfo();
    if (FXmlInfo && RightCount > 0) FXmlInfo->SetKeyValue("RIGHT_COUNT", "Количество прав", std::to_string(RightCount));
}

void TcsRosReestrKadClassic::PrepareProcessXmlNode(TcsXMLProcessController& aController) {
    TcsRosReestrKad::PrepareProcessXmlNode(aController);
    fBlockIndex = 0;
    KvartalID = TcsVariant();
    fObjectKey = TcsVariant();
    fObjectNumber.clear();
    FUchInfo.Clear();
    if (TcsXmlInfoRosReestr* info = RosInfo()) info->FileType = DocumentType();
}

bool TcsRosReestrKadClassic::ProcessXmlReadAllNode(TcsXMLProcessController&, PXMLNode, std::string_view aPath) {
    const TClassicKind kind = ClassicKind(aPath);
    return kind != ckNone && kind != ckBlock;
}

void TcsRosReestrKadClassic::ProcessXmlNode(TcsXMLProcessController& aController, PXMLNode aNode, std::string_view aPath) {
    const TClassicKind kind = ClassicKind(aPath);
    if (kind == ckBlock) ProcessBlock(aController, aNode, aPath);
    else if (kind != ckNone) ProcessRecord(aController, kind, aNode, aPath);
}

void TcsRosReestrKadClassic::ProcessBlock(TcsXMLProcessController& aController, PXMLNode aNode, std::string_view aPath) {
    const size_t index = fBlockIndex++;
    const std::string number = Trim(aNode->GetAttribute("CadastralNumber"));
    if (number.empty()) {
        KvartalID = TcsVariant();
        return;
    }
    FKadNum = number;
    // The area the full look found for this block, when it saw the same one there.
    const bool known = index < FAreaList.size() && FKadNumList[index] == number;
    KvartalID = OpenBlock(aController, number, known ? &FAreaList[index] : nullptr, aPath, aNode);
}

void TcsRosReestrKadClassic::ProcessRecord(TcsXMLProcessController& aController, int aKind, PXMLNode aNode,
                                           std::string_view aPath) {
    const TClassicKind kind = static_cast<TClassicKind>(aKind);
    if (kind == ckExtract) {
        ProcessFullParcelAnyRights(aController, aNode);
        return;
    }
    const TcsCadastrTablesClassic& tables = CadastrTablesClassic();
    const TcsFormulaTable* table = nullptr;
    int part = kPartParcel, numberSlot = 0;
    const char* status = "Обработка участка: ";
    TcsRosReestrExclude exclude = reParcels;
    switch (kind) {
    case ckParcel: table = &tables.Parcel; break;
    case ckBuilding: table = &tables.Building; break;
    case ckConstruction: table = &tables.Construction; break;
    case ckUncompleted: table = &tables.Uncompleted; break;
    case ckFlat: table = &tables.Flat; break;
    case ckObject: table = &tables.Object; break;
    case ckZone: table = &tables.Zone, part = kPartZone, status = "Обработка зоны: ", exclude = reZones; break;
    case ckOms: table = &tables.OmsPoint, part = kPartOmsPoint, status = "Обработка пункта ОМС: ", exclude = rePoints; break;
    case ckBound: table = &tables.Bound, part = kPartBound, status = "Обработка границы: ", exclude = reBounds; break;
    default: return;
    }
    if (kind == ckBuilding || kind == ckConstruction || kind == ckUncompleted || kind == ckFlat || kind == ckObject)
        part = kPartBuilding, numberSlot = 4, status = "Обработка ОКС: ", exclude = reObjects;
    if (Excluded(exclude)) return;
    SetRecordPath(aPath);
    TcsXMLProcessSessionItem* item = aController.OpenSessionItem(part, nullptr, false);
    FillSessionItemFormula(*item, *table, aNode);
    const std::string number = item->Values().GetValue(numberSlot).AsString();
    std::string text = status + number;
    if (kind == ckZone)
        if (const char* zone = ZoneKind(*item, aNode)) text += std::string(": ") + zone;
    Status(text);
    if (kind == ckOms) {
        SetPointGeometry(*item, aNode, "OrdX", "OrdY");
    } else {
        FillSpatialDataClassic(*item, aNode);
        FillSpatialData(aNode);
    }
    // Rights the record holds itself (the plan's Rights/Right).
    if (RightCount > 0) ProcessRights(aController, item, {}, RightsBelow(aNode), number, std::string(aPath) + "/Rights/Right");
    fObjectKey = CommitRecord(aController, *item, number);
    fObjectNumber = number;
}

bool TcsRosReestrKadClassic::FillSpatialDataClassic(TcsXMLProcessSessionItem& aItem, PXMLNode aNode) {
    TcsSpatialRings rings;
    TGrParcelRef parcel;
    for (PXMLNode c = aNode->FirstChild(); c; c = c->NextSibling()) {
        if (c->NodeType() != xml::ntElement) continue;
        const std::string_view name = c->LocalName();
        try {
            // The last spatial child decides, as in the live import.
            if (name == "Entity_Spatial" || name == "EntitySpatial") parcel = rings.ReadEntitySpatialClassic(c, false);
            else if (name == "Contours") parcel = rings.ReadContoursClassic(c, false);
        } catch (const xml::EListError&) {
            // An element without a ring: the record has no geometry.
            parcel = nullptr;
        }
    }
    return SetItemGeometry(aItem, parcel.get());
}

int TcsRosReestrKadClassic::FillSpatialData(PXMLNode aNode) {
    int count = 0;
    for (PXMLNode es = aNode->FirstChild(); es; es = es->NextSibling()) {
        if (es->NodeType() != xml::ntElement || (es->LocalName() != "EntitySpatial" && es->LocalName() != "Entity_Spatial")) continue;
        for (PXMLNode borders = es->FirstChild(); borders; borders = borders->NextSibling()) {
            if (borders->NodeType() != xml::ntElement || borders->LocalName() != "Borders") continue;
            for (PXMLNode b = borders->FirstChild(); b; b = b->NextSibling()) {
                if (b->NodeType() != xml::ntElement || b->LocalName() != "Border") continue;
                TcsGeometryAttributionObject::TAttribute a;
                a.Key = std::string(b->GetAttribute("Spatial")) + ":" + std::string(b->GetAttribute("Point1")) + "-" +
                        std::string(b->GetAttribute("Point2"));
                std::string degree, minute;
                for (PXMLNode edge = b->FirstChild(); edge; edge = edge->NextSibling()) {
                    if (edge->NodeType() != xml::ntElement || edge->LocalName() != "Edge") continue;
                    for (PXMLNode e = edge->FirstChild(); e; e = e->NextSibling()) {
                        if (e->LocalName() == "Length") a.Length = e->Text();
                        else if (e->LocalName() == "Definition") a.Definition = e->Text();
                        else if (e->LocalName() == "DirectionAngle") {
                            for (PXMLNode d = e->FirstChild(); d; d = d->NextSibling()) {
                                if (d->LocalName() == "Degree") degree = d->Text();
                                else if (d->LocalName() == "Minute") minute = d->Text();
                            }
                        }
                    }
                }
                if (!degree.empty()) a.DirectionAngle = degree + "°" + minute + "'";
                FUchInfo.Attributes.push_back(std::move(a));
                ++count;
            }
        }
    }
    return count;
}

void TcsRosReestrKadClassic::ProcessFullParcelAnyRights(TcsXMLProcessController& aController, PXMLNode aNode) {
    if (Excluded(reParcels) && Excluded(reObjects)) return;
    const std::vector<PXMLNode> rights = RightsBelow(aNode);
    if (rights.empty()) return;
    ProcessRights(aController, nullptr, fObjectKey, rights, fObjectNumber,
                  "/" + std::string(LocalOf(FXmlInfo ? FXmlInfo->RootNodeName : std::string())) +
                      "/ReestrExtract/ExtractObjectRight/ExtractObject/ObjectRight/Right");
    aController.CommitAllSession(false, true);
}

}  // namespace tmi
