// The base library's services: tracked memory, errors and message modules, options and
// output redirection.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <type_traits>

#include "base/errors.hpp"
#include "base/memory.hpp"
#include "base/options.hpp"
#include "base/output.hpp"
#include "lawutil/global_names.hpp"
#include "lawutil/main_law_err.hpp"

TEST(Memory, LiveCountsArePerSourceTag) {
    long before = vorx_live_allocations("test_base_services");
    long bytes = vorx_live_bytes();
    void* p = VORX_ALLOC(100);
    char* s = VORX_STRDUP("law");
    EXPECT_EQ(vorx_live_allocations("test_base_services"), before + 2);
    EXPECT_EQ(vorx_live_bytes(), bytes + 104);
    EXPECT_STREQ(s, "law");
    VORX_FREE(p);
    VORX_FREE(s);
    VORX_FREE(nullptr);
    EXPECT_EQ(vorx_live_allocations("test_base_services"), before);
    EXPECT_EQ(vorx_live_allocations("never_seen"), 0);
}

TEST(Messages, LawModuleHoldsTheWholeTableInOrder) {
    EXPECT_EQ(lawutil_main_law_errmod.count(), 93);
    EXPECT_STREQ(lawutil_main_law_errmod.name(), "lawutil");
    struct {
        int index;
        int code;
        const char* name;
        const char* text;
    } rows[] = {
        {0, LAW_EVAL, "LAW_EVAL", "Law class does not have an evaluate function"},
        {25, LAW_SYNTAX, "LAW_SYNTAX", "Bad syntax"},
        {31, LAW_NO_SAVE, "LAW_NO_SAVE", "Law may not be saved untill the next version"},
        {34, LAW_BAD_DOMAN, "LAW_BAD_DOMAN", "The law function has an incorrect domain"},
        {44, LAW_TAN, "LAW_TAN", "Out of the domain of the tan x!=pi*(n+.5)"},
        {57, LAW_LHOSPITAL, "LAW_LHOSPITAL", "Division of zero by zero that cannot be resolved"},
        {73, BAD_SPIRAL_START, "BAD_SPIRAL_START",
         "The start of the spiral is specified on the normal axis, use a zero start radius to "
         "accomplish"},
        {81, BAD_SINGULARITIES, "BAD_SINGULARITIES", "The singularites on the law are bad"},
        {85, BAD_LAW_USE_COUNT, "BAD_LAW_USE_COUNT",
         "The law destructor was called with a non-zero use count."},
        {92, LAW_VEC_NUM, "LAW_VEC_NUM", "Wrong number of arguments in vectrans law"},
    };
    for (auto& r : rows) {
        EXPECT_EQ(r.code, lawutil_main_law_errmod.message_code(r.index));
        EXPECT_STREQ(find_message(r.code), r.text) << r.name;
        EXPECT_STREQ(find_message_name(r.code), r.name);
    }
    // Every entry has its own global number, and they are consecutive.
    for (int i = 1; i < 93; ++i)
        EXPECT_EQ(lawutil_main_law_errmod.message_code(i),
                  lawutil_main_law_errmod.message_code(i - 1) + 1);
}

TEST(Messages, ModulesGetDisjointRangesAndBadIndicesStayClear) {
    int base0 = baseutil_errorbase_errmod.message_code(0);
    int law0 = lawutil_main_law_errmod.message_code(0);
    EXPECT_NE(base0, law0);
    EXPECT_EQ(find_message_module(law0), &lawutil_main_law_errmod);
    // Out-of-range indices map to the base library's "bad index" code, not a crash.
    EXPECT_EQ(lawutil_main_law_errmod.message_code(93), VORX_BAD_MESSAGE_INDEX);
    EXPECT_EQ(lawutil_main_law_errmod.message_code(-1), VORX_BAD_MESSAGE_INDEX);
    EXPECT_STREQ(find_message(VORX_BAD_MESSAGE_INDEX), "Message index out of range");
    EXPECT_STREQ(find_message(-5), "Unknown error");
    EXPECT_STREQ(find_message_name(-5), "UNKNOWN_ERROR");
}

// The info travels with the exception and is released with its last copy (the allocation
// listener would catch a leak).
TEST(Errors, SysErrorThrowsWithCodeTextAndInfo) {
    static_assert(std::is_base_of<std::exception, vorx_exception>::value, "");
    error_info* info = VORX_NEW error_info;
    try {
        sys_error(LAW_SQRT, info);
        FAIL();
    } catch (const vorx_exception& e) {
        EXPECT_EQ(e.code(), LAW_SQRT);
        EXPECT_STREQ(e.what(), "Out of the domain of the sqrt x>0");
        EXPECT_STREQ(e.code_name(), "LAW_SQRT");
        EXPECT_EQ(e.info(), info);
        vorx_exception copy = e;
        EXPECT_EQ(info->ref_count(), 2);
    }
}

TEST(Errors, WarningsAndMarks) {
    clear_warnings();
    sys_warning(LAW_TEST);
    EXPECT_EQ(warning_count(), 1);
    EXPECT_EQ(warning_code(0), LAW_TEST);
    clear_warnings();
    int depth = get_error_mark().depth;
    try {
        exception_save save;
        error_begin();
        error_begin();
        sys_error(LAW_EVAL);
    } catch (const vorx_exception&) {
    }
    EXPECT_EQ(get_error_mark().depth, depth);
    EXPECT_FALSE(vorx_interrupted());
}

TEST(Options, FoundByNameAndRestoredByGuard) {
    const struct {
        const char* name;
        int count;  // the default
    } rows[] = {{"law_mem_check", 0}, {"fast_euler", 1}, {"min_rot_samples", 1000}};
    for (const auto& r : rows) {
        ASSERT_NE(find_option(r.name), nullptr) << r.name;
        EXPECT_EQ(find_option(r.name)->count(), r.count) << r.name;
    }
    option_header* o = find_option("law_mem_check");
    {
        option_guard g("law_mem_check", 1);
        EXPECT_EQ(o->count(), 1);
    }
    EXPECT_EQ(o->count(), 0);
    EXPECT_EQ(find_option("no_such_option"), nullptr);
    EXPECT_EQ(find_option(nullptr), nullptr);
}

TEST(Output, CaptureCollectsPrintsOfThisThread) {
    output_capture outer;
    vorx_printf("a%d", 1);
    {
        output_capture inner;
        vorx_fprintf(debug_file_ptr, "b%s", "2");
        std::string big(2000, 'x');
        vorx_printf("%s", big.c_str());
        EXPECT_EQ(std::strlen(inner.text()), 2002u);
    }
    vorx_printf("c");
    EXPECT_STREQ(outer.text(), "a1c");
}
