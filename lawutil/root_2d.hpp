// Zeros of a law of two variables in a rectangle of the plane (points are complex
// numbers: real part x, imaginary part y).
//
// A zero is found as a minimum of a non-negative magnitude law f (for a system
// F = (F1, F2), f = SQRT(F1^2+F2^2) or ABS(F1)+ABS(F2)) by the compass search Nmin2D, from
// given start points or from the centres of the cells of a quadtree over the rectangle.
// A point is a zero when f there (or the stop law, when one is given) is below
// root_f_tol.
//
// Choices of this library:
// - Duplicates.  Root_2D_set::add treats a new point as a zero already in the set when
//   the two are within resabs of each other, or within 1000 resabs and f at their
//   midpoint is below root_f_tol (no hump of the magnitude between them).  The better
//   of the two (smaller value) is kept in the node.  (So f must be defined between
//   admissible points 1000 resabs apart.)  add answers 1 when it made a new
//   node, 0 when it merged the point into an existing one.  Nodes keep the order in
//   which they were first added.
// - Two lists.  Both forms of Nroot2D first collect every point where a search ended,
//   merged by add, into a list of minima (the first list); the zeros are then the minima
//   that pass the zero test, lie in the rectangle and are admissible, added to the
//   second list, whose points are returned.  Distinct searches converging to one zero
//   therefore give it once.
// - The quadtree form's laws.  f is the magnitude law searched, as in the start-point
//   form.  g is a reach law: at a point, a lower estimate of the distance to the
//   nearest zero (for a system F with Lipschitz bound L, |F| / L).  A cell whose centre
//   has g above the cell's diagonal cannot hold a zero: it is neither searched nor
//   divided.  A null g prunes nothing.
// - Recursion.  The root cell covers the rectangle.  A cell within reach is searched
//   (fill), its result goes into the set (mins), and it is divided into its four
//   quadrants until the depth bound, root_count_a levels below the root (7 after
//   set_root_tol_default, never more than 10); with a null g it is at most 4 levels,
//   since nothing is pruned.  So at most (4^(d+1) - 1) / 3 cells are searched, each with at
//   most root_max_evaluations + 5 evaluations.  A zero is found when a searched
//   centre (or a start point) lies in its basin; two zeros closer than about the
//   smallest cell may give only one of them.
// - The quadtree form also searches from its start points, as the start-point form
//   does without a stop law.  It sets the default tolerances first
//   (set_root_tol_default), and leaves them so.
// - Bad input: a null f or laws of more than two inputs or more than one output raise
//   LAW_DIM; a rectangle or start point with a NaN or infinite coordinate raises
//   LAW_BAD_BOUNDS.  An empty rectangle (made by the default constructor) holds no zero:
//   the result is an empty array.  Negative n_starts or null starts mean no start points.
#pragma once

#include "base/complex_number.hpp"
#include "base/memory.hpp"

namespace lawutil {

class law;

// An axis-parallel rectangle.  The four-number and the two-corner constructors order
// their numbers (like interval(a, b)); only the default constructor makes it empty.
class rec2d {
  public:
    rec2d() : x0_(0), y0_(0), x1_(0), y1_(0), empty_(true) {}
    rec2d(const vorx::complex_number& a, const vorx::complex_number& b);
    rec2d(double low_x, double low_y, double high_x, double high_y);

    double low_x() const { return x0_; }
    double low_y() const { return y0_; }
    double high_x() const { return x1_; }
    double high_y() const { return y1_; }
    bool empty() const { return empty_; }
    // All four numbers are finite.
    bool finite() const;

    vorx::complex_number center() const;
    vorx::complex_number down_left() const { return vorx::complex_number(x0_, y0_); }
    vorx::complex_number down_right() const { return vorx::complex_number(x1_, y0_); }
    vorx::complex_number up_right() const { return vorx::complex_number(x1_, y1_); }
    vorx::complex_number up_left() const { return vorx::complex_number(x0_, y1_); }
    // 0 for the empty rectangle.
    double diagonal() const;
    // x0 <= x <= x1 and y0 <= y <= y1: the edges belong to the rectangle.
    bool inside(const vorx::complex_number& z) const;

