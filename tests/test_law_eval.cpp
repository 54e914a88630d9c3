// The evaluation interface: typed evaluators and their dimension errors, the scalar-zero
// probe, the derivative and inverse caches, and the classification caches.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <string>

#include "base/complex_number.hpp"
#include "base/matrix.hpp"
#include "base/nvector.hpp"
#include "base/transf.hpp"
#include "lawutil/global_names.hpp"
#include "lawutil/lawutil.hpp"

namespace {

// A law of `in` inputs and `out` outputs whose i-th output is (i+1) * (x0 + 1), with a
// derivative only in input 0, counting evaluations and the arguments it was given.
class shape_law : public law {
  public:
    shape_law(int in, int out) : in_(in), out_(out) {}
    void evaluate(const double* x, double* y) const override {
        ++plain;
        for (int i = 0; i < out_; ++i) y[i] = (i + 1) * ((in_ ? x[0] : 0.0) + 1.0);
    }
    void evaluate_with_side(const double* x, double* y, const int*) const override {
        ++sided;
        evaluate(x, y);
    }
    void evaluate_with_guess(const double* x, double* y, const double*) const override {
        ++guessed;
        evaluate(x, y);
    }
    mutable int plain = 0, sided = 0, guessed = 0;

  protected:
    int take_size() const override { return in_; }
    int return_size() const override { return out_; }
    law* deriv(int which) const override {
        return which == 0 ? VORX_NEW constant_law(1.0) : nullptr;
    }

  private:
    int in_, out_;
};

int code_of(void (*f)(const law*), const law* l) {
    try {
        f(l);
    } catch (const vorx_exception& e) {
        return e.code();
    }
    return 0;
}

}  // namespace

// Each typed evaluator refuses a law of the wrong shape with its own code.
TEST(Evaluate, TypedEvaluatorsCheckTheShapeTheyNeed) {
    struct {
        int in, out;
        void (*call)(const law*);
        int code;
        const char* message = nullptr;
    } rows[] = {{1, 3, [](const law* l) { l->eval(1.0); }, LAW_EVALS,
                 "EvaluateS was called on a multidimensional law"},
                {2, 1, [](const law* l) { l->evaluateNV_R(nvector(1)); }, LAW_EVALV},
                {1, 1, [](const law* l) { l->evaluateR_V(0.0); }, LAW_EVALV},
                {2, 3, [](const law* l) { l->evaluateR_V(0.0); }, LAW_EVALV_ONE,
                 "EvaluateV does not take one value"},
                {1, 3, [](const law* l) { l->evaluateM_MAT(nullptr); }, LAW_EVALMMAT},
                {1, 3, [](const law* l) { l->evaluateM_T(nullptr); }, LAW_EVALMT},
                {1, 4, [](const law* l) { l->evaluateM_V(nullptr); }, LAW_EVALVM},
                {3, 3, [](const law* l) { l->evaluatePP_V(par_pos(1, 1)); }, LAW_EVALV}};
    for (auto& r : rows) {
        law_holder l(VORX_NEW shape_law(r.in, r.out));
        try {
            r.call(l.get());
            ADD_FAILURE() << r.in << " -> " << r.out << " raised nothing";
        } catch (const vorx_exception& e) {
            EXPECT_EQ(e.code(), r.code) << r.in << " -> " << r.out;
            if (r.message) {
                EXPECT_STREQ(e.what(), r.message);
            }
        }
    }
}

TEST(Evaluate, TypedEvaluatorsReadTheOutputs) {
    law_holder y(VORX_NEW identity_law(1, 'Y'));
    double in[2] = {3.0, 4.0}, x = 1.0;
    EXPECT_EQ(y->evaluateM_R(in), 4.0);
    EXPECT_EQ(y->evaluateC_R(complex_number(3.0, 5.0)), 5.0);
    EXPECT_EQ(y->evaluateNV_R(nvector(in, 2)), 4.0);
    law_holder v1(VORX_NEW shape_law(1, 3));
    EXPECT_EQ(v1->evaluateR_V(1.0).z(), 6.0);
    EXPECT_EQ(v1->evaluateM_P(&x).y(), 4.0);
    law_holder pp(VORX_NEW shape_law(1, 2));
    EXPECT_EQ(pp->evaluateM_PP(&x).v(), 4.0);
    law_holder p3(VORX_NEW shape_law(3, 3));
    EXPECT_EQ(p3->evaluateP_P(position(1, 0, 0)).x(), 2.0);
    law_holder nine(VORX_NEW shape_law(1, 9));
    EXPECT_EQ(nine->evaluateM_MAT(&x).element(0, 1), 4.0);  // row by row
}

