// Our catalogue against the published PROJ strings of the regional systems (PROJ does the
// transforms), against GDAL's reading of the clauses in MIF headers, and a real plan of
// territory imported with its zone, which GDAL puts where its addresses say.
#include <proj.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <regex>
#include <set>
#include <sstream>

#include "csGeometryCoordSysCore.h"
#include "csMapInfoChooseProjection.h"

using namespace tmi;
namespace fs = std::filesystem;

namespace {

bool InCI() {
    const char* ci = std::getenv("CI");
    return ci && std::string(ci) == "true";
}

std::string Shell(const std::string& aCommand, int* aStatus = nullptr) {
    std::string out;
    FILE* pipe = ::popen(aCommand.c_str(), "r");
    if (!pipe) return out;
    std::array<char, 4096> buf{};
    size_t n;
    while ((n = std::fread(buf.data(), 1, buf.size(), pipe)) > 0) out.append(buf.data(), n);
    const int status = ::pclose(pipe);
    if (aStatus) *aStatus = status;
    return out;
}

struct Published {
    std::string fRegion, fZone, fProj;
    std::map<std::string, std::string> fParams;
};

std::vector<Published> ReadPublished() {
    std::vector<Published> all;
    std::ifstream in(std::string(TM_SHARED_DATA) + "/prj/rrimplib__sk_list.txt");
    for (std::string line; std::getline(in, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        const size_t a = line.find(';'), b = line.find(';', a + 1);
        if (a == std::string::npos || b == std::string::npos) continue;
        Published p{line.substr(0, a), line.substr(a + 1, b - a - 1), line.substr(b + 1), {}};
        std::istringstream words(p.fProj);
        for (std::string w; words >> w;) {
            const size_t eq = w.find('=');
            p.fParams[w.substr(1, eq == std::string::npos ? std::string::npos : eq - 1)] = eq == std::string::npos ? "" : w.substr(eq + 1);
        }
        all.push_back(std::move(p));
    }
    return all;
}

// A PROJ string without its datum shift: the projection on its own ellipsoid.
std::string WithoutShift(const std::string& aProj) {
    return std::regex_replace(aProj, std::regex(R"(\+towgs84=\S+)"), "");
}

class Proj {
public:
    Proj() : fCtx(proj_context_create()) { proj_log_level(fCtx, PJ_LOG_NONE); }
    ~Proj() {
        for (PJ* p : fMade) proj_destroy(p);
        proj_context_destroy(fCtx);
    }
    Proj(const Proj&) = delete;
    Proj& operator=(const Proj&) = delete;
    PJ* Keep(PJ* aP) {
        if (aP) fMade.push_back(aP);
        return aP;
    }
    // A CRS to CRS operation with longitude first.
    PJ* Between(PJ* aFrom, PJ* aTo) {
        PJ* op = Keep(proj_create_crs_to_crs_from_pj(fCtx, aFrom, aTo, nullptr, nullptr));
        return op ? Keep(proj_normalize_for_visualization(fCtx, op)) : nullptr;
    }
    PJ* Crs(const std::string& aDefinition) { return Keep(proj_create(fCtx, aDefinition.c_str())); }
    PJ* ToWGS84(const std::string& aDefinition) { return Between(Crs(aDefinition), Crs("EPSG:4326")); }
    // The projected CRS to its own geographic CRS: only the projection, no datum change.
    PJ* ToOwnGeographic(PJ* aCrs) {
        PJ* crs = aCrs;
        if (proj_get_type(crs) == PJ_TYPE_BOUND_CRS) crs = Keep(proj_get_source_crs(fCtx, crs));
        return Between(crs, Keep(proj_crs_get_geodetic_crs(fCtx, crs)));
    }
    static PJ_COORD Lonlat(PJ* aOp, double aE, double aN) { return proj_trans(aOp, PJ_FWD, proj_coord(aE, aN, 0, 0)); }
    PJ_CONTEXT* fCtx;

private:
    std::vector<PJ*> fMade;
};

// Metres between two long/lat points, by the sphere; enough for centimetres to kilometres.
double Metres(const PJ_COORD& a, const PJ_COORD& b) {
    const double lat = (a.lp.phi + b.lp.phi) / 2 * M_PI / 180;
    const double dx = (a.lp.lam - b.lp.lam) * M_PI / 180 * 6371000 * std::cos(lat);
    const double dy = (a.lp.phi - b.lp.phi) * M_PI / 180 * 6371000;
    return std::hypot(dx, dy);
}

// Points of a zone: around its meridian at three latitudes, as projected coordinates.
std::vector<std::pair<double, double>> ZonePoints(Proj& aProj, const Published& aZone) {
    PJ* projection = aProj.Keep(proj_create(aProj.fCtx, WithoutShift(aZone.fProj).c_str()));
    std::vector<std::pair<double, double>> points;
    const double lon0 = std::stod(aZone.fParams.at("lon_0"));
    const double lat0 = aZone.fParams.count("lat_0") ? std::stod(aZone.fParams.at("lat_0")) : 0;
    for (double dlon : {-1.3, 0.0, 1.1})
        for (double lat : {lat0 > 1 ? lat0 - 0.2 : 44.0, lat0 > 1 ? lat0 + 0.3 : 56.0, lat0 > 1 ? lat0 : 68.0}) {
            const PJ_COORD c = proj_trans(projection, PJ_FWD, proj_coord(proj_torad(lon0 + dlon), proj_torad(lat), 0, 0));
            points.emplace_back(c.xy.x, c.xy.y);
        }
    return points;
}

// The МСК entries of our catalogue with their parameters.
struct Entry {
    std::string fName, fClause;
    std::shared_ptr<TcsCoordSystem> fSystem;
};

std::vector<Entry> CatalogueZones() {
    std::vector<Entry> zones;
    for (const auto& e : TcsProjectionCatalog(DefaultProjectionCatalogue(TM_BIN_DIR)).AllEntries()) {
        if (e.Category.rfind("МСК-", 0) != 0) continue;
        auto cs = std::make_shared<TcsCoordSystem>();
        cs->SetMapinfo(e.Entry.Clause);
        zones.push_back({e.Entry.Name, e.Entry.Clause, cs});
    }
    return zones;
}

bool SameOrigin(const TcsCoordSystem& aSystem, const Published& aZone) {
    auto near = [](double a, const std::string& b) { return std::fabs(a - std::stod(b.empty() ? "0" : b)) < 1e-6; };
    const auto& p = aZone.fParams;
    return near(aSystem.MerkParams()->Longitude, p.at("lon_0")) && near(aSystem.MerkParams()->FalseX, p.at("x_0")) &&
           near(aSystem.MerkParams()->FalseY, p.at("y_0")) && near(aSystem.MerkParams()->Latitude, p.count("lat_0") ? p.at("lat_0") : "0");
}

}  // namespace

// Every published zone has an entry whose generated Proj4 puts its points where the published
// string does, on its own ellipsoid and in WGS 84, within a millimetre.
TEST(CatalogueProj, EveryPublishedZoneIsReproduced) {
    const auto published = ReadPublished();
    ASSERT_GT(published.size(), 300u);
    const auto zones = CatalogueZones();
    Proj proj;
    for (const Published& zone : published) {
        const auto points = ZonePoints(proj, zone);
        PJ* theirs = proj.ToWGS84(zone.fProj + " +type=crs");
        ASSERT_NE(theirs, nullptr) << zone.fProj;
        bool matched = false;
        for (const Entry& e : zones) {
            if (!SameOrigin(*e.fSystem, zone)) continue;
            const std::string ours4 = e.fSystem->Proj4();
            PJ* ours = proj.ToWGS84(ours4 + " +type=crs");
            ASSERT_NE(ours, nullptr) << ours4;
            PJ* ourProjection = proj.Keep(proj_create(proj.fCtx, WithoutShift(ours4).c_str()));
            PJ* theirProjection = proj.Keep(proj_create(proj.fCtx, WithoutShift(zone.fProj).c_str()));
            double worst = 0;
            for (const auto& [x, y] : points) {
                worst = std::max(worst, Metres(Proj::Lonlat(ours, x, y), Proj::Lonlat(theirs, x, y)));
                const PJ_COORD a = proj_trans(ourProjection, PJ_INV, proj_coord(x, y, 0, 0));
                const PJ_COORD b = proj_trans(theirProjection, PJ_INV, proj_coord(x, y, 0, 0));
                worst = std::max(worst, Metres(PJ_COORD{{proj_todeg(a.lp.lam), proj_todeg(a.lp.phi), 0, 0}},
                                               PJ_COORD{{proj_todeg(b.lp.lam), proj_todeg(b.lp.phi), 0, 0}}));
            }
            if (worst < 0.001) {
                matched = true;
                break;
            }
        }
        EXPECT_TRUE(matched) << zone.fRegion << " zone " << zone.fZone << ": " << zone.fProj;
    }
}

// GDAL's MapInfo driver reads each clause from a MIF header to a spatial reference that puts
// the points at the same place: within a centimetre on the zone's own ellipsoid, within ten
// metres in WGS 84 (GDAL takes its own shift for a datum it knows as Pulkovo 1942).
TEST(CatalogueProj, GDALReadsTheClausesOfMIFHeaders) {
    int status = 0;
    Shell("gdalsrsinfo --version 2>&1", &status);
    if (status != 0) {
        if (InCI()) FAIL() << "gdalsrsinfo (gdal-bin) is missing";
        GTEST_SKIP() << "gdalsrsinfo (gdal-bin) is missing";
    }
    const auto published = ReadPublished();
    const auto zones = CatalogueZones();
    const fs::path folder = fs::temp_directory_path() / ("tmi" + std::to_string(::getpid()) + "_gdal_prj");
    fs::create_directories(folder);
    Proj proj;
    // The regions of the real extracts, every zone; of the rest, every fifth line.
    const std::set<std::string> regionsOfData{"11", "21", "24", "26", "40", "47", "50", "61", "66", "MGGT"};
    int checked = 0;
    double worstOwn = 0, worstWGS84 = -1;
    std::string worstName;
    for (size_t i = 0; i < published.size(); ++i) {
        const Published& zone = published[i];
        const std::string region = zone.fRegion.substr(0, zone.fRegion.find('_'));
        if (!regionsOfData.count(region) && i % 5 != 0) continue;
        // The entry of the same origin and the same shift (rotations turned back).
        std::vector<double> shift;
        std::istringstream parts(zone.fParams.at("towgs84"));
        for (std::string p; std::getline(parts, p, ',');) shift.push_back(std::stod(p));
        const Entry* entry = nullptr;
        for (const Entry& e : zones) {
            if (!SameOrigin(*e.fSystem, zone) || e.fSystem->Datum() != csdCustom || shift.size() != 7) continue;
            const TcsCoordsysDatum& d = *e.fSystem->CustomDatum();
            const double ours[7] = {d.dX, d.dY, d.dZ, -d.EX, -d.EY, -d.EZ, d.m};
            bool same = true;
            for (size_t k = 0; k < 7; ++k) same = same && std::fabs(ours[k] - shift[k]) < 1e-6;
            if (same) entry = &e;
        }
        ASSERT_NE(entry, nullptr) << zone.fProj;
        const fs::path mif = folder / ("z" + std::to_string(i) + ".mif");
        std::ofstream(mif) << "Version 300\nCharset \"WindowsCyrillic\"\nDelimiter \",\"\nCoordSys Earth Projection " << entry->fClause
                           << "\nColumns 1\n  a Char(10)\nData\n\nPoint 0 0\n";
        std::ofstream(folder / ("z" + std::to_string(i) + ".mid")) << "\"x\"\n";
        const std::string wkt = Shell("gdalsrsinfo -o wkt2 '" + mif.string() + "' 2>/dev/null");
        PJ* gdalCrs = proj.Crs(wkt);
        ASSERT_NE(gdalCrs, nullptr) << entry->fName << ": GDAL gave\n" << wkt;
        PJ* gdalOwn = proj.ToOwnGeographic(gdalCrs);
        PJ* gdalWGS84 = proj.Between(gdalCrs, proj.Crs("EPSG:4326"));
        PJ* theirProjection = proj.Keep(proj_create(proj.fCtx, WithoutShift(zone.fProj).c_str()));
        PJ* theirWGS84 = proj.ToWGS84(zone.fProj + " +type=crs");
        ASSERT_TRUE(gdalOwn && gdalWGS84 && theirProjection && theirWGS84) << entry->fName;
        for (const auto& [x, y] : ZonePoints(proj, zone)) {
            const PJ_COORD t = proj_trans(theirProjection, PJ_INV, proj_coord(x, y, 0, 0));
            const double own = Metres(Proj::Lonlat(gdalOwn, x, y), PJ_COORD{{proj_todeg(t.lp.lam), proj_todeg(t.lp.phi), 0, 0}});
            const double wgs = Metres(Proj::Lonlat(gdalWGS84, x, y), Proj::Lonlat(theirWGS84, x, y));
            EXPECT_LT(own, 0.01) << entry->fName;
            EXPECT_LT(wgs, 10.0) << entry->fName;
            worstOwn = std::max(worstOwn, own);
            if (wgs > worstWGS84) {
                worstWGS84 = wgs;
                worstName = entry->fName;
            }
        }
        ++checked;
    }
    fs::remove_all(folder);
    EXPECT_GT(checked, 80);
    std::printf("%d zones read by GDAL: worst %.4f m on the own ellipsoid, %.2f m in WGS 84 (%s)\n", checked, worstOwn,
                worstWGS84, worstName.c_str());
}

// A Chuvash plan of territory imported in its zone lands in Novocheboksarsk, the town its
// addresses name (56°07′ N, 47°29′ E), when GDAL transforms it to WGS 84.
TEST(CatalogueProj, ARealPlanLandsWhereItsAddressesSay) {
    const fs::path out = fs::temp_directory_path() / ("tmi" + std::to_string(::getpid()) + "_msk21");
    fs::remove_all(out);
    int status = 0;
    const std::string input = std::string(TM_SHARED_DATA) + "/xml/KPT10/niakr1s__KPT_CadastralBlock_21_02_010106.xml";
    ASSERT_TRUE(fs::exists(input)) << input;
    Shell(std::string(TM_TMIMPORT) + " '" + input + "' -q -o '" + out.string() + "' --projection 'МСК-21 зона 1' 2>&1", &status);
    ASSERT_EQ(status, 0);
    std::string mif;
    for (const auto& f : fs::recursive_directory_iterator(out))
        if (f.path().filename() == "Участки.mif") mif = f.path().string();
    ASSERT_FALSE(mif.empty());
    std::ifstream header(mif);
    std::string line;
    bool clause = false;
    while (std::getline(header, line) && line.rfind("Data", 0) != 0)
        clause = clause || line.rfind("CoordSys Earth Projection 8, 9999, 3, ", 0) == 0;
    EXPECT_TRUE(clause);
    Shell("ogrinfo --version", &status);
    if (status != 0) {
        if (InCI()) FAIL() << "ogrinfo (gdal-bin) is missing";
        GTEST_SKIP() << "gdal-bin is missing";
    }
    EXPECT_NE(Shell("gdalsrsinfo -o proj4 '" + mif + "'").find("+lon_0=47.55"), std::string::npos);
    const std::string csv =
        Shell("ogr2ogr -f CSV /vsistdout/ -t_srs EPSG:4326 -lco GEOMETRY=AS_WKT '" + mif + "' 2>/dev/null | head -20");
    std::smatch m;
    ASSERT_TRUE(std::regex_search(csv, m, std::regex(R"(\(\(?\(?(-?[0-9.]+) (-?[0-9.]+))"))) << csv.substr(0, 500);
    const PJ_COORD got{{std::stod(m[1]), std::stod(m[2]), 0, 0}};
    const PJ_COORD town{{47.0 + 29.0 / 60, 56.0 + 7.0 / 60, 0, 0}};
    EXPECT_LT(Metres(got, town), 5000) << "at " << m[1] << " " << m[2];
    fs::remove_all(out);
}
