// The real schema sets: every file loaded as a root and checked against a libxml2 reading of
// the same locations; the element paths of real extracts; codes decoded as the classifier
// dictionaries read them.
#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xmlschemas.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>

#include "OXmlPDOM.h"
#include "csClassifiers.h"
#include "csXSDLib.h"

using namespace tmi;
namespace fs = std::filesystem;

namespace {

fs::path Data() { return fs::path(TM_SHARED_DATA); }

bool InCI() {
    const char* ci = std::getenv("CI");
    return ci && std::string(ci) == "true";
}

#define REQUIRE_DATA()                                                                   \
    do {                                                                                 \
        if (!fs::exists(Data())) {                                                       \
            if (InCI()) FAIL() << "the shared data is missing: " << Data();              \
            GTEST_SKIP() << "no shared data beside the checkout";                        \
        }                                                                                \
    } while (0)

struct Counts {
    int fElements = 0, fComplex = 0, fSimple = 0, fGroups = 0, fEnumerations = 0;
    bool operator==(const Counts& o) const {
        return fElements == o.fElements && fComplex == o.fComplex && fSimple == o.fSimple && fGroups == o.fGroups &&
               fEnumerations == o.fEnumerations;
    }
};

bool IsSchemaNode(xmlNodePtr aNode) {
    return aNode->type == XML_ELEMENT_NODE && aNode->ns && aNode->ns->href &&
           std::string(reinterpret_cast<const char*>(aNode->ns->href)) == "http://www.w3.org/2001/XMLSchema";
}

std::string Name(xmlNodePtr aNode) { return reinterpret_cast<const char*>(aNode->name); }

int CountEnumerations(xmlNodePtr aNode) {
    int n = 0;
    for (xmlNodePtr c = aNode->children; c; c = c->next) {
        if (!IsSchemaNode(c)) continue;
        n += Name(c) == "enumeration";
        n += CountEnumerations(c);
    }
    return n;
}

// What libxml2's own reading of the files says: the files the locations reach and each one's
// counts, or the first location that leads nowhere.
struct Walk {
    std::map<std::string, Counts> fFiles;
    std::string fMissing;
    bool Run(const std::string& aRoot) {
        std::vector<std::string> queue{aRoot};
        std::set<std::string> seen{fs::weakly_canonical(aRoot).string()};
        for (size_t i = 0; i < queue.size(); ++i) {
            xmlDocPtr doc = xmlReadFile(queue[i].c_str(), nullptr, XML_PARSE_NONET | XML_PARSE_NOWARNING | XML_PARSE_NOERROR);
            if (!doc) return false;
            xmlNodePtr root = xmlDocGetRootElement(doc);
            if (!root || !IsSchemaNode(root) || Name(root) != "schema") {
                xmlFreeDoc(doc);
                return false;
            }
            Counts& counts = fFiles[queue[i]];
            counts.fEnumerations = CountEnumerations(root);
            auto global = [&](xmlNodePtr c) {
                const std::string n = Name(c);
                counts.fElements += n == "element";
                counts.fComplex += n == "complexType";
                counts.fSimple += n == "simpleType";
                counts.fGroups += n == "attributeGroup";
            };
            for (xmlNodePtr c = root->children; c; c = c->next) {
                if (!IsSchemaNode(c)) continue;
                global(c);
                const std::string n = Name(c);
                if (n == "redefine")
                    for (xmlNodePtr r = c->children; r; r = r->next)
                        if (IsSchemaNode(r)) global(r);
                if (n != "include" && n != "import" && n != "redefine") continue;
                xmlChar* location = xmlGetProp(c, BAD_CAST "schemaLocation");
                if (!location) continue;
                const std::string where = reinterpret_cast<const char*>(location);
                xmlFree(location);
                if (where.empty()) continue;
                if (where.find("://") != std::string::npos) {
                    if (fMissing.empty()) fMissing = where;
                    continue;
                }
                const std::string path = TXSDLibraries::ResolveLocation(queue[i], where);
                if (!fs::is_regular_file(path)) {
                    if (fMissing.empty()) fMissing = path;
                    continue;
                }
                if (seen.insert(fs::weakly_canonical(path).string()).second) queue.push_back(path);
            }
            xmlFreeDoc(doc);
        }
        return true;
    }
};

}  // namespace

