// The compiled form of a law (law_program).
//
// Compiling.  One walk over the tree, children before parents and left before right, the
// order in which the tree evaluates, emits instructions in static single assignment form:
// every value (an input, a constant, an instruction's result) gets a number of its own.
// - Shared subtrees are compiled once: a node already seen (by pointer) gives its value
//   again, and an instruction equal to one already emitted (same operation over the same
//   values, "value numbering") is not emitted twice, so equal subtrees built apart
//   (the two 1+X^2 of E4) are computed once too.
// - Constants fold: an operation whose operands are all constants is run once, here, by
//   the same code that runs it later; one that raises is kept, so the error is raised
//   when evaluating, as the tree does.  With rewrites a whole subtree that reads no input
//   is the tree's own value of it (its powers rounded otherwise could be amplified
//   without bound by a function of them: SIN(PI^42)).
// - A constant multiple, a constant offset, or both, fuse into one instruction over their
//   operand (c*A, A+c, c-A, c*A+d), in the tree's order of rounding; a division by a
//   constant that is not tiny is the plain quotient.  Such a step that feeds sin, cos,
//   exp, ln, sqrt, abs, sinh or cosh is taken by the function instruction itself
//   (COS(X+1) is one instruction), and its own instruction dies unless another reads it.
// - With rewrites (the default): a subtree that is a polynomial in one input, built from
//   sums of constant multiples of whole powers, is one Horner instruction; x^n for a whole
//   n is a chain of squarings (x^-n one division more) and x^0.5 a square root.
// - Without rewrites a power of a constant exponent is the tree's own (main_law_arith.hpp):
//   a whole n from 3 to 16 through the same compensated_power (pow beyond its range), any
//   other exponent through exponent_value, with the exponent law's tests and code.  A chain
//   of sums and differences down the left whose every term is c, V, V^k or a constant
//   multiple of V or V^k, of one input V, with a power above the square, is one instruction
//   (E5): the tree's polynomial chain, V's powers from one compensated loop
//   (compensated_powers, the bits of one power at a time), the terms added in the chain's
//   order.  Its value is that of the chain's own instructions, which the tree's other
//   evaluations of such a chain also give; only dispatches and multiplications are saved.
//   Measured (bench_eval's exact row, ratio to native, three runs): E5 47-82 with a call
//   of the power law for each power, 22-36 with a power instruction each, 7.7-12 as one
//   chain (the tree: 9); E2 24 before, 14 with its quotient of chains in one step.
// - Classes the compiler does not know fall back to the tree: a function law of the
//   unary family runs through a copy of itself over X, fed the register of its argument;
//   any other law is evaluated as a whole subtree at the program's inputs.  So any law
//   compiles, and a domain error carries the code the tree raises, raised by the same
//   code.
// A division whose operands are both below 1e-15 hands the point to the tree's division
// (the zero-over-zero step), so its value and error are the tree's.
//
// Registers.  Inputs take registers 0..take_dim()-1, constants the next ones, filled once
// when compiling.  Results are then given registers by one linear scan: a result takes a
// free register (or a new one), and an operand's register is freed after its last use,
// once the instruction's own result has its register, so an instruction never writes a
// register it reads (the batch loops rely on it to vectorise).  A dead instruction is
// dropped only when it cannot raise.
//
// One point.  The single-point pass runs the instructions by direct threading (GCC and
// Clang's labels as values): every handler ends in its own indirect jump, so the
// processor predicts each jump from the handler it leaves and learns a program's
// sequence; the next operand is loaded before the jump, and an end instruction past the
// last stops the pass without a count.  A function instruction's fused pre-step is a
// handler of its own (step) that hands on to the function's.  Horner steps are unrolled
// by falling through from the degree.
// The pass runs its own copy of the code (point_) with steps fused, decided over the
// values before registers are given (point_fusion): a function of a Horner polynomial
// of an input, or of a sum or product made just before it, takes that as its pre-step;
// sine and cosine of one operand are one sincos; a quotient of two Horner polynomials of
// one input is one step (E2); a Horner step all of whose readers took it in is dropped;
// and the last instruction, when it is a sum, difference, product, Horner step or
// quotient making the value, returns it instead of storing it for the end (a product and
// the sum after it, A*B+C, in one).  The arithmetic is the same, in the same order, so
// the values are those of the unfused code, bit for bit; what is saved is dispatches and
// stores.  Each step of the copy keeps its handler's address (filled once by
// run_point(..., link)), so a dispatch is one load and one jump.  An operand the
// previous step made is taken from the pass itself (v), not reloaded from the register
// it was just stored to, which would put a store-to-load forwarding on the critical path
// of every step.  Without machine code, a program that is one polynomial or one quotient
// of polynomials of an input (E5, E2) is computed without entering the pass and its frame.
// Without rewrites a quotient of two polynomial chains of one input is one step too, and
// a chain making the value returns it; a chain all of whose readers took it in is dropped.
// The gradient pass of a law of one or two inputs is threaded like the unfused code;
// more inputs take the general pass (rows of partials).
//
// Machine code.  On x86-64 Linux the constructor also hands the single-point pass's code
// to compile_jit.cpp, which turns it into one native function (its design note has the
// details), and evaluate (inline in the header: one indirect call a point) calls that
// instead of run_point: the same operations in the same order and the same libm
// functions, so the same bits, without a dispatch a step.  The exact program's own steps
// (powers through the tree's arithmetic, polynomial chains and their quotients) are
// called back through noexcept functions of this file (call_whole_power ...).  Every
// domain test and special case of the pass (a NaN where one is tested, a fallback to the
// tree that raises, a zero-over-zero quotient) makes the machine code hand the point to
// run_point, which gives its value or raises the tree's code; a borrowed program (a law's
// own, law_tier.cpp) hands it to its law's tree instead, so the law never re-enters its
// program.  Steps are translated by name; a program with a step the generator does not
// know (one added since) keeps the interpreter, as does the `interpreted` mode.
// Measured (bench_eval, E1-E8 one point a call, ratio to native, three runs each on a
// shared machine): geometric mean 1.80-2.27 on the interpreter, 1.52-1.53 with machine
// code, against a floor of 1.48-1.49; E1, E3 and E6-E8 from 1.08-2.06 to 1.04-1.14, E4
// from 2.35-2.83 to 1.26-1.28, E2 and E5 at their floor.  Making the code adds 10-15 us
// to compiling (mapping and protecting a page: BM_CompileCost).
//
// Routines.  law_evaluator is how a numerical routine uses all this: the tree for the
// first compile_after evaluations, then the exact program without fallback derivatives
// (measured: compiling costs about 80 to 260 tree evaluations of E1-E8 and pays for itself
// after about 300 to 1300, E8 never, its exact program being no faster than its tree; see
// BM_CompileCost).
//
// Batches.  Points go through in blocks of block_lanes: each instruction runs over all
// the lanes of a block before the next, so the arithmetic loops vectorise.  The block
// runner is built twice, plainly and for AVX2 (without FMA, so no a*b+c is contracted
// and a lane's arithmetic is a single point's, bit for bit), and picked when the library
// loads.  With rewrites, sin, cos, exp, log, sinh and cosh take four lanes a call from
// SLEEF, or from glibc's vector math library (libmvec), when the build found one.
// Measured against the scalar functions over 10^6 points in [-0.9, 0.9]: SLEEF's are
// within 1 ulp (sinh 2), libmvec's within 3; through whole laws (E1-E8) the batch stays
// within 4.4e-16 of the single-point values (a few ulp where they are not near 0).  A
// lane that fails a domain test gets NaN and its first code; fallbacks to the tree run
// lane by lane, catch what the tree raises, and skip lanes that have already failed.
//
// Gradients.  Forward mode over the same program: each instruction's result carries its
// partials in every input, s * (operand's) + t * (second operand's), with the slopes s
// and t of the operation at the point; fallbacks to the tree use the symbolic derivatives
// of their node (or of their copy over X), made once when compiling.  Values are
// evaluate's, bit for bit (the same operations).  Laws of one or two inputs take a
// threaded pass over a copy of the code with steps of its own (plan_gradient), with the
// partials as scalars: the last result stays in registers for the instruction that reads
// it next, SIN(A) and COS(A) of one A make one sincos call, and P(A)/Q(A) of two Horner
// steps is one step.  Slopes share the value's work where they can: a division takes one
// reciprocal (1/B, and -(A/B)/B as -(A/B)*(1/B)), Horner carries its derivative in the
// same unrolled steps, SINH's slope is SQRT(1+SINH^2).  Measured (bench_eval, gradient
// against the hand-written value and partials, E1-E8): 2.05-2.10x geometric mean before
// these, 1.76x after (E2 4.45x to 3.35x).
//
// Invariants.  Instructions appear in the tree's evaluation order; an operand's register
// is written before it is read; the input and constant registers are never written while
// evaluating.  Gradient registers hold take_dim() partials per register (identity rows for
// the inputs, zero rows for the constants).  Batch registers hold block_lanes lanes each;
// a batch reads its inputs where the caller keeps them, so the input rows stay unused.
#include "lawutil/compile.hpp"

#include <cmath>
#include <cstring>
#if defined(__x86_64__)
#include <immintrin.h>
#endif
#include <limits>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "lawutil/compile_jit.hpp"
#include "lawutil/internal_law.hpp"
#include "lawutil/law_unary.hpp"
#include "lawutil/main_law_arith.hpp"

using namespace vorx;

