// The rings of one object as the extract readers collect them: TGrCont is one ring or line
// of points, TGrParcel the rings of one object (outer rings first), TPointRad the points
// that carry a radius, which tells a circle from a point.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace tmi {

struct TGrPoint {
    double x = 0;
    double y = 0;
    double radius = 0;
};

class TGrCont {
public:
    [[nodiscard]] int Count() const noexcept { return static_cast<int>(fPoints.size()); }
    void AddPoint(double aX, double aY) { fPoints.push_back(TGrPoint{aX, aY, 0}); }
    // nil outside 0..Count-1.
    [[nodiscard]] const TGrPoint* GetPoint(int aIndex) const noexcept {
        return aIndex >= 0 && aIndex < Count() ? &fPoints[static_cast<size_t>(aIndex)] : nullptr;
    }
    [[nodiscard]] const TGrPoint& operator[](int aIndex) const noexcept { return fPoints[static_cast<size_t>(aIndex)]; }
    // Starts from 20,000,000 for left and bottom and -20,000,000 for right and top: an empty
    // ring leaves left right of right.
    void GetRect(double& aLeft, double& aBottom, double& aRight, double& aTop) const noexcept;
    void Reserve(size_t aCount) { fPoints.reserve(aCount); }

    bool IsInternal = false;  // a hole of the ring whose id is extId
    bool IsDeleted = false;   // repeats another ring: never written
    int32_t id = 0;
    int32_t extId = -1;
    int32_t cont = 0;
    int32_t es = 0;
    int32_t reg = 0;

private:
    std::vector<TGrPoint> fPoints;
};

using TGrContRef = std::shared_ptr<TGrCont>;

class TGrParcel {
public:
    [[nodiscard]] int Count() const noexcept { return static_cast<int>(fContours.size()); }
    void Add(TGrContRef aCont) { fContours.push_back(std::move(aCont)); }
    // nil outside the range.
    [[nodiscard]] TGrCont* Contour(int aIndex) const noexcept {
        return aIndex >= 0 && aIndex < Count() ? fContours[static_cast<size_t>(aIndex)].get() : nullptr;
    }
    [[nodiscard]] const TGrContRef& ContourRef(int aIndex) const { return fContours.at(static_cast<size_t>(aIndex)); }
    void GetRect(double& aLeft, double& aBottom, double& aRight, double& aTop) const noexcept;

    std::string Type_;

private:
    std::vector<TGrContRef> fContours;
};

using TGrParcelRef = std::shared_ptr<TGrParcel>;

class TPointRad {
public:
    [[nodiscard]] int Count() const noexcept { return static_cast<int>(fPoints.size()); }
    void AddPoint(double aX, double aY, double aRadius) { fPoints.push_back(TGrPoint{aX, aY, aRadius}); }
    [[nodiscard]] const TGrPoint* GetPoint(int aIndex) const noexcept {
        return aIndex >= 0 && aIndex < Count() ? &fPoints[static_cast<size_t>(aIndex)] : nullptr;
    }
    // The radius of the first point with exactly this x and y; 0 when there is none.
    [[nodiscard]] double GetRadius(double aX, double aY) const noexcept;
    void Clear() { fPoints.clear(); }

private:
    std::vector<TGrPoint> fPoints;
};

// The even-odd test over the edges i..i+1; no closing edge is added.
bool PointInContour(const TGrCont& aRing, double aX, double aY);
// Every point of the inner ring inside the outer one; an empty inner ring is inside everything.
bool ContourInContour(const TGrCont& aOuter, const TGrCont& aInner);
// The same points in the same order from the same start.
bool SameContour(const TGrCont& a, const TGrCont& b);
// The unsigned area by the trapezoid sum; 0 under two points.
double ContourArea(const TGrCont& aRing);

}  // namespace tmi
