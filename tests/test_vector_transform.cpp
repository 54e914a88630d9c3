// TRANS, ROTATE, VECTRANS, POSTRANS, SCALETRANS and SURFNORM: one table of
// {text, point, closed form or error} over a transform that turns, scales and moves;
// print and read back with the data, equality by value, symbolic derivatives against
// numerical ones.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "geometry/analytic_geometry.hpp"
#include "lawutil/lawutil.hpp"
#include "test_support.hpp"

namespace {

const double PI = std::acos(-1.0);

// TRANS1: p -> 2 (p turned a quarter about z, x to y) + (1,2,3); TORUS2; TRANS3 singular;
// TRANS4 equal to TRANS1 in another object.
data_set transforms() {
    matrix quarter(vector(0, 1, 0), vector(-1, 0, 0), vector(0, 0, 1));
    transf t(quarter, 2.0, vector(1, 2, 3));
    transf flat(matrix(vector(1, 0, 0), vector(0, 1, 0), vector(0, 0, 0)), 1.0, vector());
    return data_set({VORX_NEW base_transform_law_data(&t), VORX_NEW torus_surface_data(2.0, 1.0),
                     VORX_NEW base_transform_law_data(&flat),
                     VORX_NEW base_transform_law_data(&t)});
}

// clang-format off
const law_row rows[] = {
    // (x,y,z) A = (-y,x,z)
    {"TRANS(VEC(X,0,0),TRANS1)", {1}, {1, 4, 3}, ""},
    {"TRANS(VEC(X,Y,Z),TRANS1)", {1, 2, 3}, {-3, 4, 9}, ""},
    {"ROTATE(VEC(X,Y,Z),TRANS1)", {1, 2, 3}, {-2, 1, 3}, ""},
    {"VECTRANS(VEC(X,Y,Z),TRANS1)", {1, 2, 3}, {-4, 2, 6}, ""},
    {"POSTRANS(VEC(X,4,9),TRANS1)", {-3}, {1, 2, 3}, ""},
    {"POSTRANS(TRANS(VEC(X,X*X,1),TRANS1),TRANS1)", {0.7}, {0.7, 0.49, 1}, ""},
    {"SCALETRANS(X*X,TRANS1)", {3}, {18}, ""},
    {"SCALETRANS(VEC(X,1),TRANS1)", {3}, {6, 2}, ""},
    // the torus's normal points into the tube
    {"SURFNORM(TORUS2)", {0, PI / 2}, {0, -1, 0}, ""},
    {"SURFNORM(TORUS2)", {PI / 2, 0.3}, {0, 0, -1}, ""},
    {"TRANS(VEC(X,0,0),TRANS3)", {1}, {}, "LAW_BAD_DOMAN"},
    {"POSTRANS(VEC(X,0,0),TRANS3)", {1}, {}, "LAW_BAD_DOMAN"},
    {"TRANS(X,TRANS1)", {1}, {}, "LAW_DIM"},
    {"ROTATE(TRANS1,VEC(X,0,0))", {1}, {}, "LAW_DATA_UNKNOWN"},
    {"VECTRANS(VEC(X,0,0))", {1}, {}, "LAW_VEC_NUM"},
    {"POSTRANS(VEC(X,0,0),TRANS1,TRANS1)", {1}, {}, "LAW_POS_NUM"},
    {"SCALETRANS(X)", {1}, {}, "LAW_SCALE_NUM"},
    {"SURFNORM(TRANS1)", {1}, {}, "LAW_DATA_UNKNOWN"},
};
// clang-format on

TEST(VectorTransform, ValuesAndErrors) {
    data_set set = transforms();
    check_law_rows([&](const char* text) { return set.read(text); }, rows, 1e-12);
}

// Every law of the table prints, reads back equal, has a Maple spelling, and its symbolic
// derivative in each input agrees with the numerical one (off the torus's axes).
TEST(VectorTransform, PrintsReadsBackAndDifferentiates) {
    data_set set = transforms();
    for (const law_row& r : rows) {
        if (*r.error) continue;
        law_holder l = set.parse(r.text);
        EXPECT_FALSE(text_of(l, law_symbol_maple).empty());
        std::vector<double> x = r.x;
        x[0] += 0.1;
        expect_reads_back_and_differentiates(l.get(), x, 1e-6);
    }
}

// Equal transforms in different objects make equal laws; different ones do not.
TEST(VectorTransform, EqualityComparesTransformsByValue) {
    data_set set = transforms();
    law_holder a(set.read("TRANS(VEC(X,0,0),TRANS1)"));
    law_holder b(set.read("TRANS(VEC(X,0,0),TRANS4)"));
    law_holder c(set.read("VECTRANS(VEC(X,0,0),TRANS1)"));
    EXPECT_TRUE(*a == *b);
    EXPECT_FALSE(*a == *c);
}

// trans(vec)=vec keeps the value and leaves no TRANS.
TEST(VectorTransform, TransOfAVectorSimplifies) {
    data_set set = transforms();
    law_holder l(set.read("TRANS(VEC(X,Y*Y,1),TRANS1)"));
    law_holder s(l->simplify());
    EXPECT_FALSE(s->isa(transform_law::id())) << text_of(s);
    std::vector<double> a = outputs_at(l.get(), {0.5, 2}), b = outputs_at(s.get(), {0.5, 2});
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(a[i], b[i], 1e-12);
}

}  // namespace
