// Geometric value types of the base library: vectors and transforms, intervals and boxes,
// nvector storage, fits, and polynomial roots.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include "base/errors.hpp"
#include "base/geometry.hpp"
#include "base/memory.hpp"
#include "lawutil/global_names.hpp"

namespace {

constexpr double pi = 3.14159265358979323846;
constexpr double inf = std::numeric_limits<double>::infinity();

void expect_near(const position& a, const position& b, double tol = 1e-12) {
    EXPECT_LT((a - b).len(), tol) << "(" << a.x() << ", " << a.y() << ", " << a.z() << ") vs ("
                                  << b.x() << ", " << b.y() << ", " << b.z() << ")";
}
void expect_near(const vector& a, const vector& b, double tol = 1e-12) {
    expect_near(position(a), position(b), tol);
}

}  // namespace

// ---------------------------------------------------------------------------------------
// vectors and positions

TEST(BaseVector, ProductsPointsAndNormalise) {
    vector x(1, 0, 0), y(0, 1, 0), z(0, 0, 1);
    expect_near(x * y, z);
    expect_near(y * z, x);
    expect_near(z * x, y);
    vector a(1, 2, 3), b(-4, 5, 0.5);
    expect_near(a * b, -(b * a));
    EXPECT_NEAR((a * b) % a, 0.0, 1e-12);
    EXPECT_TRUE(vector(1e-7, -1e-7, 0).is_zero());
    EXPECT_FALSE(vector(1e-7, -1e-7, 0).is_zero(1e-8));
    position p(1, 2, 3), q(4, 6, 3);
    expect_near(p + (q - p), q);
    expect_near(interpolate(0.25, p, q), position(1.75, 3, 3));
    unit_vector u = normalise(vector(3, 0, 4));
    expect_near(u, vector(0.6, 0, 0.8));
    EXPECT_TRUE(normalise(vector()).is_zero(0.0));
    expect_near(unit_vector(), vector(0, 0, 1));
    // A unit vector keeps unit length through a scaling transform.
    unit_vector s = u * scale_transf(7.0);
    EXPECT_NEAR(s.len(), 1.0, 1e-15);
    expect_near(s, u);
}

// ---------------------------------------------------------------------------------------
// matrices

TEST(BaseMatrix, InverseDeterminantAndProducts) {
    matrix m(vector(2, 1, 0), vector(-1, 3, 1), vector(0.5, 0, 4));
    EXPECT_NEAR(m.determinant(), 2 * 12 - 1 * (-4 - 0.5), 1e-12);
    EXPECT_TRUE((m * m.inverse()).is_identity(1e-14));
    EXPECT_TRUE((m.inverse() * m).is_identity(1e-14));
    vector v(1, -2, 5);
    // M v and v M are each other's transposes.
    expect_near(m * v, v * m.transpose());
    matrix singular(vector(1, 2, 3), vector(2, 4, 6), vector(0, 1, 0));
    EXPECT_EQ(singular.inverse().determinant(), 0.0);
}

// ---------------------------------------------------------------------------------------
// transforms

namespace {

struct named_transf {
    const char* name;
    transf t;
};

std::vector<named_transf> sample_transfs() {
    transf rot = rotate_transf(0.7, vector(1, -2, 0.5));
    transf shift = translate_transf(vector(3, -1, 2));
    transf scale = scale_transf(2.5);
    transf mirror = reflect_transf(vector(1, 1, 0));
    matrix shear_m(vector(1, 0.3, 0), vector(0, 1, 0), vector(0, 0, 1));
    return {{"identity", transf()},
            {"rotation", rot},
            {"translation", shift},
            {"scale", scale},
            {"reflection", mirror},
            {"negative scale", scale_transf(-0.5)},
            {"shear", transf(shear_m, 1.0, vector(1, 1, 1))},
            {"mix", rot * shift * scale * mirror},
            {"mix reversed", mirror * scale * shift * rot}};
}

}  // namespace

