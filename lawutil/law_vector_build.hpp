// Building blocks of the vector and frame laws: reading a 3-vector part, lengths, and
// short builders of algebra laws over held references, for the symbolic derivatives
// (each builder hands back one reference in a holder; the arguments keep theirs).
#pragma once

#include <cmath>

#include "lawutil/internal_law.hpp"
#include "lawutil/law_vector.hpp"
#include "lawutil/main_law_arith.hpp"

namespace lawutil {

class cross_law;

// The zero vector VEC(0,...,0) of two or more components.
bool law_is_zero_vector(const law* l);

// The value of a 3-vector law at x; any other dimension raises LAW_DIM.
inline vorx::vector law_vector3_at(const law* l, const double* x) {
    if (!l || l->return_dim() != 3) vorx::sys_error(LAW_DIM);
    double v[3];
    l->evaluate(x, v);
    return vorx::vector(v);
}

inline double law_length(const double* v, int n) {
    double s = 0.0;
    for (int i = 0; i < n; ++i) s += v[i] * v[i];
    return std::sqrt(s);
}

// A vector law whose derivative came back as a scalar: the derivative is the zero vector.
inline bool law_vector_lost(const law* v, const law* dv) {
    return v->return_dim() > 1 && dv->return_dim() == 1;
}

namespace lb {

inline law_holder plus(const law_holder& a, const law_holder& b) {
    return law_holder(VORX_NEW plus_law(a.get(), b.get()));
}
inline law_holder minus(const law_holder& a, const law_holder& b) {
    return law_holder(VORX_NEW minus_law(a.get(), b.get()));
}
inline law_holder times(const law_holder& a, const law_holder& b) {
    return law_holder(VORX_NEW times_law(a.get(), b.get()));
}
inline law_holder divide(const law_holder& a, const law_holder& b) {
    return law_holder(VORX_NEW division_law(a.get(), b.get()));
}
inline law_holder constant(double c) {
    return law_holder(VORX_NEW constant_law(c));
}
inline law_holder zero3() {
    return law_holder(VORX_NEW vector_law(vorx::vector(0.0, 0.0, 0.0)));
}
law_holder dot(const law_holder& a, const law_holder& b);
// The product of two scalars, else DOT (whose two-scalar rule is a sum).
law_holder inner(const law_holder& a, const law_holder& b);
law_holder cross(const law_holder& a, const law_holder& b);
law_holder norm(const law_holder& a);
law_holder size(const law_holder& a);
law_holder sin(const law_holder& a);
law_holder cos(const law_holder& a);

}  // namespace lb

}  // namespace lawutil
