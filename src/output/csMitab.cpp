#include "csMitab.h"

#include <cstdio>
#include <algorithm>
#include <filesystem>
#include <utility>

namespace tmi {

std::string& MitabLibraryOverride() {
    static std::string name;
    return name;
}

// GDAL's handles and the enumerations this file uses, as its C interface declares them.
namespace {
using GDALDriverH = void*;
using GDALDatasetH = void*;
using OGRLayerH = void*;
using OGRSpatialReferenceH = void*;
using OGRFieldDefnH = void*;
using OGRFeatureDefnH = void*;
using OGRFeatureH = void*;
using OGRGeometryH = void*;
using OGRErr = int;
using CPLErrorHandler = void (*)(int, int, const char*);

enum : int { wkbUnknown = 0, wkbPoint = 1, wkbLineString = 2, wkbPolygon = 3, wkbMultiPoint = 4, wkbMultiLineString = 5,
             wkbMultiPolygon = 6, wkbGeometryCollection = 7, wkbLinearRing = 101 };
enum : int { OFTInteger = 0, OFTReal = 2, OFTString = 4, OFTDate = 9 };
constexpr int kOgrNone = 0;
constexpr int kErrorAppDefined = 1;  // CPLE_AppDefined
constexpr int kErrorNotSupported = 6;

// The points of one part.
struct Part {
    std::vector<double> X, Y;
};
}  // namespace

struct TcsMitabDynHeader::Api {
    void (*GDALAllRegister)() = nullptr;
    GDALDriverH (*GDALGetDriverByName)(const char*) = nullptr;
    GDALDatasetH (*GDALCreate)(GDALDriverH, const char*, int, int, int, int, char**) = nullptr;
    OGRLayerH (*GDALDatasetCreateLayer)(GDALDatasetH, const char*, OGRSpatialReferenceH, int, char**) = nullptr;
    void (*GDALClose)(GDALDatasetH) = nullptr;
    const char* (*GDALVersionInfo)(const char*) = nullptr;
    OGRSpatialReferenceH (*OSRNewSpatialReference)(const char*) = nullptr;
    OGRErr (*OSRImportFromMICoordSys)(OGRSpatialReferenceH, const char*) = nullptr;
    void (*OSRSetAxisMappingStrategy)(OGRSpatialReferenceH, int) = nullptr;
    void (*OSRRelease)(OGRSpatialReferenceH) = nullptr;
    OGRFieldDefnH (*OGR_Fld_Create)(const char*, int) = nullptr;
    void (*OGR_Fld_SetWidth)(OGRFieldDefnH, int) = nullptr;
    void (*OGR_Fld_SetPrecision)(OGRFieldDefnH, int) = nullptr;
    void (*OGR_Fld_Destroy)(OGRFieldDefnH) = nullptr;
    OGRErr (*OGR_L_CreateField)(OGRLayerH, OGRFieldDefnH, int) = nullptr;
    OGRFeatureDefnH (*OGR_L_GetLayerDefn)(OGRLayerH) = nullptr;
    OGRErr (*OGR_L_CreateFeature)(OGRLayerH, OGRFeatureH) = nullptr;
    long long (*OGR_L_GetFeatureCount)(OGRLayerH, int) = nullptr;
    OGRFeatureH (*OGR_F_Create)(OGRFeatureDefnH) = nullptr;
    void (*OGR_F_Destroy)(OGRFeatureH) = nullptr;
    void (*OGR_F_SetFieldString)(OGRFeatureH, int, const char*) = nullptr;
    void (*OGR_F_SetFieldDateTime)(OGRFeatureH, int, int, int, int, int, int, int, int) = nullptr;
    OGRErr (*OGR_F_SetGeometryDirectly)(OGRFeatureH, OGRGeometryH) = nullptr;
    OGRGeometryH (*OGR_G_CreateGeometry)(int) = nullptr;
    void (*OGR_G_AddPoint_2D)(OGRGeometryH, double, double) = nullptr;
    OGRErr (*OGR_G_AddGeometryDirectly)(OGRGeometryH, OGRGeometryH) = nullptr;
    void (*OGR_G_DestroyGeometry)(OGRGeometryH) = nullptr;
    int (*CPLGetLastErrorNo)() = nullptr;
    const char* (*CPLGetLastErrorMsg)() = nullptr;
    void (*CPLErrorReset)() = nullptr;
    void (*CPLPushErrorHandler)(CPLErrorHandler) = nullptr;
    void (*CPLPopErrorHandler)() = nullptr;
    CPLErrorHandler CPLQuietErrorHandler = nullptr;

