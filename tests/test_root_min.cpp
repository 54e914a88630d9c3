// Compass search and sampled minima: bowls and a valley, the admissible and stop laws,
// the evaluation bound, the reported step and bad input.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "test_support.hpp"

namespace {

struct bowl_case {
    const char* objective;
    const char* admissible;  // null: the whole plane
    double sx, sy, h;
    double mx, my, tol;  // expected minimum point and distance to it
    bool converges;      // false: the evaluation bound ends the search first
};

// clang-format off
const bowl_case bowls[] = {
    {"(X-1)^2+2*(Y+0.5)^2", nullptr, 0, 0, 0.1, 1, -0.5, 1e-7, true},
    {"(X+Y-1)^2+10*(X-Y)^2", nullptr, 3, -2, 1, 0.5, 0.5, 1e-6, true},
    {"(X-2)^2", nullptr, 0, 7, 0.5, 2, 7, 1e-7, true},
    {"ABS(X-0.25)+ABS(Y+0.75)", nullptr, 1, 1, 0.3, 0.25, -0.75, 1e-12, true},
    // Rosenbrock's curved valley: a compass search crawls along it.
    {"(1-X)^2+100*(Y-X^2)^2", nullptr, -1.2, 1, 0.1, 1, 1, 0.05, false},
    // Admissible laws cutting the plane: the search ends on their edge.
    {"(X-1)^2+Y^2", "0.5-X", -1, 1, 0.25, 0.5, 0, 1e-6, true},
    {"(X-1)^2+Y^2", "1-X^2-Y^2", 0, 0, 0.1, 1, 0, 1e-6, true},
};
// clang-format on

}  // namespace

TEST(RootMin, CompassSearchBattery) {
    int bound = law_context().root.root_max_evaluations;
    for (const bowl_case& c : bowls) {
        SCOPED_TRACE(c.objective);
        law_holder f(VORX_NEW counted_law(c.objective));
        law_holder adm(c.admissible ? str_to_law(c.admissible) : nullptr);
        double value = -1, step = -1;
        int status = 1;
        complex_number z =
            Nmin2D(f.get(), adm.get(), {c.sx, c.sy}, c.h, 1e3, &value, &step, &status, nullptr);
        EXPECT_LT((z - complex_number(c.mx, c.my)).abs(), c.tol);
        EXPECT_TRUE(value == f->evaluateC_R(z) && status == 0);
        EXPECT_LE(step, c.converges ? 2 * law_context().root.root_x_tol : c.h);
        long calls = static_cast<counted_law*>(f.get())->calls;
        EXPECT_TRUE(calls <= bound + 6 && (calls > bound) == !c.converges);
        EXPECT_TRUE(!adm || adm->evaluateC_R(z) > 0.0);
        // With equal steps the n-dimensional search takes the plane search's path.
        nvector start(2), steps(2), last;
        start[0] = c.sx, start[1] = c.sy, steps[0] = steps[1] = c.h;
        nvector w = NminND(f.get(), adm.get(), start, steps, &value, &last, 0.0, nullptr);
        EXPECT_TRUE(w[0] == z.re() && w[1] == z.im() && last[0] == step);
    }
}

// From the minimum itself no trial wins: the step halves from 1 to 2^-47 <= 1e-14 with
// four evaluations each time (equal opposite values: no gradient point), and twice the
// final step is reported.  A stop law already met returns at once with twice the first.
TEST(RootMin, HalvingCountAndReportedStep) {
    law_holder f(VORX_NEW counted_law("X^2+Y^2")), zero(VORX_NEW constant_law(0.0));
    double value, step;
    int status;
    complex_number z = Nmin2D(f.get(), nullptr, {0, 0}, 1.0, 1.0, &value, &step, &status, nullptr);
    EXPECT_TRUE(z == complex_number(0, 0) && step == 2 * std::ldexp(1.0, -47));
    EXPECT_EQ(static_cast<counted_law*>(f.get())->calls, 1 + 47 * 4);
    Nmin2D(f.get(), nullptr, {0, 0}, 0.25, 1.0, &value, &step, &status, zero.get());
    EXPECT_EQ(step, 0.5);
}

TEST(RootMin, StopLawDistanceAndEvaluationBound) {
    law_holder f(VORX_NEW counted_law("(X-1)^2+Y^2"));
    auto* counter = static_cast<counted_law*>(f.get());
    double value, step;
    int status;
    Nmin2D(f.get(), nullptr, {0, 0}, 0.1, 10, &value, &step, &status, nullptr);
    long full = counter->calls;
    counter->calls = 0;
    // Stopping at f <= root_f_tol costs fewer evaluations and leaves a larger step.
    Nmin2D(f.get(), nullptr, {0, 0}, 0.1, 10, &value, &step, &status, f.get());
    EXPECT_TRUE(value <= 1e-7 && step > 1e-10 && counter->calls < full);
    // A largest distance below the first step: the first move ends the search.
    complex_number z = Nmin2D(f.get(), nullptr, {-3, 0}, 1.0, 0.5, &value, &step, &status, nullptr);
    EXPECT_TRUE(status == -1 && z == complex_number(-2, 0));
    // The evaluation bound ends a long valley search after the iteration that passes it.
    law_holder valley(VORX_NEW counted_law("(1-X)^2+100*(Y-X^2)^2"));
    law_context().root.root_max_evaluations = 50;
    Nmin2D(valley.get(), nullptr, {-1.2, 1}, 1e-3, 10, &value, &step, &status, nullptr);
    set_root_tol_default();
    long calls = static_cast<counted_law*>(valley.get())->calls;
    EXPECT_TRUE(calls > 50 && calls <= 55);
}

