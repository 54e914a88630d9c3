#include "base/nvector.hpp"

#include <cmath>
#include <cstring>

#include "base/errors.hpp"
#include "base/memory.hpp"

namespace vorx {

namespace {

void check_sizes(const nvector& a, const nvector& b) {
    if (a.size() != b.size()) sys_error(VORX_BAD_ARGUMENT);
}

}  // namespace

void nvector::reserve(int n) {
    if (n < 0) sys_error(VORX_BAD_ARGUMENT);
    if (n > cap_) {
        // Grows only: a heap block is kept when the vector shrinks, as vectors are often
        // resized up and down.
        double* p = VORX_ALLOC_ARRAY(double, n);
        release();
        data_ = p;
        cap_ = n;
    }
    n_ = n;
}

void nvector::release() {
    if (data_ != buf_) VORX_FREE(data_);
    data_ = buf_;
    cap_ = inline_size;
}

// Steals the heap block of `other` or copies its inline values; `this` holds nothing.
void nvector::take(nvector& other) {
    n_ = other.n_;
    if (other.data_ == other.buf_) {
        if (n_) std::memcpy(buf_, other.buf_, sizeof(double) * (size_t)n_);
    } else {
        data_ = other.data_;
        cap_ = other.cap_;
        other.data_ = other.buf_;
        other.cap_ = inline_size;
    }
    other.n_ = 0;
}

nvector::nvector(const double* values, int n) : data_(buf_), n_(0), cap_(inline_size) {
    reserve(n);
    if (values)
        std::memcpy(data_, values, sizeof(double) * (size_t)n);
    else
        for (int i = 0; i < n; ++i) data_[i] = 0.0;
}

nvector::nvector(int n) : data_(buf_), n_(0), cap_(inline_size) {
    set(n);
}

nvector::nvector(const nvector& other) : nvector(other.data_, other.n_) {}

nvector::nvector(nvector&& other) noexcept : data_(buf_), n_(0), cap_(inline_size) {
    take(other);
}

nvector& nvector::operator=(const nvector& other) {
    if (this != &other) {
        reserve(other.n_);
        if (n_) std::memcpy(data_, other.data_, sizeof(double) * (size_t)n_);
    }
    return *this;
}

nvector& nvector::operator=(nvector&& other) noexcept {
    if (this != &other) {
        release();
        take(other);
    }
    return *this;
}

void nvector::set(int n) {
    reserve(n);
    for (int i = 0; i < n_; ++i) data_[i] = 0.0;
}

nvector& nvector::operator+=(const nvector& other) {
    check_sizes(*this, other);
    for (int i = 0; i < n_; ++i) data_[i] += other.data_[i];
    return *this;
}

nvector& nvector::operator-=(const nvector& other) {
    check_sizes(*this, other);
    for (int i = 0; i < n_; ++i) data_[i] -= other.data_[i];
    return *this;
}

nvector& nvector::operator*=(double s) {
    for (int i = 0; i < n_; ++i) data_[i] *= s;
    return *this;
}

nvector nvector::scale(double s) const {
    nvector r(*this);
    return r *= s;
}

double nvector::length() const {
    // Scaled by the largest component so that squaring neither overflows nor underflows.
    double m = max_coord();
    if (m == 0.0 || !std::isfinite(m)) return m;
    double sum = 0.0;
    for (int i = 0; i < n_; ++i) {
        double v = data_[i] / m;
        sum += v * v;
    }
    return m * std::sqrt(sum);
}

nvector nvector::norm() const {
    double l = length();
    if (l == 0.0) return *this;
    return scale(1.0 / l);
}

double nvector::max_coord() const {
    double m = 0.0;
    for (int i = 0; i < n_; ++i) m = std::fmax(m, std::fabs(data_[i]));
    return m;
}

double nvector::dot(const nvector& other) const {
    check_sizes(*this, other);
    double s = 0.0;
    for (int i = 0; i < n_; ++i) s += data_[i] * other.data_[i];
    return s;
}

nvector operator+(const nvector& a, const nvector& b) {
    nvector r(a);
    return r += b;
}

nvector operator-(const nvector& a, const nvector& b) {
    nvector r(a);
    return r -= b;
}

nvector operator-(const nvector& a) {
    return a.scale(-1.0);
}

}  // namespace vorx
