// Machine code for the single-point pass of a law_program (x86-64, SysV, Linux).
//
// What it is for.  The threaded interpreter (law_program::run_point) spends most of its
// time on dispatch: a load and an indirect jump a step, an operand fetched through the
// step's fields.  Here each step becomes its few SSE2 instructions, once, when the
// program is made, and evaluate calls the result.
//
// Values.  The code does what run_point does, operation for operation, in the same
// order: addsd, subsd, mulsd, divsd, sqrtsd (Horner as a multiplication then an addition,
// never fused; x^n the same chain of squarings), negation and absolute value by the sign
// bit, and calls the very libm functions the interpreter calls (their addresses taken
// here in C++).  So its values are run_point's, bit for bit.
//
// Errors.  Generated code has no unwind information, so nothing may throw through it.
// Every domain test (ln of <= 0, sqrt of < 0, a reciprocal power at 0 or beyond the
// chain's range, a division of two operands below tiny, which is the tree's) "bails"
// instead: the code takes its frame down and jumps to the interpreter (run_point, through
// a fallback given by the program) with the same x, which runs the point from the start,
// gives the value or raises the tree's code in the tree's order, and returns to
// evaluate's caller; by then no frame of generated code is on the stack.  The tests are
// written so that a NaN also bails (the interpreter then decides): bailing is always
// correct, it only costs time.  Steps that call back into laws (a subtree, a function law
// over X, the power law) call call_law, a noexcept function that catches whatever the
// law raises and reports it; the code then bails, and the interpreter raises it again.
// A point that bails runs the steps before it twice, which laws, being functions of their
// input, do not notice.
//
// Registers.  x and the program's registers stay in rbx and r14 (callee-saved; in a
// program that calls nothing, in the argument registers, without a frame); the pool is
// copied into the code and read RIP-relative, with the reciprocal of each power of two
// in it (a division by 2 is a multiplication by 0.5, the same bits).  The program's
// registers in memory are the truth; xmm2..xmm14 cache results (a free one, else one no
// later step reads, else the least recently used), xmm0 is the step's accumulator and
// xmm1, xmm15 scratch.  A result that a later step reads (before its register is
// written again) is cached, and stored only when it is evicted or before a call while
// still read: a call clobbers every xmm register, so the cache is emptied and later
// reads go to memory.  Inputs are read from x where the caller keeps them.  Two pushes
// and 8 bytes (24 with room for a called-back law's input) keep the stack 16-byte
// aligned at calls.
//
// Memory.  One mapping a program: written while read-write, then made read-execute
// (never both).  It cannot come from the base allocator (which has no executable
// memory); it is unmapped with the program.  Where the system refuses, the program
// keeps the interpreter.  The mapping starts with the constants the code reads
// RIP-relative (masks, tiny, the normal range, the pool), 16-byte aligned.  Mapping, writing,
// protecting and unmapping a page costs about 10 us here, several times the rest of
// compiling (BM_CompileCost).

#include "lawutil/compile_jit.hpp"

#if LAWUTIL_JIT
#include <sys/mman.h>
#include <unistd.h>

#include <cfloat>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <vector>

#include "base/memory.hpp"
#include "lawutil/law_base.hpp"
#endif

using namespace vorx;

