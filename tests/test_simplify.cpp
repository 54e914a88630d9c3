// The simplifier: the rule lists and their order, every rule on a small example (named
// after its formula), the phases and levels, the trace byte for byte, errors raised
// while folding, the per-law cache, derivative swell, and a property test that compares
// random laws with their simplified forms wherever the original has a value.
#include <gtest/gtest.h>

#include <cctype>
#include <cmath>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "base/output.hpp"
#include "lawutil/law_unary.hpp"
#include "lawutil/law_vector.hpp"
#include "lawutil/lawutil.hpp"
#include "lawutil/main_law_arith.hpp"
#include "lawutil/simplfy.hpp"
#include "test_support.hpp"

namespace {

// The text of law_simplify over `text`.
std::string simplified(const char* text, int level = 1) {
    law_holder l = parse(text);
    law_holder s(law_simplify(l.get(), level, 0));
    return text_of(s.get());
}

// True when a trace of level 1 shows `rule` firing: its line starts with the name.
bool fires(const char* text, const char* rule, int level = 1) {
    law_holder l = parse(text);
    output_capture out;
    law_holder s(law_simplify(l.get(), level, 1));
    return std::string(out.text()).find("\n" + std::string(rule) + " ") != std::string::npos;
}

// ---------------------------------------------------------------- whole simplifications

struct simplify_row {
    const char* rule;  // the rule that must fire (its formula)
    const char* text;
    const char* expect;
    int level;
};

class Simplify : public testing::TestWithParam<simplify_row> {};

TEST_P(Simplify, ReachesTheExpectedForm) {
    const simplify_row& r = GetParam();
    EXPECT_EQ(simplified(r.text, r.level), r.expect) << r.rule;
    if (*r.rule) {
        EXPECT_TRUE(fires(r.text, r.rule, r.level)) << r.rule << " on " << r.text;
    }
}

// The rules working together over whole trees, and the phase rules.  A class rule alone
// on its smallest shape is in class_rows below, not repeated here.
const simplify_row simplify_rows[] = {
    {"0 * A = 0", "X*0", "0", 1},
    {"0 * A = 0", "0*VEC(X,Y,Z)", "VEC(0,0,0)", 1},
    {"C op C = C", "3+4", "7", 1},
    {"C op C = C", "2*X*3", "6*X", 1},
    {"C op C = C", "1+X+2+Y", "3+X+Y", 1},
    {"C op C = C", "MAX(1,5,2)", "5", 1},
    {"C op C = C", "(Y^2+1)O(3)", "1", 1},
    {"C op C = C", "(X^2+1)O(3)", "10", 1},
    {"opC=C", "SIN(0)", "0", 1},
    {"A op C = C op A", "X*3", "3*X", 1},
    {"A+-(B)=A-B", "X-SIN(Y)", "X-SIN(Y)", 1},
    {"c1 * A + c2 * A -> (c1+c2)*A", "X+Y+X", "2*X+Y", 1},
    {"c1 * A + c2 * A -> (c1+c2)*A", "X*Y-Y*X", "0", 1},
    {"cos^2+sin^2=1", "3*SIN(2*X)^2+Y+3*COS(2*X)^2", "3+Y", 1},
    {"vec+vec=vec", "VEC(X,1)+VEC(2,Y,3)", "VEC(2+X,1+Y,3)", 1},
    {"Factoring", "SIN(X)+SIN(X)*Y", "SIN(X)*(1+Y)", 1},
    {"A^B * A^C -> A^(B+C)", "X*Y*X", "X^2*Y", 1},
    {"f*vec", "SIN(X)*VEC(X,2)", "VEC(SIN(X)*X,2*SIN(X))", 1},
    {"A/B=A*B^(-1)", "2*X/X", "2", 1},
    {"(A^B)^C=A^(B*C)", "(X^0.5)^3", "X^1.5", 1},
    {"(A*B)^n=A^n*B^n", "(2*X)^3", "8*X^3", 1},
    {"LoL=L", "(1+2*X) O (3+4*Y)", "7+8*Y", 1},
    {"vec o f = vec", "VEC(X+1,2*X) O Y", "VEC(1+Y,2*Y)", 1},
    {"sin(-CA)=-sin(CA)", "SIN(-2*X)", "-SIN(2*X)", 1},
    {"dot(vec,vec)", "DOT(VEC(X,Y,Z),VEC(2,3))", "2*X+3*Y", 1},
    {"(-c)*A=-(c*A)", "(-1)*X", "-X", 1},
    {"(-c)*A=-(c*A)", "(-1.00000000000001)*X", "-X", 1},
    {"(-c)*A=-(c*A)", "(-2)*X", "-(2*X)", 1},
    // The factoring phase runs only at level 2 and above.
    {"A/B=A*B^(-1)", "(2*X+4*Y)/(X+2*Y)", "(2*X+4*Y)*(X+2*Y)^-1", 1},
    {"", "(2*X)^Y*X^Z", "(2*X)^Y*X^Z", 1},
    {"mA/A = m", "(2*X+4*Y)/(X+2*Y)", "2", 2},
    {"mA^B*A^C=m^B*A^(B+C)", "(2*X)^Y*X^Z", "2^Y*X^(Y+Z)", 2},
    {"mA^B*A^C=m^B*A^(B+C)", "2^X*3^X", "6^X", 2},
    // Forms that no rule may touch.
    {"", "VEC(0,0,0)", "VEC(0,0,0)", 1},
    {"", "STEP(1,2,3)", "STEP(1,2,3)", 1},
    {"", "PDOMAIN(X^2,0,1)", "PDOMAIN(X^2,0,1)", 1},
    {"", "SIN(X) O Y", "(SIN(X))O(Y)", 1},
};

// Test names from the law's text: letters and digits kept, the rest turned into '_'.
template <class Row>
std::string row_name(const testing::TestParamInfo<Row>& info) {
    std::string n;
    for (const char* p = info.param.text; *p; ++p)
        n += (std::isalnum((unsigned char)*p) ? *p : '_');
    return n + "_" + std::to_string(info.index);
}

INSTANTIATE_TEST_SUITE_P(Rules, Simplify, testing::ValuesIn(simplify_rows), row_name<simplify_row>);

// m < 0 with a non-integer exponent: m^B would raise where (m*A)^B has a value.
TEST(SimplifyLevels, FactoringSkipsANegativeFactorUnderAnExponent) {
    EXPECT_FALSE(fires("(-2*X)^Y*X^Z", "mA^B*A^C", 2));
}

// ---------------------------------------------------------------- one class rule at a time

struct class_row {
    const char* rule;
    const char* text;
    const char* expect;  // the law after one sub_simplify step, "" when none applies
};

class ClassRule : public testing::TestWithParam<class_row> {};

TEST_P(ClassRule, OneStepNamesItsFormula) {
    const class_row& r = GetParam();
    law_holder l = parse(r.text);
    const char* name = nullptr;
    law_holder s(l->sub_simplify(0, name));
    EXPECT_EQ(s ? text_of(s.get()) : "", r.expect) << r.rule;
    EXPECT_STREQ(name ? name : "none", r.rule) << r.text;
    // The member form takes no name slot.
    law_holder quiet(l->sub_simplify(0, null_out_ref<const char*>()));
    EXPECT_EQ(quiet ? text_of(quiet.get()) : "", r.expect);
}

const class_row class_rows[] = {
    {"A + 0 = A", "X+0", "X"},
    {"0 + A = A", "0+X", "X"},
    {"c1 * A + c2 * A -> (c1+c2)*A", "2*X+X", "3*X"},
    {"cos^2+sin^2=1", "SIN(X)^2+COS(X)^2", "1"},
    {"vec+vec=vec", "VEC(X,Y)+VEC(1,2)", "VEC(X+1,Y+2)"},
    {"Factoring", "X*Y+Z*X", "X*(Y+Z)"},
    {"B - A = B + (-1) * A", "X-Y", "X+-1*Y"},
    {"0 * A = 0", "0*X", "0"},
    {"1 * A = A", "1*X", "X"},
    {"A * 1 = A", "X*1", "X"},
    {"A^B * A^C -> A^(B+C)", "X^2*X", "X^3"},
    {"-A*-B=A*B", "(-X)*(-Y)", "X*Y"},
    {"f*vec", "VEC(X,Y)*2", "VEC(2*X,2*Y)"},
    {"A/B=A*B^(-1)", "X/Y", "X*Y^-1"},
    {"A^0=1", "X^0", "1"},
    {"A ^ 1 = A", "X^1", "X"},
    {"(A^B)^C=A^(B*C)", "(X^Y)^2", "X^(Y*2)"},
    {"(A*B)^n=A^n*B^n", "(X*Y)^2", "X^2*Y^2"},
    {"-(A)=(-1)*A", "-X", "-1*X"},
    {"CoA=C", "2 O X", "2"},
    {"AoX=A", "COS(X) O X", "COS(X)"},
    {"LoL=L", "(2*X) O (1+X)", "2+2*X"},
    {"vec o f = vec", "VEC(X,1) O Y", "VEC((X)O(Y),(1)O(Y))"},
    {"sin(-CA)=-sin(CA)", "SIN(-(2*X))", "-SIN(2*X)"},
    {"cos(-CA)=cos(CA)", "COS(-X)", "COS(X)"},
    {"sqrt(x)=x^.5", "SQRT(X+1)", "(X+1)^0.5"},
    {"vec(0)=0", "VEC(0)", "0"},
    {"vec(c)=c", "VEC(2)", "2"},
    {"term(vec)=sub", "TERM(VEC(X,Y),2.9)", "Y"},
    {"dot(vec,vec)", "DOT(VEC(X,Y,Z),VEC(1,2,3))", "X*1+Y*2+Z*3"},
    {"dot(vec,vec)", "DOT(VEC(X),VEC(2,3))", "2*X"},
    {"dot(vec,vec)", "DOT(VEC(X),VEC(Y))", "X+Y"},
    {"Dot(0,A)=Dot(A,0)=0", "DOT(0,VEC(X,Y))", "0"},
    {"domain(A)=A", "DOMAIN(SIN(X),0,1)", "SIN(X)"},
    // Shapes that look like a rule's but must be left alone: no step, no name.
    {"none", "(X^2)^0.5", ""},         // |X|, not X
    {"none", "(X^Y)^0.5", ""},         // the inner exponent may be even
    {"none", "(X*Y)^0.5", ""},         // X, Y < 0: the product has a value, the factors' powers not
    {"none", "SIN(Y) O X", ""},        // the outer law reads Y, which X O ... would set to 0
    {"none", "DOT(0,X)", ""},          // two scalars add: X, not 0
    {"none", "TERM(VEC(X,Y),3)", ""},  // outside the vector: raises when evaluated
    {"none", "VEC(0,0)", ""},          // keeps its two outputs
    {"none", "TERM(VEC(X,Y),Z)", ""},  // index not a constant
    {"none", "(-X)*Y", ""},            // one negation only
};

INSTANTIATE_TEST_SUITE_P(Rules, ClassRule, testing::ValuesIn(class_rows), row_name<class_row>);

// ---------------------------------------------------------------- the lists

TEST(SimplifyLists, TriedInTheOrderOfTheTable) {
    const std::vector<std::vector<std::string>> expect = {
        {"", "A op C = C op A", "opC=C", "C op C = C"},
        {"mA/A = m", "mA^B*A^C=m^B*A^(B+C)"},
        {"(-A)/B=-(A/B)", "A-(-(B))=A+B", "A+-(B)=A-B", "(-c)*A=-(c*A)"},
    };
    for (int phase = 0; phase < 3; ++phase) {
        std::vector<std::string> names;
        for (const SRule* r = SRule::head(phase); r; r = r->fnext()) names.push_back(r->fname());
        EXPECT_EQ(names, expect[phase]) << "phase " << phase;
    }
    EXPECT_EQ(SRule::head(3), nullptr);
}

// The rules of the last phase, each applied alone to the shape it rewrites.
TEST(SimplifyLists, PhaseTwoRulesOnTheirShapes) {
    // The reader makes -2 a negation: the constant -2 is built.
    law_holder x = parse("X"), two(VORX_NEW constant_law(-2.0));
    law_holder shapes[] = {parse("(-X)/Y"), parse("X-(-Y)"), parse("X+(-Y)"),
                           law_holder(VORX_NEW times_law(two.get(), x.get()))};
    const char* expect[] = {"-(X/Y)", "X+Y", "X-Y", "-(2*X)"};
    int i = 0;
    for (const SRule* r = SRule::head(2); r; r = r->fnext(), ++i) {
        for (int j = 0; j < 4; ++j) {
            law_holder s(r->apply(shapes[j].get()));
            if (j == i)
                EXPECT_EQ(text_of(s.get()), expect[i]) << r->fname();
            else
                EXPECT_FALSE(s) << r->fname() << " on " << text_of(shapes[j].get());
        }
    }
    EXPECT_EQ(i, 4);
}

// ---------------------------------------------------------------- the trace

// Level 1 prints the rules and the frame, level 2 adds the counter, and no trace prints
// nothing.
TEST(SimplifyTrace, LevelsOneAndTwoPrintTheRulesAndTheFrame) {
    const char* expect[] = {"", "A + 0 = A           X+0 -> X \n\n",
                            "A + 0 = A           X+0 -> X 3\n\n"};
    for (int trace = 0; trace <= 2; ++trace) {
        law_holder l = parse("X+0");
        output_capture out;
        law_holder s(law_simplify(l.get(), 1, trace));
        std::string frame =
            trace ? "\nSimplify X+0\n" + std::string(expect[trace]) + "\nX\n\nPost Simplify\n\n"
                  : "";
        EXPECT_EQ(out.text(), frame) << "trace " << trace;
    }
}

TEST(SimplifyTrace, LevelThreePrintsEveryVisitRebuildAndPass) {
    law_holder l = parse("SIN(X*1)");
    output_capture out;
    law_holder s(law_simplify(l.get(), 1, 3));
    EXPECT_STREQ(out.text(),
                 "\nSimplify SIN(X*1)\n"
                 "working on SIN(X*1) 1\n"
                 "working on X*1 2\n"
                 "working on X 3\n"
                 "working on 1 4\n"
                 "A * 1 = A           X*1 -> X 4\n\n"
                 "answer SIN(X) 4\n"
                 "big answer SIN(X) 4\n"
                 "working on SIN(X) 5\n"
                 "working on X 6\n"
                 "big answer SIN(X) 6\n"
                 "\nSIN(X)\n"
                 "\nPost Simplify\n"
                 "working on SIN(X) 7\n"
                 "working on X 8\n"
                 "big answer SIN(X) 8\n"
                 "\n");
}

// Each thread keeps its own counter: two threads tracing at once print what one prints.
TEST(SimplifyTrace, ThreadsKeepTheirOwnCounter) {
    law_holder l = parse("X*Y+X*Z-3*COS(X)^2");
    law_holder first(l->deep_copy());
    std::string alone;
    {
        output_capture out;
        law_holder s(law_simplify(first.get(), 2, 3));
        alone = out.text();
    }
    std::string texts[2];
    std::thread workers[2];
    for (int t = 0; t < 2; ++t)
        workers[t] = std::thread([&, t] {
            for (int k = 0; k < 20; ++k) {
                // A fresh copy each time: simplifying marks the laws it finishes.
                law_holder copy(l->deep_copy());
                output_capture out;
                law_holder s(law_simplify(copy.get(), 2, 3));
                texts[t] = out.text();
            }
        });
    for (std::thread& w : workers) w.join();
    EXPECT_EQ(texts[0], alone);
    EXPECT_EQ(texts[1], alone);
}

// ---------------------------------------------------------------- errors and folding

TEST(SimplifyErrors, FoldingErrorsPropagateAndLeaveTheLawUsable) {
    law_holder l = parse("X+LN(0)*2");
    EXPECT_EQ(error_code_of([&] { law_holder s(law_simplify(l.get(), 1, 0)); }), LAW_LN);
    EXPECT_EQ(error_code_of([&] { law_holder s(l->simplify(1, 0)); }), LAW_LN);
    EXPECT_EQ(text_of(l.get()), "X+LN(0)*2");
    // Traced, the error still passes and the trace stops where it was raised.
    output_capture out;
    EXPECT_EQ(error_code_of([&] { law_holder s(law_simplify(l.get(), 1, 3)); }), LAW_LN);
    EXPECT_EQ(error_code_of([&] { law_holder d(l->derivative(0)); }), LAW_LN);
    law_holder p = parse("X+0^(-1)");
    EXPECT_EQ(error_code_of([&] { law_holder s(law_simplify(p.get(), 1, 0)); }), LAW_EXPONENT);
}

// Constants within the 1e-14 of law equality were merged as like terms, so that
// 1-0.99999999999999 became 0 and derivatives over tiny constants vanished.  A folded
// value is the actual value: the simplified law keeps the law's value, and it is not 0.
TEST(SimplifyFolding, SmallNonZeroConstantsAreNeverFoldedToZero) {
    struct row {
        const char* text;
        int which;  // -1: the law itself, else its derivative in that input
        double x, expect;
    } rows[] = {
        {"1-0.99999999999999", -1, 0, 1 - 0.99999999999999},
        {"1e-20-2e-20", -1, 0, 1e-20 - 2e-20},
        {"1e-15-0", -1, 0, 1e-15},
        {"X*(3e-15-1e-15)", -1, 1, 3e-15 - 1e-15},
        {"X*1e-15-X*1e-30", -1, 1, 1e-15 - 1e-30},
        {"(1-0.9999999999999966^2)^-1", -1, 0, 1 / (1 - 0.9999999999999966 * 0.9999999999999966)},
        {"X/1e-15", 0, 1, 1e15},
        {"Y/CSCH(100)", 1, 1, std::sinh(100.0)},
    };
    for (const row& r : rows) {
        law_holder l = parse(r.text);
        law_holder s(r.which < 0 ? law_simplify(l.get(), 2, 0) : l->derivative(r.which));
        double at[2] = {r.x, r.x};
        EXPECT_NEAR(s->evaluateM_R(at), r.expect, 1e-12 * std::fabs(r.expect))
            << r.text << " -> " << text_of(s.get());
    }
}

// A law whose value is not a pure function of its argument: it counts its evaluations.
class counting_law : public unary_law {
  public:
    explicit counting_law(law* sub) : unary_law(sub) {}
    void evaluate(const double* x, double* y) const override {
        *y = fsub()->evaluateM_R(x) + ++calls;
    }
    const char* symbol(law_symbol_type) const override { return "COUNT"; }
    unary_law* make_one(law* sub) const override { return VORX_NEW counting_law(sub); }
    mutable int calls = 0;
};

TEST(SimplifyFolding, OnlyTheLibrarysPureLawsFold) {
    law_holder two(VORX_NEW constant_law(2.0));
    law_holder counted(VORX_NEW counting_law(two.get()));
    law_holder s(law_simplify(counted.get(), 1, 0));
    EXPECT_EQ(s.get(), counted.get());
    law_holder x(VORX_NEW identity_law(0, 'X'));
    law_holder counted_x(VORX_NEW counting_law(x.get()));
    law_holder composed(VORX_NEW composite_law(counted_x.get(), two.get()));
    law_holder t(law_simplify(composed.get(), 1, 0));
    EXPECT_EQ(t.get(), composed.get());
    EXPECT_EQ(static_cast<counting_law*>(counted.get())->calls, 0);
    EXPECT_EQ(static_cast<counting_law*>(counted_x.get())->calls, 0);
    // STEP reads its input even over constant parts (a row of simplify_rows); EXP(1000) is
    // not a finite constant.
    EXPECT_EQ(simplified("EXP(1000)"), "EXP(1000)");
    EXPECT_EQ(simplified("EXP(1)*2"),
              text_of(law_holder(VORX_NEW constant_law(std::exp(1.0) * 2)).get()));
}

// ---------------------------------------------------------------- the cache

// A simplest law, and one whose form is equal to it (X-Y goes to X+(-1)*Y and back), is
// its own form, and the self-pointer holds no reference.
TEST(SimplifyCache, OwnFormOnceForAllLevelsAndSeenByConstant) {
    for (const char* text : {"X*Y", "X-Y"}) {
        law_holder l = parse(text);
        int uses = l->ref_count();
        law_holder s(l->simplify(1, 0));
        EXPECT_EQ(s.get(), l.get()) << text;
        EXPECT_EQ(l->ref_count(), uses + 1);
        s.reset();
        EXPECT_EQ(l->ref_count(), uses);
    }
    // The form is made once, serves lower levels, and is its own form.
    law_holder l = parse("X+0*Y");
    law_holder a(l->simplify(2, 0)), b(l->simplify(1, 0)), again(a->simplify(2, 0));
    EXPECT_EQ(a.get(), b.get());
    EXPECT_EQ(again.get(), a.get());
    EXPECT_EQ(text_of(a.get()), "X");
    EXPECT_TRUE(parse("X-X")->constant());
    EXPECT_TRUE(parse("COS(X)^2+SIN(X)^2")->constant());
    EXPECT_FALSE(parse("X*X-X")->constant());
}

// ---------------------------------------------------------------- derivative swell

TEST(SimplifyDerivative, FirstDerivativesPrintCompactly) {
    const char* rows[][2] = {
        {"X*X", "2*X"},
        {"X^2+SIN(X)", "2*X+COS(X)"},
        {"EXP(-(X^2))*COS(10*X)", "EXP(-(X^2))*(-(2*X*COS(10*X))-10*SIN(10*X))"},
        {"SQRT(1+X^2)+LN(1+X^2)", "X*((1+X^2)^-0.5+2*(1+X^2)^-1)"},
    };
    for (auto& r : rows) EXPECT_EQ(text_of(law_holder(parse(r[0])->derivative(0))), r[1]);
}

// ---------------------------------------------------------------- property test

// Random laws over X and Y, read from random texts: constants, + - * / ^ (small integer,
// half-integer or law exponents), negation, SIN COS EXP ABS SQRT LN, composition (the
// outer law may read Y, which the composition sets to 0), and scalar uses of VEC, TERM and
// DOT; make_vector adds laws of one to three outputs.  A negative base takes only exact
// integers, which a law exponent meets by coincidence of rounding (X/ABS(X) is 1,
// X*ABS(X)^-1 may not be): law exponents get a positive base.
class law_generator {
  public:
    explicit law_generator(unsigned seed) : rng_(seed) {}
    law_holder make(int depth) { return parse(scalar(depth)); }
    law_holder make_vector(int depth) { return parse(vector_text(depth)); }

