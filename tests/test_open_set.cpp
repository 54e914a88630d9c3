// Open sets of intervals: a table of operations with the list expected after each.
#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "lawutil/open_set.hpp"
#include "test_support.hpp"

namespace {

using spans = std::vector<std::pair<double, double>>;

spans list_of(const Open_set& s) {
    spans r;
    for (Open_interval* p = s.first(); p; p = p->next) r.push_back({p->start, p->end});
    return r;
}

struct set_step {
    char op;  // 'a' add, 'r' remove
    double lo, hi;
    spans expected;
};

// One set over [0, 10]; root_x_tol is 1e-14.
// clang-format off
const set_step steps[] = {
    {'a', 2, 3, {{2, 3}}},
    {'a', 5, 4, {{2, 3}, {4, 5}}},                  // ends swapped
    {'a', 3 + 5e-15, 3.5, {{2, 3.5}, {4, 5}}},      // fused within root_x_tol
    {'a', 3.4, 4.2, {{2, 5}}},                      // bridges two
    {'a', 7, 7, {{2, 5}, {7, 7}}},                  // a one-point interval
    {'a', -3, 1, {{0, 1}, {2, 5}, {7, 7}}},         // clipped to the range
    {'a', 11, 12, {{0, 1}, {2, 5}, {7, 7}}},        // outside: ignored
    {'r', 3, 4, {{0, 1}, {2, 3}, {4, 5}, {7, 7}}},  // inside one: split
    {'r', 0.5, 4.5, {{0, 0.5}, {4.5, 5}, {7, 7}}},  // cuts two, drops one between
    {'r', 6, 8, {{0, 0.5}, {4.5, 5}}}, {'a', 0, 10, {{0, 10}}},
};
// clang-format on

TEST(OpenSet, OperationsKeepTheListSortedDisjointAndFused) {
    set_root_tol_default();
    Open_set s(0, 10);
    EXPECT_FALSE(s.is_full());
    for (const auto& st : steps) {
        if (st.op == 'a')
            s.add(st.lo, st.hi);
        else
            s.remove(st.lo, st.hi);
        EXPECT_EQ(list_of(s), st.expected) << st.op << " " << st.lo << " " << st.hi;
    }
    EXPECT_TRUE(s.is_full());
    EXPECT_EQ(s.hole(), 0.0);
    EXPECT_EQ(s.hole_size(), 0.0);
}

TEST(OpenSet, QueriesLookAtTheFirstGapAndTheWidest) {
    set_root_tol_default();
    Open_set s(0, 10);
    s.add(2, 3);
    s.add(4, 5);
    s.add(7, 7);
    EXPECT_EQ(s.parts(), 3);
    EXPECT_EQ(s.hole(), 3.5);  // the first gap, not the widest
    EXPECT_EQ(s.hole_size(), 1.0);
    double size;
    EXPECT_EQ(s.largest_hole(size), 6.0);
    EXPECT_EQ(size, 2.0);
    EXPECT_EQ(s.in(3.5), nullptr);
    EXPECT_EQ(s.in(4.0), s.after(3.5));
    EXPECT_EQ(s.before(6)->start, 4.0);
    EXPECT_EQ(s.before(1), nullptr);
    EXPECT_EQ(s.after(8), nullptr);
    double* mid = s.mid_points();
    EXPECT_EQ(spans({{mid[0], mid[1]}, {mid[2], 0}}), spans({{2.5, 4.5}, {7, 0}}));
    VORX_FREE(mid);
    Open_set empty(0, 1);
    mid = empty.mid_points();  // an array even when empty
    EXPECT_NE(mid, nullptr);
    VORX_FREE(mid);
    // Full to within root_x_tol at both ends.
    empty.add(1e-15, 1 - 1e-15);
    EXPECT_TRUE(empty.is_full());
}

TEST(OpenSet, PeriodicSetsWrapAroundTheSeam) {
    set_root_tol_default();
    Open_set s(0, 10, 1);
    s.add(8, 12);  // 12 is 2 on the circle: [8, 10] and [0, 2]
    EXPECT_EQ(list_of(s), spans({{0, 2}, {8, 10}}));
    s.remove(9, 11);  // [9, 10] and [0, 1]
    EXPECT_EQ(list_of(s), spans({{1, 2}, {8, 9}}));
    // The gap across the seam, (6 - 0) + (10 - 7) = 9, is centred at 7 + 4.5 = 11.5,
    // brought back to 1.5.
    double size;
    Open_set t(0, 10, 1);
    t.add(6, 7);
    EXPECT_DOUBLE_EQ(t.largest_hole(size), 1.5);
    EXPECT_EQ(size, 9.0);
}

}  // namespace
