#include "xpath.h"

#include <algorithm>
#include <charconv>
#include <unordered_set>

namespace tmi::xml {

namespace {

std::string_view Trim(std::string_view s) {
    size_t b = 0, e = s.size();
    while (b < e && static_cast<unsigned char>(s[b]) <= 32) ++b;
    while (e > b && static_cast<unsigned char>(s[e - 1]) <= 32) --e;
    return s.substr(b, e - b);
}

bool EqualsNoCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        char x = a[i], y = b[i];
        if (x >= 'A' && x <= 'Z') x = static_cast<char>(x + 32);
        if (y >= 'A' && y <= 'Z') y = static_cast<char>(y + 32);
        if (x != y) return false;
    }
    return true;
}

[[noreturn]] void NotSupported(std::string_view aPath) {
    throw EXmlXPathInvalidString("XPath is not supported.\r\nXPath: " + std::string(aPath));
}

[[noreturn]] void PredicateNotSupported(std::string_view aPredicate, std::string_view aPath) {
    throw EXmlXPathInvalidString("XPath predicate \"" + std::string(aPredicate) + "\" is not supported.\r\nXPath: " +
                                 std::string(aPath));
}

[[noreturn]] void PredicateNotValid(std::string_view aPredicate, std::string_view aPath) {
    throw EXmlXPathInvalidString("XPath predicate \"" + std::string(aPredicate) + "\" is not valid.\r\nXPath: " +
                                 std::string(aPath));
}

bool ParseSignedInt(std::string_view s, int& aValue) {
    if (s.empty()) return false;
    if (s[0] == '+') s.remove_prefix(1);
    if (s.empty()) return false;
    const auto r = std::from_chars(s.data(), s.data() + s.size(), aValue);
    return r.ec == std::errc() && r.ptr == s.data() + s.size();
}

// A value of a predicate: unquoted, or between matching quotes.
std::string Unquote(std::string_view aValue, std::string_view aPredicate, std::string_view aPath) {
    aValue = Trim(aValue);
    const bool opens = !aValue.empty() && (aValue.front() == '"' || aValue.front() == '\'');
    const bool closes = !aValue.empty() && (aValue.back() == '"' || aValue.back() == '\'');
    if (!opens && !closes) return std::string(aValue);
    if (aValue.size() < 2 || !opens || !closes || aValue.front() != aValue.back()) PredicateNotValid(aPredicate, aPath);
    return std::string(aValue.substr(1, aValue.size() - 2));
}

void ParsePredicate(std::string_view aPredicate, TXMLXPathSelector& aSelector, std::string_view aPath) {
    const std::string_view p = Trim(aPredicate);
    int n = 0;
    if (ParseSignedInt(p, n)) {
        aSelector.fPredicate = TXMLXPathPredicate::Index;
        aSelector.fIndex = n - 1;
        return;
    }
    if (p.substr(0, 6) == "last()") {
        const std::string_view rest = Trim(p.substr(6));
        int offset = 0;
        if (!rest.empty()) {
            if ((rest[0] != '+' && rest[0] != '-') || !ParseSignedInt(rest[0] == '+' ? rest : rest, offset))
                PredicateNotSupported(aPredicate, aPath);
            // "last()-1": ParseSignedInt keeps the sign.
        }
        aSelector.fPredicate = TXMLXPathPredicate::Last;
        aSelector.fIndex = offset;
        return;
    }
    if (!p.empty() && p[0] == '@') {
        const size_t eq = p.find('=');
        if (eq == std::string_view::npos) {
            aSelector.fPredicate = TXMLXPathPredicate::AttributeExists;
            aSelector.fAttributeName = std::string(Trim(p.substr(1)));
        } else {
            aSelector.fPredicate = TXMLXPathPredicate::AttributeEquals;
            aSelector.fAttributeName = std::string(Trim(p.substr(1, eq - 1)));
            aSelector.fValue = Unquote(p.substr(eq + 1), aPredicate, aPath);
        }
        if (aSelector.fAttributeName.empty()) PredicateNotSupported(aPredicate, aPath);
        return;
    }
    if (p.substr(0, 6) == "text()") {
        const std::string_view rest = Trim(p.substr(6));
        if (!rest.empty() && rest[0] == '=') {
            aSelector.fPredicate = TXMLXPathPredicate::TextEquals;
            aSelector.fValue = Unquote(rest.substr(1), aPredicate, aPath);
            return;
        }
    }
    PredicateNotSupported(aPredicate, aPath);
}

