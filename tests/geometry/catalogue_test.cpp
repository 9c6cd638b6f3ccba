// The projection catalogue: the reader's edge cases, the two-level choice without widgets,
// the bounds rule, the search for the catalogue, and our own catalogue entry by entry.
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "code_pages.h"
#include "csGeometryCoordSysCore.h"
#include "csMapInfoChooseProjection.h"
#include "csSetting.h"

using namespace tmi;
namespace fs = std::filesystem;

namespace {

class Catalogue : public ::testing::Test {
protected:
    void SetUp() override {
        fRoot = fs::temp_directory_path() /
                ("tmi" + std::to_string(::getpid()) + "_prj_" + ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(fRoot);
        fs::create_directories(fRoot);
    }
    void TearDown() override { fs::remove_all(fRoot); }
    std::string Write(const std::string& aName, const std::string& aBytes) {
        const fs::path p = fRoot / aName;
        std::ofstream(p, std::ios::binary) << aBytes;
        return p.string();
    }
    fs::path fRoot;
};

const char* kText =
    "\"Lines before the first category\", 1, 104\n"
    "\"--- План-схема ---\"\n"
    "\"План-схема (метры)\", 0, 7\n"
    "\n"
    "\"--- Долгота / Широта ---\"\r\n"
    "  \"WGS 84, \"\"долгота\"\", широта\" , 1, 104  \r\n"
    "no comma here\n"
    "\"--- долгота / широта ---\"\n"
    "\"Second of the same name\", 1, 1001\n"
    "\"--- МСК-26 ---\"\n"
    "\"МСК-26 зона 2\", 8, 9999, 3, 24, -123, -94, -0.02, 0.25, 0.13, 1.1, 0, 7, 43.98333333333, 0, 1, 2300000, -4511057.63\n";

}  // namespace

TEST_F(Catalogue, LinesCategoriesAndEncodings) {
    // The same catalogue in UTF-8 and in Windows-1251 reads alike.
    for (const std::string& file : {Write("utf8.prj", kText), Write("cp1251.prj", xml::UTF8ToWindows1251(kText))}) {
        const TcsProjectionCatalog catalogue(file);
        EXPECT_EQ(catalogue.Categories(),
                  (std::vector<std::string>{"План-схема", "Долгота / Широта", "долгота / широта", "МСК-26"}));
        const auto plan = catalogue.Entries("ПЛАН-СХЕМА");  // names compare without case
        ASSERT_EQ(plan.size(), 2u);                         // the empty line is an empty entry
        EXPECT_EQ(plan[0].Name, "План-схема (метры)");
        EXPECT_EQ(plan[0].Clause, "0, 7");
        EXPECT_EQ(plan[1].Name, "");
        // Two categories of one name: the first one's lines.
        const auto ll = catalogue.Entries("долгота / широта");
        ASSERT_EQ(ll.size(), 2u);
        EXPECT_EQ(ll[0].Name, "WGS 84, \"\"долгота\"\", широта");  // the comma inside quotes stays
        EXPECT_EQ(ll[0].Clause, "1, 104");
        EXPECT_EQ(ll[1].Name, "no comma here");
        EXPECT_EQ(ll[1].Clause, "no comma here");
        EXPECT_EQ(catalogue.Entries("МСК-26").at(0).Name, "МСК-26 зона 2");
        EXPECT_TRUE(catalogue.Entries("absent").empty());
        EXPECT_EQ(catalogue.FindByName("мск-26 ЗОНА 2").size(), 1u);
        EXPECT_EQ(catalogue.Filter("зона").size(), 1u);
        EXPECT_EQ(catalogue.Filter("широта").size(), 3u);  // by category or by name
    }
    std::string name;
    EXPECT_TRUE(TcsProjectionCatalog::IsCategoryLine("x \"---  A b ---\" y", name));
    EXPECT_EQ(name, "A b");
    EXPECT_FALSE(TcsProjectionCatalog::IsCategoryLine("---\" \"--- no", name));
    EXPECT_FALSE(TcsProjectionCatalog::IsCategoryLine("\"---\"", name));  // the close must follow the open
    EXPECT_EQ(TcsProjectionCatalog::SplitProjectionLine("\"a\"b\", 1").Name, "\"a\"b\", 1");  // an odd quote hides the comma

    // Missing, empty, without categories, a folder.
    try {
        TcsProjectionCatalog((fRoot / "none.prj").string());
        FAIL();
    } catch (const EcsChooseProjection& e) {
        EXPECT_EQ(std::string(e.what()), "Файл проекций \"" + (fRoot / "none.prj").string() + "\" не существует");
    }
    EXPECT_THROW(TcsProjectionCatalog(fRoot.string()), EcsChooseProjection);
    EXPECT_TRUE(TcsProjectionCatalog(Write("empty.prj", "")).Categories().empty());
    EXPECT_TRUE(TcsProjectionCatalog(Write("none.prj", "\"a\", 1, 104\n\"b\", 0, 7")).AllEntries().empty());
    // A line of 10 MB, binary bytes and a NUL: read through, one entry.
    std::string big = "\"--- big ---\"\n\"";
    big.append(10 << 20, 'x');
    big += "\", 1, 104\n\"\x01\xff\x00\xfe\", 0\n";
    const auto entries = TcsProjectionCatalog(Write("big.prj", big)).Entries("big");
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].Name.size(), 10u << 20);
    EXPECT_EQ(entries[0].Clause, "1, 104");
}