    // Every function that the writer cannot do without.
    [[nodiscard]] const char* FirstMissing() const {
        const std::pair<const void*, const char*> needed[] = {
            {reinterpret_cast<const void*>(GDALAllRegister), "GDALAllRegister"},
            {reinterpret_cast<const void*>(GDALGetDriverByName), "GDALGetDriverByName"},
            {reinterpret_cast<const void*>(GDALCreate), "GDALCreate"},
            {reinterpret_cast<const void*>(GDALDatasetCreateLayer), "GDALDatasetCreateLayer"},
            {reinterpret_cast<const void*>(GDALClose), "GDALClose"},
            {reinterpret_cast<const void*>(OSRNewSpatialReference), "OSRNewSpatialReference"},
            {reinterpret_cast<const void*>(OSRImportFromMICoordSys), "OSRImportFromMICoordSys"},
            {reinterpret_cast<const void*>(OSRRelease), "OSRRelease"},
            {reinterpret_cast<const void*>(OGR_Fld_Create), "OGR_Fld_Create"},
            {reinterpret_cast<const void*>(OGR_Fld_SetWidth), "OGR_Fld_SetWidth"},
            {reinterpret_cast<const void*>(OGR_Fld_SetPrecision), "OGR_Fld_SetPrecision"},
            {reinterpret_cast<const void*>(OGR_Fld_Destroy), "OGR_Fld_Destroy"},
            {reinterpret_cast<const void*>(OGR_L_CreateField), "OGR_L_CreateField"},
            {reinterpret_cast<const void*>(OGR_L_GetLayerDefn), "OGR_L_GetLayerDefn"},
            {reinterpret_cast<const void*>(OGR_L_CreateFeature), "OGR_L_CreateFeature"},
            {reinterpret_cast<const void*>(OGR_F_Create), "OGR_F_Create"},
            {reinterpret_cast<const void*>(OGR_F_Destroy), "OGR_F_Destroy"},
            {reinterpret_cast<const void*>(OGR_F_SetFieldString), "OGR_F_SetFieldString"},
            {reinterpret_cast<const void*>(OGR_F_SetFieldDateTime), "OGR_F_SetFieldDateTime"},
            {reinterpret_cast<const void*>(OGR_F_SetGeometryDirectly), "OGR_F_SetGeometryDirectly"},
            {reinterpret_cast<const void*>(OGR_G_CreateGeometry), "OGR_G_CreateGeometry"},
            {reinterpret_cast<const void*>(OGR_G_AddPoint_2D), "OGR_G_AddPoint_2D"},
            {reinterpret_cast<const void*>(OGR_G_AddGeometryDirectly), "OGR_G_AddGeometryDirectly"},
            {reinterpret_cast<const void*>(OGR_G_DestroyGeometry), "OGR_G_DestroyGeometry"},
            {reinterpret_cast<const void*>(CPLGetLastErrorNo), "CPLGetLastErrorNo"},
            {reinterpret_cast<const void*>(CPLGetLastErrorMsg), "CPLGetLastErrorMsg"},
            {reinterpret_cast<const void*>(CPLErrorReset), "CPLErrorReset"},
        };
        for (const auto& [p, name] : needed)
            if (!p) return name;
        return nullptr;
    }
};

// An open table: the dataset, its one layer, and the types of its fields.
struct TcsMitabDataset {
    GDALDatasetH Dataset = nullptr;
    OGRLayerH Layer = nullptr;
    std::vector<int> FieldTypes;  // MITAB's numbering
};

// A feature being built: its kind, its parts and its values, until it is written.
struct TcsMitabFeature {
    TcsMitabDataset* Owner = nullptr;
    int Kind = TABFC_NoGeom;
    std::vector<Part> Parts;
    std::map<int, std::string> Values;
    // A collection's members, by kind.
    std::vector<Part> Regions, Polylines, MultiPoints;
};

namespace {

// GDAL's messages go to the caller through the last error, not to the console: quiet while
// an operation runs, on this thread only.
struct QuietErrors {
    const TcsMitabDynHeader::Api& fApi;
    bool fPushed = false;
    explicit QuietErrors(const TcsMitabDynHeader::Api& aApi) : fApi(aApi) {
        if (fApi.CPLPushErrorHandler && fApi.CPLPopErrorHandler && fApi.CPLQuietErrorHandler) {
            fApi.CPLPushErrorHandler(fApi.CPLQuietErrorHandler);
            fPushed = true;
        }
    }
    ~QuietErrors() {
        if (fPushed) fApi.CPLPopErrorHandler();
    }
};

// A null-terminated list of "KEY=VALUE" options.
struct Options {
    std::vector<std::string> fItems;
    std::vector<char*> fPointers;
    char** List() {
        fPointers.clear();
        for (std::string& s : fItems) fPointers.push_back(s.data());
        fPointers.push_back(nullptr);
        return fPointers.data();
    }
};

std::string Number(double aValue) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.17g", aValue);
    return buf;
}

// A date as MITAB takes it ("yyyymmdd"), or as ISO or the short date "dd.mm.yyyy".
bool ParseDate(const std::string& aText, int& aYear, int& aMonth, int& aDay) {
    auto digits = [&](size_t aFrom, size_t aCount, int& aOut) {
        if (aFrom + aCount > aText.size()) return false;
        aOut = 0;
        for (size_t i = aFrom; i < aFrom + aCount; ++i) {
            if (aText[i] < '0' || aText[i] > '9') return false;
            aOut = aOut * 10 + (aText[i] - '0');
        }
        return true;
    };
    bool ok = false;
    if (aText.size() == 8)
        ok = digits(0, 4, aYear) && digits(4, 2, aMonth) && digits(6, 2, aDay);
    else if (aText.size() == 10 && (aText[4] == '-' || aText[4] == '/'))
        ok = digits(0, 4, aYear) && digits(5, 2, aMonth) && digits(8, 2, aDay);
    else if (aText.size() == 10 && aText[2] == '.' && aText[5] == '.')
        ok = digits(0, 2, aDay) && digits(3, 2, aMonth) && digits(6, 4, aYear);
    return ok && aMonth >= 1 && aMonth <= 12 && aDay >= 1 && aDay <= 31;
}

// Every point of the inner ring inside the outer one, by the even-odd rule.
bool InsideRing(const Part& aOuter, const Part& aInner) {
    auto inside = [&](double x, double y) {
        bool in = false;
        const size_t n = aOuter.X.size();
        for (size_t i = 0, j = n - 1; i < n; j = i++) {
            const double xi = aOuter.X[i], yi = aOuter.Y[i], xj = aOuter.X[j], yj = aOuter.Y[j];
            if ((yi > y) != (yj > y) && x < (xj - xi) * (y - yi) / (yj - yi) + xi) in = !in;
        }
        return in;
    };
    if (aOuter.X.size() < 3) return false;
    for (size_t i = 0; i < aInner.X.size(); ++i)
        if (!inside(aInner.X[i], aInner.Y[i])) return false;
    return true;
}

}  // namespace

