// The arithmetic and composition laws and the named constants.
//
// Evaluation is the hot path of every numerical routine.  When every operand is scalar,
// a plain evaluation (no side, no guess) runs through arith_evaluator below: no buffer,
// no virtual call per arithmetic node, sums and products as loops, with the bits and the
// errors of the recursive evaluate, which the side path still runs.  Only vector
// operands use scratch storage, on the stack up to 4 components.  A side given by the caller is
// passed on to the operands (it concerns the inputs, which the operands share); a guess
// is not, since it is a guess for this law's value, not for theirs.
#include "lawutil/main_law_arith.hpp"

#include <cmath>
#include <new>
#include <utility>

#include "base/tolerance.hpp"
#include "lawutil/law_unary.hpp"
#include "lawutil/law_vector.hpp"
#include "lawutil/main_law.hpp"
#include "lawutil/polylaw.hpp"
#include "lawutil/root.hpp"
#include "lawutil/simplfy.hpp"

using namespace vorx;

namespace lawutil {

LAWUTIL_TYPE_DEF(plus_law)
LAWUTIL_TYPE_DEF(minus_law)
LAWUTIL_TYPE_DEF(times_law)
LAWUTIL_TYPE_DEF(division_law)
LAWUTIL_TYPE_DEF(exponent_law)
LAWUTIL_TYPE_DEF(negate_law)
LAWUTIL_TYPE_DEF(composite_law)
LAWUTIL_TYPE_DEF(pi_law)
LAWUTIL_TYPE_DEF(e_law)
LAWUTIL_TYPE_DEF(true_law)
LAWUTIL_TYPE_DEF(false_law)

namespace {

// Below this, a numerator and a denominator are both taken as zero.
constexpr double tiny = 1e-15;

// Operand values: up to 4 on the stack, more from tracked memory, freed when the buffer
// goes (also when an error passes).
class scratch {
  public:
    explicit scratch(int n) : p_(n <= 4 ? small_ : VORX_ALLOC_ARRAY(double, n)) {}
    ~scratch() {
        if (p_ != small_) VORX_FREE(p_);
    }
    scratch(const scratch&) = delete;
    scratch& operator=(const scratch&) = delete;
    double* get() { return p_; }
    double& operator[](int i) { return p_[i]; }

  private:
    double small_[4];
    double* p_;
};

// An array handed over by evaluateVAR, freed when the holder goes.
class owned_values {
  public:
    explicit owned_values(double* p = nullptr) : p_(p) {}
    ~owned_values() { VORX_FREE(p_); }
    owned_values(const owned_values&) = delete;
    owned_values& operator=(const owned_values&) = delete;
    double* get() const { return p_; }

  private:
    double* p_;
};

// How operands are asked for their values: plainly, or with the caller's side.
struct plain_reader {
    double scalar(const law* l, const double* x) const { return l->evaluateM_R(x); }
    void values(const law* l, const double* x, double* y) const { l->evaluate(x, y); }
};

struct side_reader {
    const int* side;
    double scalar(const law* l, const double* x) const { return l->evaluateM_R(x, side); }
    void values(const law* l, const double* x, double* y) const {
        l->evaluate_with_side(x, y, side);
    }
};

// ---------------------------------------------------------------- vector paths

// Component i is (A[i] or 0) +/- (B[i] or 0): a scalar added to a vector changes only
// its first component (deliberate, kept for compatibility of values).
template <class R>
void combine_components(const binary_law* l, const double* x, double* y, const R& r,
                        bool subtract) {
    const law* a_law = l->fleft();
    const law* b_law = l->fright();
    int na = a_law->return_dim();
    int nb = b_law->return_dim();
    int n = l->return_dim();
    scratch a(na), b(nb);
    r.values(a_law, x, a.get());
    r.values(b_law, x, b.get());
    for (int i = 0; i < n; ++i) {
        double ai = i < na ? a[i] : 0.0;
        double bi = i < nb ? b[i] : 0.0;
        y[i] = subtract ? ai - bi : ai + bi;
    }
}

// Every component of the vector side times the scalar side.
template <class R>
void scale_components(const binary_law* l, const double* x, double* y, const R& r) {
    const law* a_law = l->fleft();
    const law* b_law = l->fright();
    int na = a_law->return_dim();
    int nb = b_law->return_dim();
    if (na > 1 && nb > 1) sys_error(LAW_TIMES);
    int n = l->return_dim();
    scratch a(na), b(nb);
    r.values(a_law, x, a.get());
    r.values(b_law, x, b.get());
    if (na > 1) {
        double s = nb > 0 ? b[0] : 0.0;
        for (int i = 0; i < n; ++i) y[i] = a[i] * s;
    } else {
        double s = na > 0 ? a[0] : 0.0;
        for (int i = 0; i < n; ++i) y[i] = s * (i < nb ? b[i] : 0.0);
    }
}

// A vector over a scalar.  The denominator is clamped away from zero instead of
// resolving 0/0, so [X,X]/X at 0 is [0,0] and this path never raises.
template <class R>
void divide_components(const binary_law* l, const double* x, double* y, const R& r) {
    const law* a_law = l->fleft();
    int na = a_law->return_dim();
    int n = l->return_dim();
    scratch a(na);
    r.values(a_law, x, a.get());
    double b = r.scalar(l->fright(), x);
    if (b >= 0.0 && b < tiny)
        b = tiny;
    else if (b < 0.0 && b > -tiny)
        b = -tiny;
    for (int i = 0; i < n; ++i) y[i] = (i < na ? a[i] : 0.0) / b;
}

template <class R>
void negate_components(const law* sub, const double* x, double* y, const R& r) {
    int n = sub->return_dim();
    r.values(sub, x, y);
    for (int i = 0; i < n; ++i) y[i] = -y[i];
}

// ---------------------------------------------------------------- scalar rules

// One L'Hospital step on N/D at x: N'(x)/D'(x) in the first input.  The caller resets the
// thread's depth counter before the first step.  sys_error does not return, so a 0/0
// that persists after one differentiation is final: no deeper step is ever taken.
template <class R>
double lhospital_step(const law* num, const law* den, const double* x, const R& r) {
    if (++law_context().law.lhospital_depth > 3) sys_error(LAW_LHOSPITAL);
    law_holder dn(num->derivative(0));
    law_holder dd(den->derivative(0));
    double a = r.scalar(dn.get(), x);
    double b = r.scalar(dd.get(), x);
    if (std::fabs(a) >= tiny || std::fabs(b) >= tiny) return a / b;
    sys_error(LAW_LHOSPITAL);
}

template <class R>
double quotient(const binary_law* l, const double* x, const R& r) {
    double a = r.scalar(l->fleft(), x);
    double b = r.scalar(l->fright(), x);
    if (std::fabs(a) < tiny && std::fabs(b) < tiny) {
        law_context().law.lhospital_depth = 0;
        return lhospital_step(l->fleft(), l->fright(), x, r);
    }
    // A zero denominator under a non-small numerator gives the infinity: nothing raised.
    return a / b;
}

[[noreturn]] void raise_exponent() {
    sys_error(LAW_EXPONENT);
}

// a^b.  A negative base needs an exactly integral exponent here (in_domain is looser).
// a^n for a small whole n >= 3, by multiplication carried in two doubles (the running
// product and its rounding error, kept exactly with fma), rounded once at the end.  The
// error stays below about 0.5 ulp + n * 2^-104 relative, so it agrees with pow to the
// last bit except within a hair of a rounding tie, at a third of pow's cost.  The loop
// runs from a^from to a^to on the running product hi and its error lo.
__attribute__((always_inline)) inline void compensated_power_loop(double a, double& hi, double& lo,
                                                                  int from, int to) {
    for (int i = from; i < to; ++i) {
        double p = hi * a;
        lo = std::fma(hi, a, -p) + lo * a;
        hi = p;
    }
}
__attribute__((always_inline)) inline double compensated_power_loop(double a, int n) {
    double hi = a, lo = 0.0;
    compensated_power_loop(a, hi, lo, 1, n);
    return hi + lo;
}

// Built twice, with and without the fma instruction, and picked by the processor when
// the library loads: a call into the math library for every fma costs more than pow
// saves.  (Chosen through a pointer rather than an ifunc, which would run before the
// sanitizers' runtimes are ready.)
__attribute__((target("fma"))) double compensated_power_fma(double a, int n) {
    return compensated_power_loop(a, n);
}
double compensated_power_plain(double a, int n) {
    return compensated_power_loop(a, n);
}

double (*pick_compensated_power())(double, int) {
    __builtin_cpu_init();
    return __builtin_cpu_supports("fma") ? compensated_power_fma : compensated_power_plain;
}

}  // namespace

// The tree's powers are the compiled form's too (main_law_arith.hpp).
double (*const compensated_power)(double, int) = pick_compensated_power();

namespace {

// The same loop continued from a^from (the running product hi and its error lo) to a^to,
// built and picked the same way, so a power continued from a lower one has the bits of
// one computed afresh.  Returns the rounded a^to and leaves the loop's state in *hi_out,
// *lo_out for a later continuation.
__attribute__((target("fma"))) double compensated_power_steps_fma(double a, double hi, double lo,
                                                                  int from, int to, double* hi_out,
                                                                  double* lo_out) {
    compensated_power_loop(a, hi, lo, from, to);
    *hi_out = hi;
    *lo_out = lo;
    return hi + lo;
}
double compensated_power_steps_plain(double a, double hi, double lo, int from, int to,
                                     double* hi_out, double* lo_out) {
    compensated_power_loop(a, hi, lo, from, to);
    *hi_out = hi;
    *lo_out = lo;
    return hi + lo;
}
}  // namespace

double (*const compensated_power_steps)(double, double, double, int, int, double*,
                                        double*) = __builtin_cpu_supports("fma")
                                                       ? compensated_power_steps_fma
                                                       : compensated_power_steps_plain;

namespace {

// The powers a^3 .. a^degree into powers[3..degree], each with the bits of
// compensated_power(a, k): the same loop, its state read out after every step.  Built
// and picked the same way.
__attribute__((always_inline)) inline void compensated_powers_loop(double a, int degree,
                                                                   double* powers) {
    double hi = a, lo = 0.0;
    compensated_power_loop(a, hi, lo, 1, 2);
    for (int k = 3; k <= degree; ++k) {
        compensated_power_loop(a, hi, lo, k - 1, k);
        powers[k] = hi + lo;
    }
}
__attribute__((target("fma"))) void compensated_powers_fma(double a, int degree, double* powers) {
    compensated_powers_loop(a, degree, powers);
}
void compensated_powers_plain(double a, int degree, double* powers) {
    compensated_powers_loop(a, degree, powers);
}
}  // namespace

void (*const compensated_powers)(double, int, double*) = __builtin_cpu_supports("fma")
                                                             ? compensated_powers_fma
                                                             : compensated_powers_plain;

namespace {

inline double power(double a, double b) {
    // The correctly rounded square, much cheaper than pow.
    if (b == 2.0) return a * a;
    if ((a == 0.0 && b <= 0.0) || (a < 0.0 && b != std::trunc(b))) raise_exponent();
    // Whole powers of finite bases that stay well inside the double range.
    if (b >= 3.0 && b <= max_compensated_power && b == std::trunc(b) && compensated_range(a))
        return compensated_power(a, (int)b);
    return std::pow(a, b);
}

// ---------------------------------------------------------------- composition

// The inner value, padded with zeros when the outer law reads more inputs than the
// inner law gives.
template <class R>
void inner_value(const law* outer, const law* inner, const double* x, scratch& v, int m,
                 const R& r) {
    r.values(inner, x, v.get());
    int k = outer->take_dim();
    for (int i = m; i < k; ++i) v[i] = 0.0;
}

// Padding covers an outer law that reads a few inputs more than the inner law gives; one
// that reads thousands more is malformed (X600000000 O X) and is refused.
constexpr int max_padding = 4096;

int inner_buffer_size(const law* outer, const law* inner) {
    int m = inner->return_dim();
    int k = outer->take_dim();
    if (k > m && k - m > max_padding) sys_error(LAW_DIM);
    return m > k ? m : k;
}

template <class R>
void compose(const binary_law* l, const double* x, double* y, const R& r) {
    const law* outer = l->fleft();
    const law* inner = l->fright();
    scratch v(inner_buffer_size(outer, inner));
    inner_value(outer, inner, x, v, inner->return_dim(), r);
    outer->evaluate(v.get(), y);
}

}  // namespace

double exponent_value(double a, double b) {
    return power(a, b);
}

// ================================================================ scalar arithmetic
//
// Arithmetic nodes whose operands all return one value are evaluated here without a
// virtual call per node: the node kind (arith_op) is set by the constructor, the shape
// of the operands is decided at the first evaluation and kept.  The operations, their
// operands and their order are those of the recursive evaluate, so the values and the
// errors raised are the same to the bit; only the calls between them are gone:
//  - a left-deep chain of +, - and * (how sums and products are read: 1+2*X+3*X^2+...
//    is ((1+2*X)+3*X^2)+...) runs as a loop: the left spine is walked down, its bottom
//    operand evaluated, then each node's right operand is combined on the way back up.
//    The spine is held on the stack, spine_depth nodes at a time: a deeper chain
//    continues through the evaluation of the bottom operand;
//  - A/B divides first; the zero-over-zero step is looked at only when B came out tiny;
//  - A^n for a constant whole n skips power()'s tests.  Powers of one variable met in
//    one evaluation (the terms of a polynomial) share their multiplication: the running
//    product and its error after X^3 are where X^4's loop would be after three steps,
//    so X^4 continues from them, with the same operations in the same order;
//  - a sum chain whose every term is c, V, V^k or c*V^k of one variable V (a polynomial
//    as the parser reads it) runs as two flat loops: V's powers, each rounded from the
//    same compensated product, then the terms, scaled and combined from the bottom of
//    the chain up.  Each sum's constructor reads its terms (power_sum_link; from three
//    terms on a block shared along the chain, power_sum_terms), so evaluating neither
//    allocates nor walks down the chain.  A quotient of two of them divides in place,
//    with the division's own zero-over-zero check;
//  - SQRT, LN, EXP, SIN, COS, SINH, COSH, TANH and ABS of a scalar argument are nodes of
//    this evaluator too (their constructors set arith_op): the argument is computed here,
//    a variable, c*V, V/c or V*W read in place (arg_form, decided with the form), then
//    the function's own test, code and library call, in its evaluate's order.  Neither
//    the function nor its argument costs a virtual call.

// Every term of a polynomial chain, bottom up, in one block after this header.  A sum
// built on a chain whose block ends with that chain's last term appends its own term
// there and shares the block (the terms below it never change); otherwise it copies
// them into a block of its own.  So a chain built up term by term, as the parser and the
// derivative rules build sums, keeps one block, doubled as it grows.
struct power_sum_terms {
    struct term {
        double c;
        signed char k;
        bool subtract;
    };
    int uses;
    int count;  // terms written: those of the longest chain sharing the block
    int capacity;
    term* terms;
};

class __attribute__((visibility("hidden"))) arith_evaluator {
  public:
    // One evaluation's input and the last whole power of a variable it computed.
    struct state {
        const double* x;
        int power_index = -1;  // the variable, -1 when none yet; the rest is set with it
        int power_n;           // hi + lo is the unrounded x^power_n
        double hi, lo;
    };

