// Selection: the simple-path shortcut, every selector and predicate, both ways of running,
// and the error texts.
#include <gtest/gtest.h>

#include "xml_test_util.h"
#include "xpath.h"

using namespace tmi::xml;
using namespace tmi::xml::test;

namespace {

const char* kDoc =
    "<r xmlns:p=\"urn:p\">"
    "<a id=\"1\"><b n=\"x\">one</b><b n=\"y\">two</b><c/></a>"
    "<a id=\"2\"><b n=\"z\">three</b><p:b>ns</p:b></a>"
    "<d>tail<![CDATA[cd]]></d>"
    "</r>";

class XPath : public ::testing::Test {
protected:
    void SetUp() override { ASSERT_TRUE(Load(fDoc, kDoc)); }

    // Names (or values for text and attributes) of what a path selects from the root.
    std::string Select(std::string_view aPath, int aMax = 0, PXMLNode aFrom = nullptr) {
        IXMLNodeListPtr list;
        const bool any = (aFrom ? aFrom : fDoc.DocumentElement())->SelectNodes(aPath, list, aMax);
        EXPECT_NE(list, nullptr);
        EXPECT_EQ(any, list->Count() > 0);
        std::string out;
        for (PXMLNode n : *list) {
            if (!out.empty()) out += ",";
            switch (n->NodeType()) {
                case ntText:
                case ntCData: out += n->NodeValue(); break;
                case ntAttribute: out += "@" + std::string(n->NodeName()) + "=" + std::string(n->NodeValue()); break;
                case ntDocument: out += "#doc"; break;
                default: {
                    out += n->NodeName();
                    const std::string_view tag = n->HasAttribute("n") ? n->GetAttribute("n") : n->GetAttribute("id");
                    if (!tag.empty()) out += "(" + std::string(tag) + ")";
                }
            }
        }
        return out;
    }

    std::string ErrorOfPath(std::string_view aPath) {
        try {
            (void)fDoc.DocumentElement()->SelectNodes(aPath);
        } catch (const EXmlXPathInvalidString& e) {
            return e.what();
        }
        return "no error";
    }

    TXMLDocument fDoc;
};

}  // namespace

TEST_F(XPath, ChildStepsAndWildcards) {
    EXPECT_EQ(Select("a"), "a(1),a(2)");
    EXPECT_EQ(Select("a/b"), "b(x),b(y),b(z)");
    EXPECT_EQ(Select("a/*"), "b(x),b(y),c,b(z),p:b");
    EXPECT_EQ(Select("a/p:b"), "p:b");
    EXPECT_EQ(Select("a/b/text()"), "one,two,three");
    EXPECT_EQ(Select("d/text()"), "tail,cd");
    EXPECT_EQ(Select("d/node()"), "tail,cd");
    EXPECT_EQ(Select("a/@id"), "@id=1,@id=2");
    EXPECT_EQ(Select("a/b/@*"), "@n=x,@n=y,@n=z");
    EXPECT_EQ(Select("a/nothing"), "");
}

TEST_F(XPath, RootParentAndCurrent) {
    EXPECT_EQ(Select("/r/d"), "d");
    EXPECT_EQ(Select("a/c/.."), "a(1)");
    EXPECT_EQ(Select("./a/./c"), "c");
    // Without "//" results join in the order found, duplicates included.
    EXPECT_EQ(Select("a/b/.."), "a(1),a(1),a(2)");
}

TEST_F(XPath, PositionPredicates) {
    EXPECT_EQ(Select("a/b[1]"), "b(x),b(z)");  // position among the filtered set of each parent
    EXPECT_EQ(Select("a/b[2]"), "b(y)");
    EXPECT_EQ(Select("a/b[+2]"), "b(y)");
    EXPECT_EQ(Select("a/b[3]"), "");
    EXPECT_EQ(Select("a/b[0]"), "");
    EXPECT_EQ(Select("a/b[-1]"), "");
    EXPECT_EQ(Select("a/b[last()]"), "b(y),b(z)");
    EXPECT_EQ(Select("a/b[last()-1]"), "b(x)");
    EXPECT_EQ(Select("a[last()]/b"), "b(z)");
}

