// The geometric data kinds: the sample cache, the lattice and its drag, the transform
// kind, the spline-curve kind and its refusals, and path singularities.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "geometry/analytic_geometry.hpp"
#include "lawutil/lawutil.hpp"
#include "test_support.hpp"

namespace {

TEST(R3LawCache, SelectionPassAndLookup) {
    law_holder L(str_to_law("VEC(COS(X),SIN(X),X)"));
    r3_law_cache cache;
    const double params[] = {0.5, 0.5, 0.2};
    cache.setup(L.get(), 3, params, interval(0.0, 2.0));
    ASSERT_EQ(cache.size(), 2);
    double a = cache.samples()[0].param(), b = cache.samples()[1].param();
    EXPECT_EQ(std::fmin(a, b), 0.2);
    EXPECT_EQ(std::fmax(a, b), 0.5);
    EXPECT_EQ(cache.scale(), 2.0);
    // Hit or fresh evaluation, the values are the law's, derivatives per unit of range.
    for (double t : {0.5, 0.2, 0.1, 1.5}) {
        vector P, D1, D3;
        cache.evaluate(t, P, D1, null_out_ref<vector>(), D3);
        EXPECT_NEAR(P.x(), std::cos(t), 1e-15);
        EXPECT_NEAR(D1.y(), 2 * std::cos(t), 1e-12);
        EXPECT_NEAR(D3.x(), 8 * std::sin(t), 1e-9);
    }
    law_holder scalar(str_to_law("X*Y"));
    cache.setup(scalar.get(), 1, params, interval(0.0, 1.0));
    EXPECT_EQ(cache.size(), 2);  // refused: unchanged
}

position unit_lattice_point(int i, int nx, int ny) {
    return position((double)(i % nx), (double)((i / nx) % ny), (double)(i / (nx * ny)));
}

struct lattice {
    base_position_array_law_data* d;
    lattice(int nx, int ny, int nz) {
        int n = nx * ny * nz, counts[3] = {nx, ny, nz};
        std::vector<position> pts(n);
        for (int i = 0; i < n; ++i) pts[i] = unit_lattice_point(i, nx, ny);
        d = VORX_NEW base_position_array_law_data(pts.data(), counts, 3);
    }
    ~lattice() { d->remove(); }
};

TEST(PositionArray, IndicesAndRestPlaces) {
    lattice g(3, 2, 4);
    EXPECT_EQ(g.d->get_data_size(), 24);
    int x, y, z;
    g.d->index_to_xyz(17, x, y, z);  // 17 = 2*6 + 1*3 + 2
    EXPECT_EQ(x * 100 + y * 10 + z, 212);
    g.d->reset_point(17);
    EXPECT_EQ(g.d->point(17).x(), 1.0);
    EXPECT_EQ(g.d->point(17).y(), 1.0);
    EXPECT_NEAR(g.d->point(17).z(), 2.0 / 3, 1e-15);

    const int two[2] = {2, 2};
    position four[4];
    law_data_holder flat(VORX_NEW base_position_array_law_data(four, two, 2));
    static_cast<base_position_array_law_data*>(flat.get())->index_to_xyz(3, x, y, z);
    EXPECT_EQ(x + y + z, 0);
    law_data_holder none(VORX_NEW base_position_array_law_data(nullptr, nullptr, 0));
    EXPECT_EQ(static_cast<base_position_array_law_data*>(none.get())->get_data_size(), 1);

    const int zero[3] = {2, 0, 2};
    EXPECT_EQ(
        error_of([&] { law_data_holder b(VORX_NEW base_position_array_law_data(four, zero, 3)); }),
        "LAW_DIM");
    EXPECT_EQ(error_of([&] {
                  law_data_holder b(VORX_NEW base_position_array_law_data(nullptr, two, 2));
              }),
              "LAW_DIM");
}

TEST(PositionArray, DragFallsOffAlongTheLattice) {
    const int pick[1] = {0};
    const vector up(0, 0, 1);
    struct {
        double falloff;
        double expect[3];  // z moves of points 0, 1, 2 of a 3 x 1 x 1 row
    } rows[] = {{0.0, {1, 0, 0}}, {1.0, {1, 0.5, 0}}, {2.0, {1, 0.5, 0}}, {0.5, {1, 0, 0}}};
    for (auto& r : rows) {
        lattice g(3, 1, 1);
        g.d->update_point(pick, 1, up, r.falloff);
        for (int i = 0; i < 3; ++i) EXPECT_NEAR(g.d->point(i).z(), r.expect[i], 1e-15) << r.falloff;
    }
    // Points all in one place: every ratio is 1.
    const int counts[3] = {2, 1, 1};
    position same[2];
    law_data_holder h(VORX_NEW base_position_array_law_data(same, counts, 3));
    double ratios[2];
    static_cast<base_position_array_law_data*>(h.get())->calc_movement_ratios(pick, 1, 0.3, ratios);
    EXPECT_EQ(ratios[1], 1.0);
}

TEST(TransformData, AppliesAndInverts) {
    transf T = rotate_transf(0.7, vector(0, 0, 1)) * translate_transf(vector(1, 2, 3));
    law_data_holder d(VORX_NEW base_transform_law_data(&T));
    auto* t = static_cast<base_transform_law_data*>(d.get());
    position p(0.3, -1.0, 2.0);
    position q = t->transform_inverse(t->transform(p));
    EXPECT_NEAR((q - p).len(), 0.0, 1e-14);
    EXPECT_NEAR((t->rotate_inverse(t->rotate(vector(1, 0, 0))) - vector(1, 0, 0)).len(), 0, 1e-15);
    law_data_holder copy(d->deep_copy());
    EXPECT_TRUE(*static_cast<base_transform_law_data*>(copy.get())->get_transf() == T);
    law_data_holder none(VORX_NEW base_transform_law_data(nullptr));
    EXPECT_EQ(static_cast<base_transform_law_data*>(none.get())->transform(p).x(), 0.3);
}

TEST(SwCurveData, EvaluatesAndRefusesWhatTheCurveCannotDo) {
    const double knots[] = {0, 0, 0, 1, 1, 1}, pts[] = {0, 0, 0, 1, 1, 0, 2, 0, 0};
    sw_curve arc(3, 2, 1, 0, 1, 0, knots, nullptr, pts, 0.0, 1.0, nullptr);
    law_data_holder d(VORX_NEW sw_curve_law_data(arc, 0.0, 1.0));
    auto* c = static_cast<sw_curve_law_data*>(d.get());
    EXPECT_STREQ(c->symbol(law_symbol_maple), "SWEDGE");
    EXPECT_EQ(c->date(), 60100);
    // B(t) = (2t, 2t(1-t), 0)
    EXPECT_NEAR(c->eval(0.25).y(), 0.375, 1e-15);
    EXPECT_NEAR(c->eval(0.25, 1).y(), 1.0, 1e-14);
    EXPECT_NEAR(c->eval(0.25, 2).y(), -4.0, 1e-13);
    position p(1, 1, 0);
    struct {
        std::function<void()> f;
        const char* code;
    } rows[] = {
        {[&] { c->eval(0.5, 3); }, "LAW_DATA_CURVE"},
        // The curve's own refusals pass through (test_sw_curve.cpp has the rest).
        {[&] { c->curvature(0.5); }, "NO_SW_EVAL_CURVATURE"},
    };
    for (auto& r : rows) EXPECT_EQ(error_of(r.f), r.code);
    interval r(0.2, 0.4);
    law_data_holder cut(c->set_domain(&r));
    EXPECT_EQ(static_cast<path_law_data*>(cut.get())->data_start(), 0.2);
    EXPECT_EQ(c->data_end(), 1.0);
    law_data_holder copy(c->deep_copy());
    EXPECT_NEAR(static_cast<path_law_data*>(copy.get())->eval(0.25).y(), 0.375, 1e-15);
}

TEST(PathData, Singularities) {
    struct {
        law_data* d;
        int n;
    } rows[] = {{VORX_NEW helix_curve_data(), 0}, {VORX_NEW arc_wire_data(), 1}};
    for (auto& r : rows) {
        double* where = nullptr;
        int* order = nullptr;
        EXPECT_EQ(static_cast<path_law_data*>(r.d)->singularities(&where, &order, 0.0, 3.0), r.n);
        if (r.n) {
            EXPECT_EQ(where[0], 1.0);
        }
        VORX_FREE(where);
        VORX_FREE(order);
        r.d->remove();
    }
}

}  // namespace
