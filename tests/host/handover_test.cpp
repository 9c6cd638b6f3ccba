// The hand-over to the host: the table names, the Axioma script word for word, MapInfo's
// commands through a recording automation object, and what each host mode does with a list.
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "PlanImportXML.h"
#include "csPaths.h"
#include "host_handover.h"

using namespace tmi;
namespace fs = std::filesystem;

namespace {

const std::vector<std::string> kTables = {"Участки", "ЧастиУчастка", "Объекты",  "Точки",           "ТочкиОМС",
                                          "Квартал", "Границы",      "Зоны",     "Спецзоны",        "Смежники",
                                          "СтарыеКадНомера", "НовыеКадНомера", "Паспорт"};

// A folder of MIF files (empty ones do) and the result list naming them.
struct Output {
    fs::path fRoot;
    std::string fFolder;  // with its trailing "/"
    std::string fList;
    Output(const std::string& aSub, const std::vector<std::string>& aTables, bool aMifs = true) {
        fRoot = fs::temp_directory_path() / ("tmi" + std::to_string(::getpid()) + "_handover");
        fs::remove_all(fRoot);
        fFolder = (fRoot / aSub).string() + "/";
        fs::create_directories(fFolder);
        fList = (fRoot / "tmMiniImportRes.ini").string();
        std::ofstream list(fList, std::ios::binary);
        for (const std::string& t : aTables) {
            list << fFolder << t << "\n";
            if (aMifs) std::ofstream(fFolder + t + ".mif") << "Version 300\n";
        }
    }
    ~Output() { fs::remove_all(fRoot); }
    [[nodiscard]] std::vector<std::string> Lines() const { return ReadResultList(fList); }
};

struct RecordingMapInfo : TMapInfoAutomation {
    std::vector<std::string> fCalls;
    std::string fFailOn;
    void Do(const std::string& aCommand) override {
        fCalls.push_back("Do:" + aCommand);
        if (!fFailOn.empty() && aCommand.find(fFailOn) != std::string::npos) throw std::runtime_error("MapInfo: " + aCommand);
    }
    std::string Eval(const std::string& aExpression) override { return aExpression; }
    void ApplicationDo(const std::string& aApplication, const std::string& aCommand) override {
        fCalls.push_back(aApplication + ":" + aCommand);
    }
};

struct HostModeGuard {
    uint8_t fSaved = HostMode();
    explicit HostModeGuard(uint8_t aMode) { HostMode() = aMode; }
    ~HostModeGuard() { HostMode() = fSaved; }
};

std::string Join(const std::vector<std::string>& aLines) {
    std::string s;
    for (const auto& l : aLines) s += l + "\n";
    return s;
}

}  // namespace

TEST(HandOver, FinalNamesAddTheBlockToTheListLine) {
    EXPECT_EQ(FinalTableName("/out/Участки", "66_41_0101001"), "/out/Участки_66_41_0101001.tab");
    EXPECT_EQ(FinalTableName("/out/Участки", ""), "/out/Участки_.tab");
}

TEST(HandOver, AxiomaScriptForThirteenTables) {
    Output out("Out", kTables);
    const std::vector<std::string> script = AxiomaScript(out.Lines(), "66_41_0101001", "CoordSys Earth Projection 8, 1001, \"m\", 39, 0, 1, 7500000, 0");
    ASSERT_EQ(script.size(), 3 + 13 * 5u);
    std::string expected =
        "import axipy\n"
        "from axipy.cpp_core_dp import ShadowConverter\n"
        "out_cs = 'CoordSys Earth Projection 8, 1001, \"m\", 39, 0, 1, 7500000, 0'\n";
    for (const std::string& t : kTables) {
        expected += "file_path = \"" + out.fFolder + t + ".mif\"\n";
        expected += "temp_file_path = \"" + out.fFolder + t + "_66_41_0101001.tab\"\n";
        expected +=
            "mif_source = axipy.MifMidDestination(axipy.Schema(),axipy.Source._provider('MifMidDataProvider'),"
            "axipy.Source._table_file(file_path),{'access': 'ro'})\n";
        expected +=
            "tab_dest = axipy.MifMidDestination(axipy.Schema(),axipy.Source._provider('TabDataProvider'),"
            "axipy.Source._table_file(temp_file_path),{'prj': out_cs })\n";
        expected += "ShadowConverter.convertMifToTab(mif_source, tab_dest)\n";
    }
    EXPECT_EQ(Join(script), expected);
}

