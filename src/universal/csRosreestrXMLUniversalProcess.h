// TcsXMLFileUniversalProcess: any XML element into session items by walking it with its XSD.
// What the XSD declares as a leaf becomes a value of the current item; a repeating element
// opens a child item per occurrence, carrying its parent's key; a single complex element is
// walked with the same item. Paths run from the root element: "/" for a child, "/@" for an
// attribute.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "csRosreestrXMLCore.h"

namespace tmi {

class TXSDElement;
class TXSDObject;

class TcsXMLFileUniversalProcess : public TcsXMLFileProcess {
    TCS_PERSISTENT(TcsXMLFileUniversalProcess)
public:
    using TcsXMLFileProcess::TcsXMLFileProcess;

    // True leaves a node's subtree out.
    virtual bool IgnoreNode(TcsXMLProcessController& aController, TcsXMLProcessSessionItem* aItem, std::string_view aPath,
                            xml::PXMLNode aNode);
    // The values of one element by its XSD: its text, its attributes, its single leaf children.
    // An element the XSD does not know raises "Не найден XSD элемент по пути " unless tolerated;
    // tolerated, it is stored by its raw paths.
    virtual void ProcessNullLevel(TcsXMLProcessController& aController, TcsXMLProcessSessionItem& aItem, bool aTolerate,
                                  std::string_view aBasePath, const std::string& aPath, xml::PXMLNode aNode);
    // The same without an XSD: attributes and text as text.
    virtual void ProcessNullLevelNoXSD(TcsXMLProcessController& aController, TcsXMLProcessSessionItem& aItem,
                                       std::string_view aBasePath, const std::string& aPath, xml::PXMLNode aNode);
    // A whole subtree without an XSD.
    virtual void ProcessNullLevelCustomNodes(TcsXMLProcessController& aController, TcsXMLProcessSessionItem& aItem,
                                             std::string_view aBasePath, const std::string& aPath, xml::PXMLNode aNode);
    // The children of an element: repeating ones open items, single complex ones are walked
    // with aItem. aHasKey: whether items are looked up among stored rows first.
    virtual void processRelations(TcsXMLProcessController& aController, TcsXMLProcessSessionItem& aItem,
                                  std::string_view aBasePath, bool aHasKey, const std::vector<std::string>& aSkipPaths,
                                  const std::string& aPath, xml::PXMLNode aNode, bool aTolerate);
    // The child item gets its parent's key, as a key value under the parent's path.
    void SetChildKeyValue(TcsXMLProcessController& aController, TcsXMLProcessSessionItem& aParent, xml::PXMLNode aNode,
                          const std::string& aPath, const std::string& aParentPath, TcsXMLProcessSessionItem& aChild);

    // Codes arrive as the text their XSD enumeration gives them.
    bool ConvertValues = true;

protected:
    [[nodiscard]] TXSDElement* XSDElement(const std::string& aPath) const;
    // Stores one text of the node under a path, decoded and typed by its XSD object (may be nil).
    void StoreValue(TcsXMLProcessSessionItem& aItem, const TXSDObject* aObject, const std::string& aPath, std::string_view aText);
    // The element's own text (its text children, not its descendants').
    [[nodiscard]] static std::string OwnText(xml::PXMLNode aNode);
    [[nodiscard]] static bool Repeats(const TXSDElement& aElement);
};

}  // namespace tmi
