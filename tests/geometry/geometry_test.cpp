// The geometry model: ring typing, bounds and their kept quirks, holes, area, text forms.
#include <gtest/gtest.h>

#include "csGeometryCore.h"

using namespace tmi;

namespace {

// Adds a ring as a reader does: coordinates in file order, the box, the interior test.
TcsCustomGeometry* AddRing(TcsGeometry& g, TcsRingClassifier& rings, std::initializer_list<std::pair<double, double>> pts) {
    TcsCustomGeometry* ring = g.AddGeometryObject();
    int n = 0;
    for (const auto& p : pts) ring->Coords().AddCoord(std::to_string(++n), p.first, p.second);
    ring->InternalUpdateBounds();
    rings.Add(*ring);
    return ring;
}

const std::initializer_list<std::pair<double, double>> kSquare = {{0, 0}, {10, 0}, {10, 10}, {0, 10}, {0, 0}};
const std::initializer_list<std::pair<double, double>> kHole = {{2, 2}, {4, 2}, {4, 4}, {2, 4}, {2, 2}};

}  // namespace

TEST(GeometryTyping, RingsLinesAndPoints) {
    TcsGeometry g;
    TcsCustomGeometry* o = g.AddGeometryObject();
    EXPECT_EQ(o->GetGeometryType(), gtNone);
    o->Coords().AddCoord("1", 0, 0);
    EXPECT_EQ(o->GetGeometryType(), gtPoint);
    o->Coords().AddCoord("2", 1, 0);
    EXPECT_EQ(o->GetGeometryType(), gtPolyLine);
    o->Coords().AddCoord("3", 1, 1);
    EXPECT_EQ(o->GetGeometryType(), gtPolyLine);  // three points without repetition
    o->Coords().AddCoord("1", 0, 0);
    EXPECT_EQ(o->GetGeometryType(), gtPoligon);
    o->SetGeometryType(gtLine);  // only a set type gives gtLine
    EXPECT_EQ(o->GetGeometryType(), gtLine);
    EXPECT_EQ(o->GetWKTName(), "LINE");
}

TEST(GeometryTyping, CompositeTypes) {
    TcsGeometry g;
    EXPECT_EQ(g.GetGeometryType(), gtNone);
    g.AddGeometryObject()->Coords().AddCoord("", 1, 1);
    EXPECT_EQ(g.GetGeometryType(), gtPoint);
    g.AddGeometryObject()->Coords().AddCoord("", 2, 2);
    EXPECT_EQ(g.GetGeometryType(), gtMultiPoint);
    TcsCustomGeometry* line = g.AddGeometryObject();
    line->Coords().AddCoord("", 0, 0);
    line->Coords().AddCoord("", 3, 3);
    EXPECT_EQ(g.GetGeometryType(), gtCollection);
    g.SetGeometryType(gtPoint);  // stored, never read back
    EXPECT_EQ(g.GetGeometryType(), gtCollection);
    g.RecalcGeometryType();
    EXPECT_EQ(g.Items(2)->GetGeometryType(), gtPolyLine);
}

TEST(GeometryBounds, SentinelsAndKeptQuirks) {
    TcsGeometryBounds b;
    EXPECT_EQ(b.XMax(), -10000000.0);
    EXPECT_EQ(b.XMin(), 10000000.0);
    EXPECT_TRUE(b.IsEmpty());
    // A coordinate of 12,000,000 sets the maximum, but the minimum stays at its sentinel.
    b.ProcessCoord(12000000, 5);
    EXPECT_EQ(b.XMax(), 12000000.0);
    EXPECT_EQ(b.XMin(), 10000000.0);
    EXPECT_TRUE(b.IsEmpty());  // YMax == YMin

    TcsGeometryBounds outer, inner;
    outer.ProcessCoord(0, 0);
    outer.ProcessCoord(10, 10);
    inner.ProcessCoord(2, 2);
    inner.ProcessCoord(4, 50);
    // The upper Y limit is not compared by BoundsInBounds.
    EXPECT_TRUE(outer.BoundsInBounds(inner));
    inner.ProcessCoord(11, 3);
    EXPECT_FALSE(outer.BoundsInBounds(inner));
    // CoordInBounds compares Y with XMax.
    TcsGeometryBounds wide;
    wide.ProcessCoord(0, 0);
    wide.ProcessCoord(100, 10);
    EXPECT_TRUE(wide.CoordInBounds(50, 60));
    EXPECT_FALSE(wide.CoordInBounds(50, 101));
    double cx = 0, cy = 0;
    wide.GetCenterCoord(cx, cy);
    EXPECT_EQ(cx, 50);
    EXPECT_EQ(cy, 5);
    EXPECT_EQ(wide.GetBoundsString(), "0, 100, 0, 10");
    wide.Inflate(1.5);
    EXPECT_EQ(wide.GetBoundsString(), "-1.5, 101.5, -1.5, 11.5");
}