namespace lawutil {

namespace {

enum opcode : unsigned char {
    op_add,
    op_sub,
    op_mul,
    op_div,
    op_neg,
    op_mulc,    // a * c
    op_addc,    // a + c
    op_rsubc,   // c - a
    op_affine,  // a * c + d
    op_divc,    // a / c, |c| >= 1e-15
    op_sqr,
    op_powi,    // a^n, n >= 3, by squarings
    op_rpowi,   // 1 / a^n, n >= 1
    op_half,    // a^0.5
    op_horner,  // c0 + a*(c1 + a*(... + a*cn))
    op_sin,
    op_cos,
    op_exp,
    op_ln,
    op_sqrt,
    op_abs,
    op_sinh,
    op_cosh,
    op_xpowi,   // a^n, 3 <= n <= 16, as the tree computes it (compensated product)
    op_xpow,    // a^c for any other constant c, as the tree computes it (pow)
    op_psum,    // c0 a^k0 + c1 a^k1 + ..., left to right, the powers as the tree's
    op_apply1,  // a function law over X, at the value of a
    op_apply2,  // the power law over X and Y, at the values of a and b
    op_tree     // a subtree of the law, at the program's inputs
};

// The single-point pass's own opcodes past the instructions': the affine pre-steps of a
// function instruction (pre_add .. pre_div, in order), each handing on to the function,
// and the end of the program.
enum : unsigned char { step_pre = op_tree + 1, step_end = step_pre + 6 };

// Steps of the single-point pass's own code only (see point_fusion): a function of a Horner
// polynomial (the Horner step is its pre-step), a quotient of two Horner polynomials of one
// operand, sine and cosine of one operand in one call, and the last instruction returning
// its value instead of storing it for the end.
enum : unsigned char {
    step_pre_horner = step_end + 1,
    step_ratio,
    step_sincos,
    step_end_add,
    step_end_sub,
    step_end_mul,
    step_end_horner,
    step_end_ratio,
    step_pre_add_r,  // F(A+B), F(A-B), F(A*B): the operation the pre-step of F
    step_pre_sub_r,
    step_pre_mul_r,
    step_end_mul_add,  // A*B+C, the product made by the step before, C in n
    step_sum_ratio,    // step_ratio over two polynomial chains (exact mode)
    step_end_sum_ratio,
    step_end_psum,
    step_count
};

// Below this a numerator and a denominator are both zero for the division law.
constexpr double tiny = 1e-15;
constexpr int block_lanes = 128;
constexpr int max_degree = 16;
constexpr int max_chain_power = 64;
constexpr int max_poly_depth = 64;
constexpr int max_sum_terms = 64;
const double not_a_number = std::numeric_limits<double>::quiet_NaN();

bool may_raise(int op) {
    switch (op) {
        case op_div:
        case op_rpowi:
        case op_half:
        case op_ln:
        case op_sqrt:
        case op_xpow:
        case op_apply1:
        case op_apply2:
        case op_tree:
            return true;
        default:
            return false;
    }
}

// The affine step a function instruction applies to its operand first (in n): the
// constant multiple, offset or quotient that produced its argument, fused into it.
enum pre_step { pre_none, pre_add, pre_mul, pre_affine, pre_neg, pre_rsub, pre_div };

// x^n, n >= 1, by squaring from the leading bit: x^3 is (x*x)*x, x^8 is ((x^2)^2)^2.
inline double chain_power(double x, int n) {
    int bit = 1;
    while (bit * 2 <= n) bit *= 2;
    double r = x;
    for (bit /= 2; bit; bit /= 2) {
        r *= r;
        if (n & bit) r *= x;
    }
    return r;
}

// The same for the single-point pass: the cubes and fourth powers, the most common,
// without the loops (the same products in the same order).
inline double chain_power_point(double x, int n) {
    if (n == 3) return x * x * x;
    if (n == 4) {
        double x2 = x * x;
        return x2 * x2;
    }
    return chain_power(x, n);
}

// 1/x^n, n >= 1, as the reciprocal of the chain; where the chain overflows or underflows
// while x^-n need not, pow: (2^256)^-4 is 2^-1024 by the tree, 1/inf = 0 by the chain, and
// a 0 there may raise further on (0^0).
inline double reciprocal_power(double x, int n) {
    double r = chain_power_point(x, n);
    double m = std::fabs(r);
    return m >= std::numeric_limits<double>::min() && m <= std::numeric_limits<double>::max()
               ? 1.0 / r
               : std::pow(x, (double)-n);
}

// The tree's a^n for a whole n from 3 to 16 (exponent_value's arithmetic without its
// tests, which such an n passes): the compensated product inside its range, pow beyond.
inline double whole_power(double a, int n) {
    return compensated_range(a) ? compensated_power(a, n) : std::pow(a, (double)n);
}

// The tree's polynomial chain (main_law_arith.cpp): a^0 .. a^degree, a^2 the rounded square,
// the higher ones whole_power's in one loop; then the terms c*a^k added left to right (a
// difference's term with -c: v - c*p and v + (-c)*p round alike).  t holds the degree,
// then c and k of each term.
inline double power_sum(const double* t, int terms, double a, double* p) {
    int degree = (int)t[0];
    p[0] = 1.0;
    p[1] = a;
    p[2] = a * a;
    if (degree >= 3) {
        if (compensated_range(a))
            compensated_powers(a, degree, p);
        else
            for (int k = 3; k <= degree; ++k) p[k] = std::pow(a, (double)k);
    }
    double v = t[1] * p[(int)t[2]];
    for (int i = 1; i < terms; ++i) v = v + t[2 * i + 1] * p[(int)t[2 * i + 2]];
    return v;
}

inline double power_sum(const double* t, int terms, double a) {
    double p[max_degree + 1];
    return power_sum(t, terms, a, p);
}

// The exact program's own steps as the machine code calls them back (jit_call), given
// their instruction: the handlers' arithmetic; what would raise, and a zero-over-zero
// quotient, are bails (the interpreter, or the law's tree, then takes the point).
jit_result call_whole_power(const void* q, const double*, double a) noexcept;
jit_result call_exponent(const void* q, const double* pool, double a) noexcept;
jit_result call_power_sum(const void* q, const double* pool, double a) noexcept;
jit_result call_sum_ratio(const void* q, const double* pool, double a) noexcept;

// The square root of an operand whose domain test has passed: the processor's
// instruction, without the library's errno test behind it (the same value).
inline double tested_sqrt(double x) {
#if defined(__SSE2__)
    return _mm_cvtsd_f64(_mm_sqrt_sd(_mm_set_sd(x), _mm_set_sd(x)));
#else
    return std::sqrt(x);
#endif
}

// Sine and cosine in one call where glibc has it (its sincos gives sin's and cos's own
// values, bit for bit).
inline void sin_cos(double x, double& s, double& c) {
#if defined(__GLIBC__)
    sincos(x, &s, &c);
#else
    s = std::sin(x);
    c = std::cos(x);
#endif
}

inline double horner(const double* c, int n, double x) {
    double p = c[n];
    for (int k = n - 1; k >= 0; --k) p = p * x + c[k];
    return p;
}

// The same steps unrolled (by falling through from the degree), for the single-point
// pass: no loop counter on the critical path.
inline double horner_unrolled(const double* c, int n, double x) {
    // a quadratic (1+X^2), the most common, without the jump into the steps
    if (n == 2) return (c[2] * x + c[1]) * x + c[0];
    if (n > 16) return horner(c, n, x);
    double p = c[n];
    // clang-format off
    switch (n) {
#define LAWUTIL_STEP(k) case k + 1: p = p * x + c[k]; [[fallthrough]];
        LAWUTIL_STEP(15) LAWUTIL_STEP(14) LAWUTIL_STEP(13) LAWUTIL_STEP(12) LAWUTIL_STEP(11)
        LAWUTIL_STEP(10) LAWUTIL_STEP(9) LAWUTIL_STEP(8) LAWUTIL_STEP(7) LAWUTIL_STEP(6)
        LAWUTIL_STEP(5) LAWUTIL_STEP(4) LAWUTIL_STEP(3) LAWUTIL_STEP(2) LAWUTIL_STEP(1)
        case 1: p = p * x + c[0];
#undef LAWUTIL_STEP
        default: break;
    }
    // clang-format on
    return p;
}

}  // namespace

struct law_program::instruction {
    unsigned char op;
    unsigned char step;  // the single-point pass's opcode (see run): op, a pre-step, or the end
    int dst, a, b;
    int n;            // power or degree
    int aux;          // first constant in the pool
    int part;         // first derivative law in the helpers, or -1
    const law* node;  // the tree node or the adapter law
    // In the single-point pass's code: a is the previous step's result, which the pass
    // still holds (v), so it does not wait for the store to reach the register file.
    bool from_previous = false;
    // In the single-point pass's code: a is an input, read where the caller keeps it (not
    // from the register it was just copied to, which would add a store-to-load forwarding
    // to the critical path).
    bool from_input = false;
    // In the single-point pass's code: the address of its handler (see run_point).
    const void* jump = nullptr;
};
// In the single-point pass's code, a fused step reads a Horner polynomial's operand in a:
// step_pre_horner has the polynomial's degree in b and coefficients at aux; step_ratio
// the numerator's in n and aux, the denominator's in b and part.  step_sincos (also the op
// its pre-step hands on to) writes the sine to dst and the cosine to b.

namespace {

using instruction = law_program::instruction;

// The compiler's tables, in tracked memory like everything else.
template <class T>
using tracked_vector = std::vector<T, vorx_std_allocator<T>>;
template <class K, class V, class H = std::hash<K>>
using tracked_map =
    std::unordered_map<K, V, H, std::equal_to<K>, vorx_std_allocator<std::pair<const K, V>>>;
template <class K>
using tracked_set = std::unordered_set<K, std::hash<K>, std::equal_to<K>, vorx_std_allocator<K>>;
using tracked_string = std::basic_string<char, std::char_traits<char>, vorx_std_allocator<char>>;

struct string_hash {
    size_t operator()(const tracked_string& s) const {
        return std::hash<std::string_view>()(std::string_view(s.data(), s.size()));
    }
};

// The value of one instruction at one point, for evaluation and for folding.  r holds
// the registers, x the program's inputs.
inline double pre_value(const instruction& p, double a, const double* pool) {
    switch (p.n) {
        case pre_none:
            return a;
        case pre_add:
            return a + pool[p.aux + 1];
        case pre_mul:
            return a * pool[p.aux];
        case pre_affine:
            return a * pool[p.aux] + pool[p.aux + 1];
        case pre_neg:
            return -a;
        case pre_rsub:
            return pool[p.aux + 1] - a;
        default:
            return a / pool[p.aux];
    }
}

// The slope of the step.
inline double pre_slope(const instruction& p, const double* pool) {
    switch (p.n) {
        case pre_mul:
        case pre_affine:
            return pool[p.aux];
        case pre_neg:
        case pre_rsub:
            return -1.0;
        case pre_div:
            return 1.0 / pool[p.aux];
        default:
            return 1.0;
    }
}

bool function_op(int op) {
    return op >= op_sin && op <= op_cosh;
}

inline double apply(const instruction& p, const double* r, const double* pool, const double* x) {
    double a = r[p.a];
    switch (p.op) {
        case op_add:
            return a + r[p.b];
        case op_sub:
            return a - r[p.b];
        case op_mul:
            return a * r[p.b];
        case op_div: {
            double b = r[p.b];
            if (std::fabs(a) < tiny && std::fabs(b) < tiny) return p.node->evaluateM_R(x);
            return a / b;
        }
        case op_neg:
            return -a;
        case op_mulc:
            return a * pool[p.aux];
        case op_addc:
            return a + pool[p.aux];
        case op_rsubc:
            return pool[p.aux] - a;
        case op_affine:
            return a * pool[p.aux] + pool[p.aux + 1];
        case op_divc:
            return a / pool[p.aux];
        case op_sqr:
            return a * a;
        case op_powi:
            return chain_power(a, p.n);
        case op_rpowi:
            if (a == 0.0) sys_error(LAW_EXPONENT);
            return reciprocal_power(a, p.n);
        case op_half:
            if (a < 0.0) sys_error(LAW_EXPONENT);
            // + 0.0 turns the -0 of sqrt(-0) into the +0 of pow(-0, 0.5).
            return std::sqrt(a) + 0.0;
        case op_horner:
            return horner(pool + p.aux, p.n, a);
        case op_sin:
            return std::sin(pre_value(p, a, pool));
        case op_cos:
            return std::cos(pre_value(p, a, pool));
        case op_exp:
            return std::exp(pre_value(p, a, pool));
        case op_ln:
            a = pre_value(p, a, pool);
            if (a <= 0.0) sys_error(LAW_LN);
            return std::log(a);
        case op_sqrt:
            a = pre_value(p, a, pool);
            if (a < 0.0) sys_error(LAW_SQRT);
            return std::sqrt(a);
        case op_abs:
            return std::fabs(pre_value(p, a, pool));
        case op_sinh:
            return std::sinh(pre_value(p, a, pool));
        case op_cosh:
            return std::cosh(pre_value(p, a, pool));
        case op_xpowi:
            return whole_power(a, p.n);
        case op_xpow:
            return exponent_value(a, pool[p.aux]);
        case op_psum:
            return power_sum(pool + p.aux, p.n, a);
        case op_apply1:
            return p.node->evaluateM_R(&a);
        case op_apply2: {
            double ab[2] = {a, r[p.b]};
            return p.node->evaluateM_R(ab);
        }
        default:
            return p.node->evaluateM_R(x);
    }
}

// The function laws of the unary family that run through a copy of themselves over X
// (sin, cos, exp, ln, sqrt, abs, sinh and cosh are compiled directly).
bool unary_family(const law* l) {
    // clang-format off
    static const int ids[] = {
        not_law::id(),     even_law::id(),    odd_law::id(),     int_law::id(),
        prime_law::id(),   set_law::id(),     floor_law::id(),   ceil_law::id(),
        rand_law::id(),    tan_law::id(),     cot_law::id(),     sec_law::id(),
        csc_law::id(),     arcsin_law::id(),  arccos_law::id(),  arccot_law::id(),
        arcsec_law::id(),  arccsc_law::id(),  tanh_law::id(),    coth_law::id(),
        sech_law::id(),    csch_law::id(),    arcsinh_law::id(), arccosh_law::id(),
        arctanh_law::id(), arccoth_law::id(), arcsech_law::id(), arccsch_law::id()};
    // clang-format on
    for (int t : ids)
        if (l->type() == t) return true;
    return false;
}

// A polynomial in one input: coefficients c[0..deg] of input `var` (-1: a constant).
struct polynomial {
    int var = -1;
    int deg = 0;
    int nodes = 0;
    double c[max_degree + 1] = {};

    int monomial() const {
        int k = -1;
        for (int i = 0; i <= deg; ++i)
            if (c[i] != 0.0) {
                if (k >= 0) return -1;
                k = i;
            }
        return k;
    }
    void trim() {
        while (deg > 0 && c[deg] == 0.0) --deg;
    }
};

class compiler {
  public:
    compiler(int mode, int inputs) : mode_(mode), inputs_(inputs) {
        for (int i = 0; i < inputs; ++i) new_value(false, 0.0);
    }
    ~compiler() {
        for (const law* h : helpers_) law_remove(h);
    }

    int value(const law* l) {
        auto it = seen_.find(l);
        if (it != seen_.end()) return it->second;
        int v = build(l);
        seen_[l] = v;
        return v;
    }

    tracked_vector<instruction> code_;
    tracked_vector<double> pool_;
    tracked_vector<char> is_const_;
    tracked_vector<double> const_value_;
    tracked_vector<const law*> helpers_;

  private:
    struct key {
        int op, a, b, n;
        double c, d;
        const law* node;
        bool operator==(const key& o) const {
            return op == o.op && a == o.a && b == o.b && n == o.n &&
                   std::memcmp(&c, &o.c, sizeof c) == 0 && std::memcmp(&d, &o.d, sizeof d) == 0 &&
                   node == o.node;
        }
    };
    struct key_hash {
        size_t operator()(const key& k) const {
            unsigned long long bc, bd;
            std::memcpy(&bc, &k.c, sizeof bc);
            std::memcpy(&bd, &k.d, sizeof bd);
            size_t h =
                (size_t)k.op * 1000003u ^ (size_t)k.a * 10007u ^ (size_t)k.b * 101u ^ (size_t)k.n;
            return h ^ (size_t)(bc * 31u + bd) ^ (size_t)(uintptr_t)k.node;
        }
    };

    int new_value(bool constant, double v) {
        is_const_.push_back(constant);
        const_value_.push_back(v);
        return (int)is_const_.size() - 1;
    }

    int constant(double v) {
        unsigned long long bits;
        std::memcpy(&bits, &v, sizeof bits);
        auto it = constants_.find(bits);
        if (it != constants_.end()) return it->second;
        int r = new_value(true, v);
        constants_[bits] = r;
        return r;
    }

    // A law this program keeps (adapter or derivative); null stays null.
    int keep(const law* l) {
        helpers_.push_back(l);
        return (int)helpers_.size() - 1;
    }

    // Emits op over a and b (values), with constants c and d; folds and shares.
    int emit(int op, int a, int b = 0, double c = 0.0, double d = 0.0, int n = 0,
             const law* node = nullptr, int part = -1) {
        bool shareable = op != op_tree && op != op_div && op != op_horner && op != op_psum;
        key k{op, a, b, n, c, d, shareable ? node : nullptr};
        if (shareable) {
            auto it = numbered_.find(k);
            if (it != numbered_.end()) return it->second;
        }
        instruction p{(unsigned char)op, 0, 0, a, b, n, (int)pool_.size(), part, node};
        if (op == op_mulc || op == op_addc || op == op_rsubc || op == op_affine || op == op_divc ||
            op == op_xpow || (function_op(op) && n != pre_none)) {
            pool_.push_back(c);
            pool_.push_back(d);
        }
        int r = fold(p, a, b);
        if (r < 0) {
            push(p);
            r = p.dst;
        }
        if (shareable) numbered_[k] = r;
        return r;
    }

    // The constant value of p when its operands are constants and it does not raise.
    int fold(const instruction& p, int a, int b) {
        bool binary = p.op == op_add || p.op == op_sub || p.op == op_mul || p.op == op_div ||
                      p.op == op_apply2;
        if (p.op == op_tree || !is_const_[a] || (binary && !is_const_[b])) return -1;
        double r[2] = {const_value_[a], binary ? const_value_[b] : 0.0};
        if (p.op == op_div && std::fabs(r[0]) < tiny && std::fabs(r[1]) < tiny) return -1;
        instruction q = p;
        q.a = 0;
        q.b = 1;
        try {
            return constant(apply(q, r, pool_.data(), nullptr));
        } catch (const vorx_exception&) {
            return -1;
        }
    }

    const instruction* producer(int v) const {
        auto it = made_by_.find(v);
        return it == made_by_.end() ? nullptr : &code_[it->second];
    }

    void push(instruction& p) {
        p.dst = new_value(false, 0.0);
        made_by_[p.dst] = (int)code_.size();
        code_.push_back(p);
    }

    // A subtree evaluated by the tree at the program's inputs.
    int tree(const law* l) {
        int part = -1;
        if (l->returns_scalar() && !(mode_ & law_program::values_only))
            for (int i = 0; i < inputs_; ++i) {
                const law* d = nullptr;
                try {
                    d = l->derivative(i);
                } catch (const vorx_exception&) {
                }
                int at = keep(d);
                if (i == 0) part = at;
            }
        return emit(op_tree, 0, 0, 0.0, 0.0, 0, l, part);
    }

    // A copy of the class over X (and Y), kept once per class, with its partials.
    int adapter(const law* l, int arity) {
        auto it = adapters_.find(l->type());
        if (it != adapters_.end()) return it->second;
        law_holder x(VORX_NEW identity_law(0, 'X'));
        law_holder f;
        if (arity == 1)
            f.reset(static_cast<const unary_law*>(l)->make_one(x.get()));
        else {
            law_holder y(VORX_NEW identity_law(1, 'Y'));
            f.reset(static_cast<const binary_law*>(l)->make_one(x.get(), y.get()));
        }
        if (!f) return -1;
        int at = keep(f.release());
        for (int i = 0; i < arity; ++i) {
            if (mode_ & law_program::values_only) {
                keep(nullptr);
                continue;
            }
            const law* d = nullptr;
            try {
                d = helpers_[at]->derivative(i);
            } catch (const vorx_exception&) {
            }
            keep(d);
        }
        adapters_[l->type()] = at;
        return at;
    }

    // Collects p as a polynomial in one input; false when it is not one.
    // Polynomials are looked for max_poly_depth levels down at most, which bounds the
    // stack this search takes on a deep sum; a node too deep is not marked, as it may
    // still head a polynomial of its own.
    bool poly(const law* l, polynomial& p, int depth = 0) {
        if (not_poly_.count(l)) return false;
        if (depth > max_poly_depth) {
            too_deep_ = true;
            return false;
        }
        bool ok = poly_parts(l, p, depth);
        if (!ok && !too_deep_) not_poly_.insert(l);
        if (depth == 0) too_deep_ = false;
        return ok;
    }

