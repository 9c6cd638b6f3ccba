// Fuzz target: loads any bytes as a document under settings drawn from the first byte,
// then walks what was built.
#include <cstddef>
#include <cstdint>

#include "OXmlPDOM.h"

using namespace tmi::xml;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* aData, size_t aSize) {
    const uint8_t flags = aSize > 0 ? aData[0] : 0;
    TXMLDocument doc;
    auto& settings = doc.ReaderSettings();
    settings.StrictXML = (flags & 1) == 0;
    settings.ExpandEntities = (flags & 2) == 0;
    settings.BreakReading = (flags & 4) ? brNone : brAfterDocumentElement;
    settings.LineBreak = static_cast<TXMLLineBreak>((flags >> 3) & 3);
    doc.WhiteSpaceHandling = static_cast<TXMLWhiteSpaceHandling>((flags >> 5) & 3);
    const int codePage = (flags & 0x80) ? 1251 : 0;
    try {
        if (!doc.LoadFromBuffer(aData, aSize, codePage)) {
            if (doc.Node()->HasChildNodes() || !doc.ParseError()) __builtin_trap();
            (void)doc.ParseError()->ErrorReport();
            return 0;
        }
    } catch (const EOXmlException&) {
        return 0;
    }
    size_t total = doc.Node()->Text().size();
    for (PXMLNode n = doc.Node()->FirstChild(); n; n = n->NextSibling()) {
        total += n->NodeName().size() + n->NodeValue().size();
        for (PXMLNode a = n->FirstAttribute(); a; a = a->NextSibling()) total += a->NameSpaceURI().size();
    }
    if (PXMLNode root = doc.DocumentElement()) {
        TXMLChildNodeList* list = root->ChildNodes();
        for (int i = list->Count() - 1; i >= 0; i -= 3) total += list->Get(i)->Text().size();
        root->DeleteSelf();
    }
    return total == SIZE_MAX ? 1 : 0;
}