// Every sample inverts, composes left first and survives its 13-number form.
TEST(BaseTransf, SamplesInvertComposeAndRoundTrip) {
    const position pts[] = {position(0, 0, 0), position(1, -2, 3.5), position(-40, 7, 0.25)};
    for (const auto& s : sample_transfs()) {
        SCOPED_TRACE(s.name);
        transf inv = s.t.inverse();
        for (const position& p : pts) {
            expect_near(p * s.t * inv, p, 1e-11);
            expect_near(p * inv * s.t, p, 1e-11);
        }
        expect_near(vector(0.3, -1, 2) * s.t * inv, vector(0.3, -1, 2), 1e-12);
        EXPECT_TRUE((s.t * inv).identity());
        for (const auto& t : sample_transfs()) {
            SCOPED_TRACE(t.name);
            expect_near(pts[1] * (s.t * t.t), (pts[1] * s.t) * t.t, 1e-11);
        }
        double v[13];
        s.t.to_array(v);
        EXPECT_TRUE(transf_from_array(v) == s.t);
    }
    // Rotate (1,0,0) to (0,1,0), then shift.
    transf a = rotate_transf(pi / 2, vector(0, 0, 1)), b = translate_transf(vector(10, 0, 0));
    expect_near(position(1, 0, 0) * (a * b), position(10, 1, 0));
    expect_near(position(1, 0, 0) * (b * a), position(0, 11, 0));
    // The 13-number layout: affine by rows, translation, scaling.
    double v[13] = {0, 1, 0, -1, 0, 0, 0, 0, 1, 5, 6, 7, 2};
    expect_near(position(1, 0, 0) * transf_from_array(v), position(5, 8, 7));
}

TEST(BaseTransf, MakersAndFlags) {
    const struct {
        const char* name;
        transf t;
        position p, want;
        int rotate;  // -1: not pinned (a reflection's matrix counts as a rotation)
        bool reflect;
    } rows[] = {
        {"rotation", rotate_transf(pi / 2, vector(0, 0, 2)), position(1, 0, 0), position(0, 1, 0),
         1, false},
        {"reflection", reflect_transf(vector(0, 0, 3)), position(1, 2, 3), position(1, 2, -3), -1,
         true},
        {"translation", translate_transf(vector(1, 2, 3)), position(), position(1, 2, 3), 0, false},
        {"negative scale", scale_transf(-2.0), position(1, 2, 3), position(-2, -4, -6), -1, true},
    };
    for (const auto& r : rows) {
        SCOPED_TRACE(r.name);
        expect_near(r.p * r.t, r.want);
        if (r.rotate >= 0) {
            EXPECT_EQ(r.t.rotate(), r.rotate == 1);
        }
        EXPECT_EQ(r.t.reflect(), r.reflect);
        EXPECT_FALSE(r.t.shear());
    }
    // Directions ignore the translation; a negative scale keeps a positive scaling.
    expect_near(vector(1, 0, 0) * rows[2].t, vector(1, 0, 0));
    EXPECT_DOUBLE_EQ(rows[3].t.scaling(), 2.0);
    // A uniform scale folded into the affine part moves into the scaling.
    transf folded(matrix() * 3.0, 1.0, vector());
    EXPECT_NEAR(folded.scaling(), 3.0, 1e-14);
    EXPECT_TRUE(folded.affine().is_identity(1e-14));
    EXPECT_TRUE(rotate_transf(1.0, vector()).identity());
}

TEST(BaseTransf, CoordinateTransfMapsLocalAxes) {
    position origin(1, 2, 3);
    unit_vector x = normalise(vector(1, 1, 0)), z(0, 0, 1);
    transf t = coordinate_transf(origin, x, z);
    expect_near(position() * t, origin);
    expect_near(position(1, 0, 0) * t, origin + x);
    expect_near(position(0, 1, 0) * t, origin + z * x);
    expect_near(position(0, 0, 1) * t, origin + z);
    EXPECT_FALSE(t.reflect());
    // An x axis not perpendicular to z loses its z component.
    transf tilted = coordinate_transf(origin, normalise(vector(1, 0, 1)), z);
    expect_near(position(1, 0, 0) * tilted, origin + vector(1, 0, 0));
}

