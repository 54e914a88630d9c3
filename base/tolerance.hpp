// Tolerances of the kernel.  They are per thread, so a routine that tightens one for the
// duration of a call (and restores it on the way out) cannot disturb another thread.
//
//   resabs  1e-6   distance: two points closer than this are the same point
//   resnor  1e-10  normals and ratios: directions or relative values closer than this agree
//   resfit  1e-3   fitting: the accuracy asked of approximations
//   resmch  1e-11  machine-level comparisons of values that should be exactly equal
#pragma once

namespace vorx {

extern thread_local double resabs;
extern thread_local double resnor;
extern thread_local double resfit;
extern thread_local double resmch;

// Sets a tolerance for the lifetime of the guard and restores it afterwards, also when an
// error passes.
class tolerance_guard {
  public:
    tolerance_guard(double& tol, double value) : tol_(tol), saved_(tol) { tol_ = value; }
    ~tolerance_guard() { tol_ = saved_; }
    tolerance_guard(const tolerance_guard&) = delete;
    tolerance_guard& operator=(const tolerance_guard&) = delete;

  private:
    double& tol_;
    double saved_;
};

}  // namespace vorx