TEST(RootMin, NminNDInNineDimensions) {
    law_holder f(
        str_to_law("(A1-1)^2+(A2-2)^2+(A3-3)^2+(A4-4)^2+(A5-5)^2+(A6-6)^2+(A7-7)^2+"
                   "(A8-8)^2+(A9-9)^2"));
    nvector start(9), step(9), last;
    for (int i = 0; i < 9; ++i) step[i] = 0.5 * (i + 1);
    double value;
    nvector z = NminND(f.get(), nullptr, start, step, &value, &last, 1e-9, nullptr);
    for (int i = 0; i < 9; ++i) EXPECT_NEAR(z[i], i + 1, 1e-8);
    EXPECT_TRUE(last.max_coord() <= 2e-9 && value < 1e-15);
}

TEST(RootMin, QuickMinAndMax) {
    // clang-format off
    struct {
        const char* law;
        double a, b;
        int n;
        double at_min, at_max;
    } rows[] = {
        {"SIN(X)", 0, 6, 7, 1.5 * M_PI, 0.5 * M_PI},
        {"SIN(X)", 6, 0, 7, 1.5 * M_PI, 0.5 * M_PI},  // ends in either order
        {"(X-0.3)^2", 1, 2, 5, 1, 2},                 // the minimum lies before [a, b]
        {"X^2", -1, 3, 1, 0, -1},                     // n = 1: the descent starts at a
    };
    // clang-format on
    for (auto& c : rows) {
        SCOPED_TRACE(c.law);
        law_holder f(str_to_law(c.law));
        law_holder neg(VORX_NEW negate_law(f.get()));
        EXPECT_NEAR(Nmin_quick(f.get(), c.a, c.b, c.n, 0.1, 1e-10), c.at_min, 1e-7);
        double top = Nmax_quick(f.get(), c.a, c.b, c.n, 0.1, 1e-10);
        EXPECT_NEAR(top, c.at_max, 1e-7);
        EXPECT_EQ(top, Nmin_quick(neg.get(), c.a, c.b, c.n, 0.1, 1e-10));
    }
}

TEST(RootMin, BadInputAndDomainErrors) {
    law_holder f(str_to_law("X^2+Y^2")), three(str_to_law("X+Y+Z")), vec(str_to_law("VEC(X,Y)"));
    law_holder ln(str_to_law("LN(X)")), x2(str_to_law("X^2"));
    auto nmin2d = [](law* l, law* adm, complex_number s, double h, law* stop = nullptr) {
        return [=] { Nmin2D(l, adm, s, h, 1, nullptr, nullptr, nullptr, stop); };
    };
    auto nd = [&](int n_start, int n_step, double step) {
        return [=] {
            nvector s(n_start), st(n_step);
            for (int i = 0; i < n_step; ++i) st[i] = step;
            NminND(f.get(), nullptr, s, st, nullptr, nullptr, 0, nullptr);
        };
    };
    complex_number o(0, 0);
    // clang-format off
    struct {
        std::function<void()> call;
        const char* code;
    } rows[] = {
        {nmin2d(nullptr, nullptr, o, 1), "LAW_DIM"},
        {nmin2d(three.get(), nullptr, o, 1), "LAW_DIM"},
        {nmin2d(f.get(), three.get(), o, 1), "LAW_DIM"},
        {nmin2d(f.get(), nullptr, o, 1, vec.get()), "LAW_DIM"},
        {nmin2d(f.get(), nullptr, {0, INFINITY}, 1), "LAW_BAD_BOUNDS"},
        {nmin2d(f.get(), nullptr, o, 0), "LAW_BAD_BOUNDS"},
        {nmin2d(f.get(), nullptr, o, NAN), "LAW_BAD_BOUNDS"}, {nd(2, 3, 1), "LAW_DIM"},
        {nd(1, 1, 1), "LAW_DIM"},  // the law reads two inputs
        {nd(2, 2, 0), "LAW_BAD_BOUNDS"},
        {[&] { Nmin_quick(x2.get(), NAN, 1, 3, 0.1, 0); }, "LAW_BAD_BOUNDS"},
        {[&] { Nmin_quick(x2.get(), 0, 1, 3, 0, 0); }, "LAW_BAD_BOUNDS"},
        {[&] { Nmax_quick(f.get(), 0, 1, 3, 0.1, 0); }, "LAW_DIM"},
        // Domain errors of the law pass through; the laws made inside are released.
        {nmin2d(ln.get(), nullptr, {0.5, 0}, 1), "LAW_LN"},
        {[&] { Nmax_quick(ln.get(), -1, 1, 3, 0.1, 0); }, "LAW_LN"},
        {[&] { Nmin_quick(ln.get(), 0.5, 1, 3, 1, 0); }, ""},  // the admissible law guards 0
    };
    // clang-format on
    for (auto& r : rows) EXPECT_EQ(error_of(r.call), r.code);
}
