// The in-memory XML document that every reader walks.
//
// Nodes are fixed 40-byte records in pages of 1024 owned by their document; a PXMLNode is a
// plain pointer to one and lives as long as the document. Links between records are 32-bit
// record numbers, names and values are ids of the document's string dictionary, so a node
// costs one record and no heap block, and walks compare integers.
#pragma once

#include <cstdint>
#include <functional>
#include <istream>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "block_arena.h"
#include "hashed_strings.h"
#include "xml_errors.h"
#include "xml_reader.h"

namespace tmi::xml {

enum TXMLNodeType : uint8_t {
    ntDocument,
    ntDocType,
    ntXMLDeclaration,
    ntElement,
    ntAttribute,
    ntText,
    ntEntityReference,
    ntCData,
    ntComment,
    ntProcessingInstruction
};

enum TXMLChildType : uint8_t { ctChild, ctAttribute };
enum TXMLPreserveWhiteSpace : uint8_t { pwInherit, pwPreserve, pwDefault };
enum TXMLWhiteSpaceHandling : uint8_t { wsTrim, wsPreserveAll, wsPreserveInTextOnly, wsAutoTag };
enum TXMLNameSpaceHandling : uint8_t { nsNo, nsFull, nsFast };

class TXMLDocument;
class TXMLChildNodeList;
class IXMLNodeList;
struct TXMLNode;
using PXMLNode = TXMLNode*;
using IXMLNodeListPtr = std::shared_ptr<IXMLNodeList>;

namespace detail {
inline constexpr uint32_t kPageShift = 10;
inline constexpr uint32_t kPageSize = 1u << kPageShift;  // records per page
inline constexpr uint32_t kMaxDocuments = 65536;
// Page tables and documents by slot; a record names its document by slot.
extern TXMLNode** gPageTables[kMaxDocuments];
extern TXMLDocument* gDocuments[kMaxDocuments];
}  // namespace detail

// A caller-held index from name id to the first child of that name, for repeated
// FindChildWithIndex calls on one parent with many children.
class TXMLChildIndex {
public:
    void Clear() {
        fParent = nullptr;
        fBuilt = false;
        fIndex.clear();
    }

private:
    friend struct TXMLNode;
    PXMLNode fParent = nullptr;
    bool fBuilt = false;
    std::unordered_map<int32_t, PXMLNode> fIndex;
};

// The node record. Fields are in the order of the record; links are record numbers
// (0 is nil) resolved through the owner document's page table.
struct TXMLNode {
    TXMLNodeType fNodeType;
    TXMLPreserveWhiteSpace fPreserveWhiteSpace;
    uint16_t fOwnerDocument;   // slot of the owner document
    int32_t fNodeNameId;       // -1 for none
    int32_t fNodeValueId;      // -1 for none
    uint32_t fParentNode;
    uint32_t fFirstCChild[2];  // indexed by TXMLChildType
    uint32_t fLastCChild[2];
    uint32_t fNextSibling;
    uint32_t fPreviousSibling;

    // --- reading
    [[nodiscard]] TXMLNodeType NodeType() const noexcept { return fNodeType; }
    [[nodiscard]] int32_t NodeNameId() const noexcept { return fNodeNameId; }
    [[nodiscard]] int32_t NodeValueId() const noexcept { return fNodeValueId; }
    [[nodiscard]] TXMLDocument* OwnerDocument() const noexcept { return detail::gDocuments[fOwnerDocument]; }

    // Qualified name, prefix included; empty for nodes without a name.
    [[nodiscard]] std::string_view NodeName() const noexcept;
    [[nodiscard]] std::string_view LocalName() const noexcept;
    [[nodiscard]] std::string_view NameSpacePrefix() const noexcept;
    // The namespace of the node's name: its prefix resolved upward; an attribute without a
    // prefix is in no namespace.
    [[nodiscard]] std::string NameSpaceURI() const;
    // The URI a prefix ("" for the default namespace) is bound to in the scope of this element.
    [[nodiscard]] std::string ResolvePrefix(std::string_view aPrefix) const;
    // The value; for a declaration its attributes as text.
    [[nodiscard]] std::string_view NodeValue() const;
    // Document and element: the text of all descendants in order; text, entity and CDATA
    // nodes: their value; others: empty.
    [[nodiscard]] std::string Text() const;