TEST(XsdRealSets, EveryFileAsARootAgreesWithLibxml2) {
    REQUIRE_DATA();
    int roots = 0, loaded = 0, missing = 0, unreadable = 0;
    std::vector<std::string> notCompiled;
    for (const fs::path& folder : {Data() / "XSDSchemes", Data() / "xsd-sets"}) {
        for (const auto& entry : fs::recursive_directory_iterator(folder)) {
            std::string ext = entry.path().extension().string();
            for (char& c : ext) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
            if (!entry.is_regular_file() || ext != ".xsd") continue;
            ++roots;
            const std::string file = entry.path().string();
            Walk walk;
            const bool parsed = walk.Run(file);
            TXSDLibraries set;
            std::string error;
            try {
                set.LoadXSD(file);
            } catch (const EXSDError& e) {
                error = e.what();
            }
            if (!parsed) {
                // libxml2 cannot read a file of the set: neither can we, and we say which.
                ++unreadable;
                EXPECT_FALSE(error.empty()) << file;
                continue;
            }
            if (!walk.fMissing.empty()) {
                ++missing;
                EXPECT_EQ(error.rfind("Отсутствует файл схемы: ", 0), 0u) << file << ": " << error;
                continue;
            }
            ASSERT_EQ(error, "") << file;
            ++loaded;
            std::map<std::string, Counts> ours;
            for (int i = 0; i < set.Count(); ++i) {
                const TXSDLibrary* l = set.Items(i);
                ours[l->XSDFileName()] = Counts{l->Elements().Count(), l->ComplexTypes().Count(), l->SimpleTypes().Count(),
                                                l->AttributeGroups().Count(), l->EnumerationCount()};
            }
            ASSERT_EQ(ours.size(), walk.fFiles.size()) << file;
            for (const auto& [name, counts] : walk.fFiles) {
                ASSERT_TRUE(ours.count(name)) << file << " did not reach " << name;
                EXPECT_TRUE(ours[name] == counts) << name << " (root " << file << ")";
            }
            // libxml2 compiles the same root.
            xmlSchemaParserCtxtPtr ctxt = xmlSchemaNewParserCtxt(file.c_str());
            xmlSchemaSetParserErrors(ctxt, nullptr, nullptr, nullptr);
            xmlSchemaSetParserStructuredErrors(ctxt, [](void*, xmlErrorPtr) {}, nullptr);
            xmlSchemaPtr compiled = xmlSchemaParse(ctxt);
            if (compiled) xmlSchemaFree(compiled);
            else notCompiled.push_back(fs::relative(file, Data()).string());
            xmlSchemaFreeParserCtxt(ctxt);
        }
    }
    EXPECT_GT(roots, 900);
    EXPECT_GT(loaded, 500);
    std::printf("%d roots: %d loaded, %d with a missing file, %d unreadable, %zu not compiled by libxml2\n", roots, loaded,
                missing, unreadable, notCompiled.size());
    // Roots libxml2 cannot compile, and why. Their references name files in another letter
    // case than the set has them: libxml2 does not find those files, the library does.
    std::vector<std::string> expected = {
        "xsd-sets/rrstudio/KPOKS/KPOKS_v03.xsd",
        "xsd-sets/rrstudio/KPT_v10_unoff/KPT_v10.xsd",
        "xsd-sets/rrstudio/KPT_v10_unoff/SchemaCommon/_AddressOut_v03.xsd",
        "xsd-sets/rrstudio/KPT_v10_unoff/SchemaCommon/_AddressOut_v04.xsd",
        "xsd-sets/rrstudio/KPT_v10_unoff/SchemaCommon/_CertificationDoc_v01.xsd",
        "xsd-sets/rrstudio/KPZU_v05/KPZU_v05.xsd",
        "xsd-sets/rrstudio/KVOKS_v02/KVOKS_v02.xsd",
        "xsd-sets/rrstudio/KVZU/KVZU_v06.xsd",
        // Generated from a document: it refers to elements of a namespace that it imports
        // without a location, so nothing declares them.
        "xsd-sets/rrstudio/KPT_v10/doc93594013.xsd",
    };
    std::sort(expected.begin(), expected.end());
    std::sort(notCompiled.begin(), notCompiled.end());
    EXPECT_EQ(notCompiled, expected);
}

