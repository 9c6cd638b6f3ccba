// The block arena under large documents: blocks stay apart and writable across the switch
// from the heap to mappings, and a document loads the same on either side of it.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "OXmlPDOM.h"
#include "block_arena.h"

using namespace tmi::xml;

TEST(BlockArena, BlocksAreAlignedApartAndSurviveTheSwitchToMappings) {
    TBlockArena arena(100000, 1);  // a region is rounded up to 2 MB
    std::vector<std::pair<unsigned char*, size_t>> blocks;
    const size_t sizes[] = {1, 40960, 63, 70000, 3u << 20, 40960, 5, 2u << 20};
    for (int round = 0; round < 2; ++round) {
        for (size_t size : sizes) {
            auto* b = static_cast<unsigned char*>(arena.Take(size));
            EXPECT_EQ(reinterpret_cast<uintptr_t>(b) % 64, 0u);
            std::memset(b, static_cast<int>(blocks.size() & 0xFF), size);
            blocks.emplace_back(b, size);
        }
        // Every block still holds its own bytes: none overlaps another.
        for (size_t i = 0; i < blocks.size(); ++i) {
            const auto [b, size] = blocks[i];
            EXPECT_EQ(b[0], i & 0xFF);
            EXPECT_EQ(b[size - 1], i & 0xFF);
        }
        EXPECT_GE(arena.BytesTaken(), 5u << 20);
        arena.Release();
        EXPECT_EQ(arena.BytesTaken(), 0u);
        blocks.clear();
    }
}

TEST(BlockArena, ADocumentOfManyPagesLoadsClearsAndLoadsAgain) {
    // 60,000 elements with an attribute and a text each: well past the heap's share of nodes.
    std::string xml = "<root>";
    for (int i = 0; i < 60000; ++i)
        xml += "<p n=\"" + std::to_string(i) + "\">v" + std::to_string(i % 977) + "</p>";
    xml += "</root>";
    TXMLDocument doc;
    for (int round = 0; round < 2; ++round) {
        ASSERT_TRUE(doc.LoadFromXML(xml));
        int count = 0;
        for (PXMLNode p = doc.DocumentElement()->FirstChild(); p; p = p->NextSibling(), ++count) {
            if (count % 7919 != 0 && count != 59999) continue;
            EXPECT_EQ(p->GetAttribute("n"), std::to_string(count));
            EXPECT_EQ(p->Text(), "v" + std::to_string(count % 977));
        }
        EXPECT_EQ(count, 60000);
        doc.Clear();
        EXPECT_EQ(doc.DocumentElement(), nullptr);
    }
}
