// The settings store and its INI file.
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "csSetting.h"

using namespace tmi;

namespace {

std::string TempPath(const std::string& aName) {
    return (std::filesystem::temp_directory_path() / ("tmi" + std::to_string(::getpid()) + "_settings_" + aName)).string();
}

std::string ReadAll(const std::string& aPath) {
    std::ifstream in(aPath);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

}  // namespace

TEST(IniFile, SectionsAndKeysIgnoreCase) {
    TcsIniFile ini;
    ini.LoadFromString("\xEF\xBB\xBF; comment\n[Main]\nPath=/tmp/a b\nCount = 12\n[Другая]\nКлюч=Значение\n");
    EXPECT_EQ(ini.ReadString("main", "PATH", ""), "/tmp/a b");
    EXPECT_EQ(ini.ReadInteger("MAIN", "count", 0), 12);
    EXPECT_EQ(ini.ReadString("другая", "ключ", ""), "Значение");
    EXPECT_EQ(ini.ReadString("Main", "absent", "dflt"), "dflt");
    ini.WriteBool("Main", "Flag", true);
    ini.DeleteKey("main", "path");
    EXPECT_FALSE(ini.ValueExists("Main", "Path"));
    EXPECT_EQ(ini.ToString(), "[Main]\nCount=12\nFlag=1\n\n[Другая]\nКлюч=Значение\n");
}

TEST(Settings, AddFindAndTheModifiedRule) {
    TcsSettings s;
    EXPECT_EQ(s.DefaultSection(), "Common");
    TcsSetting* a = s.Add("Width", TcsVariant(10));
    EXPECT_FALSE(a->Modified());
    s.Add("width", TcsVariant(10));
    EXPECT_FALSE(a->Modified());  // equal values leave it as it is
    s.Add("WIDTH", TcsVariant(11));
    EXPECT_TRUE(a->Modified());
    EXPECT_EQ(s.ReadInteger("Width", 0), 11);
    EXPECT_EQ(s.Find("", "width"), a);  // an empty section matches any
    EXPECT_EQ(s.Find("Other", "width"), nullptr);
    EXPECT_FALSE(s.Modified("nothing"));
    EXPECT_TRUE(s.GetValues("Common", "nothing").IsEmpty());
    s.SetValues("Common", "nothing", TcsVariant("x"));
    EXPECT_TRUE(s.Exists("nothing"));
}

TEST(Settings, BooleanTakesZeroAsFalseAndAnythingElseAsTrue) {
    TcsSettings s;
    s.Add("Flag", TcsVariant(true));
    s.Add("Flag", TcsVariant(0));
    EXPECT_FALSE(s.ReadBoolean("Flag", true));
    s.Add("Flag", TcsVariant("yes"));
    EXPECT_TRUE(s.ReadBoolean("Flag", false));
    s.Add("Flag", TcsVariant("0"));
    EXPECT_FALSE(s.ReadBoolean("Flag", true));
    EXPECT_EQ(s.Find("Flag")->Value.Type(), TcsVarType::Boolean);
}

TEST(Settings, ReadsFallBackToTheDefault) {
    TcsSettings s;
    s.Add("Num", TcsVariant("12a"));
    EXPECT_EQ(s.ReadInteger("Num", 7), 7);
    EXPECT_EQ(s.ReadString("Absent", "d"), "d");
    s.CheckInteger("Absent", 1, 50, 100);
    EXPECT_FALSE(s.Exists("Absent"));  // an absent one stays absent
    s.Add("Big", TcsVariant("500"));
    s.CheckInteger("Big", 1, 50, 100);
    EXPECT_EQ(s.ReadInteger("Big", 0), 50);
    s.Add("Fine", TcsVariant(80));
    s.CheckInteger("Fine", 1, 50, 100);
    EXPECT_EQ(s.ReadInteger("Fine", 0), 80);
}

TEST(Settings, LoadKeepsTheTypeOfTheDefault) {
    TcsIniFile ini;
    ini.LoadFromString("[Common]\nCount=42\nRatio=2.5\nFlag=false\nName=x\nBad=zz\nWhen=2023-10-21\n");
    TcsSettings s;
    s.Add("Count", TcsVariant(1));
    s.Add("Ratio", TcsVariant(1.0));
    s.Add("Flag", TcsVariant(true));
    s.Add("Bad", TcsVariant(3));
    s.Add("When", TcsVariant(TDateTime{}));
    s.Add("Missing", TcsVariant(5));
    s.Load(ini, true);
    EXPECT_EQ(s.Find("Count")->Value, TcsVariant(int64_t{42}));
    EXPECT_EQ(s.Find("Ratio")->Value, TcsVariant(2.5));
    EXPECT_EQ(s.Find("Flag")->Value, TcsVariant(false));
    EXPECT_EQ(s.Find("Bad")->Value, TcsVariant(3));  // does not convert: stays
    EXPECT_TRUE(s.Loaded("Bad"));
    EXPECT_FALSE(s.Loaded("Missing"));
    EXPECT_EQ(s.Find("When")->Value.AsString(), "21.10.2023");
    EXPECT_FALSE(s.Exists("Name"));  // only existing ones
    s.Load(ini, false);
    EXPECT_EQ(s.ReadString("Name", ""), "x");
    EXPECT_TRUE(s.Loaded("Name"));
}

TEST(Settings, SaveCycleWithTheModifiedRuleAndConfiguration) {
    const std::string path = TempPath("cycle.ini");
    {
        std::ofstream(path) << "[Common]\nA=1\nB=text\n[Extra]\nUnknown=1\n";
    }
    TcsSettings s;
    s.Load(path, false);
    EXPECT_TRUE(s.Save(path, true));
    EXPECT_EQ(ReadAll(path), "");  // nothing changed: nothing written, and the file was cleared
    s.Add("A", TcsVariant("2"));
    TcsSetting* secret = s.Add("Secret", TcsVariant("s"));
    secret->SetSettingType(stConfiguration);
    s.Add("Secret", TcsVariant("t"));
    EXPECT_TRUE(s.Save(path, true));
    EXPECT_EQ(ReadAll(path), "[Common]\nA=2\n");
    EXPECT_TRUE(s.Save(path, false));
    EXPECT_EQ(ReadAll(path), "[Common]\nA=2\nB=text\n\n[Extra]\nUnknown=1\n");
    EXPECT_EQ(s.ReadString("Secret", ""), "t");  // kept in memory, never in the file

    TcsSettings again;
    again.Add("A", TcsVariant(0));
    again.Load(path, true);
    EXPECT_EQ(again.ReadInteger("A", 0), 2);
    std::filesystem::remove(path);
}

TEST(Settings, WindowPositionAndMissingFile) {
    TcsSettings s;
    TcsWindowPlacement p{10, 20, 300, 400, 1}, q;
    EXPECT_FALSE(s.LoadWindowPosition("Form", q));
    s.SaveWindowPosition("Form", p);
    ASSERT_TRUE(s.LoadWindowPosition("Form", q));
    EXPECT_EQ(q.fWidth, 300);
    EXPECT_EQ(q.fState, 1);
    s.Load("/nonexistent/file.ini", false);
    EXPECT_EQ(s.Count(), 1);
}

// Loading every key of a file goes through Add: a known integer given "12a" becomes that text,
// modified; a key new to the store is loaded and not modified.
TEST(Settings, LoadingEveryKeyGoesThroughAdd) {
    TcsIniFile ini;
    ini.LoadFromString("[Common]\nCount=12a\nSame=5\nNew=x\n");
    TcsSettings settings;
    settings.Add("Count", TcsVariant(int64_t{7}));
    settings.Add("Same", TcsVariant(int64_t{5}));
    settings.Load(ini, false);
    const TcsSetting* count = settings.Find("Common", "Count");
    ASSERT_NE(count, nullptr);
    EXPECT_EQ(count->Value.Type(), TcsVarType::String);
    EXPECT_EQ(count->Value.AsString(), "12a");
    EXPECT_TRUE(count->Modified());
    EXPECT_TRUE(count->Loaded());
    EXPECT_TRUE(settings.Loaded("New"));
    EXPECT_FALSE(settings.Modified("New"));
    EXPECT_EQ(settings.ReadString("New", ""), "x");
    // Loading only the known settings keeps their types.
    TcsSettings typed;
    typed.Add("Count", TcsVariant(int64_t{7}));
    typed.Load(ini, true);
    EXPECT_EQ(typed.ReadInteger("Count", 0), 7);
    EXPECT_FALSE(typed.Modified("Count"));
}

// Saving into an INI object that has a file reaches that file at once.
TEST(Settings, SaveIntoAnOpenIniFileFlushesIt) {
    const std::string path = TempPath("open.ini");
    std::ofstream(path) << "[Other]\nKept=1\n";
    TcsIniFile ini(path);
    TcsSettings settings;
    settings.Add("Fresh", TcsVariant(std::string("value")));
    settings.Save(ini, false);
    const std::string text = ReadAll(path);
    EXPECT_NE(text.find("Fresh=value"), std::string::npos) << text;
    EXPECT_NE(text.find("Kept=1"), std::string::npos) << text;  // an open object is not cleared
    std::filesystem::remove(path);
}