// ---------------------------------------------------------------------------------------
// intervals and boxes

TEST(BaseInterval, ConstructionAndEnds) {
    // Ends given in either order; the unused end of a half-infinite interval is ignored.
    EXPECT_EQ(interval(3.0, 1.0), interval(1.0, 3.0));
    interval below(interval_finite_below, 2.0, -99.0);
    EXPECT_EQ(below.end_pt(), inf);
    EXPECT_FALSE(below.bounded_above());
    EXPECT_EQ(below.length(), inf);
    EXPECT_EQ(below.mid_pt(), 2.0);
    EXPECT_EQ(interval(interval_finite_above, 99.0, -1.0).start_pt(), -inf);
    interval e;
    EXPECT_TRUE(e.empty());
    EXPECT_FALSE(e.finite());
    EXPECT_EQ(e.length(), 0.0);
    EXPECT_TRUE(interval(interval_infinite, 0, 0).infinite());
}

TEST(BaseInterval, ContainsWithToleranceAndClamp) {
    struct row {
        interval range;
        double v;
        bool inside;
        double clamped;
    };
    const double tol = 1e-3;
    // clang-format off
    const row rows[] = {
        {interval(0, 1), 1.0005, true, 1.0}, {interval(0, 1), -0.0005, true, 0.0},
        {interval(0, 1), 1.01, false, 1.0}, {interval(interval_finite_below, 2, 0), 1e9, true, 1e9},
        {interval(interval_finite_below, 2, 0), 1.5, false, 2.0},
        {interval(interval_finite_above, 0, 2), -1e9, true, -1e9},
        {interval(interval_infinite, 0, 0), 42.0, true, 42.0},
        {interval(interval_unknown, 0, 0), -42.0, true, -42.0}, {interval(), 0.0, false, 0.0},
    };
    // clang-format on
    for (const row& r : rows) {
        SCOPED_TRACE(r.v);
        double param = -777;
        EXPECT_EQ(r.range.contains(r.v, tol, param), r.inside);
        EXPECT_EQ(param, r.clamped);
        EXPECT_EQ(r.range.in_interval(r.v, tol), r.inside);
    }
    EXPECT_TRUE(interval(0, 10).contains(interval(2, 3)));
    EXPECT_FALSE(interval(0, 10).contains(interval(interval_finite_below, 2, 0)));
}

TEST(BaseInterval, IntersectionAndUnion) {
    const interval a(0, 2);
    const struct {
        interval x, y, want;  // empty want: an empty result
    } rows[] = {
        {a, interval(1, 5), interval(1, 2)},
        {a, interval(3, 4), interval()},
        {a, interval(interval_finite_below, 1.5, 0), interval(1.5, 2)},
        {interval(interval_finite_below, 1, 0), interval(interval_finite_above, 0, 4),
         interval(1, 4)},
        {a, interval(interval_unknown, 0, 0), a},
        {a, interval(), interval()},
    };
    for (const auto& r : rows)
        for (const interval& got : {r.x & r.y, r.y & r.x}) {
            if (r.want.empty())
                EXPECT_TRUE(got.empty());
            else
                EXPECT_EQ(got, r.want);
        }
    interval u;
    u |= a;
    EXPECT_EQ(u, a);
    u |= interval(7, 8);
    EXPECT_EQ(u, interval(0, 8));
    u |= -1.0;
    EXPECT_EQ(u, interval(-1, 8));
    u |= interval(interval_finite_above, 0, 3);
    EXPECT_EQ(u.type(), interval_finite_above);
    EXPECT_EQ(u.end_pt(), 8.0);
    u |= interval(interval_finite_below, 100, 0);
    EXPECT_TRUE(u.infinite());
    EXPECT_NE(interval(0, 1), interval(0, 1.001));
    EXPECT_EQ(interval(0, 1), interval(0, 1 + 1e-9));
}

