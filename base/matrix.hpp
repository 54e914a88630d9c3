// 3x3 matrices.
//
// Stored by rows.  `matrix * vector` is the column-vector product M v; `vector * matrix`
// is the row-vector product v M, the one transforms use.
#pragma once

#include "position.hpp"

namespace vorx {

class matrix {
  public:
    // The identity.
    matrix() : e_{{1.0, 0.0, 0.0}, {0.0, 1.0, 0.0}, {0.0, 0.0, 1.0}} {}
    // From three rows.
    matrix(const vector& r0, const vector& r1, const vector& r2)
        : e_{{r0.x(), r0.y(), r0.z()}, {r1.x(), r1.y(), r1.z()}, {r2.x(), r2.y(), r2.z()}} {}
    // From nine values, row by row.
    explicit matrix(const double rows[9])
        : e_{{rows[0], rows[1], rows[2]},
             {rows[3], rows[4], rows[5]},
             {rows[6], rows[7], rows[8]}} {}

    double element(int i, int j) const { return e_[i][j]; }
    void set_element(int i, int j, double v) { e_[i][j] = v; }
    vector row(int i) const { return vector(e_[i][0], e_[i][1], e_[i][2]); }
    vector column(int j) const { return vector(e_[0][j], e_[1][j], e_[2][j]); }

    matrix transpose() const { return matrix(column(0), column(1), column(2)); }
    double determinant() const {
        return e_[0][0] * (e_[1][1] * e_[2][2] - e_[1][2] * e_[2][1]) -
               e_[0][1] * (e_[1][0] * e_[2][2] - e_[1][2] * e_[2][0]) +
               e_[0][2] * (e_[1][0] * e_[2][1] - e_[1][1] * e_[2][0]);
    }
    // The inverse by cofactors.  A singular matrix (determinant exactly zero, or so small
    // that the inverse overflows) yields the zero matrix: callers that can meet one test
    // the determinant first.
    matrix inverse() const;
    // Every element within `tol` of the identity's.
    bool is_identity(double tol = resnor) const;
    // The rows are orthonormal to within `tol` (a rotation or a reflection).
    bool is_orthogonal(double tol = resnor) const;

    matrix& operator*=(double s) {
        for (auto& r : e_)
            for (double& v : r) v *= s;
        return *this;
    }

  private:
    double e_[3][3];
};

inline matrix operator*(const matrix& a, const matrix& b) {
    matrix r;
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            r.set_element(i, j,
                          a.element(i, 0) * b.element(0, j) + a.element(i, 1) * b.element(1, j) +
                              a.element(i, 2) * b.element(2, j));
    return r;
}
inline matrix operator*(const matrix& a, double s) {
    matrix r = a;
    return r *= s;
}
inline matrix operator*(double s, const matrix& a) {
    return a * s;
}
inline matrix operator+(const matrix& a, const matrix& b) {
    return matrix(a.row(0) + b.row(0), a.row(1) + b.row(1), a.row(2) + b.row(2));
}
inline matrix operator-(const matrix& a, const matrix& b) {
    return matrix(a.row(0) - b.row(0), a.row(1) - b.row(1), a.row(2) - b.row(2));
}
// M v, v a column.
inline vector operator*(const matrix& m, const vector& v) {
    return vector(m.row(0) % v, m.row(1) % v, m.row(2) % v);
}
// v M, v a row.
inline vector operator*(const vector& v, const matrix& m) {
    return vector(v.x() * m.element(0, 0) + v.y() * m.element(1, 0) + v.z() * m.element(2, 0),
                  v.x() * m.element(0, 1) + v.y() * m.element(1, 1) + v.z() * m.element(2, 1),
                  v.x() * m.element(0, 2) + v.y() * m.element(1, 2) + v.z() * m.element(2, 2));
}
// The matrix a b^T, whose rows are b scaled by the components of a.
inline matrix outer_product(const vector& a, const vector& b) {
    return matrix(a.x() * b, a.y() * b, a.z() * b);
}

}  // namespace vorx
