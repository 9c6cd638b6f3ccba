// The classic readers over the real extracts: rows against the elements read, words for codes,
// and the areas of the written regions, read back through GDAL, against "Площадь1".
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "code_pages.h"
#include "import_test_util.h"
#include "libImportXML.h"

using namespace tmi;
namespace fs = std::filesystem;
using test::InCI;
using test::Shell;

namespace {

int Lines(const fs::path& aFile) {
    std::ifstream in(aFile, std::ios::binary);
    std::string s((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    return static_cast<int>(std::count(s.begin(), s.end(), '\n'));
}

std::string Utf8(const fs::path& aFile) {
    std::ifstream in(aFile, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    std::string out;
    xml::AppendWindows1251AsUTF8(s.str().data(), s.str().size(), out);
    return out;
}

// Elements of the document by local name, counted as the readers meet them.
struct Counts {
    int fParcels = 0, fEntries = 0, fBlocks = 0, fSurveyPoints = 0;
};

// aStopAtHeader: the walk ends at the eDocument header, as a reader's walk does when its code is
// not allowed.
Counts Count(xml::PXMLNode aRoot, bool aStopAtHeader) {
    Counts c;
    xml::PXMLNode n = aRoot;
    while (n) {
        if (aStopAtHeader && n->ParentNode() == aRoot && n->NodeType() == xml::ntElement && LocalNameOf(n) == "eDocument")
            break;
        if (n->NodeType() == xml::ntElement) {
            const std::string_view local = LocalNameOf(n);
            const std::string_view parent = n->ParentNode() ? LocalNameOf(n->ParentNode()) : "";
            if ((local == "Parcel" && parent == "Parcels") || local == "NewParcel" || local == "ExistParcel") ++c.fParcels;
            if ((local == "Cadastral_Block" || local == "CadastralBlock") &&
                (parent == "Cadastral_Blocks" || parent == "CadastralBlocks")) {
                // A block of the plan, not the block number of a realty object.
                bool inObject = false;
                for (xml::PXMLNode a = n->ParentNode(); a && !inObject; a = a->ParentNode())
                    inObject = a->NodeType() == xml::ntElement && (LocalNameOf(a) == "Realty" || LocalNameOf(a) == "Parcel");
                if (!inObject) ++c.fBlocks;
            }
            if (local == "OMSPoint") ++c.fSurveyPoints;
            if (local.find("EntryParcel") != std::string_view::npos && parent == "CompositionEZ") ++c.fEntries;
        }
        if (n->FirstChild()) {
            n = n->FirstChild();
            continue;
        }
        while (n && n != aRoot && !n->NextSibling()) n = n->ParentNode();
        if (!n || n == aRoot) break;
        n = n->NextSibling();
    }
    return c;
}

}  // namespace

TEST(RealDataClassic, RowsWordsAndAreasReadBackThroughGDAL) {
    const fs::path data = fs::path(TM_SHARED_DATA);
    if (!fs::exists(data / "xml")) {
        if (InCI()) FAIL() << "the shared test data is missing: " << data;
        GTEST_SKIP();
    }
    int status = 0;
    Shell("ogrinfo --version", &status);
    const bool haveGdal = status == 0;
    if (!haveGdal && InCI()) FAIL() << "ogrinfo (gdal-bin) is missing";
    const fs::path root = fs::temp_directory_path() / ("tmi" + std::to_string(::getpid()) + "_classic_real");
    fs::remove_all(root);
    setenv("XDG_DOCUMENTS_DIR", root.c_str(), 1);
    int files = 0;
    for (const char* kind : {"KPT08", "KPT10", "KVZU07", "KVOKS", "KPOKS"}) {
        int regions = 0, apart = 0;
        std::string apartList;
        for (const auto& e : fs::directory_iterator(data / "xml" / kind)) {
            const fs::path out = root / std::to_string(++files);
            fs::create_directories(out);
            int32_t error = 0;
            {
                TlibImportXML job;
                job.fXMLName = e.path().string();
                job.fOutputFile = out.string() + "/";
                job.XSDPath = (data / "XSDSchemes").string();
                job.miCoordSys = "CoordSys NonEarth Units \"m\" Bounds (0,0) (10000000,10000000)";
                ASSERT_NO_THROW(job.Execute()) << e.path();
                error = job.fImpError;
                job.Clear();
            }
            xml::TXMLDocument doc;
            ASSERT_TRUE(doc.LoadFromFile(e.path().string()));
            // A document whose eDocument code is not allowed is read only up to that header.
            const Counts c = Count(doc.DocumentElement(), error == 3);
            EXPECT_EQ(Lines(out / "Участки.mid"), c.fParcels + c.fEntries) << e.path();
            EXPECT_EQ(Lines(out / "Квартал.mid"), c.fBlocks) << e.path();
            EXPECT_EQ(Lines(out / "ТочкиОМС.mid"), c.fSurveyPoints) << e.path();
            // Codes with a dictionary read as words: a parcel's status is never a bare code.
            const std::string parcels = Utf8(out / "Участки.mid");
            EXPECT_EQ(parcels.find(",\"01\",\"0"), std::string::npos) << e.path();
            if (!haveGdal || c.fParcels == 0) continue;
            const std::string report =
                Shell("ogrinfo -ro -q -dialect OGRSQL -sql \"SELECT OGR_GEOM_AREA AS a, \\\"Площадь1\\\" AS d FROM \\\"Участки\\\" WHERE IsGraphic = 1\" '" +
                          (out / "Участки.mif").string() + "'",
                      &status);
            ASSERT_EQ(status, 0) << report;
            // "  a (Real) = 123.4" and "  d (Real) = 120" lines, a pair per feature.
            std::istringstream lines(report);
            std::string line;
            double area = -1;
            while (std::getline(lines, line)) {
                const size_t eq = line.find(" = ");
                if (eq == std::string::npos) continue;
                const std::string name = Trim(line.substr(0, line.find('(')));
                const double value = std::atof(line.c_str() + eq + 3);
                if (name == "a") {
                    area = value;
                } else if (name == "d" && area >= 0 && value > 0) {
                    ++regions;
                    if (std::fabs(area - value) > std::max(0.01 * value, 1.0)) {
                        ++apart;
                        apartList += "\n  " + e.path().filename().string() + ": " + std::to_string(value) + " vs " + std::to_string(area);
                    }
                    area = -1;
                }
            }
        }
        if (regions == 0) continue;
        const double share = static_cast<double>(apart) / regions;
        std::printf("%s: %d regions read back, %d apart (%.1f%%)%s\n", kind, regions, apart, share * 100, apartList.c_str());
        EXPECT_LE(share, std::string(kind) == "KPT08" ? 0.08 : 0.03) << kind << apartList;
    }
    unsetenv("XDG_DOCUMENTS_DIR");
    fs::remove_all(root);
}

TEST(RealDataNew, PlansOfTerritoryRowsAndAreasReadBack) {
    const fs::path data = fs::path(TM_SHARED_DATA) / "xml" / "KPT11";
    if (!fs::exists(data)) {
        if (InCI()) FAIL() << "the shared test data is missing: " << data;
        GTEST_SKIP();
    }
    int status = 0;
    Shell("ogrinfo --version", &status);
    const bool haveGdal = status == 0;
    const fs::path root = fs::temp_directory_path() / ("tmi" + std::to_string(::getpid()) + "_new_real");
    fs::remove_all(root);
    setenv("XDG_DOCUMENTS_DIR", root.c_str(), 1);
    int regions = 0, apart = 0, files = 0;
    for (const auto& e : fs::directory_iterator(data)) {
        const fs::path out = root / std::to_string(++files);
        fs::create_directories(out);
        {
            TlibImportXML job;
            job.fXMLName = e.path().string();
            job.fOutputFile = out.string() + "/";
            job.miCoordSys = "CoordSys NonEarth Units \"m\" Bounds (0,0) (10000000,10000000)";
            job.fWriteObj = true;
            ASSERT_TRUE(job.Execute()) << e.path();
            job.Clear();
        }
        xml::TXMLDocument doc;
        ASSERT_TRUE(doc.LoadFromFile(e.path().string()));
        auto count = [&](const char* aPath) {
            xml::IXMLNodeListPtr list;
            doc.Node()->SelectNodes(aPath, list);
            return list->Count();
        };
        EXPECT_EQ(Lines(out / "Участки.mid"), count("//land_records/land_record")) << e.path();
        EXPECT_EQ(Lines(out / "Объекты.mid"), count("//build_records/build_record|//construction_records/construction_record|"
                                                     "//object_under_construction_records/object_under_construction_record"))
            << e.path();
        EXPECT_EQ(Lines(out / "Квартал.mid"), count("//cadastral_blocks/cadastral_block")) << e.path();
        if (!haveGdal) continue;
        for (const char* table : {"Участки", "Объекты", "Квартал", "Границы", "Зоны"}) {
            Shell("ogrinfo -ro -so '" + (out / (std::string(table) + ".mif")).string() + "' > /dev/null", &status);
            EXPECT_EQ(status, 0) << table;
        }
        const std::string report = Shell(
            "ogrinfo -ro -q -dialect OGRSQL -sql \"SELECT OGR_GEOM_AREA AS a, \\\"Площадь1\\\" AS d FROM \\\"Участки\\\" WHERE IsGraphic = 1\" '" +
                (out / "Участки.mif").string() + "'",
            &status);
        std::istringstream lines(report);
        std::string line;
        double area = -1;
        while (std::getline(lines, line)) {
            const size_t eq = line.find(" = ");
            if (eq == std::string::npos) continue;
            const std::string name = Trim(line.substr(0, line.find('(')));
            const double value = std::atof(line.c_str() + eq + 3);
            if (name == "a") {
                area = value;
            } else if (name == "d" && area >= 0 && value > 0) {
                ++regions;
                if (std::fabs(area - value) > std::max(0.01 * value, 1.0)) ++apart;
                area = -1;
            }
        }
    }
    if (haveGdal) {
        std::printf("KPT11: %d regions read back, %d apart\n", regions, apart);
        EXPECT_GT(regions, 0);
        EXPECT_LE(apart, regions * 3 / 100);
    }
    unsetenv("XDG_DOCUMENTS_DIR");
    fs::remove_all(root);
}