    [[nodiscard]] std::string_view GetAttribute(std::string_view aName) const;
    [[nodiscard]] std::string_view GetAttributeDef(std::string_view aName, std::string_view aDefault) const;
    [[nodiscard]] bool HasAttribute(std::string_view aName) const;
    // With the document's UseReadNameSpaceURI other than nsNo, FindAttribute and FindChild take
    // aName as a local name in the document's read namespace (see TXMLDocument).
    bool FindAttribute(std::string_view aName, PXMLNode& aAttribute) const;
    bool FindAttribute(std::string_view aName, std::string& aValue) const;
    [[nodiscard]] PXMLNode GetAttributeNode(std::string_view aName) const;
    bool FindChild(std::string_view aName, PXMLNode& aChild) const;
    [[nodiscard]] PXMLNode FindChild(std::string_view aName) const;
    bool FindChildWithIndex(std::string_view aName, PXMLNode& aChild, TXMLChildIndex& aIndex) const;

    [[nodiscard]] bool HasChildNodes() const noexcept { return fFirstCChild[ctChild] != 0; }
    [[nodiscard]] bool HasAttributes() const noexcept { return fFirstCChild[ctAttribute] != 0; }
    [[nodiscard]] TXMLChildNodeList* ChildNodes() const;
    // nil for a node that is not an element or a declaration.
    [[nodiscard]] TXMLChildNodeList* AttributeNodes() const;

    [[nodiscard]] PXMLNode Link(uint32_t aRecord) const noexcept {
        return aRecord ? detail::gPageTables[fOwnerDocument][aRecord >> detail::kPageShift] +
                             (aRecord & (detail::kPageSize - 1))
                       : nullptr;
    }
    [[nodiscard]] PXMLNode FirstChild() const noexcept { return Link(fFirstCChild[ctChild]); }
    [[nodiscard]] PXMLNode LastChild() const noexcept { return Link(fLastCChild[ctChild]); }
    [[nodiscard]] PXMLNode FirstAttribute() const noexcept { return Link(fFirstCChild[ctAttribute]); }
    [[nodiscard]] PXMLNode LastAttribute() const noexcept { return Link(fLastCChild[ctAttribute]); }
    [[nodiscard]] PXMLNode NextSibling() const noexcept { return Link(fNextSibling); }
    [[nodiscard]] PXMLNode PreviousSibling() const noexcept { return Link(fPreviousSibling); }
    [[nodiscard]] PXMLNode ParentNode() const noexcept { return Link(fParentNode); }

    // nil as input starts at the first (or last) node; false at the end.
    bool GetNextChild(PXMLNode& aNode) const noexcept;
    bool GetNextAttribute(PXMLNode& aNode) const noexcept;
    bool GetPreviousChild(PXMLNode& aNode) const noexcept;
    bool GetPreviousAttribute(PXMLNode& aNode) const noexcept;

    // --- selection
    bool SelectNode(std::string_view aPath, PXMLNode& aNode) const;
    [[nodiscard]] PXMLNode SelectNode(std::string_view aPath) const;
    // The list is never nil; false when nothing matched. aMaxCount 0 takes all.
    bool SelectNodes(std::string_view aPath, IXMLNodeListPtr& aList, int aMaxCount = 0) const;
    [[nodiscard]] IXMLNodeListPtr SelectNodes(std::string_view aPath, int aMaxCount = 0) const;
    // Selection where names of the path are local names in the namespace aNameSpaceURI.
    // nsFull: a name matches a node of that local name whose prefix is bound to the URI in
    // the node's own scope (any prefix, or the default namespace). nsFast: the prefix bound to
    // the URI nearest the context (the default namespace included) is put before each name,
    // and names compare as written; a URI bound nowhere there matches nothing.
    bool SelectNodesNS(std::string_view aNameSpaceURI, std::string_view aPath, IXMLNodeListPtr& aList,
                       int aMaxCount = 0, TXMLNameSpaceHandling aHandling = nsFull) const;
    // The prefix form: each name of the path is taken as aPrefix:name, as written in the file.
    bool SelectNodesNSPrefix(std::string_view aPrefix, std::string_view aPath, IXMLNodeListPtr& aList,
                             int aMaxCount = 0) const;
    // Walks the path by "/" and creates the elements (and a last "@attribute") that are missing.
    PXMLNode SelectNodeCreate(std::string_view aPath);
    bool GetElementsByTagName(std::string_view aName, IXMLNodeListPtr& aList) const;