TEST(GeometryHoles, FoundOnlyAfterTheirOuterRing) {
    TcsGeometry g;
    TcsRingClassifier rings;
    TcsCustomGeometry* outer = AddRing(g, rings, kSquare);
    TcsCustomGeometry* hole = AddRing(g, rings, kHole);
    EXPECT_FALSE(outer->IsInterior());
    EXPECT_TRUE(hole->IsInterior());
    g.UpdateBounds();
    EXPECT_FALSE(g.GetIsMultiPoligon());

    // The hole before its outer ring: both are outer.
    TcsGeometry reversed;
    TcsRingClassifier rings2;
    AddRing(reversed, rings2, kHole);
    TcsCustomGeometry* big = AddRing(reversed, rings2, kSquare);
    EXPECT_FALSE(big->IsInterior());
    EXPECT_TRUE(reversed.GetIsMultiPoligon());

    // An open ring is a polyline and can be neither a hole nor hold one.
    TcsGeometry open;
    TcsRingClassifier rings3;
    AddRing(open, rings3, {{0, 0}, {10, 0}, {10, 10}, {0, 10}});
    EXPECT_FALSE(AddRing(open, rings3, kHole)->IsInterior());
}

TEST(GeometryHoles, BoxTestPassesAboveTheOuterButTheVertexTestRejects) {
    TcsGeometry g;
    TcsRingClassifier rings;
    AddRing(g, rings, kSquare);
    TcsCustomGeometry* above = AddRing(g, rings, {{2, 2}, {4, 2}, {4, 20}, {2, 20}, {2, 2}});
    EXPECT_TRUE(g.Items(0)->Bounds().BoundsInBounds(above->Bounds()));
    EXPECT_FALSE(above->IsInterior());
    // A ring through a vertex of the outer follows the crossing rule: here it is outside.
    TcsCustomGeometry* touching = AddRing(g, rings, {{0, 0}, {4, 2}, {4, 4}, {0, 0}});
    EXPECT_FALSE(touching->IsInterior());
}

TEST(GeometryHoles, PointInRingEvenOdd) {
    TcsGeometry g;
    TcsCustomGeometry* ring = g.AddGeometryObject();
    for (const auto& p : kSquare) ring->Coords().AddCoord("", p.first, p.second);
    EXPECT_TRUE(PointInRing(ring->Coords(), 5, 5));
    EXPECT_FALSE(PointInRing(ring->Coords(), 15, 5));
    EXPECT_FALSE(PointInRing(ring->Coords(), 5, -1));
    TcsGeometry single;
    TcsCustomGeometry* one = single.AddGeometryObject();
    one->Coords().AddCoord("", 0, 0);
    EXPECT_FALSE(PointInRing(one->Coords(), 0, 0));
}

TEST(GeometryArea, HolesAreAddedNotSubtracted) {
    TcsGeometry g;
    TcsRingClassifier rings;
    AddRing(g, rings, kSquare);
    AddRing(g, rings, kHole);
    EXPECT_DOUBLE_EQ(g.GetArea(), 104.0);
    EXPECT_EQ(g.GetPointCount(), 10.0);
    // An unclosed ring gets no closing edge.
    TcsGeometry open;
    TcsRingClassifier rings2;
    AddRing(open, rings2, {{1, 1}, {11, 1}, {11, 11}, {1, 11}});
    EXPECT_DOUBLE_EQ(open.GetArea(), 105.0);  // closed, it would be 100
}

