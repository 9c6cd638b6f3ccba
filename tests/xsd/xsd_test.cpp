// The XSD library over hand-written sets: each construct, the search orders, includes,
// imports and their cycles, the cache, and hostile files.
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "csXSDLib.h"

using namespace tmi;
namespace fs = std::filesystem;

namespace {

class Xsd : public ::testing::Test {
protected:
    void SetUp() override {
        fRoot = fs::temp_directory_path() /
                ("tmi" + std::to_string(::getpid()) + "_xsd_" + ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(fRoot);
        fs::create_directories(fRoot);
    }
    void TearDown() override { fs::remove_all(fRoot); }
    std::string Write(const std::string& aName, const std::string& aText) {
        const fs::path p = fRoot / aName;
        fs::create_directories(p.parent_path());
        std::ofstream(p, std::ios::binary) << aText;
        return p.string();
    }
    // A schema document of the given body, its root binding "xs" and the given namespaces.
    static std::string Schema(const std::string& aBody, const std::string& aAttributes = "") {
        return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<xs:schema xmlns:xs=\"http://www.w3.org/2001/XMLSchema\" " +
               aAttributes + ">" + aBody + "</xs:schema>";
    }
    std::string LoadError(const std::string& aFile) {
        TXSDLibraries set;
        try {
            set.LoadXSD(aFile);
        } catch (const EXSDError& e) {
            return e.what();
        }
        return "(loaded)";
    }
    fs::path fRoot;
};

const char* kMain =
    "<xs:include schemaLocation=\"sub/types.XSD\"/>"
    "<xs:import namespace=\"urn:o\" schemaLocation=\"other.xsd\"/>"
    "<xs:import namespace=\"urn:nowhere\"/>"
    "<xs:element name=\"Root\"><xs:complexType><xs:sequence>"
    "  <xs:element name=\"A\" type=\"m:AType\"/>"
    "  <xs:element ref=\"m:Glob\" minOccurs=\"0\" maxOccurs=\"unbounded\"/>"
    "  <xs:group ref=\"m:G\"/>"
    "  <xs:choice><xs:element name=\"D\" type=\"o:OType\"/><xs:element name=\"E\">"
    "    <xs:simpleType><xs:restriction base=\"xs:string\">"
    "      <xs:enumeration value=\"1\"><xs:annotation><xs:documentation>один</xs:documentation></xs:annotation></xs:enumeration>"
    "      <xs:enumeration value=\"2\"><xs:annotation><xs:documentation>два</xs:documentation></xs:annotation></xs:enumeration>"
    "    </xs:restriction></xs:simpleType></xs:element></xs:choice>"
    "  <xs:element name=\"Code\" type=\"m:Codes\"/>"
    "  <xs:element name=\"Amount\" type=\"xs:decimal\"/>"
    "</xs:sequence><xs:attributeGroup ref=\"m:Glob\"/></xs:complexType></xs:element>";

const char* kTypes =
    "<xs:include schemaLocation=\"../main.xsd\"/>"
    "<xs:complexType name=\"BaseType\"><xs:sequence><xs:element name=\"A1\" type=\"xs:string\"/></xs:sequence></xs:complexType>"
    "<xs:complexType name=\"AType\"><xs:complexContent><xs:extension base=\"m:BaseType\"><xs:sequence>"
    "  <xs:element name=\"A2\" type=\"xs:int\"/></xs:sequence></xs:extension></xs:complexContent></xs:complexType>"
    "<xs:element name=\"Glob\" type=\"xs:string\"/>"
    "<xs:attributeGroup name=\"Glob\"><xs:attribute name=\"k\" type=\"xs:string\"/></xs:attributeGroup>"
    "<xs:group name=\"G\"><xs:sequence><xs:element name=\"C\" type=\"xs:date\"/></xs:sequence></xs:group>"
    "<xs:simpleType name=\"Dup\"><xs:restriction base=\"xs:string\"/></xs:simpleType>"
    "<xs:complexType name=\"dup\"/>"
    "<xs:simpleType name=\"Codes\"><xs:restriction base=\"m:BaseCodes\"/></xs:simpleType>"
    "<xs:simpleType name=\"BaseCodes\"><xs:restriction base=\"xs:string\">"
    "  <xs:enumeration value=\"07\"><xs:annotation><xs:documentation>Седьмой</xs:documentation></xs:annotation></xs:enumeration>"
    "</xs:restriction></xs:simpleType>";

// Another namespace, written with the default namespace for XML Schema.
const char* kOther =
    "<?xml version=\"1.0\"?><schema xmlns=\"http://www.w3.org/2001/XMLSchema\" targetNamespace=\"urn:o\" xmlns:o=\"urn:o\">"
    "<complexType name=\"OType\"><sequence><element name=\"O1\" type=\"string\"/></sequence></complexType></schema>";

}  // namespace

TEST_F(Xsd, ConstructsIncludesImportsAndLookups) {
    const std::string main = Write("main.xsd", Schema(kMain, "targetNamespace=\"urn:m\" xmlns:m=\"urn:m\" xmlns:o=\"urn:o\""));
    Write("sub/Types.xsd", Schema(kTypes, "targetNamespace=\"urn:m\" xmlns:m=\"urn:m\""));
    Write("other.xsd", kOther);
    TXSDLibraries set;
    TXSDLibrary* root = set.LoadXSD(main);
    // The include's other letter case finds the file; its include back to main is the same
    // library, so the cycle ends; the import without a location loads nothing.
    ASSERT_EQ(set.Count(), 3);
    EXPECT_EQ(root->Include().Count(), 2);
    EXPECT_EQ(set.Items(1)->Include().Items(0), root);
    EXPECT_EQ(set.Items(2)->XSDPref(), "");

    // Extension bases first, group contents, element refs, imported types.
    auto child = [&](const char* aPath) { return root->GetXSDElementByXPath(aPath); };
    ASSERT_NE(child("/Root/A/A1"), nullptr);
    EXPECT_EQ(child("/Root/A")->ChildElements().Count(), 2);
    EXPECT_EQ(child("/Root/A")->ChildElements().Items(0)->Name(), "A1");
    EXPECT_EQ(child("/Root/A/A2")->InternalDataType(), vtInteger);
    ASSERT_NE(child("/Root/Glob"), nullptr);
    EXPECT_EQ(child("/Root/Glob")->maxOccurs, "unbounded");
    EXPECT_EQ(child("/Root/Glob")->InternalDataType(), vtString);
    EXPECT_EQ(child("/Root/C")->InternalDataType(), vtDate);
    ASSERT_NE(child("/Root/D/O1"), nullptr);
    EXPECT_EQ(child("/m:Root/o:D/O1"), child("/Root/D/O1"));  // parts compare by local name
    EXPECT_EQ(child("/Root/Amount")->InternalDataType(), vtDecimal);
    EXPECT_EQ(child("/Root/Missing"), nullptr);
    EXPECT_EQ(child("/Nothing"), nullptr);
    // A declaration's own path: through the elements that hold it (a named type's elements
    // start afresh).
    EXPECT_EQ(child("/Root/E")->XPath(), "/Root/E");
    EXPECT_EQ(child("/Root/E")->Level(), 1);
    EXPECT_EQ(child("/Root/A/A1")->XPath(), "/A1");

    // Codes and their meanings, through inline types and down a chain of bases.
    EXPECT_EQ(child("/Root/E")->GetTextValue("2"), "два");
    EXPECT_EQ(child("/Root/E")->GetTextValue(" 2"), "");
    EXPECT_EQ(child("/Root/Code")->GetTextValue("07"), "Седьмой");
    EXPECT_EQ(child("/Root/Code")->InternalDataType(), vtString);

    // Search orders: a complex type before a simple type of the same name (case ignored); an
    // element and an attribute group may share a name.
    EXPECT_EQ(root->GetTypeByName("Dup")->ClassName(), "TXSDComplexType");
    EXPECT_EQ(root->GetTypeByName("m:AType")->Name(), "AType");
    EXPECT_EQ(root->GetTypeByName("o:OType")->Library(), set.Items(2));
    EXPECT_EQ(root->GetTypeByName("x:AType"), nullptr);  // a prefix bound nowhere
    EXPECT_EQ(root->GetRefByName("m:Glob", TXSDLibrary::TRefKind::Element)->ClassName(), "TXSDElement");
    EXPECT_EQ(root->GetRefByName("m:Glob", TXSDLibrary::TRefKind::AttributeGroup)->ClassName(), "TXSDAttributeGroup");
    EXPECT_EQ(root->GetLibraryByAlias("o"), set.Items(2));
    EXPECT_EQ(root->GetLibraryByAlias("zz"), nullptr);
    // Every non-built-in type and ref was linked.
    for (int i = 0; i < set.Count(); ++i)
        for (TXSDCustomObject* o : set.Items(i)->TypedObjs()) {
            EXPECT_TRUE(o->TypeApplied());
            if (!o->Type_().empty() && o->InternalDataType() == vtUnknown) {
                EXPECT_NE(o->TypeObj(), nullptr) << o->Type_();
            }
            if (o->IsRef()) {
                EXPECT_NE(o->RefObj(), nullptr) << o->Ref();
            }
        }
    // Published names.
    EXPECT_TRUE(child("/Root/E")->PropertyTable().Find("Name"));
    EXPECT_TRUE(child("/Root/E")->SimpleType()->PropertyTable().Find("Restruction"));
    EXPECT_EQ(TcsSupportPropertyObject(*child("/Root/E")).GetPropertyValueByName("Name").AsString(), "E");
}

// A caller that knows only published names (a property grid, a script) reaches every list
// of a library and the objects in it, each of its own class.
TEST_F(Xsd, TheModelIsWalkedThroughItsPublishedNames) {
    const std::string main = Write("main.xsd", Schema(kMain, "targetNamespace=\"urn:m\" xmlns:m=\"urn:m\" xmlns:o=\"urn:o\""));
    Write("sub/types.xsd", Schema(kTypes, "targetNamespace=\"urn:m\" xmlns:m=\"urn:m\""));
    Write("other.xsd", kOther);
    Write("keys.xsd", Schema("<xs:element name=\"K\"><xs:complexType><xs:simpleContent><xs:extension base=\"xs:string\">"
                             "<xs:attribute name=\"a\" type=\"xs:int\" use=\"required\"/></xs:extension></xs:simpleContent>"
                             "</xs:complexType><xs:key name=\"k1\"><xs:selector xpath=\".//R\"/><xs:field xpath=\"@id\"/>"
                             "<xs:field xpath=\"@n\"/></xs:key><xs:keyref name=\"r1\" refer=\"k1\"><xs:selector xpath=\"Q\"/>"
                             "<xs:field xpath=\"@ref\"/></xs:keyref></xs:element>"));
    TXSDLibraries set;
    TXSDLibrary* root = set.LoadXSD(main);
    auto object = [](TcsPersistent* aObject, const char* aName) {
        return TcsSupportPropertyObject(*aObject).GetObjectProperty(aName);
    };
    auto value = [](TcsPersistent* aObject, const char* aName) {
        return TcsSupportPropertyObject(*aObject).GetPropertyValueByName(aName);
    };
    struct Expected {
        const char* fList;
        const char* fListClass;
        int fCount;
    };
    // The root's own lists and the include list of two files (the import without a location
    // is not one of them).
    for (const Expected& e : {Expected{"Include", "TXSDIncludeCollection", 2}, Expected{"Elements", "TXSDElementCollection", 1},
                              Expected{"Annotations", "TXSDAnnotationCollection", 0},
                              Expected{"ComplexTypes", "TXSDComplexTypeCollection", 0},
                              Expected{"SimpleTypes", "TXSDSimpleTypeCollection", 0},
                              Expected{"AttributeGroups", "TXSDAttributeGroupCollection", 0},
                              Expected{"TypedObjs", "TXSDTypedCollection", 8}}) {
        TcsPersistent* list = object(root, e.fList);
        ASSERT_NE(list, nullptr) << e.fList;
        EXPECT_EQ(list->ClassName(), e.fListClass);
        EXPECT_EQ(value(list, "Count").AsInteger(), e.fCount) << e.fList;
        EXPECT_TRUE(dynamic_cast<TXSDObjectCollection*>(list)->IsCollection());
    }
    TXSDLibrary* types = root->Include().Items(0);
    EXPECT_EQ(types->ComplexTypes().Count(), 3);
    EXPECT_EQ(types->SimpleTypes().Count(), 3);
    EXPECT_EQ(value(root, "NameSpace").AsString(), "urn:m");
    EXPECT_EQ(value(set.Items(2), "NameSpace").AsString(), "urn:o");  // the import's namespace
    EXPECT_EQ(value(set.Items(2), "GlobalNameSpace").AsString(), "http://www.w3.org/2001/XMLSchema");
    EXPECT_EQ(value(set.Items(2), "LibrarySubType").AsInteger(), 2);
    EXPECT_EQ(value(types, "LibrarySubType").AsInteger(), 0);

    // An element: its children, content list and attributes come from its complex type.
    TXSDElement* r = root->GetXSDElementByXPath("/Root");
    auto* children = dynamic_cast<TXSDElementCollection*>(object(r, "ChildElements"));
    ASSERT_NE(children, nullptr);
    EXPECT_EQ(children->Count(), 7);  // A, Glob, the group's C, the choice's D and E, Code, Amount
    EXPECT_EQ(children->Items(2)->Name(), "C");
    TcsPersistent* collection = object(r, "Collection");
    ASSERT_NE(collection, nullptr);
    EXPECT_EQ(collection->ClassName(), "TXSDElementObjectCollection");
    EXPECT_EQ(value(collection, "Count").AsInteger(), 6);  // the group and the choice are one item each
    EXPECT_EQ(object(r, "Attributes")->ClassName(), "TXSDAttributeCollection");
    // The restriction's enumerations and the length of the longest code.
    TcsPersistent* restriction = object(root->GetXSDElementByXPath("/Root/E")->SimpleType(), "Restruction");
    TcsPersistent* enumerations = object(restriction, "enumeration");
    EXPECT_EQ(enumerations->ClassName(), "TXSDEnumerationCollection");
    EXPECT_EQ(value(enumerations, "Count").AsInteger(), 2);
    EXPECT_EQ(value(enumerations, "MaxLength").AsInteger(), 1);
    EXPECT_EQ(object(restriction, "pattern")->ClassName(), "TXSDPatternCollection");
    EXPECT_EQ(types->SimpleTypes().Items(2)->Restruction()->enumeration().Items(0)->ClassName(), "TXSDEnumeration");
    EXPECT_EQ(types->ComplexTypes().Items(1)->ComplexContent()->ClassName(), "TXSDComplexContent");
    EXPECT_EQ(types->ComplexTypes().Items(1)->ComplexContent()->Derivation()->ClassName(), "TXSDComplexContentExtension");

    // Keys, their selectors and fields; simple content with an attribute.
    TXSDLibraries keysSet;
    TXSDElement* k = keysSet.LoadXSD((fRoot / "keys.xsd").string())->GetXSDElementByXPath("/K");
    ASSERT_NE(k, nullptr);
    TcsPersistent* keys = object(k, "Keys");
    EXPECT_EQ(keys->ClassName(), "TXSDElementKeyCollection");
    ASSERT_EQ(k->Keys().Count(), 2);
    const TXSDElementKey* key = k->Keys().Items(0);
    EXPECT_EQ(key->Kind(), "key");
    EXPECT_EQ(value(object(k->Keys().Items(0), "Selector"), "xpath").AsString(), ".//R");
    EXPECT_EQ(key->Selector()->ClassName(), "TXSDElementKeyLook");
    ASSERT_EQ(key->Field().Count(), 2);
    EXPECT_EQ(key->Field().Items(1)->xpath(), "@n");
    EXPECT_EQ(value(k->Keys().Items(1), "refer").AsString(), "k1");
    EXPECT_EQ(k->complexType()->SimpleContent()->ClassName(), "TXSDSimpleContent");
    EXPECT_EQ(k->complexType()->SimpleContent()->Derivation()->ClassName(), "TXSDSimpleContentExtension");
    EXPECT_EQ(k->ChildElements().Count(), 0);
    EXPECT_TRUE(k->MayHaveValue());
    EXPECT_EQ(k->InternalDataType(), vtString);
}

TEST_F(Xsd, PathsAreKeptAndSetsAreCached) {
    const std::string main = Write("main.xsd", Schema(kMain, "targetNamespace=\"urn:m\" xmlns:m=\"urn:m\" xmlns:o=\"urn:o\""));
    Write("sub/types.xsd", Schema(kTypes, "targetNamespace=\"urn:m\" xmlns:m=\"urn:m\""));
    Write("other.xsd", kOther);
    TcsXSDLibCache cache;
    TXSDLibrary* first = cache.GetLibByFilePath(main);
    EXPECT_EQ(cache.GetLibByFilePath((fRoot / "sub" / ".." / "main.xsd").string()), first);  // one file, two spellings
    EXPECT_EQ(cache.Count(), 1);
    const TXSDElement* a = first->GetXSDElementByXPath("/Root/A");
    EXPECT_EQ(first->GetXSDElementByXPath("/Root/A"), a);
    // From a buffer: includes are read beside its name.
    TXSDLibraries fromMemory;
    TXSDLibrary* root = fromMemory.LoadXSDFromResource(
        (fRoot / "memory.xsd").string(), Schema(kMain, "targetNamespace=\"urn:m\" xmlns:m=\"urn:m\" xmlns:o=\"urn:o\""));
    ASSERT_NE(root->GetXSDElementByXPath("/Root/A/A1"), nullptr);
}

TEST_F(Xsd, BadFilesAreErrorsThatNameThem) {
    const std::string missing = Write("missing.xsd", Schema("<xs:include schemaLocation=\"gone.xsd\"/>"));
    EXPECT_EQ(LoadError(missing), "Отсутствует файл схемы: " + (fRoot / "gone.xsd").string());
    EXPECT_EQ(LoadError((fRoot / "absent.xsd").string()), "Отсутствует файл схемы: " + (fRoot / "absent.xsd").string());
    const std::string url = Write("url.xsd", Schema("<xs:import namespace=\"urn:g\" schemaLocation=\"http://example.org/g.xsd\"/>"));
    EXPECT_EQ(LoadError(url), "Отсутствует файл схемы: http://example.org/g.xsd");
    fs::create_directories(fRoot / "folder.xsd");
    const std::string folder = Write("withfolder.xsd", Schema("<xs:include schemaLocation=\"folder.xsd\"/>"));
    EXPECT_EQ(LoadError(folder), "Отсутствует файл схемы: " + (fRoot / "folder.xsd").string());
    const std::string other = Write("notschema.xsd", "<html><body/></html>");
    EXPECT_EQ(LoadError(other), "Файл " + other + " не схема XML: корень <html>");
    const std::string empty = Write("empty.xsd", "");
    EXPECT_EQ(LoadError(empty), "Схема " + empty + " пуста: нет корневого элемента");
    const std::string cut = Write("cut.xsd", Schema("<xs:element name=\"a\">").substr(0, 120));
    EXPECT_EQ(LoadError(cut).rfind("Схема " + cut + " не прочитана: ", 0), 0u) << LoadError(cut);
    EXPECT_NE(LoadError(cut).find("(строка "), std::string::npos);
    const std::string binary = Write("binary.xsd", std::string("\x00\x01\xff\xfe\x02", 5));
    EXPECT_EQ(LoadError(binary).rfind("Схема " + binary, 0), 0u) << LoadError(binary);
    // A schema with its includes broken further down names the file that is missing.
    const std::string chain = Write("chain.xsd", Schema("<xs:include schemaLocation=\"missing.xsd\"/>"));
    EXPECT_EQ(LoadError(chain), "Отсутствует файл схемы: " + (fRoot / "gone.xsd").string());
}

TEST_F(Xsd, HostileShapesFinish) {
    // Declarations nested 100,000 deep: refused with the file's name, not a stack overflow.
    std::string deep;
    for (int i = 0; i < 100000; ++i) deep += "<xs:element name=\"e\"><xs:complexType><xs:sequence>";
    for (int i = 0; i < 100000; ++i) deep += "</xs:sequence></xs:complexType></xs:element>";
    const std::string deepFile = Write("deep.xsd", Schema(deep));
    EXPECT_NE(LoadError(deepFile).find(deepFile), std::string::npos);
    EXPECT_NE(LoadError(deepFile).find("глубже"), std::string::npos);

    // A chain of 2,000 files, each including the next, and self, two- and three-file cycles.
    for (int i = 0; i < 2000; ++i)
        Write("c" + std::to_string(i) + ".xsd",
              Schema(i + 1 < 2000 ? "<xs:include schemaLocation=\"c" + std::to_string(i + 1) + ".xsd\"/>" : "<xs:element name=\"End\"/>"));
    TXSDLibraries chain;
    TXSDLibrary* first = chain.LoadXSD((fRoot / "c0.xsd").string());
    EXPECT_EQ(chain.Count(), 2000);
    EXPECT_EQ(first->GetRefByName("End", TXSDLibrary::TRefKind::Element)->Name(), "End");
    const std::string self = Write("self.xsd", Schema("<xs:include schemaLocation=\"self.xsd\"/><xs:element name=\"S\"/>"));
    Write("two-b.xsd", Schema("<xs:include schemaLocation=\"two-a.xsd\"/>"));
    const std::string two = Write("two-a.xsd", Schema("<xs:include schemaLocation=\"two-b.xsd\"/>"));
    Write("three-b.xsd", Schema("<xs:include schemaLocation=\"three-c.xsd\"/>"));
    Write("three-c.xsd", Schema("<xs:include schemaLocation=\"three-a.xsd\"/><xs:element name=\"T\"/>"));
    const std::string three = Write("three-a.xsd", Schema("<xs:include schemaLocation=\"three-b.xsd\"/>"));
    for (const auto& [file, count] : {std::pair{self, 1}, std::pair{two, 2}, std::pair{three, 3}}) {
        TXSDLibraries set;
        TXSDLibrary* root = set.LoadXSD(file);
        EXPECT_EQ(set.Count(), count) << file;
        EXPECT_EQ(root->GetTypeByName("Nothing"), nullptr);
    }
    TXSDLibraries threeSet;
    EXPECT_NE(threeSet.LoadXSD(three)->GetRefByName("T", TXSDLibrary::TRefKind::Element), nullptr);

    // Types that extend each other in a loop, and an element whose type holds itself.
    const std::string loop = Write(
        "loop.xsd",
        Schema("<xs:complexType name=\"A\"><xs:complexContent><xs:extension base=\"B\"><xs:sequence><xs:element name=\"a\" type=\"A\"/>"
               "</xs:sequence></xs:extension></xs:complexContent></xs:complexType>"
               "<xs:complexType name=\"B\"><xs:complexContent><xs:extension base=\"A\"/></xs:complexContent></xs:complexType>"
               "<xs:complexType name=\"S\"><xs:simpleContent><xs:extension base=\"T\"/></xs:simpleContent></xs:complexType>"
               "<xs:complexType name=\"T\"><xs:simpleContent><xs:extension base=\"S\"/></xs:simpleContent></xs:complexType>"
               "<xs:element name=\"r\" type=\"A\"/><xs:element name=\"s\" type=\"S\"/>"));
    TXSDLibraries loopSet;
    TXSDLibrary* root = loopSet.LoadXSD(loop);
    ASSERT_NE(root->GetXSDElementByXPath("/r/a/a/a"), nullptr);
    EXPECT_EQ(root->GetXSDElementByXPath("/r")->ChildElements().Count(), 1);
    EXPECT_EQ(root->GetXSDElementByXPath("/s")->GetTextValue("x"), "");
    EXPECT_EQ(root->GetXSDElementByXPath("/s")->InternalDataType(), vtUnknown);
}
