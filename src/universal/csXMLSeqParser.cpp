#include "csXMLSeqParser.h"

#include "csCommon.h"

namespace tmi {

using namespace xml;

namespace {

// The reused document is emptied whole once it holds more than this.
constexpr size_t kShrinkAbove = 1u << 20;

bool BlankText(std::string_view aText) {
    for (const char c : aText)
        if (c != ' ' && c != '\t' && c != '\r' && c != '\n') return false;
    return true;
}

}  // namespace

TcsXMLSeqParser::TcsXMLSeqParser() : fDocument(std::make_unique<TXMLDocument>()) {
    fSettings.ErrorHandling = ehSilent;
    fSettings.IgnoreBlankText = true;  // the walk drops it, reported or built
}

TcsXMLSeqParser::~TcsXMLSeqParser() = default;

void TcsXMLSeqParser::OpenFile(const std::string& aFileName) {
    Close();
    fFileName = aFileName;
    Restart();
}

void TcsXMLSeqParser::OpenBuffer(const void* aData, size_t aSize) {
    Close();
    fBuffer = aData;
    fBufferSize = aSize;
    Restart();
}

void TcsXMLSeqParser::Close() {
    fReader.reset();
    fDocument->Clear();
    fFileName.clear();
    fBuffer = nullptr;
    fBufferSize = 0;
    fPath.clear();
    fPathStarts.clear();
    fEof = false;
    fPendingContent = false;
    fPopPending = false;
}

void TcsXMLSeqParser::Restart() {
    auto reader = std::make_unique<TXMLReader>(fSettings);
    if (fBuffer) {
        reader->URL = "buffer";
        reader->InitBuffer(fBuffer, fBufferSize);
    } else {
        reader->URL = fFileName;
        reader->InitFile(fFileName);
    }
    fReader = std::move(reader);
    fDocument->Clear();
    fPath.clear();
    fPathStarts.clear();
    fEof = false;
    fPendingContent = false;
    fPopPending = false;
    fTokens = 0;
}

bool TcsXMLSeqParser::GoToPath(std::string_view aPath) {
    if (!fReader) return false;
    // A reader that has read nothing yet is at the start already: no second opening.
    if (fTokens != 0) Restart();
    if (aPath == "/" || aPath.empty()) return true;
    PXMLNode node = nullptr;
    while (ReadNextChildHeader(node)) {
        if (node->NodeType() == ntElement && fPath == aPath) return true;
        ClearNode();
    }
    return false;
}

int64_t TcsXMLSeqParser::Position() const noexcept { return fReader ? fReader->ApproxStreamPosition() : 0; }

int64_t TcsXMLSeqParser::Size() const noexcept { return fReader ? fReader->StreamSize() : 0; }

bool TcsXMLSeqParser::NextToken() {
    // The text behind the walk goes back to the system now and then.
    if ((++fTokens & 0x3FFF) == 0) fReader->ReleaseRead();
    if (fReader->ReadNextToken(&fToken)) return true;
    if (fReader->ParseError()) RaiseParseError();
    return false;
}

void TcsXMLSeqParser::RaiseParseError() const {
    const IOTextParseError& e = fReader->ParseError();
    throw EcsXMLSeqParserError(e->Reason + " (строка " + std::to_string(e->Line) + ", символ " +
                                   std::to_string(e->LinePos) + ")",
                               e);
}

void TcsXMLSeqParser::RaiseTooDeep() const {
    throw EcsXMLSeqParserError("Вложенность элементов глубже " + std::to_string(kMaxDepth) + " уровней: " +
                                   std::string(fPath.substr(0, 200)) + "...",
                               nullptr);
}

void TcsXMLSeqParser::PushName(std::string_view aName) {
    if (static_cast<int>(fPathStarts.size()) >= kMaxDepth) RaiseTooDeep();
    fPathStarts.push_back(static_cast<uint32_t>(fPath.size()));
    fPath += '/';
    fPath += aName;
}

void TcsXMLSeqParser::PopName() {
    if (fPathStarts.empty()) return;
    fPath.resize(fPathStarts.back());
    fPathStarts.pop_back();
}

// Names go into the document's lookup table; values are appended to it, never hashed: a
// record's values are read once, and most of them (coordinates) differ from all others.
bool TcsXMLSeqParser::ReadNextChildHeader(PXMLNode& aNode) {
    aNode = nullptr;
    if (!fReader || fEof) return false;
    if (fPopPending) {
        fPopPending = false;
        if (OnEndElement) OnEndElement(fPath);
        PopName();
    }
    TXMLDocument& doc = *fDocument;
    PXMLNode root = doc.Node();
    while (NextToken()) {
        switch (fToken->TokenType) {
        case rtOpenElement: {
            PushName(fToken->TokenName);
            uint32_t record = 0;
            PXMLNode node = doc.CreateNode(ntElement, doc.AddString(fToken->TokenName), -1, &record);
            doc.LinkLast(root, doc.RecordOf(root), node, record, ctChild);
            // The header ends with the open tag: its attributes come first.
            while (NextToken()) {
                if (fToken->TokenType == rtAttribute) {
                    uint32_t a = 0;
                    PXMLNode attribute =
                        doc.CreateNode(ntAttribute, doc.AddString(fToken->TokenName), doc.AppendString(fToken->TokenValue), &a);
                    doc.LinkLast(node, record, attribute, a, ctAttribute);
                    continue;
                }
                fPendingContent = fToken->TokenType == rtFinishOpenElement;
                fPopPending = !fPendingContent;
                break;
            }
            doc.ChainChanged(root, ctChild);
            aNode = node;
            return true;
        }
        case rtCloseElement:
            if (OnEndElement) OnEndElement(fPath);
            PopName();
            break;
        case rtText:
        case rtCData:
            if (OnText && !fPathStarts.empty() && !BlankText(fToken->TokenValue)) OnText(fPath, fToken->TokenValue);
            break;
        case rtProcessingInstruction: {
            uint32_t record = 0;
            PXMLNode node = doc.CreateNode(ntProcessingInstruction, doc.AddString(fToken->TokenName),
                                           doc.AppendString(fToken->TokenValue), &record);
            doc.LinkLast(root, doc.RecordOf(root), node, record, ctChild);
            doc.ChainChanged(root, ctChild);
            aNode = node;
            return true;
        }
        default: break;
        }
    }
    // The reader ends cleanly only after the document element has closed.
    if (!fPathStarts.empty())
        throw EcsXMLSeqParserError("Неожиданный конец файла внутри " + std::string(fPath.substr(0, 200)), nullptr);
    fEof = true;
    return false;
}

void TcsXMLSeqParser::ReadNodeChildren(PXMLNode aNode) {
    if (!fPendingContent || !aNode) return;
    fPendingContent = false;
    TXMLDocument& doc = *fDocument;
    PXMLNode current = aNode;
    uint32_t currentRecord = doc.RecordOf(aNode);
    int depth = 0;
    const int room = kMaxDepth - static_cast<int>(fPathStarts.size());
    auto append = [&](TXMLNodeType aType, int32_t aName, int32_t aValue) {
        uint32_t record = 0;
        PXMLNode n = doc.CreateNode(aType, aName, aValue, &record);
        doc.LinkLast(current, currentRecord, n, record, ctChild);
        return std::make_pair(n, record);
    };
    while (NextToken()) {
        switch (fToken->TokenType) {
        case rtOpenElement: {
            if (depth >= room) RaiseTooDeep();
            const auto [n, record] = append(ntElement, doc.AddString(fToken->TokenName), -1);
            current = n;
            currentRecord = record;
            ++depth;
            break;
        }
        case rtAttribute: {
            uint32_t record = 0;
            PXMLNode a = doc.CreateNode(ntAttribute, doc.AddString(fToken->TokenName), doc.AppendString(fToken->TokenValue), &record);
            doc.LinkLast(current, currentRecord, a, record, ctAttribute);
            break;
        }
        case rtFinishOpenElementClose:
        case rtCloseElement:
            if (depth == 0) {
                doc.ChainChanged(aNode, ctChild);
                fPopPending = true;
                return;
            }
            currentRecord = current->fParentNode;
            current = current->ParentNode();
            --depth;
            break;
        case rtText:
            if (!BlankText(fToken->TokenValue)) append(ntText, -1, doc.AppendString(fToken->TokenValue));
            break;
        case rtCData: append(ntCData, -1, doc.AppendString(fToken->TokenValue)); break;
        case rtEntityReference:
            append(ntEntityReference, doc.AddString(fToken->TokenName), doc.AppendString(fToken->TokenValue));
            break;
        default: break;
        }
    }
    throw EcsXMLSeqParserError("Неожиданный конец файла внутри " + std::string(fPath.substr(0, 200)), nullptr);
}

void TcsXMLSeqParser::SkipNodeChildren() {
    if (!fPendingContent) return;
    fPendingContent = false;
    // The reader passes over the content by itself, without making a token of it (the walk
    // reads strictly, as that needs).
    const int room = kMaxDepth - static_cast<int>(fPathStarts.size());
    const TXMLReader::TSkipResult result = fReader->SkipElementContent(static_cast<size_t>(room));
    if (result == TXMLReader::skClosed) {
        fPopPending = true;
        fReader->ReleaseRead();
        return;
    }
    if (result == TXMLReader::skTooDeep) RaiseTooDeep();
    if (fReader->ParseError()) RaiseParseError();
    throw EcsXMLSeqParserError("Неожиданный конец файла внутри " + std::string(fPath.substr(0, 200)), nullptr);
}

void TcsXMLSeqParser::ClearNode() {
    if (fDocument->MemoryUsed() > kShrinkAbove) fDocument->Clear();
    else fDocument->Node()->DeleteChildren();
}

}  // namespace tmi
