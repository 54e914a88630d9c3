#include "analytic_geometry.hpp"

#include <cmath>
#include <cstdio>

#include "lawutil/law_unary_data.hpp"
#include "lawutil/law_util.hpp"
#include "lawutil/root.hpp"

LAWUTIL_TYPE_DEF(helix_curve_data)
LAWUTIL_TYPE_DEF(pcircle_data)
LAWUTIL_TYPE_DEF(arc_wire_data)
LAWUTIL_TYPE_DEF(torus_surface_data)
LAWUTIL_TYPE_DEF(ring_pattern_data)

namespace {
constexpr double half_pi = 1.5707963267948966;
constexpr double two_pi = 6.283185307179586;
}  // namespace

// ================================================================ helix

helix_curve_data::helix_curve_data(double radius, double pitch, double start, double end)
    : base_curve_law_data(start, end), r_(radius), c_(pitch) {}

law_data* helix_curve_data::deep_copy(pointer_map*) const {
    return VORX_NEW helix_curve_data(r_, c_, start_, end_);
}

law_data* helix_curve_data::set_domain(interval* r) const {
    if (!r) return deep_copy();
    return VORX_NEW helix_curve_data(r_, c_, r->start_pt(), r->end_pt());
}

vector helix_curve_data::eval(double t, int nderiv, int) const {
    double c = std::cos(t), s = std::sin(t);
    switch (nderiv) {
        case 0:
            return vector(r_ * c, r_ * s, c_ * t);
        case 1:
            return vector(-r_ * s, r_ * c, c_);
        case 2:
            return vector(-r_ * c, -r_ * s, 0.0);
    }
    sys_error(LAW_DATA_CURVE);
}

// r / (r^2 + c^2)
double helix_curve_data::curvature(double) const {
    return r_ / (r_ * r_ + c_ * c_);
}

// The speed is constant: sqrt(r^2 + c^2).
double helix_curve_data::length(double from, double to) const {
    return std::sqrt(r_ * r_ + c_ * c_) * (to - from);
}
double helix_curve_data::length_param(double base, double length) const {
    return base + length / std::sqrt(r_ * r_ + c_ * c_);
}

// The library's own search serves a kind with no closed form for its feet.
double helix_curve_data::point_perp(const position& p, double) const {
    return curve_foot(this, p);
}
double helix_curve_data::point_perp(const position& p) const {
    return curve_foot(this, p);
}

law* helix_curve_data::law_form() const {
    char text[160];
    std::snprintf(text, sizeof text, "VEC(%.17g*COS(X),%.17g*SIN(X),%.17g*X)", r_, r_, c_);
    return str_to_law(text, nullptr, 0);
}

// ================================================================ parameter-space circle

pcircle_data::pcircle_data(double u0, double v0, double radius)
    : base_pcurve_law_data(0.0, two_pi), u0_(u0), v0_(v0), a_(radius) {}

law_data* pcircle_data::deep_copy(pointer_map*) const {
    return VORX_NEW pcircle_data(u0_, v0_, a_);
}

vector pcircle_data::eval(double t, int nderiv, int) const {
    double c = std::cos(t), s = std::sin(t);
    switch (nderiv) {
        case 0:
            return vector(u0_ + a_ * c, v0_ + a_ * s, 0.0);
        case 1:
            return vector(-a_ * s, a_ * c, 0.0);
        case 2:
            return vector(-a_ * c, -a_ * s, 0.0);
    }
    sys_error(LAW_DATA_PCURVE);
}

double pcircle_data::curvature(double) const {
    return 1.0 / a_;
}

// ================================================================ segment and arc

arc_wire_data::arc_wire_data() : base_wire_law_data(0.0, 1.0 + half_pi) {}

law_data* arc_wire_data::deep_copy(pointer_map*) const {
    return VORX_NEW arc_wire_data();
}

