// Nroot_classified: a battery of laws with known roots, poles and jumps (polynomials with
// close and multiple roots, oscillatory laws, poles, jumps, domain gaps, roots at the ends,
// tangencies, no roots), with fewer evaluations than a plain 1000-sample scan; then bad
// arguments, the evaluation bound, and no allocation per evaluation.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <vector>

#include "lawutil/lawutil.hpp"
#include "test_support.hpp"

namespace {

// 's' simple, 'e' even multiple, 'o' odd multiple, 'z' zero on a stretch (its start),
// 'p' pole, 'j' jump (a pole reported as a jump or the other way round is not counted:
// where a law fails near its pole the two cannot be told apart).
struct expected {
    char kind;
    double x;
    double x_end = NAN;  // the end of a 'z' stretch
};

struct battery_row {
    const char* text;
    double a, b;
    std::vector<expected> points;
};

std::vector<expected> series(char kind, double first, double step, int count) {
    std::vector<expected> r;
    for (int k = 0; k < count; ++k) r.push_back({kind, first + k * step});
    return r;
}

std::vector<expected> interleaved(std::vector<expected> a, const std::vector<expected>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

std::vector<expected> inverse_multiples_of_pi(int count) {
    std::vector<expected> r;
    for (int k = 1; k <= count; ++k) r.push_back({'s', 1.0 / (k * M_PI)});
    return r;
}

const double pi = M_PI, r2 = std::sqrt(2.0), third = 1.0 / 3.0;

const std::vector<battery_row>& battery() {
    // clang-format off
    static const std::vector<battery_row> rows = {
        // polynomials: simple, close, multiple, at the ends, none
        {"X^2-2", -2, 2, {{'s', -r2}, {'s', r2}}},
        {"(X-0.3)*(X-0.31)", 0, 1, {{'s', 0.3}, {'s', 0.31}}},
        {"(X-0.5)*(X-0.5001)", 0, 1, {{'s', 0.5}, {'s', 0.5001}}},
        {"(X-0.5)*(X-0.500001)", 0, 1, {{'s', 0.5}, {'s', 0.500001}}},
        {"(X-0.5)^2-1e-10", 0, 1, {{'s', 0.5 - 1e-5}, {'s', 0.5 + 1e-5}}},
        {"X^2-1e-12", -1, 1, {{'s', -1e-6}, {'s', 1e-6}}}, {"(X-0.25)^2", 0, 1, {{'e', 0.25}}},
        {"(X-0.25)^3", 0, 1, {{'o', 0.25}}}, {"(X-0.25)^4", 0, 1, {{'e', 0.25}}},
        {"X^5", -1, 1, {{'o', 0}}}, {"(X-0.25)^2*(X-0.75)", 0, 1, {{'e', 0.25}, {'s', 0.75}}},
        {"(X-1/3)^2*(X+1/3)^3", -1, 1, {{'o', -third}, {'e', third}}},
        {"X^3-3*X+2", -3, 3, {{'s', -2}, {'e', 1}}}, {"(X^2-1)^2", -2, 2, {{'e', -1}, {'e', 1}}},
        {"X^4-X^2", -2, 2, {{'s', -1}, {'e', 0}, {'s', 1}}},
        {"X^3-X", -2, 2, {{'s', -1}, {'s', 0}, {'s', 1}}},
        {"X^5-X", -1.5, 1.5, {{'s', -1}, {'s', 0}, {'s', 1}}},
        {"X^2-2", 3, -3, {{'s', -r2}, {'s', r2}}},
        {"(X-1)*(X-2)*(X-3)*(X-4)*(X-5)", 0, 6, series('s', 1, 1, 5)},
        {"(X-1)*(X-2)*(X-3)*(X-4)*(X-5)*(X-6)*(X-7)*(X-8)*(X-9)*(X-10)", 0, 11,
         series('s', 1, 1, 10)},
        {"(X-0.1)*(X-0.2)*(X-0.3)*(X-0.4)*(X-0.5)*(X-0.6)*(X-0.7)*(X-0.8)*(X-0.9)", 0, 1,
         series('s', 0.1, 0.1, 9)},
        {"16*X^5-20*X^3+5*X", -1, 1, series('s', 0, 0, 0)},  // filled below: cos((2k-1) pi/10)
        {"X^3-2*X-5", 0, 3, {{'s', 2.0945514815423265}}}, {"1000*(X-0.7)", 0, 1, {{'s', 0.7}}},
        {"1e-8*(X-0.7)", 0, 1, {{'s', 0.7}}}, {"X", 0, 1, {{'s', 0}}}, {"X-1", 0, 1, {{'s', 1}}},
        {"X-3", 1, 3, {{'s', 3}}}, {"X*(X-1)", 0, 1, {{'s', 0}, {'s', 1}}},
        {"X^2", 0, 1, {{'e', 0}}}, {"X^2+1", -2, 2, {}}, {"X^2+1e-8", -1, 1, {}},
        {"X^2+X+1", -5, 5, {}},
        // transcendental and oscillatory
        {"SIN(X)", -10, 10, series('s', -3 * pi, pi, 7)},
        {"SIN(1/X)", 0.01, 1, inverse_multiples_of_pi(31)},
        {"COS(X)", 0, 10, series('s', pi / 2, pi, 3)},
        {"SIN(50*X)", 0, 1, series('s', 0, pi / 50, 16)},
        {"EXP(X)*SIN(10*X)", 0, 2, series('s', 0, pi / 10, 7)},
        {"SIN(PI*X)", -3.5, 3.5, series('s', -3, 1, 7)},
        {"SIN(X)^2", 1, 10, series('e', pi, pi, 3)}, {"1-COS(X)", -1, 7, {{'e', 0}, {'e', 2 * pi}}},
        {"COS(10*X)+1", 0, 1, {{'e', pi / 10}, {'e', 3 * pi / 10}}},
        {"SIN(X)^3", 2, 4, {{'o', pi}}}, {"SIN(X)-X", -1, 1, {{'o', 0}}},
        {"X*SIN(X)", -5, 5, {{'s', -pi}, {'e', 0}, {'s', pi}}}, {"EXP(X)-1-X", -1, 1, {{'e', 0}}},
        {"EXP(X)-2", 0, 1, {{'s', std::log(2.0)}}},
        {"EXP(-(X^2))-0.5", -2, 2, {{'s', -0.8325546111576977}, {'s', 0.8325546111576977}}},
        {"COS(X)-X", 0, 1, {{'s', 0.7390851332151607}}},
        {"COS(X)^2-0.25", 0, 3, {{'s', pi / 3}, {'s', 2 * pi / 3}}},
        {"TANH(20*(X-0.3))", 0, 1, {{'s', 0.3}}}, {"ARCTAN(X-0.4)", 0, 1, {{'s', 0.4}}},
        {"EXP(-X)*COS(X)", 0, 30, series('s', pi / 2, pi, 10)},
        {"X^20-0.5", -1, 1, {{'s', -std::pow(0.5, 0.05)}, {'s', std::pow(0.5, 0.05)}}},
        {"SIN(X)/X", 0.5, 20, series('s', pi, pi, 6)}, {"EXP(X)", -5, 5, {}},
        {"COSH(X)", -3, 3, {}}, {"2+SIN(X)", 0, 20, {}}, {"1/(X^2+1)", -5, 5, {}},
        // domains: the law raises outside
        {"LN(X)", 0.5, 3, {{'s', 1}}}, {"LN(X)", 0, 3, {{'s', 1}}}, {"LN(X)", -1, 3, {{'s', 1}}},
        {"SQRT(X)-0.5", 0, 1, {{'s', 0.25}}}, {"SQRT(X)-0.5", -1, 1, {{'s', 0.25}}},
        {"SQRT(1-X^2)-0.5", -2, 2, {{'s', -std::sqrt(0.75)}, {'s', std::sqrt(0.75)}}},
        // poles: sign changes that are not roots
        {"1/(X-0.5)", 0, 1, {{'p', 0.5}}}, {"1/(X-0.5)+2", 0, 1, {{'s', 0}, {'p', 0.5}}},
        {"1/(X-0.3)-1/(X-0.6)", 0, 1, {{'p', 0.3}, {'p', 0.6}}}, {"1/X^2", -1, 1, {{'p', 0}}},
        {"1/(X-0.5)^2-4", 0, 1, {{'s', 0}, {'p', 0.5}, {'s', 1}}},
        {"X/(X^2-1)", -2, 2, {{'p', -1}, {'s', 0}, {'p', 1}}},
        {"(X-0.25)/(X-0.75)", 0, 1, {{'s', 0.25}, {'p', 0.75}}},
        // TAN and SEC reduce their argument by steps of pi/2 (kept for compatibility): TAN
        // climbs from 0 to its pole on each step, so TAN(X)-1 has a root on every step and a
        // sign change at every pole; SEC stays at or above 1 for X > 0.
        {"TAN(X)", -1.5, 1.5, {{'s', 0}}},
        {"TAN(X)", -3, 3, {{'p', -pi / 2}, {'s', 0}, {'p', pi / 2}}},  // kept values at the poles
        {"TAN(X)-1", 0, 3, {{'s', pi / 4}, {'p', pi / 2}, {'s', 3 * pi / 4}}},
        {"SEC(X)", 0, 6, {{'p', pi / 2}, {'p', pi}, {'p', 1.5 * pi}}},
        {"COT(X)", 0.1, 6, {{'s', pi / 2}, {'p', pi}, {'s', 3 * pi / 2}}},
        {"CSC(X)", 1, 9, {{'p', pi}, {'p', 2 * pi}}},
        {"COT(20*X)", 0.01, 3,
         interleaved(series('p', pi / 20, pi / 20, 19), series('s', pi / 40, pi / 20, 19))},
        // jumps, kinks and stretches
        {"STEP(-1,0.5,1)", 0, 1, {{'j', 0.5}}},
        {"STEP(X-0.2,0.5,X-0.8)", 0, 1, {{'s', 0.2}, {'j', 0.5}, {'s', 0.8}}},
        {"STEP(X-0.2,0.5,1)", 0, 1, {{'s', 0.2}}},
        {"STEP(X,0.5,X-1)", 0, 1, {{'s', 0}, {'j', 0.5}, {'s', 1}}},
        {"FLOOR(X)-0.5", 0, 3, {{'j', 1}}}, {"FLOOR(3*X)-1", 0, 1, {{'z', third, 2 * third}}},
        {"STEP(X-0.5,0.5,2*X-1)", 0, 1, {{'s', 0.5}}},
        {"MAX(X-0.5,0.2-X)", 0, 1, {{'s', 0.2}, {'s', 0.5}}},
        // no derivative (NOT has none): the interpolant's roots, checked by sign and size
        {"X-0.3+NOT(X+5)", 0, 1, {{'s', 0.3}}}, {"(X-0.3)^2+NOT(X+5)", 0, 1, {{'e', 0.3}}},
        {"ABS(X-0.4)", 0, 1, {{'e', 0.4}}}, {"ABS(X-0.4)-0.1", 0, 1, {{'s', 0.3}, {'s', 0.5}}},
        {"MIN(X-0.3,0.7-X)", 0, 1, {{'s', 0.3}, {'s', 0.7}}},
    };
    // clang-format on
    return rows;
}

std::vector<expected> points_of(const battery_row& row) {
    if (std::string(row.text) == "16*X^5-20*X^3+5*X") {
        std::vector<expected> r;
        for (int k = 5; k >= 1; --k) r.push_back({'s', std::cos((2 * k - 1) * pi / 10)});
        return r;
    }
    return row.points;
}

// The kind as a letter of the battery ('z' for a stretch).
char letter_of(const classified_root& r) {
    return r.kind >= root_simple && r.kind <= root_jump ? "?seopj"[r.kind] : 'z';
}

bool is_root_letter(char k) {
    return k != 'p' && k != 'j';
}

struct score {
    int found = 0, missed = 0, spurious = 0, wrong_kind = 0, evaluations = 0;
    void add(const score& o) {
        found += o.found, missed += o.missed, spurious += o.spurious;
        wrong_kind += o.wrong_kind, evaluations += o.evaluations;
    }
};

// Matches reported points (x, kind letter) to the expected ones.  A root is found or
// missed; a reported root that matches no expected root (a pole or a jump included) is
// spurious; poles and jumps are wanted but their absence is not a miss of a root.
score score_of(const std::vector<expected>& want, const std::vector<expected>& got,
               std::string& detail) {
    score s;
    std::vector<bool> used(got.size(), false);
    for (const expected& w : want) {
        int hit = -1;
        for (size_t i = 0; i < got.size(); ++i)
            if (!used[i] && std::fabs(got[i].x - w.x) <= 1e-6 * std::max(1.0, std::fabs(w.x)) &&
                is_root_letter(got[i].kind) == is_root_letter(w.kind))
                hit = (int)i;
        if (hit < 0) {
            if (is_root_letter(w.kind)) {
                ++s.missed;
                detail += " missed " + std::string(1, w.kind) + std::to_string(w.x);
            }
            continue;
        }
        used[hit] = true;
        // Other points reported on an expected stretch are not spurious.
        for (size_t i = 0; w.kind == 'z' && i < got.size(); ++i)
            if (got[i].x >= w.x - 1e-6 && got[i].x <= w.x_end + 1e-6) used[i] = true;
        if (is_root_letter(w.kind)) ++s.found;
        if (is_root_letter(w.kind) && got[hit].kind != w.kind) {
            ++s.wrong_kind;
            detail += " kind " + std::string(1, got[hit].kind) + std::to_string(w.x);
        }
    }
    for (size_t i = 0; i < got.size(); ++i)
        if (!used[i] && is_root_letter(got[i].kind)) {
            ++s.spurious;
            detail += " spurious " + std::string(1, got[i].kind) + std::to_string(got[i].x);
        }
    return s;
}

// Nroot_classified of `text` over [a, b], scored against `want` (a failure unless every
// root is found once, with its kind); adds the poles and jumps it reports to `breaks`.
score classify(const std::string& text, double a, double b, const std::vector<expected>& want,
               int& breaks) {
    SCOPED_TRACE(text);
    law_holder f(str_to_law(text.c_str()));
    int n = 0;
    root_search_info info;
    classified_root* r = Nroot_classified(f.get(), a, b, &n, &info);
    std::vector<expected> got;
    for (int i = 0; i < n; ++i) got.push_back({letter_of(r[i]), r[i].x});
    VORX_FREE(r);
    std::string detail;
    score s = score_of(want, got, detail);
    s.evaluations = info.evaluations;
    EXPECT_EQ(s.missed + s.spurious + s.wrong_kind, 0) << detail;
    for (const expected& g : got) breaks += !is_root_letter(g.kind);
    return s;
}

TEST(RootAll, BatteryFindsEveryRootAndNoPoleOrJumpAsRoot) {
    score mine;
    int expected_breaks = 0, breaks = 0;
    int nroot_found = 0;
    for (const battery_row& row : battery()) {
        std::vector<expected> want = points_of(row);
        mine.add(classify(row.text, row.a, row.b, want, breaks));
        for (const expected& w : want) expected_breaks += !is_root_letter(w.kind);
        // Nroot misses what its probes do not reach to 1e-7, and needs a derivative, but every
        // point it reports is a root, in order, and every probe marks its gap.
        law_holder f(str_to_law(row.text));
        int n = 0;
        double* r = nullptr;
        std::string error = error_of([&] { r = Nroot(f.get(), row.a, row.b, &n); });
        EXPECT_TRUE(error == "" || error == "LAW_DERIV") << row.text << ": " << error;
        for (int i = 0; i < n; ++i) {
            EXPECT_LT(std::fabs(f->eval(r[i])), 1e-7) << row.text << " reports " << r[i];
            EXPECT_TRUE(i == 0 || r[i - 1] < r[i]) << row.text;
            for (const expected& w : want) nroot_found += std::fabs(r[i] - w.x) < 1e-4;
        }
        VORX_FREE(r);
        EXPECT_EQ(last_nroot_stats().probes_without_mark, 0) << row.text;
        EXPECT_EQ(last_nroot_stats().probe_bound_hit, 0) << row.text;
    }
    std::printf(
        "[battery] %zu laws, %d poles/jumps (%d reported): found %d missed %d spurious %d "
        "wrong-kind %d evaluations %d\n",
        battery().size(), expected_breaks, breaks, mine.found, mine.missed, mine.spurious,
        mine.wrong_kind, mine.evaluations);
    EXPECT_GE(nroot_found, 100);
    // A plain scan takes 1000 samples per law before it bisects anything.
    EXPECT_LT(mine.evaluations, 1000 * (int)battery().size());
}

// Random products of (X - r)^m, m = 1, 2 or 3, roots at least 1e-3 apart in [-0.9, 0.9]:
// every root found once, with the parity of its multiplicity.
TEST(RootAll, RandomPolynomialsWithMultipleRoots) {
    unsigned seed = 12345;
    auto uniform = [&seed] {
        seed = seed * 1103515245u + 12345u;
        return (seed >> 8) / double(1u << 24);
    };
    for (int trial = 0; trial < 60; ++trial) {
        std::vector<expected> want;
        std::string text;
        int count = 1 + (int)(uniform() * 5);
        while ((int)want.size() < count) {
            double r = -0.9 + 1.8 * uniform();
            bool far = true;
            for (const expected& w : want) far = far && std::fabs(w.x - r) > 1e-3;
            if (!far) continue;
            int m = 1 + (int)(uniform() * 3);
            want.push_back({m == 1 ? 's' : m == 2 ? 'e' : 'o', r});
            char factor[64];
            std::snprintf(factor, sizeof factor, "%s(X-%.17g)^%d", text.empty() ? "" : "*", r, m);
            text += factor;
        }
        int breaks = 0;
        classify(text, -1, 1, want, breaks);
    }
}

// (Bad arguments are checked with Nroot's in test_root.cpp.)
TEST(RootAll, NoRootIsNotAnError) {
    // No answer: a law that raises everywhere, a point that is not a root; a point that is.
    struct {
        const char* text;
        double a, b;
        int count;
    } empty[] = {
        {"LN(X)", -2, -1, 0}, {"ARCSIN(X)", 2, 3, 0}, {"X", 0.5, 0.5, 0}, {"X-0.5", 0.5, 0.5, 1}};
    for (const auto& row : empty) {
        law_holder f(str_to_law(row.text));
        int n = -1;
        classified_root* r = Nroot_classified(f.get(), row.a, row.b, &n);
        EXPECT_EQ(n, row.count) << row.text;
        EXPECT_EQ(r == nullptr, row.count == 0);
        VORX_FREE(r);
    }
}

TEST(RootAll, EndsInEitherOrderGiveTheSameAnswer) {
    law_holder f(str_to_law("SIN(3*X)*(X-0.5)^2"));
    int n1 = 0, n2 = 0;
    classified_root* r1 = Nroot_classified(f.get(), -2, 2, &n1);
    classified_root* r2 = Nroot_classified(f.get(), 2, -2, &n2);
    ASSERT_EQ(n1, n2);
    EXPECT_EQ(n1, 4);  // -pi/3, 0, pi/3 and the double root 0.5
    for (int i = 0; i < n1; ++i) {
        EXPECT_EQ(r1[i].x, r2[i].x);
        EXPECT_EQ(r1[i].kind, r2[i].kind);
    }
    VORX_FREE(r1);
    VORX_FREE(r2);
}

// Infinitely many roots near 0: the bound stops the search, what was found is right, and
// the widest pieces were searched first.
TEST(RootAll, EvaluationBoundIsKeptAndWhatIsFoundIsRight) {
    law_holder f(str_to_law("SIN(1/X)"));
    for (int bound : {1, 50, 600, 5000}) {
        int n = 0;
        root_search_info info;
        classified_root* r = Nroot_classified(f.get(), 0, 1, &n, &info, bound);
        EXPECT_LE(info.evaluations, bound);
        EXPECT_GT(info.unresolved, 0);
        for (int i = 0; i < n; ++i) EXPECT_LT(std::fabs(std::sin(1 / r[i].x)), 1e-9);
        if (bound >= 600) {
            ASSERT_GT(n, 0);
            EXPECT_NEAR(r[n - 1].x, 1 / pi, 1e-12);
        }
        VORX_FREE(r);
    }
}

// Hundreds of evaluations, a handful of allocations (the work area, the doublings of the
// result, the returned array, the singular points): none per evaluation.
TEST(RootAll, EvaluationAllocatesNothing) {
    for (const char* text : {"SIN(1/X)", "TAN(X)-1", "SQRT(X)-0.5"}) {
        law_holder f(str_to_law(text));
        int n = 0;
        // Derivatives made and cached, and the laws evaluated often compiled (law_tier.cpp):
        // each allocates once.
        for (int warm = 0; warm < 8; ++warm) VORX_FREE(Nroot_classified(f.get(), 0, 3, &n));
        long before = allocations_ever();
        root_search_info info;
        VORX_FREE(Nroot_classified(f.get(), 0, 3, &n, &info));
        EXPECT_GT(info.evaluations, 100) << text;
        EXPECT_LE(allocations_ever() - before, 16) << text;
    }
}

}  // namespace
