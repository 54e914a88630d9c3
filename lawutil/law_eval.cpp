// The typed evaluators of a law.  Each checks the law's dimensions (cached) and then
// dispatches to the raw evaluate, evaluate_with_side or evaluate_with_guess.
//
// The output-typed evaluators accept a scalar law that is identically 0 as the zero of
// their type, so the constant 0 can stand for a zero vector, point or parameter pair.
// Whether a scalar law "is 0" is judged by one evaluation at a fixed probe input.
#include <cstring>

#include "base/complex_number.hpp"
#include "base/matrix.hpp"
#include "base/nvector.hpp"
#include "base/transf.hpp"
#include "lawutil/law_base.hpp"

using namespace vorx;

namespace lawutil {

namespace {

// Fixed probe of the scalar-zero rule, whatever the caller's input.
constexpr double zero_probe = 0.896543;

// Output buffer on the stack for small results, tracked memory beyond.
class out_buffer {
  public:
    explicit out_buffer(int n) : p_(n <= 16 ? small_ : VORX_ALLOC_ARRAY(double, n)) {}
    ~out_buffer() {
        if (p_ != small_) VORX_FREE(p_);
    }
    out_buffer(const out_buffer&) = delete;
    out_buffer& operator=(const out_buffer&) = delete;
    double* get() { return p_; }
    double operator[](int i) const { return p_[i]; }