TEST(GeometryText, WKTOfOneObjectAPolygonWithHolesAndACollection) {
    TcsGeometry point;
    point.AddGeometryObject()->Coords().AddCoord("", 1.4, 2.6);
    EXPECT_EQ(point.GetWKT(false), "POINT (1 3)");
    EXPECT_EQ(point.GetWKT(true), "POINT (3 1)");

    TcsGeometry square;
    TcsRingClassifier r0;
    AddRing(square, r0, kSquare);
    EXPECT_EQ(square.GetWKT(false), "POLYGON ((0 0,10 0,10 10,0 10,0 0))");

    // The hole opens a group that a following outer ring closes.
    TcsGeometry g;
    TcsRingClassifier rings;
    AddRing(g, rings, kSquare);
    AddRing(g, rings, kHole);
    EXPECT_EQ(g.GetWKT(false), "MULTIPOLYGON (((0 0,10 0,10 10,0 10,0 0)),((2 2,4 2,4 4,2 4,2 2)))");
    AddRing(g, rings, {{20, 20}, {30, 20}, {30, 30}, {20, 20}});
    EXPECT_EQ(g.GetWKT(false),
              "MULTIPOLYGON (((0 0,10 0,10 10,0 10,0 0)),((2 2,4 2,4 4,2 4,2 2),(20 20,30 20,30 30,20 20)))");

    TcsGeometry lines;
    TcsCustomGeometry* a = lines.AddGeometryObject();
    a->Coords().AddCoord("", 0, 0);
    a->Coords().AddCoord("", 1, 1);
    TcsCustomGeometry* b = lines.AddGeometryObject();
    b->Coords().AddCoord("", 2, 2);
    b->Coords().AddCoord("", 3, 3);
    EXPECT_EQ(lines.GetWKT(false), "MULTILINESTRING ((0 0,1 1),(2 2,3 3))");

    // A collection lists its objects from last to first.
    TcsGeometry mixed;
    mixed.AddGeometryObject()->Coords().AddCoord("", 5, 6);
    TcsRingClassifier r2;
    AddRing(mixed, r2, kHole);
    EXPECT_EQ(mixed.GetWKT(false), "GEOMETRYCOLLECTION ( POLYGON ((2 2,4 2,4 4,2 4,2 2)), POINT (5 6))");

    mixed.SetWKT("POINT (0 0)");
    EXPECT_EQ(mixed.GetWKT(false), "POINT (0 0)");
    EXPECT_EQ(TcsGeometry().GetWKT(false), "");
}

TEST(GeometryText, GMLAndGeoJSON) {
    TcsGeometry g;
    g.AddGeometryObject()->Coords().AddCoord("", 1.5, 2);
    EXPECT_EQ(g.GetGMLCoords(), "1.5000000000 2.0000000000");
    EXPECT_EQ(g.GetGeoJSON(),
              "{\"type\":\"FeatureCollection\",\"totalFeatures\":1,\"features\":[{\"type\":\"Feature\",\"id\":\"1\","
              "\"geometry\":{\"type\":\"Point\",\"coordinates\":[2,1.5]}}]}");
    g.AddGeometryObject()->Coords().AddCoord("", 3, 4);
    EXPECT_NE(g.GetGeoJSON().find("\"MultiPoint\",\"coordinates\":[[2,1.5],[4,3]]"), std::string::npos);
    TcsGeometry poly;
    TcsRingClassifier r;
    AddRing(poly, r, kSquare);
    EXPECT_NE(poly.GetGeoJSON().find("\"geometry\":{}"), std::string::npos);
}

