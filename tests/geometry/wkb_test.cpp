// Objects as WKB: the binary form of a read object says what its WKT says, and the reader of
// WKB takes any bytes without harm.
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "csGeometryCore.h"
#include "csSpatialRings.h"
#include "csWKB.h"

using namespace tmi;

namespace {

TGrContRef Ring(std::initializer_list<std::pair<double, double>> aPoints, bool aInternal = false) {
    auto ring = std::make_shared<TGrCont>();
    for (const auto& [x, y] : aPoints) ring->AddPoint(x, y);
    ring->IsInternal = aInternal;
    return ring;
}

}  // namespace

TEST(ObjectWKB, SaysWhatTheWKTSays) {
    // Two outer rings, the first with a hole inside it and the second open (closed on the way);
    // a hole that lies in the first ring though it follows the second; a ring of two points,
    // left out; coordinates with long fractions and negative.
    TGrParcel parcel;
    parcel.Add(Ring({{0, 0}, {10, 0}, {10, 10}, {0, 10}, {0, 0}}));
    parcel.Add(Ring({{2, 2}, {4, 2}, {4, 4}, {2, 2}}, true));
    parcel.Add(Ring({{20.125, -3.3333333333333335}, {30, -3}, {30, 7.1e-7}}));
    parcel.Add(Ring({{6, 6}, {8, 6}, {8, 8}, {6, 6}}, true));
    parcel.Add(Ring({{50, 50}, {51, 51}}));
    const std::string wkt = GrParcelWKT(parcel);
    ASSERT_EQ(wkt,
              "MULTIPOLYGON (((0 0, 10 0, 10 10, 0 10, 0 0), (2 2, 4 2, 4 4, 2 2), (6 6, 8 6, 8 8, 6 6)), "
              "((20.125 -3.3333333333333335, 30 -3, 30 7.1e-07, 20.125 -3.3333333333333335)))");
    const std::string wkb = GrParcelWKB(parcel);
    EXPECT_EQ(WKBToWKT(wkb), wkt);
    // Little-endian multipolygon of two polygons, sized exactly.
    EXPECT_EQ(wkb.substr(0, 9), std::string("\x01\x06\x00\x00\x00\x02\x00\x00\x00", 9));
    EXPECT_EQ(wkb.size(), 9 + (9 + 4 + 5 * 16 + 4 + 4 * 16 + 4 + 4 * 16) + (9 + 4 + 4 * 16));

    TGrParcel nothing;
    nothing.Add(Ring({{1, 1}, {2, 2}}));
    EXPECT_EQ(GrParcelWKB(nothing), "");

    // The geometry keeps the WKB and answers its WKT from it; WKT given to it comes first.
    TcsGeometry g;
    g.SetWKB(wkb);
    EXPECT_EQ(g.GetWKT(false), wkt);
    TcsGeometry copy;
    copy.Assign(g);
    EXPECT_EQ(copy.WKB(), wkb);
    g.SetWKT("POINT (1 2)");
    EXPECT_EQ(g.GetWKT(false), "POINT (1 2)");
    g.Clear();
    EXPECT_EQ(g.WKB(), "");
}

TEST(ObjectWKB, ReadsEveryKindInEitherByteOrder) {
    auto le32 = [](uint32_t v) { return std::string(reinterpret_cast<const char*>(&v), 4); };
    auto le64 = [](double d) { return std::string(reinterpret_cast<const char*>(&d), 8); };
    auto be = [](std::string s) { return std::string(s.rbegin(), s.rend()); };
    const std::string point = "\x01" + le32(1) + le64(1.5) + le64(-2);
    EXPECT_EQ(WKBToWKT(point), "POINT (1.5 -2)");
    EXPECT_EQ(WKBToWKT(std::string("\x00", 1) + be(le32(1)) + be(le64(1.5)) + be(le64(-2))), "POINT (1.5 -2)");
    const std::string line = "\x01" + le32(2) + le32(2) + le64(0) + le64(0) + le64(1) + le64(1);
    EXPECT_EQ(WKBToWKT(line), "LINESTRING (0 0, 1 1)");
    EXPECT_EQ(WKBToWKT("\x01" + le32(4) + le32(2) + point + point), "MULTIPOINT ((1.5 -2), (1.5 -2))");
    EXPECT_EQ(WKBToWKT("\x01" + le32(5) + le32(1) + line), "MULTILINESTRING ((0 0, 1 1))");
    EXPECT_EQ(WKBToWKT("\x01" + le32(7) + le32(2) + point + line), "GEOMETRYCOLLECTION (POINT (1.5 -2), LINESTRING (0 0, 1 1))");
    EXPECT_EQ(WKBToWKT("\x01" + le32(6) + le32(0)), "MULTIPOLYGON EMPTY");
    // Three dimensions, unknown kinds, trailing bytes, a bad byte order: nothing.
    EXPECT_EQ(WKBToWKT("\x01" + le32(1001) + le64(1) + le64(2) + le64(3)), "");
    EXPECT_EQ(WKBToWKT("\x01" + le32(8)), "");
    EXPECT_EQ(WKBToWKT(point + "x"), "");
    EXPECT_EQ(WKBToWKT("\x02" + point.substr(1)), "");
}

TEST(ObjectWKB, CutOrScrambledBytesAreRefusedWithoutHarm) {
    TGrParcel parcel;
    parcel.Add(Ring({{0, 0}, {10, 0}, {10, 10}, {0, 0}}));
    parcel.Add(Ring({{1, 1}, {2, 1}, {2, 2}, {1, 1}}, true));
    const std::string wkb = GrParcelWKB(parcel);
    for (size_t n = 0; n < wkb.size(); ++n) EXPECT_EQ(WKBToWKT(wkb.substr(0, n)), "") << n;
    // Counts that claim more than the bytes hold, nesting far too deep, random bytes.
    std::string huge = wkb;
    huge[5] = '\xFF';
    huge[6] = '\xFF';
    huge[7] = '\xFF';
    EXPECT_EQ(WKBToWKT(huge), "");
    std::string deep;
    for (int i = 0; i < 100000; ++i) deep += std::string("\x01\x07\x00\x00\x00\x01\x00\x00\x00", 9);
    EXPECT_EQ(WKBToWKT(deep), "");
    std::mt19937 random(5);
    for (int i = 0; i < 20000; ++i) {
        std::string bytes = wkb;
        for (int k = 0; k < 3; ++k) bytes[random() % bytes.size()] = static_cast<char>(random());
        (void)WKBToWKT(bytes);
    }
}
