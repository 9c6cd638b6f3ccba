// Coordinate systems: the clause parser's branches, the affine block and its inverse, the
// generated Proj4 and WKT texts, the manager's lookups and file, and the extract links.
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>

#include "csCoordSysLinks.h"
#include "csGeometryCoordSysCore.h"

using namespace tmi;
namespace fs = std::filesystem;

namespace {

constexpr const char* kMsk26Zone2 =
    "8, 9999, 3, 24, -123, -94, -0.02, 0.25, 0.13, 1.1, 0, 7, 43.98333333333, 0, 1, 2300000, -4511057.63";

TcsCoordSystem Parsed(const std::string& aClause) {
    TcsCoordSystem cs;
    cs.SetMapinfo(aClause);
    return cs;
}

}  // namespace

TEST(CoordSysClause, EachBranchOfTheParser) {
    // A plan: item 1 is the unit.
    TcsCoordSystem plan;
    plan.SetMetric(cmKilometer);
    plan.SetMapinfo("0, 7");
    EXPECT_EQ(plan.CoordSystemType(), cstHorizantal);
    EXPECT_EQ(plan.Metric(), cmMeter);
    EXPECT_EQ(plan.Datum(), csdWGS84);
    EXPECT_EQ(plan.WKT(),
              "ENGCRS[\"Nonearth\", EDATUM[\"\"], CS[Cartesian,2], AXIS[\"(E)\",east, ORDER[1], LENGTHUNIT[\"Meter\",1]], "
              "AXIS[\"(N)\",north, ORDER[2], LENGTHUNIT[\"Meter\",1]]]");
    EXPECT_EQ(plan.Proj4(), "");
    TcsCoordSystem quotedUnit;
    quotedUnit.SetMetric(cmFt);
    quotedUnit.SetMapinfo("0, x, \"m\"");  // not an integer: nothing is set
    EXPECT_EQ(quotedUnit.Metric(), cmFt);
    EXPECT_EQ(quotedUnit.Datum(), csdNone);

    // Long/lat: the datum number and nothing more.
    EXPECT_EQ(Parsed("1, 104").CoordSystemType(), cstLongLat);
    EXPECT_EQ(Parsed("1, 104").Datum(), csdWGS84);
    EXPECT_EQ(Parsed("1, 1001").Datum(), csdPulkovo1942);
    EXPECT_EQ(Parsed("1, 0").Datum(), csdWGS84);
    EXPECT_EQ(Parsed("1, 33").Datum(), csdWGS84);  // an unknown number leaves WGS 84

    // Transverse Mercator on a known datum, with the unit as a number or as "m".
    for (const char* clause : {"CoordSys Earth Projection 8, 1001, 7, 39, 0, 1, 7500000, 0 Bounds (0, 0) (1, 1)",
                               "8, 1001, \"m\", 39, 0, 1, 7500000, 0"}) {
        TcsCoordSystem gk;
        gk.SetMetric(cmFt);
        gk.SetMapinfo(clause);
        EXPECT_EQ(gk.CoordSystemType(), cstTransverseMercator) << clause;
        EXPECT_EQ(gk.Datum(), csdPulkovo1942);
        EXPECT_EQ(gk.Metric(), cmMeter);
        EXPECT_TRUE(gk.MerkParams()->Has());
        EXPECT_EQ(gk.MerkParams()->Longitude, 39);
        EXPECT_EQ(gk.MerkParams()->Scale, 1);
        EXPECT_EQ(gk.MerkParams()->FalseX, 7500000);
        EXPECT_EQ(gk.MerkParams()->FalseY, 0);
    }

    // A custom datum: seven parameters, prime meridian, then the projection.
    const TcsCoordSystem msk = Parsed(kMsk26Zone2);
    EXPECT_TRUE(msk.IsValid());
    EXPECT_EQ(msk.Datum(), csdCustom);
    EXPECT_EQ(msk.CustomDatum()->Elipsoid, 3);
    EXPECT_EQ(msk.CustomDatum()->dY, -123);
    EXPECT_EQ(msk.CustomDatum()->EX, -0.02);
    EXPECT_EQ(msk.CustomDatum()->m, 1.1);
    EXPECT_EQ(msk.MerkParams()->Longitude, 43.98333333333);
    EXPECT_EQ(msk.MerkParams()->FalseY, -4511057.63);
    // Fifteen items are too few: the clause is not valid and the false origin is not read.
    const TcsCoordSystem shortOne = Parsed("8, 9999, 3, 24, -123, -94, -0.02, 0.25, 0.13, 1.1, 0, 7, 43.98, 0, 1");
    EXPECT_FALSE(shortOne.IsValid());
    EXPECT_FALSE(shortOne.MerkParams()->Has());
    EXPECT_EQ(Parsed("1, 9999, 3, 23.57, -140.95, -79.8, 0, -0.35, -0.79, -0.22, 0").Datum(), csdCustom);
    EXPECT_TRUE(Parsed("1, 9999, 3").IsValid());  // long/lat reads no projection items
    // An ellipsoid number beyond a byte names none (the fuzzer's find): no ellipsoid part.
    const TcsCoordSystem wide = Parsed("8, 9999, 339, 0, 124, -94, -0.0, 0, 0, 0, 0, 7, 39, 0, 1, 0, 0");
    EXPECT_EQ(wide.CustomDatum()->Elipsoid, 0);
    EXPECT_EQ(wide.Proj4().rfind("+proj=tmerc  +towgs84=", 0), 0u);
    EXPECT_EQ(Parsed("1, 9999, -1e300").CustomDatum()->Elipsoid, 0);

    // Unusable clauses leave everything as it was.
    for (const char* bad : {"", "8", "x, 104", "8, y", "Earth Projection", ",,,,", "\x01\x02,\xff"}) {
        TcsCoordSystem cs;
        EXPECT_NO_THROW(cs.SetMapinfo(bad)) << bad;
        EXPECT_EQ(cs.Datum(), csdNone) << bad;
        EXPECT_EQ(cs.CoordSystemType(), cstHorizantal);
        EXPECT_TRUE(cs.IsValid());
    }
    // Projection 20 with a known datum falls to the plan branch; with a custom one it keeps
    // its type.
    EXPECT_EQ(Parsed("20, 104, 7").CoordSystemType(), cstHorizantal);
    EXPECT_EQ(Parsed("20, 9999, 3").CoordSystemType(), cstPolarStereo);
    EXPECT_EQ(Parsed("20, 9999, 3").WKT(), "");
}