  private:
    std::string scalar(int depth) {
        static const char* const constants[] = {"0", "1",   "(-1)",   "2", "(-2)",
                                                "3", "0.5", "(-1.5)", "4"};
        static const char* const exponents[] = {"-2", "-1",  "0",   "1",   "2",
                                                "3",  "0.5", "1.5", "-0.5"};
        static const char* const functions[] = {"-", "SIN", "COS", "EXP", "ABS", "SQRT", "LN"};
        static const char* const operators[] = {"+", "-", "*", "*", "/", " O "};
        std::string a, b;
        switch (depth <= 0 ? below(3) : below(10)) {
            case 0:
                return "X";
            case 1:
                return "Y";
            case 2:
                return constants[below(9)];
            case 3:
            case 4:
                a = sub(depth);
                return a + operators[below(6)] + sub(depth);
            case 5:
                a = sub(depth);
                if (below(4)) return a + "^" + exponents[below(9)];
                return "EXP" + a + "^" + sub(depth);
            case 6:
                return functions[below(7)] + sub(depth);
            case 7:
                return "TERM(" + vec(depth) + "," + std::to_string(1 + below(2)) + ")";
            case 8:
                a = below(2) ? vec(depth) : scalar(depth - 1);
                return "DOT(" + a + "," + (below(2) ? vec(depth) : scalar(depth - 1)) + ")";
            default:
                a = sub(depth), b = vec(depth);
                return "DOT(" + a + "*" + vec(depth) + "+" + b + "," + b + ")";
        }
    }
    std::string vector_text(int depth) {
        if (depth <= 0) return vec(depth + 1);
        std::string a = "(" + vector_text(depth - 1) + ")", f = sub(depth);
        switch (below(8)) {
            case 0:
            case 1:
                return below(2) ? f + "*" + a : a + "*" + f;
            case 2:
                return a + (below(2) ? "+(" : "-(") + vector_text(depth - 1) + ")";
            case 3:
                return "-" + a;
            case 4:
                return a + "/" + f;
            case 5:
                return a + " O " + f;
            case 6:
                return below(2) ? a + "+" + f : f + "+" + a;
            default:
                return "0*" + a;
        }
    }
    std::string sub(int depth) { return "(" + scalar(depth - 1) + ")"; }
    // VEC of one to three scalar components.
    std::string vec(int depth) {
        std::string t = "VEC(" + scalar(depth - 2);
        for (int n = below(3); n > 0; --n) t += "," + scalar(depth - 2);
        return t + ")";
    }
    int below(int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng_); }
    std::mt19937 rng_;
};

