// TAB tables written directly through GDAL, read back by GDAL itself: the job's route that
// writes TAB instead of MIF/MID (parcels and blocks without objects), the route that writes
// both, the test table of the console, and a library that is missing or lacks functions.
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <optional>
#include <regex>

#include "csMitab.h"
#include "import_test_util.h"
#include "libImportXML.h"

using namespace tmi;
using test::InCI;
using test::Shell;
namespace fs = std::filesystem;

namespace {

struct Scratch {
    fs::path fPath;
    explicit Scratch(const std::string& aName) : fPath(fs::temp_directory_path() / ("tmi" + std::to_string(::getpid()) + "_" + aName)) {
        fs::remove_all(fPath);
        fs::create_directories(fPath);
        setenv("XDG_DOCUMENTS_DIR", fPath.c_str(), 1);
    }
    ~Scratch() {
        unsetenv("XDG_DOCUMENTS_DIR");
        fs::remove_all(fPath);
    }
};

bool HaveGdal() {
    int status = 0;
    Shell("ogrinfo --version", &status);
    return status == 0;
}

// ogrinfo's report of every feature, or its summary.
std::string Report(const fs::path& aTable, bool aSummary) {
    int status = 0;
    std::string r = Shell(std::string("ogrinfo -ro -al ") + (aSummary ? "-so " : "") + "'" + aTable.string() + "'", &status);
    EXPECT_EQ(status, 0) << aTable << "\n" << r;
    return r;
}

int Count(const std::string& aText, const std::string& aWhat) {
    int n = 0;
    for (size_t at = aText.find(aWhat); at != std::string::npos; at = aText.find(aWhat, at + 1)) ++n;
    return n;
}

int FeatureCount(const std::string& aSummary) {
    std::smatch m;
    return std::regex_search(aSummary, m, std::regex("Feature Count: (\\d+)")) ? std::stoi(m[1]) : -1;
}

fs::path Extract() {
    const fs::path file = fs::path(TM_SHARED_DATA) / "xml" / "KPT10" / "niakr1s__KPT_CadastralBlock_21_02_010107.xml";
    return fs::exists(file) ? file : fs::path();
}

void RunJob(const fs::path& aXml, const fs::path& aOut, int aWriteStyle) {
    TlibImportXML job;
    job.fXMLName = aXml.string();
    job.fOutputFile = aOut.string() + "/";
    job.miCoordSys = "CoordSys Earth Projection 8, 1001, \"m\", 39, 0, 1, 7500000, 0";
    job.fPoints = 1;
    job.fWriteStyle = aWriteStyle;
    ASSERT_TRUE(job.Execute()) << job.GetError();
    job.Clear();
}

}  // namespace

