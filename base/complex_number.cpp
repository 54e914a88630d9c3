#include "base/complex_number.hpp"

namespace vorx {

complex_number& complex_number::operator/=(const complex_number& c) {
    // Smith's scheme: divide through by the larger part of c so that neither the
    // squared modulus nor the cross products overflow or underflow needlessly.
    double a = re_, b = im_;
    if (std::fabs(c.re_) >= std::fabs(c.im_)) {
        double r = c.im_ / c.re_, d = c.re_ + c.im_ * r;
        re_ = (a + b * r) / d;
        im_ = (b - a * r) / d;
    } else {
        double r = c.re_ / c.im_, d = c.re_ * r + c.im_;
        re_ = (a * r + b) / d;
        im_ = (b * r - a) / d;
    }
    return *this;
}

}  // namespace vorx
