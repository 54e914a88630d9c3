// The compiled form of a law: its tree flattened once into a linear program over
// registers, evaluated without a virtual call per node, at one point (optionally with
// every first partial derivative in the same pass) or at many points in blocks.
//
// A program keeps a reference to its law and is as immutable as the law; its scratch
// registers are its own, so one program is used by one thread at a time (like the law
// tree it came from).  Nothing is allocated when evaluating (but a law's own program,
// which evaluates one point at a time, makes its batch registers at its first batch).
//
// Values.  Without rewrites (law_program::exact) the program performs the tree's own
// operations in the tree's order and its values are the tree's, bit for bit, at one point
// and in a batch.  With them (the default) polynomial subtrees in one variable run as one
// Horner step and whole powers as multiplication chains: a value then differs from the
// tree's by a few units of rounding of the terms summed (for a polynomial, about
// 2*degree*eps times the sum of |c_k x^k|; for x^n, about n*eps relative).  A batch with
// rewrites also takes sin, cos, exp, log, sinh and cosh four lanes at a time from SLEEF
// (or glibc's libmvec) where the processor has AVX2; those differ from the scalar
// functions by a few ulp (see compile.cpp), which the rest of the law carries on.  Domain
// errors are raised with the tree's codes, in the tree's order.
#pragma once

#include <cstddef>

#include "lawutil/law_base.hpp"

namespace lawutil {

class law_program : public vorx::VORX_OBJECT {
  public:
    enum : int {
        rewrite = 0,      // Horner steps, multiplication chains (the default)
        exact = 1,        // the tree's operations only: values equal to the tree's
        values_only = 2,  // added to either: no derivatives of fallbacks are made, which
                          // spares compiling time; the gradient pass gives NaN partials there
        interpreted = 4,  // added to any: the single-point pass stays on the interpreter,
                          // without machine code (for tests and benchmarks)
        borrowed = 8      // added to either: the program does not count its reference to the
                          // law, for a program the law owns itself (a law evaluated often,
                          // law_tier.cpp), which a counted one would keep alive for ever
    };

    // Compiles `l` (any law; classes the compiler does not know are evaluated through
    // their own tree).  The program holds a reference to `l` (none with borrowed: the
    // caller then keeps `l` alive as long as the program).
    explicit law_program(const law* l, int mode = rewrite);
    ~law_program();
    law_program(const law_program&) = delete;
    law_program& operator=(const law_program&) = delete;

    const law* source() const { return law_; }
    int take_dim() const { return inputs_; }
    int return_dim() const { return law_->return_dim(); }
    // Instructions and registers of the program (for tests and benchmarks).
    int size() const { return count_; }
    int registers() const { return registers_; }
    // Whether evaluate runs machine code made when compiling, with the interpreter's values
    // and errors (x86-64 Linux, where the system gives executable memory; not in
    // interpreted mode).
    bool native() const { return native_ != nullptr; }
    // That machine code, or null.  A borrowed program's code hands a point it does not
    // take to its law's tree (law::tree_value), so it never raises and is never
    // re-entered: what a law that owns its program calls directly.
    double (*native_entry() const)(const double*) { return native_; }
    // Instructions that raise a power through a copy of the power law over X and Y: an
    // exponent the program does not take in itself (whole ones from 3 on, in exact mode).
    int general_powers() const;
    // Whether the program is one polynomial chain of one input (the exact form of E5):
    // one instruction, but one that saves the tree's walk over the terms.
    bool chain() const;

    // The value at x (take_dim() inputs), as evaluateM_R gives it: a law of more than
    // one output raises LAW_EVALS, a point outside a domain raises the tree's code.
    // The machine code is called from here, inline: one indirect call a point.
    double evaluate(const double* x) const {
        if (__builtin_expect(native_ != nullptr, 1)) return native_(x);
        return interpret(x);
    }

    // The value at x together with its take_dim() first partial derivatives in `grad`,
    // in one forward pass (the chain rule over the program, no derivative tree).  A
    // partial is NaN where the class has no derivative or its derivative leaves its
    // domain, where a zero-over-zero division was resolved by the tree, and where the
    // chain rule meets 0*inf (SQRT at 0).  Raises where evaluate raises, with its code.
    double evaluate_with_gradient(const double* x, double* grad) const;

