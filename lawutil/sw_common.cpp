#include "lawutil/sw_common.hpp"

namespace lawutil {

void sw_basis(const double* U, int p, int k, double t, double* N) {
    double left[sw_max_degree + 1], right[sw_max_degree + 1];
    N[0] = 1.0;
    for (int j = 1; j <= p; ++j) {
        left[j] = t - U[k + 1 - j];
        right[j] = U[k + j] - t;
        double saved = 0.0;
        for (int r = 0; r < j; ++r) {
            const double temp = N[r] / (right[r + 1] + left[j - r]);
            N[r] = saved + right[r + 1] * temp;
            saved = left[j - r] * temp;
        }
        N[j] = saved;
    }
}

void sw_span_to_bezier(const double* U, int p, int k, const double* P, int stride, int dim,
                       double* B) {
    double d[(sw_max_degree + 1) * 3];
    for (int r = 0; r <= p; ++r) {
        // Blossom arguments u_1..u_p: r of them U[k+1], the rest U[k].
        for (int i = 0; i <= p; ++i)
            for (int c = 0; c < dim; ++c) d[i * dim + c] = P[i * stride + c];
        for (int j = 1; j <= p; ++j) {
            const double u = j <= r ? U[k + 1] : U[k];
            // de Boor's level j: d_i from d_(i-1) and d_i over knots U[k-p+i] .. U[k+1+i-j].
            for (int i = p; i >= j; --i) {
                const double lo = U[k - p + i], hi = U[k + 1 + i - j];
                const double alpha = hi > lo ? (u - lo) / (hi - lo) : 0.0;
                for (int c = 0; c < dim; ++c)
                    d[i * dim + c] = (1 - alpha) * d[(i - 1) * dim + c] + alpha * d[i * dim + c];
            }
        }
        for (int c = 0; c < dim; ++c) B[r * dim + c] = d[p * dim + c];
    }
}

bool sw_band_solve(double* A, int F, int p, double* R, int cols) {
    const int w = p + 1;
    // A = L L^T in place, L(i, j) at A[i*w + (i - j)].
    for (int i = 0; i < F; ++i) {
        for (int j = std::max(0, i - p); j <= i; ++j) {
            double sum = A[i * w + (i - j)];
            for (int k = std::max(0, i - p); k < j; ++k)
                sum -= A[i * w + (i - k)] * A[j * w + (j - k)];
            if (j == i) {
                if (!(sum > 0.0)) return false;
                A[i * w] = std::sqrt(sum);
            } else {
                A[i * w + (i - j)] = sum / A[j * w];
            }
        }
    }
    for (int c = 0; c < cols; ++c) {
        for (int i = 0; i < F; ++i) {
            double sum = R[cols * i + c];
            for (int k = std::max(0, i - p); k < i; ++k)
                sum -= A[i * w + (i - k)] * R[cols * k + c];
            R[cols * i + c] = sum / A[i * w];
        }
        for (int i = F - 1; i >= 0; --i) {
            double sum = R[cols * i + c];
            for (int k = i + 1; k <= std::min(F - 1, i + p); ++k)
                sum -= A[k * w + (k - i)] * R[cols * k + c];
            R[cols * i + c] = sum / A[i * w];
        }
    }
    return true;
}

}  // namespace lawutil