TcsMitabDynHeader::TcsMitabDynHeader(const std::string& aLibraryName)
    : TcsDLLHeader(aLibraryName.empty() ? kMitabDefaultLibrary : aLibraryName), fApi(std::make_unique<Api>()) {}

TcsMitabDynHeader::~TcsMitabDynHeader() = default;

void TcsMitabDynHeader::BindFunctions() {
    Api& a = *fApi;
    Bind(a.GDALAllRegister, "GDALAllRegister");
    Bind(a.GDALGetDriverByName, "GDALGetDriverByName");
    Bind(a.GDALCreate, "GDALCreate");
    Bind(a.GDALDatasetCreateLayer, "GDALDatasetCreateLayer");
    Bind(a.GDALClose, "GDALClose");
    Bind(a.GDALVersionInfo, "GDALVersionInfo");
    Bind(a.OSRNewSpatialReference, "OSRNewSpatialReference");
    Bind(a.OSRImportFromMICoordSys, "OSRImportFromMICoordSys");
    Bind(a.OSRSetAxisMappingStrategy, "OSRSetAxisMappingStrategy");
    Bind(a.OSRRelease, "OSRRelease");
    Bind(a.OGR_Fld_Create, "OGR_Fld_Create");
    Bind(a.OGR_Fld_SetWidth, "OGR_Fld_SetWidth");
    Bind(a.OGR_Fld_SetPrecision, "OGR_Fld_SetPrecision");
    Bind(a.OGR_Fld_Destroy, "OGR_Fld_Destroy");
    Bind(a.OGR_L_CreateField, "OGR_L_CreateField");
    Bind(a.OGR_L_GetLayerDefn, "OGR_L_GetLayerDefn");
    Bind(a.OGR_L_CreateFeature, "OGR_L_CreateFeature");
    Bind(a.OGR_L_GetFeatureCount, "OGR_L_GetFeatureCount");
    Bind(a.OGR_F_Create, "OGR_F_Create");
    Bind(a.OGR_F_Destroy, "OGR_F_Destroy");
    Bind(a.OGR_F_SetFieldString, "OGR_F_SetFieldString");
    Bind(a.OGR_F_SetFieldDateTime, "OGR_F_SetFieldDateTime");
    Bind(a.OGR_F_SetGeometryDirectly, "OGR_F_SetGeometryDirectly");
    Bind(a.OGR_G_CreateGeometry, "OGR_G_CreateGeometry");
    Bind(a.OGR_G_AddPoint_2D, "OGR_G_AddPoint_2D");
    Bind(a.OGR_G_AddGeometryDirectly, "OGR_G_AddGeometryDirectly");
    Bind(a.OGR_G_DestroyGeometry, "OGR_G_DestroyGeometry");
    Bind(a.CPLGetLastErrorNo, "CPLGetLastErrorNo");
    Bind(a.CPLGetLastErrorMsg, "CPLGetLastErrorMsg");
    Bind(a.CPLErrorReset, "CPLErrorReset");
    Bind(a.CPLPushErrorHandler, "CPLPushErrorHandler");
    Bind(a.CPLPopErrorHandler, "CPLPopErrorHandler");
    Bind(a.CPLQuietErrorHandler, "CPLQuietErrorHandler");
    MITAB_LoadErr = MissingFunctions();
    if (a.GDALAllRegister) a.GDALAllRegister();
}

