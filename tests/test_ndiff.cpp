// Numerical differentiation: accuracy of the centred and one-sided rules, where the samples
// fall, the scratch coordinate put back exactly (also when the law raises an error), one
// evaluation per sample for every output, higher orders, and the storage used.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>

#include "lawutil/diff.hpp"
#include "lawutil/global_names.hpp"
#include "lawutil/lawutil.hpp"

namespace {

constexpr double h = 1e-4;

// A law of `in` inputs whose output i is shape(t, i) with t = x[var].  It counts its
// evaluations, keeps the first sampled coordinates, and raises LAW_SQRT above `limit`, like
// a law defined only up to there.
class probe_law : public law {
  public:
    using shape_fn = double (*)(double t, int component);
    static constexpr int max_seen = 64;

    explicit probe_law(shape_fn shape, int out = 1, int in = 1, int var = 0,
                       double limit = HUGE_VAL)
        : shape_(shape), out_(out), in_(in), var_(var), limit_(limit) {}
    void evaluate(const double* x, double* y) const override {
        double t = x[var_];
        if (calls < max_seen) seen[calls] = t;
        ++calls;
        if (t > limit_) sys_error(LAW_SQRT);
        for (int i = 0; i < out_; ++i) y[i] = shape_(t, i);
    }
    mutable int calls = 0;
    mutable double seen[max_seen] = {};

  protected:
    int take_size() const override { return in_; }
    int return_size() const override { return out_; }

  private:
    shape_fn shape_;
    int out_, in_, var_;
    double limit_;
};

const auto cube = [](double t, int) { return t * t * t; };
const auto sin30 = [](double t, int) { return std::sin(30 * t); };
const auto scaled_cube = [](double t, int i) { return (i + 1) * t * t * t; };  // output i
// Derivatives 0, 0, 2, 12, 24 at 0.
const auto quartic = [](double t, int) { return t * t + 2 * t * t * t + t * t * t * t; };

// (sin(u) v, u^2 + v^3, exp(u v)) over (u, v).
class field_law : public law {
  public:
    void evaluate(const double* x, double* y) const override {
        double u = x[0], v = x[1];
        y[0] = std::sin(u) * v;
        y[1] = u * u + v * v * v;
        y[2] = std::exp(u * v);
    }

  protected:
    int take_size() const override { return 2; }
    int return_size() const override { return 3; }
};

// Blocks ever allocated under the source tag "diff".
long diff_allocations() {
    for (int i = 1; i <= vorx_mem_tag_count(); ++i) {
        vorx_mem_tag_stats s = vorx_mem_tag(i);
        if (std::string(s.tag) == "diff") return s.total_count;
    }
    return 0;
}

bool same_bits(double a, double b) {
    return std::memcmp(&a, &b, sizeof a) == 0;
}

// side < 0 selects the centred rule.
void differentiate(law* f, const double* x, int which, int side, double* answer, int order) {
    if (side < 0)
        Ndifferentiate(f, x, which, answer, order);
    else
        Ndifferentiate_sided(f, x, which, side, answer, order);
}

}  // namespace

// Small cases of every rule (side -1 is the centred one): both are exact on cubics up to
// rounding; a negative order is taken as 0 and yields the value; a law of the second
// input has slope 0 in the first.
TEST(Ndifferentiate, SmallCasesOfEveryRule) {
    law_holder cubic(VORX_NEW probe_law(cube));
    law_holder y(VORX_NEW identity_law(1, 'Y'));
    // clang-format off
    struct row {
        const law_holder& f;
        double x0;
        int which, order;
        double expected, tol;
    } rows[] = {
        {cubic, 1.0, 0, 1, 3.0, 1e-8}, {cubic, 2.0, 0, -3, 8.0, 0.0}, {y, 5.0, 0, 1, 0.0, 0.0},
        {y, 5.0, 1, 1, 1.0, 1e-11},
    };
    // clang-format on
    for (const row& r : rows)
        for (int side : {-1, 0, 1}) {
            double x[2] = {r.x0, 2.0}, d = -1.0;
            differentiate(r.f.get(), x, r.which, side, &d, r.order);
            EXPECT_NEAR(d, r.expected, r.tol) << r.x0 << " order " << r.order << " side " << side;
        }
}

