// Zeros in the plane as minima of a magnitude law: start-point searches and a quadtree.
//
// Mechanism.  Every search is a compass search (Nmin2D) of the magnitude law f.  Its end
// point, whatever it is, goes into a first Root_2D_set, the minima; duplicates merge
// there (add).  Only then are the zeros picked from the minima: value (or stop law)
// below root_f_tol, inside the rectangle, admissible.  They are added to a second set
// whose points are returned.  The quadtree form gets its searches from the centres of
// the cells of a quadtree over the rectangle: a cell within reach of a zero (reach law
// g at its centre at most its diagonal, or no g) is searched from its centre with a
// first step and a largest distance of half its diagonal, and divided into quadrants
// down to the depth bound.
//
// Invariants.  add never makes a node within resabs of an existing one (it merges
// such points).  A cell is searched at most once (fill acts only on state -3) and lies
// at depth <= the bound, so the number of searches is bounded by the tree's size plus
// the start points, each search by root_max_evaluations + 5 evaluations, and the
// recursion by the depth bound.
//
// Error model.  A simple zero z of a smooth system with Jacobian J is found to within
// about root_f_tol / sigma_min(J) when its cell (or a start point) lies in its basin of
// attraction of the compass search; a non-zero local minimum of the magnitude, or a
// zero of even multiplicity whose magnitude stays above root_f_tol near it, gives no
// zero.  Two zeros closer than the smallest cell may be found as one when no search
// starts in the basin of the second.
//
// Errors.  Arguments are checked before anything is made.  The sets and the tree live on
// the stack of Nroot2D and own their nodes and cells, so an error raised by a law
// (a domain error) unwinds through them and leaves nothing behind; the result array is
// made only after the last evaluation.
#include "lawutil/root_2d.hpp"

#include <algorithm>
#include <cmath>
#include <new>

#include "base/tolerance.hpp"
#include "lawutil/law_base.hpp"
#include "lawutil/main_law.hpp"
#include "lawutil/root.hpp"
#include "lawutil/root_min.hpp"

using namespace vorx;