  private:
    double x0_, y0_, x1_, y1_;
    bool empty_;
};

// One zero found: the point, the magnitude there and the final step of its search.
class Root_2D : public vorx::VORX_OBJECT {
  public:
    Root_2D(vorx::complex_number point, double value, double step, Root_2D* next)
        : point(point), value(value), step(step), next(next) {}
    vorx::complex_number point;
    double value;
    double step;
    Root_2D* next;
};

// A list of zeros without duplicates (see the header's note on add).
class Root_2D_set {
  public:
    Root_2D_set() = default;
    ~Root_2D_set();
    Root_2D_set(const Root_2D_set&) = delete;
    Root_2D_set& operator=(const Root_2D_set&) = delete;

    // 1: a new node; 0: merged into a zero already held.  f (may be null: distance rule
    // only) is the magnitude law, evaluated at most once per nearby node.
    int add(law* f, vorx::complex_number point, double value, double step);
    int size() const;
    Root_2D* head() const { return head_; }

  private:
    Root_2D* head_ = nullptr;
};

// One cell of the search tree; it owns its children.
class Quad_tree : public vorx::VORX_OBJECT {
  public:
    // States of a cell.
    enum { not_searched = -3, not_admissible = -2, left_cell = -4, found = 0 };

    explicit Quad_tree(const rec2d& cell, int depth = 0) : cell_(cell), depth_(depth) {}
    ~Quad_tree();
    Quad_tree(const Quad_tree&) = delete;
    Quad_tree& operator=(const Quad_tree&) = delete;

    // Searches a cell not yet searched from its centre (first step and largest distance
    // half the diagonal), unless the admissible law is not positive there.
    void fill(law* f, law* admissible);
    // True when g at the centre is at most the diagonal (a zero may lie within reach);
    // always true for a null g.
    bool should_divide(law* f, law* admissible, law* g) const;
    // Makes the four quadrant children, and for each one within reach: fill, mins into
    // `set`, divide; to the depth bound of the header's note.
    void divide(law* f, law* admissible, law* g, Root_2D_set* set);
    // A found cell adds its point to `set`; records and answers add's answer (1 new, 0
    // merged), or the cell's state for any other cell.
    int mins(law* f, Root_2D_set* set);

    const rec2d& cell() const { return cell_; }
    int depth() const { return depth_; }
    int state() const { return state_; }
    int result() const { return result_; }
    vorx::complex_number point() const { return point_; }
    double value() const { return value_; }
    double step() const { return step_; }
    // Child i (0 down left, 1 down right, 2 up right, 3 up left) or null.
    Quad_tree* child(int i) const { return children_[i]; }
    // Cells of this subtree, this one included.
    int count() const;

  private:
    rec2d cell_;
    int depth_;
    vorx::complex_number point_;
    double value_ = 0.0;
    double step_ = 0.0;
    int state_ = not_searched;
    int result_ = not_searched;
    Quad_tree* children_[4] = {nullptr, nullptr, nullptr, nullptr};
};

// Zeros of the magnitude law f in R, searched by Nmin2D from each start point (first
// step root_search_tol, largest distance R's diagonal).  Returns a new array (tracked
// memory, owned by the caller, never null) of *n points.
vorx::complex_number* Nroot2D(law* f, law* admissible, rec2d R, int* n,
                              vorx::complex_number* starts, int n_starts, law* stop);
// Zeros of the magnitude law f in R from a quadtree pruned by the reach law g, and from
// the start points.  Restores the default tolerances first.
vorx::complex_number* Nroot2D(law* f, law* g, law* admissible, rec2d R, int* n,
                              vorx::complex_number* starts, int n_starts);

}  // namespace lawutil
