// The spline surface: evaluation against the tensor sum and against differences, the patch
// forms, approximation of laws of two inputs with the bound checked on a grid 36 times
// denser than the fit's, and the table of bad input.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>

#include "lawutil/lawutil.hpp"
#include "test_support.hpp"

namespace {

// A (3, 2) surface over uneven knots with a double knot in u.
struct sample_surface {
    static constexpr int nu = 7, nv = 5;
    double ku[nu + 4] = {0, 0, 0, 0, 0.4, 1, 1, 2, 2, 2, 2};
    double kv[nv + 3] = {-1, -1, -1, 0, 0.5, 2, 2, 2};
    double pts[3 * nu * nv];
    sample_surface() {
        for (int i = 0; i < 3 * nu * nv; ++i) pts[i] = std::sin(1.7 * i) * (1 + i % 3);
    }
    position direct(double u, double v) const {
        double N[4], M[3];
        int a = 3;
        while (a < nu - 1 && u >= ku[a + 1]) ++a;
        int b = 2;
        while (b < nv - 1 && v >= kv[b + 1]) ++b;
        sw_basis(ku, 3, a, u, N);
        sw_basis(kv, 2, b, v, M);
        double s[3] = {0, 0, 0};
        for (int r = 0; r <= 3; ++r)
            for (int q = 0; q <= 2; ++q)
                for (int d = 0; d < 3; ++d)
                    s[d] += N[r] * M[q] * pts[3 * ((a - 3 + r) * nv + b - 2 + q) + d];
        return position(s[0], s[1], s[2]);
    }
};

TEST(SwSurface, EvaluationAgreesWithTensorSumAndDifferences) {
    sample_surface ss;
    sw_surface S(ss.nu, ss.nv, 3, 2, ss.ku, ss.kv, ss.pts);
    EXPECT_EQ(S.get_num_patches_u(), 3);
    EXPECT_EQ(S.get_num_patches_v(), 3);
    const double h = 1e-5;
    // Inside the range, off the knots (a difference across one sees the jump of a higher
    // derivative).
    for (double u : {0.13, 0.41, 0.77, 1.5, 1.99}) {
        for (double v : {-0.3, 0.25, 1.2, 1.9}) {
            position P, Pu1, Pu0, Pv1, Pv0;
            vector Su, Sv, Suu, Suv, Svv, a, b;
            S.eval(u, v, &P, &Su, &Sv, &Suu, &Suv, &Svv);
            EXPECT_LT((P - ss.direct(u, v)).len(), 1e-12);
            // Central differences of the point and of the first partials.
            vector c, d;
            S.eval(u + h, v, &Pu1, &a, &c), S.eval(u - h, v, &Pu0, &b, &d);
            EXPECT_LT((Su - (Pu1 - Pu0) / (2 * h)).len(), 1e-6 * (1 + Su.len()));
            EXPECT_LT((Suu - (a - b) / (2 * h)).len(), 1e-5 * (1 + Suu.len()));
            EXPECT_LT((Suv - (c - d) / (2 * h)).len(), 1e-5 * (1 + Suv.len()));
            S.eval(u, v + h, &Pv1, nullptr, &c), S.eval(u, v - h, &Pv0, nullptr, &d);
            EXPECT_LT((Sv - (Pv1 - Pv0) / (2 * h)).len(), 1e-6 * (1 + Sv.len()));
            EXPECT_LT((Svv - (c - d) / (2 * h)).len(), 1e-5 * (1 + Svv.len()));
        }
    }
    for (double u : {0.0, 2.0})
        for (double v : {-1.0, 2.0}) {
            position P;
            S.eval(u, v, &P);
            EXPECT_LT((P - ss.direct(u, v)).len(), 1e-12);
        }
    // Patch forms: the Bezier corner and the power form's constant are the patch's corner.
    double bez[3 * 12], pow_form[3 * 12];
    S.get_bezier_patch(1, 2, bez);
    S.get_power_patch(1, 2, pow_form);
    const position corner = ss.direct(0.4, 0.5);
    EXPECT_LT((position(bez[0], bez[1], bez[2]) - corner).len(), 1e-12);
    EXPECT_LT((position(pow_form[0], pow_form[1], pow_form[2]) - corner).len(), 1e-12);
    EXPECT_EQ(error_of([&] { S.eval(2.1, 0, nullptr); }), "SW_SURFACE_EVAL");
    double* breaks = nullptr;
    ASSERT_EQ(patch_breakpoint_list(&S, 0, &breaks), 4);
    EXPECT_EQ(breaks[1], 0.4);
    EXPECT_EQ(breaks[2], 1.0);
    VORX_FREE(breaks);
}

TEST(SwSurface, ApproximationHoldsTheBound) {
    struct row {
        const char* text;
        double u0, u1, v0, v1, tol;
        int patches_u, patches_v;  // expected, 0: not checked
    };
    const row rows[] = {
        {"VEC(X,Y,X^2*Y-Y^3+2*X*Y)", -1, 1, 0, 2, 1e-6, 1, 1},
        {"VEC(COS(X)*COS(Y),SIN(X)*COS(Y),SIN(Y))", 0, 1.5, -1, 1, 1e-3, 0, 0},
        {"VEC(COS(X)*COS(Y),SIN(X)*COS(Y),SIN(Y))", 0, 1.5, -1, 1, 1e-6, 0, 0},
        {"VEC((2+COS(Y))*COS(X),(2+COS(Y))*SIN(X),SIN(Y))", 0, 3, 0, 3, 1e-4, 0, 0},
        {"VEC(X,Y,SIN(2*X)*EXP(Y))", 0, 2, -1, 1, 1e-5, 0, 0},
        {"VEC(COS(X),SIN(X),Y^3)", 0, 3, 0, 2, 1e-6, 0, 1},  // a cylinder: v never split
    };
    for (const row& w : rows) {
        SCOPED_TRACE(w.text);
        law_holder L(str_to_law(w.text));
        sw_surface_approx_report r;
        std::unique_ptr<sw_surface> S(
            law_to_sw_surface(L.get(), w.u0, w.u1, w.v0, w.v1, w.tol, {}, &r));
        EXPECT_LE(r.max_error, w.tol);
        EXPECT_TRUE(!w.patches_u || r.patches_u == w.patches_u) << r.patches_u;
        EXPECT_TRUE(!w.patches_v || r.patches_v == w.patches_v) << r.patches_v;
        EXPECT_NEAR(sw_surface_max_deviation(L.get(), S.get()), r.max_error, 1e-3 * w.tol);
        // 30 x 30 points inside every patch; the fit samples 5 x 5.
        double *bu = nullptr, *bv = nullptr;
        const int nu = patch_breakpoint_list(S.get(), 0, &bu),
                  nv = patch_breakpoint_list(S.get(), 1, &bv);
        surface_evaluator exact(L.get()), approx(S.get());
        double worst = 0;
        for (int a = 0; a + 1 < nu; ++a)
            for (int b = 0; b + 1 < nv; ++b)
                for (int i = 0; i < 30; ++i)
                    for (int j = 0; j < 30; ++j) {
                        const double u = bu[a] + (bu[a + 1] - bu[a]) * (i + 0.5) / 30;
                        const double v = bv[b] + (bv[b + 1] - bv[b]) * (j + 0.5) / 30;
                        position P, Q;
                        exact.eval(u, v, &P);
                        approx.eval(u, v, &Q);
                        worst = std::max(worst, (P - Q).len());
                    }
        EXPECT_LE(worst, w.tol);
        VORX_FREE(bu);
        VORX_FREE(bv);
    }
}

TEST(SwSurface, BadInput) {
    struct row {
        const char* text;
        double u0, u1, tol;
        int degree, max_patches;
        const char* code;
    };
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const row rows[] = {
        {"VEC(X,Y,X*Y)", 0, 1, 0, 3, 100, "BS_ACCURACY"},
        {"VEC(X,Y,X*Y)", 0, 1, 1e-17, 3, 100, "BS_ACCURACY"},
        {"VEC(X,Y,SIN(9*X*Y))", 0, 3, 1e-9, 3, 4, "BS_ACCURACY"},
        {"VEC(X,Y,X*Y)", nan, 1, 1e-3, 3, 100, "LAW_BAD_BOUNDS"},
        {"VEC(X,Y,X*Y)", 1, 1, 1e-3, 3, 100, "LAW_BAD_DOMAN"},
        {"VEC(X,X,X)", 0, 1, 1e-3, 3, 100, "LAW_DIM"},
        {"VEC(X,Y,X*Y)", 0, 1, 1e-3, 9, 100, "SW_BAD_ORDER"},
        {"VEC(X,Y,SQRT(X))", -1, 1, 1e-3, 3, 100, "LAW_SQRT"},
    };
    for (const row& w : rows) {
        SCOPED_TRACE(w.text);
        law_holder L(str_to_law(w.text));
        sw_surface_approx_options o;
        o.degree_u = w.degree;
        o.max_patches = w.max_patches;
        EXPECT_EQ(error_of([&] { delete law_to_sw_surface(L.get(), w.u0, w.u1, 0, 1, w.tol, o); }),
                  w.code);
    }
}

}  // namespace
