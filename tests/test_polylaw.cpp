// Polynomial laws: law_polynomial arithmetic and its invalid marker, the polynomials laws
// answer (a table of texts, every registered class, and random polynomial laws rebuilt by
// make_polynomial_law), and the integer and linear helpers with their deliberate limits.
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

// The polynomial as dense coefficients, checked against its sparse form: ascending
// exponents, no zero term, the degree its highest exponent.
coefficients dense_of(const law_polynomial& p) {
    coefficients c;
    for (int e = 0; e <= p.degree(); ++e) c.push_back(p.coefficent(e));
    int nonzero = 0;
    for (double v : c) nonzero += v != 0.0;
    EXPECT_EQ(p.terms(), nonzero);
    for (int i = 1; i < p.terms(); ++i) EXPECT_LT(p.term_exponent(i - 1), p.term_exponent(i));
    if (p.terms()) {
        EXPECT_EQ(p.degree(), p.term_exponent(p.terms() - 1));
    }
    return c;
}

law_holder parse(const char* text) {
    law_holder l(str_to_law(text));
    EXPECT_TRUE(l) << text;
    return l;
}

}  // namespace

// ---------------------------------------------------------------- arithmetic

struct arithmetic_row {
    const char* what;
    coefficients a;
    char op;         // + - * n (negate) ^
    coefficients b;  // b[0] is the power for ^
    coefficients expected;
};

TEST(PolyArithmetic, Table) {
    const arithmetic_row rows[] = {
        {"sum", {1, 2}, '+', {3, 0, 4}, {4, 2, 4}},
        {"sum cancels to zero", {1, 2}, '+', {-1, -2}, {}},
        {"difference drops the top term", {1, 2, 5}, '-', {0, 1, 5}, {1, 1}},
        {"product", {1, 1}, '*', {-1, 1}, {-1, 0, 1}},
        {"product by zero", {1, 1}, '*', {}, {}},
        {"sparse product",
         {1, 0, 0, 0, 0, 1},
         '*',
         {1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1},
         {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}},
        {"negation", {1, -2, 0, 3}, 'n', {}, {-1, 2, 0, -3}},
        {"cube", {1, 1}, '^', {3}, {1, 3, 3, 1}},
        {"power 0 is 1", {0, 2}, '^', {0}, {1}},
        {"zero to power 0 is 1", {}, '^', {0}, {1}},
        {"sparse power", {0, 0, 2}, '^', {5}, {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 32}},
    };
    law_holder x(parse("X"));
    for (const arithmetic_row& r : rows) {
        SCOPED_TRACE(r.what);
        law_polynomial a = dense_polynomial(r.a, x.get()), b = dense_polynomial(r.b, x.get());
        law_polynomial result = r.op == '+'   ? a + b
                                : r.op == '-' ? a - b
                                : r.op == '*' ? a * b
                                : r.op == 'n' ? -a
                                              : a ^ (int)r.b[0];
        EXPECT_EQ(dense_of(result), r.expected.empty() ? coefficients{0} : r.expected);
        law_holder var(result.in());
        EXPECT_EQ(var.get(), x.get());
    }
}

// Different variables, a negative power, a degree beyond an int, a result too large to
// form and an invalid operand all give degree -1; a null variable (a constant) agrees with any
// variable.
TEST(PolyArithmetic, InvalidMarker) {
    law_holder x(parse("X")), y(parse("Y")), other_x(parse("X"));
    law_polynomial px = dense_polynomial({1, 1}, x.get()), py = dense_polynomial({0, 1}, y.get());
    law_polynomial constant = dense_polynomial({2}, nullptr);
    for (const law_polynomial& r :
         {px + py, px - py, px * py, px ^ -1, px * (px ^ INT_MAX),
          dense_polynomial({0, 0, 1}, x.get()) ^ INT_MAX, (px + py) * constant, -(px * py)}) {
        EXPECT_EQ(r.degree(), -1);
        EXPECT_EQ(r.terms(), 0);
        EXPECT_EQ(law_holder(r.in()).get(), nullptr);
    }
    law_polynomial mixed = constant * px + dense_polynomial({0, 0, 1}, other_x.get());
    EXPECT_EQ(dense_of(mixed), (coefficients{2, 2, 1}));
    EXPECT_EQ(law_holder(mixed.in()).get(), x.get());
    law_polynomial lifted = constant + dense_polynomial({0, 1}, y.get());
    EXPECT_EQ(law_holder(lifted.in()).get(), y.get());
}

