#include "base/lists.hpp"

#include <cstring>

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

void SizeAccumulator::addSize(const void* p, unsigned size, const char*, int) {
    if (p) {
        for (int i = 0; i < n_; ++i)
            if (seen_[i] == p) return;
        if (n_ == cap_) grow(seen_, n_, cap_);
        seen_[n_++] = p;
    }
    total_ += size;
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
