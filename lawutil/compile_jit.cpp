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
// here in C++).  So its values are run_point's, bit for bit.  The exact program's
// compensated powers (a whole power, a polynomial chain and a quotient of two) are made
// inline where the processor has fma, by the loop of main_law_arith.cpp step for step
// (the product, its error by one vfmsub231sd, the error carried), the chain's terms added
// left to right; a chain of degree above 10 (9 in a quotient), more powers than free
// registers, is called back instead.  Measured (bench_eval, tree through evaluateM_R,
// which runs these laws' exact programs): E2 13.3-14.1x native to 5.8, E5 7.3-7.4 to 5.8,
// E7 1.35 to 1.23.
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
// Registers and frame.  The pool is copied into the code and read RIP-relative, with the
// reciprocal of each power of two in it (a division by 2 is a multiplication by 0.5,
// the same bits), and so are the registers' values at compile time: the constants'
// registers are read from there.  xmm0 is the step's accumulator, xmm1 and xmm15
// scratch, and xmm2..xmm14 cache results (a free one, else one no later step reads,
// else the least recently used).  A result only the next step reads, as the operand it
// starts from, stays in the accumulator; one read later is copied to a cache register,
// and the next step still takes it from the accumulator.  A result's home is a slot of
// the generated frame: it is stored there only when evicted, or before a call while
// still read (a call clobbers every xmm register, so the cache is emptied and later
// reads go to the slot), or at once, uncached, where no step reads it before the next
// call; sincos writes its two values to their slots itself, and they are read from
// there.  Inputs are read from x where the caller keeps them: from rdi, or, in a program
// that reads one (or hands x to a law) after a call, from rbx, pushed and set on entry;
// x is put in a slot of its own when only a bail after a call needs it.  A frame of the
// slots, 16 bytes at its bottom for a called-back law's input, padded so the stack is
// 16-byte aligned at calls; a program that calls nothing keeps its slots in the red
// zone, without a frame (up to 128 bytes).  A first pass over the steps finds what the
// frame needs (rbx, the x slot, the slots); the second writes the code.  Calls are call
// rel32 where libm is within 2 GB of the mapping (it is asked for near libm), else
// through rax; a program whose last step returns a libm function's value (the end of
// SIN(...)) ends in a jump to it instead.  The program's registers in memory (reg) are
// the interpreter's alone: the code never touches them.
//
// Memory.  One mapping a program: written while read-write, then made read-execute
// (never both), asked for 256 MB below libm's exp (the kernel takes the hint where that
// is free) so that calls reach libm by rel32; sized from the first pass's code.  It cannot
// come from the base allocator (which has no executable memory); it is unmapped with the
// program.  Where the system refuses, the program keeps the interpreter.  The mapping
// starts with the constants the code reads RIP-relative (masks, tiny, the normal range,
// the pool, the registers' values), 16-byte aligned.  Mapping, writing, protecting and
// unmapping a page costs about 10 us here, several times the rest of compiling
// (BM_CompileCost).

#include "lawutil/compile_jit.hpp"