TEST(HandOver, AxiomaScriptEdgesOfPathsAndBlocks) {
    {
        // Every ".mif" of the path is replaced, the folder's too; the file path keeps it.
        Output out("a.mif.dir", {"Участки"});
        const auto script = AxiomaScript(out.Lines(), "1", "p");
        ASSERT_EQ(script.size(), 8u);
        EXPECT_EQ(script[3], "file_path = \"" + out.fFolder + "Участки.mif\"");
        EXPECT_NE(script[4].find("a_1.tab.dir/Участки_1.tab\""), std::string::npos) << script[4];
    }
    {
        // A quote in the folder is not escaped: the line it lands in is broken.
        Output out("say \"hi\"", {"Точки"});
        const auto script = AxiomaScript(out.Lines(), "", "p");
        EXPECT_EQ(script[3], "file_path = \"" + out.fFolder + "Точки.mif\"");
        EXPECT_NE(script[4].find("Точки_.tab\""), std::string::npos);  // an empty block gives "_.tab"
    }
    {
        // A table without its MIF is passed over; the three first lines stay.
        Output out("Out", {"Участки", "Точки"}, false);
        std::ofstream(out.fFolder + "Точки.mif") << "";
        const auto script = AxiomaScript(out.Lines(), "b", "p");
        ASSERT_EQ(script.size(), 8u);
        EXPECT_NE(script[3].find("Точки.mif"), std::string::npos);
        EXPECT_EQ(AxiomaScript({}, "b", "p").size(), 3u);
    }
    // Backslashes of a path turn into slashes.
    fs::path dir = fs::temp_directory_path() / ("tmi" + std::to_string(::getpid()) + "_back\\slash");
    fs::create_directories(dir);
    std::ofstream(dir / "T.mif") << "";
    const auto script = AxiomaScript({(dir / "T").string()}, "b", "p");
    EXPECT_EQ(script[3].find('\\'), std::string::npos) << script[3];
    fs::remove_all(dir);
}

TEST(HandOver, MapInfoCommandsThroughMiDo) {
    Output out("Out", kTables, false);
    std::ofstream(out.fFolder + "Участки.mif") << "";
    std::ofstream(out.fFolder + "Паспорт.mif") << "";
    HostModeGuard mode(0);
    THostBridge bridge;
    auto mapinfo = std::make_shared<RecordingMapInfo>();
    bridge.MapInfo = mapinfo;
    HandOverToHost(out.fList, "66_41_0101001", "ignored", bridge);
    const std::vector<std::string> expected = {
        "Do:Set ProgressBars Off",
        "Do:Close All Interactive",
        "Do:Import \"" + out.fFolder + "Участки.mif\" Type \"MIF\" Into \"" + out.fFolder + "Участки_66_41_0101001.tab\" Overwrite",
        "Do:Import \"" + out.fFolder + "Паспорт.mif\" Type \"MIF\" Into \"" + out.fFolder + "Паспорт_66_41_0101001.tab\" Overwrite",
    };
    EXPECT_EQ(mapinfo->fCalls, expected);

    // "#" sends a command to the MapBasic application instead.
    RecordingMapInfo direct;
    miDo(direct, "#Refresh");
    miDo(direct, "Note 1");
    EXPECT_EQ(direct.fCalls, (std::vector<std::string>{"miServices.mbx:#Refresh", "Do:Note 1"}));

    // A failing Do raises out of the hand-over, and what came before stays done.
    mapinfo->fCalls.clear();
    mapinfo->fFailOn = "Паспорт";
    EXPECT_THROW(HandOverToHost(out.fList, "b", "", bridge), std::runtime_error);
    EXPECT_EQ(mapinfo->fCalls.size(), 4u);
}

