// Walking and changing a document: names, lookups, the child list's anchors, the indexes,
// the arena's free list, namespaces and the dictionary.
#include <gtest/gtest.h>

#include <filesystem>

#include "xml_test_util.h"

using namespace tmi::xml;
using namespace tmi::xml::test;

TEST(DomNames, QualifiedLocalAndPrefix) {
    TXMLDocument doc;
    ASSERT_TRUE(Load(doc, "<r xmlns=\"urn:d\" xmlns:p=\"urn:p\"><p:a p:x=\"1\" y=\"2\"><b/></p:a></r>"));
    PXMLNode a = doc.DocumentElement()->FirstChild();
    EXPECT_EQ(a->NodeName(), "p:a");
    EXPECT_EQ(a->LocalName(), "a");
    EXPECT_EQ(a->NameSpacePrefix(), "p");
    EXPECT_EQ(a->NameSpaceURI(), "urn:p");
    EXPECT_EQ(a->FirstChild()->NameSpaceURI(), "urn:d");
    EXPECT_EQ(a->GetAttributeNode("p:x")->NameSpaceURI(), "urn:p");
    EXPECT_EQ(a->GetAttributeNode("y")->NameSpaceURI(), "");
    // Lookup is exact: the prefix is part of the name.
    EXPECT_EQ(doc.DocumentElement()->FindChild("a"), nullptr);
    EXPECT_NE(doc.DocumentElement()->FindChild("p:a"), nullptr);
}

TEST(DomLookup, AbsentNamesGiveEmptyValuesWithoutAWalk) {
    TXMLDocument doc;
    ASSERT_TRUE(Load(doc, "<a x=\"1\"><b/></a>"));
    PXMLNode a = doc.DocumentElement();
    const int32_t strings = doc.Dictionary().Count();
    EXPECT_EQ(a->GetAttribute("never"), "");
    EXPECT_EQ(a->GetAttributeDef("never", "dflt"), "dflt");
    EXPECT_FALSE(a->HasAttribute("never"));
    EXPECT_EQ(a->FindChild("never"), nullptr);
    EXPECT_EQ(doc.IndexOfString("never"), -1);
    // A lookup adds nothing to the dictionary.
    EXPECT_EQ(doc.Dictionary().Count(), strings);
    // A name that exists elsewhere in the file is looked for, and not found here.
    EXPECT_EQ(a->FindChild("x"), nullptr);
    EXPECT_EQ(a->FindChild("b")->GetAttribute("x"), "");
}

TEST(DomLookup, AttributeIndexOnElementsWithManyAttributes) {
    std::string xml = "<a";
    for (int i = 0; i < 1000; ++i) xml += " k" + std::to_string(i) + "=\"v" + std::to_string(i) + "\"";
    xml += "><b k1=\"other\"/></a>";
    TXMLDocument doc;
    ASSERT_TRUE(Load(doc, xml));
    PXMLNode a = doc.DocumentElement();
    for (int i = 999; i >= 0; i -= 37) EXPECT_EQ(a->GetAttribute("k" + std::to_string(i)), "v" + std::to_string(i));
    EXPECT_EQ(a->FirstChild()->GetAttribute("k1"), "other");
    // The index follows changes of the indexed element.
    a->SetAttribute("k999", "changed");
    a->DeleteAttribute("k998");
    a->SetAttribute("new", "n");
    EXPECT_EQ(a->GetAttribute("k999"), "changed");
    EXPECT_FALSE(a->HasAttribute("k998"));
    EXPECT_EQ(a->GetAttribute("new"), "n");
}

TEST(DomLookup, FindChildWithIndex) {
    std::string xml = "<a>";
    for (int i = 0; i < 2000; ++i) xml += "<c" + std::to_string(i % 700) + " n=\"" + std::to_string(i) + "\"/>";
    xml += "</a>";
    TXMLDocument doc;
    ASSERT_TRUE(Load(doc, xml));
    PXMLNode a = doc.DocumentElement();
    TXMLChildIndex index;
    PXMLNode c = nullptr;
    for (int round = 0; round < 2; ++round) {
        ASSERT_TRUE(a->FindChildWithIndex("c699", c, index));
        EXPECT_EQ(c->GetAttribute("n"), "699");  // the first of that name
        ASSERT_TRUE(a->FindChildWithIndex("c5", c, index));
        EXPECT_EQ(c->GetAttribute("n"), "5");
        EXPECT_FALSE(a->FindChildWithIndex("n", c, index));
        EXPECT_EQ(c, nullptr);
        EXPECT_FALSE(a->FindChildWithIndex("zzz", c, index));
    }
    // Another parent resets the index.
    EXPECT_FALSE(a->FirstChild()->FindChildWithIndex("c5", c, index));
}