// Copies and assignments hold their own reference on the variable; in, expand and factor
// hand one out; the constructor sums repeated exponents in any order and refuses bad input.
TEST(PolyValue, ReferencesCopiesAndMembers) {
    law_holder x(parse("X"));
    int base = x->ref_count();
    {
        int e[] = {3, 0, 3, 1};
        double c[] = {1.0, 5.0, 2.0, 0.0};
        law_polynomial p(e, c, 4, x.get());
        EXPECT_EQ(dense_of(p), (coefficients{5, 0, 0, 3}));
        EXPECT_EQ(p.coefficent(2), 0.0);
        EXPECT_EQ(p.coefficent(7), 0.0);
        law_polynomial copy(p), assigned;
        assigned = copy;
        assigned = assigned;
        EXPECT_EQ(x->ref_count(), base + 3);
        EXPECT_EQ(dense_of(assigned), dense_of(p));
        law_holder a(p.in()), b(p.expand()), f(p.factor());
        EXPECT_TRUE(a.get() == x.get() && b.get() == x.get() && f.get() == x.get());
        EXPECT_EQ(x->ref_count(), base + 6);
        assigned = law_polynomial();
        EXPECT_EQ(x->ref_count(), base + 5);
    }
    EXPECT_EQ(x->ref_count(), base);
    EXPECT_EQ(law_holder(law_polynomial().in()).get(), nullptr);
    int negative = -1, e = 0;
    double one = 1.0;
    EXPECT_EQ(error_of([&] { law_polynomial(&negative, &one, 1, nullptr); }), "LAW_EXPONENT");
    EXPECT_EQ(error_of([&] { law_polynomial(&e, &one, -1, nullptr); }), "LAW_DIM");
    EXPECT_EQ(error_of([&] { law_polynomial(nullptr, &one, 1, nullptr); }), "LAW_DIM");
}

TEST(PolyValue, Print) {
    law_holder x(parse("X"));
    output_capture out;
    dense_polynomial({1.5, 0, -2}, x.get()).print();
    dense_polynomial({4}, nullptr).print();
    EXPECT_STREQ(out.text(),
                 "Polynomial in X\nOf degree 2\nTerm 0 = 1.500000\nTerm 2 = -2.000000\n"
                 "Polynomial\nOf degree 0\nTerm 0 = 4.000000\n");
}

TEST(PolyValue, Proportional) {
    law_holder x(parse("X")), y(parse("Y"));
    struct row {
        coefficients a, b;
        law* var_b;
        double ratio;
    } rows[] = {
        {{2, 0, 4}, {1, 0, 2}, x.get(), 2.0},
        {{1, 0, 2}, {2, 0, 4}, x.get(), 0.5},
        {{1, 2}, {1, 3}, x.get(), 0.0},          // ratios differ
        {{1, 1 + 1e-16}, {1, 1}, x.get(), 1.0},  // within 1e-15
        {{1, 1 + 1e-14}, {1, 1}, x.get(), 0.0},  // beyond it
        {{1, 2}, {0, 1}, x.get(), 0.0},          // term counts differ
        {{1, 2}, {1, 2, 1}, x.get(), 0.0},       // degrees differ
        {{0, 2}, {2, 0}, nullptr, 0.0},          // exponents differ
        {{1, 2}, {1, 2}, y.get(), 0.0},          // variables differ
        {{1, 2}, {2, 4}, nullptr, 0.5},          // a null variable agrees
        {{}, {}, x.get(), 0.0},                  // no ratio at all
    };
    for (const row& r : rows) {
        law_polynomial a = dense_polynomial(r.a, x.get()), b = dense_polynomial(r.b, r.var_b);
        EXPECT_EQ(a.proportional(b), r.ratio) << testing::PrintToString(r.a);
    }
}

