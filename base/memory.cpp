#include "base/memory.hpp"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <mutex>

namespace vorx {

namespace {

// Every block starts with this header, so discard knows the size and tag without a
// lookup table.  Sixteen bytes keep the payload aligned for any scalar type.
struct alignas(16) block_header {
    std::uint32_t size;
    std::int32_t tag;
    std::uint32_t magic;
    std::uint32_t pad;
};
constexpr std::uint32_t live_magic = 0x5a1e0b1cu;
constexpr std::uint32_t dead_magic = 0xdeadb10cu;

constexpr int max_tags = 1024;
constexpr int tag_name_len = 48;

struct tag_slot {
    char name[tag_name_len];
    std::atomic<long> live_count{0};
    std::atomic<long> live_bytes{0};
    std::atomic<long> total_count{0};
};

tag_slot tags[max_tags];
std::atomic<int> tag_count{0};
std::atomic<long> all_live_count{0};
std::atomic<long> all_live_bytes{0};

std::mutex& registry_mutex() {
    static std::mutex m;
    return m;
}

// "/path/to/law_util.cpp" -> "law_util"
void base_name(const char* file, char* out) {
    if (!file) file = "unknown";
    const char* b = std::strrchr(file, '/');
    b = b ? b + 1 : file;
    std::size_t n = std::strcspn(b, ".");
    if (n >= (std::size_t)tag_name_len) n = tag_name_len - 1;
    std::memcpy(out, b, n);
    out[n] = '\0';
}

int find_or_add_tag(const char* file) {
    char name[tag_name_len];
    base_name(file, name);
    std::lock_guard<std::mutex> lock(registry_mutex());
    int n = tag_count.load(std::memory_order_relaxed);
    for (int i = 1; i <= n; ++i)
        if (std::strcmp(tags[i].name, name) == 0) return i;
    if (n + 1 >= max_tags) return 0;  // slot 0 collects the overflow
    ++n;
    std::strcpy(tags[n].name, name);
    tag_count.store(n, std::memory_order_release);
    return n;
}

// Call sites pass string literals, so the file pointer identifies the tag; a small
// per-thread cache avoids the registry lock on repeated allocations.
int tag_for(const char* file) {
    struct entry {
        const char* file;
        int tag;
    };
    thread_local entry cache[64] = {};
    std::size_t h = (reinterpret_cast<std::uintptr_t>(file) >> 3) & 63;
    if (cache[h].file == file && cache[h].tag) return cache[h].tag;
    int t = find_or_add_tag(file);
    cache[h] = {file, t};
    return t;
}

}  // namespace

void* vorx_allocate(unsigned size, VorxMemType, VorxMemCall, const char* file, int, int* tag) {
    int t = (tag && *tag > 0) ? *tag : tag_for(file);
    if (tag) *tag = t;
    void* raw = std::malloc(sizeof(block_header) + (size ? size : 1));
    if (!raw) throw std::bad_alloc();
    block_header* h = static_cast<block_header*>(raw);
    h->size = size;
    h->tag = t;
    h->magic = live_magic;
    h->pad = 0;
    tags[t].live_count.fetch_add(1, std::memory_order_relaxed);
    tags[t].live_bytes.fetch_add(size, std::memory_order_relaxed);
    tags[t].total_count.fetch_add(1, std::memory_order_relaxed);
    all_live_count.fetch_add(1, std::memory_order_relaxed);
    all_live_bytes.fetch_add(size, std::memory_order_relaxed);
    return h + 1;
}

void vorx_discard(void* p, VorxMemCall, unsigned) {
    if (!p) return;
    block_header* h = static_cast<block_header*>(p) - 1;
    if (h->magic != live_magic) std::abort();  // double free or foreign pointer
    h->magic = dead_magic;
    int t = h->tag;
    tags[t].live_count.fetch_sub(1, std::memory_order_relaxed);
    tags[t].live_bytes.fetch_sub(h->size, std::memory_order_relaxed);
    all_live_count.fetch_sub(1, std::memory_order_relaxed);
    all_live_bytes.fetch_sub(h->size, std::memory_order_relaxed);
    std::free(h);
}

void* vorx_allocate_array(size_t size, size_t count, const char* file, int line) {
    if (size && count > 0xffffffffu / size) throw std::bad_alloc();
    return vorx_allocate((unsigned)(size * count), eDefault, eVorxAlloc, file, line, nullptr);
}

char* vorx_strdup(const char* s, const char* file, int line) {
    if (!s) s = "";
    std::size_t n = std::strlen(s) + 1;
    char* r =
        static_cast<char*>(vorx_allocate((unsigned)n, eDefault, eVorxAlloc, file, line, nullptr));
    std::memcpy(r, s, n);
    return r;
}

long vorx_live_allocations() {
    return all_live_count.load(std::memory_order_relaxed);
}
long vorx_live_bytes() {
    return all_live_bytes.load(std::memory_order_relaxed);
}

int vorx_mem_tag_count() {
    return tag_count.load(std::memory_order_acquire);
}

vorx_mem_tag_stats vorx_mem_tag(int index) {
    if (index < 1 || index > vorx_mem_tag_count()) return {"", 0, 0, 0};
    const tag_slot& s = tags[index];
    return {s.name, s.live_count.load(std::memory_order_relaxed),
            s.live_bytes.load(std::memory_order_relaxed),
            s.total_count.load(std::memory_order_relaxed)};
}

long vorx_live_allocations(const char* tag) {
    int n = vorx_mem_tag_count();
    for (int i = 1; i <= n; ++i)
        if (tag && std::strcmp(tags[i].name, tag) == 0)
            return tags[i].live_count.load(std::memory_order_relaxed);
    return 0;
}

void* VORX_OBJECT::operator new(std::size_t size) {
    return vorx_allocate((unsigned)size, eDefault, eVorxNew, "VORX_OBJECT", 0, nullptr);
}
void* VORX_OBJECT::operator new(std::size_t size, VorxMemType type, const char* file, int line,
                                int* tag) {
    return vorx_allocate((unsigned)size, type, eVorxNew, file, line, tag);
}
void VORX_OBJECT::operator delete(void* p) {
    vorx_discard(p, eVorxNew, 0);
}
void VORX_OBJECT::operator delete(void* p, VorxMemType, const char*, int, int*) {
    vorx_discard(p, eVorxNew, 0);
}
void* VORX_OBJECT::operator new[](std::size_t size) {
    return vorx_allocate((unsigned)size, eDefault, eVorxNewArray, "VORX_OBJECT", 0, nullptr);
}
void* VORX_OBJECT::operator new[](std::size_t size, VorxMemType type, const char* file, int line,
                                  int* tag) {
    return vorx_allocate((unsigned)size, type, eVorxNewArray, file, line, tag);
}
void VORX_OBJECT::operator delete[](void* p) {
    vorx_discard(p, eVorxNewArray, 0);
}
void VORX_OBJECT::operator delete[](void* p, VorxMemType, const char*, int, int*) {
    vorx_discard(p, eVorxNewArray, 0);
}

}  // namespace vorx
