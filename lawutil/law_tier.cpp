// Tiered evaluation: a law evaluated often compiles itself.
//
// Counting.  A law of the arithmetic and function families (leaf_kind node_direct) counts
// its plain scalar evaluations through evaluateM_R down from law::tier_after: one
// decrement and one branch on the hot path, nothing else.  When the count goes below
// zero, tier_value is called instead of the tree.  The first time it decides, once, as
// law_evaluator does (compile_values): the exact, values-only program, or none for a law
// not worth it (one instruction, general powers costing more than the tree's walk, not
// scalar, compiling raised), which stays on its tree and is not asked again (its count
// restarts at INT_MAX).  A node over leaves is known to be one instruction without
// compiling.  A law with a program keeps its count at zero after each evaluation, so
// every one comes back here.  A law whose program has machine code (x86-64 Linux) keeps
// its entry (tier_native), and evaluateM_R calls it first, inline, before any other test:
// one load, one test of the off switch and one indirect call a point.
//
// Values.  The program is exact: its values are the tree's, bit for bit.  Where it raises,
// the tree is evaluated itself (scalar_value, bypassing the program) and raises its own
// exception, with its code and all it carries.  The machine code of a law's own program
// never raises: a point it does not take (a domain test, a zero-over-zero quotient, a
// call-back that failed) goes to the law's tree (tree_value), which gives the value or
// raises.
//
// Re-entry.  The program's fallbacks call node->evaluateM_R (a zero-over-zero division
// hands the point to its division node, which may be this law; an unknown class runs its
// subtree).  While the program runs, and while it is being compiled, the law's count is
// INT_MAX, so a nested evaluation of the law itself takes the tree, never re-enters the
// program (whose registers are in use).  Other laws reached from a fallback tier on
// their own.
//
// Subtrees.  Inner arithmetic nodes are evaluated by their parent's walk without
// evaluateM_R and do not count; an argument evaluated through evaluateM_R by its
// function's own evaluate does, once per root evaluation.  The root counts first, so it
// decides first, and once it runs its program its subtrees are no longer evaluated: the
// first root to compile stops the others.  Where the program raises, the tree's walk that
// raises the tree's own exception does not count (law_tiering_off), or a law that raises
// often would compile its subtrees.  A subtree compiles only when it is evaluated
// more often than its root (shared, or evaluated from elsewhere), or when its root stays
// on the tree (an unknown class over an arithmetic subtree: then the subtree's program is
// what makes it fast).
//
// Ownership.  The law owns its program; the program's reference to the law is not counted
// (law_program::borrowed), or the law would keep itself alive.  The program goes with the
// law.  Compiling allocates once; evaluating does not.  A law's own program makes no
// batch registers (1 KB a register) unless asked for a batch.  Measured (bench_eval,
// BM_TierMemory, tier_bytes): a program of E1-E8 takes 0.7 to 1.8 KB (6 to 10 KB with
// the batch registers), the fifth derivatives of E3 and E8 12 and 85 KB; in each case the
// root's program is all (no subtree compiled).  Its machine code takes one page more,
// mapped from the system (compile_jit.cpp).
//
// Threads.  One thread per law tree, as for the rest of the law's caches (eval_form):
// the count and the program's registers are the law's.  law_tiering_off counts its live
// scopes in one process-wide atomic, read relaxed: a thread-local in a shared library
// costs a call (__tls_get_addr) on every compiled evaluation (law_context and it took 6%
// of the samples of E1's benchmark).  A
// scope on one thread thus keeps every thread's laws on their trees, which changes no
// value (the program's are the tree's), only the speed.  While a scope lives, a law's
// count restarts at tier_after at each visit here, so a law that has compiled pays one
// call in tier_after evaluations, and one that has not does not count towards compiling.
#include "lawutil/law_tier.hpp"

#include <atomic>
#include <climits>

#include "lawutil/compile.hpp"
#include "lawutil/internal_law.hpp"
#include "lawutil/law_base.hpp"

using namespace vorx;

namespace lawutil {

std::atomic<int> law_tiering_off_scopes{0};

namespace {

bool leaf(const law* l) {
    return !l || l->isa(constant_law::id()) || l->isa(identity_law::id());
}

// A node over leaves compiles to one instruction at most: known without compiling (and
// so without allocating), which matters for the copies over X that programs run their
// unknown classes through.
bool over_leaves(const law* l) {
    if (l->isa(unary_law::id())) return leaf(static_cast<const unary_law*>(l)->fsub());
    if (!l->isa(binary_law::id())) return false;
    const binary_law* b = static_cast<const binary_law*>(l);
    return leaf(b->fleft()) && leaf(b->fright());
}

}  // namespace

law_tiering_off::law_tiering_off() {
    law_tiering_off_scopes.fetch_add(1, std::memory_order_relaxed);
}

law_tiering_off::~law_tiering_off() {
    law_tiering_off_scopes.fetch_sub(1, std::memory_order_relaxed);
}

bool law_tiering_on() {
    return law_tiering_off_scopes.load(std::memory_order_relaxed) == 0;
}

double law::tier_value(const double* x) const {
    const law_program* p = own_program;
    if (__builtin_expect(p != nullptr, 1) && law_tiering_on()) {
        // While the program runs, evaluations of this law itself (its fallbacks) take the
        // tree.
        tier_countdown = INT_MAX;
        double y;
        try {
            y = p->evaluate(x);
        } catch (const vorx_exception&) {
            return tier_raised(x);
        } catch (...) {
            tier_countdown = 0;
            throw;
        }
        tier_countdown = 0;
        return y;
    }
    return tier_decide(x);
}

// Out of line, so the compiled path above saves few registers.
double law::tier_decide(const double* x) const {
    if (!law_tiering_on()) {
        tier_countdown = tier_after;
        return scalar_value(x);
    }
    tier_countdown = INT_MAX;  // the tree serves while compiling, and for ever after without
    if (!tier_decided) {
        tier_decided = true;
        if (!over_leaves(this)) own_program = compile_values(this, law_program::borrowed);
        if (own_program) tier_native = own_program->native_entry();
        if (own_program) return tier_value(x);
    }
    return scalar_value(x);
}

// The program raised at x: the tree raises its own exception, with whatever it carries
// besides the code (or gives its value), this law's program still out of the way.  Its
// subtrees do not count this walk: a law that raises often would compile them all.
double law::tree_value(const double* x) const {
    law_tiering_off tree_alone;
    return scalar_value(x);
}

double law::tier_raised(const double* x) const {
    struct back_to_program {
        const law* l;
        ~back_to_program() { l->tier_countdown = 0; }
    } restore{this};
    law_tiering_off tree_alone;
    return scalar_value(x);
}

void law::release_tier() const {
    delete own_program;
    own_program = nullptr;
    tier_native = nullptr;
}

}  // namespace lawutil
