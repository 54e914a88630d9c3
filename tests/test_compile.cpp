// The compiled form against the tree it came from: over every registered class and over
// random laws, the exact program gives the tree's values bit for bit and the rewriting
// one within its stated bound; both raise the tree's error codes; the gradient pass
// equals the symbolic derivatives; a batch gives the single-point values and codes.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "lawutil/lawutil.hpp"
#include "test_support.hpp"

namespace {

const double probe_points[] = {-1.9, -0.75, -0.3, 0.0, 0.2, 0.5, 0.9, 1.0, 1.6, 3.1};

struct outcome {
    double value = 0.0;
    std::string error;
};

template <class F>
outcome outcome_of(F f) {
    outcome o;
    o.error = error_of([&] { o.value = f(); });
    return o;
}

bool same_bits(double a, double b) {
    return std::memcmp(&a, &b, sizeof a) == 0 || (std::isnan(a) && std::isnan(b));
}

// The bound of the rewrites (Horner steps, power chains), relative to the value.
bool within_rewrite_bound(double a, double b) {
    if (same_bits(a, b) || a == b) return true;
    return std::fabs(a - b) <= 1e-12 * (1.0 + std::fabs(a));
}

// Checks one law at the probe points; counts the points where both evaluated.
int check_law(const law* l) {
    law_tiering_off pure_tree;
    int evaluated = 0;
    law_program exact(l, law_program::exact), fast(l);
    int n = l->take_dim();
    for (double t : probe_points) {
        double x[3] = {t, 0.7 - t, 0.4};
        SCOPED_TRACE(text_of(l) + " at " + std::to_string(t));
        outcome tree = outcome_of([&] { return l->evaluateM_R(x); });
        outcome e = outcome_of([&] { return exact.evaluate(x); });
        outcome f = outcome_of([&] { return fast.evaluate(x); });
        EXPECT_EQ(e.error, tree.error);
        EXPECT_EQ(f.error, tree.error);
        if (!tree.error.empty()) continue;
        ++evaluated;
        EXPECT_TRUE(same_bits(e.value, tree.value)) << e.value << " " << tree.value;
        EXPECT_TRUE(within_rewrite_bound(f.value, tree.value)) << f.value << " " << tree.value;
        if (n > 3) continue;
        // Both gradient passes give evaluate's value, and never raise for a partial.
        double grad[3];
        outcome ge = outcome_of([&] { return exact.evaluate_with_gradient(x, grad); });
        EXPECT_EQ(ge.error, "");
        EXPECT_TRUE(same_bits(ge.value, e.value)) << ge.value << " " << e.value;
        outcome g = outcome_of([&] { return fast.evaluate_with_gradient(x, grad); });
        EXPECT_EQ(g.error, "");
        EXPECT_TRUE(same_bits(g.value, f.value)) << g.value << " " << f.value;
        for (int i = 0; i < n; ++i) {
            outcome d = outcome_of([&] {
                law_holder dl(l->derivative(i));
                return dl->evaluateM_R(x);
            });
            // Where the chain rule meets 0*inf (SQRT at 0, a 0/0) the pass gives NaN, and
            // the simplified symbolic derivative may have a value.
            if (!d.error.empty() || !std::isfinite(d.value) || !std::isfinite(grad[i])) continue;
            EXPECT_NEAR(grad[i], d.value, 1e-12 * (1.0 + std::fabs(d.value))) << "partial " << i;
        }
    }
    return evaluated;
}

}  // namespace

