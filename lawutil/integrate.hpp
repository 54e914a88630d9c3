// Definite integrals of laws, integral laws and antiderivatives.
//
// Romberg (Nintegrate, Nintegrate_wrt, Nintegrate_wrt_and_split).  The trapezoid rule on
// halving steps with Richardson extrapolation.  Row k holds k entries; the iteration stops
// when the last entries of two successive rows differ by at most `tol` (an absolute
// difference) and the new row has 10 entries or fewer, unless `min_level` asks for more
// rows.  The result is the row length reached, or 0 when the row before the last had 9
// entries (the limit).  Error model: on a function analytic over [a, b] the extrapolated
// entries converge like h^(2k) and the stopping difference bounds the error; at a kink,
// a jump or an end singularity the rows converge like h or h^(1/2) and the difference of
// two rows says little about the error, which may exceed `tol` by orders of magnitude.
// At most 513 evaluations at the limit of 10 levels, twice as many per extra level that
// `min_level` asks for; `min_level` is clamped to 20 (about a million evaluations) so a
// wild value cannot run for hours.  Non-finite limits raise LAW_BAD_BOUNDS; a > b gives
// the negated integral (the formula is signed); an error the integrand raises reaches the
// caller after the rows are released.
//
// Adaptive (Nintegrate_adaptive).  Gauss-Kronrod 7-15 with bisection of the interval of
// largest estimated error, over pieces cut at the caller's split points, at the law's own
// `singularities` and at the kinks and breaks the law's tree shows (ABS, MAX/MIN,
// comparisons, STEP, FLOOR/CEIL of arguments linear in X).  An interval that ends at a
// piece end where the law or its derivative is not finite (or raises) is integrated by
// the double-exponential tanh-sinh rule instead, which converges on integrable end
// singularities such as 1/SQRT(X) or LN(X) at 0 in about a hundred evaluations.  The
// error estimate is QUADPACK's for a Kronrod interval and the difference of the last two
// levels (plus the truncated tails) for a tanh-sinh interval; both overstate the error on
// smooth integrands.  See integrate_options for the knobs and the treatment of bad input.
//
// integrate_law.  Integrate(F, A, B) = integral of F(X, y) dy for y from A(X) to B(X), by
// Nintegrate_wrt_and_split with the law's split laws, tolerance and minimum level.
//
// law_integrate.  An antiderivative law: symbolic where it can be, an integrate_law
// otherwise.  See its comment.
#pragma once

#include "lawutil/internal_law.hpp"

namespace lawutil {

// ---------------------------------------------------------------- Romberg

// Integral of f (one input) over [a, b] into `answer`.
int Nintegrate(law* f, double a, double b, double* answer, double tol, int min_level);

// Integral of f as a function of coordinate `which` of the point `x`, the other
// coordinates held.  Coordinate `which` of `x` is overwritten with the samples and is left
// holding the last one (the last midpoint of the last level): callers that need `x`
// afterwards save it.
int Nintegrate_wrt(law* f, double a, double b, int which, double* x, double* answer, double tol,
                   int min_level);

// The same over [a, b] cut at `splits` (taken in the order given): each piece
// [s_k + 1e-14, s_(k+1) - 1e-14] is integrated by Nintegrate_wrt and added to `answer`,
// so a split point is never sampled.  The result is the largest of the pieces' results.
// Split points out of order or outside [a, b] give signed pieces that still add up to the
// integral over [a, b] (up to the 1e-14 pull-ins).
int Nintegrate_wrt_and_split(law* f, double a, double b, int which, double* x, double* answer,
                             int n_splits, double* splits, double tol, int min_level);

// ---------------------------------------------------------------- adaptive

enum integrate_status {
    integrate_converged = 0,         // error estimate within the tolerance
    integrate_evaluation_limit = 1,  // stopped at max_evaluations; best estimate returned
    integrate_resolution_limit = 2   // an interval could not be halved any further
};

// The status as front ends show it: "converged", "evaluation limit", "resolution limit"
// ("unknown" for any other value).
inline const char* integrate_status_name(int status) {
    static const char* const names[] = {"converged", "evaluation limit", "resolution limit"};
    return status >= 0 && status <= integrate_resolution_limit ? names[status] : "unknown";
}

struct integrate_options {
    // Target: error <= max(abs_tol, rel_tol * |value|).  A tolerance that is not positive
    // (0, negative or NaN) does not count; with neither counting the target is the rounding
    // floor 50 * eps * |value| and the routine usually runs to max_evaluations.
    double rel_tol = 1e-10;
    double abs_tol = 1e-14;
    // Bound on the evaluations of the integrand (and its derivative, when an end is
    // probed).  The first rule on each piece is always applied.
    int max_evaluations = 20000;
    // 15 (Gauss-Kronrod 7-15) or 21 (10-21); any other value means 15.
    int kronrod_points = 15;
    // Cut at the law's singularities and at the kinks of its tree.
    int use_breaks = 1;
    // tanh-sinh on intervals that end at a singular piece end.
    int use_tanh_sinh = 1;
};

struct integrate_result {
    double value = 0.0;
    double error = 0.0;   // estimated absolute error
    int evaluations = 0;  // of the integrand and its derivative
    int status = integrate_converged;
    int pieces = 0;  // pieces after cutting at split points and breaks
};

// Integral of f (one input, one output) over [a, b].  Non-finite a or b raises
// LAW_BAD_BOUNDS, a law of more inputs or outputs LAW_DIM.  a > b gives the negated
// integral over [b, a]; a == b gives 0 with no evaluation.  Split points that are not
// finite or not strictly inside (a, b) are ignored; the rest are sorted and merged.  An
// error the integrand raises inside the interval reaches the caller (nothing is kept);
// only the probes of piece ends and the tanh-sinh rule (on spans at a singular end) catch
// it, as the mark of a singularity, and stop sampling there.
integrate_result Nintegrate_adaptive(const law* f, double a, double b,
                                     const integrate_options& options = integrate_options(),
                                     int n_splits = 0, const double* splits = nullptr);

// ---------------------------------------------------------------- integral laws

// Integrate(F, A, B): a law of X, integral of F(X, y) for y from A(X) to B(X).  F takes at
// most two inputs (X and the integration variable Y); A, B and the split laws at most one.
// Held as a multiple_law over (F, A, B, split laws...), so the parser reads
// 'INTEGRATE(F,A,B)' (case does not matter: 'Integrate(...)' as printed reads back) and
// extra arguments as split laws; the tolerance and minimum level are not part of the text
// (make_one and deep_copy keep this law's), so only a law with the default tolerance and
// level reads back equal.  The text shows F, A and B only, so a law with split laws does
// not read back equal either.  Equality compares the split laws as a set: evaluation
// reorders them.  Fewer than three parts, or parts of the wrong dimension, raise LAW_DIM.
class integrate_law : public multiple_law {
    LAWUTIL_TYPE_DECL(integrate_law, multiple_law)
    static constexpr double default_tol = 1e-10;
    static constexpr int default_min_level = 4;

