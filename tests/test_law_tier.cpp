// Tiered evaluation: a law evaluated often through evaluateM_R runs its own exact program,
// with the tree's bits and error codes (also where the program hands the point back to
// the tree: 0/0, domain errors), allocates only when compiling, frees the program with the
// law, and leaves its subtrees alone.
#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "lawutil/global_names.hpp"
#include "lawutil/lawutil.hpp"
#include "test_support.hpp"

namespace {

struct outcome {
    double value = 0.0;
    std::string error;
    bool operator==(const outcome& o) const {
        return error == o.error && std::memcmp(&value, &o.value, sizeof value) == 0;
    }
};

outcome at(const law* l, double t) {
    double x[2] = {t, 0.5 - t};
    outcome o;
    o.error = error_of([&] { o.value = l->evaluateM_R(x); });
    return o;
}

// Points past the threshold, with the raising and 0/0 points among them.
std::vector<double> sweep() {
    std::vector<double> p;
    for (int k = 0; k < 3 * law::tier_after / 2; ++k) p.push_back(-2.0 + 4.0 * (k % 97) / 96.0);
    return p;
}

struct tier_row {
    const char* text;
    bool compiles, raises;
};
const tier_row rows[] = {
    {"LN(X)*X+SQRT(1+X^2)", true, true},        // LN raises for X <= 0
    {"1/(X-X)+X", true, false},                 // 1/0: inf
    {"(X-X)/(X-X)", true, true},                // 0/0 the root division raises itself
    {"(X*X-1)/(X-1)", true, false},             // 0/0 at 1: the root division resolves it
    {"SQRT(X)*COS(X)-SQRT(-X)*Y", true, true},  // SQRT of a negative, on both sides
    {"TAN(X*Y+1)+X", true, false},              // a class the compiler runs through a copy
    {"SIN(X)", false, false},                   // one instruction: stays on its tree
    {"X^X+X", false, true},                     // a general power: stays on its tree
    {"(X^3+1)*(X^3+1)*(X^3+1)*(X^3+1)*(X^3+1)*(X^3+1)", true, false},  // one power for six
};

}  // namespace

TEST(Tier, HotLawGivesTheTreesBitsAndCodes) {
    const std::vector<double> points = sweep();
    for (const tier_row& r : rows) {
        SCOPED_TRACE(r.text);
        law_holder l = parse(r.text);
        std::vector<outcome> tree;
        {
            law_tiering_off pure_tree;
            for (double t : points) tree.push_back(at(l.get(), t));
        }
        EXPECT_EQ(l->tier_program(), nullptr);  // the tree alone does not count
        int raised = 0;
        for (size_t k = 0; k < points.size(); ++k) {
            outcome o = at(l.get(), points[k]);
            EXPECT_TRUE(o == tree[k]) << points[k] << ": " << o.value << " " << o.error
                                      << " against " << tree[k].value << " " << tree[k].error;
            raised += !o.error.empty();
        }
        EXPECT_EQ(l->tier_program() != nullptr, r.compiles);
        EXPECT_EQ(raised > 0, r.raises);
        // Compiled, it allocates nothing more.
        long before = allocations_ever();
        for (double t : points) at(l.get(), t);
        EXPECT_EQ(allocations_ever(), before);
        // Its program makes batch registers when first asked for a batch.
        if (const law_program* p = l->tier_program()) {
            std::vector<double> y(points.size()), second;
            for (double t : points) second.push_back(0.5 - t);
            const double* in[2] = {points.data(), second.data()};
            p->evaluate_batch((int)points.size(), in, y.data());
            for (size_t k = 0; k < points.size(); ++k)
                if (tree[k].error.empty()) {
                    EXPECT_EQ(y[k], tree[k].value) << points[k];
                }
        }
    }
}

// A compiled root stops its subtrees from compiling; a subtree compiled on its own
// (evaluated from elsewhere) stays right under a root that compiles over it.
TEST(Tier, SubtreesOfACompiledRoot) {
    const std::vector<double> points = sweep();
    law_holder root = parse("TAN(X^2+LN(X))");
    for (double t : points) at(root.get(), t);
    ASSERT_NE(root->tier_program(), nullptr);
    const law* inner = static_cast<const unary_law*>(root.get())->fsub();
    EXPECT_EQ(inner->tier_program(), nullptr);

    law_holder part = parse("X/(X-1)+SQRT(X)");
    for (double t : points) at(part.get(), t);
    ASSERT_NE(part->tier_program(), nullptr);
    law_holder over(VORX_NEW times_law(part.get(), root.get()));
    law_holder both(VORX_NEW plus_law(over.get(), part.get()));
    std::vector<outcome> tree;
    {
        law_tiering_off pure_tree;
        for (double t : points) tree.push_back(at(both.get(), t));
    }
    for (size_t k = 0; k < points.size(); ++k) EXPECT_TRUE(at(both.get(), points[k]) == tree[k]);
    EXPECT_NE(both->tier_program(), nullptr);
}

// One law tree per thread, while another thread keeps its laws on their trees.
TEST(Tier, ThreadsTierTheirOwnLaws) {
    const std::vector<double> points = sweep();
    auto work = [&](bool off, std::vector<outcome>& out) {
        initialize_law();
        {
            std::optional<law_tiering_off> scope;
            if (off) scope.emplace();
            law_holder l = parse("EXP(-(X^2))*COS(10*X)+LN(X)");
            for (double t : points) out.push_back(at(l.get(), t));
        }
        terminate_law();
    };
    std::vector<outcome> tree;
    work(true, tree);
    std::vector<std::vector<outcome>> results(3);
    std::vector<std::thread> threads;
    for (int t = 0; t < 3; ++t) threads.emplace_back(work, t == 0, std::ref(results[t]));
    for (auto& t : threads) t.join();
    for (const auto& r : results) EXPECT_TRUE(r == tree);
}
