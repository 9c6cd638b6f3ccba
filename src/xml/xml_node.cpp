// Reading and changing operations of a node, and the two node lists.
#include <algorithm>

#include "OXmlPDOM.h"

#include <unordered_map>

namespace tmi::xml {

namespace {

constexpr std::string_view kXMLNameSpace = "http://www.w3.org/XML/1998/namespace";
constexpr std::string_view kXMLNSNameSpace = "http://www.w3.org/2000/xmlns/";

// More than this many siblings passed by a plain walk makes the walk build an index.
constexpr int kIndexThreshold = 256;

TXMLChildType ChainOf(PXMLNode aNode) { return aNode->fNodeType == ntAttribute ? ctAttribute : ctChild; }

}  // namespace

// ---------------------------------------------------------------------------------------------
// Names and values

std::string_view TXMLNode::NodeName() const noexcept { return OwnerDocument()->StringAt(fNodeNameId); }

std::string_view TXMLNode::LocalName() const noexcept {
    const std::string_view name = NodeName();
    const size_t colon = name.find(':');
    return colon == std::string_view::npos ? name : name.substr(colon + 1);
}

std::string_view TXMLNode::NameSpacePrefix() const noexcept {
    const std::string_view name = NodeName();
    const size_t colon = name.find(':');
    return colon == std::string_view::npos ? std::string_view() : name.substr(0, colon);
}

// How a node's namespace is found, decided here once: the prefix of the name is resolved by
// walking the xmlns and xmlns:* attributes from the node's element upward; the prefixes "xml"
// and "xmlns" are bound by the XML recommendation and need no declaration; an attribute
// without a prefix is in no namespace (a default xmlns applies to elements only), as the
// recommendation has it and as schema files rely on.
std::string TXMLNode::NameSpaceURI() const {
    const std::string_view prefix = NameSpacePrefix();
    if (fNodeType == ntAttribute && prefix.empty()) return NodeName() == "xmlns" ? std::string(kXMLNSNameSpace) : std::string();
    const TXMLNode* scope = fNodeType == ntAttribute ? ParentNode() : this;
    return scope ? scope->ResolvePrefix(prefix) : std::string();
}

std::string TXMLNode::ResolvePrefix(std::string_view aPrefix) const {
    if (aPrefix == "xml") return std::string(kXMLNameSpace);
    if (aPrefix == "xmlns") return std::string(kXMLNSNameSpace);
    const std::string declaration = aPrefix.empty() ? std::string("xmlns") : "xmlns:" + std::string(aPrefix);
    for (const TXMLNode* n = this; n; n = n->ParentNode()) {
        if (n->fNodeType != ntElement) continue;
        PXMLNode attribute = nullptr;
        if (n->FindAttributePlain(declaration, attribute)) return std::string(attribute->NodeValue());
    }
    return {};
}

std::string_view TXMLNode::NodeValue() const {
    TXMLDocument* doc = OwnerDocument();
    if (fNodeType == ntXMLDeclaration) {
        // The declaration's attributes as text, kept in the dictionary.
        std::string text;
        for (PXMLNode a = FirstAttribute(); a; a = a->NextSibling()) {
            if (!text.empty()) text.push_back(' ');
            text.append(a->NodeName());
            text.append("=\"");
            text.append(a->NodeValue());
            text.push_back('"');
        }
        return doc->StringAt(doc->AddString(text));
    }
    return doc->StringAt(fNodeValueId);
}

std::string TXMLNode::Text() const {
    switch (fNodeType) {
        case ntText:
        case ntEntityReference:
        case ntCData: return std::string(NodeValue());
        case ntDocument:
        case ntElement: break;
        default: return {};
    }
    // Depth first over the subtree, without recursion.
    std::string out;
    const TXMLNode* n = FirstChild();
    while (n) {
        if (n->fNodeType == ntText || n->fNodeType == ntEntityReference || n->fNodeType == ntCData)
            out.append(n->NodeValue());
        if (n->fNodeType == ntElement && n->fFirstCChild[ctChild]) {
            n = n->FirstChild();
            continue;
        }
        while (n && n != this && !n->fNextSibling) n = n->ParentNode();
        if (!n || n == this) break;
        n = n->NextSibling();
    }
    return out;
}

// ---------------------------------------------------------------------------------------------
// Attributes and children by name

bool TXMLNode::FindAttributePlain(std::string_view aName, PXMLNode& aAttribute) const {
    aAttribute = nullptr;
    TXMLDocument* doc = OwnerDocument();
    const int32_t id = doc->IndexOfString(aName);
    if (id < 0) return false;  // a name never seen: no walk
    bool indexed = false;
    aAttribute = doc->IndexedAttribute(const_cast<PXMLNode>(this), id, &indexed);
    if (indexed) return aAttribute != nullptr;
    int passed = 0;
    for (PXMLNode a = FirstAttribute(); a; a = a->NextSibling()) {
        if (a->fNodeNameId == id) {
            aAttribute = a;
            break;
        }
        ++passed;
    }
    if (passed > kIndexThreshold) doc->IndexAttributes(const_cast<PXMLNode>(this));
    return aAttribute != nullptr;
}

bool TXMLNode::FindAttribute(std::string_view aName, PXMLNode& aAttribute) const {
    const TXMLDocument* doc = OwnerDocument();
    if (doc->UseReadNameSpaceURI == nsNo) return FindAttributePlain(aName, aAttribute);
    // An attribute in the read namespace first; one without a prefix, which belongs to its
    // element and to no namespace, by its plain name after that.
    aAttribute = FindInReadNameSpace(FirstAttribute(), aName);
    return aAttribute != nullptr || FindAttributePlain(aName, aAttribute);
}

bool TXMLNode::FindAttribute(std::string_view aName, std::string& aValue) const {
    PXMLNode a = nullptr;
    if (!FindAttribute(aName, a)) return false;
    aValue = a->NodeValue();
    return true;
}

std::string_view TXMLNode::GetAttribute(std::string_view aName) const {
    PXMLNode a = nullptr;
    return FindAttribute(aName, a) ? a->NodeValue() : std::string_view();
}

std::string_view TXMLNode::GetAttributeDef(std::string_view aName, std::string_view aDefault) const {
    PXMLNode a = nullptr;
    return FindAttribute(aName, a) ? a->NodeValue() : aDefault;
}

bool TXMLNode::HasAttribute(std::string_view aName) const {
    PXMLNode a = nullptr;
    return FindAttribute(aName, a);
}

PXMLNode TXMLNode::GetAttributeNode(std::string_view aName) const {
    PXMLNode a = nullptr;
    FindAttribute(aName, a);
    return a;
}

bool TXMLNode::FindChild(std::string_view aName, PXMLNode& aChild) const {
    aChild = nullptr;
    if (OwnerDocument()->UseReadNameSpaceURI != nsNo) {
        aChild = FindInReadNameSpace(FirstChild(), aName);
        return aChild != nullptr;
    }
    const int32_t id = OwnerDocument()->IndexOfString(aName);
    if (id < 0) return false;
    for (PXMLNode c = FirstChild(); c; c = c->NextSibling())
        if (c->fNodeNameId == id) {
            aChild = c;
            return true;
        }
    return false;
}

PXMLNode TXMLNode::FindInReadNameSpace(PXMLNode aFirst, std::string_view aLocalName) const {
    const TXMLDocument* doc = OwnerDocument();
    if (doc->UseReadNameSpaceURI == nsFast) {
        // The prefixed name, compared by its id.
        const std::string& prefix = doc->ReadNameSpacePrefix;
        const int32_t id =
            doc->IndexOfString(prefix.empty() ? std::string(aLocalName) : prefix + ":" + std::string(aLocalName));
        if (id < 0) return nullptr;
        for (PXMLNode c = aFirst; c; c = c->NextSibling())
            if (c->fNodeNameId == id) return c;
        return nullptr;
    }
    // Every prefix bound to the URI counts. With FastNameSpaces each prefix is resolved once,
    // in the scope of this node; otherwise in the scope of each candidate.
    std::unordered_map<std::string_view, bool> resolved;
    for (PXMLNode c = aFirst; c; c = c->NextSibling()) {
        if (c->fNodeType != ntElement && c->fNodeType != ntAttribute) continue;
        if (c->LocalName() != aLocalName) continue;
        if (c->fNodeType == ntAttribute && c->NameSpacePrefix().empty()) continue;  // in no namespace
        bool in = false;
        if (doc->FastNameSpaces) {
            const std::string_view prefix = c->NameSpacePrefix();
            const auto it = resolved.find(prefix);
            in = it != resolved.end() ? it->second
                                      : resolved.emplace(prefix, ResolvePrefix(prefix) == doc->ReadNameSpaceURI).first->second;
        } else {
            in = c->NameSpaceURI() == doc->ReadNameSpaceURI;
        }
        if (in) return c;
    }
    return nullptr;
}

PXMLNode TXMLNode::FindChild(std::string_view aName) const {
    PXMLNode c = nullptr;
    FindChild(aName, c);
    return c;
}

bool TXMLNode::FindChildWithIndex(std::string_view aName, PXMLNode& aChild, TXMLChildIndex& aIndex) const {
    aChild = nullptr;
    if (aIndex.fParent != this) {
        aIndex.Clear();
        aIndex.fParent = const_cast<PXMLNode>(this);
    }
    const int32_t id = OwnerDocument()->IndexOfString(aName);
    if (id < 0) return false;
    if (aIndex.fBuilt) {
        const auto it = aIndex.fIndex.find(id);
        if (it != aIndex.fIndex.end()) aChild = it->second;
        return aChild != nullptr;
    }
    int passed = 0;
    for (PXMLNode c = FirstChild(); c; c = c->NextSibling()) {
        if (c->fNodeNameId == id) {
            aChild = c;
            break;
        }
        ++passed;
    }
    if (passed > kIndexThreshold) {
        for (PXMLNode c = FirstChild(); c; c = c->NextSibling()) aIndex.fIndex.emplace(c->fNodeNameId, c);
        aIndex.fBuilt = true;
    }
    return aChild != nullptr;
}

TXMLChildNodeList* TXMLNode::ChildNodes() const {
    return OwnerDocument()->ChildList(const_cast<PXMLNode>(this), ctChild);
}

TXMLChildNodeList* TXMLNode::AttributeNodes() const {
    if (fNodeType != ntElement && fNodeType != ntXMLDeclaration) return nullptr;
    return OwnerDocument()->ChildList(const_cast<PXMLNode>(this), ctAttribute);
}

bool TXMLNode::GetNextChild(PXMLNode& aNode) const noexcept {
    aNode = aNode ? aNode->NextSibling() : FirstChild();
    return aNode != nullptr;
}

bool TXMLNode::GetNextAttribute(PXMLNode& aNode) const noexcept {
    aNode = aNode ? aNode->NextSibling() : FirstAttribute();
    return aNode != nullptr;
}

bool TXMLNode::GetPreviousChild(PXMLNode& aNode) const noexcept {
    aNode = aNode ? aNode->PreviousSibling() : LastChild();
    return aNode != nullptr;
}

bool TXMLNode::GetPreviousAttribute(PXMLNode& aNode) const noexcept {
    aNode = aNode ? aNode->PreviousSibling() : LastAttribute();
    return aNode != nullptr;
}

bool TXMLNode::GetElementsByTagName(std::string_view aName, IXMLNodeListPtr& aList) const {
    auto list = std::make_shared<TXMLResNodeList>();
    const int32_t id = OwnerDocument()->IndexOfString(aName);
    if (id >= 0) {
        const TXMLNode* n = FirstChild();
        while (n) {
            if (n->fNodeType == ntElement && n->fNodeNameId == id) list->Add(const_cast<PXMLNode>(n));
            if (n->fFirstCChild[ctChild]) {
                n = n->FirstChild();
                continue;
            }
            while (n && n != this && !n->fNextSibling) n = n->ParentNode();
            if (!n || n == this) break;
            n = n->NextSibling();
        }
    }
    const bool found = list->Count() > 0;
    aList = std::move(list);
    return found;
}

// ---------------------------------------------------------------------------------------------
// Changing

PXMLNode TXMLNode::AddChild(std::string_view aName, TXMLNodeType aType) {
    TXMLDocument* doc = OwnerDocument();
    const int32_t nameId = aName.empty() ? -1 : doc->AddString(aName);
    uint32_t record = 0;
    PXMLNode n = doc->CreateNode(aType, nameId, -1, &record);
    PXMLNode self = this;  // the record may not move: pages never do
    doc->LinkLast(self, doc->RecordOf(self), n, record, aType == ntAttribute ? ctAttribute : ctChild);
    doc->ChainChanged(self, aType == ntAttribute ? ctAttribute : ctChild);
    return n;
}

PXMLNode TXMLNode::AddText(std::string_view aText) {
    PXMLNode n = AddChild({}, ntText);
    n->SetNodeValue(aText);
    return n;
}

PXMLNode TXMLNode::AddCData(std::string_view aText) {
    PXMLNode n = AddChild({}, ntCData);
    n->SetNodeValue(aText);
    return n;
}

PXMLNode TXMLNode::AddComment(std::string_view aText) {
    PXMLNode n = AddChild({}, ntComment);
    n->SetNodeValue(aText);
    return n;
}

PXMLNode TXMLNode::SetAttribute(std::string_view aName, std::string_view aValue) {
    PXMLNode a = nullptr;
    if (!FindAttribute(aName, a)) a = AddChild(aName, ntAttribute);
    a->SetNodeValue(aValue);
    return a;
}

bool TXMLNode::DeleteAttribute(std::string_view aName) {
    PXMLNode a = nullptr;
    if (!FindAttribute(aName, a)) return false;
    a->DeleteSelf();
    return true;
}

void TXMLNode::SetNodeValue(std::string_view aValue) { fNodeValueId = OwnerDocument()->AddString(aValue); }

void TXMLNode::SetText(std::string_view aText) {
    DeleteChildren();
    if (!aText.empty()) AddText(aText);
}

PXMLNode TXMLNode::AppendChild(PXMLNode aNode) {
    if (!aNode || aNode->fOwnerDocument != fOwnerDocument)
        throw EXMLDOMException("You can't append a node from a different XML document.");
    for (const TXMLNode* n = this; n; n = n->ParentNode())
        if (n == aNode) throw EXMLDOMException("A node cannot be appended to itself or its descendant.");
    TXMLDocument* doc = OwnerDocument();
    const TXMLChildType chain = ChainOf(aNode);
    doc->Unlink(aNode, chain);
    doc->LinkLast(this, doc->RecordOf(this), aNode, doc->RecordOf(aNode), chain);
    doc->ChainChanged(this, chain);
    return aNode;
}

PXMLNode TXMLNode::InsertBefore(PXMLNode aNode, PXMLNode aBefore) {
    if (!aBefore) return AppendChild(aNode);
    if (!aNode || aNode->fOwnerDocument != fOwnerDocument || aBefore->fOwnerDocument != fOwnerDocument)
        throw EXMLDOMException("You can't insert a node from a different XML document.");
    if (aBefore->ParentNode() != this || aNode == aBefore) throw EXMLDOMException("The reference node is not a child of this node.");
    for (const TXMLNode* n = this; n; n = n->ParentNode())
        if (n == aNode) throw EXMLDOMException("A node cannot be inserted into itself or its descendant.");
    TXMLDocument* doc = OwnerDocument();
    const TXMLChildType chain = ChainOf(aNode);
    doc->Unlink(aNode, chain);
    const uint32_t record = doc->RecordOf(aNode);
    const uint32_t beforeRecord = doc->RecordOf(aBefore);
    aNode->fParentNode = doc->RecordOf(this);
    aNode->fNextSibling = beforeRecord;
    aNode->fPreviousSibling = aBefore->fPreviousSibling;
    if (aBefore->fPreviousSibling)
        Link(aBefore->fPreviousSibling)->fNextSibling = record;
    else
        fFirstCChild[chain] = record;
    aBefore->fPreviousSibling = record;
    doc->ChainChanged(this, chain);
    return aNode;
}

PXMLNode TXMLNode::RemoveChild(PXMLNode aNode) {
    if (!aNode || aNode->ParentNode() != this) return nullptr;
    OwnerDocument()->Unlink(aNode, ChainOf(aNode));
    return aNode;
}

void TXMLDocument::ExchangeNodes(PXMLNode aNode1, PXMLNode aNode2) {
    if (!aNode1 || !aNode2 || aNode1->fOwnerDocument != fSlot || aNode2->fOwnerDocument != fSlot)
        throw EXMLDOMException("You can't exchange nodes from different XML documents.");
    if (aNode1 == aNode2) return;
    if ((aNode1->fNodeType == ntAttribute) != (aNode2->fNodeType == ntAttribute))
        throw EXMLDOMException("A child and an attribute cannot be exchanged.");
    for (PXMLNode n = aNode1; n; n = n->ParentNode())
        if (n == aNode2) throw EXMLDOMException("A node cannot be exchanged with its ancestor.");
    for (PXMLNode n = aNode2; n; n = n->ParentNode())
        if (n == aNode1) throw EXMLDOMException("A node cannot be exchanged with its ancestor.");
    PXMLNode parent1 = aNode1->ParentNode(), parent2 = aNode2->ParentNode();
    if (!parent1 || !parent2) throw EXMLDOMException("A node without a parent cannot be exchanged.");
    // Neighbours trade places by one move; others go each before the other's old successor.
    if (aNode1->NextSibling() == aNode2) {
        parent1->InsertBefore(aNode2, aNode1);
        return;
    }
    if (aNode2->NextSibling() == aNode1) {
        parent1->InsertBefore(aNode1, aNode2);
        return;
    }
    PXMLNode next1 = aNode1->NextSibling(), next2 = aNode2->NextSibling();
    parent2->InsertBefore(aNode1, next2);
    parent1->InsertBefore(aNode2, next1);
}

void TXMLNode::DeleteChildren() {
    while (PXMLNode c = FirstChild()) c->DeleteSelf();
}

void TXMLNode::DeleteSelf() {
    TXMLDocument* doc = OwnerDocument();
    if (this == doc->Node()) {
        DeleteChildren();
        return;
    }
    doc->Unlink(this, ChainOf(this));
    doc->FreeSubtree(this);
}

// ---------------------------------------------------------------------------------------------
// Lists

PXMLNode TXMLResNodeList::Get(int aIndex) const {
    if (aIndex < 0 || aIndex >= Count()) throw EListError();
    fLastIndex = aIndex;
    return fNodes[static_cast<size_t>(aIndex)];
}

int TXMLResNodeList::IndexOf(PXMLNode aNode) const {
    const auto it = std::find(fNodes.begin(), fNodes.end(), aNode);
    return it == fNodes.end() ? -1 : static_cast<int>(it - fNodes.begin());
}

PXMLNode TXMLResNodeList::FindNode(std::string_view aName) const {
    for (PXMLNode n : fNodes)
        if (n->NodeName() == aName) return n;
    return nullptr;
}

bool TXMLResNodeList::GetNext(PXMLNode& aNode) const {
    int i = 0;
    if (aNode) {
        i = (fLastIndex >= 0 && fLastIndex < Count() && fNodes[static_cast<size_t>(fLastIndex)] == aNode) ? fLastIndex
                                                                                                            : IndexOf(aNode);
        if (i < 0) {
            aNode = nullptr;
            return false;
        }
        ++i;
    }
    if (i >= Count()) {
        aNode = nullptr;
        return false;
    }
    fLastIndex = i;
    aNode = fNodes[static_cast<size_t>(i)];
    return true;
}

bool TXMLResNodeList::GetPrevious(PXMLNode& aNode) const {
    int i = Count() - 1;
    if (aNode) {
        i = (fLastIndex >= 0 && fLastIndex < Count() && fNodes[static_cast<size_t>(fLastIndex)] == aNode) ? fLastIndex
                                                                                                            : IndexOf(aNode);
        if (i < 0) {
            aNode = nullptr;
            return false;
        }
        --i;
    }
    if (i < 0) {
        aNode = nullptr;
        return false;
    }
    fLastIndex = i;
    aNode = fNodes[static_cast<size_t>(i)];
    return true;
}

int TXMLChildNodeList::Count() const {
    if (fCount < 0) {
        int32_t count = 0;
        for (uint32_t c = fParent->fFirstCChild[fChildType]; c; c = fParent->Link(c)->fNextSibling) ++count;
        fCount = count;
    }
    return fCount;
}

PXMLNode TXMLChildNodeList::Get(int aIndex) const {
    if (aIndex < 0) throw EListError();
    const int count = Count();
    if (aIndex >= count) throw EListError();
    // The nearest of three anchors; ties go to the last index served.
    PXMLNode node;
    int at;
    const int fromLast = fLastGetNodeIndex >= 0 ? std::abs(aIndex - fLastGetNodeIndex) : INT32_MAX;
    const int fromEnds = aIndex < count / 2 ? aIndex : count - 1 - aIndex;
    if (fromLast <= fromEnds) {
        node = fLastGetNode;
        at = fLastGetNodeIndex;
    } else if (aIndex < count / 2) {
        node = fParent->Link(fParent->fFirstCChild[fChildType]);
        at = 0;
    } else {
        node = fParent->Link(fParent->fLastCChild[fChildType]);
        at = count - 1;
    }
    while (node && at < aIndex) {
        node = node->NextSibling();
        ++at;
    }
    while (node && at > aIndex) {
        node = node->PreviousSibling();
        --at;
    }
    if (!node) throw EListError();
    fLastGetNodeIndex = aIndex;
    fLastGetNode = node;
    return node;
}

int TXMLChildNodeList::IndexOf(PXMLNode aNode) const {
    if (aNode && aNode == fLastGetNode) return fLastGetNodeIndex;
    int i = 0;
    for (uint32_t c = fParent->fFirstCChild[fChildType]; c; c = fParent->Link(c)->fNextSibling, ++i)
        if (fParent->Link(c) == aNode) return i;
    return -1;
}

PXMLNode TXMLChildNodeList::FindNode(std::string_view aName) const {
    PXMLNode n = nullptr;
    if (fChildType == ctChild)
        fParent->FindChild(aName, n);
    else
        fParent->FindAttribute(aName, n);
    return n;
}

bool TXMLChildNodeList::GetNext(PXMLNode& aNode) const {
    aNode = aNode ? aNode->NextSibling() : fParent->Link(fParent->fFirstCChild[fChildType]);
    return aNode != nullptr;
}

bool TXMLChildNodeList::GetPrevious(PXMLNode& aNode) const {
    aNode = aNode ? aNode->PreviousSibling() : fParent->Link(fParent->fLastCChild[fChildType]);
    return aNode != nullptr;
}

}  // namespace tmi::xml