TEST(TabRoute, TablesAloneReadBackInGdalWithoutParcelObjects) {
    const fs::path xml = Extract();
    if (xml.empty() || !HaveGdal()) {
        if (InCI()) FAIL() << "the shared extracts or ogrinfo are missing";
        GTEST_SKIP();
    }
    Scratch s("tab_route");
    fs::create_directories(s.fPath / "mif");
    fs::create_directories(s.fPath / "tab");
    RunJob(xml, s.fPath / "mif", 0);
    fs::remove(s.fPath / "tmMiniImportRes.ini");
    RunJob(xml, s.fPath / "tab", 1);
    // No MIF/MID and no result list in this route.
    EXPECT_FALSE(fs::exists(s.fPath / "tmMiniImportRes.ini"));
    int tabs = 0;
    for (const auto& e : fs::directory_iterator(s.fPath / "tab")) {
        EXPECT_NE(e.path().extension(), ".mif");
        EXPECT_NE(e.path().extension(), ".mid");
        tabs += e.path().extension() == ".tab";
    }
    EXPECT_EQ(tabs, 13);

    // Every table has the MIF route's rows.
    for (const auto& e : fs::directory_iterator(s.fPath / "mif")) {
        if (e.path().extension() != ".mif") continue;
        const fs::path tab = s.fPath / "tab" / e.path().filename().replace_extension(".tab");
        EXPECT_EQ(FeatureCount(Report(tab, true)), FeatureCount(Report(e.path(), true))) << tab;
    }
    // Columns by the type map; the clause of the job on tables with objects.
    const std::string parcels = Report(s.fPath / "tab" / "Участки.tab", true);
    EXPECT_NE(parcels.find("TableId: Integer"), std::string::npos) << parcels;
    EXPECT_NE(parcels.find("Площадь1: Real"), std::string::npos) << parcels;
    EXPECT_NE(parcels.find("КадастровыйНомер: String (50.0)"), std::string::npos) << parcels;
    EXPECT_NE(parcels.find("Категория: String (190.0)"), std::string::npos) << parcels;
    EXPECT_NE(Report(s.fPath / "tab" / "Точки.tab", true).find("\"Longitude of natural origin\",39"), std::string::npos);
    // Parcels and the block have rows but no objects; points, boundaries are written.
    const std::string full = Report(s.fPath / "tab" / "Участки.tab", false);
    EXPECT_GT(FeatureCount(parcels), 0);
    EXPECT_EQ(Count(full, "POLYGON"), 0) << full.substr(0, 2000);
    EXPECT_EQ(Count(Report(s.fPath / "tab" / "Квартал.tab", false), "POLYGON"), 0);
    const std::string points = Report(s.fPath / "tab" / "Точки.tab", false);
    EXPECT_GT(Count(points, "POINT ("), 0) << points.substr(0, 2000);
    EXPECT_EQ(Count(points, "POINT ("), FeatureCount(Report(s.fPath / "tab" / "Точки.tab", true)));
    // Text comes through in Cyrillic.
    EXPECT_NE(Report(s.fPath / "tab" / "Паспорт.tab", false).find("iBlock (String) = 21:02:010107"), std::string::npos);
}

TEST(TabRoute, BothRoutesTogetherGiveParcelsTheirObjects) {
    const fs::path xml = Extract();
    if (xml.empty() || !HaveGdal()) {
        if (InCI()) FAIL() << "the shared extracts or ogrinfo are missing";
        GTEST_SKIP();
    }
    Scratch s("tab_both");
    RunJob(xml, s.fPath, 2);
    EXPECT_TRUE(fs::exists(s.fPath / "tmMiniImportRes.ini"));
    const std::string mif = Report(s.fPath / "Участки.mif", false);
    const std::string tab = Report(s.fPath / "Участки.tab", false);
    EXPECT_GT(Count(tab, "POLYGON"), 0);
    EXPECT_EQ(Count(tab, "POLYGON"), Count(mif, "POLYGON"));
    // The same first coordinates in both.
    const size_t a = mif.find("POLYGON (("), b = tab.find("POLYGON ((");
    ASSERT_NE(a, std::string::npos);
    ASSERT_NE(b, std::string::npos);
    EXPECT_EQ(mif.substr(a, 40), tab.substr(b, 40));
}