TEST_F(XPath, AttributeAndTextPredicates) {
    EXPECT_EQ(Select("a[@id]"), "a(1),a(2)");
    EXPECT_EQ(Select("a/b[@n=y]"), "b(y)");
    EXPECT_EQ(Select("a/b[@n=\"y\"]"), "b(y)");
    EXPECT_EQ(Select("a/b[@n='z']"), "b(z)");
    EXPECT_EQ(Select("a/b[@n='Y']"), "");        // case-sensitive
    EXPECT_EQ(Select("a/b[@n='absent']"), "");   // a value the file never holds
    EXPECT_EQ(Select("a/b[@id]"), "");
    EXPECT_EQ(Select("a/b[text()=two]"), "b(y)");
    EXPECT_EQ(Select("a/b[text()='three']"), "b(z)");
}

// A document read record by record appends its values without hashing them; its predicates
// compare the text instead of the dictionary id.
TEST_F(XPath, AttributePredicatesWithAppendedValues) {
    IXMLNodeListPtr found = fDoc.DocumentElement()->SelectNodes("a/b[@n='y']");
    ASSERT_TRUE(found && found->Count() == 1);
    PXMLNode m = found->Get(0)->SetAttribute("m", "");
    m->fNodeValueId = fDoc.AppendString("only-here");
    EXPECT_EQ(fDoc.IndexOfString("only-here"), -1);
    EXPECT_EQ(Select("a/b[@m='only-here']"), "b(y)");
    EXPECT_EQ(Select("a/b[@n='z']"), "b(z)");
    EXPECT_EQ(Select("a/b[@n='Y']"), "");
    EXPECT_EQ(Select("a/b[@m='absent']"), "");
}

TEST_F(XPath, AllLevelsAndUnionsStandInDocumentOrder) {
    EXPECT_EQ(Select("//b"), "b(x),b(y),b(z)");
    EXPECT_EQ(Select("a//b"), "b(x),b(y),b(z)");
    EXPECT_EQ(Select("//b/.."), "a(1),a(2)");  // duplicates merge
    EXPECT_EQ(Select("d|a/c|a/b[2]"), "b(y),c,d");
    EXPECT_EQ(Select("//@n"), "@n=x,@n=y,@n=z");
    EXPECT_EQ(Select("//a/@id|//c"), "@id=1,c,@id=2");
    EXPECT_EQ(Select("//b", 2), "b(x),b(y)");
    EXPECT_EQ(Select("a/b", 1), "b(x)");
}

TEST_F(XPath, ElementCountOfAllLevels) {
    IXMLNodeListPtr list;
    ASSERT_TRUE(fDoc.Node()->SelectNodes("//*", list));
    EXPECT_EQ(list->Count(), 9);
}

TEST_F(XPath, SelectNodeAndTheSimplePathShortcut) {
    PXMLNode r = fDoc.DocumentElement();
    EXPECT_EQ(r->SelectNode("a")->GetAttribute("id"), "1");
    EXPECT_EQ(r->SelectNode("@xmlns:p")->NodeValue(), "urn:p");
    EXPECT_EQ(r->SelectNode("a/b[2]")->GetAttribute("n"), "y");
    EXPECT_EQ(r->SelectNode("d/c/b"), nullptr);
    EXPECT_EQ(r->SelectNode("missing"), nullptr);
    // "*" alone is a simple path: a child literally named "*", which there is not.
    EXPECT_EQ(r->SelectNode("*"), nullptr);
    EXPECT_THROW((void)r->SelectNode(""), EXMLDOMException);
}

TEST_F(XPath, NoMatchGivesAnEmptyListNotNil) {
    IXMLNodeListPtr list;
    EXPECT_FALSE(fDoc.DocumentElement()->SelectNodes("a/b[9]", list));
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(list->Count(), 0);
    EXPECT_EQ(list->GetFirst(), nullptr);
}

