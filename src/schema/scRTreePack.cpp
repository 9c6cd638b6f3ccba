#include "scRTreePack.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "csCommon.h"

namespace tmi {

namespace {

constexpr size_t kCellBytes = 8 + 4 * 4;  // id, then min x, max x, min y, max y
constexpr size_t kHeaderBytes = 4;         // the root's depth, then the number of cells

// A double's neighbours in float steps, the factors by which SQLite nudges a rounded limit.
constexpr double kToward = 1.0 - 1.0 / 8388608.0;
constexpr double kAway = 1.0 + 1.0 / 8388608.0;

float Down(double aValue) {
    float f = static_cast<float>(aValue);
    if (f > aValue) f = static_cast<float>(aValue * (aValue < 0 ? kAway : kToward));
    return f;
}

float Up(double aValue) {
    float f = static_cast<float>(aValue);
    if (f < aValue) f = static_cast<float>(aValue * (aValue < 0 ? kToward : kAway));
    return f;
}

void Put16(char* p, uint32_t aValue) {
    p[0] = static_cast<char>((aValue >> 8) & 0xFF);
    p[1] = static_cast<char>(aValue & 0xFF);
}

void Put64(char* p, uint64_t aValue) {
    for (int i = 7; i >= 0; --i, aValue >>= 8) p[i] = static_cast<char>(aValue & 0xFF);
}

void PutFloat(char* p, float aValue) {
    uint32_t bits = 0;
    std::memcpy(&bits, &aValue, sizeof bits);
    for (int i = 3; i >= 0; --i, bits >>= 8) p[i] = static_cast<char>(bits & 0xFF);
}

TscRTreeBox Merge(const TscRTreeBox& a, const TscRTreeBox& b) {
    return {std::min(a.MinX, b.MinX), std::max(a.MaxX, b.MaxX), std::min(a.MinY, b.MinY), std::max(a.MaxY, b.MaxY)};
}

// Centres compared in doubles: a sum of two floats near their limit stays finite.
double CentreX(const TscRTreeBox& b) { return (static_cast<double>(b.MinX) + b.MaxX) / 2; }
double CentreY(const TscRTreeBox& b) { return (static_cast<double>(b.MinY) + b.MaxY) / 2; }

// Orders one level's items for packing: sorted by x, cut in vertical slices of whole nodes, each
// slice sorted by y.
template <class T, class BoxOf>
void TileOrder(std::vector<T>& aItems, size_t aPerNode, BoxOf aBox) {
    const size_t nodes = (aItems.size() + aPerNode - 1) / aPerNode;
    const auto slices = static_cast<size_t>(std::ceil(std::sqrt(static_cast<double>(nodes))));
    const size_t perSlice = std::max<size_t>(1, (nodes + slices - 1) / slices) * aPerNode;
    std::sort(aItems.begin(), aItems.end(), [&](const T& a, const T& b) { return CentreX(aBox(a)) < CentreX(aBox(b)); });
    for (size_t from = 0; from < aItems.size(); from += perSlice) {
        const auto last = aItems.begin() + static_cast<std::ptrdiff_t>(std::min(aItems.size(), from + perSlice));
        std::sort(aItems.begin() + static_cast<std::ptrdiff_t>(from), last,
                  [&](const T& a, const T& b) { return CentreY(aBox(a)) < CentreY(aBox(b)); });
    }
}

struct TNode {
    TscRTreeBox Box;
    size_t First = 0, Count = 0;  // its cells: a run of the level below (entries for a leaf)
    int64_t Number = 0;
};

}  // namespace

TscRTreeBox RTreeBoxOf(double aMinX, double aMaxX, double aMinY, double aMaxY) {
    return {Down(aMinX), Up(aMaxX), Down(aMinY), Up(aMaxY)};
}

void PackRTree(std::vector<TscRTreeEntry>& aEntries, size_t aNodeSize, const TscRTreeSink& aSink) {
    const size_t perNode = aNodeSize >= kHeaderBytes ? (aNodeSize - kHeaderBytes) / kCellBytes : 0;
    if (perNode < 2) throw Exception("R*Tree: узел размером " + std::to_string(aNodeSize) + " байт не вмещает двух записей");
    std::string blob(aNodeSize, '\0');
    auto cell = [&](size_t aIndex, int64_t aId, const TscRTreeBox& aBox) {
        char* p = blob.data() + kHeaderBytes + aIndex * kCellBytes;
        Put64(p, static_cast<uint64_t>(aId));
        PutFloat(p + 8, aBox.MinX);
        PutFloat(p + 12, aBox.MaxX);
        PutFloat(p + 16, aBox.MinY);
        PutFloat(p + 20, aBox.MaxY);
    };
    if (aEntries.empty()) {
        aSink.Node(1, blob);
        return;
    }

    // Levels from the leaves up; each node's cells are a run of the level below, once that level
    // is in tile order.
    TileOrder(aEntries, perNode, [](const TscRTreeEntry& e) -> const TscRTreeBox& { return e.Box; });
    std::vector<std::vector<TNode>> levels(1);
    for (size_t from = 0; from < aEntries.size(); from += perNode) {
        TNode n{aEntries[from].Box, from, std::min(perNode, aEntries.size() - from), 0};
        for (size_t i = from + 1; i < from + n.Count; ++i) n.Box = Merge(n.Box, aEntries[i].Box);
        levels.back().push_back(n);
    }
    while (levels.back().size() > 1) {
        std::vector<TNode>& below = levels.back();
        TileOrder(below, perNode, [](const TNode& n) -> const TscRTreeBox& { return n.Box; });
        std::vector<TNode> above;
        for (size_t from = 0; from < below.size(); from += perNode) {
            TNode n{below[from].Box, from, std::min(perNode, below.size() - from), 0};
            for (size_t i = from + 1; i < from + n.Count; ++i) n.Box = Merge(n.Box, below[i].Box);
            above.push_back(n);
        }
        levels.push_back(std::move(above));
    }

    // The root is node 1; the others are numbered from the top level down.
    int64_t next = 1;
    for (size_t l = levels.size(); l-- > 0;)
        for (TNode& n : levels[l]) n.Number = next++;
    const size_t depth = levels.size() - 1;
    for (size_t l = levels.size(); l-- > 0;) {
        for (const TNode& n : levels[l]) {
            std::fill(blob.begin(), blob.end(), '\0');
            if (l == depth) Put16(blob.data(), static_cast<uint32_t>(depth));
            Put16(blob.data() + 2, static_cast<uint32_t>(n.Count));
            for (size_t i = 0; i < n.Count; ++i) {
                if (l == 0) {
                    const TscRTreeEntry& e = aEntries[n.First + i];
                    cell(i, e.Id, e.Box);
                } else {
                    const TNode& child = levels[l - 1][n.First + i];
                    cell(i, child.Number, child.Box);
                }
            }
            aSink.Node(n.Number, blob);
            if (l > 0)
                for (size_t i = 0; i < n.Count; ++i) aSink.Parent(levels[l - 1][n.First + i].Number, n.Number);
        }
    }

    // The entries' nodes, in ascending id so that the table takes them in order.
    std::vector<std::pair<int64_t, int64_t>> owners;
    owners.reserve(aEntries.size());
    for (const TNode& leaf : levels.front())
        for (size_t i = 0; i < leaf.Count; ++i) owners.emplace_back(aEntries[leaf.First + i].Id, leaf.Number);
    std::sort(owners.begin(), owners.end());
    for (const auto& [id, node] : owners) aSink.Entry(id, node);
}

}  // namespace tmi
