// Classifier dictionaries: the schema shape, first-wins duplicates, exact codes, names
// without case, the folder rules, missing files, and the real dictionaries.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "csClassifiers.h"
#include "csCommon.h"

using namespace tmi;
namespace fs = std::filesystem;

namespace {

std::string Schema(const std::string& aEnumerations, const std::string& aPrefix = "xs") {
    return "<?xml version=\"1.0\" encoding=\"utf-8\"?><" + aPrefix + ":schema xmlns:" + aPrefix +
           "=\"http://www.w3.org/2001/XMLSchema\"><" + aPrefix + ":simpleType name=\"d\"><" + aPrefix +
           ":restriction base=\"" + aPrefix + ":string\">" + aEnumerations + "</" + aPrefix + ":restriction></" + aPrefix +
           ":simpleType><" + aPrefix + ":simpleType name=\"other\"><" + aPrefix + ":restriction><" + aPrefix +
           ":enumeration value=\"9\"><" + aPrefix + ":annotation><" + aPrefix + ":documentation>Другой</" + aPrefix +
           ":documentation></" + aPrefix + ":annotation></" + aPrefix + ":enumeration></" + aPrefix + ":restriction></" +
           aPrefix + ":simpleType></" + aPrefix + ":schema>";
}

std::string Enum(const std::string& aValue, const std::string& aText) {
    return "<xs:enumeration value=\"" + aValue + "\"><xs:annotation><xs:documentation>" + aText +
           "</xs:documentation></xs:annotation></xs:enumeration>";
}

struct Folder {
    fs::path fPath = fs::temp_directory_path() / ("tmi" + std::to_string(::getpid()) + "_xsd");
    Folder() {
        fs::remove_all(fPath);
        fs::create_directories(fPath);
    }
    ~Folder() { fs::remove_all(fPath); }
    std::string Write(const std::string& aRelative, const std::string& aText) const {
        fs::create_directories((fPath / aRelative).parent_path());
        std::ofstream(fPath / aRelative) << aText;
        return (fPath / aRelative).string();
    }
};

}  // namespace

TEST(Classifier, EnumerationsOfTheFirstRestriction) {
    Folder f;
    const std::string file = f.Write("d.xsd", Schema(Enum("01", "Ранее учтенный") + Enum("01", "Второй") +
                                                     "<xs:enumeration value=\"02\"/>" + Enum(" 03", "С пробелом") +
                                                     "<xs:enumeration value=\"04\"><xs:annotation/></xs:enumeration>"));
    TRRClass c("Статус участка", file);
    EXPECT_EQ(c.Count(), 3);  // without annotation or documentation: not in the dictionary
    EXPECT_EQ(c.GetByValue("01"), "Ранее учтенный");  // the first of equal codes
    EXPECT_EQ(c.GetByValue("02"), "");
    EXPECT_EQ(c.GetByValue("03"), "");  // codes compare exactly
    EXPECT_EQ(c.GetByValue(" 03"), "С пробелом");
    EXPECT_EQ(c.GetByValue("9"), "");   // only the first simpleType is read

    // Another prefix for the schema namespace is not understood.
    const std::string other = f.Write("p.xsd", Schema("", "xsd"));
    EXPECT_THROW(TRRClass("x", other), Exception);
}

TEST(Classifier, ListByNameWithoutCaseAndMissingFiles) {
    Folder f;
    const std::string root = f.fPath.string();
    f.Write("KPT_v09/SchemaCommon/dStates_v01.xsd", Schema(Enum("06", "Учтенный")));
    f.Write("KVZU_v06/SchemaCommon/dCategories_v01.xsd", Schema(Enum("003002000000", "Земли населенных пунктов")));
    TClassList list;
    std::vector<std::string> messages;
    list.OnMessage = [&](const std::string& m) { messages.push_back(m); };
    list.XSDPath = root;
    list.Execute();
    EXPECT_EQ(list.Count(), 2);
    EXPECT_EQ(list.GetKlassString("СТАТУС УЧАСТКА", "06"), "Учтенный");
    EXPECT_EQ(list.GetKlassString("Категории земель", "003002000000"), "Земли населенных пунктов");
    EXPECT_EQ(list.GetKlassString("Виды площадей", "009"), "");  // never loaded
    // Fourteen complain once each; "Вид межевого плана" stays silent.
    EXPECT_EQ(messages.size(), 13u);
    EXPECT_EQ(messages[0], "Не найден классификатор \"" + root + "/KPT_v09/SchemaCommon/dRealty_v02.xsd\".");
    for (const std::string& m : messages) EXPECT_EQ(m.find("dMethod"), std::string::npos);
}