// The values of `l` at `x` (all its outputs), or false where it raises, is outside its
// domain, or gives a value that is not finite or beyond 1e12.
bool values_at(const law* l, const double* x, std::vector<double>& v) {
    v.assign(l->return_dim(), 0.0);
    try {
        l->evaluate(x, v.data());
        if (!l->in_domain(x)) return false;
    } catch (const vorx_exception&) {
        return false;
    }
    for (double c : v)
        if (!std::isfinite(c) || std::fabs(c) > 1e12) return false;
    return true;
}

// True where the values `v` of `l` at `p` are well conditioned: moving the point by a
// relative 1e-12 moves them by little.  Near a pole, where a quotient's denominator is
// below 1e-15 (resolved by L'Hospital, or clamped for a vector), or for SIN of 1e15,
// rewriting changes the result by more than any tolerance, and such points prove nothing.
bool well_conditioned(const law* l, const double* p, const std::vector<double>& v) {
    std::vector<double> w;
    for (double e : {1e-12, -1e-12}) {
        double q[2] = {p[0] * (1 + e), p[1] * (1 - e)};
        if (!values_at(l, q, w)) return false;
        for (size_t i = 0; i < v.size(); ++i)
            if (std::fabs(w[i] - v[i]) > 1e-7 * (1 + std::fabs(v[i]))) return false;
    }
    return true;
}

