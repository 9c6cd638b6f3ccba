// TXMLReader: the pull tokeniser over a TOTextReader. It never throws for malformed input:
// it keeps the first parse error as a value and stops (unless told to raise).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "text_reader.h"

namespace tmi::xml {

enum TXMLReaderTokenType : uint8_t {
    rtDocumentStart,
    rtOpenXMLDeclaration,
    rtXMLDeclarationAttribute,
    rtFinishXMLDeclarationClose,
    rtOpenElement,
    rtAttribute,
    rtFinishOpenElement,
    rtFinishOpenElementClose,
    rtCloseElement,
    rtText,
    rtEntityReference,
    rtCData,
    rtComment,
    rtProcessingInstruction,
    rtDocType
};

enum TXMLBreakReading : uint8_t { brNone, brAfterDocumentElement };
enum TXMLLineBreak : uint8_t { lbLF, lbCR, lbCRLF, lbDoNotProcess };
enum TOTextReaderErrorHandling : uint8_t { ehSilent, ehRaiseAndEat, ehRaise };

// Named entities for expansion; holds the five of XML at creation.
class TXMLReaderEntityList {
public:
    TXMLReaderEntityList();
    void AddOrReplace(const std::string& aName, const std::string& aValue);
    void Clear() { fItems.clear(); }
    // Value of a named entity, or nullptr.
    [[nodiscard]] const std::string* Find(std::string_view aName) const;
    [[nodiscard]] size_t Count() const { return fItems.size(); }

private:
    std::vector<std::pair<std::string, std::string>> fItems;
};

struct TXMLReaderSettings {
    TXMLReaderEntityList EntityList;
    TXMLBreakReading BreakReading = brAfterDocumentElement;
    TXMLLineBreak LineBreak = lbCRLF;
    bool StrictXML = true;
    bool RecognizeXMLDeclaration = true;
    bool ExpandEntities = true;
    // Text of white space alone up to the next markup makes no token: for readers that drop
    // such text anyway.
    bool IgnoreBlankText = false;
    TOTextReaderErrorHandling ErrorHandling = ehRaiseAndEat;
};

enum TOTextParseErrorKind : uint8_t { TXMLParseErrorInvalidCharacter, TXMLParseErrorInvalidStructure };

// A parse error kept as a value: where it happened and why.
class TOTextParseError {
public:
    TOTextParseErrorKind Kind = TXMLParseErrorInvalidStructure;
    std::string Reason;
    int Line = 0;        // 1-based
    int LinePos = 0;     // 1-based character in the line
    int64_t FilePos = 0; // 1-based character in the text
    std::string SrcText; // a stub of the source around the error
    int SrcTextPos = 0;  // 1-based position of the error in the stub
    std::string URL;

    // Reason, then where: "URL: ...", "Reading at:" when the URL is known, then
    // "Line: %d\r\nChar: %d\r\nPosition in source stub: %d\r\nSource stub:\r\n%s".
    [[nodiscard]] std::string ErrorReport() const;
};

using IOTextParseError = std::shared_ptr<const TOTextParseError>;

struct TXMLReaderToken {
    TXMLReaderTokenType TokenType = rtDocumentStart;
    std::string_view TokenName;
    std::string_view TokenValue;
};

class TXMLReader {
public:
    explicit TXMLReader(const TXMLReaderSettings& aSettings);
    ~TXMLReader();

    void InitFile(const std::string& aFileName, int aForcedCodePage = 0, int aDefaultCodePage = 65001);
    void InitBuffer(const void* aData, size_t aSize, int aForcedCodePage = 0, int aDefaultCodePage = 65001);
    // The text is given away to the reader, which reads UTF-8 where it lies.
    void InitText(std::string&& aText, int aForcedCodePage = 0, int aDefaultCodePage = 65001);

    // The next token, or false at the end of the stream or after a parse error.
    bool ReadNextToken(const TXMLReaderToken** aToken);

    [[nodiscard]] const IOTextParseError& ParseError() const noexcept { return fParseError; }
    [[nodiscard]] int64_t ApproxStreamPosition() const noexcept { return fText.StreamPosition(fPos); }
    [[nodiscard]] int64_t StreamSize() const noexcept { return fText.StreamSize(); }
    [[nodiscard]] int CodePage() const noexcept { return fText.CodePage(); }
    // Gives back the text already tokenised; call between tokens.
    void ReleaseRead() noexcept { fText.Release(fPos); }

    enum TSkipResult : uint8_t { skClosed, skFailed, skTooDeep };
    // Right after the open tag of an element (its rtFinishOpenElement), passes over its content
    // and its close tag without making tokens. The structure is still checked: every tag is
    // closed by its own name, quotes and comments, CDATA sections and processing instructions
    // end; text and attribute values are not looked into. skFailed with ParseError set (or at
    // an end of the stream without one); skTooDeep when elements nest deeper than aMaxNested
    // inside it. Only in strict reading.
    TSkipResult SkipElementContent(size_t aMaxNested);

    std::string URL;

private:
    enum State : uint8_t { stContent, stElementHeader, stDeclarationHeader, stDone };

    // Nothing was produced but the stream goes on: the caller reads again.
    bool Retry() noexcept {
        fRetry = true;
        return false;
    }
    bool Emit(TXMLReaderTokenType aType, std::string_view aName, std::string_view aValue);
    bool Fail(TOTextParseErrorKind aKind, const char* aAt, std::string aReason);
    bool FailChar(const char* aAt, const char* aTemplate, const char* aCharAt);
    bool ReadContent();
    bool ReadHeader(bool aDeclaration);
    bool ReadText();
    bool ReadOpenElement();
    bool ReadCloseElement();
    bool ReadSpecial();
    bool ReadProcessingInstruction();
    bool ReadUntil(const char* aTerminator, TXMLReaderTokenType aType, size_t aSkip, bool aNormalize);
    bool ReadDocType();
    bool ReadAttributeValue(char aQuote, std::string_view aName, std::string_view* aValue);
    // Expands the entity at fPos into fScratch; false when it is broken (error recorded in strict mode).
    bool ExpandEntity(std::string& aOut, bool* aFailed);
    size_t ScanName(const char* p, bool* aValid) const;
    void AppendBreak(std::string& aOut) const;
    bool EndOfStream();
    void PushName(std::string_view aName);
    void PopName();
    [[nodiscard]] std::string_view TopName() const;
    [[nodiscard]] std::string CharText(const char* aAt) const;

    const TXMLReaderSettings& fSettings;
    TOTextReader fText;
    const char* fPos = nullptr;
    const char* fEnd = nullptr;
    State fState = stContent;
    bool fStarted = false;
    bool fDocumentElementSeen = false;
    bool fRetry = false;
    int fPendingCloses = 0;
    TXMLReaderToken fToken;
    std::string fScratch;
    std::string fNameScratch;
    std::string fStackText;
    std::vector<uint32_t> fStackStarts;
    IOTextParseError fParseError;
};

}  // namespace tmi::xml