void TcsMitabDynHeader::Fail(int aCode, const std::string& aText) {
    fErrorNo = aCode;
    fErrorMsg = aText;
}

void TcsMitabDynHeader::ResetError() {
    fErrorNo = 0;
    fErrorMsg.clear();
    if (fApi->CPLErrorReset) fApi->CPLErrorReset();
}

void TcsMitabDynHeader::TakeLibraryError() {
    if (fErrorNo > 0 || !fApi->CPLGetLastErrorNo) return;
    const int code = fApi->CPLGetLastErrorNo();
    if (code > 0) Fail(code, fApi->CPLGetLastErrorMsg ? fApi->CPLGetLastErrorMsg() : "");
}

// Loaded, with every function the operation needs; otherwise the last error says why.
bool TcsMitabDynHeader::Ready(const char* aOperation) {
    fErrorNo = 0;
    fErrorMsg.clear();
    if (!Initialized()) Initialize();
    if (const char* missing = fApi->FirstMissing()) {
        Fail(kErrorNotSupported, std::string(aOperation) + ": в библиотеке " + LibraryName() + " нет функции " + missing);
        return false;
    }
    ResetError();
    return true;
}

std::string TcsMitabDynHeader::mitab_c_getlibversion() {
    if (!Initialized()) Initialize();
    return fApi->GDALVersionInfo ? fApi->GDALVersionInfo("RELEASE_NAME") : std::string();
}

int TcsMitabDynHeader::mitab_c_getlasterrorno() { return fErrorNo; }

std::string TcsMitabDynHeader::mitab_c_getlasterrormsg() { return fErrorMsg; }

mitab_handle TcsMitabDynHeader::mitab_c_create(const std::string& aFileName, const std::string& aType,
                                               const std::string& aCoordSys, double aNorth, double aSouth,
                                               double aEast, double aWest) {
    if (!Ready("mitab_c_create")) return nullptr;
    const Api& a = *fApi;
    QuietErrors quiet(a);
    GDALDriverH driver = a.GDALGetDriverByName("MapInfo File");
    if (!driver) {
        Fail(kErrorNotSupported, "нет драйвера \"MapInfo File\"");
        return nullptr;
    }
    Options datasetOptions;
    datasetOptions.fItems.push_back(SameText(aType, "mif") ? "FORMAT=MIF" : "FORMAT=TAB");
    datasetOptions.fItems.push_back("SPATIAL_INDEX_MODE=QUICK");
    auto table = std::make_unique<TcsMitabDataset>();
    table->Dataset = a.GDALCreate(driver, aFileName.c_str(), 0, 0, 0, 0, datasetOptions.List());
    if (!table->Dataset) {
        TakeLibraryError();
        if (fErrorNo == 0) Fail(kErrorAppDefined, "не удалось создать " + aFileName);
        return nullptr;
    }
    OGRSpatialReferenceH srs = nullptr;
    if (!Trim(aCoordSys).empty()) {
        srs = a.OSRNewSpatialReference(nullptr);
        if (a.OSRSetAxisMappingStrategy) a.OSRSetAxisMappingStrategy(srs, 0);  // easting first, as MapInfo
        if (a.OSRImportFromMICoordSys(srs, Trim(aCoordSys).c_str()) != kOgrNone) {
            a.OSRRelease(srs);
            a.GDALClose(table->Dataset);
            Fail(kErrorAppDefined, "не удалось разобрать систему координат: " + aCoordSys);
            return nullptr;
        }
    }
    Options layerOptions;
    layerOptions.fItems.push_back("ENCODING=CP1251");
    if (aNorth > aSouth && aEast > aWest)
        layerOptions.fItems.push_back("BOUNDS=" + Number(aWest) + "," + Number(aSouth) + "," + Number(aEast) + "," + Number(aNorth));
    const std::string layerName = std::filesystem::path(aFileName).stem().string();
    table->Layer = a.GDALDatasetCreateLayer(table->Dataset, layerName.c_str(), srs, wkbUnknown, layerOptions.List());
    if (srs) a.OSRRelease(srs);
    if (!table->Layer) {
        TakeLibraryError();
        if (fErrorNo == 0) Fail(kErrorAppDefined, "не удалось создать слой " + layerName);
        a.GDALClose(table->Dataset);
        return nullptr;
    }
    return table.release();  // owned by the caller until mitab_c_close
}

