// Numerical partial derivatives of a law, of any order, by repeated finite differences on
// a fixed step h = 1e-4.  The law's symbolic derivative is never used; derivative_law
// evaluates through these two functions.
//
// Method.  m = 3*order + 1 samples of f are taken along input `which`; each of `order`
// levels replaces every group of four consecutive rows by a four-point estimate of the
// derivative, in place, until row 0 holds the result.  All outputs of the law come from
// the same m evaluations, one per sample.
//
// Error model (per level, for one output f of unit-sized values):
//   centred  (27(f(x+h/2) - f(x-h/2)) - (f(x+3h/2) - f(x-3h/2))) / 24h
//     truncation  -(3/640) h^4 f'''''   ~ 5e-19 |f'''''|   (exact on quartics)
//     rounding    (7/3) eps |f| / h     ~ 5e-12 |f|
//   sided    (-11 f0 + 18 f1 - 9 f2 + 2 f3) / 6s, s = +-h
//     truncation  (s^3/4) f''''          ~ 2.5e-13 |f''''|  (exact on cubics)
//     rounding    (20/3) eps |f| / h    ~ 1.5e-11 |f|
// At this step rounding dominates for functions that vary on a unit scale, and the centred
// rule is the more accurate of the two.  Each further level divides by about h again:
// order n carries a rounding error of about (7/3)^n eps |f| / h^n, some 1e-7 |f| at order
// 2 and 3e-3 |f| at order 3; from order 4 on the result is noise unless f itself is small
// over the samples (near a zero of f, for instance).
//
// Large |x|.  The step is fixed, not scaled to x: a sample coordinate x0 + k*h carries a
// rounding error of about eps |x0|, which adds (7/3) eps |x0| |f'| / h to a first
// derivative, a relative error of about 5e-12 |x0|: 5e-8 at |x0| = 1e4, 5e-4 at 1e8.  Past
// |x0| ~ h/eps ~ 4.5e11 neighbouring doubles are further apart than h, the samples collapse
// onto a few values and the result is meaningless.  Callers at large coordinates should
// shift their law towards the origin first.
//
// Scratch use of the point.  `x` is declared constant but the coordinate `which` is
// written while the samples are taken, deliberately, to spare a copy of the point per
// call: callers must pass writable storage.  The coordinate holds exactly its value on
// entry when the function returns, also when the law raises an error, which then reaches
// the caller unchanged (the sample tables are released first).
//
// Nothing is validated: `which` must be below f->take_dim() and `answer` must hold
// f->return_dim() values.  Order 0 yields f(x0); a negative order is treated as 0.
#pragma once

namespace lawutil {

class law;

// The order-th partial derivative of f in input `which` at `x`, one value per output,
// into `answer`, by the centred rule (samples symmetric about x0).
void Ndifferentiate(law* f, const double* x, int which, double* answer, int order);

// The same by the one-sided rule, for use at the edge of a domain: with `side` equal to 1
// the samples lie at and below x0, with any other value at and above it.
void Ndifferentiate_sided(law* f, const double* x, int which, int side, double* answer, int order);

}  // namespace lawutil
