// Zeros in the plane: a battery of systems with known zeros searched by both forms of
// Nroot2D, then the rules of start points, the set, the rectangle, the tree, bad input.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "test_support.hpp"

namespace {

const double r2 = std::sqrt(0.5), e = std::sqrt(0.8), t = std::sqrt(1 - 0.9999 * 0.9999);
const char* const circle_line = "SQRT((X^2+Y^2-1)^2+(X-Y)^2)";

struct system_case {
    const char* magnitude;  // SQRT(F1^2+F2^2)
    const char* reach;      // magnitude / (a bound of |J| over the rectangle)
    rec2d R;
    std::vector<complex_number> zeros;
    int unpruned_found;  // zeros the unpruned quadtree (depth 4) finds
};

const system_case battery[] = {
    {circle_line, "SQRT((X^2+Y^2-1)^2+(X-Y)^2)/6", {-2, -2, 2, 2}, {{r2, r2}, {-r2, -r2}}, 2},
    {"SQRT((X^2/4+Y^2-1)^2+(X^2+Y^2/4-1)^2)",
     "SQRT((X^2/4+Y^2-1)^2+(X^2+Y^2/4-1)^2)/5",
     {-2, -2, 2, 2},
     {{e, e}, {-e, e}, {e, -e}, {-e, -e}},
     4},
    {"SQRT(SIN(PI*X)^2+SIN(PI*Y)^2)",
     "SQRT(SIN(PI*X)^2+SIN(PI*Y)^2)/4.5",
     {-0.4, -0.4, 2.4, 1.4},
     {{0, 0}, {1, 0}, {2, 0}, {0, 1}, {1, 1}, {2, 1}},
     6},
    {"SQRT((SIN(X)-COS(Y))^2+(X-Y)^2)",
     "SQRT((SIN(X)-COS(Y))^2+(X-Y)^2)/2.5",
     {-3, -3, 3, 3},
     {{M_PI / 4, M_PI / 4}, {-3 * M_PI / 4, -3 * M_PI / 4}},
     2},
    {"SQRT((10*(Y-X^2))^2+(1-X)^2)",
     "SQRT((10*(Y-X^2))^2+(1-X)^2)/45",
     {-2, -1, 2, 3},
     {{1, 1}},
     1},
    {"SQRT((X+2*Y-1)^2+(3*X-Y-2)^2)",
     "SQRT((X+2*Y-1)^2+(3*X-Y-2)^2)/3.7",
     {-1, -1, 1, 1},
     {{5.0 / 7, 1.0 / 7}},
     1},
    {"SQRT((X^2+Y^2-1)^2+(Y-0.9999)^2)",
     "SQRT((X^2+Y^2-1)^2+(Y-0.9999)^2)/3",
     {-1.5, -1.5, 1.5, 1.5},
     {{t, 0.9999}, {-t, 0.9999}},
     2},
    // 0.02 apart: closer than the cells of the unpruned tree.
    {"SQRT((X^2-1E-4)^2+Y^2)",
     "SQRT((X^2-1E-4)^2+Y^2)/2",
     {-1, -1, 1, 1},
     {{0.01, 0}, {-0.01, 0}},
     1},
    {"SQRT((X^2+Y^2-1)^2+(X^2+Y^2-4)^2)",
     "SQRT((X^2+Y^2-1)^2+(X^2+Y^2-4)^2)/20",
     {-3, -3, 3, 3},
     {},
     0},
};

// Known zeros hit exactly once; -1 when a point is no known zero.
int found_once(const system_case& c, const complex_number* z, int n) {
    std::vector<int> hits(c.zeros.size(), 0);
    for (int i = 0; i < n; ++i) {
        int k = 0;
        while (k < (int)c.zeros.size() && (z[i] - c.zeros[k]).abs() >= 1e-6) ++k;
        if (k == (int)c.zeros.size()) return -1;
        ++hits[k];
    }
    int once = 0;
    for (int h : hits) once += h == 1;
    return once;
}

}  // namespace

