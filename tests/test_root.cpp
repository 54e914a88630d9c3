// Root finding, extrema and the singularity lists of the laws.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <vector>

#include "test_support.hpp"

namespace {

constexpr double pi = 3.141592653589793;

// ---------------------------------------------------------------- singularities

struct singular_case {
    const char* text;
    double lo, hi;
    std::vector<double> where;
    std::vector<int> kind;
};

const int P = law_singular_pole, J = law_singular_jump, B = law_singular_break;

// clang-format off
const singular_case singular_cases[] = {
    {"1/X", -1, 1, {0}, {P}}, {"2/(2*X-1)", -1, 1, {0.5}, {P}}, {"(X-1)/(X-1)", 0, 2, {}, {}},
    {"-1/X+X^2", -1, 1, {0}, {P}}, {"(X-1)^(-2)", 0, 2, {1}, {P}},
    {"TAN(X)", -2, 4, {-pi / 2, pi / 2, pi}, {P, P, P}},  // reduced by pi/2 steps
    {"SEC(2*X)", 0, 2.5, {pi / 4, pi / 2, 3 * pi / 4}, {P, P, P}},
    {"COT(X)", -1, 4, {0, pi}, {P, P}}, {"CSC(X)", 0.5, 7, {pi, 2 * pi}, {P, P}},
    {"COTH(X-2)", 0, 3, {2}, {P}}, {"CSCH(3*X)", -1, 1, {0}, {P}},
    {"FLOOR(2*X)", 0, 1.2, {0, 0.5, 1}, {J, J, J}},
    {"CEIL(X)+TAN(X)", 1, 3, {1, pi / 2, 2, 3}, {J, P, J, J}}, {"ABS(X-0.25)", 0, 1, {0.25}, {B}},
    {"(X)MOD(2)", -1, 3, {0, 2}, {J, J}}, {"X<0.3", 0, 1, {0.3}, {J}},
    {"STEP(0,1,1)", 0, 2, {1}, {J}}, {"STEP(X,1,2-X)", 0, 2, {1}, {B}},
    {"PIECEWISE(X<0.5,X,1-X)", 0, 1, {0.5}, {B}},
    {"PIECEWISE(X<0.5,0,1/(X-2))", 0, 3, {0.5, 2}, {J, P}},
    {"PIECEWISE(X<0.5,1/(X-0.2),X)", 0, 1, {0.2, 0.5}, {P, J}},
    {"PIECEWISE(X<0.5,X,1/(X-0.2))", 0, 1, {0.5}, {J}}, {"SIN(X)*EXP(X)", -5, 5, {}, {}},
    {"TAN(X+Y)", -5, 5, {}, {}},
};
// clang-format on

TEST(Singularities, EachLawReportsItsPointsAndKinds) {
    for (const auto& c : singular_cases) {
        law_holder l = parse(c.text);
        double* where = nullptr;
        int* kind = nullptr;
        int n = l->singularities(&where, &kind, c.lo, c.hi);
        EXPECT_EQ(n, (int)c.where.size()) << c.text;
        for (int i = 0; i < n && i < (int)c.where.size(); ++i) {
            EXPECT_NEAR(where[i], c.where[i], 1e-12) << c.text << " #" << i;
            EXPECT_EQ(kind[i], c.kind[i]) << c.text << " #" << i;
            // The kind agrees with the values on either side.
            double left = l->eval(where[i] - 1e-5), right = l->eval(where[i] + 1e-5);
            if (kind[i] == P)
                EXPECT_GT(std::max(std::fabs(left), std::fabs(right)), 1e4) << c.text;
            else
                EXPECT_EQ(std::fabs(left - right) > 1e-3, kind[i] == J) << c.text << " #" << i;
        }
        VORX_FREE(where);
        VORX_FREE(kind);
    }
}

TEST(Singularities, AnEndlessLatticeIsCutToOnePeriod) {
    law_holder l = parse("COT(2*X-1)");
    double *where = nullptr, *period = nullptr;
    int* kind = nullptr;
    int n = l->singularities(&where, &kind, -DBL_MAX, DBL_MAX, &period);
    ASSERT_EQ(n, 1);
    ASSERT_TRUE(period);
    EXPECT_NEAR(*period, pi / 2, 1e-15);
    EXPECT_NEAR(where[0], 0.5, 1e-15);  // the one in the period around the range's centre
    VORX_FREE(where);
    VORX_FREE(kind);
    VORX_FREE(period);
}

TEST(Singularities, SortDropsOutsidersAndClusters) {
    double* where = VORX_ALLOC_ARRAY(double, 5);
    int* kind = VORX_ALLOC_ARRAY(int, 5);
    const double w[5] = {3, 1, 1 + 6e-7, 1 + 1.2e-6, 2};  // a chain within resabs steps
    for (int i = 0; i < 5; ++i) where[i] = w[i], kind[i] = i;
    int n = sort_singularities(&where, &kind, 5, 0, 2.5);
    ASSERT_EQ(n, 2);
    EXPECT_EQ(where[0], 1);
    EXPECT_EQ(where[1], 2);
    EXPECT_EQ(kind[1], 4);
    VORX_FREE(where);
    VORX_FREE(kind);
}

// ---------------------------------------------------------------- Nroot (its battery runs
// beside Nroot_classified's in test_root_all.cpp)

// A law that raises `code` once it has been evaluated `limit` times: X^2 - 0.25 until
// then.
class raising_law : public law {
  public:
    raising_law(int limit, int code) : limit_(limit), code_(code) {}
    void evaluate(const double* x, double* y) const override {
        if (++calls_ > limit_) sys_error(code_);
        *y = x[0] * x[0] - 0.25;
    }

