#include "xml_reader.h"

#include <array>
#include <charconv>
#include <cstring>
#include <string_view>

#include "utf8.h"
#include "xml_errors.h"

namespace tmi::xml {

namespace {

// Character classes, resolved once so that the scanning loops test one table entry per byte.
enum : uint8_t {
    kStopText = 1,     // ends a plain run of text
    kStopAttr = 2,     // ends a plain run of an attribute value
    kSpace = 4,        // XML white space
    kNameStart = 8,    // ASCII name start character
    kName = 16,        // ASCII name character
    kHigh = 32,        // first byte of a multi-byte character
    kHeaderEnd = 64,   // ends a raw name in a header
    kTagStop = 128,    // ends a plain run of a tag passed over: its end, a quote, a '<', the sentinel
};

constexpr std::array<uint8_t, 256> MakeClasses() {
    std::array<uint8_t, 256> t{};
    for (int c = 0; c < 32; ++c)
        if (c != '\t') t[c] |= kStopText | kStopAttr;
    for (int c = 0x80; c < 0x100; ++c) t[c] |= kStopText | kStopAttr | kHigh;
    t['<'] |= kStopText | kStopAttr;
    t['&'] |= kStopText | kStopAttr;
    t[']'] |= kStopText;
    t['"'] |= kStopAttr;
    t['\''] |= kStopAttr;
    for (int c : {' ', '\t', '\r', '\n'}) t[c] |= kSpace | kHeaderEnd;
    for (int c = 'a'; c <= 'z'; ++c) t[c] |= kNameStart | kName;
    for (int c = 'A'; c <= 'Z'; ++c) t[c] |= kNameStart | kName;
    t['_'] |= kNameStart | kName;
    t[':'] |= kNameStart | kName;
    for (int c = '0'; c <= '9'; ++c) t[c] |= kName;
    t['-'] |= kName;
    t['.'] |= kName;
    for (int c : {int('>'), int('/'), int('='), int('<'), int('?'), int('"'), int('\''), 0}) t[c] |= kHeaderEnd;
    for (int c : {int('>'), int('"'), int('\''), int('<'), 0}) t[c] |= kTagStop;
    return t;
}

constexpr std::array<uint8_t, 256> kClass = MakeClasses();

inline uint8_t Cls(char c) { return kClass[static_cast<unsigned char>(c)]; }
inline bool IsSpace(char c) { return (Cls(c) & kSpace) != 0; }

// True when the text at p starts with the literal (never reads past the zero sentinel).
inline bool Starts(const char* p, const char* aLiteral) {
    for (; *aLiteral; ++p, ++aLiteral)
        if (*p != *aLiteral) return false;
    return true;
}

std::string Hex4(uint32_t aCode) {
    char buf[16];
    std::snprintf(buf, sizeof buf, "0x%04X", aCode);
    return buf;
}

std::string Replace1(const char* aTemplate, std::string_view aArg) {
    std::string out(aTemplate);
    const size_t at = out.find("%s");
    if (at != std::string::npos) out.replace(at, 2, aArg);
    return out;
}

constexpr const char* kInvalidInText = "The character \"%s\" cannot occur in text.";
constexpr const char* kInvalidInAttribute = "The character \"%s\" cannot occur in attribute.";
constexpr const char* kInvalidInHeader = "The character \"%s\" cannot occur in element header.";
constexpr const char* kInvalidAttributeStart = "An attribute cannot start with the character \"%s\".";
constexpr const char* kEqualSignMissing = "Equal sign must follow the attribute \"%s\".";
constexpr const char* kQuotesMissing = "\"%s\" attribute value must be enclosed in quotes.";
constexpr const char* kInvalidElementName = "\"%s\" is not a valid element name.";
constexpr const char* kInvalidEntity = "\"%s\" is not a valid entity.";
constexpr const char* kEntityNotFound = "The entity name \"%s\" was not found.";
constexpr const char* kTooManyClosed = "Too many elements closed.";
constexpr const char* kUnclosedAtEnd = "There are unclosed elements in the document end.";

}  // namespace

// ---------------------------------------------------------------------------------------------
// Entity list and parse error

TXMLReaderEntityList::TXMLReaderEntityList()
    : fItems{{"quot", "\""}, {"amp", "&"}, {"apos", "'"}, {"lt", "<"}, {"gt", ">"}} {}

void TXMLReaderEntityList::AddOrReplace(const std::string& aName, const std::string& aValue) {
    for (auto& item : fItems)
        if (item.first == aName) {
            item.second = aValue;
            return;
        }
    fItems.emplace_back(aName, aValue);
}

const std::string* TXMLReaderEntityList::Find(std::string_view aName) const {
    for (const auto& item : fItems)
        if (item.first == aName) return &item.second;
    return nullptr;
}

std::string TOTextParseError::ErrorReport() const {
    std::string out = Reason;
    out += "\r\n";
    if (!URL.empty()) {
        out += "URL: " + URL + "\r\n";
        out += "Reading at:\r\n";
    }
    out += "Line: " + std::to_string(Line) + "\r\nChar: " + std::to_string(LinePos) +
           "\r\nPosition in source stub: " + std::to_string(SrcTextPos) + "\r\nSource stub:\r\n" + SrcText;
    return out;
}

// ---------------------------------------------------------------------------------------------
// Reader

TXMLReader::TXMLReader(const TXMLReaderSettings& aSettings) : fSettings(aSettings) {}

TXMLReader::~TXMLReader() = default;

void TXMLReader::InitFile(const std::string& aFileName, int aForcedCodePage, int aDefaultCodePage) {
    URL = aFileName;
    fText.ReadDeclaredEncoding = fSettings.RecognizeXMLDeclaration;
    fText.OpenFile(aFileName, aForcedCodePage, aDefaultCodePage);
    fPos = fText.Begin();
    fEnd = fText.End();
}

void TXMLReader::InitText(std::string&& aText, int aForcedCodePage, int aDefaultCodePage) {
    fText.ReadDeclaredEncoding = fSettings.RecognizeXMLDeclaration;
    fText.OpenText(std::move(aText), aForcedCodePage, aDefaultCodePage);
    fPos = fText.Begin();
    fEnd = fText.End();
}

void TXMLReader::InitBuffer(const void* aData, size_t aSize, int aForcedCodePage, int aDefaultCodePage) {
    fText.ReadDeclaredEncoding = fSettings.RecognizeXMLDeclaration;
    fText.OpenBuffer(aData, aSize, aForcedCodePage, aDefaultCodePage);
    fPos = fText.Begin();
    fEnd = fText.End();
}

bool TXMLReader::Emit(TXMLReaderTokenType aType, std::string_view aName, std::string_view aValue) {
    fToken.TokenType = aType;
    fToken.TokenName = aName;
    fToken.TokenValue = aValue;
    return true;
}

std::string TXMLReader::CharText(const char* aAt) const {
    if (aAt >= fEnd) return Hex4(0);
    const auto c = static_cast<unsigned char>(*aAt);
    if (c < 32) return Hex4(c);
    size_t len = 1;
    const uint32_t cp = utf8::Decode(aAt, static_cast<size_t>(fEnd - aAt), &len);
    if (cp == utf8::kInvalid) return Hex4(c);
    if (cp == 0xFFFE || cp == 0xFFFF) return Hex4(cp);
    return std::string(aAt, len);
}

bool TXMLReader::Fail(TOTextParseErrorKind aKind, const char* aAt, std::string aReason) {
    auto error = std::make_shared<TOTextParseError>();
    error->Kind = aKind;
    error->Reason = std::move(aReason);
    error->URL = URL;
    // Line and column are counted only now: LF after CR counts once, CR alone is a line.
    const char* begin = fText.Begin();
    if (aAt > fEnd) aAt = fEnd;
    int line = 1;
    const char* lineStart = begin;
    for (const char* p = begin; p < aAt; ++p) {
        if (*p == '\n') {
            ++line;
            lineStart = p + 1;
        } else if (*p == '\r') {
            if (p + 1 < aAt && p[1] == '\n') ++p;
            ++line;
            lineStart = p + 1;
        }
    }
    error->Line = line;
    error->LinePos = static_cast<int>(utf8::CountChars(lineStart, static_cast<size_t>(aAt - lineStart))) + 1;
    error->FilePos = static_cast<int64_t>(utf8::CountChars(begin, static_cast<size_t>(aAt - begin))) + 1;
    // The stub: up to 40 bytes either side within the line, cut at character starts.
    const char* from = aAt - (aAt - lineStart > 40 ? 40 : aAt - lineStart);
    while (from < aAt && (static_cast<unsigned char>(*from) & 0xC0) == 0x80) ++from;
    const char* to = aAt;
    while (to < fEnd && to - aAt < 40 && *to != '\r' && *to != '\n') ++to;
    while (to < fEnd && to > aAt && (static_cast<unsigned char>(*to) & 0xC0) == 0x80) ++to;
    error->SrcText.assign(from, static_cast<size_t>(to - from));
    for (char& c : error->SrcText)
        if (static_cast<unsigned char>(c) < 32 && c != '\t') c = ' ';
    error->SrcTextPos = static_cast<int>(utf8::CountChars(from, static_cast<size_t>(aAt - from))) + 1;
    fParseError = error;
    fState = stDone;
    if (fSettings.ErrorHandling == ehRaise) throw EXmlReaderError(error->ErrorReport());
    return false;
}

bool TXMLReader::FailChar(const char* aAt, const char* aTemplate, const char* aCharAt) {
    return Fail(TXMLParseErrorInvalidCharacter, aAt, Replace1(aTemplate, CharText(aCharAt)));
}

void TXMLReader::PushName(std::string_view aName) {
    fStackStarts.push_back(static_cast<uint32_t>(fStackText.size()));
    fStackText.append(aName);
}

void TXMLReader::PopName() {
    fStackText.resize(fStackStarts.back());
    fStackStarts.pop_back();
}

std::string_view TXMLReader::TopName() const {
    return std::string_view(fStackText).substr(fStackStarts.back());
}

void TXMLReader::AppendBreak(std::string& aOut) const {
    switch (fSettings.LineBreak) {
        case lbLF: aOut.push_back('\n'); break;
        case lbCR: aOut.push_back('\r'); break;
        default: aOut.append("\r\n"); break;
    }
}

bool TXMLReader::ReadNextToken(const TXMLReaderToken** aToken) {
    *aToken = &fToken;
    for (;;) {
        fRetry = false;
        bool result = false;
        if (fPendingCloses > 0) {
            --fPendingCloses;
            PopName();
            if (fStackStarts.empty() && fSettings.BreakReading == brAfterDocumentElement) fState = stDone;
            return Emit(rtCloseElement, {}, {});
        }
        switch (fState) {
            case stContent: result = ReadContent(); break;
            case stElementHeader: result = ReadHeader(false); break;
            case stDeclarationHeader: result = ReadHeader(true); break;
            default: return false;
        }
        if (result || !fRetry) return result;
    }
}

bool TXMLReader::EndOfStream() {
    if (fSettings.StrictXML && !fStackStarts.empty())
        return Fail(TXMLParseErrorInvalidStructure, fEnd, kUnclosedAtEnd);
    fState = stDone;
    return false;
}

bool TXMLReader::ReadContent() {
    const bool first = !fStarted;
    fStarted = true;
    if (*fPos == '<') {
        const char n = fPos[1];
        if (n == '/') return ReadCloseElement();
        if (n == '?') {
            if (first && fSettings.RecognizeXMLDeclaration && Starts(fPos + 2, "xml") && IsSpace(fPos[5])) {
                fPos += 5;
                fState = stDeclarationHeader;
                return Emit(rtOpenXMLDeclaration, "xml", {});
            }
            return ReadProcessingInstruction();
        }
        if (n == '!') return ReadSpecial();
        return ReadOpenElement();
    }
    if (fPos >= fEnd) return EndOfStream();
    return ReadText();
}

// Length of a run of name characters at p; *aValid is false when the run is not a
// well-formed name (empty, or starting with a character that cannot start a name).
size_t TXMLReader::ScanName(const char* p, bool* aValid) const {
    const char* q = p;
    bool valid = true;
    // The first character: a name character that cannot start a name still runs on, so that
    // the whole run is reported as one bad name.
    const uint8_t first = Cls(*q);
    if (first & kName) {
        valid = (first & kNameStart) != 0;
        ++q;
    } else if (first & kHigh) {
        size_t len = 0;
        const uint32_t cp = utf8::Decode(q, static_cast<size_t>(fEnd - q), &len);
        if (cp == utf8::kInvalid || cp > 0xFFFF || !utf8::IsNameChar(cp)) {
            *aValid = false;
            return 0;
        }
        valid = utf8::IsNameStartChar(cp);
        q += len;
    } else {
        *aValid = false;
        return 0;
    }
    for (;;) {
        while (Cls(*q) & kName) ++q;  // the common run: ASCII name characters
        if (!(Cls(*q) & kHigh)) break;
        size_t len = 0;
        const uint32_t cp = utf8::Decode(q, static_cast<size_t>(fEnd - q), &len);
        if (cp == utf8::kInvalid || cp > 0xFFFF || !utf8::IsNameChar(cp)) break;
        q += len;
    }
    *aValid = valid;
    return static_cast<size_t>(q - p);
}

bool TXMLReader::ReadOpenElement() {
    const char* start = fPos + 1;
    bool valid = false;
    size_t n = ScanName(start, &valid);
    const char* after = start + n;
    const bool delimited = IsSpace(*after) || *after == '>' || *after == '/' || after >= fEnd;
    if (!valid || !delimited) {
        // The raw name reaches the next delimiter of a header.
        const char* rawEnd = after;
        while (rawEnd < fEnd && !(Cls(*rawEnd) & kHeaderEnd)) ++rawEnd;
        if (fSettings.StrictXML)
            return Fail(TXMLParseErrorInvalidStructure, start,
                        Replace1(kInvalidElementName, std::string_view(start, static_cast<size_t>(rawEnd - start))));
        if (rawEnd == start) return ReadText();  // a lone "<" is text
        n = static_cast<size_t>(rawEnd - start);
    }
    const std::string_view name(start, n);
    PushName(name);
    fPos = start + n;
    fState = stElementHeader;
    fDocumentElementSeen = true;
    return Emit(rtOpenElement, name, {});
}

bool TXMLReader::ReadHeader(bool aDeclaration) {
    while (IsSpace(*fPos)) ++fPos;
    const char c = *fPos;
    if (!aDeclaration) {
        if (c == '>') {
            ++fPos;
            fState = stContent;
            return Emit(rtFinishOpenElement, {}, {});
        }
        if (c == '/') {
            if (fPos[1] == '>') {
                fPos += 2;
                fState = stContent;
                PopName();
                if (fStackStarts.empty() && fSettings.BreakReading == brAfterDocumentElement) fState = stDone;
                return Emit(rtFinishOpenElementClose, {}, {});
            }
            if (fSettings.StrictXML) return FailChar(fPos, kInvalidInHeader, fPos);
            ++fPos;
            return Retry();
        }
    } else if (c == '?' && fPos[1] == '>') {
        fPos += 2;
        fState = stContent;
        return Emit(rtFinishXMLDeclarationClose, {}, {});
    }
    if (fPos >= fEnd) return EndOfStream();
    // An attribute.
    const char* start = fPos;
    bool valid = false;
    size_t n = ScanName(start, &valid);
    if (!valid) {
        if (fSettings.StrictXML) {
            if (n == 0) return FailChar(start, kInvalidAttributeStart, start);
            return FailChar(start, kInvalidAttributeStart, start);
        }
        n = 0;
        while (start + n < fEnd && !(Cls(start[n]) & kHeaderEnd)) ++n;
        if (n == 0) {  // skip a stray character
            ++fPos;
            return Retry();
        }
    }
    const char* p = start + n;
    if (!(Cls(*p) & kHeaderEnd)) {
        if (fSettings.StrictXML) return FailChar(p, kInvalidInHeader, p);
        while (p < fEnd && !(Cls(*p) & kHeaderEnd)) ++p;
        n = static_cast<size_t>(p - start);
    }
    const std::string_view name(start, n);
    while (IsSpace(*p)) ++p;
    const TXMLReaderTokenType type = aDeclaration ? rtXMLDeclarationAttribute : rtAttribute;
    if (*p != '=') {
        if (fSettings.StrictXML) return Fail(TXMLParseErrorInvalidStructure, p, Replace1(kEqualSignMissing, name));
        fPos = p;
        return Emit(type, name, {});
    }
    ++p;
    while (IsSpace(*p)) ++p;
    if (*p != '"' && *p != '\'') {
        if (fSettings.StrictXML) return Fail(TXMLParseErrorInvalidStructure, p, Replace1(kQuotesMissing, name));
        const char* v = p;
        while (p < fEnd && !IsSpace(*p) && *p != '>' && !(*p == '/' && p[1] == '>') && !(*p == '?' && p[1] == '>'))
            ++p;
        fPos = p;
        return Emit(type, name, std::string_view(v, static_cast<size_t>(p - v)));
    }
    fPos = p;
    std::string_view value;
    if (!ReadAttributeValue(*p, name, &value)) return false;
    return Emit(type, name, value);
}

// Reads a quoted value at fPos; the view stays valid until the next token.
bool TXMLReader::ReadAttributeValue(char aQuote, std::string_view aName, std::string_view* aValue) {
    const char* start = ++fPos;
    const char* p = start;
    bool copying = false;
    const bool normalize = fSettings.LineBreak != lbDoNotProcess;
    for (;;) {
        const char* q = p;
        while (!(Cls(*q) & kStopAttr)) ++q;
        if (copying) fScratch.append(p, q);
        p = q;
        const char c = *p;
        if (c == aQuote) break;
        if (c == '"' || c == '\'') {
            if (copying) fScratch.push_back(c);
            ++p;
            continue;
        }
        if (p >= fEnd) {
            if (fSettings.StrictXML) return Fail(TXMLParseErrorInvalidStructure, fEnd, kUnclosedAtEnd);
            break;
        }
        const auto u = static_cast<unsigned char>(c);
        if (u >= 0x80) {
            size_t len = 0;
            const uint32_t cp = utf8::Decode(p, static_cast<size_t>(fEnd - p), &len);
            if (cp == utf8::kInvalid) {
                if (!copying) fScratch.assign(start, p), copying = true;
                utf8::Append(fScratch, utf8::kReplacement);
                ++p;
                continue;
            }
            if ((cp == 0xFFFE || cp == 0xFFFF) && fSettings.StrictXML) return FailChar(p, kInvalidInAttribute, p);
            if (copying) fScratch.append(p, len);
            p += len;
            continue;
        }
        if (c == '\r' || c == '\n') {
            if (!normalize) {
                if (copying) fScratch.push_back(c);
                ++p;
                continue;
            }
            const bool pair = c == '\r' && p[1] == '\n';
            if (pair && fSettings.LineBreak == lbCRLF) {
                if (copying) fScratch.append("\r\n");
                p += 2;
                continue;
            }
            if (!copying) fScratch.assign(start, p), copying = true;
            AppendBreak(fScratch);
            p += pair ? 2 : 1;
            continue;
        }
        if (c == '&') {
            if (!fSettings.ExpandEntities) {
                if (copying) fScratch.push_back(c);
                ++p;
                continue;
            }
            if (!copying) fScratch.assign(start, p), copying = true;
            fPos = p;
            bool failed = false;
            if (!ExpandEntity(fScratch, &failed)) return false;
            p = fPos;
            continue;
        }
        if (c == '<' || u < 32) {
            if (fSettings.StrictXML) return FailChar(p, kInvalidInAttribute, p);
            if (copying) fScratch.push_back(c);
            ++p;
            continue;
        }
        if (copying) fScratch.push_back(c);
        ++p;
    }
    *aValue = copying ? std::string_view(fScratch) : std::string_view(start, static_cast<size_t>(p - start));
    fPos = p < fEnd ? p + 1 : p;
    (void)aName;
    return true;
}

// Expands the entity at fPos ("&...;") onto aOut and moves past it. In strict mode a broken
// or unknown entity records the parse error and returns false; otherwise it stays as written.
bool TXMLReader::ExpandEntity(std::string& aOut, bool* aFailed) {
    const char* start = fPos;
    const char* p = start + 1;
    // The raw entity ends at ';', or at the first character that cannot belong to it.
    const char* end = p;
    while (end < fEnd && end - p < 64 && *end != ';' && !IsSpace(*end) && *end != '<' && *end != '&' &&
           *end != '"' && *end != '\'')
        ++end;
    const bool terminated = *end == ';' && end < fEnd;
    const std::string_view raw(start, static_cast<size_t>((terminated ? end + 1 : end) - start));
    const std::string_view body(p, static_cast<size_t>(end - p));
    auto broken = [&](const char* aTemplate) {
        *aFailed = true;
        if (fSettings.StrictXML) return Fail(TXMLParseErrorInvalidStructure, start, Replace1(aTemplate, raw));
        aOut.append(raw);
        fPos = start + raw.size();
        return true;
    };
    if (!terminated || body.empty()) return broken(kInvalidEntity);
    if (body[0] == '#') {
        uint32_t code = 0;
        const char* digits = body.data() + 1;
        const char* last = body.data() + body.size();
        int base = 10;
        if (digits < last && (*digits == 'x')) {
            base = 16;
            ++digits;
        }
        if (digits == last) return broken(kInvalidEntity);
        const auto r = std::from_chars(digits, last, code, base);
        if (r.ec != std::errc() || r.ptr != last || code == 0 || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF))
            return broken(kInvalidEntity);
        if (fSettings.StrictXML && ((code < 32 && code != 9 && code != 10 && code != 13) || code == 0xFFFE || code == 0xFFFF))
            return broken(kInvalidEntity);
        utf8::Append(aOut, code);
        fPos = end + 1;
        return true;
    }
    const std::string* value = fSettings.EntityList.Find(body);
    if (!value) return broken(kEntityNotFound);
    aOut.append(*value);
    fPos = end + 1;
    return true;
}