// eval() tested the input count first, so a vector law of several inputs raised LAW_DIM
// where evaluateM_R raises LAW_EVALS; the input count is checked after the output.
TEST(Evaluate, EvalOnAVectorLawOfSeveralInputsRaisesLawEvals) {
    law_holder vec(str_to_law("VEC(X,Y,Z)"));
    EXPECT_EQ(code_of([](const law* l) { l->eval(1.0); }, vec.get()), LAW_EVALS);
    law_holder two_inputs(VORX_NEW shape_law(2, 1));
    EXPECT_EQ(code_of([](const law* l) { l->eval(1.0); }, two_inputs.get()), LAW_DIM);
}

TEST(Evaluate, SideAndGuessDispatch) {
    shape_law* s = VORX_NEW shape_law(1, 1);
    law_holder h(s);
    double x = 1.0, guess = 0.5;
    int side = 1;
    s->evaluateM_R(&x, &side, nullptr);
    s->evaluateM_R(&x, nullptr, &guess);
    s->evaluateM_R(&x, &side, &guess);  // both given: plain, deliberately
    s->eval(x);
    EXPECT_EQ(s->sided, 1);
    EXPECT_EQ(s->guessed, 1);
    EXPECT_EQ(s->plain, 4);
}

// A scalar zero stands for every zero type; evaluateM_V, _T and _MAT read any scalar so.
TEST(Evaluate, ScalarZeroStandsForEveryZeroType) {
    law_holder zero(VORX_NEW constant_law(0.0));
    law_holder two(VORX_NEW constant_law(2.0));
    EXPECT_EQ(zero->evaluateR_V(5.0).len(), 0.0);
    EXPECT_EQ(zero->evaluateM_PP(nullptr).u(), 0.0);
    EXPECT_EQ(two->evaluateM_V(nullptr).len(), 0.0);
    EXPECT_EQ(two->evaluateM_T(nullptr).translation().len(), 0.0);
    EXPECT_EQ(two->evaluateM_MAT(nullptr).element(2, 2), 0.0);
}

TEST(Evaluate, VariableSizeEvaluationAllocatesForTheCaller) {
    law_holder v(VORX_NEW shape_law(1, 5));
    double x = 0.0, *y = nullptr;
    int n = 0;
    v->evaluateVAR(&x, y, n);
    ASSERT_EQ(n, 5);
    EXPECT_EQ(y[4], 5.0);
    VORX_FREE(y);
}

TEST(DerivativeCache, GrowsOnDemandAndReturnsTheSameObject) {
    law_holder x(VORX_NEW identity_law(3, 'X'));
    law_holder d3(x->derivative(3));
    EXPECT_TRUE(x->cached_derivative(3));
    EXPECT_FALSE(x->cached_derivative(0));
    EXPECT_FALSE(x->cached_derivative(5));
    law_holder again(x->derivative(3));
    EXPECT_EQ(d3.get(), again.get());
    EXPECT_EQ(d3->ref_count(), 3);  // the cache and the two callers
    EXPECT_EQ(d3->eval(0.0), 1.0);
    x->reset_derivative(3);
    EXPECT_FALSE(x->cached_derivative(3));
}

TEST(DerivativeCache, SetDerivativeSharesOrCopies) {
    law_holder x(VORX_NEW identity_law(0, 'X'));
    law_holder d(VORX_NEW constant_law(4.0));
    x->set_derivative(0, d.get(), 1);
    EXPECT_EQ(law_holder(x->derivative(0)).get(), d.get());
    x->set_derivative(0, d.get(), 0);
    law_holder copy(x->derivative(0));
    EXPECT_NE(copy.get(), d.get());
    EXPECT_TRUE(*copy == *d);
}

TEST(DerivativeCache, ValuesOfHigherDerivatives) {
    law_holder x(VORX_NEW identity_law(0, 'X'));
    double at = 2.5;
    EXPECT_EQ(x->evaluateDM_R(&at, 0), 2.5);
    EXPECT_EQ(x->evaluateDM_R(&at, 1), 1.0);
    EXPECT_EQ(x->evaluateDM_R(&at, 2), 0.0);
    EXPECT_EQ(x->evaluateDR_R(at, 1), 1.0);
    law_holder self(x->nth_derivative(0));
    EXPECT_EQ(self.get(), x.get());
    law_holder y(VORX_NEW identity_law(1, 'Y'));
    law_holder dy(y->uv_partials(0, 1));
    EXPECT_EQ(dy->eval(0.0), 1.0);
    // A constant derivative counts as zero for the vector form, whatever its value.
    EXPECT_EQ(x->evaluateDR_V(1.0, 1).len(), 0.0);
}

