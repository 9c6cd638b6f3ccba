// The formula language of the cadastre processes: a string that says where one value of a
// session item comes from in a record. A formula is parsed once, when its table loads, into a
// small tree; evaluation walks the record's node with it.
//
//   "=text"         the constant text
//   "+path+item"    for each child of the node at path, item (a path or a "&" form); the
//                   non-empty results joined with ", "
//   "*path*item"    for each child of the node at path, item (a constant, a "|" form, a "&"
//                   form or a path), each result a further value of the item
//   "a|b|c"         the first alternative that is not empty
//   "a&=, &b"       the parts joined with nothing between; "=" parts are constants
//   "a/b/@c"        a path below the record: element steps, an attribute last
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "OXmlPDOM.h"
#include "csCommon.h"

namespace tmi {

// A formula that cannot be parsed; the message names the formula, its slot and the reason.
class EcsFormulaError : public Exception {
public:
    using Exception::Exception;
};

// A path below a record's node.
struct TcsFormulaPath {
    std::string Text;  // as written: the XSD element is found by it, below the record's path
    std::vector<std::string> Steps;
    std::string Attribute;  // the last step's attribute; empty: the element's text
    // The node the element steps lead to, or nil.
    [[nodiscard]] xml::PXMLNode Find(xml::PXMLNode aNode) const;
};

// How a path's text becomes a value: a code turns into its text through the XSD element
// found at the record's path joined with the formula's path.
class TcsFormulaDecoder {
public:
    virtual ~TcsFormulaDecoder() = default;
    // aRelative is the path below the record, as "a/b" or "a/@c".
    virtual std::string Decode(std::string_view aRelative, std::string aValue) = 0;
};

class TcsFormula {
public:
    enum TKind : uint8_t { fkConstant, fkPath, fkConcat, fkAlternatives, fkEach, fkValues };
    struct TPart {
        bool Constant = false;
        std::string Text;      // a constant's text
        TcsFormulaPath Path;   // a path part
    };

    // Raises EcsFormulaError with the reason alone.
    static TcsFormula Parse(std::string_view aText);

    // The value below aNode; empty when nothing is there. A "*" form gives its values in
    // aMore (cleared first) and answers empty.
    std::string Evaluate(xml::PXMLNode aNode, TcsFormulaDecoder& aDecoder, std::vector<std::string>* aMore = nullptr) const;

    [[nodiscard]] TKind Kind() const noexcept { return fKind; }
    [[nodiscard]] const std::string& Text() const noexcept { return fText; }
    [[nodiscard]] const std::vector<TPart>& Parts() const noexcept { return fParts; }
    [[nodiscard]] const TcsFormulaPath& Over() const noexcept { return fOver; }
    [[nodiscard]] const TcsFormula* Item() const noexcept { return fItem.get(); }

    TcsFormula() = default;
    TcsFormula(TcsFormula&&) noexcept = default;
    TcsFormula& operator=(TcsFormula&&) noexcept = default;
    TcsFormula(const TcsFormula& aOther);
    TcsFormula& operator=(const TcsFormula& aOther);

private:
    // A part's value: a constant, or a path's decoded text. aPrefix goes before the path's
    // text for the XSD lookup (the child path of a "+" or "*" form).
    static std::string PartValue(const TPart& aPart, xml::PXMLNode aNode, TcsFormulaDecoder& aDecoder, std::string_view aPrefix);
    std::string EvaluateAt(xml::PXMLNode aNode, TcsFormulaDecoder& aDecoder, std::string_view aPrefix) const;

    TKind fKind = fkConstant;
    std::string fText;
    std::vector<TPart> fParts;  // the constant, the path, the parts of "&" or "|"
    TcsFormulaPath fOver;       // "+" and "*": the node whose children are read
    std::unique_ptr<TcsFormula> fItem;
};

// One slot of a table: value number Slot of the item, from Formula.
struct TcsFormulaSlot {
    int Slot = 0;
    TcsFormula Formula;
};

// A table of formulas, one per value slot; a slot with no formula stays unset.
class TcsFormulaTable {
public:
    TcsFormulaTable() = default;
    // aSlots[i] is slot i's formula, nil or empty for none. aName names the table in errors.
    TcsFormulaTable(std::string aName, std::span<const char* const> aSlots);
    // Adds one slot; raises naming the formula, the slot and the reason.
    void Add(int aSlot, std::string_view aFormula);
    [[nodiscard]] const std::vector<TcsFormulaSlot>& Slots() const noexcept { return fSlots; }
    [[nodiscard]] const std::string& Name() const noexcept { return fName; }

private:
    std::string fName;
    std::vector<TcsFormulaSlot> fSlots;
};

// A formula's text as it may stand in a message: bad bytes as \xNN, cut after 80 characters.
std::string FormulaForMessage(std::string_view aText);

}  // namespace tmi
