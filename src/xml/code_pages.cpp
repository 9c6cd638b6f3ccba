#include "code_pages.h"

#include <iconv.h>

#include <array>
#include <cerrno>
#include <unordered_map>

#include "hashed_strings.h"
#include "utf8.h"

namespace tmi::xml {

namespace {

// Characters 0x80..0xFF of Windows-1251 (0x98 is undefined).
constexpr uint16_t kWindows1251High[128] = {
    0x0402, 0x0403, 0x201A, 0x0453, 0x201E, 0x2026, 0x2020, 0x2021,
    0x20AC, 0x2030, 0x0409, 0x2039, 0x040A, 0x040C, 0x040B, 0x040F,
    0x0452, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
    0xFFFD, 0x2122, 0x0459, 0x203A, 0x045A, 0x045C, 0x045B, 0x045F,
    0x00A0, 0x040E, 0x045E, 0x0408, 0x00A4, 0x0490, 0x00A6, 0x00A7,
    0x0401, 0x00A9, 0x0404, 0x00AB, 0x00AC, 0x00AD, 0x00AE, 0x0407,
    0x00B0, 0x00B1, 0x0406, 0x0456, 0x0491, 0x00B5, 0x00B6, 0x00B7,
    0x0451, 0x2116, 0x0454, 0x00BB, 0x0458, 0x0405, 0x0455, 0x0457,
    0x0410, 0x0411, 0x0412, 0x0413, 0x0414, 0x0415, 0x0416, 0x0417,
    0x0418, 0x0419, 0x041A, 0x041B, 0x041C, 0x041D, 0x041E, 0x041F,
    0x0420, 0x0421, 0x0422, 0x0423, 0x0424, 0x0425, 0x0426, 0x0427,
    0x0428, 0x0429, 0x042A, 0x042B, 0x042C, 0x042D, 0x042E, 0x042F,
    0x0430, 0x0431, 0x0432, 0x0433, 0x0434, 0x0435, 0x0436, 0x0437,
    0x0438, 0x0439, 0x043A, 0x043B, 0x043C, 0x043D, 0x043E, 0x043F,
    0x0440, 0x0441, 0x0442, 0x0443, 0x0444, 0x0445, 0x0446, 0x0447,
    0x0448, 0x0449, 0x044A, 0x044B, 0x044C, 0x044D, 0x044E, 0x044F,
};

struct NamedCodePage {
    const char* fName;
    int fCodePage;
};

constexpr NamedCodePage kNames[] = {
    {"utf-8", 65001},        {"utf8", 65001},          {"utf-16", 1200},         {"utf-16le", 1200},
    {"unicode", 1200},       {"ucs-2", 1200},          {"utf-16be", 1201},       {"unicodefffe", 1201},
    {"windows-1250", 1250},  {"windows-1251", 1251},   {"windows-1252", 1252},   {"windows-1253", 1253},
    {"windows-1254", 1254},  {"windows-1255", 1255},   {"windows-1256", 1256},   {"windows-1257", 1257},
    {"windows-1258", 1258},  {"cp1250", 1250},         {"cp1251", 1251},         {"cp1252", 1252},
    {"win-1251", 1251},      {"x-cp1251", 1251},       {"ibm866", 866},          {"cp866", 866},
    {"866", 866},            {"koi8-r", 20866},        {"koi8r", 20866},         {"koi8-u", 21866},
    {"iso-8859-1", 28591},   {"latin1", 28591},        {"iso-8859-2", 28592},    {"iso-8859-5", 28595},
    {"iso-8859-15", 28605},  {"us-ascii", 20127},      {"ascii", 20127},
};

// The iconv name of a Windows code page number.
std::string IconvName(int aCodePage) {
    switch (aCodePage) {
        case 20866: return "KOI8-R";
        case 21866: return "KOI8-U";
        case 20127: return "US-ASCII";
        case 1200: return "UTF-16LE";
        case 1201: return "UTF-16BE";
        default: break;
    }
    if (aCodePage >= 28591 && aCodePage <= 28605) return "ISO-8859-" + std::to_string(aCodePage - 28590);
    return "CP" + std::to_string(aCodePage);
}

void AppendUTF16(const char* aData, size_t aSize, bool aBigEndian, std::string& aOut) {
    const auto* s = reinterpret_cast<const unsigned char*>(aData);
    const size_t n = aSize / 2;
    aOut.reserve(aOut.size() + n * 2);
    for (size_t i = 0; i < n; ++i) {
        uint32_t u = aBigEndian ? (s[2 * i] << 8 | s[2 * i + 1]) : (s[2 * i + 1] << 8 | s[2 * i]);
        if (u >= 0xD800 && u <= 0xDBFF && i + 1 < n) {
            const uint32_t v = aBigEndian ? (s[2 * i + 2] << 8 | s[2 * i + 3]) : (s[2 * i + 3] << 8 | s[2 * i + 2]);
            if (v >= 0xDC00 && v <= 0xDFFF) {
                utf8::Append(aOut, 0x10000 + ((u - 0xD800) << 10) + (v - 0xDC00));
                ++i;
                continue;
            }
        }
        if (u >= 0xD800 && u <= 0xDFFF) u = utf8::kReplacement;
        utf8::Append(aOut, u);
    }
    if (aSize % 2) utf8::Append(aOut, utf8::kReplacement);
}

bool AppendThroughIconv(int aCodePage, const char* aData, size_t aSize, std::string& aOut) {
    iconv_t cd = iconv_open("UTF-8", IconvName(aCodePage).c_str());
    if (cd == reinterpret_cast<iconv_t>(-1)) return false;
    std::array<char, 16384> chunk{};
    char* in = const_cast<char*>(aData);
    size_t inLeft = aSize;
    while (inLeft > 0) {
        char* out = chunk.data();
        size_t outLeft = chunk.size();
        const size_t r = iconv(cd, &in, &inLeft, &out, &outLeft);
        aOut.append(chunk.data(), chunk.size() - outLeft);
        if (r == static_cast<size_t>(-1) && errno != E2BIG) {
            // A byte the code page does not define, or a cut sequence at the end.
            utf8::Append(aOut, utf8::kReplacement);
            ++in;
            --inLeft;
            iconv(cd, nullptr, nullptr, nullptr, nullptr);
        }
    }
    iconv_close(cd);
    return true;
}

}  // namespace

int CodePageOfName(std::string_view aName) {
    const std::string folded = FoldCase(aName);
    for (const NamedCodePage& n : kNames)
        if (folded == n.fName) return n.fCodePage;
    // "windows-NNNN" and "cpNNNN" for code pages not in the table.
    for (std::string_view prefix : {std::string_view("windows-"), std::string_view("cp")}) {
        if (folded.size() > prefix.size() && folded.compare(0, prefix.size(), prefix) == 0) {
            int cp = 0;
            for (size_t i = prefix.size(); i < folded.size(); ++i) {
                if (folded[i] < '0' || folded[i] > '9' || cp > 100000) return 0;
                cp = cp * 10 + (folded[i] - '0');
            }
            iconv_t cd = iconv_open("UTF-8", IconvName(cp).c_str());
            if (cd == reinterpret_cast<iconv_t>(-1)) return 0;
            iconv_close(cd);
            return cp;
        }
    }
    return 0;
}

std::string CodePageName(int aCodePage) {
    switch (aCodePage) {
        case 65001: return "utf-8";
        case 1200: return "utf-16";
        case 1201: return "utf-16be";
        case 866: return "cp866";
        case 20866: return "koi8-r";
        case 21866: return "koi8-u";
        case 20127: return "us-ascii";
        default: break;
    }
    if (aCodePage >= 28591 && aCodePage <= 28605) return "iso-8859-" + std::to_string(aCodePage - 28590);
    return "windows-" + std::to_string(aCodePage);
}

void AppendWindows1251AsUTF8(const char* aData, size_t aSize, std::string& aOut) {
    aOut.reserve(aOut.size() + aSize * 2);
    for (size_t i = 0; i < aSize; ++i) {
        const auto c = static_cast<unsigned char>(aData[i]);
        if (c < 0x80)
            aOut.push_back(static_cast<char>(c));
        else
            utf8::Append(aOut, kWindows1251High[c - 0x80]);
    }
}

std::string UTF8ToWindows1251(std::string_view aText, char aMissing) {
    static const std::unordered_map<uint32_t, char> kReverse = [] {
        std::unordered_map<uint32_t, char> m;
        for (int i = 0; i < 128; ++i)
            if (kWindows1251High[i] != utf8::kReplacement) m[kWindows1251High[i]] = static_cast<char>(0x80 + i);
        return m;
    }();
    std::string out;
    out.reserve(aText.size());
    size_t i = 0;
    while (i < aText.size()) {
        const auto c = static_cast<unsigned char>(aText[i]);
        if (c < 0x80) {
            out.push_back(static_cast<char>(c));
            ++i;
            continue;
        }
        size_t len = 0;
        const uint32_t cp = utf8::Decode(aText.data() + i, aText.size() - i, &len);
        if (cp == utf8::kInvalid) {
            out.push_back(aMissing);
            ++i;
            continue;
        }
        const auto it = kReverse.find(cp);
        out.push_back(it == kReverse.end() ? aMissing : it->second);
        i += len;
    }
    return out;
}

bool DecodeToUTF8(int aCodePage, const char* aData, size_t aSize, std::string& aOut) {
    switch (aCodePage) {
        case kCodePageUTF8: aOut.append(aData, aSize); return true;
        case kCodePageUTF16LE: AppendUTF16(aData, aSize, false, aOut); return true;
        case kCodePageUTF16BE: AppendUTF16(aData, aSize, true, aOut); return true;
        case kCodePageWindows1251: AppendWindows1251AsUTF8(aData, aSize, aOut); return true;
        default: return AppendThroughIconv(aCodePage, aData, aSize, aOut);
    }
}

}  // namespace tmi::xml