// ---------------------------------------------------------------- polynomials of laws

struct law_row {
    const char* text;
    const char* var;  // null: the law's own variable
    bool polynomial;
    coefficients expected;
};

TEST(PolyOfLaw, Table) {
    const law_row rows[] = {
        {"3", nullptr, true, {3}},
        {"0", "X", true, {0}},
        {"PI*X", nullptr, true, {0, M_PI}},
        {"X", nullptr, true, {0, 1}},
        {"2*X^2-X+1", "X", true, {1, -1, 2}},
        {"-(X+1)^3", nullptr, true, {-1, -3, -3, -1}},
        {"(X-1)*(X+1)-X^2", nullptr, true, {-1}},
        {"X^0", nullptr, true, {1}},
        {"Y^2+1", "Y", true, {1, 0, 1}},
        {"Y^2+1", nullptr, true, {1, 0, 1}},
        {"X*Y", nullptr, false, {}},  // two variables meet
        {"X*Y", "X", false, {}},
        {"X^2", "Y", false, {}},
        {"X^0.5", nullptr, false, {}},  // not a whole power
        {"X^(-1)", nullptr, false, {}},
        {"X^X", nullptr, false, {}},
        {"X/2", nullptr, false, {}},  // division is not in the set
        {"SIN(X)+1", nullptr, false, {}},
        {"VEC(X,1)*2", nullptr, false, {}},
        {"(X+1)^100000", nullptr, false, {}},  // too many terms to expand
    };
    for (const law_row& r : rows) {
        SCOPED_TRACE(r.text);
        law_holder l(parse(r.text));
        law_holder var(r.var ? parse(r.var) : law_holder());
        polynomial_ptr p(l->polynomial(var.get()));
        ASSERT_EQ(p != nullptr, r.polynomial);
        if (!p) continue;
        EXPECT_EQ(dense_of(*p), r.expected);
        law_holder in(p->in());
        if (var) {
            EXPECT_EQ(in.get(), var.get());
        }
    }
    // A single term expands whatever its power.
    law_holder big(parse("3*X^100000"));
    polynomial_ptr p(big->polynomial(nullptr));
    ASSERT_TRUE(p);
    EXPECT_EQ(p->degree(), 100000);
    EXPECT_EQ(p->terms(), 1);
}

// Every registered class, as one law over X+1: only the classes of the polynomial set
// answer, and what they answer is the law.
TEST(PolyOfLaw, EveryRegisteredClass) {
    int answered = 0;
    for (law_list* n = law_list::head(); n; n = n->fnext()) {
        const law* proto = n->fthis();
        EXPECT_EQ(polynomial_ptr(proto->polynomial(nullptr)) == nullptr,
                  !proto->isa(constant_law::id()));
        if (proto->isa(unary_data_law::id()) || proto->isa(multiple_data_law::id())) continue;
        std::string sym = proto->symbol(law_symbol_default);
        std::string text = proto->isa(constant_law::id())   ? sym
                           : proto->isa(binary_law::id())   ? "(X+1)" + sym + "(2)"
                           : proto->isa(multiple_law::id()) ? sym + "(X+1,2)"
                                                            : sym + "(X+1)";
        output_capture quiet;
        law_holder l;
        try {
            l.reset(str_to_law(text.c_str()));
        } catch (const vorx_exception&) {
        }
        if (!l) continue;  // a class whose arguments have a shape of their own
        polynomial_ptr p(l->polynomial(nullptr));
        bool in_set = l->isa(constant_law::id()) || l->isa(plus_law::id()) ||
                      l->isa(minus_law::id()) || l->isa(times_law::id()) ||
                      l->isa(negate_law::id()) || l->isa(exponent_law::id());
        EXPECT_EQ(p != nullptr, in_set) << text;
        if (!p) continue;
        ++answered;
        std::vector<double> c = dense_of(*p);
        law_holder back(make_polynomial_law(c.data(), p->degree()));
        EXPECT_NEAR(back->eval(0.7), l->eval(0.7), 1e-12) << text;
    }
    EXPECT_GE(answered, 9);
}

