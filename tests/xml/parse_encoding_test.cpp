// Encodings: byte-order marks, the declaration's encoding, forced code pages, bad bytes.
#include <gtest/gtest.h>

#include "code_pages.h"
#include "xml_test_util.h"

using namespace tmi::xml;
using namespace tmi::xml::test;

namespace {

std::string Utf16(std::string_view aUtf8, bool aBigEndian, bool aBOM) {
    std::string out;
    if (aBOM) out += aBigEndian ? "\xFE\xFF" : "\xFF\xFE";
    // Only the Basic Multilingual Plane is needed here.
    size_t i = 0;
    while (i < aUtf8.size()) {
        const auto c = static_cast<unsigned char>(aUtf8[i]);
        uint32_t cp;
        if (c < 0x80) {
            cp = c;
            i += 1;
        } else if (c < 0xE0) {
            cp = ((c & 0x1F) << 6) | (aUtf8[i + 1] & 0x3F);
            i += 2;
        } else {
            cp = ((c & 0x0F) << 12) | ((aUtf8[i + 1] & 0x3F) << 6) | (aUtf8[i + 2] & 0x3F);
            i += 3;
        }
        const char hi = static_cast<char>(cp >> 8), lo = static_cast<char>(cp & 0xFF);
        if (aBigEndian) {
            out += hi;
            out += lo;
        } else {
            out += lo;
            out += hi;
        }
    }
    return out;
}

}  // namespace

TEST(ParseEncoding, ByteOrderMarksFixTheEncoding) {
    const std::string xml = "<a t=\"Точка\">Участок</a>";
    for (const std::string& bytes : {"\xEF\xBB\xBF" + xml, Utf16(xml, false, true), Utf16(xml, true, true)}) {
        TXMLDocument doc;
        ASSERT_TRUE(Load(doc, bytes));
        EXPECT_EQ(doc.DocumentElement()->GetAttribute("t"), "Точка");
        EXPECT_EQ(doc.DocumentElement()->Text(), "Участок");
    }
}

TEST(ParseEncoding, DeclaredWindows1251WithoutMarkDecodesAsThatCodePage) {
    const std::string utf8 = "<?xml version=\"1.0\" encoding=\"windows-1251\"?><Parcel Name=\"Точка\">Ёлка</Parcel>";
    const std::string cp1251 = UTF8ToWindows1251(utf8);
    ASSERT_NE(cp1251, utf8);
    TXMLDocument doc;
    ASSERT_TRUE(Load(doc, cp1251));
    EXPECT_EQ(doc.DocumentElement()->GetAttribute("Name"), "Точка");
    EXPECT_EQ(doc.DocumentElement()->Text(), "Ёлка");
    // The declaration stays a node with its attributes as text.
    PXMLNode decl = doc.Node()->FirstChild();
    ASSERT_EQ(decl->NodeType(), ntXMLDeclaration);
    EXPECT_EQ(decl->NodeValue(), "version=\"1.0\" encoding=\"windows-1251\"");
}

TEST(ParseEncoding, DeclaredWindows1251FromFileIsDecodedToo) {
    const auto path = TempFile("cp1251.xml", UTF8ToWindows1251("<?xml version='1.0' encoding='WINDOWS-1251'?><a>Кадастр</a>"));
    TXMLDocument doc;
    ASSERT_TRUE(doc.LoadFromFile(path.string()));
    EXPECT_EQ(doc.DocumentElement()->Text(), "Кадастр");
    std::filesystem::remove(path);
}

TEST(ParseEncoding, OtherCodePagesGoThroughTheSystemConverter) {
    // "Дом" in KOI8-R.
    const std::string koi = std::string("<?xml version=\"1.0\" encoding=\"koi8-r\"?><a>") + "\xE4\xCF\xCD" + "</a>";
    TXMLDocument doc;
    ASSERT_TRUE(Load(doc, koi));
    EXPECT_EQ(doc.DocumentElement()->Text(), "Дом");
}

TEST(ParseEncoding, UnknownEncodingNameKeepsUTF8) {
    TXMLDocument doc;
    ASSERT_TRUE(Load(doc, "<?xml version=\"1.0\" encoding=\"x-no-such\"?><a>Дом</a>"));
    EXPECT_EQ(doc.DocumentElement()->Text(), "Дом");
}

TEST(ParseEncoding, MarkWinsOverDeclaration) {
    TXMLDocument doc;
    ASSERT_TRUE(Load(doc, "\xEF\xBB\xBF<?xml version=\"1.0\" encoding=\"windows-1251\"?><a>Дом</a>"));
    EXPECT_EQ(doc.DocumentElement()->Text(), "Дом");
}

TEST(ParseEncoding, ForcedCodePageIgnoresMarkAndDeclaration) {
    const std::string cp1251 = UTF8ToWindows1251("<?xml version=\"1.0\" encoding=\"utf-8\"?><a>Дом</a>");
    TXMLDocument doc;
    ASSERT_TRUE(doc.LoadFromBuffer(cp1251.data(), cp1251.size(), kCodePageWindows1251));
    EXPECT_EQ(doc.DocumentElement()->Text(), "Дом");
}

