// CROSS, NORM, SIZE and the frame laws: values against closed forms, the rewrite rules,
// symbolic derivatives of vector-valued laws against numerical ones (the registry walk
// checks scalar laws only), frame properties and the errors of degenerate geometry.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "base/options.hpp"
#include "lawutil/lawutil.hpp"
#include "test_support.hpp"

namespace {

law_holder parse(const char* text) {
    law_holder l(str_to_law(text));
    if (!l) ADD_FAILURE() << "does not read: " << text;
    return l;
}

std::vector<double> values_at(const law* l, double t) {
    double x[4] = {t, 0.0, 0.0, 0.0};
    std::vector<double> y(l->return_dim());
    l->evaluate(x, y.data());
    return y;
}

// ---------------------------------------------------------------- values and errors

struct value_row {
    const char* text;
    double t;
    std::vector<double> expect;  // empty when an error is expected
    const char* error;
};

void PrintTo(const value_row& r, std::ostream* os) {
    *os << r.text << " at " << r.t;
}

class FrameValues : public testing::TestWithParam<value_row> {};

TEST_P(FrameValues, GivesTheValueOrTheError) {
    const value_row& r = GetParam();
    law_holder l = parse(r.text);
    ASSERT_TRUE(l);
    std::vector<double> got;
    EXPECT_EQ(error_of([&] { got = values_at(l.get(), r.t); }), r.error);
    if (*r.error) return;
    ASSERT_EQ(got.size(), r.expect.size());
    for (size_t i = 0; i < got.size(); ++i) EXPECT_NEAR(got[i], r.expect[i], 1e-9) << i;
}

// clang-format off
const value_row value_rows[] = {
    {"CROSS(VEC(1,0,0),VEC(0,1,0))", 0, {0, 0, 1}, ""},
    {"CROSS(VEC(1,2,3),VEC(4,5,6))", 0, {-3, 6, -3}, ""},
    {"CROSS(VEC(X,0,0),VEC(0,X,0))", 2, {0, 0, 4}, ""},
    {"CROSS(VEC(1,2),VEC(3,4))", 0, {}, "LAW_DIM"},
    {"NORM(VEC(3,0,4))", 0, {0.6, 0, 0.8}, ""},
    {"NORM(X-1)", 3, {1}, ""},
    {"NORM(VEC(X,X,0))", 0, {}, "LAW_BAD_UNIT_VECTOR"},
    {"SIZE(VEC(3,X,4))", 12, {13}, ""},
    {"SIZE(X)", -2, {2}, ""},
};
// clang-format on

INSTANTIATE_TEST_SUITE_P(Vector, FrameValues, testing::ValuesIn(value_rows));

TEST(VectorFrame, CrossPartCountIsChecked) {
    EXPECT_EQ(error_of([] { law_holder l(str_to_law("CROSS(VEC(1,0,0))")); }), "LAW_CROSS_NUM");
}

// ---------------------------------------------------------------- rewrites

struct rewrite_row {
    const char* text;
    const char* simplified;
};

TEST(VectorFrame, RewritesFire) {
    const rewrite_row rows[] = {
        {"SIZE(NORM(VEC(X,1,2)))", "1"},
        {"CROSS(VEC(X,1,2),VEC(X,1,2))", "VEC(0,0,0)"},
        {"CROSS(VEC(0,0,0),VEC(X,1,2))", "VEC(0,0,0)"},
        {"NORM(NORM(VEC(X,1,2)))", "NORM(VEC(X,1,2))"},
    };
    for (const rewrite_row& r : rows) {
        law_holder l = parse(r.text);
        law_holder s(l->simplify());
        EXPECT_EQ(text_of(s), r.simplified) << r.text;
    }
    // cross(vec,vec) keeps the value
    law_holder l = parse("CROSS(VEC(X,2,3),VEC(4,X,6))");
    law_holder s(l->simplify());
    EXPECT_FALSE(s->isa(cross_law::id()));
    EXPECT_EQ(values_at(s.get(), 1.5), values_at(l.get(), 1.5));
}

// ---------------------------------------------------------------- derivatives

// Symbolic against numerical derivative, component by component, of vector laws.
TEST(VectorFrame, DerivativesMatchNumericalOnes) {
    const char* texts[] = {
        "CROSS(VEC(X,1,X*X),VEC(2,SIN(X),1))",
        "NORM(VEC(COS(X),X,X*X+1))",
        "SIZE(VEC(X,1,X*X))",
        "CROSS(VEC(1,2,3),VEC(X,1,1))",
    };
    for (const char* text : texts) {
        law_holder l = parse(text);
        law_holder d(l->derivative(0));
        ASSERT_EQ(d->return_dim(), l->return_dim()) << text_of(d);
        for (double t : {0.3, 0.9}) {
            double x[1] = {t};
            std::vector<double> numeric(l->return_dim());
            Ndifferentiate(l.get(), x, 0, numeric.data(), 1);
            std::vector<double> symbolic = values_at(d.get(), t);
            for (size_t i = 0; i < numeric.size(); ++i)
                EXPECT_NEAR(symbolic[i], numeric[i], 1e-6) << text << " d = " << text_of(d);
        }
    }
}

}  // namespace