// make_polynomial_law(polynomial(L)) evaluates as L, over random polynomial laws.
TEST(PolyOfLaw, RebuiltLawEvaluatesAsTheLaw) {
    std::mt19937 rng(12);
    auto pick = [&](int n) { return (int)(rng() % n); };
    std::function<std::string(int)> random_text = [&](int depth) -> std::string {
        int kind = depth ? pick(7) : pick(2);
        switch (kind) {
            case 0:
                return std::to_string(pick(9) - 4);
            case 1:
                return "X";
            case 2:
                return "(" + random_text(depth - 1) + ")+(" + random_text(depth - 1) + ")";
            case 3:
                return "(" + random_text(depth - 1) + ")-(" + random_text(depth - 1) + ")";
            case 4:
                return "(" + random_text(depth - 1) + ")*(" + random_text(depth - 1) + ")";
            case 5:
                return "-(" + random_text(depth - 1) + ")";
            default:
                return "(" + random_text(depth - 1) + ")^" + std::to_string(1 + pick(3));
        }
    };
    for (int i = 0; i < 200; ++i) {
        std::string text = random_text(4);
        law_holder l(parse(text.c_str()));
        polynomial_ptr p(l->polynomial(nullptr));
        ASSERT_TRUE(p) << text;
        std::vector<double> c = dense_of(*p);
        law_holder back(make_polynomial_law(c.data(), p->degree()));
        for (double x : {-1.3, -0.4, 0.0, 0.6, 1.7}) {
            double want = l->eval(x);
            EXPECT_NEAR(back->eval(x), want, 1e-9 * (1.0 + std::fabs(want))) << text << " at " << x;
        }
    }
}

TEST(PolyMakeLaw, EveryTermIsBuilt) {
    double c[] = {1, 0, 2, -1};
    law_holder constant(make_polynomial_law(c, 0));
    EXPECT_TRUE(constant->isa(constant_law::id()));
    law_holder l(make_polynomial_law(c, 3));
    EXPECT_EQ(text_of(l), "1+0*X+2*X^2+-1*X^3");
    EXPECT_EQ(l->eval(2.0), 1.0 + 8.0 - 8.0);
    law_holder linear(make_polynomial_law(c, 1));
    EXPECT_EQ(text_of(linear), "1+0*X");
    EXPECT_EQ(error_of([&] { make_polynomial_law(c, -1); }), "LAW_DIM");
    EXPECT_EQ(error_of([&] { make_polynomial_law(nullptr, 2); }), "LAW_DIM");
}

// ---------------------------------------------------------------- integer helpers

TEST(PolyIntegers, FactorIntWithItsDeliberateLimits) {
    struct row {
        int n;
        std::vector<int> primes, powers;
    } rows[] = {
        {12, {2}, {2}},  // r = 3: no odd divisor is tried
        {60, {2, 3, 5}, {2, 1, 1}},
        {22, {2}, {1}},  // the cofactor 11 is dropped
        {9, {}, {}},
        {25, {}, {}},  // 5 is not below r = 5
        {2, {2}, {1}},
        {1024, {2}, {10}},
        {15015, {3, 5, 7, 11, 13}, {1, 1, 1, 1, 1}},
        {1, {}, {}},
        {0, {}, {}},
        {-12, {}, {}},
    };
    for (const row& r : rows) {
        int *primes = nullptr, *powers = nullptr;
        int count = factor_int(r.n, &primes, &powers);
        EXPECT_EQ(std::vector<int>(primes, primes + count), r.primes) << r.n;
        EXPECT_EQ(std::vector<int>(powers, powers + count), r.powers) << r.n;
        VORX_FREE(primes);
        VORX_FREE(powers);
    }
    EXPECT_EQ(factor_int(60, nullptr, nullptr), 3);
}