// Every registered class, built over a linear argument (and 0.7 as a second one).
TEST(Compile, AgreesWithTheTreeOverTheRegistry) {
    int laws = 0, evaluated = 0;
    for (law_list* node = law_list::head(); node; node = node->fnext()) {
        const law* proto = node->fthis();
        if (proto->isa(unary_data_law::id()) || proto->isa(multiple_data_law::id())) continue;
        for (const char* arg : {"0.3*X+0.2", "X^3-2*X+1.5"}) {
            law_holder a(str_to_law(arg)), c(VORX_NEW constant_law(0.7)), l;
            law* args[2] = {a.get(), c.get()};
            std::string err = error_of([&] {
                if (proto->isa(unary_law::id()))
                    l.reset(static_cast<const unary_law*>(proto)->make_one(a.get()));
                else if (proto->isa(binary_law::id()))
                    l.reset(static_cast<const binary_law*>(proto)->make_one(a.get(), c.get()));
                else if (proto->isa(multiple_law::id()))
                    l.reset(static_cast<const multiple_law*>(proto)->make_one(args, 2));
                else if (proto->isa(constant_law::id()))
                    l.reset(static_cast<const constant_law*>(proto)->make_one(0.7));
            });
            if (!l || !err.empty()) continue;
            SCOPED_TRACE(proto->class_name());
            ++laws;
            evaluated += check_law(l.get());
        }
    }
    EXPECT_GT(laws, 100);
    EXPECT_GT(evaluated, 600);
}

namespace {

// A random law of X and Y, `depth` levels deep at most.
std::string random_law(std::mt19937& rng, int depth) {
    static const char* const leaves[] = {"X", "Y", "2", "0.5", "3", "X", "1.25"};
    static const char* const functions[] = {"SIN",  "COS",   "EXP",     "LN",      "SQRT",
                                            "ABS",  "SINH",  "COSH",    "TAN",     "ARCSIN",
                                            "TANH", "FLOOR", "ARCTANH", "ARCSINH", "-"};
    static const char* const operators[] = {"+", "-", "*", "/", "^"};
    static const char* const exponents[] = {"2", "3", "-1", "0.5", "4", "X", "-2"};
    int pick = depth <= 0 ? 0 : (int)(rng() % 3);
    if (pick == 0) return leaves[rng() % 7];
    if (pick == 1)
        return std::string(functions[rng() % 15]) + "(" + random_law(rng, depth - 1) + ")";
    const char* op = operators[rng() % 5];
    std::string right = *op == '^' ? exponents[rng() % 7] : random_law(rng, depth - 1);
    return "(" + random_law(rng, depth - 1) + ")" + op + "(" + right + ")";
}

}  // namespace

TEST(Compile, AgreesWithTheTreeOverRandomLaws) {
    std::mt19937 rng(20261123);
    int evaluated = 0;
    for (int i = 0; i < 400; ++i) {
        std::string text = random_law(rng, 4);
        // A shared subtree, as derivatives and the simplifier make them.
        law_holder part(str_to_law(text.c_str()));
        ASSERT_TRUE(part) << text;
        law_holder twice(VORX_NEW plus_law(part.get(), part.get()));
        law_holder l(VORX_NEW times_law(twice.get(), part.get()));
        evaluated += check_law(l.get());
    }
    EXPECT_GT(evaluated, 1000);
}

