// Coordinate systems in the three spellings the system speaks: the MapInfo CoordSys clause,
// a well-known text and a Proj4 string. The clause is the master: setting it parses it into
// typed parameters; the other two are generated from the parameters when not stored.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "csCommon.h"
#include "csGeometryCore.h"
#include "csInfoCore.h"

namespace tmi {

enum TcsCoordSystemType : uint8_t { cstHorizantal, cstLongLat, cstNormalMercator, cstTransverseMercator, cstPolarStereo };
enum TcsCoordSystemDatum : uint8_t { csdNone, csdCustom, csdPulkovo1942, csdWGS84 };
enum TcsCoordSystemMetric : uint8_t { cmLongLat, cmFt, cmYard, cmMile, cmMillimeter, cmCentimeter, cmMeter, cmKilometer };

// One ellipsoid of a custom datum, by its MapInfo number.
struct TcsCoordSysElipsoidParam {
    std::string Name;
    double MainDiametr = 0;  // semi-major axis, metres
    double Defence = 0;      // inverse flattening
    std::string projName;    // the Proj4 spelling
};

// The ellipsoid of that MapInfo number; nil for a number the table does not hold.
const TcsCoordSysElipsoidParam* CoordSysElipsoidParam(int aNumber);

// Text that should be a number and is not (the affine block of a clause).
class EConvertError : public Exception {
public:
    using Exception::Exception;
};

// A singular affine block.
class EcsCoordSystemError : public Exception {
public:
    using Exception::Exception;
};

// Parameters that are in force or not.
class TcsCoordSystemParams : public TcsInfoLowData {
    TCS_PERSISTENT(TcsCoordSystemParams)
public:
    using TcsInfoLowData::TcsInfoLowData;
    [[nodiscard]] bool Has() const noexcept { return FHas; }
    void SetHas(bool aValue) noexcept { FHas = aValue; }
    virtual void Clear() { FHas = false; }

protected:
    bool FHas = false;
};

class TcsCoordSystemMerkParams : public TcsCoordSystemParams {
    TCS_PERSISTENT(TcsCoordSystemMerkParams)
public:
    using TcsCoordSystemParams::TcsCoordSystemParams;
    void Clear() override;
    void Assign(const TcsPersistent& aSource) override;
    double Longitude = 0, Latitude = 0, FalseX = 0, FalseY = 0, Scale = 0;
};

// X' = A*X + B*Y + C, Y' = D*X + E*Y + F.
class TcsCoordSystemAffineCustomParams : public TcsCoordSystemParams {
    TCS_PERSISTENT(TcsCoordSystemAffineCustomParams)
public:
    using TcsCoordSystemParams::TcsCoordSystemParams;
    void Clear() override;
    void Assign(const TcsPersistent& aSource) override;
    // Applies the transform; false with no change when not in force.
    bool Apply(double& aX, double& aY) const;
    TcsCoordSystemMetric Metric = cmMeter;
    double A = 0, B = 0, C = 0, D = 0, E = 0, F = 0;
};

class TcsCoordSystemAffineParams : public TcsCoordSystemAffineCustomParams {
    TCS_PERSISTENT(TcsCoordSystemAffineParams)
public:
    using TcsCoordSystemAffineCustomParams::TcsCoordSystemAffineCustomParams;
    void Clear() override;
    void Assign(const TcsPersistent& aSource) override;
    // The inverse transform, made by CalcBackAffineParams.
    [[nodiscard]] TcsCoordSystemAffineCustomParams* BackParams() const noexcept { return FBackParams.get(); }
    // Raises EcsCoordSystemError for a matrix whose determinant is exactly zero.
    void CalcBackAffineParams();

private:
    std::unique_ptr<TcsCoordSystemAffineCustomParams> FBackParams = std::make_unique<TcsCoordSystemAffineCustomParams>(this);
};

// A datum given by its seven parameters against WGS 84, in MapInfo's reading.
class TcsCoordsysDatum : public TcsInfoLowData {
    TCS_PERSISTENT(TcsCoordsysDatum)
public:
    using TcsInfoLowData::TcsInfoLowData;
    void Assign(const TcsPersistent& aSource) override;
    double dX = 0, dY = 0, dZ = 0, EX = 0, EY = 0, EZ = 0, m = 0;
    double Longitude = 0;  // prime meridian
    uint8_t Elipsoid = 0;  // the MapInfo ellipsoid number
};

class TcsCoordSystem : public TcsInfoLowData {
    TCS_PERSISTENT(TcsCoordSystem)
public:
    explicit TcsCoordSystem(TcsComponent* aOwner = nullptr);

