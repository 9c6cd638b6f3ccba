// What a load makes of text: white space modes, line breaks, entities, CDATA, comments,
// processing instructions, the declaration and the progress event.
#include <gtest/gtest.h>

#include "xml_test_util.h"

using namespace tmi::xml;
using namespace tmi::xml::test;

namespace {

// The values of the text children of the document element, joined by "|".
std::string TextChildren(TXMLDocument& aDoc, std::string_view aXML) {
    EXPECT_TRUE(Load(aDoc, aXML));
    std::string out;
    for (PXMLNode n = aDoc.DocumentElement()->FirstChild(); n; n = n->NextSibling()) {
        if (n->NodeType() != ntText) continue;
        if (!out.empty()) out += "|";
        out += n->NodeValue();
    }
    return out;
}

}  // namespace

TEST(ParseContent, WhiteSpaceHandlingModes) {
    const std::string xml = "<a>  <b/> 12.5 <c/>\t\n<d/></a>";
    struct Case {
        TXMLWhiteSpaceHandling fMode;
        const char* fExpected;
    };
    for (const Case& c : {Case{wsPreserveInTextOnly, " 12.5 "}, Case{wsTrim, "12.5"},
                          Case{wsPreserveAll, "  | 12.5 |\t\r\n"}, Case{wsAutoTag, "12.5"}}) {
        TXMLDocument doc;
        doc.WhiteSpaceHandling = c.fMode;
        EXPECT_EQ(TextChildren(doc, xml), c.fExpected) << int(c.fMode);
    }
}

TEST(ParseContent, AutoTagFollowsNearestXmlSpace) {
    TXMLDocument doc;
    doc.WhiteSpaceHandling = wsAutoTag;
    ASSERT_TRUE(Load(doc, "<a xml:space=\"preserve\"> <b xml:space='default'> x </b> y </a>"));
    PXMLNode a = doc.DocumentElement();
    EXPECT_FALSE(a->HasAttribute("xml:space"));  // taken as a setting, not stored
    EXPECT_EQ(a->FirstChild()->NodeValue(), " ");
    PXMLNode b = a->FindChild("b");
    EXPECT_EQ(b->Text(), "x");
    EXPECT_EQ(b->NextSibling()->NodeValue(), " y ");

    // Under the default handling it is an ordinary attribute.
    TXMLDocument plain;
    ASSERT_TRUE(Load(plain, "<a xml:space=\"preserve\"> </a>"));
    EXPECT_EQ(plain.DocumentElement()->GetAttribute("xml:space"), "preserve");
    EXPECT_FALSE(plain.DocumentElement()->HasChildNodes());
}

TEST(ParseContent, LineBreaksBecomeCRLFInTextAndAttributes) {
    TXMLDocument doc;
    ASSERT_TRUE(Load(doc, "<a v=\"1\n2\r3\r\n4\">x\ny\rz\r\nw</a>"));
    EXPECT_EQ(doc.DocumentElement()->GetAttribute("v"), "1\r\n2\r\n3\r\n4");
    EXPECT_EQ(doc.DocumentElement()->Text(), "x\r\ny\r\nz\r\nw");

    TXMLDocument lf;
    lf.ReaderSettings().LineBreak = lbLF;
    ASSERT_TRUE(Load(lf, "<a>x\r\ny\rz</a>"));
    EXPECT_EQ(lf.DocumentElement()->Text(), "x\ny\nz");

    TXMLDocument raw;
    raw.ReaderSettings().LineBreak = lbDoNotProcess;
    ASSERT_TRUE(Load(raw, "<a>x\r\ny\rz\n</a>"));
    EXPECT_EQ(raw.DocumentElement()->Text(), "x\r\ny\rz\n");
}

TEST(ParseContent, EntitiesAndCharacterReferences) {
    TXMLDocument doc;
    ASSERT_TRUE(Load(doc, "<a v=\"&lt;&amp;&gt;&quot;&apos;&#65;&#x42;&#x416;\">&lt;b&gt; &#x1F600;</a>"));
    EXPECT_EQ(doc.DocumentElement()->GetAttribute("v"), "<&>\"'AB\xD0\x96");
    EXPECT_EQ(doc.DocumentElement()->Text(), "<b> \xF0\x9F\x98\x80");
    // One text node: an expanded entity does not split the text.
    EXPECT_EQ(doc.DocumentElement()->FirstChild(), doc.DocumentElement()->LastChild());
}