// From a grid of 81 start points, from the quadtree pruned by the reach law, and from the
// unpruned quadtree: every zero once, none spurious, evaluations bounded.
TEST(Root2D, Battery) {
    for (const system_case& c : battery) {
        law_holder f(VORX_NEW counted_law(c.magnitude)), g(str_to_law(c.reach));
        auto* counter = static_cast<counted_law*>(f.get());
        std::vector<complex_number> starts;
        for (int i = 0; i <= 8; ++i)
            for (int j = 0; j <= 8; ++j)
                starts.push_back({c.R.low_x() + (c.R.high_x() - c.R.low_x()) * i / 8,
                                  c.R.low_y() + (c.R.high_y() - c.R.low_y()) * j / 8});
        for (int form = 0; form < 3; ++form) {
            SCOPED_TRACE(std::string(c.magnitude) + " form " + std::to_string(form));
            counter->calls = 0;
            int n = -1;
            complex_number* z =
                form == 0
                    ? Nroot2D(f.get(), nullptr, c.R, &n, starts.data(), 81, nullptr)
                    : Nroot2D(f.get(), form == 1 ? g.get() : nullptr, nullptr, c.R, &n, nullptr, 0);
            EXPECT_EQ(found_once(c, z, n), form == 2 ? c.unpruned_found : (int)c.zeros.size());
            VORX_FREE(z);
            // Cells (at most 21845) or starts, each within the bound plus one iteration.
            EXPECT_LE(counter->calls, 21845L * (law_context().root.root_max_evaluations + 6));
        }
    }
}

TEST(Root2D, StartPointRules) {
    law_holder f(str_to_law(circle_line)), line(str_to_law("SQRT((X-1)^2+Y^2)"));
    law_holder stop(str_to_law("(X^2+Y^2-1)^2+(X-Y)^2"));
    struct {
        law* f;
        rec2d R;
        complex_number start;
        law* stop;
        int n;
    } rows[] = {
        {f.get(), rec2d(1, 1, 0, 0), {0.9, 0.2}, nullptr, 1},        // corners in either order
        {f.get(), rec2d(0, 0, 0.5, 0.5), {0.45, 0.45}, nullptr, 0},  // converges outside R
        {line.get(), rec2d({0, 0}, {1, 1}), {1, 0}, nullptr, 1},     // a zero on R's corner
        {f.get(), rec2d(0, 0, 1, 1), {0.9, 0.2}, stop.get(), 1},     // the stop law decides
        {f.get(), rec2d(), {0.9, 0.2}, nullptr, 0},  // the empty rectangle holds nothing
    };
    for (auto& r : rows) {
        int n = -1;
        complex_number* z = Nroot2D(r.f, nullptr, r.R, &n, &r.start, 1, r.stop);
        EXPECT_EQ(n, r.n);
        for (int i = 0; i < n; ++i) EXPECT_LT((r.stop ? r.stop : r.f)->evaluateC_R(z[i]), 1e-7);
        VORX_FREE(z);
    }
    int n = -1;
    complex_number* none = Nroot2D(f.get(), nullptr, rec2d(0, 0, 1, 1), &n, nullptr, 0, nullptr);
    EXPECT_TRUE(n == 0 && none != nullptr);
    VORX_FREE(none);
}

TEST(Root2D, SetMergesNearPointsWithoutHump) {
    law_holder f(str_to_law("SQRT((X^2-1E-4)^2+Y^2)"));  // zeros at (+-0.01, 0)
    Root_2D_set set;
    EXPECT_EQ(set.add(f.get(), {0.01, 0}, 1e-9, 1e-14), 1);
    EXPECT_EQ(set.add(f.get(), {0.01 + 5e-7, 0}, 1e-11, 1e-14), 0);  // within resabs: kept better
    EXPECT_EQ(set.head()->value, 1e-11);
    EXPECT_EQ(set.add(f.get(), {0.01, 5e-5}, 1e-9, 1e-14), 1);  // f rises between them
    EXPECT_EQ(set.add(f.get(), {-0.01, 0}, 0, 0), 1);
    EXPECT_EQ(set.size(), 3);
}