    // --- changing
    PXMLNode AddChild(std::string_view aName, TXMLNodeType aType = ntElement);
    PXMLNode AddText(std::string_view aText);
    PXMLNode AddCData(std::string_view aText);
    PXMLNode AddComment(std::string_view aText);
    PXMLNode SetAttribute(std::string_view aName, std::string_view aValue);
    bool DeleteAttribute(std::string_view aName);
    void SetNodeValue(std::string_view aValue);
    void SetText(std::string_view aText);
    PXMLNode AppendChild(PXMLNode aNode);
    PXMLNode InsertBefore(PXMLNode aNode, PXMLNode aBefore);
    PXMLNode RemoveChild(PXMLNode aNode);
    void DeleteChildren();
    // Unlinks the node and frees it with its subtree.
    void DeleteSelf();

private:
    // The lookup by the qualified name as written, whatever the document's namespace mode.
    bool FindAttributePlain(std::string_view aName, PXMLNode& aAttribute) const;
    // The first of the chain from aFirst whose name is aLocalName in the read namespace.
    [[nodiscard]] PXMLNode FindInReadNameSpace(PXMLNode aFirst, std::string_view aLocalName) const;
};

static_assert(sizeof(TXMLNode) == 40, "a node record is 40 bytes");

// The reading side of a list of nodes.
class IXMLNodeList {
public:
    virtual ~IXMLNodeList() = default;
    [[nodiscard]] virtual int Count() const = 0;
    // Raises EListError outside the list.
    [[nodiscard]] virtual PXMLNode Get(int aIndex) const = 0;
    [[nodiscard]] PXMLNode operator[](int aIndex) const { return Get(aIndex); }
    [[nodiscard]] PXMLNode GetFirst() const { return Count() > 0 ? Get(0) : nullptr; }
    [[nodiscard]] PXMLNode GetLast() const { return Count() > 0 ? Get(Count() - 1) : nullptr; }
    [[nodiscard]] virtual int IndexOf(PXMLNode aNode) const = 0;
    [[nodiscard]] virtual PXMLNode FindNode(std::string_view aName) const = 0;
    // nil as input starts at the first node; false at the end.
    virtual bool GetNext(PXMLNode& aNode) const = 0;
    virtual bool GetPrevious(PXMLNode& aNode) const = 0;

    class Iterator {
    public:
        using iterator_category = std::forward_iterator_tag;
        using value_type = PXMLNode;
        using difference_type = std::ptrdiff_t;
        using pointer = PXMLNode*;
        using reference = PXMLNode;
        Iterator(const IXMLNodeList* aList, PXMLNode aNode) : fList(aList), fNode(aNode) {}
        PXMLNode operator*() const { return fNode; }
        Iterator& operator++() {
            if (!fList->GetNext(fNode)) fNode = nullptr;
            return *this;
        }
        bool operator==(const Iterator& o) const { return fNode == o.fNode; }
        bool operator!=(const Iterator& o) const { return fNode != o.fNode; }

    private:
        const IXMLNodeList* fList;
        PXMLNode fNode;
    };
    [[nodiscard]] Iterator begin() const {
        PXMLNode n = nullptr;
        return Iterator(this, GetNext(n) ? n : nullptr);
    }
    [[nodiscard]] Iterator end() const { return Iterator(this, nullptr); }
};

// The result of a selection: a list of nodes of one document.
class TXMLResNodeList final : public IXMLNodeList {
public:
    [[nodiscard]] int Count() const override { return static_cast<int>(fNodes.size()); }
    [[nodiscard]] PXMLNode Get(int aIndex) const override;
    [[nodiscard]] int IndexOf(PXMLNode aNode) const override;
    [[nodiscard]] PXMLNode FindNode(std::string_view aName) const override;
    bool GetNext(PXMLNode& aNode) const override;
    bool GetPrevious(PXMLNode& aNode) const override;
    void Add(PXMLNode aNode) { fNodes.push_back(aNode); }
    void Clear() { fNodes.clear(); }
    std::vector<PXMLNode>& Nodes() { return fNodes; }

private:
    std::vector<PXMLNode> fNodes;
    mutable int fLastIndex = -1;
};

// A view on one chain (children or attributes) of one node, owned by the document.
// Get(i) starts from the nearest of three anchors: the last index served, the first node
// and the last node, so a forward loop over Get(0), Get(1), ... costs one step each.
class TXMLChildNodeList final : public IXMLNodeList {
public:
    TXMLChildNodeList(PXMLNode aParent, TXMLChildType aChildType) : fParent(aParent), fChildType(aChildType) {}

