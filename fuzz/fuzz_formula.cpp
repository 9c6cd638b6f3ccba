// Fuzz target: a formula of the cadastre processes over a record. The input's first line is the
// formula, the rest an XML document. The formula is parsed like a slot of a table; when it
// parses, it is evaluated on the document's elements (the first 200, in document order), with
// a decoder that looks at every path it is given. A refusal raised as EcsFormulaError and a
// document that does not load are answers; a crash, a leak or undefined behaviour is a finding.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "OXmlPDOM.h"
#include "csRosreestrXMLFormula.h"

using namespace tmi;

namespace {

class TLookingDecoder : public TcsFormulaDecoder {
public:
    std::string Decode(std::string_view aRelative, std::string aValue) override {
        fLength += aRelative.size();
        return aValue;
    }
    size_t fLength = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* aData, size_t aSize) {
    const std::string_view input(reinterpret_cast<const char*>(aData), aSize);
    const size_t line = input.find('\n');
    const std::string_view formula = input.substr(0, line);
    TcsFormulaTable table("fuzz", {});
    try {
        table.Add(0, formula);
    } catch (const EcsFormulaError& e) {
        return 0;
    }
    if (line == std::string_view::npos) return 0;
    xml::TXMLDocument doc;
    if (!doc.LoadFromText(std::string(input.substr(line + 1)))) return 0;
    TLookingDecoder decoder;
    std::vector<std::string> more;
    int visited = 0;
    // Depth first without recursion over the first elements.
    xml::PXMLNode n = doc.DocumentElement();
    while (n && visited < 200) {
        if (n->NodeType() == xml::ntElement) {
            ++visited;
            (void)table.Slots().front().Formula.Evaluate(n, decoder, &more);
        }
        if (xml::PXMLNode c = n->FirstChild()) {
            n = c;
            continue;
        }
        while (n && !n->NextSibling()) n = n->ParentNode();
        if (n) n = n->NextSibling();
    }
    return 0;
}