TEST(DomChildList, AnchorsServeEveryIndex) {
    TXMLDocument doc;
    std::string xml = "<a>";
    for (int i = 0; i < 100; ++i) xml += "<c i=\"" + std::to_string(i) + "\"/>";
    xml += "</a>";
    ASSERT_TRUE(Load(doc, xml));
    TXMLChildNodeList* list = doc.DocumentElement()->ChildNodes();
    EXPECT_EQ(list, doc.DocumentElement()->ChildNodes());  // the document keeps the list
    ASSERT_EQ(list->Count(), 100);
    for (int i : {0, 1, 2, 99, 98, 50, 49, 51, 10, 90, 0, 99, 37}) EXPECT_EQ(list->Get(i)->GetAttribute("i"), std::to_string(i));
    for (int i = 0; i < 100; ++i) EXPECT_EQ(list->Get(i)->GetAttribute("i"), std::to_string(i));
    for (int i = 99; i >= 0; --i) EXPECT_EQ(list->Get(i)->GetAttribute("i"), std::to_string(i));
    EXPECT_THROW((void)list->Get(-1), EListError);
    EXPECT_THROW((void)list->Get(100), EListError);
    EXPECT_EQ(list->IndexOf(list->Get(42)), 42);
    EXPECT_EQ(list->FindNode("c")->GetAttribute("i"), "0");
    int n = 0;
    for (PXMLNode c : *list) EXPECT_EQ(c->GetAttribute("i"), std::to_string(n++));
    EXPECT_EQ(n, 100);
}

TEST(DomChildList, ChangesReachTheList) {
    TXMLDocument doc;
    ASSERT_TRUE(Load(doc, "<a><c/><d/><e/></a>"));
    PXMLNode a = doc.DocumentElement();
    TXMLChildNodeList* list = a->ChildNodes();
    EXPECT_EQ(list->Get(2)->NodeName(), "e");
    list->Get(1)->DeleteSelf();
    EXPECT_EQ(list->Count(), 2);
    EXPECT_EQ(list->Get(1)->NodeName(), "e");
    a->InsertBefore(a->AddChild("f"), list->Get(0));
    EXPECT_EQ(list->Count(), 3);
    EXPECT_EQ(list->Get(0)->NodeName(), "f");
    EXPECT_EQ(list->Get(2)->NodeName(), "e");
}

TEST(DomChildList, EmptyList) {
    TXMLDocument doc;
    ASSERT_TRUE(Load(doc, "<a/>"));
    TXMLChildNodeList* list = doc.DocumentElement()->ChildNodes();
    EXPECT_EQ(list->Count(), 0);
    try {
        (void)list->Get(0);
        FAIL();
    } catch (const EListError& e) {
        EXPECT_STREQ(e.what(), "List index out of range.");
    }
    TXMLDocument text;
    ASSERT_TRUE(Load(text, "<b>t</b>"));
    EXPECT_EQ(text.DocumentElement()->FirstChild()->AttributeNodes(), nullptr);
    EXPECT_NE(text.DocumentElement()->AttributeNodes(), nullptr);
}

TEST(DomChange, BuildDeleteAndReuseRecords) {
    TXMLDocument doc("root", true);
    PXMLNode decl = doc.Node()->FirstChild();
    EXPECT_EQ(decl->NodeValue(), "version=\"1.0\" encoding=\"utf-8\" standalone=\"yes\"");
    PXMLNode root = doc.DocumentElement();
    PXMLNode leaf = root->SelectNodeCreate("a/b/c");
    leaf->SetText("v");
    EXPECT_EQ(root->SelectNodeCreate("a/b/c"), leaf);
    EXPECT_EQ(root->SelectNode("a/b/c")->Text(), "v");
    PXMLNode attr = root->SelectNodeCreate("a/@k");
    EXPECT_EQ(attr->NodeType(), ntAttribute);
    EXPECT_THROW(root->SelectNodeCreate(""), EXMLDOMException);
    EXPECT_THROW(root->SelectNodeCreate("a//b"), EXMLDOMException);

    const uint32_t before = doc.NodeCount();
    root->FindChild("a")->DeleteSelf();
    EXPECT_LT(doc.NodeCount(), before);
    // Freed records are handed out again before new pages.
    root->SelectNodeCreate("x/y/z");
    EXPECT_EQ(doc.NodeCount(), before - 2);

    TXMLDocument other("other");
    EXPECT_THROW(root->AppendChild(other.DocumentElement()), EXMLDOMException);
    EXPECT_THROW(root->InsertBefore(other.DocumentElement(), root->FirstChild()), EXMLDOMException);
    EXPECT_THROW(root->FirstChild()->AppendChild(root), EXMLDOMException);
}