TEST(BaseInterval, ArithmeticShiftsAndScales) {
    EXPECT_EQ(interval(1, 2) * -2.0, interval(-4, -2));
    interval below(interval_finite_below, 1, 0);
    interval flipped = below * -3.0;
    EXPECT_EQ(flipped.type(), interval_finite_above);
    EXPECT_EQ(flipped.end_pt(), -3.0);
    EXPECT_EQ(interval(1, 2) - interval(10, 20), interval(-19, -8));
    EXPECT_EQ((below + interval(interval_finite_above, 0, 5)).type(), interval_infinite);
    EXPECT_TRUE((interval() + 1.0).empty());
}

TEST(BaseInterval, MapParamIntoPeriodicRange) {
    struct row {
        interval range;
        double param, period, expected;
        bool inside;
    };
    const double tp = 2 * pi;
    // clang-format off
    const row rows[] = {
        {interval(0, tp), -pi / 2, tp, 3 * pi / 2, true}, {interval(0, tp), 7 * pi, tp, pi, true},
        {interval(0, tp), -13 * tp + 0.25, tp, 0.25, true},
        // At an end within rounding: left alone, not moved a period.
        {interval(0, tp), tp + 1e-13, tp, tp + 1e-13, true},
        {interval(-pi, pi), 3 * pi / 2, tp, -pi / 2, true}, {interval(0, tp), 9.0, 0.0, 9.0, false},
        {interval(interval_finite_below, 10, 0), 1.0, tp, 1.0 + 2 * tp, true},
        {interval(interval_finite_above, 0, -10), 1.0, tp, 1.0 - 2 * tp, true},
        // Shorter than the period with no shift landing inside.
        {interval(0, 1), 2.0, tp, 2.0, false},
    };
    // clang-format on
    for (const row& r : rows) {
        SCOPED_TRACE(r.param);
        double p = r.param;
        EXPECT_EQ(map_param_into_interval(r.range, p, r.period), r.inside);
        EXPECT_NEAR(p, r.expected, 1e-12);
    }
}

TEST(BaseBox, UnionIntersectionContainment) {
    box b(position(1, 5, 0), position(0, 2, 1));
    box u;
    EXPECT_TRUE(u.empty());
    u |= b;
    u |= position(-1, 3, 0.5);
    expect_near(u.low(), position(-1, 2, 0));
    EXPECT_TRUE(u.contains(position(-1 - 1e-7, 4, 1)));
    EXPECT_FALSE(u.contains(position(-1.1, 4, 1)));
    box c(interval(0.5, 9), interval(0, 3), interval(interval_finite_below, 0.5, 0));
    box i = b & c;
    expect_near(i.low(), position(0.5, 2, 0.5));
    expect_near(i.high(), position(1, 3, 1));
    EXPECT_TRUE((b & box(position(7, 7, 7), position(8, 8, 8))).empty());
    EXPECT_FALSE(c.finite());
}

// ---------------------------------------------------------------------------------------
// complex numbers and nvectors

TEST(BaseComplex, ArithmeticWithoutOverflow) {
    complex_number a(1, 2), b(3, -4);
    complex_number q = (a * b) / b;
    EXPECT_NEAR(q.re(), 1.0, 1e-15);
    EXPECT_NEAR(q.im(), 2.0, 1e-15);
    // Parts near the top of the double range still divide and measure.
    complex_number big(1e300, 1e300);
    complex_number one = big / big;
    EXPECT_NEAR(one.re(), 1.0, 1e-15);
    EXPECT_NEAR(one.im(), 0.0, 1e-15);
    EXPECT_NEAR(big.abs() / 1e300, std::sqrt(2.0), 1e-15);
    EXPECT_EQ(complex_number(-3, 2).max_coord(), 3.0);
}

