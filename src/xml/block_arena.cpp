#include "block_arena.h"

#include <sys/mman.h>

#include <cstdint>
#include <cstdlib>
#include <new>

namespace tmi::xml {

namespace {

constexpr size_t kHugePage = size_t(2) << 20;
constexpr size_t kAlign = 64;
#ifdef MADV_POPULATE_WRITE
constexpr bool kCanPopulate = true;
#else
constexpr bool kCanPopulate = false;
#endif

size_t RoundUp(size_t aValue, size_t aUnit) { return (aValue + aUnit - 1) / aUnit * aUnit; }

// A mapping of aLength bytes (a multiple of 2 MB) that starts on a 2 MB boundary: map 2 MB
// more than asked and cut off what lies before and after the boundary.
void* MapAligned(size_t aLength) {
    const size_t padded = aLength + kHugePage;
    void* raw = mmap(nullptr, padded, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (raw == MAP_FAILED) return nullptr;
    const auto start = reinterpret_cast<uintptr_t>(raw);
    const uintptr_t aligned = RoundUp(start, kHugePage);
    if (aligned > start) munmap(raw, aligned - start);
    const uintptr_t end = aligned + aLength;
    if (start + padded > end) munmap(reinterpret_cast<void*>(end), start + padded - end);
    void* base = reinterpret_cast<void*>(aligned);
#ifdef MADV_HUGEPAGE
    madvise(base, aLength, MADV_HUGEPAGE);  // a refusal only costs the smaller pages
#endif
    return base;
}

}  // namespace

TBlockArena::TBlockArena(size_t aMallocBytes, size_t aRegionBytes, bool aPopulateAhead)
    : fMallocBytes(aMallocBytes),
      fRegionBytes(RoundUp(aRegionBytes < kHugePage ? kHugePage : aRegionBytes, kHugePage)),
      fPopulateAhead(kCanPopulate && aPopulateAhead) {}

TBlockArena::~TBlockArena() { Release(); }

void* TBlockArena::Take(size_t aBytes) {
    const size_t bytes = RoundUp(aBytes ? aBytes : 1, kAlign);
    if (fTaken + bytes <= fMallocBytes) {
        // Small documents stay on the heap, one allocation per block.
        void* block = std::aligned_alloc(kAlign, bytes);
        if (!block) throw std::bad_alloc();
        try {
            fRegions.push_back(Region{block, bytes, false});
        } catch (...) {
            std::free(block);
            throw;
        }
        fTaken += bytes;
        return block;
    }
    if (bytes > fLeft) UseNextRegion(bytes);
    char* block = fPos;
    fPos += bytes;
    fLeft -= bytes;
    fTaken += bytes;
    return block;
}

void TBlockArena::UseNextRegion(size_t aBytes) {
    fRegions.reserve(fRegions.size() + 2);
    void* base = nullptr;
    size_t length = fRegionBytes;
    if (aBytes > fRegionBytes) {
        length = RoundUp(aBytes, kHugePage);  // a block larger than a region has its own
        base = MapAligned(length);
    } else if (fSpare) {
        JoinPopulator();  // it has long finished, unless the parse outran it
        base = fSpare;
        fSpare = nullptr;
    } else {
        base = MapAligned(length);
    }
    if (!base) throw std::bad_alloc();
    fRegions.push_back(Region{base, length, true});
    fPos = static_cast<char*>(base);
    fLeft = length;
    if (!fPopulateAhead || fSpare) return;
#ifdef MADV_POPULATE_WRITE
    // The next region, made ready beside the parse. Without it, or without a thread, the
    // regions are simply faulted in as they are filled.
    fSpare = MapAligned(fRegionBytes);
    if (!fSpare) return;
    try {
        fPopulator = std::thread([spare = fSpare, length = fRegionBytes] { madvise(spare, length, MADV_POPULATE_WRITE); });
    } catch (...) {
    }
#endif
}

void TBlockArena::JoinPopulator() noexcept {
    if (fPopulator.joinable()) fPopulator.join();
}

void TBlockArena::Release() noexcept {
    JoinPopulator();
    if (fSpare) munmap(fSpare, fRegionBytes);
    fSpare = nullptr;
    for (const Region& r : fRegions) {
        if (r.fMapped)
            munmap(r.fBase, r.fLength);
        else
            std::free(r.fBase);
    }
    fRegions.clear();
    fRegions.shrink_to_fit();
    fPos = nullptr;
    fLeft = 0;
    fTaken = 0;
}

}  // namespace tmi::xml
