// Laws that compare, choose and restrict.
//
// Comparisons and connectives answer 1 for true and 0 for false, so they can be
// multiplied into other laws; all comparisons are exact, with no tolerance.  STEP and
// PIECEWISE choose a sub-law by the input, MAX and MIN choose by value, DOMAIN and
// PDOMAIN restrict where a law is meant to be used, and D is the numerical derivative of
// a law.
#pragma once

#include "lawutil/internal_law.hpp"

namespace lawutil {

// ---------------------------------------------------------------- printing and scratch

// Prints an export template in which "#1" to "#9" stand for the parts' texts, as in
// "mod[#2]#1" or "#1[#2]".  Parts are printed in index order (so data placeholders are
// numbered left to right); a part placed outside brackets is parenthesised unless it
// binds like a function (precedence 8).  `counter` and `list` follow law::string.
char* law_template_string(const char* tmpl, law* const* parts, int n, law_symbol_type type,
                          int& counter, law_data_node*& list);

// The value of a law that is read as a number (an index, an order, a breakpoint, a
// base): the law at the input 1.0, every input 1.0 for a law of several inputs.
double law_value_at_one(const law* l);

// Working storage of n doubles, on the stack up to N and in tracked memory beyond, freed
// when it goes (also when an error passes).  Keeps scalar evaluation off the heap.
template <int N>
class law_scratch {
  public:
    explicit law_scratch(int n) : p_(n <= N ? small_ : VORX_ALLOC_ARRAY(double, n)) {}
    ~law_scratch() {
        if (p_ != small_) VORX_FREE(p_);
    }
    law_scratch(const law_scratch&) = delete;
    law_scratch& operator=(const law_scratch&) = delete;
    double* get() { return p_; }
    double& operator[](int i) { return p_[i]; }

  private:
    double small_[N];
    double* p_;
};

// ---------------------------------------------------------------- comparisons

// The comparisons and connectives share this shape: two scalar operands, one 0/1 value,
// a derivative of 0 wherever it exists.
class predicate_law : public binary_law {
    LAWUTIL_TYPE_DECL(predicate_law, binary_law)
    LAWUTIL_SINGULARITIES_DECL
    predicate_law(law* left, law* right);
    int precedence() const override { return 4; }

  protected:
    // d(A<B) = 0: the law is piecewise constant.
    law* deriv(int which) const override;
    int return_size() const override { return 1; }
};

// A < B
class less_than_law : public predicate_law {
    LAWUTIL_TYPE_DECL(less_than_law, predicate_law)
    less_than_law(law* left, law* right);
    void evaluate(const double* x, double* y) const override;
    const char* symbol(law_symbol_type type = law_symbol_default) const override;
    binary_law* make_one(law* left, law* right) const override;
};

// A > B
class greater_than_law : public predicate_law {
    LAWUTIL_TYPE_DECL(greater_than_law, predicate_law)
    greater_than_law(law* left, law* right);
    void evaluate(const double* x, double* y) const override;
    const char* symbol(law_symbol_type type = law_symbol_default) const override;
    binary_law* make_one(law* left, law* right) const override;
};

// A <= B
class less_than_or_equal_law : public predicate_law {
    LAWUTIL_TYPE_DECL(less_than_or_equal_law, predicate_law)
    less_than_or_equal_law(law* left, law* right);
    void evaluate(const double* x, double* y) const override;
    const char* symbol(law_symbol_type type = law_symbol_default) const override;
    binary_law* make_one(law* left, law* right) const override;
};

// A >= B
class greater_than_or_equal_law : public predicate_law {
    LAWUTIL_TYPE_DECL(greater_than_or_equal_law, predicate_law)
    greater_than_or_equal_law(law* left, law* right);
    void evaluate(const double* x, double* y) const override;
    const char* symbol(law_symbol_type type = law_symbol_default) const override;
    binary_law* make_one(law* left, law* right) const override;
};

// A = B, exactly: 0.1+0.2=0.3 is 0.
class equal_law : public predicate_law {
    LAWUTIL_TYPE_DECL(equal_law, predicate_law)
    equal_law(law* left, law* right);
    void evaluate(const double* x, double* y) const override;
    const char* symbol(law_symbol_type type = law_symbol_default) const override;
    binary_law* make_one(law* left, law* right) const override;
};

// A != B ("<>" in Maple).
class not_equal_law : public predicate_law {
    LAWUTIL_TYPE_DECL(not_equal_law, predicate_law)
    not_equal_law(law* left, law* right);
    void evaluate(const double* x, double* y) const override;
    const char* symbol(law_symbol_type type = law_symbol_default) const override;
    binary_law* make_one(law* left, law* right) const override;
};

// A AND B: 1 when both are non-zero.
class and_law : public predicate_law {
    LAWUTIL_TYPE_DECL(and_law, predicate_law)
    and_law(law* left, law* right);
    void evaluate(const double* x, double* y) const override;
    const char* symbol(law_symbol_type type = law_symbol_default) const override;
    int precedence() const override { return 2; }
    binary_law* make_one(law* left, law* right) const override;
};

// A OR B: 1 when either is non-zero.
class or_law : public predicate_law {
    LAWUTIL_TYPE_DECL(or_law, predicate_law)
    or_law(law* left, law* right);
    void evaluate(const double* x, double* y) const override;
    const char* symbol(law_symbol_type type = law_symbol_default) const override;
    int precedence() const override { return 1; }
    binary_law* make_one(law* left, law* right) const override;
};

// ---------------------------------------------------------------- mod

// A MOD B = A - floor(A/B)*B: the floored remainder, whose sign follows B.  B = 0 follows
// floating-point rules.  With precedence 8 the operator printer parenthesises both
// operands, '(X)MOD(3)', which reads back even where an operand ends in a digit
// ('7MOD3' would read as 7*MOD...).  Maple: 'mod[3]X'.  Its derivative is 0: the jumps are
// ignored and the slope of A is deliberately not passed on.
class mod_law : public binary_law {
    LAWUTIL_TYPE_DECL(mod_law, binary_law)
    LAWUTIL_SINGULARITIES_DECL
    mod_law(law* left, law* right);
    void evaluate(const double* x, double* y) const override;
    const char* symbol(law_symbol_type type = law_symbol_default) const override;
    char* string(law_symbol_type type, int& counter, law_data_node*& list) const override;
    binary_law* make_one(law* left, law* right) const override;

