// The spline curve: values and derivatives against closed forms (a cubic given by its
// blossom, a rational quadratic circle), range clamping, linear extension past the ends,
// copies and cache staleness, the information print, bad input and the allocation-free
// evaluation path.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "base/lists.hpp"
#include "base/output.hpp"
#include "lawutil/lawutil.hpp"
#include "test_support.hpp"

namespace {

struct expected {
    position p;
    vector d1, d2;
};

// f(t) = (t, t^2 - 1, t^3/2 - t) as a cubic over knots with a double interior knot.  Its
// control points are the blossom of f at the knots (u1, u2, u3) = k[i+1..i+3]: t gives the
// mean, t^2 the sum of pairwise products over 3, t^3 the product.
const double cubic_knots[] = {0, 0, 0, 0, 0.5, 1, 1, 2, 3, 3, 3, 3};
constexpr int cubic_n = 8;

sw_curve make_cubic(double min_t = 0, double max_t = 3) {
    double pts[3 * cubic_n];
    for (int i = 0; i < cubic_n; ++i) {
        const double* u = cubic_knots + i + 1;
        double e1 = u[0] + u[1] + u[2], e2 = u[0] * u[1] + u[0] * u[2] + u[1] * u[2];
        double e3 = u[0] * u[1] * u[2];
        pts[3 * i] = e1 / 3;
        pts[3 * i + 1] = e2 / 3 - 1;
        pts[3 * i + 2] = e3 / 2 - e1 / 3;
    }
    return sw_curve(cubic_n, 3, 0, 0, 1, 0, cubic_knots, nullptr, pts, min_t, max_t, nullptr);
}

expected cubic_exact(double t) {
    return {position(t, t * t - 1, t * t * t / 2 - t), vector(1, 2 * t, 1.5 * t * t - 1),
            vector(0, 2, 3 * t)};
}

// Half a unit circle as two rational quadratic spans over [0, 3] and [3, 6] (the double
// knot leaves a span of no length between them).  Weights 1, 1, 2 make a span the
// half-angle form ((1 - v^2), 2v)/(1 + v^2), v the span's local parameter; the second span
// is the first turned by 90 degrees with weights scaled by 2.
sw_curve make_arc() {
    const double knots[] = {0, 0, 0, 3, 3, 6, 6, 6};
    const double weights[] = {1, 1, 2, 2, 4};
    const double pts[] = {1, 0, 0, 1, 1, 0, 0, 1, 0, -1, 1, 0, -1, 0, 0};
    return sw_curve(5, 2, 1, 0, 0, 0, knots, weights, pts, 0, 6, nullptr);
}

// theta = base + 2·atan(v), v = t/3 - span: C = (cos, sin), C' = theta'·(-sin, cos),
// C'' = theta''·(-sin, cos) - theta'^2·(cos, sin).
expected arc_exact(double t) {
    double v = t <= 3 ? t / 3 : t / 3 - 1, base = t <= 3 ? 0 : M_PI / 2;
    double th = base + 2 * std::atan(v), d = 2 / (1 + v * v) / 3;
    double dd = -4 * v / ((1 + v * v) * (1 + v * v)) / 9;
    double c = std::cos(th), s = std::sin(th);
    return {position(c, s, 0), vector(-s * d, c * d, 0),
            vector(-s * dd - c * d * d, c * dd - s * d * d, 0)};
}

template <class V>
void expect_near(const V& a, const V& b, double tol, const char* what, double t) {
    EXPECT_LT(vector(a[0] - b[0], a[1] - b[1], a[2] - b[2]).len(), tol) << what << " at " << t;
}

struct closed_form_row {
    const char* name;
    std::function<sw_curve()> make;
    expected (*exact)(double);
    double corner;  // a break where the speed jumps: the derivatives there are one-sided
};

class SwCurveClosedForm : public testing::TestWithParam<closed_form_row> {};

// Knots, ends and random parameters, first rising (the remembered span) and then shuffled
// (the search from anywhere).
TEST_P(SwCurveClosedForm, PointAndDerivativesMatch) {
    const closed_form_row& r = GetParam();
    sw_curve c = r.make();
    std::vector<double> ts;
    for (int i = 0; i < c.get_num_knots(); ++i) ts.push_back(c.get_knots()[i]);
    std::mt19937 rng(7);
    std::uniform_real_distribution<double> in(c.get_min_t(), c.get_max_t());
    for (int i = 0; i < 40; ++i) ts.push_back(in(rng));
    std::sort(ts.begin(), ts.end());
    std::vector<double> shuffled = ts;
    std::shuffle(shuffled.begin(), shuffled.end(), rng);
    ts.insert(ts.end(), shuffled.begin(), shuffled.end());
    for (double t : ts) {
        position p;
        vector d1, d2;
        c.eval(t, &p, &d1, &d2);
        expected e = r.exact(t);
        expect_near(p, e.p, 1e-13, "point", t);
        if (t == r.corner) continue;
        expect_near(d1, e.d1, 1e-12, "first derivative", t);
        expect_near(d2, e.d2, 1e-11, "second derivative", t);
        // Each output alone gives the same value.
        vector only_d2;
        c.eval(t, nullptr, nullptr, &only_d2);
        EXPECT_EQ((only_d2 - d2).len(), 0.0);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Curves, SwCurveClosedForm,
    testing::Values(closed_form_row{"cubic", [] { return make_cubic(); }, cubic_exact, -1},
                    closed_form_row{"arc", make_arc, arc_exact, 3}),
    [](const testing::TestParamInfo<closed_form_row>& i) { return std::string(i.param.name); });

TEST(SwCurve, BlockLayoutAndBlockConstructorAgree) {
    const double knots[] = {0, 0, 0, 0, 1, 1, 1, 1};
    const double pts[] = {0, 0, 0, 1, 2, 0, 2, 2, 1, 3, 0, 1};
    const double normal[] = {0, 0, 1};
    sw_curve c(4, 3, 1, 0, 1, 0, knots, nullptr, pts, 0, 1, normal);
    EXPECT_EQ(c.get_data_size(), 8 + 16 + 5);
    EXPECT_EQ(c.get_K() + c.get_num_spans(), 3 + 1);
    const double* d = c.get_data();
    EXPECT_EQ(d[8], 1.0);                         // weights default to 1 (polynomial or not)
    EXPECT_EQ(d[12 + 3], 1.0);                    // point 1, x
    EXPECT_EQ(d[24] + d[25] + d[28], 0 + 1 + 1);  // range, normal z
    sw_curve from_block(4, 3, 1, 0, 0, 0, d);     // the same numbers, read as rational
    EXPECT_EQ(from_block.get_polynomial(), 0);
    position a, b;
    c.eval(0.3, &a);
    from_block.eval(0.3, &b);
    expect_near(a, b, 1e-14, "block constructor", 0.3);
    SizeAccumulator acc;
    c.full_size(acc, 1);
    EXPECT_EQ(acc.size(), sizeof(sw_curve) + 29 * sizeof(double));
}

TEST(SwCurve, RangeIsClampedToTheKnots) {
    struct {
        double lo, hi, want_lo, want_hi;
    } rows[] = {{-5, 10, 0, 3}, {0.5, 2.5, 0.5, 2.5}, {-1, 1, 0, 1}, {-INFINITY, INFINITY, 0, 3}};
    for (auto& r : rows) {
        sw_curve c = make_cubic(r.lo, r.hi);
        EXPECT_EQ(c.get_min_t(), r.want_lo);
        EXPECT_EQ(c.get_max_t(), r.want_hi);
        // The block carries the clamped range too.
        EXPECT_EQ(c.get_data()[c.get_num_knots() + 4 * cubic_n], r.want_lo);
        EXPECT_EQ(c.get_data()[c.get_num_knots() + 4 * cubic_n + 1], r.want_hi);
    }
}

TEST(SwCurve, ExtendsLinearlyPastTheEnds) {
    sw_curve c = make_arc();
    for (double end : {0.0, 6.0}) {
        position pe, p;
        vector de, d1, d2(9, 9, 9);
        c.eval(end, &pe, &de);
        double out = end == 0 ? -1e-11 : 1e-11;  // within the snap: the end itself
        c.eval(end + out, &p, &d1, &d2);
        EXPECT_EQ((p - pe).len(), 0.0);
        EXPECT_EQ((d1 - de).len(), 0.0);
        double far = end == 0 ? -2 : 1;
        c.eval(end + far, &p, &d1, &d2);
        expect_near(p, pe + far * de, 1e-15, "extended point", end + far);
        EXPECT_EQ((d1 - de).len(), 0.0);
        EXPECT_EQ(d2.len(), 0.0);
    }
    // A parameter that is no number falls in no span: the outputs stay as they were.
    position p(7, 7, 7);
    c.eval(std::numeric_limits<double>::quiet_NaN(), &p);
    EXPECT_EQ(p.x(), 7.0);
}

TEST(SwCurve, CopiesAreIndependentAndControlPointsDropTheCaches) {
    sw_curve a = make_cubic();
    position before, p;
    a.eval(1.7, &before);  // fills a's caches
    sw_curve b(a);
    sw_curve c = make_arc();
    c = a;
    sw_curve* d = a.copy_curve();
    const double moved[] = {5, 5, 5};
    a.set_control_point(5, moved);
    double back[3];
    a.get_control_point(5, back);
    EXPECT_EQ(back[2], 5.0);
    // The original evaluates its new shape: the same as a curve built with the point.
    sw_curve fresh(cubic_n, 3, 0, 0, 1, 0, a.get_knots(), nullptr, a.get_control_points(), 0, 3,
                   nullptr);
    position want;
    fresh.eval(1.7, &want);
    a.eval(1.7, &p);
    EXPECT_GT((p - before).len(), 0.1);
    EXPECT_EQ((p - want).len(), 0.0);
    for (const sw_curve* copy : {&b, &c, d}) {
        copy->eval(1.7, &p);
        EXPECT_EQ((p - before).len(), 0.0);
    }
    delete d;
}

TEST(SwCurve, RisingEvaluationAllocatesNothing) {
    sw_curve c = make_arc();
    position p;
    vector d1, d2;
    c.eval(0, &p);  // the caches
    long before = allocations_ever();
    for (int k = 0; k <= 1000; ++k) c.eval(6.0 * k / 1000, &p, &d1, &d2);
    c.eval(7, &p, &d1, &d2);
    EXPECT_EQ(allocations_ever(), before);
}

TEST(SwCurve, DebugPrintsTheKnotTable) {
    const double knots[] = {0, 0, 1, 1};
    const double weights[] = {1, 2};
    const double pts[] = {0, 0, 0, 1, 2, -3};
    struct {
        int polynomial;
        const char* text;
    } rows[] = {
        {1,
         "#sw_curve info:\n#degree: 1\n#control points: 2\n#knots: 4\n#spans: 1\nPolynomial\n"
         "#       (                  ,                   ,                   ),    "
         "0.0000000000000\n"
         "#       (   0.0000000000000,    0.0000000000000,    0.0000000000000),    "
         "0.0000000000000\n"
         "#       (   1.0000000000000,    2.0000000000000,   -3.0000000000000),    "
         "1.0000000000000\n"
         "#       (                  ,                   ,                   ),    "
         "1.0000000000000\n"},
        {0,
         "#sw_curve info:\n#degree: 1\n#control points: 2\n#knots: 4\n#spans: 1\nRational\n"
         "#       (                  ,                   ,                   ),                   "
         ",    0.0000000000000\n"
         "#       (   0.0000000000000,    0.0000000000000,    0.0000000000000),    1.0000000000000,"
         "    0.0000000000000\n"
         "#       (   1.0000000000000,    2.0000000000000,   -3.0000000000000),    2.0000000000000,"
         "    1.0000000000000\n"
         "#       (                  ,                   ,                   ),                   "
         ",    1.0000000000000\n"},
    };
    for (auto& r : rows) {
        sw_curve c(2, 1, 0, 0, r.polynomial, 0, knots, weights, pts, 0, 1, nullptr);
        output_capture out;
        c.debug();
        EXPECT_EQ(std::string(out.text()), r.text);
    }
}

TEST(SwCurve, BadInputRaisesAtConstruction) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double knots[] = {0, 0, 0, 1, 1, 1};
    const double down[] = {0, 0, 0.5, 0.4, 1, 1};
    const double flat[] = {0, 0, 0, 0, 0, 0};
    const double pts[] = {0, 0, 0, 1, 1, 0, 2, 0, 0};
    const double nan_pts[] = {0, 0, 0, 1, nan, 0, 2, 0, 0};
    const double ok_w[] = {1, 1, 1}, zero_w[] = {1, 0, 1}, neg_w[] = {1, -2, 1};
    auto build = [](int n, int p, int poly, const double* k, const double* w, const double* x,
                    double lo = 0, double hi = 1) {
        return [=] { sw_curve c(n, p, 0, 0, poly, 0, k, w, x, lo, hi, nullptr); };
    };
    struct {
        const char* what;
        std::function<void()> f;
        const char* code;
    } rows[] = {
        {"fewer points than p + 1", build(2, 2, 1, knots, nullptr, pts), "SW_BAD_ORDER"},
        {"negative degree", build(3, -1, 1, knots, nullptr, pts), "SW_BAD_ORDER"},
        {"absurd count", build(INT_MAX - 2, 2, 1, knots, nullptr, pts), "SW_BAD_ORDER"},
        {"decreasing knots", build(3, 2, 1, down, nullptr, pts), "LAW_BAD_DOMAN"},
        {"no parameter length", build(3, 2, 1, flat, nullptr, pts), "LAW_BAD_DOMAN"},
        {"null knots", build(3, 2, 1, nullptr, nullptr, pts), "LAW_BAD_DOMAN"},
        {"zero weight", build(3, 2, 0, knots, zero_w, pts), "SW_BAD_WEIGHTS"},
        {"negative weight", build(3, 2, 0, knots, neg_w, pts), "SW_BAD_WEIGHTS"},
        {"NaN point", build(3, 2, 0, knots, ok_w, nan_pts), "LAW_BAD_RANGE"},
        {"null points", build(3, 2, 1, knots, nullptr, nullptr), "LAW_BAD_RANGE"},
        {"NaN range", build(3, 2, 1, knots, nullptr, pts, nan, 1), "LAW_BAD_BOUNDS"},
        {"reversed range", build(3, 2, 1, knots, nullptr, pts, 0.8, 0.2), "LAW_BAD_BOUNDS"},
        {"null block", [] { sw_curve c(3, 2, 0, 0, 1, 0, nullptr); }, "LAW_BAD_DOMAN"},
        // A polynomial curve ignores its weights, so they are not checked.
        {"polynomial, zero weight", build(3, 2, 1, knots, zero_w, pts), ""},
    };
    for (auto& r : rows) EXPECT_EQ(error_of(r.f), r.code) << r.what;

    sw_curve c(3, 2, 0, 0, 1, 0, knots, nullptr, pts, 0, 1, nullptr);
    const double bad[] = {nan, 0, 0};
    double out[3];
    EXPECT_EQ(error_of([&] { c.set_control_point(1, bad); }), "LAW_BAD_RANGE");
    EXPECT_EQ(error_of([&] { c.set_control_point(3, pts); }), "LAW_BAD_RANGE");
    EXPECT_EQ(error_of([&] { c.get_control_point(-1, out); }), "LAW_BAD_RANGE");
    EXPECT_EQ(error_of([&] { c.eval_curvature(0.5); }), "NO_SW_EVAL_CURVATURE");
    EXPECT_EQ(error_of([&] { c.length(0, 1); }), "NO_SW_LENGTH");
    EXPECT_EQ(error_of([&] { c.length_param(0, 1); }), "NO_SW_LENGTH_PARAM");
    EXPECT_EQ(error_of([&] { c.point_perp(position()); }), "NO_SW_POINT_PERP");
    EXPECT_EQ(error_of([&] { c.point_perp(position(), 0.5); }), "NO_SW_POINT_PERP");
}

TEST(SwCurve, RatioAndAccuracy) {
    double out;
    sw_ratio(1, 1.5, 3, 10, out, 20);
    EXPECT_EQ(out, 12.5);
    sw_ratio(1, 1.5, 1 + 1e-12, 10, out, 20);  // shorter than resmch: the start value
    EXPECT_EQ(out, 10.0);
    vector v;
    sw_ratio(0, 0.25, 1, vector(0, 4, 8), v, vector(4, 0, 8));
    EXPECT_EQ((v - vector(1, 3, 8)).len(), 0.0);

    sw_curve c = make_cubic();
    law_holder same(str_to_law("VEC(T,T^2-1,T^3/2-T)"));
    law_holder off(str_to_law("VEC(T,T^2,T^3/2-T)"));
    law_holder scalar(str_to_law("T"));
    EXPECT_LT(sw_curve_accuracy(same.get(), &c), 1e-13);
    EXPECT_NEAR(sw_curve_accuracy(off.get(), &c), 1.0, 1e-13);
    EXPECT_EQ(error_of([&] { sw_curve_accuracy(scalar.get(), &c); }), "LAW_DIM");
}

}  // namespace