bool TXMLReader::ReadText() {
    const char* start = fPos;
    const char* p = start;
    bool copying = false;
    const bool strict = fSettings.StrictXML;
    const bool normalize = fSettings.LineBreak != lbDoNotProcess;
    if (fSettings.IgnoreBlankText && IsSpace(*p)) {
        const char* q = p + 1;
        while (IsSpace(*q)) ++q;
        if (*q == '<' || q >= fEnd) {
            fPos = q;
            return Retry();
        }
    }
    // A text run starts with '<' only when a lone '<' is passed as text.
    if (*p == '<') ++p;
    for (;;) {
        const char* q = p;
        while (!(Cls(*q) & kStopText)) ++q;
        if (copying) fScratch.append(p, q);
        p = q;
        const char c = *p;
        if (c == '<') {
            if (strict || p == start) break;
            // Without strict checks a '<' that opens nothing is text.
            bool valid = false;
            const char n = p[1];
            if (n == '/' || n == '?' || n == '!' || (ScanName(p + 1, &valid) > 0 && valid)) break;
            if (copying) fScratch.push_back(c);
            ++p;
            continue;
        }
        if (p >= fEnd) break;
        const auto u = static_cast<unsigned char>(c);
        if (u >= 0x80) {
            size_t len = 0;
            const uint32_t cp = utf8::Decode(p, static_cast<size_t>(fEnd - p), &len);
            if (cp == utf8::kInvalid) {
                if (!copying) fScratch.assign(start, p), copying = true;
                utf8::Append(fScratch, utf8::kReplacement);
                ++p;
                continue;
            }
            if ((cp == 0xFFFE || cp == 0xFFFF) && strict) return FailChar(p, kInvalidInText, p);
            if (copying) fScratch.append(p, len);
            p += len;
            continue;
        }
        if (c == '\r' || c == '\n') {
            if (!normalize) {
                if (copying) fScratch.push_back(c);
                ++p;
                continue;
            }
            const bool pair = c == '\r' && p[1] == '\n';
            if (pair && fSettings.LineBreak == lbCRLF) {
                if (copying) fScratch.append("\r\n");
                p += 2;
                continue;
            }
            if (!copying) fScratch.assign(start, p), copying = true;
            AppendBreak(fScratch);
            p += pair ? 2 : 1;
            continue;
        }
        if (c == '&') {
            if (!fSettings.ExpandEntities) break;
            if (!copying) fScratch.assign(start, p), copying = true;
            fPos = p;
            bool failed = false;
            if (!ExpandEntity(fScratch, &failed)) return false;
            p = fPos;
            continue;
        }
        if (c == ']') {
            if (strict && p[1] == ']' && p[2] == '>') return FailChar(p + 2, kInvalidInText, p + 2);
            if (copying) fScratch.push_back(c);
            ++p;
            continue;
        }
        // Other control characters.
        if (strict) return FailChar(p, kInvalidInText, p);
        if (copying) fScratch.push_back(c);
        ++p;
    }
    fPos = p;
    if (!copying && p == start) {
        // An entity reference that is not expanded.
        if (*p == '&' && !fSettings.ExpandEntities) {
            fScratch.clear();
            bool failed = false;
            if (!ExpandEntity(fScratch, &failed)) return false;
            if (failed) return Emit(rtText, {}, fScratch);
            const std::string_view raw(start, static_cast<size_t>(fPos - start));
            return Emit(rtEntityReference, raw.substr(1, raw.size() - 2), fScratch);
        }
        return Retry();
    }
    return Emit(rtText, {}, copying ? std::string_view(fScratch) : std::string_view(start, static_cast<size_t>(p - start)));
}