// Every column type of the table layer, and how a row's values reach the TAB.
TEST(TabRoute, TypeMapAndValues) {
    if (!HaveGdal()) {
        if (InCI()) FAIL() << "ogrinfo is missing";
        GTEST_SKIP();
    }
    Scratch s("tab_types");
    std::vector<TGMField> columns;
    auto column = [&](const char* aName, int aType, std::optional<int> aSize) {
        TGMField f;
        f.FieldName = aName;
        f.FieldType = aType;
        f.FieldSize = aSize;
        columns.push_back(f);
    };
    column("Номер", ftInteger, {});
    column("Площадь", ftFloat, {});
    column("Дата", ftDate, {});
    column("Имя", ftText, 5);
    column("Длинный", ftText, 250);
    column("Заметка", ftLongText, 0);
    TMITable table("Типы", 1);
    TcsGeometryBounds bounds;
    bounds.SetXMin(0), bounds.SetYMin(0), bounds.SetXMax(1000), bounds.SetYMax(1000);
    table.CreateTab((s.fPath / "Типы.tab").string(), columns, "CoordSys NonEarth Units \"m\" Bounds (0,0) (1000,1000)", bounds, {});
    table.NewTabRecord(true, 10);
    table.SetField("номер", TcsVariant(int64_t{42}));
    table.SetField("Площадь", TcsVariant(12.5));
    table.SetField("Дата", TcsVariant(TDateTime{45846.0}));  // 2025-07-08
    table.SetField("Имя", TcsVariant(std::string("Участок")));
    table.SetField("Заметка", TcsVariant(std::string("не переносится")));
    TcsGeometry point;
    point.AddGeometryObject()->Coords().AddCoord("", 105, 45);
    table.WriteTabGeometry(point);
    table.Post();
    EXPECT_EQ(table.Rows(), 1);
    table.Close();
    const std::string r = Report(s.fPath / "Типы.tab", false);
    for (const char* text : {"Номер: Integer", "Площадь: Real", "Дата: Date", "Имя: String (5.0)", "Длинный: String (150.0)",
                             "Заметка: String (150.0)", "Номер (Integer) = 42", "Площадь (Real) = 12.5",
                             "Дата (Date) = 2025/07/08", "Имя (String) = Участ", "POINT (105 45)"})
        EXPECT_NE(r.find(text), std::string::npos) << text << "\n" << r;
    EXPECT_EQ(r.find("не переносится"), std::string::npos) << r;
}

TEST(TabRoute, LibraryMissingOrWithoutFunctions) {
    // A library that is not there: the system's text.
    TcsMitabDynHeader none("libtm-no-such-gdal.so");
    try {
        none.Initialize();
        FAIL() << "loaded a library that does not exist";
    } catch (const EcsDLLError& e) {
        EXPECT_NE(std::string(e.what()).find("libtm-no-such-gdal.so: cannot open shared object file"), std::string::npos) << e.what();
    }
    // A library without the functions: each is counted, nothing is written, and the error
    // reaches the table's event named after the operation.
    TcsMitabDynHeader fake(TM_FAKE_GDAL);
    fake.Initialize();
    EXPECT_EQ(fake.MITAB_LoadErr, 32);
    EXPECT_EQ(fake.mitab_c_getlibversion(), "fake 0.0");
    Scratch s("tab_fake");
    MitabLibraryOverride() = TM_FAKE_GDAL;
    {
        TcsMapinfoTable table;
        MitabLibraryOverride().clear();
        table.FFileName = (s.fPath / "a.tab").string();
        std::vector<std::string> errors;
        table.FOnError = [&](TcsMapinfoTable&, const std::string& aText) { errors.push_back(aText); };
        table.CreateTable("tab");
        table.AddField("Id", TABFT_Integer, false, false, 0, 4);
        table.CreateFeature(TABFC_Point);
        table.WriteActiveFeature();
        table.CloseTable();
        ASSERT_GE(errors.size(), 1u);
        EXPECT_EQ(errors[0], "CreateTable: mitab_c_create: в библиотеке " + std::string(TM_FAKE_GDAL) + " нет функции GDALAllRegister");
        EXPECT_EQ(table.TraceLines(), errors);
        EXPECT_EQ(table.FWriteCount, 0);
    }
    EXPECT_FALSE(fs::exists(s.fPath / "a.tab"));
    // Without an event the text only goes to the trace.
    TcsMapinfoTable quiet;
    quiet.FFileName = (s.fPath / "no/such/folder/b.tab").string();
    quiet.CreateTable("tab");
    if (quiet.MitabDin().MITAB_LoadErr == 0) {
        ASSERT_EQ(quiet.TraceLines().size(), 1u);
        EXPECT_EQ(quiet.TraceLines()[0].rfind("CreateTable: ", 0), 0u) << quiet.TraceLines()[0];
    }
}