namespace lawutil {

namespace {

// Points within this many resabs merge when the magnitude does not rise between them.
constexpr double merge_reach = 1000.0;
// Depth of the quadtree when no reach law prunes it, and in any case.
constexpr int unpruned_depth = 4;
constexpr int deepest = 10;

int depth_bound(const law* g) {
    int d = std::min(std::max(law_context().root.root_count_a, 0), deepest);
    return g ? d : std::min(d, unpruned_depth);
}

void check_arguments(law* f, law* g, law* admissible, law* stop, const rec2d& R,
                     const complex_number* starts, int n_starts) {
    check_search_law(f, 2, true);
    check_search_law(g, 2, false);
    check_search_law(admissible, 2, false);
    check_search_law(stop, 2, false);
    if (!R.empty() && !R.finite()) sys_error(LAW_BAD_BOUNDS);
    if (!starts) return;
    for (int i = 0; i < n_starts; ++i)
        if (!std::isfinite(starts[i].re()) || !std::isfinite(starts[i].im()))
            sys_error(LAW_BAD_BOUNDS);
}

// Searches from each start point; the end points go into `minima`.
void search_starts(law* f, law* admissible, const rec2d& R, const complex_number* starts,
                   int n_starts, law* stop, Root_2D_set& minima) {
    if (!starts) return;
    double first_step = law_context().root.root_search_tol;
    for (int i = 0; i < n_starts; ++i) {
        double value = 0.0, step = 0.0;
        int status = 0;
        complex_number z = Nmin2D(f, admissible, starts[i], first_step, R.diagonal(), &value, &step,
                                  &status, stop);
        minima.add(f, z, value, step);
    }
}

// The zeros among the minima, as a new array of *n points.
complex_number* collect_zeros(law* f, law* admissible, law* stop, const rec2d& R,
                              const Root_2D_set& minima, int* n) {
    double f_tol = law_context().root.root_f_tol;
    Root_2D_set zeros;
    for (Root_2D* r = minima.head(); r; r = r->next) {
        double measure = stop ? stop->evaluateC_R(r->point) : std::fabs(r->value);
        if (!(measure < f_tol) || !R.inside(r->point)) continue;
        if (admissible && !(admissible->evaluateC_R(r->point) > 0.0)) continue;
        zeros.add(f, r->point, r->value, r->step);
    }
    int count = zeros.size();
    complex_number* out = VORX_ALLOC_ARRAY(complex_number, count > 0 ? count : 1);
    int i = 0;
    for (Root_2D* r = zeros.head(); r; r = r->next) new (&out[i++]) complex_number(r->point);
    if (n) *n = count;
    return out;
}

}  // namespace

// ---- rec2d ----

rec2d::rec2d(const complex_number& a, const complex_number& b)
    : rec2d(a.re(), a.im(), b.re(), b.im()) {}

// A NaN stays in the rectangle (on the high side when it comes first), so finite() sees it.
rec2d::rec2d(double low_x, double low_y, double high_x, double high_y)
    : x0_(low_x <= high_x ? low_x : high_x),
      y0_(low_y <= high_y ? low_y : high_y),
      x1_(low_x <= high_x ? high_x : low_x),
      y1_(low_y <= high_y ? high_y : low_y),
      empty_(false) {}

bool rec2d::finite() const {
    return std::isfinite(x0_) && std::isfinite(y0_) && std::isfinite(x1_) && std::isfinite(y1_);
}

complex_number rec2d::center() const {
    return complex_number(0.5 * x0_ + 0.5 * x1_, 0.5 * y0_ + 0.5 * y1_);
}

double rec2d::diagonal() const {
    return empty_ ? 0.0 : std::hypot(x1_ - x0_, y1_ - y0_);
}

bool rec2d::inside(const complex_number& z) const {
    return !empty_ && x0_ <= z.re() && z.re() <= x1_ && y0_ <= z.im() && z.im() <= y1_;
}

// ---- Root_2D_set ----

Root_2D_set::~Root_2D_set() {
    while (head_) {
        Root_2D* next = head_->next;
        delete head_;
        head_ = next;
    }
}

int Root_2D_set::add(law* f, complex_number point, double value, double step) {
    double f_tol = law_context().root.root_f_tol;
    Root_2D* last = nullptr;
    for (Root_2D* r = head_; r; r = r->next) {
        last = r;
        double d = (r->point - point).abs();
        bool same = d <= resabs;
        // No hump of the magnitude between two near points: one zero.
        if (!same && f && d <= merge_reach * resabs)
            same = f->evaluateC_R(0.5 * (r->point + point)) < f_tol;
        if (!same) continue;
        if (value < r->value) {
            r->point = point;
            r->value = value;
            r->step = step;
        }
        return 0;
    }
    Root_2D* node = VORX_NEW Root_2D(point, value, step, nullptr);
    (last ? last->next : head_) = node;
    return 1;
}

int Root_2D_set::size() const {
    int n = 0;
    for (Root_2D* r = head_; r; r = r->next) ++n;
    return n;
}

// ---- Quad_tree ----

Quad_tree::~Quad_tree() {
    for (Quad_tree* c : children_) delete c;
}

void Quad_tree::fill(law* f, law* admissible) {
    if (state_ != not_searched) return;
    complex_number c = cell_.center();
    if (admissible && !(admissible->evaluateC_R(c) > 0.0)) {
        state_ = not_admissible;
        return;
    }
    double r = 0.5 * cell_.diagonal();
    if (!(r > 0.0)) {
        // A single point: nothing to search.
        point_ = c;
        value_ = f->evaluateC_R(c);
        state_ = found;
        return;
    }
    int status = 0;
    point_ = Nmin2D(f, admissible, c, r, r, &value_, &step_, &status, nullptr);
    state_ = cell_.inside(point_) ? found : left_cell;
}

bool Quad_tree::should_divide(law*, law*, law* g) const {
    return !g || g->evaluateC_R(cell_.center()) <= cell_.diagonal();
}

void Quad_tree::divide(law* f, law* admissible, law* g, Root_2D_set* set) {
    if (depth_ >= depth_bound(g)) return;
    complex_number c = cell_.center();
    const complex_number corners[4] = {cell_.down_left(), cell_.down_right(), cell_.up_right(),
                                       cell_.up_left()};
    for (int i = 0; i < 4; ++i)
        if (!children_[i]) children_[i] = VORX_NEW Quad_tree(rec2d(corners[i], c), depth_ + 1);
    for (Quad_tree* child : children_) {
        if (!child->should_divide(f, admissible, g)) continue;
        child->fill(f, admissible);
        child->mins(f, set);
        child->divide(f, admissible, g, set);
    }
}

int Quad_tree::mins(law* f, Root_2D_set* set) {
    result_ = state_ == found && set ? set->add(f, point_, value_, step_) : state_;
    return result_;
}

int Quad_tree::count() const {
    int n = 1;
    for (Quad_tree* c : children_)
        if (c) n += c->count();
    return n;
}

// ---- Nroot2D ----

complex_number* Nroot2D(law* f, law* admissible, rec2d R, int* n, complex_number* starts,
                        int n_starts, law* stop) {
    check_arguments(f, nullptr, admissible, stop, R, starts, n_starts);
    Root_2D_set minima;
    if (!R.empty()) search_starts(f, admissible, R, starts, n_starts, stop, minima);
    return collect_zeros(f, admissible, stop, R, minima, n);
}

complex_number* Nroot2D(law* f, law* g, law* admissible, rec2d R, int* n, complex_number* starts,
                        int n_starts) {
    set_root_tol_default();
    check_arguments(f, g, admissible, nullptr, R, starts, n_starts);
    Root_2D_set minima;
    if (!R.empty()) {
        Quad_tree root(R);
        if (root.should_divide(f, admissible, g)) {
            root.fill(f, admissible);
            root.mins(f, &minima);
            root.divide(f, admissible, g, &minima);
        }
        search_starts(f, admissible, R, starts, n_starts, nullptr, minima);
    }
    return collect_zeros(f, admissible, nullptr, R, minima, n);
}

}  // namespace lawutil