TEST(DomChange, MoveAndRemove) {
    TXMLDocument doc;
    ASSERT_TRUE(Load(doc, "<r><a><x/></a><b/></r>"));
    PXMLNode r = doc.DocumentElement();
    PXMLNode x = r->SelectNode("a/x");
    r->FindChild("b")->AppendChild(x);
    EXPECT_FALSE(r->FindChild("a")->HasChildNodes());
    EXPECT_EQ(x->ParentNode()->NodeName(), "b");
    EXPECT_EQ(r->RemoveChild(r->FindChild("a"))->NodeName(), "a");
    EXPECT_EQ(r->ChildNodes()->Count(), 1);
    PXMLNode n = nullptr;
    EXPECT_TRUE(r->GetNextChild(n));
    EXPECT_EQ(n->NodeName(), "b");
    EXPECT_FALSE(r->GetNextChild(n));
    EXPECT_TRUE(r->GetPreviousChild(n));
    EXPECT_EQ(n->NodeName(), "b");
}

TEST(DomDocument, ClearAndReload) {
    TXMLDocument doc;
    ASSERT_TRUE(Load(doc, "<a><b/></a>"));
    doc.Clear();
    EXPECT_EQ(doc.DocumentElement(), nullptr);
    EXPECT_EQ(doc.Dictionary().Count(), 0);
    ASSERT_TRUE(Load(doc, "<c/>"));
    EXPECT_EQ(doc.DocumentElement()->NodeName(), "c");
    EXPECT_EQ(doc.GetString(-1), "");
    EXPECT_THROW((void)doc.GetString(1000), EListError);
}

TEST(DomDocument, FailedLoadKeepsTheDictionary) {
    TXMLDocument doc;
    EXPECT_FALSE(Load(doc, "<a><seen/><b>"));
    EXPECT_EQ(doc.DocumentElement(), nullptr);
    EXPECT_GE(doc.IndexOfString("seen"), 0);
}

TEST(DomDocument, ManyDocumentsAtOnce) {
    std::vector<std::unique_ptr<TXMLDocument>> docs;
    for (int i = 0; i < 300; ++i) {
        docs.push_back(std::make_unique<TXMLDocument>());
        ASSERT_TRUE(Load(*docs.back(), "<d n=\"" + std::to_string(i) + "\"/>"));
    }
    for (int i = 0; i < 300; ++i) EXPECT_EQ(docs[i]->DocumentElement()->GetAttribute("n"), std::to_string(i));
    EXPECT_EQ(docs[7]->DocumentElement()->OwnerDocument(), docs[7].get());
}

TEST(Dictionary, IdsAreDenseAndStable) {
    TOHashedStrings dict;
    EXPECT_EQ(dict.Add("a"), 0);
    EXPECT_EQ(dict.Add("b"), 1);
    EXPECT_EQ(dict.Add("a"), 0);
    EXPECT_EQ(dict.Add(""), 2);
    EXPECT_EQ(dict.IndexOf("A"), -1);
    EXPECT_EQ(dict.GetItem(1), "b");
    EXPECT_THROW((void)dict.GetItem(3), EListError);
    EXPECT_THROW((void)dict.GetItem(-1), EListError);
    EXPECT_EQ(dict.BucketCount(), 53u);
    for (int i = 0; i < 100000; ++i) dict.Add("s" + std::to_string(i));
    // Growth walks the prime table: capacity is two thirds of the buckets.
    EXPECT_EQ(dict.BucketCount(), 196613u);
    for (int i = 0; i < 100000; i += 999) EXPECT_EQ(dict.IndexOf("s" + std::to_string(i)), i + 3);
    EXPECT_EQ(dict.GetItem(0), "a");
}