TEST(ParseContent, UnexpandedEntitiesBecomeReferenceNodes) {
    TXMLDocument doc;
    doc.ReaderSettings().ExpandEntities = false;
    ASSERT_TRUE(Load(doc, "<a v=\"x&amp;y\">1 &lt; 2</a>"));
    PXMLNode a = doc.DocumentElement();
    EXPECT_EQ(a->GetAttribute("v"), "x&amp;y");
    PXMLNode ref = a->FirstChild()->NextSibling();
    ASSERT_EQ(ref->NodeType(), ntEntityReference);
    EXPECT_EQ(ref->NodeName(), "lt");
    EXPECT_EQ(ref->NodeValue(), "<");
    EXPECT_EQ(a->Text(), "1 < 2");
}

TEST(ParseContent, NoDocumentTypeEntityIsEverDefinedOrRead) {
    TXMLDocument doc;
    EXPECT_FALSE(Load(doc, "<!DOCTYPE a [<!ENTITY x \"boom\"><!ENTITY y SYSTEM \"file:///etc/passwd\">]><a>&x;&y;</a>"));
    EXPECT_EQ(doc.ParseError()->Reason, "The entity name \"&x;\" was not found.");

    TXMLDocument ok;
    ASSERT_TRUE(Load(ok, "<!DOCTYPE a [<!ENTITY x \">\">]><a/>"));
    PXMLNode dt = ok.Node()->FirstChild();
    ASSERT_EQ(dt->NodeType(), ntDocType);
    EXPECT_EQ(dt->NodeValue(), "a [<!ENTITY x \">\">]");
}

TEST(ParseContent, CDataCommentsAndProcessingInstructions) {
    TXMLDocument doc;
    ASSERT_TRUE(Load(doc, "<?xml version=\"1.0\"?><?style href=\"a.xsl\"?><!--top--><a>x<![CDATA[<&>]]>y<!-- in --></a>"));
    PXMLNode n = doc.Node()->FirstChild();
    EXPECT_EQ(n->NodeType(), ntXMLDeclaration);
    EXPECT_EQ(n->NodeName(), "xml");
    EXPECT_EQ(n->GetAttribute("version"), "1.0");
    n = n->NextSibling();
    EXPECT_EQ(n->NodeType(), ntProcessingInstruction);
    EXPECT_EQ(n->NodeName(), "style");
    EXPECT_EQ(n->NodeValue(), "href=\"a.xsl\"");
    n = n->NextSibling();
    EXPECT_EQ(n->NodeType(), ntComment);
    EXPECT_EQ(n->NodeValue(), "top");
    PXMLNode a = doc.DocumentElement();
    EXPECT_EQ(a->ChildNodes()->Count(), 4);
    EXPECT_EQ(a->ChildNodes()->Get(1)->NodeType(), ntCData);
    EXPECT_EQ(a->ChildNodes()->Get(1)->NodeValue(), "<&>");
    // Text joins CDATA with its text neighbours; comments have no text.
    EXPECT_EQ(a->Text(), "x<&>y");
    EXPECT_EQ(a->ChildNodes()->Get(3)->Text(), "");
}

TEST(ParseContent, DeclarationIsOnlyRecognisedFirst) {
    TXMLDocument doc;
    doc.ReaderSettings().RecognizeXMLDeclaration = false;
    ASSERT_TRUE(Load(doc, "<?xml version=\"1.0\"?><a/>"));
    EXPECT_EQ(doc.Node()->FirstChild()->NodeType(), ntProcessingInstruction);
}

TEST(ParseContent, EmptyAndMinimalDocuments) {
    {
        TXMLDocument doc;
        EXPECT_TRUE(Load(doc, ""));
        EXPECT_EQ(doc.DocumentElement(), nullptr);
    }
    {
        TXMLDocument doc;
        EXPECT_TRUE(Load(doc, "<?xml version=\"1.0\"?>\n"));
        EXPECT_EQ(doc.DocumentElement(), nullptr);
    }
    {
        TXMLDocument doc;
        EXPECT_TRUE(Load(doc, "<r/>"));
        EXPECT_EQ(doc.DocumentElement()->NodeName(), "r");
        EXPECT_EQ(doc.DocumentElement()->Text(), "");
        EXPECT_FALSE(doc.DocumentElement()->HasChildNodes());
    }
}

