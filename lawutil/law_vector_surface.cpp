// SURFVEC, MULTICUR and MULTICURVEPERP.  See the header for the definitions.
#include "lawutil/law_vector_surface.hpp"

#include <cmath>

#include "lawutil/law_logic.hpp"
#include "lawutil/law_vector.hpp"
#include "lawutil/law_vector_build.hpp"
#include "lawutil/main_law_arith.hpp"
#include "lawutil/root.hpp"

using namespace vorx;

namespace lawutil {

LAWUTIL_TYPE_DEF(surfvec_law)
LAWUTIL_TYPE_DEF(multiple_curve_law)
LAWUTIL_TYPE_DEF(multiple_curveperp_law)

namespace {

law* wrapped(const law_data* d) {
    return static_cast<const law_law_data*>(d)->data_law();
}

bool is_law(const law_data* d) {
    return d && d->isa(law_law_data::id()) && wrapped(d);
}

bool is_path(const law_data* d) {
    return d && (d->isa(base_curve_law_data::id()) || d->isa(base_wire_law_data::id()));
}

const path_law_data* path_at(law_data* const* data, int i) {
    return static_cast<const path_law_data*>(data[i]);
}

// A 3-vector law (LAW_DIM otherwise).
void check_vector3(const law_data* d) {
    if (wrapped(d)->return_dim() != 3) sys_error(LAW_DIM);
}

// The v range is searched in this many pieces.
constexpr int search_pieces = 8;

void put(const vector& v, double* y) {
    for (int i = 0; i < 3; ++i) y[i] = v[i];
}

// The curves of a several-curve law: every range non-empty and finite.
void check_ranges(law_data* const* data, int n) {
    for (int i = 0; i < n; ++i) {
        double length = path_at(data, i)->data_end() - path_at(data, i)->data_start();
        if (!(length > 0.0) || !std::isfinite(length)) sys_error(LAW_MULTI_CURVE_DOM);
    }
}

// ---- data checks, run before a law is built (a failed construction is never counted)

law_data** surfvec_args(law_data** data, int count) {
    if (!data) return data;
    if (count != 2 || !data[0] || !data[0]->isa(base_surface_law_data::id()) || !is_law(data[1]))
        sys_error(LAW_DATA_UNKNOWN);
    check_vector3(data[1]);
    interval u, v;
    if (!static_cast<const base_surface_law_data*>(data[0])->param_range(u, v) ||
        !std::isfinite(v.start_pt()) || !std::isfinite(v.end_pt()) || !(v.end_pt() > v.start_pt()))
        sys_error(LAW_BAD_DOMAN);
    return data;
}

// {C1..Cn} or {C1..Cn, order}: the number of curves.
int multicurve_count(law_data** data, int count) {
    if (!data) return 0;
    int n = count > 0 && is_law(data[count - 1]) ? count - 1 : count;
    if (n < 1) sys_error(LAW_DATA_UNKNOWN);
    for (int i = 0; i < n; ++i)
        if (!is_path(data[i])) sys_error(LAW_DATA_UNKNOWN);
    check_ranges(data, n);
    return n;
}

int multicurve_order(law_data** data, int count, int curves) {
    if (!data || curves == count) return 0;
    double k = std::trunc(law_value_at_one(wrapped(data[count - 1])));
    if (!(k >= 0.0 && k < 1e9)) sys_error(LAW_DATA_UNKNOWN);
    return (int)k;
}

law_data** multicurve_args(law_data** data, int count) {
    multicurve_count(data, count);
    return data;
}

law_data** multiperp_args(law_data** data, int count) {
    if (!data) return data;
    if (count < 2 || !is_law(data[count - 1])) sys_error(LAW_DATA_UNKNOWN);
    for (int i = 0; i < count - 1; ++i)
        if (!is_path(data[i])) sys_error(LAW_DATA_UNKNOWN);
    check_vector3(data[count - 1]);
    check_ranges(data, count - 1);
    return data;
}

}  // namespace

#define LAW_SURFACE_VECTOR_COMMON(cls, word)                             \
    cls::cls() : multiple_data_law(nullptr, 0) {}                        \
    multiple_data_law* cls::make_one(law_data** data, int count) const { \
        return VORX_NEW cls(data, count);                                \
    }                                                                    \
    const char* cls::symbol(law_symbol_type type) const {                \
        return type == law_symbol_default ? word : "no_maple";           \
    }

// ================================================================ SURFVEC

LAW_SURFACE_VECTOR_COMMON(surfvec_law, "SURFVEC")

surfvec_law::surfvec_law(law_data** data, int count)
    : multiple_data_law(surfvec_args(data, count), count) {}

int surfvec_law::take_size() const {
    return data_ && wrapped(data_[1])->take_dim() > 1 ? wrapped(data_[1])->take_dim() : 1;
}

int surfvec_law::return_size() const {
    return 3;
}

// v* = Nmax of DOT(VEC(d), SURF(S) O VEC(x0, X)) over the v range.
double surfvec_law::best_v(const double* x) const {
    double d[3];
    wrapped(data_[1])->evaluate(x, d);
    double length = law_length(d, 3);
    if (!(length > 0.0) || !std::isfinite(length)) sys_error(LAW_BAD_UNIT_VECTOR);
    interval u, v;
    static_cast<const base_surface_law_data*>(data_[0])->param_range(u, v);
    law_array uv(2);
    uv.set(0, VORX_NEW constant_law(x[0]));
    uv.set(1, VORX_NEW identity_law(0, 'X'));
    law_holder line(VORX_NEW vector_law(uv.get(), 2));
    law_holder surface(VORX_NEW surface_law(data_[0]));
    law_holder on_line(VORX_NEW composite_law(surface.get(), line.get()));
    law_holder dir(VORX_NEW vector_law(vector(d[0] / length, d[1] / length, d[2] / length)));
    law_holder height = lb::dot(dir, on_line);
    // Nmax per piece of the range, the best kept (the earlier at a tie): the root search
    // under Nmax can miss the critical points of a whole period (COS(X) on [0, 2 pi]).
    double a = v.start_pt(), step = (v.end_pt() - a) / search_pieces;
    double best = a, best_height = -HUGE_VAL;
    for (int i = 0; i < search_pieces; ++i) {
        double hi = i == search_pieces - 1 ? v.end_pt() : a + step * (i + 1);
        double at = Nmax(height.get(), a + step * i, hi);
        double h = height->eval(at);
        if (h > best_height) {
            best = at;
            best_height = h;
        }
    }
    return best;
}

void surfvec_law::evaluate(const double* x, double* y) const {
    double v = best_v(x);
    put(static_cast<const base_surface_law_data*>(data_[0])->eval_position(par_pos(x[0], v)) -
            position(),
        y);
}

// v* has no closed-form derivative (it jumps where maxima trade places).
law* surfvec_law::deriv(int which) const {
    return numerical_data_derivative(make_one(data_, count_), which);
}

// ================================================================ MULTICUR

LAW_SURFACE_VECTOR_COMMON(multiple_curve_law, "MULTICUR")

multiple_curve_law::multiple_curve_law(law_data** data, int count)
    : multiple_data_law(multicurve_args(data, count), count),
      curves_(multicurve_count(data, count)),
      order_(multicurve_order(data, count, curves_)) {}

int multiple_curve_law::take_size() const {
    return 1;
}

int multiple_curve_law::return_size() const {
    return 3;
}

int multiple_curve_law::term_domain(int which, interval& dom) const {
    if (which != 0 || !data_) return 0;
    double total = 0.0;
    for (int i = 0; i < curves_; ++i)
        total += path_at(data_, i)->data_end() - path_at(data_, i)->data_start();
    dom = interval(0.0, total);
    return 1;
}

void multiple_curve_law::evaluate(const double* x, double* y) const {
    constexpr double slack = 1e-10;
    double t = x[0];
    if (!(t >= -slack)) sys_error(LAW_MULTI_CURVE_DOM);
    for (int i = 0; i < curves_; ++i) {
        const path_law_data* c = path_at(data_, i);
        double length = c->data_end() - c->data_start();
        if (t < length || (i == curves_ - 1 && t <= length + slack)) {
            put(c->eval(c->data_start() + t, order_, 0), y);
            return;
        }
        t -= length;
    }
    sys_error(LAW_MULTI_CURVE_DOM);
}

// MULTICUR(C, k)' = MULTICUR(C, k + 1) while the data answer it (k + 1 <= 2)
law* multiple_curve_law::deriv(int which) const {
    if (which != 0) return VORX_NEW constant_law(0.0);
    if (order_ >= 2) return numerical_data_derivative(make_one(data_, count_), which);
    law_holder k(VORX_NEW constant_law(order_ + 1));
    law_data_holder order(VORX_NEW law_law_data(k.get()));
    law_data** items = VORX_ALLOC_ARRAY(law_data*, curves_ + 1);
    for (int i = 0; i < curves_; ++i) items[i] = data_[i];
    items[curves_] = order.get();
    try {
        law* d = make_one(items, curves_ + 1);
        VORX_FREE(items);
        return d;
    } catch (...) {
        VORX_FREE(items);
        throw;
    }
}

// ================================================================ MULTICURVEPERP

LAW_SURFACE_VECTOR_COMMON(multiple_curveperp_law, "MULTICURVEPERP")

multiple_curveperp_law::multiple_curveperp_law(law_data** data, int count)
    : multiple_data_law(multiperp_args(data, count), count) {}

int multiple_curveperp_law::take_size() const {
    return data_ ? wrapped(data_[count_ - 1])->take_dim() : 3;
}

int multiple_curveperp_law::return_size() const {
    return 1;
}

void multiple_curveperp_law::evaluate(const double* x, double* y) const {
    double p[3];
    wrapped(data_[count_ - 1])->evaluate(x, p);
    position point(p);
    double best = -1.0, offset = 0.0;
    for (int i = 0; i < count_ - 1; ++i) {
        const path_law_data* c = path_at(data_, i);
        double t = curve_foot(c, point);
        double d = (c->eval(t, 0, 0) - (point - position())).len_sq();
        if (best < 0.0 || d < best) {
            best = d;
            y[0] = offset + t - c->data_start();
        }
        offset += c->data_end() - c->data_start();
    }
}

// The foot moves with p as the curves' curvature dictates: numerical, as CURVEPERP.
law* multiple_curveperp_law::deriv(int which) const {
    return numerical_data_derivative(make_one(data_, count_), which);
}

// ================================================================ registration

static law_prototype<surfvec_law> surfvec_law_prototype;
static law_prototype<multiple_curve_law> multiple_curve_law_prototype;
static law_prototype<multiple_curveperp_law> multiple_curveperp_law_prototype;

}  // namespace lawutil