  protected:
    law* deriv(int which) const override;
    int return_size() const override { return 1; }
};

// ---------------------------------------------------------------- choice

// STEP(A,c1,B,c2,C,...): laws alternating with non-decreasing constant breakpoints.  The
// law left of the first breakpoint greater than the first input is evaluated; at a
// breakpoint the law on its right is used.  Built from a bad list it raises
// LAW_STEP_NUM (even count), LAW_STEP_ODD (a breakpoint not a constant_law) or
// LAW_STEP_ORDER (breakpoints decreasing).
class step_law : public multiple_law {
    LAWUTIL_TYPE_DECL(step_law, multiple_law)
    LAWUTIL_SINGULARITIES_DECL
    step_law(law** parts, int n);
    void evaluate(const double* x, double* y) const override;
    const char* symbol(law_symbol_type type = law_symbol_default) const override;
    multiple_law* make_one(law** parts, int n) const override;

  protected:
    // STEP(A,c,B)' = STEP(A',c,B')
    law* deriv(int which) const override;
    // It reads the first input even when every part is constant.
    int take_size() const override;
    int return_size() const override;
};

// PIECEWISE(c1,A,c2,B,...,D): the law after the first condition that is not exactly 0,
// else the final default D.  With an even count there is no default, and the value is 0
// when no condition holds.
class piecewise_law : public multiple_law {
    LAWUTIL_TYPE_DECL(piecewise_law, multiple_law)
    LAWUTIL_SINGULARITIES_DECL
    piecewise_law(law** parts, int n);
    void evaluate(const double* x, double* y) const override;
    const char* symbol(law_symbol_type type = law_symbol_default) const override;
    multiple_law* make_one(law** parts, int n) const override;

  protected:
    // PIECEWISE(c,A,D)' = PIECEWISE(c,A',D')
    law* deriv(int which) const override;
    int return_size() const override;
};

// MAX(A,B,...): the first part's value, replaced only by a strictly greater later one,
// so ties keep the earlier part.  Its derivative is the slope of the part selected,
// chosen by SET switches on the differences of the parts.
class max_law : public multiple_law {
    LAWUTIL_TYPE_DECL(max_law, multiple_law)
    max_law(law** parts, int n);
    void evaluate(const double* x, double* y) const override;
    const char* symbol(law_symbol_type type = law_symbol_default) const override;
    int commutative() const override { return 1; }
    multiple_law* make_one(law** parts, int n) const override;

  protected:
    law* deriv(int which) const override;
    int return_size() const override { return 1; }
};

// MIN(A,B,...): as MAX with strictly smaller.
class min_law : public multiple_law {
    LAWUTIL_TYPE_DECL(min_law, multiple_law)
    min_law(law** parts, int n);
    void evaluate(const double* x, double* y) const override;
    const char* symbol(law_symbol_type type = law_symbol_default) const override;
    int commutative() const override { return 1; }
    multiple_law* make_one(law** parts, int n) const override;

  protected:
    law* deriv(int which) const override;
    int return_size() const override { return 1; }
};

// ---------------------------------------------------------------- functions

// LOG(A,b) = ln(A)/ln(b) to a constant base b; LOG(A) stores the base 10 as its second
// part (so it prints 'LOG(A,10)').  Raises LAW_BASE_C when the base is not a
// constant_law or the count is not 1 or 2, LAW_BASE_P when the base is negative (0 is let
// through).  Maple: 'log[b]A'.
class log_law : public multiple_law {
    LAWUTIL_TYPE_DECL(log_law, multiple_law)
    log_law(law** parts, int n);
    void evaluate(const double* x, double* y) const override;
    const char* symbol(law_symbol_type type = law_symbol_default) const override;
    char* string(law_symbol_type type, int& counter, law_data_node*& list) const override;
    int in_domain(const double* x) const override;
    multiple_law* make_one(law** parts, int n) const override;