// Simplifies `l` at levels 1 and 2 and compares the forms with `l` at `points`, where `l`
// has a well-conditioned value; answers the number of comparisons.
template <size_t N>
int compare_forms(const law* l, const double (&points)[N][2]) {
    int compared = 0;
    for (int level = 1; level <= 2; ++level) {
        law_holder s;
        // Folding may raise (LN(0) somewhere in the tree): then there is no form.
        if (error_code_of([&] { s.reset(law_simplify(l, level, 0)); })) continue;
        EXPECT_EQ(s->return_dim(), l->return_dim()) << text_of(l) << " -> " << text_of(s.get());
        if (s->return_dim() != l->return_dim()) return compared;
        std::vector<double> a, b(l->return_dim());
        for (const auto& p : points) {
            if (!values_at(l, p, a) || !well_conditioned(l, p, a)) continue;
            int code = error_code_of([&] { s->evaluate(p, b.data()); });
            EXPECT_EQ(code, 0) << text_of(l) << " -> " << text_of(s.get()) << " at " << p[0] << ","
                               << p[1];
            if (code) return compared;
            for (size_t i = 0; i < a.size(); ++i) {
                EXPECT_NEAR(a[i], b[i], 1e-9 * std::fabs(a[i]) + 1e-9)
                    << text_of(l) << " -> " << text_of(s.get()) << " at " << p[0] << "," << p[1]
                    << ", output " << i;
                if (std::fabs(a[i] - b[i]) > 1e-9 * std::fabs(a[i]) + 1e-9) return compared;
            }
            ++compared;
        }
    }
    return compared;
}