    // The values at `n` points given as structure of arrays: x[i][k] is input i of point
    // k (x may be null when take_dim() is 0).  y[k] receives the value of point k; a point
    // that leaves a domain gets NaN and, when `errors` is given, its error code in
    // errors[k] (0 elsewhere).  Never raises for a point.  Scalar laws only (LAW_EVALS).
    void evaluate_batch(int n, const double* const* x, double* y, int* errors = nullptr) const;

    struct instruction;

  private:
    template <int inputs>
    double gradient_threaded(const double* x, double* grad) const;
    template <int inputs>
    double gradient_pass(const double* x, double* grad) const;
    void run_block(int lanes, double* reg, int* err) const;
    void make_block() const;
    void plan_gradient();
    double run_point(const double* x, bool link = false) const;
    double interpret(const double* x) const;

    const law* law_;
    int mode_;
    int inputs_ = 0;
    int registers_ = 0;
    int count_ = 0;
    int result_ = 0;
    instruction* code_ = nullptr;
    // The single-point pass's own code: code_ with steps fused (see compile.cpp).
    instruction* point_ = nullptr;
    // A program of one step that evaluate computes itself (see compile.cpp), or 0.
    int entry_ = 0;
    double* pool_ = nullptr;  // constants of the instructions (Horner coefficients)
    double* reg_ = nullptr;   // registers of a point; inputs first, then constants
    double* grad_ = nullptr;  // registers x inputs partials of the gradient pass
    // Registers x block lanes of the batch pass; a borrowed program (a law's own, which
    // evaluates one point at a time) makes them at its first batch (make_block).
    mutable double* block_ = nullptr;
    int* constant_regs_ = nullptr;  // the registers holding constants
    int constant_count_ = 0;
    const double** block_in_ = nullptr;  // where the batch inputs of one block are
    const law** helpers_ = nullptr;      // laws the program owns (adapters, derivatives)
    int helper_count_ = 0;
    // The code with the gradient pass's own steps (see plan_gradient).
    instruction* gradient_code_ = nullptr;
    // The single-point pass as machine code (compile_jit.hpp): its entry, or null, and
    // its mapping.
    double (*native_)(const double*) = nullptr;
    void* native_memory_ = nullptr;
    std::size_t native_size_ = 0;
};

// The program that law_evaluator and a law evaluated often (law::evaluateM_R) run instead
// of the tree: exact mode without fallback derivatives, `extra` added to the mode
// (borrowed).  Null where the law stays on the tree: not scalar, compiling raised, a
// program of one instruction (its own top node, or a class the compiler does not know),
// which would only add a step to the tree's, or one whose general powers cost more than
// the tree's walk saves: the tree takes whole powers by multiplication, the power law's
// copy by pow (measured: E5 73 ns a point through its exact program, 12 through its
// tree), while a shared subtree costs the tree once per path to it and the program once.
law_program* compile_values(const law* l, int extra = 0);

// A law that a numerical routine evaluates many times: through its tree for the first
// `after` evaluations, then through its program.  Compiling costs a few hundred tree
// evaluations, so a short run never pays for it.  The program is made in exact mode
// without derivatives, so every value is the tree's, bit for bit; at a point where the
// program raises, the tree is asked again and raises its own exception, with all it
// carries.  A law that compile_values leaves on the tree (not scalar, one instruction,
// general powers that cost more than they save) stays there.  Compiling allocates
// (once); evaluating does not.  One thread at a time, like the law.
class law_evaluator {
  public:
    static constexpr long compile_after = 512;

    explicit law_evaluator(const law* l, long after = compile_after) : law_(l), after_(after) {}
    ~law_evaluator();
    law_evaluator(const law_evaluator&) = delete;
    law_evaluator& operator=(const law_evaluator&) = delete;

    // l->evaluateM_R(x), counted.
    double evaluate(const double* x) {
        const law_program* p = program(evaluations_++);
        return p ? through(p, x) : law_->evaluateM_R(x);
    }

    // The program once `evaluations` (the caller's own count, for a routine that counts
    // its batches itself, or evaluations()) has reached the threshold; null before, and
    // for a law that stays on the tree.
    const law_program* program(long evaluations) {
        if (!decided_ && evaluations >= after_) decide();
        return program_;
    }
    long evaluations() const { return evaluations_; }

  private:
    void decide();
    double through(const law_program* p, const double* x);

    const law* law_;
    long after_;
    long evaluations_ = 0;
    law_program* program_ = nullptr;
    bool decided_ = false;
};
}  // namespace lawutil
