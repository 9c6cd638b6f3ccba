#include "csRosreestrXMLCadastr.h"

#include <cstdio>

#include "csSpatialRings.h"
#include "csXSDLib.h"

namespace tmi {

using xml::PXMLNode;

TCS_PROPERTIES(TcsXmlInfoRosReestr, TcsXMLInfo)
TCS_PROPERTIES(TcsRosReestrProcessConfig, TcsXMLFileProcessConfig)
TCS_PROPERTIES(TcsRosReestrKad, TcsXMLFileUniversalProcess)
TCS_PROPERTIES(TcsRosReestrKadNew, TcsRosReestrKad)
TCS_PROPERTIES(TcsRosReestrKadPlNew, TcsRosReestrKadNew)
TCS_PROPERTIES(TcsGeometryAttributionObject, TcsInfo)

namespace {

// The last step of a path.
std::string_view LastStep(std::string_view aPath) {
    const size_t slash = aPath.rfind('/');
    return slash == std::string_view::npos ? aPath : aPath.substr(slash + 1);
}

std::string FormatNumber(double aValue) { return TcsVariant(aValue).AsString(); }

PXMLNode FirstElementNamed(PXMLNode aNode, std::string_view aName) {
    for (PXMLNode c = aNode ? aNode->FirstChild() : nullptr; c; c = c->NextSibling())
        if (c->NodeType() == xml::ntElement && SameText(c->NodeName(), aName)) return c;
    return nullptr;
}

// The record elements of the new family: how the plan's walk reads each, and the counter of
// the statistic it counts into (none for subject boundaries).
enum TRecordKind : uint8_t { rkNone, rkParcel, rkBuild, rkZone, rkOms, rkBound, rkSurveying };

struct TRecordElement {
    std::string_view Element;
    TRecordKind Kind;
    int64_t TcsRosReestrStat::*Counter;
};

constexpr TRecordElement kRecordElements[] = {
    {"land_record", rkParcel, &TcsRosReestrStat::ParselCount},
    {"build_record", rkBuild, &TcsRosReestrStat::BuildCount},
    {"construction_record", rkBuild, &TcsRosReestrStat::ConstructionCount},
    {"object_under_construction_record", rkBuild, &TcsRosReestrStat::Under_ConstructionCount},
    {"zones_and_territories_record", rkZone, &TcsRosReestrStat::Zones_and_territories_recordCount},
    {"oms_point", rkOms, &TcsRosReestrStat::Oms_PointCount},
    {"subject_boundary_record", rkBound, nullptr},
    {"municipal_boundary_record", rkBound, &TcsRosReestrStat::Municipal_Boundary_RecordCount},
    {"inhabited_locality_boundary_record", rkBound, &TcsRosReestrStat::Inhabited_Locality_Boundary_RecordCount},
    {"coastline_record", rkBound, &TcsRosReestrStat::Coastline_RecordCount},
    {"surveying_project_record", rkSurveying, &TcsRosReestrStat::Surveying_Project_RecordCount},
};

// A name compared with an ASCII name, in any case: a name of ASCII alone can only match one of
// its own length, which turns away almost every other name at once.
bool SameName(std::string_view aName, std::string_view aAscii, bool aNameAscii) {
    return (!aNameAscii || aName.size() == aAscii.size()) && SameText(aName, aAscii);
}

bool AsciiOnly(std::string_view aText) {
    for (const char c : aText)
        if (static_cast<unsigned char>(c) >= 0x80) return false;
    return true;
}

const TRecordElement* RecordElement(std::string_view aName) {
    const bool ascii = AsciiOnly(aName);
    for (const TRecordElement& r : kRecordElements)
        if (SameName(aName, r.Element, ascii)) return &r;
    return nullptr;
}

TRecordKind RecordKind(std::string_view aName) {
    const TRecordElement* r = RecordElement(aName);
    return r ? r->Kind : rkNone;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// The statistic

const std::array<TcsRosReestrStat::TCounter, 10>& TcsRosReestrStat::Counters() {
    static const std::array<TCounter, 10> counters{{
        {"BuildCount", "Количество зданий", &TcsRosReestrStat::BuildCount},
        {"ParselCount", "Количество участков", &TcsRosReestrStat::ParselCount},
        {"ConstructionCount", "Количество сооружений", &TcsRosReestrStat::ConstructionCount},
        {"Under_ConstructionCount", "Количество строящихся объектов", &TcsRosReestrStat::Under_ConstructionCount},
        {"Inhabited_Locality_Boundary_RecordCount", "Количество граница населённого пунктов",
         &TcsRosReestrStat::Inhabited_Locality_Boundary_RecordCount},
        {"Coastline_RecordCount", "Количество границ водных объектов", &TcsRosReestrStat::Coastline_RecordCount},
        {"Municipal_Boundary_RecordCount", "Количество границ муниципальных образований",
         &TcsRosReestrStat::Municipal_Boundary_RecordCount},
        {"Zones_and_territories_recordCount", "Количество зон и территорий", &TcsRosReestrStat::Zones_and_territories_recordCount},
        {"Oms_PointCount", "Количество точек ОМС", &TcsRosReestrStat::Oms_PointCount},
        {"Surveying_Project_RecordCount", "Количество проектов межевания", &TcsRosReestrStat::Surveying_Project_RecordCount},
    }};
    return counters;
}

int64_t* TcsRosReestrStat::CounterOf(std::string_view aElement) {
    const TRecordElement* r = RecordElement(aElement);
    return r && r->Counter ? &(this->*r->Counter) : nullptr;
}

std::string TcsXmlInfoRosReestr::GetInfoText() const {
    static const char* const kTypes[] = {"", "KPT", "KVZU", "KVOKS", "EXTRACT", "ZONE", "BOUNDARY"};
    std::string text = kTypes[FileType];
    if (!Number.empty()) text += (text.empty() ? "" : " ") + std::string("№ ") + Number;
    if (HasDateDocument) {
        int y = 0, m = 0, d = 0, h = 0, n = 0, s = 0, ms = 0;
        DecodeDateTime(DateDocument, y, m, d, h, n, s, ms);
        char date[16];
        std::snprintf(date, sizeof date, "%02d.%02d.%04d", d, m, y);
        text += (text.empty() ? "" : " от ") + std::string(date);
    }
    return text;
}

// ---------------------------------------------------------------------------------------------
// TcsRosReestrKad

TcsRosReestrKad::TcsRosReestrKad(TcsComponent* aOwner) : TcsXMLFileUniversalProcess(aOwner) {}

void TcsRosReestrKad::Clean() {
    TcsXMLFileUniversalProcess::Clean();
    FKadNum.clear();
    FVersion.clear();
    FArea = 0;
    fHasArea = false;
    CodeType.clear();
    Date = TDateTime{};
    Stat.Clear();
    KvartalID = TcsVariant();
}

TcsRosReestrProcessConfig& TcsRosReestrKad::Config() {
    return static_cast<TcsRosReestrProcessConfig&>(ProcessConfig());
}

TcsXmlInfoRosReestr* TcsRosReestrKad::RosInfo() const { return dynamic_cast<TcsXmlInfoRosReestr*>(FXmlInfo); }

bool TcsRosReestrKad::IgnoreNode(TcsXMLProcessController&, TcsXMLProcessSessionItem*, std::string_view, PXMLNode aNode) {
    // Geometry goes its own way.
    return aNode && (SameText(aNode->NodeName(), "entity_spatial") || SameText(aNode->NodeName(), "entityspatial"));
}

void TcsRosReestrKad::ProcessXmlFile(TcsXMLProcessController& aController, TcsXMLFileAnalizer& aAnalizer) {
    if (const TcsXmlInfoRosReestr* info = RosInfo()) aController.Trace().Print("Общие данные XML файла: " + info->GetInfoText());
    TcsXMLFileUniversalProcess::ProcessXmlFile(aController, aAnalizer);
}

void TcsRosReestrKad::UpdateStringInfo(std::vector<std::pair<std::string, std::string>>& aInfo) {
    TcsXMLFileUniversalProcess::UpdateStringInfo(aInfo);
    aInfo.emplace_back("Кадастровый номер", FKadNum);
    aInfo.emplace_back("Версия", FVersion);
    aInfo.emplace_back("Система координат в док.", FXmlInfo ? FXmlInfo->CoordSysDocName : std::string());
    aInfo.emplace_back("ИД системы координат в док.", FXmlInfo ? FXmlInfo->CoordSysDocID : std::string());
    aInfo.emplace_back("Площадь в м2", fHasArea ? FormatNumber(FArea) : std::string());
}

void TcsRosReestrKad::AfterUpdateFullInfo() {
    TcsXMLFileUniversalProcess::AfterUpdateFullInfo();
    if (!FXmlInfo) return;
    FXmlInfo->Statistic.clear();
    for (const TcsRosReestrStat::TCounter& c : TcsRosReestrStat::Counters()) {
        FXmlInfo->SetKeyValue(c.Name, c.Label, std::to_string(Stat.*c.Field));
        FXmlInfo->Statistic.emplace_back(c.Label, Stat.*c.Field);
    }
    const TcsXMLCoordSystemsInfo* systems = FXmlInfo->CoordSystemsInfo();
    FXmlInfo->SetKeyValue("HASUNKNOWNCRS", "Есть не определённые СК", systems && systems->HasUnknownCRS() ? "Да" : "Нет");
    FXmlInfo->SetKeyValue("UNKNOWNCRS", "Описание неизвестных СК", systems ? systems->UnknownCRSInfo() : std::string());
    if (!FKadNum.empty()) FXmlInfo->Number = FXmlInfo->Number.empty() ? FKadNum : FXmlInfo->Number;
}

void TcsRosReestrKad::ProcessExternalValues(TcsXMLProcessSessionItem& aItem) {
    if (!KvartalID.IsEmpty()) aItem.SetValue("QUARTALS_ID", kValueKey, KvartalID);
    if (FManager && FManager->ExternalFileInfo().StorageID != 0)
        aItem.SetValue("XML_ID", kValueKey, TcsVariant(FManager->ExternalFileInfo().StorageID));
}

void TcsRosReestrKad::FillSessionItemFormula(TcsXMLProcessSessionItem& aItem, const TcsFormulaTable& aTable, PXMLNode aNode) {
    std::vector<std::string> more;
    for (const TcsFormulaSlot& slot : aTable.Slots()) {
        // The cost unit "рубль" is a constant of the tables: evaluated once like any other.
        std::string value = slot.Formula.Evaluate(aNode, *this, &more);
        if (!value.empty()) aItem.AddValue(slot.Formula.Text(), slot.Slot, kValueText, TcsVariant(std::move(value)));
        for (std::string& v : more) aItem.AddValue(slot.Formula.Text(), kValueText, TcsVariant(std::move(v)));
    }
}

void TcsRosReestrKad::ProcessArea(PXMLNode aNode) {
    std::string text;
    if (!GetValueByXpath(aNode, "Total", text, false) && !GetValueByXpath(aNode, "Area", text, false) &&
        !GetValueByXpath(aNode, "area", text, false))
        return;
    double area = 0;
    std::string normal = Trim(text);
    for (char& c : normal)
        if (c == ',') c = '.';
    if (!TryStrToFloat(normal, area)) return;
    std::string unit;
    if (!GetValueByXpath(aNode, "Unit", unit, false)) GetValueByXpath(aNode, "unit", unit, false);
    // Hectares (code 059) become square metres.
    if (unit == "059") area *= 10000;
    FArea = area;
    fHasArea = true;
}

std::string TcsRosReestrKad::BlockOfNumber(const std::string& aNumber) {
    size_t at = 0;
    for (int parts = 0; parts < 3; ++parts) {
        at = aNumber.find(':', at);
        if (at == std::string::npos) return parts == 2 ? aNumber : std::string();
        if (parts < 2) ++at;
    }
    return aNumber.substr(0, at);
}

TcsVariant TcsRosReestrKad::ProcessCreateOrFindQuartal(TcsXMLProcessController& aController, const std::string& aNumber) {
    if (aNumber.empty()) return {};
    return OpenBlock(aController, aNumber, nullptr, "cadastral_number", nullptr);
}

bool TcsRosReestrKad::SetItemGeometry(TcsXMLProcessSessionItem& aItem, const TGrParcel* aParcel) {
    if (!aParcel) return false;
    std::string wkb = GrParcelWKB(*aParcel);
    if (wkb.empty()) return false;
    aItem.Geometry().SetWKB(std::move(wkb));
    return true;
}

const char* TcsRosReestrKad::ZoneKind(TcsXMLProcessSessionItem& aItem, PXMLNode aNode) {
    for (PXMLNode c = aNode->FirstChild(); c; c = c->NextSibling()) {
        if (c->NodeType() != xml::ntElement) continue;
        const char* kind = c->LocalName() == "TerritorialZone" ? "Территориальная зона"
                           : c->LocalName() == "SpecialZone"   ? "Зона с особыми условиями использования территорий"
                                                               : nullptr;
        if (!kind) continue;
        aItem.AddValue("ZoneKind", kValueText, TcsVariant(kind));
        return kind;
    }
    return nullptr;
}

void TcsRosReestrKad::SetPointGeometry(TcsXMLProcessSessionItem& aItem, PXMLNode aNode, std::string_view aX, std::string_view aY) {
    double x = 0, y = 0;
    std::string tx, ty;
    if (GetValueByXpath(aNode, aX, tx, false) && GetValueByXpath(aNode, aY, ty, false) && TryStrToFloat(Trim(tx), x) &&
        TryStrToFloat(Trim(ty), y))
        aItem.Geometry().SetWKT("POINT (" + FormatNumber(y) + " " + FormatNumber(x) + ")");
}

TcsVariant TcsRosReestrKad::OpenBlock(TcsXMLProcessController& aController, const std::string& aNumber, const double* aArea,
                                      std::string_view aPath, PXMLNode aNode) {
    if (const TcsXMLProcessSessionKey* key = aController.Keys().FindKey(aNumber, kPartBlock)) return key->Value;
    TcsXMLProcessSessionItem* block = aController.OpenSessionItem(kPartBlock, nullptr, false);
    block->AddValue("cadastral_number", 0, kValueText, TcsVariant(aNumber));
    if (aArea) block->AddValue("area", 1, kValueNumber, TcsVariant(*aArea));
    if (!ProcessSessionFind(*block, aPath, aNode)) block->GetKey();
    const TcsVariant key = block->GetKey();
    // Only the block: a record that names it may be open beside it.
    aController.CommitSession(block);
    aController.Keys().SetKey(aNumber, kPartBlock, key);
    return key;
}

void TcsRosReestrKad::Status(const std::string& aText) {
    if (FManager) FManager->DoStatusProcedure(aText, skText, 0);
}

TcsVariant TcsRosReestrKad::CommitRecord(TcsXMLProcessController& aController, TcsXMLProcessSessionItem& aItem,
                                   const std::string& aNumber) {
    ProcessExternalValues(aItem);
    // A record outside any block read so far belongs to the block its number names.
    if (KvartalID.IsEmpty())
        if (const TcsVariant block = ProcessCreateOrFindQuartal(aController, BlockOfNumber(aNumber)); !block.IsEmpty())
            aItem.SetValue("QUARTALS_ID", kValueKey, block);
    // A record stored by an earlier conversion keeps its row.
    if (!aNumber.empty() && !ProcessSessionFind(aItem, aItem.PartTypeString(), nullptr)) aItem.GetKey();
    const TcsVariant key = aItem.GetKey();
    aController.CommitAllSession(false, true);
    return key;
}

void TcsRosReestrKad::ProcessRights(TcsXMLProcessController& aController, TcsXMLProcessSessionItem* aParent,
                                    const TcsVariant& aParentKey, const std::vector<PXMLNode>& aRights,
                                    const std::string& aNumber, std::string_view aPath) {
    if (aRights.empty()) return;
    const TcsFormulaTable& table = CadastrTablesClassic().Right;
    const std::string recordPath = fRecordPath;
    SetRecordPath(aPath);
    int n = 0;
    for (PXMLNode right : aRights) {
        TcsXMLProcessSessionItem* item = aController.OpenSessionItem(kPartRight, aParent, false);
        if (!aParent) item->SetParentKey(aParentKey);
        // Slot 0 names the right among all others: its object's number and its place there.
        item->AddValue("number", 0, kValueText, TcsVariant(aNumber + " №" + std::to_string(++n)));
        FillSessionItemFormula(*item, table, right);
        ProcessExternalValues(*item);
        // A right stored by an earlier conversion keeps its row.
        if (!ProcessSessionFind(*item, "number", nullptr)) item->GetKey();
    }
    SetRecordPath(recordPath);
}

void TcsRosReestrKad::SetRecordPath(std::string_view aPath) {
    if (fRecordObjects && aPath == fRecordPath) return;
    fRecordPath.assign(aPath);
    auto found = fDecoders.find(aPath);
    if (found == fDecoders.end()) found = fDecoders.emplace(fRecordPath, TObjects()).first;
    fRecordObjects = &found->second;
}

std::string TcsRosReestrKad::Decode(std::string_view aRelative, std::string aValue) {
    if (!ConvertValues || !GetXSDLib() || !fRecordObjects) return aValue;
    auto found = fRecordObjects->find(aRelative);
    if (found == fRecordObjects->end()) {
        // Found once per path of a record: the element, or its attribute.
        const TXSDObject* object = nullptr;
        const size_t at = aRelative.rfind('@');
        std::string elementPath = fRecordPath;
        if (at == std::string_view::npos) {
            elementPath.append("/").append(aRelative);
            object = XSDElement(elementPath);
        } else {
            if (at > 1) elementPath.append("/").append(aRelative.substr(0, at - 1));
            if (const TXSDElement* element = XSDElement(elementPath))
                for (const TXSDAttribute* a : element->Attributes())
                    if (a->XPathName() == aRelative.substr(at + 1)) object = a;
        }
        found = fRecordObjects->emplace(std::string(aRelative), object).first;
    }
    if (!found->second) return aValue;
    std::string decoded = found->second->GetTextValue(aValue);
    return decoded.empty() ? aValue : decoded;
}

// ---------------------------------------------------------------------------------------------
// TcsRosReestrKadNew

void TcsRosReestrKadNew::Clean() {
    TcsRosReestrKad::Clean();
    RightCount = RestrictCount = 0;
}

void TcsRosReestrKadNew::InfoStartElement(PXMLNode aNode, std::string_view aPath) {
    (void)aNode;
    const std::string_view name = LastStep(aPath);
    const bool ascii = AsciiOnly(name);
    if (int64_t* counter = Stat.CounterOf(name)) ++*counter;
    else if (SameName(name, "right_record", ascii)) ++RightCount;
    else if (SameName(name, "restrict_record", ascii)) ++RestrictCount;
}

void TcsRosReestrKadNew::InfoCharacters(std::string_view aPath, std::string_view aText) {
    if (!FXmlInfo) return;
    const std::string text = Trim(aText);
    if (text.empty()) return;
    if (aPath.ends_with("/date_formation")) {
        TDateTime date;
        if (!FXmlInfo->HasDateDocument && TryStrToDateTime(text, date)) {
            Date = date;
            FXmlInfo->DateDocument = date;
            FXmlInfo->HasDateDocument = true;
        }
    } else if (aPath.ends_with("/registration_number")) {
        if (FVersion.empty()) FVersion = text;
        if (FXmlInfo->Number.empty()) FXmlInfo->Number = text;
    } else if (aPath.ends_with("/object/common_data/cad_number")) {
        if (FKadNum.empty()) FKadNum = text;
    } else if (aPath.ends_with("/entity_spatial/sk_id") || aPath.ends_with("/entity_spatial/sk_code/value") ||
               aPath.ends_with("/entity_spatial/sk_code/code")) {
        if (FXmlInfo->CoordSysDocName.empty()) FXmlInfo->CoordSysDocName = text;
        if (FXmlInfo->CoordSysDocID.empty() && !aPath.ends_with("/value")) FXmlInfo->CoordSysDocID = text;
        if (TcsXMLCoordSystemsInfo* systems = FXmlInfo->CoordSystemsInfo(); systems && !aPath.ends_with("/value"))
            systems->AddCoordSystemID(text, nullptr);
    }
}

bool TcsRosReestrKadNew::FullAnalizeSkipNode(PXMLNode aNode, std::string_view) {
    return aNode->LocalName() == "spatial_element";
}

void TcsRosReestrKadNew::AfterUpdateFullInfo() {
    TcsRosReestrKad::AfterUpdateFullInfo();
    if (!FXmlInfo) return;
    if (RightCount > 0) FXmlInfo->SetKeyValue("RIGHT_COUNT", "Количество прав", std::to_string(RightCount));
    if (RestrictCount > 0) FXmlInfo->SetKeyValue("RESTRICT_COUNT", "Количество ограничений", std::to_string(RestrictCount));
}

bool TcsRosReestrKadNew::FillSpatialDataNewContours(TcsXMLProcessSessionItem& aItem, PXMLNode aNode, bool aCheckClosed) {
    if (!aNode) return false;
    TcsSpatialRings rings;
    bool found = false;
    const TGrParcelRef parcel = rings.ReadContoursNew(aNode, aCheckClosed, false, found);
    return found && SetItemGeometry(aItem, parcel.get());
}

// ---------------------------------------------------------------------------------------------
// TcsRosReestrKadPlNew

bool TcsRosReestrKadPlNew::SupportClass(const TcsXMLInfo& aInfo) { return aInfo.RootNodeName == "extract_cadastral_plan_territory"; }

void TcsRosReestrKadPlNew::Clean() {
    TcsRosReestrKadNew::Clean();
    FStat.Clear();
    FKadNumList.clear();
    FAreaList.clear();
    FLastKadNum.clear();
    fBlockIndex = 0;
    fHasExtent = false;
    XMin = XMax = YMin = YMax = 0;
}

namespace {
constexpr std::string_view kBlockStep = "/cadastral_blocks/cadastral_block/";
}  // namespace

bool TcsRosReestrKadPlNew::FullAnalizeSkipNode(PXMLNode aNode, std::string_view aPath) {
    const size_t at = aPath.find(kBlockStep);
    if (at != std::string_view::npos && aPath.substr(at + kBlockStep.size()).starts_with("spatial_data/")) return false;
    return TcsRosReestrKadNew::FullAnalizeSkipNode(aNode, aPath);
}

void TcsRosReestrKadPlNew::InfoCharacters(std::string_view aPath, std::string_view aText) {
    // The blocks' own numbers and areas, never a record's.
    const size_t at = aPath.find(kBlockStep);
    if (at != std::string_view::npos) {
        const std::string_view below = aPath.substr(at + kBlockStep.size());
        const std::string text = Trim(aText);
        if (below == "cadastral_number" && !text.empty()) {
            FKadNumList.push_back(text);
            FAreaList.push_back(0);
            if (FKadNum.empty()) FKadNum = text;
            FLastKadNum = text;
            return;
        }
        if ((below == "area_quarter/area" || below == "area_qurter/area") && !FAreaList.empty()) {
            double area = 0;
            if (TryStrToFloat(text, area)) {
                FAreaList.back() = area;
                if (FAreaList.size() == 1) {
                    FArea = area;
                    fHasArea = true;
                }
            }
            return;
        }
        if (below.starts_with("spatial_data/") &&
            (below.ends_with("/ordinate/x") || below.ends_with("/ordinate/y"))) {
            double v = 0;
            if (TryStrToFloat(text, v)) {
                // X and Y as the document has them: x first in each ordinate.
                const bool isX = below.ends_with("/x");
                double& low = isX ? XMin : YMin;
                double& high = isX ? XMax : YMax;
                if (!fHasExtent || v < low) low = v;
                if (!fHasExtent || v > high) high = v;
                if (!isX) fHasExtent = true;
            }
        }
    }
    TcsRosReestrKadNew::InfoCharacters(aPath, aText);
}

void TcsRosReestrKadPlNew::UpdateStringInfo(std::vector<std::pair<std::string, std::string>>& aInfo) {
    TcsRosReestrKadNew::UpdateStringInfo(aInfo);
    auto shown = [this](double v) { return fHasExtent ? FormatNumber(v) : std::string(); };
    aInfo.emplace_back("Квартал X мин.", shown(XMin));
    aInfo.emplace_back("Квартал X макс.", shown(XMax));
    aInfo.emplace_back("Квартал Y мин.", shown(YMin));
    aInfo.emplace_back("Квартал Y макс.", shown(YMax));
}

void TcsRosReestrKadPlNew::PrepareProcessXmlNode(TcsXMLProcessController& aController) {
    TcsRosReestrKadNew::PrepareProcessXmlNode(aController);
    fBlockIndex = 0;
    KvartalID = TcsVariant();
    if (RosInfo()) RosInfo()->FileType = rrKPT;
}

bool TcsRosReestrKadPlNew::ProcessXmlReadAllNode(TcsXMLProcessController&, PXMLNode, std::string_view aPath) {
    return RecordKind(LastStep(aPath)) != rkNone;
}

void TcsRosReestrKadPlNew::ProcessXmlNode(TcsXMLProcessController& aController, PXMLNode aNode, std::string_view aPath) {
    const std::string_view name = LastStep(aPath);
    if (SameText(name, "cadastral_block")) {
        ProcessBlock(aController, aNode, aPath);
        return;
    }
    switch (RecordKind(name)) {
    case rkParcel:
        if (!Excluded(reParcels)) ProcessParcel(aController, aNode, aPath);
        break;
    case rkBuild:
        if (!Excluded(reObjects)) ProcessBuildNew(aController, aNode, aPath);
        break;
    case rkZone:
        if (!Excluded(reZones)) ProcessZone(aController, aNode, aPath);
        break;
    case rkOms:
        if (!Excluded(rePoints)) ProcessOMSNew(aController, aNode, aPath);
        break;
    case rkBound:
        if (!Excluded(reBounds)) ProcessBound(aController, aNode, aPath);
        break;
    case rkSurveying:
        if (!Excluded(reProjects)) ProcessSurveying_project(aController, aNode, aPath);
        break;
    case rkNone: break;
    }
}

void TcsRosReestrKadPlNew::ProcessBlock(TcsXMLProcessController& aController, PXMLNode aNode, std::string_view aPath) {
    const size_t index = fBlockIndex++;
    if (index >= FKadNumList.size()) {
        KvartalID = TcsVariant();
        return;
    }
    FKadNum = FKadNumList[index];
    KvartalID = OpenBlock(aController, FKadNum, &FAreaList[index], aPath, aNode);
}

void TcsRosReestrKadPlNew::ProcessParcel(TcsXMLProcessController& aController, PXMLNode aNode, std::string_view aPath) {
    SetRecordPath(aPath);
    std::string number;
    GetValueByXpath(aNode, "object/common_data/cad_number", number, false);
    Status("Обработка участка: " + number);
    TcsXMLProcessSessionItem* item = aController.OpenSessionItem(kPartParcel, nullptr, false);
    FillSessionItemFormula(*item, CadastrTablesNew().Parcel, aNode);
    if (UseFullSchema) {
        const std::string path(aPath);
        ProcessNullLevel(aController, *item, true, "", path, aNode);
        processRelations(aController, *item, "", false, {}, path, aNode, true);
    }
    FillSpatialDataNewContours(*item, FirstElementNamed(aNode, "contours_location"), true);
    CommitRecord(aController, *item, number);
}

void TcsRosReestrKadPlNew::ProcessBuildNew(TcsXMLProcessController& aController, PXMLNode aNode, std::string_view aPath) {
    SetRecordPath(aPath);
    const std::string_view name = LastStep(aPath);
    const TcsCadastrTables& tables = CadastrTablesNew();
    const TcsFormulaTable& table = SameText(name, "build_record")          ? tables.Build
                                   : SameText(name, "construction_record") ? tables.Construction
                                                                          : tables.UnderConstruction;
    std::string number;
    GetValueByXpath(aNode, "object/common_data/cad_number", number, false);
    Status("Обработка ОКС: " + number);
    TcsXMLProcessSessionItem* item = aController.OpenSessionItem(kPartBuilding, nullptr, false);
    FillSessionItemFormula(*item, table, aNode);
    if (UseFullSchema) {
        const std::string path(aPath);
        ProcessNullLevel(aController, *item, true, "", path, aNode);
        processRelations(aController, *item, "", false, {}, path, aNode, true);
    }
    FillSpatialDataNewContours(*item, aNode, false);
    CommitRecord(aController, *item, number);
}

void TcsRosReestrKadPlNew::ProcessZone(TcsXMLProcessController& aController, PXMLNode aNode, std::string_view aPath) {
    SetRecordPath(aPath);
    std::string number;
    GetValueByXpath(aNode, "b_object_zones_and_territories/b_object/reg_numb_border", number, false);
    std::string status = "Обработка зоны: " + number;
    TcsXMLProcessSessionItem* item = aController.OpenSessionItem(kPartZone, nullptr, false);
    FillSessionItemFormula(*item, CadastrTablesNew().Zone, aNode);
    if (const char* kind = ZoneKind(*item, aNode)) status += std::string(": ") + kind;
    Status(status);
    FillSpatialDataNewContours(*item, FirstElementNamed(aNode, "b_contours_location"), false);
    CommitRecord(aController, *item, number);
}

void TcsRosReestrKadPlNew::ProcessOMSNew(TcsXMLProcessController& aController, PXMLNode aNode, std::string_view aPath) {
    SetRecordPath(aPath);
    std::string number;
    GetValueByXpath(aNode, "p_nmb", number, false);
    Status("Обработка пункта ОМС: " + number);
    TcsXMLProcessSessionItem* item = aController.OpenSessionItem(kPartOmsPoint, nullptr, false);
    FillSessionItemFormula(*item, CadastrTablesNew().OmsPoint, aNode);
    SetPointGeometry(*item, aNode, "ord_x", "ord_y");
    CommitRecord(aController, *item, number);
}

void TcsRosReestrKadPlNew::ProcessBound(TcsXMLProcessController& aController, PXMLNode aNode, std::string_view aPath) {
    SetRecordPath(aPath);
    const std::string_view name = LastStep(aPath);
    const TcsCadastrTables& tables = CadastrTablesNew();
    const TcsFormulaTable& table = SameText(name, "subject_boundary_record")              ? tables.SubjectBound
                                   : SameText(name, "coastline_record")                   ? tables.Coastline
                                   : SameText(name, "inhabited_locality_boundary_record") ? tables.LocalityBound
                                                                                          : tables.MunicipalBound;
    TcsXMLProcessSessionItem* item = aController.OpenSessionItem(kPartBound, nullptr, false);
    FillSessionItemFormula(*item, table, aNode);
    const std::string number = item->Values().GetValue(1).AsString();
    Status("Обработка границы: " + number);
    FillSpatialDataNewContours(*item, FirstElementNamed(aNode, "b_contours_location"), false);
    CommitRecord(aController, *item, number);
}

void TcsRosReestrKadPlNew::ProcessSurveying_project(TcsXMLProcessController& aController, PXMLNode aNode, std::string_view aPath) {
    SetRecordPath(aPath);
    TcsXMLProcessSessionItem* item = aController.OpenSessionItem(kPartSurveying, nullptr, false);
    FillSessionItemFormula(*item, CadastrTablesNew().Surveying, aNode);
    const std::string number = item->Values().GetValue(0).AsString();
    Status("Обработка проекта межевания: " + number);
    FillSpatialDataNewContours(*item, FirstElementNamed(aNode, "b_contours_location"), false);
    CommitRecord(aController, *item, number);
}

// ---------------------------------------------------------------------------------------------

void RegisterCadastrProcesses() {
    ProcessInfoManager().Register<TcsRosReestrKadPlClassic>();
    ProcessInfoManager().Register<TcsRosReestrKadZUClassic>();
    ProcessInfoManager().Register<TcsRosReestrKadOKSClassic>();
    // The new-format plan is registered last.
    ProcessInfoManager().Register<TcsRosReestrKadPlNew>();
}

}  // namespace tmi
