// TXMLXPathList: the path selector. A path is split at "|" into items and each item at "/"
// into selectors; it is built, used and freed per call.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "OXmlPDOM.h"

namespace tmi::xml {

enum TXMLXPathNodeType : uint8_t {
    xntNode,
    xntElement,
    xntAttribute,
    xntText,
    xntParentElement,
    xntRootElement,
    xntCurrentElement,
    xntAllLevelsElement
};

enum class TXMLXPathPredicate : uint8_t { None, Index, Last, AttributeExists, AttributeEquals, TextEquals };

struct TXMLXPathSelector {
    TXMLXPathNodeType fType = xntElement;
    bool fCheckName = false;
    std::string fName;
    TXMLXPathPredicate fPredicate = TXMLXPathPredicate::None;
    int fIndex = 0;             // zero-based for Index, the offset for Last
    std::string fAttributeName;
    std::string fValue;
};

struct TXMLXPath {
    std::vector<TXMLXPathSelector> fSelectors;
};

// What a namespace-aware selection compares names by. nsFull: local names and the URI each
// candidate's prefix is bound to in its own scope. nsFast: names as written with a prefix put
// before them: fPrefix when fByPrefix, else the prefix bound to fURI nearest the context (the
// default namespace gives none); a URI bound nowhere there matches nothing.
struct TXMLXPathNameSpace {
    std::string fURI;
    TXMLNameSpaceHandling fHandling = nsNo;
    std::string fPrefix;
    bool fByPrefix = false;
};

class TXMLXPathList {
public:
    // Raises EXmlXPathInvalidString for an empty or unsupported path.
    void LoadFromString(std::string_view aPath);
    // Matches under aContext into aResult; aMaxCount 0 takes all. True when anything matched.
    bool SelectNodes(PXMLNode aContext, TXMLResNodeList& aResult, int aMaxCount,
                     const TXMLXPathNameSpace* aNameSpace = nullptr) const;
    [[nodiscard]] const std::vector<TXMLXPath>& Items() const noexcept { return fItems; }

private:
    std::string fPath;
    std::vector<TXMLXPath> fItems;
    bool fAllLevels = false;
};

// True when the path needs no selector: no ".", "/", "[" or "|".
bool IsSimpleXPath(std::string_view aPath) noexcept;

}  // namespace tmi::xml
