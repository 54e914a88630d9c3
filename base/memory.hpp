// Tracked memory of the kernel's base library.
//
// Every allocation of the kernel goes through vorx_allocate, tagged with the source
// file and line of the call.  Live counts and bytes are kept per source tag (the file's
// base name without extension, e.g. "law_util"), so tests and hosts can see leaks by
// file.  Counters are relaxed atomics: separate threads allocate concurrently.
#pragma once

#include <cstddef>
#include <new>

namespace vorx {

enum VorxMemType { eDefault = 0, eSession, eDocument, eTemporary };
enum VorxMemCall { eVorxAlloc = 0, eVorxNew, eVorxNewArray };

// `tag` may be null.  When given, it caches the tag number of the call site between
// calls (0 = not yet looked up), which saves the file-name lookup.
void* vorx_allocate(unsigned size, VorxMemType type, VorxMemCall call, const char* file, int line,
                    int* tag);
// `size` is advisory: the block remembers its own size.  Null is ignored.
void vorx_discard(void* p, VorxMemCall call, unsigned size);

// An array of `count` elements of `size` bytes; a byte count beyond what one block can
// hold throws std::bad_alloc instead of wrapping around.
void* vorx_allocate_array(size_t size, size_t count, const char* file, int line);

// Copy of a C string in tracked memory (the caller frees it with vorx_discard).
char* vorx_strdup(const char* s, const char* file, int line);

// Whole-process accounting.
long vorx_live_allocations();
long vorx_live_bytes();

// Per-tag accounting.  Tags are numbered 1..vorx_mem_tag_count().
struct vorx_mem_tag_stats {
    const char* tag;   // file base name, e.g. "law_util"
    long live_count;   // blocks allocated and not yet discarded
    long live_bytes;   // bytes in those blocks (requested sizes)
    long total_count;  // blocks ever allocated under this tag
};
int vorx_mem_tag_count();
vorx_mem_tag_stats vorx_mem_tag(int index);
// Live blocks of one tag (0 when the tag was never seen).
long vorx_live_allocations(const char* tag);

#define VORX_ALLOC(size)                                                                    \
    ::vorx::vorx_allocate((unsigned)(size), ::vorx::eDefault, ::vorx::eVorxAlloc, __FILE__, \
                          __LINE__, nullptr)
#define VORX_ALLOC_ARRAY(T, n) \
    static_cast<T*>(::vorx::vorx_allocate_array(sizeof(T), (size_t)(n), __FILE__, __LINE__))
#define VORX_FREE(p) ::vorx::vorx_discard((p), ::vorx::eVorxAlloc, 0)
#define VORX_STRDUP(s) ::vorx::vorx_strdup((s), __FILE__, __LINE__)

// Base of every class whose objects live in tracked memory.  `VORX_NEW T(args)` tags the
// object with the file and line of the construction; a plain `new` is tracked under the
// tag "VORX_OBJECT".
class VORX_OBJECT {
  public:
    static void* operator new(std::size_t size);
    static void* operator new(std::size_t size, VorxMemType type, const char* file, int line,
                              int* tag);
    static void operator delete(void* p);
    static void operator delete(void* p, VorxMemType type, const char* file, int line, int* tag);
    static void* operator new[](std::size_t size);
    static void* operator new[](std::size_t size, VorxMemType type, const char* file, int line,
                                int* tag);
    static void operator delete[](void* p);
    static void operator delete[](void* p, VorxMemType type, const char* file, int line, int* tag);
};

#define VORX_NEW new (::vorx::eDefault, __FILE__, __LINE__, nullptr)

// Standard-library allocator over tracked memory, for the containers the kernel keeps.
template <class T>
struct vorx_std_allocator {
    using value_type = T;
    vorx_std_allocator() noexcept = default;
    template <class U>
    vorx_std_allocator(const vorx_std_allocator<U>&) noexcept {}
    T* allocate(std::size_t n) {
        return static_cast<T*>(::vorx::vorx_allocate_array(sizeof(T), n, "vorx_container", 0));
    }
    void deallocate(T* p, std::size_t) noexcept { vorx_discard(p, eVorxAlloc, 0); }
    template <class U>
    bool operator==(const vorx_std_allocator<U>&) const noexcept {
        return true;
    }
    template <class U>
    bool operator!=(const vorx_std_allocator<U>&) const noexcept {
        return false;
    }
};

}  // namespace vorx