    [[nodiscard]] int Count() const override;
    [[nodiscard]] PXMLNode Get(int aIndex) const override;
    [[nodiscard]] int IndexOf(PXMLNode aNode) const override;
    [[nodiscard]] PXMLNode FindNode(std::string_view aName) const override;
    bool GetNext(PXMLNode& aNode) const override;
    bool GetPrevious(PXMLNode& aNode) const override;
    [[nodiscard]] PXMLNode Parent() const noexcept { return fParent; }
    [[nodiscard]] TXMLChildType ChildType() const noexcept { return fChildType; }
    // The chain changed: anchors and count are dropped.
    void ChainChanged() noexcept {
        fLastGetNodeIndex = -1;
        fLastGetNode = nullptr;
        fCount = -1;
    }

private:
    PXMLNode fParent;
    TXMLChildType fChildType;
    mutable int32_t fLastGetNodeIndex = -1;
    mutable PXMLNode fLastGetNode = nullptr;
    mutable int32_t fCount = -1;
};

// Phase 0 is a load (total: stream size, position: approximate byte position);
// phase 1 is a save (total: node count, position: running node number).
using TXMLProgressEvent = std::function<void(TXMLDocument& aSender, int aPhase, int64_t aTotal, int64_t aPosition)>;

class TXMLDocument {
public:
    explicit TXMLDocument(std::string_view aRootNodeName = {}, bool aAddUTF8Declaration = false);
    ~TXMLDocument();
    TXMLDocument(const TXMLDocument&) = delete;
    TXMLDocument& operator=(const TXMLDocument&) = delete;

    // Loads a file; false with ParseError set when it is malformed. Raises only when the
    // file cannot be opened (or when the reader's error handling is ehRaise).
    bool LoadFromFile(const std::string& aFileName, int aForcedCodePage = 0);
    bool LoadFromBuffer(const void* aData, size_t aSize, int aForcedCodePage = 0);
    // The text is given away: a UTF-8 document is read without a copy of it.
    bool LoadFromText(std::string&& aText, int aForcedCodePage = 0);
    bool LoadFromStream(std::istream& aStream, int aForcedCodePage = 0);
    // Text that is already UTF-8: its declaration does not change the encoding.
    bool LoadFromXML(std::string_view aXML);
    bool LoadFromXML_UTF8(std::string_view aXML);
    // Loads the tokens of a reader under aParent (the document node or an element).
    bool LoadFromReader(TXMLReader& aReader, PXMLNode aParent);

    // First element child of the document node, nil when none.
    [[nodiscard]] PXMLNode DocumentElement() const noexcept;
    // Each of the two nodes takes the other's place, in whatever chains of this document they
    // stand. Raises "You can't exchange nodes from different XML documents." for a node of
    // another document, and for a node and its own ancestor, or a child and an attribute.
    void ExchangeNodes(PXMLNode aNode1, PXMLNode aNode2);
    [[nodiscard]] PXMLNode Node() const noexcept { return fBlankDocumentNode; }
    void Clear();

    [[nodiscard]] int32_t IndexOfString(std::string_view aText) const { return fDictionary.Find(aText); }
    // Empty for a negative id.
    [[nodiscard]] std::string_view GetString(int32_t aId) const {
        return aId < 0 ? std::string_view() : fDictionary.GetItem(aId);
    }
    [[nodiscard]] std::string_view StringAt(int32_t aId) const noexcept {
        return aId < 0 ? std::string_view() : fDictionary.At(aId);
    }
    int32_t AddString(std::string_view aText) { return fDictionary.Add(aText); }
    // A value read once and never looked up by its text: stored without its hash (cheaper for
    // the many distinct values of a document read record by record).
    int32_t AppendString(std::string_view aText) { return fDictionary.Append(aText); }
    [[nodiscard]] const TOHashedStrings& Dictionary() const noexcept { return fDictionary; }

