// The arithmetic and composition laws that the parser builds for the infix operators and
// for function composition, and the named constants.  Every other family builds its
// derivatives and rewrites out of these classes.
#pragma once

#include <cmath>

#include "lawutil/internal_law.hpp"

namespace lawutil {

// The terms of a polynomial chain of three terms or more, shared along the chain
// (main_law_arith.cpp).
struct power_sum_terms;

// What the constructor of a sum (plus_law, minus_law) reads from its operands for the
// evaluation of polynomials (main_law_arith.cpp): when the chain of sums down the left
// from it has every term c, V, V^k or c*V^k of one variable V, it runs as one loop over
// the terms kept here, without allocating or looking at the operands again.
struct power_sum_link {
    double c = 1.0;         // the right operand's constant: c alone, c of c*V^k, 1 for V^k
    double bottom_c = 1.0;  // the same of the chain's first term (the lowest left operand)
    signed char k = 0;      // the right operand's power of V: 0 (c alone), 1, 2, 3 to 16
    signed char bottom_k = 0;
    bool subtract = false;           // this sum is a difference
    unsigned char terms = 0;         // terms of the chain down from here; 0: not such a sum
    signed char degree = 0;          // the highest power in it
    signed char var = -1;            // V's input index; -1 while every term is a constant
    power_sum_terms* all = nullptr;  // from three terms on: every term, bottom up
};

// The tree's powers, which the compiled form's exact mode computes itself, bit for bit.
// a^n for a whole n from 3 to max_compensated_power and a base in compensated_range is the
// product carried in two doubles (running product and rounding error, kept exactly with
// fma) and rounded once: compensated_power, built with and without the fma instruction
// and picked for the processor when the library loads (a null pointer before then).  Every
// other power is pow's, after the exponent law's domain tests.
constexpr double max_compensated_power = 16.0;
inline bool compensated_range(double a) {
    return std::fabs(a) < 1e15 && std::fabs(a) > 1e-15;
}
extern double (*const compensated_power)(double a, int n);
// The same loop continued from a^from (its running product hi and error lo) to a^to: the
// rounded a^to, with the loop's state left in *hi_out and *lo_out.  A power continued from
// a lower one has the bits of one computed afresh.
extern double (*const compensated_power_steps)(double a, double hi, double lo, int from, int to,
                                               double* hi_out, double* lo_out);
// a^3 .. a^degree into powers[3..degree], each with compensated_power(a, k)'s bits.
extern void (*const compensated_powers)(double a, int degree, double* powers);
// a^b as the exponent law computes it: a*a for b = 2, LAW_EXPONENT for 0 to a power <= 0
// and a negative base to a power that is not whole, compensated_power where it applies,
// else pow.
double exponent_value(double a, double b);

// The value of a one-argument function law whose constructor set its arith_op
// (law_unary.cpp): computed by the scalar arithmetic evaluator, with the function's own
// checks, or by the law's evaluate when its argument returns other than one value.
double function_scalar_value(const unary_law* l, const double* x);

// A + B.  A scalar added to a vector changes only the vector's first component.
class plus_law : public binary_law {
    LAWUTIL_TYPE_DECL(plus_law, binary_law)
    LAWUTIL_SINGULARITIES_DECL
    plus_law(law* left, law* right);
    void evaluate(const double* x, double* y) const override;
    double scalar_value(const double* x) const override;
    void evaluate_with_side(const double* x, double* y, const int* side) const override;
    const char* symbol(law_symbol_type type = law_symbol_default) const override;
    int precedence() const override { return 5; }
    int associative() const override { return 1; }
    int commutative() const override { return 1; }
    binary_law* make_one(law* left, law* right) const override;
    law_polynomial* polynomial(law* var) const override;
    law* sub_simplify(int level, const char*& what) const override;

    plus_law(const plus_law&) = delete;
    plus_law& operator=(const plus_law&) = delete;

  protected:
    ~plus_law() noexcept(false) override;
    law* deriv(int which) const override;

  private:
    friend class arith_evaluator;
    power_sum_link power_link_;
};

// A - B, component-wise like plus_law.
class minus_law : public binary_law {
    LAWUTIL_TYPE_DECL(minus_law, binary_law)
    LAWUTIL_SINGULARITIES_DECL
    minus_law(law* left, law* right);
    void evaluate(const double* x, double* y) const override;
    double scalar_value(const double* x) const override;
    void evaluate_with_side(const double* x, double* y, const int* side) const override;
    const char* symbol(law_symbol_type type = law_symbol_default) const override;
    int precedence() const override { return 5; }
    binary_law* make_one(law* left, law* right) const override;
    law_polynomial* polynomial(law* var) const override;
    law* sub_simplify(int level, const char*& what) const override;

    minus_law(const minus_law&) = delete;
    minus_law& operator=(const minus_law&) = delete;

  protected:
    ~minus_law() noexcept(false) override;
    law* deriv(int which) const override;

  private:
    friend class arith_evaluator;
    power_sum_link power_link_;
};

// A * B; at most one side may be a vector (checked when evaluated).
class times_law : public binary_law {
    LAWUTIL_TYPE_DECL(times_law, binary_law)
    LAWUTIL_SINGULARITIES_DECL
    times_law(law* left, law* right);
    void evaluate(const double* x, double* y) const override;
    double scalar_value(const double* x) const override;
    void evaluate_with_side(const double* x, double* y, const int* side) const override;
    const char* symbol(law_symbol_type type = law_symbol_default) const override;
    int precedence() const override { return 6; }
    int associative() const override { return 1; }
    int commutative() const override { return 1; }
    binary_law* make_one(law* left, law* right) const override;
    law_polynomial* polynomial(law* var) const override;
    law* sub_simplify(int level, const char*& what) const override;

