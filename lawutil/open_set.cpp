// Open sets of intervals.  The list is kept ascending and disjoint after every add and
// remove; add fuses the new interval with every neighbour it touches within root_x_tol
// (read from the thread's context at each call), so two marks closer than that become
// one interval.
#include "lawutil/open_set.hpp"

#include <algorithm>
#include <utility>

#include "base/interval.hpp"
#include "base/output.hpp"
#include "base/tolerance.hpp"
#include "lawutil/main_law.hpp"

using namespace vorx;

namespace lawutil {

namespace {

double x_tol() {
    return law_context().root.root_x_tol;
}

}  // namespace

Open_set::Open_set(double min, double max, int periodic)
    : periodic_(periodic), max_(max), min_(min), head_(nullptr) {}

Open_set::~Open_set() {
    release_all();
}

void Open_set::release_all() {
    while (head_) {
        Open_interval* next = head_->next;
        delete head_;
        head_ = next;
    }
}

bool Open_set::prepare(double& lo, double& hi, void (Open_set::*op)(double, double)) {
    if (periodic_) {
        interval range(min_, max_);
        double period = max_ - min_;
        if (lo < min_ - resabs || lo > max_ + resabs) map_param_into_interval(range, lo, period);
        if (hi < min_ - resabs || hi > max_ + resabs) map_param_into_interval(range, hi, period);
        if (lo > hi) {
            // Across the seam: the two pieces.
            (this->*op)(min_, hi);
            (this->*op)(lo, max_);
            return false;
        }
    } else if (lo > hi) {
        std::swap(lo, hi);
    }
    if (lo > max_ || hi < min_) return false;
    lo = std::max(lo, min_);
    hi = std::min(hi, max_);
    return true;
}

void Open_set::add(double lo, double hi) {
    if (!prepare(lo, hi, &Open_set::add)) return;
    double tol = x_tol();
    // Skip the intervals wholly before [lo, hi] (not touching it within tol).
    Open_interval* prev = nullptr;
    Open_interval* p = head_;
    while (p && p->end < lo - tol) {
        prev = p;
        p = p->next;
    }
    if (!p || p->start > hi + tol) {
        Open_interval* node = VORX_NEW Open_interval(lo, hi);
        node->next = p;
        (prev ? prev->next : head_) = node;
        return;
    }
    // p touches [lo, hi]: it becomes the fused interval and swallows every later one that
    // touches it.
    p->start = std::min(p->start, lo);
    p->end = std::max(p->end, hi);
    while (p->next && p->next->start <= p->end + tol) {
        Open_interval* q = p->next;
        p->end = std::max(p->end, q->end);
        p->next = q->next;
        delete q;
    }
}

void Open_set::remove(double lo, double hi) {
    if (!prepare(lo, hi, &Open_set::remove)) return;
    Open_interval* a = in(lo);
    Open_interval* b = in(hi);
    if (a != b) {
        if (a) a->end = lo;
        if (b) b->start = hi;
    } else if (a) {
        Open_interval* right = VORX_NEW Open_interval(hi, a->end);
        right->next = a->next;
        a->next = right;
        a->end = lo;
    }
    // Unlink every interval lying wholly within [lo, hi] (an end cut back onto lo or hi
    // past its other end counts too).
    Open_interval** link = &head_;
    while (*link) {
        Open_interval* p = *link;
        if (p->start >= lo && p->end <= hi) {
            *link = p->next;
            delete p;
        } else {
            link = &p->next;
        }
    }
}

int Open_set::parts() const {
    int n = 0;
    for (Open_interval* p = head_; p; p = p->next) ++n;
    return n;
}

Open_interval* Open_set::in(double x) const {
    double tol = x_tol();
    for (Open_interval* p = head_; p; p = p->next)
        if (p->start - tol < x && x - p->end < tol) return p;
    return nullptr;
}

Open_interval* Open_set::before(double x) const {
    Open_interval* found = nullptr;
    for (Open_interval* p = head_; p && p->end <= x; p = p->next) found = p;
    return found;
}

Open_interval* Open_set::after(double x) const {
    for (Open_interval* p = head_; p; p = p->next)
        if (p->start >= x) return p;
    return nullptr;
}

double Open_set::hole() const {
    if (!head_ || !head_->next) return 0.0;
    return (head_->next->start + head_->end) * 0.5;
}

double Open_set::hole_size() const {
    if (!head_ || !head_->next) return 0.0;
    return head_->next->start - head_->end;
}

double Open_set::largest_hole(double& size) const {
    size = 0.0;
    double centre = 0.0;
    Open_interval* last = head_;
    for (Open_interval* p = head_; p && p->next; p = p->next) {
        double gap = p->next->start - p->end;
        if (gap > size) {
            size = gap;
            centre = (p->next->start + p->end) * 0.5;
        }
        last = p->next;
    }
    if (periodic_ && head_) {
        double gap = (head_->start - min_) + (max_ - last->end);
        if (gap > size) {
            size = gap;
            centre = last->end + gap * 0.5;
            if (centre > max_) centre -= max_ - min_;
        }
    }
    return centre;
}

int Open_set::is_full() const {
    double tol = x_tol();
    return head_ && !head_->next && head_->start - tol <= min_ && head_->end + tol >= max_;
}

double* Open_set::mid_points() const {
    int n = parts();
    double* mid = VORX_ALLOC_ARRAY(double, n ? n : 1);
    int i = 0;
    for (Open_interval* p = head_; p; p = p->next) mid[i++] = (p->start + p->end) * 0.5;
    return mid;
}

void Open_set::print() const {
    vorx_fprintf(debug_file_ptr, "Max %f Min %f\n", max_, min_);
    for (Open_interval* p = head_; p; p = p->next)
        vorx_fprintf(debug_file_ptr, "%f %f\n", p->start, p->end);
}

}  // namespace lawutil