TEST(Classifier, FolderRules) {
    EXPECT_EQ(ClassifierFolder("/opt/tm/Apps64/XSDSchemes", 64), "/opt/tm/XSDSchemes");
    EXPECT_EQ(ClassifierFolder("/opt/tm/Apps64/XSDSchemes", 32), "/opt/tm64/XSDSchemes");
    EXPECT_EQ(ClassifierFolder("/opt/tm/Apps/XSDSchemes", 32), "/opt/tm/XSDSchemes");
    EXPECT_EQ(ClassifierFolder("/data/MP/XSDSchemes", 64), "/data/MP");
    EXPECT_EQ(ClassifierFolder("/data/mp/XSDSchemes", 64), "/data/mp/XSDSchemes");  // the job's test keeps case

    Folder f;
    // "/mp" in lower case takes the first branch of the list, which upper-cases the path.
    f.Write("XSD/KPT/KPT_v09/SchemaCommon/dStates_v01.xsd", Schema(Enum("1", "Один")));
    fs::create_directories(f.fPath / "mp");
    TClassList list;
    list.XSDPath = (f.fPath / "mp").string();
    list.Execute();
    EXPECT_EQ(list.GetKlassString("Статус участка", "1"), "Один");

    // Beside the marker file the schemas stand under XSDSchemes.
    Folder g;
    g.Write("tmMiniMain.MBX", "");
    g.Write("XSDSchemes/KPT_v09/SchemaCommon/dStates_v01.xsd", Schema(Enum("2", "Два")));
    TClassList marked;
    marked.XSDPath = g.fPath.string() + "/";
    marked.Execute();
    EXPECT_EQ(marked.GetKlassString("Статус участка", "2"), "Два");
}

TEST(Classifier, TheRealDictionaries) {
    const fs::path xsd = fs::path(TM_SHARED_DATA) / "XSDSchemes";
    if (!fs::exists(xsd)) {
        const char* ci = std::getenv("CI");
        if (ci && std::string(ci) == "true") FAIL() << "missing " << xsd;
        GTEST_SKIP();
    }
    TClassList list;
    int missing = 0;
    list.OnMessage = [&](const std::string&) { ++missing; };
    list.XSDPath = xsd.string();
    list.Execute();
    EXPECT_EQ(list.Count(), 12);
    EXPECT_EQ(missing, 4);
    EXPECT_EQ(list.GetKlassString("Категории земель", "003002000000"), "Земли населённых пунктов");
    EXPECT_FALSE(list.GetKlassString("Единицы измерения АИС", "055").empty());
}

// A dictionary is read once a process, and again when its file changes: a batch reads each
// file once, and an edited file is never answered from the old reading.
TEST(Classifier, ADictionaryIsReadAgainOnlyWhenItsFileChanges) {
    Folder f;
    const std::string file = f.Write("d.xsd", Schema(Enum("1", "Один")));
    EXPECT_EQ(TRRClass("d", file).GetByValue("1"), "Один");
    EXPECT_EQ(TRRClass("d", file).GetByValue("1"), "Один");
    f.Write("d.xsd", Schema(Enum("1", "Первый") + Enum("2", "Два")));
    const TRRClass changed("d", file);
    EXPECT_EQ(changed.GetByValue("1"), "Первый");
    EXPECT_EQ(changed.Count(), 2);
    fs::remove(file);
    EXPECT_THROW(TRRClass("d", file), std::exception);
}