TEST(DerivativeCache, ClassWithoutDerivativeReportsLawDeriv) {
    law_holder v(VORX_NEW shape_law(2, 1));
    EXPECT_TRUE(v->has_derivative(0));
    EXPECT_FALSE(v->has_derivative(1));
    EXPECT_EQ(code_of([](const law* l) { law_holder d(l->derivative(1)); }, v.get()), LAW_DERIV);
    EXPECT_EQ(code_of([](const law* l) { law_holder d(l->derivative(-1)); }, v.get()), LAW_DERIV);
    // The law is intact and its other derivative still works.
    EXPECT_EQ(law_holder(v->derivative(0))->eval(0.0), 1.0);
}

TEST(InverseCache, IdentityIsItsOwnInverse) {
    law_holder x(VORX_NEW identity_law(0, 'X'));
    law_holder inv(x->inverse());
    EXPECT_EQ(inv.get(), x.get());
    EXPECT_EQ(x->ref_count(), 2);  // the self-reference in the cache holds none
    law_holder c(VORX_NEW constant_law(1.0));
    EXPECT_EQ(c->inverse(), nullptr);
    law_holder other(VORX_NEW constant_law(3.0));
    c->set_inverse(other.get());
    law_holder got(c->inverse());
    EXPECT_EQ(got.get(), other.get());
}

// Each level is asked twice, the second answer from the cache: zero implies integer, and a
// known non-integer is known non-zero.
TEST(Classification, LevelsAreCachedBothWays) {
    struct {
        double value;
        bool zero, integer;
    } rows[] = {{1e-12, true, true}, {2.5, false, false}, {2.0, false, true}};
    for (auto& r : rows) {
        law_holder c(VORX_NEW constant_law(r.value));
        for (int k = 0; k < 2; ++k) {
            if (r.integer) {
                EXPECT_EQ(c->zero(1e-10), r.zero) << r.value;
            }
            EXPECT_EQ(c->integer(), r.integer) << r.value;
            EXPECT_EQ(c->zero(1e-10), r.zero) << r.value;
        }
        EXPECT_TRUE(c->constant() && c->linear());
    }
    law_holder x(VORX_NEW identity_law(0, 'X'));
    EXPECT_FALSE(x->constant());
    EXPECT_FALSE(x->zero());
    EXPECT_TRUE(x->linear());

    // No derivative: not linear, and nothing recorded, so constant() still decides.
    class opaque_law : public law {
      public:
        void evaluate(const double*, double* y) const override { *y = 1.0; }

      protected:
        int take_size() const override { return 0; }
    };
    law_holder opaque(VORX_NEW opaque_law);
    EXPECT_FALSE(opaque->linear());
    EXPECT_TRUE(opaque->constant());
}