// Machine code against the interpreter over random laws (their fallbacks to the tree
// called back from the machine code, raising there too), at the edges of the domains
// (0 and -0, +-1, below and above the division's tiny, where x^-n leaves the normal range,
// NaN, infinity): the same bits, the same error codes.
TEST(Compile, MachineCodeIsTheInterpreter) {
    const double edges[] = {0.0, -0.0,  1.0,     -1.0,   0.5,     -0.3, 1e-16,
                            2.5, 1e200, -1e-170, 1e-300, 0x1p256, NAN,  INFINITY};
    const int count = sizeof edges / sizeof edges[0];
    std::mt19937 rng(5);
    int native = 0, raised = 0;
    // and more values live at once than the machine code keeps in registers (spilled to
    // the red zone, and to a frame of more than its 128 bytes)
    auto many = [](int n) {
        std::string sum = "0", product = "1";
        for (int k = 1; k <= n; ++k) {
            sum += "+(X*Y+" + std::to_string(k) + ")";
            product += "*(X*Y+" + std::to_string(k) + ")";
        }
        return "(" + sum + ")/(" + product + ")";
    };
    const std::string edge_laws[] = {
        "X^0.5-0",      "X^-4*Y", "X/Y",    "LN(X)+SQRT(-X)",
        "EXP(X/3)-Y/4", many(20), many(30), "SQRT(X^2-1)+LN(X^2-1)-ABS(3*Y+1)*SQRT(3*Y+1)"};
    for (int i = 0; i < 500; ++i) {
        std::string text = i < 8 ? edge_laws[i] : random_law(rng, 4);
        law_holder l(str_to_law(text.c_str()));
        ASSERT_TRUE(l) << text;
        for (int mode : {law_program::rewrite, law_program::exact}) {
            law_program machine(l.get(), mode),
                interpreter(l.get(), mode | law_program::interpreted);
            EXPECT_FALSE(interpreter.native());
            native += machine.native();
            for (int k = 0; k < count; ++k) {
                double x[2] = {edges[k], edges[(k * 5 + 3) % count]};
                SCOPED_TRACE(text + " at " + std::to_string(x[0]) + ", " + std::to_string(x[1]));
                outcome m = outcome_of([&] { return machine.evaluate(x); });
                outcome t = outcome_of([&] { return interpreter.evaluate(x); });
                EXPECT_EQ(m.error, t.error);
                EXPECT_TRUE(same_bits(m.value, t.value)) << m.value << " " << t.value;
                raised += !t.error.empty();
            }
        }
    }
#if defined(__x86_64__) && defined(__linux__)
    EXPECT_EQ(native, 1000);
    // The workload of bench_eval runs as machine code.
    for (const char* text :
         {"X^2+SIN(X)", "(X^3-2*X+1)/(X^2+1)", "EXP(-(X^2))*COS(10*X)", "SQRT(1+X^2)+LN(1+X^2)",
          "1+2*X+3*X^2+4*X^3+5*X^4+6*X^5+7*X^6+8*X^7+9*X^8", "SIN(X)*COS(X)+EXP(X/3)*SINH(X/2)",
          "X^2*Y+SIN(X*Y)+Y^3", "SIN(COS(SIN(COS(X+1)+2)+3)+4)*EXP(-ABS(X))"}) {
        law_holder l(str_to_law(text));
        EXPECT_TRUE(law_program(l.get()).native()) << text;
    }
#endif
    EXPECT_GT(raised, 500);
}

// The gradient passes where they take a shortcut: a result read from the registers by
// the next instruction or the one after, the sine and cosine of one argument made by
// one call (not of -A after A), rational steps (their polynomials read again after the
// division; 0/0 at X = 0), three inputs (the general pass), and a fallback whose
// derivative leaves its domain where it does not (X^1 at 0 without rewrites: 1*X^0).
TEST(Compile, GradientShortcutsKeepThePartials) {
    const char* const texts[] = {
        "X^1",
        "X^1*Z+Y",
        "SIN(X)*COS(X)+COS(X)*SIN(-X)+SIN(X)/COS(X+0)",
        "SINH(X/2)*COSH(X)-SIN(X*Y)*COS(X*Y)+Y^3",
        "(X^2+1)/(X^3+2)*(X^3+2)-(X^2+1)+(Y^2-1)/(Y^2+1)",
        "(X^2-X)/(X^3+X)",
        "(X^3-2*X+1)/(X^2+1)*Z+SIN(Z)*COS(Z)",
    };
    for (const char* text : texts) {
        law_holder l(str_to_law(text));
        ASSERT_TRUE(l) << text;
        EXPECT_EQ(check_law(l.get()), 10) << text;
    }
}

