#include "csMifFile.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <unordered_map>

#include "code_pages.h"
#include "utf8.h"

namespace tmi {

namespace {

constexpr size_t kFlushAt = 1u << 16;

// Windows-1251 bytes of the Cyrillic block U+0400..U+045F, then the other characters.
const std::unordered_map<uint32_t, char>& ReverseTable() {
    static const std::unordered_map<uint32_t, char> table = [] {
        std::unordered_map<uint32_t, char> m;
        std::string utf8;
        for (int b = 0x80; b < 0x100; ++b) {
            utf8.clear();
            const char byte = static_cast<char>(b);
            xml::AppendWindows1251AsUTF8(&byte, 1, utf8);
            size_t len = 0;
            const uint32_t cp = xml::utf8::Decode(utf8.data(), utf8.size(), &len);
            if (cp != xml::utf8::kReplacement && cp != xml::utf8::kInvalid) m.emplace(cp, byte);
        }
        return m;
    }();
    return table;
}

}  // namespace

void AppendAsWindows1251(std::string& aOut, std::string_view aUTF8) {
    size_t i = 0;
    const size_t n = aUTF8.size();
    while (i < n) {
        const auto c = static_cast<unsigned char>(aUTF8[i]);
        if (c < 0x80) {
            // A run of ASCII goes across in one piece, looked for eight bytes at a time.
            size_t j = i + 1;
            while (j + 8 <= n) {
                uint64_t word;
                std::memcpy(&word, aUTF8.data() + j, sizeof word);
                if (word & 0x8080808080808080ull) break;
                j += 8;
            }
            while (j < n && static_cast<unsigned char>(aUTF8[j]) < 0x80) ++j;
            aOut.append(aUTF8.data() + i, j - i);
            i = j;
            continue;
        }
        size_t len = 0;
        const uint32_t cp = xml::utf8::Decode(aUTF8.data() + i, n - i, &len);
        if (cp == xml::utf8::kInvalid) {
            aOut.push_back('?');
            ++i;
            continue;
        }
        // Cyrillic letters map directly; the rest through the table.
        if (cp >= 0x410 && cp <= 0x44F) {
            aOut.push_back(static_cast<char>(cp - 0x410 + 0xC0));
        } else {
            const auto& table = ReverseTable();
            const auto it = table.find(cp);
            aOut.push_back(it == table.end() ? '?' : it->second);
        }
        i += len;
    }
}

TcsAnsiTextFile::~TcsAnsiTextFile() {
    try {
        Close();
    } catch (...) {
        // a destructor reports nothing; Close() called by the owner reports
    }
}

void TcsAnsiTextFile::Rewrite(const std::string& aFileName) {
    Close();
    fFileName = aFileName;
    fFile = std::fopen(aFileName.c_str(), "wb");
    if (!fFile) throw EInOutError("Не удалось создать файл " + aFileName + ": " + std::strerror(errno));
    fBuffer.reserve(kFlushAt * 2);
}

void TcsAnsiTextFile::Write(std::string_view aUTF8) {
    AppendAsWindows1251(fBuffer, aUTF8);
    if (fBuffer.size() >= kFlushAt) WriteBuffer();
}

void TcsAnsiTextFile::WriteAnsi(std::string_view aAnsi) {
    fBuffer.append(aAnsi);
    if (fBuffer.size() >= kFlushAt) WriteBuffer();
}

void TcsAnsiTextFile::WriteBuffer() {
    if (!fFile || fBuffer.empty()) return;
    if (std::fwrite(fBuffer.data(), 1, fBuffer.size(), fFile) != fBuffer.size())
        throw EInOutError("Не удалось записать файл " + fFileName + ": " + std::strerror(errno));
    fBuffer.clear();
}

void TcsAnsiTextFile::Flush() {
    if (!fFile) return;
    WriteBuffer();
    if (std::fflush(fFile) != 0) throw EInOutError("Не удалось записать файл " + fFileName + ": " + std::strerror(errno));
}

void TcsAnsiTextFile::Close() {
    if (!fFile) return;
    std::FILE* f = fFile;
    try {
        WriteBuffer();
    } catch (...) {
        fFile = nullptr;
        std::fclose(f);
        throw;
    }
    fFile = nullptr;
    if (std::fclose(f) != 0) throw EInOutError("Не удалось записать файл " + fFileName + ": " + std::strerror(errno));
}

}  // namespace tmi
