// A two-dimensional SQLite R*Tree built whole from its entries, the way SQLite stores one: node
// blobs of the tree's node size, each entry a 64-bit id and four 32-bit floats (min x, max x,
// min y, max y), big-endian. The entries are packed by sort-tile-recursive order (by x in
// vertical slices, by y within a slice), every node full but the last of its level, so a load of
// many rows costs one sort instead of one descent of the tree per row.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tmi {

struct TscRTreeBox {
    float MinX = 0, MaxX = 0, MinY = 0, MaxY = 0;
};

struct TscRTreeEntry {
    int64_t Id = 0;
    TscRTreeBox Box;
};

// A box as the R*Tree keeps one given in doubles: each limit widened to the nearest float that
// still holds it, as SQLite rounds the coordinates it is given.
[[nodiscard]] TscRTreeBox RTreeBoxOf(double aMinX, double aMaxX, double aMinY, double aMaxY);

// What the tree's three tables receive: a node (its number and blob), the parent of a node that
// is not the root, the node that holds an entry.
struct TscRTreeSink {
    std::function<void(int64_t aNode, const std::string& aData)> Node;
    std::function<void(int64_t aNode, int64_t aParent)> Parent;
    std::function<void(int64_t aId, int64_t aNode)> Entry;
};

// Hands over every node of the tree holding the entries (reordered on the way): the root is node
// 1 and is always there, empty for no entries. The entries go out in ascending id. aNodeSize is
// the size of the tree's blobs (its root's): at least four bytes and one entry.
void PackRTree(std::vector<TscRTreeEntry>& aEntries, size_t aNodeSize, const TscRTreeSink& aSink);

}  // namespace tmi