TEST(Root2D, RectangleAndQuadTree) {
    rec2d R(complex_number(2, 3), complex_number(-2, 0));
    EXPECT_TRUE(R.down_left() == complex_number(-2, 0) && R.up_right() == complex_number(2, 3));
    EXPECT_TRUE(R.center() == complex_number(0, 1.5) && R.diagonal() == 5);
    EXPECT_TRUE(R.inside(R.up_left()) && R.inside(R.down_right()) && !R.inside({2.0000001, 1}));
    EXPECT_TRUE(rec2d().empty() && !rec2d().inside({0, 0}) && rec2d().diagonal() == 0);

    // Unpruned, the tree is complete to depth 4; the reach law prunes most of depth 7.
    law_holder f(str_to_law(circle_line)), g(str_to_law("SQRT((X^2+Y^2-1)^2+(X-Y)^2)/6"));
    for (law* reach : {(law*)nullptr, g.get()}) {
        Root_2D_set set;
        Quad_tree root(rec2d(-2, -2, 2, 2));
        root.fill(f.get(), nullptr);
        EXPECT_EQ(root.state(), Quad_tree::found);  // the centre descends to a zero
        EXPECT_EQ(root.mins(f.get(), &set), 1);
        root.divide(f.get(), nullptr, reach, &set);
        EXPECT_GE(set.size(), 2);
        if (reach)
            EXPECT_LT(root.count(), 21845 / 8);
        else
            EXPECT_EQ(root.count(), 1 + 4 + 16 + 64 + 256);
    }

    // A reach law that puts every zero out of reach leaves the start points alone.
    law_holder far(VORX_NEW constant_law(1e9));
    complex_number start(0.9, 0.2);
    int n = -1;
    complex_number* z = Nroot2D(f.get(), far.get(), nullptr, rec2d(-2, -2, 2, 2), &n, &start, 1);
    EXPECT_TRUE(n == 1 && (z[0] - complex_number(r2, r2)).abs() < 1e-6);
    VORX_FREE(z);
}

TEST(Root2D, BadInputAndDomainErrors) {
    law_holder f(str_to_law(circle_line)), three(str_to_law("X+Y+Z")), vec(str_to_law("VEC(X,Y)"));
    law_holder ln(str_to_law("SQRT(LN(X)^2+Y^2)")), right(str_to_law("X"));
    rec2d R(-2, -2, 2, 2);
    auto quad = [](law* m, law* g, law* adm, rec2d r) {
        return [=] {
            int n;
            VORX_FREE(Nroot2D(m, g, adm, r, &n, nullptr, 0));
        };
    };
    auto starts = [](law* m, law* stop, rec2d r, complex_number s) {
        return [=]() mutable {
            int n;
            VORX_FREE(Nroot2D(m, nullptr, r, &n, &s, 1, stop));
        };
    };
    struct {
        std::function<void()> call;
        const char* code;
    } rows[] = {
        {quad(nullptr, nullptr, nullptr, R), "LAW_DIM"},
        {quad(three.get(), nullptr, nullptr, R), "LAW_DIM"},
        {quad(f.get(), vec.get(), nullptr, R), "LAW_DIM"},
        {starts(f.get(), vec.get(), R, {0.5, 0.5}), "LAW_DIM"},
        {quad(f.get(), nullptr, three.get(), rec2d(0, 0, INFINITY, 1)), "LAW_DIM"},
        {quad(f.get(), nullptr, nullptr, rec2d(NAN, 0, INFINITY, 1)), "LAW_BAD_BOUNDS"},
        {starts(f.get(), nullptr, R, {NAN, 0}), "LAW_BAD_BOUNDS"},
        {quad(f.get(), nullptr, nullptr, rec2d()), ""},
        // LN raises left of the Y axis; an admissible X > 0 keeps every search out.
        {quad(ln.get(), nullptr, nullptr, R), "LAW_LN"},
        {quad(ln.get(), nullptr, right.get(), R), ""},
    };
    for (auto& r : rows) {
        law_context().root.root_f_tol = 1e-3;
        EXPECT_EQ(error_of(r.call), r.code);
    }
    // The quadtree form restored the defaults before it raised.
    EXPECT_EQ(law_context().root.root_f_tol, 1e-7);
    set_root_tol_default();
}
