// TcsXMLSeqParser: a document read element by element. Every element header (its name and
// attributes) is reported in document order as a node of a small document that is reused;
// an element's content is read into memory only when asked for, so a file of any size
// costs the memory of its largest record.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "OXmlPDOM.h"
#include "csCommon.h"

namespace tmi {

// A document that cannot be read on: malformed, truncated, too deep. The message is one
// line with the reader's reason and where (line, character); Error() has the whole report.
class EcsXMLSeqParserError : public Exception {
public:
    EcsXMLSeqParserError(const std::string& aMessage, xml::IOTextParseError aError)
        : Exception(aMessage), fError(std::move(aError)) {}
    [[nodiscard]] const xml::IOTextParseError& Error() const noexcept { return fError; }

private:
    xml::IOTextParseError fError;
};

class TcsXMLSeqParser {
public:
    TcsXMLSeqParser();
    ~TcsXMLSeqParser();
    TcsXMLSeqParser(const TcsXMLSeqParser&) = delete;
    TcsXMLSeqParser& operator=(const TcsXMLSeqParser&) = delete;

    // Raises when the file cannot be opened.
    void OpenFile(const std::string& aFileName);
    // The buffer must outlive the parser's use of it.
    void OpenBuffer(const void* aData, size_t aSize);
    void Close();
    [[nodiscard]] bool Active() const noexcept { return fReader != nullptr; }

    // "/" goes back to the start of the document. Any other path reads headers on until the
    // element of that path ("/Root/Child") is the last one read; false when none is met.
    bool GoToPath(std::string_view aPath);

    // The header of the next element or processing instruction, in document order; false at
    // the end of the document. Content that was not read is skipped as the walk goes on: the
    // next header is the first child of the element just reported.
    bool ReadNextChildHeader(xml::PXMLNode& aNode);
    // Reads the whole content of the element just reported under its node; afterwards the
    // walk goes on after that element.
    void ReadNodeChildren(xml::PXMLNode aNode);
    // Passes over the content of the element just reported without building it or making
    // tokens of it: the reader still checks its structure (tags closed by their names, quotes,
    // comments and sections ended), not its text; no node, text or end of element is reported
    // from inside it.
    void SkipNodeChildren();
    // Frees what the last header and its content took; the reused document shrinks back when
    // a large record has grown it.
    void ClearNode();

    // The path of the last element header: "/Root/Child" (names as written, prefixes kept).
    [[nodiscard]] std::string_view ActivePath() const noexcept { return fPath; }
    // The number of open elements around the walk's position.
    [[nodiscard]] int Depth() const noexcept { return static_cast<int>(fPathStarts.size()); }
    [[nodiscard]] int64_t Position() const noexcept;
    [[nodiscard]] int64_t Size() const noexcept;
    [[nodiscard]] bool Eof() const noexcept { return fEof; }
    [[nodiscard]] xml::TXMLDocument& Document() noexcept { return *fDocument; }

    // Seen while the walk skips content (not within ReadNodeChildren): the text of an open
    // element and the end of an element, with its path.
    std::function<void(std::string_view aPath, std::string_view aText)> OnText;
    std::function<void(std::string_view aPath)> OnEndElement;

    // The deepest nesting read; deeper raises.
    static constexpr int kMaxDepth = 4096;

private:
    void Restart();
    bool NextToken();
    [[noreturn]] void RaiseParseError() const;
    [[noreturn]] void RaiseTooDeep() const;
    void PushName(std::string_view aName);
    void PopName();

    xml::TXMLReaderSettings fSettings;
    std::unique_ptr<xml::TXMLReader> fReader;
    std::unique_ptr<xml::TXMLDocument> fDocument;
    const xml::TXMLReaderToken* fToken = nullptr;
    std::string fFileName;
    const void* fBuffer = nullptr;
    size_t fBufferSize = 0;
    std::string fPath;
    std::vector<uint32_t> fPathStarts;
    bool fEof = false;
    bool fPendingContent = false;  // the last header opened an element whose content is unread
    bool fPopPending = false;      // the last element reported has ended; its name leaves the path next
    uint32_t fTokens = 0;
};

}  // namespace tmi
