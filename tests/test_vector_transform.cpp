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
class transform_set {
  public:
    transform_set() {
        matrix quarter(vector(0, 1, 0), vector(-1, 0, 0), vector(0, 0, 1));
        transf t(quarter, 2.0, vector(1, 2, 3));
        transf flat(matrix(vector(1, 0, 0), vector(0, 1, 0), vector(0, 0, 0)), 1.0, vector());
        data_[0] = VORX_NEW base_transform_law_data(&t);
        data_[1] = VORX_NEW torus_surface_data(2.0, 1.0);
        data_[2] = VORX_NEW base_transform_law_data(&flat);
        data_[3] = VORX_NEW base_transform_law_data(&t);
    }
    ~transform_set() {
        for (law_data* d : data_) d->remove();
    }
    transform_set(const transform_set&) = delete;
    transform_set& operator=(const transform_set&) = delete;
    law* parse(const char* text) { return str_to_law(text, data_, count); }
    law_data** get() { return data_; }
    static constexpr int count = 4;

  private:
    law_data* data_[count];
};

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
    transform_set set;
    check_law_rows([&](const char* text) { return set.parse(text); }, rows, 1e-12);
}

// Every law of the table prints, reads back equal, copies, has a Maple spelling,
// and its symbolic derivative in each input agrees with the numerical one.
TEST(VectorTransform, PrintsReadsBackAndDifferentiates) {
    transform_set set;
    for (const law_row& r : rows) {
        if (*r.error) continue;
        law_holder l(set.parse(r.text));
        law_data** data = nullptr;
        int n = 0;
        char* printed = l->string_and_data(&data, &n);
        std::string text = printed;
        law_holder back(str_to_law(printed, data, n));
        for (int i = 0; i < n; ++i) data[i]->remove();
        VORX_FREE(data);
        VORX_FREE(printed);
        ASSERT_TRUE(back) << text;
        EXPECT_TRUE(*back == *l) << text;
        // A copy has its own data: equal by value for the transforms, else in value.
        law_holder copy(l->deep_copy());
        EXPECT_TRUE(!l->isa(transform_data_law::id()) || *copy == *l) << text;
        EXPECT_EQ(outputs_at(copy.get(), r.x), outputs_at(l.get(), r.x)) << text;
        EXPECT_FALSE(text_of(l, law_symbol_maple).empty());
        std::vector<double> x = r.x;
        x.resize(8, 0.0);
        x[0] += 0.1;  // off the torus's axes of symmetry
        for (int which = 0; which < l->take_dim(); ++which) {
            law_holder d(l->derivative(which));
            std::vector<double> numeric(l->return_dim());
            Ndifferentiate(l.get(), x.data(), which, numeric.data(), 1);
            std::vector<double> symbolic = outputs_at(d.get(), x);
            ASSERT_EQ(symbolic.size(), numeric.size()) << text_of(d);
            for (size_t i = 0; i < numeric.size(); ++i)
                EXPECT_NEAR(symbolic[i], numeric[i], 1e-6) << text << " in " << which;
        }
    }
}

// Equal transforms in different objects make equal laws; different ones do not.
TEST(VectorTransform, EqualityComparesTransformsByValue) {
    transform_set set;
    law_holder a(set.parse("TRANS(VEC(X,0,0),TRANS1)"));
    law_holder b(set.parse("TRANS(VEC(X,0,0),TRANS4)"));
    law_holder c(set.parse("VECTRANS(VEC(X,0,0),TRANS1)"));
    EXPECT_TRUE(*a == *b);
    EXPECT_FALSE(*a == *c);
}

// trans(vec)=vec keeps the value and leaves no TRANS.
TEST(VectorTransform, TransOfAVectorSimplifies) {
    transform_set set;
    law_holder l(set.parse("TRANS(VEC(X,Y*Y,1),TRANS1)"));
    law_holder s(l->simplify());
    EXPECT_FALSE(s->isa(transform_law::id())) << text_of(s);
    std::vector<double> a = outputs_at(l.get(), {0.5, 2}), b = outputs_at(s.get(), {0.5, 2});
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(a[i], b[i], 1e-12);
}

}  // namespace