TEST(BaseNvector, CopyMoveAndAssignAcrossStorage) {
    const double small_vals[] = {1, 2, 3};
    double big_vals[10];
    for (int i = 0; i < 10; ++i) big_vals[i] = i + 0.5;
    for (int n : {3, 10}) {
        SCOPED_TRACE(n);
        const double* vals = n == 3 ? small_vals : big_vals;
        long before = vorx_live_allocations();
        {
            nvector a(vals, n);
            EXPECT_EQ(vorx_live_allocations(), before + (n > nvector::inline_size ? 1 : 0));
            nvector b(a);
            b[0] = -1;
            EXPECT_EQ(a[0], vals[0]);
            nvector c(std::move(b));
            EXPECT_EQ(c[0], -1);
            EXPECT_EQ(b.size(), 0);
            nvector d;
            d = a;
            nvector& alias = d;
            d = alias;
            EXPECT_EQ(d.size(), n);
            EXPECT_EQ(d[n - 1], vals[n - 1]);
            d = std::move(c);
            EXPECT_EQ(d[0], -1);
            // Assigning a short vector over a long one, and back.
            nvector e(big_vals, 10);
            e = nvector(small_vals, 3);
            EXPECT_EQ(e.size(), 3);
            EXPECT_EQ(e[2], 3.0);
            e = a;
            EXPECT_EQ(e[n - 1], vals[n - 1]);
        }
        EXPECT_EQ(vorx_live_allocations(), before);
    }
}

TEST(BaseNvector, AlgebraAndNorms) {
    const double v[] = {3, 0, -4};
    nvector a(v, 3), b(3);
    EXPECT_NEAR(a.norm().length(), 1.0, 1e-15);
    EXPECT_EQ(b.norm().length(), 0.0);
    EXPECT_EQ((a + a - a.scale(2.0)).max_coord(), 0.0);
    b.set(5);
    EXPECT_EQ(b.size(), 5);
    EXPECT_EQ(b[4], 0.0);
    const double huge[] = {3e200, 4e200};
    EXPECT_NEAR(nvector(huge, 2).length() / 5e200, 1.0, 1e-15);
    EXPECT_THROW(a + b, vorx_exception);
    EXPECT_THROW(a.dot(b), vorx_exception);
}

// ---------------------------------------------------------------------------------------
// predicates and fits

TEST(BaseGeomUtils, DirectionPredicates) {
    struct row {
        vector a, b;
        bool par, anti;
    };
    // clang-format off
    const row rows[] = {
        {vector(1, 2, 3), vector(2, 4, 6), true, false},
        {vector(1, 2, 3), vector(-0.5, -1, -1.5), false, true},
        {vector(1, 0, 0), vector(1, 1e-6, 0), false, false},
        {vector(1, 0, 0), vector(1, 1e-12, 0), true, false},
        {vector(1, 0, 0), vector(0, 1, 0), false, false}, {vector(), vector(1, 0, 0), false, false},
    };
    // clang-format on
    for (const row& r : rows) {
        EXPECT_EQ(parallel(r.a, r.b), r.par);
        EXPECT_EQ(antiparallel(r.a, r.b), r.anti);
        EXPECT_EQ(biparallel(normalise(r.a), normalise(r.b)), r.par || r.anti);
    }
    EXPECT_TRUE(same_point(position(1, 1, 1), position(1, 1, 1 + 5e-7)));
    EXPECT_FALSE(same_point(position(1, 1, 1), position(1, 1, 1 + 2e-6)));
    EXPECT_TRUE(same_vector(vector(1, 0, 0), vector(1, 5e-7, 0)));
    EXPECT_TRUE(is_equal(1.0, 1.0 + 5e-7));
    EXPECT_FALSE(is_equal(1.0, 1.0 + 2e-6));
}

