#include "base/matrix.hpp"

#include <cmath>

namespace vorx {

matrix matrix::inverse() const {
    // The inverse is the transposed cofactor matrix over the determinant; the rows of the
    // cofactor matrix are cross products of the columns.
    vector c0 = column(0), c1 = column(1), c2 = column(2);
    vector r0 = c1 * c2, r1 = c2 * c0, r2 = c0 * c1;
    double det = c0 % r0;
    const matrix zero{vector(), vector(), vector()};
    if (det == 0.0) return zero;
    double f = 1.0 / det;
    if (!std::isfinite(f)) return zero;
    matrix inv(r0 * f, r1 * f, r2 * f);
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            if (!std::isfinite(inv.element(i, j))) return zero;
    return inv;
}

bool matrix::is_identity(double tol) const {
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            if (std::fabs(e_[i][j] - (i == j ? 1.0 : 0.0)) > tol) return false;
    return true;
}

bool matrix::is_orthogonal(double tol) const {
    return (*this * transpose()).is_identity(tol);
}

}  // namespace vorx