#if LAWUTIL_JIT
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
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
    data_huge = 72,  // 1e15, the top of the compensated range
    data_pool = 80   // the pool, then the reciprocals of its powers of two (or 0), then the
                     // registers' values when compiled (the constants'), then code
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

    // The constants, then the pool's n values and their reciprocals where exact, then the
    // registers' values; `origin` is where the mapping will be (0: not known yet).
    assembler(const double* pool, int n, const double* reg, int registers, std::uintptr_t origin)
        : bytes(data_pool + 16 * n + 8 * registers, 0), origin_(origin) {
        for (int k = 0; k < n; ++k) {
            put(data_pool + 8 * k, pool[k]);
            put(data_pool + 8 * (n + k), exact_reciprocal(pool[k]));
        }
        for (int r = 0; r < registers; ++r) put(data_pool + 16 * n + 8 * r, reg[r]);
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
        put(data_huge, 1e15);
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
    void zero(int x) { sse(0x66, 0x57, x, in_xmm(x)); }  // xorpd x, x: +0
    // vfmsub231sd x, y, z: x = y*z - x, rounded once (VEX.128.66.0F38.W1 BB)
    void fmsub231(int x, int y, int z) {
        byte(0xc4);
        byte((x >= 8 ? 0 : 0x80) | 0x40 | (z >= 8 ? 0 : 0x20) | 0x02);
        byte(0x80 | (~y & 15) << 3 | 0x01);
        byte(0xbb);
        byte(0xc0 | (x & 7) << 3 | (z & 7));
    }
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
    // lea r64, [rsp + disp32]
    void address(int r, int disp) { r64(0x8d, r, rsp, disp); }
    // mov [rsp + disp32], r64 and mov r64, [rsp + disp32]
    void spill(int disp, int r) { r64(0x89, r, rsp, disp); }
    void fill(int r, int disp) { r64(0x8b, r, rsp, disp); }
    // mov r64, r64 (both below r8)
    void copy(int to, int from) {
        byte(0x48);
        byte(0x89);
        byte(0xc0 | from << 3 | to);
    }
    // sub rsp, n and add rsp, n
    void frame(int n, bool down) {
        if (!n) return;
        byte(0x48);
        byte(n < 128 ? 0x83 : 0x81);
        byte(down ? 0xc4 : 0xec);
        if (n < 128)
            byte(n);
        else
            dword(n);
    }
    // mov r64, imm64
    void move(int r, const void* p) {
        std::uint64_t v = (std::uint64_t)(std::uintptr_t)p;
        byte(0x48 | (r >= 8 ? 1 : 0));
        byte(0xb8 | (r & 7));
        for (int k = 0; k < 8; ++k) byte((int)(v >> (8 * k)) & 0xff);
    }
    // call f or jmp f: rel32 where the mapping's place is known and f within reach, else
    // through rax.
    void call(const void* f, bool jump = false) {
        std::intptr_t rel = (std::intptr_t)f - (std::intptr_t)(origin_ + here() + 5);
        if (origin_ && rel == (std::int32_t)rel) {
            byte(jump ? 0xe9 : 0xe8);
            dword((std::int32_t)rel);
            return;
        }
        move(rax, f);
        byte(0xff);  // call rax, jmp rax
        byte(jump ? 0xe0 : 0xd0);
    }

  private:
    // REX.W op ModRM(r, [base + disp32])
    void r64(int op, int r, int base, int disp) {
        byte(0x48);
        byte(op);
        byte(0x80 | (r & 7) << 3 | (base & 7));
        if (base == rsp) byte(0x24);
        dword(disp);
    }
    std::uintptr_t origin_;
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

// What a step calls, or null.
const void* called(const jit_step& s) {
    return s.op >= jit_op::call ? (const void*)s.function : library_function(s.op);
}

bool known(const jit_step& s) {
    bool function = s.op >= jit_op::sin && s.op <= jit_op::sincos;
    if (s.pre != jit_pre::none && !function) return false;
    // sincos keeps the cosine's register in b, which add_r .. horner would need
    if (s.op == jit_op::sincos && s.pre >= jit_pre::add_r) return false;
    if (s.op == jit_op::sincos && !library_function(s.op)) return false;
    if (s.op >= jit_op::call) return s.function && s.pre == jit_pre::none;
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

// Whether a step's code starts by loading its operand a into the accumulator (and reads
// a nowhere else but through a cache register): then a value the accumulator holds
// already is not loaded again.
bool loads_a_first(const jit_step& s) {
    switch (s.op) {
        case jit_op::add:
        case jit_op::sub:
        case jit_op::mul:
        case jit_op::div:
        case jit_op::neg:
        case jit_op::mulc:
        case jit_op::addc:
        case jit_op::affine:
        case jit_op::divc:
        case jit_op::sqr:
        case jit_op::half:
        case jit_op::end:
        case jit_op::end_mul_add:
            return true;
        case jit_op::sin:
        case jit_op::cos:
        case jit_op::exp:
        case jit_op::ln:
        case jit_op::sqrt:
        case jit_op::abs:
        case jit_op::sinh:
        case jit_op::cosh:
        case jit_op::sincos:
            return s.pre != jit_pre::rsub && s.pre != jit_pre::horner;
        default:
            return false;
    }
}

// A function of libm whose value is the program's (the step before an end that returns
// it): its call can be the code's last jump.
bool tail_call(const jit_step& s, const jit_step& end) {
    return end.op == jit_op::end && !s.ends && end.a == s.dst &&
           (s.op == jit_op::sin || s.op == jit_op::cos || s.op == jit_op::exp ||
            s.op == jit_op::ln || s.op == jit_op::sinh || s.op == jit_op::cosh);
}

// The generated function's frame, decided by a first pass over the steps.
struct frame_plan {
    bool calls = false;   // calls something other than a tail call
    int room = 0;         // bytes at the bottom for a called-back law's input
    bool x_reg = false;   // x kept in rbx (read after a call)
    bool x_slot = false;  // x kept in the frame (only a bail after a call needs it)
    int slots = 0;        // program registers stored in the frame
    int tail = -1;        // the step whose call is the last thing done (a jmp), or -1
    int size = 0;         // sub rsp, size (0: none; the red zone where nothing is called)
    int bottom = 0;       // rsp + bottom: the frame's lowest byte
};

class generator {
  public:
    generator(const frame_plan& f, int inputs, int registers, int steps, const double* reg,
              const double* pool, int pool_size, std::uintptr_t origin)
        : plan(f),
          base_x(f.x_reg ? rbx : rdi),
          a(pool, pool_size, reg, registers, origin),
          written_(registers, 0),
          pool_values_(pool),
          pool_size_(pool_size),
          inputs_(inputs),
          registers_(registers),
          registers_data_(data_pool + 16 * pool_size),
          where_(registers + steps, -1),
          slot_of_(registers, -1) {}
    const frame_plan plan;
    const int base_x;

    assembler a;
    tracked_vector<int> bail_jumps;
    int now = 0;  // the step being generated
    // What the first pass learns for the frame: x read (or a law called at x) after a
    // call, a bail after a call, the slots used.
    bool x_after_call = false, bail_after_call = false;
    int slots_used = 0;
    // The registers steps write (the others, past the inputs, are constants).
    tracked_vector<char> written_;
    // The program register whose value the accumulator holds (the last step's), or -1.
    int acc_holds = -1;

    // Where register r lives outside the cache: x for an input, a slot of the frame for a
    // result, the copy in the mapping for a constant.
    operand home(int r) {
        if (r < inputs_) return at(base_x, 8 * r);
        if (!written_[r]) return constant(registers_data_ + 8 * r);
        if (slot_of_[r] < 0) slot_of_[r] = slots_used++;
        return at(rsp, plan.bottom + plan.room + 8 * slot_of_[r]);
    }
    // The step's operand a, for the load that starts it: the accumulator where it is there.
    operand first(int r) { return acc_holds == r ? in_xmm(acc) : of(r); }
    // By step: the earlier step whose function argument is this one's, or -1; the last
    // later step that takes this one's argument again, or -1.
    tracked_vector<int> same_argument_, argument_read_;

    // Where register r's value is now: a cached SSE register, x for an input, else memory.
    operand of(int r) {
        if (where_[r] >= 0) {
            slots_[where_[r]].used = ++clock_;
            return in_xmm(where_[r]);
        }
        if (r < inputs_ && called_) x_after_call = true;
        return home(r);
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
    void bail_if(int cc) {
        bail_after_call = bail_after_call || called_;
        bail_jumps.push_back(a.jump_if(cc));
    }

    // A call clobbers every SSE register: what a later step still reads is stored first.
    // The tail step's call is a jump, its frame down first: its value is the program's.
    void call(const void* f) {
        if (now == plan.tail) {
            frame_down();
            a.call(f, true);
            return;
        }
        for (int x = first_cached; x <= last_cached; ++x) {
            slot& c = slots_[x];
            if (c.reg >= 0 && c.dirty && c.until > now) a.store(home(c.reg), x);
        }
        a.call(f);
        called_ = true;
        for (int x = first_cached; x <= last_cached; ++x) drop(x);
    }
    // What a call does to the cache, without the call: the steps below use every SSE
    // register.
    void clobber() {
        for (int x = first_cached; x <= last_cached; ++x) {
            slot& c = slots_[x];
            if (c.reg >= 0 && c.dirty && c.until > now) a.store(home(c.reg), x);
        }
        called_ = true;
        for (int x = first_cached; x <= last_cached; ++x) drop(x);
    }
    // The compensated powers of a (in xmm1) as main_law_arith.cpp's loop makes them, step
    // for step: hi (xmm3) and its error lo (xmm4) carried from a^1, a^2 the rounded square
    // in xmm2, a^3 .. a^degree = hi + lo in xmm7 on (keep: at most xmm14); returns a^n's
    // register when keep is false (only the last).  Outside the compensated range: bail.
    int powers(int degree, bool keep) {
        a.load(scratch2, in_xmm(scratch));
        a.and_mask(scratch2, data_abs);
        a.compare(scratch2, constant(data_huge));
        bail_if(cc_ae);
        a.compare(scratch2, constant(data_tiny));
        bail_if(cc_be);
        a.load(3, in_xmm(scratch));
        a.zero(4);
        int last = 7;
        for (int k = 2; k <= degree; ++k) {
            a.load(5, in_xmm(3));
            a.mul(5, in_xmm(scratch));  // p = hi * a
            a.load(6, in_xmm(5));
            a.fmsub231(6, 3, scratch);  // hi * a - p, exactly rounded
            a.mul(4, in_xmm(scratch));
            a.add(6, in_xmm(4));  // lo = fma(hi, a, -p) + lo * a
            a.load(4, in_xmm(6));
            a.load(3, in_xmm(5));  // hi = p
            if (k >= 3) {
                last = keep ? 7 + k - 3 : 7;
                a.load(last, in_xmm(3));
                a.add(last, in_xmm(4));
            }
        }
        return last;
    }
    // The terms of a chain (table at pool[t]) into x, added left to right: c * a^k.
    void terms(int x, int t, int count) {
        for (int i = 0; i < count; ++i) {
            int k = (int)pool_values_[t + 2 + 2 * i];
            int into = i ? scratch2 : x;
            if (k == 0) {
                a.load(into, pool(t + 1 + 2 * i));  // c * 1 is c
            } else {
                a.load(into, in_xmm(k == 1 ? scratch : k == 2 ? 2 : 7 + k - 3));
                a.mul(into, pool(t + 1 + 2 * i));
            }
            if (i) a.add(x, in_xmm(scratch2));
        }
    }
    // Whether a step of the compensated family is made inline (else it is called).
    bool inline_powers(const jit_step& s) const {
        if (!fma_) return false;
        if (s.op == jit_op::cpow) return s.n >= 3 && s.n <= 16;
        return chain_degree(s) <= (s.op == jit_op::chain_ratio ? 9 : 10);
    }
    // The highest power a chain step needs (of both chains of a quotient).
    int chain_degree(const jit_step& s) const {
        int degree = (int)pool_values_[s.aux];
        if (s.op == jit_op::chain_ratio) degree = std::max(degree, (int)pool_values_[s.part]);
        return degree;
    }
    // function(node, pool, a) of a step called back; a failure is a bail.
    void call_back(const jit_step& s) {
        a.load(acc, of(s.a));
        a.move(rdi, s.node);
        a.move(rsi, pool_values_);
        call(called(s));
        a.byte(0x48);  // test rax, rax
        a.byte(0x85);
        a.byte(0xc0);
        bail_if(cc_ne);
    }
    bool fma_ = (__builtin_cpu_init(), __builtin_cpu_supports("fma"));

    // push rbx; sub rsp; mov rbx, rdi (or x to its slot)
    void frame_up() {
        if (plan.x_reg) a.byte(0x53);
        a.frame(plan.size, false);
        if (plan.x_reg) a.copy(rbx, rdi);
        if (plan.x_slot) a.spill(x_slot(), rdi);
    }
    void frame_down() {
        a.frame(plan.size, true);
        if (plan.x_reg) a.byte(0x5b);  // pop rbx
    }
    int x_slot() const { return plan.bottom + plan.room + 8 * plan.slots; }
    // Register r is written: its cached value is stale.
    void forget(int r) {
        if (where_[r] >= 0) drop(where_[r]);
    }
    // The accumulator is r's new value, read last by step `until`: cached only, stored
    // when evicted or before a call while still read.
    void keep(int r, int until) { cache(r, until, true); }

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
            if (slots_[best].dirty) a.store(home(slots_[best].reg), best);
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
    int registers_data_;
    tracked_vector<int> where_;    // program register -> SSE register caching it, or -1
    tracked_vector<int> slot_of_;  // program register -> its slot in the frame, or -1
    bool called_ = false;          // a call has been made (x's register is gone)
    slot slots_[16];               // by SSE register
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
        operand x = loads_a_first(s) ? first(s.a) : of(s.a);
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
        // (a function's argument is loaded by its pre-step)
        if (loads_a_first(s) && !(s.op >= jit_op::sin && s.op <= jit_op::sincos))
            a.load(acc, first(s.a));
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
                a.address(rdi, home(s.dst).disp);
                a.address(rsi, home(s.b).disp);
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
                if (s.op == jit_op::tree) {
                    x_after_call = true;  // x is in rbx, not rdi, by the call's time
                    a.copy(rsi, base_x);
                } else {
                    a.copy(rsi, rsp);
                }
                a.move(rdi, s.node);
                call(library_function(s.op));
                a.byte(0x48);  // test rax, rax
                a.byte(0x85);
                a.byte(0xc0);
                bail_if(cc_ne);
                break;
            case jit_op::cpow:
            case jit_op::chain:
            case jit_op::chain_ratio: {
                if (!inline_powers(s)) {
                    call_back(s);
                    break;
                }
                a.load(scratch, of(s.a));
                clobber();
                if (s.op == jit_op::cpow) {
                    a.load(acc, in_xmm(powers(s.n, false)));
                    break;
                }
                int degree = chain_degree(s);
                if (degree >= 2) {
                    a.load(2, in_xmm(scratch));
                    a.mul(2, in_xmm(scratch));  // a^2, the rounded square
                }
                if (degree >= 3) powers(degree, true);
                terms(acc, s.aux, s.n);
                if (s.op == jit_op::chain_ratio) {
                    terms(14, s.part, s.b);
                    bail_if_both_tiny(acc, 14);
                    a.div(acc, in_xmm(14));
                }
                break;
            }
            case jit_op::call:
                call_back(s);
                break;
            case jit_op::end:
                break;
        }
    }
};

}  // namespace