int TcsMitabDynHeader::mitab_c_add_field(mitab_handle aDataset, const std::string& aName, int aType, int aWidth,
                                         int aPrecision, bool, bool) {
    if (!aDataset || !Ready("mitab_c_add_field")) return -1;
    const Api& a = *fApi;
    QuietErrors quiet(a);
    int ogrType = OFTString;
    switch (aType) {
        case TABFT_Integer:
        case TABFT_SmallInt: ogrType = OFTInteger; break;
        case TABFT_Decimal:
        case TABFT_Float: ogrType = OFTReal; break;
        case TABFT_Date: ogrType = OFTDate; break;
        default: ogrType = OFTString; break;
    }
    OGRFieldDefnH field = a.OGR_Fld_Create(aName.c_str(), ogrType);
    if (aType == TABFT_Char || aType == TABFT_Decimal) a.OGR_Fld_SetWidth(field, aWidth);
    if (aType == TABFT_Decimal) a.OGR_Fld_SetPrecision(field, aPrecision);
    const OGRErr err = a.OGR_L_CreateField(aDataset->Layer, field, 0);
    a.OGR_Fld_Destroy(field);
    if (err != kOgrNone) {
        TakeLibraryError();
        if (fErrorNo == 0) Fail(kErrorAppDefined, "не удалось добавить поле " + aName);
        return -1;
    }
    aDataset->FieldTypes.push_back(aType);
    return static_cast<int>(aDataset->FieldTypes.size()) - 1;
}

mitab_feature TcsMitabDynHeader::mitab_c_create_feature(mitab_handle aDataset, int aFeatureType) {
    fErrorNo = 0;
    fErrorMsg.clear();
    switch (aFeatureType) {
        case TABFC_NoGeom:
        case TABFC_Point:
        case TABFC_Polyline:
        case TABFC_Region:
        case TABFC_MultiPoint:
        case TABFC_Collection: break;
        default:
            Fail(kErrorNotSupported, "mitab_c_create_feature: тип " + std::to_string(aFeatureType) + " не поддерживается");
            return nullptr;
    }
    auto feature = std::make_unique<TcsMitabFeature>();
    feature->Owner = aDataset;
    feature->Kind = aFeatureType;
    return feature.release();  // owned by the caller until mitab_c_destroy_feature
}

void TcsMitabDynHeader::mitab_c_set_field(mitab_feature aFeature, int aIndex, const std::string& aValue) {
    fErrorNo = 0;
    if (!aFeature || aIndex < 0 || !aFeature->Owner || aIndex >= static_cast<int>(aFeature->Owner->FieldTypes.size())) {
        Fail(kErrorAppDefined, "mitab_c_set_field: нет поля " + std::to_string(aIndex));
        return;
    }
    aFeature->Values[aIndex] = aValue;
}

void TcsMitabDynHeader::mitab_c_set_points(mitab_feature aFeature, int aPart, int aCount, const double* aX, const double* aY) {
    fErrorNo = 0;
    if (!aFeature || aPart < 0 || aCount < 0) {
        Fail(kErrorAppDefined, "mitab_c_set_points: неверные аргументы");
        return;
    }
    if (aPart >= static_cast<int>(aFeature->Parts.size())) aFeature->Parts.resize(static_cast<size_t>(aPart) + 1);
    Part& p = aFeature->Parts[static_cast<size_t>(aPart)];
    p.X.assign(aX, aX + aCount);
    p.Y.assign(aY, aY + aCount);
}

namespace {
int Join(mitab_feature aCollection, mitab_feature aMember, int aKind, std::vector<Part> TcsMitabFeature::*aInto) {
    if (!aCollection || !aMember || aCollection->Kind != TABFC_Collection || aMember->Kind != aKind) return -1;
    (aCollection->*aInto) = aMember->Parts;
    return static_cast<int>(aMember->Parts.size());
}
}  // namespace

