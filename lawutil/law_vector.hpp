// Laws that return vectors: VEC builds one from scalar components, TERM takes one
// component out, DOT combines two.  All three hold their parts as a multiple_law.
#pragma once

#include "lawutil/internal_law.hpp"

namespace lawutil {

// VEC(A,B,...): one output per component law; each component must be scalar.
class vector_law : public multiple_law {
    LAWUTIL_TYPE_DECL(vector_law, multiple_law)
    vector_law(law** parts, int n);
    // Each coordinate becomes a new constant law owned by the vector law.
    explicit vector_law(const vorx::vector& v);
    explicit vector_law(const vorx::position& p);
    explicit vector_law(const vorx::unit_vector& u);
    explicit vector_law(const vorx::par_pos& uv);

    void evaluate(const double* x, double* y) const override;
    void evaluate_with_side(const double* x, double* y, const int* side) const override;
    void evaluate_with_guess(const double* x, double* y, const double* guess) const override;
    const char* symbol(law_symbol_type type = law_symbol_default) const override;
    multiple_law* make_one(law** parts, int n) const override;
    law* sub_simplify(int level, const char*& what) const override;

  protected:
    law* deriv(int which) const override;
    int return_size() const override;
};

// TERM(V,I): component I of the vector law V, counted from 1.  The index law is read at
// the single input 1.0 and truncated toward zero after subtracting 1.  Nothing is
// checked when the law is built; an index outside the vector raises LAW_DIM when the
// law is evaluated.
class term_law : public multiple_law {
    LAWUTIL_TYPE_DECL(term_law, multiple_law)
    term_law(law** parts, int n);
    // Stores `vector` and a new constant law of `index`.
    term_law(law* vector, int index);

    void evaluate(const double* x, double* y) const override;
    char* string(law_symbol_type type, int& counter, law_data_node*& list) const override;
    const char* symbol(law_symbol_type type = law_symbol_default) const override;
    multiple_law* make_one(law** parts, int n) const override;
    law* sub_simplify(int level, const char*& what) const override;

  protected:
    law* deriv(int which) const override;
    int return_size() const override { return 1; }
};

// DOT(A,B): the dot product of two vector laws, components missing from the shorter one
// counting as 0.  A scalar against a vector multiplies the vector's first component only,
// and two scalars give their sum: both are kept deliberately for compatibility of values.
// make_one (the parser's route) raises LAW_DOT_NUM for a part count other than 2.
class dot_law : public multiple_law {
    LAWUTIL_TYPE_DECL(dot_law, multiple_law)
    dot_law(law** parts, int n);

    void evaluate(const double* x, double* y) const override;
    const char* symbol(law_symbol_type type = law_symbol_default) const override;
    int commutative() const override { return 1; }
    multiple_law* make_one(law** parts, int n) const override;
    law* sub_simplify(int level, const char*& what) const override;

  protected:
    law* deriv(int which) const override;
    int return_size() const override { return 1; }
};

}  // namespace lawutil
