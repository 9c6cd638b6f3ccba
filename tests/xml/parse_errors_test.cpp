// Malformed input: every case gives its reason, line and column, a false load and no children.
#include <gtest/gtest.h>

#include <random>

#include "xml_test_util.h"

using namespace tmi::xml;
using namespace tmi::xml::test;

namespace {

struct BadInput {
    const char* fXML;
    const char* fReason;
    int fLine;
    int fColumn;
};

const BadInput kBadInputs[] = {
    {"<a>\x01</a>", "The character \"0x0001\" cannot occur in text.", 1, 4},
    {"<a>x\x00y</a>", "The character \"0x0000\" cannot occur in text.", 1, 5},
    {"<a>\xEF\xBF\xBE</a>", "The character \"0xFFFE\" cannot occur in text.", 1, 4},
    {"<a>]]></a>", "The character \">\" cannot occur in text.", 1, 6},
    {"<a b=\"<\"/>", "The character \"<\" cannot occur in attribute.", 1, 7},
    {"<a b=\"\x02\"/>", "The character \"0x0002\" cannot occur in attribute.", 1, 7},
    {"<a b\x01=\"1\"/>", "The character \"0x0001\" cannot occur in element header.", 1, 5},
    {"<a/ >", "The character \"/\" cannot occur in element header.", 1, 3},
    {"<a =\"1\"/>", "An attribute cannot start with the character \"=\".", 1, 4},
    {"<a b=\"1\" ~/>", "An attribute cannot start with the character \"~\".", 1, 10},
    {"<a b/>", "Equal sign must follow the attribute \"b\".", 1, 5},
    {"<a b=1/>", "\"b\" attribute value must be enclosed in quotes.", 1, 6},
    {"<1a/>", "\"1a\" is not a valid element name.", 1, 2},
    {"<a><b~c/></a>", "\"b~c\" is not a valid element name.", 1, 5},
    {"<!foo>", "\"!foo\" is not a valid element name.", 1, 2},
    {"<a>&#xZZ;</a>", "\"&#xZZ;\" is not a valid entity.", 1, 4},
    {"<a>&#0;</a>", "\"&#0;\" is not a valid entity.", 1, 4},
    {"<a>&#x110000;</a>", "\"&#x110000;\" is not a valid entity.", 1, 4},
    {"<a>&#xD800;</a>", "\"&#xD800;\" is not a valid entity.", 1, 4},
    {"<a>& b</a>", "\"&\" is not a valid entity.", 1, 4},
    {"<a>&amp</a>", "\"&amp\" is not a valid entity.", 1, 4},
    {"<a>&foo;</a>", "The entity name \"&foo;\" was not found.", 1, 4},
    {"<a b=\"&nbsp;\"/>", "The entity name \"&nbsp;\" was not found.", 1, 7},
    {"<a><b>", "There are unclosed elements in the document end.", 1, 7},
    {"<a b=\"1", "There are unclosed elements in the document end.", 1, 8},
    {"<a><!-- x", "There are unclosed elements in the document end.", 1, 10},
    {"<a></b>", "Trying to close wrong element. Close=\"b\", open element=\"a\".", 1, 4},
    {"<a>\n  <b>\x01</b></a>", "The character \"0x0001\" cannot occur in text.", 2, 6},
    {"<a>\r\n\r<b>\x01</b></a>", "The character \"0x0001\" cannot occur in text.", 3, 4},
    {"<a>\n\xD0\x94\xD0\xBE\xD0\xBC\x01</a>", "The character \"0x0001\" cannot occur in text.", 2, 4},
};

}  // namespace

