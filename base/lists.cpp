#include "base/lists.hpp"

#include <cstdint>
#include <cstring>

namespace vorx {

namespace {
template <class T>
void grow(T*& items, int n, int& cap) {
    int c = cap ? cap * 2 : 16;
    T* fresh = VORX_ALLOC_ARRAY(T, c);
    if (items) std::memcpy(fresh, items, sizeof(T) * n);
    VORX_FREE(items);
    items = fresh;
    cap = c;
}
}  // namespace

SizeAccumulator::~SizeAccumulator() {
    VORX_FREE(seen_);
}

bool SizeAccumulator::insert(const void* p) {
    if (2 * (n_ + 1) > cap_) {
        // Rehash into twice the slots, keeping the table at most half full.
        int old_cap = cap_;
        const void** old = seen_;
        cap_ = cap_ ? 2 * cap_ : 64;
        seen_ = VORX_ALLOC_ARRAY(const void*, cap_);
        for (int i = 0; i < cap_; ++i) seen_[i] = nullptr;
        n_ = 0;
        for (int i = 0; i < old_cap; ++i)
            if (old[i]) insert(old[i]);
        VORX_FREE(old);
    }
    unsigned long mask = (unsigned long)cap_ - 1;
    // Fibonacci hashing of the address; objects are aligned, so the low bits say little.
    unsigned long h = ((unsigned long)(uintptr_t)p * 11400714819323198485ull) >> 17;
    for (unsigned long i = h & mask;; i = (i + 1) & mask) {
        if (seen_[i] == p) return false;
        if (!seen_[i]) {
            seen_[i] = p;
            ++n_;
            return true;
        }
    }
}

bool SizeAccumulator::addSize(const void* p, unsigned size, const char*, int) {
    if (p && !insert(p)) return false;
    total_ += size;
    return true;
}

VOID_LIST::~VOID_LIST() {
    VORX_FREE(items_);
}

int VOID_LIST::lookup(const void* p) const {
    for (int i = 0; i < n_; ++i)
        if (items_[i] == p) return i;
    return -1;
}

int VOID_LIST::add(void* p) {
    if (!p) return -1;
    int i = lookup(p);
    if (i >= 0) return i;
    if (n_ == cap_) grow(items_, n_, cap_);
    items_[n_] = p;
    return n_++;
}

int VOID_LIST::remove(const void* p) {
    int i = lookup(p);
    if (i < 0) return -1;
    std::memmove(items_ + i, items_ + i + 1, sizeof(void*) * (n_ - i - 1));
    --n_;
    return i;
}

}  // namespace vorx
