#include "hashed_strings.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "utf8.h"
#include "xml_errors.h"

namespace tmi::xml {

namespace {

constexpr uint32_t kPrimes[] = {
    53u,        97u,        193u,       389u,        769u,        1543u,       3079u,
    6151u,      12289u,     24593u,     49157u,      98317u,      196613u,     393241u,
    786433u,    1572869u,   3145739u,   6291469u,    12582917u,   25165843u,   50331653u,
    100663319u, 201326611u, 402653189u, 805306457u,  1610612741u, 3221225473u, 4294967291u};

constexpr uint32_t kFnvOffset = 0x811C9DC5u;
constexpr uint32_t kFnvPrime = 16777619u;
constexpr size_t kBlockSize = 256 * 1024;

}  // namespace

TOHashedStrings::TOHashedStrings(bool aCaseSensitive) : fCaseSensitive(aCaseSensitive) {
    Rehash(kPrimes[0]);
}

TOHashedStrings::~TOHashedStrings() = default;

uint32_t TOHashedStrings::NextPrime(uint64_t aAtLeast) {
    for (uint32_t p : kPrimes)
        if (p > aAtLeast) return p;
    return kPrimes[std::size(kPrimes) - 1];
}

// Over the UTF-8 bytes the layer holds, eight at a time, each word mixed by a multiply; over
// the folded text, byte by byte (32-bit FNV-1a), when the list ignores case. The lowest bit
// is always set: 0 marks an appended string.
uint32_t TOHashedStrings::Hash(std::string_view aText) const noexcept {
    if (!fCaseSensitive) return HashFolded(aText);
    constexpr uint64_t kMix = 0xFF51AFD7ED558CCDull;
    const char* p = aText.data();
    const size_t n = aText.size();
    uint64_t h = 0x9E3779B97F4A7C15ull ^ n;
    const auto mix = [&h](uint64_t w) {
        h = (h ^ w) * kMix;
        h ^= h >> 32;
    };
    const auto load = [](const char* at, auto word) {
        std::memcpy(&word, at, sizeof word);
        return static_cast<uint64_t>(word);
    };
    if (n >= 8) {
        // Whole words, then the last eight bytes (overlapping the words before them).
        for (size_t i = 0; i + 8 < n; i += 8) mix(load(p + i, uint64_t{}));
        mix(load(p + n - 8, uint64_t{}));
    } else if (n >= 4) {
        mix(load(p, uint32_t{}) | load(p + n - 4, uint32_t{}) << 32);
    } else if (n > 0) {
        mix(static_cast<unsigned char>(p[0]) | uint64_t{static_cast<unsigned char>(p[n / 2])} << 8 |
            uint64_t{static_cast<unsigned char>(p[n - 1])} << 16);
    }
    h *= kMix;
    return static_cast<uint32_t>(h ^ (h >> 29)) | 1u;
}

uint32_t TOHashedStrings::HashFolded(std::string_view aText) noexcept {
    uint32_t h = kFnvOffset;
    // The bytes of FoldCase(aText), folded on the way rather than into a copy.
    for (size_t i = 0; i < aText.size();) {
        const unsigned char c = static_cast<unsigned char>(aText[i]);
        if (c < 0x80) {
            h = (h ^ ((c >= 'A' && c <= 'Z') ? c + 32u : c)) * kFnvPrime;
            ++i;
            continue;
        }
        size_t len = 0;
        const uint32_t cp = utf8::Decode(aText.data() + i, aText.size() - i, &len);
        if (cp == utf8::kInvalid) {
            h = (h ^ c) * kFnvPrime;
            ++i;
            continue;
        }
        char bytes[4];
        for (size_t k = 0, n = utf8::Encode(utf8::FoldChar(cp), bytes); k < n; ++k)
            h = (h ^ static_cast<unsigned char>(bytes[k])) * kFnvPrime;
        i += len;
    }
    return h | 1u;
}

bool TOHashedStrings::Same(const Entry& aEntry, std::string_view aText) const noexcept {
    if (fCaseSensitive)
        return aEntry.fLength == aText.size() &&
               (aText.empty() || std::memcmp(aEntry.fText, aText.data(), aText.size()) == 0);
    return SameTextIgnoreCase({aEntry.fText, aEntry.fLength}, aText);
}

uint32_t TOHashedStrings::Slot(uint32_t aHash) const noexcept {
    // Remainder by the prime through a precomputed reciprocal (exact for 32-bit operands).
    const uint64_t low = fModMagic * aHash;
    return static_cast<uint32_t>((static_cast<unsigned __int128>(low) * fBucketCount) >> 64);
}

void TOHashedStrings::Rehash(uint32_t aBucketCount) {
    fBucketCount = aBucketCount;
    fModMagic = UINT64_MAX / aBucketCount + 1;
    fCapacity = static_cast<uint32_t>(static_cast<uint64_t>(aBucketCount) * 2 / 3);
    std::vector<uint32_t> buckets(aBucketCount, 0);
    fBuckets.swap(buckets);
    buckets.clear();
    buckets.shrink_to_fit();
    for (size_t id = 0; id < fItems.size(); ++id) {
        if (fItems[id].fHash == 0) continue;  // appended: never looked up
        uint32_t s = Slot(fItems[id].fHash);
        while (fBuckets[s] != 0) s = (s + 1 == fBucketCount) ? 0 : s + 1;
        fBuckets[s] = static_cast<uint32_t>(id + 1);
    }
}

const char* TOHashedStrings::Store(std::string_view aText) {
    if (aText.size() > fBlockLeft) {
        const size_t size = std::max(kBlockSize, aText.size());
        fBlockPos = static_cast<char*>(fBlocks.Take(size));
        fBlockLeft = size;
        fBlockBytes += size;
    }
    char* p = fBlockPos;
    if (!aText.empty()) std::memcpy(p, aText.data(), aText.size());
    fBlockPos += aText.size();
    fBlockLeft -= aText.size();
    return p;
}

int32_t TOHashedStrings::Find(std::string_view aText) const {
    const uint32_t h = Hash(aText);
    uint32_t s = Slot(h);
    for (;;) {
        const uint32_t v = fBuckets[s];
        if (v == 0) return -1;
        const Entry& e = fItems[v - 1];
        if (e.fHash == h && Same(e, aText) && !(fHasDeleted && fDeleted[v - 1])) return static_cast<int32_t>(v - 1);
        s = (s + 1 == fBucketCount) ? 0 : s + 1;
    }
}

int32_t TOHashedStrings::IndexOf(std::string_view aText) {
    if (fHasDeleted) Compact();
    return Find(aText);
}

int32_t TOHashedStrings::Add(std::string_view aText) {
    const uint32_t h = Hash(aText);
    uint32_t s = Slot(h);
    for (;;) {
        const uint32_t v = fBuckets[s];
        if (v == 0) break;
        const Entry& e = fItems[v - 1];
        if (e.fHash == h && Same(e, aText) && !(fHasDeleted && fDeleted[v - 1])) return static_cast<int32_t>(v - 1);
        s = (s + 1 == fBucketCount) ? 0 : s + 1;
    }
    if (fItems.size() >= INT32_MAX - 1) throw EOXmlException("TOHashedStrings: too many strings.");
    const uint32_t id = static_cast<uint32_t>(fItems.size());
    fItems.push_back(Entry{Store(aText), static_cast<uint32_t>(aText.size()), h});
    if (fHasDeleted) fDeleted.push_back(false);
    if (++fListed >= fCapacity && fBucketCount < kPrimes[std::size(kPrimes) - 1]) {
        Rehash(NextPrime(fBucketCount));
    } else {
        fBuckets[s] = id + 1;
    }
    return static_cast<int32_t>(id);
}

int32_t TOHashedStrings::Append(std::string_view aText) {
    if (fItems.size() >= INT32_MAX - 1) throw EOXmlException("TOHashedStrings: too many strings.");
    const auto id = static_cast<int32_t>(fItems.size());
    fItems.push_back(Entry{Store(aText), static_cast<uint32_t>(aText.size()), 0});
    if (fHasDeleted) fDeleted.push_back(false);
    fHasUnlisted = true;
    return id;
}

std::string_view TOHashedStrings::GetItem(int32_t aId) const {
    if (aId < 0 || aId >= Count()) throw EListError();
    return At(aId);
}

void TOHashedStrings::SetCaseSensitive(bool aValue) {
    if (aValue == fCaseSensitive) return;
    if (!fItems.empty()) throw EOXmlException("TOHashedStrings: cannot set CaseSensitive to a non-empty list.");
    fCaseSensitive = aValue;
}

void TOHashedStrings::Clear() {
    fItems.clear();
    fItems.shrink_to_fit();
    fBlocks.Release();
    fBlockPos = nullptr;
    fBlockLeft = 0;
    fBlockBytes = 0;
    fDeleted.clear();
    fHasDeleted = false;
    fDeleting = 0;
    fListed = 0;
    fHasUnlisted = false;
    Rehash(kPrimes[0]);
}

void TOHashedStrings::BeginDelete() { ++fDeleting; }

void TOHashedStrings::Delete(int32_t aId) {
    if (aId < 0 || aId >= Count()) throw EListError();
    if (!fHasDeleted) {
        fDeleted.assign(fItems.size(), false);
        fHasDeleted = true;
    }
    // Marked only: the ids shift at EndDelete, or when IndexOf needs them settled.
    fDeleted[static_cast<size_t>(aId)] = true;
}

void TOHashedStrings::EndDelete() {
    if (fDeleting > 0) --fDeleting;
    if (fDeleting == 0 && fHasDeleted) Compact();
}

void TOHashedStrings::Compact() {
    std::vector<Entry> kept;
    kept.reserve(fItems.size());
    fListed = 0;
    for (size_t i = 0; i < fItems.size(); ++i)
        if (!fDeleted[i]) {
            kept.push_back(fItems[i]);
            if (fItems[i].fHash != 0) ++fListed;
        }
    fItems.swap(kept);
    fDeleted.clear();
    fHasDeleted = false;
    fDeleting = 0;
    Rehash(fBucketCount);
}

size_t TOHashedStrings::MemoryUsed() const noexcept {
    return fBlockBytes + fItems.capacity() * sizeof(Entry) + fBuckets.capacity() * sizeof(uint32_t);
}

namespace utf8 {

uint32_t FoldCharTable(uint32_t cp) noexcept {
    struct Run {
        uint32_t fFirst, fLast, fStep;
        int32_t fDelta;
    };
    static constexpr Run kRuns[] = {
#include "case_folding.inc"
    };
    const Run* run = std::upper_bound(std::begin(kRuns), std::end(kRuns), cp, [](uint32_t c, const Run& r) { return c < r.fFirst; });
    if (run == std::begin(kRuns)) return cp;
    --run;
    if (cp > run->fLast || (cp - run->fFirst) % run->fStep != 0) return cp;
    return static_cast<uint32_t>(static_cast<int64_t>(cp) + run->fDelta);
}

}  // namespace utf8

std::string FoldCase(std::string_view aText) {
    std::string out;
    out.reserve(aText.size());
    size_t i = 0;
    while (i < aText.size()) {
        const unsigned char c = static_cast<unsigned char>(aText[i]);
        if (c < 0x80) {
            out.push_back((c >= 'A' && c <= 'Z') ? static_cast<char>(c + 32) : static_cast<char>(c));
            ++i;
            continue;
        }
        size_t len = 0;
        const uint32_t cp = utf8::Decode(aText.data() + i, aText.size() - i, &len);
        if (cp == utf8::kInvalid) {
            out.push_back(static_cast<char>(c));
            ++i;
            continue;
        }
        utf8::Append(out, utf8::FoldChar(cp));
        i += len;
    }
    return out;
}

namespace {

// The next character from position aPos, folded; a byte that starts no character stands for
// itself, above the range of characters so that it equals no character.
uint32_t NextFolded(std::string_view aText, size_t& aPos) noexcept {
    const unsigned char c = static_cast<unsigned char>(aText[aPos]);
    if (c < 0x80) {
        ++aPos;
        return (c >= 'A' && c <= 'Z') ? c + 32u : c;
    }
    size_t len = 0;
    const uint32_t cp = utf8::Decode(aText.data() + aPos, aText.size() - aPos, &len);
    if (cp == utf8::kInvalid) {
        ++aPos;
        return 0x110000u + c;
    }
    aPos += len;
    return utf8::FoldChar(cp);
}

}  // namespace

bool SameTextIgnoreCase(std::string_view a, std::string_view b) {
    if (a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), a.size()) == 0)) return true;
    size_t i = 0, j = 0;
    while (i < a.size() && j < b.size())
        if (NextFolded(a, i) != NextFolded(b, j)) return false;
    return i == a.size() && j == b.size();
}

}  // namespace tmi::xml
