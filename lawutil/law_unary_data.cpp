// Laws over geometric data.
//
// Derivatives.  A curve-like law differentiates into the same data with a higher order:
// CUR(C)' = DCUR(C,1), DCUR(C,1)' = DCUR(C,2), the order travelling as a law_law_data
// over a constant.  The data answer no more than two derivatives, so DCUR(C,2)' and
// beyond are numerical: a derivative_law over a *new* law of the same kind (this law
// itself inside its own derivative cache would be a reference cycle).  Curvatures,
// distances, lengths and feet have no symbolic derivative and take the same numerical
// route at once.  PATTRANS has none at all.
//
// Feet of perpendiculars.  The inverse of a curve or surface law is the foot of the
// perpendicular from a point.  It is found here by a Newton iteration on the derivative
// of the squared distance started from the best of a grid of samples, not by the
// library's one-dimensional minimiser: that one takes a law of one variable, so every
// evaluation would first build a distance law over the point, and the surface needs two
// variables.  The iteration reads only the data's first and second derivatives.
#include "lawutil/law_unary_data.hpp"

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <new>

#include "base/lists.hpp"
#include "lawutil/law_logic.hpp"
#include "lawutil/law_unary.hpp"
#include "lawutil/law_vector.hpp"
#include "lawutil/main_law_arith.hpp"

using namespace vorx;

namespace lawutil {

LAWUTIL_TYPE_DEF(curve_law)
LAWUTIL_TYPE_DEF(pcurve_law)
LAWUTIL_TYPE_DEF(wire_law)
LAWUTIL_TYPE_DEF(dcurve_law)
LAWUTIL_TYPE_DEF(dpcurve_law)
LAWUTIL_TYPE_DEF(dwire_law)
LAWUTIL_TYPE_DEF(curvature_law)
LAWUTIL_TYPE_DEF(intersect_lawi)
LAWUTIL_TYPE_DEF(distance_lawi)
LAWUTIL_TYPE_DEF(length_law)
LAWUTIL_TYPE_DEF(length_param_law)
LAWUTIL_TYPE_DEF(map_law)
LAWUTIL_TYPE_DEF(curveperp_law)
LAWUTIL_TYPE_DEF(surface_law)
LAWUTIL_TYPE_DEF(bs3_surface_law)
LAWUTIL_TYPE_DEF(dsurface_law)
LAWUTIL_TYPE_DEF(gaussian_curvature_law)
LAWUTIL_TYPE_DEF(mean_curvature_law)
LAWUTIL_TYPE_DEF(max_curvature_law)
LAWUTIL_TYPE_DEF(min_curvature_law)
LAWUTIL_TYPE_DEF(surfperp_law)
LAWUTIL_TYPE_DEF(patterntrans_law)

namespace {

const char* keyword(law_symbol_type type, const char* word) {
    return type == law_symbol_default ? word : "no_maple";
}

// The datum, when it is of the wanted kind; LAW_DATA_UNKNOWN otherwise (null included).
law_data* checked(law_data* d, int kind) {
    if (!d || !d->isa(kind)) sys_error(LAW_DATA_UNKNOWN);
    return d;
}

// The data of a multiple data law: exactly `n` entries, entry i of kind kinds[i].
law_data** checked(law_data** data, int count, std::initializer_list<int> kinds) {
    if (!data || count != (int)kinds.size()) sys_error(LAW_DATA_UNKNOWN);
    int i = 0;
    for (int k : kinds) checked(data[i++], k);
    return data;
}

law* wrapped(const law_data* d) {
    return static_cast<const law_law_data*>(d)->data_law();
}

// An order parameter: the wrapped law at 1, truncated.  Beyond the int range: -1.
int order_of(const law_data* d) {
    double v = std::trunc(law_value_at_one(wrapped(d)));
    return (v > -1e9 && v < 1e9) ? (int)v : -1;
}

// The data array of a law of given orders: the datum, then one constant per order.
class order_args {
  public:
    order_args(law_data* d, int a, int b = -1) : n_(b < 0 ? 2 : 3) {
        items_[0] = d;
        items_[1] = items_[2] = nullptr;
        int orders[2] = {a, b};
        for (int i = 1; i < n_; ++i) {
            law_holder c(VORX_NEW constant_law(orders[i - 1]));
            items_[i] = VORX_NEW law_law_data(c.get());
        }
    }
    ~order_args() {
        for (int i = 1; i < n_; ++i) law_data_remove(items_[i]);
    }
    order_args(const order_args&) = delete;
    order_args& operator=(const order_args&) = delete;
    law_data** get() { return items_; }
    int size() const { return n_; }

