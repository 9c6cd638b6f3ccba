// What the reader files share: the walk over element children and the two name tests.
#pragma once

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

// A number of a reader: the text as a float, 0 when it is none.
inline double FloatOf(std::string_view aText) {
    double v = 0;
    return TryStrToFloat(aText, v) ? v : 0;
}

}  // namespace tmi::readers

// Each element child of a node, in document order.
#define EACH_CHILD(var, parent) \
    for (::tmi::xml::PXMLNode var = ::tmi::readers::FirstElement(parent); var; var = ::tmi::readers::NextElement(var))
