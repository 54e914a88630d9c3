// Zeros in the plane: a battery of systems with known zeros, searched by both forms of
// Nroot2D, and the set, rectangle and bad-input rules.
#include <gtest/gtest.h>

#include <cmath>
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
    double lipschitz;       // bound of |J| over the rectangle
    double x0, y0, x1, y1;
    std::vector<complex_number> zeros;
};

const double r2 = std::sqrt(0.5), e = std::sqrt(0.8);

const system_case battery[] = {
    {"circle_line", "SQRT((X^2+Y^2-1)^2+(X-Y)^2)", 6, -2, -2, 2, 2, {{r2, r2}, {-r2, -r2}}},
    {"two_ellipses",
     "SQRT((X^2/4+Y^2-1)^2+(X^2+Y^2/4-1)^2)",
     5,
     -2,
     -2,
     2,
     2,
     {{e, e}, {-e, e}, {e, -e}, {-e, -e}}},
    {"sin_grid",
     "SQRT(SIN(PI*X)^2+SIN(PI*Y)^2)",
     4.5,
     -0.4,
     -0.4,
     2.4,
     1.4,
     {{0, 0}, {1, 0}, {2, 0}, {0, 1}, {1, 1}, {2, 1}}},
    {"sin_cos",
     "SQRT((SIN(X)-COS(Y))^2+(X-Y)^2)",
     2.5,
     -3,
     -3,
     3,
     3,
     {{M_PI / 4, M_PI / 4}, {-3 * M_PI / 4, -3 * M_PI / 4}}},
    {"rosenbrock", "SQRT((10*(Y-X^2))^2+(1-X)^2)", 45, -2, -1, 2, 3, {{1, 1}}},
    {"linear", "SQRT((X+2*Y-1)^2+(3*X-Y-2)^2)", 3.7, -1, -1, 1, 1, {{5.0 / 7, 1.0 / 7}}},
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
            printf("%-14s form %d found %d missed %d spurious %d evals %ld\n", c.name, form,
                   t.found, t.missed, t.spurious, cf->calls);
            VORX_FREE(z);
        }
    }
}
