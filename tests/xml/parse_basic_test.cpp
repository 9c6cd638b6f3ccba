#include <gtest/gtest.h>

#include "OXmlPDOM.h"

using namespace tmi::xml;

TEST(ParseBasic, LoadsElementAndAttribute) {
    TXMLDocument doc;
    ASSERT_TRUE(doc.LoadFromXML("<a x=\"1\"><b>text</b></a>"));
    PXMLNode a = doc.DocumentElement();
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(a->NodeName(), "a");
    EXPECT_EQ(a->GetAttribute("x"), "1");
    EXPECT_EQ(a->Text(), "text");
}