bool TXMLReader::ReadCloseElement() {
    const char* start = fPos + 2;
    bool valid = false;
    const size_t n = ScanName(start, &valid);
    const char* p = start + n;
    const std::string_view name(start, n);
    if (!valid) {
        if (fSettings.StrictXML) {
            const char* rawEnd = start;
            while (rawEnd < fEnd && !(Cls(*rawEnd) & kHeaderEnd)) ++rawEnd;
            return Fail(TXMLParseErrorInvalidStructure, start,
                        Replace1(kInvalidElementName, std::string_view(start, static_cast<size_t>(rawEnd - start))));
        }
    }
    while (IsSpace(*p)) ++p;
    if (*p != '>') {
        if (fSettings.StrictXML) {
            if (p >= fEnd) return Fail(TXMLParseErrorInvalidStructure, p, kUnclosedAtEnd);
            return FailChar(p, kInvalidInHeader, p);
        }
        while (p < fEnd && *p != '>') ++p;
    }
    fPos = p < fEnd ? p + 1 : p;
    if (fStackStarts.empty()) {
        if (fSettings.StrictXML) return Fail(TXMLParseErrorInvalidStructure, start - 2, kTooManyClosed);
        return Retry();
    }
    if (TopName() != name) {
        if (fSettings.StrictXML)
            return Fail(TXMLParseErrorInvalidStructure, start - 2,
                        "Trying to close wrong element. Close=\"" + std::string(name) + "\", open element=\"" +
                            std::string(TopName()) + "\".");
        // Without strict checks, a close tag of an ancestor closes everything up to it;
        // one that matches nothing open is ignored.
        for (size_t i = fStackStarts.size(); i-- > 0;) {
            const std::string_view open = std::string_view(fStackText).substr(
                fStackStarts[i], (i + 1 < fStackStarts.size() ? fStackStarts[i + 1] : fStackText.size()) - fStackStarts[i]);
            if (open == name) {
                fPendingCloses = static_cast<int>(fStackStarts.size() - i);
                break;
            }
        }
        return Retry();
    }
    PopName();
    if (fStackStarts.empty() && fSettings.BreakReading == brAfterDocumentElement) fState = stDone;
    return Emit(rtCloseElement, name, {});
}

