// TAB tables written directly, without a host: MITAB's C interface (datasets, fields,
// features of parts) carried over GDAL's OGR C API and its "MapInfo File" driver, which is
// bound at run time by library name. TcsMapinfoTable is one open table on top of it.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "csDLLHeader.h"
#include "csGeometryCore.h"
#include "csInfoCore.h"
#include "csVariant.h"

namespace tmi {

// The library a table binds unless told otherwise, and the header's own default for an
// empty name.
inline constexpr const char* kMitabLibrary = "libgdal.so.32";
inline constexpr const char* kMitabDefaultLibrary = "libgdal.so";
// A module-wide override of the library name; empty: none.
std::string& MitabLibraryOverride();

// MITAB's numbering of field and feature types.
enum : int { TABFT_Char = 1, TABFT_Integer = 2, TABFT_SmallInt = 3, TABFT_Decimal = 4, TABFT_Float = 5, TABFT_Date = 6 };
enum : int {
    TABFC_NoGeom = 0,
    TABFC_Point = 1,
    TABFC_Polyline = 5,
    TABFC_Region = 7,
    TABFC_MultiPoint = 10,
    TABFC_Collection = 11,
};

struct TcsMitabDataset;
struct TcsMitabFeature;
using mitab_handle = TcsMitabDataset*;
using mitab_feature = TcsMitabFeature*;

class TcsMitabDynHeader : public TcsDLLHeader {
public:
    explicit TcsMitabDynHeader(const std::string& aLibraryName = {});
    ~TcsMitabDynHeader() override;

    // Functions the library lacked, counted when it was loaded.
    int32_t MITAB_LoadErr = 0;

    // The operations, as MITAB names them. Each clears the last error first; a failure sets
    // it and answers null, 0 or -1.
    std::string mitab_c_getlibversion();
    int mitab_c_getlasterrorno();
    std::string mitab_c_getlasterrormsg();
    // aType "tab" or "mif"; bounds in the table's units, ignored when empty.
    mitab_handle mitab_c_create(const std::string& aFileName, const std::string& aType, const std::string& aCoordSys,
                                double aNorth, double aSouth, double aEast, double aWest);
    // The index of the new field, or -1.
    int mitab_c_add_field(mitab_handle aDataset, const std::string& aName, int aType, int aWidth, int aPrecision,
                          bool aIndexed, bool aUnique);
    mitab_feature mitab_c_create_feature(mitab_handle aDataset, int aFeatureType);
    void mitab_c_set_field(mitab_feature aFeature, int aIndex, const std::string& aValue);
    // One part of the feature: a ring of a region, a line of a polyline, the points of a point
    // or a multipoint. A part beyond the last is appended.
    void mitab_c_set_points(mitab_feature aFeature, int aPart, int aCount, const double* aX, const double* aY);
    // The parts of a feature of that kind become the collection's; answers the parts taken.
    int mitab_c_set_collection_region(mitab_feature aCollection, mitab_feature aRegion);
    int mitab_c_set_collection_polyline(mitab_feature aCollection, mitab_feature aPolyline);
    int mitab_c_set_collection_multipoint(mitab_feature aCollection, mitab_feature aMultiPoint);
    // 1 when written.
    int mitab_c_write_feature(mitab_handle aDataset, mitab_feature aFeature);
    void mitab_c_destroy_feature(mitab_feature aFeature);
    void mitab_c_close(mitab_handle aDataset);
    // Quick spatial indexing (no optimisation of the index), which the table is created with.
    int mitab_c_set_quick_spatial_index_mode(mitab_handle aDataset);
    int mitab_c_get_feature_count(mitab_handle aDataset);

    struct Api;  // the OGR functions bound

protected:
    void BindFunctions() override;

private:
    bool Ready(const char* aOperation);
    void Fail(int aCode, const std::string& aText);
    void ResetError();
    void TakeLibraryError();

    std::unique_ptr<Api> fApi;
    int fErrorNo = 0;
    std::string fErrorMsg;
};

class TcsMapinfoTable;
// The table and the text of the error.
using TcsMapinfoTableError = std::function<void(TcsMapinfoTable&, const std::string&)>;

class TcsMapinfoTable : public TcsInfo {
    TCS_PERSISTENT(TcsMapinfoTable)
public:
    explicit TcsMapinfoTable(TcsComponent* aOwner = nullptr);
    ~TcsMapinfoTable() override;

    // Opens the dataset (aType "tab") with the file name, clause and bounds; quick spatial
    // index mode on.
    void CreateTable(const std::string& aType);
    void AddField(const std::string& aName, int aType, bool aIndexed, bool aUnique, int aDecimals, int aWidth);
    // The feature becomes the active one.
    void CreateFeature(int aKind);
    void SetFieldValue(const std::string& aValue, const std::string& aName);
    void SetFieldDateTimeValue(TDateTime aValue, const std::string& aName);
    void SetPoints(int aPart, const std::vector<double>& aX, const std::vector<double>& aY);
    // The points of the active feature; a collection gets one feature per kind, joined in.
    void WriteGeometry(const TcsGeometry& aGeometry);
    void WriteActiveFeature();
    void DestroyActiveFeature();
    void CloseTable();
    // The library's last error, if any: named after the operation, traced, and handed to
    // FOnError when set.
    void RaizeError(const std::string& aWhere);

    // MITAB's feature type for a geometry type.
    static int FeatureTypeOf(TcsGeometryType aType);

    std::string FFileName;
    std::string FCoordSysString;
    TcsGeometryBounds& Bounds() { return *FBounds; }
    int32_t FWriteCount = 0;
    std::string FTagName;
    TcsMapinfoTableError FOnError;
    TcsMitabDynHeader& MitabDin() { return *FMitabDin; }
    // What RaizeError traced, in order.
    [[nodiscard]] const std::vector<std::string>& TraceLines() const noexcept { return fTrace; }
    [[nodiscard]] mitab_feature ActiveFeature() const noexcept { return FLastFeature; }
    [[nodiscard]] bool IsOpen() const noexcept { return FMiTabHandler != nullptr; }

private:
    int FieldIndex(const std::string& aName) const;

    mitab_handle FMiTabHandler = nullptr;
    mitab_feature FLastFeature = nullptr;
    std::vector<mitab_feature> FLastFeatureCollection;
    std::map<std::string, int> FFieldIndex;
    std::map<int, std::string> FFieldIntIndex;
    std::unique_ptr<TcsGeometryBounds> FBounds;
    std::unique_ptr<TcsMitabDynHeader> FMitabDin;
    std::vector<std::string> fTrace;
};

}  // namespace tmi