// Simplifies the arguments of `l` on their own first, so that `l` is then simplified
// over finished parts (as derivatives are).
void finish_parts(const law* l) {
    if (!l->isa(binary_law::id())) return;
    const binary_law* b = static_cast<const binary_law*>(l);
    for (const law* part : {b->fleft(), b->fright()})
        error_code_of([&] { law_holder s(law_simplify(part, 1, 0)); });
}

TEST(SimplifyProperty, RandomLawsKeepTheirValuesInsideTheirDomain) {
    const double points[][2] = {{-2.3, 0.7}, {-1.1, -0.4}, {-0.35, 1.9}, {0.3, -1.7},
                                {0.8, 0.45}, {1.6, 2.2},   {2.9, -0.9}};
    law_generator gen(20240611u);
    int compared = 0;
    for (int n = 0; n < 3000 && !HasFailure(); ++n) {
        law_holder l = gen.make(1 + n % 5);
        if (n % 2) finish_parts(l.get());
        compared += compare_forms(l.get(), points);
    }
    EXPECT_GT(compared, 10000);
}

// The slope of `l` in its first input at `p` by central differences with steps h and h/2
// and Richardson's extrapolation, with a bound on its error; false where forward and
// backward differences disagree (a kink) or the steps give far apart slopes.
bool stable_slope(const law* l, const double* p, const std::vector<double>& at, double& slope,
                  double& error) {
    double central[2];
    for (int k = 0; k < 2; ++k) {
        std::vector<double> up, down;
        double h = (k ? 5e-5 : 1e-4) * (1 + std::fabs(p[0]));
        double q[2] = {p[0] + h, p[1]}, r[2] = {p[0] - h, p[1]};
        if (!values_at(l, q, up) || !values_at(l, r, down)) return false;
        central[k] = (up[0] - down[0]) / (2 * h);
        double forward = (up[0] - at[0]) / h, backward = (at[0] - down[0]) / h;
        if (std::fabs(forward - backward) > 1e-2 * (1 + std::fabs(central[k]))) return false;
    }
    slope = (4 * central[1] - central[0]) / 3;
    // Truncation, bounded by the change between the steps, and the rounding of the
    // values, which the division by the step magnifies.
    double rounding = 1e-14 * std::fabs(at[0]) / (5e-5 * (1 + std::fabs(p[0])));
    error = 1e-6 * (1 + std::fabs(slope)) + 0.5 * std::fabs(central[1] - central[0]) + rounding;
    return std::fabs(central[1] - central[0]) <= 1e-4 * (1 + std::fabs(slope));
}

