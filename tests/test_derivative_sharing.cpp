// Derivative sharing: the derivatives of the evaluation workload keep the text and
// values they had before equal subtrees were shared, keep their tree size, and use fewer
// law objects; share_equal_subtrees merges only subtrees of the same structure.
#include <gtest/gtest.h>

#include <cmath>
#include <set>

#include "lawutil/lawutil.hpp"
#include "lawutil/simplfy.hpp"
#include "test_support.hpp"

namespace {

// Nodes of the printed tree (a shared law counted at each place) and distinct law
// objects, walked as bench_derivative walks them.
struct node_count {
    long tree = 0;
    std::set<const law*> distinct;
};

void count_nodes(const law* l, node_count& n) {
    ++n.tree;
    n.distinct.insert(l);
    if (l->isa(unary_law::id())) {
        if (const law* s = static_cast<const unary_law*>(l)->fsub()) count_nodes(s, n);
    } else if (l->isa(binary_law::id())) {
        const binary_law* b = static_cast<const binary_law*>(l);
        if (b->fleft()) count_nodes(b->fleft(), n);
        if (b->fright()) count_nodes(b->fright(), n);
    } else if (l->isa(multiple_law::id())) {
        const multiple_law* m = static_cast<const multiple_law*>(l);
        for (int i = 0; i < m->fsub_num(); ++i)
            if (m->fsub()[i]) count_nodes(m->fsub()[i], n);
    }
}

node_count count_of(const law* l) {
    node_count n;
    count_nodes(l, n);
    return n;
}

// The value at X = x, Y = 0.7.
double at(const law_holder& l, double x) {
    double p[3] = {x, 0.7, 0.0};
    return l->evaluateM_R(p);
}

const char* const e1 = "X^2+SIN(X)";
const char* const e3 = "EXP(-(X^2))*COS(10*X)";
const char* const e4 = "SQRT(1+X^2)+LN(1+X^2)";
const char* const e6 = "SIN(X)*COS(X)+EXP(X/3)*SINH(X/2)";
const char* const e8 = "SIN(COS(SIN(COS(X+1)+2)+3)+4)*EXP(-ABS(X))";

// The text each derivative printed before sharing.
struct text_row {
    const char* law;
    int order;
    const char* text;
};
const text_row text_rows[] = {
    {e1, 1, "2*X+COS(X)"},
    {e3, 1, "EXP(-(X^2))*(-(2*X*COS(10*X))-10*SIN(10*X))"},
    {e3, 2, "EXP(-(X^2))*(-(2*(X*(-(2*X*COS(10*X))-20*SIN(10*X))+COS(10*X)))-100*COS(10*X))"},
    {e4, 2, "((1+X^2)^-0.5+2*(1+X^2)^-1)-X^2*((1+X^2)^-1.5+4*(1+X^2)^-2)"},
    {e6, 1,
     "(COS(X)^2-SIN(X)^2)+EXP(0.3333333333333333*X)*(0.3333333333333333*SINH(0.5*X)+0.5*"
     "COSH(0.5*X))"},
    {e8, 1,
     "EXP(-ABS(X))*(COS(4+COS(3+SIN(2+COS(1+X))))*SIN(3+SIN(2+COS(1+X)))*COS(2+COS(1+X))*"
     "SIN(1+X)-(SET(X)-(1-SET(X)))*SIN(4+COS(3+SIN(2+COS(1+X)))))"},
};

TEST(DerivativeSharing, PrintsAndEvaluatesAsBefore) {
    for (const text_row& r : text_rows) {
        law_holder l(str_to_law(r.law));
        law_holder d(l->nth_derivative(r.order));
        EXPECT_EQ(text_of(d), r.text) << r.law << " order " << r.order;
        law_holder old(str_to_law(r.text));
        for (double x : {-0.7, 0.1, 0.6}) {
            double want = at(old, x);
            EXPECT_NEAR(at(d, x), want, 1e-12 * (1.0 + std::fabs(want))) << r.law;
        }
    }
}

// Sizes before sharing: nodes of the printed tree and distinct law objects.
struct size_row {
    const char* law;
    int order;
    long tree;
    size_t distinct_before;
};
const size_row size_rows[] = {
    {e1, 1, 6, 6},     {e1, 2, 4, 4},   {e1, 5, 2, 2},   {e3, 1, 22, 18},  {e3, 2, 39, 27},
    {e3, 5, 208, 117}, {e4, 1, 19, 17}, {e4, 2, 39, 27}, {e4, 5, 127, 74}, {e6, 1, 28, 27},
    {e6, 2, 43, 34},   {e6, 5, 85, 58}, {e8, 1, 64, 40}, {e8, 2, 227, 75}, {e8, 5, 22323, 2086},
};

TEST(DerivativeSharing, SameTreeFewerObjects) {
    for (const size_row& r : size_rows) {
        law_holder l(str_to_law(r.law));
        law_holder d(l->nth_derivative(r.order));
        node_count n = count_of(d.get());
        EXPECT_EQ(n.tree, r.tree) << r.law << " order " << r.order;
        // Nothing to share in a tree whose objects were all distinct and few.
        if (r.distinct_before > 4)
            EXPECT_LT(n.distinct.size(), r.distinct_before) << r.law << " order " << r.order;
        else
            EXPECT_LE(n.distinct.size(), r.distinct_before) << r.law << " order " << r.order;
    }
}

// Only the same operands in the same order are one subtree: X*Y and Y*X are equal laws
// but print differently, and X and T read the same input but print differently.
TEST(DerivativeSharing, MergesSameStructureOnly) {
    struct row {
        const char* text;
        size_t distinct;
    } rows[] = {
        {"SIN(X+1)*SIN(X+1)+COS(X+1)", 7},  // *, +, two SIN(X+1) in one, COS, X+1, X, 1
        {"X*Y+Y*X", 5},
        {"X+T+X", 4},
    };
    for (const row& r : rows) {
        law_holder l(str_to_law(r.text));
        law_holder s(share_equal_subtrees(l.get(), 1));
        EXPECT_EQ(text_of(s), text_of(l)) << r.text;
        node_count before = count_of(l.get());
        node_count after = count_of(s.get());
        EXPECT_EQ(after.tree, before.tree) << r.text;
        EXPECT_EQ(after.distinct.size(), r.distinct) << r.text;
        EXPECT_EQ(at(s, 0.3), at(l, 0.3)) << r.text;
    }
}

// One build per call of nth_derivative keeps what it learns for the whole build, and
// shares subtrees across the derivatives of all orders, so a derivative may come to hold
// the law that caches it (EXP(A)' holds EXP(A); SINH(A)' and COSH(A)' hold each other).
// The texts are those of derivatives taken one order per build, and the cycles of uses
// are broken when the build ends: the listener finds no law left.
TEST(DerivativeSharing, OneBuildPerCallPrintsAsOneBuildPerOrder) {
    const char* laws[] = {"EXP(X)*SINH(X/2)",
                          "TAN(X)^2+SEC(X)",
                          "COSH(2*X)*SINH(2*X)",
                          "EXP(SIN(X))+EXP(-ABS(X))",
                          "X*EXP(-X)+TANH(X)",
                          e3,
                          e8};
    for (const char* text : laws)
        for (int order = 1; order <= 5; ++order) {
            law_holder l(str_to_law(text));
            law_holder whole(l->nth_derivative(order));
            law_holder step(str_to_law(text));
            for (int i = 0; i < order; ++i) step.reset(step->derivative(0));
            EXPECT_EQ(text_of(whole), text_of(step)) << text << " order " << order;
        }
}

}  // namespace
