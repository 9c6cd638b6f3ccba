// Building geometry: a 10,000-point building, a 100,000-point ring and a 1,000-ring
// composite, each built, typed and bounded; medians of several runs, and the ratio to a
// reference run in the same process that only stores the same points in a plain vector.
#include <algorithm>
#include <cmath>
#include <chrono>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "csGeometryCore.h"

using namespace tmi;

namespace {

double MedianMs(int aRuns, const std::function<void()>& aWork) {
    std::vector<double> times;
    for (int i = 0; i < aRuns; ++i) {
        const auto t0 = std::chrono::steady_clock::now();
        aWork();
        times.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count());
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

// A closed ring of n points on a circle.
void Ring(int n, double cx, double cy, double r, const std::function<void(const std::string&, double, double)>& add) {
    for (int i = 0; i < n; ++i) {
        const double a = 2 * 3.141592653589793 * i / (n - 1);
        add(std::to_string(i + 1), i == n - 1 ? cx + r : cx + r * std::cos(a), i == n - 1 ? cy : cy + r * std::sin(a));
    }
}

double BuildRing(int n) {
    return MedianMs(7, [n] {
        TcsGeometry g;
        TcsCustomGeometry* ring = g.AddGeometryObject();
        ring->Coords().SetCapacity(static_cast<size_t>(n));
        Ring(n, 500000, 2000000, 300, [&](const std::string& num, double x, double y) { ring->Coords().AddCoord(num, x, y); });
        ring->InternalUpdateBounds();
        ring->SetGeometryType(ring->CalcGeometryType());
        g.UpdateBounds();
        g.SetGeometryType(g.CalcGeometryType());
        if (g.GetGeometryType() != gtPoligon) std::abort();
    });
}

double ReferenceRing(int n) {
    return MedianMs(7, [n] {
        std::vector<std::pair<std::string, std::pair<double, double>>> points;
        points.reserve(static_cast<size_t>(n));
        double minX = 1e300, maxX = -1e300;
        Ring(n, 500000, 2000000, 300, [&](const std::string& num, double x, double y) {
            points.emplace_back(num, std::make_pair(x, y));
            minX = std::min(minX, x);
            maxX = std::max(maxX, x);
        });
        if (points.empty() || minX > maxX) std::abort();
    });
}

double BuildComposite(int rings, int points) {
    return MedianMs(5, [=] {
        TcsGeometry g;
        TcsRingClassifier classifier;
        for (int k = 0; k < rings; ++k) {
            TcsCustomGeometry* ring = g.AddGeometryObject();
            // Every tenth ring is a hole of the ring before it.
            const bool hole = k % 10 == 1;
            const double cx = 1000.0 * (hole ? k - 1 : k), r = hole ? 100 : 300;
            Ring(points, cx, 0, r, [&](const std::string& num, double x, double y) { ring->Coords().AddCoord(num, x, y); });
            ring->InternalUpdateBounds();
            classifier.Add(*ring);
        }
        g.UpdateBounds();
        g.RecalcGeometryType();
        if (g.GetGeometryType() != gtPoligon) std::abort();
    });
}

double ReferenceComposite(int rings, int points) {
    return MedianMs(5, [=] {
        std::vector<std::vector<std::pair<double, double>>> all;
        for (int k = 0; k < rings; ++k) {
            all.emplace_back();
            Ring(points, 1000.0 * k, 0, 300, [&](const std::string&, double x, double y) { all.back().emplace_back(x, y); });
        }
        if (all.size() != static_cast<size_t>(rings)) std::abort();
    });
}

}  // namespace

int main() {
    const double building = BuildRing(10000), buildingRef = ReferenceRing(10000);
    std::printf("building_10k_points: %.3f ms (%.1f us per 1000 points), reference %.3f ms, ratio %.2f\n", building,
                building / 10.0 * 1000.0, buildingRef, building / buildingRef);
    const double ring = BuildRing(100000), ringRef = ReferenceRing(100000);
    std::printf("ring_100k_points: %.3f ms (%.1f us per 1000 points), reference %.3f ms, ratio %.2f\n", ring,
                ring / 100.0 * 1000.0, ringRef, ring / ringRef);
    const double composite = BuildComposite(1000, 100), compositeRef = ReferenceComposite(1000, 100);
    std::printf("composite_1000_rings_x_100_points: %.3f ms, reference %.3f ms, ratio %.2f\n", composite, compositeRef,
                composite / compositeRef);
    std::printf("ms_per_1000_points=%.4f\n", ring / 100.0);
    return 0;
}