bool TXMLReader::ReadSpecial() {
    if (Starts(fPos, "<!--")) return ReadUntil("-->", rtComment, 4, false);
    if (Starts(fPos, "<![CDATA[")) return ReadUntil("]]>", rtCData, 9, true);
    if (Starts(fPos, "<!DOCTYPE")) return ReadDocType();
    if (fSettings.StrictXML) {
        const char* start = fPos + 1;
        const char* rawEnd = start + 1;
        while (rawEnd < fEnd && !(Cls(*rawEnd) & kHeaderEnd)) ++rawEnd;
        return Fail(TXMLParseErrorInvalidStructure, start,
                    Replace1(kInvalidElementName, std::string_view(start, static_cast<size_t>(rawEnd - start))));
    }
    return ReadText();
}

// Comment, CDATA: everything up to the terminator. Text of a CDATA section is checked
// like text and its line breaks follow the reader's setting.
bool TXMLReader::ReadUntil(const char* aTerminator, TXMLReaderTokenType aType, size_t aSkip, bool aNormalize) {
    const char* start = fPos + aSkip;
    const size_t termLength = std::strlen(aTerminator);
    const char* p = start;
    bool copying = false;
    const bool normalize = aNormalize && fSettings.LineBreak != lbDoNotProcess;
    for (;;) {
        if (p >= fEnd) {
            if (fSettings.StrictXML) return Fail(TXMLParseErrorInvalidStructure, fEnd, kUnclosedAtEnd);
            break;
        }
        const char c = *p;
        if (c == *aTerminator && Starts(p, aTerminator)) break;
        const auto u = static_cast<unsigned char>(c);
        if (u >= 0x80) {
            size_t len = 0;
            const uint32_t cp = utf8::Decode(p, static_cast<size_t>(fEnd - p), &len);
            if (cp == utf8::kInvalid) {
                if (!copying) fScratch.assign(start, p), copying = true;
                utf8::Append(fScratch, utf8::kReplacement);
                ++p;
                continue;
            }
            if ((cp == 0xFFFE || cp == 0xFFFF) && fSettings.StrictXML) return FailChar(p, kInvalidInText, p);
            if (copying) fScratch.append(p, len);
            p += len;
            continue;
        }
        if (normalize && (c == '\r' || c == '\n')) {
            const bool pair = c == '\r' && p[1] == '\n';
            if (!(pair && fSettings.LineBreak == lbCRLF)) {
                if (!copying) fScratch.assign(start, p), copying = true;
                AppendBreak(fScratch);
                p += pair ? 2 : 1;
                continue;
            }
            if (copying) fScratch.append("\r\n");
            p += 2;
            continue;
        }
        if (u < 32 && c != '\t' && c != '\r' && c != '\n' && fSettings.StrictXML) return FailChar(p, kInvalidInText, p);
        if (copying) fScratch.push_back(c);
        ++p;
    }
    const std::string_view value = copying ? std::string_view(fScratch) : std::string_view(start, static_cast<size_t>(p - start));
    fPos = p < fEnd ? p + termLength : p;
    return Emit(aType, {}, value);
}

