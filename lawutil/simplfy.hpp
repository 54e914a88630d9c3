// The simplifier: rewrites a law tree into a simpler equivalent one.
//
// It folds constants, removes neutral elements, normalises signs and subtractions,
// merges like terms and powers, and lets every law class contribute rules of its own
// through law::sub_simplify.  The tree is walked bottom-up in repeated passes until a
// pass changes nothing.  The rules are small functions kept in three lists (phases),
// built once when the library is loaded and only read afterwards:
//   phase 0  the classes' own rules (through one driver rule), constants to the left,
//            constant folding;
//   phase 1  factoring, only when law_simplify is asked for level 2 or more;
//   phase 2  turns the negations of the normal form back into minus and negation.
// Phase 0 rewrites A-B into A+(-1)*B and A/B into A*B^(-1); phase 2 undoes the first on
// the way out.  Rules that undo each other live in different phases, so every loop ends.
//
// A rule never changes a law's value where the law evaluates without error, nor its
// number of outputs.  It may remove domain errors (0*LN(X) is 0 also where LN raises).
#pragma once

#include "lawutil/law_base.hpp"

namespace lawutil {

class binary_law;

// A new law holding one use, equivalent to `in` (which keeps its uses and is not
// changed); null for a null `in`.  `level` > 1 switches on the factoring phase; `trace`
// > 0 prints the rules that fire, > 1 adds the simplifier's counter, > 2 every node
// visit and every pass.  Errors raised while folding constants (LN(0), 0^-1, ...) pass
// to the caller, and nothing is left behind.
law* law_simplify(const law* in, int level = 1, int trace = 0);

// `in` with its equal subtrees made one object (hash-consing): subtrees of the same
// class, the same own parameters and the same operands in the same order become one law,
// so the result prints and evaluates exactly as `in` does.  Operands of + and * in
// another order are not merged (they would print differently).  Nodes it builds are
// marked as finished at `level`, as law_simplify's results are.  One use; null for null.
// Within a derivative_build, subtrees equal to those of the build's earlier derivatives
// become those laws too.
law* share_equal_subtrees(const law* in, int level);

// The scope of one derivative build on the calling thread.  While the outermost one is
// alive, share_equal_subtrees files every derivative of the build in one table, and the
// simplifier keeps what it learns about finished subtrees, so that the parts a build
// meets again and again (the derivatives of shared subtrees, which every higher
// derivative repeats) are looked at once.  A nested scope joins the running one.  All of
// it is released when the outermost scope goes, also when an error passes.
class derivative_build {
  public:
    derivative_build();
    ~derivative_build();
    derivative_build(const derivative_build&) = delete;
    derivative_build& operator=(const derivative_build&) = delete;

    // Records that `l` has just stored a derivative in the running build, if there is
    // one: sharing across the build may close a cycle of uses through it, which the
    // build breaks when it ends.
    static void note_cache(const law* l);

  private:
    bool outermost_;
};

// One rule of a phase list.  A rule function answers a new law holding one use that is
// equivalent to its argument, or null when it does not apply.
class SRule {
  public:
    typedef law* (*rule_fn)(law*);

    // Links the rule at the end of list `phase` (0, 1 or 2), so each list is tried in
    // the order in which its rules are constructed.  `name` is shown by the trace.
    SRule(rule_fn fn, int phase, const char* name);
    SRule(const SRule&) = delete;
    SRule& operator=(const SRule&) = delete;

    law* apply(law* l) const { return fn_(l); }
    const SRule* fnext() const { return next_; }
    const char* fname() const { return name_; }

    // The first rule of list `phase`, or null.
    static const SRule* head(int phase);

  private:
    rule_fn fn_;
    SRule* next_;
    const char* name_;
};

// ---------------------------------------------------------------- factoring helpers

// The factors of a product that do not stand in a denominator, multiplied together
// (the law itself when it is no product); one use for the caller.
law* numerator(const law* l);
// The factors of a product that stand in a denominator (B^-c with c > 0 contributes
// B^c, and A/B contributes B), multiplied together; the constant 1 when there are none.
law* denominator(const law* l);
// The m for which `n` is m times `d` (n == d, c1*A against c2*A, or sums whose terms
// are all the same multiple); 0 when no such constant is found.
double law_multiple(const law* d, const law* n);

// ---------------------------------------------------------------- rule helpers
// Building blocks of the classes' sub_simplify overrides.

// Records that rule `name` fired: stores it in `what` unless the caller passed no slot,
// and hands back `result`.
law* simplify_fired(law* result, const char*& what, const char* name);

// 1 when `l` is a constant_law; its value goes to `value`.
int simplify_constant(const law* l, double& value);
// 1 when `l` is a constant_law of exactly `value`.
int simplify_is(const law* l, double value);

// A product split into its constant factor and the rest.  For a chain of products
// holding exactly one constant factor c, answers c and sets `rest` to the product of the
// other factors; for any other non-constant law answers 1 and sets `rest` to the law
// itself.  For a constant_law it answers its value and leaves `rest` empty.
double simplify_coefficient(const law* l, law_holder& rest);

// The zero of the shape of `like`: the constant 0 for a scalar, VEC(0,...,0) for a law
// of n > 1 outputs (a scalar 0 would change what evaluate writes).
law* simplify_zero_like(const law* like);

// The operands of a chain of one associative binary operation, flattened: (A+B)+(C+D)
// reads A, B, C, D.  A chain of more than 64 operands is read as its two operands, so
// that the pair rules stay cheap on huge sums and products.  The chain's law keeps its
// operands alive; no reference is taken.
class law_chain {
  public:
    explicit law_chain(const binary_law* l);
    // The operands when `l` is a law of the class `type_id` (a binary law), else `l`
    // alone: a term that is no product is a product of one factor.
    law_chain(const law* l, int type_id);
    law_chain(const law_chain&) = delete;
    law_chain& operator=(const law_chain&) = delete;

    int size() const { return n_; }
    law* operator[](int i) const { return items_[i]; }
    // The chain rebuilt (left-nested, with the chain's own class) with operand i
    // replaced by `with` (-1: none) and operand `drop` left out (-1: none); one use for
    // the caller, null when nothing is left.
    law* rebuild(int i, law* with, int drop) const;

    // Tries `combine(a, b)` on every pair of operands, i < j, in order; the first that
    // answers a law replaces operand i, operand j is dropped, and the rebuilt chain is
    // the answer.  Null when no pair combines.
    template <class F>
    law* combine_pairs(F combine) const {
        for (int i = 0; i < n_; ++i)
            for (int j = i + 1; j < n_; ++j) {
                law_holder t(combine(items_[i], items_[j]));
                if (t) return rebuild(i, t.get(), j);
            }
        return nullptr;
    }
    // The same walk with `combine(data, i, j)` over the operands' indices, for rules that
    // work from facts gathered once per operand.
    template <class D, class F>
    law* combine_indices(const D& data, F combine) const {
        for (int i = 0; i < n_; ++i)
            for (int j = i + 1; j < n_; ++j) {
                law_holder t(combine(data, i, j));
                if (t) return rebuild(i, t.get(), j);
            }
        return nullptr;
    }

    // The most operands read one by one.
    static constexpr int capacity = 64;

  private:
    const binary_law* op_;
    // Held in place: the pair rules make chains by the thousand on a derivative, and an
    // allocation for each was a fifth of the time of building one.
    law* items_[capacity];
    int n_;
};

}  // namespace lawutil
