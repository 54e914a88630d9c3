// Complex numbers, also used as points of the plane (re = x, im = y).
#pragma once

#include <cmath>

namespace vorx {

class complex_number {
  public:
    complex_number() : re_(0.0), im_(0.0) {}
    complex_number(double re, double im) : re_(re), im_(im) {}

    double re() const { return re_; }
    double im() const { return im_; }
    void set_re(double v) { re_ = v; }
    void set_im(double v) { im_ = v; }

    // The modulus, without overflow for large parts.
    double abs() const { return std::hypot(re_, im_); }
    // The larger of |re| and |im|: a cheap norm for tolerance tests.
    double max_coord() const { return std::fmax(std::fabs(re_), std::fabs(im_)); }
    complex_number conj() const { return complex_number(re_, -im_); }

    complex_number& operator+=(const complex_number& c) {
        re_ += c.re_;
        im_ += c.im_;
        return *this;
    }
    complex_number& operator-=(const complex_number& c) {
        re_ -= c.re_;
        im_ -= c.im_;
        return *this;
    }
    complex_number& operator*=(const complex_number& c) {
        double r = re_ * c.re_ - im_ * c.im_;
        im_ = re_ * c.im_ + im_ * c.re_;
        re_ = r;
        return *this;
    }
    complex_number& operator*=(double s) {
        re_ *= s;
        im_ *= s;
        return *this;
    }
    // Division by zero gives infinities or NaNs, as for doubles.
    complex_number& operator/=(const complex_number& c);

  private:
    double re_, im_;
};

inline complex_number operator+(complex_number a, const complex_number& b) {
    return a += b;
}
inline complex_number operator-(complex_number a, const complex_number& b) {
    return a -= b;
}
inline complex_number operator-(const complex_number& a) {
    return complex_number(-a.re(), -a.im());
}
inline complex_number operator*(complex_number a, const complex_number& b) {
    return a *= b;
}
inline complex_number operator*(complex_number a, double s) {
    return a *= s;
}
inline complex_number operator*(double s, complex_number a) {
    return a *= s;
}
inline complex_number operator/(complex_number a, const complex_number& b) {
    return a /= b;
}
inline complex_number operator/(const complex_number& a, double s) {
    return complex_number(a.re() / s, a.im() / s);
}
// Exact comparison.
inline bool operator==(const complex_number& a, const complex_number& b) {
    return a.re() == b.re() && a.im() == b.im();
}
inline bool operator!=(const complex_number& a, const complex_number& b) {
    return !(a == b);
}

}  // namespace vorx
