// Vectors of n doubles.
//
// Up to `inline_size` values live inside the object, so the short vectors laws pass
// around (a point of R^2 or R^3) never touch the heap; longer ones are held in tracked
// memory.  Operations between vectors of different sizes raise VORX_BAD_ARGUMENT.
#pragma once

namespace vorx {

class nvector {
  public:
    static constexpr int inline_size = 4;

    nvector() : data_(buf_), n_(0), cap_(inline_size) {}
    // The first n values of `values` (zeros when `values` is null).
    nvector(const double* values, int n);
    // n zeros.
    explicit nvector(int n);
    nvector(const nvector& other);
    nvector(nvector&& other) noexcept;
    nvector& operator=(const nvector& other);
    nvector& operator=(nvector&& other) noexcept;
    ~nvector() { release(); }

    // Resizes to n and sets every value to zero.
    void set(int n);

    int size() const { return n_; }
    double operator[](int i) const { return data_[i]; }
    double& operator[](int i) { return data_[i]; }
    const double* data() const { return data_; }
    double* data() { return data_; }

    nvector& operator+=(const nvector& other);
    nvector& operator-=(const nvector& other);
    nvector& operator*=(double s);

    // A scaled copy.
    nvector scale(double s) const;
    // A copy of length one; the zero vector stays zero.
    nvector norm() const;
    // The Euclidean length.
    double length() const;
    // The largest absolute component; 0 for the empty vector.
    double max_coord() const;
    double dot(const nvector& other) const;

  private:
    // Sets the size, allocating when it outgrows the inline buffer; values undefined.
    void reserve(int n);
    void release();
    void take(nvector& other);

    double* data_;
    int n_;
    int cap_;  // room at data_
    double buf_[inline_size];
};

nvector operator+(const nvector& a, const nvector& b);
nvector operator-(const nvector& a, const nvector& b);
nvector operator-(const nvector& a);
inline nvector operator*(const nvector& a, double s) {
    return a.scale(s);
}
inline nvector operator*(double s, const nvector& a) {
    return a.scale(s);
}
inline double dot(const nvector& a, const nvector& b) {
    return a.dot(b);
}

}  // namespace vorx
