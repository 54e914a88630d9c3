// The frames along a curve law: FRENET, MINROT and TWISTPATH.
//
// MINROT keeps one cache, the integrated frame (point, unit tangent and normal per
// sample), filled by the first evaluation and freed with the law; a copy (deep_copy,
// make_one, the law its derivative holds) integrates again when it is first evaluated.
// The cache is built in a local array and published only when complete, so an error in
// the middle (a zero tangent) leaves the law unchanged and nothing allocated.
#include <cmath>

#include "base/options.hpp"
#include "lawutil/law_logic.hpp"
#include "lawutil/law_vector_build.hpp"
#include "lawutil/law_vector_frame.hpp"

using namespace vorx;

namespace lawutil {

LAWUTIL_TYPE_DEF(frenet_law)
LAWUTIL_TYPE_DEF(min_rotation_law)
LAWUTIL_TYPE_DEF(twist_path_law)

namespace {

// A curve's derivative of the given order in its parameter; a derivative that came back
// as a scalar stands for the zero vector.
vector curve_derivative_at(const law* c, int order, const double* x) {
    law_holder d = law_holder::share(c);
    for (int i = 0; i < order; ++i) d.reset(d->derivative(0));
    if (law_vector_lost(c, d.get())) return vector();
    return law_vector3_at(d.get(), x);
}

// A unit vector along v; a zero (or not finite) v raises LAW_BAD_UNIT_VECTOR.
vector unit(const vector& v) {
    double length = std::sqrt(v % v);
    if (!(length > 0.0) || !std::isfinite(length)) sys_error(LAW_BAD_UNIT_VECTOR);
    return v / length;
}

// The curve part must be a 3-vector law of (at most) one input, the parameter.
const law* curve_part(const law* c) {
    if (!c || c->return_dim() != 3) sys_error(LAW_DIM);
    return c;
}

// One step of a rotation-minimising frame from (x0, t0, r0) to the point x1 with unit
// tangent t1.
vector rmf_step(const vector& x0, const vector& t0, const vector& r0, const vector& x1,
                const vector& t1, bool reflect) {
    if (reflect) {
        // Double reflection: in the bisecting plane of x0 and x1, then in the one that
        // takes the reflected tangent to t1.
        vector v1 = x1 - x0;
        double c1 = v1 % v1;
        vector rl = r0, tl = t0;
        if (c1 > 0.0) {
            rl = r0 - (2.0 / c1) * (v1 % r0) * v1;
            tl = t0 - (2.0 / c1) * (v1 % t0) * v1;
        }
        vector v2 = t1 - tl;
        double c2 = v2 % v2;
        return c2 > 0.0 ? rl - (2.0 / c2) * (v2 % rl) * v2 : rl;
    }
    // Rotation method: turn r0 about t0 x t1 by the angle between the tangents.
    vector axis = t0 * t1;
    double s = std::sqrt(axis % axis);
    if (!(s > 0.0)) return r0;
    vector k = axis / s;
    double angle = std::atan2(s, t0 % t1);
    vector r = r0 * std::cos(angle) + (k * r0) * std::sin(angle) +
               k * ((k % r0) * (1.0 - std::cos(angle)));
    // Back onto the normal plane, against the drift of round-off.
    return unit(r - (r % t1) * t1);
}

// Owns a block of doubles until it is handed on.
struct owned_doubles {
    double* p;
    ~owned_doubles() {
        if (p) VORX_FREE(p);
    }
};

}  // namespace

// ================================================================ frenet_law

frenet_law::frenet_law(law** parts, int n) : multiple_law(parts, n) {}

void frenet_law::evaluate(const double* x, double* y) const {
    if (count_ != 2 || !subs_) sys_error(LAW_DIM);
    const law* c = curve_part(subs_[0]);
    double k = law_value_at_one(subs_[1]) - 1.0;
    if (!(k > -1.0 && k < 3.0)) sys_error(LAW_DIM);
    int which = (int)k;
    vector d1 = curve_derivative_at(c, 1, x);
    vector t = unit(d1);
    vector r = t;
    if (which > 0) {
        vector d2 = curve_derivative_at(c, 2, x);
        vector b = d1 * d2;
        // Too little curvature to define the normal (a straight line, an inflection).
        double scale = std::sqrt((d1 % d1) * (d2 % d2));
        if (!(std::sqrt(b % b) > 1e-12 * scale)) sys_error(LAW_BAD_UNIT_VECTOR);
        b = unit(b);
        r = which == 2 ? b : b * t;
    }
    for (int i = 0; i < 3; ++i) y[i] = r[i];
}

const char* frenet_law::symbol(law_symbol_type type) const {
    return type == law_symbol_default ? "FRENET" : "no_maple";
}

multiple_law* frenet_law::make_one(law** parts, int n) const {
    if (n != 2) sys_error(LAW_DIM);
    return VORX_NEW frenet_law(parts, n);
}

// FRENET(C,1)' = NORM(C')',  FRENET(C,3)' = NORM(CROSS(C',C''))',
// FRENET(C,2)' = CROSS(FRENET(C,3),FRENET(C,1))'
law* frenet_law::deriv(int which) const {
    if (!subs_ || count_ != 2) return nullptr;
    double k = law_value_at_one(subs_[1]) - 1.0;
    if (!(k > -1.0 && k < 3.0)) return nullptr;
    law_holder c = law_holder::share(subs_[0]);
    law_holder d1(c->derivative(0));
    law_holder d2(d1->derivative(0));
    // A constant curve has no tangent, a line (C'' = 0) no normal: nothing to differentiate.
    if (law_vector_lost(c.get(), d1.get()) || law_is_zero_vector(d1.get())) return nullptr;
    if ((int)k > 0 && (law_vector_lost(d1.get(), d2.get()) || law_is_zero_vector(d2.get())))
        return nullptr;
    law_holder t = lb::norm(d1);
    law_holder b = lb::norm(lb::cross(d1, d2));
    law_holder closed = (int)k == 0 ? t : (int)k == 2 ? b : lb::cross(b, t);
    return closed->derivative(which);
}

// ================================================================ min_rotation_law

min_rotation_law::min_rotation_law(law** parts, int n) : multiple_law(parts, n) {}

min_rotation_law::~min_rotation_law() noexcept(false) {
    if (frame_) VORX_FREE(frame_);
}

void min_rotation_law::integrate() const {
    if (frame_) return;
    if (count_ != 4 || !subs_) sys_error(LAW_MR_NUM);
    const law* c = curve_part(subs_[0]);
    if (c->take_dim() > 1 || subs_[1]->take_dim() > 1) sys_error(LAW_DIM);
    double t0 = law_value_at_one(subs_[2]);
    double t1 = law_value_at_one(subs_[3]);
    if (!(t1 > t0) || !std::isfinite(t1 - t0)) sys_error(LAW_MR);
    const option_header* samples_option = find_option("min_rot_samples");
    const option_header* euler_option = find_option("fast_euler");
    int n = samples_option ? samples_option->value() : 1000;
    if (n < 1) n = 1;
    bool reflect = euler_option ? euler_option->on() : true;

    owned_doubles frame{VORX_ALLOC_ARRAY(double, 9 * (n + 1))};
    vector x_prev, t_prev, r_prev;
    for (int i = 0; i <= n; ++i) {
        double t = i == n ? t1 : t0 + (t1 - t0) * i / n;
        vector x = law_vector3_at(c, &t);
        vector tangent = unit(curve_derivative_at(c, 1, &t));
        vector r;
        if (i == 0) {
            vector r0 = law_vector3_at(subs_[1], &t);
            vector across = r0 - (r0 % tangent) * tangent;
            // R0 along the start tangent leaves no normal to start from.
            if (!(std::sqrt(across % across) > 1e-12 * std::sqrt(r0 % r0)))
                sys_error(LAW_BAD_UNIT_VECTOR);
            r = unit(across);
        } else {
            r = rmf_step(x_prev, t_prev, r_prev, x, tangent, reflect);
        }
        double* slot = frame.p + 9 * i;
        for (int j = 0; j < 3; ++j) {
            slot[j] = x[j];
            slot[3 + j] = tangent[j];
            slot[6 + j] = r[j];
        }
        x_prev = x;
        t_prev = tangent;
        r_prev = r;
    }
    t0_ = t0;
    t1_ = t1;
    reflect_ = reflect;
    samples_ = n;
    frame_ = frame.p;
    frame.p = nullptr;
}

void min_rotation_law::evaluate(const double* x, double* y) const {
    integrate();
    double t = x[0];
    double slack = 1e-10 * (t1_ - t0_);
    if (!(t >= t0_ - slack && t <= t1_ + slack)) sys_error(LAW_MR);
    double h = (t1_ - t0_) / samples_;
    int i = (int)((t - t0_) / h);
    if (i < 0) i = 0;
    if (i >= samples_) i = samples_ - 1;
    const double* slot = frame_ + 9 * i;
    vector x1 = law_vector3_at(subs_[0], x);
    vector t1 = unit(curve_derivative_at(subs_[0], 1, x));
    vector r = rmf_step(vector(slot), vector(slot + 3), vector(slot + 6), x1, t1, reflect_);
    for (int j = 0; j < 3; ++j) y[j] = r[j];
}

double min_rotation_law::closing_twist() const {
    integrate();
    const double* last = frame_ + 9 * samples_;
    vector tangent(last + 3), r1(last + 6);
    vector r0 = law_vector3_at(subs_[1], &t0_);
    vector p = r0 - (r0 % tangent) * tangent;
    return std::atan2((p * r1) % tangent, p % r1);
}

void min_rotation_law::full_size(SizeAccumulator& acc, int count_self) const {
    multiple_law::full_size(acc, count_self);
    if (frame_)
        acc.addSize(frame_, (unsigned)(sizeof(double) * 9 * (samples_ + 1)), __FILE__, __LINE__);
}

const char* min_rotation_law::symbol(law_symbol_type type) const {
    return type == law_symbol_default ? "MINROT" : "no_maple";
}

multiple_law* min_rotation_law::make_one(law** parts, int n) const {
    if (n != 4) sys_error(LAW_MR_NUM);
    return VORX_NEW min_rotation_law(parts, n);
}

// MINROT(C,...)' = -(DOT(r,C'')/DOT(C',C')) * C', r a fresh MINROT(C,...); the curve's
// parameter is the first input, and the law does not vary with the others.
law* min_rotation_law::deriv(int which) const {
    if (!subs_ || count_ != 4) return nullptr;
    if (which != 0) return lb::zero3().release();
    law_holder c = law_holder::share(subs_[0]);
    law_holder d1(c->derivative(0));
    law_holder d2(d1->derivative(0));
    if (law_vector_lost(c.get(), d1.get())) return nullptr;
    // A straight line: the normal never turns.
    if (law_vector_lost(d1.get(), d2.get())) return lb::zero3().release();
    law_holder r(VORX_NEW min_rotation_law(subs_, count_));
    law_holder rate = lb::divide(lb::dot(r, d2), lb::dot(d1, d1));
    return lb::times(law_holder(VORX_NEW negate_law(rate.get())), d1).release();
}

// ================================================================ twist_path_law

twist_path_law::twist_path_law(law** parts, int n) : multiple_law(parts, n) {}

void twist_path_law::evaluate(const double* x, double* y) const {
    if (count_ != 3 || !subs_) sys_error(LAW_TWIST_NUM);
    vector r = law_vector3_at(subs_[0], x);
    vector t = unit(curve_derivative_at(curve_part(subs_[1]), 1, x));
    double a = subs_[2]->evaluateM_R(x);
    double c = std::cos(a), s = std::sin(a);
    vector turned = r * c + (t * r) * s + t * ((t % r) * (1.0 - c));
    for (int i = 0; i < 3; ++i) y[i] = turned[i];
}

const char* twist_path_law::symbol(law_symbol_type type) const {
    return type == law_symbol_default ? "TWISTPATH" : "no_maple";
}

multiple_law* twist_path_law::make_one(law** parts, int n) const {
    if (n != 3) sys_error(LAW_TWIST_NUM);
    return VORX_NEW twist_path_law(parts, n);
}

// TWISTPATH(R,C,A)' = (R*COS(A) + CROSS(T,R)*SIN(A) + T*(DOT(T,R)*(1-COS(A))))',
// T = NORM(C')
law* twist_path_law::deriv(int which) const {
    if (!subs_ || count_ != 3) return nullptr;
    law_holder r = law_holder::share(subs_[0]);
    law_holder c = law_holder::share(subs_[1]);
    law_holder a = law_holder::share(subs_[2]);
    law_holder d1(c->derivative(0));
    if (law_vector_lost(c.get(), d1.get())) return nullptr;
    law_holder t = lb::norm(d1);
    law_holder cos_a = lb::cos(a);
    law_holder along = lb::times(lb::dot(t, r), lb::minus(lb::constant(1.0), cos_a));
    law_holder closed = lb::plus(
        lb::plus(lb::times(r, cos_a), lb::times(lb::cross(t, r), lb::sin(a))), lb::times(t, along));
    return closed->derivative(which);
}

// ================================================================ registration

static law_prototype<frenet_law> frenet_law_prototype(static_cast<law**>(nullptr), 0);
static law_prototype<min_rotation_law> min_rotation_law_prototype(static_cast<law**>(nullptr), 0);
static law_prototype<twist_path_law> twist_path_law_prototype(static_cast<law**>(nullptr), 0);

}  // namespace lawutil
