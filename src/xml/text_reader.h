// TOTextReader: the text of one document as UTF-8, whatever its encoding on disk.
// A UTF-8 file is mapped, not copied, and the part already read is handed back to the
// system as the reader moves on; other encodings are decoded once into memory.
// The text is always followed by a zero byte, so scanning loops need no length test.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tmi::xml {

class TOTextReader {
public:
    TOTextReader();
    ~TOTextReader();
    TOTextReader(const TOTextReader&) = delete;
    TOTextReader& operator=(const TOTextReader&) = delete;

    // Raises EOXmlException when the file cannot be opened. aForcedCodePage 0 detects.
    void OpenFile(const std::string& aFileName, int aForcedCodePage, int aDefaultCodePage);
    void OpenBuffer(const void* aData, size_t aSize, int aForcedCodePage, int aDefaultCodePage);
    // The text given away to the reader: UTF-8 is read where it lies, without a copy.
    void OpenText(std::string&& aText, int aForcedCodePage, int aDefaultCodePage);

    [[nodiscard]] const char* Begin() const noexcept { return fBegin; }
    [[nodiscard]] const char* End() const noexcept { return fEnd; }
    [[nodiscard]] int CodePage() const noexcept { return fCodePage; }
    [[nodiscard]] bool BOMFound() const noexcept { return fBOMFound; }
    // Bytes of the source, and the approximate source position of a point of the text.
    [[nodiscard]] int64_t StreamSize() const noexcept { return fRawSize; }
    [[nodiscard]] int64_t StreamPosition(const char* aAt) const noexcept;

    // Nothing before aAt is needed any more (it may still be read again, more slowly).
    void Release(const char* aAt) noexcept;

    void Close() noexcept;

    // Whether the encoding named by a leading XML declaration is honoured (when no mark and
    // no forced code page fixed it). The XML reader sets it from RecognizeXMLDeclaration.
    bool ReadDeclaredEncoding = true;

private:
    void Decode(const char* aRaw, size_t aSize, int aForcedCodePage, int aDefaultCodePage);

    const char* fBegin = nullptr;
    const char* fEnd = nullptr;
    std::string fDecoded;     // decoded text when it is not a mapped file
    void* fMap = nullptr;     // mapped file and its zero tail
    size_t fMapLength = 0;
    const char* fReleased = nullptr;
    int64_t fRawSize = 0;
    int64_t fRawOffset = 0;   // bytes of a byte-order mark
    int fCodePage = 0;
    bool fBOMFound = false;
};

// The `encoding` of a leading XML declaration, or empty.
std::string DeclaredEncoding(std::string_view aHead);

}  // namespace tmi::xml