TEST(CoordSysClause, AffineBlockAndItsInverse) {
    // The thousands digit 1 announces the block; items 8 to 14 hold unit and coefficients.
    const TcsCoordSystem shifted = Parsed("1008, 1001, 7, 39, 0, 1, 7500000, 0, 7, 1, 0, 1000, 0, 1, -2000");
    ASSERT_TRUE(shifted.AffineParams()->Has());
    const TcsCoordSystemAffineCustomParams& back = *shifted.AffineParams()->BackParams();
    EXPECT_TRUE(back.Has());
    EXPECT_EQ(back.A, 1);
    EXPECT_EQ(back.E, 1);
    EXPECT_EQ(back.C, -1000);
    EXPECT_EQ(back.F, 2000);
    EXPECT_EQ(shifted.CoordSystemType(), cstTransverseMercator);

    // Rotation with scale: there and back again.
    const TcsCoordSystem turned = Parsed("3001, 104, 7, 0, 0, 0, 0, 0, 7, 0.8, -0.6, 100, 0.6, 0.8, -50");
    double x = 1234.5, y = -678.25;
    ASSERT_TRUE(turned.Affine(x, y));
    EXPECT_NEAR(x, 0.8 * 1234.5 + 0.6 * 678.25 + 100, 1e-9);
    ASSERT_TRUE(turned.DeAffine(x, y));
    EXPECT_NEAR(x, 1234.5, 1e-9);
    EXPECT_NEAR(y, -678.25, 1e-9);
    // Flags 2 (no block) and no flag at all: no transform, no change.
    double u = 5, v = 6;
    EXPECT_FALSE(Parsed("2008, 1001, 7, 39, 0, 1, 7500000, 0, 7, 1, 0, 1, 0, 1, 1").Affine(u, v));
    EXPECT_FALSE(Parsed("0, 7").DeAffine(u, v));
    EXPECT_EQ(u, 5);
    EXPECT_EQ(v, 6);

    // Bad text in the block raises the conversion error; a singular matrix raises its text.
    TcsCoordSystem cs;
    EXPECT_THROW(cs.SetMapinfo("1008, 1001, 7, 39, 0, 1, 7500000, 0, 7, 1, zero, 1, 0, 1, 1"), EConvertError);
    EXPECT_THROW(cs.SetMapinfo("1008, 1001, 7, 39, 0, 1, 7500000, 0, 7, 1, 0, 1"), EConvertError);  // missing items
    try {
        cs.SetMapinfo("1008, 1001, 7, 39, 0, 1, 7500000, 0, 7, 1, 2, 0, 2, 4, 0");
        FAIL() << "a singular block was taken";
    } catch (const EcsCoordSystemError& e) {
        EXPECT_STREQ(e.what(), "Определитель матрицы входных параметров аффинного преобразования равен нулю.");
    }
}

