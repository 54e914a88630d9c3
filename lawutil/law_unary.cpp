// The one-argument function laws.  Each class keeps its evaluation, domain rules,
// derivative and spellings together; the prototypes are registered at the end.
#include "lawutil/law_unary.hpp"

#include <cmath>

#include "base/geom_utils.hpp"
#include "base/interval.hpp"
#include "lawutil/main_law_arith.hpp"
#include "lawutil/root.hpp"
#include "lawutil/simplfy.hpp"

using namespace vorx;

namespace lawutil {

namespace {

constexpr double pi = 3.141592653589793;
constexpr double half_pi = 1.5707963267948966;

// ---- building derivatives: every temporary is held, so nothing leaks when an error
// passes; each builder adds its own references to its arguments ----

law_holder num(double v) {
    return law_holder(VORX_NEW constant_law(v));
}
law_holder arg_of(const unary_law* f) {
    return law_holder::share(f->fsub());
}
template <class L>
law_holder op(const law_holder& a) {
    return law_holder(VORX_NEW L(a.get()));
}
template <class L>
law_holder op(const law_holder& a, const law_holder& b) {
    return law_holder(VORX_NEW L(a.get(), b.get()));
}

// The chain rule: outer * g', g' taken (cached and simplified) from the argument.
law* chain(const law_holder& outer, const unary_law* f, int which) {
    law_holder gp(f->fsub()->derivative(which));
    return VORX_NEW times_law(outer.get(), gp.get());
}

// ---- reductions shared by the trigonometric members ----

// v reduced into (-pi/2, pi/2] by whole steps of pi/2 (deliberate: not the period; kept
// for compatibility of values).  fmod makes the steps exactly, so large arguments
// neither loop long nor gather rounding.
double reduce_by_half_pi(double v) {
    if (v > half_pi) {
        v = std::fmod(v, half_pi);
        // A whole number of steps lands on pi/2, the top of the interval, not on 0.
        if (v == 0.0) v = half_pi;
    } else if (v <= -half_pi) {
        v = std::fmod(v, half_pi);
    }
    return v;
}

// v reduced into (-pi/2, pi/2] by steps of pi.
double reduce_by_pi_centered(double v) {
    if (v > half_pi || v <= -half_pi) {
        v = std::fmod(v, pi);
        if (v > half_pi)
            v -= pi;
        else if (v <= -half_pi)
            v += pi;
    }
    return v;
}

// v reduced into [0, pi) by steps of pi.
double reduce_by_pi_positive(double v) {
    v = std::fmod(v, pi);
    return v < 0.0 ? v + pi : v;
}

// The evaluation test of cot and csc: v/pi lies within 1e-10 past its truncation.  Only
// that side is tested, so a value just short of a multiple of pi passes.
bool near_multiple_of_pi(double v) {
    double q = v / pi;
    return std::fabs(q - std::trunc(q)) < 1e-10;
}

// A finite whole number.
bool is_whole(double v) {
    return std::isfinite(v) && v == std::trunc(v);
}
bool is_even_whole(double v) {
    return is_whole(v) && std::fmod(v, 2.0) == 0.0;
}

// The argument-space interval over which g runs between the values a and b, through
// g's inverse; false (dom untouched) when g has no inverse or it cannot be evaluated at
// those values.
bool argument_interval(const law* g, double a, double b, interval& dom) {
    law_holder inv(g->inverse());
    if (!inv) return false;
    try {
        dom = interval(inv->eval(a), inv->eval(b));
    } catch (const vorx_exception&) {
        return false;
    }
    return true;
}

// As argument_interval for the half line of values v >= a: the argument-space half
// line starting at the inverse's value at a, on the side where the inverse's value at
// a + 1 lies.
bool argument_half_line(const law* g, double a, interval& dom) {
    law_holder inv(g->inverse());
    if (!inv) return false;
    try {
        double start = inv->eval(a);
        double next = inv->eval(a + 1.0);
        dom = next >= start ? interval(interval_finite_below, start, start)
                            : interval(interval_finite_above, start, start);
    } catch (const vorx_exception&) {
        return false;
    }
    return true;
}

// [-1, 1], shared by arcsin and arctanh.
int unit_term_domain(interval& dom) {
    dom = interval(-1.0, 1.0);
    return 1;
}

}  // namespace

// Type identity, make_one and the two spellings of a member.
#define LAW_UNARY_FUNCTION_COMMON(cls, own_symbol, maple_symbol)       \
    LAWUTIL_TYPE_DEF(cls)                                              \
    unary_law* cls::make_one(law* sub) const {                         \
        return VORX_NEW cls(sub);                                      \
    }                                                                  \
    const char* cls::symbol(law_symbol_type type) const {              \
        return type == law_symbol_default ? own_symbol : maple_symbol; \
    }

// A member evaluated by its own evaluate.
#define LAW_UNARY_FUNCTION_DEF(cls, own_symbol, maple_symbol) \
    LAW_UNARY_FUNCTION_COMMON(cls, own_symbol, maple_symbol)  \
    cls::cls(law* sub) : unary_law(sub) {                     \
        leaf_kind = node_direct;                              \
    }                                                         \
    double cls::scalar_value(const double* x) const {         \
        double y;                                             \
        cls::evaluate(x, &y);                                 \
        return y;                                             \
    }

// A member that the scalar arithmetic evaluator computes in place (function_scalar_value,
// main_law_arith.cpp) as the arith_op `op`: there, the same test and code as its evaluate,
// in the same order, then the same library function.  Its evaluate stays for the side
// and guess paths and for a vector argument.
#define LAW_FAST_UNARY_FUNCTION_DEF(cls, op, own_symbol, maple_symbol) \
    LAW_UNARY_FUNCTION_COMMON(cls, own_symbol, maple_symbol)           \
    cls::cls(law* sub) : unary_law(sub) {                              \
        leaf_kind = node_direct;                                       \
        arith_op = op;                                                 \
    }                                                                  \
    double cls::scalar_value(const double* x) const {                  \
        return function_scalar_value(this, x);                         \
    }

// ================================================================ predicates

LAW_UNARY_FUNCTION_DEF(not_law, "NOT", "not")

void not_law::evaluate(const double* x, double* y) const {
    *y = fsub()->evaluateM_R(x) == 0.0 ? 1.0 : 0.0;
}

LAW_UNARY_FUNCTION_DEF(even_law, "EVEN?", "even?")

void even_law::evaluate(const double* x, double* y) const {
    *y = is_even_whole(fsub()->evaluateM_R(x)) ? 1.0 : 0.0;
}

LAW_UNARY_FUNCTION_DEF(odd_law, "ODD?", "odd?")

void odd_law::evaluate(const double* x, double* y) const {
    double v = fsub()->evaluateM_R(x);
    *y = is_whole(v) && !is_even_whole(v) ? 1.0 : 0.0;
}

LAW_UNARY_FUNCTION_DEF(int_law, "INT?", "int?")

void int_law::evaluate(const double* x, double* y) const {
    *y = is_whole(fsub()->evaluateM_R(x)) ? 1.0 : 0.0;
}

LAW_UNARY_FUNCTION_DEF(prime_law, "PRIME?", "prime?")

// Deliberate, kept for compatibility of values: 2 is not prime and 1 is, and the
// divisor bound goes through a single-precision square root.
void prime_law::evaluate(const double* x, double* y) const {
    double v = fsub()->evaluateM_R(x);
    // Every whole double from 2^53 on is even, so an odd n fits a long long.
    if (!is_whole(v) || v <= 0.0 || is_even_whole(v)) {
        *y = 0.0;
        return;
    }
    long long n = static_cast<long long>(v);
    if (n < 4) {
        *y = 1.0;
        return;
    }
    float root = static_cast<float>(std::sqrt(v));
    long long s = static_cast<long long>(root);
    for (long long d = 3; d <= s; ++d) {
        if (n % d == 0) {
            *y = 0.0;
            return;
        }
    }
    *y = 1.0;
}

LAW_UNARY_FUNCTION_DEF(set_law, "SET", "no_maple")

void set_law::evaluate(const double* x, double* y) const {
    *y = fsub()->evaluateM_R(x) > 0.0 ? 1.0 : 0.0;
}

// SET(g)' = 0
law* set_law::deriv(int) const {
    return VORX_NEW constant_law(0.0);
}

// ================================================================ logarithm, exponential

LAW_FAST_UNARY_FUNCTION_DEF(natural_log_law, op_ln, "LN", "ln")

void natural_log_law::evaluate(const double* x, double* y) const {
    double v = fsub()->evaluateM_R(x);
    if (v <= 0.0) sys_error(LAW_LN);
    *y = std::log(v);
}

int natural_log_law::in_domain(const double* x) const {
    return unary_law::in_domain(x) && fsub()->evaluateM_R(x) > 0.0;
}

// LN(g)' = g' / g
law* natural_log_law::deriv(int which) const {
    law_holder gp(fsub()->derivative(which));
    return VORX_NEW division_law(gp.get(), fsub());
}

LAW_FAST_UNARY_FUNCTION_DEF(exp_law, op_exp, "EXP", "exp")

void exp_law::evaluate(const double* x, double* y) const {
    *y = std::exp(fsub()->evaluateM_R(x));
}

// Beyond 100 the values grow too fast for root finders and approximation to follow.
int exp_law::in_domain(const double* x) const {
    return unary_law::in_domain(x) && fsub()->evaluateM_R(x) < 100.0;
}

// EXP(g)' = EXP(g) * g'
law* exp_law::deriv(int which) const {
    return chain(op<exp_law>(arg_of(this)), this, which);
}

// ================================================================ rounding, rand

LAW_UNARY_FUNCTION_DEF(floor_law, "FLOOR", "floor")

void floor_law::evaluate(const double* x, double* y) const {
    *y = std::floor(fsub()->evaluateM_R(x));
}

// FLOOR(g)' = 0 (the jumps are ignored)
law* floor_law::deriv(int) const {
    return VORX_NEW constant_law(0.0);
}

LAW_UNARY_FUNCTION_DEF(ceil_law, "CEIL", "ceil")

void ceil_law::evaluate(const double* x, double* y) const {
    *y = std::ceil(fsub()->evaluateM_R(x));
}

// CEIL(g)' = 0 (the jumps are ignored)
law* ceil_law::deriv(int) const {
    return VORX_NEW constant_law(0.0);
}

LAW_UNARY_FUNCTION_DEF(rand_law, "RAND", "rand")

// The fraction of 100*cos(g): repeatable, so a law's value depends only on its input.
void rand_law::evaluate(const double* x, double* y) const {
    double w = 100.0 * std::cos(fsub()->evaluateM_R(x));
    *y = w - std::floor(w);
}

// ================================================================ sin, cos

LAW_FAST_UNARY_FUNCTION_DEF(sin_law, op_sin, "SIN", "sin")

void sin_law::evaluate(const double* x, double* y) const {
    *y = std::sin(fsub()->evaluateM_R(x));
}

// SIN(g)' = COS(g) * g'
law* sin_law::deriv(int which) const {
    return chain(op<cos_law>(arg_of(this)), this, which);
}

namespace {

// The argument of F(-c*A) with c > 0 rewritten as c*A (A itself for c = 1); null when
// the argument carries no negative constant factor.  -A counts as -1*A.
law* positive_argument(const law* arg) {
    if (arg->isa(negate_law::id()))
        return law_holder::share(static_cast<const unary_law*>(arg)->fsub()).release();
    if (!arg->isa(times_law::id())) return nullptr;
    law_holder rest;
    double c = simplify_coefficient(arg, rest);
    if (!rest || !(c < 0.0)) return nullptr;
    if (c == -1.0) return rest.release();
    law_holder positive(VORX_NEW constant_law(-c));
    return VORX_NEW times_law(positive.get(), rest.get());
}

}  // namespace

// sin(-CA)=-sin(CA): sine is odd
law* sin_law::sub_simplify(int, const char*& what) const {
    law_holder arg(positive_argument(sub_));
    if (!arg) return nullptr;
    law_holder s(VORX_NEW sin_law(arg.get()));
    return simplify_fired(VORX_NEW negate_law(s.get()), what, "sin(-CA)=-sin(CA)");
}

LAW_FAST_UNARY_FUNCTION_DEF(cos_law, op_cos, "COS", "cos")

void cos_law::evaluate(const double* x, double* y) const {
    *y = std::cos(fsub()->evaluateM_R(x));
}

// COS(g)' = -(SIN(g)) * g'
law* cos_law::deriv(int which) const {
    return chain(op<negate_law>(op<sin_law>(arg_of(this))), this, which);
}

// cos(-CA)=cos(CA): cosine is even
law* cos_law::sub_simplify(int, const char*& what) const {
    law_holder arg(positive_argument(sub_));
    if (!arg) return nullptr;
    return simplify_fired(VORX_NEW cos_law(arg.get()), what, "cos(-CA)=cos(CA)");
}

// ================================================================ tan, sec

LAW_UNARY_FUNCTION_DEF(tan_law, "TAN", "tan")

void tan_law::evaluate(const double* x, double* y) const {
    double v = reduce_by_half_pi(fsub()->evaluateM_R(x));
    if (is_equal(v, half_pi)) sys_error(LAW_TAN);
    *y = std::tan(v);
}

int tan_law::in_domain(const double* x) const {
    return unary_law::in_domain(x) &&
           !is_equal(reduce_by_pi_centered(fsub()->evaluateM_R(x)), half_pi);
}

// TAN(g)' = (SEC(g) * SEC(g)) * g'
law* tan_law::deriv(int which) const {
    law_holder s = op<sec_law>(arg_of(this));
    return chain(op<times_law>(s, s), this, which);
}

LAW_UNARY_FUNCTION_DEF(sec_law, "SEC", "sec")

void sec_law::evaluate(const double* x, double* y) const {
    double v = reduce_by_half_pi(fsub()->evaluateM_R(x));
    if (is_equal(v, half_pi)) sys_error(LAW_SEC);
    *y = 1.0 / std::cos(v);
}

int sec_law::in_domain(const double* x) const {
    return unary_law::in_domain(x) &&
           !is_equal(reduce_by_pi_centered(fsub()->evaluateM_R(x)), half_pi);
}

// SEC(g)' = (SEC(g) * TAN(g)) * g'
law* sec_law::deriv(int which) const {
    law_holder g = arg_of(this);
    return chain(op<times_law>(op<sec_law>(g), op<tan_law>(g)), this, which);
}

// ================================================================ cot, csc

LAW_UNARY_FUNCTION_DEF(cot_law, "COT", "cot")

void cot_law::evaluate(const double* x, double* y) const {
    double v = fsub()->evaluateM_R(x);
    if (near_multiple_of_pi(v)) sys_error(LAW_COT);
    *y = 1.0 / std::tan(v);
}

int cot_law::in_domain(const double* x) const {
    return unary_law::in_domain(x) && !is_equal(reduce_by_pi_positive(fsub()->evaluateM_R(x)), 0.0);
}

// COT(g)' = -(CSC(g) * CSC(g)) * g'
law* cot_law::deriv(int which) const {
    law_holder c = op<csc_law>(arg_of(this));
    return chain(op<negate_law>(op<times_law>(c, c)), this, which);
}

LAW_UNARY_FUNCTION_DEF(csc_law, "CSC", "csc")

void csc_law::evaluate(const double* x, double* y) const {
    double v = fsub()->evaluateM_R(x);
    if (near_multiple_of_pi(v)) sys_error(LAW_CSC);
    *y = 1.0 / std::sin(v);
}

int csc_law::in_domain(const double* x) const {
    return unary_law::in_domain(x) && !is_equal(reduce_by_pi_positive(fsub()->evaluateM_R(x)), 0.0);
}

// CSC(g)' = -(CSC(g) * COT(g)) * g'
law* csc_law::deriv(int which) const {
    law_holder g = arg_of(this);
    return chain(op<negate_law>(op<times_law>(op<csc_law>(g), op<cot_law>(g))), this, which);
}

// ================================================================ arcsin, arccos

LAW_UNARY_FUNCTION_DEF(arcsin_law, "ARCSIN", "arcsin")

void arcsin_law::evaluate(const double* x, double* y) const {
    double v = fsub()->evaluateM_R(x);
    if (v < -1.0 || v > 1.0) sys_error(LAW_ARCSIN);
    *y = std::asin(v);
}

int arcsin_law::in_domain(const double* x) const {
    if (!unary_law::in_domain(x)) return 0;
    double v = fsub()->evaluateM_R(x);
    return v >= -1.0 && v <= 1.0;
}

int arcsin_law::term_domain(int, interval& dom) const {
    return unit_term_domain(dom);
}

// ARCSIN(g)' = (1 / SQRT(1 - g*g)) * g'
law* arcsin_law::deriv(int which) const {
    law_holder g = arg_of(this);
    law_holder root = op<sqrt_law>(op<minus_law>(num(1.0), op<times_law>(g, g)));
    return chain(op<division_law>(num(1.0), root), this, which);
}

LAW_UNARY_FUNCTION_DEF(arccos_law, "ARCCOS", "arccos")

void arccos_law::evaluate(const double* x, double* y) const {
    double v = fsub()->evaluateM_R(x);
    if (v < -1.0 || v > 1.0) sys_error(LAW_ARCCOS);
    *y = std::acos(v);
}

int arccos_law::in_domain(const double* x) const {
    if (!unary_law::in_domain(x)) return 0;
    double v = fsub()->evaluateM_R(x);
    return v >= -1.0 && v <= 1.0;
}

// The arguments at which g runs from -1 to 1; the argument's own domain when g cannot be
// inverted.
int arccos_law::term_domain(int which, interval& dom) const {
    if (argument_interval(fsub(), -1.0, 1.0, dom)) return 1;
    return unary_law::term_domain(which, dom);
}

// ARCCOS(g)' = -(1 / SQRT(1 - g*g)) * g'
law* arccos_law::deriv(int which) const {
    law_holder g = arg_of(this);
    law_holder root = op<sqrt_law>(op<minus_law>(num(1.0), op<times_law>(g, g)));
    return chain(op<negate_law>(op<division_law>(num(1.0), root)), this, which);
}

// ================================================================ arccot, arcsec, arccsc

LAW_UNARY_FUNCTION_DEF(arccot_law, "ARCCOT", "arccot")

// Deliberate, kept for compatibility of values: pi is added for every non-zero g, so
// ARCCOT(1) is 5*pi/4.
void arccot_law::evaluate(const double* x, double* y) const {
    double v = fsub()->evaluateM_R(x);
    *y = v == 0.0 ? half_pi : std::atan(1.0 / v) + pi;
}

// ARCCOT(g)' = -(1 / (1 + g*g)) * g'
law* arccot_law::deriv(int which) const {
    law_holder g = arg_of(this);
    law_holder sum = op<plus_law>(num(1.0), op<times_law>(g, g));
    return chain(op<negate_law>(op<division_law>(num(1.0), sum)), this, which);
}

LAW_UNARY_FUNCTION_DEF(arcsec_law, "ARCSEC", "arcsec")

// Deliberate, kept for compatibility of values: the negated principal value.
void arcsec_law::evaluate(const double* x, double* y) const {
    double v = fsub()->evaluateM_R(x);
    if (v > -1.0 && v < 1.0) sys_error(LAW_ARCSEC);
    double u = 1.0 / v;
    *y = u > 1.0 ? -0.0 : u < -1.0 ? -pi : -std::acos(u);
}

int arcsec_law::in_domain(const double* x) const {
    if (!unary_law::in_domain(x)) return 0;
    double v = fsub()->evaluateM_R(x);
    return v <= -1.0 || v >= 1.0;
}

// ARCSEC(g)' = (1 / (g * SQRT(g*g - 1))) * g'  (the principal branch's, kept)
law* arcsec_law::deriv(int which) const {
    law_holder g = arg_of(this);
    law_holder root = op<sqrt_law>(op<minus_law>(op<times_law>(g, g), num(1.0)));
    return chain(op<division_law>(num(1.0), op<times_law>(g, root)), this, which);
}

LAW_UNARY_FUNCTION_DEF(arccsc_law, "ARCCSC", "arccsc")

// Deliberate, kept for compatibility of values: -pi minus the principal value.
void arccsc_law::evaluate(const double* x, double* y) const {
    double v = fsub()->evaluateM_R(x);
    if (v > -1.0 && v < 1.0) sys_error(LAW_ARCCSC);
    double u = 1.0 / v;
    double principal = u > 1.0 ? half_pi : u < -1.0 ? -half_pi : std::asin(u);
    *y = -pi - principal;
}

int arccsc_law::in_domain(const double* x) const {
    if (!unary_law::in_domain(x)) return 0;
    double v = fsub()->evaluateM_R(x);
    return v <= -1.0 || v >= 1.0;
}

// ARCCSC(g)' = -(1 / (g * SQRT(g*g - 1))) * g'  (the principal branch's, kept)
law* arccsc_law::deriv(int which) const {
    law_holder g = arg_of(this);
    law_holder root = op<sqrt_law>(op<minus_law>(op<times_law>(g, g), num(1.0)));
    return chain(op<negate_law>(op<division_law>(num(1.0), op<times_law>(g, root))), this, which);
}

// ================================================================ sinh, cosh, tanh

LAW_FAST_UNARY_FUNCTION_DEF(sinh_law, op_sinh, "SINH", "sinh")

void sinh_law::evaluate(const double* x, double* y) const {
    *y = std::sinh(fsub()->evaluateM_R(x));
}

int sinh_law::in_domain(const double* x) const {
    return unary_law::in_domain(x) && std::fabs(fsub()->evaluateM_R(x)) < 200.0;
}

// SINH(g)' = COSH(g) * g'
law* sinh_law::deriv(int which) const {
    return chain(op<cosh_law>(arg_of(this)), this, which);
}

LAW_FAST_UNARY_FUNCTION_DEF(cosh_law, op_cosh, "COSH", "cosh")

void cosh_law::evaluate(const double* x, double* y) const {
    *y = std::cosh(fsub()->evaluateM_R(x));
}

int cosh_law::in_domain(const double* x) const {
    return unary_law::in_domain(x) && std::fabs(fsub()->evaluateM_R(x)) < 200.0;
}

// COSH(g)' = SINH(g) * g'
law* cosh_law::deriv(int which) const {
    return chain(op<sinh_law>(arg_of(this)), this, which);
}

LAW_FAST_UNARY_FUNCTION_DEF(tanh_law, op_tanh, "TANH", "tanh")

void tanh_law::evaluate(const double* x, double* y) const {
    *y = std::tanh(fsub()->evaluateM_R(x));
}

// TANH(g)' = (SECH(g) * SECH(g)) * g'
law* tanh_law::deriv(int which) const {
    law_holder s = op<sech_law>(arg_of(this));
    return chain(op<times_law>(s, s), this, which);
}

// ================================================================ coth, sech, csch

LAW_UNARY_FUNCTION_DEF(coth_law, "COTH", "coth")

void coth_law::evaluate(const double* x, double* y) const {
    double v = fsub()->evaluateM_R(x);
    if (std::fabs(v) < 1e-10) sys_error(LAW_COTH);
    *y = 1.0 / std::tanh(v);
}

int coth_law::in_domain(const double* x) const {
    return unary_law::in_domain(x) && !is_equal(fsub()->evaluateM_R(x), 0.0);
}

// COTH(g)' = -(CSCH(g) * CSCH(g)) * g'
law* coth_law::deriv(int which) const {
    law_holder c = op<csch_law>(arg_of(this));
    return chain(op<negate_law>(op<times_law>(c, c)), this, which);
}

LAW_UNARY_FUNCTION_DEF(sech_law, "SECH", "sech")

// Beyond |g| > 200 the value is 0 exactly rather than a denormal.
void sech_law::evaluate(const double* x, double* y) const {
    double v = fsub()->evaluateM_R(x);
    *y = v > 200.0 || v < -200.0 ? 0.0 : 1.0 / std::cosh(v);
}

// SECH(g)' = -(SECH(g) * TANH(g)) * g'
law* sech_law::deriv(int which) const {
    law_holder g = arg_of(this);
    return chain(op<negate_law>(op<times_law>(op<sech_law>(g), op<tanh_law>(g))), this, which);
}

LAW_UNARY_FUNCTION_DEF(csch_law, "CSCH", "csch")

// Beyond |g| > 200 the value is 0 exactly rather than a denormal.
void csch_law::evaluate(const double* x, double* y) const {
    double v = fsub()->evaluateM_R(x);
    if (std::fabs(v) < 1e-10) sys_error(LAW_CSCH);
    *y = v > 200.0 || v < -200.0 ? 0.0 : 1.0 / std::sinh(v);
}

int csch_law::in_domain(const double* x) const {
    return unary_law::in_domain(x) && !is_equal(fsub()->evaluateM_R(x), 0.0);
}

// CSCH(g)' = -(CSCH(g) * COTH(g)) * g'
law* csch_law::deriv(int which) const {
    law_holder g = arg_of(this);
    return chain(op<negate_law>(op<times_law>(op<csch_law>(g), op<coth_law>(g))), this, which);
}

// ================================================================ arcsinh, arccosh, arctanh

LAW_UNARY_FUNCTION_DEF(arcsinh_law, "ARCSINH", "arcsinh")

// ln(v + sqrt(v*v + 1)), computed without its cancellation for v < 0 and its overflow for
// large |v|.
void arcsinh_law::evaluate(const double* x, double* y) const {
    double v = fsub()->evaluateM_R(x);
    *y = std::asinh(v);
}

// ARCSINH(g)' = (1 / SQRT(1 + g*g)) * g'
law* arcsinh_law::deriv(int which) const {
    law_holder g = arg_of(this);
    law_holder root = op<sqrt_law>(op<plus_law>(num(1.0), op<times_law>(g, g)));
    return chain(op<division_law>(num(1.0), root), this, which);
}

LAW_UNARY_FUNCTION_DEF(arccosh_law, "ARCCOSH", "arccosh")

void arccosh_law::evaluate(const double* x, double* y) const {
    double v = fsub()->evaluateM_R(x);
    if (v < 1.0) sys_error(LAW_ARCCOSH);
    // ln(v + sqrt(v*v - 1)), without its overflow for large v.
    *y = std::acosh(v);
}

// The arguments at which g >= 1: a half line from where g is 1; the argument's own
// domain when g cannot be inverted.
int arccosh_law::term_domain(int which, interval& dom) const {
    if (argument_half_line(fsub(), 1.0, dom)) return 1;
    return unary_law::term_domain(which, dom);
}

// ARCCOSH(g)' = (1 / SQRT(g*g - 1)) * g'
law* arccosh_law::deriv(int which) const {
    law_holder g = arg_of(this);
    law_holder root = op<sqrt_law>(op<minus_law>(op<times_law>(g, g), num(1.0)));
    return chain(op<division_law>(num(1.0), root), this, which);
}

LAW_UNARY_FUNCTION_DEF(arctanh_law, "ARCTANH", "arctanh")

void arctanh_law::evaluate(const double* x, double* y) const {
    double v = fsub()->evaluateM_R(x);
    if (!(v > -1.0 && v < 1.0)) sys_error(LAW_ARCTANH);
    // 0.5 * ln((1 + v) / (1 - v)), without its loss of every digit for small |v|.
    *y = std::atanh(v);
}

int arctanh_law::in_domain(const double* x) const {
    if (!unary_law::in_domain(x)) return 0;
    double v = fsub()->evaluateM_R(x);
    return v > -1.0 && v < 1.0;
}

int arctanh_law::term_domain(int, interval& dom) const {
    return unit_term_domain(dom);
}

// ARCTANH(g)' = (1 / (1 - g*g)) * g'
law* arctanh_law::deriv(int which) const {
    law_holder g = arg_of(this);
    law_holder diff = op<minus_law>(num(1.0), op<times_law>(g, g));
    return chain(op<division_law>(num(1.0), diff), this, which);
}

// ================================================================ arccoth, arcsech, arccsch

LAW_UNARY_FUNCTION_DEF(arccoth_law, "ARCCOTH", "arccoth")

void arccoth_law::evaluate(const double* x, double* y) const {
    double v = fsub()->evaluateM_R(x);
    if (v >= -1.0 && v <= 1.0) sys_error(LAW_ARCCOTH);
    // 0.5 * ln((v + 1) / (v - 1)) = 0.5 * ln(1 + 2 / (|v| - 1)) with the sign of v: log1p
    // keeps the digits the quotient near 1 loses for large |v|, and |v| - 1 is exact
    // near 1, where the function is steep.
    double a = std::fabs(v);
    *y = std::copysign(0.5 * std::log1p(2.0 / (a - 1.0)), v);
}

int arccoth_law::in_domain(const double* x) const {
    if (!unary_law::in_domain(x)) return 0;
    double v = fsub()->evaluateM_R(x);
    return v < -1.0 || v > 1.0;
}

// ARCCOTH(g)' = (1 / (1 - g*g)) * g'
law* arccoth_law::deriv(int which) const {
    law_holder g = arg_of(this);
    law_holder diff = op<minus_law>(num(1.0), op<times_law>(g, g));
    return chain(op<division_law>(num(1.0), diff), this, which);
}

LAW_UNARY_FUNCTION_DEF(arcsech_law, "ARCSECH", "arcsech")

// Deliberate, kept for compatibility of values: the division follows the logarithm.
void arcsech_law::evaluate(const double* x, double* y) const {
    double v = fsub()->evaluateM_R(x);
    if (!(v > 0.0 && v <= 1.0)) sys_error(LAW_ARCSECH);
    *y = std::log(1.0 + std::sqrt(1.0 - v * v)) / v;
}

int arcsech_law::in_domain(const double* x) const {
    if (!unary_law::in_domain(x)) return 0;
    double v = fsub()->evaluateM_R(x);
    return v > 0.0 && v <= 1.0;
}

// The arguments at which g runs from 0 to 1; the argument's own domain when g cannot be
// inverted.
int arcsech_law::term_domain(int which, interval& dom) const {
    if (argument_interval(fsub(), 0.0, 1.0, dom)) return 1;
    return unary_law::term_domain(which, dom);
}

// ARCSECH(g)' = (-1 / (g * SQRT(1 - g*g))) * g'
law* arcsech_law::deriv(int which) const {
    law_holder g = arg_of(this);
    law_holder root = op<sqrt_law>(op<minus_law>(num(1.0), op<times_law>(g, g)));
    return chain(op<division_law>(num(-1.0), op<times_law>(g, root)), this, which);
}

LAW_UNARY_FUNCTION_DEF(arccsch_law, "ARCCSCH", "arccsch")

void arccsch_law::evaluate(const double* x, double* y) const {
    double v = fsub()->evaluateM_R(x);
    if (std::fabs(v) < 1e-10) sys_error(LAW_ARCCSCH);
    // v > 0: ln((1 + sqrt(1 + v*v)) / v); v < 0: ln((1 - sqrt(1 + v*v)) / v).  Both are
    // asinh(1 / v), which keeps the digits the second loses to cancellation and has no
    // overflow of v*v.
    *y = std::asinh(1.0 / v);
}

int arccsch_law::in_domain(const double* x) const {
    return unary_law::in_domain(x) && !is_equal(fsub()->evaluateM_R(x), 0.0);
}

// ARCCSCH(g)' = (-1 / (ABS(g) * SQRT(1 + g*g))) * g'
law* arccsch_law::deriv(int which) const {
    law_holder g = arg_of(this);
    law_holder root = op<sqrt_law>(op<plus_law>(num(1.0), op<times_law>(g, g)));
    return chain(op<division_law>(num(-1.0), op<times_law>(op<abs_law>(g), root)), this, which);
}

// ================================================================ abs, sqrt

LAW_FAST_UNARY_FUNCTION_DEF(abs_law, op_abs, "ABS", "abs")

void abs_law::evaluate(const double* x, double* y) const {
    *y = std::fabs(fsub()->evaluateM_R(x));
}

// ABS(g)' = SET(g) * g' - (1 - SET(g)) * g'
law* abs_law::deriv(int which) const {
    law_holder s = op<set_law>(arg_of(this));
    law_holder gp(fsub()->derivative(which));
    law_holder up = op<times_law>(s, gp);
    law_holder down = op<times_law>(op<minus_law>(num(1.0), s), gp);
    return VORX_NEW minus_law(up.get(), down.get());
}

LAW_FAST_UNARY_FUNCTION_DEF(sqrt_law, op_sqrt, "SQRT", "sqrt")

void sqrt_law::evaluate(const double* x, double* y) const {
    double v = fsub()->evaluateM_R(x);
    if (v < 0.0) sys_error(LAW_SQRT);
    *y = std::sqrt(v);
}

int sqrt_law::in_domain(const double* x) const {
    return unary_law::in_domain(x) && fsub()->evaluateM_R(x) >= 0.0;
}

// SQRT(g)' = (1 / (2 * SQRT(g))) * g'
law* sqrt_law::deriv(int which) const {
    law_holder twice = op<times_law>(num(2.0), op<sqrt_law>(arg_of(this)));
    return chain(op<division_law>(num(1.0), twice), this, which);
}

// sqrt(x)=x^.5: powers merge with other powers
law* sqrt_law::sub_simplify(int, const char*& what) const {
    if (sub_->return_dim() != 1) return nullptr;
    law_holder half(VORX_NEW constant_law(0.5));
    return simplify_fired(VORX_NEW exponent_law(sub_, half.get()), what, "sqrt(x)=x^.5");
}

// ================================================================ singular points

namespace {

// The points where the linear g is a non-zero multiple of pi/2.  TAN and SEC reduce their
// argument by whole steps of pi/2 (not the period), so each such multiple is a pole on
// one side at least (TAN(X) runs to +inf below pi and restarts from 0 above it).
void add_half_pi_multiples(singularity_list& s, const law* g) {
    double c, slope;
    if (!linear_coefficients(g, c, slope)) return;
    int first = s.count();
    s.add_linear_lattice(g, 0.0, half_pi, law_singular_pole);
    s.keep_from(first, [&](double x) { return std::fabs(c + slope * x) > 0.25 * half_pi; });
}

}  // namespace

// Each member answers over an argument linear in the input; anything else has none here.
#define LAW_UNARY_SINGULARITIES(cls, statement)                                               \
    int cls::singularities(double** where, int** kind, double lo, double hi, double** period) \
        const {                                                                               \
        singularity_list s(lo, hi);                                                           \
        statement;                                                                            \
        return s.finish(where, kind, period);                                                 \
    }

// TAN, SEC: poles where the argument is a non-zero multiple of pi/2
LAW_UNARY_SINGULARITIES(tan_law, add_half_pi_multiples(s, fsub()))
LAW_UNARY_SINGULARITIES(sec_law, add_half_pi_multiples(s, fsub()))
// COT, CSC: poles where the argument is k*pi
LAW_UNARY_SINGULARITIES(cot_law, s.add_linear_lattice(fsub(), 0.0, pi, law_singular_pole))
LAW_UNARY_SINGULARITIES(csc_law, s.add_linear_lattice(fsub(), 0.0, pi, law_singular_pole))
// COTH, CSCH: a pole where the argument is 0
LAW_UNARY_SINGULARITIES(coth_law, s.add_linear_zero(fsub(), law_singular_pole))
LAW_UNARY_SINGULARITIES(csch_law, s.add_linear_zero(fsub(), law_singular_pole))
// FLOOR, CEIL: jumps where the argument is whole
LAW_UNARY_SINGULARITIES(floor_law, s.add_linear_lattice(fsub(), 0.0, 1.0, law_singular_jump))
LAW_UNARY_SINGULARITIES(ceil_law, s.add_linear_lattice(fsub(), 0.0, 1.0, law_singular_jump))
// ABS: a kink where the argument is 0
LAW_UNARY_SINGULARITIES(abs_law, s.add_linear_zero(fsub(), law_singular_break))

// ================================================================ registration

static law_prototype<not_law> not_law_prototype(nullptr);
static law_prototype<even_law> even_law_prototype(nullptr);
static law_prototype<odd_law> odd_law_prototype(nullptr);
static law_prototype<int_law> int_law_prototype(nullptr);
static law_prototype<prime_law> prime_law_prototype(nullptr);
static law_prototype<set_law> set_law_prototype(nullptr);
static law_prototype<natural_log_law> natural_log_law_prototype(nullptr);
static law_prototype<exp_law> exp_law_prototype(nullptr);
static law_prototype<floor_law> floor_law_prototype(nullptr);
static law_prototype<ceil_law> ceil_law_prototype(nullptr);
static law_prototype<rand_law> rand_law_prototype(nullptr);
static law_prototype<sin_law> sin_law_prototype(nullptr);
static law_prototype<cos_law> cos_law_prototype(nullptr);
static law_prototype<tan_law> tan_law_prototype(nullptr);
static law_prototype<cot_law> cot_law_prototype(nullptr);
static law_prototype<sec_law> sec_law_prototype(nullptr);
static law_prototype<csc_law> csc_law_prototype(nullptr);
static law_prototype<arcsin_law> arcsin_law_prototype(nullptr);
static law_prototype<arccos_law> arccos_law_prototype(nullptr);
static law_prototype<arccot_law> arccot_law_prototype(nullptr);
static law_prototype<arcsec_law> arcsec_law_prototype(nullptr);
static law_prototype<arccsc_law> arccsc_law_prototype(nullptr);
static law_prototype<sinh_law> sinh_law_prototype(nullptr);
static law_prototype<cosh_law> cosh_law_prototype(nullptr);
static law_prototype<tanh_law> tanh_law_prototype(nullptr);
static law_prototype<coth_law> coth_law_prototype(nullptr);
static law_prototype<sech_law> sech_law_prototype(nullptr);
static law_prototype<csch_law> csch_law_prototype(nullptr);
static law_prototype<arcsinh_law> arcsinh_law_prototype(nullptr);
static law_prototype<arccosh_law> arccosh_law_prototype(nullptr);
static law_prototype<arctanh_law> arctanh_law_prototype(nullptr);
static law_prototype<arccoth_law> arccoth_law_prototype(nullptr);
static law_prototype<arcsech_law> arcsech_law_prototype(nullptr);
static law_prototype<arccsch_law> arccsch_law_prototype(nullptr);
static law_prototype<abs_law> abs_law_prototype(nullptr);
static law_prototype<sqrt_law> sqrt_law_prototype(nullptr);

}  // namespace lawutil
