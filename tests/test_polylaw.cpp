// Polynomial laws: law_polynomial arithmetic and its invalid marker, the polynomials laws
// answer (a table of texts and random polynomial laws rebuilt by make_polynomial_law; the
// registry walk asks every class), and the integer and linear helpers with their deliberate limits.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <functional>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "base/output.hpp"
#include "lawutil/lawutil.hpp"
#include "test_support.hpp"

namespace {

using coefficients = std::vector<double>;
using polynomial_ptr = std::unique_ptr<law_polynomial>;

// c[0] + c[1] v + ... in the variable `var`.
law_polynomial dense_polynomial(const coefficients& c, law* var) {
    std::vector<int> e(c.size());
    for (size_t i = 0; i < c.size(); ++i) e[i] = (int)i;
    return law_polynomial(e.data(), c.data(), (int)c.size(), var);
}

// The dense coefficients, checked against the sparse form: ascending exponents, no zero
// term, the degree the highest exponent.
coefficients dense_of(const law_polynomial& p) {
    coefficients c;
    for (int e = 0; e <= p.degree(); ++e) c.push_back(p.coefficent(e));
    int nonzero = 0;
    for (double v : c) nonzero += v != 0.0;
    EXPECT_EQ(p.terms(), nonzero);
    for (int i = 1; i < p.terms(); ++i) EXPECT_LT(p.term_exponent(i - 1), p.term_exponent(i));
    EXPECT_TRUE(!p.terms() || p.degree() == p.term_exponent(p.terms() - 1));
    return c;
}

// make_polynomial_law of p's coefficients evaluates as `l` at x.
void expect_rebuilt_law_agrees(const law_polynomial& p, const law* l, double x) {
    coefficients c = dense_of(p);
    law_holder back(make_polynomial_law(c.data(), p.degree()));
    double want = l->eval(x);
    EXPECT_NEAR(back->eval(x), want, 1e-9 * (1.0 + std::fabs(want))) << text_of(l) << " at " << x;
}

}  // namespace

TEST(PolyArithmetic, Table) {
    struct row {
        coefficients a;
        char op;         // + - * n (negate) ^
        coefficients b;  // b[0] is the power for ^
        coefficients expected;
    } rows[] = {
        // clang-format off
        {{1, 2}, '+', {3, 0, 4}, {4, 2, 4}}, {{1, 2}, '+', {-1, -2}, {0}},
        {{1, 2, 5}, '-', {0, 1, 5}, {1, 1}}, {{1, 1}, '*', {-1, 1}, {-1, 0, 1}},
        {{1, 1}, '*', {}, {0}},              {{1, -2, 0, 3}, 'n', {}, {-1, 2, 0, -3}},
        {{1, 0, 0, 1}, '*', {1, 0, 0, 0, 0, 0, 1}, {1, 0, 0, 1, 0, 0, 1, 0, 0, 1}},  // sparse
        {{1, 1}, '^', {3}, {1, 3, 3, 1}},    {{}, '^', {0}, {1}},  // 0^0 is 1
        {{0, 0, 2}, '^', {5}, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 32}}};
    // clang-format on
    law_holder x(parse("X"));
    for (const row& r : rows) {
        law_polynomial a = dense_polynomial(r.a, x.get()), b = dense_polynomial(r.b, x.get());
        law_polynomial p = r.op == '+'   ? a + b
                           : r.op == '-' ? a - b
                           : r.op == '*' ? a * b
                           : r.op == 'n' ? -a
                                         : a ^ (int)r.b[0];
        EXPECT_EQ(dense_of(p), r.expected) << r.op;
        EXPECT_EQ(law_holder(p.in()).get(), x.get());
    }
}

// Different variables, a negative power, a degree beyond an int, a result too large to
// form and an invalid operand give degree -1; a null variable agrees with any variable.
TEST(PolyArithmetic, InvalidMarker) {
    law_holder x(parse("X")), y(parse("Y")), other_x(parse("X"));
    law_polynomial px = dense_polynomial({1, 1}, x.get()), py = dense_polynomial({0, 1}, y.get());
    law_polynomial two = dense_polynomial({2}, nullptr), x2 = dense_polynomial({0, 0, 1}, x.get());
    for (const law_polynomial& r :
         {px + py, px - py, px * py, px ^ -1, px ^ INT_MAX, x2 ^ INT_MAX, -(px * py) * two}) {
        EXPECT_EQ(r.degree(), -1);
        EXPECT_EQ(r.terms(), 0);
        EXPECT_EQ(law_holder(r.in()).get(), nullptr);
    }
    law_polynomial mixed = two * px + dense_polynomial({0, 0, 1}, other_x.get());  // equal laws
    EXPECT_EQ(dense_of(mixed), (coefficients{2, 2, 1}));
    EXPECT_EQ(law_holder((two + py).in()).get(), y.get());
}