TEST_F(Catalogue, TheChoiceWithoutWidgets) {
    const std::string file = Write("choice.prj", kText);
    TcsChooseProjectionModel model;
    EXPECT_THROW(model.Load((fRoot / "missing.prj").string()), EcsChooseProjection);
    model.Load(file);
    ASSERT_EQ(model.Categories().size(), 4u);
    EXPECT_EQ(model.CategoryIndex(), 0);
    EXPECT_EQ(model.Projections().size(), 2u);
    EXPECT_FALSE(model.OKEnabled());
    EXPECT_EQ(model.Clause(), "");
    model.SelectProjection(0);
    EXPECT_TRUE(model.OKEnabled());
    EXPECT_EQ(model.Projection(), "План-схема (метры)");
    EXPECT_FALSE(IsEarthClause(model.Clause()));
    // Another category refills the list in step with its clauses; OK waits for a pick again.
    model.SelectCategory(3);
    EXPECT_FALSE(model.OKEnabled());
    ASSERT_EQ(model.Projections().size(), model.Clauses().size());
    model.SelectProjection(0);
    EXPECT_EQ(model.Category(), "МСК-26");
    EXPECT_TRUE(IsEarthClause(model.Clause()));
    model.SelectCategory(2);  // the second "долгота / широта" shows the first one's lines
    EXPECT_EQ(model.Projections().at(0), "WGS 84, \"\"долгота\"\", широта");
    model.SelectProjection(7);  // no such line: nothing selected, OK as it was
    EXPECT_EQ(model.Projection(), "");
    // A catalogue without categories: nothing to pick, OK never enabled.
    TcsChooseProjectionModel empty;
    empty.Load(Write("nocat.prj", "\"a\", 1, 104\n"));
    EXPECT_EQ(empty.CategoryIndex(), -1);
    empty.SelectProjection(0);
    EXPECT_FALSE(empty.OKEnabled());
    // A manager's categories and systems instead of the file's.
    TcsCoordSystemManager manager(nullptr, true);
    TcsChooseProjectionModel fromManager;
    fromManager.SetCoordSysManager(&manager);
    fromManager.Load("");
    ASSERT_FALSE(fromManager.Categories().empty());
    EXPECT_EQ(fromManager.Categories()[0], "План схема");
    fromManager.SelectProjection(0);
    EXPECT_EQ(fromManager.Clause(), "0, 7");

    EXPECT_TRUE(IsEarthClause("8, 104"));
    EXPECT_FALSE(IsEarthClause(" 0 , 7"));
    EXPECT_FALSE(IsEarthClause(""));
    TProjectionBounds zero;
    PrepareProjectionBounds(zero);
    EXPECT_EQ(zero.XMax, 100000);
    EXPECT_EQ(zero.YMax, 100000);
    EXPECT_EQ(zero.XMin, 0);
    TProjectionBounds set{0, 0, 0, 5};
    PrepareProjectionBounds(set);
    EXPECT_EQ(set.XMax, 0);  // only four zeros are replaced
    EXPECT_EQ(CoordSysLineOfClause("8, 104, 7, 39, 0, 0.9996, 500000, 0", set),
              "CoordSys Earth Projection 8, 104, 7, 39, 0, 0.9996, 500000, 0");
    EXPECT_EQ(CoordSysLineOfClause("0, 7", zero), "CoordSys NonEarth Units \"m\" Bounds (0.00,0.00) (100000.00,100000.00)");
}

