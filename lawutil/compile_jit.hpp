// Machine code for the single-point pass of a law_program (internal to the library; see
// compile_jit.cpp).  The program describes its single-point steps in the neutral form
// below; jit_make turns them into one native function, or declines.
#pragma once

#include <cstddef>

#if defined(__x86_64__) && defined(__linux__) && defined(__GNUC__)
#define LAWUTIL_JIT 1
#else
#define LAWUTIL_JIT 0
#endif

namespace lawutil {

// The generated function: the program's value at x.  Where a domain test fails or a
// special case comes up it takes its own frame down and jumps to the fallback, given
// the program and x, which gives the value (or raises) in its place; so whatever the
// fallback raises never passes through generated code.
using jit_function = double (*)(const double* x);
using jit_fallback = double (*)(const void* program, const double* x);

// What a function called back from generated code returns (SysV: in xmm0 and rax): its
// value, or failed != 0 for a bail.
struct jit_result {
    double value;
    long failed;
};
// A step the program computes itself, called back (jit_op::call) with the step's node,
// the program's pool and the operand.  It must not throw: what it would raise, or any
// point it does not take, is a bail.
using jit_call = jit_result (*)(const void* node, const double* pool, double a);

// The operations of a step.  Functions (sin .. sincos) may have a pre-step applied to
// their operand first.
enum class jit_op : unsigned char {
    add,     // a + r[b]
    sub,     // a - r[b]
    mul,     // a * r[b]
    div,     // a / r[b]; both below tiny: bail
    neg,     // -a
    mulc,    // a * pool[aux]
    addc,    // a + pool[aux]
    rsubc,   // pool[aux] - a
    affine,  // a * pool[aux] + pool[aux+1]
    divc,    // a / pool[aux]
    sqr,     // a * a
    powi,    // a^n by squarings, n >= 1
    rpowi,   // 1 / a^n; a == 0 or a^n out of the normal range: bail
    half,    // sqrt(a) + 0; a < 0: bail
    horner,  // polynomial of degree n, coefficients at pool[aux]
    ratio,   // horner(aux, n) / horner(part, b) of a; both below tiny: bail
    sin,
    cos,
    exp,
    ln,    // a <= 0: bail
    sqrt,  // a < 0: bail
    abs,
    sinh,
    cosh,
    sincos,       // sine to r[dst], cosine to r[b]
    end,          // returns a
    end_mul_add,  // returns a * r[b] + r[n]
    apply1,       // node (a law of one input) at a; raising: bail
    apply2,       // node (a law of two inputs) at a, r[b]; raising: bail
    tree,         // node at the program's inputs; raising: bail
    call,         // function(node, pool, a); failed: bail
    // The exact program's compensated powers (the tree's), inline where the processor has
    // fma, else function(node, pool, a) as call: a^n (cpow), the polynomial chain of the
    // terms at pool[aux] (degree, then c and k of each of n terms), and the quotient of
    // two chains (the denominator's at pool[part], b terms).  Outside the compensated
    // range, and for a quotient of two tiny values: bail.
    cpow,
    chain,
    chain_ratio,
};

// A function's pre-step (its argument made from a): the constant ones read pool[aux]
// (multiplier or divisor) and pool[aux+1] (offset); add_r .. mul_r read r[b]; horner is
// of degree b with coefficients at pool[aux].
enum class jit_pre : unsigned char {
    none,
    add,
    mul,
    affine,
    neg,
    rsub,
    div,
    add_r,
    sub_r,
    mul_r,
    horner
};

struct jit_step {
    jit_op op;
    jit_pre pre;
    bool ends;  // returns its value (the program's last step) instead of storing it
    int dst, a, b, n, aux, part;
    const void* node;             // the law of apply1, apply2, tree; what call is given
    jit_call function = nullptr;  // of call
};

// Native code for `count` steps (those past the first that ends never run), over
// `registers` registers of which the first `inputs` are the inputs (read from x, never
// from reg); the values at `reg` (the constants' registers) and the `pool_size` constants
// at `pool` are copied into the code, which never touches reg.  Returns the entry point and sets
// `memory` and `size` (to give to jit_release), or returns null where it declines (an operation it
// does not know, the system refusing executable memory) or where machine code is not built
// (LAWUTIL_JIT is 0).
jit_function jit_make(const jit_step* steps, int count, int inputs, int registers,
                      const double* reg, const double* pool, int pool_size, jit_fallback fallback,
                      const void* program, void*& memory, std::size_t& size);
void jit_release(void* memory, std::size_t size);

}  // namespace lawutil
