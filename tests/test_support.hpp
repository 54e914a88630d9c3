// Small helpers shared by the test files.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <utility>
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

// The law read from `text`; the test fails when it does not read.
inline law_holder parse(const std::string& text) {
    law_holder l(str_to_law(text.c_str()));
    if (!l) ADD_FAILURE() << "does not read: " << text;
    return l;
}

// Allocations ever made through the base allocator, under every tag.
inline long allocations_ever() {
    long n = 0;
    for (int i = 1; i <= vorx_mem_tag_count(); ++i) n += vorx_mem_tag(i).total_count;
    return n;
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

// The code of the error `f` raises, or 0 when it raises none.
template <class F>
int error_code_of(F f) {
    try {
        f();
    } catch (const vorx_exception& e) {
        return e.code();
    }
    return 0;
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
    const char* error = "";
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

// A law's text, which is also its own print, and its Maple spelling.
struct text_row {
    const char* text;
    const char* maple;
};

// Each row's law prints as its text in both spellings, and a deep copy is equal to it.
template <size_t N>
void check_text_rows(const text_row (&rows)[N]) {
    for (const text_row& r : rows) {
        law_holder l = parse(r.text);
        if (!l) continue;
        EXPECT_EQ(text_of(l), r.text);
        EXPECT_EQ(text_of(l, law_symbol_maple), r.maple);
        law_holder copy(l->deep_copy());
        EXPECT_TRUE(*copy == *l) << r.text;
    }
}

// Data objects that law texts number into (the first is NAME1, the second NAME2, ...),
// released with the set.
class data_set {
  public:
    explicit data_set(std::vector<law_data*> data) : data_(std::move(data)) {}
    ~data_set() {
        for (law_data* d : data_) d->remove();
    }
    data_set(const data_set&) = delete;
    data_set& operator=(const data_set&) = delete;
    law* read(const char* text) { return str_to_law(text, data_.data(), (int)data_.size()); }
    law_holder parse(const std::string& text) {
        law_holder l(read(text.c_str()));
        if (!l) ADD_FAILURE() << "does not read: " << text;
        return l;
    }
    law_data** get() { return data_.data(); }

  private:
    std::vector<law_data*> data_;
};

// `l` prints with its data and reads back to an equal law, and (tol > 0) its symbolic
// derivative in each input agrees with the numerical one at x, to tol relative to 1 + |value|.
inline void expect_reads_back_and_differentiates(const law* l, std::vector<double> x, double tol) {
    law_data** data = nullptr;
    int n = 0;
    char* printed = l->string_and_data(&data, &n);
    law_holder back(str_to_law(printed, data, n));
    EXPECT_TRUE(back && *back == *l) << printed;
    for (int i = 0; i < n; ++i) data[i]->remove();
    VORX_FREE(data);
    VORX_FREE(printed);
    x.resize(8, 0.0);
    for (int which = 0; tol > 0 && which < l->take_dim(); ++which) {
        law_holder d(l->derivative(which));
        std::vector<double> numeric(l->return_dim());
        Ndifferentiate(const_cast<law*>(l), x.data(), which, numeric.data(), 1);
        std::vector<double> symbolic = outputs_at(d.get(), x);
        ASSERT_EQ(symbolic.size(), numeric.size()) << text_of(d);
        for (size_t k = 0; k < numeric.size(); ++k)
            EXPECT_NEAR(symbolic[k], numeric[k], tol * (1 + std::fabs(numeric[k])))
                << text_of(l) << " in " << which << " output " << k;
    }
}