  protected:
    law* deriv(int which) const override;
    int return_size() const override { return 1; }

  private:
    struct parts_with_base;
    log_law(const parts_with_base& p);
};

// ARCTAN(V) = atan V; ARCTAN(Y,X) is the two-argument arctangent, which raises
// LAW_BAD_DOMAN where both are exactly 0 (the angle is undefined there).
class arctan_law : public multiple_law {
    LAWUTIL_TYPE_DECL(arctan_law, multiple_law)
    arctan_law(law** parts, int n);
    void evaluate(const double* x, double* y) const override;
    const char* symbol(law_symbol_type type = law_symbol_default) const override;
    int in_domain(const double* x) const override;
    multiple_law* make_one(law** parts, int n) const override;

  protected:
    law* deriv(int which) const override;
    int return_size() const override { return 1; }
};

// ---------------------------------------------------------------- domains

// DOMAIN(F,lo1,hi1,lo2,hi2,...): F, meant to be used only where every input i lies in
// [lo_i, hi_i] (the layout that law::set_domain builds).  The value is F's everywhere:
// restricting is for the numerical routines, which ask in_domain and term_domain.
//
// The bounds are constant laws.  An end at or beyond +-law_domain_unbounded stands for
// no bound (set_domain writes unbounded ends so, and the number prints and reads back);
// term_domain answers such an end as unbounded.  A bound law that depends on the inputs
// is evaluated at the point in in_domain and ignored by term_domain.  A lone last bound
// (even part count) is a lower bound.  The Maple spelling prints F alone: Maple has no
// form for the restriction.
//
// DOMAIN is dropped by simplification ("domain(A)=A").  PDOMAIN is the same restriction
// kept for good: simplification leaves it in place.
constexpr double law_domain_unbounded = 1e37;

class domain_law : public multiple_law {
    LAWUTIL_TYPE_DECL(domain_law, multiple_law)
    domain_law(law** parts, int n);
    void evaluate(const double* x, double* y) const override;
    void evaluate_with_side(const double* x, double* y, const int* side) const override;
    void evaluate_with_guess(const double* x, double* y, const double* guess) const override;
    const char* symbol(law_symbol_type type = law_symbol_default) const override;
    char* string(law_symbol_type type, int& counter, law_data_node*& list) const override;
    int term_domain(int which, vorx::interval& dom) const override;
    int in_domain(const double* x) const override;
    multiple_law* make_one(law** parts, int n) const override;
    law* sub_simplify(int level, const char*& what) const override;

  protected:
    // DOMAIN(F,...)' = DOMAIN(F',...)
    law* deriv(int which) const override;
    // At least one input per bounded variable.
    int take_size() const override;
    int return_size() const override;
};

class permanent_domain_law : public multiple_law {
    LAWUTIL_TYPE_DECL(permanent_domain_law, multiple_law)
    permanent_domain_law(law** parts, int n);
    void evaluate(const double* x, double* y) const override;
    void evaluate_with_side(const double* x, double* y, const int* side) const override;
    void evaluate_with_guess(const double* x, double* y, const double* guess) const override;
    const char* symbol(law_symbol_type type = law_symbol_default) const override;
    char* string(law_symbol_type type, int& counter, law_data_node*& list) const override;
    int term_domain(int which, vorx::interval& dom) const override;
    int in_domain(const double* x) const override;
    multiple_law* make_one(law** parts, int n) const override;

  protected:
    // PDOMAIN(F,...)' = PDOMAIN(F',...)
    law* deriv(int which) const override;
    int take_size() const override;
    int return_size() const override;
};

// ---------------------------------------------------------------- numerical derivative

// D(F), D(F,i), D(F,i,k): the k-th derivative (k = 1 when absent) of F in input i (0
// when absent), taken numerically by Ndifferentiate (its error model is in diff.hpp); an
// evaluation with a side uses the one-sided rule towards that side.  Any other part count
// raises LAW_DL_NUM.  The index and order are read at the input 1.0 and truncated; an
// order of 0 or less is F itself, a negative index raises LAW_DIM when evaluated.
class derivative_law : public multiple_law {
    LAWUTIL_TYPE_DECL(derivative_law, multiple_law)
    derivative_law(law** parts, int n);
    void evaluate(const double* x, double* y) const override;
    void evaluate_with_side(const double* x, double* y, const int* side) const override;
    const char* symbol(law_symbol_type type = law_symbol_default) const override;
    multiple_law* make_one(law** parts, int n) const override;

  protected:
    // D(F,i,k) in input i is D(F,i,k+1); in another input j, D(dF/dj,i,k) when F has a
    // symbolic derivative in j, else D(D(F,i,k),j,1).
    law* deriv(int which) const override;
    int return_size() const override;
};

}  // namespace lawutil