    // How a node is evaluated, decided once (law::eval_form).
    enum form : signed char {
        form_unknown = 0,
        form_recursive,  // an operand returns other than one value: the class's evaluate
        form_plus,
        form_minus,
        form_times,
        form_scaled,        // c*A, c a constant
        form_scaled_power,  // c*V^n, V^n of form_variable_power
        form_divide,
        form_square,           // A^2
        form_variable_square,  // V^2, V a variable
        form_variable_power,   // V^n, V a variable, n a constant whole from 3 to 16
        form_whole_power,      // A^n likewise, A any other law
        form_power,
        form_negate,
        // F(A) for a one-argument function F of arith_op op_sqrt .. op_abs, in that order:
        form_sqrt,
        form_ln,
        form_exp,
        form_sin,
        form_cos,
        form_sinh,
        form_cosh,
        form_tanh,
        form_abs,
        // Evaluated without the state of an evaluation (direct_value):
        form_power_sum,      // a polynomial of one variable (power_sum_link)
        form_power_quotient  // a quotient of two of them
    };

    static int form_of(const law* l) {
        int f = l->eval_form;
        return __builtin_expect(f == form_unknown, 0) ? decide_form(l) : f;
    }

    // The value of an operand: leaves read in place, arithmetic nodes here, every other
    // law through evaluateM_R.  Always inlined: left to itself gcc stops inlining it as
    // the evaluator grows, and the call costs laws of nested functions about 8%.
    __attribute__((always_inline)) static double operand(const law* l, state& s) {
        if (l->leaf_kind == law::leaf_constant) return l->leaf_value;
        if (l->leaf_kind == law::leaf_variable) return s.x[l->leaf_index];
        if (l->arith_op != law::op_none) {
            int f = form_of(l);
            // V^2 in place, the commonest power.
            if (f == form_variable_square) {
                double a = s.x[static_cast<const binary_law*>(l)->fleft()->leaf_index];
                return a * a;
            }
            // Functions straight to their own entry, not through value's dispatch.
            if (f >= form_sqrt && f <= form_abs) return function_value(l, f, s);
            if (f != form_recursive) return value(l, f, s);
        }
        // A function law known to return one value: what evaluateM_R would call.
        if (l->leaf_kind == law::node_direct && l->return_dim_cache == 1)
            return l->scalar_value(s.x);
        return other_law(l, s.x);
    }

    // The value of an arithmetic node of form `f` (not form_recursive).
    [[gnu::noinline]] static double value(const law* l, int f, state& s) {
        return value_inline(l, f, s);
    }