    [[nodiscard]] const std::string& ID() const noexcept { return FID; }
    void SetID(const std::string& aValue) { FID = aValue; }
    [[nodiscard]] const std::string& EPSGID() const noexcept { return FEPSGID; }
    void SetEPSGID(const std::string& aValue) { FEPSGID = aValue; }
    [[nodiscard]] const std::string& Mapinfo() const noexcept { return FMapinfo; }
    // Stores the clause and parses it.
    void SetMapinfo(const std::string& aValue);
    // The stored text, or the text generated from the parameters when none is stored.
    [[nodiscard]] std::string WKT() const;
    void SetWKT(const std::string& aValue) { FWKT = aValue; }
    [[nodiscard]] std::string Proj4() const;
    void SetProj4(const std::string& aValue) { FProj4 = aValue; }
    [[nodiscard]] const std::string& Caption() const noexcept { return FCaption; }
    void SetCaption(const std::string& aValue) { FCaption = aValue; }
    [[nodiscard]] TcsCoordSystemType CoordSystemType() const noexcept { return FCoordSystemType; }
    void SetCoordSystemType(TcsCoordSystemType aValue) noexcept { FCoordSystemType = aValue; }
    [[nodiscard]] TcsCoordSystemDatum Datum() const noexcept { return FDatum; }
    void SetDatum(TcsCoordSystemDatum aValue) noexcept { FDatum = aValue; }
    [[nodiscard]] TcsCoordsysDatum* CustomDatum() const noexcept { return FCustomDatum.get(); }
    [[nodiscard]] TcsCoordSystemMetric Metric() const noexcept { return FMetric; }
    void SetMetric(TcsCoordSystemMetric aValue) noexcept { FMetric = aValue; }
    [[nodiscard]] TcsGeometryBounds* Bounds() const noexcept { return FBounds.get(); }
    [[nodiscard]] TcsCoordSystemMerkParams* MerkParams() const noexcept { return FMerkParams.get(); }
    [[nodiscard]] TcsCoordSystemAffineParams* AffineParams() const noexcept { return FAffineParams.get(); }
    [[nodiscard]] bool IsValid() const noexcept { return FIsValid; }
    void SetIsValid(bool aValue) noexcept { FIsValid = aValue; }

    // The affine transform and its inverse; false with no change when there is no block.
    bool Affine(double& aX, double& aY) const;
    bool DeAffine(double& aX, double& aY) const;
    // Parses a clause (the text after "CoordSys Earth Projection ", or a whole header line).
    void FillMICoordSysParams(const std::string& aMapinfo);
    [[nodiscard]] std::string GenerateWKT() const;
    [[nodiscard]] std::string GenerateProj4() const;
    // The ellipsoid the parameters stand on.
    [[nodiscard]] TcsCoordSysElipsoidParam Elipsoid() const;
    // The shift part: seven numbers against WGS 84 (rotations with MapInfo's sign turned), or
    // empty for WGS 84 itself.
    [[nodiscard]] std::string ShiftText() const;

