// What the reader files share: the walk over element children and the two name tests.
#pragma once

#include <cmath>
#include <vector>

#include "libImportXML.h"

namespace tmi::readers {

inline bool Is(xml::PXMLNode aNode, std::string_view aName) { return NameEquals(aNode, aName); }
inline bool Has(xml::PXMLNode aNode, std::string_view aPart) { return NameContains(aNode, aPart); }

inline xml::PXMLNode FirstElement(xml::PXMLNode aNode) {
    xml::PXMLNode c = aNode->FirstChild();
    while (c && c->NodeType() != xml::ntElement) c = c->NextSibling();
    return c;
}

inline xml::PXMLNode NextElement(xml::PXMLNode aNode) {
    xml::PXMLNode c = aNode->NextSibling();
    while (c && c->NodeType() != xml::ntElement) c = c->NextSibling();
    return c;
}

// The progress weight of a list of records, gathered in one walk over them. Each record counts
// 1, each contour 1, and each spatial element of a contour its element count scaled so that
// the contour with the most elements counts 10 in all.
class TProgressWeights {
public:
    void Record() { ++fRecords; }
    void Contour() { fContour = 0; ++fContours; }
    void SpatialElement(int aElements) {
        fElements.push_back(aElements);
        fContour += aElements;
        if (fContour > fLargest) fLargest = fContour;
    }
    // The element count of the largest contour.
    [[nodiscard]] int Largest() const { return fLargest; }
    [[nodiscard]] int Total() const {
        int total = fRecords + fContours;
        if (fLargest > 0)
            for (int n : fElements) total += static_cast<int>(std::lround(static_cast<double>(n) / fLargest * 10));
        return total;
    }

private:
    int fRecords = 0;
    int fContours = 0;
    int fContour = 0;
    int fLargest = 0;
    std::vector<int> fElements;
};

// A number of a reader: the text as a float, 0 when it is none.
inline double FloatOf(std::string_view aText) {
    double v = 0;
    return TryStrToFloat(aText, v) ? v : 0;
}

}  // namespace tmi::readers

// Each element child of a node, in document order.
#define EACH_CHILD(var, parent) \
    for (::tmi::xml::PXMLNode var = ::tmi::readers::FirstElement(parent); var; var = ::tmi::readers::NextElement(var))