namespace lawutil {

#if LAWUTIL_JIT

namespace {

template <class T>
using tracked_vector = std::vector<T, vorx_std_allocator<T>>;

// Below this a numerator and a denominator are both zero for the division law (as in
// compile.cpp).
constexpr double tiny = 1e-15;

// The constants at the start of the mapping, then the code.
enum : int {
    data_abs = 0,    // sign bit cleared (andpd), 16 bytes
    data_sign = 16,  // sign bit (xorpd), 16 bytes
    data_tiny = 32,
    data_zero = 40,
    data_min = 48,  // DBL_MIN
    data_max = 56,  // DBL_MAX
    data_one = 64,
    data_pool = 80  // the pool, then the reciprocals of its powers of two (or 0), then code
};

// General registers.
enum : int { rax = 0, rbx = 3, rsp = 4, rsi = 6, rdi = 7, r14 = 14 };
// The SSE registers' roles.
constexpr int acc = 0, scratch = 1, scratch2 = 15, first_cached = 2, last_cached = 14;

// Condition codes after ucomisd.
enum : int { cc_b = 2, cc_ae = 3, cc_e = 4, cc_ne = 5, cc_be = 6, cc_a = 7 };

// An operand: an SSE register, or memory at base + disp (base -1: the constants, disp
// their offset in the mapping).
struct operand {
    bool memory;
    int xmm;
    int base;
    int disp;
};
operand in_xmm(int x) {
    return {false, x, 0, 0};
}
operand at(int base, int disp) {
    return {true, 0, base, disp};
}
operand constant(int offset) {
    return {true, 0, -1, offset};
}

// 1/c where c is a power of two whose reciprocal is a double (then a/c and a*(1/c) are
// the same real number, rounded once: the same bits, by a multiplication instead of a
// division); else 0.
double exact_reciprocal(double c) {
    int e;
    if (!std::isfinite(c) || std::fabs(std::frexp(c, &e)) != 0.5) return 0.0;
    double r = 1.0 / c;
    return std::isfinite(r) && std::fabs(std::frexp(r, &e)) == 0.5 ? r : 0.0;
}

class assembler {
  public:
    tracked_vector<unsigned char> bytes;

    // The constants, then the pool's n values and their reciprocals where exact.
    assembler(const double* pool, int n) : bytes(data_pool + 16 * n, 0) {
        for (int k = 0; k < n; ++k) {
            put(data_pool + 8 * k, pool[k]);
            put(data_pool + 8 * (n + k), exact_reciprocal(pool[k]));
        }
        while (bytes.size() % 16) bytes.push_back(0);
        code_start = here();
        std::uint64_t abs_mask = 0x7fffffffffffffffull, sign = 0x8000000000000000ull;
        put(data_abs, abs_mask);
        put(data_abs + 8, abs_mask);
        put(data_sign, sign);
        put(data_sign + 8, sign);
        put(data_tiny, tiny);
        put(data_zero, 0.0);
        put(data_min, DBL_MIN);
        put(data_max, DBL_MAX);
        put(data_one, 1.0);
    }
    int code_start;
    int here() const { return (int)bytes.size(); }
    void byte(int b) { bytes.push_back((unsigned char)b); }
    void dword(std::int32_t v) {
        for (int i = 0; i < 4; ++i) byte((v >> (8 * i)) & 0xff);
    }

    // prefix [REX] 0F op ModRM [disp32]: the scalar and packed double instructions.
    void sse(int prefix, int op, int x, operand o) {
        byte(prefix);
        int rex = (x >= 8 ? 4 : 0) | ((o.memory ? o.base : o.xmm) >= 8 ? 1 : 0);
        if (rex) byte(0x40 | rex);
        byte(0x0f);
        byte(op);
        if (!o.memory) {
            byte(0xc0 | (x & 7) << 3 | (o.xmm & 7));
        } else if (o.base < 0) {
            byte(0x05 | (x & 7) << 3);  // RIP-relative: from the end of this instruction
            dword(o.disp - (here() + 4));
        } else {
            byte(0x80 | (x & 7) << 3 | (o.base & 7));  // [base + disp32]
            if (o.base == rsp) byte(0x24);             // rsp as a base takes a SIB byte
            dword(o.disp);
        }
    }
    void load(int x, operand o) {
        if (o.memory)
            sse(0xf2, 0x10, x, o);  // movsd
        else if (o.xmm != x)
            sse(0x66, 0x28, x, o);  // movapd
    }
    void store(operand m, int x) { sse(0xf2, 0x11, x, m); }
    void add(int x, operand o) { sse(0xf2, 0x58, x, o); }
    void mul(int x, operand o) { sse(0xf2, 0x59, x, o); }
    void sub(int x, operand o) { sse(0xf2, 0x5c, x, o); }
    void div(int x, operand o) { sse(0xf2, 0x5e, x, o); }
    void sqrt(int x) { sse(0xf2, 0x51, x, in_xmm(x)); }
    void and_mask(int x, int offset) { sse(0x66, 0x54, x, constant(offset)); }
    void xor_mask(int x, int offset) { sse(0x66, 0x57, x, constant(offset)); }
    void compare(int x, operand o) { sse(0x66, 0x2e, x, o); }  // ucomisd