TEST_F(XPath, ErrorTexts) {
    EXPECT_EQ(ErrorOfPath(""), "XPath cannot be empty.");
    EXPECT_EQ(ErrorOfPath("a/b[1"), "XPath is not supported.\r\nXPath: a/b[1");
    EXPECT_EQ(ErrorOfPath("a/b[@n=\"x]"), "XPath predicate \"@n=\"x\" is not valid.\r\nXPath: a/b[@n=\"x]");
    EXPECT_EQ(ErrorOfPath("a/b[@n='x\"]"), "XPath predicate \"@n='x\"\" is not valid.\r\nXPath: a/b[@n='x\"]");
    EXPECT_EQ(ErrorOfPath("a/b[position()=1]"),
              "XPath predicate \"position()=1\" is not supported.\r\nXPath: a/b[position()=1]");
    EXPECT_EQ(ErrorOfPath("a/b[last()*2]"), "XPath predicate \"last()*2\" is not supported.\r\nXPath: a/b[last()*2]");
}

TEST_F(XPath, NamespaceAwareSelection) {
    IXMLNodeListPtr list;
    PXMLNode r = fDoc.DocumentElement();
    ASSERT_TRUE(r->SelectNodesNS("urn:p", "//b", list, 0, nsFull));
    ASSERT_EQ(list->Count(), 1);
    EXPECT_EQ(list->Get(0)->Text(), "ns");
    ASSERT_TRUE(r->SelectNodesNS("urn:p", "//b", list, 0, nsFast));
    ASSERT_EQ(list->Count(), 1);
    EXPECT_EQ(list->Get(0)->NodeName(), "p:b");
    EXPECT_FALSE(r->SelectNodesNS("urn:none", "//b", list, 0, nsFull));
}

TEST_F(XPath, PathParsing) {
    TXMLXPathList list;
    list.LoadFromString("/r//a[@id='2']/@id | text()");
    ASSERT_EQ(list.Items().size(), 2u);
    const auto& s = list.Items()[0].fSelectors;
    ASSERT_EQ(s.size(), 5u);
    EXPECT_EQ(s[0].fType, xntRootElement);
    EXPECT_EQ(s[1].fType, xntElement);
    EXPECT_EQ(s[2].fType, xntAllLevelsElement);
    EXPECT_EQ(s[3].fType, xntElement);
    EXPECT_EQ(s[3].fPredicate, TXMLXPathPredicate::AttributeEquals);
    EXPECT_EQ(s[3].fValue, "2");
    EXPECT_EQ(s[4].fType, xntAttribute);
    EXPECT_EQ(list.Items()[1].fSelectors[0].fType, xntText);
    EXPECT_TRUE(IsSimpleXPath("@name"));
    EXPECT_FALSE(IsSimpleXPath("a.b"));
}

namespace {

const char* kNamespaces =
    "<r xmlns=\"urn:d\" xmlns:p=\"urn:p\" xmlns:q=\"urn:p\">"
    "<b>default</b><p:b>p</p:b><q:b>q</q:b>"
    "<s xmlns:p=\"urn:other\"><p:b>rebound</p:b><b xmlns=\"urn:p\">local default</b></s>"
    "<x:b xmlns:x=\"urn:p\" p:k=\"1\" k=\"2\">own</x:b>"
    "</r>";

std::string Texts(const IXMLNodeListPtr& aList) {
    std::string out;
    for (PXMLNode n : *aList) out += (out.empty() ? "" : ",") + n->Text();
    return out;
}

}  // namespace

TEST(XPathNameSpaces, FullComparesEveryPrefixBoundInScope) {
    TXMLDocument doc;
    ASSERT_TRUE(Load(doc, kNamespaces));
    PXMLNode r = doc.DocumentElement();
    IXMLNodeListPtr list;
    EXPECT_TRUE(r->SelectNodesNS("urn:p", "//b", list, 0, nsFull));
    EXPECT_EQ(Texts(list), "p,q,local default,own");
    EXPECT_TRUE(r->SelectNodesNS("urn:d", "b", list, 0, nsFull));
    EXPECT_EQ(Texts(list), "default");
    EXPECT_FALSE(r->SelectNodesNS("urn:nowhere", "b", list, 0, nsFull));
    EXPECT_EQ(list->Count(), 0);
}