  protected:
    law* deriv(int which) const override;
};

// A / B; B must be scalar (checked when built).  A scalar 0/0 is resolved by one
// L'Hospital step; a vector numerator divides by a denominator clamped away from zero.
class division_law : public binary_law {
    LAWUTIL_TYPE_DECL(division_law, binary_law)
    LAWUTIL_SINGULARITIES_DECL
    division_law(law* left, law* right);
    void evaluate(const double* x, double* y) const override;
    double scalar_value(const double* x) const override;
    void evaluate_with_side(const double* x, double* y, const int* side) const override;
    const char* symbol(law_symbol_type type = law_symbol_default) const override;
    int precedence() const override { return 6; }
    int in_domain(const double* x) const override;
    binary_law* make_one(law* left, law* right) const override;
    law* sub_simplify(int level, const char*& what) const override;

  protected:
    law* deriv(int which) const override;
};

// A ^ B over scalars.  evaluate asks for an exact integer exponent when the base is
// negative; in_domain is looser there and also rejects results beyond e^100.
class exponent_law : public binary_law {
    LAWUTIL_TYPE_DECL(exponent_law, binary_law)
    LAWUTIL_SINGULARITIES_DECL
    exponent_law(law* left, law* right);
    void evaluate(const double* x, double* y) const override;
    double scalar_value(const double* x) const override;
    void evaluate_with_side(const double* x, double* y, const int* side) const override;
    const char* symbol(law_symbol_type type = law_symbol_default) const override;
    int precedence() const override { return 7; }
    int in_domain(const double* x) const override;
    binary_law* make_one(law* left, law* right) const override;
    law_polynomial* polynomial(law* var) const override;
    law* sub_simplify(int level, const char*& what) const override;

  protected:
    law* deriv(int which) const override;

  private:
    friend class arith_evaluator;
    // n when B is a constant whole n from 2 to 16, else 0: decided once, at construction.
    int whole_exponent_ = 0;
};

// -A, component-wise.
class negate_law : public unary_law {
    LAWUTIL_TYPE_DECL(negate_law, unary_law)
    LAWUTIL_SINGULARITIES_DECL
    explicit negate_law(law* sub);
    void evaluate(const double* x, double* y) const override;
    double scalar_value(const double* x) const override;
    void evaluate_with_side(const double* x, double* y, const int* side) const override;
    const char* symbol(law_symbol_type type = law_symbol_default) const override;
    unary_law* make_one(law* sub) const override;
    law_polynomial* polynomial(law* var) const override;
    law* sub_simplify(int level, const char*& what) const override;

  protected:
    law* deriv(int which) const override;
    int return_size() const override;
};

// f O g: the outer law f (left) applied to the value of the inner law g (right).
class composite_law : public binary_law {
    LAWUTIL_TYPE_DECL(composite_law, binary_law)
    composite_law(law* outer, law* inner);
    void evaluate(const double* x, double* y) const override;
    void evaluate_with_side(const double* x, double* y, const int* side) const override;
    void evaluate_with_guess(const double* x, double* y, const double* guess) const override;
    void evaluateVAR(const double* x, double*& y, int& n) const override;
    const char* symbol(law_symbol_type type = law_symbol_default) const override;
    int precedence() const override { return 8; }
    int in_domain(const double* x) const override;
    law* enable_branching() const override;
    int branches() const override;
    binary_law* make_one(law* outer, law* inner) const override;
    law* sub_simplify(int level, const char*& what) const override;

  protected:
    law* deriv(int which) const override;
    law* sub_inverse() const override;
    int take_size() const override;
    int return_size() const override;
};

// The named constants print by name ("PI", not its digits).  make_one ignores the value.
class pi_law : public constant_law {
    LAWUTIL_TYPE_DECL(pi_law, constant_law)
    pi_law();
    const char* symbol(law_symbol_type type = law_symbol_default) const override;
    char* string(law_symbol_type type, int& counter, law_data_node*& list) const override;
    constant_law* make_one(double value) const override;
};

class e_law : public constant_law {
    LAWUTIL_TYPE_DECL(e_law, constant_law)
    e_law();
    const char* symbol(law_symbol_type type = law_symbol_default) const override;
    char* string(law_symbol_type type, int& counter, law_data_node*& list) const override;
    constant_law* make_one(double value) const override;
};

class true_law : public constant_law {
    LAWUTIL_TYPE_DECL(true_law, constant_law)
    true_law();
    const char* symbol(law_symbol_type type = law_symbol_default) const override;
    char* string(law_symbol_type type, int& counter, law_data_node*& list) const override;
    constant_law* make_one(double value) const override;
};

class false_law : public constant_law {
    LAWUTIL_TYPE_DECL(false_law, constant_law)
    false_law();
    const char* symbol(law_symbol_type type = law_symbol_default) const override;
    char* string(law_symbol_type type, int& counter, law_data_node*& list) const override;
    constant_law* make_one(double value) const override;
};

}  // namespace lawutil