TEST(ParseErrors, EachMalformedInputGivesItsReasonAndPlace) {
    for (const BadInput& bad : kBadInputs) {
        // The table holds one string with a NUL in it; its length runs to "</a>".
        std::string xml = bad.fXML;
        if (xml == "<a>x") xml = std::string("<a>x\0y</a>", 10);
        TXMLDocument doc;
        EXPECT_FALSE(Load(doc, xml)) << xml;
        ASSERT_TRUE(doc.ParseError()) << xml;
        EXPECT_EQ(doc.ParseError()->Reason, bad.fReason) << xml;
        EXPECT_EQ(doc.ParseError()->Line, bad.fLine) << xml;
        EXPECT_EQ(doc.ParseError()->LinePos, bad.fColumn) << xml;
        EXPECT_FALSE(doc.Node()->HasChildNodes()) << xml;
        EXPECT_EQ(doc.DocumentElement(), nullptr) << xml;
    }
}

TEST(ParseErrors, TooManyElementsClosedWhenReadingGoesOn) {
    TXMLDocument doc;
    doc.ReaderSettings().BreakReading = brNone;
    EXPECT_FALSE(Load(doc, "<a></a></b>"));
    EXPECT_EQ(doc.ParseError()->Reason, "Too many elements closed.");
    EXPECT_EQ(doc.ParseError()->LinePos, 8);
}

TEST(ParseErrors, ContentAfterTheDocumentElementIsNeverRead) {
    TXMLDocument doc;
    ASSERT_TRUE(Load(doc, "<a/>\x01<<<garbage &bad; </x>"));
    EXPECT_EQ(doc.DocumentElement()->NodeName(), "a");
    EXPECT_EQ(doc.DocumentElement()->NextSibling(), nullptr);
}

TEST(ParseErrors, ReportNamesTheFileAndShowsTheStub) {
    const auto path = TempFile("bad.xml", "<root>\n  <item a=\"1\">\x01</item>\n</root>");
    TXMLDocument doc;
    EXPECT_FALSE(doc.LoadFromFile(path.string()));
    const auto& e = doc.ParseError();
    EXPECT_EQ(e->Line, 2);
    EXPECT_EQ(e->LinePos, 15);
    EXPECT_EQ(e->SrcText, "  <item a=\"1\"> </item>");
    EXPECT_EQ(e->SrcTextPos, 15);
    EXPECT_EQ(e->ErrorReport(),
              "The character \"0x0001\" cannot occur in text.\r\nURL: " + path.string() +
                  "\r\nReading at:\r\nLine: 2\r\nChar: 15\r\nPosition in source stub: 15\r\nSource stub:\r\n"
                  "  <item a=\"1\"> </item>");
    std::filesystem::remove(path);
}

TEST(ParseErrors, ErrorHandlingModes) {
    {
        TXMLDocument doc;
        doc.ReaderSettings().ErrorHandling = ehRaise;
        EXPECT_THROW(Load(doc, "<a><b></a>"), EXmlReaderError);
        EXPECT_FALSE(doc.Node()->HasChildNodes());
        ASSERT_TRUE(doc.ParseError());
    }
    {
        TXMLDocument doc;
        doc.ReaderSettings().ErrorHandling = ehSilent;
        EXPECT_FALSE(Load(doc, "<a><b></a>"));
        ASSERT_TRUE(doc.ParseError());
    }
}

TEST(ParseErrors, MissingFileRaises) {
    TXMLDocument doc;
    EXPECT_THROW(doc.LoadFromFile("/nonexistent/dir/file.xml"), EOXmlException);
}

TEST(ParseErrors, WithoutStrictChecksMalformedInputPassesAsText) {
    TXMLDocument doc;
    doc.ReaderSettings().StrictXML = false;
    ASSERT_TRUE(Load(doc, "<a b=1 c>x < y &foo; \x01<c></a>"));
    PXMLNode a = doc.DocumentElement();
    EXPECT_EQ(a->GetAttribute("b"), "1");
    EXPECT_TRUE(a->HasAttribute("c"));
    EXPECT_EQ(a->FirstChild()->NodeValue(), "x < y &foo; \x01");
    // "</a>" closes the open "c" as well.
    PXMLNode c = a->FindChild("c");
    ASSERT_NE(c, nullptr);
    EXPECT_FALSE(c->HasChildNodes());
}

