// CONICLINE, CONICTROUGH, CYCLIDE, DCYCLIDE and CYCLIDEPERP.  Each closed form is
// written twice, once in doubles for evaluation and once as laws for the symbolic
// derivative; the property tests hold the two together.
#include "lawutil/law_vector_blend.hpp"

#include <cmath>

#include "lawutil/law_logic.hpp"
#include "lawutil/law_unary.hpp"
#include "lawutil/law_vector_build.hpp"

using namespace vorx;

namespace lawutil {

LAWUTIL_TYPE_DEF(conic_line_law)
LAWUTIL_TYPE_DEF(conic_trough_line_law)
LAWUTIL_TYPE_DEF(cyclide_law)
LAWUTIL_TYPE_DEF(dcyclide_law)
LAWUTIL_TYPE_DEF(cyclide_perp_law)

namespace {

constexpr double PI = 3.14159265358979323846;

void store(const vector& v, double* y) {
    for (int i = 0; i < 3; ++i) y[i] = v[i];
}

law_holder part(law* const* parts, int i) {
    return law_holder::share(parts[i]);
}

// ---------------------------------------------------------------- conics

// C = ((1-t)^2 P0 + 2t(1-t) w A + t^2 P1) / ((1-t)^2 + 2t(1-t) w + t^2), w = rho/(1-rho)
vector conic_point(const vector& p0, const vector& p1, const vector& apex, double rho, double t) {
    if (!(rho > 0.0 && rho < 1.0)) sys_error(LAW_BAD_DOMAN);
    double w = rho / (1.0 - rho);
    double s = 1.0 - t;
    double b0 = s * s, b1 = 2.0 * t * s * w, b2 = t * t;
    return (b0 * p0 + b1 * apex + b2 * p1) / (b0 + b1 + b2);
}

law_holder conic_closed(const law_holder& p0, const law_holder& p1, const law_holder& apex,
                        const law_holder& rho, const law_holder& t) {
    law_holder one = lb::constant(1.0);
    law_holder w = lb::divide(rho, lb::minus(one, rho));
    law_holder s = lb::minus(one, t);
    law_holder b0 = lb::times(s, s);
    law_holder b1 = lb::times(lb::times(lb::constant(2.0), lb::times(t, s)), w);
    law_holder b2 = lb::times(t, t);
    law_holder num = lb::plus(lb::plus(lb::times(b0, p0), lb::times(b1, apex)), lb::times(b2, p1));
    law_holder den = lb::plus(lb::plus(b0, b1), b2);
    return lb::times(lb::divide(one, den), num);
}

// The apex of CONICTROUGH: the midpoint of the closest points of the tangent lines.
vector trough_apex(const vector& p0, const vector& t0, const vector& p1, const vector& t1) {
    vector q = p0 - p1;
    double a = t0 % t0, b = t0 % t1, c = t1 % t1, d = t0 % q, e = t1 % q;
    double den = a * c - b * b;
    if (!(den > 1e-12 * a * c)) sys_error(LAW_BAD_DOMAN);
    double s = (b * e - c * d) / den, r = (a * e - b * d) / den;
    return 0.5 * (p0 + s * t0 + p1 + r * t1);
}

law_holder trough_apex_closed(const law_holder& p0, const law_holder& t0, const law_holder& p1,
                              const law_holder& t1) {
    law_holder q = lb::minus(p0, p1);
    law_holder a = lb::dot(t0, t0), b = lb::dot(t0, t1), c = lb::dot(t1, t1);
    law_holder d = lb::dot(t0, q), e = lb::dot(t1, q);
    law_holder den = lb::minus(lb::times(a, c), lb::times(b, b));
    law_holder s = lb::divide(lb::minus(lb::times(b, e), lb::times(c, d)), den);
    law_holder r = lb::divide(lb::minus(lb::times(a, e), lb::times(b, d)), den);
    law_holder sum = lb::plus(lb::plus(p0, lb::times(s, t0)), lb::plus(p1, lb::times(r, t1)));
    return lb::times(lb::constant(0.5), sum);
}

// ---------------------------------------------------------------- cyclides

struct cyclide_params {
    double a, c, mu, b;
};

cyclide_params cyclide_params_at(law* const* parts, const double* x) {
    cyclide_params p;
    p.a = parts[3]->evaluateM_R(x);
    p.c = parts[4]->evaluateM_R(x);
    p.mu = parts[5]->evaluateM_R(x);
    double b2 = p.a * p.a - p.c * p.c;
    if (!(b2 > 0.0) || !std::isfinite(b2) || !std::isfinite(p.mu)) sys_error(LAW_BAD_DOMAN);
    p.b = std::sqrt(b2);
    return p;
}

// The denominator a - c cos u cos v; zero raises LAW_DIVISION.
double cyclide_denominator(const cyclide_params& p, double u, double v) {
    double d = p.a - p.c * std::cos(u) * std::cos(v);
    if (!(std::fabs(d) > 1e-14 * std::fabs(p.a))) sys_error(LAW_DIVISION);
    return d;
}

vector cyclide_local(const cyclide_params& p, double u, double v) {
    double d = cyclide_denominator(p, u, v);
    double cu = std::cos(u), su = std::sin(u), cv = std::cos(v), sv = std::sin(v);
    return vector((p.mu * (p.c - p.a * cu * cv) + p.b * p.b * cu) / d,
                  p.b * su * (p.a - p.mu * cv) / d, p.b * sv * (p.c * cu - p.mu) / d);
}

// The same three components as laws over (a,c,mu,u,v).
void cyclide_closed(const law_holder* q, law_holder* out) {
    const law_holder &a = q[0], &c = q[1], &mu = q[2];
    law_holder cu = lb::cos(q[3]), su = lb::sin(q[3]), cv = lb::cos(q[4]), sv = lb::sin(q[4]);
    law_holder b2 = lb::minus(lb::times(a, a), lb::times(c, c));
    law_holder b(VORX_NEW sqrt_law(b2.get()));
    law_holder cucv = lb::times(cu, cv);
    law_holder d = lb::minus(a, lb::times(c, cucv));
    out[0] =
        lb::divide(lb::plus(lb::times(mu, lb::minus(c, lb::times(a, cucv))), lb::times(b2, cu)), d);
    out[1] = lb::divide(lb::times(lb::times(b, su), lb::minus(a, lb::times(mu, cv))), d);
    out[2] = lb::divide(lb::times(lb::times(b, sv), lb::minus(lb::times(c, cu), mu)), d);
}

// The frame (O,X',Y',Z') of the first three parts.
struct placement {
    vector o, x, y, z;
    vector apply(const vector& l, bool origin = true) const {
        vector r = l[0] * x + l[1] * y + l[2] * z;
        return origin ? o + r : r;
    }
    vector local(const vector& p) const {
        vector d = p - o;
        return vector(d % x, d % y, d % z);
    }
};

vector unit(const vector& v) {
    double length = std::sqrt(v % v);
    if (!(length > 0.0) || !std::isfinite(length)) sys_error(LAW_BAD_UNIT_VECTOR);
    return v / length;
}

placement placement_at(law* const* parts, const double* x) {
    placement f;
    f.o = law_vector3_at(parts[0], x);
    vector xa = law_vector3_at(parts[1], x);
    f.z = unit(law_vector3_at(parts[2], x));
    vector across = xa - (xa % f.z) * f.z;
    if (!(std::sqrt(across % across) > 1e-12 * std::sqrt(xa % xa))) sys_error(LAW_BAD_UNIT_VECTOR);
    f.x = unit(across);
    f.y = f.z * f.x;
    return f;
}

// The placed point O + l0 X' + l1 Y' + l2 Z' as a law (without O for a partial).
law_holder placed_closed(law* const* parts, const law_holder* l, bool origin) {
    law_holder z = lb::norm(part(parts, 2));
    law_holder xa = part(parts, 1);
    law_holder x = lb::norm(lb::minus(xa, lb::times(lb::dot(xa, z), z)));
    law_holder y = lb::cross(z, x);
    law_holder r = lb::plus(lb::plus(lb::times(l[0], x), lb::times(l[1], y)), lb::times(l[2], z));
    return origin ? lb::plus(part(parts, 0), r) : r;
}

// The order read like TERM's index; negative raises LAW_DIM.
int order_of(const law* l) {
    double k = law_value_at_one(l);
    if (!(k > -1.0 && k < 64.0)) sys_error(LAW_DIM);
    return (int)k;
}

}  // namespace

// ================================================================ conic_line_law

conic_line_law::conic_line_law(law** parts, int n) : multiple_law(parts, n) {}

void conic_line_law::evaluate(const double* x, double* y) const {
    if (count_ != 5 || !subs_) sys_error(LAW_DIM);
    store(conic_point(law_vector3_at(subs_[0], x), law_vector3_at(subs_[1], x),
                      law_vector3_at(subs_[2], x), subs_[3]->evaluateM_R(x),
                      subs_[4]->evaluateM_R(x)),
          y);
}

const char* conic_line_law::symbol(law_symbol_type type) const {
    return type == law_symbol_default ? "CONICLINE" : "no_maple";
}

multiple_law* conic_line_law::make_one(law** parts, int n) const {
    if (n != 5) sys_error(LAW_DIM);
    return VORX_NEW conic_line_law(parts, n);
}

// CONICLINE(P0,P1,A,RHO,T)' = (the closed form above)'
law* conic_line_law::deriv(int which) const {
    if (!subs_ || count_ != 5) return nullptr;
    return conic_closed(part(subs_, 0), part(subs_, 1), part(subs_, 2), part(subs_, 3),
                        part(subs_, 4))
        ->derivative(which);
}

// ================================================================ conic_trough_line_law

conic_trough_line_law::conic_trough_line_law(law** parts, int n) : multiple_law(parts, n) {}

void conic_trough_line_law::evaluate(const double* x, double* y) const {
    if (count_ != 6 || !subs_) sys_error(LAW_DIM);
    vector p0 = law_vector3_at(subs_[0], x), p1 = law_vector3_at(subs_[2], x);
    vector apex = trough_apex(p0, law_vector3_at(subs_[1], x), p1, law_vector3_at(subs_[3], x));
    store(conic_point(p0, p1, apex, subs_[4]->evaluateM_R(x), subs_[5]->evaluateM_R(x)), y);
}

const char* conic_trough_line_law::symbol(law_symbol_type type) const {
    return type == law_symbol_default ? "CONICTROUGH" : "no_maple";
}

multiple_law* conic_trough_line_law::make_one(law** parts, int n) const {
    if (n != 6) sys_error(LAW_DIM);
    return VORX_NEW conic_trough_line_law(parts, n);
}

// CONICTROUGH(P0,T0,P1,T1,RHO,T)' = (CONICLINE's closed form over the apex above)'
law* conic_trough_line_law::deriv(int which) const {
    if (!subs_ || count_ != 6) return nullptr;
    law_holder p0 = part(subs_, 0), p1 = part(subs_, 2);
    law_holder apex = trough_apex_closed(p0, part(subs_, 1), p1, part(subs_, 3));
    return conic_closed(p0, p1, apex, part(subs_, 4), part(subs_, 5))->derivative(which);
}

// ================================================================ cyclide_law

cyclide_law::cyclide_law(law** parts, int n) : multiple_law(parts, n) {}

void cyclide_law::evaluate(const double* x, double* y) const {
    if (count_ != 8 || !subs_) sys_error(LAW_DIM);
    cyclide_params p = cyclide_params_at(subs_, x);
    placement f = placement_at(subs_, x);
    store(f.apply(cyclide_local(p, subs_[6]->evaluateM_R(x), subs_[7]->evaluateM_R(x))), y);
}

const char* cyclide_law::symbol(law_symbol_type type) const {
    return type == law_symbol_default ? "CYCLIDE" : "no_maple";
}

multiple_law* cyclide_law::make_one(law** parts, int n) const {
    if (n != 8) sys_error(LAW_DIM);
    return VORX_NEW cyclide_law(parts, n);
}

// CYCLIDE(O,X,Z,A,C,MU,U,V)' = (O + x X' + y Y' + z Z')' over the closed form
law* cyclide_law::deriv(int which) const {
    if (!subs_ || count_ != 8) return nullptr;
    law_holder q[5] = {part(subs_, 3), part(subs_, 4), part(subs_, 5), part(subs_, 6),
                       part(subs_, 7)};
    law_holder l[3];
    cyclide_closed(q, l);
    return placed_closed(subs_, l, true)->derivative(which);
}

// ================================================================ dcyclide_law

dcyclide_law::dcyclide_law(law** parts, int n) : multiple_law(parts, n) {}

void dcyclide_law::evaluate(const double* x, double* y) const {
    if (count_ != 10 || !subs_) sys_error(LAW_DIM);
    int i = order_of(subs_[8]), j = order_of(subs_[9]);
    cyclide_params p = cyclide_params_at(subs_, x);
    double q[5] = {p.a, p.c, p.mu, subs_[6]->evaluateM_R(x), subs_[7]->evaluateM_R(x)};
    cyclide_denominator(p, q[3], q[4]);
    if (!local_[0]) {
        law_holder in[5];
        for (int k = 0; k < 5; ++k) in[k] = law_holder(VORX_NEW identity_law(k));
        law_holder l[3];
        cyclide_closed(in, l);
        for (int k = 0; k < 3; ++k) {
            for (int n = 0; n < i; ++n) l[k].reset(l[k]->derivative(3));
            for (int n = 0; n < j; ++n) l[k].reset(l[k]->derivative(4));
        }
        for (int k = 0; k < 3; ++k) local_[k] = l[k];
    }
    vector v(local_[0]->evaluateM_R(q), local_[1]->evaluateM_R(q), local_[2]->evaluateM_R(q));
    store(placement_at(subs_, x).apply(v, i + j == 0), y);
}

const char* dcyclide_law::symbol(law_symbol_type type) const {
    return type == law_symbol_default ? "DCYCLIDE" : "no_maple";
}

multiple_law* dcyclide_law::make_one(law** parts, int n) const {
    if (n != 10) sys_error(LAW_DIM);
    return VORX_NEW dcyclide_law(parts, n);
}

// DCYCLIDE(...)' = (O + x X' + y Y' + z Z')' with x, y, z the partials over
// VEC(A,C,MU,U,V) (no O for a partial)
law* dcyclide_law::deriv(int which) const {
    if (!subs_ || count_ != 10) return nullptr;
    int i = order_of(subs_[8]), j = order_of(subs_[9]);
    law_holder in[5];
    for (int k = 0; k < 5; ++k) in[k] = law_holder(VORX_NEW identity_law(k));
    law_holder l[3];
    cyclide_closed(in, l);
    law_holder args(VORX_NEW vector_law(subs_ + 3, 5));
    for (int k = 0; k < 3; ++k) {
        for (int n = 0; n < i; ++n) l[k].reset(l[k]->derivative(3));
        for (int n = 0; n < j; ++n) l[k].reset(l[k]->derivative(4));
        l[k] = law_holder(VORX_NEW composite_law(l[k].get(), args.get()));
    }
    return placed_closed(subs_, l, i + j == 0)->derivative(which);
}

// ================================================================ cyclide_perp_law

cyclide_perp_law::cyclide_perp_law(law** parts, int n) : multiple_law(parts, n) {}

void cyclide_perp_law::evaluate(const double* x, double* y) const {
    if (count_ != 7 || !subs_) sys_error(LAW_DIM);
    cyclide_params p = cyclide_params_at(subs_, x);
    placement f = placement_at(subs_, x);
    vector q = f.local(law_vector3_at(subs_[6], x));
    // A point where the denominator vanishes is never the nearest: it counts as far.
    auto dist2 = [&](double u, double v) {
        double d = p.a - p.c * std::cos(u) * std::cos(v);
        if (!(std::fabs(d) > 1e-14 * std::fabs(p.a))) return HUGE_VAL;
        vector r = cyclide_local(p, u, v) - q;
        return r % r;
    };
    const int grid = 24;
    double u = 0.0, v = 0.0, best = HUGE_VAL;
    for (int a = 0; a < grid; ++a)
        for (int b = 0; b < grid; ++b) {
            double uu = -PI + 2.0 * PI * a / grid, vv = -PI + 2.0 * PI * b / grid;
            double d = dist2(uu, vv);
            if (d < best) best = d, u = uu, v = vv;
        }
    if (!(best < HUGE_VAL)) sys_error(LAW_DIVISION);
    const double h = 1e-6;
    for (int iter = 0; iter < 40; ++iter) {
        vector s = cyclide_local(p, u, v) - q;
        vector su = (cyclide_local(p, u + h, v) - cyclide_local(p, u - h, v)) / (2.0 * h);
        vector sv = (cyclide_local(p, u, v + h) - cyclide_local(p, u, v - h)) / (2.0 * h);
        // Gauss-Newton: (J^T J) d = -J^T s.
        double a11 = su % su, a12 = su % sv, a22 = sv % sv, g1 = su % s, g2 = sv % s;
        double det = a11 * a22 - a12 * a12;
        if (!(std::fabs(det) > 1e-300)) break;
        double du = -(a22 * g1 - a12 * g2) / det, dv = -(a11 * g2 - a12 * g1) / det;
        double step = 1.0;
        bool moved = false;
        for (int halve = 0; halve < 30; ++halve, step *= 0.5) {
            double d = dist2(u + step * du, v + step * dv);
            if (d <= best) {
                best = d, u += step * du, v += step * dv, moved = true;
                break;
            }
        }
        if (!moved || std::fabs(step * du) + std::fabs(step * dv) < 1e-14) break;
    }
    store(f.apply(cyclide_local(p, u, v)), y);
}

const char* cyclide_perp_law::symbol(law_symbol_type type) const {
    return type == law_symbol_default ? "CYCLIDEPERP" : "no_maple";
}

multiple_law* cyclide_perp_law::make_one(law** parts, int n) const {
    if (n != 7) sys_error(LAW_DIM);
    return VORX_NEW cyclide_perp_law(parts, n);
}

// CYCLIDEPERP(...)' in input i = D(CYCLIDEPERP(...),i,1), over a fresh law of the same parts
law* cyclide_perp_law::deriv(int which) const {
    if (!subs_ || count_ != 7) return nullptr;
    law_array parts(3);
    parts.set(0, VORX_NEW cyclide_perp_law(subs_, count_));
    parts.set(1, VORX_NEW constant_law(which));
    parts.set(2, VORX_NEW constant_law(1));
    return VORX_NEW derivative_law(parts.get(), 3);
}

// ================================================================ registration

static law_prototype<conic_line_law> conic_line_law_prototype(static_cast<law**>(nullptr), 0);
static law_prototype<conic_trough_line_law> conic_trough_line_law_prototype(
    static_cast<law**>(nullptr), 0);
static law_prototype<cyclide_law> cyclide_law_prototype(static_cast<law**>(nullptr), 0);
static law_prototype<dcyclide_law> dcyclide_law_prototype(static_cast<law**>(nullptr), 0);
static law_prototype<cyclide_perp_law> cyclide_perp_law_prototype(static_cast<law**>(nullptr), 0);

}  // namespace lawutil
