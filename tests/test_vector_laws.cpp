// VEC, TERM and DOT: values, derivatives, the deliberate scalar rules of DOT, index
// truncation and its guard, construction from geometric values, both spellings and the
// part-count check on the parser's route.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "lawutil/law_vector.hpp"
#include "lawutil/lawutil.hpp"
#include "test_support.hpp"

namespace {

// ---------------------------------------------------------------- values

// clang-format off
const law_row value_rows[] = {
    {"VEC(X,2*X,3)", {1}, {1, 2, 3}, ""}, {"VEC(VEC(X,Y),X)", {1, 2}, {}, "LAW_EVALS"},
    // TERM counts from 1 and truncates index-1 toward zero.
    {"TERM(VEC(X,Y,Z),2)", {4, 5, 6}, {5}, ""}, {"TERM(VEC(X,Y,Z),2.9)", {4, 5, 6}, {5}, ""},
    {"TERM(VEC(X,Y,Z),0.5)", {4, 5, 6}, {4}, ""}, {"TERM(VEC(X,Y,Z),3)", {4, 5, 6}, {6}, ""},
    // Not checked when built; caught when evaluated instead of reading out of bounds.
    {"TERM(VEC(X,Y,Z),4)", {4, 5, 6}, {}, "LAW_DIM"},
    {"TERM(VEC(X,Y,Z),0)", {4, 5, 6}, {}, "LAW_DIM"},
    {"TERM(VEC(1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18,19,20),18)", {0}, {18}, ""},
    // DOT: the documented sum of two scalars and first-component products are deliberate.
    {"DOT(VEC(1,2,3),VEC(4,5,6))", {0}, {32}, ""}, {"DOT(VEC(1,2,3),VEC(4,5))", {0}, {14}, ""},
    {"DOT(2,3)", {0}, {5}, ""}, {"DOT(2,VEC(4,5,6))", {0}, {8}, ""},
    {"DOT(VEC(X,5,6),3)", {7}, {21}, ""}, {"DOT(VEC(1,1,1,1,1,1),VEC(1,2,3,4,5,X))", {6}, {21}, ""},
};
// clang-format on

TEST(VectorLaws, ValuesAndErrors) {
    check_law_rows(parse, value_rows, 0.0);
}

TEST(VectorLaws, TermOfANanIndexRaises) {
    law_holder v = parse("VEC(X,Y)");
    law_holder nan_index(VORX_NEW constant_law(std::numeric_limits<double>::quiet_NaN()));
    law* parts[2] = {v.get(), nan_index.get()};
    law_holder t(VORX_NEW term_law(parts, 2));
    EXPECT_EQ(error_of([&] { outputs_at(t.get(), {1, 2}); }), "LAW_DIM");
}

// ---------------------------------------------------------------- derivatives

TEST(VectorLaws, DerivativeOfVecIsVecOfDerivatives) {
    law_holder v = parse("VEC(X,2*X,3)");
    law_holder d(v->derivative(0));
    ASSERT_TRUE(d->isa(vector_law::id()));
    for (double x : {-3.0, 0.0, 1.0, 17.5})
        EXPECT_EQ(outputs_at(d.get(), {x}), (std::vector<double>{1, 2, 0}));
    law_holder dy(parse("VEC(X,X*Y)")->derivative(1));
    EXPECT_EQ(outputs_at(dy.get(), {4, 9}), (std::vector<double>{0, 4}));
}

struct slope_row {
    const char* text;
    double x;
    double want;
};

TEST(VectorLaws, DerivativesOfTermAndDot) {
    const slope_row rows[] = {
        {"TERM(VEC(X,X*X),2)", 3, 6},
        // A vector that is no VEC: the term of the composite's derivative, 4x^3.
        {"TERM((VEC(X,X*X))O(X*X),2)", 2, 32},
        {"DOT(VEC(X,X*X),VEC(1,X))", 2, 1 + 3 * 4.0},  // x + x^3
        {"DOT(X*X,VEC(X,1))", 2, 12},                  // scalar against the first component
        {"DOT(VEC(X,1),X*X)", 2, 12},
        {"DOT(X,X*X)", 2, 5},  // two scalars add, and so do their slopes
        {"DOT(VEC(1,2,3),VEC(X,X,X))", 5, 6},
    };
    for (const slope_row& r : rows) {
        law_holder l = parse(r.text);
        ASSERT_TRUE(l);
        law_holder d(l->derivative(0));
        EXPECT_DOUBLE_EQ(d->eval(r.x), r.want) << r.text << " -> " << text_of(d.get());
    }
}

// ---------------------------------------------------------------- construction

TEST(VectorLaws, BuiltFromGeometricValues) {
    law_holder p(VORX_NEW vector_law(position(1, 2, 3)));
    EXPECT_EQ(text_of(p.get()), "VEC(1,2,3)");
    EXPECT_EQ(p->take_dim(), 0);
    law_holder v(VORX_NEW vector_law(vector(-1, 0.5, 4)));
    EXPECT_EQ(text_of(v.get()), "VEC(-1,0.5,4)");
    law_holder u(VORX_NEW vector_law(unit_vector(0, 3, 4)));
    EXPECT_EQ(text_of(u.get()), "VEC(0,0.6,0.8)");
    law_holder uv(VORX_NEW vector_law(par_pos(7, 8)));
    EXPECT_EQ(text_of(uv.get()), "VEC(7,8)");
    EXPECT_EQ(uv->return_dim(), 2);

    law_holder t(VORX_NEW term_law(uv.get(), 2));
    EXPECT_EQ(text_of(t.get()), "TERM(VEC(7,8),2)");
    EXPECT_EQ(uv->ref_count(), 2);
}

TEST(VectorLaws, DotMakeOneChecksThePartCountBeforeBuilding) {
    law_holder a = parse("X"), b = parse("Y");
    law* three[3] = {a.get(), b.get(), a.get()};
    law_holder two = parse("DOT(X,Y)");
    const dot_law* proto = static_cast<const dot_law*>(two.get());
    EXPECT_EQ(error_of([&] { law_holder r(proto->make_one(three, 3)); }), "LAW_DOT_NUM");
    EXPECT_EQ(error_of([&] { law_holder r(proto->make_one(three, 1)); }), "LAW_DOT_NUM");
    EXPECT_EQ(a->ref_count(), 1);
    EXPECT_EQ(error_of([] { law_holder l(str_to_law("DOT(X,Y,Z)")); }), "LAW_DOT_NUM");
}

// ---------------------------------------------------------------- text

// clang-format off
const text_row text_rows[] = {
    {"VEC(X,Y,Z)", "[X,Y,Z]"},
    {"TERM(VEC(X,Y,Z),2)", "[X,Y,Z][2]"},
    {"TERM(X*Y,1)", "(X*Y)[1]"},
    {"DOT(VEC(X,1),VEC(2,Y))", "dotprod([X,1],[2,Y])"},
};
// clang-format on

TEST(VectorLaws, PrintsInBothSpellingsAndCopies) {
    check_text_rows(text_rows);
}

}  // namespace
