// Root finding over laws of one input.
//
// How Nroot searches [a, b] (after a scan that recognises constant laws):
//   * Two open sets over [a, b] (open_set.hpp): `explored` holds the parts known to hold
//     no further root, `roots` holds the roots found, as one-point intervals.  Local
//     quadratic-model solves from a and from b cover both ends first, so the explored
//     set always has a first gap between two intervals until it is full.
//   * Probing: the first gap [lo, hi] (centre h, width w) is probed by a local solve
//     for f from h and one for f' (two results: critical points), and a gap narrower
//     than root_hole_fraction of the interval is closed by a sign test and bisection.
//     While probing, root_x_tol and root_f_tol are root_search_tol (1e-4).
//   * Then the roots' centres that pass |f| < 1e-7, a merge pass (two neighbours with
//     no hump of |f| between them are one root) and a recovery pass (bisection across
//     a sign change left between neighbours).
//   * As the search is defined, a root that probing reached only to |f| <= 1e-4 (its
//     tolerance then) and that fails the final 1e-7 test is dropped; the recovery pass
//     brings back only roots with a sign change between neighbours.  This is the main
//     source of missed roots (the battery in tests/test_root.cpp counts them).
//
// Bookkeeping of a probe (which parts of the gap it marks explored):
//   1. The f solve: a root found inside the gap, more than root_x_tol from both ends, is
//      recorded and marked as a one-point interval; otherwise h is marked.
//   2. The f' solve: a critical point c at distance d from the nearer end of the gap is
//      "far" when d / w >= root_far_ratio.  A far c splits the gap (it is marked as a
//      point).  Its far side, from c to the end of the gap away from h, is marked
//      explored only when the values say it holds no root: f has one sign at c and at
//      that end, c is a minimum of |f| (f * f'' > 0) and |f| is still growing at the end
//      (f * f' points away from c).  A root in between would need two more critical
//      points there, which the local model from h did not see.  Marking the far side on
//      the distance test alone loses roots whenever the model's critical point is not the
//      last one before the end (SIN(5*X) on [0, 3] lost four of five).  With
//      root_far_ratio 1.0 (a fresh thread) no critical point is far, since d <= w / 2.
//   3. A narrow gap (w < root_hole_fraction * (b - a)) is closed: its whole width is
//      marked, unless a sign change that step 1 left unexplained bisects to a root r,
//      and then [r - root_x_tol, r + root_x_tol] is marked.
//
// Why the probing loop ends.  Every probe marks part of its own gap: step 1 always marks
// a point, and that point lies inside [lo, hi].  When w > 2 * root_x_tol it is more than
// root_x_tol from both ends (h is the centre; a root nearer an end is refused), so it is
// not fused with the neighbours and the gap is cut in two, each piece narrower by at least
// root_x_tol; when w <= 2 * root_x_tol the point touches both neighbours within
// root_x_tol and add() fuses them, closing the gap.  So a probe never leaves the explored
// set as it was (nroot_stats::probes_without_mark counts the exceptions; the tests check
// it stays 0), every chain of gaps shrinks by root_x_tol per probe, and narrow gaps are
// closed outright.  On top of that proof, which bounds the work only by (b - a) /
// root_x_tol, the loop is capped at max_probes probes, and the no-progress test (a gap
// centre within resnor of the previous one) stays as a second guard.
//
// Bounds on evaluations: the constant scan makes at most 9; a local solve at most
// 3 * root_newton_iterations + root_newton_iterations per result; a bisection at most
// root_bisect_iterations + 1; a probe at most two local solves (the second with two
// results), 4 for the far-side test of each far critical point and one bisection with
// its two end values; the merge pass at most 3 per pair
// per scan; the recovery pass re-walks the list at most max_recovered times.
//
// Errors.  A point where the law raises its own error (outside its domain, at a pole)
// has no value: it yields no candidate, no sign and no root, and a law that raises
// everywhere yields no root.  Other errors end the call: an interrupt (polled once per
// probe), memory, a law without a derivative.  Every law made here is held by
// a law_holder and both open sets and all arrays are owned by scope objects, so nothing
// leaks; the tolerance block is saved on entry and a guard puts it back when an error
// passes (a normal return leaves the defaults, as the end of probing writes them).