    // jcc rel32 to a label placed later; returns where to patch.
    int jump_if(int cc) {
        byte(0x0f);
        byte(0x80 | cc);
        dword(0);
        return here() - 4;
    }
    void land(int patch) {
        std::int32_t rel = here() - (patch + 4);
        std::memcpy(&bytes[patch], &rel, 4);
    }
    // lea r64, [base + disp32]
    void address(int r, int base, int disp) {
        byte(0x48 | (base >= 8 ? 1 : 0));
        byte(0x8d);
        byte(0x80 | (r & 7) << 3 | (base & 7));
        dword(disp);
    }
    // mov r64, imm64
    void move(int r, const void* p) {
        std::uint64_t v = (std::uint64_t)(std::uintptr_t)p;
        byte(0x48 | (r >= 8 ? 1 : 0));
        byte(0xb8 | (r & 7));
        for (int k = 0; k < 8; ++k) byte((int)(v >> (8 * k)) & 0xff);
    }
    void call(const void* f) {
        move(rax, f);
        byte(0xff);  // call rax
        byte(0xd0);
    }

  private:
    template <class T>
    void put(int offset, T v) {
        std::memcpy(&bytes[offset], &v, sizeof v);
    }
};

// A law called back from machine code, which has no unwind information: nothing may
// leave it by an exception.  What the law raises is a bail, and the interpreter, running
// the point again, raises it in its place.
jit_result call_law(const law* node, const double* in) noexcept {
    try {
        return {node->evaluateM_R(in), 0};
    } catch (...) {
        return {0.0, 1};
    }
}

// The libm functions the interpreter calls (std::sin of a double is ::sin).
const void* library_function(jit_op op) {
    switch (op) {
        case jit_op::sin:
            return (const void*)static_cast<double (*)(double)>(::sin);
        case jit_op::cos:
            return (const void*)static_cast<double (*)(double)>(::cos);
        case jit_op::exp:
            return (const void*)static_cast<double (*)(double)>(::exp);
        case jit_op::ln:
            return (const void*)static_cast<double (*)(double)>(::log);
        case jit_op::sinh:
            return (const void*)static_cast<double (*)(double)>(::sinh);
        case jit_op::cosh:
            return (const void*)static_cast<double (*)(double)>(::cosh);
#if defined(__GLIBC__)
        case jit_op::sincos:
            return (const void*)static_cast<void (*)(double, double*, double*)>(::sincos);
#endif
        case jit_op::apply1:
        case jit_op::apply2:
        case jit_op::tree:
            return (const void*)&call_law;
        default:
            return nullptr;
    }
}

bool known(const jit_step& s) {
    bool function = s.op >= jit_op::sin && s.op <= jit_op::sincos;
    if (s.pre != jit_pre::none && !function) return false;
    // sincos keeps the cosine's register in b, which add_r .. horner would need
    if (s.op == jit_op::sincos && s.pre >= jit_pre::add_r) return false;
    if (s.op == jit_op::sincos && !library_function(s.op)) return false;
    if (s.op == jit_op::call) return s.function && s.pre == jit_pre::none;
    return s.op <= jit_op::tree && s.pre <= jit_pre::horner;
}

// The registers a step reads, for liveness (at most three).
int reads(const jit_step& s, int* r) {
    int k = 0;
    if (s.op == jit_op::tree) return 0;
    r[k++] = s.a;
    switch (s.op) {
        case jit_op::add:
        case jit_op::sub:
        case jit_op::mul:
        case jit_op::div:
        case jit_op::apply2:
            r[k++] = s.b;
            break;
        case jit_op::end_mul_add:
            r[k++] = s.b;
            r[k++] = s.n;
            break;
        default:
            if (s.pre == jit_pre::add_r || s.pre == jit_pre::sub_r || s.pre == jit_pre::mul_r)
                r[k++] = s.b;
    }
    return k;
}

bool ending(const jit_step& s) {
    return s.ends || s.op == jit_op::end || s.op == jit_op::end_mul_add;
}

class generator {
  public:
    // Where x and the registers are kept: callee-saved registers in a program
    // that calls libm, else the argument registers (no frame at all).
    generator(int inputs, int registers, int steps, bool calls, const double* pool, int pool_size)
        : base_x(calls ? rbx : rdi),
          base_reg(calls ? r14 : rsi),
          a(pool, pool_size),
          pool_values_(pool),
          pool_size_(pool_size),
          inputs_(inputs),
          registers_(registers),
          where_(registers + steps, -1) {}
    const int base_x, base_reg;