namespace {

// A random arithmetic law of X and Y: sums, differences, products, quotients, powers,
// negations and the functions the arithmetic evaluates in place (with their domain
// errors), with whole, negative, fractional and variable exponents.
std::string random_arithmetic_law(std::mt19937& rng, int depth) {
    static const char* const leaves[] = {"X", "Y", "2", "0.5", "-3", "X", "0"};
    static const char* const operators[] = {"+", "-", "*", "/", "^"};
    static const char* const exponents[] = {"2", "3", "8", "16", "17", "-1", "0.5", "2.5", "X"};
    static const char* const functions[] = {"SQRT", "LN",   "EXP",  "SIN", "COS",
                                            "SINH", "COSH", "TANH", "ABS", "TAN"};
    int pick = depth <= 0 ? 0 : (int)(rng() % 5);
    if (pick == 0) return leaves[rng() % 7];
    if (pick == 1) return "-(" + random_arithmetic_law(rng, depth - 1) + ")";
    if (pick == 4)
        return std::string(functions[rng() % 10]) + "(" + random_arithmetic_law(rng, depth - 1) +
               ")";
    const char* op = operators[rng() % 5];
    std::string right = *op == '^' ? exponents[rng() % 9] : random_arithmetic_law(rng, depth - 1);
    return "(" + random_arithmetic_law(rng, depth - 1) + ")" + op + "(" + right + ")";
}

// A polynomial as the parser reads it, a left-deep chain of terms in a random order (so
// powers of one variable come up, down and interleaved): of X and Y, longer than one
// stretch of the evaluation's spine; of one variable, terms c, V, V^k and c*V^k up to
// degree 16; or a quotient of two of those.
std::string one_variable_polynomial(std::mt19937& rng, const char* v) {
    static const char* const coefficients[] = {"2", "-3", "0.5", "1", "0", "7.25", "1e-8", "-0.1"};
    std::string text;
    int terms = 1 + (int)(rng() % 17);
    for (int i = 0; i < terms; ++i) {
        if (i > 0) text += rng() % 3 ? "+" : "-";
        int shape = (int)(rng() % 4);
        std::string c = coefficients[rng() % 8];
        std::string power = std::string(v) + "^" + std::to_string(2 + rng() % 15);
        text += shape == 0 ? c : shape == 1 ? std::string(v) : shape == 2 ? power : c + "*" + power;
    }
    return text;
}

std::string random_polynomial(std::mt19937& rng) {
    int kind = (int)(rng() % 3);
    const char* v = rng() % 4 ? "X" : "Y";
    if (kind == 1) return one_variable_polynomial(rng, v);
    if (kind == 2)
        return "(" + one_variable_polynomial(rng, v) + ")/(" + one_variable_polynomial(rng, v) +
               ")";
    std::string text = "1";
    int terms = 4 + (int)(rng() % 40);
    for (int i = 0; i < terms; ++i)
        text += std::string(rng() % 3 ? "+" : "-") + std::to_string(1 + rng() % 9) + "*" +
                (rng() % 4 ? "X" : "Y") + "^" + std::to_string(1 + rng() % 16);
    return text;
}

// The value at `in` (bit pattern) or the code raised, `sided` through the side path.
struct outcome {
    double value = 0.0;
    int code = 0;
};
outcome evaluate_at(const law* l, const double* in, bool sided) {
    static const int side[2] = {0, 0};
    outcome o;
    try {
        o.value = l->evaluateM_R(in, sided ? side : nullptr);
    } catch (const vorx_exception& e) {
        o.code = e.code();
    }
    return o;
}

}  // namespace

// Scalar arithmetic runs through its own evaluation (chains as loops, shared powers); the
// side path still runs each node's evaluate, recursively; the exact program runs the
// tree's operations itself.  All give the same bits and raise the same codes, at ordinary
// points and at the edges of the power and 0/0 rules.
TEST(Evaluate, ScalarArithmeticGivesTheRecursiveValuesBitForBit) {
    std::mt19937 rng(20261123);
    const double points[][2] = {{0.7, -0.3}, {-1.3, 2.0},   {0.0, 0.5},     {1e-16, -1e-16},
                                {2.0, 1e16}, {-0.9, 0.7},   {1e15, 1e-15},  {-7.5, 0.0},
                                {1.0, -1.0}, {1e300, 3.0},  {-1e-300, 1e8}, {0.25, 0.25},
                                {0.3, 1.7},  {-0.77, -1.1}, {3.1, 0.9}};
    law_tiering_off pure_tree;
    int compared = 0, raised = 0;
    for (int i = 0; i < 600; ++i) {
        std::string text = i % 3 ? random_arithmetic_law(rng, 5) : random_polynomial(rng);
        law_holder l(str_to_law(text.c_str()));
        ASSERT_TRUE(l) << text;
        // Two sums on the same law: the second cannot extend the terms of a polynomial
        // that the first has extended, and copies them.
        law_holder cube(str_to_law("X^3"));
        law_holder plus(VORX_NEW plus_law(l.get(), cube.get()));
        law_holder minus(VORX_NEW minus_law(l.get(), cube.get()));
        for (const law* each : {l.get(), plus.get(), minus.get()}) {
            law_program exact(each, law_program::exact);
            for (const auto& p : points) {
                outcome fast = evaluate_at(each, p, false);
                outcome recursive = evaluate_at(each, p, true);
                outcome program;
                try {
                    program.value = exact.evaluate(p);
                } catch (const vorx_exception& e) {
                    program.code = e.code();
                }
                ASSERT_EQ(fast.code, recursive.code) << text << " at " << p[0] << ", " << p[1];
                ASSERT_EQ(program.code, fast.code) << text << " at " << p[0] << ", " << p[1];
                ASSERT_EQ(std::memcmp(&fast.value, &recursive.value, sizeof(double)), 0)
                    << text << " (" << (each == l.get() ? "" : "+-X^3") << ") at " << p[0] << ", "
                    << p[1] << ": " << fast.value << " != " << recursive.value;
                ASSERT_EQ(std::memcmp(&program.value, &fast.value, sizeof(double)), 0)
                    << text << " exact program at " << p[0] << ", " << p[1];
                ++compared;
                raised += fast.code != 0;
            }
        }
    }
    EXPECT_GT(raised, 100);
    EXPECT_GT(compared - raised, 4000);
}
