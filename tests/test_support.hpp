// Small helpers shared by the test files.
#pragma once

#include <string>
#include <vector>

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