    bool poly_parts(const law* l, polynomial& p, int depth) {
        p = polynomial();
        p.nodes = 1;
        if (l->isa(constant_law::id())) {
            p.c[0] = static_cast<const constant_law*>(l)->value();
            return true;
        }
        if (l->isa(identity_law::id())) {
            p.var = static_cast<const identity_law*>(l)->fwhich();
            p.deg = 1;
            p.c[1] = 1.0;
            return true;
        }
        if (!l->returns_scalar()) return false;
        int t = l->type();
        if (t == negate_law::id()) {
            if (!poly(static_cast<const unary_law*>(l)->fsub(), p, depth + 1)) return false;
            for (int i = 0; i <= p.deg; ++i) p.c[i] = -p.c[i];
            ++p.nodes;
            return true;
        }
        bool sum = t == plus_law::id(), difference = t == minus_law::id();
        bool product = t == times_law::id(), power = t == exponent_law::id();
        if (!sum && !difference && !product && !power) return false;
        const binary_law* b = static_cast<const binary_law*>(l);
        polynomial u, v;
        if (!poly(b->fleft(), u, depth + 1)) return false;
        if (power) {
            // X^k for a whole k in 1..max_degree
            double k;
            if (u.var < 0 || u.nodes != 1 || !b->fright()->isa(constant_law::id())) return false;
            k = static_cast<const constant_law*>(b->fright())->value();
            if (!(k >= 1.0 && k <= max_degree && k == std::trunc(k))) return false;
            p.var = u.var;
            p.deg = (int)k;
            p.c[p.deg] = 1.0;
            p.nodes = 3;
            return true;
        }
        if (!poly(b->fright(), v, depth + 1)) return false;
        if (u.var >= 0 && v.var >= 0 && u.var != v.var) return false;
        p.var = u.var >= 0 ? u.var : v.var;
        p.nodes = u.nodes + v.nodes + 1;
        if (product) {
            int mu = u.monomial(), mv = v.monomial();
            if (u.deg + v.deg > max_degree || (mu < 0 && mv < 0)) return false;
            // A monomial c*X^j shifts and scales the other factor.
            const polynomial& m = mu >= 0 ? u : v;
            const polynomial& o = mu >= 0 ? v : u;
            int j = mu >= 0 ? mu : mv;
            p.deg = o.deg + j;
            for (int i = 0; i <= o.deg; ++i) p.c[i + j] = o.c[i] * m.c[j];
        } else {
            p.deg = u.deg > v.deg ? u.deg : v.deg;
            for (int i = 0; i <= p.deg; ++i)
                p.c[i] = (i <= u.deg ? u.c[i] : 0.0) +
                         (difference ? -1.0 : 1.0) * (i <= v.deg ? v.c[i] : 0.0);
        }
        // Coefficients that overflow are no rewrite of the tree: 1E+300*X*1E+300 is 0 at 0
        // by the tree, inf*0 by an inf coefficient.
        for (int i = 0; i <= p.deg; ++i)
            if (!std::isfinite(p.c[i])) return false;
        p.trim();
        return true;
    }

    // Equal polynomials (the two 1+X^2 of E4) share one instruction.
    int horner_of(const polynomial& p) {
        if (p.deg == 1) return emit(op_affine, p.var, 0, p.c[1], p.c[0]);
        tracked_string k((const char*)p.c, sizeof(double) * (p.deg + 1));
        k.append((const char*)&p.var, sizeof p.var);
        auto it = polynomials_.find(k);
        if (it != polynomials_.end()) return it->second;
        instruction q{op_horner, 0, 0, p.var, 0, p.deg, (int)pool_.size(), -1, nullptr};
        for (int i = 0; i <= p.deg; ++i) pool_.push_back(p.c[i]);
        push(q);
        polynomials_[k] = q.dst;
        return q.dst;
    }

    // A chain of sums and differences down the left, every term c, V, V^k or a constant
    // multiple of V or V^k (V one input, k a constant whole from 2 to 16), with a power of
    // min_degree or more: one instruction (the tree's polynomial chain), which shares the
    // powers' multiplications.  Exact mode; -1 when l is no such chain.  Not inlined, for
    // the same reason as try_horner.
    __attribute__((noinline)) int try_power_sum(const law* l, int min_degree) {
        sum_chain s;
        if (!chain_of(l, s) || s.degree < min_degree) return -1;
        instruction q{op_psum, 0, 0, s.var, 0, s.terms, (int)pool_.size(), -1, nullptr};
        pool_.push_back(s.degree);
        for (int i = s.terms - 1; i >= 0; --i) {
            pool_.push_back(s.c[i]);
            pool_.push_back(s.k[i]);
        }
        push(q);
        return q.dst;
    }

    // A quotient of two such chains of one input, whatever their degrees (E2): both are
    // instructions of their own, which the single-point pass then takes in one step with
    // the quotient.  Made here, before the quotient's operands are asked for.
    __attribute__((noinline)) void quotient_of_sums(const binary_law* l) {
        sum_chain u, v;
        const law *num = l->fleft(), *den = l->fright();
        if (seen_.count(num) || seen_.count(den) || !scalar_args(l) || !chain_of(num, u) ||
            !chain_of(den, v) || u.var != v.var)
            return;
        seen_[num] = try_power_sum(num, 0);
        seen_[den] = try_power_sum(den, 0);
    }

    struct sum_chain {
        double c[max_sum_terms];
        int k[max_sum_terms];
        int terms = 0, var = -1, degree = 0;
    };

    // Reads l as such a chain, its terms from the top down (a difference's term negated).
    bool chain_of(const law* l, sum_chain& s) {
        for (const law* node = l;;) {
            if (s.terms == max_sum_terms) return false;
            bool plus = node->isa(plus_law::id()), minus = node->isa(minus_law::id());
            const law* term = node;
            if (plus || minus) {
                const binary_law* b = static_cast<const binary_law*>(node);
                if (!scalar_args(b)) return false;
                term = b->fright();
            }
            double& c = s.c[s.terms];
            int& k = s.k[s.terms];
            if (!sum_term(term, c, k, s.var)) return false;
            if (minus) c = -c;
            if (k > s.degree) s.degree = k;
            ++s.terms;
            if (!plus && !minus) break;
            node = static_cast<const binary_law*>(node)->fleft();
        }
        return s.var >= 0 && s.terms >= 2;
    }

    // c, V, V^k, c*T or T*c (T one of V, V^k) as c*V^k; V is input `var` (set by the first
    // term that reads one).
    static bool sum_term(const law* l, double& c, int& k, int& var) {
        c = 1.0;
        if (l->isa(times_law::id())) {
            const binary_law* b = static_cast<const binary_law*>(l);
            bool left = b->fleft()->isa(constant_law::id());
            const law* f = left ? b->fleft() : b->fright();
            if (!f->isa(constant_law::id())) return false;
            c = static_cast<const constant_law*>(f)->value();
            l = left ? b->fright() : b->fleft();
            if (l->isa(constant_law::id())) return false;
        }
        if (l->isa(constant_law::id())) {
            c = static_cast<const constant_law*>(l)->value();
            k = 0;
            return true;
        }
        if (l->isa(exponent_law::id())) {
            const binary_law* b = static_cast<const binary_law*>(l);
            if (!b->fright()->isa(constant_law::id())) return false;
            double e = static_cast<const constant_law*>(b->fright())->value();
            if (!(e >= 2.0 && e <= max_compensated_power && e == std::trunc(e))) return false;
            k = (int)e;
            l = b->fleft();
        } else
            k = 1;
        if (!l->isa(identity_law::id())) return false;
        int which = static_cast<const identity_law*>(l)->fwhich();
        if (var >= 0 && which != var) return false;
        var = which;
        return true;
    }

    bool scalar_args(const binary_law* b) {
        return b->fleft()->returns_scalar() && b->fright()->returns_scalar();
    }

    // The Horner instruction of a polynomial subtree, or -1.  Not inlined: build recurses
    // as deep as the tree, and should not carry a polynomial in every frame.
    __attribute__((noinline)) int try_horner(const law* l) {
        polynomial p;
        if (poly(l, p) && p.var >= 0 && p.deg >= 1 && p.nodes >= 5) return horner_of(p);
        return -1;
    }

    // A subtree that reads no input is the tree's own constant.  Rewritten, its powers and
    // polynomials would round otherwise, and a function of a large constant amplifies
    // that without bound (SIN(PI^42)).  One that draws random numbers, or raises, stays.
    static bool tree_constant(const law* l, double& v) {
        if (l->take_dim() != 0 || !plain_subtree(l)) return false;
        try {
            double none = 0.0;
            v = l->evaluateM_R(&none);
            return true;
        } catch (const vorx_exception&) {
            return false;
        }
    }
    static bool plain_subtree(const law* l) {
        if (!l || l->isa(rand_law::id())) return false;
        if (l->isa(constant_law::id())) return true;
        if (l->isa(unary_law::id())) return plain_subtree(static_cast<const unary_law*>(l)->fsub());
        if (l->isa(binary_law::id())) {
            const binary_law* b = static_cast<const binary_law*>(l);
            return plain_subtree(b->fleft()) && plain_subtree(b->fright());
        }
        return false;
    }

    int build(const law* l) {
        if (!l->returns_scalar()) return tree(l);
        if (l->isa(constant_law::id()))
            return constant(static_cast<const constant_law*>(l)->value());
        if (l->isa(identity_law::id())) return static_cast<const identity_law*>(l)->fwhich();
        int t = l->type();
        if (!(mode_ & law_program::exact)) {
            double v;
            if (tree_constant(l, v)) return constant(v);
            int h = try_horner(l);
            if (h >= 0) return h;
        } else if (t == plus_law::id() || t == minus_law::id()) {
            int h = try_power_sum(l, 3);
            if (h >= 0) return h;
        } else if (t == division_law::id())
            quotient_of_sums(static_cast<const binary_law*>(l));
        if (l->isa(binary_law::id())) {
            const binary_law* b = static_cast<const binary_law*>(l);
            if (!scalar_args(b)) return tree(l);
            if (t == plus_law::id() || t == minus_law::id() || t == times_law::id() ||
                t == division_law::id() || t == exponent_law::id())
                return arithmetic(b, t);
            return tree(l);
        }
        if (!l->isa(unary_law::id())) return tree(l);
        const law* g = static_cast<const unary_law*>(l)->fsub();
        if (!g || !g->returns_scalar()) return tree(l);
        int a = value(g);
        if (t == negate_law::id()) return emit(op_neg, a);
        if (t == sin_law::id()) return function(op_sin, a);
        if (t == cos_law::id()) return function(op_cos, a);
        if (t == exp_law::id()) return function(op_exp, a);
        if (t == natural_log_law::id()) return function(op_ln, a);
        if (t == sqrt_law::id()) return function(op_sqrt, a);
        if (t == abs_law::id()) return function(op_abs, a);
        if (t == sinh_law::id()) return function(op_sinh, a);
        if (t == cosh_law::id()) return function(op_cosh, a);
        if (unary_family(l)) {
            int f = adapter(l, 1);
            if (f >= 0) return emit(op_apply1, a, 0, 0.0, 0.0, 0, helpers_[f], f + 1);
        }
        return tree(l);
    }

    // A function of a constant multiple, offset or quotient takes that step in itself
    // (COS(X+1) is one instruction); the step's own instruction then dies unless another
    // reads it.
    int function(int op, int a) {
        const instruction* m = producer(a);
        if (!m) return emit(op, a);
        bool pooled = m->op == op_addc || m->op == op_mulc || m->op == op_affine ||
                      m->op == op_rsubc || m->op == op_divc;
        double c = pooled ? pool_[m->aux] : 0.0;
        switch (m->op) {
            case op_addc:
                return emit(op, m->a, 0, 0.0, c, pre_add);
            case op_mulc:
                return emit(op, m->a, 0, c, 0.0, pre_mul);
            case op_affine:
                return emit(op, m->a, 0, c, pool_[m->aux + 1], pre_affine);
            case op_neg:
                return emit(op, m->a, 0, 0.0, 0.0, pre_neg);
            case op_rsubc:
                return emit(op, m->a, 0, 0.0, c, pre_rsub);
            case op_divc:
                return emit(op, m->a, 0, c, 0.0, pre_div);
            default:
                return emit(op, a);
        }
    }

    int arithmetic(const binary_law* l, int t) {
        int a = value(l->fleft());
        int b = value(l->fright());
        bool ca = is_const_[a], cb = is_const_[b];
        if (t == plus_law::id() || t == minus_law::id()) {
            bool plus = t == plus_law::id();
            if (ca && cb) return emit(plus ? op_add : op_sub, a, b);
            if (!plus && ca) return emit(op_rsubc, b, 0, const_value_[a]);
            if (!ca && !cb) return emit(plus ? op_add : op_sub, a, b);
            // A + d, d + A, A - d: a - d is a + (-d) exactly.
            int other = ca ? b : a;
            double d = ca ? const_value_[a] : (plus ? const_value_[b] : -const_value_[b]);
            const instruction* m = producer(other);
            if (m && m->op == op_mulc) return emit(op_affine, m->a, 0, pool_[m->aux], d);
            return emit(op_addc, other, 0, d);
        }
        if (t == times_law::id()) {
            if (ca != cb) return emit(op_mulc, ca ? b : a, 0, const_value_[ca ? a : b]);
            if (a == b) return emit(op_sqr, a);
            return emit(op_mul, a, b);
        }
        // Over a constant that is not tiny the division law is the plain quotient.
        if (t == division_law::id() && cb && !ca && std::fabs(const_value_[b]) >= tiny)
            return emit(op_divc, a, 0, const_value_[b]);
        if (t == division_law::id()) return emit(op_div, a, b, 0.0, 0.0, 0, l);
        // The power: a square never raises, and is a*a in the tree too.
        double k = cb ? const_value_[b] : 0.0;
        if (cb && k == 2.0) return emit(op_sqr, a);
        if (cb && !(mode_ & law_program::exact)) {
            bool whole = k == std::trunc(k) && std::fabs(k) <= max_chain_power;
            if (k == 1.0) return a;
            if (whole && k >= 3.0) return emit(op_powi, a, 0, 0.0, 0.0, (int)k);
            if (whole && k <= -1.0) return emit(op_rpowi, a, 0, 0.0, 0.0, (int)-k);
            if (k == 0.5) return emit(op_half, a);
        }
        // Any other constant exponent: the tree's own power, its tests and its arithmetic.
        if (cb && k >= 3.0 && k <= max_compensated_power && k == std::trunc(k))
            return emit(op_xpowi, a, 0, 0.0, 0.0, (int)k);
        if (cb) return emit(op_xpow, a, 0, k);
        int f = adapter(l, 2);
        if (f < 0) return tree(l);
        return emit(op_apply2, a, b, 0.0, 0.0, 0, helpers_[f], f + 1);
    }