#include "lawutil/root.hpp"

#include <algorithm>
#include <cfloat>
#include <cmath>

#include "base/tolerance.hpp"
#include "lawutil/law_base.hpp"
#include "lawutil/main_law.hpp"
#include "lawutil/main_law_arith.hpp"
#include "lawutil/open_set.hpp"

using namespace vorx;

namespace lawutil {

void set_root_tol_default() {
    auto& r = law_context().root;
    r.root_x_tol = 1e-14;
    r.root_f_tol = 1e-7;
    r.root_quad_tol = 1e-7;
    r.root_hole_fraction = 0.05;
    r.root_ratio = 0.1;
    r.root_far_ratio = 0.1;
    r.root_newton_iterations = 10;
    r.root_bisect_iterations = 40;
    r.root_count_a = 7;
    r.root_max_evaluations = 10000;
    r.root_search_tol = 1e-4;
}

// ================================================================ singularity lists

namespace {

struct singular_record {
    double where;
    int kind;
};

}  // namespace

int sort_singularities(double** where, int** kind, int n, double lo, double hi) {
    if (n <= 0 || !where || !*where || !kind || !*kind) {
        if (where && n <= 0 && *where) {
            VORX_FREE(*where);
            *where = nullptr;
        }
        if (kind && n <= 0 && *kind) {
            VORX_FREE(*kind);
            *kind = nullptr;
        }
        return 0;
    }
    singular_record* rec = VORX_ALLOC_ARRAY(singular_record, n);
    for (int i = 0; i < n; ++i) rec[i] = {(*where)[i], (*kind)[i]};
    std::sort(rec, rec + n,
              [](const singular_record& p, const singular_record& q) { return p.where < q.where; });
    // Keep: inside [lo, hi] within resabs, and not within resabs of the record before it
    // in the sorted order (so a cluster keeps its first).
    int kept = 0;
    double previous = std::nan("");
    for (int i = 0; i < n; ++i) {
        double x = rec[i].where;
        bool near_previous = i > 0 && std::fabs(x - previous) < resabs;
        previous = x;
        if (x + resabs < lo || x - resabs > hi || std::isnan(x) || near_previous) continue;
        rec[kept++] = rec[i];
    }
    if (kept < n) {
        VORX_FREE(*where);
        VORX_FREE(*kind);
        *where = kept ? VORX_ALLOC_ARRAY(double, kept) : nullptr;
        *kind = kept ? VORX_ALLOC_ARRAY(int, kept) : nullptr;
    }
    for (int i = 0; i < kept; ++i) {
        (*where)[i] = rec[i].where;
        (*kind)[i] = rec[i].kind;
    }
    VORX_FREE(rec);
    return kept;
}

bool linear_coefficients(const law* g, double& c, double& s) {
    if (!g || g->take_dim() > 1 || !g->returns_scalar()) return false;
    try {
        if (g->take_dim() == 0) {
            c = g->eval(0.0);
            s = 0.0;
            return std::isfinite(c);
        }
        if (!g->linear()) return false;
        law_holder d(g->derivative(0));
        c = g->eval(0.0);
        s = d->eval(0.0);
    } catch (const vorx_exception&) {
        return false;
    }
    return std::isfinite(c) && std::isfinite(s);
}

singularity_list::singularity_list(double lo, double hi) : lo_(lo), hi_(hi) {
    if (lo_ > hi_) std::swap(lo_, hi_);
}

singularity_list::~singularity_list() {
    VORX_FREE(where_);
    VORX_FREE(kind_);
}

void singularity_list::add(double x, int kind) {
    if (!std::isfinite(x) || x + resabs < lo_ || x - resabs > hi_) return;
    if (n_ == cap_) {
        int cap = cap_ ? 2 * cap_ : 8;
        double* w = VORX_ALLOC_ARRAY(double, cap);
        int* k = VORX_ALLOC_ARRAY(int, cap);
        for (int i = 0; i < n_; ++i) {
            w[i] = where_[i];
            k[i] = kind_[i];
        }
        VORX_FREE(where_);
        VORX_FREE(kind_);
        where_ = w;
        kind_ = k;
        cap_ = cap;
    }
    where_[n_] = x + 0.0;  // -0 reads as +0: 1/X at its pole gives +inf
    kind_[n_] = kind;
    ++n_;
}

void singularity_list::note_period(double p) {
    if (period_ == 0.0)
        period_ = p;
    else if (std::fabs(period_ - p) > resnor * p)
        period_ = -1.0;
}

void singularity_list::add_lattice(double x0, double period, int kind) {
    if (!std::isfinite(x0) || !(period > 0.0) || !std::isfinite(period)) return;
    // Whole steps from x0 to the ends, in doubles: an infinite range gives infinite counts.
    double k_lo = std::ceil((lo_ - resabs - x0) / period);
    double k_hi = std::floor((hi_ + resabs - x0) / period);
    if (!(k_hi - k_lo + 1.0 <= max_listed)) {
        double centre = lo_ * 0.5 + hi_ * 0.5;
        k_lo = std::ceil((centre - 0.5 * period - x0) / period);
        k_hi = k_lo;
        note_period(period);
    }
    for (double k = k_lo; k <= k_hi; k += 1.0) add(x0 + k * period, kind);
}

void singularity_list::add_linear_lattice(const law* g, double v0, double step, int kind) {
    double c, s;
    if (!linear_coefficients(g, c, s) || s == 0.0) return;
    // c + s*x = v0 + k*step  <=>  x = (v0 - c)/s + k*step/s
    add_lattice((v0 - c) / s, std::fabs(step / s), kind);
}

void singularity_list::add_linear_zero(const law* g, int kind) {
    double c, s;
    if (linear_coefficients(g, c, s) && s != 0.0) add(-c / s, kind);
}

void singularity_list::add_law(const law* l) {
    if (!l) return;
    double* w = nullptr;
    int* k = nullptr;
    double* p = nullptr;
    int m = l->singularities(&w, &k, lo_, hi_, &p);
    for (int i = 0; i < m; ++i) add(w[i], k[i]);
    if (p) note_period(p[0]);
    VORX_FREE(w);
    VORX_FREE(k);
    VORX_FREE(p);
}

int singularity_list::finish(double** where, int** kind, double** period) {
    int n = sort_singularities(&where_, &kind_, n_, lo_, hi_);
    if (where)
        *where = where_;
    else
        VORX_FREE(where_);
    if (kind)
        *kind = kind_;
    else
        VORX_FREE(kind_);
    where_ = nullptr;
    kind_ = nullptr;
    n_ = cap_ = 0;
    if (period) {
        *period = nullptr;
        if (period_ > 0.0) {
            *period = VORX_ALLOC_ARRAY(double, 1);
            **period = period_;
        }
    }
    return n;
}

int operand_singularities(const law* self, const law* a, const law* b, double** where, int** kind,
                          double lo, double hi, double** period) {
    singularity_list s(lo, hi);
    if (self->take_dim() <= 1) {
        s.add_law(a);
        s.add_law(b);
    }
    return s.finish(where, kind, period);
}

// ================================================================ Nroot

namespace {

constexpr int max_probes = 2000;
constexpr int max_recovered = 256;

thread_local nroot_stats stats;

// The eleven tolerance fields, saved on entry and put back when an error passes.
class root_tol_guard {
  public:
    root_tol_guard() : r_(law_context().root), saved_(snapshot(r_)) {}
    ~root_tol_guard() {
        if (armed_) restore(r_, saved_);
    }
    root_tol_guard(const root_tol_guard&) = delete;
    root_tol_guard& operator=(const root_tol_guard&) = delete;
    void dismiss() { armed_ = false; }