bool TXMLReader::ReadDocType() {
    // "<!DOCTYPE" ... ">", with an internal subset in brackets and quoted literals kept whole.
    // Nothing inside is interpreted: no entity of a DTD is ever defined or read.
    const char* start = fPos + 9;
    const char* p = start;
    int depth = 0;
    char quote = 0;
    for (;; ++p) {
        if (p >= fEnd) {
            if (fSettings.StrictXML) return Fail(TXMLParseErrorInvalidStructure, fEnd, kUnclosedAtEnd);
            break;
        }
        const char c = *p;
        if (quote) {
            if (c == quote) quote = 0;
        } else if (c == '"' || c == '\'') {
            quote = c;
        } else if (c == '[') {
            ++depth;
        } else if (c == ']') {
            if (depth > 0) --depth;
        } else if (c == '>' && depth == 0) {
            break;
        }
    }
    const char* from = start;
    const char* to = p;
    while (from < to && IsSpace(*from)) ++from;
    while (to > from && IsSpace(to[-1])) --to;
    fPos = p < fEnd ? p + 1 : p;
    return Emit(rtDocType, {}, std::string_view(from, static_cast<size_t>(to - from)));
}

bool TXMLReader::ReadProcessingInstruction() {
    const char* start = fPos + 2;
    bool valid = false;
    const size_t n = ScanName(start, &valid);
    if (!valid && fSettings.StrictXML) {
        const char* rawEnd = start;
        while (rawEnd < fEnd && !(Cls(*rawEnd) & kHeaderEnd)) ++rawEnd;
        return Fail(TXMLParseErrorInvalidStructure, start,
                    Replace1(kInvalidElementName, std::string_view(start, static_cast<size_t>(rawEnd - start))));
    }
    fNameScratch.assign(start, n);
    const char* p = start + n;
    while (IsSpace(*p)) ++p;
    fPos = p - 2;  // ReadUntil skips two characters
    if (!ReadUntil("?>", rtProcessingInstruction, 2, false)) return false;
    fToken.TokenName = fNameScratch;
    return true;
}