TEST(HandOver, EachHostModeAndNoList) {
    Output out("Out", {"Участки"});
    int scripts = 0;
    std::string program;
    THostBridge bridge;
    bridge.RunScript = [&](const std::string& aProgram) {
        ++scripts;
        program = aProgram;
    };
    auto mapinfo = std::make_shared<RecordingMapInfo>();
    bridge.MapInfo = mapinfo;
    for (uint8_t mode : {1, 2, 4, 5}) {
        HostModeGuard guard(mode);
        HandOverToHost(out.fList, "b", "p", bridge);
    }
    EXPECT_EQ(scripts, 0);
    EXPECT_TRUE(mapinfo->fCalls.empty());
    {
        HostModeGuard guard(3);
        HandOverToHost(out.fList + ".gone", "b", "p", bridge);
        EXPECT_EQ(scripts, 0);
        HandOverToHost(out.fList, "b", "p", bridge);
        EXPECT_EQ(scripts, 1);
        EXPECT_EQ(program, Join(AxiomaScript(out.Lines(), "b", "p")));
        // A host that gives no way to run a script gets nothing.
        HandOverToHost(out.fList, "b", "p", THostBridge{});
        EXPECT_EQ(scripts, 1);
    }
}

// The run hands each file over after its tables are closed, with the job's block and the
// console's clause; an error of the host ends the run.
TEST(HandOver, RunImportHandsOverAfterEachFile) {
    const fs::path root = fs::temp_directory_path() / ("tmi" + std::to_string(::getpid()) + "_handover_run");
    fs::remove_all(root);
    fs::create_directories(root / "out");
    setenv("XDG_DOCUMENTS_DIR", root.c_str(), 1);
    HostModeGuard mode(3);
    TImportChoices choices;
    choices.XMLText = TM_SAMPLE;
    choices.MiText = (root / "out").string() + "/";
    TcsProgress progress;
    std::vector<std::string> programs;
    THostBridge bridge;
    bridge.RunScript = [&](const std::string& aProgram) {
        // The tables are complete by now: every MIF the script names is on disk with its MID.
        for (const auto& e : fs::directory_iterator(root / "out"))
            if (e.path().extension() == ".mif") {
                EXPECT_TRUE(fs::exists(fs::path(e.path()).replace_extension(".mid")));
            }
        programs.push_back(aProgram);
    };
    RunImport(choices, progress, [](TImportMessageLevel, const std::string&) {}, {}, bridge);
    ASSERT_EQ(programs.size(), 1u);
    EXPECT_NE(programs[0].find("Участки_77_01_0001001.tab\""), std::string::npos) << programs[0].substr(0, 400);
    EXPECT_NE(programs[0].find("out_cs = '" + choices.ProjText + "'"), std::string::npos);

    bridge.RunScript = [](const std::string&) { throw std::runtime_error("SyntaxError: broken"); };
    EXPECT_THROW(RunImport(choices, progress, [](TImportMessageLevel, const std::string&) {}, {}, bridge), std::runtime_error);
    unsetenv("XDG_DOCUMENTS_DIR");
    fs::remove_all(root);
}

// The hidden test button's table, written directly and read back by GDAL.
TEST(HandOver, TestTableOfTheHiddenButton) {
    const fs::path root = fs::temp_directory_path() / ("tmi" + std::to_string(::getpid()) + "_testtab");
    fs::remove_all(root);
    fs::create_directories(root / "TestQGIS");
    setenv("TMPDIR", root.c_str(), 1);
    EXPECT_EQ(TestTablePath(), root.string() + "/TestQGIS/a1.tab");
    const std::string path = TestTablePath();
    unsetenv("TMPDIR");
    std::string report;
    try {
        WriteTestTable(path, "CoordSys NonEarth Units \"m\" Bounds (0.00,0.00) (1000.00,1000.00)", 0, 0, 1000, 1000);
        FILE* p = popen(("ogrinfo -ro -al '" + path + "' 2>&1").c_str(), "r");
        ASSERT_NE(p, nullptr);
        char buf[4096];
        while (size_t n = fread(buf, 1, sizeof buf, p)) report.append(buf, n);
        pclose(p);
    } catch (const std::exception& e) {
        if (std::getenv("CI")) FAIL() << e.what();
        GTEST_SKIP() << e.what();
    }
    for (const char* text : {"Feature Count: 3", "Id: Integer", "Name: String (50.0)", "POLYGON ((10 10,10 30,30 30,30 10,10 10))",
                             "POLYGON ((40 10,40 40,70 40,70 10,40 10),(50 20,50 30,60 30,60 20,50 20))", "POINT (105 45)",
                             "Name (String) = Квадрат"})
        EXPECT_NE(report.find(text), std::string::npos) << text << "\n" << report;
    fs::remove_all(root);
}
