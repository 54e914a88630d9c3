#include "lawutil/law_vector_frame.hpp"

#include <cmath>

#include "lawutil/law_logic.hpp"
#include "lawutil/law_unary.hpp"
#include "lawutil/law_vector.hpp"
#include "lawutil/law_vector_build.hpp"
#include "lawutil/main_law_arith.hpp"
#include "lawutil/simplfy.hpp"

using namespace vorx;

namespace lawutil {

LAWUTIL_TYPE_DEF(cross_law)
LAWUTIL_TYPE_DEF(norm_law)
LAWUTIL_TYPE_DEF(size_law)

namespace {

// Room for the usual vectors (points, frames) on the stack.
constexpr int stack_components = 16;

// The components of VEC(c1,...,cn) with every ci constant, into `values` (room for
// stack_components); false for any other law.
bool constant_vector(const law* l, double* values, int& n) {
    if (!l->isa(vector_law::id())) return false;
    const multiple_law* v = static_cast<const multiple_law*>(l);
    n = v->fsub_num();
    if (!v->fsub() || n < 1 || n > stack_components) return false;
    for (int i = 0; i < n; ++i)
        if (!simplify_constant(v->fsub()[i], values[i])) return false;
    return true;
}

}  // namespace

namespace lb {

law_holder dot(const law_holder& a, const law_holder& b) {
    law* p[2] = {a.get(), b.get()};
    return law_holder(VORX_NEW dot_law(p, 2));
}
law_holder inner(const law_holder& a, const law_holder& b) {
    if (a->return_dim() == 1 && b->return_dim() == 1) return times(a, b);
    return dot(a, b);
}
law_holder cross(const law_holder& a, const law_holder& b) {
    return law_holder(VORX_NEW cross_law(a.get(), b.get()));
}
law_holder norm(const law_holder& a) {
    return law_holder(VORX_NEW norm_law(a.get()));
}
law_holder size(const law_holder& a) {
    return law_holder(VORX_NEW size_law(a.get()));
}
law_holder sin(const law_holder& a) {
    return law_holder(VORX_NEW sin_law(a.get()));
}
law_holder cos(const law_holder& a) {
    return law_holder(VORX_NEW cos_law(a.get()));
}

}  // namespace lb

// ================================================================ cross_law

cross_law::cross_law(law** parts, int n) : multiple_law(parts, n) {}

cross_law::cross_law(law* a, law* b) : multiple_law(nullptr, 2) {
    subs_ = VORX_ALLOC_ARRAY(law*, 2);
    subs_[0] = a;
    subs_[1] = b;
    law_add(a);
    law_add(b);
}

void cross_law::evaluate(const double* x, double* y) const {
    if (count_ != 2 || !subs_) sys_error(LAW_CROSS_NUM);
    vector a = law_vector3_at(subs_[0], x);
    vector b = law_vector3_at(subs_[1], x);
    vector c = a * b;
    for (int i = 0; i < 3; ++i) y[i] = c[i];
}

const char* cross_law::symbol(law_symbol_type type) const {
    return type == law_symbol_default ? "CROSS" : "crossprod";
}

multiple_law* cross_law::make_one(law** parts, int n) const {
    // Checked before anything is built, so nothing is left behind.
    if (n != 2) sys_error(LAW_CROSS_NUM);
    return VORX_NEW cross_law(parts, n);
}

// CROSS(A,B)' = CROSS(A',B)+CROSS(A,B')
law* cross_law::deriv(int which) const {
    if (!subs_ || count_ != 2) return nullptr;
    law_holder a = law_holder::share(subs_[0]);
    law_holder b = law_holder::share(subs_[1]);
    law_holder da(a->derivative(which));
    law_holder db(b->derivative(which));
    law_holder left, right;
    if (!law_vector_lost(a.get(), da.get())) left = lb::cross(da, b);
    if (!law_vector_lost(b.get(), db.get())) right = lb::cross(a, db);
    if (left && right) return lb::plus(left, right).release();
    if (left) return left.release();
    if (right) return right.release();
    return lb::zero3().release();
}

law* cross_law::sub_simplify(int, const char*& what) const {
    if (!subs_ || count_ != 2) return nullptr;
    law* a = subs_[0];
    law* b = subs_[1];
    // CROSS(A,A) = 0
    if (*a == *b) return simplify_fired(lb::zero3().release(), what, "cross(A,A)=0");
    // CROSS(0,A) = CROSS(A,0) = 0
    if (law_is_zero_vector(a) || law_is_zero_vector(b))
        return simplify_fired(lb::zero3().release(), what, "Cross(0,A)=Cross(A,0)=0");
    // CROSS(VEC(A1,A2,A3),VEC(B1,B2,B3)) = VEC(A2*B3-A3*B2, A3*B1-A1*B3, A1*B2-A2*B1)
    if (!a->isa(vector_law::id()) || !b->isa(vector_law::id())) return nullptr;
    const multiple_law* va = static_cast<const multiple_law*>(a);
    const multiple_law* vb = static_cast<const multiple_law*>(b);
    if (!va->fsub() || !vb->fsub() || va->fsub_num() != 3 || vb->fsub_num() != 3) return nullptr;
    law_array c(3);
    for (int i = 0; i < 3; ++i) {
        int j = (i + 1) % 3, k = (i + 2) % 3;
        law_holder aj = law_holder::share(va->fsub()[j]), ak = law_holder::share(va->fsub()[k]);
        law_holder bj = law_holder::share(vb->fsub()[j]), bk = law_holder::share(vb->fsub()[k]);
        c.set(i, lb::minus(lb::times(aj, bk), lb::times(ak, bj)).release());
    }
    return simplify_fired(VORX_NEW vector_law(c.get(), 3), what, "cross(vec,vec)");
}

// ================================================================ norm_law

norm_law::norm_law(law* sub) : unary_law(sub) {}

int norm_law::return_size() const {
    return sub_ ? sub_->return_dim() : 1;
}

void norm_law::evaluate(const double* x, double* y) const {
    int n = sub_->return_dim();
    sub_->evaluate(x, y);
    double length = law_length(y, n);
    // Also false for a NaN: it is not passed on.
    if (!(length > 0.0) || !std::isfinite(length)) sys_error(LAW_BAD_UNIT_VECTOR);
    for (int i = 0; i < n; ++i) y[i] /= length;
}

const char* norm_law::symbol(law_symbol_type type) const {
    return type == law_symbol_default ? "NORM" : "normalize";
}

unary_law* norm_law::make_one(law* sub) const {
    return VORX_NEW norm_law(sub);
}

// NORM(A)' = (A' - NORM(A)*DOT(NORM(A),A')) / SIZE(A); a scalar's sign has derivative 0
law* norm_law::deriv(int which) const {
    if (!sub_) return nullptr;
    law_holder a = law_holder::share(sub_);
    // NORM of the zero vector is defined nowhere, and so is its derivative.
    if (law_is_zero_vector(a.get())) return nullptr;
    law_holder da(a->derivative(which));
    if (a->return_dim() == 1 || law_vector_lost(a.get(), da.get()))
        return VORX_NEW constant_law(0.0);
    law_holder u = lb::norm(a);
    law_holder along = lb::times(u, lb::inner(u, da));
    return lb::divide(lb::minus(da, along), lb::size(a)).release();
}

law* norm_law::sub_simplify(int, const char*& what) const {
    if (!sub_) return nullptr;
    // NORM(NORM(A)) = NORM(A)
    if (sub_->isa(norm_law::id()))
        return simplify_fired(law_holder::share(sub_).release(), what, "norm(norm(A))=norm(A)");
    // NORM(VEC(c1,...,cn)) = VEC(c1/|c|,...,cn/|c|); the zero vector is left to raise
    double c[stack_components];
    int n;
    if (!constant_vector(sub_, c, n)) return nullptr;
    double length = law_length(c, n);
    if (!(length > 0.0) || !std::isfinite(length)) return nullptr;
    law_array parts(n);
    for (int i = 0; i < n; ++i) parts.set(i, VORX_NEW constant_law(c[i] / length));
    return simplify_fired(VORX_NEW vector_law(parts.get(), n), what, "norm(vec c)=vec c");
}

// ================================================================ size_law

size_law::size_law(law* sub) : unary_law(sub) {}

void size_law::evaluate(const double* x, double* y) const {
    int n = sub_->return_dim();
    law_scratch<stack_components> v(n);
    sub_->evaluate(x, v.get());
    y[0] = law_length(v.get(), n);
}

const char* size_law::symbol(law_symbol_type type) const {
    return type == law_symbol_default ? "SIZE" : "norm(#1,2)";
}

char* size_law::string(law_symbol_type type, int& counter, law_data_node*& list) const {
    if (type == law_symbol_default || !sub_) return unary_law::string(type, counter, list);
    law* parts[1] = {sub_};
    return law_template_string(symbol(type), parts, 1, type, counter, list);
}

unary_law* size_law::make_one(law* sub) const {
    return VORX_NEW size_law(sub);
}

// SIZE(A)' = DOT(A,A')/SIZE(A)  (A*A'/SIZE(A) for a scalar)
law* size_law::deriv(int which) const {
    if (!sub_) return nullptr;
    law_holder a = law_holder::share(sub_);
    law_holder da(a->derivative(which));
    if (law_vector_lost(a.get(), da.get())) return VORX_NEW constant_law(0.0);
    return lb::divide(lb::inner(a, da), lb::size(a)).release();
}

law* size_law::sub_simplify(int, const char*& what) const {
    if (!sub_) return nullptr;
    // SIZE(NORM(A)) = 1
    if (sub_->isa(norm_law::id()))
        return simplify_fired(VORX_NEW constant_law(1.0), what, "size(norm(A))=1");
    // SIZE(VEC(c1,...,cn)) = sqrt(c1^2+...+cn^2)
    double c[stack_components];
    int n;
    if (!constant_vector(sub_, c, n)) return nullptr;
    return simplify_fired(VORX_NEW constant_law(law_length(c, n)), what, "size(vec c)=c");
}

// ================================================================ registration

static law_prototype<cross_law> cross_law_prototype(static_cast<law**>(nullptr), 0);
static law_prototype<norm_law> norm_law_prototype(nullptr);
static law_prototype<size_law> size_law_prototype(nullptr);

}  // namespace lawutil
