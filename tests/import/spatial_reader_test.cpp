// The spatial reader over hand-written elements of both families: rings, holes, point
// numbers, deltas, extremes; and the clauses the geometry output writes.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "code_pages.h"
#include "csMifClauses.h"
#include "libImportXML.h"

using namespace tmi;
using xml::PXMLNode;

namespace {

struct Reader {
    xml::TXMLDocument fDoc;
    TlibImportXML fJob;
    explicit Reader(const std::string& aXML) {
        EXPECT_TRUE(fDoc.LoadFromXML(aXML)) << (fDoc.ParseError() ? fDoc.ParseError()->ErrorReport() : "");
        fJob.RewriteXML = true;
    }
    PXMLNode Root() const { return fDoc.DocumentElement(); }
};

std::string Ordinate(const char* aX, const char* aY, const char* aExtra = "") {
    return std::string("<Ordinate X=\"") + aX + "\" Y=\"" + aY + "\" " + aExtra + "/>";
}

// A classic unit with one ordinate.
std::string Unit(const char* aSu, const char* aX, const char* aY, const char* aExtra = "", const char* aType = "Точка") {
    return std::string("<SpelementUnit TypeUnit=\"") + aType + "\" SuNmb=\"" + aSu + "\">" + Ordinate(aX, aY, aExtra) +
           "</SpelementUnit>";
}

std::string ClassicRing(const std::vector<std::pair<int, int>>& aPoints, const char* aTag = "SpatialElement") {
    std::string s = std::string("<") + aTag + ">";
    int n = 0;
    for (const auto& p : aPoints) {
        ++n;
        const std::string su = std::to_string(n == static_cast<int>(aPoints.size()) ? 1 : n);
        s += "<SpelementUnit TypeUnit=\"Точка\" SuNmb=\"" + su + "\"><Ordinate X=\"" + std::to_string(p.second) +
             "\" Y=\"" + std::to_string(p.first) + "\" OrdNmb=\"1\"/></SpelementUnit>";
    }
    return s + "</" + aTag + ">";
}

const std::vector<std::pair<int, int>> kOuter = {{0, 0}, {100, 0}, {100, 100}, {0, 100}, {0, 0}};
const std::vector<std::pair<int, int>> kHole = {{20, 20}, {40, 20}, {40, 40}, {20, 40}, {20, 20}};

std::string NewOrdinate(const std::string& aX, const std::string& aY, const std::string& aNum = "",
                        const std::string& aOrd = "", const std::string& aDelta = "") {
    std::string s = "<ordinate><x>" + aX + "</x><y>" + aY + "</y>";
    if (!aOrd.empty()) s += "<ord_nmb>" + aOrd + "</ord_nmb>";
    if (!aNum.empty()) s += "<num_geopoint>" + aNum + "</num_geopoint>";
    if (!aDelta.empty()) s += "<delta_geopoint>" + aDelta + "</delta_geopoint>";
    return s + "</ordinate>";
}

// A new-family ring; points are (easting, northing) as in the map, written as <x> northing, <y> easting.
std::string NewRing(const std::vector<std::pair<int, int>>& aPoints) {
    std::string s = "<spatial_element><ordinates>";
    int n = 0;
    for (const auto& p : aPoints) s += NewOrdinate(std::to_string(p.second), std::to_string(p.first), std::to_string(++n));
    return s + "</ordinates></spatial_element>";
}

std::string NewContour(const std::vector<std::vector<std::pair<int, int>>>& aRings) {
    std::string s = "<contour><entity_spatial><spatials_elements>";
    for (const auto& r : aRings) s += NewRing(r);
    return s + "</spatials_elements></entity_spatial></contour>";
}

std::string ReadMif(const std::string& aFolder) {
    std::ifstream in(aFolder + "T.mif", std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    std::string utf8;
    xml::AppendWindows1251AsUTF8(s.str().data(), s.str().size(), utf8);
    return utf8.substr(utf8.find("Data\r\n\r\n") + 8);
}

// Runs aWrite on a fresh table and returns the object clauses written.
std::string Clauses(const std::function<void(TcsMifClauseWriter&)>& aWrite) {
    const std::string folder = (std::filesystem::temp_directory_path() / ("tmi" + std::to_string(::getpid()) + "_clauses")).string() + "/";
    std::filesystem::create_directories(folder);
    std::string out;
    {
        TMITable t("T", 1);
        t.Create(folder, {}, "CoordSys");
        TcsMifClauseWriter w(t, nullptr);
        aWrite(w);
        t.Close();
        out = ReadMif(folder);
    }
    std::filesystem::remove_all(folder);
    return out;
}

TGrContRef Ring(const std::vector<std::pair<double, double>>& aPoints) {
    auto c = std::make_shared<TGrCont>();
    for (const auto& p : aPoints) c->AddPoint(p.first, p.second);
    return c;
}

}  // namespace

TEST(SpatialClassic, AxesHolesAndBothSpellingsInFileOrder) {
    Reader r("<EntitySpatial>" + ClassicRing(kHole, "Spatial_Element") + ClassicRing(kOuter) + "</EntitySpatial>");
    TGrParcelRef p = r.fJob.ReadEntitySpatial(r.Root());
    ASSERT_NE(p, nullptr);
    ASSERT_EQ(p->Count(), 2);
    // Outer ring first; the attribute Y is the easting, the map's x.
    EXPECT_FALSE(p->Contour(0)->IsInternal);
    EXPECT_EQ((*p->Contour(0))[1].x, 100);
    EXPECT_EQ((*p->Contour(0))[1].y, 0);
    EXPECT_TRUE(p->Contour(1)->IsInternal);
    EXPECT_EQ(p->Contour(1)->Count(), 5);
    EXPECT_EQ(r.fJob.xmax, 100);
    EXPECT_EQ(r.fJob.ymax, 100);
    EXPECT_EQ(r.fJob.xmin, 0);
    EXPECT_TRUE(r.fJob.fRings.SPList.empty());
    EXPECT_EQ(r.fJob.nPoints, 10);

    TlibImportXML reversed;
    reversed.RewriteXML = true;
    reversed.fReversXY = true;
    Reader r2("<EntitySpatial>" + ClassicRing({{1, 2}, {3, 4}}) + "</EntitySpatial>");
    TGrParcelRef q = reversed.ReadEntitySpatial(r2.Root());
    EXPECT_EQ((*q->Contour(0))[0].x, 2);  // X as read
    EXPECT_EQ((*q->Contour(0))[0].y, 1);
}

TEST(SpatialClassic, PointNumbersDeltasAndSpellingPrecedence) {
    Reader r("<Entity_Spatial><Spatial_Element>" + Unit("1", "10", "20", "Num_Geopoint=\"\" NumGeopoint=\"77\" Delta_Geopoint=\"0.1\"") +
             Unit("", "11", "21", "Ord_Nmb=\"\" OrdNmb=\"5\"") +
             "<Spelement_Unit Type_Unit=\"точка\" Su_Nmb=\"3\" SuNmb=\"9\">" + Ordinate("12", "22") + "</Spelement_Unit>" +
             "<Spelement_Unit Type_Unit=\"Окружность\" Su_Nmb=\"\" SuNmb=\"5\">" + Ordinate("13", "23", "DeltaGeopoint=\"0\"") +
             "</Spelement_Unit></Spatial_Element></Entity_Spatial>");
    TlibImportXML& job = r.fJob;
    job.XMLParcel.Number = "66:41:1:7";
    job.ReadEntitySpatial(r.Root());
    ASSERT_EQ(job.nPoints, 4);
    // The unit numbers every point: the first unit's ordinate has no number.
    EXPECT_EQ(job.arPoints.Text(job.arPoints[0].npt), "77");  // the right spelling when the left is empty
    EXPECT_EQ(job.arPoints[0].tol, 0.1);
    EXPECT_EQ(job.arPoints.Text(job.arPoints[0].knuch), "66:41:1:7");
    EXPECT_EQ(job.arPoints[0].status, 1);
    EXPECT_EQ(job.arPoints[0].x, 20);
    EXPECT_EQ(job.arPoints.Text(job.arPoints[1].npt), "5");   // no unit number: the ordinate's, and numbering flips back
    EXPECT_EQ(job.arPoints[1].tol, 0.1); // no delta: the last one read
    EXPECT_EQ(job.arPoints.Text(job.arPoints[2].npt), "3");   // lower-case "точка"; the left spelling wins
    EXPECT_EQ(job.arPoints.Text(job.arPoints[3].npt), "5");   // another unit type: the unit number
    EXPECT_EQ(job.arPoints[3].tol, 0);
}

TEST(SpatialClassic, MalformedCoordinatesRaiseAndEmptyElementsFail) {
    Reader r("<EntitySpatial><SpatialElement>" + Unit("1", "abc", "1") + "</SpatialElement></EntitySpatial>");
    EXPECT_THROW(r.fJob.ReadEntitySpatial(r.Root()), Exception);
    Reader empty("<EntitySpatial/>");
    EXPECT_THROW(empty.fJob.ReadEntitySpatial(empty.Root()), xml::EListError);
    // The extremes pass builds nothing and reads no numbers.
    Reader pass("<EntitySpatial>" + ClassicRing(kOuter) + "</EntitySpatial>");
    pass.fJob.RewriteXML = false;
    EXPECT_EQ(pass.fJob.ReadEntitySpatial(pass.Root()), nullptr);
    EXPECT_EQ(pass.fJob.xmax, 100);
    EXPECT_EQ(pass.fJob.nPoints, 0);
}

TEST(SpatialClassic, ContoursMergeAndPlainReaders) {
    Reader r("<Contours><Contour NumberPP=\"\" Number_Record=\"2\"><EntitySpatial>" + ClassicRing(kOuter) +
             "</EntitySpatial></Contour><Other/><Contour><EntitySpatial>" + ClassicRing(kHole) +
             "</EntitySpatial></Contour></Contours>");
    TGrParcelRef p = r.fJob.ReadContours(r.Root());
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(p->Count(), 2);
    EXPECT_FALSE(p->Contour(1)->IsInternal);  // no test between contours
    Reader plain("<EntitySpatial>" + ClassicRing(kOuter) + ClassicRing(kHole) + "</EntitySpatial>");
    TGrParcelRef last = plain.fJob.ReadEntitySpatialPlain(plain.Root(), false);
    ASSERT_EQ(last->Count(), 1);  // boundaries keep the last ring only
    EXPECT_EQ((*last->Contour(0))[0].x, 20);
    EXPECT_EQ(plain.fJob.nPoints, 0);
    TGrParcelRef sorted = plain.fJob.ReadEntitySpatialPlain(plain.Root(), true);
    ASSERT_EQ(sorted->Count(), 2);
    EXPECT_TRUE(sorted->Contour(1)->IsInternal);
}

TEST(SpatialNew, RingsHolesClosureAndNumbers) {
    Reader r("<contours_location><contours>" + NewContour({kOuter, kHole}) +
             NewContour({{{200, 0}, {300, 0}, {300, 50}, {200, 0}}}) + NewContour({{{0, 500}, {10, 500}, {10, 510}}}) +
             "</contours></contours_location>");
    bool found = false;
    TGrParcelRef p = r.fJob.ReadContoursNew(r.Root(), true, false, found);
    ASSERT_TRUE(found);
    ASSERT_EQ(p->Count(), 3);  // the open ring of the third contour is dropped
    EXPECT_FALSE(p->Contour(0)->IsInternal);
    EXPECT_FALSE(p->Contour(1)->IsInternal);
    EXPECT_TRUE(p->Contour(2)->IsInternal);
    EXPECT_EQ(p->Contour(2)->extId, p->Contour(0)->id);
    EXPECT_EQ((*p->Contour(0))[1].x, 100);  // <y> is the map's x
    EXPECT_EQ(r.fJob.GRect.right, 300);
    EXPECT_EQ(r.fJob.fRings.fcont, 3);

    Reader open("<contours_location><contours>" + NewContour({{{0, 500}, {10, 500}, {10, 510}}}) + "</contours></contours_location>");
    bool kept = false;
    TGrParcelRef line = open.fJob.ReadContoursNew(open.Root(), false, false, kept);
    ASSERT_TRUE(kept);
    EXPECT_EQ(line->Count(), 1);
}

TEST(SpatialNew, DuplicatesNumbersAndLooseCoordinates) {
    Reader r("<contours_location><contours>" + NewContour({kOuter}) + NewContour({kOuter}) +
             "</contours></contours_location>");
    bool found = false;
    TGrParcelRef p = r.fJob.ReadContoursNew(r.Root(), true, false, found);
    EXPECT_EQ(p->Count(), 1);  // of two equal rings one remains

    Reader n("<entity_spatial><spatials_elements><spatial_element><ordinates>" + NewOrdinate("1,5", "2.5", "NaN", "7", "0,1") +
             NewOrdinate("bad", "", "", "8") + "</ordinates></spatial_element></spatials_elements></entity_spatial>");
    TGrParcelRef q = n.fJob.ReadEntitySpatialNew(n.Root(), false);
    ASSERT_EQ(n.fJob.nPoints, 2);
    EXPECT_EQ(n.fJob.arPoints.Text(n.fJob.arPoints[0].npt), "7");  // NaN takes the ordinate number
    EXPECT_EQ(n.fJob.arPoints[0].x, 2.5);
    EXPECT_EQ(n.fJob.arPoints[0].y, 1.5);
    EXPECT_EQ(n.fJob.arPoints[0].tol, 0.1);
    EXPECT_EQ(n.fJob.arPoints[1].x, 0);  // malformed and missing become 0
    EXPECT_EQ(n.fJob.arPoints[1].tol, 0);
    EXPECT_EQ(TlibImportXML::LooseFloat("  "), 0);
    EXPECT_EQ(TlibImportXML::LooseFloat("1,234.5"), 0);
}

TEST(SpatialNew, GeometryContourWithRadii) {
    Reader r("<contour><entity_spatial><spatials_elements><spatial_element><ordinates>"
             "<ordinate><x>10</x><y>20</y><num_geopoint>NaN</num_geopoint><r>2.5</r></ordinate>"
             "<ordinate><x>oops</x><y>1</y></ordinate>"
             "</ordinates></spatial_element></spatials_elements></entity_spatial></contour>");
    r.fJob.fWriteRad = true;
    TcsGeometry g;
    r.fJob.ReadGeometryContour(r.Root(), g);
    ASSERT_EQ(g.Count(), 1);
    ASSERT_EQ(g.Items(0)->Coords().Count(), 1);
    EXPECT_EQ(g.Items(0)->Coords()[0].Num, "0");
    EXPECT_EQ(g.Items(0)->Coords()[0].X, 10);  // as read
    EXPECT_EQ(r.fJob.fPointRad.GetRadius(10, 20), 2.5);
    EXPECT_EQ(g.GetGeometryType(), gtPoint);
}

TEST(SpatialNew, TheLogNamesEachVisitedElementUnderDebugPrint) {
    Reader r("<contour><entity_spatial><spatials_elements><spatial_element><ordinates>"
             "<ordinate><x>10</x><y>20</y></ordinate><note/>"
             "</ordinates></spatial_element></spatials_elements></entity_spatial></contour>");
    std::vector<std::string> log;
    r.fJob.OnLog = [&](const std::string& aName) { log.push_back(aName); };
    TcsGeometry quiet;
    r.fJob.ReadGeometryContour(r.Root(), quiet);
    EXPECT_TRUE(log.empty());
    r.fJob.debugPrint = true;
    TcsGeometry g;
    r.fJob.ReadGeometryContour(r.Root(), g);
    EXPECT_EQ(log, (std::vector<std::string>{"entity_spatial", "spatials_elements", "spatial_element", "ordinates",
                                             "ordinate", "note"}));
    EXPECT_EQ(g.Items(0)->Coords().Count(), 1);
}

// A view that presses Cancel at its twelfth refresh, a few rings into the list.
class CancellingView : public TcsProgressControl {
public:
    using TcsProgressControl::TcsProgressControl;
    bool Visible() const override { return true; }
    void ProcessMessages() override {
        if (++fRefreshes == 12) fOwner.RequestCancel();
    }
    int fRefreshes = 0;
};

// A cancel in the middle of an element list leaves no ring behind for the next reader.
TEST(SpatialCancel, ReadersLeaveTheRingListEmpty) {
    std::string classic = "<EntitySpatial>";
    for (int i = 0; i < 12; ++i) classic += ClassicRing(kOuter);
    classic += "</EntitySpatial>";
    std::string modern = "<entity_spatial><spatials_elements>";
    for (int i = 0; i < 12; ++i) modern += NewRing(kOuter);
    modern += "</spatials_elements></entity_spatial>";
    for (const bool isClassic : {true, false}) {
        Reader r(isClassic ? classic : modern);
        TcsProgress progress;
        uint32_t tick = 0;
        progress.TickCount = [&] { return tick += 200; };
        progress.ControlClass = [](TcsProgress& p) { return std::make_unique<CancellingView>(p); };
        progress.AbortOnCancel = false;
        progress.AskOnCancel = false;
        progress.AutoProcessCancel = true;
        progress.Open();
        r.fJob.FProgress = &progress;
        const TGrParcelRef parcel = isClassic ? r.fJob.ReadEntitySpatial(r.Root()) : r.fJob.ReadEntitySpatialNew(r.Root(), true);
        EXPECT_TRUE(progress.Cancelled());
        EXPECT_EQ(parcel, nullptr);
        EXPECT_TRUE(r.fJob.fRings.SPList.empty()) << r.fJob.fRings.SPList.size();
    }
}

TEST(SpatialPoints, TheNumberFilter) {
    TlibImportXML job;
    job.fPoints = 2;
    job.arrCn = {"66:41:1:7"};
    job.AddPointDecl("1", "", "66:41:1:8", 1, 0, 1, 2);
    job.AddPointDecl("2", "", "66:41:1:7", 1, 0, 1, 2);
    EXPECT_EQ(job.nPoints, 1);
    job.fPoints = -2;
    job.AddPointDecl("3", "", "66:41:1:7", 1, 0, 1, 2);
    EXPECT_EQ(job.nPoints, 1);
    EXPECT_EQ(job.contour, -1);
}

TEST(SpatialPoints, TextsDeltasAndParcelsKeptOnceReadBackAsGiven) {
    TPointList points;
    const std::string longNumber(200000, '7');  // longer than a block of texts
    for (int i = 0; i < 20000; ++i) {
        const std::string parcel = "66:41:1:" + std::to_string(i / 7);
        const std::string npt = i == 9000 ? longNumber : std::to_string(i);
        const double delta = i % 3 == 0 ? 0.1 : (i % 3 == 1 ? -0.0 : 1e-7);
        points.Add(i, -i, npt, i % 2 ? npt : "o" + npt, parcel, 1, delta);
    }
    ASSERT_EQ(points.size(), 20000u);
    for (size_t i : {0u, 1u, 4095u, 4096u, 8999u, 9000u, 9001u, 19999u}) {
        const TPointDecl& p = points[i];
        const std::string npt = i == 9000 ? longNumber : std::to_string(i);
        EXPECT_EQ(p.x, static_cast<double>(i));
        EXPECT_EQ(points.Text(p.npt), npt);
        EXPECT_EQ(points.Text(p.npt2), i % 2 ? npt : "o" + npt);
        EXPECT_EQ(points.Text(p.knuch), "66:41:1:" + std::to_string(i / 7));
        EXPECT_EQ(p.status, 1);
        // The tolerance is what the general text form of the delta reads back as.
        ASSERT_TRUE(p.hasTol);
        EXPECT_EQ(p.tol, i % 3 == 0 ? 0.1 : (i % 3 == 1 ? 0.0 : 1e-7));
    }
    EXPECT_FALSE(std::signbit(points[1].tol));  // "-0" is written "0"
    points.clear();
    EXPECT_EQ(points.size(), 0u);
    points.Add(1, 2, "a", "a", "b", 1, 0);
    EXPECT_EQ(points.Text(points[0].npt), "a");
    EXPECT_EQ(points.Text(points[0].knuch), "b");
}

TEST(Clauses, RegionsHolesAndNone) {
    // A ring of 3 points (4 with the closing one is the least) is not written.
    TGrParcel small;
    small.Add(Ring({{0, 0}, {1, 0}, {0, 0}}));
    EXPECT_EQ(Clauses([&](TcsMifClauseWriter& w) { w.WriteGrParcel(small, true); }), "none\r\n");

    // An orphan hole becomes an outer ring, and stays so on the object.
    TGrParcel orphan;
    auto hole = Ring({{1, 1}, {2, 1}, {2, 2}, {1, 1}});
    hole->IsInternal = true;
    hole->extId = 9;
    orphan.Add(hole);
    EXPECT_EQ(Clauses([&](TcsMifClauseWriter& w) { w.WriteGrParcel(orphan, true); }),
              "Region 1\r\n4\r\n1 1\r\n2 1\r\n2 2\r\n1 1\r\nPen (1,2,0)\r\nBrush (2,16777215,16777215)\r\n");
    EXPECT_FALSE(hole->IsInternal);

    // Two outer rings and a hole of the second: outer 1, outer 2, hole.
    TGrParcel two;
    auto a = Ring({{0, 0}, {1, 0}, {1, 1}, {0, 0}});
    auto b = Ring({{5, 5}, {9, 5}, {9, 9}, {5, 5}});
    auto h = Ring({{6, 6}, {7, 6}, {7, 7}, {6, 6}});
    a->id = 0, b->id = 1, h->id = 2;
    h->IsInternal = true;
    h->extId = 1;
    two.Add(a);
    two.Add(b);
    two.Add(h);
    const std::string region = Clauses([&](TcsMifClauseWriter& w) { w.WriteGrParcel(two, false); });
    EXPECT_EQ(region.substr(0, 27), "Pline Multiple 3\r\n4\r\n0 0\r\n1");
    EXPECT_LT(region.find("5 5"), region.find("6 6"));
    // A hole whose extId matches two outer rings is written behind each; the count says so.
    a->id = 1;
    EXPECT_EQ(Clauses([&](TcsMifClauseWriter& w) { w.WriteGrParcel(two, true); }).substr(0, 10), "Region 4\r\n");
}

TEST(Clauses, LinesPointsAndCollections) {
    TGrParcel one;
    one.Add(Ring({{3.5, 4.25}}));
    EXPECT_EQ(Clauses([&](TcsMifClauseWriter& w) { w.WriteGrParcelLines(one); }), "Pline 1\r\n3.5 4.25\r\nPen (1,2,0)\r\n");
    EXPECT_EQ(Clauses([&](TcsMifClauseWriter& w) { w.WriteGrCont(*one.Contour(0)); }), "none\r\n");
    EXPECT_EQ(Clauses([&](TcsMifClauseWriter& w) { w.WriteGrPoint(1e20, -0.5); }), "Point 1E20 -0.5\r\nSymbol (35,0,12)\r\n");

    TcsGeometry points;
    points.AddGeometryObject()->Coords().AddCoord("", 1, 2);
    TcsCustomGeometry* line = points.AddGeometryObject();
    line->Coords().AddCoord("", 0, 0);
    line->Coords().AddCoord("", 5, 5);
    EXPECT_EQ(Clauses([&](TcsMifClauseWriter& w) { w.WriteGeometry(points); }),
              "Collection 2\r\nPline Multiple 1\r\n2\r\n0 0\r\n5 5\r\nPen (1,2,0)\r\nMultipoint 1\r\n1 2\r\nSymbol (35,0,12)\r\n");
    TcsGeometry multi;
    multi.AddGeometryObject()->Coords().AddCoord("", 1, 2);
    multi.AddGeometryObject()->Coords().AddCoord("", 3, 4);
    EXPECT_EQ(Clauses([&](TcsMifClauseWriter& w) { w.WriteGeometry(multi); }), "Pline 2\r\n1 2\r\n3 4\r\nPen (1,2,0)\r\n");
    EXPECT_EQ(Clauses([&](TcsMifClauseWriter& w) { w.WriteGeometryParts(multi, 2, 1, 1, {0, 1}); }),
              "Ellipse 1 2 5 6\r\nPen (1,2,0)\r\nBrush (2,16777215,16777215)\r\n");
    EXPECT_EQ(Clauses([&](TcsMifClauseWriter& w) { w.WriteGeometryParts(multi, 0, 0, 4, {1}); }), "Point 3 4\r\nSymbol (35,0,12)\r\n");
    // Parts that are not there are written as none, never as a failure.
    for (const auto& [position, kind, indices] : std::vector<std::tuple<int, int, std::vector<int>>>{
             {2, 1, {0, 1}}, {-1, 4, {0}}, {0, 1, {}}, {0, 1, {5}}, {0, 2, {0, 7}}, {0, 3, {-1}}}) {
        EXPECT_EQ(Clauses([&](TcsMifClauseWriter& w) { w.WriteGeometryParts(multi, 1, position, kind, indices); }), "none\r\n");
    }
}

TEST(Clauses, CheckObjectLinearOverlap) {
    TlibImportXML job;
    job.csXmin = 0, job.csYmin = 0, job.csXmax = 10, job.csYmax = 10;
    EXPECT_TRUE(job.CheckObjectLinear(*Ring({{10, 10}, {20, 20}}), true));  // touching counts
    EXPECT_FALSE(job.CheckObjectLinear(*Ring({{11, 0}, {20, 5}}), true));
    EXPECT_TRUE(job.CheckObjectLinear(*Ring({{11, 0}, {20, 5}}), false));
}

TEST(NameTests, ContainsIsCaseSensitiveEqualsFoldsCyrillic) {
    xml::TXMLDocument doc;
    ASSERT_TRUE(doc.LoadFromXML("<r><ns3:SpatialElement/><Точка/></r>"));
    PXMLNode a = doc.DocumentElement()->FirstChild();
    PXMLNode b = a->NextSibling();
    EXPECT_TRUE(NameContains(a, "SpatialElement"));
    EXPECT_FALSE(NameContains(a, "spatialelement"));
    EXPECT_FALSE(NameEquals(a, "SpatialElement"));  // the whole name, prefix included
    EXPECT_TRUE(NameEquals(a, "NS3:SPATIALELEMENT"));
    EXPECT_TRUE(NameEquals(b, "точка"));
}