TEST(PolyIntegers, PowIntRoundsAndRefusesWhatIsNotAnInt) {
    struct row {
        int a, b, expected;
    } rows[] = {{2, 10, 1024}, {-3, 3, -26}, {-2, 2, 4}, {2, -1, 1}, {0, 0, 1}, {2, 30, 1 << 30}};
    for (const row& r : rows) EXPECT_EQ(pow_int(r.a, r.b), r.expected) << r.a << "^" << r.b;
    EXPECT_EQ(error_of([] { pow_int(0, -1); }), "LAW_EXPONENT");
    EXPECT_EQ(error_of([] { pow_int(2, 31); }), "LAW_EXPONENT");
}

TEST(PolyIntegers, GcdInt) {
    struct row {
        std::vector<int> values;
        int expected;
    } rows[] = {{{12, 18}, 6}, {{-4, 6}, 2},      {{0, 0}, 0},         {{}, 0},
                {{7}, 7},      {{INT_MIN, 6}, 2}, {{0, 35, 21, 14}, 7}};
    for (row& r : rows) EXPECT_EQ(GCD_int(r.values.data(), (int)r.values.size()), r.expected);
    int too_big[] = {INT_MIN, 0};
    EXPECT_EQ(error_of([&] { GCD_int(too_big, 2); }), "LAW_DIM");
}

// ---------------------------------------------------------------- solve_linear

TEST(PolySolveLinear, PivotRules) {
    struct row {
        const char* what;
        std::vector<std::vector<double>> system;
        int result;
        std::vector<double> solution;
    } rows[] = {
        {"regular", {{2, 1, 3}, {1, 3, 5}}, 1, {0.8, 1.4}},
        {"rows exchanged", {{0, 1, 2}, {1, 0, 3}}, 1, {3, 2}},
        {"three", {{1, 1, 1, 6}, {0, 2, 5, -4}, {2, 5, -1, 27}}, 1, {5, 3, -2}},
        {"tiny pivot", {{1e-14, 1, 1}, {1e-14, 2, 3}}, 0, {}},
        {"tiny last pivot", {{1e-14, 1}}, 0, {}},
        {"zero column, consistent", {{0, 1, 2}, {0, 1, 2}}, 1, {0, 2}},
        {"zero column, inconsistent", {{0, 1, 2}, {0, 1, 3}}, 0, {}},
        {"NaN pivot", {{NAN, 1, 1}, {1, 1, 1}}, 0, {}},
        {"no equations", {}, 1, {}},
    };
    for (row& r : rows) {
        SCOPED_TRACE(r.what);
        std::vector<double*> ptrs;
        for (auto& eq : r.system) ptrs.push_back(eq.data());
        int n = (int)ptrs.size();
        ASSERT_EQ(solve_linear(ptrs.data(), n), r.result);
        for (size_t i = 0; i < r.solution.size(); ++i)
            EXPECT_NEAR(r.system[i][n], r.solution[i], 1e-14);
    }
    double row0[] = {1, 1};
    double* one_null[] = {nullptr};
    double* rows1[] = {row0};
    EXPECT_EQ(error_of([&] { solve_linear(rows1, -1); }), "LAW_DIM");
    EXPECT_EQ(error_of([&] { solve_linear(one_null, 1); }), "LAW_DIM");
}
