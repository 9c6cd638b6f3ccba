#include "csRosreestrXMLFormula.h"

#include <charconv>

#include "utf8.h"

namespace tmi {

using xml::PXMLNode;

namespace {

// More parts than any table needs: a formula past it is a mistake, not a mapping.
constexpr size_t kMaxParts = 64;
constexpr size_t kMaxSteps = 64;

[[noreturn]] void Fail(const std::string& aReason) { throw EcsFormulaError(aReason); }

void CheckText(std::string_view aText) {
    if (aText.empty()) Fail("пустая формула");
    size_t i = 0;
    while (i < aText.size()) {
        if (aText[i] == '\0') Fail("нулевой байт в формуле");
        size_t length = 0;
        if (xml::utf8::Decode(aText.data() + i, aText.size() - i, &length) == xml::utf8::kInvalid)
            Fail("неверная последовательность UTF-8 в формуле");
        i += length;
    }
}

bool NameChar(unsigned char c) {
    return c >= 0x80 || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_' || c == '-' ||
           c == '.' || c == ':';
}

void CheckName(std::string_view aName, std::string_view aPath) {
    if (aName.empty()) Fail("пустой шаг пути «" + std::string(aPath) + "»");
    for (size_t i = 0; i < aName.size(); ++i) {
        const auto c = static_cast<unsigned char>(aName[i]);
        if (NameChar(c)) continue;
        if (c == '(') Fail("функция «" + std::string(aName.substr(0, i)) + "» не поддерживается");
        if (c == '[') {
            if (aName.find(']', i) == std::string_view::npos) Fail("незакрытая «[» в пути «" + std::string(aPath) + "»");
            Fail("условие в пути «" + std::string(aPath) + "» не поддерживается");
        }
        Fail("недопустимый символ «" + std::string(1, static_cast<char>(c)) + "» в пути «" + std::string(aPath) + "»");
    }
}

TcsFormulaPath ParsePath(std::string_view aText) {
    TcsFormulaPath path;
    path.Text = std::string(aText);
    if (aText.empty()) Fail("пустой путь");
    size_t start = 0;
    while (true) {
        const size_t slash = aText.find('/', start);
        const std::string_view step = aText.substr(start, slash == std::string_view::npos ? std::string_view::npos : slash - start);
        if (!step.empty() && step.front() == '@') {
            if (slash != std::string_view::npos) Fail("атрибут не в конце пути «" + path.Text + "»");
            CheckName(step.substr(1), aText);
            path.Attribute = std::string(step.substr(1));
            break;
        }
        CheckName(step, aText);
        if (step != ".") path.Steps.emplace_back(step);
        if (path.Steps.size() > kMaxSteps) Fail("слишком длинный путь");
        if (slash == std::string_view::npos) break;
        start = slash + 1;
    }
    return path;
}

// Splits at a delimiter; an empty part is refused.
std::vector<std::string_view> SplitParts(std::string_view aText, char aDelimiter) {
    std::vector<std::string_view> parts;
    size_t start = 0;
    while (true) {
        const size_t at = aText.find(aDelimiter, start);
        const std::string_view part = aText.substr(start, at == std::string_view::npos ? std::string_view::npos : at - start);
        if (part.empty()) Fail(std::string("пустая часть у «") + aDelimiter + "»");
        parts.push_back(part);
        if (parts.size() > kMaxParts) Fail("слишком много частей (больше " + std::to_string(kMaxParts) + ")");
        if (at == std::string_view::npos) break;
        start = at + 1;
    }
    return parts;
}

TcsFormula::TPart ParsePart(std::string_view aText) {
    TcsFormula::TPart part;
    if (!aText.empty() && aText.front() == '=') {
        part.Constant = true;
        part.Text = std::string(aText.substr(1));
    } else {
        part.Path = ParsePath(aText);
    }
    return part;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Paths

namespace {

// The child a step names: by its whole name, else, for a step without a prefix, by its local
// name (classic extracts prefix their common types, as "adrOut4:Region").
PXMLNode ChildOfStep(PXMLNode aNode, std::string_view aStep) {
    if (PXMLNode c = aNode->FindChild(aStep)) return c;
    if (aStep.find(':') != std::string_view::npos) return nullptr;
    for (PXMLNode c = aNode->FirstChild(); c; c = c->NextSibling())
        if (c->NodeType() == xml::ntElement && c->LocalName() == aStep) return c;
    return nullptr;
}

}  // namespace

PXMLNode TcsFormulaPath::Find(PXMLNode aNode) const {
    PXMLNode at = aNode;
    for (const std::string& step : Steps) {
        if (!at) return nullptr;
        at = ChildOfStep(at, step);
    }
    return at;
}

// ---------------------------------------------------------------------------------------------
// Parsing

TcsFormula::TcsFormula(const TcsFormula& aOther)
    : fKind(aOther.fKind), fText(aOther.fText), fParts(aOther.fParts), fOver(aOther.fOver),
      fItem(aOther.fItem ? std::make_unique<TcsFormula>(*aOther.fItem) : nullptr) {}

TcsFormula& TcsFormula::operator=(const TcsFormula& aOther) {
    if (this != &aOther) *this = TcsFormula(aOther);
    return *this;
}

TcsFormula TcsFormula::Parse(std::string_view aText) {
    CheckText(aText);
    TcsFormula f;
    f.fText = std::string(aText);
    const char first = aText.front();
    if (first == '=') {
        f.fKind = fkConstant;
        f.fParts.push_back(ParsePart(aText));
        return f;
    }
    if (first == '+' || first == '*') {
        const size_t second = aText.find(first, 1);
        if (second == std::string_view::npos) Fail(std::string("у «") + first + "» нет элемента после пути");
        f.fKind = first == '+' ? fkEach : fkValues;
        f.fOver = ParsePath(aText.substr(1, second - 1));
        const std::string_view item = aText.substr(second + 1);
        if (item.empty()) Fail(std::string("у «") + first + "» пустой элемент");
        if (item.front() == '+' || item.front() == '*' || item.find(first) != std::string_view::npos)
            Fail(std::string("вложенная форма «") + first + "» не поддерживается");
        TcsFormula inner = Parse(item);
        if (f.fKind == fkEach && (inner.fKind == fkConstant || inner.fKind == fkAlternatives))
            Fail("элемент «+» может быть только путём или формой «&»");
        f.fItem = std::make_unique<TcsFormula>(std::move(inner));
        return f;
    }
    if (aText.find('|') != std::string_view::npos) {
        f.fKind = fkAlternatives;
        for (std::string_view part : SplitParts(aText, '|')) {
            if (part.find('&') != std::string_view::npos) Fail("форма «&» внутри «|» не поддерживается");
            f.fParts.push_back(ParsePart(part));
        }
        return f;
    }
    if (aText.find('&') != std::string_view::npos) {
        f.fKind = fkConcat;
        for (std::string_view part : SplitParts(aText, '&')) f.fParts.push_back(ParsePart(part));
        return f;
    }
    f.fKind = fkPath;
    f.fParts.push_back(ParsePart(aText));
    return f;
}

// ---------------------------------------------------------------------------------------------
// Evaluation

std::string TcsFormula::PartValue(const TPart& aPart, PXMLNode aNode, TcsFormulaDecoder& aDecoder, std::string_view aPrefix) {
    if (aPart.Constant) return aPart.Text;
    PXMLNode at = aPart.Path.Find(aNode);
    if (!at) return {};
    std::string value;
    if (aPart.Path.Attribute.empty()) value = at->Text();
    else if (!at->FindAttribute(aPart.Path.Attribute, value)) return {};
    if (value.empty()) return value;
    if (aPrefix.empty()) return aDecoder.Decode(aPart.Path.Text, std::move(value));
    std::string relative(aPrefix);
    relative += aPart.Path.Text;
    return aDecoder.Decode(relative, std::move(value));
}

std::string TcsFormula::EvaluateAt(PXMLNode aNode, TcsFormulaDecoder& aDecoder, std::string_view aPrefix) const {
    switch (fKind) {
    case fkConstant: return fParts.front().Text;
    case fkPath: return PartValue(fParts.front(), aNode, aDecoder, aPrefix);
    case fkConcat: {
        // Constants join what the paths found; when no path found anything there is nothing.
        std::string result;
        bool found = false;
        for (const TPart& part : fParts) {
            if (part.Constant) {
                result += part.Text;
                continue;
            }
            std::string value = PartValue(part, aNode, aDecoder, aPrefix);
            found = found || !value.empty();
            result += value;
        }
        return found ? result : std::string();
    }
    case fkAlternatives:
        for (const TPart& part : fParts) {
            std::string value = PartValue(part, aNode, aDecoder, aPrefix);
            if (!value.empty()) return value;
        }
        return {};
    case fkEach:
    case fkValues: break;
    }
    return {};
}

std::string TcsFormula::Evaluate(PXMLNode aNode, TcsFormulaDecoder& aDecoder, std::vector<std::string>* aMore) const {
    if (aMore) aMore->clear();
    if (fKind != fkEach && fKind != fkValues) return EvaluateAt(aNode, aDecoder, {});
    PXMLNode over = aNode ? fOver.Find(aNode) : nullptr;
    if (!over || !fOver.Attribute.empty()) return {};
    std::string joined;
    std::string prefix;
    for (PXMLNode c = over->FirstChild(); c; c = c->NextSibling()) {
        if (c->NodeType() != xml::ntElement) continue;
        prefix.assign(fOver.Text).append("/").append(c->NodeName()).append("/");
        std::string value = fItem->EvaluateAt(c, aDecoder, prefix);
        if (value.empty()) continue;
        if (fKind == fkValues) {
            if (aMore) aMore->push_back(std::move(value));
            continue;
        }
        if (!joined.empty()) joined += ", ";
        joined += value;
    }
    return joined;
}

// ---------------------------------------------------------------------------------------------
// Tables

TcsFormulaTable::TcsFormulaTable(std::string aName, std::span<const char* const> aSlots) : fName(std::move(aName)) {
    for (size_t i = 0; i < aSlots.size(); ++i)
        if (aSlots[i] && *aSlots[i]) Add(static_cast<int>(i), aSlots[i]);
}

void TcsFormulaTable::Add(int aSlot, std::string_view aFormula) {
    try {
        fSlots.push_back({aSlot, TcsFormula::Parse(aFormula)});
    } catch (const EcsFormulaError& e) {
        std::string where = fName.empty() ? "слот " : "таблица " + fName + ", слот ";
        throw EcsFormulaError("Формула «" + FormulaForMessage(aFormula) + "» (" + where + std::to_string(aSlot) + "): " + e.what());
    }
}

std::string FormulaForMessage(std::string_view aText) {
    constexpr size_t kShown = 80;
    std::string out;
    size_t shown = 0, i = 0;
    while (i < aText.size() && shown < kShown) {
        size_t length = 0;
        const auto c = static_cast<unsigned char>(aText[i]);
        if (c != 0 && xml::utf8::Decode(aText.data() + i, aText.size() - i, &length) != xml::utf8::kInvalid) {
            out.append(aText.substr(i, length));
            i += length;
        } else {
            static const char kHex[] = "0123456789ABCDEF";
            out += "\\x";
            out += kHex[c >> 4];
            out += kHex[c & 15];
            ++i;
        }
        ++shown;
    }
    if (i < aText.size()) out += "…";
    return out;
}

}  // namespace tmi
