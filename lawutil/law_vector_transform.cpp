// Transforms applied to laws (TRANS, ROTATE, VECTRANS, POSTRANS, SCALETRANS) and the
// unit normal of a surface (SURFNORM).  See the header for the definitions.
#include "lawutil/law_vector_transform.hpp"

#include <cmath>

#include "lawutil/law_logic.hpp"
#include "lawutil/law_vector_build.hpp"
#include "lawutil/simplfy.hpp"

using namespace vorx;

namespace lawutil {

LAWUTIL_TYPE_DEF(transform_data_law)
LAWUTIL_TYPE_DEF(transform_law)
LAWUTIL_TYPE_DEF(rotate_law)
LAWUTIL_TYPE_DEF(vectrans_law)
LAWUTIL_TYPE_DEF(postrans_law)
LAWUTIL_TYPE_DEF(scaletrans_law)
LAWUTIL_TYPE_DEF(surfnorm_law)

namespace {

const transf identity_transf;

const transf& transf_of(const law_data* d) {
    const transf* t = static_cast<const base_transform_law_data*>(d)->get_transf();
    return t ? *t : identity_transf;
}

law* carried_of(const law_data* d) {
    return static_cast<const law_law_data*>(d)->data_law();
}

// The data of a transform law, checked before the law is built (a law whose
// construction fails is never counted): {law, transform}, as the header says.
law_data** transform_args(law_data** data, int count, int count_code, bool vector3) {
    if (!data) return data;  // the prototype
    if (count != 2) sys_error(count_code);
    if (!data[0] || !data[0]->isa(law_law_data::id()) || !carried_of(data[0]) || !data[1] ||
        !data[1]->isa(base_transform_law_data::id()))
        sys_error(LAW_DATA_UNKNOWN);
    if (vector3 && carried_of(data[0])->return_dim() != 3) sys_error(LAW_DIM);
    const transf& t = transf_of(data[1]);
    double s = t.scaling();
    if (!std::isfinite(s) || s == 0.0 || !(std::fabs(t.affine().determinant()) > 1e-12))
        sys_error(LAW_BAD_DOMAN);
    return data;
}

law_data* surface_arg(law_data* d) {
    if (!d || !d->isa(base_surface_law_data::id())) sys_error(LAW_DATA_UNKNOWN);
    return d;
}

// y = P(x) A (times s when scaled, plus t when moved).  The carried law was checked to
// be a 3-vector when this law was built, so it is evaluated straight into place.
void carry(const transf& t, const law* carried, const double* x, double* y, bool scaled,
           bool moved) {
    double p[3];
    carried->evaluate(x, p);
    const matrix& a = t.affine();
    double s = scaled ? t.scaling() : 1.0;
    for (int j = 0; j < 3; ++j) {
        double v = p[0] * a.element(0, j) + p[1] * a.element(1, j) + p[2] * a.element(2, j);
        y[j] = s * v + (moved ? t.translation()[j] : 0.0);
    }
}

void store(const vector& v, double* y) {
    for (int i = 0; i < 3; ++i) y[i] = v[i];
}

}  // namespace

// ================================================================ transform_data_law

transform_data_law::transform_data_law(law_data** data, int count)
    : multiple_data_law(data, count) {}

law* transform_data_law::carried() const {
    return data_ ? carried_of(data_[0]) : nullptr;
}

const base_transform_law_data* transform_data_law::transform() const {
    return data_ ? static_cast<const base_transform_law_data*>(data_[1]) : nullptr;
}

// Same class (checked by the caller), equal carried laws, equal transforms.
int transform_data_law::same(const law* a, const law* b) const {
    const transform_data_law* p = static_cast<const transform_data_law*>(a);
    const transform_data_law* q = static_cast<const transform_data_law*>(b);
    if (!p->data_ || !q->data_) return p->data_ == q->data_;
    law* lp = p->carried();
    law* lq = q->carried();
    return (lp == lq || *lp == *lq) && transf_of(p->data_[1]) == transf_of(q->data_[1]);
}

int transform_data_law::carried_take() const {
    return data_ ? carried()->take_dim() : 1;
}

int transform_data_law::carried_return() const {
    return data_ ? carried()->return_dim() : 3;
}

law* transform_data_law::carried_deriv(int which, law_data* t, bool as_vectrans) const {
    law_holder d(carried()->derivative(which));
    if (law_vector_lost(carried(), d.get())) return VORX_NEW constant_law(0.0);
    law_data_holder wrap(VORX_NEW law_law_data(d.get()));
    law_data* parts[2] = {wrap.get(), t};
    return as_vectrans ? VORX_NEW vectrans_law(parts, 2) : make_one(parts, 2);
}

#define LAW_TRANSFORM_COMMON(cls, word, count_code, vector3)                             \
    cls::cls() : transform_data_law(nullptr, 0) {}                                       \
    cls::cls(law_data** data, int count)                                                 \
        : transform_data_law(transform_args(data, count, count_code, vector3), count) {} \
    const char* cls::symbol(law_symbol_type type) const {                                \
        return type == law_symbol_default ? word : "no_maple";                           \
    }                                                                                    \
    multiple_data_law* cls::make_one(law_data** data, int count) const {                 \
        return VORX_NEW cls(data, count);                                                \
    }                                                                                    \
    int cls::take_size() const {                                                         \
        return carried_take();                                                           \
    }                                                                                    \
    int cls::return_size() const {                                                       \
        return carried_return();                                                         \
    }

LAW_TRANSFORM_COMMON(transform_law, "TRANS", LAW_DATA_UNKNOWN, true)
LAW_TRANSFORM_COMMON(rotate_law, "ROTATE", LAW_DATA_UNKNOWN, true)
LAW_TRANSFORM_COMMON(vectrans_law, "VECTRANS", LAW_VEC_NUM, true)
LAW_TRANSFORM_COMMON(postrans_law, "POSTRANS", LAW_POS_NUM, true)
LAW_TRANSFORM_COMMON(scaletrans_law, "SCALETRANS", LAW_SCALE_NUM, false)

// ================================================================ TRANS

void transform_law::evaluate(const double* x, double* y) const {
    carry(transf_of(data_[1]), carried(), x, y, true, true);
}

// TRANS(P,T)' = VECTRANS(P',T)
law* transform_law::deriv(int which) const {
    return carried_deriv(which, data_[1], true);
}

// trans(vec)=vec: component i is sum_j P_j (s A)_ji + t_i
law* transform_law::sub_simplify(int, const char*& what) const {
    law* p = data_ ? carried() : nullptr;
    if (!p || !p->isa(vector_law::id())) return nullptr;
    const vector_law* v = static_cast<const vector_law*>(p);
    if (v->fsub_num() != 3) return nullptr;
    const transf& t = transf_of(data_[1]);
    law_array parts(3);
    for (int i = 0; i < 3; ++i) {
        law_holder sum = lb::constant(t.translation()[i]);
        for (int j = 0; j < 3; ++j) {
            law_holder c = lb::constant(t.scaling() * t.affine().element(j, i));
            sum = lb::plus(sum, lb::times(c, law_holder::share(v->fsub()[j])));
        }
        parts.set(i, sum.release());
    }
    return simplify_fired(VORX_NEW vector_law(parts.get(), 3), what, "trans(vec)=vec");
}

// ================================================================ ROTATE, VECTRANS

void rotate_law::evaluate(const double* x, double* y) const {
    carry(transf_of(data_[1]), carried(), x, y, false, false);
}

// ROTATE(V,T)' = ROTATE(V',T)
law* rotate_law::deriv(int which) const {
    return carried_deriv(which, data_[1], false);
}

void vectrans_law::evaluate(const double* x, double* y) const {
    carry(transf_of(data_[1]), carried(), x, y, true, false);
}

// VECTRANS(V,T)' = VECTRANS(V',T)
law* vectrans_law::deriv(int which) const {
    return carried_deriv(which, data_[1], false);
}

// ================================================================ POSTRANS

void postrans_law::evaluate(const double* x, double* y) const {
    double p[3];
    carried()->evaluate(x, p);
    store(transform()->transform_inverse(position(p)) - position(), y);
}

// POSTRANS(P,T)' = VECTRANS(P',T^-1)
law* postrans_law::deriv(int which) const {
    transf inverse = transf_of(data_[1]).inverse();
    law_data_holder back(VORX_NEW base_transform_law_data(&inverse));
    return carried_deriv(which, back.get(), true);
}

// ================================================================ SCALETRANS

void scaletrans_law::evaluate(const double* x, double* y) const {
    carried()->evaluate(x, y);
    double s = transf_of(data_[1]).scaling();
    for (int i = 0, n = carried()->return_dim(); i < n; ++i) y[i] *= s;
}

// SCALETRANS(F,T)' = SCALETRANS(F',T)
law* scaletrans_law::deriv(int which) const {
    return carried_deriv(which, data_[1], false);
}

// ================================================================ SURFNORM

surfnorm_law::surfnorm_law() : unary_data_law(nullptr) {}

surfnorm_law::surfnorm_law(law_data* data) : unary_data_law(surface_arg(data)) {}

const char* surfnorm_law::symbol(law_symbol_type type) const {
    return type == law_symbol_default ? "SURFNORM" : "no_maple";
}

unary_data_law* surfnorm_law::make_one(law_data* data) const {
    return VORX_NEW surfnorm_law(data);
}

int surfnorm_law::take_size() const {
    return 2;
}

int surfnorm_law::return_size() const {
    return 3;
}

void surfnorm_law::evaluate(const double* x, double* y) const {
    vector n = static_cast<const base_surface_law_data*>(data_)->eval_normal(par_pos(x[0], x[1]));
    double length = std::sqrt(n % n);
    if (!(std::fabs(length - 1.0) < 1e-6)) sys_error(LAW_BAD_UNIT_VECTOR);
    store(n, y);
}

// SURFNORM(S)' = NORM(CROSS(DSURF(S,1,0),DSURF(S,0,1)))'
law* surfnorm_law::deriv(int which) const {
    law_holder su(VORX_NEW dsurface_law(data_, 1, 0));
    law_holder sv(VORX_NEW dsurface_law(data_, 0, 1));
    return lb::norm(lb::cross(su, sv))->derivative(which);
}

// ================================================================ registration

static law_prototype<transform_law> transform_law_prototype;
static law_prototype<rotate_law> rotate_law_prototype;
static law_prototype<vectrans_law> vectrans_law_prototype;
static law_prototype<postrans_law> postrans_law_prototype;
static law_prototype<scaletrans_law> scaletrans_law_prototype;
static law_prototype<surfnorm_law> surfnorm_law_prototype;

}  // namespace lawutil
