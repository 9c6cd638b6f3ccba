// The spatial value: a collection of simple objects, each an ordered list of numbered
// coordinates with a bounding box. Readers fill it ring by ring and decide inner and outer
// rings here; the table writers read it back.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "csInfoCore.h"
#include "csPool.h"

namespace tmi {

enum TcsGeometryType : uint8_t { gtUnknown, gtNone, gtPoint, gtMultiPoint, gtLine, gtPolyLine, gtPoligon, gtCollection };

// The box of a ring or a feature. Reset puts fixed sentinels of plus and minus 10,000,000,
// not infinities: a coordinate further out on the wrong side does not register.
class TcsGeometryBounds : public TcsInfoLowData {
    TCS_PERSISTENT(TcsGeometryBounds)
public:
    explicit TcsGeometryBounds(TcsComponent* aOwner = nullptr) : TcsInfoLowData(aOwner) { Reset(); }

    void Reset();
    // True when XMax <= XMin or YMax <= YMin: a single point has an empty box.
    [[nodiscard]] bool IsEmpty() const noexcept { return FXMax <= FXMin || FYMax <= FYMin; }
    // Widens with strict tests; true when it widened.
    bool ProcessCoord(double aX, double aY);
    void MergeBound(const TcsGeometryBounds& aBounds);
    // Called on the outer box with the inner one. The upper Y limit is not compared: which
    // rings count as holes depends on it, so it stays.
    [[nodiscard]] bool BoundsInBounds(const TcsGeometryBounds& aInner) const noexcept;
    // Compares Y with XMax, as it always has; it stays so.
    [[nodiscard]] bool CoordInBounds(double aX, double aY) const noexcept;
    void GetCenterCoord(double& aX, double& aY) const noexcept;
    // "XMin, XMax, YMin, YMax".
    [[nodiscard]] std::string GetBoundsString() const;
    void Inflate(double aDelta) noexcept;
    void Assign(const TcsPersistent& aSource) override;

    [[nodiscard]] double XMax() const noexcept { return FXMax; }
    [[nodiscard]] double YMax() const noexcept { return FYMax; }
    [[nodiscard]] double XMin() const noexcept { return FXMin; }
    [[nodiscard]] double YMin() const noexcept { return FYMin; }
    void SetXMax(double v) noexcept { FXMax = v; }
    void SetYMax(double v) noexcept { FYMax = v; }
    void SetXMin(double v) noexcept { FXMin = v; }
    void SetYMin(double v) noexcept { FYMin = v; }
    [[nodiscard]] bool Changed() const noexcept { return FChanged; }

private:
    double FXMax = 0, FYMax = 0, FXMin = 0, FYMin = 0;
    bool FChanged = false;
};

// Coordinates come from a pool of their own: a feature of thousands of points costs no
// heap call per point.
class TcsGeometryCoord : public TcsInfoLowData {
    TCS_PERSISTENT(TcsGeometryCoord)
    TCS_POOLED(TcsGeometryCoord)
public:
    explicit TcsGeometryCoord(TcsComponent* aOwner = nullptr) : TcsInfoLowData(aOwner) {}
    double X = 0;
    double Y = 0;
    double Z = 0;
    std::string Num;
    bool IsEndPoint = false;
};

class TcsGeometryCoords : public TcsInfoListLowData {
public:
    explicit TcsGeometryCoords(TcsInfo* aParentInfo = nullptr) : TcsInfoListLowData(aParentInfo) {}
    [[nodiscard]] std::string ClassName() const override { return "TcsGeometryCoords"; }

