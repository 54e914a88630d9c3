// Printed output of the kernel.
//
// vorx_printf writes to the kernel's standard output (stdout unless the host redirects it)
// and debug_file_ptr names the debug stream.  A host or a test can capture everything the
// kernel prints on the calling thread with an output_capture; captures are per thread, so
// concurrent work on other threads is not mixed in.
#pragma once

#include <cstdarg>
#include <cstdio>

namespace vorx {

// The debug stream (stdout unless the host sets it).
extern FILE* debug_file_ptr;

int vorx_printf(const char* format, ...) __attribute__((format(printf, 1, 2)));
int vorx_fprintf(FILE* stream, const char* format, ...) __attribute__((format(printf, 2, 3)));
int vorx_vfprintf(FILE* stream, const char* format, va_list args);

// Host-wide redirection of the kernel's standard output: every vorx_printf goes to `sink`
// instead of stdout (null restores stdout).  The debug stream is redirected by assigning
// debug_file_ptr.
typedef void (*vorx_output_sink)(const char* text, void* user);
void set_vorx_output_sink(vorx_output_sink sink, void* user);

// While alive, collects everything this thread prints through vorx_printf and
// vorx_fprintf (to any stream) instead of writing it.  Captures nest.
class output_capture {
  public:
    output_capture();
    ~output_capture();
    output_capture(const output_capture&) = delete;
    output_capture& operator=(const output_capture&) = delete;
    const char* text() const { return text_ ? text_ : ""; }
    void clear();

    void append(const char* s, unsigned n);  // used by the printers

  private:
    char* text_;
    unsigned size_;
    unsigned cap_;
    output_capture* outer_;
};

}  // namespace vorx