// The common constructs are scanned here: open tags with their quoted attributes, close tags,
// text between them. Anything else (comments, sections, instructions, a tag that is not plain)
// is read by the tokeniser, which also reports what is wrong.
TXMLReader::TSkipResult TXMLReader::SkipElementContent(size_t aMaxNested) {
    const size_t base = fStackStarts.size();  // the skipped element is the top name
    if (!fSettings.StrictXML || fState != stContent || fPendingCloses > 0 || base == 0) return skFailed;
    const char* p = fPos;
    // One construct read by the tokeniser from p, up to the content after it.
    auto tokenise = [&]() {
        fPos = p;
        const TXMLReaderToken* token = nullptr;
        do {
            if (!ReadNextToken(&token)) return false;
        } while (fState == stElementHeader || fState == stDeclarationHeader);
        p = fPos;
        return true;
    };
    for (;;) {
        if (fStackStarts.size() < base || fState == stDone) {
            fPos = p;
            return skClosed;
        }
        // Tags mostly follow one another with a line break between: looked for in place first.
        while (IsSpace(*p)) ++p;
        if (*p != '<') p = static_cast<const char*>(std::memchr(p, '<', static_cast<size_t>(fEnd - p)));
        if (!p || p >= fEnd) {
            fPos = fEnd;
            EndOfStream();
            return skFailed;
        }
        const char next = p[1];
        if (next == '/') {
            // The open element's own name, then the end of the tag: a name that reads on is
            // another name.
            const std::string_view top = TopName();
            const char* q = p + 2 + top.size();
            if (q < fEnd && std::memcmp(p + 2, top.data(), top.size()) == 0 && !(Cls(*q) & (kName | kHigh))) {
                while (IsSpace(*q)) ++q;
                if (*q == '>' && q < fEnd) {
                    PopName();
                    if (fStackStarts.empty() && fSettings.BreakReading == brAfterDocumentElement) fState = stDone;
                    p = q + 1;
                    continue;
                }
            }
            if (!tokenise()) return skFailed;
            continue;
        }
        if (next == '!' || next == '?') {
            if (!tokenise()) return skFailed;
            continue;
        }
        // An open tag.
        if (fStackStarts.size() - base >= aMaxNested) {
            fPos = p;
            return skTooDeep;
        }
        const char* start = p + 1;
        bool valid = false;
        const size_t n = ScanName(start, &valid);
        const char* q = start + n;
        if (!valid || !(IsSpace(*q) || *q == '>' || *q == '/')) {
            if (!tokenise()) return skFailed;
            continue;
        }
        // To the end of the tag, over quoted values; a '<' or the end of the text in it leaves the
        // tag to the tokeniser.
        bool plain = true;
        for (;;) {
            while (!(Cls(*q) & kTagStop)) ++q;
            const char c = *q;
            if ((c != '"' && c != '\'') || q >= fEnd) {
                plain = c == '>' && q < fEnd;
                break;
            }
            for (++q; *q != c && q < fEnd; ++q) {
            }
            if (q >= fEnd) {
                plain = false;
                break;
            }
            ++q;
        }
        if (!plain) {
            if (!tokenise()) return skFailed;
            continue;
        }
        if (q[-1] != '/') PushName(std::string_view(start, n));
        p = q + 1;
    }
}

}  // namespace tmi::xml