    // Takes a reference on the three laws and on each split law and copies the array.
    integrate_law(law* integrand, law* lower, law* upper, int n_splits, law** splits, double tol,
                  int min_level);
    // The parser's layout: (F, A, B, split laws...).
    integrate_law(law** parts, int n, double tol = default_tol, int min_level = default_min_level);

    law* fintegrand() const { return subs_ ? subs_[0] : nullptr; }
    law* flower() const { return subs_ ? subs_[1] : nullptr; }
    law* fupper() const { return subs_ ? subs_[2] : nullptr; }
    int fsplit_count() const { return count_ > 3 ? count_ - 3 : 0; }
    // Null when there are none.
    law** fsplits() const { return fsplit_count() ? subs_ + 3 : nullptr; }
    double ftol() const { return tol_; }
    int fmin_level() const { return min_level_; }

    // Sorts the split laws in place by their values at X, then integrates.
    void evaluate(const double* x, double* y) const override;
    const char* symbol(law_symbol_type type = law_symbol_default) const override;
    // "Integrate(F,A,B)"; Maple "int(F,Y=A..B)".
    char* string(law_symbol_type type, int& counter, law_data_node*& list) const override;
    int same(const law* a, const law* b) const override;
    // The limits and split laws only: the integrand reads an input this law does not have.
    int in_domain(const double* x) const override;
    multiple_law* make_one(law** parts, int n) const override;

  protected:
    // Leibniz: d/dX = F(X,B)*B' - F(X,A)*A' + Integrate(dF/dX, A, B), with the same split
    // laws, tolerance and level; a term whose factor is zero is left out (a constant limit,
    // an F that does not read X), so F is never evaluated at a constant limit.  Null when A,
    // B or (if it reads X) F has no symbolic derivative in X.
    law* deriv(int which) const override;
    int take_size() const override { return 1; }
    int return_size() const override { return 1; }

  private:
    double tol_;
    int min_level_;
};

// An antiderivative of f (a law of at most one input X, one output): F with F' = f and
// F(base) = 0.  Symbolic for constants, X, sums, differences, negations, constant
// multiples and quotients by constants of integrable terms, polynomials, and SIN, COS, TAN,
// COT, EXP, LN, SQRT, SINH, COSH, TANH, c/g, g^n and c^g of an argument g linear in X;
// F is then G - G(base) with G the symbolic antiderivative (G itself when G cannot be
// evaluated at base, e.g. LN at 0).  Otherwise Integrate((f)O(Y), base, X).  A law of more
// inputs or outputs raises LAW_DIM.
law* law_integrate(const law* f, double base = 0.0);

}  // namespace lawutil