int TcsMitabDynHeader::mitab_c_set_collection_region(mitab_feature aCollection, mitab_feature aRegion) {
    return Join(aCollection, aRegion, TABFC_Region, &TcsMitabFeature::Regions);
}
int TcsMitabDynHeader::mitab_c_set_collection_polyline(mitab_feature aCollection, mitab_feature aPolyline) {
    return Join(aCollection, aPolyline, TABFC_Polyline, &TcsMitabFeature::Polylines);
}
int TcsMitabDynHeader::mitab_c_set_collection_multipoint(mitab_feature aCollection, mitab_feature aMultiPoint) {
    return Join(aCollection, aMultiPoint, TABFC_MultiPoint, &TcsMitabFeature::MultiPoints);
}

int TcsMitabDynHeader::mitab_c_write_feature(mitab_handle aDataset, mitab_feature aFeature) {
    if (!aDataset || !aFeature || !Ready("mitab_c_write_feature")) return 0;
    const Api& a = *fApi;
    QuietErrors quiet(a);
    auto line = [&](const Part& p, int aType) {
        OGRGeometryH g = a.OGR_G_CreateGeometry(aType);
        for (size_t i = 0; i < p.X.size(); ++i) a.OGR_G_AddPoint_2D(g, p.X[i], p.Y[i]);
        return g;
    };
    // A region's rings: a ring that lies inside an earlier outer ring of the feature is a
    // hole of it, any other starts a polygon of its own.
    auto regions = [&](const std::vector<Part>& aParts) {
        OGRGeometryH multi = a.OGR_G_CreateGeometry(wkbMultiPolygon);
        std::vector<std::pair<const Part*, OGRGeometryH>> outers;
        for (const Part& p : aParts) {
            if (p.X.empty()) continue;
            OGRGeometryH ring = line(p, wkbLinearRing);
            if (p.X.front() != p.X.back() || p.Y.front() != p.Y.back()) a.OGR_G_AddPoint_2D(ring, p.X.front(), p.Y.front());
            OGRGeometryH owner = nullptr;
            for (const auto& [outer, polygon] : outers)
                if (InsideRing(*outer, p)) {
                    owner = polygon;
                    break;
                }
            if (!owner) {
                owner = a.OGR_G_CreateGeometry(wkbPolygon);
                a.OGR_G_AddGeometryDirectly(multi, owner);  // the collection owns it; the handle stays good
                outers.emplace_back(&p, owner);
            }
            a.OGR_G_AddGeometryDirectly(owner, ring);
        }
        return multi;
    };
    auto polylines = [&](const std::vector<Part>& aParts) {
        if (aParts.size() == 1) return line(aParts[0], wkbLineString);
        OGRGeometryH multi = a.OGR_G_CreateGeometry(wkbMultiLineString);
        for (const Part& p : aParts) a.OGR_G_AddGeometryDirectly(multi, line(p, wkbLineString));
        return multi;
    };
    auto multipoint = [&](const std::vector<Part>& aParts) {
        OGRGeometryH multi = a.OGR_G_CreateGeometry(wkbMultiPoint);
        for (const Part& p : aParts)
            for (size_t i = 0; i < p.X.size(); ++i) {
                OGRGeometryH point = a.OGR_G_CreateGeometry(wkbPoint);
                a.OGR_G_AddPoint_2D(point, p.X[i], p.Y[i]);
                a.OGR_G_AddGeometryDirectly(multi, point);
            }
        return multi;
    };
    OGRGeometryH geometry = nullptr;
    const bool hasParts = !aFeature->Parts.empty() && !aFeature->Parts[0].X.empty();
    switch (aFeature->Kind) {
        case TABFC_Point:
            if (hasParts) {
                geometry = a.OGR_G_CreateGeometry(wkbPoint);
                a.OGR_G_AddPoint_2D(geometry, aFeature->Parts[0].X[0], aFeature->Parts[0].Y[0]);
            }
            break;
        case TABFC_Polyline:
            if (hasParts) geometry = polylines(aFeature->Parts);
            break;
        case TABFC_Region:
            if (hasParts) geometry = regions(aFeature->Parts);
            break;
        case TABFC_MultiPoint:
            if (hasParts) geometry = multipoint(aFeature->Parts);
            break;
        case TABFC_Collection:
            if (!aFeature->Regions.empty() || !aFeature->Polylines.empty() || !aFeature->MultiPoints.empty()) {
                geometry = a.OGR_G_CreateGeometry(wkbGeometryCollection);
                if (!aFeature->Regions.empty()) a.OGR_G_AddGeometryDirectly(geometry, regions(aFeature->Regions));
                if (!aFeature->Polylines.empty()) {
                    OGRGeometryH lines = a.OGR_G_CreateGeometry(wkbMultiLineString);
                    for (const Part& p : aFeature->Polylines) a.OGR_G_AddGeometryDirectly(lines, line(p, wkbLineString));
                    a.OGR_G_AddGeometryDirectly(geometry, lines);
                }
                if (!aFeature->MultiPoints.empty()) a.OGR_G_AddGeometryDirectly(geometry, multipoint(aFeature->MultiPoints));
            }
            break;
        default: break;
    }
    OGRFeatureH feature = a.OGR_F_Create(a.OGR_L_GetLayerDefn(aDataset->Layer));
    for (const auto& [index, value] : aFeature->Values) {
        int y = 0, m = 0, d = 0;
        if (aDataset->FieldTypes[static_cast<size_t>(index)] == TABFT_Date) {
            if (ParseDate(value, y, m, d)) a.OGR_F_SetFieldDateTime(feature, index, y, m, d, 0, 0, 0, 0);
        } else {
            a.OGR_F_SetFieldString(feature, index, value.c_str());
        }
    }
    if (geometry) a.OGR_F_SetGeometryDirectly(feature, geometry);
    const OGRErr err = a.OGR_L_CreateFeature(aDataset->Layer, feature);
    a.OGR_F_Destroy(feature);
    if (err != kOgrNone) {
        TakeLibraryError();
        if (fErrorNo == 0) Fail(kErrorAppDefined, "не удалось записать объект");
        return 0;
    }
    return 1;
}