    TXMLProgressEvent OnProgress;
    TXMLWhiteSpaceHandling WhiteSpaceHandling = wsPreserveInTextOnly;
    // The namespace FindChild and FindAttribute read names in. nsNo (the default): names are
    // qualified names as written. nsFast: ReadNameSpacePrefix:name, as written. nsFull: the
    // local name in ReadNameSpaceURI, under whatever prefix binds it; with FastNameSpaces each
    // prefix is resolved once per lookup in the scope of the searched node, so declarations on
    // the candidates themselves are not seen, otherwise in each candidate's own scope.
    std::string ReadNameSpaceURI;
    std::string ReadNameSpacePrefix;
    bool FastNameSpaces = true;
    TXMLNameSpaceHandling UseReadNameSpaceURI = nsNo;
    [[nodiscard]] TXMLReaderSettings& ReaderSettings() noexcept { return fReaderSettings; }
    [[nodiscard]] const IOTextParseError& ParseError() const noexcept { return fParseError; }
    [[nodiscard]] const std::string& URL() const noexcept { return fURL; }
    [[nodiscard]] bool Loading() const noexcept { return fLoading; }

    // Records handed out (document and dummy records included) and bytes held by the document.
    [[nodiscard]] uint32_t NodeCount() const noexcept { return fNextNodeId - static_cast<uint32_t>(fFreeNodes.size()); }
    [[nodiscard]] size_t MemoryUsed() const noexcept;

    // --- used by the node operations
    PXMLNode CreateNode(TXMLNodeType aType, int32_t aNameId, int32_t aValueId, uint32_t* aRecord = nullptr);
    [[nodiscard]] uint32_t RecordOf(PXMLNode aNode) const;
    void LinkLast(PXMLNode aParent, uint32_t aParentRecord, PXMLNode aNode, uint32_t aNodeRecord, TXMLChildType aType);
    void Unlink(PXMLNode aNode, TXMLChildType aType);
    void FreeSubtree(PXMLNode aNode);
    void ChainChanged(PXMLNode aParent, TXMLChildType aType);
    TXMLChildNodeList* ChildList(PXMLNode aParent, TXMLChildType aType);
    [[nodiscard]] PXMLNode IndexedAttribute(PXMLNode aElement, int32_t aNameId, bool* aUsed) const;
    void IndexAttributes(PXMLNode aElement);
    [[nodiscard]] uint16_t Slot() const noexcept { return fSlot; }

private:
    bool Load(TXMLReader& aReader, PXMLNode aParent);
    void DropChildren(PXMLNode aParent);
    void AddPage();
    void ReleasePages();

    uint16_t fSlot = 0;
    bool fLoading = false;
    std::string fURL;
    TOHashedStrings fDictionary;
    // The memory of the pages, freed in ReleasePages; a large document has its next region
    // made ready beside the parse.
    TBlockArena fNodeArena{size_t(1) << 20, size_t(8) << 20, true};
    std::vector<TXMLNode*> fNodes;  // pages of records
    std::vector<uint32_t> fFreeNodes;
    std::unordered_map<PXMLNode, std::unique_ptr<TXMLChildNodeList>> fTempChildNodes[2];
    std::unordered_map<PXMLNode, int32_t> fTempNameSpaceURIs;
    // One element at a time: its attributes by name id.
    PXMLNode fAttributeIndexNode = nullptr;
    std::unordered_map<int32_t, PXMLNode> fTempAttributeIndex;
    uint32_t fNextNodeId = 0;
    uint32_t fNodesLength = 0;
    PXMLNode fBlankDocumentNode = nullptr;
    PXMLNode fDummyNode = nullptr;
    TXMLReaderSettings fReaderSettings;
    IOTextParseError fParseError;
};

// The document as its holders share it: the import job and the selections of a conversion
// hold it by reference count, and it goes with the last of them.
using IXMLDocument = std::shared_ptr<TXMLDocument>;
[[nodiscard]] inline IXMLDocument CreateXMLDoc(std::string_view aRootNodeName = {}, bool aAddUTF8Declaration = false) {
    return std::make_shared<TXMLDocument>(aRootNodeName, aAddUTF8Declaration);
}

// The one shared unit of trimming: white space is the four characters 9, 10, 13 and 32.
[[nodiscard]] inline bool IsXMLWhiteSpace(char c) noexcept { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; }

}  // namespace tmi::xml