    [[nodiscard]] TcsGeometryCoord* Items(int aIndex) const { return static_cast<TcsGeometryCoord*>(Get(aIndex)); }
    [[nodiscard]] TcsGeometryCoord& operator[](int aIndex) const { return *static_cast<TcsGeometryCoord*>(fItems[static_cast<size_t>(aIndex)].get()); }
    TcsGeometryCoord* AddCoord(std::string_view aNum, double aX, double aY);
    TcsGeometryCoord* AddCoord(std::string_view aNum, double aX, double aY, double aZ);
    // One coordinate per element of aX, numbered empty; the last one added is the result.
    TcsGeometryCoord* AddCoord(const std::vector<double>& aX, const std::vector<double>& aY, const std::vector<double>& aZ);
    void FillCoordArray(std::vector<double>& aX, std::vector<double>& aY) const;
    // True when at least one coordinate widened aBounds.
    bool GetBounds(TcsGeometryBounds& aBounds) const;
    // Appends copies of X, Y and Num; Z is dropped. The published-property copy of the base
    // stays reachable for any other source.
    using TcsInfoListLowData::Assign;
    void Assign(const TcsGeometryCoords& aCoords);
    void SwapCoords();
    [[nodiscard]] TcsInfoClass ItemClass(TcsXmlNode) const override { return InfoClassOf<TcsGeometryCoord>(); }

    [[nodiscard]] TcsGeometryBounds* ParentBounds() const noexcept { return fParentBounds; }
    void SetParentBounds(TcsGeometryBounds* aBounds) noexcept { fParentBounds = aBounds; }

private:
    TcsGeometryBounds* fParentBounds = nullptr;
};

// An empty holder of a style; callers derive their style classes from it.
class TcsGeometryStyle : public TcsInfo {
    TCS_PERSISTENT(TcsGeometryStyle)
public:
    using TcsInfo::TcsInfo;
};

using TcsCoordProcedure = std::function<void(double& aX, double& aY)>;

class TcsCustomGeometry : public TcsInfoLowData {
    TCS_PERSISTENT(TcsCustomGeometry)
public:
    explicit TcsCustomGeometry(TcsComponent* aOwner = nullptr);
    ~TcsCustomGeometry() override;

    [[nodiscard]] TcsGeometryCoords& Coords() const noexcept { return *FCoords; }
    [[nodiscard]] TcsGeometryCoords* CoordsObject() const noexcept { return FCoords.get(); }
    [[nodiscard]] TcsGeometryBounds& Bounds() const noexcept { return *FBounds; }
    [[nodiscard]] TcsGeometryBounds* BoundsObject() const noexcept { return FBounds.get(); }
    [[nodiscard]] TcsGeometryStyle* Style() const noexcept { return FStyle.get(); }
    [[nodiscard]] bool IsInterior() const noexcept { return FIsInterior; }
    void SetIsInterior(bool aValue) noexcept { FIsInterior = aValue; }
    [[nodiscard]] std::string WKT() const { return GetWKT(false); }

    virtual void UpdateBounds();
    [[nodiscard]] virtual bool IsClearCoord() const;
    virtual void Clear();
    // Empty for a simple object.
    [[nodiscard]] virtual std::string GetWKT(bool aRevert) const;
    [[nodiscard]] virtual std::string GetWKTName() const;
    [[nodiscard]] virtual std::string GetGMLCoords() const;
    [[nodiscard]] virtual std::string GetWKTCoords(bool aRevert) const;
    [[nodiscard]] virtual TcsGeometryType GetGeometryType() const;
    [[nodiscard]] virtual TcsGeometryType CalcGeometryType() const;
    // Frees any present style and creates one of the class.
    virtual void SetStyleClass(std::function<std::unique_ptr<TcsGeometryStyle>(TcsComponent*)> aStyleClass);
    virtual void SwapCoords();
    virtual void Recalc(const TcsCoordProcedure& aProcedure);

    // Rebuilds the box from the coordinates.
    void InternalUpdateBounds();
    void SetGeometryType(TcsGeometryType aGType);
    void SetGeometryTypeValue(TcsGeometryType aGType) { SetGeometryType(aGType); }
    // Called on the candidate hole with the presumed outer ring.
    [[nodiscard]] bool GetIsInteriorOf(const TcsCustomGeometry& aGeometry) const;
    void Assign(const TcsPersistent& aSource) override;

protected:
    std::unique_ptr<TcsGeometryCoords> FCoords;
    bool FIsInterior = false;
    TcsGeometryType FInternalType = gtUnknown;
    bool FSetInternalType = false;
    std::unique_ptr<TcsGeometryBounds> FBounds;
    std::unique_ptr<TcsGeometryStyle> FStyle;
};

// The even-odd test of a point against a ring closed by its own repeated last vertex,
// carried in extended precision.
bool PointInRing(const TcsGeometryCoords& aRing, double aX, double aY);

class TcsGometryObjectCollection : public TcsInfoList {
public:
    explicit TcsGometryObjectCollection(TcsInfo* aParentInfo = nullptr) : TcsInfoList(aParentInfo) {}
    [[nodiscard]] std::string ClassName() const override { return "TcsGometryObjectCollection"; }
    [[nodiscard]] TcsCustomGeometry* Items(int aIndex) const { return static_cast<TcsCustomGeometry*>(Get(aIndex)); }
    [[nodiscard]] TcsInfoClass ItemClass(TcsXmlNode aXmlNode) const override;
};

class TcsGeometry : public TcsCustomGeometry {
    TCS_PERSISTENT(TcsGeometry)
public:
    explicit TcsGeometry(TcsComponent* aOwner = nullptr);
    ~TcsGeometry() override;

