// Starting and stopping the library, its per-thread context, run-time options and timers.
//
// initialize_law/terminate_law are counted per thread: the first start on a thread makes
// that thread's lawutil_thread_ctx, the matching last stop destroys it.  Separate threads
// therefore work with separate contexts and never share working state.
#pragma once

#include <cstdio>

#include "base/context.hpp"
#include "base/options.hpp"
#include "lawutil/law_data.hpp"

namespace lawutil {

// Working state of the library on one thread.
class lawutil_thread_ctx : public vorx::context_callbacks {
  public:
    lawutil_thread_ctx();
    ~lawutil_thread_ctx() override;

    // "compile %d", "law %d", ... "Total for lawutil_thread_ctx %d", to `fp`.
    void debug_dump(FILE* fp) const override;

    struct compile_section {
        int count = 0;
    } compile;
    struct law_section {
        int count = 0;
        int lhospital_depth = 0;  // depth of the running zero-over-zero resolution
    } law;
    struct law_util_section {
        int count = 0;
        double start_time = 0.0;  // clock ticks
        double end_time = 0.0;
    } law_util;
    struct maple_section {
        int count = 0;
    } maple;
    struct root_section {
        int count = 0;
        derivs_data derivs[4];
        // Root-search tolerances, with the values a new context starts with.
        // set_root_tol_default (root.hpp) writes the same values except root_far_ratio,
        // which it sets to 0.1: the first search on a thread runs with 1.0, later ones
        // with 0.1, unless a caller sets it.
        int root_tol_flag = 0;        // set here, read by nobody
        double root_x_tol = 1e-14;    // "on a gap's end"; half-width marked around a bisected root
        double root_f_tol = 1e-7;     // |f| below it is a root
        double root_quad_tol = 1e-7;  // zero test of the quadratic model's coefficients
        double root_hole_fraction = 0.05;  // gaps narrower than this fraction are bisected
        double root_ratio = 0.1;           // restored, not read by the 1-D search
        double root_far_ratio = 1.0;       // critical point far enough from a gap end splits it
        int root_newton_iterations = 10;   // steps of one local quadratic iteration
        int root_bisect_iterations = 40;   // halvings of one bisection
        int root_count_a = 7;              // restored, not read by the 1-D search
        int root_max_evaluations = 10000;  // evaluation bound of Nmin2D / NminND
        double root_search_tol = 1e-4;     // x and f tolerance while probing
    } root;
    int total = 0;
};

// The calling thread's context; null while the library is not started on this thread.
extern thread_local lawutil_thread_ctx* lawutil_thread_ctx_ptr;

// The calling thread's context.  Evaluation on a thread that never started the library
// still works: it then uses a quiet per-thread fallback.
lawutil_thread_ctx& law_context();

int initialize_law();
int terminate_law();

void law_start_time();
void law_end_time();
double law_get_time();

// True when the "law_mem_check" option asks for the construction/release trace.
bool law_mem_check_on();

}  // namespace lawutil