TEST(Dictionary, CaseInsensitiveFoldsEveryScript) {
    TOHashedStrings dict(false);
    const int32_t id = dict.Add("Точка");
    EXPECT_EQ(dict.Add("точка"), id);
    EXPECT_EQ(dict.IndexOf("ТОЧКА"), id);
    const int32_t hedgehog = dict.Add("Ёж");
    EXPECT_EQ(dict.Add("ёж"), hedgehog);
    const int32_t parcel = dict.Add("Parcel");
    EXPECT_EQ(dict.IndexOf("PARCEL"), parcel);
    EXPECT_EQ(dict.IndexOf("Parcels"), -1);  // a longer name is another name
    EXPECT_EQ(dict.IndexOf("Parce"), -1);
    EXPECT_EQ(dict.Add("\xC3\x80" "b"), dict.Add("\xC3\xA0" "B"));  // Latin-1 letters fold too
    // Simple case folding of Unicode: Greek (final sigma included), Armenian, Latin Extended,
    // the Kelvin sign, Cherokee; a character with no one-letter folding stands as it is.
    EXPECT_EQ(dict.Add("ΣΟΦΊΑ"), dict.Add("σοφία"));
    EXPECT_EQ(dict.IndexOf("σοφίας"), -1);
    EXPECT_TRUE(SameTextIgnoreCase("ΟΔΟΣ", "οδος"));
    EXPECT_TRUE(SameTextIgnoreCase("ς", "Σ"));
    EXPECT_TRUE(SameTextIgnoreCase("ԱԲ", "աբ"));
    EXPECT_TRUE(SameTextIgnoreCase("ŁĄŻ", "łąż"));
    EXPECT_TRUE(SameTextIgnoreCase("\xE2\x84\xAA", "k"));  // KELVIN SIGN
    EXPECT_TRUE(SameTextIgnoreCase("\xEA\xAD\xB0", "\xE1\x8E\xA0"));  // Cherokee small and capital A
    EXPECT_FALSE(SameTextIgnoreCase("\xC4\xB0", "i"));  // capital I with dot: only a full folding has it
    EXPECT_EQ(FoldCase("ΑΒΓ Ωmega ÀÉ"), "αβγ ωmega àé");
    // A byte that starts no character equals only itself, never a letter.
    const int32_t broken = dict.Add("x\xD0");
    EXPECT_EQ(dict.IndexOf("X\xD0"), broken);
    EXPECT_EQ(dict.IndexOf("x\xD0\x90"), -1);
    EXPECT_TRUE(SameTextIgnoreCase("", ""));
    EXPECT_FALSE(SameTextIgnoreCase("", "a"));
    EXPECT_TRUE(SameTextIgnoreCase("ОРДИНАТА", "ордината"));
    EXPECT_FALSE(SameTextIgnoreCase("ордината", "ординат"));
    try {
        dict.SetCaseSensitive(true);
        FAIL();
    } catch (const EOXmlException& e) {
        EXPECT_STREQ(e.what(), "TOHashedStrings: cannot set CaseSensitive to a non-empty list.");
    }
    TOHashedStrings empty;
    empty.SetCaseSensitive(false);
    EXPECT_FALSE(empty.CaseSensitive());
}

TEST(Dictionary, DeletionCompactsAtEndDelete) {
    TOHashedStrings dict;
    for (const char* s : {"a", "b", "c", "d"}) dict.Add(s);
    dict.BeginDelete();
    dict.Delete(1);
    dict.Delete(2);
    EXPECT_EQ(dict.Count(), 4);  // nothing moves before EndDelete
    dict.EndDelete();
    EXPECT_EQ(dict.Count(), 2);
    EXPECT_EQ(dict.IndexOf("d"), 1);
    EXPECT_EQ(dict.IndexOf("b"), -1);
    EXPECT_EQ(dict.Add("b"), 2);
    // Outside BeginDelete and EndDelete a deletion is only marked: ids hold until the next
    // IndexOf settles them.
    dict.Delete(0);
    EXPECT_EQ(dict.Count(), 3);
    EXPECT_EQ(dict.GetItem(1), "d");
    EXPECT_EQ(dict.Find("a"), -1);  // a deleted string is not found
    EXPECT_EQ(dict.IndexOf("d"), 0);
    EXPECT_EQ(dict.Count(), 2);
}