    int mode_;
    int inputs_;
    tracked_map<const law*, int> seen_;
    tracked_map<unsigned long long, int> constants_;
    tracked_map<key, int, key_hash> numbered_;
    tracked_map<int, int> adapters_;
    tracked_set<const law*> not_poly_;
    bool too_deep_ = false;
    tracked_map<int, int> made_by_;
    tracked_map<tracked_string, int, string_hash> polynomials_;
};

// How the single-point pass runs one instruction of the program (values, before
// registers are given):
// - as it is;
// - absorbed: a Horner step all of whose readers take it in themselves;
// - fused with the Horner steps that make its operands (a function of a polynomial, a
//   quotient of two polynomials of one operand).  The fused step reads the polynomials'
//   operand in place of their results, so that operand must stay in its register the
//   whole pass: only inputs and constants qualify;
// - a sine and a cosine of one operand (and pre-step) next to each other: both by one
//   call of sin_cos at the second, the first absorbed;
// - a function of a sum, difference or product made right before it and read by it
//   alone: the operation is the function's pre-step, the operation absorbed.
// Next to each other, no value is made or freed between the two, so no register the
// fused step reads is written between them (and a step reads its operands before it
// writes its result).  The arithmetic is the same, in the same order, so values do not
// change; only dispatches and stores are saved.
struct point_fusion {
    unsigned char step = 0;  // 0: the instruction as it is
    bool absorbed = false;
    int a = 0, n = 0, b = 0, aux = 0, part = 0;
    int sine = 0, cosine = 0;  // the values step_sincos writes
};

tracked_vector<point_fusion> fuse_for_point(const tracked_vector<instruction>& code,
                                            const tracked_vector<int>& uses,
                                            const tracked_vector<char>& is_const,
                                            const tracked_vector<double>& pool, int inputs) {
    int values = (int)uses.size();
    tracked_vector<point_fusion> f(code.size());
    tracked_vector<int> maker(values, -1), fused_uses(values, 0);
    for (int i = 0; i < (int)code.size(); ++i)
        if (code[i].op != 255) maker[code[i].dst] = i;
    auto horner_at = [&](int v, int op = op_horner) -> const instruction* {
        int i = maker[v];
        if (i < 0 || code[i].op != op) return nullptr;
        int a = code[i].a;
        return a < inputs || is_const[a] ? &code[i] : nullptr;
    };
    for (int j = 0; j < (int)code.size(); ++j) {
        const instruction& p = code[j];
        if (p.op == op_div) {
            // (c0 + ... + cn X^n) / (d0 + ... + dm X^m) in one step, of Horner steps or of
            // polynomial chains
            unsigned char step = step_ratio;
            const instruction *u = horner_at(p.a), *v = horner_at(p.b);
            if (!u || !v) {
                step = step_sum_ratio;
                u = horner_at(p.a, op_psum);
                v = horner_at(p.b, op_psum);
            }
            if (!u || !v || u->a != v->a) continue;
            f[j] = point_fusion{step, false, u->a, u->n, v->n, u->aux, v->aux};
            ++fused_uses[p.a];
            ++fused_uses[p.b];
        } else if (function_op(p.op) && p.n == pre_none) {
            // F(c0 + ... + cn X^n) in one step
            const instruction* u = horner_at(p.a);
            if (!u) continue;
            f[j] = point_fusion{step_pre_horner, false, u->a, 0, u->n, u->aux, 0};
            ++fused_uses[p.a];
        }
    }
    for (int i = 0; i < (int)code.size(); ++i)
        if ((code[i].op == op_horner || code[i].op == op_psum) &&
            fused_uses[code[i].dst] == uses[code[i].dst])
            f[i].absorbed = true;
    // SIN(A) and COS(A) next to each other: both at the second
    for (int i = 0, j; i < (int)code.size(); i = j) {
        for (j = i + 1; j < (int)code.size() && code[j].op == 255; ++j) {
        }
        if (j == (int)code.size()) break;
        const instruction &u = code[i], &v = code[j];
        bool pair = (u.op == op_sin && v.op == op_cos) || (u.op == op_cos && v.op == op_sin);
        if (!pair || u.a != v.a || u.n != v.n || f[i].step || f[j].step) continue;
        if (u.n != pre_none && (pool[u.aux] != pool[v.aux] || pool[u.aux + 1] != pool[v.aux + 1]))
            continue;
        f[i].absorbed = true;
        f[j].step = step_sincos;
        f[j].sine = u.op == op_sin ? u.dst : v.dst;
        f[j].cosine = u.op == op_sin ? v.dst : u.dst;
        for (++j; j < (int)code.size() && code[j].op == 255; ++j) {
        }
    }
    // F(A+B), F(A-B), F(A*B) next to each other, the sum read by F alone: F takes it as its
    // pre-step
    for (int i = 0, j; i < (int)code.size(); i = j) {
        for (j = i + 1; j < (int)code.size() && code[j].op == 255; ++j) {
        }
        if (j == (int)code.size()) break;
        const instruction &u = code[i], &v = code[j];
        bool binary = u.op == op_add || u.op == op_sub || u.op == op_mul;
        if (!binary || !function_op(v.op) || v.n != pre_none || v.a != u.dst || uses[u.dst] != 1 ||
            f[i].step || f[i].absorbed || f[j].step || f[j].absorbed)
            continue;
        f[i].absorbed = true;
        f[j].step = (unsigned char)(step_pre_add_r + (u.op - op_add));
        f[j].a = u.a;
        f[j].b = u.b;
    }
    return f;
}

// The step that ends the pass with the last instruction's value, or 0.
unsigned char ending_step(unsigned char step) {
    switch (step) {
        case op_add:
            return step_end_add;
        case op_sub:
            return step_end_sub;
        case op_mul:
            return step_end_mul;
        case op_horner:
            return step_end_horner;
        case step_ratio:
            return step_end_ratio;
        case step_sum_ratio:
            return step_end_sum_ratio;
        case op_psum:
            return step_end_psum;
        default:
            return 0;
    }
}

}  // namespace

law_program::law_program(const law* l, int mode) : law_(l), mode_(mode) {
    if (!l) sys_error(LAW_EVAL);
    // released if compiling raises; none kept when borrowed
    law_holder held = mode & borrowed ? law_holder() : law_holder::share(l);
    inputs_ = l->take_dim();
    compiler c(mode, inputs_);
    int result = c.value(l);

    // Liveness: the last instruction that reads each value; dead instructions that cannot
    // raise are dropped.
    int values = (int)c.is_const_.size();
    tracked_vector<int> last(values, -1), uses(values, 0);
    last[result] = (int)c.code_.size();
    uses[result] = 1;
    for (int i = (int)c.code_.size() - 1; i >= 0; --i) {
        instruction& p = c.code_[i];
        if (!uses[p.dst] && !may_raise(p.op)) {
            p.op = 255;
            continue;
        }
        auto read = [&](int v) {
            if (last[v] < 0) last[v] = i;
            ++uses[v];
        };
        switch (p.op) {
            case op_add:
            case op_sub:
            case op_mul:
            case op_div:
            case op_apply2:
                read(p.a);
                read(p.b);
                break;
            case op_tree:
                break;
            default:
                read(p.a);
        }
    }

    tracked_vector<point_fusion> fusion =
        fuse_for_point(c.code_, uses, c.is_const_, c.pool_, inputs_);
    tracked_vector<instruction> point;

    // Registers: inputs, constants, then results by linear scan.
    tracked_vector<int> reg(values, -1);
    int next = inputs_;
    for (int v = 0; v < inputs_; ++v) reg[v] = v;
    for (int v = inputs_; v < values; ++v)
        if (c.is_const_[v]) reg[v] = next++;
    tracked_vector<int> free_list;
    count_ = 0;
    for (int i = 0; i < (int)c.code_.size(); ++i) {
        instruction& p = c.code_[i];
        if (p.op == 255) continue;
        if (!free_list.empty()) {
            reg[p.dst] = free_list.back();
            free_list.pop_back();
        } else
            reg[p.dst] = next++;
        auto release = [&](int v) {
            if (!c.is_const_[v] && v >= inputs_ && last[v] == i) {
                free_list.push_back(reg[v]);
                last[v] = -2;  // freed once, even when read twice here
            }
        };
        bool binary = p.op == op_add || p.op == op_sub || p.op == op_mul || p.op == op_div ||
                      p.op == op_apply2;
        if (p.op != op_tree) release(p.a);
        if (binary) release(p.b);
        p.dst = reg[p.dst];
        p.a = p.op == op_tree ? 0 : reg[p.a];
        p.b = binary ? reg[p.b] : 0;
        c.code_[count_++] = p;
        const point_fusion& f = fusion[i];
        if (f.absorbed) continue;
        instruction q = p;
        bool pre = function_op(q.op) && q.n != pre_none;
        q.step = (unsigned char)(pre ? step_pre + q.n - 1 : q.op);
        if (f.step == step_sincos) {
            q.op = step_sincos;
            if (!pre) q.step = step_sincos;
            q.dst = reg[f.sine];
            q.b = reg[f.cosine];
        } else if (f.step >= step_pre_add_r && f.step <= step_pre_mul_r) {
            q.step = f.step;
            q.a = reg[f.a];
            q.b = reg[f.b];
        } else if (f.step) {
            q.step = f.step;
            q.a = reg[f.a];
            q.b = f.b;
            if (f.step == step_ratio || f.step == step_sum_ratio) {
                q.n = f.n;
                q.part = f.part;
            }
            q.aux = f.aux;
        }
        point.push_back(q);
    }
    if (next == 0) next = 1;  // a program of no input and no instruction still has a cell
    registers_ = next;
    result_ = reg[result];

    // One instruction more: the end of the single-point pass.
    code_ = VORX_ALLOC_ARRAY(instruction, count_ + 1);
    for (int i = 0; i < count_; ++i) {
        code_[i] = c.code_[i];
        bool pre = function_op(code_[i].op) && code_[i].n != pre_none;
        code_[i].step = (unsigned char)(pre ? step_pre + code_[i].n - 1 : code_[i].op);
    }
    code_[count_] = instruction{op_tree, step_end, 0, 0, 0, 0, 0, -1, nullptr};
    // The single-point pass's code: the last instruction, when it makes the value, returns
    // it itself.
    if (!point.empty() && point.back().dst == result_ && ending_step(point.back().step))
        point.back().step = ending_step(point.back().step);
    // A*B+C at the end, the product made by the step before and read by the sum alone
    size_t k = point.size();
    if (k >= 2 && point[k - 1].step == step_end_add && point[k - 2].step == op_mul &&
        (point[k - 1].a == point[k - 2].dst) != (point[k - 1].b == point[k - 2].dst)) {
        instruction& sum = point[k - 1];
        int addend = sum.a == point[k - 2].dst ? sum.b : sum.a;
        point[k - 2].step = step_end_mul_add;
        point[k - 2].n = addend;
        point.pop_back();
    }
    // An operand that the previous step made is taken from the pass, not from its register
    // (a sum or a product takes it first: the same value, either order).
    point.push_back(code_[count_]);
    point.back().a = result_;
    for (size_t k = 0; k < point.size(); ++k) {
        instruction& q = point[k];
        int prev = k ? point[k - 1].dst : -1;
        unsigned char s = q.step;
        bool commutes = s == op_add || s == op_mul || s == step_end_add || s == step_end_mul ||
                        s == step_end_mul_add;
        if (commutes && q.b == prev && q.a != prev) std::swap(q.a, q.b);
        bool reads_a = q.op != op_tree || q.step == step_end;
        q.from_previous = q.a == prev && reads_a;
        q.from_input = !q.from_previous && reads_a && q.a < inputs_;
    }
    // A polynomial or a quotient of polynomials of one input is all the program: evaluate
    // computes it without entering the pass (no frame, no copy of the inputs).
    if (point.size() == 2 && point[0].a < inputs_ &&
        (point[0].step == step_end_horner || point[0].step == step_end_ratio))
        entry_ = point[0].step;
    point_ = VORX_ALLOC_ARRAY(instruction, point.size());
    for (size_t i = 0; i < point.size(); ++i) point_[i] = point[i];
    run_point(nullptr, true);  // the handlers' addresses
    pool_ = VORX_ALLOC_ARRAY(double, c.pool_.size() + 1);
    for (size_t i = 0; i < c.pool_.size(); ++i) pool_[i] = c.pool_[i];
    helper_count_ = (int)c.helpers_.size();
    helpers_ = VORX_ALLOC_ARRAY(const law*, helper_count_ ? helper_count_ : 1);
    for (int i = 0; i < helper_count_; ++i) helpers_[i] = c.helpers_[i];
    c.helpers_.clear();  // the program owns them now

    int m = inputs_;
    reg_ = VORX_ALLOC_ARRAY(double, registers_);
    grad_ = VORX_ALLOC_ARRAY(double, (size_t)registers_*(m ? m : 1));
    block_in_ = VORX_ALLOC_ARRAY(const double*, m ? m : 1);
    for (int r = 0; r < registers_; ++r) {
        reg_[r] = 0.0;
        for (int i = 0; i < m; ++i) grad_[r * m + i] = r == i ? 1.0 : 0.0;
    }
    tracked_vector<int> constants;
    for (int v = 0; v < values; ++v)
        if (c.is_const_[v] && reg[v] >= 0) {
            reg_[reg[v]] = c.const_value_[v];
            constants.push_back(reg[v]);
        }
    constant_count_ = (int)constants.size();
    constant_regs_ = VORX_ALLOC_ARRAY(int, constant_count_ ? constant_count_ : 1);
    for (int k = 0; k < constant_count_; ++k) constant_regs_[k] = constants[k];
    if (!(mode & borrowed)) make_block();
    plan_gradient();

    // The single-point pass as machine code: its steps in the generator's terms, every
    // step this pass knows by name; any other (a step added since) leaves the program on
    // the interpreter.
    if (!(mode & interpreted)) {
        tracked_vector<jit_step> steps;
        bool known = true;
        // sin .. cosh and sincos, the operations a pre-step may hand on to
        auto function = [&](int op) {
            switch (op) {
                case op_sin:
                    return jit_op::sin;
                case op_cos:
                    return jit_op::cos;
                case op_exp:
                    return jit_op::exp;
                case op_ln:
                    return jit_op::ln;
                case op_sqrt:
                    return jit_op::sqrt;
                case op_abs:
                    return jit_op::abs;
                case op_sinh:
                    return jit_op::sinh;
                case op_cosh:
                    return jit_op::cosh;
                case step_sincos:
                    return jit_op::sincos;
                default:
                    known = false;
                    return jit_op::end;
            }
        };
        for (size_t k = 0; k < point.size(); ++k) {
            const instruction& q = point[k];
            jit_step s{jit_op::end, jit_pre::none, false, q.dst,  q.a,
                       q.b,         q.n,           q.aux, q.part, q.node};
            // the steps called back are given their instruction
            auto back = [&](jit_call f, bool ends, jit_op op = jit_op::call) {
                s.op = op;
                s.function = f;
                s.node = point_ + k;
                s.ends = ends;
            };
            // clang-format off
            switch (q.step) {
                case op_add: s.op = jit_op::add; break;
                case op_sub: s.op = jit_op::sub; break;
                case op_mul: s.op = jit_op::mul; break;
                case op_div: s.op = jit_op::div; break;
                case op_neg: s.op = jit_op::neg; break;
                case op_mulc: s.op = jit_op::mulc; break;
                case op_addc: s.op = jit_op::addc; break;
                case op_rsubc: s.op = jit_op::rsubc; break;
                case op_affine: s.op = jit_op::affine; break;
                case op_divc: s.op = jit_op::divc; break;
                case op_sqr: s.op = jit_op::sqr; break;
                case op_powi: s.op = jit_op::powi; break;
                case op_rpowi: s.op = jit_op::rpowi; break;
                case op_half: s.op = jit_op::half; break;
                case op_horner: s.op = jit_op::horner; break;
                case op_sin: case op_cos: case op_exp: case op_ln: case op_sqrt: case op_abs:
                case op_sinh: case op_cosh: s.op = function(q.step); break;
                case step_pre - 1 + pre_add: s.op = function(q.op); s.pre = jit_pre::add; break;
                case step_pre - 1 + pre_mul: s.op = function(q.op); s.pre = jit_pre::mul; break;
                case step_pre - 1 + pre_affine: s.op = function(q.op); s.pre = jit_pre::affine; break;
                case step_pre - 1 + pre_neg: s.op = function(q.op); s.pre = jit_pre::neg; break;
                case step_pre - 1 + pre_rsub: s.op = function(q.op); s.pre = jit_pre::rsub; break;
                case step_pre - 1 + pre_div: s.op = function(q.op); s.pre = jit_pre::div; break;
                case step_pre_add_r: s.op = function(q.op); s.pre = jit_pre::add_r; break;
                case step_pre_sub_r: s.op = function(q.op); s.pre = jit_pre::sub_r; break;
                case step_pre_mul_r: s.op = function(q.op); s.pre = jit_pre::mul_r; break;
                case step_pre_horner: s.op = function(q.op); s.pre = jit_pre::horner; break;
                case step_sincos: s.op = jit_op::sincos; break;
                case step_ratio: s.op = jit_op::ratio; break;
                case step_end_add: s.op = jit_op::add; s.ends = true; break;
                case step_end_sub: s.op = jit_op::sub; s.ends = true; break;
                case step_end_mul: s.op = jit_op::mul; s.ends = true; break;
                case step_end_horner: s.op = jit_op::horner; s.ends = true; break;
                case step_end_ratio: s.op = jit_op::ratio; s.ends = true; break;
                case step_end_mul_add: s.op = jit_op::end_mul_add; break;
                case step_end: s.op = jit_op::end; break;
                case op_apply1: s.op = jit_op::apply1; break;
                case op_apply2: s.op = jit_op::apply2; break;
                case op_tree: s.op = jit_op::tree; break;
                case op_xpowi: back(call_whole_power, false, jit_op::cpow); break;
                case op_xpow: back(call_exponent, false); break;
                case op_psum: back(call_power_sum, false, jit_op::chain); break;
                case step_end_psum: back(call_power_sum, true, jit_op::chain); break;
                case step_sum_ratio: back(call_sum_ratio, false, jit_op::chain_ratio); break;
                case step_end_sum_ratio: back(call_sum_ratio, true, jit_op::chain_ratio); break;
                default: known = false;  // a step unknown here
            }
            // clang-format on
            steps.push_back(s);
        }
        // A point the machine code hands back (a domain test, a special case) is the
        // interpreter's, which gives its value or raises.
        jit_fallback interpret = [](const void* self, const double* x) {
            return static_cast<const law_program*>(self)->run_point(x);
        };
        // A law's own program: its tree, which runs nothing of the program.
        if (mode_ & borrowed)
            interpret = [](const void* self, const double* x) {
                return static_cast<const law_program*>(self)->source()->tree_value(x);
            };
        if (known)
            native_ = jit_make(steps.data(), (int)steps.size(), inputs_, registers_, reg_, pool_,
                               (int)c.pool_.size(), interpret, this, native_memory_, native_size_);
    }
    held.release();
}

law_program::~law_program() {
    for (int i = 0; i < helper_count_; ++i) law_remove(helpers_[i]);
    VORX_FREE(helpers_);
    VORX_FREE(code_);
    VORX_FREE(point_);
    VORX_FREE(pool_);
    VORX_FREE(reg_);
    VORX_FREE(grad_);
    VORX_FREE(block_);
    VORX_FREE(constant_regs_);
    VORX_FREE(block_in_);
    VORX_FREE(gradient_code_);
    jit_release(native_memory_, native_size_);
    if (!(mode_ & borrowed)) law_->remove();
}

namespace {

jit_result call_whole_power(const void* q, const double*, double a) noexcept {
    return {whole_power(a, static_cast<const instruction*>(q)->n), 0};
}

jit_result call_exponent(const void* q, const double* pool, double a) noexcept {
    try {
        return {exponent_value(a, pool[static_cast<const instruction*>(q)->aux]), 0};
    } catch (...) {
        return {0.0, 1};
    }
}

jit_result call_power_sum(const void* q, const double* pool, double a) noexcept {
    const instruction* p = static_cast<const instruction*>(q);
    return {power_sum(pool + p->aux, p->n, a), 0};
}

jit_result call_sum_ratio(const void* q, const double* pool, double a) noexcept {
    const instruction* p = static_cast<const instruction*>(q);
    double num = power_sum(pool + p->aux, p->n, a);
    double den = power_sum(pool + p->part, p->b, a);
    if (std::fabs(num) < tiny && std::fabs(den) < tiny) return {0.0, 1};
    return {num / den, 0};
}

// The quotient of two Horner polynomials of a, as op_div over the two Horner steps gives
// it: both below tiny hand the point to the division law.
inline double ratio(const instruction* p, double a, const double* pool, const double* x) {
    double num = horner_unrolled(pool + p->aux, p->n, a);
    double den = horner_unrolled(pool + p->part, p->b, a);
    if (std::fabs(num) < tiny && std::fabs(den) < tiny) return p->node->evaluateM_R(x);
    return num / den;
}

// The same over two polynomial chains.
inline double sum_ratio(const instruction* p, double a, const double* pool, const double* x) {
    double num = power_sum(pool + p->aux, p->n, a);
    double den = power_sum(pool + p->part, p->b, a);
    if (std::fabs(num) < tiny && std::fabs(den) < tiny) return p->node->evaluateM_R(x);
    return num / den;
}

}  // namespace

// The single-point pass.  Under GCC and Clang each handler ends in its own indirect jump
// to the next one ("direct threading": the processor predicts every jump from the handler
// it leaves, which learns a program's sequence), and the operand of the next instruction
// is loaded before the jump; a last instruction (step_end) ends the pass, so there is no
// count to test.  Elsewhere the same handlers run as the cases of a switch.  Every
// handler is the arithmetic of apply(), and the folds at compile time run apply(), so
// both agree bit for bit.  Cross-jumping would merge the handlers' identical jumps back
// into one, which is the switch again.
double law_program::interpret(const double* x) const {
    const instruction* p = point_;
    if (__builtin_expect(entry_ != 0, 0)) {
        if (entry_ == step_end_horner) return horner_unrolled(pool_ + p->aux, p->n, x[p->a]);
        return ratio(p, x[p->a], pool_, x);
    }
    return run_point(x);
}

#if defined(__GNUC__) && !defined(__clang__)
__attribute__((noinline, optimize("no-crossjumping", "no-gcse")))
#endif
double
law_program::run_point(const double* x, bool link) const {
#if defined(__GNUC__)
    static const void* const handlers[] = {
        &&h_add,       &&h_sub,        &&h_mul,         &&h_div,       &&h_neg,
        &&h_mulc,      &&h_addc,       &&h_rsubc,       &&h_affine,    &&h_divc,
        &&h_sqr,       &&h_powi,       &&h_rpowi,       &&h_half,      &&h_horner,
        &&h_sin,       &&h_cos,        &&h_exp,         &&h_ln,        &&h_sqrt,
        &&h_abs,       &&h_sinh,       &&h_cosh,        &&h_xpowi,     &&h_xpow,
        &&h_psum,      &&h_apply1,     &&h_apply2,      &&h_tree,      &&h_pre_add,
        &&h_pre_mul,   &&h_pre_affine, &&h_pre_neg,     &&h_pre_rsub,  &&h_pre_div,
        &&h_end,       &&h_pre_horner, &&h_ratio,       &&h_sincos,    &&h_end_add,
        &&h_end_sub,   &&h_end_mul,    &&h_end_horner,  &&h_end_ratio, &&h_pre_add_r,
        &&h_pre_sub_r, &&h_pre_mul_r,  &&h_end_mul_add, &&h_sum_ratio, &&h_end_sum_ratio,
        &&h_end_psum};
    static_assert(sizeof handlers / sizeof handlers[0] == step_count, "one handler an opcode");
    if (__builtin_expect(link, 0)) {
        for (instruction* q = point_;; ++q) {
            q->jump = handlers[q->step];
            if (q->step == step_end) return 0.0;
        }
    }
#endif
    double* r = reg_;
    // one and two inputs, by far the most common, without a loop
    if (inputs_ == 1) {
        r[0] = x[0];
    } else if (inputs_ == 2) {
        r[0] = x[0];
        r[1] = x[1];
    } else
        for (int i = 0; i < inputs_; ++i) r[i] = x[i];
    const instruction* p = point_;
    const double* pool = pool_;
    double a, v = 0.0;
#if defined(__GNUC__)
#define LAWUTIL_HANDLER(name, op) h_##name:
#define LAWUTIL_NEXT                       \
    ++p;                                   \
    if (p->from_previous)                  \
        a = v;                             \
    else                                   \
        a = (p->from_input ? x : r)[p->a]; \
    goto * p->jump
#define LAWUTIL_FUNCTION goto* handlers[p->op]
    a = (p->from_input ? x : r)[p->a];
    goto * p->jump;
#else
    (void)link;
#define LAWUTIL_HANDLER(name, op) case op:
#define LAWUTIL_NEXT \
    ++p;             \
    continue
#define LAWUTIL_FUNCTION \
    op = p->op;          \
    goto again
    for (;;) {
        a = p->from_previous ? v : (p->from_input ? x : r)[p->a];
        unsigned char op = p->step;
    again:
        switch (op) {
#endif
    LAWUTIL_HANDLER(add, op_add)
    r[p->dst] = v = a + r[p->b];
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(sub, op_sub)
    r[p->dst] = v = a - r[p->b];
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(mul, op_mul)
    r[p->dst] = v = a * r[p->b];
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(div, op_div) {
        double b = r[p->b];
        r[p->dst] = v =
            std::fabs(a) < tiny && std::fabs(b) < tiny ? p->node->evaluateM_R(x) : a / b;
    }
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(neg, op_neg)
    r[p->dst] = v = -a;
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(mulc, op_mulc)
    r[p->dst] = v = a * pool[p->aux];
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(addc, op_addc)
    r[p->dst] = v = a + pool[p->aux];
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(rsubc, op_rsubc)
    r[p->dst] = v = pool[p->aux] - a;
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(affine, op_affine)
    r[p->dst] = v = a * pool[p->aux] + pool[p->aux + 1];
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(divc, op_divc)
    r[p->dst] = v = a / pool[p->aux];
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(sqr, op_sqr)
    r[p->dst] = v = a * a;
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(powi, op_powi)
    r[p->dst] = v = chain_power_point(a, p->n);
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(rpowi, op_rpowi)
    if (a == 0.0) sys_error(LAW_EXPONENT);
    r[p->dst] = v = reciprocal_power(a, p->n);
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(half, op_half)
    if (a < 0.0) sys_error(LAW_EXPONENT);
    r[p->dst] = v = tested_sqrt(a) + 0.0;
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(horner, op_horner)
    r[p->dst] = v = horner_unrolled(pool + p->aux, p->n, a);
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(sin, op_sin)
    r[p->dst] = v = std::sin(a);
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(cos, op_cos)
    r[p->dst] = v = std::cos(a);
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(exp, op_exp)
    r[p->dst] = v = std::exp(a);
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(ln, op_ln)
    if (a <= 0.0) sys_error(LAW_LN);
    r[p->dst] = v = std::log(a);
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(sqrt, op_sqrt)
    if (a < 0.0) sys_error(LAW_SQRT);
    r[p->dst] = v = tested_sqrt(a);
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(abs, op_abs)
    r[p->dst] = v = std::fabs(a);
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(sinh, op_sinh)
    r[p->dst] = v = std::sinh(a);
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(cosh, op_cosh)
    r[p->dst] = v = std::cosh(a);
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(xpowi, op_xpowi)
    r[p->dst] = v = whole_power(a, p->n);
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(xpow, op_xpow)
    r[p->dst] = v = exponent_value(a, pool[p->aux]);
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(psum, op_psum)
    r[p->dst] = v = power_sum(pool + p->aux, p->n, a);
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(apply1, op_apply1) {
        double in = a;  // a's address would keep a out of a register in every handler
        r[p->dst] = v = p->node->evaluateM_R(&in);
    }
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(apply2, op_apply2) {
        double ab[2] = {a, r[p->b]};
        r[p->dst] = v = p->node->evaluateM_R(ab);
    }
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(tree, op_tree)
    r[p->dst] = v = p->node->evaluateM_R(x);
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(pre_add, step_pre - 1 + pre_add)
    a = a + pool[p->aux + 1];
    LAWUTIL_FUNCTION;
    LAWUTIL_HANDLER(pre_mul, step_pre - 1 + pre_mul)
    a = a * pool[p->aux];
    LAWUTIL_FUNCTION;
    LAWUTIL_HANDLER(pre_affine, step_pre - 1 + pre_affine)
    a = a * pool[p->aux] + pool[p->aux + 1];
    LAWUTIL_FUNCTION;
    LAWUTIL_HANDLER(pre_neg, step_pre - 1 + pre_neg)
    a = -a;
    LAWUTIL_FUNCTION;
    LAWUTIL_HANDLER(pre_rsub, step_pre - 1 + pre_rsub)
    a = pool[p->aux + 1] - a;
    LAWUTIL_FUNCTION;
    LAWUTIL_HANDLER(pre_div, step_pre - 1 + pre_div)
    a = a / pool[p->aux];
    LAWUTIL_FUNCTION;
    LAWUTIL_HANDLER(pre_add_r, step_pre_add_r)
    a = a + r[p->b];
    LAWUTIL_FUNCTION;
    LAWUTIL_HANDLER(pre_sub_r, step_pre_sub_r)
    a = a - r[p->b];
    LAWUTIL_FUNCTION;
    LAWUTIL_HANDLER(pre_mul_r, step_pre_mul_r)
    a = a * r[p->b];
    LAWUTIL_FUNCTION;
    LAWUTIL_HANDLER(pre_horner, step_pre_horner)
    a = horner_unrolled(pool + p->aux, p->b, a);
    LAWUTIL_FUNCTION;
    LAWUTIL_HANDLER(ratio, step_ratio)
    r[p->dst] = v = ratio(p, a, pool, x);
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(sincos, step_sincos) {
        double sn, cs;
        sin_cos(a, sn, cs);
        r[p->dst] = v = sn;
        r[p->b] = cs;
    }
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(end, step_end)
    return a;  // the end's operand is the result
    LAWUTIL_HANDLER(end_add, step_end_add)
    return a + r[p->b];
    LAWUTIL_HANDLER(end_sub, step_end_sub)
    return a - r[p->b];
    LAWUTIL_HANDLER(end_mul, step_end_mul)
    return a * r[p->b];
    LAWUTIL_HANDLER(end_horner, step_end_horner)
    return horner_unrolled(pool + p->aux, p->n, a);
    LAWUTIL_HANDLER(end_mul_add, step_end_mul_add)
    return a * r[p->b] + r[p->n];
    LAWUTIL_HANDLER(end_ratio, step_end_ratio)
    return ratio(p, a, pool, x);
    LAWUTIL_HANDLER(sum_ratio, step_sum_ratio)
    r[p->dst] = v = sum_ratio(p, a, pool, x);
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(end_sum_ratio, step_end_sum_ratio)
    return sum_ratio(p, a, pool, x);
    LAWUTIL_HANDLER(end_psum, step_end_psum)
    return power_sum(pool + p->aux, p->n, a);
#if !defined(__GNUC__)
}
}
#endif
#undef LAWUTIL_HANDLER
#undef LAWUTIL_NEXT
#undef LAWUTIL_FUNCTION
}

namespace {

// The slopes both gradient passes share, so that they agree bit for bit.

// A Horner step with its derivative in the same steps, unrolled by falling through from
// the degree like horner_unrolled (whose value it gives, bit for bit): dq takes q's
// previous value before q takes its next one, and starts as the leading coefficient.
inline double horner_with_slope(const double* c, int n, double x, double& slope) {
    double q = c[n], dq = q;
    if (n < 1) {
        slope = 0.0;
        return q;
    }
    q = q * x + c[n - 1];
    if (n > 16) {
        for (int k = n - 2; k >= 0; --k) {
            dq = dq * x + q;
            q = q * x + c[k];
        }
        slope = dq;
        return q;
    }
    // clang-format off
    switch (n - 1) {
#define LAWUTIL_STEP(k) case k + 1: dq = dq * x + q; q = q * x + c[k]; [[fallthrough]];
        LAWUTIL_STEP(14) LAWUTIL_STEP(13) LAWUTIL_STEP(12) LAWUTIL_STEP(11) LAWUTIL_STEP(10)
        LAWUTIL_STEP(9) LAWUTIL_STEP(8) LAWUTIL_STEP(7) LAWUTIL_STEP(6) LAWUTIL_STEP(5)
        LAWUTIL_STEP(4) LAWUTIL_STEP(3) LAWUTIL_STEP(2) LAWUTIL_STEP(1)
        case 1: dq = dq * x + q; q = q * x + c[0];
#undef LAWUTIL_STEP
        default: break;
    }
    // clang-format on
    slope = dq;
    return q;
}

// (A^n)' = n A^(n-1) A'.  The cube, the commonest, shares its square with its slope.
inline double power_with_slope(double a, int n, double& slope) {
    if (n == 3) {
        double a2 = a * a;
        slope = 3.0 * a2;
        return a2 * a;
    }
    slope = n * chain_power(a, n - 1);
    return chain_power(a, n);
}

// The same for the tree's whole powers (3 <= n <= 16): in the compensated range a^(n-1)
// and a^n from one loop (continued, a^n has compensated_power's bits), beyond it pow.
inline double whole_power_with_slope(double a, int n, double& slope) {
    if (!compensated_range(a)) {
        slope = n * std::pow(a, (double)(n - 1));
        return std::pow(a, (double)n);
    }
    double hi, lo;
    double below = compensated_power_steps(a, a, 0.0, 1, n - 1, &hi, &lo);
    slope = n * below;
    return compensated_power_steps(a, hi, lo, n - 1, n, &hi, &lo);
}

// (sum of c a^k)' = sum of c k a^(k-1), from the value's own powers.
inline double power_sum_with_slope(const double* t, int terms, double a, double& slope) {
    double p[max_degree + 1];
    double v = power_sum(t, terms, a, p);
    slope = 0.0;
    for (int i = 0; i < terms; ++i) {
        int k = (int)t[2 * i + 2];
        if (k) slope += t[2 * i + 1] * k * p[k - 1];
    }
    return v;
}

// (A^c)' = c A^(c-1) A' for the tree's other constant powers, NaN where A^(c-1) leaves its
// domain (0^-0.5: the symbolic derivative raises there).  Only asked where A^c passed the
// tests, so a negative A comes with a whole c.  Kept out of line, as partial_at.
#if defined(__GNUC__)
__attribute__((noinline))
#endif
double
power_slope(double a, double c) {
    if (a == 0.0 && c - 1.0 <= 0.0) return not_a_number;
    return c * exponent_value(a, c - 1.0);
}

// SINH(A)' = COSH(A) A', with COSH(A) = SQRT(1+SINH(A)^2): a square root instead of a
// second exponential (within 2 ulp of cosh; cosh itself where the square overflows).
inline double sinh_slope(double a, double sinh_a) {
    return std::fabs(sinh_a) < 1e150 ? std::sqrt(1.0 + sinh_a * sinh_a) : std::cosh(a);
}

// A fallback's partial at a point: NaN where its class has no derivative and where the
// derivative leaves its domain, so the gradient pass raises exactly where evaluate does,
// with its code, and never for a partial (X^1 at 0: the slope 1*X^0 raises, X^1 does not).
// Kept out of line: a handler inside the threaded passes costs them registers.
#if defined(__GNUC__)
__attribute__((noinline))
#endif
double
partial_at(const law* d, const double* at) {
    if (!d) return not_a_number;
    try {
        return d->evaluateM_R(at);
    } catch (const vorx_exception&) {
        return not_a_number;
    }
}

// The gradient pass's own step past the single-point pass's: P(A)/Q(A), two Horner steps
// over one operand and the division of the first by the second, in one handler.
enum : unsigned char { step_rational = step_end + 1 };

}  // namespace

// The threaded gradient pass runs a copy of the code with steps of its own: a Horner step,
// a second one over the same operand and the division of the first result by the second
// (a rational function, as the compiler leaves it) are one rational step, which computes
// the three results as the three instructions do and stores them all.
void law_program::plan_gradient() {
    gradient_code_ = VORX_ALLOC_ARRAY(instruction, count_ + 1);
    for (int i = 0; i <= count_; ++i) gradient_code_[i] = code_[i];
    for (int i = 0; i + 2 < count_; ++i) {
        const instruction* p = code_ + i;
        if (p[0].op == op_horner && p[1].op == op_horner && p[2].op == op_div && p[1].a == p[0].a &&
            p[2].a == p[0].dst && p[2].b == p[1].dst) {
            gradient_code_[i].step = step_rational;
            i += 2;
        }
    }
}

// The gradient pass of a law of one or two inputs, threaded like the single-point pass:
// each handler computes the value and the partials of its instruction directly.  The
// result of the last instruction stays in registers (v, dv) besides being stored, and
// an operand that is that result (the next instruction reads it, more often than not) is
// taken from there, without waiting on the store.  A pre-step scales the operand's
// partials before the function's slope does.  The slopes and their order are those of
// gradient_pass, so the two agree bit for bit (but for the sign of a zero partial of two
// inputs, where the general pass adds 0 * db); the values are evaluate's.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC push_options
#pragma GCC optimize("no-tree-slp-vectorize")
#endif
template <int M>
#if defined(__GNUC__) && !defined(__clang__)
__attribute__((optimize("no-crossjumping", "no-gcse"), visibility("hidden")))
#endif
double
law_program::gradient_threaded(const double* x, double* grad) const {
    double* r = reg_;
    double* g = grad_;
    for (int i = 0; i < M; ++i) r[i] = x[i];
    const instruction* p = gradient_code_;
    const double* pool = pool_;
    double a, da0 = 0.0, da1 = 0.0, v = 0.0, dv0 = 0.0, dv1 = 0.0;
    // The last sine and cosine computed, and the bits of their argument: SIN(A) and
    // COS(A) of the same A (the commonest pair) make one call.  sin(+0) = +0, cos(+0) = 1.
    double sc_sin = 0.0, sc_cos = 1.0;
    unsigned long long sc_arg = 0;
#define LAWUTIL_SIN_COS                      \
    {                                        \
        unsigned long long bits;             \
        std::memcpy(&bits, &a, sizeof bits); \
        if (bits != sc_arg) {                \
            sin_cos(a, sc_sin, sc_cos);      \
            sc_arg = bits;                   \
        }                                    \
    }
#define LAWUTIL_D(x, i) (*((i) == 0 ? &x##0 : &x##1))
    int last = -1;  // the register of v
#define LAWUTIL_FETCH                                                    \
    if (p->a == last) {                                                  \
        a = v;                                                           \
        for (int i = 0; i < M; ++i) LAWUTIL_D(da, i) = LAWUTIL_D(dv, i); \
    } else {                                                             \
        a = r[p->a];                                                     \
        for (int i = 0; i < M; ++i) LAWUTIL_D(da, i) = g[p->a * M + i];  \
    }
#if defined(__GNUC__)
    static const void* const handlers[] = {
        &&h_add,     &&h_sub,        &&h_mul,     &&h_div,      &&h_neg,     &&h_mulc,
        &&h_addc,    &&h_rsubc,      &&h_affine,  &&h_divc,     &&h_sqr,     &&h_powi,
        &&h_rpowi,   &&h_half,       &&h_horner,  &&h_sin,      &&h_cos,     &&h_exp,
        &&h_ln,      &&h_sqrt,       &&h_abs,     &&h_sinh,     &&h_cosh,    &&h_xpowi,
        &&h_xpow,    &&h_psum,       &&h_apply1,  &&h_apply2,   &&h_tree,    &&h_pre_add,
        &&h_pre_mul, &&h_pre_affine, &&h_pre_neg, &&h_pre_rsub, &&h_pre_div, &&h_end,
        &&h_rational};
    static_assert(sizeof handlers / sizeof handlers[0] == step_rational + 1, "one an opcode");
#define LAWUTIL_HANDLER(name, op) h_##name:
#define LAWUTIL_NEXT \
    last = p->dst;   \
    ++p;             \
    LAWUTIL_FETCH    \
    goto* handlers[p->step]
#define LAWUTIL_FUNCTION goto* handlers[p->op]
    LAWUTIL_FETCH
    goto* handlers[p->step];
#else
#define LAWUTIL_HANDLER(name, op) case op:
#define LAWUTIL_NEXT \
    last = p->dst;   \
    ++p;             \
    continue
#define LAWUTIL_FUNCTION \
    op = p->op;          \
    goto again
            for (;;) {
                LAWUTIL_FETCH
                unsigned char op = p->step;
            again:
                switch (op) {
#endif
// The second operand and its partials, from the registers when it is the last result.
#define LAWUTIL_OPERAND_B                                  \
    bool b_last = p->b == last;                            \
    double b = b_last ? v : r[p->b], db0 = 0.0, db1 = 0.0; \
    for (int i = 0; i < M; ++i) LAWUTIL_D(db, i) = b_last ? LAWUTIL_D(dv, i) : g[p->b * M + i];
#define LAWUTIL_STORE \
    r[p->dst] = v;    \
    for (int i = 0; i < M; ++i) g[p->dst * M + i] = LAWUTIL_D(dv, i);
// d(result) = s * da
#define LAWUTIL_UNARY(value, slope)                                           \
    {                                                                         \
        double v_ = (value), s_ = (slope);                                    \
        v = v_;                                                               \
        for (int i = 0; i < M; ++i) LAWUTIL_D(dv, i) = s_ * LAWUTIL_D(da, i); \
        LAWUTIL_STORE                                                         \
    }
    // (A+B)' = A' + B', (A-B)' = A' - B', (AB)' = B A' + A B'
    LAWUTIL_HANDLER(add, op_add) {
        LAWUTIL_OPERAND_B
        v = a + b;
        for (int i = 0; i < M; ++i) LAWUTIL_D(dv, i) = LAWUTIL_D(da, i) + LAWUTIL_D(db, i);
        LAWUTIL_STORE
    }
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(sub, op_sub) {
        LAWUTIL_OPERAND_B
        v = a - b;
        for (int i = 0; i < M; ++i) LAWUTIL_D(dv, i) = LAWUTIL_D(da, i) - LAWUTIL_D(db, i);
        LAWUTIL_STORE
    }
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(mul, op_mul) {
        LAWUTIL_OPERAND_B
        v = a * b;
        for (int i = 0; i < M; ++i) LAWUTIL_D(dv, i) = b * LAWUTIL_D(da, i) + a * LAWUTIL_D(db, i);
        LAWUTIL_STORE
    }
    LAWUTIL_NEXT;
    // (A/B)' = (1/B) A' - (A/B)(1/B) B'; no slopes where the tree resolved 0/0
    LAWUTIL_HANDLER(div, op_div) {
        LAWUTIL_OPERAND_B
        bool resolved = std::fabs(a) < tiny && std::fabs(b) < tiny;
        double q = resolved ? p->node->evaluateM_R(x) : a / b;
        double s = resolved ? not_a_number : 1.0 / b, t = resolved ? not_a_number : -q * s;
        v = q;
        for (int i = 0; i < M; ++i) LAWUTIL_D(dv, i) = s * LAWUTIL_D(da, i) + t * LAWUTIL_D(db, i);
        LAWUTIL_STORE
    }
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(neg, op_neg)
    LAWUTIL_UNARY(-a, -1.0)
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(mulc, op_mulc)
    LAWUTIL_UNARY(a * pool[p->aux], pool[p->aux])
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(addc, op_addc)
    LAWUTIL_UNARY(a + pool[p->aux], 1.0)
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(rsubc, op_rsubc)
    LAWUTIL_UNARY(pool[p->aux] - a, -1.0)
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(affine, op_affine)
    LAWUTIL_UNARY(a * pool[p->aux] + pool[p->aux + 1], pool[p->aux])
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(divc, op_divc)
    LAWUTIL_UNARY(a / pool[p->aux], 1.0 / pool[p->aux])
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(sqr, op_sqr)
    LAWUTIL_UNARY(a * a, 2.0 * a)
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(powi, op_powi) {
        double s, w = power_with_slope(a, p->n, s);
        LAWUTIL_UNARY(w, s)
    }
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(rpowi, op_rpowi) {
        if (a == 0.0) sys_error(LAW_EXPONENT);
        double w = reciprocal_power(a, p->n);
        LAWUTIL_UNARY(w, -p->n * w / a)
    }
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(half, op_half) {
        if (a < 0.0) sys_error(LAW_EXPONENT);
        double w = std::sqrt(a) + 0.0;
        LAWUTIL_UNARY(w, 0.5 / w)
    }
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(horner, op_horner) {
        double s, w = horner_with_slope(pool + p->aux, p->n, a, s);
        LAWUTIL_UNARY(w, s)
    }
    LAWUTIL_NEXT;
    // P(A)/Q(A): the steps of horner, horner and div, the two Horner steps side by side.
    LAWUTIL_HANDLER(rational, step_rational) {
        double sp, sq;
        double pv = horner_with_slope(pool + p[0].aux, p[0].n, a, sp);
        double qv = horner_with_slope(pool + p[1].aux, p[1].n, a, sq);
        double dp0 = sp * da0, dq0 = sq * da0, dp1 = sp * da1, dq1 = sq * da1;
        r[p[0].dst] = pv;
        r[p[1].dst] = qv;
        g[p[0].dst * M] = dp0;
        g[p[1].dst * M] = dq0;
        if (M == 2) {
            g[p[0].dst * M + 1] = dp1;
            g[p[1].dst * M + 1] = dq1;
        }
        p += 2;
        bool resolved = std::fabs(pv) < tiny && std::fabs(qv) < tiny;
        double q = resolved ? p->node->evaluateM_R(x) : pv / qv;
        double s = resolved ? not_a_number : 1.0 / qv, t = resolved ? not_a_number : -q * s;
        v = q;
        dv0 = s * dp0 + t * dq0;
        dv1 = s * dp1 + t * dq1;
        LAWUTIL_STORE
    }
    LAWUTIL_NEXT;
    // A function's pre-step: its operand, and the operand's partials scaled by its slope.
    LAWUTIL_HANDLER(pre_add, step_pre - 1 + pre_add)
    a = a + pool[p->aux + 1];
    LAWUTIL_FUNCTION;
    LAWUTIL_HANDLER(pre_mul, step_pre - 1 + pre_mul)
    a = a * pool[p->aux];
    for (int i = 0; i < M; ++i) LAWUTIL_D(da, i) = pool[p->aux] * LAWUTIL_D(da, i);
    LAWUTIL_FUNCTION;
    LAWUTIL_HANDLER(pre_affine, step_pre - 1 + pre_affine)
    a = a * pool[p->aux] + pool[p->aux + 1];
    for (int i = 0; i < M; ++i) LAWUTIL_D(da, i) = pool[p->aux] * LAWUTIL_D(da, i);
    LAWUTIL_FUNCTION;
    LAWUTIL_HANDLER(pre_neg, step_pre - 1 + pre_neg)
    a = -a;
    for (int i = 0; i < M; ++i) LAWUTIL_D(da, i) = -LAWUTIL_D(da, i);
    LAWUTIL_FUNCTION;
    LAWUTIL_HANDLER(pre_rsub, step_pre - 1 + pre_rsub)
    a = pool[p->aux + 1] - a;
    for (int i = 0; i < M; ++i) LAWUTIL_D(da, i) = -LAWUTIL_D(da, i);
    LAWUTIL_FUNCTION;
    LAWUTIL_HANDLER(pre_div, step_pre - 1 + pre_div) {
        double s = 1.0 / pool[p->aux];
        a = a / pool[p->aux];
        for (int i = 0; i < M; ++i) LAWUTIL_D(da, i) = s * LAWUTIL_D(da, i);
    }
    LAWUTIL_FUNCTION;
    LAWUTIL_HANDLER(sin, op_sin)
    LAWUTIL_SIN_COS
    LAWUTIL_UNARY(sc_sin, sc_cos)
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(cos, op_cos)
    LAWUTIL_SIN_COS
    LAWUTIL_UNARY(sc_cos, -sc_sin)
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(exp, op_exp) {
        double w = std::exp(a);
        LAWUTIL_UNARY(w, w)
    }
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(ln, op_ln)
    if (a <= 0.0) sys_error(LAW_LN);
    LAWUTIL_UNARY(std::log(a), 1.0 / a)
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(sqrt, op_sqrt) {
        if (a < 0.0) sys_error(LAW_SQRT);
        double w = std::sqrt(a);
        LAWUTIL_UNARY(w, 0.5 / w)
    }
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(abs, op_abs)
    // ABS(g)' = SET(g)*g' - (1-SET(g))*g': the slope is -1 at 0
    LAWUTIL_UNARY(std::fabs(a), a > 0.0 ? 1.0 : -1.0)
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(sinh, op_sinh) {
        double w = std::sinh(a);
        LAWUTIL_UNARY(w, sinh_slope(a, w))
    }
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(cosh, op_cosh)
    LAWUTIL_UNARY(std::cosh(a), std::sinh(a))
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(xpowi, op_xpowi) {
        double s, w = whole_power_with_slope(a, p->n, s);
        LAWUTIL_UNARY(w, s)
    }
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(xpow, op_xpow) {
        double w = exponent_value(a, pool[p->aux]);
        LAWUTIL_UNARY(w, power_slope(a, pool[p->aux]))
    }
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(psum, op_psum) {
        double s, w = power_sum_with_slope(pool + p->aux, p->n, a, s);
        LAWUTIL_UNARY(w, s)
    }
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(apply1, op_apply1) {
        double in = a;
        double w = p->node->evaluateM_R(&in);
        const law* d = helpers_[p->part];
        LAWUTIL_UNARY(w, partial_at(d, &in))
    }
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(apply2, op_apply2) {
        LAWUTIL_OPERAND_B
        double ab[2] = {a, b};
        double w = p->node->evaluateM_R(ab);
        const law* dx = helpers_[p->part];
        const law* dy = helpers_[p->part + 1];
        double s = partial_at(dx, ab);
        // A constant exponent has no partials: LN(A) of (A^B)' is not asked for.
        bool constant_b = true;
        for (int i = 0; i < M; ++i) constant_b = constant_b && LAWUTIL_D(db, i) == 0.0;
        double t = constant_b ? 0.0 : partial_at(dy, ab);
        v = w;
        for (int i = 0; i < M; ++i)
            LAWUTIL_D(dv, i) =
                constant_b ? s * LAWUTIL_D(da, i) : s * LAWUTIL_D(da, i) + t * LAWUTIL_D(db, i);
        LAWUTIL_STORE
    }
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(tree, op_tree) {
        v = p->node->evaluateM_R(x);
        for (int i = 0; i < M; ++i) {
            const law* d = p->part >= 0 ? helpers_[p->part + i] : nullptr;
            LAWUTIL_D(dv, i) = partial_at(d, x);
        }
        LAWUTIL_STORE
    }
    LAWUTIL_NEXT;
    LAWUTIL_HANDLER(end, step_end)
    for (int i = 0; i < M; ++i) grad[i] = result_ == last ? LAWUTIL_D(dv, i) : g[result_ * M + i];
    return result_ == last ? v : r[result_];
#if !defined(__GNUC__)
}
}
#endif
#undef LAWUTIL_HANDLER
#undef LAWUTIL_NEXT
#undef LAWUTIL_FUNCTION
#undef LAWUTIL_FETCH
#undef LAWUTIL_OPERAND_B
#undef LAWUTIL_STORE
#undef LAWUTIL_UNARY
#undef LAWUTIL_D
#undef LAWUTIL_SIN_COS
}
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC pop_options
#endif

template <int inputs>
__attribute__((visibility("hidden"))) double law_program::gradient_pass(const double* x,
                                                                        double* grad) const {
    const int m = inputs > 0 ? inputs : inputs_;
    double* r = reg_;
    double* g = grad_;
    for (int i = 0; i < m; ++i) r[i] = x[i];
    for (const instruction *p = code_, *e = code_ + count_; p != e; ++p) {
        double* gd = g + p->dst * m;
        const double* ga = g + p->a * m;
        const double* gb = g + p->b * m;
        bool pre = function_op(p->op) && p->n != pre_none;
        double a = pre ? pre_value(*p, r[p->a], pool_) : r[p->a];
        double v;
        // d(result) = s * (ps * da) (+ t * db), ps the slope of a function's pre-step
        double s = 0.0, t = 0.0, ps = pre ? pre_slope(*p, pool_) : 1.0;
        bool two = false;
        switch (p->op) {
            case op_add:
                v = a + r[p->b];
                s = t = 1.0;
                two = true;
                break;
            case op_sub:
                v = a - r[p->b];
                s = 1.0;
                t = -1.0;
                two = true;
                break;
            case op_mul:
                v = a * r[p->b];
                s = r[p->b];
                t = a;
                two = true;
                break;
            case op_div: {
                double b = r[p->b];
                v = apply(*p, r, pool_, x);
                // (A/B)' = (1/B) A' - (A/B)(1/B) B'; no slopes where the tree resolved 0/0
                bool resolved = std::fabs(a) < tiny && std::fabs(b) < tiny;
                s = resolved ? not_a_number : 1.0 / b;
                t = resolved ? not_a_number : -v * s;
                two = true;
                break;
            }
            case op_neg:
                v = -a;
                s = -1.0;
                break;
            case op_mulc:
                v = a * pool_[p->aux];
                s = pool_[p->aux];
                break;
            case op_affine:
                v = a * pool_[p->aux] + pool_[p->aux + 1];
                s = pool_[p->aux];
                break;
            case op_divc:
                v = a / pool_[p->aux];
                s = 1.0 / pool_[p->aux];
                break;
            case op_addc:
                v = a + pool_[p->aux];
                s = 1.0;
                break;
            case op_rsubc:
                v = pool_[p->aux] - a;
                s = -1.0;
                break;
            case op_sqr:
                v = a * a;
                s = 2.0 * a;
                break;
            case op_powi:
                v = power_with_slope(a, p->n, s);
                break;
            case op_rpowi:
                v = apply(*p, r, pool_, x);
                s = -p->n * v / a;
                break;
            case op_half:
                v = apply(*p, r, pool_, x);
                s = 0.5 / v;
                break;
            case op_horner:
                v = horner_with_slope(pool_ + p->aux, p->n, a, s);
                break;
            case op_sin:
                sin_cos(a, v, s);
                break;
            case op_cos:
                sin_cos(a, s, v);
                s = -s;
                break;
            case op_exp:
                v = std::exp(a);
                s = v;
                break;
            case op_ln:
                if (a <= 0.0) sys_error(LAW_LN);
                v = std::log(a);
                s = 1.0 / a;
                break;
            case op_sqrt:
                if (a < 0.0) sys_error(LAW_SQRT);
                v = std::sqrt(a);
                s = 0.5 / v;
                break;
            case op_abs:
                // ABS(g)' = SET(g)*g' - (1-SET(g))*g': the slope is -1 at 0
                v = std::fabs(a);
                s = a > 0.0 ? 1.0 : -1.0;
                break;
            case op_sinh:
                v = std::sinh(a);
                s = sinh_slope(a, v);
                break;
            case op_cosh:
                v = std::cosh(a);
                s = std::sinh(a);
                break;
            case op_xpowi:
                v = whole_power_with_slope(a, p->n, s);
                break;
            case op_xpow:
                v = exponent_value(a, pool_[p->aux]);
                s = power_slope(a, pool_[p->aux]);
                break;
            case op_psum:
                v = power_sum_with_slope(pool_ + p->aux, p->n, a, s);
                break;
            case op_apply1: {
                v = apply(*p, r, pool_, x);
                const law* d = helpers_[p->part];
                s = partial_at(d, &a);
                break;
            }
            case op_apply2: {
                v = apply(*p, r, pool_, x);
                double ab[2] = {a, r[p->b]};
                const law* dx = helpers_[p->part];
                const law* dy = helpers_[p->part + 1];
                s = partial_at(dx, ab);
                // A constant exponent has no partials: LN(A) of (A^B)' is not asked for.
                bool constant_b = true;
                for (int i = 0; i < m; ++i) constant_b = constant_b && gb[i] == 0.0;
                t = constant_b ? 0.0 : partial_at(dy, ab);
                two = !constant_b;
                break;
            }
            default: {
                v = p->node->evaluateM_R(x);
                for (int i = 0; i < m; ++i) {
                    const law* d = p->part >= 0 ? helpers_[p->part + i] : nullptr;
                    gd[i] = partial_at(d, x);
                }
                r[p->dst] = v;
                continue;
            }
        }
        if (!two) t = 0.0;
        // One and two inputs, by far the most common, as plain scalars: a vector loop
        // here would read rows just written lane by lane, and stall on every instruction.
        if (m == 1)
            gd[0] = two ? s * ga[0] + t * gb[0] : s * (ps * ga[0]);
        else if (m == 2) {
            double g0 = s * (ps * ga[0]) + t * gb[0], g1 = s * (ps * ga[1]) + t * gb[1];
            gd[0] = g0;
            gd[1] = g1;
        } else
            for (int i = 0; i < m; ++i) gd[i] = two ? s * ga[i] + t * gb[i] : s * (ps * ga[i]);
        r[p->dst] = v;
    }
    for (int i = 0; i < m; ++i) grad[i] = g[result_ * m + i];
    return r[result_];
}

double law_program::evaluate_with_gradient(const double* x, double* grad) const {
    // One and two inputs, by far the most common, get passes of their own with the row
    // length a constant.
    if (inputs_ == 1) return gradient_threaded<1>(x, grad);
    if (inputs_ == 2) return gradient_threaded<2>(x, grad);
    return gradient_pass<0>(x, grad);
}

// ---------------------------------------------------------------- batch evaluation

namespace {

// The lanes of a block where `bad` holds get NaN and, for the first failure of the
// point, the code.
template <class P>
void flag_lanes(int lanes, const double* __restrict a, double* __restrict r, int* err, int code,
                P bad) {
    int any = 0;
    for (int k = 0; k < lanes; ++k) any |= bad(a[k]);
    if (!any) return;
    for (int k = 0; k < lanes; ++k)
        if (bad(a[k])) {
            r[k] = not_a_number;
            if (!err[k]) err[k] = code;
        }
}

// The elementary functions over the lanes of a block, four lanes a call on a processor
// with AVX2: from SLEEF (its 1-ulp functions) when the build found it, else from glibc's
// vector math library (libmvec, up to 4 ulp); the tail, other processors and builds
// with neither take the scalar functions.
#if defined(__x86_64__) && (defined(LAWUTIL_HAVE_SLEEF) || defined(LAWUTIL_HAVE_LIBMVEC))
extern "C" {
#if defined(LAWUTIL_HAVE_SLEEF)
__m256d Sleef_sind4_u10avx2(__m256d);
__m256d Sleef_cosd4_u10avx2(__m256d);
__m256d Sleef_expd4_u10avx2(__m256d);
__m256d Sleef_logd4_u10avx2(__m256d);
__m256d Sleef_sinhd4_u10avx2(__m256d);
__m256d Sleef_coshd4_u10avx2(__m256d);
#define LAWUTIL_VECTOR_MATH(f) Sleef_##f##d4_u10avx2
#else
__m256d _ZGVdN4v_sin(__m256d);
__m256d _ZGVdN4v_cos(__m256d);
__m256d _ZGVdN4v_exp(__m256d);
__m256d _ZGVdN4v_log(__m256d);
__m256d _ZGVdN4v_sinh(__m256d);
__m256d _ZGVdN4v_cosh(__m256d);
#define LAWUTIL_VECTOR_MATH(f) _ZGVdN4v_##f
#endif
}

// Four lanes a call while four remain; returns the lanes done.
__attribute__((target("avx2"))) int map_lanes_wide(int op, int lanes, const double* a, double* r) {
    __m256d (*f)(__m256d) = op == op_sin    ? LAWUTIL_VECTOR_MATH(sin)
                            : op == op_cos  ? LAWUTIL_VECTOR_MATH(cos)
                            : op == op_exp  ? LAWUTIL_VECTOR_MATH(exp)
                            : op == op_ln   ? LAWUTIL_VECTOR_MATH(log)
                            : op == op_sinh ? LAWUTIL_VECTOR_MATH(sinh)
                                            : LAWUTIL_VECTOR_MATH(cosh);
    int k = 0;
    for (; k + 4 <= lanes; k += 4) _mm256_storeu_pd(r + k, f(_mm256_loadu_pd(a + k)));
    return k;
}
#undef LAWUTIL_VECTOR_MATH
#else
                int map_lanes_wide(int, int, const double*, double*) {
                    return 0;
                }
#endif

// Square roots by the processor's own instruction (correctly rounded, like std::sqrt,
// but without the call that std::sqrt keeps for errno, which stops the loop from
// vectorising); a negative lane gets NaN and is flagged by the caller.
#if defined(__x86_64__)
__attribute__((target("avx2"))) int sqrt_lanes_wide(int lanes, const double* a, double* r) {
    int k = 0;
    for (; k + 4 <= lanes; k += 4) _mm256_storeu_pd(r + k, _mm256_sqrt_pd(_mm256_loadu_pd(a + k)));
    return k;
}
#endif

template <bool wide>
__attribute__((always_inline)) inline void sqrt_lanes(int lanes, const double* __restrict a,
                                                      double* __restrict r) {
    int k = 0;
#if defined(__x86_64__)
    if (wide) k = sqrt_lanes_wide(lanes, a, r);
    for (; k + 2 <= lanes; k += 2) _mm_storeu_pd(r + k, _mm_sqrt_pd(_mm_loadu_pd(a + k)));
#endif
    for (; k < lanes; ++k) r[k] = std::sqrt(a[k]);
}

// Horner steps over the lanes, the same operations in the same order as one point's
// (a product, then a sum: never contracted).  The wide form carries sixteen lanes
// through every coefficient in four registers.
void horner_lanes_plain(const double* cf, int n, int lanes, const double* a, double* r) {
    for (int k = 0; k < lanes; ++k) r[k] = horner(cf, n, a[k]);
}

#if defined(__x86_64__)
__attribute__((target("avx2"))) void horner_lanes_wide(const double* cf, int n, int lanes,
                                                       const double* a, double* r) {
    int k = 0;
    for (; k + 16 <= lanes; k += 16) {
        __m256d x0 = _mm256_loadu_pd(a + k), x1 = _mm256_loadu_pd(a + k + 4);
        __m256d x2 = _mm256_loadu_pd(a + k + 8), x3 = _mm256_loadu_pd(a + k + 12);
        __m256d q0 = _mm256_set1_pd(cf[n]), q1 = q0, q2 = q0, q3 = q0;
        for (int j = n - 1; j >= 0; --j) {
            __m256d c = _mm256_set1_pd(cf[j]);
            q0 = _mm256_add_pd(_mm256_mul_pd(q0, x0), c);
            q1 = _mm256_add_pd(_mm256_mul_pd(q1, x1), c);
            q2 = _mm256_add_pd(_mm256_mul_pd(q2, x2), c);
            q3 = _mm256_add_pd(_mm256_mul_pd(q3, x3), c);
        }
        _mm256_storeu_pd(r + k, q0);
        _mm256_storeu_pd(r + k + 4, q1);
        _mm256_storeu_pd(r + k + 8, q2);
        _mm256_storeu_pd(r + k + 12, q3);
    }
    horner_lanes_plain(cf, n, lanes - k, a + k, r + k);
}
#else
                void horner_lanes_wide(const double* cf, int n, int lanes, const double* a,
                                       double* r) {
                    horner_lanes_plain(cf, n, lanes, a, r);
                }
#endif

template <bool wide>
__attribute__((always_inline)) inline void map_lanes(bool vector_math, int op, int lanes,
                                                     const double* __restrict a,
                                                     double* __restrict r) {
    int k = wide && vector_math ? map_lanes_wide(op, lanes, a, r) : 0;
    double (*g)(double) = op == op_sin    ? static_cast<double (*)(double)>(std::sin)
                          : op == op_cos  ? static_cast<double (*)(double)>(std::cos)
                          : op == op_exp  ? static_cast<double (*)(double)>(std::exp)
                          : op == op_ln   ? static_cast<double (*)(double)>(std::log)
                          : op == op_sinh ? static_cast<double (*)(double)>(std::sinh)
                                          : static_cast<double (*)(double)>(std::cosh);
    for (; k < lanes; ++k) r[k] = g(a[k]);
}

// The lanes of a function instruction's operand after its affine step.
__attribute__((always_inline)) inline void pre_lanes(const instruction& p, const double* pool,
                                                     int lanes, const double* __restrict a,
                                                     double* __restrict out) {
    const double c = pool[p.aux], d = pool[p.aux + 1];
    switch (p.n) {
        case pre_add:
            for (int k = 0; k < lanes; ++k) out[k] = a[k] + d;
            break;
        case pre_mul:
            for (int k = 0; k < lanes; ++k) out[k] = a[k] * c;
            break;
        case pre_affine:
            for (int k = 0; k < lanes; ++k) out[k] = a[k] * c + d;
            break;
        case pre_neg:
            for (int k = 0; k < lanes; ++k) out[k] = -a[k];
            break;
        case pre_rsub:
            for (int k = 0; k < lanes; ++k) out[k] = d - a[k];
            break;
        default:
            for (int k = 0; k < lanes; ++k) out[k] = a[k] / c;
    }
}

// What a block needs of its program.
struct block_program {
    const instruction* code;
    int count;
    const double* pool;
    int inputs;
    double* point;            // scratch for one lane's inputs
    bool vector_math;         // the four-lane elementary functions may be used
    const double* const* in;  // the block's lanes of each input, read where they are
};

// One block of lanes, instruction by instruction.  Fallbacks to the tree run lane by lane
// and catch what the tree raises; a lane that has failed is not evaluated again.
template <bool wide>
__attribute__((always_inline)) inline void block_body(const block_program& bp, int lanes,
                                                      double* blk, int* err) {
    const int m = bp.inputs;
    const double* pool_ = bp.pool;
    for (const instruction *p = bp.code, *e = bp.code + bp.count; p != e; ++p) {
        const double* __restrict a = p->a < m ? bp.in[p->a] : blk + p->a * block_lanes;
        double stepped[block_lanes];
        if (function_op(p->op) && p->n != pre_none) {
            pre_lanes(*p, pool_, lanes, a, stepped);
            a = stepped;
        }
        const double* __restrict b = p->b < m ? bp.in[p->b] : blk + p->b * block_lanes;
        double* __restrict r = blk + p->dst * block_lanes;
        const double c = pool_[p->aux];
        switch (p->op) {
            case op_add:
                for (int k = 0; k < lanes; ++k) r[k] = a[k] + b[k];
                break;
            case op_sub:
                for (int k = 0; k < lanes; ++k) r[k] = a[k] - b[k];
                break;
            case op_mul:
                for (int k = 0; k < lanes; ++k) r[k] = a[k] * b[k];
                break;
            case op_neg:
                for (int k = 0; k < lanes; ++k) r[k] = -a[k];
                break;
            case op_mulc:
                for (int k = 0; k < lanes; ++k) r[k] = a[k] * c;
                break;
            case op_addc:
                for (int k = 0; k < lanes; ++k) r[k] = a[k] + c;
                break;
            case op_rsubc:
                for (int k = 0; k < lanes; ++k) r[k] = c - a[k];
                break;
            case op_affine: {
                const double d = pool_[p->aux + 1];
                for (int k = 0; k < lanes; ++k) r[k] = a[k] * c + d;
                break;
            }
            case op_divc:
                for (int k = 0; k < lanes; ++k) r[k] = a[k] / c;
                break;
            case op_sqr:
                for (int k = 0; k < lanes; ++k) r[k] = a[k] * a[k];
                break;
            case op_powi:
                for (int k = 0; k < lanes; ++k) r[k] = chain_power(a[k], p->n);
                break;
            case op_horner:
                if (wide)
                    horner_lanes_wide(pool_ + p->aux, p->n, lanes, a, r);
                else
                    horner_lanes_plain(pool_ + p->aux, p->n, lanes, a, r);
                break;
            case op_sin:
            case op_cos:
            case op_exp:
            case op_sinh:
            case op_cosh:
                map_lanes<wide>(bp.vector_math, p->op, lanes, a, r);
                break;
            case op_abs:
                for (int k = 0; k < lanes; ++k) r[k] = std::fabs(a[k]);
                break;
            case op_ln:
                map_lanes<wide>(bp.vector_math, p->op, lanes, a, r);
                flag_lanes(lanes, a, r, err, LAW_LN, [](double v) { return v <= 0.0; });
                break;
            case op_sqrt:
                sqrt_lanes<wide>(lanes, a, r);
                flag_lanes(lanes, a, r, err, LAW_SQRT, [](double v) { return v < 0.0; });
                break;
            case op_half:
                sqrt_lanes<wide>(lanes, a, r);
                for (int k = 0; k < lanes; ++k) r[k] += 0.0;
                flag_lanes(lanes, a, r, err, LAW_EXPONENT, [](double v) { return v < 0.0; });
                break;
            case op_xpowi:
                for (int k = 0; k < lanes; ++k) r[k] = whole_power(a[k], p->n);
                break;
            case op_psum:
                for (int k = 0; k < lanes; ++k) r[k] = power_sum(pool_ + p->aux, p->n, a[k]);
                break;
            case op_xpow: {
                // the tree's domain tests first, so a failing lane never reaches pow
                const bool whole = c == std::trunc(c);
                auto bad = [c, whole](double v) {
                    return (v == 0.0 && c <= 0.0) || (v < 0.0 && !whole);
                };
                for (int k = 0; k < lanes; ++k)
                    r[k] = bad(a[k]) ? not_a_number : exponent_value(a[k], c);
                flag_lanes(lanes, a, r, err, LAW_EXPONENT, bad);
                break;
            }
            case op_rpowi:
                for (int k = 0; k < lanes; ++k) r[k] = 1.0 / chain_power(a[k], p->n);
                // Lanes whose chain may have left the normal range, decided one by one.
                for (int k = 0; k < lanes; ++k)
                    if (!(std::fabs(r[k]) >= 1e-307 && std::fabs(r[k]) <= 1e307))
                        r[k] = reciprocal_power(a[k], p->n);
                flag_lanes(lanes, a, r, err, LAW_EXPONENT, [](double v) { return v == 0.0; });
                break;
            case op_div: {
                int any = 0;
                for (int k = 0; k < lanes; ++k) {
                    r[k] = a[k] / b[k];
                    any |= (std::fabs(a[k]) < tiny) & (std::fabs(b[k]) < tiny);
                }
                if (!any) break;
            }
                [[fallthrough]];
            default:
                // Lane by lane: the tree's own code, at the lane's inputs or operands.
                for (int k = 0; k < lanes; ++k) {
                    if (err[k]) {
                        r[k] = not_a_number;
                        continue;
                    }
                    if (p->op == op_div && !(std::fabs(a[k]) < tiny && std::fabs(b[k]) < tiny))
                        continue;
                    double* x = bp.point;
                    for (int i = 0; i < m; ++i) x[i] = bp.in[i][k];
                    double ab[2] = {a[k], b[k]};
                    try {
                        if (p->op == op_apply1 || p->op == op_apply2)
                            r[k] = p->node->evaluateM_R(ab);
                        else
                            r[k] = p->node->evaluateM_R(x);
                    } catch (const vorx_exception& ex) {
                        r[k] = not_a_number;
                        err[k] = ex.code();
                    }
                }
        }
    }
}

__attribute__((target("avx2"))) void block_wide(const block_program& bp, int lanes, double* blk,
                                                int* err) {
    block_body<true>(bp, lanes, blk, err);
}
void block_plain(const block_program& bp, int lanes, double* blk, int* err) {
    block_body<false>(bp, lanes, blk, err);
}

// Picked by the processor when the library loads (through a pointer, not an ifunc,
// which would run before the sanitizers' runtimes are ready).  The wide form is built
// for AVX2 without FMA, so that no a*b+c is contracted: the arithmetic of a lane is the
// single-point arithmetic, bit for bit.
void (*pick_block())(const block_program&, int, double*, int*) {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2") ? block_wide : block_plain;
}
void (*const run_block_of)(const block_program&, int, double*, int*) = pick_block();

}  // namespace

void law_program::run_block(int lanes, double* blk, int* err) const {
    block_program bp{code_, count_, pool_, inputs_, reg_, !(mode_ & exact), block_in_};
    run_block_of(bp, lanes, blk, err);
}

// The batch registers, constant lanes filled (reg_ holds the constants).
void law_program::make_block() const {
    block_ = VORX_ALLOC_ARRAY(double, (size_t)registers_* block_lanes);
    for (int k = 0; k < constant_count_; ++k) {
        int r = constant_regs_[k];
        for (int i = 0; i < block_lanes; ++i) block_[r * block_lanes + i] = reg_[r];
    }
}

void law_program::evaluate_batch(int n, const double* const* x, double* y, int* errors) const {
    if (!law_->returns_scalar()) sys_error(LAW_EVALS);
    if (!block_) make_block();
    int err[block_lanes];
    int failed = 1;  // err[] holds codes of the last block (or garbage before the first)
    for (int start = 0; start < n; start += block_lanes) {
        int lanes = n - start < block_lanes ? n - start : block_lanes;
        for (int i = 0; i < inputs_; ++i) block_in_[i] = x[i] + start;
        if (failed)
            for (int k = 0; k < block_lanes; ++k) err[k] = 0;
        run_block(lanes, block_, err);
        const double* out = result_ < inputs_ ? block_in_[result_] : block_ + result_ * block_lanes;
        failed = 0;
        for (int k = 0; k < lanes; ++k) failed |= err[k];
        if (failed)
            for (int k = 0; k < lanes; ++k) y[start + k] = err[k] ? not_a_number : out[k];
        else
            std::memcpy(y + start, out, sizeof(double) * lanes);
        if (errors) std::memcpy(errors + start, err, sizeof(int) * lanes);
    }
}

// ---------------------------------------------------------------- law_evaluator

law_evaluator::~law_evaluator() {
    delete program_;
}

namespace {

// Nodes the tree's walk visits (leaves are read in place): a shared subtree once per path
// to it, as the tree evaluates it, whereas the program computes it once.
double tree_visits(const law* l, tracked_map<const law*, double>& known) {
    if (!l || l->isa(constant_law::id()) || l->isa(identity_law::id())) return 0.0;
    auto it = known.find(l);
    if (it != known.end()) return it->second;
    double n = 1.0;
    if (l->isa(unary_law::id()))
        n += tree_visits(static_cast<const unary_law*>(l)->fsub(), known);
    else if (l->isa(binary_law::id())) {
        const binary_law* b = static_cast<const binary_law*>(l);
        n += tree_visits(b->fleft(), known) + tree_visits(b->fright(), known);
    } else if (l->isa(multiple_law::id())) {
        const multiple_law* m = static_cast<const multiple_law*>(l);
        for (int i = 0; i < m->fsub_num(); ++i) n += tree_visits(m->fsub()[i], known);
    }
    known[l] = n;
    return n;
}

// A general power costs the program about as much as 8 nodes of the tree (measured on
// E5: its 7 whole powers through the power law take it from 12 ns a point on the tree to
// 73 ns), which the tree computes by multiplication.
constexpr double general_power_cost = 8.0;

}  // namespace

law_program* compile_values(const law* l, int extra) {
    if (!l->returns_scalar()) return nullptr;
    law_program* p;
    try {
        p = VORX_NEW law_program(l, law_program::exact | law_program::values_only | extra);
    } catch (const vorx_exception&) {
        return nullptr;  // the tree serves on
    }
    bool worth = p->size() >= 2 || p->chain();
    if (worth && p->general_powers() > 0) {
        tracked_map<const law*, double> known;
        worth = tree_visits(l, known) > p->size() + general_power_cost * p->general_powers();
    }
    if (!worth) {
        delete p;
        return nullptr;
    }
    return p;
}

bool law_program::chain() const {
    return count_ == 1 && code_[0].op == op_psum;
}

int law_program::general_powers() const {
    int n = 0;
    for (int i = 0; i < count_; ++i) n += code_[i].op == op_apply2;
    return n;
}

void law_evaluator::decide() {
    decided_ = true;
    program_ = compile_values(law_);
}

double law_evaluator::through(const law_program* p, const double* x) {
    try {
        return p->evaluate(x);
    } catch (const vorx_exception&) {
        // The tree raises its own exception here, with whatever it carries besides the code.
        return law_->evaluateM_R(x);
    }
}
}  // namespace lawutil
