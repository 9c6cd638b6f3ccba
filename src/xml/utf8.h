// Small UTF-8 helpers shared by the reader, the dictionary and the encoders.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace tmi::xml::utf8 {

inline constexpr uint32_t kInvalid = 0xFFFFFFFFu;
inline constexpr uint32_t kReplacement = 0xFFFD;

// Decodes one character at p (at most aLeft bytes). Overlong forms, surrogates and values
// above U+10FFFF are invalid. On success *aLength is the byte count.
inline uint32_t Decode(const char* p, size_t aLeft, size_t* aLength) noexcept {
    const auto* s = reinterpret_cast<const unsigned char*>(p);
    const unsigned char c = s[0];
    if (c < 0x80) {
        *aLength = 1;
        return c;
    }
    if (c < 0xC2) return kInvalid;
    if (c < 0xE0) {
        if (aLeft < 2 || (s[1] & 0xC0) != 0x80) return kInvalid;
        *aLength = 2;
        return ((c & 0x1Fu) << 6) | (s[1] & 0x3Fu);
    }
    if (c < 0xF0) {
        if (aLeft < 3 || (s[1] & 0xC0) != 0x80 || (s[2] & 0xC0) != 0x80) return kInvalid;
        const uint32_t cp = ((c & 0x0Fu) << 12) | ((s[1] & 0x3Fu) << 6) | (s[2] & 0x3Fu);
        if (cp < 0x800 || (cp >= 0xD800 && cp <= 0xDFFF)) return kInvalid;
        *aLength = 3;
        return cp;
    }
    if (c < 0xF5) {
        if (aLeft < 4 || (s[1] & 0xC0) != 0x80 || (s[2] & 0xC0) != 0x80 || (s[3] & 0xC0) != 0x80) return kInvalid;
        const uint32_t cp = ((c & 0x07u) << 18) | ((s[1] & 0x3Fu) << 12) | ((s[2] & 0x3Fu) << 6) | (s[3] & 0x3Fu);
        if (cp < 0x10000 || cp > 0x10FFFF) return kInvalid;
        *aLength = 4;
        return cp;
    }
    return kInvalid;
}

// Writes the encoding of cp into aOut (room for 4 bytes) and answers its length.
inline size_t Encode(uint32_t cp, char* aOut) noexcept {
    if (cp < 0x80) {
        aOut[0] = static_cast<char>(cp);
        return 1;
    }
    if (cp < 0x800) {
        aOut[0] = static_cast<char>(0xC0 | (cp >> 6));
        aOut[1] = static_cast<char>(0x80 | (cp & 0x3F));
        return 2;
    }
    if (cp < 0x10000) {
        aOut[0] = static_cast<char>(0xE0 | (cp >> 12));
        aOut[1] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        aOut[2] = static_cast<char>(0x80 | (cp & 0x3F));
        return 3;
    }
    aOut[0] = static_cast<char>(0xF0 | (cp >> 18));
    aOut[1] = static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    aOut[2] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    aOut[3] = static_cast<char>(0x80 | (cp & 0x3F));
    return 4;
}

inline void Append(std::string& aOut, uint32_t cp) {
    if (cp < 0x80) {
        aOut.push_back(static_cast<char>(cp));
    } else if (cp < 0x800) {
        aOut.push_back(static_cast<char>(0xC0 | (cp >> 6)));
        aOut.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else if (cp < 0x10000) {
        aOut.push_back(static_cast<char>(0xE0 | (cp >> 12)));
        aOut.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        aOut.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    } else {
        aOut.push_back(static_cast<char>(0xF0 | (cp >> 18)));
        aOut.push_back(static_cast<char>(0x80 | ((cp >> 12) & 0x3F)));
        aOut.push_back(static_cast<char>(0x80 | ((cp >> 6) & 0x3F)));
        aOut.push_back(static_cast<char>(0x80 | (cp & 0x3F)));
    }
}

// Lower case for Latin, Latin-1 and Cyrillic letters.
// Simple case folding beyond the letters handled inline.
uint32_t FoldCharTable(uint32_t cp) noexcept;

// Simple case folding of Unicode: ASCII and Cyrillic, the letters of the extracts, inline;
// every other character through the table.
inline uint32_t FoldChar(uint32_t cp) noexcept {
    if (cp < 0x80) return (cp >= 'A' && cp <= 'Z') ? cp + 32 : cp;
    if (cp >= 0x410 && cp <= 0x42F) return cp + 32;
    if (cp >= 0x430 && cp <= 0x45F) return cp;
    if (cp >= 0x400 && cp <= 0x40F) return cp + 80;
    return FoldCharTable(cp);
}

// Number of characters (code points) in a run of UTF-8 bytes; stray continuation
// bytes count as characters of their own.
inline size_t CountChars(const char* p, size_t n) noexcept {
    size_t count = 0;
    for (size_t i = 0; i < n; ++i)
        if ((static_cast<unsigned char>(p[i]) & 0xC0) != 0x80) ++count;
    return count;
}

// XML 1.0 (fifth edition) name characters, restricted to the 16-bit range.
inline bool IsNameStartChar(uint32_t c) noexcept {
    if (c < 0x80)
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c == ':';
    return (c >= 0xC0 && c <= 0xD6) || (c >= 0xD8 && c <= 0xF6) || (c >= 0xF8 && c <= 0x2FF) ||
           (c >= 0x370 && c <= 0x37D) || (c >= 0x37F && c <= 0x1FFF) || (c >= 0x200C && c <= 0x200D) ||
           (c >= 0x2070 && c <= 0x218F) || (c >= 0x2C00 && c <= 0x2FEF) || (c >= 0x3001 && c <= 0xD7FF) ||
           (c >= 0xF900 && c <= 0xFDCF) || (c >= 0xFDF0 && c <= 0xFFFD);
}

inline bool IsNameChar(uint32_t c) noexcept {
    if (IsNameStartChar(c)) return true;
    return c == '-' || c == '.' || (c >= '0' && c <= '9') || c == 0xB7 || (c >= 0x300 && c <= 0x36F) ||
           (c >= 0x203F && c <= 0x2040);
}

}  // namespace tmi::xml::utf8