// The single-point pass's fused steps: quotients of polynomials (0/0 at 0 and 1 goes to
// the division law), functions of polynomials and of sums and products with their domain
// tests, sine and cosine in one call (bit for bit), the last step returning the value; no
// polynomial whose coefficients overflow (0 at 0 by the tree, not inf*0), no reciprocal
// of a power that overflows (2^-1024 at 0.5, not 0, which ^-0 would refuse).
TEST(Compile, FusedStepsAgreeWithTheTree) {
    for (const char* text :
         {"(X^3-X)/(X^2-X)", "(X^2+1)/(X^2+1)*Y", "LN(X^2-1)+SQRT(X^3-X)",
          "EXP(X^2+X+1)-COS(X^3+2*X)*Y", "1+X+X^2+X^3+X^4", "SIN(X)*COS(X)+COS(2*Y+1)/SIN(2*Y+1)",
          "COS(X+Y)+LN(X-Y)*SQRT(X*Y)", "SIN(PI^42)+X", "1E+300*X*1E+300", "(((4^X)^256)^-4)^-0"}) {
        law_holder l(str_to_law(text));
        EXPECT_GT(check_law(l.get()), 0) << text;
    }
    // Powers of a constant exponent, which the exact program computes as the tree does:
    // whole (several of one operand), negative, half and others, over 0 and negative
    // bases, at the edges of the compensated product's range (1E+15, 1E-15) and of the
    // double range; polynomial chains (one broken by a second input), quotients of them.
    for (const char* text :
         {"X^3+2*X^5-X^16*Y+(X+1)^3*(X+1)^4", "X^-1+X^-2*Y-X^-3", "X^0.5+(X-1)^0.5*Y",
          "X^1+X^-0.5+X^2.5+X^17+X^0", "(1E+15*X)^3+(1E-15*X)^5", "(1E+100*X)^4-(1E-100*X)^-4",
          "(1E-200*X)^3+(1E+200*X)^-5+(1E+300*X)^1.5", "(-3)^X+SIN(2^3*X)^7",
          "2+X*3-X^4*0.5+Y-X^16", "(Y^3+1)/(X^2+1)+(X+1)/(X-1)"}) {
        law_holder l(str_to_law(text));
        EXPECT_GT(check_law(l.get()), 0) << text;
    }
}

// The rewrites, by the size of the program they leave (instructions).
TEST(Compile, RewritesShrinkThePrograms) {
    struct row {
        const char* text;
        int exact_size, rewritten_size;
    } rows[] = {
        // one Horner step; exact: the tree's polynomial chain in one step
        {"1+2*X+3*X^2+4*X^3+5*X^4+6*X^5+7*X^6+8*X^7+9*X^8", 1, 1},
        {"(X^3-2*X+1)/(X^2+1)", 3, 3},    // exact: two chains and their quotient
        {"SQRT(1+X^2)+LN(1+X^2)", 4, 4},  // 1+X^2 once, fused into SQRT and LN
        {"SIN(COS(SIN(COS(X+1)+2)+3)+4)*EXP(-ABS(X))", 7, 7},  // offsets fused
        {"2*3+X", 1, 1},                                       // the constant folds into the offset
        {"3*SIN(X)+1", 2, 2},                                  // c*A+d in one instruction
        {"X^8*EXP(X)", 3, 3},
        {"LN(2-3)+X", 2, 2},  // a raising constant is kept
    };
    for (const row& r : rows) {
        law_holder l(str_to_law(r.text));
        EXPECT_EQ(law_program(l.get(), law_program::exact).size(), r.exact_size) << r.text;
        EXPECT_EQ(law_program(l.get()).size(), r.rewritten_size) << r.text;
    }
}

// A batch gives each point the single-point value (bit for bit without rewrites; within
// the vector functions' few ulp with them), or NaN and the code it raises.
TEST(Compile, BatchGivesTheSinglePointValuesAndCodes) {
    const char* texts[] = {"SIN(COS(SIN(COS(X+1)+2)+3)+4)*EXP(-ABS(X))",
                           "X^2*Y+SIN(X*Y)+Y^3",
                           "LN(X)+SQRT(Y-0.5)",
                           "ARCSIN(X)/X",
                           "(X^3-2*X+1)/(X^2+1)",
                           "COSH(X)*SINH(Y)-EXP(X)/LN(Y+2)",
                           "X^-2+(X-0.5)^0.5*Y^5+X^3*X^4",
                           "Y",     // the value is an input
                           "2+3"};  // no instruction at all
    const int n = 301;              // more than two blocks, and a tail shorter than a vector
    std::vector<double> xs(n), ys(n), out(n);
    std::vector<int> codes(n);
    for (int k = 0; k < n; ++k) {
        xs[k] = -1.2 + 2.4 * k / (n - 1);
        ys[k] = 1.0 - xs[k];
    }
    const double* in[2] = {xs.data(), ys.data()};
    for (int mode : {law_program::exact, law_program::rewrite})
        for (const char* text : texts) {
            law_holder l(str_to_law(text));
            law_program p(l.get(), mode);
            p.evaluate_batch(n, in, out.data(), codes.data());
            int failed = 0;
            for (int k = 0; k < n; ++k) {
                SCOPED_TRACE(std::string(text) + " at " + std::to_string(xs[k]));
                double x[2] = {xs[k], ys[k]};
                int code = 0;
                double v = 0.0;
                try {
                    v = p.evaluate(x);
                } catch (const vorx_exception& e) {
                    code = e.code();
                }
                EXPECT_EQ(codes[k], code);
                failed += code != 0;
                if (code || mode == law_program::exact)
                    EXPECT_TRUE(same_bits(out[k], code ? std::nan("") : v)) << out[k] << " " << v;
                else
                    EXPECT_NEAR(out[k], v, 1e-14 * (1.0 + std::fabs(v)));
            }
            if (std::strncmp(text, "LN", 2) == 0) {
                EXPECT_GT(failed, 100);
            }
        }
}