// Where the fourth derivative is large the sided rule shows its h^3/4 f'''' truncation,
// with the sign of the step, while the centred rule stays at rounding level.
TEST(Ndifferentiate, SidedRuleIsThirdOrderAndLessAccurate) {
    law_holder f(VORX_NEW probe_law(sin30));
    double x = 0.025, d = 0.0;
    const double exact = 30 * std::cos(0.75);
    const double predicted = h * h * h / 4 * (810000 * std::sin(0.75));
    Ndifferentiate(f.get(), &x, 0, &d, 1);
    double centred_error = std::fabs(d - exact);
    Ndifferentiate_sided(f.get(), &x, 0, 0, &d, 1);
    EXPECT_NEAR(d - exact, predicted, 0.02 * predicted);
    Ndifferentiate_sided(f.get(), &x, 0, 1, &d, 1);
    EXPECT_NEAR(d - exact, -predicted, 0.02 * predicted);
    EXPECT_LT(centred_error, 0.01 * predicted);
}

// Sample coordinates, in steps of h from x0, for each rule (side -1 centred) and order.
TEST(Ndifferentiate, SamplesFallWhereTheRuleSays) {
    struct {
        int side, order, count;
        double offsets[7];
    } rows[] = {{-1, 0, 1, {0}},
                {-1, 1, 4, {-1.5, -0.5, 0.5, 1.5}},
                {-1, 2, 7, {-3, -2, -1, 0, 1, 2, 3}},
                {0, 0, 1, {0}},
                {0, 1, 4, {0, 1, 2, 3}},
                {1, 2, 7, {0, -1, -2, -3, -4, -5, -6}},
                {7, 1, 4, {0, 1, 2, 3}}};  // any side other than 1 looks upwards
    for (auto& row : rows) {
        probe_law* p = VORX_NEW probe_law(cube);
        law_holder f(p);
        double x0 = 0.7, x = x0, d = 0.0;
        differentiate(p, &x, 0, row.side, &d, row.order);
        ASSERT_EQ(p->calls, row.count) << "side " << row.side << " order " << row.order;
        for (int k = 0; k < row.count; ++k)
            EXPECT_NEAR(p->seen[k], x0 + row.offsets[k] * h, 1e-15) << "sample " << k;
    }
}

// A law defined only up to x0 (it raises above) can be differentiated there from below;
// the centred rule samples above and lets the law's error through.  Either way the
// coordinate comes back bit for bit, the other coordinates are untouched and nothing leaks,
// on the stack path (small table) and the heap path (many outputs, or many rows).
TEST(Ndifferentiate, AtADomainEdgeSideOneSucceedsCentredRaisesCoordinateRestored) {
    struct {
        int out, order;
        double x0;
    } rows[] = {{1, 1, 1.0 / 3.0}, {3, 1, -0.0}, {30, 1, 0.1}, {20, 2, 0.1}, {1, 25, 0.3}};
    for (auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.out << " outputs, order " << row.order);
        law_holder f(VORX_NEW probe_law(scaled_cube, row.out, 3, 1, row.x0));
        double x[3] = {0.25, row.x0, -4.0};
        double answer[32];
        Ndifferentiate_sided(f.get(), x, 1, 1, answer, row.order);
        EXPECT_TRUE(same_bits(x[1], row.x0));
        for (int i = 0; i < row.out && row.order == 1; ++i)
            EXPECT_NEAR(answer[i], 3 * (i + 1) * row.x0 * row.x0, 1e-8) << "output " << i;
        for (int side : {-1, 0}) {
            int code = 0;
            try {
                differentiate(f.get(), x, 1, side, answer, row.order);
            } catch (const vorx_exception& e) {
                code = e.code();
            }
            EXPECT_EQ(code, LAW_SQRT) << "side " << side;
            EXPECT_TRUE(same_bits(x[1], row.x0));
        }
        EXPECT_EQ(x[0], 0.25);
        EXPECT_EQ(x[2], -4.0);
    }
}

