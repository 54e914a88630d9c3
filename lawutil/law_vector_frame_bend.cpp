// BEND and UNBEND: wrapping the plane through a root point onto a cylinder and back.
// Both read the same frame (O, a, d, n, R) from their parts, in closed form when
// evaluating and as laws when differentiating, so the two stay one definition.
#include <cmath>

#include "lawutil/law_logic.hpp"
#include "lawutil/law_vector_build.hpp"
#include "lawutil/law_vector_frame.hpp"

using namespace vorx;

namespace lawutil {

LAWUTIL_TYPE_DEF(bend_frame_law)
LAWUTIL_TYPE_DEF(bend_law)
LAWUTIL_TYPE_DEF(unbend_law)

namespace {

constexpr int bend_parts = 5;

// The same frame as laws: a = NORM(A), d = NORM(D - DOT(D,a)*a), n = CROSS(a,d).
struct bend_frame_laws {
    law_holder p, o, a, d, n, r;
    explicit bend_frame_laws(law* const* parts) {
        p = law_holder::share(parts[0]);
        o = law_holder::share(parts[1]);
        r = law_holder::share(parts[4]);
        a = lb::norm(law_holder::share(parts[2]));
        law_holder dd = law_holder::share(parts[3]);
        d = lb::norm(lb::minus(dd, lb::times(lb::dot(dd, a), a)));
        n = lb::cross(a, d);
    }
};

void store(const vector& v, double* y) {
    for (int i = 0; i < 3; ++i) y[i] = v[i];
}

}  // namespace

// ================================================================ bend_frame_law

bend_frame_law::bend_frame_law(law** parts, int n) : multiple_law(parts, n) {}

bend_frame_law::frame bend_frame_law::frame_at(const double* x) const {
    if (cached_valid_) return cached_;
    if (count_ != bend_parts || !subs_) sys_error(LAW_DIM);
    frame f;
    f.o = law_vector3_at(subs_[1], x);
    vector a = law_vector3_at(subs_[2], x);
    vector d = law_vector3_at(subs_[3], x);
    f.r = subs_[4]->evaluateM_R(x);
    double length = std::sqrt(a % a);
    if (!(length > 0.0) || !std::isfinite(length)) sys_error(LAW_BAD_UNIT_VECTOR);
    f.a = a / length;
    vector across = d - (d % f.a) * f.a;
    double across_length = std::sqrt(across % across);
    if (!(across_length > 1e-12 * std::sqrt(d % d))) sys_error(LAW_BEND_PARALLEL);
    f.d = across / across_length;
    f.n = f.a * f.d;
    if (f.r == 0.0 || !std::isfinite(f.r)) sys_error(LAW_BAD_DOMAN);
    bool constant = true;
    for (int i = 1; i < bend_parts; ++i) constant = constant && subs_[i]->take_dim() == 0;
    if (constant) {
        cached_ = f;
        cached_valid_ = true;
    }
    return f;
}

// ================================================================ bend_law

bend_law::bend_law(law** parts, int n) : bend_frame_law(parts, n) {}

void bend_law::evaluate(const double* x, double* y) const {
    frame f = frame_at(x);
    vector p = law_vector3_at(subs_[0], x) - f.o;
    double u = p % f.d, v = p % f.n, w = p % f.a;
    double angle = u / f.r;
    store(f.o + f.r * f.n + (f.r - v) * (std::sin(angle) * f.d - std::cos(angle) * f.n) + w * f.a,
          y);
}

const char* bend_law::symbol(law_symbol_type type) const {
    return type == law_symbol_default ? "BEND" : "no_maple";
}

multiple_law* bend_law::make_one(law** parts, int n) const {
    if (n != bend_parts) sys_error(LAW_DIM);
    return VORX_NEW bend_law(parts, n);
}

// BEND(P,...)' = (O + R*n + (R-v)*(SIN(u/R)*d - COS(u/R)*n) + w*a)', p = P-O,
// u = DOT(p,d), v = DOT(p,n), w = DOT(p,a)
law* bend_law::deriv(int which) const {
    if (!subs_ || count_ != bend_parts) return nullptr;
    bend_frame_laws f(subs_);
    law_holder p = lb::minus(f.p, f.o);
    law_holder angle = lb::divide(lb::dot(p, f.d), f.r);
    law_holder arc = lb::minus(lb::times(lb::sin(angle), f.d), lb::times(lb::cos(angle), f.n));
    law_holder centre = lb::plus(f.o, lb::times(f.r, f.n));
    law_holder bent = lb::times(lb::minus(f.r, lb::dot(p, f.n)), arc);
    law_holder closed = lb::plus(lb::plus(centre, bent), lb::times(lb::dot(p, f.a), f.a));
    return closed->derivative(which);
}

// ================================================================ unbend_law

unbend_law::unbend_law(law** parts, int n) : bend_frame_law(parts, n) {}

void unbend_law::evaluate(const double* x, double* y) const {
    frame f = frame_at(x);
    vector q = law_vector3_at(subs_[0], x) - f.o - f.r * f.n;
    double s = f.r > 0.0 ? 1.0 : -1.0;
    double along = q % f.d, across = -(q % f.n);
    double radius = std::sqrt(along * along + across * across);
    // The cylinder's axis unbends to a whole line: no single point.
    if (!(radius > 0.0)) sys_error(LAW_BAD_DOMAN);
    double angle = std::atan2(s * along, s * across);
    store(f.o + f.r * angle * f.d + (f.r - s * radius) * f.n + (q % f.a) * f.a, y);
}

const char* unbend_law::symbol(law_symbol_type type) const {
    return type == law_symbol_default ? "UNBEND" : "no_maple";
}

multiple_law* unbend_law::make_one(law** parts, int n) const {
    if (n != bend_parts) sys_error(LAW_DIM);
    return VORX_NEW unbend_law(parts, n);
}

// UNBEND(P,...)' = (O + R*ARCTAN(s*x,s*y)*d + (R - s*SIZE(VEC(x,y)))*n + DOT(q,a)*a)',
// q = P-O-R*n, x = DOT(q,d), y = -DOT(q,n), s = NORM(R) (the sign of R)
law* unbend_law::deriv(int which) const {
    if (!subs_ || count_ != bend_parts) return nullptr;
    bend_frame_laws f(subs_);
    law_holder q = lb::minus(lb::minus(f.p, f.o), lb::times(f.r, f.n));
    law_holder s = lb::norm(f.r);
    law_holder x = lb::dot(q, f.d);
    law_holder y(VORX_NEW negate_law(lb::dot(q, f.n).get()));
    law_array turned(2);
    turned.set(0, lb::times(s, x).release());
    turned.set(1, lb::times(s, y).release());
    law_holder angle(VORX_NEW arctan_law(turned.get(), 2));
    law* plane[2] = {x.get(), y.get()};
    law_holder radius = lb::size(law_holder(VORX_NEW vector_law(plane, 2)));
    law_holder closed = lb::plus(lb::plus(f.o, lb::times(lb::times(f.r, angle), f.d)),
                                 lb::plus(lb::times(lb::minus(f.r, lb::times(s, radius)), f.n),
                                          lb::times(lb::dot(q, f.a), f.a)));
    return closed->derivative(which);
}

// ================================================================ registration

static law_prototype<bend_law> bend_law_prototype(static_cast<law**>(nullptr), 0);
static law_prototype<unbend_law> unbend_law_prototype(static_cast<law**>(nullptr), 0);

}  // namespace lawutil