// Copies and in/expand/factor balance their references (the leak check at the end of
// every test sees any slip); the constructor sums repeated exponents and refuses bad input.
TEST(PolyValue, MembersAndReferences) {
    law_holder x(parse("X"));
    int e[] = {3, 0, 3, 1}, negative = -1;
    double c[] = {1.0, 5.0, 2.0, 0.0};
    law_polynomial p(e, c, 4, x.get()), copy(p), assigned;
    assigned = copy;
    assigned = assigned;
    EXPECT_EQ(dense_of(assigned), (coefficients{5, 0, 0, 3}));
    law_holder a(p.in()), b(p.expand()), f(p.factor());
    EXPECT_TRUE(a.get() == x.get() && b.get() == x.get() && f.get() == x.get());
    output_capture out;
    p.print();
    dense_polynomial({4}, nullptr).print();
    EXPECT_STREQ(out.text(),
                 "Polynomial in X\nOf degree 3\nTerm 0 = 5.000000\nTerm 3 = 3.000000\n"
                 "Polynomial\nOf degree 0\nTerm 0 = 4.000000\n");
    EXPECT_EQ(error_of([&] { law_polynomial(&negative, c, 1, nullptr); }), "LAW_EXPONENT");
    EXPECT_EQ(error_of([&] { law_polynomial(e, c, -1, nullptr); }), "LAW_DIM");
}

TEST(PolyValue, Proportional) {
    law_holder x(parse("X")), y(parse("Y"));
    struct row {
        coefficients a, b;
        law* var_b;
        double ratio;
    } rows[] = {{{2, 0, 4}, {1, 0, 2}, x.get(), 2.0},   {{1, 0, 2}, {2, 0, 4}, nullptr, 0.5},
                {{1, 1 + 4e-16}, {1, 1}, x.get(), 1.0}, {{1, 1 + 1e-14}, {1, 1}, x.get(), 0.0},
                {{1, 2}, {0, 1}, x.get(), 0.0},         {{1, 1, 0, 1}, {1, 0, 1, 1}, x.get(), 0.0},
                {{1, 2}, {1, 2}, y.get(), 0.0},         {{}, {}, x.get(), 0.0}};
    for (const row& r : rows)
        EXPECT_EQ(dense_polynomial(r.a, x.get()).proportional(dense_polynomial(r.b, r.var_b)),
                  r.ratio)
            << testing::PrintToString(r.a) << " " << testing::PrintToString(r.b);
}

TEST(PolyOfLaw, Table) {
    struct row {
        const char* text;
        const char* var;        // null: the law's own variable
        coefficients expected;  // empty: not a polynomial
    } rows[] = {                // clang-format off
        {"3", nullptr, {3}},                  {"PI*X", nullptr, {0, M_PI}},
        {"2*X^2-X+1", "X", {1, -1, 2}},       {"-(X+1)^3", nullptr, {-1, -3, -3, -1}},
        {"(X-1)*(X+1)-X^2", nullptr, {-1}},   {"X^0", nullptr, {1}},
        {"Y^2+1", nullptr, {1, 0, 1}},        {"X-(X^2-1)", nullptr, {1, 1, -1}},
        // Not polynomials: two variables, another variable, powers that are not whole or
        // negative, other classes, more terms than the expansion bound.
        {"X*Y", nullptr, {}}, {"X-1+Y", nullptr, {}}, {"X^2", "Y", {}},
        {"X^0.5+X^(-1)", nullptr, {}}, {"X/2", nullptr, {}}, {"SIN(X)+1", nullptr, {}},
        {"VEC(X,1)*2", nullptr, {}}, {"(X+1)^2000", nullptr, {}}};
    // clang-format on
    for (const row& r : rows) {
        law_holder l(parse(r.text)), var(r.var ? parse(r.var) : law_holder());
        polynomial_ptr p(l->polynomial(var.get()));
        ASSERT_EQ(p != nullptr, !r.expected.empty()) << r.text;
        if (!p) continue;
        EXPECT_EQ(dense_of(*p), r.expected) << r.text;
        EXPECT_TRUE(!var || law_holder(p->in()).get() == var.get());
    }
    law_holder single(parse("3*X^100000"));  // one term expands whatever its power
    EXPECT_EQ(polynomial_ptr(single->polynomial(nullptr))->degree(), 100000);
}

// make_polynomial_law(polynomial(L)) evaluates as L, over random polynomial laws.
TEST(PolyOfLaw, RebuiltLawEvaluatesAsTheLaw) {
    std::mt19937 rng(12);
    auto pick = [&](int n) { return (int)(rng() % n); };
    std::function<std::string(int)> random_text = [&](int depth) -> std::string {
        const char* ops[] = {"+", "-", "*"};
        switch (depth ? pick(5) : pick(2)) {
            case 0:
                return std::to_string(pick(9) - 4);
            case 1:
                return "X";
            case 2:
                return "-(" + random_text(depth - 1) + ")";
            case 3:
                return "(" + random_text(depth - 1) + ")^" + std::to_string(1 + pick(3));
            default:
                return "(" + random_text(depth - 1) + ")" + ops[pick(3)] + "(" +
                       random_text(depth - 1) + ")";
        }
    };
    for (int i = 0; i < 200; ++i) {
        std::string text = random_text(4);
        law_holder l(parse(text.c_str()));
        polynomial_ptr p(l->polynomial(nullptr));
        ASSERT_TRUE(p) << text;
        for (double x : {-1.3, -0.4, 0.0, 0.6, 1.7}) expect_rebuilt_law_agrees(*p, l.get(), x);
    }
}