// Resolves the names of one selection against one document.
struct Resolver {
    const TXMLDocument* fDocument;
    const TXMLXPathNameSpace* fNameSpace;
    std::string fFastPrefix;  // nsFast: the prefix put before each name
    bool fUnbound = false;    // nsFast: the URI is bound nowhere in scope of the context

    bool NameMatches(const TXMLXPathSelector& s, PXMLNode n, int32_t aNameId) const {
        if (!s.fCheckName) return true;
        if (!fNameSpace || fNameSpace->fHandling == nsNo) return aNameId >= 0 && n->fNodeNameId == aNameId;
        if (fNameSpace->fHandling == nsFast) return aNameId >= 0 && n->fNodeNameId == aNameId;
        return n->LocalName() == s.fName && n->NameSpaceURI() == fNameSpace->fURI;
    }
    int32_t NameId(const TXMLXPathSelector& s) const {
        if (fNameSpace && fNameSpace->fHandling == nsFast) {
            if (fUnbound) return -1;
            if (!fFastPrefix.empty()) return fDocument->IndexOfString(fFastPrefix + ":" + s.fName);
        }
        return fDocument->IndexOfString(s.fName);
    }
};

bool MatchesNode(const TXMLXPathSelector& s, PXMLNode n, int32_t aNameId, const Resolver& r) {
    switch (s.fType) {
        case xntElement:
            if (n->fNodeType != ntElement || !r.NameMatches(s, n, aNameId)) return false;
            break;
        case xntAttribute:
            if (n->fNodeType != ntAttribute || !r.NameMatches(s, n, aNameId)) return false;
            break;
        case xntText:
            if (n->fNodeType != ntText && n->fNodeType != ntCData) return false;
            break;
        case xntNode:
            if (n->fNodeType != ntElement && n->fNodeType != ntAttribute && n->fNodeType != ntText &&
                n->fNodeType != ntCData)
                return false;
            break;
        default: break;
    }
    switch (s.fPredicate) {
        case TXMLXPathPredicate::AttributeExists: return n->HasAttribute(s.fAttributeName);
        case TXMLXPathPredicate::AttributeEquals: {
            if (r.fDocument->Dictionary().HasUnlisted()) {
                // Values kept out of the lookup table compare by their text.
                PXMLNode a = nullptr;
                return n->FindAttribute(s.fAttributeName, a) && r.fDocument->StringAt(a->fNodeValueId) == s.fValue;
            }
            // By dictionary id: a value absent from the file matches nothing.
            const int32_t valueId = r.fDocument->IndexOfString(s.fValue);
            if (valueId < 0) return false;
            PXMLNode a = nullptr;
            return n->FindAttribute(s.fAttributeName, a) && a->fNodeValueId == valueId;
        }
        case TXMLXPathPredicate::TextEquals: return n->Text() == s.fValue;
        default: return true;
    }
}

