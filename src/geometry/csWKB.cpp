#include "csWKB.h"

#include <charconv>
#include <cstdint>
#include <cstring>

namespace tmi {

namespace {

class TWKBReader {
public:
    explicit TWKBReader(std::string_view aBytes) : fBytes(aBytes) {}

    // One geometry onto aOut, with its type name unless aBare (the members of a multi form).
    bool Geometry(std::string& aOut, bool aBare, int aDepth) {
        if (aDepth > 32) return false;
        bool little = false;
        uint32_t type = 0;
        if (!Order(little) || !UInt32(little, type)) return false;
        static const char* const kNames[] = {nullptr,      "POINT",           "LINESTRING",      "POLYGON",
                                             "MULTIPOINT", "MULTILINESTRING", "MULTIPOLYGON", "GEOMETRYCOLLECTION"};
        if (type < 1 || type > 7) return false;
        if (!aBare) {
            aOut += kNames[type];
            aOut += ' ';
        }
        switch (type) {
        case 1: return Point(aOut, little);
        case 2: return Points(aOut, little);
        case 3: return List(aOut, little, 4, [&] { return Points(aOut, little); });
        // A multi form's members go without their names; a collection's keep them.
        default: return List(aOut, little, 1, [&] { return Geometry(aOut, type != 7, aDepth + 1); });
        }
    }
    [[nodiscard]] bool AtEnd() const { return fAt == fBytes.size(); }

private:
    bool Order(bool& aLittle) {
        if (fAt >= fBytes.size() || static_cast<unsigned char>(fBytes[fAt]) > 1) return false;
        aLittle = fBytes[fAt++] == 1;
        return true;
    }
    bool Raw(bool aLittle, unsigned char* aOut, size_t aSize) {
        if (fBytes.size() - fAt < aSize) return false;
        for (size_t i = 0; i < aSize; ++i)
            aOut[aLittle ? i : aSize - 1 - i] = static_cast<unsigned char>(fBytes[fAt + i]);
        fAt += aSize;
        return true;
    }
    bool UInt32(bool aLittle, uint32_t& aValue) {
        unsigned char b[4];
        if (!Raw(aLittle, b, 4)) return false;
        aValue = static_cast<uint32_t>(b[0]) | static_cast<uint32_t>(b[1]) << 8 | static_cast<uint32_t>(b[2]) << 16 |
                 static_cast<uint32_t>(b[3]) << 24;
        return true;
    }
    bool Number(std::string& aOut, bool aLittle) {
        unsigned char b[8];
        if (!Raw(aLittle, b, 8)) return false;
        uint64_t bits = 0;
        for (int i = 7; i >= 0; --i) bits = bits << 8 | b[i];
        double value = 0;
        std::memcpy(&value, &bits, sizeof value);
        char text[32];
        const auto r = std::to_chars(text, text + sizeof text, value);
        aOut.append(text, r.ptr);
        return true;
    }
    bool Coordinate(std::string& aOut, bool aLittle) {
        if (!Number(aOut, aLittle)) return false;
        aOut += ' ';
        return Number(aOut, aLittle);
    }
    bool Point(std::string& aOut, bool aLittle) {
        aOut += '(';
        if (!Coordinate(aOut, aLittle)) return false;
        aOut += ')';
        return true;
    }
    // A count, then as many items in parentheses ("EMPTY" for none); each item takes at least
    // aItemBytes, so a count the bytes cannot hold is refused before any is read.
    template <class TItem>
    bool List(std::string& aOut, bool aLittle, size_t aItemBytes, TItem aItem) {
        uint32_t n = 0;
        if (!UInt32(aLittle, n) || n > (fBytes.size() - fAt) / aItemBytes) return false;
        if (n == 0) {
            aOut += "EMPTY";
            return true;
        }
        aOut += '(';
        for (uint32_t i = 0; i < n; ++i) {
            if (i) aOut += ", ";
            if (!aItem()) return false;
        }
        aOut += ')';
        return true;
    }
    bool Points(std::string& aOut, bool aLittle) {
        return List(aOut, aLittle, 16, [&] { return Coordinate(aOut, aLittle); });
    }

    std::string_view fBytes;
    size_t fAt = 0;
};

}  // namespace

std::string WKBToWKT(std::string_view aWKB) {
    TWKBReader reader(aWKB);
    std::string wkt;
    if (!reader.Geometry(wkt, false, 0) || !reader.AtEnd()) return {};
    return wkt;
}

}  // namespace tmi