    // The same, inlined into the entry of each class (one call less where a function
    // law's argument or the caller's law is an arithmetic node).  The frequent small forms
    // are here; quotients and powers out of line, so the frame stays small.
    __attribute__((always_inline)) static double value_inline(const law* l, int f, state& s) {
        if (f == form_negate) return -operand(static_cast<const unary_law*>(l)->fsub(), s);
        switch (f) {
            case form_plus:
            case form_minus:
            case form_times: {
                if (chain_link(binary(l)->fleft())) return chain_value(binary(l), s);
                double a = operand(binary(l)->fleft(), s);
                return combine(f, a, operand(binary(l)->fright(), s));
            }
            case form_scaled:
                return binary(l)->fleft()->leaf_value * operand(binary(l)->fright(), s);
            case form_scaled_power:
                return binary(l)->fleft()->leaf_value * variable_power(binary(l)->fright(), s);
            case form_variable_power:
                return variable_power(l, s);
            case form_square:
            case form_variable_square: {
                double a = operand(binary(l)->fleft(), s);
                return a * a;
            }
            case form_sqrt:
            case form_ln:
            case form_exp:
            case form_sin:
            case form_cos:
            case form_sinh:
            case form_cosh:
            case form_tanh:
            case form_abs:
                return function_value(l, f, s);
            default:
                return quotient_or_power(binary(l), f, s);
        }
    }

    // A node of a binary form; cast only once the form says so (a function node is not).
    static const binary_law* binary(const law* l) { return static_cast<const binary_law*>(l); }

    // F(A) for a function node of form `f`: A first, then F's evaluate's domain test and
    // code, then the same library function, so the bits and the errors are F's evaluate's.
    [[gnu::noinline]] static double function_value(const law* l, int f, state& s) {
        const law* sub = static_cast<const unary_law*>(l)->fsub();
        int k = l->arg_form;
        double v;
        if (k == arg_any)
            v = argument(sub, s);
        else if (k == arg_variable)
            v = s.x[sub->leaf_index];
        else {
            // The operations of form_scaled, form_divide and form_times on leaves, in place.
            const binary_law* b = static_cast<const binary_law*>(sub);
            double a = b->fleft()->leaf_kind == law::leaf_constant ? b->fleft()->leaf_value
                                                                   : s.x[b->fleft()->leaf_index];
            const law* right = b->fright();
            if (k == arg_variable_over_constant)
                v = a / right->leaf_value;
            else
                v = a * s.x[right->leaf_index];
        }
        switch (f) {
            case form_sqrt:
                if (v < 0.0) sys_error(LAW_SQRT);
                return std::sqrt(v);
            case form_ln:
                if (v <= 0.0) sys_error(LAW_LN);
                return std::log(v);
            case form_exp:
                return std::exp(v);
            case form_sin:
                return std::sin(v);
            case form_cos:
                return std::cos(v);
            case form_sinh:
                return std::sinh(v);
            case form_cosh:
                return std::cosh(v);
            case form_tanh:
                return std::tanh(v);
            default:
                return std::fabs(v);
        }
    }

  private:
    static constexpr int spine_depth = 16;

    // A function's argument read in place (law::arg_form).
    enum arg_kind : signed char {
        arg_any = 0,
        arg_variable,
        arg_scaled_variable,         // c*V
        arg_variable_over_constant,  // V/c, |c| not tiny: never the zero-over-zero step
        arg_variable_product         // V*W
    };

    static int arg_kind_of(const law* sub) {
        if (sub->leaf_kind == law::leaf_variable) return arg_variable;
        if (sub->arith_op < law::op_times || sub->arith_op > law::op_divide) return arg_any;
        const law* left = static_cast<const binary_law*>(sub)->fleft();
        const law* right = static_cast<const binary_law*>(sub)->fright();
        if (!left || !right || right->leaf_kind == law::leaf_none) return arg_any;
        bool variable_right = right->leaf_kind == law::leaf_variable;
        if (sub->arith_op == law::op_divide)
            return left->leaf_kind == law::leaf_variable &&
                           right->leaf_kind == law::leaf_constant &&
                           !(std::fabs(right->leaf_value) < tiny)
                       ? arg_variable_over_constant
                       : arg_any;
        if (left->leaf_kind == law::leaf_constant && variable_right) return arg_scaled_variable;
        if (left->leaf_kind == law::leaf_variable && variable_right) return arg_variable_product;
        return arg_any;
    }

    // A function's argument: an arithmetic node inlined here (a call less than through
    // operand), the short polynomials of one variable (1+X^2) in place.
    __attribute__((always_inline)) static double argument(const law* sub, state& s) {
        if (sub->arith_op != law::op_none) {
            int g = form_of(sub);
            if (g == form_power_sum) return power_sum_value(sub, s.x);
            if (g != form_recursive) return value_inline(sub, g, s);
        }
        return operand(sub, s);
    }

    [[gnu::noinline]] static double other_law(const law* l, const double* x) {
        return l->evaluateM_R(x);
    }

    // Also polynomials met as operands (their own entries go to direct_value at once):
    // kept out of value_inline, whose size decides what gcc inlines on every path.
    [[gnu::noinline]] static double quotient_or_power(const binary_law* b, int f, state& s) {
        switch (f) {
            case form_divide:
                return quotient_value(b, s);
            case form_power_sum:
            case form_power_quotient:
                return direct_value(b, f, s.x);
            case form_whole_power: {
                double a = operand(b->fleft(), s);
                if (compensated_range(a))
                    return compensated_power(
                        a, static_cast<const exponent_law*>(static_cast<const law*>(b))
                               ->whole_exponent_);
                return power(a, operand(b->fright(), s));
            }
            default: {
                double a = operand(b->fleft(), s);
                return power(a, operand(b->fright(), s));
            }
        }
    }

    [[gnu::noinline]] static int decide_form(const law* l) {
        int f;
        if (l->arith_op >= law::op_sqrt) {
            const law* sub = static_cast<const unary_law*>(l)->fsub();
            f = sub && sub->returns_scalar() ? form_sqrt + (l->arith_op - law::op_sqrt)
                                             : form_recursive;
            if (f != form_recursive) l->arg_form = (signed char)arg_kind_of(sub);
        } else if (l->arith_op == law::op_negate) {
            const law* sub = static_cast<const unary_law*>(l)->fsub();
            f = sub && sub->returns_scalar() ? form_negate : form_recursive;
        } else {
            const binary_law* b = static_cast<const binary_law*>(l);
            const law* left = b->fleft();
            const law* right = b->fright();
            if (!left || !right || !left->returns_scalar() || !right->returns_scalar())
                f = form_recursive;
            else if (l->arith_op == law::op_plus || l->arith_op == law::op_minus)
                f = sum_link(l)->var >= 0         ? form_power_sum
                    : l->arith_op == law::op_plus ? form_plus
                                                  : form_minus;
            else if (l->arith_op == law::op_times)
                f = left->leaf_kind != law::leaf_constant ? form_times
                    : right->arith_op == law::op_power && form_of(right) == form_variable_power
                        ? form_scaled_power
                        : form_scaled;
            else if (l->arith_op == law::op_divide)
                f = power_sum(left) && power_sum(right) ? form_power_quotient : form_divide;
            else
                f = power_form(static_cast<const exponent_law*>(l));
        }
        l->eval_form = (signed char)f;
        return f;
    }

    static int power_form(const exponent_law* l) {
        int n = l->whole_exponent_;
        if (n == 2)
            return l->fleft()->leaf_kind == law::leaf_variable ? form_variable_square : form_square;
        if (n == 0) return form_power;
        return l->fleft()->leaf_kind == law::leaf_variable ? form_variable_power : form_whole_power;
    }

    static bool chain_link(const law* l) {
        if (l->arith_op < law::op_plus || l->arith_op > law::op_times) return false;
        int f = form_of(l);
        return f >= form_plus && f <= form_times;
    }

    static double combine(int f, double a, double b) {
        if (f == form_plus) return a + b;
        if (f == form_minus) return a - b;
        return a * b;
    }

    [[gnu::noinline]] static double chain_value(const binary_law* top, state& s) {
        const binary_law* spine[spine_depth];
        int n = 0;
        const law* l = top;
        while (n < spine_depth && chain_link(l)) {
            spine[n] = static_cast<const binary_law*>(l);
            l = spine[n++]->fleft();
        }
        double v = operand(l, s);
        while (n > 0) {
            const binary_law* node = spine[--n];
            v = combine(node->eval_form, v, operand(node->fright(), s));
        }
        return v;
    }

    // A/B, with the zero-over-zero step taken only when both came out tiny.
    static double quotient_value(const binary_law* l, state& s) {
        double a = operand(l->fleft(), s);
        double b = operand(l->fright(), s);
        double q = a / b;
        if (__builtin_expect(std::fabs(b) < tiny, 0) && std::fabs(a) < tiny)
            return zero_over_zero(l, s.x);
        return q;
    }

    [[gnu::noinline, gnu::cold]] static double zero_over_zero(const binary_law* l,
                                                              const double* x) {
        law_context().law.lhospital_depth = 0;
        return lhospital_step(l->fleft(), l->fright(), x, plain_reader());
    }