// The candidates of one selector at one node, filtered and then cut by position.
void Step(const TXMLXPathSelector& s, PXMLNode aNode, int32_t aNameId, const Resolver& r, std::vector<PXMLNode>& aOut) {
    const size_t first = aOut.size();
    auto consider = [&](PXMLNode n) {
        if (MatchesNode(s, n, aNameId, r)) aOut.push_back(n);
    };
    switch (s.fType) {
        case xntRootElement: aOut.push_back(aNode->OwnerDocument()->Node()); return;
        case xntCurrentElement: aOut.push_back(aNode); return;
        case xntParentElement:
            if (PXMLNode p = aNode->ParentNode()) aOut.push_back(p);
            return;
        case xntAllLevelsElement: {
            // The node and all its descendant elements, in document order, without recursion.
            aOut.push_back(aNode);
            PXMLNode n = aNode->FirstChild();
            while (n) {
                if (n->fNodeType == ntElement) {
                    aOut.push_back(n);
                    if (n->fFirstCChild[ctChild]) {
                        n = n->FirstChild();
                        continue;
                    }
                }
                while (n && n != aNode && !n->fNextSibling) n = n->ParentNode();
                if (!n || n == aNode) break;
                n = n->NextSibling();
            }
            return;
        }
        case xntAttribute:
            for (PXMLNode a = aNode->FirstAttribute(); a; a = a->NextSibling()) consider(a);
            break;
        default:
            for (PXMLNode c = aNode->FirstChild(); c; c = c->NextSibling()) consider(c);
            break;
    }
    const size_t count = aOut.size() - first;
    if (s.fPredicate == TXMLXPathPredicate::Index || s.fPredicate == TXMLXPathPredicate::Last) {
        const long long index = s.fPredicate == TXMLXPathPredicate::Index
                                    ? s.fIndex
                                    : static_cast<long long>(count) - 1 + s.fIndex;
        if (index >= 0 && index < static_cast<long long>(count)) {
            aOut[first] = aOut[first + static_cast<size_t>(index)];
            aOut.resize(first + 1);
        } else {
            aOut.resize(first);
        }
    }
}

}  // namespace

bool IsSimpleXPath(std::string_view aPath) noexcept {
    return aPath.find_first_of("./[|") == std::string_view::npos;
}

void TXMLXPathList::LoadFromString(std::string_view aPath) {
    if (aPath.empty()) throw EXmlXPathInvalidString("XPath cannot be empty.");
    fPath = std::string(aPath);
    fItems.clear();
    fAllLevels = false;
    size_t itemStart = 0;
    for (;;) {
        const size_t bar = aPath.find('|', itemStart);
        const std::string_view item = aPath.substr(itemStart, bar == std::string_view::npos ? std::string_view::npos : bar - itemStart);
        TXMLXPath path;
        size_t pieceStart = 0;
        bool firstPiece = true;
        for (;;) {
            const size_t slash = item.find('/', pieceStart);
            const std::string_view piece =
                Trim(item.substr(pieceStart, slash == std::string_view::npos ? std::string_view::npos : slash - pieceStart));
            TXMLXPathSelector s;
            if (piece.empty()) {
                s.fType = firstPiece ? xntRootElement : xntAllLevelsElement;
                if (!firstPiece) fAllLevels = true;
            } else if (piece[0] == '@') {
                s.fType = xntAttribute;
                s.fName = std::string(Trim(piece.substr(1)));
                s.fCheckName = s.fName != "*";
            } else if (EqualsNoCase(piece, "node()")) {
                s.fType = xntNode;
            } else if (EqualsNoCase(piece, "text()")) {
                s.fType = xntText;
            } else if (piece == "..") {
                s.fType = xntParentElement;
            } else if (piece == ".") {
                s.fType = xntCurrentElement;
            } else {
                s.fType = xntElement;
                const size_t bracket = piece.find('[');
                std::string_view name = piece;
                if (bracket != std::string_view::npos) {
                    if (piece.back() != ']') NotSupported(aPath);
                    name = Trim(piece.substr(0, bracket));
                    ParsePredicate(piece.substr(bracket + 1, piece.size() - bracket - 2), s, aPath);
                }
                s.fName = std::string(name);
                s.fCheckName = s.fName != "*";
            }
            // "a//" and "//" alone: the all-levels step has nothing behind it; keep it.
            path.fSelectors.push_back(std::move(s));
            firstPiece = false;
            if (slash == std::string_view::npos) break;
            pieceStart = slash + 1;
        }
        // "/a" splits into a root piece and "a"; "//a" adds an all-levels piece between.
        fItems.push_back(std::move(path));
        if (bar == std::string_view::npos) break;
        itemStart = bar + 1;
    }
}

