// Integration: the Romberg routines and their result codes, the integral law, law_integrate
// as a property over one-input laws, and the adaptive routine on a battery of integrals
// with closed-form values against a 21-point Gauss-Kronrod baseline without split points.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "integrate_battery.hpp"
#include "lawutil/lawutil.hpp"
#include "test_support.hpp"

namespace {

const double nan_value = std::numeric_limits<double>::quiet_NaN();
const double inf_value = std::numeric_limits<double>::infinity();

// ---------------------------------------------------------------- Romberg

struct romberg_case {
    const char* text;
    double a, b, tol;
    int min_level, result;
    double answer;  // NaN: not checked
};

// clang-format off
const romberg_case romberg_cases[] = {
    {"2*X+1", 0, 1, 1e-12, 0, 2, 2.0},                   // linear: two equal estimates
    {"X*X", 0.5, 0.5, 1e-12, 0, 2, 0.0},                 // a = b: one refinement
    {"SIN(X)", 0, 1, 1e-12, 12, 13, 1 - std::cos(1.0)},  // min_level beyond the limit
    {"ABS(X-0.3)", 0, 1, 1e-15, 0, 0, nan_value},        // the kink runs into the limit
    {"X*X", 1, 0, 1e-12, 0, 3, -1.0 / 3},                // a > b: signed
    {"X^3", 0, 2, 1e-12, 5, 6, 4.0},                     // min_level asks for more rows
};
// clang-format on

TEST(Romberg, ResultCodesAndAnswers) {
    for (const romberg_case& c : romberg_cases) {
        SCOPED_TRACE(c.text);
        law_holder f = parse(c.text);
        double answer = -1;
        EXPECT_EQ(Nintegrate(f.get(), c.a, c.b, &answer, c.tol, c.min_level), c.result);
        if (!std::isnan(c.answer)) {
            EXPECT_NEAR(answer, c.answer, 1e-12);
        }
    }
}

TEST(Romberg, WrtOverwritesTheCoordinateAndSplitPullsIn) {
    law_holder f = parse("X*Y");
    double x[2] = {3.0, 99.0}, answer = 0;
    // integral of 3y over [0, 2] = 6; converges at row 2, whose midpoint is 1
    EXPECT_EQ(Nintegrate_wrt(f.get(), 0, 2, 1, x, &answer, 1e-12, 0), 2);
    EXPECT_NEAR(answer, 6.0, 1e-12);
    EXPECT_EQ(x[1], 1.0);
    EXPECT_EQ(x[0], 3.0);

    law_holder one = parse("1+0*Y");
    double pt[2] = {0, 0};
    EXPECT_EQ(Nintegrate_wrt_and_split(one.get(), 0, 1, 1, pt, &answer, 0, nullptr, 1e-12, 0), 2);
    EXPECT_DOUBLE_EQ(answer, (1 - 1e-14) - 1e-14);
    // Unsorted split points and one outside [a, b] still add up (signed pieces).
    double splits[3] = {0.2, 1.5, 0.7};
    law_holder g = parse("ABS(Y-0.2)+0*X");
    Nintegrate_wrt_and_split(g.get(), 0, 1, 1, pt, &answer, 3, splits, 1e-13, 0);
    EXPECT_NEAR(answer, 0.02 + 0.32, 1e-9);
}

TEST(Romberg, BadInputRaisesAndReleasesTheRows) {
    law_holder ln = parse("LN(X)");
    double answer = 0;
    EXPECT_EQ(error_of([&] { Nintegrate(ln.get(), -1, 1, &answer, 1e-10, 0); }), "LAW_LN");
    for (double bad : {nan_value, inf_value, -inf_value})
        EXPECT_EQ(error_of([&] { Nintegrate(ln.get(), 1, bad, &answer, 1e-10, 0); }),
                  "LAW_BAD_BOUNDS");
    // A wild min_level is clamped: bounded work.
    law_holder f = parse("X");
    EXPECT_EQ(Nintegrate(f.get(), 0, 1, &answer, 1e-10, 1000000), 21);
}

// ---------------------------------------------------------------- integral law

TEST(IntegrateLaw, PrintsReadsBackCopiesComparesAndSortsItsSplits) {
    law_holder f = parse("X*Y"), lo = parse("0"), hi = parse("X");
    law_holder s1 = parse("0.7*X"), s2 = parse("0.2*X");
    law* splits[2] = {s1.get(), s2.get()};
    law_holder i(VORX_NEW integrate_law(f.get(), lo.get(), hi.get(), 2, splits, 1e-12, 3));
    EXPECT_EQ(text_of(i), "Integrate(X*Y,0,X)");
    EXPECT_EQ(text_of(i, law_symbol_maple), "int(X*Y,Y=0..X)");
    law_holder copy(i->deep_copy());
    EXPECT_TRUE(*copy == *i);
    // x * x^2 / 2 at x = 2
    EXPECT_NEAR(i->eval(2.0), 4.0, 1e-10);
    auto il = static_cast<const integrate_law*>(i.get());
    EXPECT_EQ(il->fsplits()[0], s2.get());  // sorted in place by value
    EXPECT_TRUE(*copy == *i);               // equality ignores the order
    // Without splits and with the default tolerance the text reads back equal.
    law_holder plain(VORX_NEW integrate_law(f.get(), lo.get(), hi.get(), 0, nullptr,
                                            integrate_law::default_tol,
                                            integrate_law::default_min_level));
    law_holder back = parse(text_of(plain).c_str());
    EXPECT_TRUE(*back == *plain);
    EXPECT_FALSE(*back == *i);
    EXPECT_EQ(error_of([] { law_holder l(str_to_law("INTEGRATE(X,0)")); }), "LAW_DIM");
    EXPECT_EQ(error_of([] { law_holder l(str_to_law("INTEGRATE(X,0,Y)")); }), "LAW_DIM");
}

// d/dX integral from A(X) to B(X) of F(X,Y): every term of the Leibniz rule at work.
TEST(IntegrateLaw, DerivativeFollowsLeibniz) {
    law_holder i = parse("INTEGRATE(SIN(X*Y)+Y,X,X*X+1)");
    law_holder d(i->derivative(0));
    for (double x : {0.3, 0.8, 1.4}) {
        double at[1] = {x}, numeric = 0;
        Ndifferentiate(i.get(), at, 0, &numeric, 1);
        EXPECT_NEAR(d->eval(x), numeric, 1e-7) << text_of(d);
    }
}

// ---------------------------------------------------------------- law_integrate

struct antiderivative_case {
    const char* text;
    bool symbolic;
};

// clang-format off
const antiderivative_case antiderivative_cases[] = {
    {"3", true}, {"X", true}, {"X^3-2*X+1", true}, {"(2*X+1)^3", true}, {"X*(X-1)*(X+2)", true},
    {"-X^2", true}, {"SIN(X)", true}, {"COS(3*X+1)", true}, {"TAN(X/2)", true}, {"COT(X+1)", true},
    {"EXP(-2*X)", true}, {"LN(X+1)", true}, {"SQRT(2*X+1)", true}, {"SINH(X)", true},
    {"COSH(0.5*X)", true}, {"TANH(X-1)", true}, {"1/(2*X+1)", true}, {"(X+2)^-1", true},
    {"(3*X+1)^0.5", true}, {"2^X", true}, {"PI*SIN(X)-4*COS(X)", true}, {"(SIN(X)+EXP(X))/3", true},
    {"5*(X^2+1)", true}, {"EXP(X)*2", true}, {"SIN(X*X)", false}, {"EXP(-(X^2))", false},
    {"1/(1+X^2)", false}, {"ABS(X-0.5)", false}, {"SIN(X)*COS(X)", false}, {"SQRT(1+X^2)", false},
};
// clang-format on

// The derivative of the antiderivative is the integrand, F(base) = 0, and F(b) - F(a) is
// the definite integral.
TEST(LawIntegrate, DerivativeOfTheAntiderivativeIsTheIntegrand) {
    for (const antiderivative_case& c : antiderivative_cases) {
        SCOPED_TRACE(c.text);
        law_holder f = parse(c.text);
        law_holder big(law_integrate(f.get(), 0.1));
        VOID_LIST numeric;
        big->hasa(integrate_law::id(), numeric);
        EXPECT_EQ(numeric.count() == 0, c.symbolic) << text_of(big);
        law_holder d(big->derivative(0));
        for (double x : {0.15, 0.45, 0.9})
            EXPECT_NEAR(d->eval(x), f->eval(x), 1e-9 * (1 + std::fabs(f->eval(x)))) << text_of(d);
        EXPECT_NEAR(big->eval(0.1), 0.0, 1e-12);
        integrate_result r = Nintegrate_adaptive(f.get(), 0.2, 0.9);
        EXPECT_NEAR(big->eval(0.9) - big->eval(0.2), r.value, 1e-9 * (1 + std::fabs(r.value)));
    }
    law_holder two = parse("X*Y");
    EXPECT_EQ(error_of([&] { law_holder l(law_integrate(two.get())); }), "LAW_DIM");
}

// ---------------------------------------------------------------- adaptive

TEST(Adaptive, BatteryIsAccurateOrHonestAndCheaperThanGk21) {
    long ours = 0, baseline = 0;
    for (const battery_case& c : integrate_battery) {
        SCOPED_TRACE(c.text);
        law_holder f = parse(c.text);
        integrate_result r = Nintegrate_adaptive(f.get(), c.a, c.b);
        double err = std::fabs(r.value - c.exact);
        EXPECT_TRUE(err <= 1e-10 * std::fabs(c.exact) || err <= r.error)
            << r.value << " err " << err << " estimate " << r.error << " status " << r.status;
        EXPECT_LE(err, r.error + 1e-10 * std::fabs(c.exact));
        integrate_result g = Nintegrate_adaptive(f.get(), c.a, c.b, gk21_baseline());
        ours += r.evaluations;
        baseline += g.evaluations;
    }
    EXPECT_LT(2 * ours, baseline);
}

// Past 512 evaluations the rules run through the compiled law: a domain error met there
// (the last of 40 pieces, each with its first rule) still carries the tree's code.
TEST(Adaptive, DomainErrorThroughTheCompiledLawIsTheTrees) {
    law_holder f = parse("X*SQRT(0.99-X)");
    double splits[39];
    for (int i = 0; i < 39; ++i) splits[i] = 0.025 * (i + 1);
    EXPECT_EQ(error_of([&] { f->eval(0.995); }), "LAW_SQRT");
    EXPECT_EQ(
        error_of([&] { Nintegrate_adaptive(f.get(), 0, 1, integrate_options(), 39, splits); }),
        "LAW_SQRT");
    integrate_result r = Nintegrate_adaptive(f.get(), 0, 0.99, integrate_options(), 39, splits);
    EXPECT_NEAR(r.value, std::pow(0.99, 2.5) * 4 / 15, 1e-10);
}

// The Kronrod rules are exact on polynomials of degree 3n+1: X^22 and X^31 in one rule
// (the error estimate, from the Gauss rule, asks for more: the bound stops it).
TEST(Adaptive, KronrodRulesAreExactOnHighDegreePolynomials) {
    for (int points : {15, 21}) {
        integrate_options o;
        o.kronrod_points = points;
        o.max_evaluations = points;
        int degree = points == 15 ? 22 : 31;
        law_holder f = parse(("X^" + std::to_string(degree)).c_str());
        integrate_result r = Nintegrate_adaptive(f.get(), 0, 1, o);
        EXPECT_EQ(r.evaluations, points);
        EXPECT_EQ(r.status, integrate_evaluation_limit);
        EXPECT_NEAR(r.value, 1.0 / (degree + 1), 1e-15);
    }
}

TEST(Adaptive, BadInput) {
    law_holder f = parse("ABS(X-0.3)");
    integrate_result forward = Nintegrate_adaptive(f.get(), 0, 1);
    EXPECT_EQ(Nintegrate_adaptive(f.get(), 1, 0).value, -forward.value);
    EXPECT_EQ(Nintegrate_adaptive(f.get(), 0.4, 0.4).evaluations, 0);
    // Split points unsorted, repeated, outside or not finite: the same integral.
    double splits[5] = {0.8, -2.0, 0.3, nan_value, 0.8};
    EXPECT_NEAR(Nintegrate_adaptive(f.get(), 0, 1, integrate_options(), 5, splits).value, 0.29,
                1e-14);
    for (double bad : {nan_value, inf_value})
        EXPECT_EQ(error_of([&] { Nintegrate_adaptive(f.get(), bad, 1); }), "LAW_BAD_BOUNDS");
    law_holder two = parse("X*Y");
    EXPECT_EQ(error_of([&] { Nintegrate_adaptive(two.get(), 0, 1); }), "LAW_DIM");
    law_holder ln = parse("LN(X)");
    EXPECT_EQ(error_of([&] { Nintegrate_adaptive(ln.get(), -1, 1); }), "LAW_LN");
    // No positive tolerance: the rounding floor, within the evaluation bound.
    integrate_options none;
    none.rel_tol = 0;
    none.abs_tol = -1;
    none.max_evaluations = 3000;
    law_holder wiggle = parse("SIN(1/(X+0.01))");
    integrate_result r = Nintegrate_adaptive(wiggle.get(), 0, 1, none);
    EXPECT_LE(r.evaluations, 3000);
    EXPECT_EQ(r.status, integrate_evaluation_limit);
    // A bound below one rule: the first rule on each piece, nothing more.
    none.max_evaluations = -5;
    EXPECT_EQ(Nintegrate_adaptive(wiggle.get(), 0, 1, none).evaluations, 15);
}

}  // namespace
