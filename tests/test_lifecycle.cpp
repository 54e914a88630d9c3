// Starting and stopping the library, its per-thread context and its diagnostic dump.
#include <gtest/gtest.h>

#include <cstring>
#include <ctime>
#include <thread>

#include "base/output.hpp"
#include "lawutil/global_names.hpp"
#include "lawutil/lawutil.hpp"

TEST(Lifecycle, StartsAndStopsAreCounted) {
    // The test program holds one start of its own.
    lawutil_thread_ctx* ctx = lawutil_thread_ctx_ptr;
    ASSERT_NE(ctx, nullptr);
    EXPECT_EQ(initialize_law(), 1);
    EXPECT_EQ(lawutil_thread_ctx_ptr, ctx);
    EXPECT_EQ(terminate_law(), 1);
    EXPECT_EQ(lawutil_thread_ctx_ptr, ctx);
    // A new context has the made root_far_ratio (earlier searches on this thread reset it).
    std::thread([] {
        initialize_law();
        EXPECT_EQ(lawutil_thread_ctx_ptr->root.root_far_ratio, 1.0);
        terminate_law();
    }).join();
}

TEST(Lifecycle, EachThreadHasItsOwnContext) {
    lawutil_thread_ctx* mine = lawutil_thread_ctx_ptr;
    lawutil_thread_ctx* theirs = nullptr;
    int stop_before_start = -1, stop_after = -1;
    bool fresh_after_restart = false;
    std::thread t([&] {
        stop_before_start = terminate_law();
        initialize_law();
        initialize_law();
        theirs = lawutil_thread_ctx_ptr;
        terminate_law();
        bool kept = lawutil_thread_ctx_ptr == theirs;
        stop_after = terminate_law();
        fresh_after_restart = kept && lawutil_thread_ctx_ptr == nullptr;
    });
    t.join();
    EXPECT_EQ(stop_before_start, 0);
    EXPECT_EQ(stop_after, 1);
    EXPECT_TRUE(fresh_after_restart);
    EXPECT_NE(theirs, mine);
    EXPECT_EQ(lawutil_thread_ctx_ptr, mine);
}

TEST(Lifecycle, DiagnosticDumpListsEverySection) {
    output_capture out;
    law_context().debug_dump(debug_file_ptr);
    EXPECT_STREQ(out.text(),
                 "compile 0\nlaw 0\nlaw_util 0\nmaple 0\nroot 0\nTotal for lawutil_thread_ctx 0\n");
}
