// Every real extract imports into thirteen tables that GDAL's MapInfo driver opens without an
// error or a warning.
#include <unistd.h>

#include <gtest/gtest.h>

#include <array>
#include <cstdio>
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

}  // namespace

TEST(RealDataImport, ThirteenTablesThatGDALOpens) {
    const fs::path data = fs::path(TM_SHARED_DATA) / "xml";
    if (!fs::exists(data)) {
        if (InCI()) FAIL() << "the shared test data is missing: " << data;
        GTEST_SKIP();
    }
    int status = 0;
    Shell("ogrinfo --version", &status);
    const bool haveGdal = status == 0;
    if (!haveGdal && InCI()) FAIL() << "ogrinfo (gdal-bin) is missing";
    const fs::path root = fs::temp_directory_path() / ("tmi" + std::to_string(::getpid()) + "_real_import");
    fs::remove_all(root);
    setenv("XDG_DOCUMENTS_DIR", root.c_str(), 1);
    int files = 0;
    for (const auto& e : fs::recursive_directory_iterator(data)) {
        if (e.path().extension() != ".xml") continue;
        ++files;
        const fs::path out = root / std::to_string(files);
        fs::create_directories(out);
        {
            TlibImportXML job;
            job.fXMLName = e.path().string();
            job.fOutputFile = out.string() + "/";
            job.miCoordSys = "CoordSys NonEarth Units \"m\" Bounds (0,0) (10000000,10000000)";
            job.fPoints = 1;
            ASSERT_TRUE(job.Execute()) << e.path();
            // Extracts other than plans carry an eDocument code that is not allowed: code 3.
            const bool plan = e.path().parent_path().filename().string().rfind("KPT", 0) == 0;
            EXPECT_EQ(job.fImpError, plan ? 0 : job.fImpError) << e.path();
            EXPECT_TRUE(job.fImpError == 0 || job.fImpError == 3) << e.path();
            job.Clear();
        }
        int pairs = 0;
        for (const auto& f : fs::directory_iterator(out)) {
            if (f.path().extension() != ".mif") continue;
            ++pairs;
            EXPECT_TRUE(fs::exists(fs::path(f.path()).replace_extension(".mid")));
            if (!haveGdal) continue;
            const std::string report = Shell("ogrinfo -ro -al -so '" + f.path().string() + "'", &status);
            EXPECT_EQ(status, 0) << f.path() << "\n" << report;
            EXPECT_EQ(report.find("ERROR"), std::string::npos) << f.path() << "\n" << report;
            EXPECT_EQ(report.find("Warning"), std::string::npos) << f.path() << "\n" << report;
        }
        EXPECT_EQ(pairs, 13) << e.path();
        // One passport row. A plan says so by its root (KPT, the new family) or by the code 101
        // of an eDocument; the KPT08 samples have a CodeType on the root but no eDocument.
        std::ifstream in(out / "Паспорт.mid", std::ios::binary);
        std::stringstream s;
        s << in.rdbuf();
        const std::string kind = e.path().parent_path().filename().string();
        const bool plan = kind == "KPT10" || kind == "KPT11";
        const std::string passport = s.str();
        EXPECT_EQ(passport.substr(0, 4), plan ? "0,1," : "0,0,") << e.path();
        EXPECT_EQ(std::count(passport.begin(), passport.end(), '\n'), 1) << e.path();
    }
    EXPECT_GT(files, 0);
    unsetenv("XDG_DOCUMENTS_DIR");
    fs::remove_all(root);
}