    [[nodiscard]] TcsGometryObjectCollection& Collection() const noexcept { return *FCollection; }
    [[nodiscard]] TcsGometryObjectCollection* CollectionObject() const noexcept { return FCollection.get(); }
    [[nodiscard]] int Count() const noexcept { return FCollection->Count(); }
    [[nodiscard]] TcsCustomGeometry* Items(int aIndex) const { return FCollection->Items(aIndex); }
    [[nodiscard]] TcsCustomGeometry* ActiveGeometry() const noexcept { return FActiveGeometry; }

    // A new simple object, which becomes the active one.
    TcsCustomGeometry* AddGeometryObject();
    TcsCustomGeometry* AddGeometryObject(TcsInfoClass aObjectClass);
    // Copies of the other's objects behind these.
    void AppendGeometry(const TcsGeometry& aGeometry);
    void RecalcGeometryType();
    // Each ring adds its own positive area: holes are added, not subtracted.
    [[nodiscard]] double GetArea() const;
    [[nodiscard]] double GetPointCount() const;
    [[nodiscard]] bool GetIsMultiPoligon() const;
    // Every coordinate strictly inside all four limits; true with no objects.
    [[nodiscard]] bool GeometryInBounds(const TcsGeometryBounds& aBounds) const;
    void SetWKT(const std::string& aWKT, bool aProcessWKT = false);
    // The geometry as WKB (two dimensions), kept as given: a reader that has the coordinates in
    // hand passes them on without writing and parsing their text. GetWKT reads it when there is
    // no WKT.
    void SetWKB(std::string aWKB) { FInternalWKB = std::move(aWKB); }
    [[nodiscard]] const std::string& WKB() const noexcept { return FInternalWKB; }
    [[nodiscard]] std::string GetGeoJSON() const;

    void UpdateBounds() override;
    [[nodiscard]] bool IsClearCoord() const override;
    void Clear() override;
    [[nodiscard]] std::string GetWKT(bool aRevert) const override;
    [[nodiscard]] std::string GetGMLCoords() const override;
    [[nodiscard]] TcsGeometryType GetGeometryType() const override;
    [[nodiscard]] TcsGeometryType CalcGeometryType() const override;
    void SwapCoords() override;
    void Recalc(const TcsCoordProcedure& aProcedure) override;
    void Assign(const TcsPersistent& aSource) override;

    std::string CoordSystemString;
    std::string CoordSystemID;
    [[nodiscard]] TcsPersistent* CoordSystem() const noexcept { return FCoordSystem; }
    void SetCoordSystem(TcsPersistent* aCoordSystem) noexcept { FCoordSystem = aCoordSystem; }

private:
    [[nodiscard]] std::string MultiForm(bool aRevert) const;

    std::unique_ptr<TcsGometryObjectCollection> FCollection;
    TcsCustomGeometry* FActiveGeometry = nullptr;
    TcsPersistent* FCoordSystem = nullptr;  // not owned
    std::string FInternalWKT;
    std::string FInternalWKB;
};

// The decision every spatial reader repeats: a ring is compared only with the last ring
// that was not interior. Call after adding each ring (its box updated).
class TcsRingClassifier {
public:
    void Add(TcsCustomGeometry& aRing);

private:
    TcsCustomGeometry* fOuter = nullptr;
};

}  // namespace tmi