TEST(ParseErrors, WithoutStrictChecksStrayCloseTagsAreIgnored) {
    TXMLDocument doc;
    doc.ReaderSettings().StrictXML = false;
    std::string xml = "<a>";
    for (int i = 0; i < 200000; ++i) xml += "</zz>";  // many ignored tags: no recursion per tag
    xml += "<b/></a>";
    ASSERT_TRUE(Load(doc, xml));
    EXPECT_NE(doc.DocumentElement()->FindChild("b"), nullptr);
}

TEST(ParseErrors, EveryTruncatedPrefixLoadsOrFailsCleanly) {
    const std::string xml =
        "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"utf-8\"?><!DOCTYPE r [<!ENTITY e \"x\">]><!-- c -->"
        "<r xmlns:p=\"urn:p\" a=\"1 &amp; 2\"><p:b c='&#x41;'>text&lt;<![CDATA[<raw>]]></p:b><?pi data?>"
        "<e/>\r\n<f>Дом</f></r>";
    for (bool strict : {true, false}) {
        for (size_t n = 0; n <= xml.size(); ++n) {
            TXMLDocument doc;
            doc.ReaderSettings().StrictXML = strict;
            const bool ok = Load(doc, xml.substr(0, n));
            if (!ok) {
                EXPECT_FALSE(doc.Node()->HasChildNodes());
                EXPECT_TRUE(doc.ParseError());
            }
            if (strict && n == xml.size()) {
                EXPECT_TRUE(ok);
            }
        }
    }
}

TEST(ParseErrors, RandomBytesNeverCrash) {
    std::mt19937 rng(12345);
    for (int i = 0; i < 500; ++i) {
        std::string bytes(static_cast<size_t>(rng() % 400), '\0');
        for (char& c : bytes) c = static_cast<char>(rng() % 6 == 0 ? "<>/=\"&;![]?-"[rng() % 12] : rng());
        if (i % 2) bytes = "<a>" + bytes;
        TXMLDocument doc;
        doc.ReaderSettings().StrictXML = (i % 3) != 0;
        if (!Load(doc, bytes)) {
            EXPECT_FALSE(doc.Node()->HasChildNodes());
        }
    }
}

TEST(ParseErrors, DeepNestingCostsNoStack) {
    constexpr int kDepth = 1000000;
    std::string xml;
    xml.reserve(kDepth * 7 + 10);
    for (int i = 0; i < kDepth; ++i) xml += "<a>";
    xml += "x";
    for (int i = 0; i < kDepth; ++i) xml += "</a>";
    TXMLDocument doc;
    ASSERT_TRUE(Load(doc, xml));
    PXMLNode root = doc.DocumentElement();
    EXPECT_EQ(root->Text(), "x");
    IXMLNodeListPtr list;
    EXPECT_TRUE(root->SelectNodes("//a", list));
    EXPECT_EQ(list->Count(), kDepth);
    EXPECT_TRUE(root->GetElementsByTagName("a", list));
    EXPECT_EQ(list->Count(), kDepth - 1);
    root->DeleteSelf();
    EXPECT_EQ(doc.DocumentElement(), nullptr);

    // The same depth left open is an error and leaves nothing behind.
    TXMLDocument open;
    EXPECT_FALSE(Load(open, xml.substr(0, kDepth * 3 + 1)));
    EXPECT_EQ(open.ParseError()->Reason, "There are unclosed elements in the document end.");
}

TEST(ParseErrors, HugeAttributeValue) {
    std::string xml = "<a v=\"";
    xml.append(100u << 20, 'x');
    xml += "\"/>";
    TXMLDocument doc;
    ASSERT_TRUE(Load(doc, xml));
    EXPECT_EQ(doc.DocumentElement()->GetAttribute("v").size(), 100u << 20);
}