  private:
    double small_[16];
    double* p_;
};

// True when a one-output law is to be taken as the zero of a vector-shaped type.
bool scalar_zero(const law* l) {
    if (l->return_dim() != 1) return false;
    double x = zero_probe;
    return l->evaluateM_R(&x) == 0.0;
}

}  // namespace

void law::raise_not_scalar() const {
    sys_error(LAW_EVALS);
}
void law::raise_bad_dim() const {
    sys_error(LAW_DIM);
}

double law::evaluateC_R(const complex_number& z, const int* side, const double* guess) const {
    double x[2] = {z.re(), z.im()};
    return evaluateM_R(x, side, guess);
}

double law::evaluateNV_R(const nvector& x, const int* side, const double* guess) const {
    if (return_dim() != 1 || take_dim() > x.size()) sys_error(LAW_EVALV);
    return evaluateM_R(x.data(), side, guess);
}

vector law::evaluateR_V(double x, const int& side, const double& guess) const {
    if (scalar_zero(this)) return vector();
    if (return_dim() != 3) sys_error(LAW_EVALV);
    if (take_dim() > 1) sys_error(LAW_EVALV_ONE);
    double y[3];
    dispatch(&x, y, null_ref_ptr(side), null_ref_ptr(guess));
    return vector(y[0], y[1], y[2]);
}

unit_vector law::evaluateR_UV(double x, const int& side, const double& guess) const {
    if (scalar_zero(this)) return unit_vector(0.0, 0.0, 0.0);
    if (return_dim() != 3) sys_error(LAW_EVALV);
    if (take_dim() > 1) sys_error(LAW_EVALV_ONE);
    double y[3];
    dispatch(&x, y, null_ref_ptr(side), null_ref_ptr(guess));
    return unit_vector(y[0], y[1], y[2]);
}

vector law::evaluateM_V(const double* x, const int* side, const double* guess) const {
    // Deliberately no probe here: any scalar law reads as the zero vector.
    if (return_dim() == 1) return vector();
    if (return_dim() != 3) sys_error(LAW_EVALVM);
    double y[3];
    dispatch(x, y, side, guess);
    return vector(y[0], y[1], y[2]);
}

position law::evaluateR_P(double x, const int& side, const double& guess) const {
    return evaluateM_P(&x, null_ref_ptr(side), null_ref_ptr(guess));
}

position law::evaluateM_P(const double* x, const int* side, const double* guess) const {
    if (scalar_zero(this)) return position();
    if (return_dim() != 3) sys_error(LAW_EVALV);
    double y[3];
    dispatch(x, y, side, guess);
    return position(y[0], y[1], y[2]);
}

position law::evaluateP_P(const position& p, const int* side, const double* guess) const {
    if (scalar_zero(this)) return position();
    if (return_dim() != 3 || take_dim() != 3) sys_error(LAW_EVALV);
    double x[3] = {p.x(), p.y(), p.z()};
    double y[3];
    dispatch(x, y, side, guess);
    return position(y[0], y[1], y[2]);
}

position law::evaluateNV_P(const nvector& x, const int* side, const double* guess) const {
    return position(evaluateNV_V(x, side, guess));
}

vector law::evaluateNV_V(const nvector& x, const int* side, const double* guess) const {
    if (scalar_zero(this)) return vector();
    if (return_dim() != 3) sys_error(LAW_EVALV);
    // A law may read more inputs than the caller gave: pad them with zeros.
    int n = take_dim() > x.size() ? take_dim() : x.size();
    out_buffer in(n);
    for (int i = 0; i < n; ++i) in.get()[i] = i < x.size() ? x[i] : 0.0;
    double y[3];
    dispatch(in.get(), y, side, guess);
    return vector(y[0], y[1], y[2]);
}

par_pos law::evaluateM_PP(const double* x, const int* side, const double* guess) const {
    if (scalar_zero(this)) return par_pos();
    if (return_dim() != 2) sys_error(LAW_EVALV);
    double y[2];
    dispatch(x, y, side, guess);
    return par_pos(y[0], y[1]);
}

par_pos law::evaluateP_PP(const position& p, const int* side, const double* guess) const {
    double x[3] = {p.x(), p.y(), p.z()};
    return evaluateM_PP(x, side, guess);
}

position law::evaluatePP_P(const par_pos& uv, const int* side, const double* guess) const {
    return position(evaluatePP_V(uv, side, guess));
}

vector law::evaluatePP_V(const par_pos& uv, const int* side, const double* guess) const {
    if (scalar_zero(this)) return vector();
    if (return_dim() != 3 || take_dim() > 2) sys_error(LAW_EVALV);
    double x[2] = {uv.u(), uv.v()};
    double y[3];
    dispatch(x, y, side, guess);
    return vector(y[0], y[1], y[2]);
}

matrix law::evaluateM_MAT(const double* x) const {
    if (return_dim() == 1) {
        vector z;
        return matrix(z, z, z);
    }
    if (return_dim() != 9) sys_error(LAW_EVALMMAT);
    double y[9];
    evaluate(x, y);
    return matrix(vector(y[0], y[1], y[2]), vector(y[3], y[4], y[5]), vector(y[6], y[7], y[8]));
}

transf law::evaluateM_T(const double* x) const {
    if (return_dim() == 1) return transf();
    if (return_dim() != 13) sys_error(LAW_EVALMT);
    double y[13];
    evaluate(x, y);
    return transf_from_array(y);
}

void law::evaluateVAR(const double* x, double*& y, int& n) const {
    n = return_dim();
    y = n ? VORX_ALLOC_ARRAY(double, n) : nullptr;
    evaluate(x, y);
}

// ---------------------------------------------------------------- derivative values

double law::evaluateDM_R(const double* x, int n, const int* side, const double* guess) const {
    if (n <= 0) return evaluateM_R(x, side, guess);
    law_holder d(derivative(0));
    return d->evaluateDM_R(x, n - 1, side, guess);
}

void law::evaluateDM(const double* x, double* y, int n, const int* side,
                     const double* guess) const {
    if (n <= 0) {
        dispatch(x, y, side, guess);
        return;
    }
    law_holder d(derivative(0));
    d->evaluateDM(x, y, n - 1, side, guess);
}

double law::evaluateDR_R(double t, int n, const int& side, const double& guess) const {
    return evaluateDM_R(&t, n, null_ref_ptr(side), null_ref_ptr(guess));
}

vector law::evaluateDR_V(double t, int n, const int& side, const double& guess) const {
    law_holder d(nth_derivative(n));
    if (d->return_dim() == 1) {
        double p = zero_probe;
        // A constant scalar derivative reads as zero whatever its value (deliberately).
        if (d->evaluateM_R(&p) == 0.0 || d->constant()) return vector();
    }
    if (d->return_dim() != 3) sys_error(LAW_EVALDV);
    if (d->take_dim() > 1) sys_error(LAW_EVALDV_ONE);
    return d->evaluateM_V(&t, null_ref_ptr(side), null_ref_ptr(guess));
}

}  // namespace lawutil
