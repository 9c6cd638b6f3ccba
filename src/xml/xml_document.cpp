// The document: the arena of node records, loading from a reader, and the chains.
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <mutex>

#include "OXmlPDOM.h"

namespace tmi::xml {

namespace detail {
TXMLNode** gPageTables[kMaxDocuments];
TXMLDocument* gDocuments[kMaxDocuments];
}  // namespace detail

namespace {

std::mutex gSlotLock;
std::vector<uint16_t> gFreeSlots;
uint32_t gNextSlot = 1;  // slot 0 is never used

uint16_t TakeSlot(TXMLDocument* aDocument) {
    std::lock_guard<std::mutex> lock(gSlotLock);
    uint16_t slot = 0;
    if (!gFreeSlots.empty()) {
        slot = gFreeSlots.back();
        gFreeSlots.pop_back();
    } else if (gNextSlot < detail::kMaxDocuments) {
        slot = static_cast<uint16_t>(gNextSlot++);
    } else {
        throw EXMLDOMException("Too many XML documents are open at once.");
    }
    detail::gDocuments[slot] = aDocument;
    return slot;
}

void GiveSlot(uint16_t aSlot) {
    std::lock_guard<std::mutex> lock(gSlotLock);
    detail::gDocuments[aSlot] = nullptr;
    detail::gPageTables[aSlot] = nullptr;
    gFreeSlots.push_back(aSlot);
}

bool IsWhiteSpaceOnly(std::string_view aText) {
    for (char c : aText)
        if (!IsXMLWhiteSpace(c)) return false;
    return true;
}

std::string_view TrimControls(std::string_view aText) {
    size_t b = 0, e = aText.size();
    while (b < e && static_cast<unsigned char>(aText[b]) <= 32) ++b;
    while (e > b && static_cast<unsigned char>(aText[e - 1]) <= 32) --e;
    return aText.substr(b, e - b);
}

bool SameTextAscii(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        char x = a[i], y = b[i];
        if (x >= 'A' && x <= 'Z') x = static_cast<char>(x + 32);
        if (y >= 'A' && y <= 'Z') y = static_cast<char>(y + 32);
        if (x != y) return false;
    }
    return true;
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Arena

TXMLDocument::TXMLDocument(std::string_view aRootNodeName, bool aAddUTF8Declaration) {
    fSlot = TakeSlot(this);
    Clear();
    if (aAddUTF8Declaration) {
        PXMLNode decl = fBlankDocumentNode->AddChild("xml", ntXMLDeclaration);
        decl->SetAttribute("version", "1.0");
        decl->SetAttribute("encoding", "utf-8");
        decl->SetAttribute("standalone", "yes");
    }
    if (!aRootNodeName.empty()) fBlankDocumentNode->AddChild(aRootNodeName);
}

TXMLDocument::~TXMLDocument() {
    ReleasePages();
    GiveSlot(fSlot);
}

void TXMLDocument::ReleasePages() {
    fNodeArena.Release();
    fNodes.clear();
    fNodes.shrink_to_fit();
    detail::gPageTables[fSlot] = nullptr;
    fFreeNodes.clear();
    fFreeNodes.shrink_to_fit();
    fNextNodeId = 0;
    fNodesLength = 0;
    fTempChildNodes[0].clear();
    fTempChildNodes[1].clear();
    fTempNameSpaceURIs.clear();
    fAttributeIndexNode = nullptr;
    fTempAttributeIndex.clear();
    fBlankDocumentNode = nullptr;
    fDummyNode = nullptr;
}

void TXMLDocument::AddPage() {
    fNodes.reserve(fNodes.size() + 1);
    auto* page = static_cast<TXMLNode*>(fNodeArena.Take(sizeof(TXMLNode) * detail::kPageSize));
    fNodes.push_back(page);
    detail::gPageTables[fSlot] = fNodes.data();
    fNodesLength += detail::kPageSize;
}

void TXMLDocument::Clear() {
    ReleasePages();
    fDictionary.Clear();
    fParseError.reset();
    fURL.clear();
    // Record 0 is the dummy: a link of 0 means nil.
    fDummyNode = CreateNode(ntText, -1, -1);
    fBlankDocumentNode = CreateNode(ntDocument, -1, -1);
}

PXMLNode TXMLDocument::CreateNode(TXMLNodeType aType, int32_t aNameId, int32_t aValueId, uint32_t* aRecord) {
    uint32_t record;
    if (!fFreeNodes.empty()) {
        record = fFreeNodes.back();
        fFreeNodes.pop_back();
    } else {
        if (fNextNodeId == fNodesLength) {
            if (fNextNodeId >= UINT32_MAX - detail::kPageSize) throw EXMLDOMException("Too many XML nodes.");
            AddPage();
        }
        record = fNextNodeId++;
    }
    TXMLNode* n = fNodes[record >> detail::kPageShift] + (record & (detail::kPageSize - 1));
    n->fNodeType = aType;
    n->fPreserveWhiteSpace = pwInherit;
    n->fOwnerDocument = fSlot;
    n->fNodeNameId = aNameId;
    n->fNodeValueId = aValueId;
    n->fParentNode = 0;
    n->fFirstCChild[0] = n->fFirstCChild[1] = 0;
    n->fLastCChild[0] = n->fLastCChild[1] = 0;
    n->fNextSibling = n->fPreviousSibling = 0;
    if (aRecord) *aRecord = record;
    return n;
}

uint32_t TXMLDocument::RecordOf(PXMLNode aNode) const {
    // Mutations outside a load: find the page that holds the record.
    const auto address = reinterpret_cast<uintptr_t>(aNode);
    for (size_t i = fNodes.size(); i-- > 0;) {
        const auto base = reinterpret_cast<uintptr_t>(fNodes[i]);
        if (address >= base && address < base + sizeof(TXMLNode) * detail::kPageSize)
            return static_cast<uint32_t>(i << detail::kPageShift) + static_cast<uint32_t>((address - base) / sizeof(TXMLNode));
    }
    throw EXMLDOMException("The node does not belong to this document.");
}

void TXMLDocument::LinkLast(PXMLNode aParent, uint32_t aParentRecord, PXMLNode aNode, uint32_t aNodeRecord,
                            TXMLChildType aType) {
    aNode->fParentNode = aParentRecord;
    const uint32_t last = aParent->fLastCChild[aType];
    aNode->fPreviousSibling = last;
    aNode->fNextSibling = 0;
    if (last)
        aParent->Link(last)->fNextSibling = aNodeRecord;
    else
        aParent->fFirstCChild[aType] = aNodeRecord;
    aParent->fLastCChild[aType] = aNodeRecord;
}

void TXMLDocument::Unlink(PXMLNode aNode, TXMLChildType aType) {
    PXMLNode parent = aNode->ParentNode();
    if (!parent) return;
    const uint32_t next = aNode->fNextSibling;
    const uint32_t prev = aNode->fPreviousSibling;
    if (prev)
        aNode->Link(prev)->fNextSibling = next;
    else
        parent->fFirstCChild[aType] = next;
    if (next)
        aNode->Link(next)->fPreviousSibling = prev;
    else
        parent->fLastCChild[aType] = prev;
    aNode->fParentNode = aNode->fNextSibling = aNode->fPreviousSibling = 0;
    ChainChanged(parent, aType);
}

void TXMLDocument::ChainChanged(PXMLNode aParent, TXMLChildType aType) {
    if (!fTempChildNodes[aType].empty()) {
        const auto it = fTempChildNodes[aType].find(aParent);
        if (it != fTempChildNodes[aType].end()) it->second->ChainChanged();
    }
    if (aType == ctAttribute && aParent == fAttributeIndexNode) {
        fAttributeIndexNode = nullptr;
        fTempAttributeIndex.clear();
    }
}

void TXMLDocument::FreeSubtree(PXMLNode aNode) {
    // Iterative, so that depth costs no stack.
    std::vector<uint32_t> pending{RecordOf(aNode)};
    const bool lists = !fTempChildNodes[0].empty() || !fTempChildNodes[1].empty();
    while (!pending.empty()) {
        const uint32_t record = pending.back();
        pending.pop_back();
        PXMLNode n = fNodes[record >> detail::kPageShift] + (record & (detail::kPageSize - 1));
        for (int type = 0; type < 2; ++type)
            for (uint32_t c = n->fFirstCChild[type]; c; c = n->Link(c)->fNextSibling) pending.push_back(c);
        if (lists) {
            fTempChildNodes[0].erase(n);
            fTempChildNodes[1].erase(n);
        }
        if (!fTempNameSpaceURIs.empty()) fTempNameSpaceURIs.erase(n);
        if (n == fAttributeIndexNode) {
            fAttributeIndexNode = nullptr;
            fTempAttributeIndex.clear();
        }
        n->fParentNode = n->fNextSibling = n->fPreviousSibling = 0;
        n->fFirstCChild[0] = n->fFirstCChild[1] = n->fLastCChild[0] = n->fLastCChild[1] = 0;
        fFreeNodes.push_back(record);
    }
}

TXMLChildNodeList* TXMLDocument::ChildList(PXMLNode aParent, TXMLChildType aType) {
    auto& map = fTempChildNodes[aType];
    auto it = map.find(aParent);
    if (it == map.end()) it = map.emplace(aParent, std::make_unique<TXMLChildNodeList>(aParent, aType)).first;
    return it->second.get();
}

PXMLNode TXMLDocument::IndexedAttribute(PXMLNode aElement, int32_t aNameId, bool* aUsed) const {
    *aUsed = aElement == fAttributeIndexNode;
    if (!*aUsed) return nullptr;
    const auto it = fTempAttributeIndex.find(aNameId);
    return it == fTempAttributeIndex.end() ? nullptr : it->second;
}

void TXMLDocument::IndexAttributes(PXMLNode aElement) {
    fTempAttributeIndex.clear();
    for (PXMLNode a = aElement->FirstAttribute(); a; a = a->NextSibling())
        fTempAttributeIndex.emplace(a->fNodeNameId, a);
    fAttributeIndexNode = aElement;
}

size_t TXMLDocument::MemoryUsed() const noexcept {
    return fNodes.size() * detail::kPageSize * sizeof(TXMLNode) + fDictionary.MemoryUsed() +
           fFreeNodes.capacity() * sizeof(uint32_t);
}

PXMLNode TXMLDocument::DocumentElement() const noexcept {
    for (PXMLNode n = fBlankDocumentNode->FirstChild(); n; n = n->NextSibling())
        if (n->fNodeType == ntElement) return n;
    return nullptr;
}

// ---------------------------------------------------------------------------------------------
// Loading

bool TXMLDocument::LoadFromFile(const std::string& aFileName, int aForcedCodePage) {
    Clear();
    fURL = aFileName;
    TXMLReader reader(fReaderSettings);
    reader.InitFile(aFileName, aForcedCodePage, 65001);
    return Load(reader, fBlankDocumentNode);
}

bool TXMLDocument::LoadFromBuffer(const void* aData, size_t aSize, int aForcedCodePage) {
    Clear();
    TXMLReader reader(fReaderSettings);
    reader.InitBuffer(aData, aSize, aForcedCodePage, 65001);
    return Load(reader, fBlankDocumentNode);
}

bool TXMLDocument::LoadFromText(std::string&& aText, int aForcedCodePage) {
    Clear();
    TXMLReader reader(fReaderSettings);
    reader.InitText(std::move(aText), aForcedCodePage, 65001);
    return Load(reader, fBlankDocumentNode);
}

bool TXMLDocument::LoadFromStream(std::istream& aStream, int aForcedCodePage) {
    const std::string data((std::istreambuf_iterator<char>(aStream)), std::istreambuf_iterator<char>());
    return LoadFromBuffer(data.data(), data.size(), aForcedCodePage);
}

bool TXMLDocument::LoadFromXML(std::string_view aXML) { return LoadFromBuffer(aXML.data(), aXML.size(), 65001); }

bool TXMLDocument::LoadFromXML_UTF8(std::string_view aXML) { return LoadFromBuffer(aXML.data(), aXML.size(), 65001); }

bool TXMLDocument::LoadFromReader(TXMLReader& aReader, PXMLNode aParent) {
    if (!aParent || (aParent->fNodeType != ntDocument && aParent->fNodeType != ntElement))
        throw EXMLDOMException("Node must be a DOMDocument or an element.");
    return Load(aReader, aParent);
}

bool TXMLDocument::Load(TXMLReader& aReader, PXMLNode aParent) {
    fLoading = true;
    fParseError.reset();
    const uint32_t parentRecord = RecordOf(aParent);
    PXMLNode current = aParent;
    uint32_t currentRecord = parentRecord;
    const int64_t total = aReader.StreamSize();
    // Attributes of the element being opened, by name id, once there are many of them.
    std::unordered_map<int32_t, PXMLNode> attributeIndex;
    uint32_t attributeCount = 0;
    uint32_t tokens = 0;
    const TXMLReaderToken* token = nullptr;

    // Creates a record and links it as the last child of the current node.
    auto append = [&](TXMLNodeType aType, int32_t aName, int32_t aValue) -> std::pair<PXMLNode, uint32_t> {
        uint32_t record = 0;
        PXMLNode n = CreateNode(aType, aName, aValue, &record);
        LinkLast(current, currentRecord, n, record, ctChild);
        return {n, record};
    };

    try {
        while (aReader.ReadNextToken(&token)) {
            switch (token->TokenType) {
                case rtOpenXMLDeclaration:
                case rtOpenElement: {
                    const auto [n, record] = append(token->TokenType == rtOpenElement ? ntElement : ntXMLDeclaration,
                                                    fDictionary.Add(token->TokenName), -1);
                    current = n;
                    currentRecord = record;
                    attributeCount = 0;
                    break;
                }
                case rtXMLDeclarationAttribute:
                case rtAttribute: {
                    const std::string_view name = token->TokenName;
                    if (WhiteSpaceHandling == wsAutoTag && name.size() == 9 && SameTextAscii(name, "xml:space")) {
                        const std::string_view v = token->TokenValue;
                        current->fPreserveWhiteSpace = (!v.empty() && (v[0] == 'p' || v[0] == 'P')) ? pwPreserve : pwDefault;
                        break;
                    }
                    const int32_t nameId = fDictionary.Add(name);
                    const int32_t valueId = fDictionary.Add(token->TokenValue);
                    // A second attribute of the same name overwrites the first.
                    PXMLNode existing = nullptr;
                    if (attributeCount > 0) {
                        if (attributeCount <= 256) {
                            for (PXMLNode a = current->FirstAttribute(); a; a = a->NextSibling())
                                if (a->fNodeNameId == nameId) {
                                    existing = a;
                                    break;
                                }
                        } else {
                            if (attributeIndex.empty())
                                for (PXMLNode a = current->FirstAttribute(); a; a = a->NextSibling())
                                    attributeIndex.emplace(a->fNodeNameId, a);
                            const auto it = attributeIndex.find(nameId);
                            if (it != attributeIndex.end()) existing = it->second;
                        }
                    }
                    if (existing) {
                        existing->fNodeValueId = valueId;
                        break;
                    }
                    uint32_t record = 0;
                    PXMLNode a = CreateNode(ntAttribute, nameId, valueId, &record);
                    LinkLast(current, currentRecord, a, record, ctAttribute);
                    if (!attributeIndex.empty()) attributeIndex.emplace(nameId, a);
                    ++attributeCount;
                    break;
                }
                case rtFinishOpenElement:
                    if (!attributeIndex.empty()) attributeIndex.clear();
                    break;
                case rtFinishXMLDeclarationClose:
                case rtFinishOpenElementClose:
                case rtCloseElement:
                    if (!attributeIndex.empty()) attributeIndex.clear();
                    if (current != aParent) {
                        currentRecord = current->fParentNode;
                        current = current->ParentNode();
                    }
                    break;
                case rtText: {
                    std::string_view text = token->TokenValue;
                    const bool blank = text.empty() || (IsXMLWhiteSpace(text.front()) && IsWhiteSpaceOnly(text));
                    switch (WhiteSpaceHandling) {
                        case wsPreserveAll: break;
                        case wsPreserveInTextOnly:
                            if (blank) text = {};
                            break;
                        case wsTrim: text = blank ? std::string_view() : TrimControls(text); break;
                        case wsAutoTag: {
                            TXMLPreserveWhiteSpace rule = pwInherit;
                            for (PXMLNode n = current; n && rule == pwInherit; n = n->ParentNode())
                                rule = static_cast<TXMLPreserveWhiteSpace>(n->fPreserveWhiteSpace);
                            if (rule != pwPreserve) text = blank ? std::string_view() : TrimControls(text);
                            break;
                        }
                    }
                    if (!text.empty()) append(ntText, -1, fDictionary.Add(text));
                    break;
                }
                case rtEntityReference:
                    append(ntEntityReference, fDictionary.Add(token->TokenName), fDictionary.Add(token->TokenValue));
                    break;
                case rtCData: append(ntCData, -1, fDictionary.Add(token->TokenValue)); break;
                case rtComment: append(ntComment, -1, fDictionary.Add(token->TokenValue)); break;
                case rtProcessingInstruction:
                    append(ntProcessingInstruction, fDictionary.Add(token->TokenName), fDictionary.Add(token->TokenValue));
                    break;
                case rtDocType: append(ntDocType, -1, fDictionary.Add(token->TokenValue)); break;
                case rtDocumentStart: break;
            }
            if (OnProgress) OnProgress(*this, 0, total, aReader.ApproxStreamPosition());
            if ((++tokens & 0xFFFF) == 0) aReader.ReleaseRead();
        }
    } catch (...) {
        fLoading = false;
        if (aReader.ParseError()) fParseError = aReader.ParseError();
        DropChildren(aParent);
        ChainChanged(aParent, ctChild);
        throw;
    }
    fLoading = false;
    // The records were linked directly; the target's child list learns of them here, once.
    ChainChanged(aParent, ctChild);
    if (aReader.ParseError()) {
        fParseError = aReader.ParseError();
        DropChildren(aParent);
        return false;
    }
    return true;
}

// A failed load leaves no children; the dictionary keeps what it had read.
void TXMLDocument::DropChildren(PXMLNode aParent) {
    if (aParent == fBlankDocumentNode) {
        ReleasePages();
        fDummyNode = CreateNode(ntText, -1, -1);
        fBlankDocumentNode = CreateNode(ntDocument, -1, -1);
    } else {
        while (PXMLNode c = aParent->FirstChild()) c->DeleteSelf();
    }
}

}  // namespace tmi::xml