bool TXMLXPathList::SelectNodes(PXMLNode aContext, TXMLResNodeList& aResult, int aMaxCount,
                                const TXMLXPathNameSpace* aNameSpace) const {
    Resolver r{aContext->OwnerDocument(), aNameSpace, {}, false};
    if (aNameSpace && aNameSpace->fHandling == nsFast) {
        if (aNameSpace->fByPrefix) {
            r.fFastPrefix = aNameSpace->fPrefix;
        } else {
            // The nearest declaration that binds the URI, "xmlns" (no prefix) or "xmlns:p".
            r.fUnbound = true;
            for (PXMLNode n = aContext; n && r.fUnbound; n = n->ParentNode()) {
                if (n->NodeType() != ntElement) continue;
                for (PXMLNode a = n->FirstAttribute(); a; a = a->NextSibling()) {
                    const std::string_view name = a->NodeName();
                    if ((name == "xmlns" || name.substr(0, 6) == "xmlns:") && a->NodeValue() == aNameSpace->fURI) {
                        r.fFastPrefix = name == "xmlns" ? std::string() : std::string(name.substr(6));
                        r.fUnbound = false;
                        break;
                    }
                }
            }
        }
    }
    const bool ordered = fAllLevels || fItems.size() > 1;
    std::vector<PXMLNode> current, next;
    std::unordered_set<PXMLNode> matched;
    std::vector<PXMLNode> found;
    for (const TXMLXPath& item : fItems) {
        current.assign(1, aContext);
        for (const TXMLXPathSelector& s : item.fSelectors) {
            next.clear();
            const int32_t nameId = s.fCheckName ? r.NameId(s) : -1;
            if (s.fCheckName && nameId < 0 && (!aNameSpace || aNameSpace->fHandling != nsFull) &&
                (s.fType == xntElement || s.fType == xntAttribute)) {
                current.clear();  // a name never seen in the file matches nothing
                break;
            }
            for (PXMLNode n : current) Step(s, n, nameId, r, next);
            if (ordered && next.size() > 1) {
                // Steps under "//" reach nodes more than once: keep each once.
                std::unordered_set<PXMLNode> seen;
                seen.reserve(next.size());
                size_t w = 0;
                for (PXMLNode n : next)
                    if (seen.insert(n).second) next[w++] = n;
                next.resize(w);
            }
            current.swap(next);
            if (current.empty()) break;
        }
        if (ordered) {
            matched.insert(current.begin(), current.end());
        } else {
            found.insert(found.end(), current.begin(), current.end());
        }
    }
    if (ordered && !matched.empty()) {
        // Document order: one walk over the document, attributes after their element.
        PXMLNode root = aContext->OwnerDocument()->Node();
        size_t left = matched.size();
        PXMLNode n = root;
        while (n && left > 0) {
            if (matched.count(n)) {
                found.push_back(n);
                --left;
            }
            for (PXMLNode a = n->FirstAttribute(); a && left > 0; a = a->NextSibling())
                if (matched.count(a)) {
                    found.push_back(a);
                    --left;
                }
            if (n->fFirstCChild[ctChild]) {
                n = n->FirstChild();
                continue;
            }
            while (n && n != root && !n->fNextSibling) n = n->ParentNode();
            if (!n || n == root) break;
            n = n->NextSibling();
        }
    }
    if (aMaxCount > 0 && found.size() > static_cast<size_t>(aMaxCount)) found.resize(static_cast<size_t>(aMaxCount));
    for (PXMLNode n : found) aResult.Add(n);
    return !found.empty();
}