jit_function jit_make(const jit_step* steps, int count, int inputs, int registers,
                      const double* reg, const double* pool, int pool_size, jit_fallback fallback,
                      const void* program, void*& memory, std::size_t& size) {
    memory = nullptr;
    size = 0;
    // The first step that ends is the last that runs (the pass keeps an end past it).
    int last = 0;
    while (last < count && !ending(steps[last])) ++last;
    if (last == count) return nullptr;
    count = last + 1;
    for (int i = 0; i < count; ++i)
        if (!known(steps[i])) return nullptr;

    // The last and the first step that read each result (2i: step i's, 2i+1: a sincos's
    // cosine), or -1.
    tracked_vector<int> until(2 * count, -1), made_by(registers, -1), first_read(2 * count, -1);
    // The first step after each that calls something, or count.
    tracked_vector<int> next_call(count, count);
    for (int i = count - 1; i-- > 0;)
        next_call[i] = called(steps[i + 1]) ? i + 1 : next_call[i + 1];
    for (int i = 0; i < count; ++i) {
        const jit_step& s = steps[i];
        int r[3];
        for (int k = reads(s, r); k--;)
            if (made_by[r[k]] >= 0) {
                until[made_by[r[k]]] = i;
                if (first_read[made_by[r[k]]] < 0) first_read[made_by[r[k]]] = i;
            }
        if (ending(s)) break;
        made_by[s.dst] = 2 * i;
        if (s.op == jit_op::sincos) made_by[s.b] = 2 * i + 1;
    }

    // Functions of the same pre-step of the same operands, the operands not written between.
    tracked_vector<int> same_argument(count, -1), argument_read(count, -1);
    for (int i = 0; i < count; ++i) {
        const jit_step& s = steps[i];
        if (s.pre == jit_pre::none || s.op < jit_op::sin || s.op > jit_op::sincos) continue;
        for (int k = i + 1; k < count; ++k) {
            const jit_step& t = steps[k];
            if (t.pre == s.pre && t.a == s.a && t.b == s.b && t.aux == s.aux &&
                t.op >= jit_op::sin && t.op <= jit_op::sincos && same_argument[k] < 0) {
                same_argument[k] = same_argument[i] >= 0 ? same_argument[i] : i;
                argument_read[same_argument[k]] = k;
            }
            // a written operand ends the sharing (the step reads it before writing)
            if (ending(t) || t.dst == s.a || t.dst == s.b ||
                (t.op == jit_op::sincos && (t.b == s.a || t.b == s.b)))
                break;
        }
    }

    frame_plan plan;
    if (count >= 2 && tail_call(steps[count - 2], steps[count - 1])) plan.tail = count - 2;
    for (int i = 0; i < count; ++i) {
        plan.calls = plan.calls || (called(steps[i]) && i != plan.tail);
        if (steps[i].op >= jit_op::apply1) plan.room = 16;
    }
    plan.x_reg = plan.calls;

    // The code for a frame, at `origin` (0: not known; calls through rax).
    auto generate = [&](generator& g) {
        assembler& a = g.a;
        g.same_argument_ = same_argument;
        g.argument_read_ = argument_read;
        for (int i = 0; i < count; ++i)
            if (!ending(steps[i])) {
                g.written_[steps[i].dst] = 1;
                if (steps[i].op == jit_op::sincos) g.written_[steps[i].b] = 1;
            }
        g.frame_up();
        // a result only the next step reads, and only as the operand it starts from, stays
        // in the accumulator; another is cached when the next step begins
        int pending = -1, pending_until = -1;
        bool tail = false;
        for (int i = 0; i < count; ++i) {
            const jit_step& s = steps[i];
            g.now = i - 1;  // the pending result is kept as of the step that made it
            if (pending >= 0) {
                int r[3], hits = 0;
                for (int k = reads(s, r); k--;) hits += r[k] == pending;
                if (!(pending_until == i && loads_a_first(s) && hits == 1 && s.a == pending))
                    g.keep(pending, pending_until);
                pending = -1;
            }
            g.now = i;
            g.step(s);
            if (ending(s) || (tail = i == plan.tail)) break;
            g.forget(s.dst);
            g.acc_holds = -1;
            if (s.op == jit_op::sincos) {
                // the sine and cosine are in their slots, read from there
                g.forget(s.b);
            } else {
                g.acc_holds = s.dst;
                if (first_read[2 * i] > next_call[i])
                    g.a.store(g.home(s.dst), acc);  // read only after a call: to its slot now
                else if (until[2 * i] >= 0)
                    pending = s.dst, pending_until = until[2 * i];
            }
        }
        if (!tail) {
            g.frame_down();
            a.byte(0xc3);  // ret
        }
        // A bail: the frame is taken down, then a jump to fallback(program, x), which
        // returns to evaluate's caller; what it raises never meets a frame of generated code.
        if (g.bail_jumps.empty()) return;
        for (int j : g.bail_jumps) a.land(j);
        if (plan.x_slot)
            a.fill(rsi, g.x_slot());
        else
            a.copy(rsi, g.base_x);
        g.frame_down();
        a.move(rdi, program);
        a.call((const void*)fallback, true);
    };

    // A first pass learns what the frame needs and the code's size.
    generator first(plan, inputs, registers, count, reg, pool, pool_size, 0);
    generate(first);
    plan.x_reg = first.x_after_call;
    plan.x_slot = !plan.x_reg && first.bail_after_call;
    plan.slots = first.slots_used;
    int bytes = plan.room + 8 * (plan.slots + plan.x_slot);
    if (plan.calls) {
        // 16-byte aligned at calls: the return address, rbx, the frame
        while ((8 + 8 * plan.x_reg + bytes) % 16) bytes += 8;
        plan.size = bytes;
    } else if (bytes <= 128) {
        plan.bottom = -bytes;  // the red zone, below the return address
    } else {
        plan.size = bytes;
    }

    long page = sysconf(_SC_PAGESIZE);
    if (page <= 0) page = 4096;
    // The second pass is at most a few bytes longer (x in the frame instead of rbx).
    std::size_t length = (first.a.bytes.size() + 64 + page - 1) / page * page;
    // The one allocation outside the base allocator: executable memory comes only from
    // the system.  Written while read-write, then read-execute, never both.  Asked for
    // near libm, so that calls reach it by a 32-bit displacement.
    std::uintptr_t near =
        (std::uintptr_t)library_function(jit_op::exp) & ~(std::uintptr_t)(page - 1);
    void* hint = near > (1u << 28) ? (void*)(near - (1u << 28)) : nullptr;
    void* m = mmap(hint, length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (m == MAP_FAILED) return nullptr;
    generator g(plan, inputs, registers, count, reg, pool, pool_size, (std::uintptr_t)m);
    generate(g);
    if (g.a.bytes.size() > length) {
        munmap(m, length);
        return nullptr;
    }
    std::memcpy(m, g.a.bytes.data(), g.a.bytes.size());
    if (mprotect(m, length, PROT_READ | PROT_EXEC) != 0) {
        munmap(m, length);
        return nullptr;
    }
    memory = m;
    size = length;
    return reinterpret_cast<jit_function>(static_cast<char*>(m) + g.a.code_start);
}

void jit_release(void* memory, std::size_t size) {
    if (memory) munmap(memory, size);
}

#else

jit_function jit_make(const jit_step*, int, int, int, const double*, const double*, int,
                      jit_fallback, const void*, void*& memory, std::size_t& size) {
    memory = nullptr;
    size = 0;
    return nullptr;
}

void jit_release(void*, std::size_t) {}

#endif

}  // namespace lawutil