  protected:
    law* deriv(int) const override { return str_to_law("2*X"); }
    int take_size() const override { return 1; }
    int return_size() const override { return 1; }

  private:
    int limit_, code_;
    mutable int calls_ = 0;
};

// The tolerance fields of the context's root section, in one list.
using tolerances = std::vector<double>;

tolerances read_tolerances() {
    const auto& r = law_context().root;
    return {r.root_x_tol,
            r.root_f_tol,
            r.root_quad_tol,
            r.root_hole_fraction,
            r.root_ratio,
            r.root_far_ratio,
            (double)r.root_newton_iterations,
            (double)r.root_bisect_iterations,
            (double)r.root_count_a,
            (double)r.root_max_evaluations,
            r.root_search_tol};
}

void write_tolerances(const tolerances& t) {
    auto& r = law_context().root;
    r.root_x_tol = t[0], r.root_f_tol = t[1], r.root_quad_tol = t[2];
    r.root_hole_fraction = t[3], r.root_ratio = t[4], r.root_far_ratio = t[5];
    r.root_newton_iterations = (int)t[6], r.root_bisect_iterations = (int)t[7];
    r.root_count_a = (int)t[8], r.root_max_evaluations = (int)t[9], r.root_search_tol = t[10];
}

const tolerances defaults = {1e-14, 1e-7, 1e-7, 0.05, 0.1, 0.1, 10, 40, 7, 10000, 1e-4};
const tolerances odd = {1e-13, 1e-8, 1e-8, 0.04, 0.2, 0.5, 12, 30, 5, 500, 1e-5};

TEST(Nroot, LeavesTheDefaultTolerancesAfterASearch) {
    write_tolerances(odd);
    law_holder f = parse("X^2-0.25");
    int n;
    VORX_FREE(Nroot(f.get(), -1, 1, &n));
    EXPECT_EQ(read_tolerances(), defaults);
    // A law found constant returns before the probing phase and its reset.
    write_tolerances(odd);
    law_holder c = parse("3");
    EXPECT_EQ(Nroot(c.get(), 0, 1, &n), nullptr);
    EXPECT_EQ(n, 0);
    EXPECT_TRUE(read_tolerances() == odd);
    set_root_tol_default();
}

// The law's own errors mean "no value here"; others (an interrupt) end the call.
TEST(Nroot, RestoresTolerancesAndReleasesLawsWhenAnErrorEndsTheCall) {
    for (int limit : {12, 20, 40, 80, 160}) {
        write_tolerances(odd);
        law_holder f(VORX_NEW raising_law(limit, VORX_INTERRUPTED));
        int n = 7;
        EXPECT_EQ(error_of([&] { VORX_FREE(Nroot(f.get(), -1, 1, &n)); }), "VORX_INTERRUPTED");
        EXPECT_TRUE(read_tolerances() == odd) << limit;
        law_holder g(VORX_NEW raising_law(limit, LAW_SQRT));
        EXPECT_EQ(error_of([&] { VORX_FREE(Nroot(g.get(), -1, 1, &n)); }), "") << limit;
    }
    write_tolerances(odd);
    set_vorx_interrupted(true);
    law_holder f = parse("X^2-0.25");
    int n;
    EXPECT_EQ(error_of([&] { VORX_FREE(Nroot(f.get(), -1, 1, &n)); }), "VORX_INTERRUPTED");
    set_vorx_interrupted(false);
    EXPECT_TRUE(read_tolerances() == odd);
    set_root_tol_default();
}

// Nroot, Nmax, Nmin, Nsolve and Nroot_classified check their arguments alike.
TEST(Nroot, BadArgumentsRaiseTheirCodes) {
    const double nan = std::nan(""), inf = HUGE_VAL;
    struct bad_case {
        const char* text;
        double a, b;
        const char* code;
    } cases[] = {
        {"X", nan, 1, "LAW_BAD_BOUNDS"},  {"X", 0, inf, "LAW_BAD_BOUNDS"},
        {"X", -inf, 0, "LAW_BAD_BOUNDS"}, {"X+Y", 0, 1, "LAW_DIM"},
        {"VEC(X,X)", 0, 1, "LAW_DIM"},    {nullptr, 0, 1, "LAW_EVAL"},
    };
    for (const auto& c : cases) {
        law_holder f(c.text ? str_to_law(c.text) : nullptr);
        int n;
        EXPECT_EQ(error_of([&] { VORX_FREE(Nroot(f.get(), c.a, c.b, &n)); }), c.code) << c.text;
        EXPECT_EQ(error_of([&] { Nmax(f.get(), c.a, c.b); }), c.code) << c.text;
        EXPECT_EQ(error_of([&] { Nmin(f.get(), c.a, c.b); }), c.code) << c.text;
        EXPECT_EQ(error_of([&] { VORX_FREE(Nsolve(f.get(), f.get(), c.a, c.b, &n)); }), c.code)
            << c.text;
        n = -1;
        EXPECT_EQ(error_of([&] { VORX_FREE(Nroot_classified(f.get(), c.a, c.b, &n)); }), c.code);
        EXPECT_EQ(n, 0);
    }
}

TEST(Nroot, EqualEndsAreTheConstantCase) {
    law_holder f = parse("X-1");
    int n;
    double* r = Nroot(f.get(), 1, 1, &n);
    ASSERT_EQ(n, 1);
    EXPECT_EQ(r[0], 1);
    VORX_FREE(r);
    law_holder g = parse("X");
    EXPECT_EQ(Nroot(g.get(), 1, 1, &n), nullptr);
    EXPECT_EQ(n, 0);
}

TEST(Nsolve, FindsWhereTwoLawsMeet) {
    law_holder f = parse("X^2"), g = parse("0.25");
    int n;
    double* r = Nsolve(f.get(), g.get(), 1, -1, &n);
    ASSERT_EQ(n, 2);
    EXPECT_NEAR(r[0], -0.5, 1e-7);
    EXPECT_NEAR(r[1], 0.5, 1e-7);
    VORX_FREE(r);
}

// ---------------------------------------------------------------- Nmax, Nmin

struct extremum_case {
    const char* text;
    double a, b, max_at;
};

// clang-format off
const extremum_case extremum_cases[] = {
    {"X*(1-X)", 0, 1, 0.5}, {"SIN(X)", 0, 3, pi / 2}, {"X", 0, 1, 1},
    {"3", 0, 1, 0},              // ties keep a
    {"1/X", -1, 1, 0},           // the pole wins
    {"1/(X-2)", 0, 1, 2},        // even beyond [a, b], deliberately
    {"-ABS(X-0.3)", 1, 0, 0.3},  // a kink reported by the law
};
// clang-format on

TEST(Nmax, FindsThePositionOfTheLargestValue) {
    for (const auto& c : extremum_cases) {
        law_holder f = parse(c.text);
        EXPECT_NEAR(Nmax(f.get(), c.a, c.b), c.max_at, 1e-6) << c.text;
        law_holder negated(VORX_NEW negate_law(f.get()));
        EXPECT_EQ(Nmin(negated.get(), c.a, c.b), Nmax(f.get(), c.a, c.b)) << c.text;
    }
}

}  // namespace