    assembler a;
    tracked_vector<int> bail_jumps;
    int now = 0;  // the step being generated
    // By step: the earlier step whose function argument is this one's, or -1; the last
    // later step that takes this one's argument again, or -1.
    tracked_vector<int> same_argument_, argument_read_;

    // Where register r's value is now: a cached SSE register, x for an input, else memory.
    operand of(int r) {
        if (where_[r] >= 0) {
            slots_[where_[r]].used = ++clock_;
            return in_xmm(where_[r]);
        }
        return r < inputs_ ? at(base_x, 8 * r) : at(base_reg, 8 * r);
    }
    // r's value in an SSE register: its cache, or loaded into `spare`.
    int in_register(int r, int spare) {
        operand o = of(r);
        if (!o.memory) return o.xmm;
        a.load(spare, o);
        return spare;
    }
    operand pool(int k) { return constant(data_pool + 8 * k); }
    // a / pool[k], by the exact reciprocal where there is one
    void divide(int x, int k) {
        if (exact_reciprocal(pool_values_[k]) != 0.0)
            a.mul(x, constant(data_pool + 8 * (pool_size_ + k)));
        else
            a.div(x, pool(k));
    }
    void bail_if(int cc) { bail_jumps.push_back(a.jump_if(cc)); }

    // A call clobbers every SSE register: what a later step still reads is stored first.
    void call(const void* f) {
        for (int x = first_cached; x <= last_cached; ++x) {
            slot& c = slots_[x];
            if (c.reg >= 0 && c.dirty && c.until > now) a.store(at(base_reg, 8 * c.reg), x);
        }
        a.call(f);
        for (int x = first_cached; x <= last_cached; ++x) drop(x);
    }
    // Register r is written: its cached value is stale.
    void forget(int r) {
        if (where_[r] >= 0) drop(where_[r]);
    }
    // The accumulator is r's new value, read last by step `until`: cached only, stored
    // when evicted or before a call while still read.
    void keep(int r, int until) { cache(r, until, true); }
    // A result that libm stored itself (sincos): cached from memory.
    void cache_stored(int r, int until) {
        a.load(acc, at(base_reg, 8 * r));
        cache(r, until, false);
    }

  private:
    struct slot {
        int reg = -1;        // the program register cached, or -1
        bool dirty = false;  // not stored yet
        int until = -1;      // the last step that reads it
        long used = 0;       // when last read or written
    };
    void drop(int x) {
        if (slots_[x].reg >= 0) where_[slots_[x].reg] = -1;
        slots_[x] = slot{};
    }
    // The accumulator copied to a free cache register, or one whose value no step reads
    // any more, or the least recently used one (stored first if it is still read).
    void cache(int r, int until, bool dirty) {
        forget(r);
        int best = -1;
        for (int x = first_cached; x <= last_cached && best < 0; ++x)
            if (slots_[x].reg < 0 || slots_[x].until <= now) best = x;
        if (best < 0) {
            best = first_cached;
            for (int x = first_cached; x <= last_cached; ++x)
                if (slots_[x].used < slots_[best].used) best = x;
            if (slots_[best].dirty) a.store(at(base_reg, 8 * slots_[best].reg), best);
        }
        drop(best);
        slots_[best] = slot{r, dirty, until, ++clock_};
        where_[r] = best;
        a.load(best, in_xmm(acc));
    }