TEST(BaseGeomUtils, SymmetricEigenDecomposition) {
    // A diagonal matrix seen in a rotated frame.
    matrix r = rotate_transf(0.4, vector(1, 2, -1)).affine();
    matrix d(vector(-2, 0, 0), vector(0, 1e-9, 0), vector(0, 0, 5));
    matrix a = r.transpose() * d * r;
    double m[3][3], values[3];
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) m[i][j] = a.element(i, j);
    vector vecs[3];
    symmetric_eigen3(m, values, vecs);
    EXPECT_NEAR(values[0], -2.0, 1e-14);
    EXPECT_NEAR(values[1], 1e-9, 1e-14);
    EXPECT_NEAR(values[2], 5.0, 1e-14);
    for (int i = 0; i < 3; ++i) {
        expect_near(a * vecs[i], vecs[i] * values[i], 1e-13);
        EXPECT_NEAR(vecs[i].len(), 1.0, 1e-14);
    }
}

TEST(BaseGeomUtils, PlaneAndLineFromPoints) {
    // A square in a tilted plane, far from the origin, in counterclockwise order.
    transf place = rotate_transf(0.3, vector(1, 1, 0)) * translate_transf(vector(100, -50, 7));
    unit_vector expected_normal = unit_vector(0, 0, 1) * place;
    std::vector<position> pts;
    for (int i = 0; i < 4; ++i)
        pts.push_back(position(std::cos(i * pi / 2), std::sin(i * pi / 2), 0) * place);
    position root;
    unit_vector normal;
    ASSERT_TRUE(get_plane_from_points(4, pts.data(), root, normal));
    expect_near(root, position() * place, 1e-11);
    expect_near(normal, expected_normal, 1e-12);
    // The reverse order turns the normal round.
    std::reverse(pts.begin(), pts.end());
    ASSERT_TRUE(get_plane_from_points(4, pts.data(), root, normal));
    expect_near(normal, -expected_normal, 1e-12);
    position line[] = {position(0, 0, 0), position(1, 1, 1), position(2, 2, 2 + 1e-8)};
    EXPECT_FALSE(get_plane_from_points(3, line, root, normal));
    EXPECT_FALSE(get_plane_from_points(2, pts.data(), root, normal));

    position on_line[] = {position(5, 1, 0), position(3, 2, 0.5), position(1, 3, 1),
                          position(-1, 4, 1.5)};
    ASSERT_TRUE(get_line_from_points(4, on_line, root, normal));
    expect_near(root, position(2, 2.5, 0.75));
    expect_near(normal, normalise(vector(-4, 2, 1)));
    position same[] = {position(1, 1, 1), position(1, 1, 1 + 1e-9)};
    EXPECT_FALSE(get_line_from_points(2, same, root, normal));
    EXPECT_FALSE(get_line_from_points(1, on_line, root, normal));
}

// ---------------------------------------------------------------------------------------
// quartic roots

namespace {

struct root_case {
    const char* name;
    double lead;                        // the roots' polynomial is scaled by this
    std::vector<complex_number> roots;  // expected, with multiplicity
    double tol;                         // accepted error, relative to max(1, |root|)
};

// Coefficients of lead * prod (x - r), highest first, padded to a quartic with leading
// zeros; the roots come in conjugate pairs so the imaginary parts cancel.
void expand(const root_case& c, double coef[5]) {
    complex_number p[5] = {complex_number(c.lead, 0)};
    int deg = 0;
    for (const complex_number& r : c.roots) {
        p[++deg] = complex_number();
        for (int i = deg; i > 0; --i) p[i] -= p[i - 1] * r;
    }
    int off = 4 - deg;
    for (int i = 0; i < 5; ++i) coef[i] = i < off ? 0.0 : p[i - off].re();
}

// |p(r)| against the size of the terms summed to get it.
double relative_residual(const double coef[5], const complex_number& r) {
    complex_number v;
    double scale = 0.0;
    for (int i = 0; i < 5; ++i) {
        v = v * r + complex_number(coef[i], 0);
        scale = scale * r.abs() + std::fabs(coef[i]);
    }
    return scale > 0 ? v.abs() / scale : v.abs();
}

void PrintTo(const root_case& c, std::ostream* os) {
    *os << c.name;
}

class QuarticRoots : public testing::TestWithParam<root_case> {};

}  // namespace

