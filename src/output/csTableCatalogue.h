// The thirteen tables of every import, as data: names, kinds and columns in order.
#pragma once

#include <span>
#include <string_view>
#include <vector>

#include "csMapinfoTab.h"

namespace tmi {

struct TGMColumnDecl {
    const char* fName;
    int fType;
    int fSize;  // text only
};

struct TGMTableDecl {
    const char* fName;
    int fKind;
    bool fSpatial;        // declares the geometry column
    int fGeometryAt;      // its place among the columns (0-based)
    bool fTableIdIsKey;
    std::span<const TGMColumnDecl> fColumns;
};

// In the order of creation.
std::span<const TGMTableDecl> TableCatalogue();
// The template of one table: its columns with the geometry column in its place.
std::vector<TGMField> TableTemplate(const TGMTableDecl& aTable);

}  // namespace tmi
