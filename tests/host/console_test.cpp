// The console's workflow without widgets: the mask matcher, the batch walk, messages,
// failures per file, the output folder, and the command line.
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

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
            if (aLevel == TImportMessageLevel::Notice) {
                EXPECT_EQ(aText.rfind("Не найден классификатор \"", 0), 0u) << aText;
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
    EXPECT_EQ(m.fClassifierNotices, 4 * 15);  // every job loads the dictionaries and tells each gap
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

namespace {

// A run of the command line: its exit status, what it printed, and its lines on stderr less
// the one about missing dictionaries.
struct Cli {
    int fStatus = 0;
    std::string fOut;
    std::vector<std::string> fErr;
    std::string fDictionaries;
};

Cli RunCli(const Folder& aFolder, const std::string& aArgs) {
    const fs::path out = aFolder.fPath / "cli.out", err = aFolder.fPath / "cli.err";
    Cli r;
    r.fStatus = WEXITSTATUS(std::system((std::string(TM_TMIMPORT) + " " + aArgs + " >'" + out.string() + "' 2>'" + err.string() + "'").c_str()));
    std::ifstream o(out);
    r.fOut.assign(std::istreambuf_iterator<char>(o), std::istreambuf_iterator<char>());
    std::ifstream e(err);
    for (std::string line; std::getline(e, line);) {
        if (line.find("classifier dictionaries not found") != std::string::npos)
            r.fDictionaries = line;
        else
            r.fErr.push_back(line);
    }
    return r;
}

std::string Q(const std::string& aPath) { return "'" + aPath + "'"; }

}  // namespace

// Each way a file can fail gives one line that names the file and says why, and no success.
TEST(CommandLine, EachFailureIsToldByItsReason) {
    Folder f("reasons");
    const std::string out = Q((f.fPath / "out").string());
    const struct {
        std::string fFile;
        std::string fReason;
    } cases[] = {
        {(f.fPath / "gone.xml").string(), "no such file"},
        {f.Write("empty.xml", ""), "the file is empty"},
        {f.Write("broken.xml", "<a>\n  <b></a>"), "not XML: Trying to close wrong element. Close=\"a\", open element=\"b\". (line 2, column 6)"},
        {f.Write("binary.xml", std::string("\x01\x02\x00\x7f", 4)), "not XML: "},
        {f.Write("decl.xml", "<?xml version=\"1.0\"?>"), "no root element"},
        {f.Write("other.xml", "<invoice><total>5</total></invoice>"), "no reader takes this kind of document (root <invoice>); its tables are empty"},
        {f.Write("kvoks.xml", "<KVOKS><eDocument CodeType=\"215\"/></KVOKS>"),
         "no reader takes this kind of document (root <KVOKS>, document code 215); its tables are empty"},
    };
    for (const auto& c : cases) {
        const Cli r = RunCli(f, Q(c.fFile) + " -o " + out);
        EXPECT_EQ(r.fStatus, 1) << c.fFile;
        ASSERT_EQ(r.fErr.size(), 1u) << c.fFile;
        EXPECT_EQ(r.fErr[0].rfind("tmimport: " + c.fFile + ": " + c.fReason, 0), 0u) << r.fErr[0];
        EXPECT_EQ(r.fOut.find("Импорт успешно завершен."), std::string::npos) << c.fFile;
    }
    // A classic document whose code is not a plan's is read up to its eDocument: told, not failed.
    const Cli partial = RunCli(f, Q(f.Write("kvzu.xml", "<KVZU><Parcels><Parcel CadastralNumber=\"1:1:1:1\"/></Parcels>"
                                                       "<eDocument CodeType=\"112\"/></KVZU>")) + " -o " + out);
    EXPECT_EQ(partial.fStatus, 0);
    ASSERT_EQ(partial.fErr.size(), 1u);
    EXPECT_NE(partial.fErr[0].find("kvzu.xml: reading stopped at its eDocument, whose code 112 is not one of a plan of territory"),
              std::string::npos) << partial.fErr[0];
    if (::geteuid() != 0) {  // the super-user reads whatever the permissions say
        const std::string locked = f.Write("locked.xml", "<KPT/>");
        fs::permissions(locked, fs::perms::none);
        const Cli r = RunCli(f, Q(locked) + " -o " + out);
        EXPECT_EQ(r.fStatus, 1);
        ASSERT_EQ(r.fErr.size(), 1u);
        EXPECT_EQ(r.fErr[0], "tmimport: " + locked + ": cannot be read: Permission denied");
    }
    // In a batch the run goes on: one line a failed file, the summary counts them all.
    f.Write("batch/a.xml", "<KPT/>");
    f.Write("batch/b.xml", "");
    const Cli batch = RunCli(f, "--batch " + Q((f.fPath / "batch").string()) + " -o " + out);
    EXPECT_EQ(batch.fStatus, 1);
    ASSERT_EQ(batch.fErr.size(), 1u);
    EXPECT_NE(batch.fErr[0].find("b.xml: the file is empty"), std::string::npos);
    EXPECT_EQ(batch.fOut.rfind("2 files, 13 tables written, 0 rows of \"Участки\", ", 0), 0u) << batch.fOut;
}

// Missing dictionaries are one line a run, however many files; --verbose names them.
TEST(CommandLine, MissingDictionariesAreOneLine) {
    Folder f("dictionaries");
    fs::create_directories(f.fPath / "empty");
    for (int i = 0; i < 3; ++i) f.Write("in/" + std::to_string(i) + ".xml", "<KPT/>");
    const std::string args = "--batch " + Q((f.fPath / "in").string()) + " -o " + Q((f.fPath / "out").string());
    const Cli none = RunCli(f, args + " --xsd " + Q((f.fPath / "empty").string()));
    EXPECT_EQ(none.fStatus, 0);
    EXPECT_EQ(none.fDictionaries, "tmimport: 15 of 15 classifier dictionaries not found in " + (f.fPath / "empty").string() +
                                      "; their codes stay codes (--verbose names them)");
    EXPECT_TRUE(none.fErr.empty()) << none.fErr[0];
    const Cli verbose = RunCli(f, args + " -v --xsd " + Q((f.fPath / "empty").string()));
    ASSERT_EQ(verbose.fErr.size(), 15u);
    EXPECT_EQ(verbose.fErr[0], "tmimport:   " + (f.fPath / "empty").string() + "/KPT_v09/SchemaCommon/dRealty_v02.xsd");
    // The dictionaries beside the program: only those no package publishes are missing, and
    // no notice of the console's kind is printed.
    const Cli shipped = RunCli(f, args);
    EXPECT_NE(shipped.fDictionaries.find("4 of 15 classifier dictionaries not found in "), std::string::npos) << shipped.fDictionaries;
    EXPECT_TRUE(shipped.fErr.empty());
    EXPECT_EQ(shipped.fOut.find("Не найден классификатор"), std::string::npos);
}

TEST(CommandLine, VersionAndSummary) {
    Folder f("summary");
    const Cli version = RunCli(f, "--version");
    EXPECT_EQ(version.fStatus, 0);
    EXPECT_EQ(version.fOut, "tmimport (Террамир Мини, импорт XML) 2.0 (сборка 22), дата выпуска 2025.07.08\n");
    const Cli run = RunCli(f, Q(std::string(TM_SAMPLE)) + " -o " + Q((f.fPath / "out").string()));
    EXPECT_EQ(run.fStatus, 0);
    std::istringstream lines(run.fOut);
    std::vector<std::string> out;
    for (std::string line; std::getline(lines, line);) out.push_back(line);
    ASSERT_EQ(out.size(), 5u) << run.fOut;
    EXPECT_EQ(out[0], "Импорт успешно завершен.");
    EXPECT_EQ(out[1].rfind("1 file, 13 tables written, 2 rows of \"Участки\", ", 0), 0u) << out[1];
    EXPECT_EQ(out[1].substr(out[1].size() - 2), " s");
    EXPECT_EQ((std::vector<std::string>(out.begin() + 2, out.end())),
              (std::vector<std::string>{"  Участки: 2", "  Квартал: 1", "  Паспорт: 1"}));
    // The dictionaries beside the program turn codes into words.
    std::ifstream mid(f.fPath / "out" / "Участки.mid", std::ios::binary);
    const std::string rows((std::istreambuf_iterator<char>(mid)), std::istreambuf_iterator<char>());
    EXPECT_NE(rows.find("\"\xc7\xe5\xec\xeb\xe8"), std::string::npos);  // "Земли..." in Windows-1251
    const Cli quiet = RunCli(f, Q(std::string(TM_SAMPLE)) + " -o " + Q((f.fPath / "out").string()) + " -q");
    EXPECT_EQ(quiet.fOut, "");
}

// TAB tables without a host: named after the block, beside the MIF files or instead of them.
TEST(CommandLine, TableFormats) {
    Folder f("formats");
    const std::string both = (f.fPath / "both").string(), tab = (f.fPath / "tab").string();
    Cli r = RunCli(f, Q(TM_SAMPLE) + " -o " + Q(both) + " -q --format both");
    ASSERT_EQ(r.fStatus, 0) << (r.fErr.empty() ? "" : r.fErr[0]);
    EXPECT_TRUE(fs::exists(both + "/Участки.mif"));
    EXPECT_TRUE(fs::exists(both + "/Участки_77_01_0001001.tab"));
    EXPECT_TRUE(fs::exists(both + "/Участки_77_01_0001001.dat"));
    EXPECT_FALSE(fs::exists(both + "/Участки.tab"));
    r = RunCli(f, Q(TM_SAMPLE) + " -o " + Q(tab) + " -q --format tab");
    ASSERT_EQ(r.fStatus, 0);
    int tabs = 0, mifs = 0;
    for (const auto& e : fs::directory_iterator(tab)) {
        tabs += e.path().extension() == ".tab";
        mifs += e.path().extension() == ".mif" || e.path().extension() == ".mid";
    }
    EXPECT_EQ(tabs, 13);
    EXPECT_EQ(mifs, 0);
    EXPECT_EQ(RunCli(f, Q(TM_SAMPLE) + " --format shp").fStatus, 2);
}
