// CROSS, NORM, SIZE and the frame laws: values against closed forms, the rewrite rules,
// frame properties and the errors of degenerate geometry (the registry walk checks their
// derivatives).
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "base/options.hpp"
#include "lawutil/lawutil.hpp"
#include "test_support.hpp"

namespace {

// ---------------------------------------------------------------- values and errors

const double r2 = std::sqrt(0.5);
const double PI = std::acos(-1.0);

// clang-format off
const law_row value_rows[] = {
    {"CROSS(VEC(1,0,0),VEC(0,1,0))", {0}, {0, 0, 1}, ""},
    {"CROSS(VEC(1,2,3),VEC(4,5,6))", {0}, {-3, 6, -3}, ""},
    {"CROSS(VEC(X,0,0),VEC(0,X,0))", {2}, {0, 0, 4}, ""},
    {"CROSS(VEC(1,2),VEC(3,4))", {0}, {}, "LAW_DIM"}, {"NORM(VEC(3,0,4))", {0}, {0.6, 0, 0.8}, ""},
    {"NORM(X-1)", {3}, {1}, ""}, {"NORM(VEC(X,X,0))", {0}, {}, "LAW_BAD_UNIT_VECTOR"},
    {"SIZE(VEC(3,X,4))", {12}, {13}, ""}, {"SIZE(X)", {-2}, {2}, ""},
    // helix (cos t, sin t, t): T = (-sin t, cos t, 1)/r2, N = -(cos t, sin t, 0),
    // B = (sin t, -cos t, 1)/r2
    {"FRENET(VEC(COS(X),SIN(X),X),1)", {0}, {0, r2, r2}, ""},
    {"FRENET(VEC(COS(X),SIN(X),X),2)", {0.5}, {-std::cos(0.5), -std::sin(0.5), 0}, ""},
    {"FRENET(VEC(COS(X),SIN(X),X),3)", {0.5}, {std::sin(0.5) * r2, -std::cos(0.5) * r2, r2}, ""},
    {"FRENET(VEC(COS(X),SIN(X),X),4)", {0.5}, {}, "LAW_DIM"},
    {"FRENET(VEC(1,2,3),1)", {0.5}, {}, "LAW_BAD_UNIT_VECTOR"},
    {"FRENET(VEC(X*X,X*X,0),1)", {0}, {}, "LAW_BAD_UNIT_VECTOR"},
    {"FRENET(VEC(X*X,X*X,X),1)", {0}, {0, 0, 1}, ""},
    {"FRENET(VEC(2*X,X+1,3*X),2)", {0.5}, {}, "LAW_BAD_UNIT_VECTOR"},
    {"FRENET(VEC(X,X^3,0),3)", {0}, {}, "LAW_BAD_UNIT_VECTOR"},
    {"TWISTPATH(VEC(1,0,0),VEC(0,0,X),PI/2)", {0.3}, {0, 1, 0}, ""},
    {"TWISTPATH(VEC(1,0,0),VEC(0,0,1),1)", {0.3}, {}, "LAW_BAD_UNIT_VECTOR"},
    {"MINROT(VEC(X,X,X),VEC(1,1,1),0,1)", {0.3}, {}, "LAW_BAD_UNIT_VECTOR"},
    {"MINROT(VEC(X,0,0),VEC(1,1,0),0,1)", {0.3}, {0, 1, 0}, ""},
    {"MINROT(VEC(X,0,0),VEC(1,1,0),0,1)", {1.5}, {}, "LAW_MR"},
    {"MINROT(VEC(X,0,0),VEC(1,1,0),1,0)", {0.5}, {}, "LAW_MR"},
    // bending about the z axis along x, radius 1: n = (0,1,0), centre line (0,1,s)
    {"BEND(VEC(PI/2,0,0),VEC(0,0,0),VEC(0,0,1),VEC(1,0,0),1)", {0}, {1, 1, 0}, ""},
    {"BEND(VEC(PI,0,5),VEC(0,0,0),VEC(0,0,1),VEC(1,0,0),1)", {0}, {0, 2, 5}, ""},
    {"BEND(VEC(0,0.5,X),VEC(0,0,0),VEC(0,0,1),VEC(1,0,0),1)", {3}, {0, 0.5, 3}, ""},
    {"BEND(VEC(PI/2,0,0),VEC(0,0,0),VEC(0,0,1),VEC(1,0,0),-1)", {0}, {1, -1, 0}, ""},
    {"BEND(VEC(X,0,0),VEC(0,0,0),VEC(0,0,1),VEC(0,0,2),1)", {0}, {}, "LAW_BEND_PARALLEL"},
    {"BEND(VEC(X,0,0),VEC(0,0,0),VEC(0,0,0),VEC(1,0,0),1)", {0}, {}, "LAW_BAD_UNIT_VECTOR"},
    {"BEND(VEC(X,0,0),VEC(0,0,0),VEC(0,0,1),VEC(1,0,0),0)", {0}, {}, "LAW_BAD_DOMAN"},
    {"UNBEND(VEC(1,1,0),VEC(0,0,0),VEC(0,0,1),VEC(1,0,0),1)", {0}, {PI / 2, 0, 0}, ""},
    {"UNBEND(VEC(0,1,X),VEC(0,0,0),VEC(0,0,1),VEC(1,0,0),1)", {2}, {}, "LAW_BAD_DOMAN"},
};
// clang-format on

TEST(VectorFrame, ValuesAndErrors) {
    check_law_rows(parse, value_rows, 1e-9);
}

// A frame that is defined nowhere has no derivative either (not a silent zero).
TEST(VectorFrame, DegenerateFramesHaveNoDerivative) {
    for (const char* text :
         {"FRENET(VEC(X,2*X,0),2)", "FRENET(VEC(X,2*X,0),3)", "NORM(VEC(0,0,0))"}) {
        law_holder l = parse(text);
        EXPECT_EQ(error_of([&] { law_holder d(l->derivative(0)); }), "LAW_DERIV") << text;
    }
}

TEST(VectorFrame, CrossPartCountIsChecked) {
    EXPECT_EQ(error_of([] { law_holder l(str_to_law("CROSS(VEC(1,0,0))")); }), "LAW_CROSS_NUM");
    EXPECT_EQ(error_of([] { law_holder l(str_to_law("MINROT(VEC(X,0,0),1,2)")); }), "LAW_MR_NUM");
    EXPECT_EQ(error_of([] { law_holder l(str_to_law("TWISTPATH(X,X)")); }), "LAW_TWIST_NUM");
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
        {"SIZE(VEC(1,2,2))", "3"},
        {"NORM(VEC(0,3,4))", "VEC(0,0.6,0.8)"},
        {"NORM(VEC(0,0,0))", "NORM(VEC(0,0,0))"},
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
    EXPECT_EQ(outputs_at(s.get(), {1.5}), outputs_at(l.get(), {1.5}));
}

// ---------------------------------------------------------------- frame properties

double dot3(const std::vector<double>& a, const std::vector<double>& b) {
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

TEST(VectorFrame, FrenetFrameIsOrthonormal) {
    const char* curve = "VEC(COS(X),2*SIN(X),X*X)";
    std::vector<law_holder> frame;
    for (int i = 1; i <= 3; ++i)
        frame.push_back(
            parse(("FRENET(" + std::string(curve) + "," + std::to_string(i) + ")").c_str()));
    for (double t : {0.1, 0.7, 2.0}) {
        std::vector<double> v[3];
        for (int i = 0; i < 3; ++i) v[i] = outputs_at(frame[i].get(), {t});
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j) EXPECT_NEAR(dot3(v[i], v[j]), i == j ? 1.0 : 0.0, 1e-12);
    }
}

// On the helix (cos t, sin t, t) the rotation-minimising normal from N(0) is
// cos(q) N + sin(q) B with q = -t/sqrt(2) (it turns against the torsion).  "fast_euler"
// picks the step of MINROT: double reflection (on) or the rotation method (off).
TEST(VectorFrame, MinRotMatchesTheHelixClosedFormInBothSettings) {
    struct row {
        int fast_euler, samples;
        double tolerance;
    } rows[] = {{1, 100, 1e-7}, {0, 100, 1e-3}, {1, 1000, 1e-11}, {0, 1000, 1e-5}};
    for (const row& r : rows) {
        option_guard euler("fast_euler", r.fast_euler);
        option_guard samples("min_rot_samples", r.samples);
        law_holder l = parse("MINROT(VEC(COS(X),SIN(X),X),VEC(-1,0,0),0,2*PI)");
        double worst = 0.0;
        for (double t : {0.0, 1.0, 3.3, 6.2}) {
            double q = -t * r2, c = std::cos(q), s = std::sin(q);
            std::vector<double> n = {-std::cos(t), -std::sin(t), 0};
            std::vector<double> b = {std::sin(t) * r2, -std::cos(t) * r2, r2};
            std::vector<double> got = outputs_at(l.get(), {t});
            for (int i = 0; i < 3; ++i)
                worst = std::fmax(worst, std::fabs(got[i] - (c * n[i] + s * b[i])));
        }
        EXPECT_LT(worst, r.tolerance) << "fast_euler " << r.fast_euler << ", " << r.samples;
        EXPECT_EQ(static_cast<const min_rotation_law*>(l.get())->samples(), r.samples);
        SizeAccumulator acc;
        l->full_size(acc);
        EXPECT_GT(acc.size(), sizeof(double) * 9 * r.samples);
    }
}

// r stays unit and normal to the tangent, and turns only along the tangent: the part of
// the numerical r' across the tangent is 0.
TEST(VectorFrame, MinRotIsRotationMinimising) {
    const char* curve = "VEC(COS(X),SIN(X),0.5*SIN(2*X))";
    law_holder l = parse(("MINROT(" + std::string(curve) + ",VEC(0,0,1),0,2*PI)").c_str());
    law_holder tangent = parse(("FRENET(" + std::string(curve) + ",1)").c_str());
    for (double t : {0.4, 2.9, 5.1}) {
        std::vector<double> r = outputs_at(l.get(), {t}), tg = outputs_at(tangent.get(), {t});
        double x[1] = {t}, d[3];
        Ndifferentiate(l.get(), x, 0, d, 1);
        std::vector<double> dr(d, d + 3);
        EXPECT_NEAR(dot3(r, r), 1.0, 1e-12);
        EXPECT_NEAR(dot3(r, tg), 0.0, 1e-12);
        double along = dot3(dr, tg);
        for (int i = 0; i < 3; ++i) EXPECT_NEAR(dr[i] - along * tg[i], 0.0, 1e-7) << t;
    }
}

// The twist over a closed curve: none on a plane circle; on a trefoil knot, the same in
// both settings, and TWISTPATH with the reported angle spread linearly closes the frame.
TEST(VectorFrame, MinRotReportsTheClosingTwist) {
    law_holder circle = parse("MINROT(VEC(COS(X),SIN(X),0),VEC(1,0,0),0,2*PI)");
    EXPECT_NEAR(static_cast<const min_rotation_law*>(circle.get())->closing_twist(), 0.0, 1e-12);

    const std::string curve = "VEC(SIN(X)+2*SIN(2*X),COS(X)-2*COS(2*X),-SIN(3*X))";  // trefoil
    const std::string minrot = "MINROT(" + curve + ",VEC(0,0,1),0,2*PI)";
    double twist[2];
    for (int fast : {0, 1}) {
        option_guard euler("fast_euler", fast);
        law_holder l = parse(minrot.c_str());
        twist[fast] = static_cast<const min_rotation_law*>(l.get())->closing_twist();
    }
    EXPECT_GT(std::fabs(twist[1]), 0.1);
    EXPECT_NEAR(twist[0], twist[1], 1e-4);
    char angle[64];
    std::snprintf(angle, sizeof angle, "%.17g*X/(2*PI)", -twist[1]);
    law_holder closed = parse(("TWISTPATH(" + minrot + "," + curve + "," + angle + ")").c_str());
    std::vector<double> start = outputs_at(closed.get(), {0.0}),
                        end = outputs_at(closed.get(), {2 * M_PI});
    for (int i = 0; i < 3; ++i) EXPECT_NEAR(start[i], end[i], 1e-9);
}

// ---------------------------------------------------------------- bending

// UNBEND(BEND(P)) = P on the slab where bending is one to one (points given by their
// (u, v, w) in the bending frame), for either sign of R and a bending direction not yet
// across the axis; BEND(UNBEND(Q)) = Q anywhere off the axis.
TEST(VectorFrame, UnbendUndoesBend) {
    const vector o(0.3, -1, 2), a_in(0.2, 0.1, 1), d_in(1, 0.5, 0.3);
    unit_vector a = normalise(a_in);
    unit_vector d = normalise(d_in - (d_in % a) * a);
    vector n = a * d;
    const double uvw[][3] = {{0.3, 0.2, 1}, {-2.0, 0.5, -3}, {1.5, -0.5, 0.2}};
    for (const char* radius : {"1.7", "-0.8"}) {
        std::string f = "VEC(0.3,-1,2),VEC(0.2,0.1,1),VEC(1,0.5,0.3)," + std::string(radius);
        law_holder there_and_back = parse(("UNBEND(BEND(VEC(X,Y,Z)," + f + ")," + f + ")").c_str());
        law_holder back_and_there = parse(("BEND(UNBEND(VEC(X,Y,Z)," + f + ")," + f + ")").c_str());
        for (const auto& c : uvw) {
            vector p =
                o + c[0] * vector(d[0], d[1], d[2]) + c[1] * n + c[2] * vector(a[0], a[1], a[2]);
            double x[3] = {p.x(), p.y(), p.z()}, y[3], z[3];
            there_and_back->evaluate(x, y);
            back_and_there->evaluate(x, z);
            for (int i = 0; i < 3; ++i) {
                EXPECT_NEAR(y[i], x[i], 1e-12) << radius;
                EXPECT_NEAR(z[i], x[i], 1e-12) << radius;
            }
        }
    }
}

}  // namespace
