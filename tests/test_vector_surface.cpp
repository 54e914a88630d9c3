// SURFVEC, MULTICUR and MULTICURVEPERP: one table of {text, point, closed form or
// error} (to 1e-7, the tolerance of the root search under SURFVEC), then the defining
// properties (no sampled point of the iso-line lies farther along the direction; the
// foot on several curves is the nearest sampled point or nearer) and the derivative
// orders.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "geometry/analytic_geometry.hpp"
#include "lawutil/lawutil.hpp"
#include "test_support.hpp"

namespace {

const double pi = std::acos(-1.0);
const double r2 = std::sqrt(0.5);

// HELIX1 (r 2, pitch 0.5, [0, 2 pi]), TORUS2 (2, 1), SWEDGE3 (0,0,0)-(1,2,3) on [0, 1],
// HELIX4 of an empty range.
data_set surfaces() {
    const double knots[] = {0, 0, 1, 1}, pts[] = {0, 0, 0, 1, 2, 3};
    sw_curve line(2, 1, 0, 0, 1, 0, knots, nullptr, pts, 0.0, 1.0, nullptr);
    return data_set({VORX_NEW helix_curve_data(2.0, 0.5, 0.0, 2 * pi),
                     VORX_NEW torus_surface_data(2.0, 1.0),
                     VORX_NEW sw_curve_law_data(line, 0.0, 1.0),
                     VORX_NEW helix_curve_data(2.0, 0.5, 1.0, 1.0)});
}

// clang-format off
const law_row rows[] = {
    {"SURFVEC(TORUS2,VEC(1,1,0))", {0}, {3 * r2, 3 * r2, 0}, ""},
    {"SURFVEC(TORUS2,VEC(1,1,0))", {pi}, {r2, r2, 0}, ""},        // inner equator
    {"SURFVEC(TORUS2,VEC(0,-1,0))", {pi / 2}, {0, -2, 1}, ""},     // top circle
    {"SURFVEC(TORUS2,VEC(COS(Y),SIN(Y),0))", {0, 1}, {3 * std::cos(1.0), 3 * std::sin(1.0), 0}, ""},
    {"MULTICUR(HELIX1,SWEDGE3)", {0.3}, {2 * std::cos(0.3), 2 * std::sin(0.3), 0.15}, ""},
    {"MULTICUR(HELIX1,SWEDGE3)", {2 * pi + 1}, {1, 2, 3}, ""},     // the end point
    {"MULTICUR(SWEDGE3,HELIX1)", {1.5}, {2 * std::cos(0.5), 2 * std::sin(0.5), 0.25}, ""},
    {"MULTICUR(SWEDGE3,HELIX1,2)", {1.5}, {-2 * std::cos(0.5), -2 * std::sin(0.5), 0}, ""},
    {"MULTICURVEPERP(HELIX1,SWEDGE3,VEC(X,Y,Z))", {2.2 * std::cos(1.0), 2.2 * std::sin(1.0), 0.5}, {1}, ""},
    {"MULTICURVEPERP(SWEDGE3,HELIX1,VEC(X,Y,Z))", {0.5, 1, 1.5}, {0.5}, ""},
    {"SURFVEC(HELIX1,VEC(0,1,0))", {0}, {}, "LAW_DATA_UNKNOWN"},
    {"SURFVEC(TORUS2)", {0}, {}, "LAW_DATA_UNKNOWN"},
    {"SURFVEC(TORUS2,X)", {0}, {}, "LAW_DIM"},
    {"SURFVEC(TORUS2,VEC(0,0,0))", {0}, {}, "LAW_BAD_UNIT_VECTOR"},
    {"MULTICUR(X)", {0}, {}, "LAW_DATA_UNKNOWN"},
    {"MULTICUR(HELIX1,TORUS2)", {0}, {}, "LAW_DATA_UNKNOWN"},
    {"MULTICUR(HELIX1,HELIX4)", {0}, {}, "LAW_MULTI_CURVE_DOM"},
    {"MULTICUR(SWEDGE3)", {1.5}, {}, "LAW_MULTI_CURVE_DOM"},
    {"MULTICUR(SWEDGE3)", {-0.5}, {}, "LAW_MULTI_CURVE_DOM"},
    {"MULTICURVEPERP(HELIX1,VEC(X,Y))", {0, 0}, {}, "LAW_DIM"},
    {"MULTICURVEPERP(VEC(X,Y,Z))", {0, 0, 0}, {}, "LAW_DATA_UNKNOWN"},
    {"MULTICURVEPERP(HELIX1,TORUS2,VEC(X,Y,Z))", {0, 0, 0}, {}, "LAW_DATA_UNKNOWN"},
};
// clang-format on

TEST(VectorSurface, ValuesAndErrors) {
    data_set set = surfaces();
    check_law_rows([&](const char* text) { return set.read(text); }, rows, 1e-7);
}

// No point of the iso-line u = x0 lies farther along D than SURFVEC's.
TEST(VectorSurface, SurfvecIsTheFarthestPointOfTheIsoLine) {
    data_set set = surfaces();
    law_holder l(set.read("SURFVEC(TORUS2,VEC(COS(Y),0.3,SIN(Y)))"));
    law_holder s(set.read("SURF(TORUS2)"));
    for (double u : {0.0, 0.7, 2.5, 4.0})
        for (double w : {0.0, 1.0, 2.0, 4.5}) {
            std::vector<double> d = {std::cos(w), 0.3, std::sin(w)};
            std::vector<double> p = outputs_at(l.get(), {u, w});
            double best = p[0] * d[0] + p[1] * d[1] + p[2] * d[2];
            for (int k = 0; k <= 200; ++k) {
                std::vector<double> q = outputs_at(s.get(), {u, 2 * pi * k / 200});
                EXPECT_LE(q[0] * d[0] + q[1] * d[1] + q[2] * d[2], best + 1e-9) << u << " " << w;
            }
        }
}

// MULTICUR at MULTICURVEPERP is no farther than any sampled point of either curve.
TEST(VectorSurface, FootOnSeveralCurvesIsTheNearest) {
    data_set set = surfaces();
    law_holder c(set.read("MULTICUR(HELIX1,SWEDGE3)"));
    law_holder f(set.read("MULTICURVEPERP(HELIX1,SWEDGE3,VEC(X,Y,Z))"));
    interval dom;
    ASSERT_TRUE(c->term_domain(0, dom));
    EXPECT_NEAR(dom.end_pt(), 2 * pi + 1, 1e-15);
    auto dist = [](const std::vector<double>& a, const std::vector<double>& b) {
        return std::hypot(a[0] - b[0], a[1] - b[1], a[2] - b[2]);
    };
    for (std::vector<double> p : {std::vector<double>{0, 0, 0}, {1, 1, 2}, {-2, 1, 1}, {3, 0, 3}}) {
        double near = dist(outputs_at(c.get(), outputs_at(f.get(), p)), p);
        for (int k = 0; k <= 400; ++k) {
            std::vector<double> q = outputs_at(c.get(), {dom.end_pt() * k / 400});
            EXPECT_LE(near, dist(q, p) + 1e-9);
        }
    }
}

// MULTICUR differentiates into the next order while the data answer it, then numerically.
TEST(VectorSurface, MulticurDerivativeOrders) {
    data_set set = surfaces();
    law_holder c(set.read("MULTICUR(HELIX1,SWEDGE3)"));
    law_holder d1(c->derivative(0)), d2(d1->derivative(0)), d3(d2->derivative(0));
    ASSERT_TRUE(d2->isa(multiple_curve_law::id()));
    EXPECT_EQ(static_cast<multiple_curve_law*>(d2.get())->order(), 2);
    EXPECT_TRUE(d3->isa(derivative_law::id()));
    std::vector<double> y = outputs_at(d3.get(), {0.3});  // (2 sin t, -2 cos t, 0)
    EXPECT_NEAR(y[0], 2 * std::sin(0.3), 1e-5);
    EXPECT_NEAR(y[1], -2 * std::cos(0.3), 1e-5);
    EXPECT_EQ(text_of(law_holder(c->derivative(1))), "0");
}

}  // namespace
