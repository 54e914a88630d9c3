// Small containers of the base library: the size accumulator of full_size and an
// unordered pointer list without duplicates.
#pragma once

#include "memory.hpp"

namespace vorx {

// Adds up the bytes owned by a structure.  Each block is counted once, however many
// owners report it: addSize answers false for a block already counted, so an owner that
// walks into its parts can stop at a part counted before (shared sub-trees are then
// walked once, not once per path to them).  The blocks seen are kept in an open-addressed
// hash table, so each report costs O(1).
class SizeAccumulator {
  public:
    SizeAccumulator() = default;
    ~SizeAccumulator();
    SizeAccumulator(const SizeAccumulator&) = delete;
    SizeAccumulator& operator=(const SizeAccumulator&) = delete;

    // True when `p` is new (and its size was added); a null `p` always adds its size.
    bool addSize(const void* p, unsigned size, const char* file = nullptr, int line = 0);
    unsigned long size() const { return total_; }
    int blocks() const { return n_; }

  private:
    bool insert(const void* p);
    unsigned long total_ = 0;
    const void** seen_ = nullptr;  // hash table of cap_ slots (a power of two), null = empty
    int n_ = 0;
    int cap_ = 0;
};

// An unordered list of untyped pointers without duplicates: add ignores a pointer that is
// already present.  Null is never added.
class VOID_LIST {
  public:
    VOID_LIST() = default;
    ~VOID_LIST();
    VOID_LIST(const VOID_LIST&) = delete;
    VOID_LIST& operator=(const VOID_LIST&) = delete;

    // Index of the pointer in the list (new or existing), -1 for null.
    int add(void* p);
    int lookup(const void* p) const;
    int remove(const void* p);  // index it had, or -1
    int count() const { return n_; }
    void* operator[](int i) const { return (i >= 0 && i < n_) ? items_[i] : nullptr; }
    void clear() { n_ = 0; }

    // Iteration in the style of the kernel's lists: init() then next() until null.
    void init() const { cursor_ = 0; }
    void* next() const { return cursor_ < n_ ? items_[cursor_++] : nullptr; }

  private:
    void** items_ = nullptr;
    int n_ = 0;
    int cap_ = 0;
    mutable int cursor_ = 0;
};

}  // namespace vorx
