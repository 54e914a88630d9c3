// Small helpers shared by the test files.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "lawutil/global_names.hpp"
#include "lawutil/lawutil.hpp"

// The law's text in the given spelling.
inline std::string text_of(const law* l, law_symbol_type type = law_symbol_default) {
    char* s = l->string(type);
    std::string r = s;
    VORX_FREE(s);
    return r;
}

inline std::string text_of(const law_holder& l, law_symbol_type type = law_symbol_default) {
    return text_of(l.get(), type);
}

// The code name of the error `f` raises, or "" when it raises none.
template <class F>
std::string error_of(F f) {
    try {
        f();
    } catch (const vorx_exception& e) {
        return e.code_name();
    }
    return "";
}

// A law that counts its evaluations and otherwise evaluates the law it holds.
class counted_law : public law {
  public:
    explicit counted_law(const char* text) : sub_(str_to_law(text)) {}
    void evaluate(const double* x, double* y) const override {
        ++calls;
        *y = sub_->evaluateM_R(x);
    }
    mutable long calls = 0;

  protected:
    int take_size() const override { return sub_->take_dim(); }

  private:
    law_holder sub_;
};

// The law's outputs at x (padded with zeros to eight inputs).
inline std::vector<double> outputs_at(const law* l, std::vector<double> x) {
    x.resize(8, 0.0);
    std::vector<double> y(l->return_dim());
    l->evaluate(x.data(), y.data());
    return y;
}

// A row of a table of values and errors: the law's text, a point, the outputs there
// (empty when the error named is expected, else "").
struct law_row {
    const char* text;
    std::vector<double> x;
    std::vector<double> expect;
    const char* error;
};

// Each row's law, read by parse(text), gives its outputs within tol or raises its error
// (in reading or evaluating); a deep copy evaluates alike.
template <class Parse, size_t N>
void check_law_rows(Parse parse, const law_row (&rows)[N], double tol) {
    for (const law_row& r : rows) {
        std::vector<double> got, copied;
        EXPECT_EQ(error_of([&] {
                      law_holder l(parse(r.text));
                      ASSERT_TRUE(l) << r.text;
                      got = outputs_at(l.get(), r.x);
                      law_holder copy(l->deep_copy());
                      copied = outputs_at(copy.get(), r.x);
                  }),
                  r.error)
            << r.text;
        if (*r.error) continue;
        EXPECT_EQ(copied, got) << r.text;
        ASSERT_EQ(got.size(), r.expect.size()) << r.text;
        for (size_t i = 0; i < got.size(); ++i) EXPECT_NEAR(got[i], r.expect[i], tol) << r.text;
    }
}
