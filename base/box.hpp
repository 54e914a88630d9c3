// Axis-aligned boxes: one interval per coordinate.  A box is empty when any of its ranges
// is; the default box is empty.
#pragma once

#include "interval.hpp"
#include "position.hpp"

namespace vorx {

class box {
  public:
    box() = default;
    box(const interval& x, const interval& y, const interval& z) : x_(x), y_(y), z_(z) {}
    // The box spanned by two corners, in any order.
    box(const position& a, const position& b)
        : x_(a.x(), b.x()), y_(a.y(), b.y()), z_(a.z(), b.z()) {}
    explicit box(const position& p) : x_(p.x()), y_(p.y()), z_(p.z()) {}

    const interval& x_range() const { return x_; }
    const interval& y_range() const { return y_; }
    const interval& z_range() const { return z_; }
    bool empty() const { return x_.empty() || y_.empty() || z_.empty(); }
    bool finite() const { return !empty() && x_.finite() && y_.finite() && z_.finite(); }

    // Corners; infinite coordinates where a range is unbounded.
    position low() const { return position(x_.start_pt(), y_.start_pt(), z_.start_pt()); }
    position high() const { return position(x_.end_pt(), y_.end_pt(), z_.end_pt()); }
    position mid() const { return position(x_.mid_pt(), y_.mid_pt(), z_.mid_pt()); }

    // p lies in the box grown by `tol`.
    bool contains(const position& p, double tol = resabs) const {
        return x_.in_interval(p.x(), tol) && y_.in_interval(p.y(), tol) &&
               z_.in_interval(p.z(), tol);
    }

    // The smallest box containing both; an empty box is the identity.
    box& operator|=(const box& b) {
        if (b.empty()) return *this;
        if (empty()) return *this = b;
        x_ |= b.x_;
        y_ |= b.y_;
        z_ |= b.z_;
        return *this;
    }
    box& operator|=(const position& p) { return *this |= box(p); }
    // Intersection; empty when the boxes are disjoint in any coordinate.
    box& operator&=(const box& b) {
        x_ &= b.x_;
        y_ &= b.y_;
        z_ &= b.z_;
        return *this;
    }

  private:
    interval x_, y_, z_;
};

inline box operator|(box a, const box& b) {
    return a |= b;
}
inline box operator&(box a, const box& b) {
    return a &= b;
}

}  // namespace vorx
