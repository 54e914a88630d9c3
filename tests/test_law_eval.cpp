// The evaluation interface: typed evaluators and their dimension errors, the scalar-zero
// probe, the derivative and inverse caches, and the classification caches.
#include <gtest/gtest.h>

#include <cmath>

#include "base/complex_number.hpp"
#include "base/matrix.hpp"
#include "base/nvector.hpp"
#include "base/transf.hpp"
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

TEST(Evaluate, ScalarEvaluatorsCheckTheOutputDimension) {
    law_holder three(VORX_NEW shape_law(1, 3));
    EXPECT_EQ(code_of([](const law* l) { l->eval(1.0); }, three.get()), LAW_EVALS);
    try {
        three->eval(0.0);
    } catch (const vorx_exception& e) {
        EXPECT_STREQ(e.what(), "EvaluateS was called on a multidimensional law");
    }
    law_holder x(VORX_NEW identity_law(1, 'Y'));
    double in[2] = {3.0, 4.0};
    EXPECT_EQ(x->evaluateM_R(in), 4.0);
    EXPECT_EQ(x->evaluateC_R(complex_number(3.0, 5.0)), 5.0);
    EXPECT_EQ(x->evaluateNV_R(nvector(in, 2)), 4.0);
    EXPECT_EQ(code_of([](const law* l) { l->evaluateNV_R(nvector(1)); }, x.get()), LAW_EVALV);
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

TEST(Evaluate, ScalarZeroStandsForEveryZeroType) {
    law_holder zero(VORX_NEW constant_law(0.0));
    law_holder two(VORX_NEW constant_law(2.0));
    vector v = zero->evaluateR_V(5.0);
    EXPECT_EQ(v.len(), 0.0);
    EXPECT_EQ(zero->evaluateM_PP(nullptr).u(), 0.0);
    EXPECT_EQ(code_of([](const law* l) { l->evaluateR_V(0.0); }, two.get()), LAW_EVALV);
    // evaluateM_V reads any scalar as the zero vector without evaluating.
    EXPECT_EQ(two->evaluateM_V(nullptr).len(), 0.0);
    EXPECT_EQ(two->evaluateM_T(nullptr).translation().len(), 0.0);
    matrix m = two->evaluateM_MAT(nullptr);
    EXPECT_EQ(m.element(0, 0), 0.0);
    EXPECT_EQ(m.element(2, 2), 0.0);
}

TEST(Evaluate, VectorEvaluatorsCheckShapeInOrder) {
    law_holder v2in(VORX_NEW shape_law(2, 3));
    EXPECT_EQ(code_of([](const law* l) { l->evaluateR_V(0.0); }, v2in.get()), LAW_EVALV_ONE);
    try {
        v2in->evaluateR_V(0.0);
    } catch (const vorx_exception& e) {
        EXPECT_STREQ(e.what(), "EvaluateV does not take one value");
    }
    law_holder v1(VORX_NEW shape_law(1, 3));
    vector r = v1->evaluateR_V(1.0);
    EXPECT_EQ(r.x(), 2.0);
    EXPECT_EQ(r.z(), 6.0);
    double x = 1.0;
    EXPECT_EQ(v1->evaluateM_P(&x).y(), 4.0);
    EXPECT_EQ(code_of([](const law* l) { l->evaluateM_MAT(nullptr); }, v1.get()), LAW_EVALMMAT);
    EXPECT_EQ(code_of([](const law* l) { l->evaluateM_T(nullptr); }, v1.get()), LAW_EVALMT);
    law_holder four(VORX_NEW shape_law(1, 4));
    EXPECT_EQ(code_of([](const law* l) { l->evaluateM_V(nullptr); }, four.get()), LAW_EVALVM);
    law_holder pp(VORX_NEW shape_law(1, 2));
    EXPECT_EQ(pp->evaluateM_PP(&x).v(), 4.0);
    law_holder p3(VORX_NEW shape_law(3, 3));
    EXPECT_EQ(code_of([](const law* l) { l->evaluatePP_V(par_pos(1, 1)); }, p3.get()), LAW_EVALV);
    EXPECT_EQ(p3->evaluateP_P(position(1, 0, 0)).x(), 2.0);
    law_holder nine(VORX_NEW shape_law(1, 9));
    matrix m = nine->evaluateM_MAT(&x);
    EXPECT_EQ(m.element(0, 1), 4.0);
    EXPECT_EQ(m.element(2, 2), 18.0);
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
    law* d3 = x->derivative(3);
    EXPECT_TRUE(x->cached_derivative(3));
    EXPECT_FALSE(x->cached_derivative(0));
    EXPECT_FALSE(x->cached_derivative(5));
    law* again = x->derivative(3);
    EXPECT_EQ(d3, again);
    EXPECT_EQ(d3->ref_count(), 3);  // the cache and the two callers
    EXPECT_EQ(d3->eval(0.0), 1.0);
    d3->remove();
    again->remove();
    x->reset_derivative(3);
    EXPECT_FALSE(x->cached_derivative(3));
}

TEST(DerivativeCache, SetDerivativeSharesOrCopies) {
    law_holder x(VORX_NEW identity_law(0, 'X'));
    law_holder d(VORX_NEW constant_law(4.0));
    x->set_derivative(0, d.get(), 1);
    law_holder got(x->derivative(0));
    EXPECT_EQ(got.get(), d.get());
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
    law_holder d2(x->nth_derivative(2));
    EXPECT_EQ(d2->eval(7.0), 0.0);
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
    law_holder d0(v->derivative(0));
    EXPECT_EQ(d0->eval(0.0), 1.0);
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

TEST(Classification, LevelsAreCachedBothWays) {
    law_holder tiny(VORX_NEW constant_law(1e-12));
    EXPECT_TRUE(tiny->zero(1e-10));
    EXPECT_TRUE(tiny->zero(1e-10));
    EXPECT_TRUE(tiny->integer());  // implied by zero
    EXPECT_TRUE(tiny->constant());
    EXPECT_TRUE(tiny->linear());

    law_holder half(VORX_NEW constant_law(2.5));
    EXPECT_FALSE(half->integer());
    EXPECT_FALSE(half->zero());  // answered from the cache
    EXPECT_TRUE(half->constant());

    law_holder two(VORX_NEW constant_law(2.0));
    EXPECT_TRUE(two->integer());
    EXPECT_FALSE(two->zero());

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