TEST_F(Catalogue, SearchWhenNoFileIsNamed) {
    GlobalSettings().Delete("MapInfo", "ProjFilePath");
    const fs::path without = fRoot / "empty", with = fRoot / "mapinfo";
    fs::create_directories(without);
    fs::create_directories(with);
    std::ofstream(with / "MapInfow.prj") << kText;
    // Asked until a folder holds the file; the folder without it gets the message.
    std::vector<std::string> answers{without.string(), with.string()}, messages;
    size_t asked = 0;
    const std::string found = FindProjectionCatalogue([&] { return asked < answers.size() ? answers[asked++] : std::string(); },
                                                      [&](const std::string& aText) { messages.push_back(aText); });
    EXPECT_EQ(found, (with / "MapInfow.prj").string());
    EXPECT_EQ(messages, std::vector<std::string>{"Не найден файл проекций MapInfo."});
    EXPECT_EQ(GlobalSettings().ReadString("MapInfo", "ProjFilePath", ""), with.string());
    // The kept folder answers without asking; cancelled asking gives nothing.
    EXPECT_EQ(FindProjectionCatalogue([] { return std::string("never"); }, nullptr), found);
    GlobalSettings().Delete("MapInfo", "ProjFilePath");
    EXPECT_EQ(FindProjectionCatalogue([] { return std::string(); }, nullptr), "");
    EXPECT_EQ(FindProjectionCatalogue(nullptr, nullptr), "");
}

// The catalogue the build writes: the categories people look for, every entry a valid
// clause, every name once.
TEST(OurCatalogue, EveryEntryParsesAndNamesAreUnique) {
    const TcsProjectionCatalog catalogue(DefaultProjectionCatalogue(TM_BIN_DIR));
    const auto categories = catalogue.Categories();
    for (const char* wanted : {"План-схема", "Долгота / Широта", "Гаусс-Крюгер (Пулково 1942)", "UTM (WGS 84), северное полушарие",
                               "МСК-26 Ставропольский край", "МСК-21 Чувашская Республика", "МСК-77 г. Москва"})
        EXPECT_NE(std::find(categories.begin(), categories.end(), wanted), categories.end()) << wanted;
    std::set<std::string> names;
    int earth = 0, gk = 0, utm = 0;
    for (const auto& e : catalogue.AllEntries()) {
        EXPECT_TRUE(names.insert(e.Entry.Name).second) << e.Entry.Name;
        TcsCoordSystem cs;
        cs.SetMapinfo(e.Entry.Clause);
        EXPECT_TRUE(cs.IsValid()) << e.Entry.Name;
        EXPECT_NE(cs.Datum(), csdNone) << e.Entry.Name;
        if (!IsEarthClause(e.Entry.Clause)) continue;
        ++earth;
        EXPECT_FALSE(cs.Proj4().empty()) << e.Entry.Name;
        if (e.Category == "Гаусс-Крюгер (Пулково 1942)") ++gk;
        if (e.Category.rfind("UTM", 0) == 0) ++utm;
        if (e.Category.rfind("МСК-", 0) == 0) {
            EXPECT_EQ(cs.Datum(), csdCustom) << e.Entry.Name;
            EXPECT_EQ(cs.MerkParams()->Scale, 1) << e.Entry.Name;
        }
    }
    EXPECT_EQ(gk, 32);
    EXPECT_EQ(utm, 30);
    EXPECT_GT(earth, 350);
    // The Windows build looks in Apps, the 64-bit one in Apps64: the same catalogue.
    EXPECT_EQ(TcsProjectionCatalog::ReadLines(DefaultProjectionCatalogue(TM_BIN_DIR)),
              TcsProjectionCatalog::ReadLines(std::string(TM_BIN_DIR) + "/Apps64/MapInfow.prj"));
}
