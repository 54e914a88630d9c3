// Pattern (compass) search and the sampled one-variable minimum built on it.
//
// Mechanism.  One search routine serves Nmin2D (n = 2, both steps h) and NminND (n
// coordinates, a step per coordinate).  The current point z holds the best value seen.
// Each iteration tries z +- step[i] along every axis (in the order +x0, -x0, +x1, -x1,
// ...), then, when all 2n neighbour values are usable and one pair of opposite values
// differs by more than resnor, one point along the estimated steepest descent: with
// G[i] = (f(z + s[i] e_i) - f(z - s[i] e_i)) / 2 (the gradient in step units), the point
// z - s[i] G[i] / |G|, one step from z in step units (z - h grad/|grad| when the steps are
// equal).  It is skipped when the gradient (f' estimated by central differences) is no
// longer than 1e-15, and in one dimension, where it is one of the axis points.  The first
// strictly smaller value wins, so ties go to the earlier trial in that order.  Step
// control: no winner halves every step; a winner doubles them when the same trial
// direction won the iteration before or when three iterations have passed since the
// last change.
//
// Invariants.  The value at z never increases; z only moves to a trial point whose law
// values were computed (inadmissible and NaN points carry DBL_MAX and cannot win).  The
// loop ends: an iteration either halves the steps or moves to a point it evaluated;
// doublings come only with moves, moves are bounded by root_max_evaluations (tested
// after each iteration, so at most root_max_evaluations + 2n + 1 evaluations), and the
// halvings by log2(step / 1e-14) plus the doublings.
//
// Error model.  The search is local: it finds a point where no compass neighbour at the
// final step is lower, which for a smooth objective is within about the final step of a
// local minimum (a narrow curved valley may stop it early at the evaluation bound).
// Without a stop law the final step is at most root_x_tol.  No allocation is made for
// n <= 8 coordinates; evaluation errors pass through with nothing to release but the
// law holders of Nmin_quick / Nmax_quick.
#include "lawutil/root_min.hpp"

#include <cfloat>
#include <cmath>

#include "base/interval.hpp"
#include "base/memory.hpp"
#include "base/tolerance.hpp"
#include "lawutil/internal_law.hpp"
#include "lawutil/law_base.hpp"
#include "lawutil/law_logic.hpp"
#include "lawutil/main_law.hpp"
#include "lawutil/main_law_arith.hpp"

using namespace vorx;

namespace lawutil {

namespace {

constexpr double step_floor = 1e-14;
constexpr double tiny_gradient = 1e-15;

void check_finite(double v) {
    if (!std::isfinite(v)) sys_error(LAW_BAD_BOUNDS);
}

void check_step(double s) {
    check_finite(s);
    if (s <= 0.0) sys_error(LAW_BAD_BOUNDS);
}

// Work doubles of one search, on the stack for short vectors.
class scratch {
  public:
    explicit scratch(int n) : p_(n <= inline_size ? buf_ : VORX_ALLOC_ARRAY(double, n)) {}
    ~scratch() {
        if (p_ != buf_) VORX_FREE(p_);
    }
    scratch(const scratch&) = delete;
    scratch& operator=(const scratch&) = delete;
    double* get() const { return p_; }