TEST_P(QuarticRoots, FindsEveryRoot) {
    const root_case& c = GetParam();
    double coef[5];
    expand(c, coef);
    int n = -1;
    complex_number* got = quartic_roots(coef[0], coef[1], coef[2], coef[3], coef[4], &n);
    ASSERT_EQ(n, (int)c.roots.size());
    ASSERT_NE(got, nullptr);
    // Sorted by real, then imaginary part.
    for (int i = 1; i < n; ++i)
        EXPECT_TRUE(got[i - 1].re() < got[i].re() ||
                    (got[i - 1].re() == got[i].re() && got[i - 1].im() <= got[i].im()));
    for (int i = 0; i < n; ++i) EXPECT_LT(relative_residual(coef, got[i]), 1e-14);
    // Match the multisets: each expected root takes the nearest unused one found.
    std::vector<bool> used(n, false);
    for (const complex_number& want : c.roots) {
        int best = -1;
        double best_d = inf;
        for (int i = 0; i < n; ++i)
            if (!used[i] && (got[i] - want).abs() < best_d) {
                best_d = (got[i] - want).abs();
                best = i;
            }
        used[best] = true;
        EXPECT_LE(best_d, c.tol * std::max(1.0, want.abs()))
            << "root " << want.re() << " + " << want.im() << "i";
    }
    VORX_FREE(got);
}

namespace {

const double h = std::sqrt(0.5);
using cn = complex_number;

}  // namespace

INSTANTIATE_TEST_SUITE_P(
    Cases, QuarticRoots,
    testing::Values(
        root_case{"distinct", 1, {cn(-2, 0), cn(0.5, 0), cn(1, 0), cn(3, 0)}, 1e-14},
        root_case{"fourfold", 1, {cn(1, 0), cn(1, 0), cn(1, 0), cn(1, 0)}, 1e-12},
        root_case{"two_double", 1, {cn(1, 0), cn(1, 0), cn(2, 0), cn(2, 0)}, 1e-12},
        root_case{"triple", 2, {cn(-1, 0), cn(3, 0), cn(3, 0), cn(3, 0)}, 1e-12},
        root_case{"double_complex_pair", 1, {cn(0, 1), cn(0, 1), cn(0, -1), cn(0, -1)}, 1e-12},
        root_case{"x4_plus_1", 1, {cn(h, h), cn(h, -h), cn(-h, h), cn(-h, -h)}, 1e-14},
        root_case{"x4_minus_1", 1, {cn(1, 0), cn(-1, 0), cn(0, 1), cn(0, -1)}, 1e-14},
        // Close but distinct: resolved, not merged into a double root.
        root_case{"close_pair", 1, {cn(1, 0), cn(1 + 1e-6, 0), cn(2, 0), cn(3, 0)}, 1e-8},
        root_case{"zero_roots", 1, {cn(0, 0), cn(0, 0), cn(0, 0), cn(1, 0)}, 0},
        root_case{"small_roots", 1, {cn(1e-3, 0), cn(1e-3 + 1e-8, 0), cn(-2, 0), cn(5, 0)}, 1e-10},
        root_case{"quadratic_complex", 1, {cn(-1, 2), cn(-1, -2)}, 1e-15},
        root_case{"linear", 2, {cn(0.5, 0)}, 0},
        root_case{"huge_scale", 1e8, {cn(-2e4, 0), cn(3e-3, 0), cn(5, 0), cn(1e4, 0)}, 1e-14},
        root_case{"tiny_scale", 1e-8, {cn(1e-4, 0), cn(2e-4, 0), cn(0, 3), cn(0, -3)}, 1e-14},
        // Two conjugate pairs of nearly equal imaginary part, on which plain double-shift
        // iterations cycle.
        root_case{"paired_pairs",
                  1,
                  {cn(-0.53397061600436402, 0.0054335331567680889),
                   cn(-0.53397061600436402, -0.0054335331567680889),
                   cn(0.46602938399563598, 0.0054335331567680889),
                   cn(0.46602938399563598, -0.0054335331567680889)},
                  1e-10},
        root_case{"wide_spread", 1, {cn(1e-6, 0), cn(1, 0), cn(1e3, 0), cn(1e6, 0)}, 1e-14}),
    [](const testing::TestParamInfo<root_case>& info) { return std::string(info.param.name); });