namespace {

std::set<std::string> ElementPaths(const fs::path& aFile) {
    xml::TXMLDocument doc;
    EXPECT_TRUE(doc.LoadFromFile(aFile.string()));
    std::set<std::string> paths;
    std::vector<std::pair<xml::PXMLNode, std::string>> stack{{doc.DocumentElement(), ""}};
    while (!stack.empty()) {
        auto [node, parent] = stack.back();
        stack.pop_back();
        const std::string path = parent + "/" + std::string(node->LocalName());
        paths.insert(path);
        for (xml::PXMLNode c = node->FirstChild(); c; c = c->NextSibling())
            if (c->NodeType() == xml::ntElement) stack.emplace_back(c, path);
    }
    return paths;
}

}  // namespace

TEST(XsdRealSets, EveryElementPathOfRealExtractsResolves) {
    REQUIRE_DATA();
    for (const auto& [schema, extracts] :
         {std::pair{Data() / "XSDSchemes/KPT_v10/KPT/KPT_v10.xsd", Data() / "xml/KPT10"},
          std::pair{Data() / "XSDSchemes/V08_STD_KPT/STD_KPT.xsd", Data() / "xml/KPT08"}}) {
        TXSDLibraries set;
        TXSDLibrary* root = set.LoadXSD(schema.string());
        // Every type and ref of the set was linked.
        for (int i = 0; i < set.Count(); ++i)
            for (TXSDCustomObject* o : set.Items(i)->TypedObjs()) {
                if (!o->Type_().empty() && o->InternalDataType() == vtUnknown) {
                    EXPECT_NE(o->TypeObj(), nullptr) << o->Type_();
                }
                if (o->IsRef()) {
                    EXPECT_NE(o->RefObj(), nullptr) << o->Ref();
                }
            }
        int files = 0;
        for (const auto& entry : fs::directory_iterator(extracts)) {
            ++files;
            for (const std::string& path : ElementPaths(entry.path()))
                EXPECT_NE(root->GetXSDElementByXPath(path), nullptr) << entry.path().filename() << ": " << path;
        }
        EXPECT_GT(files, 2);
    }
}

TEST(XsdRealSets, CodesDecodeAsTheDictionariesReadThem) {
    REQUIRE_DATA();
    TXSDLibraries set;
    TXSDLibrary* root = set.LoadXSD((Data() / "XSDSchemes/KPT_v10/KPT/KPT_v10.xsd").string());
    const TXSDElement* category = root->GetXSDElementByXPath("/KPT/CadastralBlocks/CadastralBlock/Parcels/Parcel/Category");
    ASSERT_NE(category, nullptr);
    const TRRClass dictionary("Категории земель", (Data() / "XSDSchemes/KPT_v10/SchemaCommon/dCategories_v01.xsd").string());
    const auto* type = dynamic_cast<const TXSDSimpleType*>(category->TypeObj());
    ASSERT_NE(type, nullptr);
    ASSERT_NE(type->Restruction(), nullptr);
    int codes = 0;
    for (const auto& e : type->Restruction()->enumeration()) {
        EXPECT_EQ(category->GetTextValue(e->Value()), dictionary.GetByValue(e->Value())) << e->Value();
        ++codes;
    }
    EXPECT_EQ(codes, dictionary.Count());
    EXPECT_EQ(category->GetTextValue("003002000000"), "Земли населённых пунктов");
}

// Every dictionary file of the packages: the simple type's codes mean what the classifier
// reader takes from the same file.
TEST(XsdRealSets, EveryDictionaryDecodesAsTheClassifiersReadIt) {
    REQUIRE_DATA();
    int files = 0, codes = 0;
    for (const char* package : {"KPT_v09/SchemaCommon", "KPT_v10/SchemaCommon", "KVZU_v06/SchemaCommon", "KVZU_v07/SchemaCommon"}) {
        for (const auto& entry : fs::directory_iterator(Data() / "XSDSchemes" / package)) {
            const std::string name = entry.path().filename().string();
            if (name.rfind("d", 0) != 0 || entry.path().extension() != ".xsd") continue;
            TXSDLibraries set;
            const TXSDLibrary* root = set.LoadXSD(entry.path().string());
            if (root->SimpleTypes().Count() == 0 || !root->SimpleTypes().Items(0)->Restruction()) continue;
            const TRRClass dictionary("d", entry.path().string());
            const TXSDSimpleType* type = root->SimpleTypes().Items(0);
            ++files;
            for (const auto& e : type->Restruction()->enumeration()) {
                ASSERT_EQ(type->GetTextValue(e->Value()), dictionary.GetByValue(e->Value())) << name << " " << e->Value();
                ++codes;
            }
        }
    }
    EXPECT_GT(files, 40);
    EXPECT_GT(codes, 2000);
}