    void Assign(const TcsPersistent& aSource) override;
    // A text that is not stored (generated on demand) does not reach the file.
    [[nodiscard]] bool NotWriteProperty(std::string_view aPropertyName) const override;

private:
    std::string FID, FEPSGID, FMapinfo, FWKT, FProj4, FCaption;
    TcsCoordSystemType FCoordSystemType = cstHorizantal;
    TcsCoordSystemDatum FDatum = csdNone;
    TcsCoordSystemMetric FMetric = cmMeter;
    bool FIsValid = true;
    std::unique_ptr<TcsCoordsysDatum> FCustomDatum;
    std::unique_ptr<TcsGeometryBounds> FBounds;
    std::unique_ptr<TcsCoordSystemMerkParams> FMerkParams;
    std::unique_ptr<TcsCoordSystemAffineParams> FAffineParams;
};

class TcsCoordSystems : public TcsInfoList {
public:
    using TcsInfoList::TcsInfoList;
    [[nodiscard]] std::string ClassName() const override { return "TcsCoordSystems"; }
    [[nodiscard]] TcsCoordSystem* Items(int aIndex) const { return static_cast<TcsCoordSystem*>(TcsInfoList::Items(aIndex)); }
    [[nodiscard]] TcsInfoClass ItemClass(TcsXmlNode aXmlNode) const override;
    // Nil when absent; identifiers compare exactly.
    [[nodiscard]] TcsCoordSystem* GetItemByID(std::string_view aID) const;
};

class TcsCoordSystemCategory : public TcsInfoLowData {
    TCS_PERSISTENT(TcsCoordSystemCategory)
public:
    using TcsInfoLowData::TcsInfoLowData;
    [[nodiscard]] const std::string& Caption() const noexcept { return FCaption; }
    void SetCaption(const std::string& aValue) { FCaption = aValue; }
    [[nodiscard]] const std::string& BaseName() const noexcept { return FBaseName; }
    void SetBaseName(const std::string& aValue) { FBaseName = aValue; }
    // The identifiers of the category's systems, one a line when stored.
    std::vector<std::string> CoordSystemIDS;
    [[nodiscard]] std::string CoordSystemIDSText() const;
    void SetCoordSystemIDSText(const std::string& aText);

private:
    std::string FCaption, FBaseName;
};

class TcsCoordSystemCategories : public TcsInfoList {
public:
    using TcsInfoList::TcsInfoList;
    [[nodiscard]] std::string ClassName() const override { return "TcsCoordSystemCategories"; }
    [[nodiscard]] TcsCoordSystemCategory* Items(int aIndex) const {
        return static_cast<TcsCoordSystemCategory*>(TcsInfoList::Items(aIndex));
    }
    [[nodiscard]] TcsInfoClass ItemClass(TcsXmlNode aXmlNode) const override;
    // A new category whose caption and base name are aBaseName.
    TcsCoordSystemCategory* AddCategory(const std::string& aBaseName);
    [[nodiscard]] TcsCoordSystemCategory* GetCategoryByBaseName(std::string_view aBaseName) const;
};

class TcsCoordSystemManager : public TcsManager {
    TCS_PERSISTENT(TcsCoordSystemManager)
public:
    explicit TcsCoordSystemManager(TcsComponent* aOwner = nullptr, bool aInitDefault = false);

    [[nodiscard]] TcsCoordSystems* CoordSystems() const noexcept { return FCoordSystems.get(); }
    [[nodiscard]] TcsCoordSystemCategories* Categories() const noexcept { return FCategories.get(); }

    // The system of that ID, made when absent, entered in the category of that base name
    // (made with the base name as caption; an empty base name enters no category).
    TcsCoordSystem* AddCoordSystem(const std::string& aID, const std::string& aCategoryBaseName);
    // Always a new system, ID and caption aID, at the head of the category's list.
    TcsCoordSystem* AddCoordSystem(const std::string& aID, TcsCoordSystemCategory* aCategory);
    // By exact clause; a clause not known yet becomes a new system in "Автоматически".
    TcsCoordSystem* GetCoordSysByMapinfo(const std::string& aMapinfo);
    // By caption without regard to case; nil when absent.
    [[nodiscard]] TcsCoordSystem* GetCoordSysByName(std::string_view aCaption) const;
    // The plan scheme in metres and long/lat on Pulkovo 1942.
    void InitDefaultCoordsystems();
    void Clear();

private:
    std::unique_ptr<TcsCoordSystems> FCoordSystems = std::make_unique<TcsCoordSystems>();
    std::unique_ptr<TcsCoordSystemCategories> FCategories = std::make_unique<TcsCoordSystemCategories>();
};

}  // namespace tmi
