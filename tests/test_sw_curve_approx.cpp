// Spline approximation: the battery of curves at tolerances 1e-3 to 1e-8 with the bound
// checked at 100 times the fitting density, polynomials back exactly in one span, the
// options, and the table of bad input.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "lawutil/lawutil.hpp"
#include "sw_curve_approx_battery.hpp"
#include "test_support.hpp"

namespace {

// The law as a point, taken as law_to_sw_curve takes it (graph, plane or space).
position law_point(const law* L, double t) {
    double y[3] = {0, 0, 0};
    L->evaluate(&t, y);
    if (L->return_dim() == 1) return position(t, y[0], 0);
    return position(y[0], y[1], y[2]);
}

// The largest distance at 100·(p + 2) points inside every span (the fit samples p + 2).
double dense_deviation(const law* L, const sw_curve& C) {
    const double* U = C.get_knots();
    const int p = C.get_degree(), m = 100 * (p + 2);
    double worst = 0;
    for (int k = p; k < C.get_num_control_points(); ++k)
        for (int j = 0; U[k + 1] > U[k] && j < m; ++j) {
            const double t = U[k] + (U[k + 1] - U[k]) * (j + 0.5) / m;
            position P;
            C.eval(t, &P);
            worst = std::max(worst, (P - law_point(L, t)).len());
        }
    return worst;
}

TEST(SwCurveApprox, BatteryHoldsTheBoundEverywhere) {
    for (const approx_case& c : approx_battery) {
        law_holder L(str_to_law(c.text));
        int previous = 0;
        for (double tol : approx_tolerances) {
            SCOPED_TRACE(std::string(c.name) + " tol " + std::to_string(tol));
            sw_curve_approx_report r;
            sw_curve* C = law_to_sw_curve(L.get(), c.lo, c.hi, tol, {}, &r);
            EXPECT_LE(r.max_error, tol);
            EXPECT_LE(dense_deviation(L.get(), *C), tol);
            // The two measures of the same curve agree; the coarse sampling never exceeds.
            EXPECT_NEAR(sw_curve_max_deviation(L.get(), C), r.max_error, 1e-3 * tol);
            if (L->return_dim() == 3) {
                EXPECT_LE(sw_curve_accuracy(L.get(), C), r.max_error * (1 + 1e-9) + 1e-15);
            }
            EXPECT_GE(r.control_points, previous);
            previous = r.control_points;
            if (c.poly) {
                ASSERT_EQ(C->get_num_spans(), 1);
                EXPECT_EQ(r.refine_passes, 1);
                // Control point i is the blossom at (lo x (3 - i), hi x i).
                for (int i = 0; i < 4; ++i) {
                    const double a = c.lo, b = c.hi;
                    const double u[3] = {i > 2 ? b : a, i > 1 ? b : a, i > 0 ? b : a};
                    const double e1 = u[0] + u[1] + u[2];
                    const double e2 = u[0] * u[1] + u[0] * u[2] + u[1] * u[2];
                    const double e3 = u[0] * u[1] * u[2];
                    double xyz[3];
                    C->get_control_point(i, xyz);
                    for (int d = 0; d < 3; ++d) {
                        const double* k = c.poly[d];
                        EXPECT_NEAR(xyz[d], k[0] + k[1] * e1 / 3 + k[2] * e2 / 3 + k[3] * e3,
                                    1e-12);
                    }
                }
            }
            delete C;
        }
    }
}

// Breaks, strategies and degrees: the kink becomes a knot of multiplicity p, the jump one
// of p + 1; removal never adds control points; a given breakpoint is honoured.
TEST(SwCurveApprox, OptionsAndBreaks) {
    struct row {
        const char* text;
        double lo, hi, tol;
        int degree;
        sw_approx_strategy strategy;
        double breakpoint;  // NaN: none
        double knot;        // expected interior knot
        int multiplicity;
    };
    const double none = std::numeric_limits<double>::quiet_NaN();
    const row rows[] = {
        {"VEC(X,ABS(X-0.3),0)", -1, 1, 1e-6, 3, sw_approx_refine_then_remove, none, 0.3, 3},
        {"VEC(X,STEP(X^2,0.5,X+1),0)", 0, 1, 1e-6, 3, sw_approx_refine_only, none, 0.5, 4},
        {"VEC(X,ABS(X-0.3),0)", -1, 1, 1e-6, 5, sw_approx_refine_only, none, 0.3, 5},
        {"VEC(COS(X),SIN(X),X)", 0, 3, 1e-6, 2, sw_approx_refine_then_remove, 1.25, 1.25, 2},
        {"VEC(COS(X),SIN(X),X)", 0, 3, 1e-4, 1, sw_approx_refine_only, 1.25, 1.25, 1},
    };
    for (const row& w : rows) {
        SCOPED_TRACE(w.text);
        law_holder L(str_to_law(w.text));
        sw_curve_approx_options o;
        o.degree = w.degree;
        o.strategy = w.strategy;
        o.breakpoints = &w.breakpoint;
        o.num_breakpoints = std::isnan(w.breakpoint) ? 0 : 1;
        sw_curve_approx_report r, r_other;
        sw_curve* C = law_to_sw_curve(L.get(), w.lo, w.hi, w.tol, o, &r);
        EXPECT_EQ(C->get_degree(), w.degree);
        EXPECT_LE(dense_deviation(L.get(), *C), w.tol);
        const double* U = C->get_knots();
        EXPECT_EQ(std::count(U, U + C->get_num_knots(), w.knot), w.multiplicity);
        o.strategy = w.strategy == sw_approx_refine_only ? sw_approx_refine_then_remove
                                                         : sw_approx_refine_only;
        delete law_to_sw_curve(L.get(), w.lo, w.hi, w.tol, o, &r_other);
        const sw_curve_approx_report& removed = w.strategy == sw_approx_refine_only ? r_other : r;
        const sw_curve_approx_report& kept = w.strategy == sw_approx_refine_only ? r : r_other;
        EXPECT_LE(removed.control_points, kept.control_points);
        EXPECT_EQ(kept.control_points - removed.control_points, removed.knots_removed);
        delete C;
    }
}

TEST(SwCurveApprox, BadInput) {
    struct row {
        const char* text;  // null: a null law
        double lo, hi, tol;
        int degree, max_spans;
        const char* code;
    };
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    const row rows[] = {
        {"VEC(X,X,0)", 0, 1, 0, 3, 100, "BS_ACCURACY"},
        {"VEC(X,X,0)", 0, 1, -1e-3, 3, 100, "BS_ACCURACY"},
        {"VEC(X,X,0)", 0, 1, nan, 3, 100, "BS_ACCURACY"},
        {"VEC(1000*X,X,0)", 0, 1, 1e-14, 3, 100, "BS_ACCURACY"},      // below doubles at size 1000
        {"VEC(COS(X),SIN(X),X)", 0, 25, 1e-8, 3, 10, "BS_ACCURACY"},  // over the span cap
        {"VEC(X,X,0)", nan, 1, 1e-3, 3, 100, "LAW_BAD_BOUNDS"},
        {"VEC(X,X,0)", 0, inf, 1e-3, 3, 100, "LAW_BAD_BOUNDS"},
        {"VEC(X,X,0)", 1, 1, 1e-3, 3, 100, "LAW_BAD_DOMAN"},
        {"VEC(X,X,0)", 1, 0, 1e-3, 3, 100, "LAW_BAD_DOMAN"},
        {nullptr, 0, 1, 1e-3, 3, 100, "LAW_DIM"},
        {"X+Y", 0, 1, 1e-3, 3, 100, "LAW_DIM"},
        {"VEC(X,X,X,X)", 0, 1, 1e-3, 3, 100, "LAW_DIM"},
        {"VEC(X,X,0)", 0, 1, 1e-3, 0, 100, "SW_BAD_ORDER"},
        {"VEC(X,X,0)", 0, 1, 1e-3, 8, 100, "SW_BAD_ORDER"},
        {"VEC(X,X,0)", 0, 1, 1e-3, 3, 0, "SW_BAD_ORDER"},
        {"VEC(X,SQRT(X),0)", -1, 1, 1e-3, 3, 100, "LAW_SQRT"},  // raised by the law, passed on
        {"VEC(X,LN(X-0.5),0)", 0, 1, 1e-3, 3, 100, "LAW_LN"},
        {"VEC(X,TAN(X),0)", 0, 2, 1e-3, 3, 100, "BAD_SINGULARITIES"},
        {"VEC(X,1/(X-0.5),0)", 0, 1, 1e-3, 3, 100, "BAD_SINGULARITIES"},
    };
    for (const row& w : rows) {
        SCOPED_TRACE(w.text ? w.text : "null");
        law_holder L(w.text ? str_to_law(w.text) : nullptr);
        sw_curve_approx_options o;
        o.degree = w.degree;
        o.max_spans = w.max_spans;
        EXPECT_EQ(error_of([&] { delete law_to_sw_curve(L.get(), w.lo, w.hi, w.tol, o); }), w.code);
    }
    // The interval form: a half-bounded range is not finite.
    law_holder L(str_to_law("VEC(X,X,0)"));
    const interval half(interval_finite_below, 0.0, 0.0);
    EXPECT_EQ(error_of([&] { delete law_to_sw_curve(L.get(), half, 1e-3); }), "LAW_BAD_BOUNDS");
    delete law_to_sw_curve(L.get(), interval(0.0, 1.0), 1e-3);
}

}  // namespace
