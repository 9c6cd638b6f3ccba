// Inputs the fuzzers once broke on: each loads (or fails cleanly) under every setting the
// load fuzzer draws from its first byte.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "xml_test_util.h"

using namespace tmi::xml;
using namespace tmi::xml::test;

TEST(FuzzRegression, KeptInputsLoadUnderEverySetting) {
    const auto dir = std::filesystem::path(TM_FIXTURES) / "fuzz";
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(dir)) {
        std::ifstream in(entry.path(), std::ios::binary);
        std::stringstream buffer;
        buffer << in.rdbuf();
        const std::string bytes = buffer.str();
        ++files;
        for (int flags = 0; flags < 256; flags += 7) {
            TXMLDocument doc;
            doc.ReaderSettings().StrictXML = (flags & 1) == 0;
            doc.ReaderSettings().ExpandEntities = (flags & 2) == 0;
            doc.ReaderSettings().BreakReading = (flags & 4) ? brNone : brAfterDocumentElement;
            doc.ReaderSettings().LineBreak = static_cast<TXMLLineBreak>((flags >> 3) & 3);
            doc.WhiteSpaceHandling = static_cast<TXMLWhiteSpaceHandling>((flags >> 5) & 3);
            if (doc.LoadFromBuffer(bytes.data(), bytes.size(), (flags & 0x80) ? 1251 : 0)) {
                (void)doc.Node()->Text();
            } else {
                EXPECT_FALSE(doc.Node()->HasChildNodes()) << entry.path();
            }
        }
    }
    EXPECT_GT(files, 0);
}