TEST(PolyMakeLaw, EveryTermIsBuilt) {
    double c[] = {1, 0, 2, -1};
    EXPECT_TRUE(law_holder(make_polynomial_law(c, 0))->isa(constant_law::id()));
    EXPECT_EQ(text_of(law_holder(make_polynomial_law(c, 1))), "1+0*X");
    EXPECT_EQ(text_of(law_holder(make_polynomial_law(c, 3))), "1+0*X+2*X^2+-1*X^3");
    EXPECT_EQ(error_of([&] { make_polynomial_law(c, -1); }), "LAW_DIM");
    EXPECT_EQ(error_of([&] { make_polynomial_law(nullptr, 2); }), "LAW_DIM");
}

TEST(PolyIntegers, FactorPowAndGcdWithTheirDeliberateLimits) {
    // r = floor(sqrt(n)) first; odd divisors only when r >= 4 and below r; no cofactor.
    struct factor_row {
        int n;
        std::vector<int> primes, powers;
    } factors[] = {// clang-format off
        {12, {2}, {2}}, {60, {2, 3, 5}, {2, 1, 1}}, {22, {2}, {1}}, {9, {}, {}}, {25, {}, {}},
        {2, {2}, {1}}, {15015, {3, 5, 7, 11, 13}, {1, 1, 1, 1, 1}}, {1, {}, {}}, {0, {}, {}},
        {-12, {}, {}}};
    // clang-format on
    for (const factor_row& r : factors) {
        int *primes, *powers, count = factor_int(r.n, &primes, &powers);
        EXPECT_EQ(std::vector<int>(primes, primes + count), r.primes) << r.n;
        EXPECT_EQ(std::vector<int>(powers, powers + count), r.powers) << r.n;
        VORX_FREE(primes);
        VORX_FREE(powers);
    }
    EXPECT_EQ(factor_int(60, nullptr, nullptr), 3);

    // 0.5 added before truncation toward zero: (-3)^3 gives -26.
    int powers[][3] = {{2, 10, 1024}, {-3, 3, -26}, {2, -1, 1}, {0, 0, 1}, {2, 30, 1 << 30}};
    for (auto& r : powers) EXPECT_EQ(pow_int(r[0], r[1]), r[2]) << r[0] << "^" << r[1];
    EXPECT_EQ(error_of([] { pow_int(0, -1); }), "LAW_EXPONENT");
    EXPECT_EQ(error_of([] { pow_int(2, 31); }), "LAW_EXPONENT");

    struct gcd_row {
        std::vector<int> values;
        int expected;
    } gcds[] = {{{12, 18}, 6}, {{-4, 6}, 2}, {{0, 0}, 0}, {{}, 0}, {{INT_MIN, 6}, 2}};
    for (gcd_row& r : gcds) EXPECT_EQ(GCD_int(r.values.data(), (int)r.values.size()), r.expected);
    int too_big[] = {INT_MIN, 0};  // 2^31
    EXPECT_EQ(error_of([&] { GCD_int(too_big, 2); }), "LAW_DIM");
}

TEST(PolySolveLinear, PivotRules) {
    struct row {
        std::vector<std::vector<double>> system;
        int result;
        std::vector<double> solution;
    } rows[] = {// clang-format off
        {{{2, 1, 3}, {1, 3, 5}}, 1, {0.8, 1.4}},
        {{{0, 1, 2}, {1, 0, 3}}, 1, {3, 2}},  // rows exchanged
        {{{1, 1, 1, 6}, {0, 2, 5, -4}, {2, 5, -1, 27}}, 1, {5, 3, -2}},
        {{{1e-14, 1, 1}, {1e-14, 2, 3}}, 0, {}},  // tiny pivot, the first on a tie
        {{{1e-14, 1}}, 0, {}},                    // the last pivot is judged too
        {{{0, 1, 2}, {0, 1, 2}}, 1, {0, 2}},      // zero pivot: a free unknown set to 0
        {{{0, 1, 2}, {0, 1, 3}}, 0, {}},          // ... unless its row fails
        {{{NAN, 1, 1}, {1, 1, 1}}, 0, {}}, {{}, 1, {}}};
    // clang-format on
    for (row& r : rows) {
        std::vector<double*> ptrs;
        for (auto& eq : r.system) ptrs.push_back(eq.data());
        int n = (int)ptrs.size();
        ASSERT_EQ(solve_linear(ptrs.data(), n), r.result) << n;
        for (size_t i = 0; i < r.solution.size(); ++i)
            EXPECT_NEAR(r.system[i][n], r.solution[i], 1e-14);
    }
    double* missing[] = {nullptr};
    EXPECT_EQ(error_of([&] { solve_linear(missing, -1); }), "LAW_DIM");
    EXPECT_EQ(error_of([&] { solve_linear(missing, 1); }), "LAW_DIM");
}