  private:
    struct values {
        double x, f, quad, hole, ratio, far;
        int newton, bisect, count_a, max_eval;
        double search;
    };
    using section = lawutil_thread_ctx::root_section;
    static values snapshot(const section& r) {
        return {r.root_x_tol,
                r.root_f_tol,
                r.root_quad_tol,
                r.root_hole_fraction,
                r.root_ratio,
                r.root_far_ratio,
                r.root_newton_iterations,
                r.root_bisect_iterations,
                r.root_count_a,
                r.root_max_evaluations,
                r.root_search_tol};
    }
    static void restore(section& r, const values& v) {
        r.root_x_tol = v.x;
        r.root_f_tol = v.f;
        r.root_quad_tol = v.quad;
        r.root_hole_fraction = v.hole;
        r.root_ratio = v.ratio;
        r.root_far_ratio = v.far;
        r.root_newton_iterations = v.newton;
        r.root_bisect_iterations = v.bisect;
        r.root_count_a = v.count_a;
        r.root_max_evaluations = v.max_eval;
        r.root_search_tol = v.search;
    }
    section& r_;
    values saved_;
    bool armed_ = true;
};

// An array of the base array allocator, freed when it goes unless handed over.
struct owned_array {
    double* p = nullptr;
    ~owned_array() { VORX_FREE(p); }
    double* release() {
        double* t = p;
        p = nullptr;
        return t;
    }
};

// Whether an error is the law's own (a point outside its domain, a pole) rather than one
// that must end the call (an interrupt, memory).
bool law_error(const vorx_exception& e) {
    return find_message_module(e.code()) == &lawutil_main_law_errmod;
}

// l(x); NaN where the law raises its own error there, which every test below reads as
// "no value" (NaN compares false).
double value(const law* l, double x) {
    ++stats.evaluations;
    try {
        return l->eval(x);
    } catch (const vorx_exception& e) {
        if (!law_error(e)) throw;
        return std::nan("");
    }
}

bool in_domain_at(const law* l, double x) {
    try {
        return l->in_domain(&x);
    } catch (const vorx_exception& e) {
        if (!law_error(e)) throw;
        return false;
    }
}

bool inside(double x, double lo, double hi) {
    return x >= lo && x <= hi;  // false for NaN
}

// One quadratic-model step from x on f with derivative laws d1, d2.  `fx` is f(x) when
// already known.  Writes 0, 1 or 2 candidates.
int quadratic_step(const law* f, const law* d1, const law* d2, double x, const double* fx,
                   double cand[2]) {
    const auto& tol = law_context().root;
    if (!in_domain_at(f, x)) {
        x += resabs;
        fx = nullptr;
    }
    double F = fx ? *fx : value(f, x);
    double D = value(d1, x);
    double S = value(d2, x);
    // A*t^2 + B*t + C in the absolute variable t, matching F, D, S at x
    double A = S / 2.0;
    double B = D - S * x;
    double C = F - A * x * x - B * x;
    double qt = tol.root_quad_tol;
    if (std::fabs(A) < qt) {
        if (std::fabs(B) >= qt && std::fabs(D) >= qt) {
            cand[0] = x - F / D;
            return 1;
        }
        if (std::fabs(C) >= qt) return 0;
        cand[0] = x;
        return 1;
    }
    double disc = B * B - 4.0 * A * C;
    if (disc < 0.0) {
        cand[0] = -B / (2.0 * A);
        return 1;
    }
    double sq = std::sqrt(disc);
    double rp = (sq - B) / (2.0 * A);
    double rm = (-B - sq) / (2.0 * A);
    double larger = std::max(rp, rm), smaller = std::min(rp, rm);
    if ((S > 0.0 && F < 0.0) || (S <= 0.0 && F > 0.0)) {
        // The model crosses zero on both sides of x: the nearer root first, r- on a tie.
        bool plus_first = std::fabs(rp - x) < std::fabs(rm - x);
        cand[0] = plus_first ? rp : rm;
        cand[1] = plus_first ? rm : rp;
        return 2;
    }
    if (S > 0.0)  // F >= 0
        cand[0] = D > 0.0 ? larger : smaller;
    else  // F <= 0
        cand[0] = D < 0.0 ? larger : smaller;
    return 1;
}

// The local iteration from s on [lo, hi]: 1 with the point in r, or 0.  `second` gets
// the second candidate of the first step when there is one.
int iterate(const law* f, const law* d1, const law* d2, double lo, double hi, double s, double& r,
            double* second) {
    const auto& tol = law_context().root;
    double cand[2];
    double x = s;
    const double* fx = nullptr;
    double fr;
    for (int step = 1;; ++step) {
        int k = quadratic_step(f, d1, d2, x, fx, cand);
        if (second && step == 1 && k == 2) *second = cand[1];
        if (k == 0 || !inside(cand[0], lo, hi)) return 0;
        r = cand[0];
        fr = value(f, r);
        if (step >= tol.root_newton_iterations || std::fabs(fr) <= tol.root_f_tol) return 1;
        x = r;
        fx = &fr;
    }
}

// Local solve on [lo, hi] from s: the number of roots found, in r1 (and r2 when asked).
int local_solve(const law* f, const law* d1, const law* d2, double lo, double hi, double s,
                double& r1, double* r2 = nullptr) {
    r1 = lo - 1.0;
    if (r2) *r2 = lo - 1.0;
    double second = std::nan("");
    int n = iterate(f, d1, d2, lo, hi, s, r1, r2 ? &second : nullptr);
    if (r2 && inside(second, lo, hi)) {
        double r;
        if (iterate(f, d1, d2, lo, hi, second, r, nullptr)) {
            (n ? *r2 : r1) = r;
            ++n;
        }
    }
    return n;
}

// Bisection on [lo, hi] with f(lo) = flo: the last midpoint.
double bisect(const law* f, double lo, double hi, double flo) {
    const auto& tol = law_context().root;
    double m = (lo + hi) * 0.5;
    for (int i = 0; i < tol.root_bisect_iterations; ++i) {
        m = (lo + hi) * 0.5;
        double fm = value(f, m);
        if (std::fabs(fm) <= tol.root_f_tol) break;
        if ((flo < 0.0) != (fm < 0.0)) {
            hi = m;
        } else {
            lo = m;
            flo = fm;
        }
    }
    return m;
}

// The side [c, end] of a critical point c holds no root when f keeps one sign at both
// of its ends and |f| grows away from c (a minimum of |f|) and is still growing at end:
// a root would need two more critical points between them.
bool far_side_empty(const law* f, const law* d1, const law* d2, double c, double end) {
    double f_tol = law_context().root.root_f_tol;
    double fc = value(f, c), fe = value(f, end);
    if (!(fc * fe > 0.0) || std::fabs(fc) <= f_tol || std::fabs(fe) <= f_tol) return false;
    if (!(fc * value(d2, c) > 0.0)) return false;
    return fe * value(d1, end) * (end - c) > 0.0;
}

void check_root_arguments(const law* f, double a, double b) {
    if (!f) sys_error(LAW_EVAL);
    if (f->take_dim() > 1 || f->return_dim() != 1) sys_error(LAW_DIM);
    if (!std::isfinite(a) || !std::isfinite(b)) sys_error(LAW_BAD_BOUNDS);
}

// Step 2: f constant on [a, b] to within root_f_tol at nine fixed fractions.
bool looks_constant(const law* f, double a, double L) {
    static const double fractions[] = {0.189674986, 0.2867345889, 0.498608968, 0.5986708968,
                                       0.643590569, 0.7233409543, 0.854789523, 0.9472389094};
    double tol = law_context().root.root_f_tol;
    double ref = value(f, a + 0.345756734 * L);
    for (double c : fractions)
        if (!(std::fabs(value(f, a + c * L) - ref) <= tol)) return false;  // NaN differs
    return true;
}

// Step 3: the probing phase; the root set is filled.
void probe(const law* f, double a, double b, Open_set& roots) {
    auto& tol = law_context().root;
    tol.root_x_tol = tol.root_search_tol;
    tol.root_f_tol = tol.root_search_tol;
    law_holder f1(f->derivative(0));
    law_holder f2(f1->derivative(0));
    law_holder f3(f2->derivative(0));
    const double L = b - a;
    Open_set explored(a, b);
    double r;
    // 3.1: both ends first
    if (local_solve(f, f1.get(), f2.get(), a, b, a, r)) {
        roots.add(r, r);
        explored.add(a, r);
    } else {
        explored.add(a, a);
    }
    if (local_solve(f, f1.get(), f2.get(), a, b, b, r)) {
        roots.add(r, r);
        explored.add(r, b);
    } else {
        explored.add(b, b);
    }
    double previous = std::nan("");
    while (!explored.is_full()) {
        // 3.2
        double h = explored.hole(), w = explored.hole_size();
        if (std::fabs(h - previous) < resnor) break;
        if (stats.probes >= max_probes) {
            stats.probe_bound_hit = 1;
            break;
        }
        if (vorx_interrupted()) sys_error(VORX_INTERRUPTED);
        previous = h;
        ++stats.probes;
        int parts_before = explored.parts();
        double lo = h - w * 0.5, hi = h + w * 0.5;
        double xt = tol.root_x_tol;
        // 3.3: a root of f, not on the gap's ends
        bool found = local_solve(f, f1.get(), f2.get(), lo, hi, h, r) && r - lo > xt && hi - r > xt;
        if (found) roots.add(r, r);
        explored.add(found ? r : h, found ? r : h);
        // 3.4: a far critical point splits the gap; its far side (beyond it, seen from
        // h) is explored when |f| grows away from it on both ends of that side
        double c[2];
        int kc = local_solve(f1.get(), f2.get(), f3.get(), lo, hi, h, c[0], &c[1]);
        for (int i = 0; i < kc; ++i) {
            if (!(std::min(c[i] - lo, hi - c[i]) / w >= tol.root_far_ratio)) continue;
            explored.add(c[i], c[i]);
            if (std::fabs(c[i] - h) <= xt) continue;
            double end = c[i] > h ? hi : lo;
            if (far_side_empty(f, f1.get(), f2.get(), c[i], end))
                explored.add(std::min(c[i], end), std::max(c[i], end));
        }
        // 3.5: a narrow gap is closed
        if (w < tol.root_hole_fraction * L) {
            double flo = value(f, lo), fhi = value(f, hi);
            bool marked = false;
            if (flo * fhi < 0.0 && !found) {
                r = bisect(f, lo, hi, flo);
                if (std::fabs(value(f, r)) < tol.root_f_tol) {
                    roots.add(r, r);
                    explored.add(r - xt, r + xt);
                    marked = true;
                }
            }
            if (!marked) explored.add(lo, hi);
        }
        if (explored.parts() == parts_before && explored.hole() == h && explored.hole_size() == w)
            ++stats.probes_without_mark;
    }
}

// Step 5: neighbours with no hump of |f| between them are one root.
int merge_pass(const law* f, double* r, int n) {
    for (bool merged = true; merged && n >= 2;) {
        merged = false;
        for (int i = 1; i < n; ++i) {
            double m = (r[i - 1] + r[i]) * 0.5;
            double fm = std::fabs(value(f, m));
            double fi = std::fabs(value(f, r[i]));
            double fp = std::fabs(value(f, r[i - 1]));
            double survivor;
            if (fm < fi)
                survivor = fm < fp ? m : r[i - 1];
            else if (fm < fp)
                survivor = r[i];
            else
                continue;
            r[i - 1] = survivor;
            for (int j = i; j + 1 < n; ++j) r[j] = r[j + 1];
            --n;
            merged = true;
            break;
        }
    }
    return n;
}

// The recovery pass's sign of an end: by value, or by slope where the value is ~0.
int end_sign(const law* f, const law* d, double x) {
    double v = value(f, x);
    if (v > resabs) return 1;
    if (v < -resabs) return -1;
    if (std::fabs(v) < resabs) {
        double s = value(d, x);
        if (s > resabs) return 1;
        if (s < -resabs) return -1;
    }
    return 0;
}

// Step 6: a sign change left between neighbours (a, roots..., b) is bisected; a root
// found there is inserted and the walk restarts.  The array may be replaced.
int recovery_pass(const law* f, double a, double b, owned_array& roots, int n) {
    law_holder d(f->derivative(0));
    for (int recovered = 0; recovered < max_recovered;) {
        bool inserted = false;
        for (int j = 0; j <= n && !inserted; ++j) {
            double x0 = j == 0 ? a : roots.p[j - 1];
            double x1 = j == n ? b : roots.p[j];
            if (!in_domain_at(f, x0)) x0 += resabs;
            int s0 = end_sign(f, d.get(), x0), s1 = end_sign(f, d.get(), x1);
            if (s0 * s1 >= 0 || !(x1 - x0 > 2.0 * resabs)) continue;
            double lo = x0 + resabs;
            double r = bisect(f, lo, x1 - resabs, value(f, lo));
            double end = r - x0 < x1 - r ? x0 : x1;
            double m = (r + end) * 0.5;
            if (!(std::fabs(value(f, r)) < resabs && std::fabs(value(f, m)) >= resabs)) continue;
            double* grown = VORX_ALLOC_ARRAY(double, n + 1);
            for (int i = 0; i < j; ++i) grown[i] = roots.p[i];
            grown[j] = r;
            for (int i = j; i < n; ++i) grown[i + 1] = roots.p[i];
            VORX_FREE(roots.p);
            roots.p = grown;
            ++n;
            ++recovered;
            inserted = true;
        }
        if (!inserted) break;
    }
    return n;
}

}  // namespace

const nroot_stats& last_nroot_stats() {
    return stats;
}

double* Nroot(law* f, double a, double b, int* n) {
    check_root_arguments(f, a, b);
    stats = nroot_stats();
    int count_out = 0;
    int& count = n ? *n : count_out;
    count = 0;
    if (a > b) std::swap(a, b);
    const double L = b - a;
    // 2: constant laws
    if (looks_constant(f, a, L)) {
        if (!(std::fabs(value(f, a)) < law_context().root.root_f_tol)) return nullptr;
        double* one = VORX_ALLOC_ARRAY(double, 1);
        one[0] = a;
        count = 1;
        return one;
    }
    root_tol_guard guard;
    owned_array roots;
    int m = 0;
    {
        // 3: probing; 4: its end
        Open_set root_set(a, b);
        probe(f, a, b, root_set);
        set_root_tol_default();
        owned_array mid;
        mid.p = root_set.mid_points();
        int parts = root_set.parts();
        roots.p = VORX_ALLOC_ARRAY(double, parts ? parts : 1);
        double f_tol = law_context().root.root_f_tol;
        for (int i = 0; i < parts; ++i)
            if (std::fabs(value(f, mid.p[i])) < f_tol) roots.p[m++] = mid.p[i];
    }
    m = merge_pass(f, roots.p, m);
    m = recovery_pass(f, a, b, roots, m);
    guard.dismiss();
    count = m;
    return roots.release();
}

double* Nsolve(law* f, law* g, double a, double b, int* n) {
    if (!f || !g) sys_error(LAW_EVAL);
    if (a > b) std::swap(a, b);
    law_holder difference(VORX_NEW minus_law(f, g));
    return Nroot(difference.get(), a, b, n);
}

// ================================================================ Nmax, Nmin

namespace {

// A candidate's value; one that cannot be evaluated never wins.
double candidate_value(const law* f, double x) {
    double v = value(f, x);
    return std::isnan(v) ? -HUGE_VAL : v;
}

}  // namespace

double Nmax(law* f, double a, double b) {
    check_root_arguments(f, a, b);
    if (a > b) std::swap(a, b);
    owned_array critical;
    int n = 0;
    {
        law_holder d(f->derivative(0));
        critical.p = Nroot(d.get(), a, b, &n);
    }
    double best = a, best_value = candidate_value(f, a);
    auto consider = [&](double x) {
        double v = candidate_value(f, x);
        if (v > best_value) {
            best = x;
            best_value = v;
        }
    };
    consider(b);
    for (int i = 0; i < n; ++i) consider(critical.p[i]);
    // Deliberately over the whole line, not only [a, b].
    double* where = nullptr;
    int* kind = nullptr;
    int k = f->singularities(&where, &kind, -DBL_MAX, DBL_MAX);
    owned_array where_holder;
    where_holder.p = where;
    VORX_FREE(kind);
    for (int i = 0; i < k; ++i) consider(where[i]);
    return best;
}

double Nmin(law* f, double a, double b) {
    check_root_arguments(f, a, b);
    law_holder negated(VORX_NEW negate_law(f));
    return Nmax(negated.get(), a, b);
}

}  // namespace lawutil
