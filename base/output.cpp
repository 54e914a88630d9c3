#include "base/output.hpp"

#include <atomic>
#include <cstring>

#include "base/memory.hpp"

namespace vorx {

FILE* debug_file_ptr = stdout;

namespace {
thread_local output_capture* current_capture = nullptr;
std::atomic<vorx_output_sink> output_sink{nullptr};
std::atomic<void*> output_sink_user{nullptr};
}  // namespace

void set_vorx_output_sink(vorx_output_sink sink, void* user) {
    output_sink_user.store(user);
    output_sink.store(sink);
}

output_capture::output_capture() : text_(nullptr), size_(0), cap_(0), outer_(current_capture) {
    current_capture = this;
}

output_capture::~output_capture() {
    current_capture = outer_;
    VORX_FREE(text_);
}

void output_capture::clear() {
    size_ = 0;
    if (text_) text_[0] = '\0';
}

void output_capture::append(const char* s, unsigned n) {
    if (size_ + n + 1 > cap_) {
        unsigned cap = cap_ ? cap_ : 256;
        while (cap < size_ + n + 1) cap *= 2;
        char* t = VORX_ALLOC_ARRAY(char, cap);
        if (text_) std::memcpy(t, text_, size_);
        VORX_FREE(text_);
        text_ = t;
        cap_ = cap;
    }
    std::memcpy(text_ + size_, s, n);
    size_ += n;
    text_[size_] = '\0';
}

int vorx_vfprintf(FILE* stream, const char* format, va_list args) {
    vorx_output_sink sink = output_sink.load();
    if (!current_capture && !(sink && stream == stdout)) return std::vfprintf(stream, format, args);
    char small[512];
    va_list copy;
    va_copy(copy, args);
    int n = std::vsnprintf(small, sizeof small, format, copy);
    va_end(copy);
    if (n < 0) return n;
    char* text = small;
    if ((unsigned)n >= sizeof small) {
        text = VORX_ALLOC_ARRAY(char, n + 1);
        std::vsnprintf(text, n + 1, format, args);
    }
    if (current_capture)
        current_capture->append(text, (unsigned)n);
    else
        sink(text, output_sink_user.load());
    if (text != small) VORX_FREE(text);
    return n;
}

int vorx_fprintf(FILE* stream, const char* format, ...) {
    va_list args;
    va_start(args, format);
    int n = vorx_vfprintf(stream, format, args);
    va_end(args);
    return n;
}

int vorx_printf(const char* format, ...) {
    va_list args;
    va_start(args, format);
    int n = vorx_vfprintf(stdout, format, args);
    va_end(args);
    return n;
}

}  // namespace vorx
