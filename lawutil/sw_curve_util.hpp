// Free helpers of the spline curve: the linear interpolation its evaluator maps parameters
// with, and the distance check of a curve against the law it approximates.
#pragma once

#include "base/position.hpp"
#include "base/tolerance.hpp"

namespace lawutil {

class law;
class sw_curve;

// Linear interpolation of va (at a) and vb (at b) to t:
//   out = va + (vb - va)·(t - a)/(b - a)   when b - a >= resmch,
//   out = va                               otherwise (an interval too short to divide by).
// Inline: the curve evaluator maps every parameter through it.
inline void sw_ratio(double a, double t, double b, double va, double& out, double vb) {
    double h = b - a;
    out = h >= vorx::resmch ? va + (vb - va) * ((t - a) / h) : va;
}
inline void sw_ratio(double a, double t, double b, const vorx::vector& va, vorx::vector& out,
                     const vorx::vector& vb) {
    double h = b - a;
    out = h >= vorx::resmch ? va + (vb - va) * ((t - a) / h) : va;
}

// The greatest distance between `C` and the position-valued law `L` of one input over
// the curve's range, measured at 2n + 2 evenly spaced parameters (n control points), ends
// included.  `L` must take one input and return three (LAW_DIM otherwise, also for a null
// law or curve).
double sw_curve_accuracy(law* L, sw_curve* C);

}  // namespace lawutil
