// Deep and huge trees, and laws used from several threads at once: nothing may crash,
// leak or race.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <thread>
#include <vector>

#include "lawutil/lawutil.hpp"
#include "test_support.hpp"

namespace {

// SIN(SIN(...SIN(X)...)) built by construction, `depth` levels.
law* sine_tower(int depth) {
    law_holder cur(VORX_NEW identity_law(0, 'X'));
    for (int i = 0; i < depth; ++i) cur.reset(VORX_NEW sin_law(cur.get()));
    return cur.release();
}

}  // namespace

TEST(DeepTrees, TenThousandLevelsEvaluatePrintDifferentiateAndGo) {
#if defined(__SANITIZE_THREAD__)
    // ThreadSanitizer's bookkeeping of ten thousand nested frames outgrows the machine;
    // this test is about depth, which the other builds check.
    GTEST_SKIP() << "depth is checked without ThreadSanitizer";
#endif
    const int depth = 10000;
    law_holder tower(sine_tower(depth));
    double v = 0.5;
    for (int i = 0; i < depth; ++i) v = std::sin(v);
    EXPECT_DOUBLE_EQ(tower->eval(0.5), v);
    std::string text = text_of(tower.get());
    EXPECT_EQ(text.size(), 5u * depth + 1);
    law_holder d(tower->derivative(0));
    ASSERT_TRUE(d);
    // d/dx of the tower is the product of the cosines along the way.
    double x = 0.5, slope = 1.0;
    for (int i = 0; i < depth; ++i) {
        slope *= std::cos(x);
        x = std::sin(x);
    }
    EXPECT_NEAR(d->eval(0.5), slope, 1e-12);
}

TEST(DeepTrees, AMillionLevelChainIsReleasedWithoutExhaustingTheStack) {
    int before = law::how_many_laws;
    law_holder cur(VORX_NEW identity_law(0, 'X'));
    for (int i = 0; i < 1000000; ++i) cur.reset(VORX_NEW negate_law(cur.get()));
    EXPECT_EQ(law::how_many_laws, before + 1000001);
    cur.reset();
    EXPECT_EQ(law::how_many_laws, before);
}

// Each thread starts the library for itself and works on its own laws.
TEST(Threads, SeparateTreesOnSeparateThreadsGiveTheSequentialResults) {
    const char* texts[] = {"X^2+SIN(X)",
                           "(X^3-2*X+1)/(X^2+1)",
                           "EXP(-(X^2))*COS(10*X)",
                           "SQRT(1+X^2)+LN(1+X^2)",
                           "MAX(X,1-X)*STEP(X,0.5,X*X)",
                           "VEC(COS(X),SIN(X),X)",
                           "SIN(X)/X",
                           "X MOD 0.3"};
    const int n_texts = sizeof texts / sizeof *texts;
    auto work = [&](std::vector<std::string>& out) {
        initialize_law();
        for (int round = 0; round < 20; ++round)
            for (int i = 0; i < n_texts; ++i) {
                law_holder l(str_to_law(texts[i]));
                law_holder d(l->derivative(0));
                law_holder s(law_simplify(l.get(), 1, 0));
                std::string r = text_of(l.get()) + "|" + text_of(d.get()) + "|" + text_of(s.get());
                for (double x = -0.9; x < 1.0; x += 0.3) {
                    double y[3] = {0, 0, 0};
                    double in = x;
                    try {
                        l->evaluate(&in, y);
                        r += "|" + std::to_string(y[0]);
                        d->evaluate(&in, y);
                        r += "," + std::to_string(y[0]);
                    } catch (const vorx_exception& e) {
                        r += std::string("|") + e.code_name();
                    }
                }
                if (round == 0)
                    out.push_back(r);
                else if (out[i] != r)
                    out.push_back("MISMATCH " + r);
            }
        terminate_law();
    };
    std::vector<std::string> sequential;
    work(sequential);
    const int n_threads = 4;
    std::vector<std::vector<std::string>> results(n_threads);
    std::vector<std::thread> threads;
    for (int t = 0; t < n_threads; ++t) threads.emplace_back(work, std::ref(results[t]));
    for (auto& t : threads) t.join();
    for (int t = 0; t < n_threads; ++t) EXPECT_EQ(results[t], sequential) << "thread " << t;
}
