// Writing a law as C++ source that rebuilds it by construction.
//
// lawcode(l) writes one function, headed by "// Automatic code for the law" and the law's
// text, that builds a law equal to `l` from the constructors of its classes (never by
// reading text) and returns it with one reference for the caller:
//
//     // Automatic code for the law X^2+SIN(X)
//     law* make_law() {
//         law_holder law1(VORX_NEW identity_law(0, 'X'));
//         law_holder law2(VORX_NEW constant_law(2));
//         law_holder law3(VORX_NEW exponent_law(law1.get(), law2.get()));
//         law_holder law4(VORX_NEW sin_law(law1.get()));
//         law_holder law5(VORX_NEW plus_law(law3.get(), law4.get()));
//         return law5.release();
//     }
//
// The text compiles where "lawutil/lawutil.hpp" and `<cmath>` are included.  A sub-law
// that the source shares (X above) is built once and passed to each parent, so the
// rebuilt law has the same sharing.  Each variable is a law_holder owning its creator's
// reference; every constructor takes its own reference on its arguments, so the holders
// release theirs when the function ends, also when a constructor raises halfway.
//
// A law holding client data (a unary_data_law or multiple_data_law: curves, surfaces,
// transforms the modeller supplies) cannot be written: the data is not a law and has no
// source form, so it raises LAW_DATA_SAVE.  A class that derives from law by another
// route than the argument-holding bases and the two leaves raises LAW_NO_SAVE.
#pragma once

#include <string>
#include <unordered_map>

#include "lawutil/law_base.hpp"

namespace lawutil {

// The code being written: the text so far and, for each law already written, the number
// of the variable that holds it.
class law_code {
  public:
    law_code() = default;
    law_code(const law_code&) = delete;
    law_code& operator=(const law_code&) = delete;

    // The statements written so far, one per line, indented by four spaces.
    const char* text() const { return text_.c_str(); }
    // Number of variables written (the last one is law<count>).
    int count() const { return count_; }

  private:
    using text_type =
        std::basic_string<char, std::char_traits<char>, vorx::vorx_std_allocator<char>>;
    friend int codeline(const law* l, law_code& code);
    friend int pastlawcode(const law* l, const law_code& code);
    text_type text_;
    int count_ = 0;
    std::unordered_map<const law*, int, std::hash<const law*>, std::equal_to<const law*>,
                       vorx::vorx_std_allocator<std::pair<const law* const, int>>>
        written_;
};

// The number of the variable (law<n>) that already holds `l` in `code`, or 0 when `l`
// has not been written yet.
int pastlawcode(const law* l, const law_code& code);

// Writes the statements that build `l` into `code`, its arguments first (each only once,
// through pastlawcode), and returns the number of the variable holding `l`.  A null `l`
// writes nothing and returns 0.  Raises LAW_DATA_SAVE or LAW_NO_SAVE as above.
int codeline(const law* l, law_code& code);

// The whole function `law* <function_name>()` that rebuilds `l` (see the top of this
// file).  The caller frees the text with vorx_discard.  A null `l` gives a function that
// returns null.
char* lawcode(const law* l, const char* function_name = "make_law");

// ---- baking a law's evaluation into plain C++ ----
//
// law_to_c_function(l, name, with_gradient) writes a function that computes the value of
// the scalar law `l` and, when `with_gradient` is set, its first partial derivatives in
// every input, as straight-line code over doubles that calls only `<cmath>`: a program can
// then evaluate the law with no library at run time.  Its form:
//
//     // Automatic code for the law <text>: value [and first derivatives]
//     inline int <name>(const double* x, double* value [, double* gradient])
//
// x holds l->take_dim() inputs; value[0] receives the value and gradient[i] the
// derivative in x[i].  Each distinct subexpression is computed once (shared sub-laws and
// equal expressions alike), constants are folded, whole powers become multiplications,
// and a sum that is a polynomial in one input becomes one Horner loop for the value and
// the derivative together.  Derivatives are carried forward through the same statements
// (forward mode), not written out as a separate tree.
//
// Domain errors: where the law's evaluate would raise, the function returns a non-zero
// status and leaves its outputs unspecified (a check that the bounds of its operand rule
// out, such as the one of SQRT(1+X^2), is left out); law_c_status_error(status) turns it back
// into the lawutil error code (LAW_LN, LAW_SQRT, LAW_EXPONENT).  One case differs from
// the tree: a quotient whose numerator and denominator are both below 1e-15, which the
// tree resolves by one L'Hospital step, returns the status of LAW_LHOSPITAL.  The
// function returns 0 when it computed its outputs.
//
// Supported: constants (named ones included), variables, + - * / ^, negation, SIN, COS,
// EXP, LN, SQRT, ABS, SINH, COSH, TANH.  Any other class raises LAW_NO_SAVE, a law with
// more than one output LAW_EVALS.  The caller frees the text with vorx_discard.
char* law_to_c_function(const law* l, const char* function_name, int with_gradient = 1);

// The lawutil error code of a non-zero status returned by a generated function, 0 for 0.
int law_c_status_error(int status);

}  // namespace lawutil
