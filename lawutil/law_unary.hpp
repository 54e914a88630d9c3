// The one-argument function laws: predicates, logarithm and exponential, rounding, the
// trigonometric and hyperbolic functions with their inverses, abs and sqrt.
//
// Every member holds only its argument law g, is scalar (one output; its inputs are g's)
// and reads g with evaluateM_R; evaluation never allocates.  A value outside a member's
// evaluation domain raises that member's error code and leaves the law usable.
// in_domain answers the domain rules that root finders and approximation rely on; they
// are deliberately not identical to the tests made when evaluating.
#pragma once

#include "lawutil/internal_law.hpp"

namespace lawutil {

// The members every function law of this family declares: construction over its
// argument (null is accepted, for the registered prototypes), the scalar evaluation, the
// symbol in both spellings, and make_one.
#define LAWUTIL_UNARY_FUNCTION_MEMBERS(cls)                                             \
    explicit cls(::lawutil::law* sub);                                                  \
    void evaluate(const double* x, double* y) const override;                           \
    double scalar_value(const double* x) const override;                                \
    const char* symbol(::lawutil::law_symbol_type type = ::lawutil::law_symbol_default) \
        const override;                                                                 \
    ::lawutil::unary_law* make_one(::lawutil::law* sub) const override;

// ---- predicates (no derivative) ----

// NOT(g): 1 when g is exactly 0, else 0.  It binds between AND (2) and the comparisons
// (4), so 'NOT X=1' reads as NOT(X=1) and NOT(X)=1 prints as '(NOT(X))=1'.
class not_law : public unary_law {
    LAWUTIL_TYPE_DECL(not_law, unary_law)
    LAWUTIL_UNARY_FUNCTION_MEMBERS(not_law)
    int precedence() const override { return 3; }
};

// EVEN?(g): 1 when g is an even integer.
class even_law : public unary_law {
    LAWUTIL_TYPE_DECL(even_law, unary_law)
    LAWUTIL_UNARY_FUNCTION_MEMBERS(even_law)
};

// ODD?(g): 1 when g is an integer that is not even.
class odd_law : public unary_law {
    LAWUTIL_TYPE_DECL(odd_law, unary_law)
    LAWUTIL_UNARY_FUNCTION_MEMBERS(odd_law)
};

// INT?(g): 1 when g is an integer.
class int_law : public unary_law {
    LAWUTIL_TYPE_DECL(int_law, unary_law)
    LAWUTIL_UNARY_FUNCTION_MEMBERS(int_law)
};

// PRIME?(g): 1 when g is an odd integer without divisors; 1 and 3 count, 2 does not.
class prime_law : public unary_law {
    LAWUTIL_TYPE_DECL(prime_law, unary_law)
    LAWUTIL_UNARY_FUNCTION_MEMBERS(prime_law)
};

// SET(g): the switch 1 when g > 0, else 0.  No Maple spelling.
class set_law : public unary_law {
    LAWUTIL_TYPE_DECL(set_law, unary_law)
    LAWUTIL_UNARY_FUNCTION_MEMBERS(set_law)

  protected:
    law* deriv(int which) const override;
};

// ---- logarithm, exponential, rounding ----

class natural_log_law : public unary_law {
    LAWUTIL_TYPE_DECL(natural_log_law, unary_law)
    LAWUTIL_UNARY_FUNCTION_MEMBERS(natural_log_law)
    int in_domain(const double* x) const override;

  protected:
    law* deriv(int which) const override;
};

class exp_law : public unary_law {
    LAWUTIL_TYPE_DECL(exp_law, unary_law)
    LAWUTIL_UNARY_FUNCTION_MEMBERS(exp_law)
    int in_domain(const double* x) const override;

  protected:
    law* deriv(int which) const override;
};

class floor_law : public unary_law {
    LAWUTIL_TYPE_DECL(floor_law, unary_law)
    LAWUTIL_SINGULARITIES_DECL
    LAWUTIL_UNARY_FUNCTION_MEMBERS(floor_law)

  protected:
    law* deriv(int which) const override;
};

class ceil_law : public unary_law {
    LAWUTIL_TYPE_DECL(ceil_law, unary_law)
    LAWUTIL_SINGULARITIES_DECL
    LAWUTIL_UNARY_FUNCTION_MEMBERS(ceil_law)

