#include "lawutil/law_vector.hpp"

#include "lawutil/law_logic.hpp"
#include "lawutil/law_vector_build.hpp"
#include "lawutil/main_law_arith.hpp"
#include "lawutil/simplfy.hpp"

using namespace vorx;

namespace lawutil {

LAWUTIL_TYPE_DEF(vector_law)
LAWUTIL_TYPE_DEF(term_law)
LAWUTIL_TYPE_DEF(dot_law)

namespace {

// Room for the components of the usual vectors (points, frames, transforms) on the stack.
constexpr int stack_components = 16;

// The parts of a law built from coordinates: each a new constant whose single reference
// passes to the law that takes the array.
law** constant_parts(const double* values, int n) {
    law** subs = VORX_ALLOC_ARRAY(law*, n);
    for (int i = 0; i < n; ++i) subs[i] = VORX_NEW constant_law(values[i]);
    return subs;
}

}  // namespace

// ================================================================ vector_law

vector_law::vector_law(law** parts, int n) : multiple_law(parts, n) {}

vector_law::vector_law(const vector& v) : multiple_law(nullptr, 3) {
    double c[3] = {v.x(), v.y(), v.z()};
    subs_ = constant_parts(c, 3);
}

vector_law::vector_law(const position& p) : multiple_law(nullptr, 3) {
    double c[3] = {p.x(), p.y(), p.z()};
    subs_ = constant_parts(c, 3);
}

vector_law::vector_law(const unit_vector& u) : multiple_law(nullptr, 3) {
    double c[3] = {u.x(), u.y(), u.z()};
    subs_ = constant_parts(c, 3);
}

vector_law::vector_law(const par_pos& uv) : multiple_law(nullptr, 2) {
    double c[2] = {uv.u(), uv.v()};
    subs_ = constant_parts(c, 2);
}

int vector_law::return_size() const {
    return subs_ ? count_ : 0;
}

void vector_law::evaluate(const double* x, double* y) const {
    for (int i = 0; i < count_; ++i) y[i] = subs_[i]->evaluateM_R(x);
}

void vector_law::evaluate_with_side(const double* x, double* y, const int* side) const {
    for (int i = 0; i < count_; ++i) y[i] = subs_[i]->evaluateM_R(x, side, nullptr);
}

void vector_law::evaluate_with_guess(const double* x, double* y, const double* guess) const {
    for (int i = 0; i < count_; ++i) y[i] = subs_[i]->evaluateM_R(x, nullptr, guess);
}

const char* vector_law::symbol(law_symbol_type type) const {
    return type == law_symbol_default ? "VEC" : "[#a]";
}

multiple_law* vector_law::make_one(law** parts, int n) const {
    return VORX_NEW vector_law(parts, n);
}

// VEC(A,B,...)' = VEC(A',B',...)
law* vector_law::deriv(int which) const {
    if (!subs_) return nullptr;
    law_array d(count_);
    for (int i = 0; i < count_; ++i) d.set(i, subs_[i]->derivative(which));
    return VORX_NEW vector_law(d.get(), count_);
}

// VEC(c) = c for one constant component; a vector of more components keeps its size,
// even when all are 0 (a scalar 0 would change what evaluate writes).
law* vector_law::sub_simplify(int, const char*& what) const {
    if (!subs_ || count_ != 1 || !subs_[0]->isa(constant_law::id())) return nullptr;
    law* c = law_holder::share(subs_[0]).release();
    // vec(0)=0
    if (simplify_is(c, 0.0)) return simplify_fired(c, what, "vec(0)=0");
    // vec(c)=c
    return simplify_fired(c, what, "vec(c)=c");
}

// ================================================================ term_law

term_law::term_law(law** parts, int n) : multiple_law(parts, n) {}

term_law::term_law(law* vector, int index) : multiple_law(nullptr, 2) {
    subs_ = VORX_ALLOC_ARRAY(law*, 2);
    subs_[0] = vector;
    law_add(vector);
    subs_[1] = VORX_NEW constant_law(index);
}

void term_law::evaluate(const double* x, double* y) const {
    if (count_ < 2 || !subs_) sys_error(LAW_DIM);
    const law* v = subs_[0];
    int n = v->return_dim();
    // Counted from 1 and truncated toward zero: an index of 2.9 is the second component.
    // Nothing is checked when the law is built; an index outside the vector (or not a
    // number) is caught here rather than read out of bounds.
    double k = law_value_at_one(subs_[1]) - 1.0;
    if (!(k > -1.0 && k < n)) sys_error(LAW_DIM);
    law_scratch<stack_components> values(n);
    v->evaluate(x, values.get());
    y[0] = values[(int)k];
}

const char* term_law::symbol(law_symbol_type type) const {
    return type == law_symbol_default ? "TERM" : "#1[#2]";
}

char* term_law::string(law_symbol_type type, int& counter, law_data_node*& list) const {
    if (type == law_symbol_default || !subs_ || count_ != 2)
        return multiple_law::string(law_symbol_default, counter, list);
    return law_template_string(symbol(type), subs_, count_, type, counter, list);
}

multiple_law* term_law::make_one(law** parts, int n) const {
    return VORX_NEW term_law(parts, n);
}

// TERM(V,I)' = TERM(V',I)
law* term_law::deriv(int which) const {
    if (!subs_ || count_ != 2) return nullptr;
    law_holder dv(subs_[0]->derivative(which));
    law* parts[2] = {dv.get(), subs_[1]};
    return VORX_NEW term_law(parts, 2);
}

// term(vec)=sub: TERM(VEC(A1,...,An),i) = Ai for a constant index that selects a
// component (an index outside the vector is left to raise when evaluated)
law* term_law::sub_simplify(int, const char*& what) const {
    if (!subs_ || count_ != 2 || !subs_[0]->isa(vector_law::id())) return nullptr;
    double index;
    if (!simplify_constant(subs_[1], index)) return nullptr;
    const multiple_law* vec = static_cast<const multiple_law*>(subs_[0]);
    double k = index - 1.0;
    if (!vec->fsub() || !(k > -1.0 && k < vec->fsub_num())) return nullptr;
    return simplify_fired(law_holder::share(vec->fsub()[(int)k]).release(), what, "term(vec)=sub");
}

// ================================================================ dot_law

dot_law::dot_law(law** parts, int n) : multiple_law(parts, n) {}

void dot_law::evaluate(const double* x, double* y) const {
    if (count_ != 2 || !subs_) sys_error(LAW_DOT_NUM);
    const law* a = subs_[0];
    const law* b = subs_[1];
    int na = a->return_dim();
    int nb = b->return_dim();
    if (na == 1 && nb == 1) {
        // Two scalars add: deliberate, kept for compatibility of values.
        y[0] = a->evaluateM_R(x) + b->evaluateM_R(x);
        return;
    }
    if (na == 1) {
        // A scalar takes part with the vector's first component only: deliberate.
        double av = a->evaluateM_R(x);
        law_scratch<4> bv(nb);
        b->evaluate(x, bv.get());
        y[0] = nb > 0 ? bv[0] * av : 0.0;
        return;
    }
    law_scratch<4> av(na);
    a->evaluate(x, av.get());
    if (nb == 1) {
        y[0] = na > 0 ? av[0] * b->evaluateM_R(x) : 0.0;
        return;
    }
    law_scratch<4> bv(nb);
    b->evaluate(x, bv.get());
    // Components missing from the shorter vector count as 0.
    int n = na < nb ? na : nb;
    double sum = 0.0;
    for (int i = 0; i < n; ++i) sum += av[i] * bv[i];
    y[0] = sum;
}

const char* dot_law::symbol(law_symbol_type type) const {
    return type == law_symbol_default ? "DOT" : "dotprod";
}

multiple_law* dot_law::make_one(law** parts, int n) const {
    // Checked before anything is built, so nothing is left behind.
    if (n != 2) sys_error(LAW_DOT_NUM);
    return VORX_NEW dot_law(parts, n);
}

law* dot_law::deriv(int which) const {
    if (!subs_ || count_ != 2) return nullptr;
    law* a = subs_[0];
    law* b = subs_[1];
    law_holder da(a->derivative(which));
    law_holder db(b->derivative(which));
    law* both[2] = {da.get(), db.get()};
    // DOT(A,B)' = DOT(A',B') for two scalars, which add.
    if (a->return_dim() == 1 && b->return_dim() == 1) return VORX_NEW dot_law(both, 2);
    // DOT(A,B)' = DOT(A',B)+DOT(A,B').  A vector whose derivative comes back as a scalar
    // has the zero vector for derivative (the scalar 0 stands for it), so its term goes.
    law_holder left, right;
    if (!(a->return_dim() > 1 && da->return_dim() == 1)) {
        law* p[2] = {da.get(), b};
        left.reset(VORX_NEW dot_law(p, 2));
    }
    if (!(b->return_dim() > 1 && db->return_dim() == 1)) {
        law* p[2] = {a, db.get()};
        right.reset(VORX_NEW dot_law(p, 2));
    }
    if (left && right) return VORX_NEW plus_law(left.get(), right.get());
    if (left) return left.release();
    if (right) return right.release();
    return VORX_NEW constant_law(0.0);
}

namespace {

// DOT(Z,A) is 0 for a zero vector Z, and for the scalar 0 against a vector A (the scalar
// multiplies A's first component); DOT(0,A) with A scalar is A, not 0.
bool dot_zero(const law* z, const law* a) {
    return law_is_zero_vector(z) || (simplify_is(z, 0.0) && a->return_dim() > 1);
}

}  // namespace

law* dot_law::sub_simplify(int, const char*& what) const {
    if (!subs_ || count_ != 2) return nullptr;
    law* a = subs_[0];
    law* b = subs_[1];
    // Dot(0,A)=Dot(A,0)=0
    if (dot_zero(a, b) || dot_zero(b, a))
        return simplify_fired(VORX_NEW constant_law(0.0), what, "Dot(0,A)=Dot(A,0)=0");
    // DOT(VEC(A1,...),VEC(B1,...)) = A1*B1+A2*B2+... over the shorter vector; a vector of
    // one component is a scalar and follows the scalar rules of DOT (a sum of two
    // scalars, the first component times a scalar)
    if (!a->isa(vector_law::id()) || !b->isa(vector_law::id())) return nullptr;
    const multiple_law* va = static_cast<const multiple_law*>(a);
    const multiple_law* vb = static_cast<const multiple_law*>(b);
    int na = va->fsub_num();
    int nb = vb->fsub_num();
    if (!va->fsub() || !vb->fsub() || na < 1 || nb < 1) return nullptr;
    law* const* pa = va->fsub();
    law* const* pb = vb->fsub();
    law* r;
    if (na == 1 && nb == 1)
        r = VORX_NEW plus_law(pa[0], pb[0]);
    else if (na == 1)
        r = VORX_NEW times_law(pb[0], pa[0]);
    else if (nb == 1)
        r = VORX_NEW times_law(pa[0], pb[0]);
    else {
        int n = na < nb ? na : nb;
        law_holder sum(VORX_NEW times_law(pa[0], pb[0]));
        for (int i = 1; i < n; ++i) {
            law_holder product(VORX_NEW times_law(pa[i], pb[i]));
            sum.reset(VORX_NEW plus_law(sum.get(), product.get()));
        }
        r = sum.release();
    }
    return simplify_fired(r, what, "dot(vec,vec)");
}

// ================================================================ helpers

bool law_is_zero_vector(const law* l) {
    if (!l->isa(vector_law::id())) return false;
    const multiple_law* v = static_cast<const multiple_law*>(l);
    if (!v->fsub() || v->fsub_num() < 2) return false;
    for (int i = 0; i < v->fsub_num(); ++i)
        if (!simplify_is(v->fsub()[i], 0.0)) return false;
    return true;
}

// ================================================================ registration

static law_prototype<vector_law> vector_law_prototype(static_cast<law**>(nullptr), 0);
static law_prototype<term_law> term_law_prototype(static_cast<law**>(nullptr), 0);
static law_prototype<dot_law> dot_law_prototype(static_cast<law**>(nullptr), 0);

}  // namespace lawutil
