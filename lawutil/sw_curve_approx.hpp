// Approximation of a law of one input by an sw_curve to a tolerance.
//
// A law of one input and three outputs is a space curve; two outputs are (x, y, 0); one
// output f is taken as its graph (t, f(t), 0).  The result is a polynomial B-spline of the
// chosen degree, parameterised like the law (the curve at t approximates the law at t),
// whose distance from the law is at most the tolerance over the whole range.
//
// Breaks.  The places where the law is known not to be smooth become knots of full
// multiplicity: the law's own singularities (for a VEC law those of its components), the
// caller's breakpoints and the range ends.  A break where the value is continuous gets
// multiplicity p (the curve passes through the law's value there, with a corner allowed);
// a jump in value gets p + 1 (the curve jumps too).  Between breaks the curve is C^(p-1).
// A pole inside the range cannot be approximated: BAD_SINGULARITIES.
//
// Error model.  The deviation reported, and checked against the tolerance, is the maximum
// over every span of the distance between law and spline, found by sampling each span
// densely and polishing every high sample maximum by Brent's method (see the .cpp): it is
// a maximisation of the distance, not a check at the fitting samples.  Like any sampling
// maximiser it can miss a feature of the law narrower than a sample step that the fit
// never saw; for laws smooth between their reported breaks it is exact to the polishing
// tolerance.
//
// Errors: a null law or one of more than one input or more than three outputs (LAW_DIM);
// a degree outside 1..7 or a span cap below 1 (SW_BAD_ORDER); an end that is NaN or
// infinite (LAW_BAD_BOUNDS); end <= start (LAW_BAD_DOMAN); a tolerance that is not a
// positive number, or one below what doubles can resolve at the law's size
// (1024·eps·size), or one that cannot be met within max_spans spans (BS_ACCURACY); a pole
// in the range (BAD_SINGULARITIES); a law value that is not finite (LAW_BAD_RANGE).  An
// error the law raises while it is evaluated passes through unchanged.  Nothing leaks.
#pragma once

namespace vorx {
class interval;
}  // namespace vorx

namespace lawutil {

class law;
class sw_curve;

// How the knots are chosen between the breaks.
enum sw_approx_strategy {
    // Split the spans whose error is above the tolerance until none is.
    sw_approx_refine_only = 0,
    // Then try to remove every interior knot, keeping each removal that the tolerance
    // allows.
    sw_approx_refine_then_remove = 1,
};

struct sw_curve_approx_options {
    int degree = 3;
    sw_approx_strategy strategy = sw_approx_refine_then_remove;
    // Extra breaks (full multiplicity, value continuous), any order; those outside the
    // open range are ignored.
    const double* breakpoints = nullptr;
    int num_breakpoints = 0;
    // Ask the law for its singularities.
    bool use_singularities = true;
    // The cap on the number of spans: BS_ACCURACY when the tolerance needs more.
    int max_spans = 20000;
};

// What an approximation did.
struct sw_curve_approx_report {
    double max_error = 0.0;  // the measured deviation of the result (<= tolerance)
    int spans = 0;           // spans of positive length
    int control_points = 0;
    int breaks = 0;         // full-multiplicity breaks inside the range
    int refine_passes = 0;  // fits made while refining
    int knots_removed = 0;
    long evaluations = 0;  // evaluations of the law
};

// The law `L` over [start, end] as an sw_curve within `tolerance`.  The caller owns the
// curve (delete it).  `report`, when given, is filled.
sw_curve* law_to_sw_curve(law* L, double start, double end, double tolerance,
                          const sw_curve_approx_options& options = sw_curve_approx_options(),
                          sw_curve_approx_report* report = nullptr);

// The same over a range given as an interval (LAW_BAD_BOUNDS unless it is finite).
sw_curve* law_to_sw_curve(law* L, const vorx::interval& range, double tolerance,
                          const sw_curve_approx_options& options = sw_curve_approx_options(),
                          sw_curve_approx_report* report = nullptr);

// The greatest distance between the curve `C` and the law `L` (taken as above: one input,
// one to three outputs) over the curve's range, by the same per-span maximisation that
// law_to_sw_curve checks its result with.  LAW_DIM for a null or misshapen argument.
double sw_curve_max_deviation(law* L, const sw_curve* C);

}  // namespace lawutil