void TcsMitabDynHeader::mitab_c_destroy_feature(mitab_feature aFeature) {
    std::unique_ptr<TcsMitabFeature> owned(aFeature);
}

void TcsMitabDynHeader::mitab_c_close(mitab_handle aDataset) {
    std::unique_ptr<TcsMitabDataset> owned(aDataset);
    if (!owned || !Ready("mitab_c_close")) return;
    QuietErrors quiet(*fApi);
    fApi->GDALClose(owned->Dataset);
    TakeLibraryError();
}

int TcsMitabDynHeader::mitab_c_set_quick_spatial_index_mode(mitab_handle aDataset) {
    // Tables are created in quick mode already.
    return aDataset ? 0 : -1;
}

int TcsMitabDynHeader::mitab_c_get_feature_count(mitab_handle aDataset) {
    if (!aDataset || !Ready("mitab_c_get_feature_count") || !fApi->OGR_L_GetFeatureCount) return 0;
    return static_cast<int>(fApi->OGR_L_GetFeatureCount(aDataset->Layer, 1));
}

// The table.

TCS_PROPERTIES(TcsMapinfoTable, TcsInfo)

TcsMapinfoTable::TcsMapinfoTable(TcsComponent* aOwner)
    : TcsInfo(aOwner),
      FBounds(std::make_unique<TcsGeometryBounds>()),
      FMitabDin(std::make_unique<TcsMitabDynHeader>(MitabLibraryOverride().empty() ? kMitabLibrary : MitabLibraryOverride())) {}

TcsMapinfoTable::~TcsMapinfoTable() {
    DestroyActiveFeature();
    if (FMiTabHandler) FMitabDin->mitab_c_close(std::exchange(FMiTabHandler, nullptr));
}

void TcsMapinfoTable::RaizeError(const std::string& aWhere) {
    if (!FMitabDin->Initialized() || FMitabDin->mitab_c_getlasterrorno() <= 0) return;
    const std::string text = aWhere + ": " + FMitabDin->mitab_c_getlasterrormsg();
    fTrace.push_back(text);
    if (FOnError) FOnError(*this, text);
}

void TcsMapinfoTable::CreateTable(const std::string& aType) {
    FMiTabHandler = FMitabDin->mitab_c_create(FFileName, aType, FCoordSysString, FBounds->YMax(), FBounds->YMin(),
                                             FBounds->XMax(), FBounds->XMin());
    RaizeError("CreateTable");
    if (FMiTabHandler) {
        FMitabDin->mitab_c_set_quick_spatial_index_mode(FMiTabHandler);
        RaizeError("CreateTable");
    }
}

void TcsMapinfoTable::AddField(const std::string& aName, int aType, bool aIndexed, bool aUnique, int aDecimals, int aWidth) {
    const int index = FMitabDin->mitab_c_add_field(FMiTabHandler, aName, aType, aWidth, aDecimals, aIndexed, aUnique);
    RaizeError("AddField");
    if (index < 0) return;
    FFieldIndex[aName] = index;
    FFieldIntIndex[index] = aName;
}

