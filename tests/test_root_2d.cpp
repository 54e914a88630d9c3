// Zeros in the plane: a battery of systems with known zeros, searched by both forms of
// Nroot2D, and the set, rectangle and bad-input rules.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "test_support.hpp"

namespace {

// Counts the evaluations of the law it wraps.
class counted_law : public law {
  public:
    explicit counted_law(law* sub) : sub_(sub) { sub_->add(); }
    ~counted_law() override { sub_->remove(); }
    void evaluate(const double* x, double* y) const override {
        ++calls;
        *y = sub_->evaluateM_R(x);
    }
    mutable long calls = 0;

  protected:
    int take_size() const override { return sub_->take_dim(); }

  private:
    law* sub_;
};

struct system_case {
    const char* name;
    const char* magnitude;  // SQRT(F1^2+F2^2)
    double lipschitz;       // bound of |J| over the rectangle: the reach law is magnitude / it
    double x0, y0, x1, y1;
    std::vector<complex_number> zeros;
    int unpruned_found;  // zeros found by the quadtree without a reach law (depth 4)
};

const double r2 = std::sqrt(0.5), e = std::sqrt(0.8), t = std::sqrt(1 - 0.9999 * 0.9999);

const system_case battery[] = {
    {"circle_line", "SQRT((X^2+Y^2-1)^2+(X-Y)^2)", 6, -2, -2, 2, 2, {{r2, r2}, {-r2, -r2}}, 2},
    {"two_ellipses",
     "SQRT((X^2/4+Y^2-1)^2+(X^2+Y^2/4-1)^2)",
     5,
     -2,
     -2,
     2,
     2,
     {{e, e}, {-e, e}, {e, -e}, {-e, -e}},
     4},
    {"sin_grid",
     "SQRT(SIN(PI*X)^2+SIN(PI*Y)^2)",
     4.5,
     -0.4,
     -0.4,
     2.4,
     1.4,
     {{0, 0}, {1, 0}, {2, 0}, {0, 1}, {1, 1}, {2, 1}},
     6},
    {"sin_cos",
     "SQRT((SIN(X)-COS(Y))^2+(X-Y)^2)",
     2.5,
     -3,
     -3,
     3,
     3,
     {{M_PI / 4, M_PI / 4}, {-3 * M_PI / 4, -3 * M_PI / 4}},
     2},
    {"rosenbrock", "SQRT((10*(Y-X^2))^2+(1-X)^2)", 45, -2, -1, 2, 3, {{1, 1}}, 1},
    {"linear", "SQRT((X+2*Y-1)^2+(3*X-Y-2)^2)", 3.7, -1, -1, 1, 1, {{5.0 / 7, 1.0 / 7}}, 1},
    {"near_tangent",
     "SQRT((X^2+Y^2-1)^2+(Y-0.9999)^2)",
     3,
     -1.5,
     -1.5,
     1.5,
     1.5,
     {{t, 0.9999}, {-t, 0.9999}},
     2},
    // 0.02 apart: closer than the cells of the unpruned tree.
    {"close_pair", "SQRT((X^2-1E-4)^2+Y^2)", 2, -1, -1, 1, 1, {{0.01, 0}, {-0.01, 0}}, 1},
    {"no_zero", "SQRT((X^2+Y^2-1)^2+(X^2+Y^2-4)^2)", 20, -3, -3, 3, 3, {}, 0},
};

struct tally {
    int found = 0, missed = 0, spurious = 0;
};

tally score(const system_case& c, const complex_number* z, int n) {
    tally t;
    std::vector<int> hits(c.zeros.size(), 0);
    for (int i = 0; i < n; ++i) {
        bool known = false;
        for (size_t k = 0; k < c.zeros.size(); ++k)
            if ((z[i] - c.zeros[k]).abs() < 1e-6) {
                ++hits[k];
                known = true;
            }
        if (!known) ++t.spurious;
    }
    for (int h : hits) (h == 1 ? t.found : t.missed) += 1;
    return t;
}

}  // namespace

