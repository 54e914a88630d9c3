// Real intervals, closed at their finite ends and possibly unbounded at either end.
//
// Choices made here:
// - interval(a, b) with a > b builds [b, a]; the empty interval comes only from the
//   default constructor or from intersecting disjoint intervals.
// - An unbounded end reads as -inf / +inf from start_pt() / end_pt().
// - interval_unknown stands for a range nobody has worked out: it contains everything
//   like an infinite interval, intersecting with it gives the other operand, and a union
//   with it stays unknown.
// - The empty interval has type interval_finite, length 0, and start and end 0, but is
//   neither finite() nor bounded at either end: those promise usable ends.
// - == compares types and finite ends within resabs; all empty intervals are equal.
#pragma once

#include "tolerance.hpp"

namespace vorx {

enum interval_type {
    interval_finite,        // [a, b]
    interval_finite_below,  // [a, +inf)
    interval_finite_above,  // (-inf, b]
    interval_infinite,      // (-inf, +inf)
    interval_unknown
};

class interval {
  public:
    // Empty.
    interval();
    // [min(a, b), max(a, b)].
    interval(double a, double b);
    // The single value v.
    explicit interval(double v);
    // `low` is used when the type is bounded below and `high` when bounded above;
    // a finite interval with low > high is turned round.
    interval(interval_type type, const double& low, const double& high);

    interval_type type() const { return type_; }
    bool empty() const { return empty_; }
    bool finite() const { return !empty_ && type_ == interval_finite; }
    bool bounded_below() const {
        return !empty_ && (type_ == interval_finite || type_ == interval_finite_below);
    }
    bool bounded_above() const {
        return !empty_ && (type_ == interval_finite || type_ == interval_finite_above);
    }
    bool infinite() const { return type_ == interval_infinite; }
    bool unknown() const { return type_ == interval_unknown; }

    // The ends; -inf / +inf where unbounded.
    double start_pt() const { return low_; }
    double end_pt() const { return high_; }
    // high - low: +inf when unbounded, 0 when empty.
    double length() const;
    // The middle of a finite interval; the bounded end of a half-bounded one; 0 for an
    // interval bounded at neither end and for the empty one.
    double mid_pt() const;
    // (1 - t) low + t high for a finite interval; mid_pt() otherwise.
    double interpolate(double t) const;

    // True when v lies in the interval grown by `tol` at its finite ends.  `param` is set
    // to v clamped into the interval (to v itself when the interval is empty).
    bool contains(double v, double tol, double& param) const;
    bool in_interval(double v, double tol = resabs) const;
    // `other` lies within this interval grown by `tol`; the empty interval lies in all.
    bool contains(const interval& other, double tol = resabs) const;

    // Intersection; empty when disjoint.
    interval& operator&=(const interval& other);
    // The smallest interval containing both; the empty interval is the identity.
    interval& operator|=(const interval& other);
    // Grows the interval to contain v.
    interval& operator|=(double v);

    interval& operator+=(double d);
    interval& operator-=(double d) { return *this += -d; }
    // Scales both ends; a negative factor turns the interval round.
    interval& operator*=(double f);

  private:
    void set(interval_type type, double low, double high);
    void set_empty();

    double low_;
    double high_;
    interval_type type_;
    bool empty_;
};

inline interval operator&(interval a, const interval& b) {
    return a &= b;
}
inline interval operator|(interval a, const interval& b) {
    return a |= b;
}
inline interval operator+(interval a, double d) {
    return a += d;
}
inline interval operator+(double d, interval a) {
    return a += d;
}
inline interval operator-(interval a, double d) {
    return a -= d;
}
inline interval operator*(interval a, double f) {
    return a *= f;
}
inline interval operator*(double f, interval a) {
    return a *= f;
}
// { x + y : x in a, y in b }; empty when either is.
interval operator+(const interval& a, const interval& b);
// { -x : x in a }.
interval operator-(const interval& a);
// { x - y : x in a, y in b }.
inline interval operator-(const interval& a, const interval& b) {
    return a + (-b);
}
bool operator==(const interval& a, const interval& b);
inline bool operator!=(const interval& a, const interval& b) {
    return !(a == b);
}

// Brings a periodic parameter into `range` by adding or subtracting whole periods.  A
// period of 0 means the parameter is not periodic and leaves it alone, as does a value
// already in the range (within resnor relative to the period).  When the range is
// shorter than the period and no shift lands inside, the parameter is left at the first
// shift at or above the range's start.  Returns whether `param` ends up in the range.
bool map_param_into_interval(const interval& range, double& param, const double& period);

}  // namespace vorx
