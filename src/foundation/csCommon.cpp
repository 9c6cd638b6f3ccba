#include "csCommon.h"

#include <cstdio>

#include <charconv>
#include <cmath>
#include <fstream>
#include <random>

#include "hashed_strings.h"

namespace tmi {

std::string TimeText(uint64_t aMilliseconds, bool aShowMilliseconds) {
    const uint64_t days = aMilliseconds / 86400000u;
    const uint64_t hours = aMilliseconds / 3600000u % 24;
    const uint64_t minutes = aMilliseconds / 60000u % 60;
    const uint64_t seconds = aMilliseconds / 1000u % 60;
    const uint64_t millis = aMilliseconds % 1000;
    std::string out;
    auto part = [&](uint64_t aValue, const char* aUnit) {
        if (aValue == 0) return;
        out += std::to_string(aValue);
        out += ' ';
        out += aUnit;
        out += ' ';
    };
    part(days, "д");
    part(hours, "ч");
    part(minutes, "мин");
    part(seconds, "сек");
    if (aShowMilliseconds) part(millis, "мс");
    return Trim(out);
}

std::string SizeText(uint64_t aBytes) {
    if (aBytes < 1024) return std::to_string(aBytes) + " Б";
    if (aBytes < 1024u * 1024u) return std::to_string(aBytes / 1024) + " КБ";
    if (aBytes < 1024ull * 1024 * 1024) return FloatToFixed(static_cast<double>(aBytes) / 1048576.0, 1) + " МБ";
    return FloatToFixed(static_cast<double>(aBytes) / 1073741824.0, 1) + " GБ";
}

TcsModalMessage& ModalMessageHandler() {
    static TcsModalMessage handler;
    return handler;
}

void ShowModalMessage(const std::string& aText) {
    if (const TcsModalMessage& handler = ModalMessageHandler())
        handler(aText);
    else
        std::fprintf(stderr, "%s\n", aText.c_str());
}

bool SameText(std::string_view a, std::string_view b) { return xml::SameTextIgnoreCase(a, b); }

int CompareText(std::string_view a, std::string_view b) {
    const std::string x = xml::FoldCase(a), y = xml::FoldCase(b);
    return x < y ? -1 : (x > y ? 1 : 0);
}

std::string LowerCase(std::string_view aText) { return xml::FoldCase(aText); }

std::vector<std::string> Split(std::string_view aText, char aDelimiter) {
    std::vector<std::string> parts;
    size_t start = 0;
    for (;;) {
        const size_t at = aText.find(aDelimiter, start);
        parts.emplace_back(aText.substr(start, at == std::string_view::npos ? std::string_view::npos : at - start));
        if (at == std::string_view::npos) break;
        start = at + 1;
    }
    return parts;
}

std::string Trim(std::string_view aText) {
    size_t b = 0, e = aText.size();
    while (b < e && static_cast<unsigned char>(aText[b]) <= 32) ++b;
    while (e > b && static_cast<unsigned char>(aText[e - 1]) <= 32) --e;
    return std::string(aText.substr(b, e - b));
}

void AppendFloat(std::string& aOut, double aValue) {
    if (std::isnan(aValue)) {
        aOut += "NAN";
        return;
    }
    if (std::isinf(aValue)) {
        aOut += aValue > 0 ? "INF" : "-INF";
        return;
    }
    // The general form of 15 significant digits: fixed unless the exponent is at least 15 or
    // below -4; an exponent is written "E20", "E-6".
    char buf[64];
    const auto r = std::to_chars(buf, buf + sizeof buf, aValue, std::chars_format::general, 15);
    const std::string_view s(buf, static_cast<size_t>(r.ptr - buf));
    if (s == "-0") {
        aOut += '0';
        return;
    }
    const size_t e = s.find('e');
    if (e == std::string_view::npos) {
        aOut += s;
        return;
    }
    std::string_view exponent = s.substr(e + 1);
    const bool negative = !exponent.empty() && exponent[0] == '-';
    if (!exponent.empty() && (exponent[0] == '-' || exponent[0] == '+')) exponent.remove_prefix(1);
    while (exponent.size() > 1 && exponent[0] == '0') exponent.remove_prefix(1);
    aOut += s.substr(0, e);
    aOut += negative ? "E-" : "E";
    aOut += exponent;
}

std::string FloatToStr(double aValue) {
    std::string s;
    AppendFloat(s, aValue);
    return s;
}

std::string FloatToFixed(double aValue, int aDecimals) {
    char buf[400];
    if (aDecimals == 0) aValue = std::round(aValue);  // half away from zero
    const auto r = std::to_chars(buf, buf + sizeof buf, aValue, std::chars_format::fixed, aDecimals);
    std::string out(buf, r.ptr);
    if (out == "-0") out = "0";
    return out;
}

bool TryStrToInt(std::string_view aText, int64_t& aValue) {
    std::string_view s = aText;
    while (!s.empty() && s.front() == ' ') s.remove_prefix(1);
    while (!s.empty() && s.back() == ' ') s.remove_suffix(1);
    if (!s.empty() && s.front() == '+') s.remove_prefix(1);
    if (s.empty()) return false;
    int64_t v = 0;
    const auto r = std::from_chars(s.data(), s.data() + s.size(), v);
    if (r.ec != std::errc() || r.ptr != s.data() + s.size()) return false;
    aValue = v;
    return true;
}

bool TryStrToFloat(std::string_view aText, double& aValue) {
    std::string_view s = aText;
    while (!s.empty() && s.front() == ' ') s.remove_prefix(1);
    while (!s.empty() && s.back() == ' ') s.remove_suffix(1);
    if (!s.empty() && s.front() == '+') s.remove_prefix(1);
    if (s.empty()) return false;
    double v = 0;
    const auto r = std::from_chars(s.data(), s.data() + s.size(), v);
    if (r.ec != std::errc() || r.ptr != s.data() + s.size()) return false;
    aValue = v;
    return true;
}

namespace {

// splitmix64 over a seed from the system's random source, one per thread.
struct GuidSource {
    uint64_t fState = 0;
    GuidSource() {
        uint64_t seed = 0;
        std::ifstream urandom("/dev/urandom", std::ios::binary);
        if (!urandom.read(reinterpret_cast<char*>(&seed), sizeof seed)) {
            try {
                std::random_device device;
                seed = (static_cast<uint64_t>(device()) << 32) ^ device();
            } catch (...) {
                throw Exception("Не удалось получить новый GUID");
            }
        }
        fState = seed;
    }
    uint64_t Next() {
        uint64_t z = (fState += 0x9E3779B97F4A7C15ull);
        z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
        z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
        return z ^ (z >> 31);
    }
};

}  // namespace

TcsGUID TcsGUID::New() {
    thread_local GuidSource source;
    TcsGUID g;
    g.fHigh = (source.Next() & ~0xF000ull) | 0x4000ull;                         // version 4
    g.fLow = (source.Next() & 0x3FFFFFFFFFFFFFFFull) | 0x8000000000000000ull;  // variant 1
    return g;
}

std::string TcsGUID::ToString() const {
    static const char kHex[] = "0123456789ABCDEF";
    char buf[39];
    int p = 0;
    buf[p++] = '{';
    for (int i = 0; i < 32; ++i) {
        if (i == 8 || i == 12 || i == 16 || i == 20) buf[p++] = '-';
        const uint64_t half = i < 16 ? fHigh : fLow;
        buf[p++] = kHex[(half >> (60 - 4 * (i % 16))) & 0xF];
    }
    buf[p++] = '}';
    return std::string(buf, static_cast<size_t>(p));
}

std::string NewGUIDString() { return TcsGUID::New().ToString(); }

}  // namespace tmi
