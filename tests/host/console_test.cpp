// The console's workflow without widgets: the mask matcher, the batch walk, messages,
// failures per file, the output folder, and the command line.
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <algorithm>
#include <filesystem>
#include <fstream>

#include "PlanImportXML.h"

using namespace tmi;
namespace fs = std::filesystem;

namespace {

struct Folder {
    fs::path fPath;
    explicit Folder(const std::string& aName) : fPath(fs::temp_directory_path() / ("tmi" + std::to_string(::getpid()) + "_console_" + aName)) {
        fs::remove_all(fPath);
        fs::create_directories(fPath);
        setenv("XDG_DOCUMENTS_DIR", fPath.c_str(), 1);
    }
    ~Folder() {
        unsetenv("XDG_DOCUMENTS_DIR");
        fs::remove_all(fPath);
    }
    std::string Write(const std::string& aName, const std::string& aText) const {
        fs::create_directories((fPath / aName).parent_path());
        std::ofstream(fPath / aName, std::ios::binary) << aText;
        return (fPath / aName).string();
    }
};

// What the run told, less the notices of missing classifiers (the tests give no schemas).
struct Messages {
    std::vector<std::string> fLines;
    int fClassifierNotices = 0;
    TImportReporter Reporter() {
        return [this](TImportMessageLevel aLevel, const std::string& aText) {
            if (aText.rfind("Не найден классификатор", 0) == 0) {
                ++fClassifierNotices;
                return;
            }
            fLines.push_back((aLevel == TImportMessageLevel::Info ? "I:" : aLevel == TImportMessageLevel::Warning ? "W:" : "E:") + aText);
        };
    }
};

int Mifs(const fs::path& aFolder) {
    int n = 0;
    for (const auto& e : fs::recursive_directory_iterator(aFolder)) n += e.path().extension() == ".mif";
    return n;
}

}  // namespace

TEST(ConsoleMask, TheProgramsOwnMatcher) {
    EXPECT_TRUE(MatchesMask("doc.xml", "*.xml"));
    EXPECT_TRUE(MatchesMask("DOC.XML", "*.xml"));
    EXPECT_TRUE(MatchesMask("a.xml.bak", "*.xml"));  // what is left of the name is not looked at
    EXPECT_FALSE(MatchesMask("doc.txt", "*.xml"));
    EXPECT_TRUE(MatchesMask("t.mif", "*.mi*"));
    EXPECT_TRUE(MatchesMask("t.mid", "*.mi*"));
    EXPECT_FALSE(MatchesMask("t.tab", "*.mi*"));
    EXPECT_TRUE(MatchesMask("ab", "a?"));
    EXPECT_FALSE(MatchesMask("", "a"));
}

TEST(ConsoleRun, SingleFileMessagesAndErrors) {
    Folder f("single");
    Messages m;
    TcsProgress progress;
    TImportChoices choices;
    choices.XMLText = f.Write("in/doc.xml", "<KPT/>");
    choices.MiText = (f.fPath / "out" / "deep").string();  // made with its parents
    TImportOutcome outcome = RunImport(choices, progress, m.Reporter());
    EXPECT_EQ(outcome.fFailed, 0);
    EXPECT_EQ(m.fLines, (std::vector<std::string>{"I:Импорт успешно завершен."}));
    EXPECT_EQ(m.fClassifierNotices, 15);  // once per missing dictionary file
    EXPECT_EQ(Mifs(f.fPath / "out"), 13);

    // A file without a root: the error message, with empty brackets, then the success one.
    Messages bad;
    choices.XMLText = f.Write("in/bad.xml", "");
    RunImport(choices, progress, bad.Reporter());
    EXPECT_EQ(bad.fLines, (std::vector<std::string>{"E:Импорт завершен с ошибками ().", "I:Импорт успешно завершен."}));
}

TEST(ConsoleRun, BatchGoesOnPastFailingFiles) {
    Folder f("batch");
    f.Write("in/a.xml", "<KPT/>");
    f.Write("in/sub/b.xml", "<extract_about_zone/>");
    f.Write("in/sub/c.xml", "<Region_Cadastr CodeType=\"abc\"/>");  // raises
    f.Write("in/d.xml", "no xml");
    f.Write("in/notes.txt", "<KPT/>");
    Messages m;
    TcsProgress progress;
    TImportChoices choices;
    choices.chkPacket = true;
    choices.XMLText = (f.fPath / "in" / "a.xml").string();
    choices.MiText = (f.fPath / "out").string();
    const TImportOutcome outcome = RunImport(choices, progress, m.Reporter());
    EXPECT_EQ(outcome.fFiles, 4);
    EXPECT_EQ(outcome.fFailed, 2);
    ASSERT_EQ(m.fLines.size(), 2u);
    EXPECT_NE(m.fLines[0].find("E:"), std::string::npos);
    EXPECT_EQ(m.fClassifierNotices, 15);  // every job loads the dictionaries; each gap is told once
    EXPECT_EQ(Mifs(f.fPath / "out"), 13);  // every file writes the same thirteen names
}

