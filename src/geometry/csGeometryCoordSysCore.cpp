#include "csGeometryCoordSysCore.h"

#include <charconv>
#include <cmath>

#include "csRTTITools.h"

namespace tmi {

namespace {

// The ellipsoids a custom datum may name, by MapInfo number.
const struct {
    int fNumber;
    TcsCoordSysElipsoidParam fParam;
} kElipsoids[] = {
    {2, {"WGS84", 6378137.0, 298.257223563, "+ellps=WGS84"}},
    {3, {"Krassovsky", 6378245.0, 298.3, "+ellps=krass"}},
    {10, {"Bessel 1841", 6377397.155, 299.1528128, "+ellps=bessel"}},
    {52, {"PZ90", 6378136.0, 298.257839303, "+a=6378136 +rf=298.257839303"}},
    {56, {"GSK2011", 6378136.5, 298.2564151, "+a=6378136.5 +rf=298.2564151"}},
    {57, {"PZ90_11", 6378136.0, 298.25784, "+a=6378136 +rf=298.25784"}},
};

// Fixed notation with "." whatever the locale, from the shortest text that reads back as the
// value: -4511057.63 is written -4511057.6300000000, not with the binary tail of the double.
// A negative zero is written as zero.
std::string Fixed(double aValue, int aDecimals) {
    if (aValue == 0) aValue = 0;
    char buf[400];
    const auto r = std::to_chars(buf, buf + sizeof buf, aValue, std::chars_format::fixed);
    std::string text(buf, r.ptr);
    const size_t point = text.find('.');
    const int fraction = point == std::string::npos ? 0 : static_cast<int>(text.size() - point - 1);
    if (fraction > aDecimals) return FloatToFixed(aValue, aDecimals);
    if (aDecimals > 0 && point == std::string::npos) text += '.';
    text.append(static_cast<size_t>(aDecimals - fraction), '0');
    return text;
}

// Lenient: a number, or 0 for anything else.
double Number(const std::vector<std::string>& aItems, size_t aIndex) {
    double value = 0;
    if (aIndex < aItems.size() && TryStrToFloat(aItems[aIndex], value) && std::isfinite(value)) return value;
    return 0;
}

// The plain conversion: raises on text that is no number.
double StrToFloat(const std::vector<std::string>& aItems, size_t aIndex) {
    const std::string text = aIndex < aItems.size() ? aItems[aIndex] : std::string();
    double value = 0;
    if (!TryStrToFloat(text, value)) throw EConvertError("'" + text + "' is not a valid floating point value");
    return value;
}

bool IntegerItem(const std::vector<std::string>& aItems, size_t aIndex, int64_t& aValue) {
    return aIndex < aItems.size() && TryStrToInt(aItems[aIndex], aValue);
}

// A unit item: a number, or the text "m" in quotes, which counts as metres (7).
int64_t UnitItem(const std::vector<std::string>& aItems, size_t aIndex) {
    int64_t unit = -1;
    if (IntegerItem(aItems, aIndex, unit)) return unit;
    if (aIndex < aItems.size() && aItems[aIndex] == "\"m\"") return 7;
    return -1;
}

constexpr const char* kNonEarthWKT =
    "ENGCRS[\"Nonearth\", EDATUM[\"\"], CS[Cartesian,2], AXIS[\"(E)\",east, ORDER[1], LENGTHUNIT[\"Meter\",1]], "
    "AXIS[\"(N)\",north, ORDER[2], LENGTHUNIT[\"Meter\",1]]]";

}  // namespace

const TcsCoordSysElipsoidParam* CoordSysElipsoidParam(int aNumber) {
    for (const auto& e : kElipsoids)
        if (e.fNumber == aNumber) return &e.fParam;
    return nullptr;
}

// ---------------------------------------------------------------------------------------------
// Parameters

void TcsCoordSystemMerkParams::Clear() {
    TcsCoordSystemParams::Clear();
    Longitude = Latitude = FalseX = FalseY = Scale = 0;
}

void TcsCoordSystemMerkParams::Assign(const TcsPersistent& aSource) {
    const auto* s = dynamic_cast<const TcsCoordSystemMerkParams*>(&aSource);
    if (!s) return TcsCoordSystemParams::Assign(aSource);
    FHas = s->FHas;
    Longitude = s->Longitude;
    Latitude = s->Latitude;
    FalseX = s->FalseX;
    FalseY = s->FalseY;
    Scale = s->Scale;
}

void TcsCoordSystemAffineCustomParams::Clear() {
    TcsCoordSystemParams::Clear();
    Metric = cmMeter;
    A = B = C = D = E = F = 0;
}

void TcsCoordSystemAffineCustomParams::Assign(const TcsPersistent& aSource) {
    const auto* s = dynamic_cast<const TcsCoordSystemAffineCustomParams*>(&aSource);
    if (!s) return TcsCoordSystemParams::Assign(aSource);
    FHas = s->FHas;
    Metric = s->Metric;
    A = s->A, B = s->B, C = s->C, D = s->D, E = s->E, F = s->F;
}

bool TcsCoordSystemAffineCustomParams::Apply(double& aX, double& aY) const {
    if (!FHas) return false;
    // Carried in extended precision, stored as double.
    const long double x = aX, y = aY;
    aX = static_cast<double>(static_cast<long double>(A) * x + static_cast<long double>(B) * y + C);
    aY = static_cast<double>(static_cast<long double>(D) * x + static_cast<long double>(E) * y + F);
    return true;
}

void TcsCoordSystemAffineParams::Clear() {
    TcsCoordSystemAffineCustomParams::Clear();
    FBackParams->Clear();
}

void TcsCoordSystemAffineParams::Assign(const TcsPersistent& aSource) {
    TcsCoordSystemAffineCustomParams::Assign(aSource);
    if (const auto* s = dynamic_cast<const TcsCoordSystemAffineParams*>(&aSource)) FBackParams->Assign(*s->FBackParams);
}

void TcsCoordSystemAffineParams::CalcBackAffineParams() {
    const long double a = A, b = B, c = C, d = D, e = E, f = F;
    const long double det = a * e - b * d;
    if (det == 0)
        throw EcsCoordSystemError("Определитель матрицы входных параметров аффинного преобразования равен нулю.");
    TcsCoordSystemAffineCustomParams& back = *FBackParams;
    back.A = static_cast<double>(e / det);
    back.B = static_cast<double>(-b / det);
    back.D = static_cast<double>(-d / det);
    back.E = static_cast<double>(a / det);
    back.C = static_cast<double>((b * f - c * e) / det);
    back.F = static_cast<double>((c * d - a * f) / det);
    back.Metric = Metric;
    back.SetHas(true);
}

void TcsCoordsysDatum::Assign(const TcsPersistent& aSource) {
    const auto* s = dynamic_cast<const TcsCoordsysDatum*>(&aSource);
    if (!s) return TcsInfoLowData::Assign(aSource);
    dX = s->dX, dY = s->dY, dZ = s->dZ, EX = s->EX, EY = s->EY, EZ = s->EZ, m = s->m;
    Longitude = s->Longitude;
    Elipsoid = s->Elipsoid;
}

// ---------------------------------------------------------------------------------------------
// One coordinate system

TcsCoordSystem::TcsCoordSystem(TcsComponent* aOwner)
    : TcsInfoLowData(aOwner),
      FCustomDatum(std::make_unique<TcsCoordsysDatum>(this)),
      FBounds(std::make_unique<TcsGeometryBounds>(this)),
      FMerkParams(std::make_unique<TcsCoordSystemMerkParams>(this)),
      FAffineParams(std::make_unique<TcsCoordSystemAffineParams>(this)) {}

void TcsCoordSystem::SetMapinfo(const std::string& aValue) {
    FMapinfo = aValue;
    FillMICoordSysParams(aValue);
}

bool TcsCoordSystem::Affine(double& aX, double& aY) const { return FAffineParams->Apply(aX, aY); }

bool TcsCoordSystem::DeAffine(double& aX, double& aY) const {
    if (!FAffineParams->Has()) return false;
    return FAffineParams->BackParams()->Apply(aX, aY);
}

void TcsCoordSystem::FillMICoordSysParams(const std::string& aMapinfo) {
    // What stands before the parameters and the bounds behind them are no part of them.
    std::string text = aMapinfo;
    if (const size_t at = text.find("Earth Projection"); at != std::string::npos)
        text.erase(0, at + std::string_view("Earth Projection").size());
    if (const size_t at = text.find("BOUNDS"); at != std::string::npos) text.erase(at);
    if (const size_t at = text.find("Bounds"); at != std::string::npos) text.erase(at);
    std::vector<std::string> items;
    size_t start = 0;
    while (true) {
        const size_t comma = text.find(',', start);
        items.push_back(Trim(std::string_view(text).substr(start, comma == std::string::npos ? std::string::npos : comma - start)));
        if (comma == std::string::npos) break;
        start = comma + 1;
    }
    int64_t projection = 0, datum = 0;
    if (items.size() < 2 || !IntegerItem(items, 0, projection) || !IntegerItem(items, 1, datum)) return;

    FDatum = csdWGS84;
    // The thousands digit of the projection is a flag; 1 and 3 announce an affine block.
    bool affine = false;
    if (projection >= 1000) {
        const int64_t flag = projection / 1000;
        projection %= 1000;
        affine = flag == 1 || flag == 3;
    }
    if (projection == 1) FCoordSystemType = cstLongLat;
    else if (projection == 8) FCoordSystemType = cstTransverseMercator;
    else if (projection == 20) FCoordSystemType = cstPolarStereo;

    const bool custom = datum == 9999;
    int64_t unit = -1;
    if (projection == 8 && !custom) {
        unit = UnitItem(items, 2);
        FMerkParams->Longitude = Number(items, 3);
        FMerkParams->Latitude = Number(items, 4);
        FMerkParams->Scale = Number(items, 5);
        FMerkParams->FalseX = Number(items, 6);
        FMerkParams->FalseY = Number(items, 7);
        FMerkParams->SetHas(true);
    } else if ((projection == 1 || projection == 8) && custom) {
        FDatum = csdCustom;
        // The ellipsoid number is a byte: anything else names no ellipsoid.
        const double elipsoid = Number(items, 2);
        FCustomDatum->Elipsoid = elipsoid >= 0 && elipsoid <= 255 ? static_cast<uint8_t>(elipsoid) : 0;
        FCustomDatum->dX = Number(items, 3);
        FCustomDatum->dY = Number(items, 4);
        FCustomDatum->dZ = Number(items, 5);
        FCustomDatum->EX = Number(items, 6);
        FCustomDatum->EY = Number(items, 7);
        FCustomDatum->EZ = Number(items, 8);
        FCustomDatum->m = Number(items, 9);
        FCustomDatum->Longitude = Number(items, 10);
        if (projection == 8) {
            unit = UnitItem(items, 11);
            FMerkParams->Longitude = Number(items, 12);
            FMerkParams->Latitude = Number(items, 13);
            FMerkParams->Scale = Number(items, 14);
            if (items.size() < 16) {
                FIsValid = false;
                return;
            }
            FMerkParams->FalseX = Number(items, 15);
            FMerkParams->FalseY = Number(items, 16);
            FMerkParams->SetHas(true);
        }
    } else if (projection == 1) {
        // The datum number and nothing more.
    } else if (!custom) {
        // A plan: item 1 is the unit.
        FCoordSystemType = cstHorizantal;
        unit = UnitItem(items, 1);
    }
    if (!custom && (projection == 1 || projection == 8)) {
        if (datum == 0 || datum == 104) FDatum = csdWGS84;
        else if (datum == 1001) FDatum = csdPulkovo1942;
    }
    if (unit == 7) FMetric = cmMeter;

    if (affine) {
        TcsCoordSystemAffineParams& block = *FAffineParams;
        int64_t blockUnit = 0;
        if (IntegerItem(items, 8, blockUnit) && blockUnit == 7) block.Metric = cmMeter;
        block.A = StrToFloat(items, 9);
        block.B = StrToFloat(items, 10);
        block.C = StrToFloat(items, 11);
        block.D = StrToFloat(items, 12);
        block.E = StrToFloat(items, 13);
        block.F = StrToFloat(items, 14);
        block.SetHas(true);
        block.CalcBackAffineParams();
    }
}

TcsCoordSysElipsoidParam TcsCoordSystem::Elipsoid() const {
    if (FDatum == csdCustom) {
        if (const TcsCoordSysElipsoidParam* e = CoordSysElipsoidParam(FCustomDatum->Elipsoid)) return *e;
        return {};
    }
    if (FDatum == csdPulkovo1942) return *CoordSysElipsoidParam(3);
    return *CoordSysElipsoidParam(2);
}

std::string TcsCoordSystem::ShiftText() const {
    if (FDatum == csdWGS84) return {};
    if (FDatum != csdCustom) return "24,-123,-94,0.02,-0.25,-0.13,1.1";
    const TcsCoordsysDatum& d = *FCustomDatum;
    // MapInfo turns the rotations the other way round from a Proj4 shift.
    return Fixed(d.dX, 10) + "," + Fixed(d.dY, 10) + "," + Fixed(d.dZ, 10) + "," + Fixed(-d.EX, 10) + "," + Fixed(-d.EY, 10) +
           "," + Fixed(-d.EZ, 10) + "," + Fixed(d.m, 10) + " ";
}

std::string TcsCoordSystem::GenerateWKT() const {
    if (FCoordSystemType == cstHorizantal) return kNonEarthWKT;
    if (FCoordSystemType == cstPolarStereo) return {};
    const TcsCoordSysElipsoidParam e = Elipsoid();
    const std::string shift = ShiftText();
    const std::string towgs84 = shift.empty() ? std::string() : ", TOWGS84[" + shift + "]";
    if (FCoordSystemType == cstLongLat)
        return "GEOGCRS[\"" + FCaption + "\", DATUM[\"" + e.Name + "\", ELLIPSOID[\"" + e.Name + "\", " + Fixed(e.MainDiametr, 10) +
               ", " + Fixed(e.Defence, 10) + ", LENGTHUNIT[\"metre\",1]]" + towgs84 +
               "],  PRIMEM[\"Greenwich\",0, ANGLEUNIT[\"degree\",0.0174532925199433]], CS[ellipsoidal,2], "
               "AXIS[\"geodetic latitude (Lat)\",north, ORDER[1], ANGLEUNIT[\"degree\",0.0174532925199433]], "
               "AXIS[\"geodetic longitude (Lon)\",east, ORDER[2], ANGLEUNIT[\"degree\",0.0174532925199433]]]]";
    // The scale factor is written as 1 whatever the parameters hold.
    return "PROJCS[\"" + FCaption + "\",GEOGCS[\"" + e.Name + "\", DATUM[\"CUSTOM\",SPHEROID[\"" + e.Name + "\"," +
           Fixed(e.MainDiametr, 10) + "," + Fixed(e.Defence, 10) + ", LENGTHUNIT[\"metre\",1]]" + towgs84 +
           "],  PRIMEM[\"Greenwich\",0],  UNIT[\"degree\",0.0174532925199433]],  PROJECTION[\"Transverse_Mercator\"],  "
           "PARAMETER[\"latitude_of_origin\"," +
           Fixed(FMerkParams->Latitude, 12) + "],  PARAMETER[\"central_meridian\"," + Fixed(FMerkParams->Longitude, 12) +
           "],  PARAMETER[\"scale_factor\",1],  PARAMETER[\"false_easting\"," + Fixed(FMerkParams->FalseX, 12) +
           ",LENGTHUNIT[\"Meter\",1]],  PARAMETER[\"false_northing\"," + Fixed(FMerkParams->FalseY, 12) +
           ",LENGTHUNIT[\"Meter\",1]],  UNIT[\"metre\",1],  LENGTHUNIT[\"metre\",1]]";
}

std::string TcsCoordSystem::GenerateProj4() const {
    if (FCoordSystemType == cstHorizantal || FCoordSystemType == cstPolarStereo) return {};
    const std::string shift = ShiftText();
    const std::string ellipsoid = Elipsoid().projName;
    const std::string towgs84 = shift.empty() ? std::string() : "+towgs84=" + shift;
    // Long/lat has only its ellipsoid and datum parts.
    if (FCoordSystemType == cstLongLat) return ellipsoid + " " + towgs84;
    return "+proj=tmerc " + ellipsoid + " " + towgs84 + " +lat_0=" + Fixed(FMerkParams->Latitude, 10) +
           " +lon_0=" + Fixed(FMerkParams->Longitude, 10) + " +x_0=" + Fixed(FMerkParams->FalseX, 10) +
           " +y_0=" + Fixed(FMerkParams->FalseY, 10) + " +units=m +no_defs";
}

std::string TcsCoordSystem::WKT() const { return FWKT.empty() ? GenerateWKT() : FWKT; }
std::string TcsCoordSystem::Proj4() const { return FProj4.empty() ? GenerateProj4() : FProj4; }

bool TcsCoordSystem::NotWriteProperty(std::string_view aPropertyName) const {
    if (aPropertyName == "WKT") return FWKT.empty();
    if (aPropertyName == "Proj4") return FProj4.empty();
    return TcsInfoLowData::NotWriteProperty(aPropertyName);
}

void TcsCoordSystem::Assign(const TcsPersistent& aSource) {
    const auto* s = dynamic_cast<const TcsCoordSystem*>(&aSource);
    if (!s) return TcsInfoLowData::Assign(aSource);
    FID = s->FID, FEPSGID = s->FEPSGID, FMapinfo = s->FMapinfo, FWKT = s->FWKT, FProj4 = s->FProj4, FCaption = s->FCaption;
    FCoordSystemType = s->FCoordSystemType;
    FDatum = s->FDatum;
    FMetric = s->FMetric;
    FIsValid = s->FIsValid;
    FCustomDatum->Assign(*s->FCustomDatum);
    FBounds->Assign(*s->FBounds);
    FMerkParams->Assign(*s->FMerkParams);
    FAffineParams->Assign(*s->FAffineParams);
}

// ---------------------------------------------------------------------------------------------
// Lists, categories and the manager

TcsInfoClass TcsCoordSystems::ItemClass(TcsXmlNode) const { return InfoClassOf<TcsCoordSystem>(); }

TcsCoordSystem* TcsCoordSystems::GetItemByID(std::string_view aID) const {
    for (int i = 0; i < Count(); ++i)
        if (Items(i)->ID() == aID) return Items(i);
    return nullptr;
}

std::string TcsCoordSystemCategory::CoordSystemIDSText() const {
    std::string text;
    for (const std::string& id : CoordSystemIDS) text += id + "\n";
    return text;
}

void TcsCoordSystemCategory::SetCoordSystemIDSText(const std::string& aText) {
    CoordSystemIDS.clear();
    size_t start = 0;
    while (start < aText.size()) {
        size_t end = aText.find('\n', start);
        if (end == std::string::npos) end = aText.size();
        std::string line = aText.substr(start, end - start);
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (!line.empty()) CoordSystemIDS.push_back(line);
        start = end + 1;
    }
}

TcsInfoClass TcsCoordSystemCategories::ItemClass(TcsXmlNode) const { return InfoClassOf<TcsCoordSystemCategory>(); }

TcsCoordSystemCategory* TcsCoordSystemCategories::AddCategory(const std::string& aBaseName) {
    auto* category = static_cast<TcsCoordSystemCategory*>(Add(std::make_unique<TcsCoordSystemCategory>(ParentInfo())));
    category->SetCaption(aBaseName);
    category->SetBaseName(aBaseName);
    return category;
}

TcsCoordSystemCategory* TcsCoordSystemCategories::GetCategoryByBaseName(std::string_view aBaseName) const {
    for (int i = 0; i < Count(); ++i)
        if (Items(i)->BaseName() == aBaseName) return Items(i);
    return nullptr;
}

TcsCoordSystemManager::TcsCoordSystemManager(TcsComponent* aOwner, bool aInitDefault) : TcsManager(aOwner) {
    if (aInitDefault) InitDefaultCoordsystems();
}

TcsCoordSystem* TcsCoordSystemManager::AddCoordSystem(const std::string& aID, const std::string& aCategoryBaseName) {
    TcsCoordSystem* system = FCoordSystems->GetItemByID(aID);
    if (!system) {
        system = static_cast<TcsCoordSystem*>(FCoordSystems->Add(std::make_unique<TcsCoordSystem>(this)));
        system->SetID(aID);
    }
    if (!aCategoryBaseName.empty()) {
        TcsCoordSystemCategory* category = FCategories->GetCategoryByBaseName(aCategoryBaseName);
        if (!category) category = FCategories->AddCategory(aCategoryBaseName);
        category->CoordSystemIDS.push_back(aID);
    }
    return system;
}

TcsCoordSystem* TcsCoordSystemManager::AddCoordSystem(const std::string& aID, TcsCoordSystemCategory* aCategory) {
    auto* system = static_cast<TcsCoordSystem*>(FCoordSystems->Add(std::make_unique<TcsCoordSystem>(this)));
    system->SetID(aID);
    system->SetCaption(aID);
    if (aCategory) aCategory->CoordSystemIDS.insert(aCategory->CoordSystemIDS.begin(), aID);
    return system;
}

TcsCoordSystem* TcsCoordSystemManager::GetCoordSysByMapinfo(const std::string& aMapinfo) {
    for (int i = 0; i < FCoordSystems->Count(); ++i)
        if (FCoordSystems->Items(i)->Mapinfo() == aMapinfo) return FCoordSystems->Items(i);
    TcsCoordSystem* system = AddCoordSystem(aMapinfo, std::string("Автоматически"));
    system->SetMapinfo(aMapinfo);
    return system;
}

TcsCoordSystem* TcsCoordSystemManager::GetCoordSysByName(std::string_view aCaption) const {
    for (int i = 0; i < FCoordSystems->Count(); ++i)
        if (SameText(FCoordSystems->Items(i)->Caption(), aCaption)) return FCoordSystems->Items(i);
    return nullptr;
}

void TcsCoordSystemManager::InitDefaultCoordsystems() {
    TcsCoordSystem* plan = AddCoordSystem("plan_m", std::string("План схема"));
    plan->SetCaption("План схема, метры");
    plan->SetMapinfo("0, 7");
    plan->SetMetric(cmMeter);
    TcsCoordSystem* longLat = AddCoordSystem("longlat_p42", std::string("Долгота / Широта"));
    longLat->SetCaption("Долгота / Широта (Пулково 1942)");
    longLat->SetMapinfo("1, 1001");
    // Metres as stored, although the unit is angular.
    longLat->SetMetric(cmMeter);
}

void TcsCoordSystemManager::Clear() {
    FCoordSystems->Clear();
    FCategories->Clear();
}

// ---------------------------------------------------------------------------------------------
// Published names

TCS_PROPERTIES(TcsCoordSystemParams, TcsInfoLowData, Property("Has", &TcsCoordSystemParams::Has, &TcsCoordSystemParams::SetHas))
TCS_PROPERTIES(TcsCoordSystemMerkParams, TcsCoordSystemParams, Field("Longitude", &TcsCoordSystemMerkParams::Longitude),
               Field("Latitude", &TcsCoordSystemMerkParams::Latitude), Field("FalseX", &TcsCoordSystemMerkParams::FalseX),
               Field("FalseY", &TcsCoordSystemMerkParams::FalseY), Field("Scale", &TcsCoordSystemMerkParams::Scale))
TCS_PROPERTIES(TcsCoordSystemAffineCustomParams, TcsCoordSystemParams, Field("Metric", &TcsCoordSystemAffineCustomParams::Metric),
               Field("A", &TcsCoordSystemAffineCustomParams::A), Field("B", &TcsCoordSystemAffineCustomParams::B),
               Field("C", &TcsCoordSystemAffineCustomParams::C), Field("D", &TcsCoordSystemAffineCustomParams::D),
               Field("E", &TcsCoordSystemAffineCustomParams::E), Field("F", &TcsCoordSystemAffineCustomParams::F))
TCS_PROPERTIES(TcsCoordSystemAffineParams, TcsCoordSystemAffineCustomParams,
               ObjectProperty("BackParams", &TcsCoordSystemAffineParams::BackParams))
TCS_PROPERTIES(TcsCoordsysDatum, TcsInfoLowData, Field("dX", &TcsCoordsysDatum::dX), Field("dY", &TcsCoordsysDatum::dY),
               Field("dZ", &TcsCoordsysDatum::dZ), Field("EX", &TcsCoordsysDatum::EX), Field("EY", &TcsCoordsysDatum::EY),
               Field("EZ", &TcsCoordsysDatum::EZ), Field("m", &TcsCoordsysDatum::m), Field("Longitude", &TcsCoordsysDatum::Longitude),
               Field("Elipsoid", &TcsCoordsysDatum::Elipsoid))
TCS_PROPERTIES(TcsCoordSystem, TcsInfoLowData, Property("ID", &TcsCoordSystem::ID, &TcsCoordSystem::SetID),
               Property("EPSGID", &TcsCoordSystem::EPSGID, &TcsCoordSystem::SetEPSGID),
               Property("Mapinfo", &TcsCoordSystem::Mapinfo, &TcsCoordSystem::SetMapinfo),
               Property("WKT", &TcsCoordSystem::WKT, &TcsCoordSystem::SetWKT),
               Property("Proj4", &TcsCoordSystem::Proj4, &TcsCoordSystem::SetProj4),
               Property("Caption", &TcsCoordSystem::Caption, &TcsCoordSystem::SetCaption),
               EnumProperty("CoordSystemType", &TcsCoordSystem::CoordSystemType, &TcsCoordSystem::SetCoordSystemType,
                            {"cstHorizantal", "cstLongLat", "cstNormalMercator", "cstTransverseMercator", "cstPolarStereo"}),
               EnumProperty("Datum", &TcsCoordSystem::Datum, &TcsCoordSystem::SetDatum,
                            {"csdNone", "csdCustom", "csdPulkovo1942", "csdWGS84"}),
               ObjectProperty("CustomDatum", &TcsCoordSystem::CustomDatum),
               EnumProperty("Metric", &TcsCoordSystem::Metric, &TcsCoordSystem::SetMetric,
                            {"cmLongLat", "cmFt", "cmYard", "cmMile", "cmMillimeter", "cmCentimeter", "cmMeter", "cmKilometer"}),
               ObjectProperty("Bounds", &TcsCoordSystem::Bounds), ObjectProperty("MerkParams", &TcsCoordSystem::MerkParams),
               ObjectProperty("AffineParams", &TcsCoordSystem::AffineParams),
               Property("IsValid", &TcsCoordSystem::IsValid, &TcsCoordSystem::SetIsValid))
TCS_PROPERTIES(TcsCoordSystemCategory, TcsInfoLowData,
               Property("Caption", &TcsCoordSystemCategory::Caption, &TcsCoordSystemCategory::SetCaption),
               Property("BaseName", &TcsCoordSystemCategory::BaseName, &TcsCoordSystemCategory::SetBaseName),
               Property("CoordSystemIDS", &TcsCoordSystemCategory::CoordSystemIDSText, &TcsCoordSystemCategory::SetCoordSystemIDSText))
TCS_PROPERTIES(TcsCoordSystemManager, TcsManager, ObjectProperty("CoordSystems", &TcsCoordSystemManager::CoordSystems),
               ObjectProperty("Categories", &TcsCoordSystemManager::Categories))

}  // namespace tmi