  protected:
    law* deriv(int which) const override;
};

// RAND(g): a deterministic value in [0,1) that depends only on g.  No derivative.
class rand_law : public unary_law {
    LAWUTIL_TYPE_DECL(rand_law, unary_law)
    LAWUTIL_UNARY_FUNCTION_MEMBERS(rand_law)
};

// ---- trigonometric ----

class sin_law : public unary_law {
    LAWUTIL_TYPE_DECL(sin_law, unary_law)
    LAWUTIL_UNARY_FUNCTION_MEMBERS(sin_law)
    law* sub_simplify(int level, const char*& what) const override;

  protected:
    law* deriv(int which) const override;
};

class cos_law : public unary_law {
    LAWUTIL_TYPE_DECL(cos_law, unary_law)
    LAWUTIL_UNARY_FUNCTION_MEMBERS(cos_law)
    law* sub_simplify(int level, const char*& what) const override;

  protected:
    law* deriv(int which) const override;
};

// TAN(g): g is reduced by steps of pi/2 (not the period) before the tangent is taken.
class tan_law : public unary_law {
    LAWUTIL_TYPE_DECL(tan_law, unary_law)
    LAWUTIL_SINGULARITIES_DECL
    LAWUTIL_UNARY_FUNCTION_MEMBERS(tan_law)
    int in_domain(const double* x) const override;

  protected:
    law* deriv(int which) const override;
};

class cot_law : public unary_law {
    LAWUTIL_TYPE_DECL(cot_law, unary_law)
    LAWUTIL_SINGULARITIES_DECL
    LAWUTIL_UNARY_FUNCTION_MEMBERS(cot_law)
    int in_domain(const double* x) const override;

  protected:
    law* deriv(int which) const override;
};

// SEC(g): reduced like TAN.
class sec_law : public unary_law {
    LAWUTIL_TYPE_DECL(sec_law, unary_law)
    LAWUTIL_SINGULARITIES_DECL
    LAWUTIL_UNARY_FUNCTION_MEMBERS(sec_law)
    int in_domain(const double* x) const override;

  protected:
    law* deriv(int which) const override;
};

class csc_law : public unary_law {
    LAWUTIL_TYPE_DECL(csc_law, unary_law)
    LAWUTIL_SINGULARITIES_DECL
    LAWUTIL_UNARY_FUNCTION_MEMBERS(csc_law)
    int in_domain(const double* x) const override;

  protected:
    law* deriv(int which) const override;
};

// ---- inverse trigonometric (the arctangent is arctan_law, with the logic laws) ----

class arcsin_law : public unary_law {
    LAWUTIL_TYPE_DECL(arcsin_law, unary_law)
    LAWUTIL_UNARY_FUNCTION_MEMBERS(arcsin_law)
    int in_domain(const double* x) const override;
    int term_domain(int which, vorx::interval& dom) const override;

  protected:
    law* deriv(int which) const override;
};

class arccos_law : public unary_law {
    LAWUTIL_TYPE_DECL(arccos_law, unary_law)
    LAWUTIL_UNARY_FUNCTION_MEMBERS(arccos_law)
    int in_domain(const double* x) const override;
    int term_domain(int which, vorx::interval& dom) const override;

  protected:
    law* deriv(int which) const override;
};

// ARCCOT(g): atan(1/g) + pi for every non-zero g (values in (pi/2, 3*pi/2)).
class arccot_law : public unary_law {
    LAWUTIL_TYPE_DECL(arccot_law, unary_law)
    LAWUTIL_UNARY_FUNCTION_MEMBERS(arccot_law)

  protected:
    law* deriv(int which) const override;
};

// ARCSEC(g): the negated principal value, in [-pi, 0].
class arcsec_law : public unary_law {
    LAWUTIL_TYPE_DECL(arcsec_law, unary_law)
    LAWUTIL_UNARY_FUNCTION_MEMBERS(arcsec_law)
    int in_domain(const double* x) const override;

  protected:
    law* deriv(int which) const override;
};

// ARCCSC(g): -pi minus the principal value, in [-3*pi/2, -pi/2].
class arccsc_law : public unary_law {
    LAWUTIL_TYPE_DECL(arccsc_law, unary_law)
    LAWUTIL_UNARY_FUNCTION_MEMBERS(arccsc_law)
    int in_domain(const double* x) const override;

  protected:
    law* deriv(int which) const override;
};

// ---- hyperbolic ----

class sinh_law : public unary_law {
    LAWUTIL_TYPE_DECL(sinh_law, unary_law)
    LAWUTIL_UNARY_FUNCTION_MEMBERS(sinh_law)
    int in_domain(const double* x) const override;