TEST(BaseQuarticRoots, RootsAcrossManyOrdersOfMagnitude) {
    // Roots near 3e13, -6.5e-4 and a complex pair near 7e-6: the small pair is lost in
    // the large root's rounding unless found separately.
    const double c[5] = {-3.8990795778792104e-11, 1139.6218021079246, 0.75189751912383773,
                         4.3823730829425632e-06, 3.617538787102086e-11};
    int n = 0;
    complex_number* r = quartic_roots(c[0], c[1], c[2], c[3], c[4], &n);
    ASSERT_EQ(n, 4);
    int complex_count = 0;
    for (int i = 0; i < n; ++i) {
        EXPECT_LT(relative_residual(c, r[i]), 1e-14);
        if (r[i].im() != 0.0) {
            ++complex_count;
            EXPECT_LT(r[i].abs(), 1e-5);
        }
    }
    EXPECT_EQ(complex_count, 2);
    VORX_FREE(r);
}

TEST(BaseQuarticRoots, RandomPolynomialsHaveSmallResiduals) {
    // Coefficients over many orders of magnitude; every root must be a root to rounding.
    std::mt19937 gen(12345);
    std::uniform_real_distribution<double> u(-1.0, 1.0);
    double worst = 0.0;
    for (int t = 0; t < 3000; ++t) {
        double c[5];
        for (int i = 0; i < 5; ++i) c[i] = u(gen) * std::pow(10.0, (i - 2) * 6 * u(gen));
        int n = 0;
        complex_number* r = quartic_roots(c[0], c[1], c[2], c[3], c[4], &n);
        // Drop the leading terms quartic_roots found negligible.
        double reduced[5] = {0, 0, 0, 0, 0};
        for (int i = 4 - n; i < 5; ++i) reduced[i] = c[i];
        for (int i = 0; i < n; ++i) worst = std::max(worst, relative_residual(reduced, r[i]));
        VORX_FREE(r);
    }
    EXPECT_LT(worst, 1e-14);
}

TEST(BaseQuarticRoots, DegreeDropsWithNegligibleLeadingTerms) {
    int n = -1;
    // 1e-20 is below 1e-14 of the largest coefficient: the cubic x^3 - 3x^2 + 2x.
    complex_number* r = quartic_roots(1e-20, 1, -3, 2, 0, &n);
    ASSERT_EQ(n, 3);
    EXPECT_EQ(r[0], complex_number(0, 0));
    EXPECT_NEAR(r[1].re(), 1.0, 1e-15);
    EXPECT_NEAR(r[2].re(), 2.0, 1e-15);
    VORX_FREE(r);
    // A small but significant leading term keeps its (large) root.
    r = quartic_roots(1e-10, 1, -3, 2, 0, &n);
    EXPECT_EQ(n, 4);
    VORX_FREE(r);

    EXPECT_EQ(quartic_roots(0, 0, 0, 0, 3, &n), nullptr);
    EXPECT_EQ(n, 0);
    EXPECT_EQ(quartic_roots(0, 0, 0, 0, 0, &n), nullptr);
    EXPECT_EQ(n, 0);
    r = quartic_roots(0, 0, 0, 4, -1);
    EXPECT_EQ(r[0].re(), 0.25);
    VORX_FREE(r);
}