    static bool same(double u, double w) { return std::memcmp(&u, &w, sizeof u) == 0; }

    const double* pool_values_;
    int pool_size_;
    int inputs_;
    int registers_;
    tracked_vector<int> where_;  // program register -> SSE register caching it, or -1
    slot slots_[16];             // by SSE register
    long clock_ = 0;

  public:
    // dst = polynomial of degree n, coefficients at pool[c], of the value in register xv,
    // less the steps that cannot change a bit of it: a leading 1 (1*x is x; n >= 2, so a
    // multiplication follows, which quiets a signalling NaN as 1*x would), an added -0
    // (p + -0 is p), and an added +0 followed by a multiplication and a nonzero
    // coefficient (p + 0 is p but for p = -0, and (+-0)*x + c is c).  1+X^2 is X*X+1.
    void horner(int dst, int c, int n, int xv) {
        const double* k = pool_values_ + c;
        bool one = n >= 2 && same(k[n], 1.0);
        a.load(dst, one ? in_xmm(xv) : pool(c + n));
        for (int j = n - 1; j >= 0; --j) {
            if (!one || j != n - 1) a.mul(dst, in_xmm(xv));
            bool nothing = same(k[j], -0.0) || (same(k[j], 0.0) && j >= 1 && k[j - 1] != 0.0);
            if (!nothing) a.add(dst, pool(c + j));
        }
    }
    // Bails when |u| and |w| (SSE registers) are both below tiny (or NaN).
    void bail_if_both_tiny(int u, int w) {
        a.load(scratch2, in_xmm(u));
        a.and_mask(scratch2, data_abs);
        a.compare(scratch2, constant(data_tiny));
        int big = a.jump_if(cc_ae);
        a.load(scratch2, in_xmm(w));
        a.and_mask(scratch2, data_abs);
        a.compare(scratch2, constant(data_tiny));
        bail_if(cc_b);
        a.land(big);
    }
    // The argument of a function step, into the accumulator.
    // A function's argument made by a pre-step that a later function makes again (the two
    // 1+X^2 of E4) is kept in a cache register under a register number of its own past
    // the program's (never stored: evicted, it is made again).
    void argument(const jit_step& s) {
        int own = registers_ + now;
        if (same_argument_[now] >= 0 && where_[registers_ + same_argument_[now]] >= 0) {
            a.load(acc, of(registers_ + same_argument_[now]));
            return;
        }
        made_argument(s);
        if (argument_read_[now] >= 0) cache(own, argument_read_[now], false);
    }
    void made_argument(const jit_step& s) {
        operand x = of(s.a);
        switch (s.pre) {
            case jit_pre::none:
                a.load(acc, x);
                break;
            case jit_pre::add:
                a.load(acc, x);
                a.add(acc, pool(s.aux + 1));
                break;
            case jit_pre::mul:
                a.load(acc, x);
                a.mul(acc, pool(s.aux));
                break;
            case jit_pre::affine:
                a.load(acc, x);
                a.mul(acc, pool(s.aux));
                a.add(acc, pool(s.aux + 1));
                break;
            case jit_pre::neg:
                a.load(acc, x);
                a.xor_mask(acc, data_sign);
                break;
            case jit_pre::rsub:
                a.load(acc, pool(s.aux + 1));
                a.sub(acc, x);
                break;
            case jit_pre::div:
                a.load(acc, x);
                divide(acc, s.aux);
                break;
            case jit_pre::add_r:
                a.load(acc, x);
                a.add(acc, of(s.b));
                break;
            case jit_pre::sub_r:
                a.load(acc, x);
                a.sub(acc, of(s.b));
                break;
            case jit_pre::mul_r:
                a.load(acc, x);
                a.mul(acc, of(s.b));
                break;
            case jit_pre::horner:
                horner(acc, s.aux, s.b, in_register(s.a, scratch));
                break;
        }
    }
    // x^n by squarings from the leading bit, as chain_power: x^3 is (x*x)*x.
    void chain(int n, int xv) {
        a.load(acc, in_xmm(xv));
        int bit = 1;
        while (bit * 2 <= n) bit *= 2;
        for (bit /= 2; bit; bit /= 2) {
            a.mul(acc, in_xmm(acc));
            if (n & bit) a.mul(acc, in_xmm(xv));
        }
    }