// Appended values share the ids of the dictionary but stay out of its lookup table: they are
// never found, never grow the table, and survive a compaction with their text.
TEST(Dictionary, AppendedValuesAreKeptButNeverLookedUp) {
    TOHashedStrings dict;
    EXPECT_EQ(dict.Add("x"), 0);
    EXPECT_FALSE(dict.HasUnlisted());
    EXPECT_EQ(dict.Append("x"), 1);
    EXPECT_EQ(dict.Append("5401234.56"), 2);
    EXPECT_TRUE(dict.HasUnlisted());
    EXPECT_EQ(dict.GetItem(1), "x");
    EXPECT_EQ(dict.Find("x"), 0);
    EXPECT_EQ(dict.Find("5401234.56"), -1);
    EXPECT_EQ(dict.Add("5401234.56"), 3);  // a name met later is a string of its own
    for (int i = 0; i < 100000; ++i) dict.Append(std::to_string(i));
    EXPECT_EQ(dict.BucketCount(), 53u);
    EXPECT_EQ(dict.Count(), 100004);
    dict.BeginDelete();
    dict.Delete(0);
    dict.Delete(2);
    dict.EndDelete();
    EXPECT_EQ(dict.GetItem(0), "x");
    EXPECT_EQ(dict.IndexOf("5401234.56"), 1);
    EXPECT_EQ(dict.GetItem(2), "0");
    EXPECT_EQ(dict.Find("0"), -1);
    for (int i = 0; i < 40; ++i) dict.Add("n" + std::to_string(i));
    EXPECT_EQ(dict.BucketCount(), 97u);  // only the looked-up strings count towards growth
    dict.Clear();
    EXPECT_FALSE(dict.HasUnlisted());
}

// Loading under an element reaches that element's child list like any other insertion.
TEST(DomChildList, ALoadIntoAnElementReachesItsList) {
    TXMLDocument doc;
    ASSERT_TRUE(Load(doc, "<r><first/></r>"));
    PXMLNode root = doc.DocumentElement();
    TXMLChildNodeList* list = root->ChildNodes();
    ASSERT_EQ(list->Count(), 1);
    EXPECT_EQ(list->Get(0)->NodeName(), "first");
    const std::string more = "<second><third/></second>";
    TXMLReader reader(doc.ReaderSettings());
    reader.InitBuffer(more.data(), more.size());
    ASSERT_TRUE(doc.LoadFromReader(reader, root));
    ASSERT_EQ(list->Count(), 2);
    EXPECT_EQ(list->Get(1)->NodeName(), "second");
    EXPECT_EQ(list->GetLast()->FirstChild()->NodeName(), "third");
}

TEST(DomDocument, AFolderIsNoFileToLoad) {
    TXMLDocument doc;
    try {
        (void)doc.LoadFromFile(std::filesystem::temp_directory_path().string());
        FAIL() << "a folder loaded";
    } catch (const EOXmlException& e) {
        EXPECT_NE(std::string(e.what()).find("Is a directory"), std::string::npos) << e.what();
    }
    EXPECT_EQ(doc.DocumentElement(), nullptr);
}

TEST(DomChange, ExchangeNodes) {
    IXMLDocument doc = CreateXMLDoc();
    ASSERT_TRUE(Load(*doc, "<r a=\"1\" b=\"2\"><x/><y><z/></y><w/></r>"));
    PXMLNode root = doc->DocumentElement();
    auto names = [&] {
        std::string out;
        for (PXMLNode c = root->FirstChild(); c; c = c->NextSibling()) out += std::string(c->NodeName()) + ";";
        for (PXMLNode a = root->FirstAttribute(); a; a = a->NextSibling()) out += "@" + std::string(a->NodeName());
        return out;
    };
    TXMLChildNodeList* list = root->ChildNodes();
    ASSERT_EQ(list->Get(2)->NodeName(), "w");
    doc->ExchangeNodes(root->FindChild("x"), root->FindChild("w"));  // apart
    EXPECT_EQ(names(), "w;y;x;@a@b");
    EXPECT_EQ(list->Get(2)->NodeName(), "x");  // the list learnt of it
    doc->ExchangeNodes(root->FindChild("y"), root->FindChild("x"));  // neighbours
    EXPECT_EQ(names(), "w;x;y;@a@b");
    doc->ExchangeNodes(root->FindChild("w"), root->FindChild("y")->FirstChild());  // across levels
    EXPECT_EQ(names(), "z;x;y;@a@b");
    EXPECT_EQ(root->FindChild("y")->FirstChild()->NodeName(), "w");
    doc->ExchangeNodes(root->GetAttributeNode("a"), root->GetAttributeNode("b"));
    EXPECT_EQ(names(), "z;x;y;@b@a");
    TXMLDocument other;
    ASSERT_TRUE(Load(other, "<o/>"));
    try {
        doc->ExchangeNodes(root->FirstChild(), other.DocumentElement());
        FAIL();
    } catch (const EXMLDOMException& e) {
        EXPECT_STREQ(e.what(), "You can't exchange nodes from different XML documents.");
    }
    EXPECT_THROW(doc->ExchangeNodes(root, root->FirstChild()), EXMLDOMException);
    EXPECT_THROW(doc->ExchangeNodes(root->FirstChild(), root->GetAttributeNode("a")), EXMLDOMException);
}