  protected:
    law* deriv(int which) const override;
};

class cosh_law : public unary_law {
    LAWUTIL_TYPE_DECL(cosh_law, unary_law)
    LAWUTIL_UNARY_FUNCTION_MEMBERS(cosh_law)
    int in_domain(const double* x) const override;

  protected:
    law* deriv(int which) const override;
};

class tanh_law : public unary_law {
    LAWUTIL_TYPE_DECL(tanh_law, unary_law)
    LAWUTIL_UNARY_FUNCTION_MEMBERS(tanh_law)

  protected:
    law* deriv(int which) const override;
};

class coth_law : public unary_law {
    LAWUTIL_TYPE_DECL(coth_law, unary_law)
    LAWUTIL_SINGULARITIES_DECL
    LAWUTIL_UNARY_FUNCTION_MEMBERS(coth_law)
    int in_domain(const double* x) const override;

  protected:
    law* deriv(int which) const override;
};

// SECH(g): exactly 0 beyond |g| > 200.
class sech_law : public unary_law {
    LAWUTIL_TYPE_DECL(sech_law, unary_law)
    LAWUTIL_UNARY_FUNCTION_MEMBERS(sech_law)

  protected:
    law* deriv(int which) const override;
};

// CSCH(g): exactly 0 beyond |g| > 200.
class csch_law : public unary_law {
    LAWUTIL_TYPE_DECL(csch_law, unary_law)
    LAWUTIL_SINGULARITIES_DECL
    LAWUTIL_UNARY_FUNCTION_MEMBERS(csch_law)
    int in_domain(const double* x) const override;

  protected:
    law* deriv(int which) const override;
};

// ---- inverse hyperbolic ----

class arcsinh_law : public unary_law {
    LAWUTIL_TYPE_DECL(arcsinh_law, unary_law)
    LAWUTIL_UNARY_FUNCTION_MEMBERS(arcsinh_law)

  protected:
    law* deriv(int which) const override;
};

class arccosh_law : public unary_law {
    LAWUTIL_TYPE_DECL(arccosh_law, unary_law)
    LAWUTIL_UNARY_FUNCTION_MEMBERS(arccosh_law)
    int term_domain(int which, vorx::interval& dom) const override;

  protected:
    law* deriv(int which) const override;
};

class arctanh_law : public unary_law {
    LAWUTIL_TYPE_DECL(arctanh_law, unary_law)
    LAWUTIL_UNARY_FUNCTION_MEMBERS(arctanh_law)
    int in_domain(const double* x) const override;
    int term_domain(int which, vorx::interval& dom) const override;

  protected:
    law* deriv(int which) const override;
};

class arccoth_law : public unary_law {
    LAWUTIL_TYPE_DECL(arccoth_law, unary_law)
    LAWUTIL_UNARY_FUNCTION_MEMBERS(arccoth_law)
    int in_domain(const double* x) const override;

  protected:
    law* deriv(int which) const override;
};

// ARCSECH(g) = ln(1 + sqrt(1 - g*g)) / g: the division follows the logarithm.
class arcsech_law : public unary_law {
    LAWUTIL_TYPE_DECL(arcsech_law, unary_law)
    LAWUTIL_UNARY_FUNCTION_MEMBERS(arcsech_law)
    int in_domain(const double* x) const override;
    int term_domain(int which, vorx::interval& dom) const override;

  protected:
    law* deriv(int which) const override;
};

class arccsch_law : public unary_law {
    LAWUTIL_TYPE_DECL(arccsch_law, unary_law)
    LAWUTIL_UNARY_FUNCTION_MEMBERS(arccsch_law)
    int in_domain(const double* x) const override;

  protected:
    law* deriv(int which) const override;
};

// ---- abs and sqrt ----

class abs_law : public unary_law {
    LAWUTIL_TYPE_DECL(abs_law, unary_law)
    LAWUTIL_SINGULARITIES_DECL
    LAWUTIL_UNARY_FUNCTION_MEMBERS(abs_law)

  protected:
    law* deriv(int which) const override;
};

class sqrt_law : public unary_law {
    LAWUTIL_TYPE_DECL(sqrt_law, unary_law)
    LAWUTIL_UNARY_FUNCTION_MEMBERS(sqrt_law)
    law* sub_simplify(int level, const char*& what) const override;
    int in_domain(const double* x) const override;

  protected:
    law* deriv(int which) const override;
};

}  // namespace lawutil