// Every zero once, none spurious, from a grid of 81 start points, from the quadtree
// pruned by the reach law, and from the unpruned quadtree.
TEST(Root2D, Battery) {
    for (const system_case& c : battery) {
        law_holder m(str_to_law(c.magnitude));
        law_holder f(VORX_NEW counted_law(m.get()));
        law_holder l(VORX_NEW constant_law(c.lipschitz));
        law_holder g(VORX_NEW division_law(m.get(), l.get()));
        rec2d R(c.x0, c.y0, c.x1, c.y1);
        auto* cf = static_cast<counted_law*>(f.get());
        for (int form = 0; form < 3; ++form) {
            cf->calls = 0;
            int n = -1;
            complex_number* z = nullptr;
            if (form == 0) {
                std::vector<complex_number> starts;
                for (int i = 0; i <= 8; ++i)
                    for (int j = 0; j <= 8; ++j)
                        starts.push_back(complex_number(c.x0 + (c.x1 - c.x0) * i / 8,
                                                        c.y0 + (c.y1 - c.y0) * j / 8));
                z = Nroot2D(f.get(), nullptr, R, &n, starts.data(), (int)starts.size(), nullptr);
            } else {
                z = Nroot2D(f.get(), form == 1 ? g.get() : nullptr, nullptr, R, &n, nullptr, 0);
            }
            tally t = score(c, z, n);
            VORX_FREE(z);
            SCOPED_TRACE(std::string(c.name) + " form " + std::to_string(form));
            EXPECT_EQ(t.found, form == 2 ? c.unpruned_found : (int)c.zeros.size());
            EXPECT_EQ(t.spurious, 0);
            // Each search is bounded: cells (or starts) times the bound plus one iteration.
            EXPECT_LE(cf->calls, 21845L * (law_context().root.root_max_evaluations + 6));
        }
    }
}

TEST(Root2D, StartPointRules) {
    law_holder f(str_to_law("SQRT((X^2+Y^2-1)^2+(X-Y)^2)"));
    law_holder line(str_to_law("SQRT((X-1)^2+Y^2)"));
    law_holder stop(str_to_law("(X^2+Y^2-1)^2+(X-Y)^2"));
    struct {
        law* f;
        rec2d R;
        complex_number start;
        law* stop;
        int n;
    } rows[] = {
        {f.get(), rec2d(0, 0, 1, 1), {0.9, 0.2}, nullptr, 1},
        {f.get(), rec2d(1, 1, 0, 0), {0.9, 0.2}, nullptr, 1},  // corners in either order
        // The search leaves R for the zero at (r2, r2): no zero.
        {f.get(), rec2d(0, 0, 0.5, 0.5), {0.45, 0.45}, nullptr, 0},
        // A zero on the edge (here the corner) of R is accepted.
        {line.get(), rec2d(complex_number(0, 0), complex_number(1, 1)), {1, 0}, nullptr, 1},
        // A stop law decides what a zero is.
        {f.get(), rec2d(0, 0, 1, 1), {0.9, 0.2}, stop.get(), 1},
        {f.get(), rec2d(), {0.9, 0.2}, nullptr, 0},  // the empty rectangle holds nothing
    };
    for (auto& r : rows) {
        int n = -1;
        complex_number* z = Nroot2D(r.f, nullptr, r.R, &n, &r.start, 1, r.stop);
        EXPECT_EQ(n, r.n);
        for (int i = 0; i < n; ++i) EXPECT_LT((r.stop ? r.stop : r.f)->evaluateC_R(z[i]), 1e-7);
        VORX_FREE(z);
    }
    int n = -1;
    complex_number* none = Nroot2D(f.get(), nullptr, rec2d(0, 0, 1, 1), &n, nullptr, 0, nullptr);
    EXPECT_EQ(n, 0);
    EXPECT_NE(none, nullptr);
    VORX_FREE(none);
}

TEST(Root2D, SetMergesNearPointsWithoutHump) {
    law_holder f(str_to_law("SQRT((X^2-1E-4)^2+Y^2)"));  // zeros at (+-0.01, 0)
    Root_2D_set set;
    EXPECT_EQ(set.add(f.get(), {0.01, 0}, 1e-9, 1e-14), 1);
    EXPECT_EQ(set.add(f.get(), {0.01 + 5e-7, 0}, 1e-11, 1e-14), 0);  // within resabs: kept better
    EXPECT_EQ(set.head()->value, 1e-11);
    EXPECT_EQ(set.add(f.get(), {0.01, 5e-5}, 1e-9, 1e-14), 1);  // f rises between them
    EXPECT_EQ(set.add(f.get(), {-0.01, 0}, 0, 0), 1);
    EXPECT_EQ(set.size(), 3);
}

