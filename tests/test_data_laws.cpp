// Laws over geometry, run over the example kinds of examples/geometry/: one table of
// {text, point, closed form}, a registry-wide check that every data-backed law prints,
// reads back to an equal law and differentiates in agreement with finite differences,
// then the derivative chain, domains, inverses, curve shape and bad input.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "geometry/analytic_geometry.hpp"
#include "lawutil/lawutil.hpp"
#include "test_support.hpp"

namespace {

constexpr double pi = 3.141592653589793;

// The data array the table's texts number into: HELIX1 is entry 0, TORUS2 entry 1, ...
data_set geometry() {
    const double knots[] = {0, 0, 1, 1}, pts[] = {0, 0, 0, 1, 2, 3};
    sw_curve line(2, 1, 0, 0, 1, 0, knots, nullptr, pts, 0.0, 1.0, nullptr);
    // p -> 2 (p turned a quarter about z) + (1,2,3)
    transf t(matrix(vector(0, 1, 0), vector(-1, 0, 0), vector(0, 0, 1)), 2.0, vector(1, 2, 3));
    return data_set({VORX_NEW helix_curve_data(2.0, 0.5, 0.0, 2 * pi),
                     VORX_NEW torus_surface_data(2.0, 1.0), VORX_NEW arc_wire_data(),
                     VORX_NEW pcircle_data(0.5, 0.5, 0.25), VORX_NEW ring_pattern_data(4, pi / 2),
                     VORX_NEW sw_curve_law_data(line, 0.0, 1.0),
                     VORX_NEW base_transform_law_data(&t)});
}

const double s425 = std::sqrt(4.25);  // speed of the helix r = 2, c = 0.5

// A point half a unit outside the torus at (u, v) = (1, 1), and one on the helix at t = 1.
const double off_torus[3] = {(2 + 1.5 * std::cos(1.0)) * std::cos(1.0),
                             (2 + 1.5 * std::cos(1.0)) * std::sin(1.0), 1.5 * std::sin(1.0)};

// clang-format off
const law_row value_rows[] = {
    {"CUR(HELIX1)", {0.3}, {2 * std::cos(0.3), 2 * std::sin(0.3), 0.15}},
    {"DCUR(HELIX1,1)", {0.3}, {-2 * std::sin(0.3), 2 * std::cos(0.3), 0.5}},
    {"DCUR(HELIX1,2)", {0.3}, {-2 * std::cos(0.3), -2 * std::sin(0.3), 0.0}},
    {"CURC(HELIX1)", {0.3}, {2 / 4.25}}, {"LENGTH(HELIX1,0,X)", {2.0}, {2 * s425}},
    {"LENGTH_PARAM(HELIX1,0,X)", {1.0}, {1 / s425}},
    {"CURD(HELIX1)", {0.0, pi}, {std::sqrt(16 + pi * pi / 4)}},
    {"CURI(HELIX1)", {1.0, 1.0}, {1e10}},
    {"CURI(HELIX1)",
    {0.0, 0.5},
     {(std::pow(2 - 2 * std::cos(0.5), 2) + 4 * std::pow(std::sin(0.5), 2) + 0.0625) / 0.25}},
    {"MAP(X^2,HELIX1)", {0.5}, {pi * pi}},
    {"CURVEPERP(HELIX1,VEC(X,Y,Z))", {2 * std::cos(1.0), 2 * std::sin(1.0), 0.5}, {1.0}},
    {"SURF(TORUS2)", {0.0, pi / 2}, {0.0, 3.0, 0.0}}, {"BS(TORUS2)", {0.0, 0.0}, {3.0, 0.0, 0.0}},
    {"DSURF(TORUS2,0,1)", {0.0, 0.0}, {0.0, 3.0, 0.0}},
    {"DSURF(TORUS2,1,1)", {pi / 2, pi / 2}, {1.0, 0.0, 0.0}},
    {"DSURF(TORUS2,0,2)", {0.0, 0.0}, {-3.0, 0.0, 0.0}}, {"GAUSCUR(TORUS2)", {0.0, 0.3}, {1.0 / 3}},
    {"GAUSCUR(TORUS2)", {pi, 0.3}, {-1.0}}, {"MEANCUR(TORUS2)", {0.0, 0.3}, {2.0 / 3}},
    {"MAXCUR(TORUS2)", {0.5, 0.3}, {1.0}}, {"MINCUR(TORUS2)", {pi / 2, 0.3}, {0.0}},
    {"SURFPERP(TORUS2,VEC(X,Y,Z))", {off_torus[0], off_torus[1], off_torus[2]}, {1.0, 1.0}},
    {"WIRE(ARCWIRE3)", {1 + pi / 2}, {2.0, 1.0, 0.0}},
    {"DWIRE(ARCWIRE3,2)", {1.5}, {-std::sin(0.5), std::cos(0.5), 0.0}},
    {"CURC(ARCWIRE3)", {1.5}, {1.0}}, {"PCUR(PCIRCLE4)", {0.0}, {0.75, 0.5}},
    {"DPCUR(PCIRCLE4,1)", {0.0}, {0.0, 0.25}}, {"TRANS(VEC(X,0,0),TRANS7)", {1.0}, {1, 4, 3}},
    {"ROTATE(VEC(X,1,0),TRANS7)", {1.0}, {-1, 1, 0}},
    {"VECTRANS(VEC(X,1,0),TRANS7)", {1.0}, {-2, 2, 0}},
    {"POSTRANS(VEC(X,4,3),TRANS7)", {1.0}, {1, 0, 0}}, {"SCALETRANS(X*X,TRANS7)", {3.0}, {18}},
    {"SURFNORM(TORUS2)",
    {0.3, 0.2},
     {-std::cos(0.3) * std::cos(0.2), -std::cos(0.3) * std::sin(0.2), -std::sin(0.3)}},
    {"PATTRANS(RING5)", {1.0}, {0, 1, 0, -1, 0, 0, 0, 0, 1, 0, 0, 0, 1}},
    {"CUR(SWEDGE6)", {0.5}, {0.5, 1.0, 1.5}}, {"DCUR(SWEDGE6,1)", {0.5}, {1.0, 2.0, 3.0}},
    {"SURFVEC(TORUS2,VEC(0,1,0))", {0.0}, {0.0, 3.0, 0.0}},
    {"MULTICUR(HELIX1,SWEDGE6)", {2 * pi + 0.5}, {0.5, 1.0, 1.5}},
    {"MULTICUR(HELIX1,SWEDGE6,1)", {0.3}, {-2 * std::sin(0.3), 2 * std::cos(0.3), 0.5}},
    {"MULTICURVEPERP(HELIX1,SWEDGE6,VEC(X,Y,Z))", {0.5, 1.0, 1.5}, {2 * pi + 0.5}},
};
// clang-format on

// Every registered data-backed law appears in the table; each row gives its closed form,
// prints, reads back to an equal law, and its symbolic derivatives agree with finite
// differences.
TEST(DataLaws, RegistryPrintReadDerivative) {
    data_set set = geometry();
    check_law_rows([&](const char* text) { return set.read(text); }, value_rows, 1e-9);
    std::set<std::string> covered;
    for (const law_row& r : value_rows) {
        data_set g = geometry();
        law_holder l = g.parse(r.text);
        ASSERT_TRUE(l);
        covered.insert(l->symbol());
        // The join at 1e10 and the pattern's steps have no derivative to compare.
        bool smooth = r.expect[0] != 1e10 && !l->isa(patterntrans_law::id());
        expect_reads_back_and_differentiates(l.get(), r.x, smooth ? 1e-5 : 0);
    }
    for (law_list* p = law_list::head(); p; p = p->fnext()) {
        law* proto = p->fthis();
        if (proto->isa(unary_data_law::id()) || proto->isa(multiple_data_law::id())) {
            EXPECT_TRUE(covered.count(proto->symbol())) << proto->symbol() << " not tabled";
        }
    }
}

TEST(DataLaws, DerivativeChainStopsAtTheSecondOrder) {
    data_set g = geometry();
    law_holder c = g.parse("CUR(HELIX1)");
    law_holder d1(c->derivative(0)), d2(d1->derivative(0)), d3(d2->derivative(0));
    ASSERT_TRUE(d2->isa(dcurve_law::id()));
    EXPECT_EQ(static_cast<dcurve_law*>(d2.get())->order(), 2);
    EXPECT_TRUE(d3->isa(derivative_law::id()));
    // third derivative of the helix: (2 sin t, -2 cos t, 0)
    std::vector<double> y = outputs_at(d3.get(), {0.3});
    EXPECT_NEAR(y[0], 2 * std::sin(0.3), 1e-5);
    EXPECT_NEAR(y[1], -2 * std::cos(0.3), 1e-5);
    law_holder dy(c->derivative(1));
    EXPECT_EQ(text_of(dy), "0");
    // DSURF past total order 2 is numerical too.
    law_holder s = g.parse("DSURF(TORUS2,1,1)");
    law_holder s3(s->derivative(0));
    EXPECT_TRUE(s3->isa(derivative_law::id()));
    law_holder lp = g.parse("LENGTH_PARAM(HELIX1,0,X)");
    EXPECT_EQ(error_of([&] { law_holder no(lp->derivative(1)); }), "LAW_DERIV");
}

TEST(DataLaws, SpellingDomainsAndInverses) {
    data_set g = geometry();
    law_holder c = g.parse("CUR(HELIX1)");
    EXPECT_EQ(text_of(c, law_symbol_maple), "no_maple(HELIX1)");
    interval dom;
    interval narrow(1.0, 2.0);
    law_holder cut(c->set_domain(&narrow));
    ASSERT_TRUE(cut->term_domain(0, dom));
    EXPECT_EQ(dom.start_pt(), 1.0);
    EXPECT_EQ(dom.end_pt(), 2.0);
    ASSERT_TRUE(c->term_domain(0, dom));
    EXPECT_NEAR(dom.end_pt(), 2 * pi, 1e-15);
    law_holder pat = g.parse("PATTRANS(RING5)");
    ASSERT_TRUE(pat->term_domain(0, dom));
    EXPECT_EQ(dom.end_pt(), 3.0);
    law_holder sw = g.parse("DCUR(SWEDGE6,1)");
    law_holder sw_cut(sw->set_domain(&narrow));
    ASSERT_TRUE(sw_cut->term_domain(0, dom));
    EXPECT_EQ(dom.start_pt(), 1.0);
    law_holder lp = g.parse("LENGTH_PARAM(HELIX1,0,X)");
    ASSERT_TRUE(lp->term_domain(0, dom));
    EXPECT_NEAR(dom.end_pt(), 2 * pi * s425, 1e-12);

    // A deep copy holds copies of the data and evaluates alike.
    law_holder lcopy(g.parse("LENGTH(HELIX1,0,X)")->deep_copy());
    EXPECT_NEAR(outputs_at(lcopy.get(), {2.0})[0], 2 * s425, 1e-12);

    // A wire reports its join.
    law_holder wire = g.parse("WIRE(ARCWIRE3)");
    double* where = nullptr;
    int* kind = nullptr;
    ASSERT_EQ(wire->singularities(&where, &kind, 0.0, 3.0), 1);
    EXPECT_EQ(where[0], 1.0);
    EXPECT_EQ(kind[0], law_singular_break);
    VORX_FREE(where);
    VORX_FREE(kind);
    EXPECT_EQ(c->singularities(&where, &kind, 0.0, 3.0), 0);

    // The inverses find the parameters back.
    law_holder ci(c->inverse());
    ASSERT_TRUE(ci);
    position on = c->evaluateR_P(4.0);
    EXPECT_NEAR(outputs_at(ci.get(), {on.x(), on.y(), on.z()})[0], 4.0, 1e-9);
    law_holder surf = g.parse("SURF(TORUS2)");
    law_holder si(surf->inverse());
    ASSERT_TRUE(si);
    double uv[2] = {2.0, 0.7};
    std::vector<double> back = outputs_at(
        si.get(),
        {surf->evaluateM_P(uv).x(), surf->evaluateM_P(uv).y(), surf->evaluateM_P(uv).z()});
    EXPECT_NEAR(back[0], 2.0, 1e-9);
    EXPECT_NEAR(back[1], 0.7, 1e-9);
}

TEST(DataLaws, CurveShape) {
    law_data* circle = VORX_NEW helix_curve_data(1.0, 0.0, 0.0, pi);
    law_data* helix = VORX_NEW helix_curve_data(1.0, 0.2);
    law_holder cc(VORX_NEW curve_law(circle)), ch(VORX_NEW curve_law(helix));
    circle->remove();
    helix->remove();
    data_set g = geometry();
    law_holder line = g.parse("CUR(SWEDGE6)");
    position root;
    unit_vector dir;
    EXPECT_TRUE(static_cast<curve_law*>(line.get())->is_linear(root, dir));
    EXPECT_NEAR(dir % normalise(vector(1, 2, 3)), 1.0, 1e-12);
    EXPECT_TRUE(static_cast<curve_law*>(line.get())->is_planar(root, dir));
    EXPECT_NEAR(dir % vector(1, 2, 3), 0.0, 1e-12);
    EXPECT_FALSE(static_cast<curve_law*>(cc.get())->is_linear(root, dir));
    EXPECT_TRUE(static_cast<curve_law*>(cc.get())->is_planar(root, dir));
    EXPECT_NEAR(std::fabs(dir.z()), 1.0, 1e-12);
    EXPECT_FALSE(static_cast<curve_law*>(ch.get())->is_planar(root, dir));
    position* pts = static_cast<curve_law*>(cc.get())->get_points_on_curve(3);
    EXPECT_NEAR(pts[1].y(), 1.0, 1e-15);
    EXPECT_NEAR(pts[2].x(), -1.0, 1e-15);
    VORX_FREE(pts);
}

TEST(DataLaws, BadInputRaisesCleanly) {
    data_set g = geometry();
    struct {
        const char* what;
        std::function<void()> f;
        const char* code;
    } rows[] = {
        {"null data", [] { law_holder l(VORX_NEW curve_law(nullptr)); }, "LAW_DATA_UNKNOWN"},
        {"surface as curve", [&] { law_holder l(str_to_law("CUR(TORUS2)", g.get(), 6)); },
         "LAW_DATA_UNKNOWN"},
        {"third partial", [&] { law_holder l(str_to_law("DSURF(TORUS2,2,1)", g.get(), 6)); },
         "LAW_DERIV"},
        {"order 3 of a helix", [&] { static_cast<path_law_data*>(g.get()[0])->eval(0.0, 3); },
         "LAW_DATA_CURVE"},
        {"order 3 of a wire", [&] { static_cast<path_law_data*>(g.get()[2])->eval(0.0, 3); },
         "LAW_DATA_WIRE"},
        {"order 3 via DCUR",
         [&] {
             law_holder l(str_to_law("DCUR(HELIX1,3)", g.get(), 6));
             l->evaluateR_V(0.0);
         },
         "LAW_DATA_CURVE"},
    };
    for (auto& r : rows) EXPECT_EQ(error_of(r.f), r.code) << r.what;
}

}  // namespace