    // One step's value into the accumulator (or, for sincos, into its two registers).
    void step(const jit_step& s) {
        switch (s.op) {
            case jit_op::add:
            case jit_op::end:
            case jit_op::end_mul_add:
            case jit_op::sub:
            case jit_op::mul:
            case jit_op::neg:
            case jit_op::mulc:
            case jit_op::addc:
            case jit_op::affine:
            case jit_op::divc:
            case jit_op::sqr:
            case jit_op::half:
                a.load(acc, of(s.a));
                break;
            default:
                break;
        }
        switch (s.op) {
            case jit_op::add:
                a.add(acc, of(s.b));
                break;
            case jit_op::sub:
                a.sub(acc, of(s.b));
                break;
            case jit_op::mul:
                a.mul(acc, of(s.b));
                break;
            case jit_op::div: {
                a.load(acc, of(s.a));
                int b = in_register(s.b, scratch);
                bail_if_both_tiny(acc, b);
                a.div(acc, in_xmm(b));
                break;
            }
            case jit_op::neg:
                a.xor_mask(acc, data_sign);
                break;
            case jit_op::mulc:
                a.mul(acc, pool(s.aux));
                break;
            case jit_op::addc:
                a.add(acc, pool(s.aux));
                break;
            case jit_op::rsubc:
                a.load(acc, pool(s.aux));
                a.sub(acc, of(s.a));
                break;
            case jit_op::affine:
                a.mul(acc, pool(s.aux));
                a.add(acc, pool(s.aux + 1));
                break;
            case jit_op::divc:
                divide(acc, s.aux);
                break;
            case jit_op::sqr:
                a.mul(acc, in_xmm(acc));
                break;
            case jit_op::powi:
                chain(s.n, in_register(s.a, scratch));
                break;
            case jit_op::rpowi: {
                // a == 0 (or NaN) raises or is the interpreter's
                int xv = in_register(s.a, scratch);
                a.compare(xv, constant(data_zero));
                bail_if(cc_e);
                chain(s.n, xv);
                // 1/r where |r| is normal; elsewhere the interpreter takes pow
                a.load(scratch2, in_xmm(acc));
                a.and_mask(scratch2, data_abs);
                a.compare(scratch2, constant(data_min));
                bail_if(cc_b);
                a.compare(scratch2, constant(data_max));
                bail_if(cc_a);
                a.load(scratch2, constant(data_one));
                a.div(scratch2, in_xmm(acc));
                a.load(acc, in_xmm(scratch2));
                break;
            }
            case jit_op::half:
                // a < 0 raises; + 0 turns sqrt(-0) into pow(-0, 0.5)'s +0
                a.compare(acc, constant(data_zero));
                bail_if(cc_b);
                a.sqrt(acc);
                a.add(acc, constant(data_zero));
                break;
            case jit_op::horner:
                horner(acc, s.aux, s.n, in_register(s.a, scratch));
                break;
            case jit_op::ratio: {
                int xv = in_register(s.a, scratch2);
                horner(acc, s.aux, s.n, xv);
                horner(scratch, s.part, s.b, xv);
                bail_if_both_tiny(acc, scratch);
                a.div(acc, in_xmm(scratch));
                break;
            }
            case jit_op::ln:
                argument(s);
                a.compare(acc, constant(data_zero));
                bail_if(cc_be);
                call(library_function(s.op));
                break;
            case jit_op::sqrt:
                argument(s);
                a.compare(acc, constant(data_zero));
                bail_if(cc_b);
                a.sqrt(acc);
                break;
            case jit_op::abs:
                argument(s);
                a.and_mask(acc, data_abs);
                break;
            case jit_op::sincos:
                argument(s);
                a.address(rdi, base_reg, 8 * s.dst);
                a.address(rsi, base_reg, 8 * s.b);
                call(library_function(s.op));
                break;
            case jit_op::sin:
            case jit_op::cos:
            case jit_op::exp:
            case jit_op::sinh:
            case jit_op::cosh:
                argument(s);
                call(library_function(s.op));
                break;
            case jit_op::end_mul_add:
                a.mul(acc, of(s.b));
                a.add(acc, of(s.n));
                break;
            case jit_op::apply1:
            case jit_op::apply2:
            case jit_op::tree:
                // the law's input (a, or a and b) on the stack, or the program's inputs
                if (s.op != jit_op::tree) {
                    a.load(acc, of(s.a));
                    a.store(at(rsp, 0), acc);
                    if (s.op == jit_op::apply2) a.store(at(rsp, 8), in_register(s.b, scratch));
                }
                a.move(rdi, s.node);
                a.byte(0x48);  // mov rsi, rsp, or mov rsi, x
                a.byte(0x89);
                a.byte(0xc6 | (s.op == jit_op::tree ? base_x : rsp) << 3);
                call(library_function(s.op));
                a.byte(0x48);  // test rax, rax
                a.byte(0x85);
                a.byte(0xc0);
                bail_if(cc_ne);
                break;
            case jit_op::call:
                // function(node, pool, x, a)
                a.load(acc, of(s.a));
                a.move(rdi, s.node);
                a.move(rsi, pool_values_);
                a.byte(0x48);  // mov rdx, x
                a.byte(0x89);
                a.byte(0xc2 | (base_x & 7) << 3);
                call((const void*)s.function);
                a.byte(0x48);  // test rax, rax
                a.byte(0x85);
                a.byte(0xc0);
                bail_if(cc_ne);
                break;
            case jit_op::end:
                break;
        }
    }
};

}  // namespace

jit_function jit_make(const jit_step* steps, int count, int inputs, int registers, double* reg,
                      const double* pool, int pool_size, jit_fallback fallback, const void* program,
                      void*& memory, std::size_t& size) {
    memory = nullptr;
    size = 0;
    // The first step that ends is the last that runs (the pass keeps an end past it).
    int last = 0;
    while (last < count && !ending(steps[last])) ++last;
    if (last == count) return nullptr;
    count = last + 1;
    for (int i = 0; i < count; ++i)
        if (!known(steps[i])) return nullptr;

    // The last step that reads each result (2i: step i's, 2i+1: a sincos's cosine), or -1.
    tracked_vector<int> until(2 * count, -1), made_by(registers, -1);
    for (int i = 0; i < count; ++i) {
        const jit_step& s = steps[i];
        int r[3];
        for (int k = reads(s, r); k--;)
            if (made_by[r[k]] >= 0) until[made_by[r[k]]] = i;
        if (ending(s)) break;
        made_by[s.dst] = 2 * i;
        if (s.op == jit_op::sincos) made_by[s.b] = 2 * i + 1;
    }

    bool calls = false, laws = false;
    for (int i = 0; i < count; ++i) {
        calls = calls || library_function(steps[i].op) || steps[i].op == jit_op::call;
        laws = laws || steps[i].op >= jit_op::apply1;
    }
    generator g(inputs, registers, count, calls, pool, pool_size);
    // Functions of the same pre-step of the same operands, the operands not written between.
    g.same_argument_.assign(count, -1);
    g.argument_read_.assign(count, -1);
    for (int i = 0; i < count; ++i) {
        const jit_step& s = steps[i];
        if (s.pre == jit_pre::none || s.op < jit_op::sin || s.op > jit_op::sincos) continue;
        for (int k = i + 1; k < count; ++k) {
            const jit_step& t = steps[k];
            if (t.pre == s.pre && t.a == s.a && t.b == s.b && t.aux == s.aux &&
                t.op >= jit_op::sin && t.op <= jit_op::sincos && g.same_argument_[k] < 0) {
                g.same_argument_[k] = g.same_argument_[i] >= 0 ? g.same_argument_[i] : i;
                g.argument_read_[g.same_argument_[k]] = k;
            }
            // a written operand ends the sharing (the step reads it before writing)
            if (ending(t) || t.dst == s.a || t.dst == s.b ||
                (t.op == jit_op::sincos && (t.b == s.a || t.b == s.b)))
                break;
        }
    }
    assembler& a = g.a;
    // push rbx, r14; sub rsp, 8 (the stack is then 16-byte aligned at calls), or 24 with
    // room for a law's input; mov rbx, rdi
    int room = laws ? 24 : 8;
    if (calls)
        for (int b : {0x53, 0x41, 0x56, 0x48, 0x83, 0xec, room, 0x48, 0x89, 0xfb}) a.byte(b);
    a.move(g.base_reg, reg);
    for (int i = 0; i < count; ++i) {
        const jit_step& s = steps[i];
        g.now = i;
        g.step(s);
        if (ending(s)) break;
        g.forget(s.dst);
        if (s.op == jit_op::sincos) {
            // the sine and cosine are in memory already
            g.forget(s.b);
            if (until[2 * i] >= 0) g.cache_stored(s.dst, until[2 * i]);
            if (until[2 * i + 1] >= 0) g.cache_stored(s.b, until[2 * i + 1]);
        } else if (until[2 * i] >= 0) {
            g.keep(s.dst, until[2 * i]);
        }
    }
    // add rsp, room; pop r14, rbx
    auto frame_down = [&] {
        if (calls)
            for (int b : {0x48, 0x83, 0xc4, room, 0x41, 0x5e, 0x5b}) a.byte(b);
    };
    frame_down();
    a.byte(0xc3);  // ret
    // A bail: the frame is taken down, then a jump to fallback(program, x), which returns
    // to evaluate's caller; what it raises never meets a frame of generated code.
    for (int j : g.bail_jumps) a.land(j);
    a.byte(0x48);  // mov rsi, x
    a.byte(0x89);
    a.byte(0xc6 | (g.base_x & 7) << 3);
    frame_down();
    a.move(rdi, program);
    a.move(rax, (const void*)fallback);
    a.byte(0xff);  // jmp rax
    a.byte(0xe0);

    long page = sysconf(_SC_PAGESIZE);
    if (page <= 0) page = 4096;
    std::size_t bytes = (a.bytes.size() + page - 1) / page * page;
    // The one allocation outside the base allocator: executable memory comes only from
    // the system.  Written while read-write, then read-execute, never both.
    void* m = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (m == MAP_FAILED) return nullptr;
    std::memcpy(m, a.bytes.data(), a.bytes.size());
    if (mprotect(m, bytes, PROT_READ | PROT_EXEC) != 0) {
        munmap(m, bytes);
        return nullptr;
    }
    memory = m;
    size = bytes;
    return reinterpret_cast<jit_function>(static_cast<char*>(m) + a.code_start);
}

void jit_release(void* memory, std::size_t size) {
    if (memory) munmap(memory, size);
}

#else

jit_function jit_make(const jit_step*, int, int, int, double*, const double*, int, jit_fallback,
                      const void*, void*& memory, std::size_t& size) {
    memory = nullptr;
    size = 0;
    return nullptr;
}

void jit_release(void*, std::size_t) {}

#endif

}  // namespace lawutil
