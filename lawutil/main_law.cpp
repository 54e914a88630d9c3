#include "lawutil/main_law.hpp"

#include <ctime>

#include "base/output.hpp"

using namespace vorx;

namespace lawutil {

namespace {

// The options are made on first use as well as at load, so a law built while the library
// is still loading already finds them.
option_header& law_mem_check_option() {
    static option_header o("law_mem_check", 0);
    return o;
}
option_header& fast_euler_option() {
    static option_header o("fast_euler", 1);
    return o;
}
option_header& min_rot_samples_option() {
    static option_header o("min_rot_samples", 1000);
    return o;
}
[[maybe_unused]] const option_header* declared_at_load[] = {
    &law_mem_check_option(), &fast_euler_option(), &min_rot_samples_option()};

thread_local int start_count = 0;

}  // namespace

thread_local lawutil_thread_ctx* lawutil_thread_ctx_ptr = nullptr;

bool law_mem_check_on() {
    return law_mem_check_option().on();
}

lawutil_thread_ctx::lawutil_thread_ctx() = default;
lawutil_thread_ctx::~lawutil_thread_ctx() = default;

void lawutil_thread_ctx::debug_dump(FILE* fp) const {
    vorx_fprintf(fp, "compile %d\n", compile.count);
    vorx_fprintf(fp, "law %d\n", law.count);
    vorx_fprintf(fp, "law_util %d\n", law_util.count);
    vorx_fprintf(fp, "maple %d\n", maple.count);
    vorx_fprintf(fp, "root %d\n", root.count);
    vorx_fprintf(fp, "Total for lawutil_thread_ctx %d\n", total);
}

lawutil_thread_ctx& law_context() {
    if (lawutil_thread_ctx_ptr) return *lawutil_thread_ctx_ptr;
    // Not started on this thread: a private context keeps evaluation working.  It holds
    // no tracked memory.
    thread_local lawutil_thread_ctx fallback;
    return fallback;
}

int initialize_law() {
    if (start_count++ == 0) lawutil_thread_ctx_ptr = VORX_NEW lawutil_thread_ctx;
    return 1;
}

int terminate_law() {
    if (start_count == 0) return 0;
    if (--start_count == 0) {
        delete lawutil_thread_ctx_ptr;
        lawutil_thread_ctx_ptr = nullptr;
    }
    return 1;
}

void law_start_time() {
    law_context().law_util.start_time = (double)std::clock();
}
void law_end_time() {
    law_context().law_util.end_time = (double)std::clock();
}
double law_get_time() {
    const lawutil_thread_ctx& c = law_context();
    return (c.law_util.end_time - c.law_util.start_time) / 1000.0;
}

}  // namespace lawutil
