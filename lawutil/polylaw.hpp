// Polynomials in one variable law, and the integer and linear-algebra helpers of
// polynomial work.
//
// A law_polynomial is a plain value: a sparse list of (exponent, coefficient) terms in
// one variable law, which it holds by a counted reference.  The laws built from
// constants, a variable, +, -, *, unary minus and whole non-negative constant powers
// answer theirs through law::polynomial(var); make_polynomial_law goes back from dense
// coefficients to a law tree.
//
// law::polynomial(var) hands the caller a new law_polynomial (tracked memory: a plain
// delete frees it), or null for any other law.  `var` names the variable, normally an
// identity law; a null `var` takes the variable the law is written in, and a law in two
// variables (X*Y) answers null.
#pragma once

#include "lawutil/law_base.hpp"

namespace lawutil {

// Terms are kept sorted by ascending exponent, with distinct exponents and no exactly zero
// coefficient; the degree is the highest exponent (0 for the zero polynomial).  A degree
// of -1 marks an invalid result (arithmetic over two different variables, a negative
// power, a result too large to form); such a polynomial has no terms and no variable.
class law_polynomial : public vorx::VORX_OBJECT {
  public:
    law_polynomial();
    // `count` terms in any order; equal exponents are summed, zero coefficients dropped.
    // `var` may be null (a polynomial with no variable is a constant, degree 0, or the
    // caller's own business).  A negative exponent raises LAW_EXPONENT; a negative count
    // or missing arrays raise LAW_DIM.
    law_polynomial(const int* exponents, const double* coefficients, int count, law* var);
    law_polynomial(const law_polynomial& other);
    law_polynomial& operator=(const law_polynomial& other);
    ~law_polynomial();

    int degree() const { return degree_; }
    // The terms, in ascending order of exponent: i runs from 0 to terms() - 1.
    int terms() const { return terms_; }
    int term_exponent(int i) const { return exponents_[i]; }
    double term_coefficient(int i) const { return coefficients_[i]; }
    // The coefficient of the first term with exponent e; 0.0 when there is none.
    double coefficent(int e) const;
    // The variable law with a reference for the caller (null when there is none).
    law* in() const;
    // Placeholders: both answer the variable law, as in() does.
    law* expand() const;
    law* factor() const;
    // "Polynomial in %s" / "Polynomial", "Of degree %d", then "Term %d = %f" per term.
    void print() const;

    // Arithmetic.  Operands in two different variable laws (both present, not equal)
    // give an invalid result (degree -1), as does any invalid operand and a product of
    // more than 2^22 term pairs.  A null variable agrees with every variable.
    law_polynomial operator+(const law_polynomial& other) const;
    law_polynomial operator-(const law_polynomial& other) const;
    law_polynomial operator-() const;
    law_polynomial operator*(const law_polynomial& other) const;
    // p^0 is 1 (also for the zero polynomial); a negative power, or a degree beyond an
    // int, is invalid.
    law_polynomial operator^(int power) const;

    // The common ratio c of this = c * other: same degree, same number of terms, agreeing
    // variables, every exponent present in both, and each coefficient ratio within 1e-15
    // (absolute) of the first.  0.0 means not proportional (so does a zero ratio).
    double proportional(const law_polynomial& other) const;

    struct raw_term;  // one term before normalisation (polylaw.cpp)

  private:
    int degree_;
    int terms_;
    double* coefficients_;
    int* exponents_;
    law* variable_;

    void set_terms(const int* exponents, const double* coefficients, int count);
    void adopt_sorted(raw_term* raw, int count);
    static law_polynomial invalid();
    static law* common_variable(const law_polynomial& a, const law_polynomial& b, bool& ok);
    law_polynomial combined(const law_polynomial& other, double sign) const;
};

// The law c[0] + c[1]*X + c[2]*X^2 + ... + c[degree]*X^degree, every term built (zero
// coefficients included); degree 0 gives the constant law c[0].  A negative degree or a
// null array raises LAW_DIM.
law* make_polynomial_law(double* c, int degree);

// The prime factors of n found by trial division, ascending, with their powers; returns
// their count and hands the caller two arrays (vorx_discard), null when the count is 0.
// Deliberate limits: with r = floor(sqrt(n)) taken first, odd divisors d are tried only
// when r >= 4 and only while d < r, and the cofactor left over is never recorded
// (9 -> none, 14 -> (2,1), 22 -> (2,1), 60 -> (2,2)(3,1)(5,1)).  n < 2 has no factors.
// Either output may be null when only the count is wanted.
int factor_int(int n, int** primes, int** powers);

// (int)(pow(a, b) + 0.5): the 0.5 is added before truncation toward zero, so
// pow_int(-3, 3) is -26.  A value that is not a finite int raises LAW_EXPONENT.
int pow_int(int a, int b);

// Solves n equations in place: rows[i] holds n coefficients and the right-hand side,
// and on success the last column holds the solution.  Partial pivoting (largest |a| at
// or below the diagonal, the first on a tie); a pivot with 0 < |p| < 1e-13 makes the
// system singular (answer 0).  An exactly zero pivot is passed over in elimination; in
// back substitution its unknown is free and is set to 0 when its row is consistent
// (residual within 1e-13 of the row's terms), else the answer is 0.  A non-finite pivot
// or solution also answers 0.  Returns 1 on success.  n < 0 or missing rows raise
// LAW_DIM.
int solve_linear(double** rows, int n);

// The greatest common divisor (non-negative) of the n values; 0 when n < 1 or all are
// 0.  A result of 2^31 (only from values in {0, INT_MIN}) does not fit and raises
// LAW_DIM.
int GCD_int(int* values, int n);

// ---- used by the law classes' polynomial() overrides ----
// Each answers a new law_polynomial for the caller to delete, or null when the law is
// not a polynomial in `var` (null `var`: in whatever variable the law is written).
law_polynomial* polynomial_of_constant(double value, law* var);
law_polynomial* polynomial_of_variable(const law* variable, law* var);
// A chain of sums and differences (plus_law, minus_law) is read as one: its operands'
// terms are gathered and normalised once.
law_polynomial* polynomial_of_sum(const law* sum, law* var);
law_polynomial* polynomial_of_product(const law* left, const law* right, law* var);
law_polynomial* polynomial_of_negate(const law* sub, law* var);
law_polynomial* polynomial_of_power(const law* base, const law* power, law* var);

}  // namespace lawutil
