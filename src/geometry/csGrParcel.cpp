#include "csGrParcel.h"

#include <cmath>

namespace tmi {

void TGrCont::GetRect(double& aLeft, double& aBottom, double& aRight, double& aTop) const noexcept {
    aLeft = aBottom = 20000000.0;
    aRight = aTop = -20000000.0;
    for (const TGrPoint& p : fPoints) {
        if (p.x < aLeft) aLeft = p.x;
        if (p.y < aBottom) aBottom = p.y;
        if (p.x > aRight) aRight = p.x;
        if (p.y > aTop) aTop = p.y;
    }
}

void TGrParcel::GetRect(double& aLeft, double& aBottom, double& aRight, double& aTop) const noexcept {
    aLeft = aBottom = 20000000.0;
    aRight = aTop = -20000000.0;
    for (const TGrContRef& c : fContours) {
        for (int i = 0; i < c->Count(); ++i) {
            const TGrPoint& p = (*c)[i];
            if (p.x < aLeft) aLeft = p.x;
            if (p.y < aBottom) aBottom = p.y;
            if (p.x > aRight) aRight = p.x;
            if (p.y > aTop) aTop = p.y;
        }
    }
}

double TPointRad::GetRadius(double aX, double aY) const noexcept {
    for (const TGrPoint& p : fPoints)
        if (p.x == aX && p.y == aY) return p.radius;
    return 0;
}

bool PointInContour(const TGrCont& aRing, double aX, double aY) {
    const int n = aRing.Count();
    if (n < 2) return false;
    bool inside = false;
    for (int i = 0; i + 1 < n; ++i) {
        const TGrPoint& a = aRing[i];
        const TGrPoint& b = aRing[i + 1];
        if ((a.y < aY && b.y >= aY) || (a.y >= aY && b.y < aY)) {
            if (aX - a.x < (aY - a.y) * (b.x - a.x) / (b.y - a.y)) inside = !inside;
        }
    }
    return inside;
}

bool ContourInContour(const TGrCont& aOuter, const TGrCont& aInner) {
    for (int i = 0; i < aInner.Count(); ++i)
        if (!PointInContour(aOuter, aInner[i].x, aInner[i].y)) return false;
    return true;
}

bool SameContour(const TGrCont& a, const TGrCont& b) {
    if (a.Count() != b.Count()) return false;
    for (int i = 0; i < a.Count(); ++i)
        if (a[i].x != b[i].x || a[i].y != b[i].y) return false;
    return true;
}

double ContourArea(const TGrCont& aRing) {
    if (aRing.Count() < 2) return 0;
    double sum = 0;
    for (int i = 0; i + 1 < aRing.Count(); ++i) sum += (aRing[i + 1].x - aRing[i].x) * (aRing[i + 1].y + aRing[i].y) / 2;
    return std::fabs(sum);
}

}  // namespace tmi
