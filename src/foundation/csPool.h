// A pool of fixed-size blocks for objects made in great numbers (coordinates). Blocks come
// from chunks that are kept for reuse, so building and freeing thousands of objects costs
// no heap call and touches warm memory. Thread-safe; chunks live as long as the process.
#pragma once

#include <cstddef>
#include <mutex>
#include <new>
#include <vector>

namespace tmi {

class TcsBlockPool {
public:
    explicit TcsBlockPool(size_t aBlockSize) : fBlockSize(RoundUp(aBlockSize)) {}
    TcsBlockPool(const TcsBlockPool&) = delete;
    TcsBlockPool& operator=(const TcsBlockPool&) = delete;

    void* Allocate(size_t aSize) {
        if (RoundUp(aSize) != fBlockSize) return ::operator new(aSize);  // a derived class
        std::lock_guard<std::mutex> lock(fLock);
        if (!fFree) Grow();
        Node* n = fFree;
        fFree = n->fNext;
        return n;
    }

    void Free(void* aBlock, size_t aSize) noexcept {
        if (!aBlock) return;
        if (RoundUp(aSize) != fBlockSize) {
            ::operator delete(aBlock);
            return;
        }
        std::lock_guard<std::mutex> lock(fLock);
        Node* n = static_cast<Node*>(aBlock);
        n->fNext = fFree;
        fFree = n;
    }

private:
    struct Node {
        Node* fNext;
    };
    static constexpr size_t kChunkBytes = 256 * 1024;
    static size_t RoundUp(size_t n) { return (n + alignof(std::max_align_t) - 1) / alignof(std::max_align_t) * alignof(std::max_align_t); }

    void Grow() {
        const size_t count = kChunkBytes / fBlockSize;
        char* chunk = static_cast<char*>(::operator new(count * fBlockSize));
        fChunks.push_back(chunk);
        for (size_t i = count; i-- > 0;) {
            Node* n = reinterpret_cast<Node*>(chunk + i * fBlockSize);
            n->fNext = fFree;
            fFree = n;
        }
    }

    size_t fBlockSize;
    std::mutex fLock;
    Node* fFree = nullptr;
    std::vector<char*> fChunks;  // kept for the life of the process
};

// Class-specific allocation through a pool of the class's own size.
#define TCS_POOLED(Class)                                                                  \
public:                                                                                    \
    static ::tmi::TcsBlockPool& Pool() {                                                   \
        static ::tmi::TcsBlockPool& pool = *new ::tmi::TcsBlockPool(sizeof(Class));        \
        return pool;                                                                       \
    }                                                                                      \
    static void* operator new(std::size_t aSize) { return Pool().Allocate(aSize); }       \
    static void operator delete(void* aBlock, std::size_t aSize) noexcept { Pool().Free(aBlock, aSize); }

}  // namespace tmi