TEST(CoordSysText, Proj4AndWKTOfEachType) {
    TcsCoordSystem msk;
    msk.SetCaption("МСК-26 зона 2");
    msk.SetMapinfo(kMsk26Zone2);
    // The rotations come back with MapInfo's sign turned: the published +towgs84.
    EXPECT_EQ(msk.Proj4(),
              "+proj=tmerc +ellps=krass +towgs84=24.0000000000,-123.0000000000,-94.0000000000,0.0200000000,-0.2500000000,"
              "-0.1300000000,1.1000000000  +lat_0=0.0000000000 +lon_0=43.9833333333 +x_0=2300000.0000000000 "
              "+y_0=-4511057.6300000000 +units=m +no_defs");
    EXPECT_EQ(msk.WKT(),
              "PROJCS[\"МСК-26 зона 2\",GEOGCS[\"Krassovsky\", DATUM[\"CUSTOM\",SPHEROID[\"Krassovsky\",6378245.0000000000,"
              "298.3000000000, LENGTHUNIT[\"metre\",1]], TOWGS84[24.0000000000,-123.0000000000,-94.0000000000,0.0200000000,"
              "-0.2500000000,-0.1300000000,1.1000000000 ]],  PRIMEM[\"Greenwich\",0],  UNIT[\"degree\",0.0174532925199433]],  "
              "PROJECTION[\"Transverse_Mercator\"],  PARAMETER[\"latitude_of_origin\",0.000000000000],  "
              "PARAMETER[\"central_meridian\",43.983333333330],  PARAMETER[\"scale_factor\",1],  "
              "PARAMETER[\"false_easting\",2300000.000000000000,LENGTHUNIT[\"Meter\",1]],  "
              "PARAMETER[\"false_northing\",-4511057.630000000000,LENGTHUNIT[\"Meter\",1]],  UNIT[\"metre\",1],  "
              "LENGTHUNIT[\"metre\",1]]");
    // Pulkovo 1942 by number: the fixed shift.
    EXPECT_EQ(Parsed("8, 1001, 7, 39, 0, 1, 7500000, 0").Proj4(),
              "+proj=tmerc +ellps=krass +towgs84=24,-123,-94,0.02,-0.25,-0.13,1.1 +lat_0=0.0000000000 +lon_0=39.0000000000 "
              "+x_0=7500000.0000000000 +y_0=0.0000000000 +units=m +no_defs");
    // WGS 84: no shift. UTM's scale 0.9996 is left out of both texts, as the clause's scale
    // always is: such a Proj4 is not UTM.
    const TcsCoordSystem utm = Parsed("8, 104, 7, 39, 0, 0.9996, 500000, 0");
    EXPECT_EQ(utm.MerkParams()->Scale, 0.9996);
    EXPECT_EQ(utm.Proj4(),
              "+proj=tmerc +ellps=WGS84  +lat_0=0.0000000000 +lon_0=39.0000000000 +x_0=500000.0000000000 +y_0=0.0000000000 "
              "+units=m +no_defs");
    EXPECT_NE(utm.WKT().find("PARAMETER[\"scale_factor\",1]"), std::string::npos);
    // Long/lat: its ellipsoid and datum parts.
    EXPECT_EQ(Parsed("1, 1001").Proj4(), "+ellps=krass +towgs84=24,-123,-94,0.02,-0.25,-0.13,1.1");
    EXPECT_EQ(Parsed("1, 104").Proj4(), "+ellps=WGS84 ");
    TcsCoordSystem ll;
    ll.SetCaption("Пулково");
    ll.SetMapinfo("1, 1001");
    EXPECT_EQ(ll.WKT(),
              "GEOGCRS[\"Пулково\", DATUM[\"Krassovsky\", ELLIPSOID[\"Krassovsky\", 6378245.0000000000, 298.3000000000, "
              "LENGTHUNIT[\"metre\",1]], TOWGS84[24,-123,-94,0.02,-0.25,-0.13,1.1]],  PRIMEM[\"Greenwich\",0, "
              "ANGLEUNIT[\"degree\",0.0174532925199433]], CS[ellipsoidal,2], AXIS[\"geodetic latitude (Lat)\",north, ORDER[1], "
              "ANGLEUNIT[\"degree\",0.0174532925199433]], AXIS[\"geodetic longitude (Lon)\",east, ORDER[2], "
              "ANGLEUNIT[\"degree\",0.0174532925199433]]]]");
    // Ellipsoids of the table by number; Bessel for Moscow's system.
    EXPECT_NE(Parsed("8, 9999, 10, 316.151, 78.924, 589.65, 1.57273, -2.69209, -2.34693, 8.4507, 0, 7, 37.5, 55.66666666667, 1, 0, 0")
                  .Proj4()
                  .find("+ellps=bessel +towgs84=316.1510000000,78.9240000000,589.6500000000,-1.5727300000,2.6920900000,"
                        "2.3469300000,8.4507000000 "),
              std::string::npos);
    EXPECT_EQ(CoordSysElipsoidParam(56)->projName, "+a=6378136.5 +rf=298.2564151");
    EXPECT_EQ(CoordSysElipsoidParam(4), nullptr);

    // A stored text wins; emptied, generation takes over again.
    TcsCoordSystem stored = Parsed("1, 104");
    stored.SetProj4("+proj=longlat +datum=WGS84");
    EXPECT_EQ(stored.Proj4(), "+proj=longlat +datum=WGS84");
    stored.SetProj4("");
    EXPECT_EQ(stored.Proj4(), "+ellps=WGS84 ");
}

