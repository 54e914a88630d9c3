// Vector algebra and moving frames for sweeping: the cross product, unit vector and length
// of vector laws, and the frames a profile is carried along a path with.
//
// Design.  Each law evaluates in closed form straight from its parts (no allocation on
// the evaluation path), and each symbolic derivative is built out of the algebra laws
// (VEC, DOT, CROSS, NORM, SIZE, +, *, /, SIN, COS) over the parts and their derivatives,
// so it simplifies and prints like any other law.  A derivative never holds the law it
// differentiates (the law caches its derivative: that would be a cycle); where the
// derivative needs the law's own value it holds a fresh law of the same class.
//
// A vector whose derivative comes back as a scalar has the zero vector for derivative
// (the scalar 0 stands for it, as for DOT); such terms are dropped.
//
// Degenerate geometry raises, never returns a NaN: a zero vector under NORM, a zero
// tangent or a curvature too small to define the normal raise LAW_BAD_UNIT_VECTOR; wrong
// dimensions raise LAW_DIM.
#pragma once

#include "lawutil/internal_law.hpp"

// CROSS(A,B) = A x B for two 3-vector laws.  make_one (the parser's route) raises
// LAW_CROSS_NUM for a part count other than 2; a part that is not a 3-vector raises
// LAW_DIM when evaluated.
class cross_law : public multiple_law {
    LAW_TYPE_DECL(cross_law, multiple_law)
    cross_law(law** parts, int n);
    cross_law(law* a, law* b);

    void evaluate(const double* x, double* y) const override;
    const char* symbol(law_symbol_type type = law_symbol_default) const override;
    multiple_law* make_one(law** parts, int n) const override;
    law* sub_simplify(int level, const char*& what) const override;

  protected:
    law* deriv(int which) const override;
    int return_size() const override { return 3; }
};

// NORM(A) = A / |A|, of A's dimension (the sign of a scalar).  |A| = 0 raises
// LAW_BAD_UNIT_VECTOR.
class norm_law : public unary_law {
    LAW_TYPE_DECL(norm_law, unary_law)
    explicit norm_law(law* sub);

    void evaluate(const double* x, double* y) const override;
    const char* symbol(law_symbol_type type = law_symbol_default) const override;
    unary_law* make_one(law* sub) const override;
    law* sub_simplify(int level, const char*& what) const override;

  protected:
    law* deriv(int which) const override;
    int return_size() const override;
};

// SIZE(A) = |A| = sqrt(A.A), the Euclidean length (|a| of a scalar).  Maple: norm(A,2).
class size_law : public unary_law {
    LAW_TYPE_DECL(size_law, unary_law)
    explicit size_law(law* sub);

    void evaluate(const double* x, double* y) const override;
    const char* symbol(law_symbol_type type = law_symbol_default) const override;
    char* string(law_symbol_type type, int& counter, law_data_node*& list) const override;
    unary_law* make_one(law* sub) const override;
    law* sub_simplify(int level, const char*& what) const override;

  protected:
    law* deriv(int which) const override;
};
