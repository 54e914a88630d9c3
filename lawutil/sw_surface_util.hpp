// Approximation of a law of two inputs and three outputs by an sw_surface, the patch
// boundaries of a surface, and one evaluation front for laws and surfaces alike.
//
// law_to_sw_surface fits a tensor-product spline to the law over [u0, u1] x [v0, v1]
// within a tolerance.  Fit: least squares on a tensor grid of pu + 2 by pv + 2 samples per
// patch; on a tensor grid the problem separates into banded curve fits along u for every
// sample column, then along v for every row (two banded Cholesky factorisations, many
// right-hand sides).  A polynomial law of degrees <= (pu, pv) comes back exactly.
//
// Error model.  The error of a patch is the largest distance between law and surface on a
// (2p + 5) x (2p + 5) grid over the patch, the best grid point polished by Brent's method
// along u, then v, then u again, within one grid step; the result is accepted at 0.999 of
// the tolerance.  As for curves this is a maximisation, not a check at the fitting
// samples; a bump narrower than a grid step that the fit never saw can be missed.
//
// Refinement splits the spans of every failing patch into k pieces by the h^(p+1) law (2
// to 16), in u, in v or both: a direction is split when the law's (p+1)-th difference
// across the patch along it is at least a tenth of that along the other (a cylinder is
// never split along its rulings).  The caller's breakpoints become knots of multiplicity
// p (a crease is allowed there).
//
// Errors: LAW_DIM (null law, or not two inputs and three outputs), SW_BAD_ORDER (degree
// outside 1..7, cap below 1), LAW_BAD_BOUNDS (a non-finite end), LAW_BAD_DOMAN (an empty
// range), BS_ACCURACY (tolerance not positive, below 1024·eps·size, or not met within
// max_patches patches), LAW_BAD_RANGE (a non-finite value); the law's own errors pass.
#pragma once

#include "base/position.hpp"
#include "lawutil/law_base.hpp"

namespace lawutil {

class sw_surface;

struct sw_surface_approx_options {
    int degree_u = 3, degree_v = 3;
    const double* breakpoints_u = nullptr;
    int num_breakpoints_u = 0;
    const double* breakpoints_v = nullptr;
    int num_breakpoints_v = 0;
    int max_patches = 40000;
};

struct sw_surface_approx_report {
    double max_error = 0.0;
    int patches_u = 0, patches_v = 0;
    int control_points = 0;
    int passes = 0;
    long evaluations = 0;
};

// The caller owns the surface (delete it).
sw_surface* law_to_sw_surface(
    law* L, double u0, double u1, double v0, double v1, double tolerance,
    const sw_surface_approx_options& options = sw_surface_approx_options(),
    sw_surface_approx_report* report = nullptr);

// The greatest distance between `S` and `L` by the per-patch maximisation above.
double sw_surface_max_deviation(law* L, const sw_surface* S);

// The patch boundaries of `S` in u (dir 0) or v (dir 1), ascending, ends included; the
// array goes to the caller (VORX_FREE).  Returns the count.
int patch_breakpoint_list(const sw_surface* S, int dir, double** out);

// One front for evaluating a surface given as a law of two inputs and three outputs or as
// an sw_surface: point and first partials.
class surface_evaluator {
  public:
    explicit surface_evaluator(law* L);  // LAW_DIM unless two inputs and three outputs
    explicit surface_evaluator(const sw_surface* S);
    void eval(double u, double v, vorx::position* P, vorx::vector* Su = nullptr,
              vorx::vector* Sv = nullptr) const;

  private:
    law_holder law_, du_, dv_;
    const sw_surface* surface_ = nullptr;
};

}  // namespace lawutil
