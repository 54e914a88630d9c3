// The blend-sweep laws against their defining properties: a conic passes through its
// ends and its shoulder, a cyclide's lines of curvature are circles, DCYCLIDE is the
// slope of CYCLIDE, CYCLIDEPERP's foot is where the point's normal meets the surface;
// and the errors of degenerate input (the registry walk checks the derivatives).
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "lawutil/lawutil.hpp"
#include "test_support.hpp"

namespace {

using vec = std::vector<double>;

vec sub(const vec& a, const vec& b) {
    return {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
}
double dot(const vec& a, const vec& b) {
    return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}
vec cross(const vec& a, const vec& b) {
    return {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
}

// A tilted frame and a ring cyclide (a = 3, c = 1, mu = 2) placed by it.
const std::string frame = "VEC(1,2,3),VEC(0,1,0.2),VEC(0.1,0,1)";
std::string cyclide(const std::string& u, const std::string& v) {
    return "CYCLIDE(" + frame + ",3,1,2," + u + "," + v + ")";
}

// clang-format off
const law_row value_rows[] = {
    // Ends and shoulder M + rho (A - M), M = (1,0.5,0), A = (0,2,0), rho = 0.3.
    {"CONICLINE(VEC(0,0,0),VEC(2,1,0),VEC(0,2,0),0.3,X)", {0}, {0, 0, 0}, ""},
    {"CONICLINE(VEC(0,0,0),VEC(2,1,0),VEC(0,2,0),0.3,X)", {1}, {2, 1, 0}, ""},
    {"CONICLINE(VEC(0,0,0),VEC(2,1,0),VEC(0,2,0),0.3,X)", {0.5}, {0.7, 0.95, 0}, ""},
    // The apex of tangents (0,1,0) at 0 and (-1,0,0) at (1,1,0) is (0,1,0).
    {"CONICTROUGH(VEC(0,0,0),VEC(0,2,0),VEC(1,1,0),VEC(-1,0,0),0.4,X)", {0.5}, {0.3, 0.7, 0}, ""},
    // Skew tangents: the apex is the midpoint of the closest points, (0,1,0.5).
    {"CONICTROUGH(VEC(0,0,0),VEC(0,1,0),VEC(1,1,1),VEC(1,0,0),0.5,X)", {0.5}, {0.25, 0.75, 0.5}, ""},
    // (u,v) = (0,0): x = a + c - mu = 2 along X'.
    {"CYCLIDE(VEC(1,2,3),VEC(0,1,0),VEC(0,0,1),3,1,2,0,X)", {0}, {1, 4, 3}, ""},
    {"DCYCLIDE(VEC(1,2,3),VEC(0,1,0),VEC(0,0,1),3,1,2,0,X,0,0)", {0}, {1, 4, 3}, ""},
    {"CONICLINE(VEC(0,0,0),VEC(2,1,0),VEC(0,2,0),1,X)", {0.5}, {}, "LAW_BAD_DOMAN"},
    {"CONICTROUGH(VEC(0,0,0),VEC(0,1,0),VEC(1,0,0),VEC(0,-2,0),0.5,X)", {0.5}, {}, "LAW_BAD_DOMAN"},
    {"CONICLINE(VEC(0,0),VEC(2,1,0),VEC(0,2,0),0.3,X)", {0.5}, {}, "LAW_DIM"},
    {"CYCLIDE(VEC(0,0,0),VEC(1,0,0),VEC(0,0,1),1,2,0.5,X,0)", {0.5}, {}, "LAW_BAD_DOMAN"},
    {"CYCLIDE(VEC(0,0,0),VEC(1,0,0),VEC(0,0,1),1,1,0.5,X,0)", {0}, {}, "LAW_BAD_DOMAN"},
    {"DCYCLIDE(VEC(0,0,0),VEC(1,0,0),VEC(0,0,1),1,2,0.5,X,0,1,0)", {0.5}, {}, "LAW_BAD_DOMAN"},
    {"CYCLIDEPERP(VEC(0,0,0),VEC(1,0,0),VEC(0,0,1),1,2,0.5,VEC(X,0,0))", {0.5}, {}, "LAW_BAD_DOMAN"},
    {"CYCLIDE(VEC(0,0,0),VEC(0,0,1),VEC(0,0,1),3,1,2,X,0)", {0.5}, {}, "LAW_BAD_UNIT_VECTOR"},
    {"DCYCLIDE(VEC(0,0,0),VEC(1,0,0),VEC(0,0,1),3,1,2,X,0,-1,0)", {0.5}, {}, "LAW_DIM"},
};
// clang-format on

TEST(VectorBlend, ValuesAndErrors) {
    check_law_rows(parse, value_rows, 1e-12);
    EXPECT_EQ(error_of([] { law_holder(str_to_law("CYCLIDE(1,2)")); }), "LAW_DIM");
}

// The end tangents of a conic point at the apex: C'(0) is along A - P0, C'(1) along P1 - A.
TEST(VectorBlend, ConicTangentsPointAtTheApex) {
    law_holder d(parse("CONICLINE(VEC(0,0,0),VEC(2,1,0),VEC(0,2,1),0.7,X)")->derivative(0));
    vec d0 = outputs_at(d.get(), {0.0}), d1 = outputs_at(d.get(), {1.0});
    vec n0 = cross(d0, {0, 2, 1}), n1 = cross(d1, sub({2, 1, 0}, {0, 2, 1}));
    EXPECT_NEAR(dot(n0, n0) + dot(n1, n1), 0.0, 1e-20);
    EXPECT_GT(dot(d0, {0, 2, 1}), 0.0);
}

// DCYCLIDE(...,I,J) is the slope of DCYCLIDE(...,I-1,J) in u (and likewise in v).
TEST(VectorBlend, DcyclideIsTheSlopeOfTheCyclide) {
    struct row {
        std::string u, v;
        int i, j, lower_i;  // compare with d/dX of order (lower_i, j - (lower_i == i))
    } rows[] = {{"X", "0.4", 1, 0, 0},
                {"0.4", "X", 0, 1, 0},
                {"X", "0.4", 2, 0, 1},
                {"0.7", "X", 1, 1, 1},
                {"0.7", "X", 0, 2, 0}};
    for (const row& r : rows) {
        int lower_j = r.lower_i == r.i ? r.j - 1 : r.j;
        auto text = [&](int i, int j) {
            return "DCYCLIDE(" + frame + ",3,1,2," + r.u + "," + r.v + "," + std::to_string(i) +
                   "," + std::to_string(j) + ")";
        };
        law_holder high = parse(text(r.i, r.j)), low = parse(text(r.lower_i, lower_j));
        for (double t : {-1.0, 0.5, 2.0}) {
            double x[1] = {t};
            vec numeric(3);
            Ndifferentiate(low.get(), x, 0, numeric.data(), 1);
            vec got = outputs_at(high.get(), {t});
            for (int k = 0; k < 3; ++k) EXPECT_NEAR(got[k], numeric[k], 1e-5) << text(r.i, r.j);
        }
    }
}

// Four points of one line of curvature are concyclic: coplanar, and the fourth is as far
// from the circumcentre of the first three as they are.
TEST(VectorBlend, LinesOfCurvatureAreCircles) {
    for (bool along_v : {false, true}) {
        for (double fixed : {0.3, 2.0}) {
            std::string c = std::to_string(fixed);
            law_holder l = parse(along_v ? cyclide(c, "X") : cyclide("X", c));
            vec p[4];
            const double ts[4] = {-2.0, -0.3, 0.9, 2.5};
            for (int k = 0; k < 4; ++k) p[k] = outputs_at(l.get(), {ts[k]});
            vec a = sub(p[1], p[0]), b = sub(p[2], p[0]), n = cross(a, b);
            EXPECT_NEAR(dot(n, sub(p[3], p[0])) / std::sqrt(dot(n, n)), 0.0, 1e-9);
            // Circumcentre of p0,p1,p2: p0 + (|a|^2 b x n + |b|^2 n x a) / (2 |n|^2).
            vec w1 = cross(b, n), w2 = cross(n, a);
            double s = 2.0 * dot(n, n);
            vec centre(3);
            for (int k = 0; k < 3; ++k)
                centre[k] = p[0][k] + (dot(a, a) * w1[k] + dot(b, b) * w2[k]) / s;
            vec r0 = sub(p[0], centre), r3 = sub(p[3], centre);
            EXPECT_NEAR(std::sqrt(dot(r3, r3)), std::sqrt(dot(r0, r0)), 1e-9) << along_v << fixed;
        }
    }
}

// A point off the surface along its normal at S(u,v) has S(u,v) for foot.
TEST(VectorBlend, CyclidePerpFindsTheFootAlongTheNormal) {
    for (double u : {0.4, 2.5, -1.2}) {
        std::string us = std::to_string(u), vs = std::to_string(0.8 - u);
        auto partial = [&](int i, int j) {
            return outputs_at(parse("DCYCLIDE(" + frame + ",3,1,2," + us + "," + vs + "," +
                                    std::to_string(i) + "," + std::to_string(j) + ")")
                                  .get(),
                              {0.0});
        };
        vec s = partial(0, 0), n = cross(partial(1, 0), partial(0, 1));
        double len = std::sqrt(dot(n, n));
        for (double off : {0.0, 0.3, -0.2}) {
            std::string p = "VEC(" + std::to_string(s[0] + off * n[0] / len) + "," +
                            std::to_string(s[1] + off * n[1] / len) + "," +
                            std::to_string(s[2] + off * n[2] / len) + ")";
            vec foot = outputs_at(parse("CYCLIDEPERP(" + frame + ",3,1,2," + p + ")").get(), {0.0});
            vec miss = sub(foot, s);
            EXPECT_LT(std::sqrt(dot(miss, miss)), 1e-5) << u << " " << off;
        }
    }
}

}  // namespace