    // V^n, continued from the last power of the same variable when it is not higher.
    static double variable_power(const law* power_law, state& s) {
        const exponent_law* l = static_cast<const exponent_law*>(power_law);
        int index = l->fleft()->leaf_index;
        int n = l->whole_exponent_;
        double a = s.x[index];
        if (__builtin_expect(!compensated_range(a), 0)) return power_beyond_range(a, l, s);
        int from = 1;
        double hi = a, lo = 0.0;
        if (s.power_index == index && s.power_n <= n) {
            from = s.power_n;
            hi = s.hi;
            lo = s.lo;
        }
        s.power_index = index;
        s.power_n = n;
        return compensated_power_steps(a, hi, lo, from, n, &s.hi, &s.lo);
    }

    [[gnu::noinline]] static double power_beyond_range(double a, const exponent_law* l, state& s) {
        return power(a, operand(l->fright(), s));
    }

  public:
    // The link a sum of `left` and `right` keeps (power_sum_link).
    static power_sum_link power_link(const law* left, const law* right, bool subtract) {
        power_sum_link link;
        int var = -1;
        if (!power_term(right, link, var)) return power_sum_link();
        power_sum_link bottom;
        const power_sum_link* below = left ? sum_link(left) : nullptr;
        if (below) {
            if (below->terms == 0 || below->terms >= max_power_sum_terms) return power_sum_link();
            if (below->var >= 0 && var >= 0 && below->var != var) return power_sum_link();
            bottom = *below;
            if (var < 0) var = below->var;
        } else if (!power_term(left, bottom, var))
            return power_sum_link();
        link.bottom_c = bottom.bottom_c;
        link.bottom_k = bottom.bottom_k;
        if (!below) {
            link.bottom_c = bottom.c;
            link.bottom_k = bottom.k;
        }
        link.subtract = subtract;
        link.terms = (unsigned char)(below ? below->terms + 1 : 2);
        link.degree = bottom.degree > bottom.k ? bottom.degree : bottom.k;
        if (link.k > link.degree) link.degree = link.k;
        link.var = (signed char)var;
        if (below) link.all = extend_terms(*below, link);
        return link;
    }

    static void release_terms(power_sum_terms* all) {
        if (all && --all->uses == 0) VORX_FREE(all);
    }

    // The value of a node of form_power_sum or form_power_quotient.
    [[gnu::noinline]] static double direct_value(const law* l, int f, const double* x) {
        if (f == form_power_sum) return power_sum_value(l, x);
        return power_quotient_value(static_cast<const binary_law*>(l), x);
    }

    // The value of a sum of form_power_sum: what chain_value computes, node for node.
    // V^2 is the rounded square, V^k (k >= 3) the compensated product rounded once
    // (compensated_power's bits, one loop for all of them), or pow beyond its range,
    // as variable_power does.  Every term is c*V^k, with V^0 = 1 and c = 1 for V^k
    // alone: multiplying by 1 is exact (a signalling NaN comes out quiet, as the sum it
    // joins makes it anyway), and the terms are combined in the chain's order.
    __attribute__((always_inline)) static double power_sum_value(const law* top, const double* x) {
        const power_sum_link* t = sum_link(top);
        if (t->terms > 2 || t->degree > 2) return long_power_sum_value(t, x);
        // Two terms of degree 2 at most (1+X^2, 2*X-1), in place.
        double a = x[t->var];
        double square = a * a;
        double v = t->bottom_c * (t->bottom_k == 0 ? 1.0 : t->bottom_k == 1 ? a : square);
        double u = t->c * (t->k == 0 ? 1.0 : t->k == 1 ? a : square);
        return t->subtract ? v - u : v + u;
    }

  private:
    // A/B over two polynomials, with quotient_value's zero-over-zero step.  Neither can
    // raise, so which is evaluated first does not matter.
    [[gnu::noinline]] static double power_quotient_value(const binary_law* l, const double* x) {
        double a = power_sum_value(l->fleft(), x);
        double b = power_sum_value(l->fright(), x);
        double q = a / b;
        if (__builtin_expect(std::fabs(b) < tiny, 0) && std::fabs(a) < tiny)
            return zero_over_zero(l, x);
        return q;
    }

    static bool power_sum(const law* l) {
        const power_sum_link* link = sum_link(l);
        return link && link->var >= 0;
    }

    [[gnu::noinline]] static double long_power_sum_value(const power_sum_link* top,
                                                         const double* x) {
        double a = x[top->var];
        double powers[17];
        powers[0] = 1.0;
        powers[1] = a;
        powers[2] = a * a;
        if (top->degree >= 3) {
            if (__builtin_expect(compensated_range(a), 1))
                compensated_powers(a, top->degree, powers);
            else
                for (int k = 3; k <= top->degree; ++k) powers[k] = std::pow(a, (double)k);
        }
        if (!top->all) {
            double v = top->bottom_c * powers[top->bottom_k];
            double u = top->c * powers[top->k];
            return top->subtract ? v - u : v + u;
        }
        const power_sum_terms::term* t = top->all->terms;
        double v = t[0].c * powers[t[0].k];
        for (int i = 1; i < top->terms; ++i) {
            double u = t[i].c * powers[t[i].k];
            v = t[i].subtract ? v - u : v + u;
        }
        return v;
    }

    // The block of terms for the sum `own` on the chain `below`: below's block with own's
    // term appended when the block ends with below's last term and has room, else a new
    // one.  Building a sum on a law is using its tree, which one thread does at a time.
    static power_sum_terms* extend_terms(const power_sum_link& below, const power_sum_link& own) {
        int n = below.terms;
        power_sum_terms* all = below.all;
        if (!all || all->count != n || n == all->capacity) {
            int capacity = 2 * (n + 1) < 8 ? 8 : 2 * (n + 1);
            if (capacity > max_power_sum_terms) capacity = max_power_sum_terms;
            void* block =
                VORX_ALLOC(sizeof(power_sum_terms) + sizeof(power_sum_terms::term) * capacity);
            power_sum_terms* fresh = new (block) power_sum_terms;
            fresh->uses = 0;
            fresh->capacity = capacity;
            fresh->terms = new (fresh + 1) power_sum_terms::term[capacity];
            if (all)
                for (int i = 0; i < n; ++i) fresh->terms[i] = all->terms[i];
            else {
                fresh->terms[0] = {below.bottom_c, below.bottom_k, false};
                fresh->terms[1] = {below.c, below.k, below.subtract};
            }
            all = fresh;
        }
        all->terms[n] = {own.c, own.k, own.subtract};
        all->count = n + 1;
        ++all->uses;
        return all;
    }

    // Longer sums keep the chain, and a block of terms stays small.
    static constexpr int max_power_sum_terms = 64;

    static const power_sum_link* sum_link(const law* l) {
        if (l->arith_op == law::op_plus) return &static_cast<const plus_law*>(l)->power_link_;
        if (l->arith_op == law::op_minus) return &static_cast<const minus_law*>(l)->power_link_;
        return nullptr;
    }