TEST(XPathNameSpaces, FastComparesThePrefixedName) {
    TXMLDocument doc;
    ASSERT_TRUE(Load(doc, kNamespaces));
    PXMLNode r = doc.DocumentElement();
    IXMLNodeListPtr list;
    // The first prefix bound to the URI at the context is put before the names.
    EXPECT_TRUE(r->SelectNodesNS("urn:p", "b", list, 0, nsFast));
    EXPECT_EQ(Texts(list), "p");
    // The default namespace gives names without a prefix.
    EXPECT_TRUE(r->SelectNodesNS("urn:d", "b", list, 0, nsFast));
    EXPECT_EQ(Texts(list), "default");
    // A URI bound nowhere matches nothing, not the plain names.
    EXPECT_FALSE(r->SelectNodesNS("urn:nowhere", "b", list, 0, nsFast));
    EXPECT_EQ(list->Count(), 0);
    // The prefix form.
    EXPECT_TRUE(r->SelectNodesNSPrefix("q", "b", list));
    EXPECT_EQ(Texts(list), "q");
    EXPECT_TRUE(r->SelectNodesNSPrefix("p", "//b", list));
    EXPECT_EQ(Texts(list), "p,rebound");  // as written, whatever the prefix is bound to
    EXPECT_FALSE(r->SelectNodesNSPrefix("z", "b", list));
}

TEST(XPathNameSpaces, DocumentReadNameSpaceForFindChildAndFindAttribute) {
    TXMLDocument doc;
    ASSERT_TRUE(Load(doc, kNamespaces));
    PXMLNode r = doc.DocumentElement();
    EXPECT_EQ(r->FindChild("b")->Text(), "default");  // nsNo: the name as written
    doc.ReadNameSpaceURI = "urn:p";
    doc.UseReadNameSpaceURI = nsFull;
    EXPECT_EQ(r->FindChild("b")->Text(), "p");
    EXPECT_EQ(r->FindChild("s"), nullptr);  // unprefixed "s" is in urn:d, not in urn:p ...
    doc.UseReadNameSpaceURI = nsNo;
    PXMLNode s = r->FindChild("s");
    doc.UseReadNameSpaceURI = nsFull;
    // ... declarations on the candidates: seen only without FastNameSpaces.
    EXPECT_EQ(s->FindChild("b"), nullptr);
    doc.FastNameSpaces = false;
    EXPECT_EQ(s->FindChild("b")->Text(), "local default");
    EXPECT_EQ(r->FindChild("b")->Text(), "p");
    PXMLNode own = r->LastChild();
    // Attributes: the one in the namespace first, then the one without a prefix.
    EXPECT_EQ(own->GetAttribute("k"), "1");
    doc.ReadNameSpaceURI = "urn:elsewhere";
    EXPECT_EQ(own->GetAttribute("k"), "2");
    doc.UseReadNameSpaceURI = nsFast;
    doc.ReadNameSpacePrefix = "q";
    EXPECT_EQ(r->FindChild("b")->Text(), "q");
    doc.ReadNameSpacePrefix = "";
    EXPECT_EQ(r->FindChild("b")->Text(), "default");
}

// Decided: an attribute without a prefix is in no namespace; "xml" and "xmlns" are bound by
// the recommendation; every other prefix is resolved by the declarations upward.
TEST(XPathNameSpaces, NameSpaceURIOfNodes) {
    TXMLDocument doc;
    ASSERT_TRUE(Load(doc, kNamespaces));
    PXMLNode r = doc.DocumentElement();
    PXMLNode own = r->LastChild();
    EXPECT_EQ(r->NameSpaceURI(), "urn:d");
    EXPECT_EQ(own->NameSpaceURI(), "urn:p");
    EXPECT_EQ(own->GetAttributeNode("k")->NameSpaceURI(), "");
    EXPECT_EQ(own->GetAttributeNode("p:k")->NameSpaceURI(), "urn:p");
    EXPECT_EQ(r->GetAttributeNode("xmlns")->NameSpaceURI(), "http://www.w3.org/2000/xmlns/");
    EXPECT_EQ(r->GetAttributeNode("xmlns:p")->NameSpaceURI(), "http://www.w3.org/2000/xmlns/");
    EXPECT_EQ(r->ResolvePrefix("xml"), "http://www.w3.org/XML/1998/namespace");
    EXPECT_EQ(r->FindChild("s")->FirstChild()->NameSpaceURI(), "urn:other");
    EXPECT_EQ(r->ResolvePrefix("undeclared"), "");
}