  private:
    law_data* items_[3];
    int n_;
};

// The data of a law of derivative orders: the datum of `kind` and `norders` orders, each
// a whole number >= 0 (LAW_DATA_UNKNOWN), of total at most max_total (LAW_DERIV).  Every
// check runs before the law is built: a law whose construction fails is never counted.
law_data** checked_orders(law_data** data, int count, int kind, int norders, int max_total) {
    if (norders == 1)
        checked(data, count, {kind, law_law_data::id()});
    else
        checked(data, count, {kind, law_law_data::id(), law_law_data::id()});
    int total = 0;
    for (int i = 1; i <= norders; ++i) {
        int n = order_of(data[i]);
        if (n < 0) sys_error(LAW_DATA_UNKNOWN);
        total += n;
    }
    if (total > max_total) sys_error(LAW_DERIV);
    return data;
}

void put(const vector& v, double* y, int n) {
    for (int i = 0; i < n; ++i) y[i] = v[i];
}

vector as_vector(const position& p) {
    return p - position();
}

// VEC(X,Y,Z) wrapped as data: the point argument of an inverse.
law_data* point_argument() {
    law_array parts(3);
    parts.set(0, VORX_NEW identity_law(0, 'X'));
    parts.set(1, VORX_NEW identity_law(1, 'Y'));
    parts.set(2, VORX_NEW identity_law(2, 'Z'));
    law_holder v(VORX_NEW vector_law(parts.get(), 3));
    return VORX_NEW law_law_data(v.get());
}

// The value of a wrapped law at x, as a point (missing coordinates 0).
position point_of(const law_data* d, const double* x) {
    law* l = wrapped(d);
    double y[3] = {0.0, 0.0, 0.0};
    int n = l->return_dim();
    if (n > 3) sys_error(LAW_DIM);
    l->evaluate(x, y);
    return position(y);
}

int max_take(const law_data* const* data, int from, int count) {
    int n = 0;
    for (int i = from; data && i < count; ++i)
        if (data[i] && data[i]->isa(law_law_data::id()) && wrapped(data[i]))
            n = std::max(n, wrapped(data[i])->take_dim());
    return n;
}

}  // namespace

law* numerical_data_derivative(law* fresh, int which) {
    law_holder f(fresh);
    law_array parts(3);
    parts.set(0, f.release());
    parts.set(1, VORX_NEW constant_law(which));
    parts.set(2, VORX_NEW constant_law(1));
    return VORX_NEW derivative_law(parts.get(), 3);
}

// Prototype constructors hold no data.
#define LAW_DATA_LAW_COMMON(cls, word)                    \
    const char* cls::symbol(law_symbol_type type) const { \
        return keyword(type, word);                       \
    }

#define LAW_UNARY_DATA_COMMON(cls, word, kind, in, out)               \
    cls::cls() : unary_data_law(nullptr) {}                           \
    cls::cls(law_data* data) : unary_data_law(checked(data, kind)) {} \
    unary_data_law* cls::make_one(law_data* data) const {             \
        return VORX_NEW cls(data);                                    \
    }                                                                 \
    int cls::take_size() const {                                      \
        return in;                                                    \
    }                                                                 \
    int cls::return_size() const {                                    \
        return out;                                                   \
    }                                                                 \
    LAW_DATA_LAW_COMMON(cls, word)

// ================================================================ curves

LAW_UNARY_DATA_COMMON(curve_law, "CUR", base_curve_law_data::id(), 1, 3)
LAW_UNARY_DATA_COMMON(pcurve_law, "PCUR", base_pcurve_law_data::id(), 1, 2)
LAW_UNARY_DATA_COMMON(wire_law, "WIRE", base_wire_law_data::id(), 1, 3)
LAW_UNARY_DATA_COMMON(curvature_law, "CURC", path_law_data::id(), 1, 1)
LAW_UNARY_DATA_COMMON(intersect_lawi, "CURI", base_curve_law_data::id(), 2, 1)
LAW_UNARY_DATA_COMMON(distance_lawi, "CURD", base_curve_law_data::id(), 2, 1)

namespace {
const path_law_data* path_of(const law_data* d) {
    return static_cast<const path_law_data*>(d);
}
}  // namespace

namespace {
int path_singularities(const law_data* d, double** where, int** type, double start, double end,
                       double** period) {
    if (period) *period = nullptr;
    double* w = nullptr;
    int* k = nullptr;
    int n = path_of(d)->singularities(&w, &k, start, end);
    if (where)
        *where = w;
    else
        VORX_FREE(w);
    if (type)
        *type = k;
    else
        VORX_FREE(k);
    return n;
}
}  // namespace

int curve_law::singularities(double** where, int** type, double start, double end,
                             double** period) const {
    return path_singularities(data_, where, type, start, end, period);
}

int wire_law::singularities(double** where, int** type, double start, double end,
                            double** period) const {
    return path_singularities(data_, where, type, start, end, period);
}

void curve_law::evaluate(const double* x, double* y) const {
    put(curve()->eval(x[0], 0, 0), y, 3);
}

void curve_law::evaluate_with_side(const double* x, double* y, const int* side) const {
    if (!side) return evaluate(x, y);
    put(curve()->eval(x[0], 0, side[0]), y, 3);
}

// CUR(C) in x: DCUR(C,1); in another input: 0
law* curve_law::deriv(int which) const {
    if (which != 0) return VORX_NEW constant_law(0.0);
    return VORX_NEW dcurve_law(data_, 1);
}

int curve_law::term_domain(int which, interval& dom) const {
    if (which != 0 || !data_) return 0;
    dom = interval(curve()->data_start(), curve()->data_end());
    return 1;
}

law* curve_law::set_domain(interval* dom, int) const {
    law_data_holder d(data_->set_domain(dom));
    return make_one(d.get());
}

law* curve_law::sub_inverse() const {
    law_data_holder p(point_argument());
    law_data* parts[2] = {data_, p.get()};
    return VORX_NEW curveperp_law(parts, 2);
}

position* curve_law::get_points_on_curve(int n) const {
    if (n < 1) return nullptr;
    position* pts = VORX_ALLOC_ARRAY(position, n);
    double a = curve()->data_start(), b = curve()->data_end();
    try {
        for (int i = 0; i < n; ++i) {
            double t = n == 1 ? a : a + (b - a) * i / (n - 1);
            new (&pts[i]) position(curve()->eval(t, 0, 0));
        }
    } catch (...) {
        VORX_FREE(pts);
        throw;
    }
    return pts;
}

namespace {

constexpr int shape_samples = 33;

// Points of the curve (shape_samples of them); the farthest from the first decides the
// direction of a line.
struct curve_shape {
    position p[shape_samples];
    position root;
    vector dir;  // zero when every point is within resabs of the first
    explicit curve_shape(const base_curve_law_data* c) {
        double a = c->data_start(), b = c->data_end();
        for (int i = 0; i < shape_samples; ++i)
            p[i] = position(c->eval(a + (b - a) * i / (shape_samples - 1), 0, 0));
        root = p[0];
        double far = resabs;
        for (int i = 1; i < shape_samples; ++i) {
            double d = (p[i] - root).len();
            if (d > far) {
                far = d;
                dir = (p[i] - root) / d;
            }
        }
    }
    bool linear() const {
        for (int i = 0; i < shape_samples; ++i)
            if (((p[i] - root) * dir).len() > resabs) return false;
        return true;
    }
};

// Some unit vector perpendicular to d (the z axis for a zero d).
unit_vector perpendicular(const vector& d) {
    if (d.is_zero(0.0)) return unit_vector(0, 0, 1);
    vector axis = std::fabs(d.x()) <= std::fabs(d.y()) && std::fabs(d.x()) <= std::fabs(d.z())
                      ? vector(1, 0, 0)
                      : (std::fabs(d.y()) <= std::fabs(d.z()) ? vector(0, 1, 0) : vector(0, 0, 1));
    return normalise(d * axis);
}

}  // namespace

int curve_law::is_linear(position& root, unit_vector& dir) const {
    curve_shape s(curve());
    if (!s.linear()) return 0;
    root = s.root;
    dir = s.dir.is_zero(0.0) ? unit_vector(1, 0, 0) : normalise(s.dir);
    return 1;
}

int curve_law::is_planar(position& root, unit_vector& normal) const {
    curve_shape s(curve());
    root = s.root;
    if (s.linear()) {
        normal = perpendicular(s.dir);
        return 1;
    }
    // The normal from the point farthest off the line of the first two.
    vector best;
    for (int i = 1; i < shape_samples; ++i) {
        vector c = s.dir * (s.p[i] - s.root);
        if (c.len() > best.len()) best = c;
    }
    unit_vector n = normalise(best);
    for (int i = 0; i < shape_samples; ++i)
        if (std::fabs((s.p[i] - s.root) % n) > resabs) return 0;
    normal = n;
    return 1;
}

void pcurve_law::evaluate(const double* x, double* y) const {
    put(path_of(data_)->eval(x[0], 0, 0), y, 2);
}

// PCUR(C) in x: DPCUR(C,1)
law* pcurve_law::deriv(int which) const {
    if (which != 0) return VORX_NEW constant_law(0.0);
    return VORX_NEW dpcurve_law(data_, 1);
}

void wire_law::evaluate(const double* x, double* y) const {
    put(path_of(data_)->eval(x[0], 0, 0), y, 3);
}

void wire_law::evaluate_with_side(const double* x, double* y, const int* side) const {
    if (!side) return evaluate(x, y);
    put(path_of(data_)->eval(x[0], 0, side[0]), y, 3);
}

// WIRE(W) in x: DWIRE(W,1)
law* wire_law::deriv(int which) const {
    if (which != 0) return VORX_NEW constant_law(0.0);
    return VORX_NEW dwire_law(data_, 1);
}

int wire_law::term_domain(int which, interval& dom) const {
    if (which != 0 || !data_) return 0;
    dom = interval(path_of(data_)->data_start(), path_of(data_)->data_end());
    return 1;
}

void curvature_law::evaluate(const double* x, double* y) const {
    y[0] = path_of(data_)->curvature(x[0]);
}
law* curvature_law::deriv(int which) const {
    return numerical_data_derivative(make_one(data_), which);
}

void intersect_lawi::evaluate(const double* x, double* y) const {
    // D.D / (x0 - x1)^2, with D = C(x0) - C(x1)
    double h = x[0] - x[1];
    if (std::fabs(h) < resabs) {
        y[0] = 1e10;
        return;
    }
    const path_law_data* c = path_of(data_);
    vector D = c->eval(x[0], 0, 0) - c->eval(x[1], 0, 0);
    y[0] = (D % D) / (h * h);
}
law* intersect_lawi::deriv(int which) const {
    return numerical_data_derivative(make_one(data_), which);
}

void distance_lawi::evaluate(const double* x, double* y) const {
    const path_law_data* c = path_of(data_);
    y[0] = (c->eval(x[0], 0, 0) - c->eval(x[1], 0, 0)).len();
}
law* distance_lawi::deriv(int which) const {
    return numerical_data_derivative(make_one(data_), which);
}

// ---------------------------------------------------------------- derivative orders

#define LAW_MULTIPLE_DATA_COMMON(cls, word)                              \
    cls::cls() : multiple_data_law(nullptr, 0) {}                        \
    multiple_data_law* cls::make_one(law_data** data, int count) const { \
        return VORX_NEW cls(data, count);                                \
    }                                                                    \
    LAW_DATA_LAW_COMMON(cls, word)

#define LAW_ORDER_LAW(cls, word, kind, out)                                           \
    LAW_MULTIPLE_DATA_COMMON(cls, word)                                               \
    cls::cls(law_data** data, int count)                                              \
        : multiple_data_law(checked_orders(data, count, kind, 1, 1 << 20), count),    \
          order_(order_of(data[1])) {}                                                \
    cls::cls(law_data* d, int order) : cls(order_args(d, order).get(), 2) {}          \
    int cls::take_size() const {                                                      \
        return 1;                                                                     \
    }                                                                                 \
    int cls::return_size() const {                                                    \
        return out;                                                                   \
    }                                                                                 \
    void cls::evaluate(const double* x, double* y) const {                            \
        put(path_of(data_[0])->eval(x[0], order_, 0), y, out);                        \
    }                                                                                 \
    void cls::evaluate_with_side(const double* x, double* y, const int* side) const { \
        put(path_of(data_[0])->eval(x[0], order_, side ? side[0] : 0), y, out);       \
    }                                                                                 \
    /* D(C, n) in x: D(C, n + 1) while n + 1 <= 2, then numerical */                  \
    law* cls::deriv(int which) const {                                                \
        if (which != 0) return VORX_NEW constant_law(0.0);                            \
        if (order_ + 1 <= 2) return VORX_NEW cls(data_[0], order_ + 1);               \
        return numerical_data_derivative(make_one(data_, count_), which);             \
    }

LAW_ORDER_LAW(dcurve_law, "DCUR", base_curve_law_data::id(), 3)
LAW_ORDER_LAW(dpcurve_law, "DPCUR", base_pcurve_law_data::id(), 2)
LAW_ORDER_LAW(dwire_law, "DWIRE", base_wire_law_data::id(), 3)

int dcurve_law::term_domain(int which, interval& dom) const {
    if (which != 0 || !data_) return 0;
    dom = interval(path_of(data_[0])->data_start(), path_of(data_[0])->data_end());
    return 1;
}

law* dcurve_law::set_domain(interval* dom, int) const {
    law_data_holder d(data_[0]->set_domain(dom));
    return VORX_NEW dcurve_law(d.get(), order_);
}

// ---------------------------------------------------------------- lengths

namespace {
const base_curve_law_data* curve_of(const law_data* d) {
    return static_cast<const base_curve_law_data*>(d);
}
double wrapped_at(const law_data* d, const double* x) {
    return wrapped(d)->evaluateM_R(x);
}
}  // namespace

LAW_MULTIPLE_DATA_COMMON(length_law, "LENGTH")
length_law::length_law(law_data** data, int count)
    : multiple_data_law(
          checked(data, count, {base_curve_law_data::id(), law_law_data::id(), law_law_data::id()}),
          count) {}
int length_law::take_size() const {
    return max_take(data_, 1, count_);
}
int length_law::return_size() const {
    return 1;
}
void length_law::evaluate(const double* x, double* y) const {
    y[0] = curve_of(data_[0])->length(wrapped_at(data_[1], x), wrapped_at(data_[2], x));
}
law* length_law::deriv(int which) const {
    return numerical_data_derivative(make_one(data_, count_), which);
}
int length_law::date() const {
    int d = 60100;
    for (int i = 0; data_ && i < count_; ++i) d = std::max(d, data_[i]->date());
    return d;
}

LAW_MULTIPLE_DATA_COMMON(length_param_law, "LENGTH_PARAM")
length_param_law::length_param_law(law_data** data, int count)
    : multiple_data_law(
          checked(data, count, {base_curve_law_data::id(), law_law_data::id(), law_law_data::id()}),
          count) {}
int length_param_law::take_size() const {
    return max_take(data_, 1, count_);
}
int length_param_law::return_size() const {
    return 1;
}
void length_param_law::evaluate(const double* x, double* y) const {
    y[0] = curve_of(data_[0])->length_param(wrapped_at(data_[1], x), wrapped_at(data_[2], x));
}
// LENGTH_PARAM(C,a,s) in x: 1/|DCUR(C,1) O LENGTH_PARAM(C,a,s)|; in another input: none
law* length_param_law::deriv(int which) const {
    if (which != 0) return nullptr;
    law_holder fresh(make_one(data_, count_));
    law_holder tangent(VORX_NEW dcurve_law(data_[0], 1));
    law_holder along(VORX_NEW composite_law(tangent.get(), fresh.get()));
    law* dots[2] = {along.get(), along.get()};
    law_holder square(VORX_NEW dot_law(dots, 2));
    law_holder size(VORX_NEW sqrt_law(square.get()));
    law_holder one(VORX_NEW constant_law(1.0));
    return VORX_NEW division_law(one.get(), size.get());
}
// From a constant base of one variable: [0, the length from the base to the end].
int length_param_law::term_domain(int which, interval& dom) const {
    if (which != 0 || !data_) return 0;
    law* a = wrapped(data_[1]);
    if (!a->constant() || a->take_dim() > 1) return 0;
    double base = law_value_at_one(a);
    dom = interval(0.0, curve_of(data_[0])->length(base, curve_of(data_[0])->data_end()));
    return 1;
}

// ---------------------------------------------------------------- map

LAW_MULTIPLE_DATA_COMMON(map_law, "MAP")
map_law::map_law(law_data** data, int count)
    : multiple_data_law(checked(data, count, {law_law_data::id(), path_law_data::id()}), count) {}
int map_law::take_size() const {
    return 1;
}
int map_law::return_size() const {
    return data_ ? wrapped(data_[0])->return_dim() : 1;
}
void map_law::evaluate(const double* x, double* y) const {
    // f(start + (end - start) x)
    const path_law_data* p = path_of(data_[1]);
    double t = p->data_start() + (p->data_end() - p->data_start()) * x[0];
    wrapped(data_[0])->evaluate(&t, y);
}
// MAP(f,P)' = MAP(f',P) * (end - start)
law* map_law::deriv(int which) const {
    if (which != 0) return VORX_NEW constant_law(0.0);
    const path_law_data* p = path_of(data_[1]);
    law_holder df(wrapped(data_[0])->derivative(0));
    law_data_holder wrap(VORX_NEW law_law_data(df.get()));
    law_data* parts[2] = {wrap.get(), data_[1]};
    law_holder mapped(VORX_NEW map_law(parts, 2));
    law_holder scale(VORX_NEW constant_law(p->data_end() - p->data_start()));
    return VORX_NEW times_law(mapped.get(), scale.get());
}

// ---------------------------------------------------------------- feet

LAW_MULTIPLE_DATA_COMMON(curveperp_law, "CURVEPERP")
curveperp_law::curveperp_law(law_data** data, int count)
    : multiple_data_law(checked(data, count, {base_curve_law_data::id(), law_law_data::id()}),
                        count) {}
int curveperp_law::take_size() const {
    return max_take(data_, 1, count_);
}
int curveperp_law::return_size() const {
    return 1;
}
void curveperp_law::evaluate(const double* x, double* y) const {
    y[0] = curve_foot(path_of(data_[0]), point_of(data_[1], x));
}
law* curveperp_law::deriv(int which) const {
    return numerical_data_derivative(make_one(data_, count_), which);
}

LAW_MULTIPLE_DATA_COMMON(surfperp_law, "SURFPERP")
surfperp_law::surfperp_law(law_data** data, int count)
    : multiple_data_law(checked(data, count, {base_surface_law_data::id(), law_law_data::id()}),
                        count) {}
int surfperp_law::take_size() const {
    return max_take(data_, 1, count_);
}
int surfperp_law::return_size() const {
    return 2;
}
void surfperp_law::evaluate(const double* x, double* y) const {
    par_pos uv =
        surface_foot(static_cast<const base_surface_law_data*>(data_[0]), point_of(data_[1], x));
    y[0] = uv.u();
    y[1] = uv.v();
}
law* surfperp_law::deriv(int which) const {
    return numerical_data_derivative(make_one(data_, count_), which);
}

namespace {

constexpr int newton_steps = 40;
constexpr int halvings = 30;

double clamp(double t, double a, double b) {
    return t < a ? a : (t > b ? b : t);
}

}  // namespace

double curve_foot(const path_law_data* c, const position& p) {
    double a = std::min(c->data_start(), c->data_end());
    double b = std::max(c->data_start(), c->data_end());
    vector target = as_vector(p);
    auto dist2 = [&](double t) { return (c->eval(t, 0, 0) - target).len_sq(); };
    const int n = 33;
    double t = a, best = dist2(a);
    for (int k = 1; k < n; ++k) {
        double s = a + (b - a) * k / (n - 1), d = dist2(s);
        if (d < best) best = d, t = s;
    }
    for (int it = 0; it < newton_steps; ++it) {
        vector d = c->eval(t, 0, 0) - target, d1 = c->eval(t, 1, 0), d2 = c->eval(t, 2, 0);
        // g = C'.(C - p), g' = C''.(C - p) + C'.C'
        double g = d1 % d, h = d2 % d + d1 % d1;
        if (h <= 0.0) h = d1 % d1;
        if (!(h > 0.0)) break;
        double step = -g / h, next = clamp(t + step, a, b), nd = dist2(next);
        for (int k = 0; k < halvings && nd > best; ++k) {
            step *= 0.5;
            next = clamp(t + step, a, b);
            nd = dist2(next);
        }
        if (nd > best) break;
        bool done = std::fabs(next - t) <= 1e-15 * (1.0 + std::fabs(t));
        t = next;
        best = nd;
        if (done) break;
    }
    return t;
}

par_pos surface_foot(const base_surface_law_data* s, const position& p) {
    interval ur, vr;
    bool bounded = s->param_range(ur, vr) && ur.finite() && vr.finite();
    auto dist2 = [&](const par_pos& uv) { return (s->eval_position(uv) - p).len_sq(); };
    par_pos uv(0.0, 0.0);
    double best = dist2(uv);
    const int n = 17;
    if (bounded) {
        best = INFINITY;
        for (int i = 0; i < n; ++i)
            for (int j = 0; j < n; ++j) {
                par_pos q(ur.start_pt() + ur.length() * i / (n - 1),
                          vr.start_pt() + vr.length() * j / (n - 1));
                double d = dist2(q);
                if (d < best) best = d, uv = q;
            }
    }
    auto inside = [&](par_pos q) {
        if (!bounded) return q;
        return par_pos(clamp(q.u(), ur.start_pt(), ur.end_pt()),
                       clamp(q.v(), vr.start_pt(), vr.end_pt()));
    };
    for (int it = 0; it < newton_steps; ++it) {
        position P;
        vector first[2], second[3];
        s->eval(uv, P, first, second);
        vector d = P - p;
        // g = (Su.d, Sv.d); H = [Su.Su + Suu.d, Su.Sv + Suv.d; ., Sv.Sv + Svv.d]
        double gu = first[0] % d, gv = first[1] % d;
        double huu = first[0] % first[0] + second[0] % d;
        double huv = first[0] % first[1] + second[1] % d;
        double hvv = first[1] % first[1] + second[2] % d;
        double det = huu * hvv - huv * huv;
        par_pos step;
        if (huu > 0.0 && det > 0.0) {
            step = par_pos(-(hvv * gu - huv * gv) / det, -(huu * gv - huv * gu) / det);
        } else {
            // Not a minimum's basin: a gradient step scaled by the metric.
            double m = first[0] % first[0] + first[1] % first[1];
            if (!(m > 0.0)) break;
            step = par_pos(-gu / m, -gv / m);
        }
        par_pos next = inside(uv + step);
        double nd = dist2(next);
        for (int k = 0; k < halvings && nd > best; ++k) {
            step = step * 0.5;
            next = inside(uv + step);
            nd = dist2(next);
        }
        if (nd > best) break;
        bool done = std::fabs(next.u() - uv.u()) + std::fabs(next.v() - uv.v()) <=
                    1e-15 * (1.0 + std::fabs(uv.u()) + std::fabs(uv.v()));
        uv = next;
        best = nd;
        if (done) break;
    }
    return uv;
}

// ================================================================ surfaces

namespace {
const base_surface_law_data* surface_of(const law_data* d) {
    return static_cast<const base_surface_law_data*>(d);
}
par_pos uv_of(const double* x) {
    return par_pos(x[0], x[1]);
}
}  // namespace

LAW_UNARY_DATA_COMMON(surface_law, "SURF", base_surface_law_data::id(), 2, 3)
LAW_UNARY_DATA_COMMON(bs3_surface_law, "BS", base_surface_law_data::id(), 2, 3)
LAW_UNARY_DATA_COMMON(gaussian_curvature_law, "GAUSCUR", base_surface_law_data::id(), 2, 1)
LAW_UNARY_DATA_COMMON(mean_curvature_law, "MEANCUR", base_surface_law_data::id(), 2, 1)
LAW_UNARY_DATA_COMMON(max_curvature_law, "MAXCUR", base_surface_law_data::id(), 2, 1)
LAW_UNARY_DATA_COMMON(min_curvature_law, "MINCUR", base_surface_law_data::id(), 2, 1)

void surface_law::evaluate(const double* x, double* y) const {
    put(as_vector(surface()->eval_position(uv_of(x))), y, 3);
}

// SURF(S) in u: DSURF(S,1,0); in v: DSURF(S,0,1); in another input: 0
law* surface_law::deriv(int which) const {
    if (which == 0) return VORX_NEW dsurface_law(data_, 1, 0);
    if (which == 1) return VORX_NEW dsurface_law(data_, 0, 1);
    return VORX_NEW constant_law(0.0);
}

int surface_law::term_domain(int which, interval& dom) const {
    if (which < 0 || which > 1 || !data_) return 0;
    interval u, v;
    if (!surface()->param_range(u, v)) return 0;
    dom = which == 0 ? u : v;
    return 1;
}

law* surface_law::sub_inverse() const {
    law_data_holder p(point_argument());
    law_data* parts[2] = {data_, p.get()};
    return VORX_NEW surfperp_law(parts, 2);
}

void bs3_surface_law::evaluate(const double* x, double* y) const {
    put(as_vector(surface_of(data_)->approx_position(uv_of(x))), y, 3);
}
law* bs3_surface_law::deriv(int which) const {
    return numerical_data_derivative(make_one(data_), which);
}

#define LAW_SURFACE_CURVATURE(cls, query)                         \
    void cls::evaluate(const double* x, double* y) const {        \
        y[0] = surface_of(data_)->query(uv_of(x));                \
    }                                                             \
    law* cls::deriv(int which) const {                            \
        return numerical_data_derivative(make_one(data_), which); \
    }

LAW_SURFACE_CURVATURE(gaussian_curvature_law, gaussian_curvature)
LAW_SURFACE_CURVATURE(mean_curvature_law, mean_curvature)
LAW_SURFACE_CURVATURE(max_curvature_law, max_curvature)
LAW_SURFACE_CURVATURE(min_curvature_law, min_curvature)

LAW_MULTIPLE_DATA_COMMON(dsurface_law, "DSURF")
// Orders outside the six pairs of total order at most 2 raise LAW_DERIV.
dsurface_law::dsurface_law(law_data** data, int count)
    : multiple_data_law(checked_orders(data, count, base_surface_law_data::id(), 2, 2), count),
      nu_(order_of(data[1])),
      nv_(order_of(data[2])) {}
dsurface_law::dsurface_law(law_data* surface, int nu, int nv)
    : dsurface_law(order_args(surface, nu, nv).get(), 3) {}
int dsurface_law::take_size() const {
    return 2;
}
int dsurface_law::return_size() const {
    return 3;
}
void dsurface_law::evaluate(const double* x, double* y) const {
    position P;
    vector first[2], second[3];
    int total = nu_ + nv_;
    surface_of(data_[0])->eval(uv_of(x), P, total == 1 ? first : nullptr,
                               total == 2 ? second : nullptr);
    // (0,0) P; (1,0) Su; (0,1) Sv; (2,0) Suu; (1,1) Suv; (0,2) Svv
    vector r = total == 0 ? as_vector(P) : (total == 1 ? first[nv_] : second[nv_]);
    put(r, y, 3);
}
// DSURF(S,nu,nv) in u: DSURF(S,nu+1,nv) while the total stays below 3, then numerical
law* dsurface_law::deriv(int which) const {
    if (which < 0 || which > 1) return VORX_NEW constant_law(0.0);
    int nu = nu_ + (which == 0), nv = nv_ + (which == 1);
    if (nu + nv < 3) return VORX_NEW dsurface_law(data_[0], nu, nv);
    return numerical_data_derivative(make_one(data_, count_), which);
}

// ================================================================ patterns

LAW_UNARY_DATA_COMMON(patterntrans_law, "PATTRANS", base_pattern_law_data::id(), 1, 13)

void patterntrans_law::evaluate(const double* x, double* y) const {
    static_cast<const base_pattern_law_data*>(data_)->transform_at(x[0]).to_array(y);
}
law* patterntrans_law::deriv(int which) const {
    return law::deriv(which);
}
int patterntrans_law::term_domain(int which, interval& dom) const {
    if (which != 0 || !data_) return 0;
    int n = static_cast<const base_pattern_law_data*>(data_)->num_elements();
    dom = interval(0.0, n > 0 ? n - 1 : 0);
    return 1;
}

// ================================================================ registration

static law_prototype<curve_law> curve_law_prototype;
static law_prototype<pcurve_law> pcurve_law_prototype;
static law_prototype<wire_law> wire_law_prototype;
static law_prototype<dcurve_law> dcurve_law_prototype;
static law_prototype<dpcurve_law> dpcurve_law_prototype;
static law_prototype<dwire_law> dwire_law_prototype;
static law_prototype<curvature_law> curvature_law_prototype;
static law_prototype<intersect_lawi> intersect_lawi_prototype;
static law_prototype<distance_lawi> distance_lawi_prototype;
static law_prototype<length_law> length_law_prototype;
static law_prototype<length_param_law> length_param_law_prototype;
static law_prototype<map_law> map_law_prototype;
static law_prototype<curveperp_law> curveperp_law_prototype;
static law_prototype<surface_law> surface_law_prototype;
static law_prototype<bs3_surface_law> bs3_surface_law_prototype;
static law_prototype<dsurface_law> dsurface_law_prototype;
static law_prototype<gaussian_curvature_law> gaussian_curvature_law_prototype;
static law_prototype<mean_curvature_law> mean_curvature_law_prototype;
static law_prototype<max_curvature_law> max_curvature_law_prototype;
static law_prototype<min_curvature_law> min_curvature_law_prototype;
static law_prototype<surfperp_law> surfperp_law_prototype;
static law_prototype<patterntrans_law> patterntrans_law_prototype;

}  // namespace lawutil
