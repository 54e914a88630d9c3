#include "base/interval.hpp"

#include <algorithm>
#include <cmath>
#include <limits>

namespace vorx {

namespace {

constexpr double inf = std::numeric_limits<double>::infinity();

// The type of an interval whose unbounded ends are infinities.
interval_type type_of(double low, double high) {
    bool below = low > -inf, above = high < inf;
    if (below && above) return interval_finite;
    if (below) return interval_finite_below;
    if (above) return interval_finite_above;
    return interval_infinite;
}

}  // namespace

interval::interval() {
    set_empty();
}

interval::interval(double a, double b) {
    set(interval_finite, std::min(a, b), std::max(a, b));
}

interval::interval(double v) {
    set(interval_finite, v, v);
}

interval::interval(interval_type type, const double& low, const double& high) {
    if (type == interval_finite)
        set(type, std::min(low, high), std::max(low, high));
    else
        set(type, low, high);
}

void interval::set(interval_type type, double low, double high) {
    type_ = type;
    empty_ = false;
    low_ = (type == interval_finite || type == interval_finite_below) ? low : -inf;
    high_ = (type == interval_finite || type == interval_finite_above) ? high : inf;
}

void interval::set_empty() {
    type_ = interval_finite;
    empty_ = true;
    low_ = high_ = 0.0;
}

double interval::length() const {
    if (empty_) return 0.0;
    return finite() ? high_ - low_ : inf;
}

double interval::mid_pt() const {
    if (empty_) return 0.0;
    switch (type_) {
        case interval_finite:
            return 0.5 * (low_ + high_);
        case interval_finite_below:
            return low_;
        case interval_finite_above:
            return high_;
        default:
            return 0.0;
    }
}

double interval::interpolate(double t) const {
    if (empty_ || !finite()) return mid_pt();
    return (1.0 - t) * low_ + t * high_;
}

bool interval::contains(double v, double tol, double& param) const {
    param = v;
    if (empty_) return false;
    if (param < low_) param = low_;
    if (param > high_) param = high_;
    return v >= low_ - tol && v <= high_ + tol;
}

bool interval::in_interval(double v, double tol) const {
    double clamped;
    return contains(v, tol, clamped);
}

bool interval::contains(const interval& other, double tol) const {
    if (other.empty_) return true;
    if (empty_) return false;
    return other.low_ >= low_ - tol && other.high_ <= high_ + tol;
}

interval& interval::operator&=(const interval& other) {
    if (empty_ || other.unknown()) return *this;
    if (other.empty_ || unknown()) return *this = other;
    double low = std::max(low_, other.low_), high = std::min(high_, other.high_);
    if (low > high)
        set_empty();
    else
        set(type_of(low, high), low, high);
    return *this;
}

interval& interval::operator|=(const interval& other) {
    if (other.empty_ || unknown()) return *this;
    if (empty_ || other.unknown()) return *this = other;
    double low = std::min(low_, other.low_), high = std::max(high_, other.high_);
    set(type_of(low, high), low, high);
    return *this;
}

interval& interval::operator|=(double v) {
    return *this |= interval(v);
}

interval& interval::operator+=(double d) {
    if (!empty_) {
        // Infinite ends absorb the shift.
        low_ += d;
        high_ += d;
    }
    return *this;
}

interval& interval::operator*=(double f) {
    if (empty_ || unknown()) return *this;
    if (f == 0.0) {
        set(interval_finite, 0.0, 0.0);
        return *this;
    }
    double a = low_ * f, b = high_ * f;
    double low = std::min(a, b), high = std::max(a, b);
    set(type_of(low, high), low, high);
    return *this;
}

interval operator+(const interval& a, const interval& b) {
    if (a.empty() || b.empty()) return interval();
    if (a.unknown() || b.unknown()) return interval(interval_unknown, 0.0, 0.0);
    // -inf + finite stays -inf; +inf and -inf are never added, as each sum pairs
    // like ends.
    double low = a.start_pt() + b.start_pt(), high = a.end_pt() + b.end_pt();
    return interval(type_of(low, high), low, high);
}

interval operator-(const interval& a) {
    if (a.empty() || a.unknown()) return a;
    double low = -a.end_pt(), high = -a.start_pt();
    return interval(type_of(low, high), low, high);
}

bool operator==(const interval& a, const interval& b) {
    if (a.empty() || b.empty()) return a.empty() && b.empty();
    if (a.type() != b.type()) return false;
    if (a.bounded_below() && std::fabs(a.start_pt() - b.start_pt()) > resabs) return false;
    if (a.bounded_above() && std::fabs(a.end_pt() - b.end_pt()) > resabs) return false;
    return true;
}

bool map_param_into_interval(const interval& range, double& param, const double& period) {
    if (range.empty()) return false;
    double p = std::fabs(period);
    double tol = resnor * std::max(1.0, p);
    if (range.in_interval(param, tol) || p == 0.0) return range.in_interval(param, tol);
    if (range.bounded_below()) {
        // The representative in [low, low + period).
        double low = range.start_pt();
        param -= std::floor((param - low) / p) * p;
        // Rounding in the floor may leave it a period too high.
        if (param - p >= low - tol) param -= p;
    } else {
        // Bounded above only: the representative in (high - period, high].
        double high = range.end_pt();
        param += std::floor((high - param) / p) * p;
        if (param + p <= high + tol) param += p;
    }
    return range.in_interval(param, tol);
}

}  // namespace vorx