// ---------------------------------------------------------------------------------------------
// Node operations that select

bool TXMLNode::SelectNode(std::string_view aPath, PXMLNode& aNode) const {
    aNode = nullptr;
    if (aPath.empty()) throw EXMLDOMException("XPath cannot be empty.");
    if (IsSimpleXPath(aPath)) {
        if (aPath[0] == '@') return FindAttribute(aPath.substr(1), aNode);
        return FindChild(aPath, aNode);
    }
    TXMLXPathList list;
    list.LoadFromString(aPath);
    TXMLResNodeList result;
    if (!list.SelectNodes(const_cast<PXMLNode>(this), result, 1)) return false;
    aNode = result.Get(0);
    return true;
}

PXMLNode TXMLNode::SelectNode(std::string_view aPath) const {
    PXMLNode n = nullptr;
    SelectNode(aPath, n);
    return n;
}

bool TXMLNode::SelectNodes(std::string_view aPath, IXMLNodeListPtr& aList, int aMaxCount) const {
    auto result = std::make_shared<TXMLResNodeList>();
    aList = result;
    TXMLXPathList list;
    list.LoadFromString(aPath);
    return list.SelectNodes(const_cast<PXMLNode>(this), *result, aMaxCount);
}

IXMLNodeListPtr TXMLNode::SelectNodes(std::string_view aPath, int aMaxCount) const {
    IXMLNodeListPtr list;
    SelectNodes(aPath, list, aMaxCount);
    return list;
}

bool TXMLNode::SelectNodesNS(std::string_view aNameSpaceURI, std::string_view aPath, IXMLNodeListPtr& aList,
                             int aMaxCount, TXMLNameSpaceHandling aHandling) const {
    auto result = std::make_shared<TXMLResNodeList>();
    aList = result;
    TXMLXPathList list;
    list.LoadFromString(aPath);
    TXMLXPathNameSpace ns;
    ns.fURI = std::string(aNameSpaceURI);
    ns.fHandling = aHandling;
    return list.SelectNodes(const_cast<PXMLNode>(this), *result, aMaxCount, &ns);
}

bool TXMLNode::SelectNodesNSPrefix(std::string_view aPrefix, std::string_view aPath, IXMLNodeListPtr& aList,
                                   int aMaxCount) const {
    auto result = std::make_shared<TXMLResNodeList>();
    aList = result;
    TXMLXPathList list;
    list.LoadFromString(aPath);
    TXMLXPathNameSpace ns;
    ns.fHandling = nsFast;
    ns.fPrefix = std::string(aPrefix);
    ns.fByPrefix = true;
    return list.SelectNodes(const_cast<PXMLNode>(this), *result, aMaxCount, &ns);
}

PXMLNode TXMLNode::SelectNodeCreate(std::string_view aPath) {
    if (aPath.empty()) throw EXMLDOMException("Path cannot be empty.");
    PXMLNode n = this;
    size_t start = 0;
    if (aPath[0] == '/') {
        n = OwnerDocument()->Node();
        start = 1;
    }
    for (;;) {
        const size_t slash = aPath.find('/', start);
        const std::string_view piece = aPath.substr(start, slash == std::string_view::npos ? std::string_view::npos : slash - start);
        if (piece.empty() || piece == "@") throw EXMLDOMException("Node name cannot be empty.");
        if (piece[0] == '@') {
            PXMLNode a = nullptr;
            if (!n->FindAttribute(piece.substr(1), a)) a = n->SetAttribute(piece.substr(1), {});
            return a;
        }
        PXMLNode child = nullptr;
        if (!n->FindChild(piece, child)) child = n->AddChild(piece);
        n = child;
        if (slash == std::string_view::npos) return n;
        start = slash + 1;
    }
}

}  // namespace tmi::xml
