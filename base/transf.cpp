#include "base/transf.hpp"

#include <cmath>

namespace vorx {

transf::transf(const matrix& affine, double scale, const vector& translation)
    : affine_(affine), translation_(translation), scaling_(scale) {
    double det = affine_.determinant();
    double f = std::cbrt(std::fabs(det));
    if (f > 0.0 && std::fabs(f - 1.0) > resnor) {
        affine_ *= 1.0 / f;
        scaling_ *= f;
    }
    if (scaling_ < 0.0) {
        affine_ *= -1.0;
        scaling_ = -scaling_;
    }
    set_flags();
}

void transf::set_flags() {
    rotate_ = !affine_.is_identity(resnor);
    reflect_ = affine_.determinant() < 0.0;
    shear_ = !affine_.is_orthogonal(resnor);
    identity_ = !rotate_ && translation_.is_zero(resnor) && std::fabs(scaling_ - 1.0) <= resnor;
}

transf transf::inverse() const {
    // p' = s p A + t  =>  p = p' (A^-1 / s) - t A^-1 / s.
    transf r;
    r.affine_ = shear_ ? affine_.inverse() : affine_.transpose();
    r.scaling_ = 1.0 / scaling_;
    r.translation_ = -((translation_ * r.affine_) * r.scaling_);
    r.set_flags();
    return r;
}

void transf::to_array(double v13[13]) const {
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) v13[3 * i + j] = affine_.element(i, j);
    for (int i = 0; i < 3; ++i) v13[9 + i] = translation_.component(i);
    v13[12] = scaling_;
}

transf& transf::operator*=(const transf& t) {
    return *this = *this * t;
}

transf operator*(const transf& a, const transf& b) {
    if (a.identity()) return b;
    if (b.identity()) return a;
    // p (A s1) + t1, then (.) (B s2) + t2: the translation t1 goes through b entirely.
    position t1(a.translation());
    vector t = (t1 * b) - position();
    transf r(a.affine() * b.affine(), a.scaling() * b.scaling(), t);
    return r;
}

bool operator==(const transf& a, const transf& b) {
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            if (std::fabs(a.affine().element(i, j) - b.affine().element(i, j)) > resnor)
                return false;
    if (!(a.translation() - b.translation()).is_zero(resabs)) return false;
    double sa = a.scaling(), sb = b.scaling();
    return std::fabs(sa - sb) <= resnor * std::fmax(1.0, std::fmax(sa, sb));
}

transf transf_from_array(const double v13[13]) {
    return transf(matrix(v13), v13[12], vector(v13 + 9));
}

transf translate_transf(const vector& v) {
    return transf(matrix(), 1.0, v);
}

transf rotate_transf(double angle, const vector& axis) {
    double l = axis.len();
    if (l == 0.0) return transf();
    vector k = axis / l;
    double c = std::cos(angle), s = std::sin(angle);
    // Rows are the images of the base vectors: e_i -> e_i cos + (k x e_i) sin +
    // k (k . e_i)(1 - cos).
    vector rows[3];
    for (int i = 0; i < 3; ++i) {
        vector e;
        e.set_component(i, 1.0);
        rows[i] = e * c + (k * e) * s + k * (k.component(i) * (1.0 - c));
    }
    return transf(matrix(rows[0], rows[1], rows[2]), 1.0, vector());
}

transf reflect_transf(const vector& normal) {
    double l = normal.len();
    if (l == 0.0) return transf();
    vector n = normal / l;
    matrix m = matrix() - outer_product(n, n) * 2.0;
    return transf(m, 1.0, vector());
}

transf scale_transf(double s) {
    return transf(matrix(), s, vector());
}

transf coordinate_transf(const position& origin, const unit_vector& x_axis,
                         const unit_vector& z_axis) {
    vector z = z_axis;
    vector x = normalise(x_axis - z * (x_axis % z));
    vector y = z * x;
    return transf(matrix(x, y, z), 1.0, origin - position());
}

}  // namespace vorx
