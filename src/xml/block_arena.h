// Memory for the arenas of a large document.
//
// A document of hundreds of megabytes fills its node pages and string blocks once, front to
// back, and frees them all together. Taken from malloc, every 4 KB of that costs a page fault
// of its own. The arena carves blocks from mappings aligned to 2 MB and marked for transparent
// huge pages, so that where the kernel allows it, filling them costs one fault per 2 MB. It
// starts on malloc, so that a small document never maps more than it uses.
//
// An arena that populates ahead keeps the next mapping ready: while the document fills one
// region, a helper thread has the kernel fault in and clear the next, so that the clearing of
// a large document's memory runs beside the parse rather than in it.
#pragma once

#include <cstddef>
#include <thread>
#include <vector>

namespace tmi::xml {

class TBlockArena {
public:
    // Blocks are taken from malloc until aMallocBytes have been handed out, then from mappings
    // of aRegionBytes (rounded up to 2 MB).
    explicit TBlockArena(size_t aMallocBytes = size_t(1) << 20, size_t aRegionBytes = size_t(16) << 20,
                         bool aPopulateAhead = false);
    ~TBlockArena();
    TBlockArena(const TBlockArena&) = delete;
    TBlockArena& operator=(const TBlockArena&) = delete;

    // A block of aBytes, aligned to 64 bytes, valid until Release; raises std::bad_alloc.
    void* Take(size_t aBytes);
    // Gives back every block.
    void Release() noexcept;
    // Bytes handed out since the last Release.
    [[nodiscard]] size_t BytesTaken() const noexcept { return fTaken; }

private:
    void UseNextRegion(size_t aBytes);
    void JoinPopulator() noexcept;

    struct Region {
        void* fBase;
        size_t fLength;
        bool fMapped;
    };
    std::vector<Region> fRegions;
    char* fPos = nullptr;
    size_t fLeft = 0;
    size_t fTaken = 0;
    size_t fMallocBytes;
    size_t fRegionBytes;
    bool fPopulateAhead;
    void* fSpare = nullptr;  // the next region, mapped and being populated
    std::thread fPopulator;
};

}  // namespace tmi::xml