// Compiling allocates; evaluating does not.
TEST(Compile, EvaluatingAllocatesNothing) {
    law_holder l(str_to_law("SQRT(1+X^2)+LN(1+X^2)+ARCSINH(X)*Y"));
    law_program p(l.get());
    double x[2] = {0.3, 0.7}, grad[2], ys[2], out[2];
    const double* in[2] = {x, ys};
    ys[0] = ys[1] = 0.7;
    long before = 0;
    for (int i = 1; i <= vorx_mem_tag_count(); ++i) before += vorx_mem_tag(i).total_count;
    p.evaluate(x);
    p.evaluate_with_gradient(x, grad);
    p.evaluate_batch(2, in, out);
    long after = 0;
    for (int i = 1; i <= vorx_mem_tag_count(); ++i) after += vorx_mem_tag(i).total_count;
    EXPECT_EQ(after, before);
}

// The compiler walks as deep as the tree evaluates (ten thousand levels).
TEST(Compile, TenThousandLevelsCompile) {
    law_holder tower(str_to_law("X"));
    for (int i = 0; i < 10000; ++i) tower.reset(VORX_NEW sin_law(tower.get()));
    law_program p(tower.get());
    law_tiering_off pure_tree;
    double x = 0.7;
    EXPECT_EQ(p.size(), 10000);
    EXPECT_TRUE(same_bits(p.evaluate(&x), tower->evaluateM_R(&x)));
}

// law_evaluator gives the tree's values and error codes on both sides of its threshold,
// and compiles only scalar laws of two instructions or more.
TEST(Compile, EvaluatorGivesTheTreeValuesAcrossItsThreshold) {
    struct row {
        const char* text;
        bool compiles;
    } rows[] = {
        {"SQRT(1+X^2)+LN(X)", true},          // raises LN for X <= 0
        {"(X*X*X-2*X+1)/(X^2+1)+X/Y", true},  // two inputs
        {"X^X+X", false},                     // a general power: the tree's is as fast
        {"X/(X*X)", true},                    // 0/0 at 0, resolved by the tree
        {"SIN(X)", false},                    // one instruction: the tree's own node
        {"VEC(X,X^2)", false},                // not scalar: LAW_EVALS either way
    };
    law_tiering_off pure_tree;
    for (const row& r : rows) {
        law_holder l(str_to_law(r.text));
        law_evaluator e(l.get(), 10);
        for (int k = 0; k < 40; ++k) {
            double x[2] = {-1.0 + 0.05 * k, 0.5};
            SCOPED_TRACE(std::string(r.text) + " at " + std::to_string(x[0]));
            outcome tree = outcome_of([&] { return l->evaluateM_R(x); });
            outcome through = outcome_of([&] { return e.evaluate(x); });
            EXPECT_EQ(through.error, tree.error);
            EXPECT_TRUE(same_bits(through.value, tree.value)) << through.value << " " << tree.value;
        }
        EXPECT_EQ(e.evaluations(), 40);
        EXPECT_EQ(e.program(e.evaluations()) != nullptr, r.compiles) << r.text;
    }
}
