// Local minimisation over laws: sampled search in one variable refined by a pattern
// search, and the pattern (compass) search itself in the plane and in n dimensions.
//
// Conventions shared by every function here:
// - An admissible law, when given, is evaluated at each trial point; the point is
//   admissible when that value is greater than 0.  An inadmissible trial point gets the
//   value DBL_MAX and so never wins.  A null admissible law admits every point.  The
//   start point itself is evaluated as given: the caller keeps it inside the law's domain.
// - A trial value that is NaN counts as DBL_MAX (it never wins).
// - The objective is evaluated at most root_max_evaluations times plus one iteration's
//   trial points (2n + 1): the bound is tested after each iteration.
// - The search step reported through `last_step` is twice the final step.
// - Laws may read fewer inputs than the search has coordinates (a law of X alone is a
//   law of the plane that ignores Y) but must return one value.
// - Errors: a null objective, or a law that reads too many inputs or returns other than
//   one value, raises LAW_DIM; a NaN or infinite start, interval end or step, a step
//   <= 0, a NaN tolerance or distance raise LAW_BAD_BOUNDS.  Errors raised by the laws
//   themselves (domain errors) pass through; nothing made inside is left behind.
// - Maximum members build a negate_law over the caller's law, run the minimum member and
//   release it.
#pragma once

#include "base/complex_number.hpp"
#include "base/nvector.hpp"

namespace lawutil {

class law;

// The position of a local minimum of f (one input) near the best of n samples of
// [a, b] (a only when n <= 1), refined by NminND from there with first step `step` and
// step tolerance `tol`, kept in [a, b] by the admissible law X >= a AND X <= b.
double Nmin_quick(law* f, double a, double b, int n, double step, double tol);
// Nmin_quick of -f.
double Nmax_quick(law* f, double a, double b, int n, double step, double tol);

// Compass search of the plane from `start` with first step h.  Returns the best point;
// `value` gets f there, `last_step` twice the final step, `status` 0, or -1 when the
// search moved farther than max_distance from start (a max_distance of +inf never
// stops it).  Without a stop law it ends when the step is at most root_x_tol; with one,
// when the stop law at the current point is at most root_f_tol; always when the step
// falls below 1e-14 or the evaluation bound is passed.  Output pointers may be null.
vorx::complex_number Nmin2D(law* f, law* admissible, vorx::complex_number start, double h,
                            double max_distance, double* value, double* last_step, int* status,
                            law* stop);

// The same search over n = start.size() coordinates, each with its own step (all > 0).
// Trial points are start +- step[i] along each axis and one point along the estimated
// descent direction measured in step units; every step is doubled or halved together.
// Without a stop law it ends when the largest step is at most `tol` (tol <= 0: only at
// the 1e-14 floor); with one, when the stop law is at most root_f_tol.  `value` gets the
// best value and `last_step` (when not null) twice the final step vector.
vorx::nvector NminND(law* f, law* admissible, vorx::nvector& start, vorx::nvector& step,
                     double* value, vorx::nvector* last_step, double tol, law* stop);

// Raises LAW_DIM unless `l` reads at most `inputs` inputs and returns one value; a null
// law passes unless `required`.  The argument check of the searches, shared with Nroot2D.
void check_search_law(const law* l, int inputs, bool required);

}  // namespace lawutil