TEST(GeometryChange, RecalcSwapAssignAppendAndBounds) {
    TcsGeometry g;
    TcsRingClassifier rings;
    AddRing(g, rings, kSquare);
    AddRing(g, rings, kHole);
    g.UpdateBounds();
    EXPECT_EQ(g.Bounds().GetBoundsString(), "0, 10, 0, 10");
    g.Recalc([](double& x, double& y) {
        x += 100;
        y *= 2;
    });
    EXPECT_EQ(g.Bounds().GetBoundsString(), "100, 110, 0, 20");
    g.SwapCoords();
    EXPECT_EQ(g.Bounds().GetBoundsString(), "0, 20, 100, 110");

    TcsGeometryBounds box;
    box.ProcessCoord(-1, 99);
    box.ProcessCoord(21, 111);
    EXPECT_TRUE(g.GeometryInBounds(box));
    TcsGeometryBounds tight;
    tight.ProcessCoord(0, 100);
    tight.ProcessCoord(20, 110);
    EXPECT_FALSE(g.GeometryInBounds(tight));  // strictly inside, all four limits

    TcsGeometry copy;
    copy.Assign(g);
    EXPECT_EQ(copy.Count(), 2);
    EXPECT_EQ(copy.GetWKT(false), g.GetWKT(false));
    EXPECT_EQ(copy.Items(1)->Coords()[0].Num, "1");
    copy.AppendGeometry(g);
    EXPECT_EQ(copy.Count(), 4);
    EXPECT_EQ(copy.GetPointCount(), 20.0);
    copy.Clear();
    EXPECT_TRUE(copy.IsClearCoord());
    EXPECT_EQ(copy.GetGeometryType(), gtNone);

    std::vector<double> xs, ys;
    g.Items(0)->Coords().FillCoordArray(xs, ys);
    EXPECT_EQ(xs.size(), 5u);
    TcsGeometry arrays;
    arrays.AddGeometryObject()->Coords().AddCoord(xs, ys, {});
    EXPECT_EQ(arrays.Items(0)->Coords()[4].Y, ys[4]);
}

// Decided: a copy keeps the interior flags (its WKT is the source's); the coordinate system
// link goes across, the object's two coordinate system strings do not; the sums take each
// object's own coordinates, so a nested composite adds nothing.
TEST(GeometryChange, AssignAndSumsAsDecided) {
    TcsGeometry g;
    TcsRingClassifier rings;
    AddRing(g, rings, kSquare);
    AddRing(g, rings, kHole);
    TcsGeometry system;
    g.CoordSystemString = "CoordSys Earth Projection 1, 104";
    g.CoordSystemID = "WGS84";
    g.SetCoordSystem(&system);
    TcsGeometry copy;
    copy.CoordSystemString = "old";
    copy.Assign(g);
    EXPECT_TRUE(copy.Items(1)->IsInterior());
    EXPECT_EQ(copy.GetWKT(false), g.GetWKT(false));
    EXPECT_EQ(copy.CoordSystem(), &system);
    EXPECT_EQ(copy.CoordSystemString, "");
    EXPECT_EQ(copy.CoordSystemID, "");

    TcsGeometry outer;
    TcsRingClassifier outerRings;
    AddRing(outer, outerRings, kSquare);
    const double square = outer.GetArea();
    auto* nested = static_cast<TcsGeometry*>(outer.AddGeometryObject(InfoClassOf<TcsGeometry>()));
    TcsRingClassifier nestedRings;
    AddRing(*nested, nestedRings, kSquare);
    EXPECT_EQ(outer.GetArea(), square);
    EXPECT_EQ(outer.GetPointCount(), 5.0);
    TcsGeometryBounds tiny;
    tiny.ProcessCoord(-1, -1);
    tiny.ProcessCoord(11, 11);
    nested->Items(0)->Coords()[0].X = 1000;  // outside, but not an object of the outer's own
    EXPECT_TRUE(outer.GeometryInBounds(tiny));
}

TEST(GeometryStorage, RoundTripThroughXML) {
    TcsGeometry g;
    TcsRingClassifier rings;
    AddRing(g, rings, kSquare);
    AddRing(g, rings, kHole);
    const std::string xml = g.XML();
    EXPECT_EQ(xml.find("GUID"), std::string::npos) << xml;  // low data
    TcsGeometry back;
    ASSERT_TRUE(TcsSupportPropertyObject(back).ReadStringXML(xml, 0));
    ASSERT_EQ(back.Count(), 2);
    EXPECT_TRUE(back.Items(1)->IsInterior());
    EXPECT_EQ(back.Items(0)->Coords().Count(), 5);
    EXPECT_EQ(back.Items(0)->Coords()[2].X, 10);
    back.UpdateBounds();
    EXPECT_EQ(back.GetWKT(false), g.GetWKT(false));
}
