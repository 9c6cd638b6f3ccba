// The real extracts beside the repository: every one loads, and "//*" counts the same
// elements as libxml2 finds in it.
#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/xpath.h>

#include "xml_test_util.h"

using namespace tmi::xml;
using namespace tmi::xml::test;

namespace {

std::vector<std::filesystem::path> RealExtracts() {
    std::vector<std::filesystem::path> files;
    const auto root = SharedData() / "xml";
    if (!std::filesystem::exists(root)) return files;
    for (const auto& e : std::filesystem::recursive_directory_iterator(root))
        if (e.is_regular_file() && e.path().extension() == ".xml") files.push_back(e.path());
    std::sort(files.begin(), files.end());
    return files;
}

int Libxml2ElementCount(const std::filesystem::path& aFile) {
    xmlDocPtr doc = xmlReadFile(aFile.c_str(), nullptr, XML_PARSE_NONET | XML_PARSE_HUGE);
    if (!doc) return -1;
    xmlXPathContextPtr ctx = xmlXPathNewContext(doc);
    xmlXPathObjectPtr result = xmlXPathEvalExpression(BAD_CAST "//*", ctx);
    const int count = result && result->nodesetval ? result->nodesetval->nodeNr : 0;
    xmlXPathFreeObject(result);
    xmlXPathFreeContext(ctx);
    xmlFreeDoc(doc);
    return count;
}

}  // namespace

TEST(RealData, EveryExtractLoadsAndCountsLikeLibxml2) {
    const auto files = RealExtracts();
    if (files.empty()) {
        if (InCI()) FAIL() << "the shared test data is missing: " << SharedData();
        GTEST_SKIP() << "no shared data at " << SharedData();
    }
    for (const auto& file : files) {
        TXMLDocument doc;
        ASSERT_TRUE(doc.LoadFromFile(file.string())) << file << "\n" << doc.ParseError()->ErrorReport();
        ASSERT_NE(doc.DocumentElement(), nullptr) << file;
        IXMLNodeListPtr list;
        doc.Node()->SelectNodes("//*", list);
        EXPECT_EQ(list->Count(), Libxml2ElementCount(file)) << file;
    }
}

TEST(RealData, ClassicAndNewRootsAndNamespaces) {
    const auto kpt10 = SharedData() / "xml" / "KPT10" / "rrimplib__doc9415874.xml";
    if (!std::filesystem::exists(kpt10)) {
        if (InCI()) FAIL() << "missing " << kpt10;
        GTEST_SKIP();
    }
    TXMLDocument doc;
    ASSERT_TRUE(doc.LoadFromFile(kpt10.string()));
    PXMLNode root = doc.DocumentElement();
    EXPECT_EQ(root->NodeName(), "KPT");
    EXPECT_EQ(root->NameSpaceURI(), "urn://x-artefacts-rosreestr-ru/outgoing/kpt/10.0.1");
    PXMLNode parcel = root->SelectNode("CadastralBlocks/CadastralBlock/Parcels/Parcel");
    ASSERT_NE(parcel, nullptr);
    EXPECT_EQ(parcel->GetAttribute("CadastralNumber"), "66:41:0302032:1");
    IXMLNodeListPtr units;
    ASSERT_TRUE(parcel->SelectNodes("EntitySpatial/ns3:SpatialElement/ns3:SpelementUnit[@TypeUnit='Точка']", units));
    EXPECT_GT(units->Count(), 3);
    EXPECT_EQ(units->Get(0)->FirstChild()->GetAttribute("X"), "392781.63");
}
