// TOHashedStrings: the dictionary that holds every name and value of a document once.
// An id is an index into a dense array, so GetItem is one array access.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "block_arena.h"

namespace tmi::xml {

class TOHashedStrings {
public:
    explicit TOHashedStrings(bool aCaseSensitive = true);
    ~TOHashedStrings();
    TOHashedStrings(const TOHashedStrings&) = delete;
    TOHashedStrings& operator=(const TOHashedStrings&) = delete;

    // Id of the string, adding it when absent.
    int32_t Add(std::string_view aText);
    // A new id for a string that is never looked up (a value read once): stored without
    // hashing, and never found by Add, Find or IndexOf.
    int32_t Append(std::string_view aText);
    // True once Append has stored a string since the last Clear: then a value's id says
    // nothing about its text, and values are compared by text.
    [[nodiscard]] bool HasUnlisted() const noexcept { return fHasUnlisted; }
    // Id of the string or -1 when absent; compacts pending deletions first.
    int32_t IndexOf(std::string_view aText);
    // Lookup without the pending-deletion pass, for readers of a document.
    [[nodiscard]] int32_t Find(std::string_view aText) const;
    // Raises EListError outside 0..Count-1.
    [[nodiscard]] std::string_view GetItem(int32_t aId) const;
    // Unchecked access for ids known to be valid.
    [[nodiscard]] std::string_view At(int32_t aId) const noexcept {
        const Entry& e = fItems[static_cast<size_t>(aId)];
        return {e.fText, e.fLength};
    }
    [[nodiscard]] int32_t Count() const noexcept { return static_cast<int32_t>(fItems.size()); }

    [[nodiscard]] bool CaseSensitive() const noexcept { return fCaseSensitive; }
    // Raises on a non-empty list.
    void SetCaseSensitive(bool aValue);

    void Clear();

    // Deletion: ids are marked, and the list is compacted (ids above shift down) at EndDelete
    // or at the next IndexOf, never at Delete itself.
    void BeginDelete();
    void Delete(int32_t aId);
    void EndDelete();

    [[nodiscard]] uint32_t BucketCount() const noexcept { return fBucketCount; }
    [[nodiscard]] size_t MemoryUsed() const noexcept;

    // The next bucket count of the prime table above aAtLeast.
    static uint32_t NextPrime(uint64_t aAtLeast);

private:
    struct Entry {
        const char* fText;
        uint32_t fLength;
        uint32_t fHash;  // never 0 for a string in the lookup table; 0 for an appended one
    };

    [[nodiscard]] uint32_t Hash(std::string_view aText) const noexcept;
    [[nodiscard]] static uint32_t HashFolded(std::string_view aText) noexcept;
    [[nodiscard]] bool Same(const Entry& aEntry, std::string_view aText) const noexcept;
    [[nodiscard]] uint32_t Slot(uint32_t aHash) const noexcept;
    const char* Store(std::string_view aText);
    void Rehash(uint32_t aBucketCount);
    void Compact();

    bool fCaseSensitive;
    std::vector<Entry> fItems;
    // Open addressing: a bucket holds id + 1, 0 when empty.
    std::vector<uint32_t> fBuckets;
    uint32_t fBucketCount = 0;
    uint64_t fModMagic = 0;
    uint32_t fCapacity = 0;
    uint32_t fListed = 0;  // strings in the lookup table
    bool fHasUnlisted = false;
    // Text storage in blocks that never move.
    TBlockArena fBlocks;
    char* fBlockPos = nullptr;
    size_t fBlockLeft = 0;
    size_t fBlockBytes = 0;
    int fDeleting = 0;
    std::vector<bool> fDeleted;
    bool fHasDeleted = false;
};

// Case folding used by case-insensitive comparisons: the simple case folding of Unicode
// (one character to one character), so Latin, Cyrillic, Greek and the rest fold alike.
std::string FoldCase(std::string_view aText);
bool SameTextIgnoreCase(std::string_view a, std::string_view b);

}  // namespace tmi::xml