// All outputs come from the same samples: order 2 takes 7 evaluations, whatever the
// number of outputs.
TEST(Ndifferentiate, OneEvaluationPerSampleForAllOutputs) {
    for (int side : {-1, 0, 1}) {
        law_holder f(VORX_NEW probe_law(scaled_cube, 3));
        probe_law* p = static_cast<probe_law*>(f.get());
        double x = 0.5, d[3];
        differentiate(f.get(), &x, 0, side, d, 2);
        EXPECT_EQ(p->calls, 7) << "side " << side;
        for (int i = 0; i < 3; ++i) EXPECT_NEAR(d[i], 6 * (i + 1) * 0.5, 1e-6) << "output " << i;
    }
}

// Orders 0 to 4 of t^2 + 2t^3 + t^4 at 0, where the samples are small and rounding stays
// far below the values; the sided rule pays its h^3 truncation at each level.
TEST(Ndifferentiate, OrdersOfAQuarticAtZero) {
    struct {
        int order;
        double expected, centred_tol, sided_tol;
    } rows[] = {{0, 0.0, 0.0, 0.0},
                {1, 0.0, 1e-14, 1e-10},
                {2, 2.0, 1e-12, 1e-12},
                {3, 12.0, 1e-9, 1e-7},
                {4, 24.0, 1e-5, 1e-2}};
    for (auto& row : rows) {
        probe_law* p = VORX_NEW probe_law(quartic);
        law_holder f(p);
        for (int side : {-1, 0, 1}) {
            double x = 0.0, d = 1.0;
            differentiate(p, &x, 0, side, &d, row.order);
            EXPECT_NEAR(d, row.expected, side < 0 ? row.centred_tol : row.sided_tol)
                << "order " << row.order << " side " << side;
        }
        EXPECT_EQ(p->calls, 3 * (3 * row.order + 1));
    }
}

// Each output is differentiated on its own, in the chosen input only.
TEST(Ndifferentiate, VectorLawComponentByComponent) {
    law_holder f(VORX_NEW field_law);
    const double u = 0.3, v = 0.7;
    struct {
        int which, order;
        double expected[3], centred_tol, sided_tol;
    } rows[] = {{0, 1, {std::cos(u) * v, 2 * u, v * std::exp(u * v)}, 1e-10, 1e-9},
                {1, 1, {std::sin(u), 3 * v * v, u * std::exp(u * v)}, 1e-10, 1e-9},
                {1, 2, {0.0, 6 * v, u * u * std::exp(u * v)}, 1e-5, 1e-5}};
    for (auto& r : rows)
        for (int side : {-1, 0, 1}) {
            double x[2] = {u, v}, d[3];
            differentiate(f.get(), x, r.which, side, d, r.order);
            for (int i = 0; i < 3; ++i)
                EXPECT_NEAR(d[i], r.expected[i], side < 0 ? r.centred_tol : r.sided_tol)
                    << "input " << r.which << " order " << r.order << " output " << i;
            EXPECT_EQ(x[0], u);
            EXPECT_EQ(x[1], v);
        }
}

// Small tables stay on the stack; a large one takes one block for the rows plus one array
// of row pointers, tagged "diff".
TEST(Ndifferentiate, StorageIsOneBlockAndOneRowArray) {
    law_holder small(VORX_NEW probe_law(scaled_cube, 3));
    law_holder wide(VORX_NEW probe_law(scaled_cube, 40));
    double x = 0.5, d[40];
    long before = diff_allocations();
    Ndifferentiate(small.get(), &x, 0, d, 2);
    Ndifferentiate_sided(small.get(), &x, 0, 1, d, 2);
    EXPECT_EQ(diff_allocations() - before, 0);
    Ndifferentiate(wide.get(), &x, 0, d, 2);
    EXPECT_EQ(diff_allocations() - before, 2);
    Ndifferentiate_sided(small.get(), &x, 0, 0, d, 30);
    EXPECT_EQ(diff_allocations() - before, 4);
}