  private:
    static constexpr int inline_size = 40;  // five vectors of 8
    double buf_[inline_size];
    double* p_;
};

struct compass_problem {
    const law* f;
    const law* admissible;
    const law* stop;
    int n;
    double tol;           // the search ends when the largest step is at most this (no stop law)
    double max_distance;  // from the start; farther ends the search with status -1
};

struct compass_outcome {
    double value = DBL_MAX;
    int status = 0;
};

double largest(const double* s, int n) {
    double m = 0.0;
    for (int i = 0; i < n; ++i) m = std::fmax(m, s[i]);
    return m;
}

void scale(double* s, int n, double factor) {
    for (int i = 0; i < n; ++i) s[i] *= factor;
}

void copy(const double* from, double* to, int n) {
    for (int i = 0; i < n; ++i) to[i] = from[i];
}

// The objective at x, DBL_MAX when x is not admissible or the value is NaN.
double trial_value(const compass_problem& p, const double* x, int& evaluations) {
    if (p.admissible && !(p.admissible->evaluateM_R(x) > 0.0)) return DBL_MAX;
    ++evaluations;
    double v = p.f->evaluateM_R(x);
    return std::isnan(v) ? DBL_MAX : v;
}

// Compass search from z with steps s; both are updated in place.
compass_outcome compass_search(const compass_problem& p, double* z, double* s) {
    const auto& tols = law_context().root;
    const double f_tol = tols.root_f_tol;
    const int max_evaluations = tols.root_max_evaluations;
    const int n = p.n;
    scratch work(5 * n);
    double* start = work.get();
    double* trial = start + n;
    double* best_point = trial + n;
    double* up = best_point + n;
    double* down = up + n;
    copy(z, start, n);

    compass_outcome out;
    int evaluations = 1;
    double fz = p.f->evaluateM_R(z);
    if (std::isnan(fz)) fz = DBL_MAX;
    int since_change = 0;
    int last_won = -1;
    for (;;) {
        if (p.stop ? p.stop->evaluateM_R(z) <= f_tol : largest(s, n) <= p.tol) break;
        double best = fz;
        int won = -1;
        bool usable = true;  // every neighbour value can enter a difference
        copy(z, trial, n);
        for (int i = 0; i < n; ++i) {
            trial[i] = z[i] + s[i];
            up[i] = trial_value(p, trial, evaluations);
            if (up[i] < best) {
                best = up[i];
                won = 2 * i;
                copy(trial, best_point, n);
            }
            trial[i] = z[i] - s[i];
            down[i] = trial_value(p, trial, evaluations);
            if (down[i] < best) {
                best = down[i];
                won = 2 * i + 1;
                copy(trial, best_point, n);
            }
            trial[i] = z[i];
            usable = usable && std::isfinite(up[i]) && std::isfinite(down[i]) && up[i] < DBL_MAX &&
                     down[i] < DBL_MAX;
        }
        if (usable && n > 1) {
            // G = half the central differences (the gradient in step units).
            bool differs = false;
            double g_length2 = 0.0, scaled_length2 = 0.0;
            for (int i = 0; i < n; ++i) {
                double half = 0.5 * (up[i] - down[i]);
                differs = differs || std::fabs(up[i] - down[i]) > resnor;
                g_length2 += (half / s[i]) * (half / s[i]);
                scaled_length2 += half * half;
            }
            if (differs && std::sqrt(g_length2) > tiny_gradient) {
                double length = std::sqrt(scaled_length2);
                for (int i = 0; i < n; ++i)
                    trial[i] = z[i] - s[i] * (0.5 * (up[i] - down[i])) / length;
                double v = trial_value(p, trial, evaluations);
                if (v < best) {
                    best = v;
                    won = 2 * n;
                    copy(trial, best_point, n);
                }
            }
        }
        if (won >= 0) {
            copy(best_point, z, n);
            fz = best;
        }
        ++since_change;
        if (won < 0) {
            scale(s, n, 0.5);
            since_change = 0;
        } else if (since_change >= 3 || won == last_won) {
            scale(s, n, 2.0);
            since_change = 0;
        }
        last_won = won;
        double distance2 = 0.0;
        for (int i = 0; i < n; ++i) distance2 += (z[i] - start[i]) * (z[i] - start[i]);
        if (std::sqrt(distance2) > p.max_distance) {
            out.status = -1;
            break;
        }
        if (evaluations > max_evaluations || largest(s, n) < step_floor) break;
    }
    out.value = fz;
    return out;
}

}  // namespace

void check_search_law(const law* l, int inputs, bool required) {
    if (!l) {
        if (required) sys_error(LAW_DIM);
        return;
    }
    if (l->take_dim() > inputs || l->return_dim() != 1) sys_error(LAW_DIM);
}

complex_number Nmin2D(law* f, law* admissible, complex_number start, double h, double max_distance,
                      double* value, double* last_step, int* status, law* stop) {
    check_search_law(f, 2, true);
    check_search_law(admissible, 2, false);
    check_search_law(stop, 2, false);
    check_finite(start.re());
    check_finite(start.im());
    check_step(h);
    if (std::isnan(max_distance)) sys_error(LAW_BAD_BOUNDS);

    double z[2] = {start.re(), start.im()};
    double s[2] = {h, h};
    compass_problem p{f, admissible, stop, 2, law_context().root.root_x_tol, max_distance};
    compass_outcome out = compass_search(p, z, s);
    if (value) *value = out.value;
    // Twice the final step: callers read it as the size of the neighbourhood searched.
    if (last_step) *last_step = 2.0 * s[0];
    if (status) *status = out.status;
    return complex_number(z[0], z[1]);
}

nvector NminND(law* f, law* admissible, nvector& start, nvector& step, double* value,
               nvector* last_step, double tol, law* stop) {
    int n = start.size();
    if (n < 1 || step.size() != n) sys_error(LAW_DIM);
    check_search_law(f, n, true);
    check_search_law(admissible, n, false);
    check_search_law(stop, n, false);
    for (int i = 0; i < n; ++i) {
        check_finite(start[i]);
        check_step(step[i]);
    }
    if (std::isnan(tol)) sys_error(LAW_BAD_BOUNDS);

    nvector z(start), s(step);
    compass_problem p{f, admissible, stop, n, tol, HUGE_VAL};
    compass_outcome out = compass_search(p, z.data(), s.data());
    if (value) *value = out.value;
    if (last_step) *last_step = s.scale(2.0);
    return z;
}

double Nmin_quick(law* f, double a, double b, int n, double step, double tol) {
    check_search_law(f, 1, true);
    check_finite(a);
    check_finite(b);
    check_step(step);
    if (std::isnan(tol)) sys_error(LAW_BAD_BOUNDS);

    interval range(a, b);
    a = range.start_pt();
    b = range.end_pt();
    double best_x = a;
    double best = f->evaluateM_R(&a);
    for (int i = 1; i < n; ++i) {
        double x = range.interpolate((double)i / (n - 1));
        double v = f->evaluateM_R(&x);
        if (v < best) {
            best = v;
            best_x = x;
        }
    }

    // X >= a AND X <= b keeps the descent in [a, b].
    law_holder admissible;
    {
        law_holder var(VORX_NEW identity_law(0, 'X'));
        law_holder low(VORX_NEW constant_law(a));
        law_holder high(VORX_NEW constant_law(b));
        law_holder above(VORX_NEW greater_than_or_equal_law(var.get(), low.get()));
        law_holder below(VORX_NEW less_than_or_equal_law(var.get(), high.get()));
        admissible.reset(VORX_NEW and_law(above.get(), below.get()));
    }
    nvector from(&best_x, 1), steps(&step, 1);
    nvector found = NminND(f, admissible.get(), from, steps, nullptr, nullptr, tol, nullptr);
    return found[0];
}

double Nmax_quick(law* f, double a, double b, int n, double step, double tol) {
    check_search_law(f, 1, true);
    law_holder negated(VORX_NEW negate_law(f));
    return Nmin_quick(negated.get(), a, b, n, step, tol);
}

}  // namespace lawutil