TEST(ParseContent, SecondAttributeOfTheSameNameOverwrites) {
    TXMLDocument doc;
    ASSERT_TRUE(Load(doc, "<a x=\"1\" y=\"2\" x=\"3\"/>"));
    EXPECT_EQ(doc.DocumentElement()->AttributeNodes()->Count(), 2);
    EXPECT_EQ(doc.DocumentElement()->GetAttribute("x"), "3");

    // The same beyond the point where the load indexes an element's attributes.
    std::string xml = "<a";
    for (int i = 0; i < 600; ++i) xml += " n" + std::to_string(i) + "=\"" + std::to_string(i) + "\"";
    xml += " n5=\"five\" n599=\"last\"/>";
    TXMLDocument many;
    ASSERT_TRUE(Load(many, xml));
    EXPECT_EQ(many.DocumentElement()->AttributeNodes()->Count(), 600);
    EXPECT_EQ(many.DocumentElement()->GetAttribute("n5"), "five");
    EXPECT_EQ(many.DocumentElement()->GetAttribute("n599"), "last");
}

TEST(ParseContent, ProgressIsReportedOncePerToken) {
    TXMLDocument doc;
    std::vector<int64_t> positions;
    int64_t total = 0;
    doc.OnProgress = [&](TXMLDocument&, int aPhase, int64_t aTotal, int64_t aPosition) {
        EXPECT_EQ(aPhase, 0);
        total = aTotal;
        positions.push_back(aPosition);
    };
    const std::string xml = "<a x=\"1\">t</a>";
    ASSERT_TRUE(Load(doc, xml));
    // open a, attribute x, finish open, text, close a
    EXPECT_EQ(positions.size(), 5u);
    EXPECT_EQ(total, static_cast<int64_t>(xml.size()));
    EXPECT_EQ(positions.back(), static_cast<int64_t>(xml.size()));
    EXPECT_TRUE(std::is_sorted(positions.begin(), positions.end()));
}

TEST(ParseContent, LoadIntoAnElement) {
    TXMLDocument doc("root");
    TXMLReaderSettings settings;
    TXMLReader reader(settings);
    const std::string part = "<x>1</x><y/>";
    reader.InitBuffer(part.data(), part.size());
    ASSERT_TRUE(doc.LoadFromReader(reader, doc.DocumentElement()));
    EXPECT_EQ(doc.DocumentElement()->ChildNodes()->Count(), 1);  // reading stops after the first element
    PXMLNode text = doc.DocumentElement()->FirstChild()->FirstChild();
    EXPECT_THROW(doc.LoadFromReader(reader, text), EXMLDOMException);
}

TEST(ParseContent, BlankTextCanBeLeftWithoutTokens) {
    auto texts = [](bool aIgnore, const std::string& aXML) {
        TXMLReaderSettings settings;
        settings.IgnoreBlankText = aIgnore;
        TXMLReader reader(settings);
        reader.InitBuffer(aXML.data(), aXML.size());
        std::string out;
        const TXMLReaderToken* token = nullptr;
        while (reader.ReadNextToken(&token))
            if (token->TokenType == rtText) out += "[" + std::string(token->TokenValue) + "]";
        EXPECT_FALSE(reader.ParseError()) << aXML;
        return out;
    };
    // White space alone between markup goes; text with white space around it stays whole, its
    // line breaks as ever.
    const std::string xml = "<a>\n  <b> x </b>\r\n\t<c/>  y\n<!-- c -->\n  <d>\n</d>  </a>";
    EXPECT_EQ(texts(true, xml), "[ x ][  y\r\n]");
    EXPECT_EQ(texts(false, xml), "[\r\n  ][ x ][\r\n\t][  y\r\n][\r\n  ][\r\n][  ]");
    // An unclosed document still fails at its end.
    TXMLReaderSettings settings;
    settings.IgnoreBlankText = true;
    TXMLReader reader(settings);
    const std::string cut = "<a>\n  ";
    reader.InitBuffer(cut.data(), cut.size());
    const TXMLReaderToken* token = nullptr;
    while (reader.ReadNextToken(&token)) {
    }
    ASSERT_TRUE(reader.ParseError());
    EXPECT_EQ(reader.ParseError()->Reason, "There are unclosed elements in the document end.");
}