int TcsMapinfoTable::FieldIndex(const std::string& aName) const {
    const auto it = FFieldIndex.find(aName);
    return it == FFieldIndex.end() ? -1 : it->second;
}

void TcsMapinfoTable::CreateFeature(int aKind) {
    DestroyActiveFeature();
    FLastFeature = FMitabDin->mitab_c_create_feature(FMiTabHandler, aKind);
    RaizeError("CreateFeature");
}

void TcsMapinfoTable::SetFieldValue(const std::string& aValue, const std::string& aName) {
    const int index = FieldIndex(aName);
    if (index < 0 || !FLastFeature) return;
    FMitabDin->mitab_c_set_field(FLastFeature, index, aValue);
    RaizeError("SetFieldValue");
}

void TcsMapinfoTable::SetFieldDateTimeValue(TDateTime aValue, const std::string& aName) {
    int y, m, d, h, n, s, ms;
    DecodeDateTime(aValue, y, m, d, h, n, s, ms);
    char buf[16];
    std::snprintf(buf, sizeof buf, "%04d%02d%02d", y, m, d);
    SetFieldValue(buf, aName);
}

void TcsMapinfoTable::SetPoints(int aPart, const std::vector<double>& aX, const std::vector<double>& aY) {
    if (!FLastFeature) return;
    FMitabDin->mitab_c_set_points(FLastFeature, aPart, static_cast<int>(std::min(aX.size(), aY.size())), aX.data(), aY.data());
    RaizeError("SetPoints");
}

int TcsMapinfoTable::FeatureTypeOf(TcsGeometryType aType) {
    switch (aType) {
        case gtPoint: return TABFC_Point;
        case gtMultiPoint: return TABFC_MultiPoint;
        case gtPolyLine: return TABFC_Polyline;
        case gtPoligon: return TABFC_Region;
        case gtCollection: return TABFC_Collection;
        default: return TABFC_NoGeom;
    }
}

void TcsMapinfoTable::WriteGeometry(const TcsGeometry& aGeometry) {
    if (!FLastFeature) return;
    std::vector<double> x, y;
    if (aGeometry.GetGeometryType() != gtCollection) {
        for (int i = 0; i < aGeometry.Count(); ++i) {
            aGeometry.Items(i)->Coords().FillCoordArray(x, y);
            SetPoints(i, x, y);
        }
        return;
    }
    // A collection: one feature of each kind, its parts joined into the active one.
    for (mitab_feature f : FLastFeatureCollection) FMitabDin->mitab_c_destroy_feature(f);
    FLastFeatureCollection.clear();
    for (const int kind : {TABFC_Region, TABFC_Polyline, TABFC_MultiPoint}) {
        mitab_feature member = nullptr;
        int part = 0;
        for (int i = 0; i < aGeometry.Count(); ++i) {
            const TcsCustomGeometry& item = *aGeometry.Items(i);
            if (FeatureTypeOf(item.GetGeometryType()) != kind &&
                !(kind == TABFC_MultiPoint && item.GetGeometryType() == gtPoint))
                continue;
            if (!member) {
                member = FMitabDin->mitab_c_create_feature(FMiTabHandler, kind);
                FLastFeatureCollection.push_back(member);
            }
            item.Coords().FillCoordArray(x, y);
            FMitabDin->mitab_c_set_points(member, part++, static_cast<int>(x.size()), x.data(), y.data());
        }
        if (!member) continue;
        if (kind == TABFC_Region) FMitabDin->mitab_c_set_collection_region(FLastFeature, member);
        if (kind == TABFC_Polyline) FMitabDin->mitab_c_set_collection_polyline(FLastFeature, member);
        if (kind == TABFC_MultiPoint) FMitabDin->mitab_c_set_collection_multipoint(FLastFeature, member);
        RaizeError("WriteGeometry");
    }
}

void TcsMapinfoTable::WriteActiveFeature() {
    if (!FLastFeature) return;
    if (FMitabDin->mitab_c_write_feature(FMiTabHandler, FLastFeature)) ++FWriteCount;
    RaizeError("WriteActiveFeature");
}

void TcsMapinfoTable::DestroyActiveFeature() {
    for (mitab_feature f : FLastFeatureCollection) FMitabDin->mitab_c_destroy_feature(f);
    FLastFeatureCollection.clear();
    if (FLastFeature) FMitabDin->mitab_c_destroy_feature(std::exchange(FLastFeature, nullptr));
}

void TcsMapinfoTable::CloseTable() {
    DestroyActiveFeature();
    if (!FMiTabHandler) return;
    FMitabDin->mitab_c_close(std::exchange(FMiTabHandler, nullptr));
    RaizeError("CloseTable");
}

}  // namespace tmi
