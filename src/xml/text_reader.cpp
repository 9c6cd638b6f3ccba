#include "text_reader.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "code_pages.h"
#include "xml_errors.h"

namespace tmi::xml {

namespace {

constexpr size_t kReleaseStep = 8u << 20;  // hand back mapped text in steps of 8 MB

size_t PageSize() {
    static const size_t size = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    return size;
}

bool IsXMLSpace(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

struct Mark {
    int fCodePage;
    size_t fLength;
};

// Byte-order marks among the first four bytes; none is looked for in fewer than two.
Mark DetectBOM(const char* aData, size_t aSize) {
    const auto* s = reinterpret_cast<const unsigned char*>(aData);
    if (aSize >= 3 && s[0] == 0xEF && s[1] == 0xBB && s[2] == 0xBF) return {kCodePageUTF8, 3};
    if (aSize >= 2 && s[0] == 0xFF && s[1] == 0xFE) return {kCodePageUTF16LE, 2};
    if (aSize >= 2 && s[0] == 0xFE && s[1] == 0xFF) return {kCodePageUTF16BE, 2};
    return {0, 0};
}

// The code page that the text is read in when no mark fixed it. A UTF-16 text without a mark
// shows itself by its first "<?" (the XML recommendation's rule); otherwise the declaration's
// encoding counts when aReadDeclaration. A declaration read in single bytes that names UTF-16
// cannot be right, and is ignored.
int ChooseCodePage(const char* aData, size_t aSize, int aDefaultCodePage, bool aReadDeclaration) {
    if (aSize >= 4 && std::memcmp(aData, "<\0?\0", 4) == 0) return kCodePageUTF16LE;
    if (aSize >= 4 && std::memcmp(aData, "\0<\0?", 4) == 0) return kCodePageUTF16BE;
    if (!aReadDeclaration) return aDefaultCodePage;
    const std::string declared = DeclaredEncoding(std::string_view(aData, aSize < 4096 ? aSize : 4096));
    if (declared.empty()) return aDefaultCodePage;
    const int cp = CodePageOfName(declared);
    if (cp == 0 || cp == kCodePageUTF16LE || cp == kCodePageUTF16BE) return aDefaultCodePage;
    return cp;
}

}  // namespace

std::string DeclaredEncoding(std::string_view aHead) {
    if (aHead.substr(0, 5) != "<?xml" || aHead.size() < 6 || !IsXMLSpace(aHead[5])) return {};
    const size_t close = aHead.find("?>");
    const std::string_view decl = aHead.substr(0, close == std::string_view::npos ? aHead.size() : close);
    size_t at = decl.find("encoding");
    while (at != std::string_view::npos) {
        size_t p = at + 8;
        while (p < decl.size() && IsXMLSpace(decl[p])) ++p;
        if (p < decl.size() && decl[p] == '=') {
            ++p;
            while (p < decl.size() && IsXMLSpace(decl[p])) ++p;
            if (p < decl.size() && (decl[p] == '"' || decl[p] == '\'')) {
                const char q = decl[p];
                const size_t end = decl.find(q, p + 1);
                if (end == std::string_view::npos) return {};
                return std::string(decl.substr(p + 1, end - p - 1));
            }
            return {};
        }
        at = decl.find("encoding", at + 8);
    }
    return {};
}

TOTextReader::TOTextReader() = default;

TOTextReader::~TOTextReader() { Close(); }

void TOTextReader::Close() noexcept {
    if (fMap) munmap(fMap, fMapLength);
    fMap = nullptr;
    fMapLength = 0;
    std::string().swap(fDecoded);
    fBegin = fEnd = fReleased = nullptr;
    fRawSize = fRawOffset = 0;
    fCodePage = 0;
    fBOMFound = false;
}

void TOTextReader::Decode(const char* aRaw, size_t aSize, int aForcedCodePage, int aDefaultCodePage) {
    const Mark mark = aForcedCodePage ? Mark{0, 0} : DetectBOM(aRaw, aSize);
    fBOMFound = mark.fCodePage != 0;
    fRawOffset = static_cast<int64_t>(mark.fLength);
    aRaw += mark.fLength;
    aSize -= mark.fLength;
    if (aForcedCodePage)
        fCodePage = aForcedCodePage;
    else if (fBOMFound)
        fCodePage = mark.fCodePage;
    else
        fCodePage = ChooseCodePage(aRaw, aSize, aDefaultCodePage, ReadDeclaredEncoding);
    std::string decoded;
    if (!DecodeToUTF8(fCodePage, aRaw, aSize, decoded)) {
        decoded.clear();
        fCodePage = kCodePageUTF8;
        decoded.append(aRaw, aSize);
    }
    fDecoded.swap(decoded);
    fBegin = fDecoded.c_str();  // c_str() ends in the zero byte the scanners stop at
    fEnd = fBegin + fDecoded.size();
    fReleased = fBegin;
}

void TOTextReader::OpenBuffer(const void* aData, size_t aSize, int aForcedCodePage, int aDefaultCodePage) {
    Close();
    fRawSize = static_cast<int64_t>(aSize);
    Decode(static_cast<const char*>(aData), aSize, aForcedCodePage, aDefaultCodePage);
}

void TOTextReader::OpenText(std::string&& aText, int aForcedCodePage, int aDefaultCodePage) {
    Close();
    fRawSize = static_cast<int64_t>(aText.size());
    const Mark mark = aForcedCodePage ? Mark{0, 0} : DetectBOM(aText.data(), aText.size());
    const int cp = aForcedCodePage ? aForcedCodePage
                                   : (mark.fCodePage ? mark.fCodePage
                                                     : ChooseCodePage(aText.data() + mark.fLength, aText.size() - mark.fLength,
                                                                      aDefaultCodePage, ReadDeclaredEncoding));
    if (cp != kCodePageUTF8) {
        Decode(aText.data(), aText.size(), aForcedCodePage, aDefaultCodePage);
        return;
    }
    fDecoded = std::move(aText);
    fBOMFound = mark.fCodePage != 0;
    fRawOffset = static_cast<int64_t>(mark.fLength);
    fCodePage = kCodePageUTF8;
    fBegin = fDecoded.c_str() + mark.fLength;  // c_str() ends in the zero byte the scanners stop at
    fEnd = fDecoded.c_str() + fDecoded.size();
    fReleased = fBegin;
}

void TOTextReader::OpenFile(const std::string& aFileName, int aForcedCodePage, int aDefaultCodePage) {
    Close();
    const int fd = open(aFileName.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        throw EOXmlException("Cannot open file \"" + aFileName + "\". " + std::strerror(errno));
    struct stat st {};
    if (fstat(fd, &st) == 0 && S_ISDIR(st.st_mode)) {
        close(fd);
        throw EOXmlException("Cannot open file \"" + aFileName + "\". " + std::strerror(EISDIR));
    }
    if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        // Not a plain file (a pipe, a device): read it whole.
        std::string raw;
        char chunk[65536];
        for (;;) {
            const ssize_t n = read(fd, chunk, sizeof chunk);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) break;
            raw.append(chunk, static_cast<size_t>(n));
        }
        close(fd);
        OpenBuffer(raw.data(), raw.size(), aForcedCodePage, aDefaultCodePage);
        return;
    }
    const size_t size = static_cast<size_t>(st.st_size);
    fRawSize = static_cast<int64_t>(size);
    if (size == 0) {
        close(fd);
        Decode("", 0, aForcedCodePage, aDefaultCodePage);
        return;
    }
    // Reserve the file's pages and one more of zeros, then lay the file over the front.
    const size_t page = PageSize();
    const size_t length = (size + page - 1) / page * page + page;
    void* base = mmap(nullptr, length, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (base == MAP_FAILED) {
        close(fd);
        throw EOXmlException("Cannot open file \"" + aFileName + "\". " + std::strerror(errno));
    }
    void* file = mmap(base, size, PROT_READ, MAP_PRIVATE | MAP_FIXED, fd, 0);
    close(fd);
    if (file == MAP_FAILED) {
        munmap(base, length);
        throw EOXmlException("Cannot open file \"" + aFileName + "\". " + std::strerror(errno));
    }
    const char* raw = static_cast<const char*>(base);
    const Mark mark = aForcedCodePage ? Mark{0, 0} : DetectBOM(raw, size);
    int cp = aForcedCodePage ? aForcedCodePage
                             : (mark.fCodePage ? mark.fCodePage
                                               : ChooseCodePage(raw, size, aDefaultCodePage, ReadDeclaredEncoding));
    if (cp != kCodePageUTF8) {
        // Other encodings are decoded into memory once; the mapping goes.
        try {
            Decode(raw, size, aForcedCodePage, aDefaultCodePage);
        } catch (...) {
            munmap(base, length);
            throw;
        }
        munmap(base, length);
        return;
    }
    madvise(base, length, MADV_SEQUENTIAL);
    fMap = base;
    fMapLength = length;
    fBOMFound = mark.fCodePage != 0;
    fRawOffset = static_cast<int64_t>(mark.fLength);
    fCodePage = kCodePageUTF8;
    fBegin = raw + mark.fLength;
    fEnd = raw + size;
    fReleased = raw;
}

int64_t TOTextReader::StreamPosition(const char* aAt) const noexcept {
    const int64_t done = aAt - fBegin;
    if (fMap || fCodePage == kCodePageUTF8) return fRawOffset + done;
    const int64_t total = fEnd - fBegin;
    if (total <= 0) return fRawSize;
    return fRawOffset + static_cast<int64_t>(static_cast<double>(done) / static_cast<double>(total) *
                                             static_cast<double>(fRawSize - fRawOffset));
}

void TOTextReader::Release(const char* aAt) noexcept {
    if (!fMap || aAt < fReleased + kReleaseStep) return;
    const size_t page = PageSize();
    const auto from = reinterpret_cast<uintptr_t>(fReleased);
    const uintptr_t to = reinterpret_cast<uintptr_t>(aAt) / page * page;
    if (to > from) {
        madvise(reinterpret_cast<void*>(from), to - from, MADV_DONTNEED);
        fReleased = reinterpret_cast<const char*>(to);
    }
}

}  // namespace tmi::xml