TEST(CoordSysManager, LookupsCategoriesAndFile) {
    TcsCoordSystemManager manager(nullptr, true);
    ASSERT_EQ(manager.CoordSystems()->Count(), 2);
    TcsCoordSystem* plan = manager.CoordSystems()->GetItemByID("plan_m");
    ASSERT_NE(plan, nullptr);
    EXPECT_EQ(plan->Caption(), "План схема, метры");
    EXPECT_EQ(plan->CoordSystemType(), cstHorizantal);
    EXPECT_EQ(manager.Categories()->GetCategoryByBaseName("План схема")->CoordSystemIDS, std::vector<std::string>{"plan_m"});
    EXPECT_EQ(manager.GetCoordSysByName("долгота / широта (пулково 1942)")->Mapinfo(), "1, 1001");
    EXPECT_EQ(manager.GetCoordSysByName("none"), nullptr);

    // By base name: the same system again, its category made once, the ID entered each time.
    TcsCoordSystem* a = manager.AddCoordSystem("msk26_2", std::string("МСК-26"));
    EXPECT_EQ(manager.AddCoordSystem("msk26_2", std::string("МСК-26")), a);
    EXPECT_EQ(manager.AddCoordSystem("msk26_2", std::string()), a);
    TcsCoordSystemCategory* msk = manager.Categories()->GetCategoryByBaseName("МСК-26");
    ASSERT_NE(msk, nullptr);
    EXPECT_EQ(msk->Caption(), "МСК-26");
    EXPECT_EQ(msk->CoordSystemIDS.size(), 2u);
    // Into a category: always new, at the head, ID and caption alike.
    TcsCoordSystem* b = manager.AddCoordSystem("msk26_1", msk);
    EXPECT_NE(b, a);
    EXPECT_EQ(b->Caption(), "msk26_1");
    EXPECT_EQ(msk->CoordSystemIDS.front(), "msk26_1");
    a->SetMapinfo(kMsk26Zone2);
    // By clause: exact text, else a new system in "Автоматически".
    EXPECT_EQ(manager.GetCoordSysByMapinfo(kMsk26Zone2), a);
    TcsCoordSystem* made = manager.GetCoordSysByMapinfo("8, 104, 7, 39, 0, 0.9996, 500000, 0");
    EXPECT_EQ(made->ID(), "8, 104, 7, 39, 0, 0.9996, 500000, 0");
    EXPECT_EQ(made->CoordSystemType(), cstTransverseMercator);
    EXPECT_EQ(manager.Categories()->GetCategoryByBaseName("Автоматически")->CoordSystemIDS.size(), 1u);
    EXPECT_EQ(manager.GetCoordSysByMapinfo("8, 104, 7, 39, 0, 0.9996, 500000, 0"), made);

    // The manager's file: what was set comes back; texts that are generated stay generated.
    const fs::path file = fs::temp_directory_path() / ("tmi" + std::to_string(::getpid()) + "_coordsys.xml");
    a->SetCaption("МСК-26 зона 2");
    a->SetEPSGID("");
    manager.WriteToFile(file.string());
    TcsCoordSystemManager back;
    back.ReadFromFile(file.string());
    fs::remove(file);
    ASSERT_EQ(back.CoordSystems()->Count(), manager.CoordSystems()->Count());
    const TcsCoordSystem* a2 = back.CoordSystems()->GetItemByID("msk26_2");
    ASSERT_NE(a2, nullptr);
    EXPECT_EQ(a2->Caption(), "МСК-26 зона 2");
    EXPECT_EQ(a2->Proj4(), a->Proj4());
    EXPECT_EQ(a2->Datum(), csdCustom);
    EXPECT_EQ(a2->CustomDatum()->EZ, 0.13);
    EXPECT_EQ(back.Categories()->Count(), manager.Categories()->Count());
    EXPECT_EQ(back.Categories()->GetCategoryByBaseName("МСК-26")->CoordSystemIDS,
              (std::vector<std::string>{"msk26_1", "msk26_2", "msk26_2"}));
    back.Clear();
    EXPECT_EQ(back.CoordSystems()->Count(), 0);
}