TEST(Root2D, RectangleAndQuadTree) {
    rec2d R(complex_number(2, 3), complex_number(-2, 0));
    EXPECT_EQ(R.down_left(), complex_number(-2, 0));
    EXPECT_EQ(R.up_right(), complex_number(2, 3));
    EXPECT_EQ(R.center(), complex_number(0, 1.5));
    EXPECT_EQ(R.diagonal(), 5);
    EXPECT_TRUE(R.inside(R.up_left()) && R.inside(R.down_right()));
    EXPECT_FALSE(R.inside({2.0000001, 1}));
    EXPECT_TRUE(rec2d().empty() && !rec2d().inside({0, 0}) && rec2d().diagonal() == 0);

    // Unpruned, the tree is complete to depth 4; the reach law prunes most of depth 7.
    law_holder f(str_to_law("SQRT((X^2+Y^2-1)^2+(X-Y)^2)"));
    law_holder g(str_to_law("SQRT((X^2+Y^2-1)^2+(X-Y)^2)/6"));
    int full = 0;
    for (law* reach : {(law*)nullptr, g.get()}) {
        Root_2D_set set;
        Quad_tree root(rec2d(-2, -2, 2, 2));
        root.fill(f.get(), nullptr);
        EXPECT_EQ(root.state(), Quad_tree::found);  // the centre descends to a zero
        EXPECT_EQ(root.mins(f.get(), &set), 1);
        root.divide(f.get(), nullptr, reach, &set);
        if (!reach) full = root.count();
        EXPECT_GE(set.size(), 2);
        EXPECT_LT(root.count(), reach ? 21845 / 8 : 342);
    }
    EXPECT_EQ(full, 1 + 4 + 16 + 64 + 256);

    // A reach law that puts every zero out of reach leaves the start points alone.
    law_holder far(VORX_NEW constant_law(1e9));
    complex_number start(0.9, 0.2);
    int n = -1;
    complex_number* z = Nroot2D(f.get(), far.get(), nullptr, rec2d(-2, -2, 2, 2), &n, &start, 1);
    ASSERT_EQ(n, 1);
    EXPECT_LT((z[0] - complex_number(std::sqrt(0.5), std::sqrt(0.5))).abs(), 1e-6);
    VORX_FREE(z);
}

TEST(Root2D, BadInputAndDomainErrors) {
    law_holder f(str_to_law("SQRT((X^2+Y^2-1)^2+(X-Y)^2)"));
    law_holder three(str_to_law("X+Y+Z")), vec(str_to_law("VEC(X,Y)"));
    law_holder ln(str_to_law("SQRT(LN(X)^2+Y^2)")), right(str_to_law("X"));
    complex_number o(0.5, 0.5), bad(NAN, 0);
    rec2d R(-2, -2, 2, 2);
    auto quad = [&](law* m, law* g, law* adm, rec2d r) {
        return [=] {
            int n;
            VORX_FREE(Nroot2D(m, g, adm, r, &n, nullptr, 0));
        };
    };
    auto starts = [&](law* m, law* stop, rec2d r, complex_number s) {
        return [=]() mutable {
            int n;
            VORX_FREE(Nroot2D(m, nullptr, r, &n, &s, 1, stop));
        };
    };
    struct {
        std::function<void()> call;
        const char* code;
    } rows[] = {
        {quad(nullptr, nullptr, nullptr, R), "LAW_DIM"},
        {quad(three.get(), nullptr, nullptr, R), "LAW_DIM"},
        {quad(f.get(), vec.get(), nullptr, R), "LAW_DIM"},
        {quad(f.get(), nullptr, three.get(), R), "LAW_DIM"},
        {starts(f.get(), vec.get(), R, o), "LAW_DIM"},
        {quad(f.get(), nullptr, nullptr, rec2d(0, 0, INFINITY, 1)), "LAW_BAD_BOUNDS"},
        {starts(f.get(), nullptr, rec2d(NAN, 0, 1, 1), o), "LAW_BAD_BOUNDS"},
        {starts(f.get(), nullptr, R, bad), "LAW_BAD_BOUNDS"},
        {quad(f.get(), nullptr, nullptr, rec2d()), ""},
        // LN raises left of the Y axis; an admissible X > 0 keeps every search out.
        {quad(ln.get(), nullptr, nullptr, R), "LAW_LN"},
        {quad(ln.get(), nullptr, right.get(), R), ""},
    };
    for (auto& r : rows) {
        law_context().root.root_f_tol = 1e-3;
        EXPECT_EQ(error_of(r.call), r.code);
    }
    // The quadtree form restored the defaults before it raised.
    EXPECT_EQ(law_context().root.root_f_tol, 1e-7);
    set_root_tol_default();
}
