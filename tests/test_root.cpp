// Root finding, extrema and the singularity lists of the laws.
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <vector>

#include "test_support.hpp"

namespace {

constexpr double pi = 3.141592653589793;

law_holder read(const char* text) {
    law_holder l(str_to_law(text));
    EXPECT_TRUE(l) << text;
    return l;
}

// ---------------------------------------------------------------- singularities

struct singular_case {
    const char* text;
    double lo, hi;
    std::vector<double> where;
    std::vector<int> kind;
};

const int P = law_singular_pole, J = law_singular_jump, B = law_singular_break;

const singular_case singular_cases[] = {
    {"1/X", -1, 1, {0}, {P}},
    {"2/(2*X-1)", -1, 1, {0.5}, {P}},
    {"(X-1)/(X-1)", 0, 2, {}, {}},
    {"-1/X+X^2", -1, 1, {0}, {P}},
    {"(X-1)^(-2)", 0, 2, {1}, {P}},
    {"TAN(X)", 0, 4, {pi / 2}, {P}},
    {"SEC(2*X)", 0, 2.5, {pi / 4, 3 * pi / 4}, {P, P}},
    {"COT(X)", -1, 4, {0, pi}, {P, P}},
    {"CSC(X)", 0.5, 7, {pi, 2 * pi}, {P, P}},
    {"COTH(X-2)", 0, 3, {2}, {P}},
    {"CSCH(3*X)", -1, 1, {0}, {P}},
    {"FLOOR(2*X)", 0, 1.2, {0, 0.5, 1}, {J, J, J}},
    {"CEIL(X)+TAN(X)", 1, 3, {1, pi / 2, 2, 3}, {J, P, J, J}},
    {"ABS(X-0.25)", 0, 1, {0.25}, {B}},
    {"(X)MOD(2)", -1, 3, {0, 2}, {J, J}},
    {"X<0.3", 0, 1, {0.3}, {J}},
    {"STEP(0,1,1)", 0, 2, {1}, {J}},
    {"STEP(X,1,2-X)", 0, 2, {1}, {B}},
    {"PIECEWISE(X<0.5,X,1-X)", 0, 1, {0.5}, {B}},
    {"PIECEWISE(X<0.5,0,1/(X-2))", 0, 3, {0.5, 2}, {J, P}},
    {"PIECEWISE(X<0.5,1/(X-0.2),X)", 0, 1, {0.2, 0.5}, {P, J}},
    {"PIECEWISE(X<0.5,X,1/(X-0.2))", 0, 1, {0.5}, {J}},
    {"SIN(X)*EXP(X)", -5, 5, {}, {}},
    {"TAN(X+Y)", -5, 5, {}, {}},
};

TEST(Singularities, EachLawReportsItsPointsAndKinds) {
    for (const auto& c : singular_cases) {
        law_holder l = read(c.text);
        double* where = nullptr;
        int* kind = nullptr;
        int n = l->singularities(&where, &kind, c.lo, c.hi);
        EXPECT_EQ(n, (int)c.where.size()) << c.text;
        for (int i = 0; i < n && i < (int)c.where.size(); ++i) {
            EXPECT_NEAR(where[i], c.where[i], 1e-12) << c.text << " #" << i;
            EXPECT_EQ(kind[i], c.kind[i]) << c.text << " #" << i;
        }
        VORX_FREE(where);
        VORX_FREE(kind);
    }
}

TEST(Singularities, AnEndlessLatticeIsCutToOnePeriod) {
    law_holder l = read("TAN(2*X)");
    double *where = nullptr, *period = nullptr;
    int* kind = nullptr;
    int n = l->singularities(&where, &kind, -DBL_MAX, DBL_MAX, &period);
    ASSERT_EQ(n, 1);
    ASSERT_TRUE(period);
    EXPECT_NEAR(*period, pi / 2, 1e-15);
    EXPECT_NEAR(std::fabs(where[0]), pi / 4, 1e-15);
    VORX_FREE(where);
    VORX_FREE(kind);
    VORX_FREE(period);
}

TEST(Singularities, SortDropsOutsidersAndClusters) {
    double* where = VORX_ALLOC_ARRAY(double, 5);
    int* kind = VORX_ALLOC_ARRAY(int, 5);
    const double w[5] = {3, 1, 1 + 1e-9, -2, 2};
    for (int i = 0; i < 5; ++i) where[i] = w[i], kind[i] = i;
    int n = sort_singularities(&where, &kind, 5, 0, 2.5);
    ASSERT_EQ(n, 2);
    EXPECT_EQ(where[0], 1);
    EXPECT_EQ(where[1], 2);
    EXPECT_EQ(kind[1], 4);
    VORX_FREE(where);
    VORX_FREE(kind);
}

}  // namespace