namespace {

// A finder that knows one name, for the registry.
class TestFinder : public TcsRosreestrXMLCoordSysLinkFinder {
public:
    using TcsRosreestrXMLCoordSysLinkFinder::TcsRosreestrXMLCoordSysLinkFinder;
    static const char* StaticClassName() { return "TcsTestFinder"; }
    TcsCoordSystem* RegisterCoordSystems(TcsCoordSystemManager* aManager) override {
        fSystem = aManager->AddCoordSystem("found", std::string("Найденные"));
        return fSystem;
    }
    TcsCoordSystem* FindCoordSystem(TcsGeometry*, TcsGeometryBounds*, xml::PXMLNode, TcsInfo*) override { return fSystem; }
    TcsCoordSystem* fSystem = nullptr;
};

class TestXMLInfo : public TcsInfoLowData, public IcsXMLCoordSystemsHolder {
public:
    TcsXMLCoordSystemsInfo* CoordSystemsInfo() const override { return fInfo.get(); }
    std::unique_ptr<TcsXMLCoordSystemsInfo> fInfo = std::make_unique<TcsXMLCoordSystemsInfo>();
};

}  // namespace

TEST(CoordSysLinks, BuiltInLinksWinAndFindersAreAskedInOrder) {
    TcsCoordSystemManager systems(nullptr, true);
    TcsRosreestrXMLCoordSysLinksManager links;
    links.SetCoordSystemManager(&systems);
    links.AddLink("МСК-26 от СК-95, зона 1", "plan_m");
    links.AddLink("Без системы", "unknown_id");
    auto add = [&](const char* aName, const char* aID) {
        auto* l = static_cast<TcsRosreestrXMLCoordSysLink*>(
            links.UserCoordSysLinks()->Add(std::make_unique<TcsRosreestrXMLCoordSysLink>()));
        l->Name = aName;
        l->CoordSysID = aID;
    };
    add("мск-26 от ск-95, зона 1", "longlat_p42");
    add("без системы", "plan_m");
    add("Своя", "longlat_p42");
    EXPECT_EQ(links.CoordSysLinks()->Count(), 2);  // AddLink never touches the user's list
    EXPECT_EQ(links.GetCoordsysByName("МСК-26 ОТ СК-95, ЗОНА 1")->ID(), "plan_m");
    EXPECT_EQ(links.GetCoordsysByName("Без системы"), nullptr);  // the built-in link decides, even unknown
    EXPECT_EQ(links.GetCoordsysByName("своя")->ID(), "longlat_p42");
    EXPECT_EQ(links.GetCoordsysByName("Чужая"), nullptr);
    EXPECT_EQ(links.GetCoordsysByXmlInfo(nullptr), nullptr);

    // No finder: the bounds widen the extent of unknown data.
    TestXMLInfo info;
    TcsGeometryBounds bounds;
    bounds.ProcessCoord(10, 20);
    bounds.ProcessCoord(30, 40);
    EXPECT_EQ(links.UpdateXmlInfoCoordSystem(nullptr, &bounds, nullptr, &info), nullptr);
    EXPECT_TRUE(info.fInfo->HasUnknownCRS());
    EXPECT_EQ(info.fInfo->AllBounds()->XMax(), 30);
    EXPECT_EQ(info.fInfo->Count(), 0);

    // A registered finder class is made at initialisation, registers its system, and answers.
    TcsRosreestrXMLCoordSysLinkFindInfoManager finders;
    finders.RegisterInfoClass(InfoClassOf<TestFinder>(), "{test}");
    TcsRosreestrXMLCoordSysLinksManager withFinder;
    withFinder.SetCoordSystemManager(&systems);
    withFinder.SetFindInfoManager(&finders);
    withFinder.Initialize();
    ASSERT_EQ(withFinder.Finders()->Count(), 1);
    EXPECT_EQ(withFinder.Finders()->Items(0)->LinkManager(), &withFinder);
    ASSERT_NE(systems.CoordSystems()->GetItemByID("found"), nullptr);
    TcsCoordSystem* found = withFinder.UpdateXmlInfoCoordSystem(nullptr, &bounds, nullptr, &info);
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->ID(), "found");
    ASSERT_EQ(info.fInfo->Count(), 1);
    EXPECT_EQ(info.fInfo->IDs(0), "found");
    EXPECT_EQ(info.fInfo->BoundsOf(0)->YMin(), 20);
    EXPECT_EQ(withFinder.FindCoordSystemAndRecovery(nullptr, nullptr, nullptr, nullptr, true), nullptr);  // the base answer
}