    // Reads `l` as c, V, V^k or c*V^k into t (k a constant whole from 2 to 16, c on the
    // left as the parser reads 2*X^3), V being input `var` (set by the first variable
    // term when -1); false when it is none of these.
    static bool power_term(const law* l, power_sum_link& t, int& var) {
        if (!l) return false;
        if (l->leaf_kind == law::leaf_constant) {
            t.c = l->leaf_value;
            t.k = 0;
            return true;
        }
        if (l->arith_op == law::op_times) {
            const binary_law* product = static_cast<const binary_law*>(l);
            if (!product->fleft() || product->fleft()->leaf_kind != law::leaf_constant)
                return false;
            t.c = product->fleft()->leaf_value;
            l = product->fright();
            if (!l) return false;
        }
        int index;
        if (l->leaf_kind == law::leaf_variable) {
            t.k = 1;
            index = l->leaf_index;
        } else if (l->arith_op == law::op_power &&
                   static_cast<const exponent_law*>(l)->whole_exponent_ >= 2 &&
                   static_cast<const binary_law*>(l)->fleft() &&
                   static_cast<const binary_law*>(l)->fleft()->leaf_kind == law::leaf_variable) {
            t.k = (signed char)static_cast<const exponent_law*>(l)->whole_exponent_;
            index = static_cast<const binary_law*>(l)->fleft()->leaf_index;
        } else
            return false;
        if (index > 127 || (var >= 0 && index != var)) return false;
        var = index;
        return true;
    }
};

// The value in a register: through the evaluator above when every operand returns one
// value, else evaluate itself (which raises what it raised before).
#define LAW_SCALAR_VALUE_DEF(cls)                                     \
    double cls::scalar_value(const double* x) const {                 \
        if (eval_form >= arith_evaluator::form_power_sum)             \
            return arith_evaluator::direct_value(this, eval_form, x); \
        int f = arith_evaluator::form_of(this);                       \
        if (f != arith_evaluator::form_recursive) {                   \
            arith_evaluator::state s;                                 \
            s.x = x;                                                  \
            return arith_evaluator::value_inline(this, f, s);         \
        }                                                             \
        double y;                                                     \
        cls::evaluate(x, &y);                                         \
        return y;                                                     \
    }

double function_scalar_value(const unary_law* l, const double* x) {
    int f = arith_evaluator::form_of(l);
    if (f == arith_evaluator::form_recursive) {
        double y;
        l->evaluate(x, &y);
        return y;
    }
    arith_evaluator::state s;
    s.x = x;
    return arith_evaluator::function_value(l, f, s);
}

// ================================================================ plus_law

plus_law::~plus_law() noexcept(false) {
    arith_evaluator::release_terms(power_link_.all);
}

plus_law::plus_law(law* left, law* right)
    : binary_law(left, right), power_link_(arith_evaluator::power_link(left, right, false)) {
    leaf_kind = node_direct;
    arith_op = op_plus;
}

LAW_SCALAR_VALUE_DEF(plus_law)

void plus_law::evaluate(const double* x, double* y) const {
    if (left_->returns_scalar() && right_->returns_scalar()) {
        double a = left_->evaluateM_R(x);
        *y = a + right_->evaluateM_R(x);
    } else
        combine_components(this, x, y, plain_reader(), false);
}

void plus_law::evaluate_with_side(const double* x, double* y, const int* side) const {
    combine_components(this, x, y, side_reader{side}, false);
}

const char* plus_law::symbol(law_symbol_type) const {
    return "+";
}

binary_law* plus_law::make_one(law* left, law* right) const {
    return VORX_NEW plus_law(left, right);
}

law_polynomial* plus_law::polynomial(law* var) const {
    return polynomial_of_sum(this, var);
}

law* plus_law::deriv(int which) const {
    // (A+B)' = A'+B'
    law_holder da(left_->derivative(which));
    law_holder db(right_->derivative(which));
    return VORX_NEW plus_law(da.get(), db.get());
}

namespace {

bool scalar_law(const law* l) {
    return l && l->return_dim() == 1;
}

// The terms of a sum, each split once into its constant factor and the rest
// (simplify_coefficient), for the pair rules that compare them: splitting inside the
// pair loop rebuilt every product n times over.
struct split_terms {
    explicit split_terms(const law_chain& terms) : n(terms.size()) {
        for (int i = 0; i < n; ++i) c[i] = simplify_coefficient(terms[i], rest[i]);
    }
    int n;
    double c[law_chain::capacity];
    law_holder rest[law_chain::capacity];
};

// c1 * A + c2 * A -> (c1+c2)*A, for two terms i and j of one sum (a term without a
// constant factor has the factor 1)
law* like_terms(const split_terms& s, int i, int j) {
    const law_holder& ra = s.rest[i];
    const law_holder& rb = s.rest[j];
    if (!ra || !rb || !(*ra == *rb)) return nullptr;
    law_holder c(VORX_NEW constant_law(s.c[i] + s.c[j]));
    return VORX_NEW times_law(c.get(), ra.get());
}

// The argument g of F(g)^2 for the class F; null for any other law.
template <class F>
const law* squared_argument(const law* l) {
    if (!l || !l->isa(exponent_law::id())) return nullptr;
    const binary_law* p = static_cast<const binary_law*>(l);
    if (!simplify_is(p->fright(), 2.0) || !p->fleft()->isa(F::id())) return nullptr;
    return static_cast<const unary_law*>(p->fleft())->fsub();
}

// c*COS(A)^2 + c*SIN(A)^2 = c, in either order (c = 1 when absent), for terms i and j
law* unit_circle(const split_terms& s, int i, int j) {
    const law_holder& ra = s.rest[i];
    const law_holder& rb = s.rest[j];
    double ca = s.c[i];
    if (!ra || !rb || ca != s.c[j]) return nullptr;
    const law* cos_arg = squared_argument<cos_law>(ra.get());
    const law* sin_arg = squared_argument<sin_law>(rb.get());
    if (!cos_arg || !sin_arg) {
        cos_arg = squared_argument<cos_law>(rb.get());
        sin_arg = squared_argument<sin_law>(ra.get());
    }
    if (!cos_arg || !sin_arg || !(*cos_arg == *sin_arg)) return nullptr;
    return VORX_NEW constant_law(ca);
}

// VEC(A1,...,An) + VEC(B1,...,Bm) = VEC(A1+B1,...), a component missing from the shorter
// vector counting as 0 (so the longer one's is kept)
law* vector_sum(const law* a, const law* b) {
    if (!a->isa(vector_law::id()) || !b->isa(vector_law::id())) return nullptr;
    const multiple_law* va = static_cast<const multiple_law*>(a);
    const multiple_law* vb = static_cast<const multiple_law*>(b);
    int na = va->fsub_num();
    int nb = vb->fsub_num();
    if (!va->fsub() || !vb->fsub() || na < 1 || nb < 1) return nullptr;
    int n = na > nb ? na : nb;
    law_array parts(n);
    for (int i = 0; i < n; ++i) {
        if (i < na && i < nb)
            parts.set(i, VORX_NEW plus_law(va->fsub()[i], vb->fsub()[i]));
        else
            parts.set(i, law_holder::share(i < na ? va->fsub()[i] : vb->fsub()[i]).release());
    }
    return VORX_NEW vector_law(parts.get(), n);
}

// The factors of a term other than factor `skip`, multiplied; 1 when there is none.
law* other_factors(const law_chain& factors, int skip) {
    law* rest = factors.rebuild(-1, nullptr, skip);
    return rest ? rest : VORX_NEW constant_law(1.0);
}

// A*B + A*C = A*(B+C), for scalar terms sharing a factor A (a term that is A alone
// counts as A*1)
law* factor_out(const law* a, const law* b) {
    if (!scalar_law(a) || !scalar_law(b)) return nullptr;
    law_chain fa(a, times_law::id());
    law_chain fb(b, times_law::id());
    if (fa.size() == 1 && fb.size() == 1) return nullptr;
    for (int i = 0; i < fa.size(); ++i)
        for (int j = 0; j < fb.size(); ++j) {
            if (!(*fa[i] == *fb[j])) continue;
            law_holder ra(other_factors(fa, i));
            law_holder rb(other_factors(fb, j));
            law_holder sum(VORX_NEW plus_law(ra.get(), rb.get()));
            return VORX_NEW times_law(fa[i], sum.get());
        }
    return nullptr;
}

}  // namespace

// Like terms, the unit circle, vector sums and common factors are looked for between
// any two terms of the sum, however it is nested.
law* plus_law::sub_simplify(int, const char*& what) const {
    // A + 0 = A
    if (simplify_is(right_, 0.0))
        return simplify_fired(law_holder::share(left_).release(), what, "A + 0 = A");
    // 0 + A = A
    if (simplify_is(left_, 0.0))
        return simplify_fired(law_holder::share(right_).release(), what, "0 + A = A");
    law_chain terms(this);
    split_terms split(terms);
    // c1 * A + c2 * A -> (c1+c2)*A
    if (law* r = terms.combine_indices(split, like_terms))
        return simplify_fired(r, what, "c1 * A + c2 * A -> (c1+c2)*A");
    // COS(A)^2 + SIN(A)^2 = 1
    if (law* r = terms.combine_indices(split, unit_circle))
        return simplify_fired(r, what, "cos^2+sin^2=1");
    // VEC(A1,...) + VEC(B1,...) = VEC(A1+B1,...)
    if (law* r = terms.combine_pairs(vector_sum)) return simplify_fired(r, what, "vec+vec=vec");
    // A*B + A*C = A*(B+C)
    if (law* r = terms.combine_pairs(factor_out)) return simplify_fired(r, what, "Factoring");
    return nullptr;
}

// ================================================================ minus_law

minus_law::~minus_law() noexcept(false) {
    arith_evaluator::release_terms(power_link_.all);
}

minus_law::minus_law(law* left, law* right)
    : binary_law(left, right), power_link_(arith_evaluator::power_link(left, right, true)) {
    leaf_kind = node_direct;
    arith_op = op_minus;
}

LAW_SCALAR_VALUE_DEF(minus_law)

void minus_law::evaluate(const double* x, double* y) const {
    if (left_->returns_scalar() && right_->returns_scalar()) {
        double a = left_->evaluateM_R(x);
        *y = a - right_->evaluateM_R(x);
    } else
        combine_components(this, x, y, plain_reader(), true);
}

void minus_law::evaluate_with_side(const double* x, double* y, const int* side) const {
    combine_components(this, x, y, side_reader{side}, true);
}

const char* minus_law::symbol(law_symbol_type) const {
    return "-";
}

binary_law* minus_law::make_one(law* left, law* right) const {
    return VORX_NEW minus_law(left, right);
}

law_polynomial* minus_law::polynomial(law* var) const {
    return polynomial_of_sum(this, var);
}

law* minus_law::deriv(int which) const {
    // (A-B)' = A'-B'
    law_holder da(left_->derivative(which));
    law_holder db(right_->derivative(which));
    return VORX_NEW minus_law(da.get(), db.get());
}

// B - A = B + (-1) * A: sums are the normal form; the phase that ends simplification
// turns (-1)*A back into a subtraction.
law* minus_law::sub_simplify(int, const char*& what) const {
    law_holder minus_one(VORX_NEW constant_law(-1.0));
    law_holder negated(VORX_NEW times_law(minus_one.get(), right_));
    return simplify_fired(VORX_NEW plus_law(left_, negated.get()), what, "B - A = B + (-1) * A");
}

// ================================================================ times_law

times_law::times_law(law* left, law* right) : binary_law(left, right) {
    leaf_kind = node_direct;
    arith_op = op_times;
}

LAW_SCALAR_VALUE_DEF(times_law)

void times_law::evaluate(const double* x, double* y) const {
    if (left_->returns_scalar() && right_->returns_scalar()) {
        double a = left_->evaluateM_R(x);
        *y = a * right_->evaluateM_R(x);
    } else
        scale_components(this, x, y, plain_reader());
}

void times_law::evaluate_with_side(const double* x, double* y, const int* side) const {
    scale_components(this, x, y, side_reader{side});
}

const char* times_law::symbol(law_symbol_type) const {
    return "*";
}

binary_law* times_law::make_one(law* left, law* right) const {
    return VORX_NEW times_law(left, right);
}

law_polynomial* times_law::polynomial(law* var) const {
    return polynomial_of_product(left_, right_, var);
}

law* times_law::deriv(int which) const {
    // (A*B)' = A'*B+B'*A
    law_holder da(left_->derivative(which));
    law_holder db(right_->derivative(which));
    law_holder first(VORX_NEW times_law(da.get(), right_));
    law_holder second(VORX_NEW times_law(db.get(), left_));
    return VORX_NEW plus_law(first.get(), second.get());
}

namespace {

// A factor as base^exponent: B^E gives B and E, any other law itself with no exponent
// (it counts as exponent 1).
law* power_base(law* f, law*& exponent) {
    if (f->isa(exponent_law::id())) {
        const binary_law* p = static_cast<const binary_law*>(f);
        exponent = p->fright();
        return p->fleft();
    }
    exponent = nullptr;
    return f;
}

// B + C over two exponents, either of which may be absent (1); constants add at once.
law* exponent_sum(const law* b, const law* c) {
    double vb = 1.0, vc = 1.0;
    bool cb = !b || simplify_constant(b, vb);
    bool cc = !c || simplify_constant(c, vc);
    if (cb && cc) return VORX_NEW constant_law(vb + vc);
    law_holder lb(b ? law_holder::share(b).release() : VORX_NEW constant_law(1.0));
    law_holder lc(c ? law_holder::share(c).release() : VORX_NEW constant_law(1.0));
    return VORX_NEW plus_law(lb.get(), lc.get());
}

// A^B * A^C -> A^(B+C), for two scalar factors of one product over the same base (a
// factor without an exponent counts as A^1).  Where A < 0 both exponents are integers
// or the product raises, so A^(B+C) is defined wherever the product is.
law* merge_powers(law* f1, law* f2) {
    if (f1->return_dim() != 1 || f2->return_dim() != 1) return nullptr;
    if (f1->isa(constant_law::id()) && f2->isa(constant_law::id())) return nullptr;
    law* b;
    law* c;
    law* base1 = power_base(f1, b);
    law* base2 = power_base(f2, c);
    if (!(*base1 == *base2)) return nullptr;
    law_holder sum(exponent_sum(b, c));
    return VORX_NEW exponent_law(base1, sum.get());
}

// f*VEC(A,B,...) = VEC(f*A,f*B,...) for a scalar f and a vector of two or more
// components (a vector of one is a scalar)
law* scaled_vector(law* f, law* v) {
    if (f->return_dim() != 1 || !v->isa(vector_law::id())) return nullptr;
    const multiple_law* vec = static_cast<const multiple_law*>(v);
    int n = vec->fsub_num();
    if (!vec->fsub() || n < 2) return nullptr;
    law_array parts(n);
    for (int i = 0; i < n; ++i) parts.set(i, VORX_NEW times_law(f, vec->fsub()[i]));
    return VORX_NEW vector_law(parts.get(), n);
}

}  // namespace

law* times_law::sub_simplify(int, const char*& what) const {
    // 0 * A = 0, and A * 0 = 0; the zero keeps the product's size (0*VEC(A,B,C) is
    // VEC(0,0,0))
    if (simplify_is(left_, 0.0) || simplify_is(right_, 0.0))
        return simplify_fired(simplify_zero_like(this), what, "0 * A = 0");
    // 1 * A = A
    if (simplify_is(left_, 1.0))
        return simplify_fired(law_holder::share(right_).release(), what, "1 * A = A");
    // A * 1 = A
    if (simplify_is(right_, 1.0))
        return simplify_fired(law_holder::share(left_).release(), what, "A * 1 = A");
    // A^B * A^C -> A^(B+C), between any two factors of the product
    law_chain factors(this);
    if (law* r = factors.combine_pairs(merge_powers))
        return simplify_fired(r, what, "A^B * A^C -> A^(B+C)");
    // (-A)*(-B) = A*B
    if (left_->isa(negate_law::id()) && right_->isa(negate_law::id())) {
        law* a = static_cast<const unary_law*>(left_)->fsub();
        law* b = static_cast<const unary_law*>(right_)->fsub();
        return simplify_fired(VORX_NEW times_law(a, b), what, "-A*-B=A*B");
    }
    // f*VEC(A,...) = VEC(f*A,...), and VEC(A,...)*f likewise
    law* r = scaled_vector(left_, right_);
    if (!r) r = scaled_vector(right_, left_);
    if (r) return simplify_fired(r, what, "f*vec");
    return nullptr;
}

// ================================================================ division_law

namespace {
// Checked before any part of the law exists, so a refused construction leaves nothing
// behind: no reference taken, no live law counted.
law* scalar_denominator(law* right) {
    if (right && right->return_dim() > 1) sys_error(LAW_DIVISION);
    return right;
}
}  // namespace

division_law::division_law(law* left, law* right) : binary_law(left, scalar_denominator(right)) {
    leaf_kind = node_direct;
    arith_op = op_divide;
}

LAW_SCALAR_VALUE_DEF(division_law)

void division_law::evaluate(const double* x, double* y) const {
    if (left_->returns_scalar())
        *y = quotient(this, x, plain_reader());
    else
        divide_components(this, x, y, plain_reader());
}

void division_law::evaluate_with_side(const double* x, double* y, const int* side) const {
    if (left_->returns_scalar())
        *y = quotient(this, x, side_reader{side});
    else
        divide_components(this, x, y, side_reader{side});
}

const char* division_law::symbol(law_symbol_type) const {
    return "/";
}

int division_law::in_domain(const double* x) const {
    if (!binary_law::in_domain(x)) return 0;
    return right_->evaluateM_R(x) != 0.0;
}

binary_law* division_law::make_one(law* left, law* right) const {
    return VORX_NEW division_law(left, right);
}

law* division_law::deriv(int which) const {
    // (A/B)' = (B*A'-A*B')/B^2
    law_holder da(left_->derivative(which));
    law_holder db(right_->derivative(which));
    law_holder first(VORX_NEW times_law(right_, da.get()));
    law_holder second(VORX_NEW times_law(left_, db.get()));
    law_holder num(VORX_NEW minus_law(first.get(), second.get()));
    law_holder two(VORX_NEW constant_law(2.0));
    law_holder den(VORX_NEW exponent_law(right_, two.get()));
    return VORX_NEW division_law(num.get(), den.get());
}

// A/B=A*B^(-1): products are the normal form.  Where |B| < 1e-15 the product is the plain
// quotient, without the zero-over-zero step or the clamped vector denominator.
law* division_law::sub_simplify(int, const char*& what) const {
    law_holder minus_one(VORX_NEW constant_law(-1.0));
    law_holder inverse(VORX_NEW exponent_law(right_, minus_one.get()));
    return simplify_fired(VORX_NEW times_law(left_, inverse.get()), what, "A/B=A*B^(-1)");
}

// ================================================================ exponent_law

exponent_law::exponent_law(law* left, law* right) : binary_law(left, right) {
    leaf_kind = node_direct;
    arith_op = op_power;
    if (right && right->isa(constant_law::id())) {
        double b = static_cast<const constant_law*>(right)->value();
        if (b >= 2.0 && b <= 16.0 && b == std::trunc(b)) whole_exponent_ = (int)b;
    }
}

// A whole constant exponent passes power()'s tests by construction: only the base's
// range is left to test before the multiplication (arith_evaluator's power forms).
LAW_SCALAR_VALUE_DEF(exponent_law)

void exponent_law::evaluate(const double* x, double* y) const {
    double a = left_->evaluateM_R(x);
    *y = power(a, right_->evaluateM_R(x));
}

void exponent_law::evaluate_with_side(const double* x, double* y, const int* side) const {
    double a = left_->evaluateM_R(x, side);
    *y = power(a, right_->evaluateM_R(x, side));
}

const char* exponent_law::symbol(law_symbol_type type) const {
    return type == law_symbol_default ? "^" : "**";
}

int exponent_law::in_domain(const double* x) const {
    if (!binary_law::in_domain(x)) return 0;
    double a = left_->evaluateM_R(x);
    double b = right_->evaluateM_R(x);
    if (a == 0.0 && b <= 0.0) return 0;
    // A negative base takes integral exponents, within the machine resolution.
    if (a < 0.0 && b - std::floor(b) > resmch) return 0;
    // Keeps a^b below e^100.
    if (a > 1.0 && std::log(a) * b > 100.0) return 0;
    return 1;
}

binary_law* exponent_law::make_one(law* left, law* right) const {
    return VORX_NEW exponent_law(left, right);
}

law_polynomial* exponent_law::polynomial(law* var) const {
    return polynomial_of_power(left_, right_, var);
}

law* exponent_law::deriv(int which) const {
    law_holder da(left_->derivative(which));
    if (right_->isa(constant_law::id())) {
        double c = static_cast<const constant_law*>(right_)->value();
        // (A^1)' = A'
        if (c == 1.0) return da.release();
        // (A^c)' = (c*A')*A^(c-1)
        law_holder scaled(VORX_NEW times_law(right_, da.get()));
        law_holder lowered(VORX_NEW constant_law(c - 1.0));
        law_holder power_law(VORX_NEW exponent_law(left_, lowered.get()));
        return VORX_NEW times_law(scaled.get(), power_law.get());
    }
    // (A^B)' = (B*A')*A^(B-1), B reading no input though not a constant_law, as in
    // (-1)^-1: without the logarithm term, 0 times LN(A), which would raise for A < 0
    if (right_->take_dim() == 0) {
        law_holder scaled(VORX_NEW times_law(right_, da.get()));
        law_holder one(VORX_NEW constant_law(1.0));
        law_holder lowered(VORX_NEW minus_law(right_, one.get()));
        law_holder power_law(VORX_NEW exponent_law(left_, lowered.get()));
        return VORX_NEW times_law(scaled.get(), power_law.get());
    }
    // (A^B)' = (B*A')*A^(B-1)+LN(A)*(A^B*B')
    law_holder db(right_->derivative(which));
    law_holder scaled(VORX_NEW times_law(right_, da.get()));
    law_holder one(VORX_NEW constant_law(1.0));
    law_holder lowered(VORX_NEW minus_law(right_, one.get()));
    law_holder power_law(VORX_NEW exponent_law(left_, lowered.get()));
    law_holder first(VORX_NEW times_law(scaled.get(), power_law.get()));
    law_holder ln(VORX_NEW natural_log_law(left_));
    law_holder itself(VORX_NEW exponent_law(left_, right_));
    law_holder inner(VORX_NEW times_law(itself.get(), db.get()));
    law_holder second(VORX_NEW times_law(ln.get(), inner.get()));
    return VORX_NEW plus_law(first.get(), second.get());
}

namespace {

bool integer_value(const law* l) {
    double v;
    return simplify_constant(l, v) && v == std::trunc(v);
}

// B*C over two exponents; constants multiply at once.
law* exponent_product(law* b, law* c) {
    double vb, vc;
    if (simplify_constant(b, vb) && simplify_constant(c, vc)) return VORX_NEW constant_law(vb * vc);
    return VORX_NEW times_law(b, c);
}

bool positive_constant(const law* l) {
    double v;
    return simplify_constant(l, v) && v > 0.0;
}

}  // namespace

law* exponent_law::sub_simplify(int, const char*& what) const {
    if (left_->return_dim() != 1 || right_->return_dim() != 1) return nullptr;
    // A^0=1
    if (simplify_is(right_, 0.0)) return simplify_fired(VORX_NEW constant_law(1.0), what, "A^0=1");
    // A ^ 1 = A
    if (simplify_is(right_, 1.0))
        return simplify_fired(law_holder::share(left_).release(), what, "A ^ 1 = A");
    // (A^B)^C=A^(B*C), where C is an integer or B a constant other than an even integer:
    // (A^2)^0.5 is |A|, not A
    if (left_->isa(exponent_law::id())) {
        const binary_law* inner = static_cast<const binary_law*>(left_);
        law* b = inner->fright();
        double vb;
        bool even_b = simplify_constant(b, vb) && vb == std::trunc(vb) && std::fmod(vb, 2.0) == 0.0;
        if (integer_value(right_) || (b->isa(constant_law::id()) && !even_b)) {
            law_holder bc(exponent_product(b, right_));
            return simplify_fired(VORX_NEW exponent_law(inner->fleft(), bc.get()), what,
                                  "(A^B)^C=A^(B*C)");
        }
    }
    // (A*B)^n=A^n*B^n, where n is an integer or A or B a positive constant, so that both
    // powers are defined wherever (A*B)^n is
    if (left_->isa(times_law::id()) && right_->isa(constant_law::id())) {
        const binary_law* product = static_cast<const binary_law*>(left_);
        law* a = product->fleft();
        law* b = product->fright();
        if (a->return_dim() == 1 && b->return_dim() == 1 &&
            (integer_value(right_) || positive_constant(a) || positive_constant(b))) {
            law_holder an(VORX_NEW exponent_law(a, right_));
            law_holder bn(VORX_NEW exponent_law(b, right_));
            return simplify_fired(VORX_NEW times_law(an.get(), bn.get()), what, "(A*B)^n=A^n*B^n");
        }
    }
    return nullptr;
}

// ================================================================ negate_law

negate_law::negate_law(law* sub) : unary_law(sub) {
    leaf_kind = node_direct;
    arith_op = op_negate;
}

LAW_SCALAR_VALUE_DEF(negate_law)

void negate_law::evaluate(const double* x, double* y) const {
    if (sub_->returns_scalar())
        *y = -sub_->evaluateM_R(x);
    else
        negate_components(sub_, x, y, plain_reader());
}

void negate_law::evaluate_with_side(const double* x, double* y, const int* side) const {
    negate_components(sub_, x, y, side_reader{side});
}

const char* negate_law::symbol(law_symbol_type) const {
    return "-";
}

unary_law* negate_law::make_one(law* sub) const {
    return VORX_NEW negate_law(sub);
}

law_polynomial* negate_law::polynomial(law* var) const {
    return polynomial_of_negate(sub_, var);
}

int negate_law::return_size() const {
    return sub_ ? sub_->return_dim() : 1;
}

law* negate_law::deriv(int which) const {
    // (-A)' = -A'
    law_holder d(sub_->derivative(which));
    return VORX_NEW negate_law(d.get());
}

// -(A)=(-1)*A, always: products are the normal form; the phase that ends simplification
// turns (-1)*A back into -A.
law* negate_law::sub_simplify(int, const char*& what) const {
    law_holder minus_one(VORX_NEW constant_law(-1.0));
    return simplify_fired(VORX_NEW times_law(minus_one.get(), sub_), what, "-(A)=(-1)*A");
}

// ================================================================ composite_law

composite_law::composite_law(law* outer, law* inner) : binary_law(outer, inner) {}

void composite_law::evaluate(const double* x, double* y) const {
    compose(this, x, y, plain_reader());
}

// The side concerns the inner law's inputs; the outer law is evaluated plainly.
void composite_law::evaluate_with_side(const double* x, double* y, const int* side) const {
    compose(this, x, y, side_reader{side});
}

// The outer law's inverse turns the guess for this law's value into a guess for the
// inner value.
void composite_law::evaluate_with_guess(const double* x, double* y, const double* guess) const {
    const law* outer = left_;
    const law* inner = right_;
    int m = inner->return_dim();
    scratch v(inner_buffer_size(outer, inner));
    law_holder inv(guess ? outer->inverse() : nullptr);
    if (inv) {
        int gi = inv->return_dim();
        scratch inner_guess(gi > m ? gi : m);
        for (int i = gi; i < m; ++i) inner_guess[i] = 0.0;
        inv->evaluate(guess, inner_guess.get());
        inv.reset();
        inner->evaluate_with_guess(x, v.get(), inner_guess.get());
        for (int i = m; i < outer->take_dim(); ++i) v[i] = 0.0;
    } else
        inner_value(outer, inner, x, v, m, plain_reader());
    outer->evaluate_with_guess(v.get(), y, guess);
}

void composite_law::evaluateVAR(const double* x, double*& y, int& n) const {
    double* inner_values = nullptr;
    int m = 0;
    right_->evaluateVAR(x, inner_values, m);
    owned_values held(inner_values);
    int k = left_->take_dim();
    if (k <= m) {
        left_->evaluateVAR(inner_values, y, n);
        return;
    }
    owned_values padded(VORX_ALLOC_ARRAY(double, k));
    for (int i = 0; i < k; ++i) padded.get()[i] = i < m ? inner_values[i] : 0.0;
    left_->evaluateVAR(padded.get(), y, n);
}

const char* composite_law::symbol(law_symbol_type type) const {
    return type == law_symbol_default ? "O" : "@";
}

int composite_law::in_domain(const double* x) const {
    if (!right_->in_domain(x)) return 0;
    scratch v(inner_buffer_size(left_, right_));
    inner_value(left_, right_, x, v, right_->return_dim(), plain_reader());
    return left_->in_domain(v.get());
}

law* composite_law::enable_branching() const {
    law_holder branching(right_->enable_branching());
    if (!branching) return nullptr;
    return VORX_NEW composite_law(left_, branching.get());
}

int composite_law::branches() const {
    return right_->branches();
}

binary_law* composite_law::make_one(law* outer, law* inner) const {
    return VORX_NEW composite_law(outer, inner);
}

law* composite_law::deriv(int which) const {
    law_holder dg(right_->derivative(which));
    int n = right_->return_dim();
    if (n <= 1) {
        // (f O g)' = (f' O g)*g'
        law_holder df(left_->derivative(0));
        law_holder outer(VORX_NEW composite_law(df.get(), right_));
        return VORX_NEW times_law(outer.get(), dg.get());
    }
    // g' = 0: (f O g)' = 0
    if (dg->zero(resabs)) return VORX_NEW constant_law(0.0);
    // (f O g)' = sum of (D_i f O g)*TERM(g',i+1)
    law_holder sum;
    for (int i = 0; i < n; ++i) {
        law_holder df(left_->derivative(i));
        law_holder outer(VORX_NEW composite_law(df.get(), right_));
        law_holder component(VORX_NEW term_law(dg.get(), i + 1));
        law_holder product(VORX_NEW times_law(outer.get(), component.get()));
        if (sum)
            sum.reset(VORX_NEW plus_law(sum.get(), product.get()));
        else
            sum = std::move(product);
    }
    return sum.release();
}

// (f O g)^-1 = g^-1 O f^-1
law* composite_law::sub_inverse() const {
    law_holder inner_inverse(right_->inverse());
    if (!inner_inverse) return nullptr;
    law_holder outer_inverse(left_->inverse());
    if (!outer_inverse) return nullptr;
    return VORX_NEW composite_law(inner_inverse.get(), outer_inverse.get());
}

int composite_law::take_size() const {
    return right_ ? right_->take_dim() : 0;
}

int composite_law::return_size() const {
    return left_ ? left_->return_dim() : 1;
}

namespace {

// Recognises a + b*V for a variable V (a = 0 and b = 1 where absent): V, b*V, a+V,
// a+b*V and the same with the constant on the right.
bool linear_form(const law* l, double& a, double& b, const identity_law*& var) {
    a = 0.0;
    b = 1.0;
    if (l->isa(plus_law::id())) {
        const binary_law* p = static_cast<const binary_law*>(l);
        const law* rest;
        if (simplify_constant(p->fleft(), a))
            rest = p->fright();
        else if (simplify_constant(p->fright(), a))
            rest = p->fleft();
        else
            return false;
        double ignored;
        return linear_form(rest, ignored, b, var) && ignored == 0.0;
    }
    if (l->isa(times_law::id())) {
        const binary_law* t = static_cast<const binary_law*>(l);
        const law* rest;
        if (simplify_constant(t->fleft(), b))
            rest = t->fright();
        else if (simplify_constant(t->fright(), b))
            rest = t->fleft();
        else
            return false;
        if (!rest->isa(identity_law::id())) return false;
        var = static_cast<const identity_law*>(rest);
        return true;
    }
    if (!l->isa(identity_law::id())) return false;
    var = static_cast<const identity_law*>(l);
    return true;
}

}  // namespace

law* composite_law::sub_simplify(int, const char*& what) const {
    // C O A = C
    if (left_->isa(constant_law::id()))
        return simplify_fired(law_holder::share(left_).release(), what, "CoA=C");
    // A O X = A, for an outer law that reads no input but the first (A O X with A reading
    // Y would read 0 for Y)
    if (right_->isa(identity_law::id()) &&
        static_cast<const identity_law*>(right_)->fwhich() == 0 && left_->take_dim() <= 1)
        return simplify_fired(law_holder::share(left_).release(), what, "AoX=A");
    // (a1+b1*X) O (a2+b2*V) = (a1+b1*a2) + (b1*b2)*V
    double a1, b1, a2, b2;
    const identity_law* outer_var = nullptr;
    const identity_law* inner_var = nullptr;
    if (linear_form(left_, a1, b1, outer_var) && outer_var->fwhich() == 0 &&
        linear_form(right_, a2, b2, inner_var)) {
        law_holder c1(VORX_NEW constant_law(a1 + b1 * a2));
        law_holder c2(VORX_NEW constant_law(b1 * b2));
        law_holder slope(VORX_NEW times_law(c2.get(), const_cast<identity_law*>(inner_var)));
        return simplify_fired(VORX_NEW plus_law(c1.get(), slope.get()), what, "LoL=L");
    }
    // VEC(A,B,...) O f = VEC(A O f,B O f,...)
    if (left_->isa(vector_law::id())) {
        const multiple_law* vec = static_cast<const multiple_law*>(left_);
        int n = vec->fsub_num();
        if (vec->fsub() && n >= 1) {
            law_array parts(n);
            for (int i = 0; i < n; ++i)
                parts.set(i, VORX_NEW composite_law(vec->fsub()[i], right_));
            return simplify_fired(VORX_NEW vector_law(parts.get(), n), what, "vec o f = vec");
        }
    }
    return nullptr;
}

// ================================================================ named constants

pi_law::pi_law() : constant_law(3.141592653589793) {}

const char* pi_law::symbol(law_symbol_type type) const {
    return type == law_symbol_default ? "PI" : "Pi";
}

char* pi_law::string(law_symbol_type type, int&, law_data_node*&) const {
    return VORX_STRDUP(symbol(type));
}

constant_law* pi_law::make_one(double) const {
    return VORX_NEW pi_law;
}

e_law::e_law() : constant_law(2.718281828459045) {}

const char* e_law::symbol(law_symbol_type type) const {
    return type == law_symbol_default ? "E" : "exp(1)";
}

char* e_law::string(law_symbol_type type, int&, law_data_node*&) const {
    return VORX_STRDUP(symbol(type));
}

constant_law* e_law::make_one(double) const {
    return VORX_NEW e_law;
}

true_law::true_law() : constant_law(1.0) {}

const char* true_law::symbol(law_symbol_type type) const {
    return type == law_symbol_default ? "TRUE" : "true";
}

char* true_law::string(law_symbol_type type, int&, law_data_node*&) const {
    return VORX_STRDUP(symbol(type));
}

constant_law* true_law::make_one(double) const {
    return VORX_NEW true_law;
}

false_law::false_law() : constant_law(0.0) {}

const char* false_law::symbol(law_symbol_type type) const {
    return type == law_symbol_default ? "FALSE" : "false";
}

char* false_law::string(law_symbol_type type, int&, law_data_node*&) const {
    return VORX_STRDUP(symbol(type));
}

constant_law* false_law::make_one(double) const {
    return VORX_NEW false_law;
}

// ================================================================ singular points

// -A, A+B, A-B, A*B: the operands' points (a product may cancel one; it is still listed)
#define LAW_OPERAND_SINGULARITIES(cls, a, b)                                                  \
    int cls::singularities(double** where, int** kind, double lo, double hi, double** period) \
        const {                                                                               \
        return operand_singularities(this, a, b, where, kind, lo, hi, period);                \
    }
LAW_OPERAND_SINGULARITIES(negate_law, sub_, nullptr)
LAW_OPERAND_SINGULARITIES(plus_law, left_, right_)
LAW_OPERAND_SINGULARITIES(minus_law, left_, right_)
LAW_OPERAND_SINGULARITIES(times_law, left_, right_)

// A/B: A's points, and a pole at the zero of a linear B unless A vanishes there too
int division_law::singularities(double** where, int** kind, double lo, double hi,
                                double** period) const {
    singularity_list s(lo, hi);
    double c, slope;
    if (take_dim() <= 1) {
        s.add_law(left_);
        if (left_->returns_scalar() && linear_coefficients(right_, c, slope) && slope != 0.0) {
            double x = -c / slope;
            bool removable = false;
            try {
                removable = std::fabs(left_->eval(x)) < 1e-15;
            } catch (const vorx_exception&) {
            }
            if (!removable) s.add(x, law_singular_pole);
        }
    }
    return s.finish(where, kind, period);
}

// A^c, c constant: A's points, and a pole at the zero of a linear A when c < 0
int exponent_law::singularities(double** where, int** kind, double lo, double hi,
                                double** period) const {
    singularity_list s(lo, hi);
    double c, slope;
    if (take_dim() <= 1 && linear_coefficients(right_, c, slope) && slope == 0.0) {
        s.add_law(left_);
        if (c < 0.0) s.add_linear_zero(left_, law_singular_pole);
    }
    return s.finish(where, kind, period);
}

// ================================================================ registration

static law_prototype<plus_law> plus_law_prototype(nullptr, nullptr);
static law_prototype<minus_law> minus_law_prototype(nullptr, nullptr);
static law_prototype<times_law> times_law_prototype(nullptr, nullptr);
static law_prototype<division_law> division_law_prototype(nullptr, nullptr);
static law_prototype<exponent_law> exponent_law_prototype(nullptr, nullptr);
static law_prototype<negate_law> negate_law_prototype(nullptr);
static law_prototype<composite_law> composite_law_prototype(nullptr, nullptr);
static law_prototype<pi_law> pi_law_prototype;
static law_prototype<e_law> e_law_prototype;
static law_prototype<true_law> true_law_prototype;
static law_prototype<false_law> false_law_prototype;

}  // namespace lawutil
