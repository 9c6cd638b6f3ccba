#include "csRosreestrXMLUniversalProcess.h"

#include <algorithm>

#include "csXSDLib.h"

namespace tmi {

using xml::PXMLNode;

TCS_PROPERTIES(TcsXMLFileUniversalProcess, TcsXMLFileProcess)

namespace {

bool IsNumber(TXSDDataType aType) {
    switch (aType) {
    case vtByte:
    case vtInteger:
    case vtDecimal:
    case vtDouble:
    case vtFloat: return true;
    default: return false;
    }
}

const TXSDAttribute* FindXSDAttribute(const TXSDElement& aElement, std::string_view aName) {
    for (const TXSDAttribute* a : aElement.Attributes())
        if (a->XPathName() == aName) return a;
    return nullptr;
}

}  // namespace

bool TcsXMLFileUniversalProcess::IgnoreNode(TcsXMLProcessController&, TcsXMLProcessSessionItem*, std::string_view, PXMLNode) {
    return false;
}

TXSDElement* TcsXMLFileUniversalProcess::XSDElement(const std::string& aPath) const {
    const TXSDLibrary* lib = GetXSDLib();
    return lib ? lib->GetXSDElementByXPath(aPath) : nullptr;
}

bool TcsXMLFileUniversalProcess::Repeats(const TXSDElement& aElement) {
    const std::string& max = aElement.maxOccurs;
    return !max.empty() && max != "1" && max != "0";
}

std::string TcsXMLFileUniversalProcess::OwnText(PXMLNode aNode) {
    std::string text;
    for (PXMLNode c = aNode->FirstChild(); c; c = c->NextSibling())
        if (c->NodeType() == xml::ntText || c->NodeType() == xml::ntCData) text += c->NodeValue();
    return text;
}

void TcsXMLFileUniversalProcess::StoreValue(TcsXMLProcessSessionItem& aItem, const TXSDObject* aObject, const std::string& aPath,
                                            std::string_view aText) {
    std::string value(aText);
    TcsXMLValueDataType type = kValueText;
    if (aObject) {
        if (ConvertValues) {
            std::string decoded = aObject->GetTextValue(value);
            if (!decoded.empty()) value = std::move(decoded);
            else if (IsNumber(aObject->InternalDataType())) type = kValueNumber;
        } else if (IsNumber(aObject->InternalDataType())) {
            type = kValueNumber;
        }
    }
    TcsXMLProcessSessionItemValue& v = aItem.SetValue(aPath, type, value);
    v.SourceObject = aObject;
    v.PartTypeString = aPath;
}

void TcsXMLFileUniversalProcess::ProcessNullLevel(TcsXMLProcessController& aController, TcsXMLProcessSessionItem& aItem,
                                                  bool aTolerate, std::string_view aBasePath, const std::string& aPath,
                                                  PXMLNode aNode) {
    const TXSDElement* element = XSDElement(aPath);
    if (!element) {
        if (!aTolerate) throw Exception("Не найден XSD элемент по пути " + aPath);
        ProcessNullLevelCustomNodes(aController, aItem, aBasePath, aPath, aNode);
        return;
    }
    if (aItem.Caption.empty()) {
        aItem.Caption = element->XPathName();
        aItem.Description = element->AnnotationText();
    }
    if (element->MayHaveValue()) {
        const std::string text = OwnText(aNode);
        if (!text.empty()) StoreValue(aItem, element, aPath, text);
    }
    for (PXMLNode a = aNode->FirstAttribute(); a; a = a->NextSibling()) {
        const std::string path = aPath + "/@" + std::string(a->LocalName());
        StoreValue(aItem, FindXSDAttribute(*element, a->LocalName()), path, a->NodeValue());
    }
    // Single leaf children belong to this element's values, with their attributes.
    for (PXMLNode c = aNode->FirstChild(); c; c = c->NextSibling()) {
        if (c->NodeType() != xml::ntElement) continue;
        const std::string path = aPath + "/" + std::string(c->LocalName());
        const TXSDElement* child = XSDElement(path);
        if (!child || Repeats(*child) || child->HasChildItems()) continue;
        const std::string text = OwnText(c);
        if (!text.empty()) StoreValue(aItem, child, path, text);
        for (PXMLNode a = c->FirstAttribute(); a; a = a->NextSibling())
            StoreValue(aItem, FindXSDAttribute(*child, a->LocalName()), path + "/@" + std::string(a->LocalName()), a->NodeValue());
    }
}

void TcsXMLFileUniversalProcess::ProcessNullLevelNoXSD(TcsXMLProcessController&, TcsXMLProcessSessionItem& aItem, std::string_view,
                                                       const std::string& aPath, PXMLNode aNode) {
    // Unknown elements may repeat within one item: each occurrence adds its values.
    for (PXMLNode a = aNode->FirstAttribute(); a; a = a->NextSibling()) {
        const std::string path = aPath + "/@" + std::string(a->NodeName());
        aItem.AddValue(path, kValueText, std::string(a->NodeValue())).PartTypeString = path;
    }
    const std::string text = OwnText(aNode);
    if (!text.empty()) aItem.AddValue(aPath, kValueText, text).PartTypeString = aPath;
}

void TcsXMLFileUniversalProcess::ProcessNullLevelCustomNodes(TcsXMLProcessController& aController, TcsXMLProcessSessionItem& aItem,
                                                             std::string_view aBasePath, const std::string& aPath, PXMLNode aNode) {
    ProcessNullLevelNoXSD(aController, aItem, aBasePath, aPath, aNode);
    for (PXMLNode c = aNode->FirstChild(); c; c = c->NextSibling())
        if (c->NodeType() == xml::ntElement)
            ProcessNullLevelCustomNodes(aController, aItem, aBasePath, aPath + "/" + std::string(c->NodeName()), c);
}

void TcsXMLFileUniversalProcess::SetChildKeyValue(TcsXMLProcessController&, TcsXMLProcessSessionItem& aParent, PXMLNode,
                                                  const std::string&, const std::string& aParentPath,
                                                  TcsXMLProcessSessionItem& aChild) {
    aChild.SetValue(aParentPath, kValueKey, aParent.GetKey());
}

void TcsXMLFileUniversalProcess::processRelations(TcsXMLProcessController& aController, TcsXMLProcessSessionItem& aItem,
                                                  std::string_view aBasePath, bool aHasKey,
                                                  const std::vector<std::string>& aSkipPaths, const std::string& aPath,
                                                  PXMLNode aNode, bool aTolerate) {
    if (IgnoreNode(aController, &aItem, aPath, aNode)) return;
    if (std::find(aSkipPaths.begin(), aSkipPaths.end(), aNode->NodeName()) != aSkipPaths.end()) return;
    for (PXMLNode c = aNode->FirstChild(); c; c = c->NextSibling()) {
        if (c->NodeType() != xml::ntElement) continue;
        const std::string path = aPath + "/" + std::string(c->LocalName());
        const TXSDElement* element = XSDElement(path);
        if (!element) {
            if (!aTolerate) throw Exception("Не найден XSD элемент по пути " + path);
            ProcessNullLevelCustomNodes(aController, aItem, aBasePath, path, c);
            continue;
        }
        if (!Repeats(*element)) {
            // A leaf was stored with its parent; a single complex child stays with this item.
            if (!element->HasChildItems()) continue;
            if (IgnoreNode(aController, &aItem, path, c)) continue;
            ProcessNullLevel(aController, aItem, aTolerate, aBasePath, path, c);
            processRelations(aController, aItem, aBasePath, aHasKey, aSkipPaths, path, c, aTolerate);
            continue;
        }
        if (IgnoreNode(aController, &aItem, path, c)) continue;
        TcsXMLProcessSessionItem* child = aController.OpenSessionItem(path, &aItem, false);
        child->Caption = element->XPathName();
        child->Description = element->AnnotationText();
        child->Index = -1;
        SetChildKeyValue(aController, aItem, c, path, aPath, *child);
        ProcessNullLevel(aController, *child, aTolerate, aBasePath, path, c);
        const bool found = aHasKey && ProcessSessionFind(*child, path, c);
        if (!found) child->GetKey();
        processRelations(aController, *child, aBasePath, found, aSkipPaths, path, c, aTolerate);
    }
}

}  // namespace tmi