// Derivatives are simplified as they are made, over the finished derivatives of their
// parts: each must still agree with the differences of its law, wherever they are
// stable and the derivative law is in its domain (the derivative of SQRT at 0 is not).
TEST(SimplifyProperty, SimplifiedDerivativesAgreeWithDifferences) {
    const double points[][2] = {{-1.9, 0.6}, {-0.7, -1.3}, {0.45, 1.1}, {1.4, -0.2}, {2.3, 0.9}};
    law_generator gen(4242u);
    int compared = 0;
    for (int n = 0; n < 1500 && !HasFailure(); ++n) {
        law_holder l = gen.make(1 + n % 4);
        law_holder d;
        if (error_code_of([&] { d.reset(l->derivative(0)); })) continue;
        std::vector<double> a;
        for (const auto& p : points) {
            double slope, error, v = 0;
            if (!values_at(l.get(), p, a) || !well_conditioned(l.get(), p, a)) continue;
            if (!stable_slope(l.get(), p, a, slope, error)) continue;
            int inside = 0;
            if (error_code_of([&] { inside = d->in_domain(p); }) || !inside) continue;
            ASSERT_EQ(error_code_of([&] { v = d->evaluateM_R(p); }), 0)
                << text_of(l.get()) << " -> " << text_of(d.get());
            ASSERT_NEAR(v, slope, error)
                << text_of(l.get()) << " -> " << text_of(d.get()) << " at " << p[0] << "," << p[1];
            ++compared;
        }
    }
    EXPECT_GT(compared, 2000);
}

// Laws of several outputs: the same comparison, output by output, with the size kept.
TEST(SimplifyProperty, VectorLawsKeepTheirValuesAndSize) {
    const double points[][2] = {{-1.7, 0.6}, {0.4, -1.2}, {1.3, 2.1}};
    law_generator gen(77u);
    int compared = 0;
    for (int n = 0; n < 1500 && !HasFailure(); ++n) {
        law_holder l = gen.make_vector(1 + n % 4);
        compared += compare_forms(l.get(), points);
    }
    EXPECT_GT(compared, 1500);
}

}  // namespace