TEST(ConsoleRun, AFolderThatCannotBeMade) {
    Folder f("nofolder");
    f.Write("file", "x");
    TcsProgress progress;
    TImportChoices choices;
    choices.XMLText = f.Write("doc.xml", "<KPT/>");
    choices.MiText = (f.fPath / "file" / "sub").string();
    Messages m;
    try {
        RunImport(choices, progress, m.Reporter());
        FAIL();
    } catch (const Exception& e) {
        EXPECT_EQ(std::string(e.what()).rfind("Ошибка при создании папки " + choices.MiText + ".\n\n", 0), 0u) << e.what();
    }
}

TEST(ConsoleRun, BoundsCarryToTheNextFile) {
    Folder f("bounds");
    TcsProgress progress;
    TImportChoices choices;
    choices.chkBounds = true;
    choices.XMLText = f.Write("doc.xml", "<KPT/>");
    choices.MiText = (f.fPath / "out").string();
    Messages m;
    RunImport(choices, progress, m.Reporter());
    EXPECT_EQ(choices.ProjText, "CoordSys NonEarth Units \"m\" Bounds (0.00,0.00) (0.00,0.00)");
}

TEST(CommandLine, ExitStatusesAndOutput) {
    Folder f("cli");
    const std::string bin = TM_TMIMPORT;
    const std::string doc = f.Write("doc.xml", "<extract_cadastral_plan_territory/>");
    const std::string out = (f.fPath / "out").string();
    EXPECT_EQ(std::system((bin + " '" + doc + "' -o '" + out + "' -q").c_str()), 0);
    EXPECT_EQ(Mifs(out), 13);
    std::ifstream list(f.fPath / "tmMiniImportRes.ini");
    std::string first;
    std::getline(list, first);
    EXPECT_EQ(first, out + "/Участки");
    EXPECT_EQ(WEXITSTATUS(std::system((bin + " '" + (f.fPath / "none.xml").string() + "' -o '" + out + "' -q 2>/dev/null").c_str())), 1);
    EXPECT_EQ(WEXITSTATUS(std::system((bin + " --bogus 2>/dev/null").c_str())), 2);
    EXPECT_EQ(WEXITSTATUS(std::system((bin + " 2>/dev/null").c_str())), 2);
    EXPECT_EQ(WEXITSTATUS(std::system((bin + " '" + f.fPath.string() + "' -q 2>/dev/null").c_str())), 2);
}

TEST(CommandLine, PointsOfListedNumbersOnly) {
    Folder f("listed");
    auto record = [](const std::string& aNumber, int aX) {
        const std::string x = std::to_string(aX), x2 = std::to_string(aX + 10);
        return "<land_record><object><common_data><cad_number>" + aNumber + "</cad_number></common_data></object>"
               "<contours_location><contours><contour><entity_spatial><spatials_elements><spatial_element><ordinates>"
               "<ordinate><x>" + x + "</x><y>0</y></ordinate><ordinate><x>" + x2 + "</x><y>0</y></ordinate>"
               "<ordinate><x>" + x2 + "</x><y>10</y></ordinate><ordinate><x>" + x + "</x><y>0</y></ordinate>"
               "</ordinates></spatial_element></spatials_elements></entity_spatial></contour></contours></contours_location>"
               "</land_record>";
    };
    const std::string doc = f.Write("plan.xml", "<extract_cadastral_plan_territory><cadastral_blocks><cadastral_block>"
                                                "<cadastral_number>1:1:1</cadastral_number><record_data><base_data><land_records>" +
                                                    record("1:1:1:1", 0) + record("1:1:1:2", 100) +
                                                    "</land_records></base_data></record_data></cadastral_block>"
                                                    "</cadastral_blocks></extract_cadastral_plan_territory>");
    const std::string out = (f.fPath / "out").string();
    const std::string bin = TM_TMIMPORT;
    ASSERT_EQ(std::system((bin + " '" + doc + "' -o '" + out + "' -q --points listed --number 1:1:1:2 2>/dev/null").c_str()), 0);
    auto lines = [&](const char* aTable) {
        std::ifstream in(fs::path(out) / aTable, std::ios::binary);
        std::string s((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
        return std::count(s.begin(), s.end(), '\n');
    };
    EXPECT_EQ(lines("Участки.mid"), 1);
    EXPECT_EQ(lines("Точки.mid"), 4);
    std::ifstream points(fs::path(out) / "Точки.mid");
    std::string first;
    std::getline(points, first);
    EXPECT_NE(first.find("\"1:1:1:2\""), std::string::npos) << first;
}
