// Approximations wrapped back as laws: the deviation from the original law, measured
// through the law machinery (SIZE of the difference, its Nmax and dense samples), stays
// within the tolerance; the wrapped surface's partials and curvatures agree with closed
// forms; the wrapped data reads back through the parser.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>

#include "lawutil/lawutil.hpp"
#include "test_support.hpp"

namespace {

// SIZE(a - b), the distance law between two laws of the same dimensions.
law_holder distance_law(law* a, law* b) {
    law_holder diff(VORX_NEW minus_law(a, b));
    return law_holder(VORX_NEW size_law(diff.get()));
}

struct curve_row {
    const char* text;
    double a, b, tol;
};

const curve_row curve_rows[] = {
    {"VEC(2*COS(X),2*SIN(X),0.5*X)", 0.0, 8 * 3.141592653589793, 1e-6},  // 4-turn helix
    {"VEC(X,ABS(X-0.3),X^2)", 0.0, 1.0, 1e-5},                           // kink
    {"VEC(COS(X^2),SIN(X^2),0)", 0.0, 3.0, 1e-4},                        // clothoid-like
    {"VEC(X,X^3-X,1)", -1.0, 2.0, 1e-8},                                 // cubic: exact
};

TEST(SwApproxLaw, CurveWrappedBackIsWithinTolerance) {
    for (const curve_row& r : curve_rows) {
        SCOPED_TRACE(r.text);
        law_holder L(str_to_law(r.text));
        std::unique_ptr<sw_curve> C(law_to_sw_curve(L.get(), r.a, r.b, r.tol));
        law_holder W(sw_curve_to_law(*C));
        ASSERT_EQ(W->take_dim(), 1);
        ASSERT_EQ(W->return_dim(), 3);
        law_holder d = distance_law(W.get(), L.get());
        double at = Nmax(d.get(), r.a, r.b);
        EXPECT_LE(d->eval(at), r.tol);
        double worst = 0.0;
        for (int i = 0; i <= 5000; ++i) {
            double t = r.a + (r.b - r.a) * i / 5000;
            worst = std::max(worst, d->eval(t));
        }
        // Nmax polishes only the critical points its root search finds: it may stop short
        // of the top (3% on the clothoid-like law), so the samples are the bound.
        EXPECT_LE(worst, r.tol);
        // The derivative laws run through the curve's own derivatives.
        law_holder dW(W->derivative());
        vector D1;
        C->eval(0.5 * (r.a + r.b), nullptr, &D1);
        std::vector<double> got = outputs_at(dW.get(), {0.5 * (r.a + r.b)});
        EXPECT_LT((vector(got[0], got[1], got[2]) - D1).len(), 1e-12 * (1 + D1.len()));
    }
}

struct surface_row {
    const char* text;
    double u0, u1, v0, v1, tol;
};

const surface_row surface_rows[] = {
    {"VEC(X,Y,SIN(X)*COS(Y))", 0.0, 2.0, 0.0, 1.5, 1e-5},
    {"VEC((2+COS(X))*COS(Y),(2+COS(X))*SIN(Y),SIN(X))", 0.0, 3.0, 0.0, 1.5, 1e-4},  // torus
    {"VEC(X,Y,(X^2+Y^2)/2)", -1.0, 1.0, -1.0, 1.0, 1e-9},  // paraboloid: exact
};

TEST(SwApproxLaw, SurfaceWrappedBackIsWithinTolerance) {
    for (const surface_row& r : surface_rows) {
        SCOPED_TRACE(r.text);
        law_holder L(str_to_law(r.text));
        std::unique_ptr<sw_surface> S(law_to_sw_surface(L.get(), r.u0, r.u1, r.v0, r.v1, r.tol));
        law_holder W(sw_surface_to_law(*S));
        ASSERT_EQ(W->take_dim(), 2);
        ASSERT_EQ(W->return_dim(), 3);
        law_holder d = distance_law(W.get(), L.get());
        double worst = 0.0;
        for (int i = 0; i <= 120; ++i)
            for (int j = 0; j <= 120; ++j) {
                double x[2] = {r.u0 + (r.u1 - r.u0) * i / 120, r.v0 + (r.v1 - r.v0) * j / 120};
                worst = std::max(worst, d->evaluateM_R(x));
            }
        EXPECT_LE(worst, r.tol);
        // SURF's derivatives are DSURF over the same data: the patch partials.
        double x[2] = {0.3 * r.u0 + 0.7 * r.u1, 0.6 * r.v0 + 0.4 * r.v1};
        vector Su, Suv;
        S->eval(x[0], x[1], nullptr, &Su, nullptr, nullptr, &Suv);
        law_holder du(W->derivative(0)), duv(du->derivative(1));
        std::vector<double> a = outputs_at(du.get(), {x[0], x[1]});
        std::vector<double> b = outputs_at(duv.get(), {x[0], x[1]});
        EXPECT_LT((vector(a[0], a[1], a[2]) - Su).len(), 1e-12 * (1 + Su.len()));
        EXPECT_LT((vector(b[0], b[1], b[2]) - Suv).len(), 1e-12 * (1 + Suv.len()));
    }
}

// z = (x^2 + y^2)/2 comes back exactly; with q = 1 + x^2 + y^2 its normal (Su x Sv up)
// sees K = 1/q^2, H = (2 + x^2 + y^2)/(2 q^(3/2)), k_max = 1/sqrt(q), k_min = 1/q^(3/2).
TEST(SwApproxLaw, SurfaceCurvaturesFromFundamentalForms) {
    law_holder L(str_to_law("VEC(X,Y,(X^2+Y^2)/2)"));
    std::unique_ptr<sw_surface> S(law_to_sw_surface(L.get(), -1.0, 1.0, -1.0, 1.0, 1e-9));
    law_data_holder data(VORX_NEW sw_surface_law_data(*S));
    law_data* arr[1] = {data.get()};
    for (double x : {0.0, 0.4, -0.9})
        for (double y : {0.0, 0.7}) {
            double q = 1 + x * x + y * y, in[2] = {x, y};
            struct {
                const char* text;
                double expect;
            } rows[] = {{"GAUSCUR(SWSURF1)", 1 / (q * q)},
                        {"MEANCUR(SWSURF1)", (1 + q) / (2 * std::pow(q, 1.5))},
                        {"MAXCUR(SWSURF1)", 1 / std::sqrt(q)},
                        {"MINCUR(SWSURF1)", 1 / std::pow(q, 1.5)}};
            for (const auto& row : rows) {
                law_holder c(str_to_law(row.text, arr, 1));
                ASSERT_TRUE(c) << row.text;
                EXPECT_NEAR(c->evaluateM_R(in), row.expect, 1e-9) << row.text << " " << x << y;
            }
        }
    // The text form reads back to the same law.
    law_holder W(str_to_law("SURF(SWSURF1)", arr, 1));
    ASSERT_TRUE(W);
    EXPECT_EQ(text_of(W), "SURF(SWSURF1)");
    interval u, v;
    ASSERT_TRUE(W->term_domain(0, u));
    EXPECT_EQ(u.end_pt(), 1.0);
}

TEST(SwApproxLaw, DegenerateNormalAndEmptyPrototypeRaise) {
    // A bilinear patch whose u = 0 edge collapses to a point.
    const double k[] = {0, 0, 1, 1}, pts[] = {0, 0, 0, 0, 0, 0, 1, 0, 0, 1, 1, 0};
    sw_surface S(2, 2, 1, 1, k, k, pts);
    law_data_holder data(VORX_NEW sw_surface_law_data(S));
    auto* d = static_cast<sw_surface_law_data*>(data.get());
    EXPECT_EQ(error_of([&] { d->eval_normal(par_pos(0.0, 0.5)); }), "LAW_BAD_UNIT_VECTOR");
    EXPECT_EQ(error_of([&] { d->gaussian_curvature(par_pos(0.0, 0.5)); }), "LAW_BAD_UNIT_VECTOR");
    EXPECT_NEAR(d->eval_normal(par_pos(0.5, 0.5)).z(), 1.0, 1e-15);
    law_data_holder empty(VORX_NEW sw_surface_law_data());
    EXPECT_EQ(error_of([&] { empty->deep_copy(); }), "LAW_DATA_UNKNOWN");
}

}  // namespace
