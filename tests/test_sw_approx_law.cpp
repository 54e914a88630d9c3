// Approximations wrapped back as laws: the deviation from the original law, measured
// through the law machinery (SIZE of the difference: Nmax and dense samples), stays
// within the tolerance; the wrapped surface's partials and curvatures agree with closed
// forms and its data reads back through the parser.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>

#include "lawutil/lawutil.hpp"
#include "test_support.hpp"

namespace {

// SIZE(a - b) and its largest value on an n-point grid over [lo, hi] (one or two inputs).
law_holder distance_law(law* a, law* b) {
    law_holder diff(VORX_NEW minus_law(a, b));
    return law_holder(VORX_NEW size_law(diff.get()));
}
double sampled_max(law* d, const double* lo, const double* hi, int n) {
    double worst = 0.0, x[2] = {0.0, 0.0};
    int nj = d->take_dim() == 2 ? n : 0;
    for (int i = 0; i <= n; ++i)
        for (int j = 0; j <= nj; ++j) {
            x[0] = lo[0] + (hi[0] - lo[0]) * i / n;
            if (nj) x[1] = lo[1] + (hi[1] - lo[1]) * j / n;
            worst = std::max(worst, d->evaluateM_R(x));
        }
    return worst;
}

const struct {
    const char* text;
    double a, b, tol;
} curve_rows[] = {
    {"VEC(2*COS(X),2*SIN(X),0.5*X)", 0.0, 8 * 3.141592653589793, 1e-6},  // 4-turn helix
    {"VEC(X,ABS(X-0.3),X^2)", 0.0, 1.0, 1e-5},                           // kink
    {"VEC(COS(X^2),SIN(X^2),0)", 0.0, 3.0, 1e-4},                        // clothoid-like
    {"VEC(X,X^3-X,1)", -1.0, 2.0, 1e-8},                                 // cubic: exact
};

TEST(SwApproxLaw, CurveWrappedBackIsWithinTolerance) {
    for (const auto& r : curve_rows) {
        SCOPED_TRACE(r.text);
        law_holder L(str_to_law(r.text));
        std::unique_ptr<sw_curve> C(law_to_sw_curve(L.get(), r.a, r.b, r.tol));
        law_holder W(sw_curve_to_law(*C));
        ASSERT_EQ(W->take_dim() * 10 + W->return_dim(), 13);
        law_holder d = distance_law(W.get(), L.get());
        EXPECT_LE(d->eval(Nmax(d.get(), r.a, r.b)), r.tol);
        // Nmax polishes only the critical points its root search finds and can stop short
        // of the top (3% on the clothoid-like law): the dense samples are the bound.
        EXPECT_LE(sampled_max(d.get(), &r.a, &r.b, 5000), r.tol);
    }
}

const struct {
    const char* text;
    double lo[2], hi[2], tol;
} surface_rows[] = {
    {"VEC(X,Y,SIN(X)*COS(Y))", {0.0, 0.0}, {2.0, 1.5}, 1e-5},
    {"VEC((2+COS(X))*COS(Y),(2+COS(X))*SIN(Y),SIN(X))", {0.0, 0.0}, {3.0, 1.5}, 1e-4},  // torus
    {"VEC(X,Y,(X^2+Y^2)/2)", {-1.0, -1.0}, {1.0, 1.0}, 1e-9},  // paraboloid: exact
};

TEST(SwApproxLaw, SurfaceWrappedBackIsWithinTolerance) {
    for (const auto& r : surface_rows) {
        SCOPED_TRACE(r.text);
        law_holder L(str_to_law(r.text));
        std::unique_ptr<sw_surface> S(
            law_to_sw_surface(L.get(), r.lo[0], r.hi[0], r.lo[1], r.hi[1], r.tol));
        law_holder W(sw_surface_to_law(*S));
        ASSERT_EQ(W->take_dim() * 10 + W->return_dim(), 23);
        law_holder d = distance_law(W.get(), L.get());
        EXPECT_LE(sampled_max(d.get(), r.lo, r.hi, 120), r.tol);
        // SURF's derivatives are DSURF over the same data: the patch partials.
        double u = 0.3 * r.lo[0] + 0.7 * r.hi[0], v = 0.6 * r.lo[1] + 0.4 * r.hi[1];
        vector Su, Suv;
        S->eval(u, v, nullptr, &Su, nullptr, nullptr, &Suv);
        law_holder du(W->derivative(0)), duv(du->derivative(1));
        std::vector<double> a = outputs_at(du.get(), {u, v}), b = outputs_at(duv.get(), {u, v});
        EXPECT_LT((vector(a[0], a[1], a[2]) - Su).len(), 1e-12 * (1 + Su.len()));
        EXPECT_LT((vector(b[0], b[1], b[2]) - Suv).len(), 1e-12 * (1 + Suv.len()));
    }
}

// z = (x^2 + y^2)/2 comes back exactly; with q = 1 + x^2 + y^2 and the normal Su x Sv
// (upwards): K = 1/q^2, H = (1 + q)/(2 q^(3/2)), k_max = 1/sqrt(q), k_min = 1/q^(3/2).
TEST(SwApproxLaw, SurfaceDataCurvaturesTextAndDegeneracy) {
    law_holder L(str_to_law("VEC(X,Y,(X^2+Y^2)/2)"));
    std::unique_ptr<sw_surface> S(law_to_sw_surface(L.get(), -1.0, 1.0, -1.0, 1.0, 1e-9));
    law_data_holder data(VORX_NEW sw_surface_law_data(*S));
    law_data* arr[1] = {data.get()};
    for (double x : {0.0, 0.4, -0.9})
        for (double y : {0.0, 0.7}) {
            double q = 1 + x * x + y * y, in[2] = {x, y};
            const struct {
                const char* text;
                double expect;
            } rows[] = {{"GAUSCUR(SWSURF1)", 1 / (q * q)},
                        {"MEANCUR(SWSURF1)", (1 + q) / (2 * std::pow(q, 1.5))},
                        {"MAXCUR(SWSURF1)", 1 / std::sqrt(q)},
                        {"MINCUR(SWSURF1)", 1 / std::pow(q, 1.5)}};
            for (const auto& row : rows) {
                law_holder c(str_to_law(row.text, arr, 1));
                EXPECT_NEAR(c->evaluateM_R(in), row.expect, 1e-9) << row.text << " " << x << y;
            }
        }
    law_holder W(str_to_law("SURF(SWSURF1)", arr, 1));
    EXPECT_EQ(text_of(W), "SURF(SWSURF1)");

    // A bilinear patch whose u = 0 edge collapses to a point has no normal there.
    const double k[] = {0, 0, 1, 1}, pts[] = {0, 0, 0, 0, 0, 0, 1, 0, 0, 1, 1, 0};
    law_data_holder fan(VORX_NEW sw_surface_law_data(sw_surface(2, 2, 1, 1, k, k, pts)));
    auto* f = static_cast<sw_surface_law_data*>(fan.get());
    EXPECT_EQ(error_of([&] { f->gaussian_curvature(par_pos(0.0, 0.5)); }), "LAW_BAD_UNIT_VECTOR");
    EXPECT_NEAR(f->eval_normal(par_pos(0.5, 0.5)).z(), 1.0, 1e-15);
    law_data_holder empty(VORX_NEW sw_surface_law_data());
    EXPECT_EQ(error_of([&] { empty->deep_copy(); }), "LAW_DATA_UNKNOWN");
}

}  // namespace