TEST(ParseEncoding, MarkWithNothingBehindIsAnEmptyDocument) {
    for (const std::string& bytes : {std::string("\xEF\xBB\xBF"), std::string("\xFF\xFE"), std::string("\xFE\xFF"),
                                    std::string("")}) {
        TXMLDocument doc;
        EXPECT_TRUE(Load(doc, bytes)) << bytes.size();
        EXPECT_EQ(doc.DocumentElement(), nullptr);
        EXPECT_FALSE(doc.Node()->HasChildNodes());
    }
}

TEST(ParseEncoding, ASingleByteIsNoMark) {
    // Below two bytes no mark is looked for: the byte is (invalid) text, and there is no root.
    TXMLDocument doc;
    EXPECT_TRUE(Load(doc, "\xEF"));
    EXPECT_EQ(doc.DocumentElement(), nullptr);
    EXPECT_EQ(doc.Node()->Text(), "\xEF\xBF\xBD");
}

TEST(ParseEncoding, InvalidUTF8BecomesReplacementCharacters) {
    TXMLDocument doc;
    ASSERT_TRUE(Load(doc, "<a v=\"x\xC3\">\xFF\xFEok\xE2\x82</a>"));
    EXPECT_EQ(doc.DocumentElement()->GetAttribute("v"), "x\xEF\xBF\xBD");
    EXPECT_EQ(doc.DocumentElement()->Text(), "\xEF\xBF\xBD\xEF\xBF\xBDok\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(ParseEncoding, CodePageNames) {
    EXPECT_EQ(CodePageOfName("UTF-8"), 65001);
    EXPECT_EQ(CodePageOfName("windows-1251"), 1251);
    EXPECT_EQ(CodePageOfName("CP1251"), 1251);
    EXPECT_EQ(CodePageOfName("koi8-r"), 20866);
    EXPECT_EQ(CodePageOfName("windows-1252"), 1252);
    EXPECT_EQ(CodePageOfName("nonsense"), 0);
    EXPECT_EQ(UTF8ToWindows1251("Ж€\xF0\x9F\x98\x80"), "\xC6\x88?");
}

// The declaration names the encoding only when declarations are recognised at all.
TEST(ParseEncoding, DeclarationsNotRecognisedNameNoEncoding) {
    const std::string text = "<?xml version=\"1.0\" encoding=\"windows-1251\"?><a>\xC4\xEE\xEC</a>";
    TXMLDocument doc;
    doc.ReaderSettings().RecognizeXMLDeclaration = false;
    (void)Load(doc, text);
    const PXMLNode a = doc.DocumentElement() ? doc.DocumentElement()->FindChild("a") : nullptr;
    // Read as UTF-8, the three bytes are no Cyrillic word.
    if (a) {
        EXPECT_NE(a->Text(), "Дом");
    }
    TXMLDocument recognised;
    ASSERT_TRUE(Load(recognised, text));
    EXPECT_EQ(recognised.DocumentElement()->Text(), "Дом");
}

// UTF-16 without a mark shows itself by its first "<?"; a UTF-16 declaration in a text of
// single bytes cannot be right and is passed over.
TEST(ParseEncoding, UTF16WithoutMark) {
    for (const bool big : {false, true}) {
        TXMLDocument doc;
        ASSERT_TRUE(Load(doc, Utf16("<?xml version=\"1.0\" encoding=\"UTF-16\"?><a>Дом</a>", big, false))) << big;
        EXPECT_EQ(doc.DocumentElement()->Text(), "Дом");
    }
    TXMLDocument lying;
    ASSERT_TRUE(Load(lying, "<?xml version=\"1.0\" encoding=\"UTF-16\"?><a>Дом</a>"));
    EXPECT_EQ(lying.DocumentElement()->Text(), "Дом");
}

// A text given away to the document reads as the same bytes lent to it: UTF-8 in place, with
// or without a mark, and other encodings decoded.
TEST(ParseEncoding, AGivenTextReadsAsALentOne) {
    const std::string texts[] = {
        "<a>Дом</a>",
        "\xEF\xBB\xBF<a>Дом</a>",
        "<?xml version=\"1.0\" encoding=\"windows-1251\"?><a>\xC4\xEE\xEC</a>",
        Utf16("<a>Дом</a>", false, true),
    };
    for (const std::string& text : texts) {
        TXMLDocument lent, given;
        ASSERT_TRUE(lent.LoadFromBuffer(text.data(), text.size()));
        ASSERT_TRUE(given.LoadFromText(std::string(text)));
        EXPECT_EQ(given.DocumentElement()->Text(), "Дом");
        EXPECT_EQ(given.DocumentElement()->Text(), lent.DocumentElement()->Text());
    }
    TXMLDocument broken;
    EXPECT_FALSE(broken.LoadFromText(std::string("<a><b></a>")));
    EXPECT_FALSE(broken.ParseError()->Reason.empty());
}
