// Fuzz target: the input is a selection path, a zero byte, then a document. The path runs
// against the document (or a fixed one when the document does not load).
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "OXmlPDOM.h"

using namespace tmi::xml;

namespace {
const char kFallback[] =
    "<r xmlns:p=\"urn:p\"><a id=\"1\"><b n=\"x\">one</b><b n=\"y\">two</b><c/></a>"
    "<a id=\"2\"><b>three</b><p:b>ns</p:b></a><d>tail<![CDATA[cd]]></d></r>";
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* aData, size_t aSize) {
    const auto* zero = static_cast<const uint8_t*>(std::memchr(aData, 0, aSize));
    const size_t pathLength = zero ? static_cast<size_t>(zero - aData) : aSize;
    const std::string_view path(reinterpret_cast<const char*>(aData), pathLength);
    TXMLDocument doc;
    bool loaded = false;
    if (zero) loaded = doc.LoadFromBuffer(zero + 1, aSize - pathLength - 1) && doc.DocumentElement();
    if (!loaded) doc.LoadFromXML(kFallback);
    PXMLNode root = doc.DocumentElement();
    try {
        IXMLNodeListPtr list;
        root->SelectNodes(path, list, static_cast<int>(pathLength % 4));
        if (!list) __builtin_trap();
        for (PXMLNode n : *list) (void)n->NodeName();
        (void)root->SelectNode(path);
        doc.Node()->SelectNodesNS("urn:p", path, list, 0, pathLength % 2 ? nsFull : nsFast);
        root->SelectNodesNS("", path, list, 0, pathLength % 3 ? nsFull : nsFast);
        root->SelectNodesNSPrefix(pathLength % 2 ? "p" : "", path, list);
        for (PXMLNode n : *list) (void)n->NameSpaceURI();
    } catch (const EOXmlException&) {
    }
    // The document's read namespace in every mode: the path's text serves as the name.
    for (const TXMLNameSpaceHandling mode : {nsNo, nsFast, nsFull}) {
        doc.UseReadNameSpaceURI = mode;
        doc.ReadNameSpaceURI = "urn:p";
        doc.ReadNameSpacePrefix = pathLength % 2 ? "p" : "";
        doc.FastNameSpaces = pathLength % 3 != 0;
        for (PXMLNode n = root; n; n = n->FirstChild()) {
            (void)n->FindChild(path);
            (void)n->GetAttribute(path);
            (void)n->NameSpaceURI();
        }
    }
    return 0;
}