vector arc_wire_data::eval(double t, int nderiv, int side) const {
    if (nderiv < 0 || nderiv > 2) sys_error(LAW_DATA_WIRE);
    if (t < 1.0 || (t == 1.0 && side == 1)) {
        if (nderiv == 0) return vector(t, 0.0, 0.0);
        return vector(nderiv == 1 ? 1.0 : 0.0, 0.0, 0.0);
    }
    // centre (1, 1, 0), radius 1, starting at (1, 0, 0) along x
    double s = t - 1.0, c = std::cos(s), n = std::sin(s);
    if (nderiv == 0) return vector(1.0 + n, 1.0 - c, 0.0);
    if (nderiv == 1) return vector(c, n, 0.0);
    return vector(-n, c, 0.0);
}

double arc_wire_data::curvature(double t) const {
    return t < 1.0 ? 0.0 : 1.0;
}

int arc_wire_data::singularities(double** where, int** order, double lo, double hi) const {
    *where = VORX_ALLOC_ARRAY(double, 1);
    *order = VORX_ALLOC_ARRAY(int, 1);
    (*where)[0] = 1.0;
    (*order)[0] = law_singular_break;
    return sort_singularities(where, order, 1, lo, hi);
}

// ================================================================ torus

torus_surface_data::torus_surface_data(double major, double minor) : R_(major), r_(minor) {}

law_data* torus_surface_data::deep_copy(pointer_map*) const {
    return VORX_NEW torus_surface_data(R_, r_);
}

position torus_surface_data::eval_position(const par_pos& uv) const {
    double w = R_ + r_ * std::cos(uv.u());
    return position(w * std::cos(uv.v()), w * std::sin(uv.v()), r_ * std::sin(uv.u()));
}

void torus_surface_data::eval(const par_pos& uv, position& P, vector* first, vector* second) const {
    double cu = std::cos(uv.u()), su = std::sin(uv.u());
    double cv = std::cos(uv.v()), sv = std::sin(uv.v());
    double w = R_ + r_ * cu;
    P = position(w * cv, w * sv, r_ * su);
    if (first) {
        first[0] = vector(-r_ * su * cv, -r_ * su * sv, r_ * cu);
        first[1] = vector(-w * sv, w * cv, 0.0);
    }
    if (second) {
        second[0] = vector(-r_ * cu * cv, -r_ * cu * sv, -r_ * su);
        second[1] = vector(r_ * su * sv, -r_ * su * cv, 0.0);
        second[2] = vector(-w * cv, -w * sv, 0.0);
    }
}

unit_vector torus_surface_data::eval_normal(const par_pos& uv) const {
    return unit_vector(-std::cos(uv.u()) * std::cos(uv.v()), -std::cos(uv.u()) * std::sin(uv.v()),
                       -std::sin(uv.u()));
}

double torus_surface_data::max_curvature(const par_pos&) const {
    return 1.0 / r_;
}
double torus_surface_data::min_curvature(const par_pos& uv) const {
    double cu = std::cos(uv.u());
    return cu / (R_ + r_ * cu);
}
double torus_surface_data::gaussian_curvature(const par_pos& uv) const {
    return max_curvature(uv) * min_curvature(uv);
}
double torus_surface_data::mean_curvature(const par_pos& uv) const {
    return 0.5 * (max_curvature(uv) + min_curvature(uv));
}

position torus_surface_data::approx_position(const par_pos& uv) const {
    return eval_position(uv);
}

bool torus_surface_data::param_range(interval& u, interval& v) const {
    u = interval(0.0, two_pi);
    v = interval(0.0, two_pi);
    return true;
}

// ================================================================ pattern

ring_pattern_data::ring_pattern_data(int count, double angle) : n_(count), angle_(angle) {}

law_data* ring_pattern_data::deep_copy(pointer_map*) const {
    return VORX_NEW ring_pattern_data(n_, angle_);
}

transf ring_pattern_data::get_transf(int i) const {
    return rotate_transf(i * angle_, vector(0.0, 0.0, 1.0));
}

// ================================================================ registration

static law_data_prototype<helix_curve_data> helix_curve_data_prototype;
static law_data_prototype<pcircle_data> pcircle_data_prototype;
static law_data_prototype<arc_wire_data> arc_wire_data_prototype;
static law_data_prototype<torus_surface_data> torus_surface_data_prototype;
static law_data_prototype<ring_pattern_data> ring_pattern_data_prototype;
