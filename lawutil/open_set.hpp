// Open sets of intervals: which parts of a parameter range [min, max] are covered.
//
// A sorted, singly linked list of closed intervals, kept ascending and disjoint within
// [min, max].  The root finder keeps two: the explored parts of its interval and its
// roots as one-point intervals.  Every closeness test uses root_x_tol of the calling
// thread's context, so the set's resolution follows whatever the root finder has put
// there (1e-4 while it probes).
//
// Deliberate: hole() and hole_size() look only at the *first* gap between neighbouring
// intervals, never at a gap between min and the first interval or between the last one
// and max; the root finder covers both ends of its range first and relies on this.
#pragma once

#include "base/memory.hpp"

namespace lawutil {

class Open_interval : public vorx::VORX_OBJECT {
  public:
    Open_interval(double start, double end) : start(start), end(end), next(nullptr) {}
    double start;
    double end;
    Open_interval* next;
};

class Open_set : public vorx::VORX_OBJECT {
  public:
    Open_set(double min, double max, int periodic = 0);
    ~Open_set();
    Open_set(const Open_set&) = delete;
    Open_set& operator=(const Open_set&) = delete;

    // Marks [lo, hi] covered, fusing it with every interval it touches within root_x_tol.
    // Ends are swapped when lo > hi, except on a periodic set where they wrap round.
    void add(double lo, double hi);
    // Marks [lo, hi] uncovered (a range inside one interval splits it).
    void remove(double lo, double hi);
    int parts() const;
    // The first interval holding x within root_x_tol, else null.
    Open_interval* in(double x) const;
    // The last interval, scanning from the head, whose end is at most x; the scan stops
    // at the first one ending beyond x.
    Open_interval* before(double x) const;
    // The first interval starting at or after x.
    Open_interval* after(double x) const;
    // Centre and width of the first gap between neighbouring intervals; 0.0 when fewer
    // than two intervals.
    double hole() const;
    double hole_size() const;
    // Centre of the widest gap, its width through `size`; on a periodic set the gap
    // across the seam counts too (its centre brought back into the range).
    double largest_hole(double& size) const;
    // 1 when one interval covers [min, max] within root_x_tol at both ends.
    int is_full() const;
    // The centres of the intervals, in list order, in a new array (base array allocator)
    // that the caller frees with vorx_discard; allocated even when the set is empty.
    double* mid_points() const;
    // "Max %f Min %f" and then each interval, to the debug stream.
    void print() const;
    Open_interval* first() const { return head_; }

  private:
    // Maps, orders and clips the ends as add/remove need; false when nothing is left to
    // do: [lo, hi] misses the range, or it crossed the seam of a periodic set and `op`
    // has been run on its two pieces.
    bool prepare(double& lo, double& hi, void (Open_set::*op)(double, double));
    void release_all();

    int periodic_;
    double max_;
    double min_;
    Open_interval* head_;
};

}  // namespace lawutil
