// The law object model: counting, caches that point at their own law, type identity,
// equality, deep copy, search by type, data arguments and the prototype registries.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "base/output.hpp"
#include "lawutil/lawutil.hpp"
#include "test_support.hpp"

namespace {

// A law whose use count a test can corrupt on purpose.
class tamper_law : public constant_law {
  public:
    tamper_law() : constant_law(7.0) {}
    void force_count(int n) const { use_count = n; }
    void destroy() { delete this; }
    void set_self_caches() const {
        store_cached(simplified, const_cast<tamper_law*>(this));
        store_cached(inverse_law, const_cast<tamper_law*>(this));
        set_derivative(0, const_cast<tamper_law*>(this), 1);
    }
};

// Two-argument test operators: one plain, one associative and commutative.
class pair_law : public binary_law {
    LAWUTIL_TYPE_DECL(pair_law, binary_law)
    pair_law(law* a, law* b) : binary_law(a, b) {}
    const char* symbol(law_symbol_type) const override { return "#"; }
    int precedence() const override { return 6; }
    binary_law* make_one(law* a, law* b) const override { return VORX_NEW pair_law(a, b); }
};
LAWUTIL_TYPE_DEF(pair_law)

class ac_law : public binary_law {
    LAWUTIL_TYPE_DECL(ac_law, binary_law)
    ac_law(law* a, law* b) : binary_law(a, b) {}
    const char* symbol(law_symbol_type) const override { return "&"; }
    int precedence() const override { return 5; }
    int associative() const override { return 1; }
    int commutative() const override { return 1; }
    binary_law* make_one(law* a, law* b) const override { return VORX_NEW ac_law(a, b); }
};
LAWUTIL_TYPE_DEF(ac_law)

class wrap_law : public unary_law {
    LAWUTIL_TYPE_DECL(wrap_law, unary_law)
    explicit wrap_law(law* a) : unary_law(a) {}
    const char* symbol(law_symbol_type t) const override { return t ? "w" : "W"; }
    unary_law* make_one(law* a) const override { return VORX_NEW wrap_law(a); }
};
LAWUTIL_TYPE_DEF(wrap_law)

class list_law : public multiple_law {
    LAWUTIL_TYPE_DECL(list_law, multiple_law)
    list_law(law** s, int n, int comm = 0) : multiple_law(s, n), comm_(comm) {}
    const char* symbol(law_symbol_type t) const override { return t ? "[#a]" : "L"; }
    int commutative() const override { return comm_; }
    multiple_law* make_one(law** s, int n) const override { return VORX_NEW list_law(s, n, comm_); }

  private:
    int comm_;
};
LAWUTIL_TYPE_DEF(list_law)

// A data kind for the printing and copying tests.
class tag_data : public law_data {
    LAWUTIL_TYPE_DECL(tag_data, law_data)
    explicit tag_data(int v) : value(v) {}
    void save(int&) const override {}
    const char* symbol(law_symbol_type) const override { return "TAG"; }
    law_data* deep_copy(pointer_map*) const override { return VORX_NEW tag_data(value); }
    void input(D3_istream&) override {}
    void print(D3_ostream&) const override {}
    int value;
};
LAWUTIL_TYPE_DEF(tag_data)

class data_pair_law : public multiple_data_law {
    LAWUTIL_TYPE_DECL(data_pair_law, multiple_data_law)
    data_pair_law(law_data** d, int n) : multiple_data_law(d, n) {}
    const char* symbol(law_symbol_type) const override { return "DP"; }
    multiple_data_law* make_one(law_data** d, int n) const override {
        return VORX_NEW data_pair_law(d, n);
    }
};
LAWUTIL_TYPE_DEF(data_pair_law)

// Builds small trees of the test operators over X, Y and Z, and owns every node.
struct trees {
    std::vector<law_holder> keep;
    law* own(law* l) {
        keep.emplace_back(l);
        return l;
    }
    law* x = own(VORX_NEW identity_law(0, 'X'));
    law* y = own(VORX_NEW identity_law(1, 'Y'));
    law* z = own(VORX_NEW identity_law(2, 'Z'));
    law* ac(law* a, law* b) { return own(VORX_NEW ac_law(a, b)); }
    law* pair(law* a, law* b) { return own(VORX_NEW pair_law(a, b)); }
};

}  // namespace

TEST(LawCounting, HolderAdoptsSharesAndReleases) {
    law_add(nullptr);  // the null-safe forms do nothing
    law_remove(nullptr);
    EXPECT_FALSE(law_holder());
    int before = law::how_many_laws;
    law* c = VORX_NEW constant_law(2.0);
    {
        law_holder shared = law_holder::share(c);
        EXPECT_EQ(c->ref_count(), 2);
        law_holder adopted(c);
        EXPECT_EQ(law::how_many_laws, before + 1);
    }
    EXPECT_EQ(law::how_many_laws, before);
}

TEST(LawCounting, MisuseRaisesBadLawUseCount) {
    tamper_law* t = VORX_NEW tamper_law;
    t->force_count(-1);
    EXPECT_EQ(error_code_of([&] { t->remove(); }), BAD_LAW_USE_COUNT);
    t->force_count(1000000001);
    EXPECT_EQ(error_code_of([&] { t->remove(); }), BAD_LAW_USE_COUNT);
    // Destroying a law that still has owners is reported too.
    t->force_count(3);
    EXPECT_EQ(error_code_of([&] { t->destroy(); }), BAD_LAW_USE_COUNT);
    --law::how_many_laws;  // destroy() bypassed remove's bookkeeping
}

TEST(LawCounting, SelfReferencingCachesHoldNoReference) {
    int before = law::how_many_laws;
    tamper_law* t = VORX_NEW tamper_law;
    t->set_self_caches();
    EXPECT_EQ(t->ref_count(), 1);
    law* inv = t->inverse();
    EXPECT_EQ(inv, t);
    inv->remove();
    t->remove();
    EXPECT_EQ(law::how_many_laws, before);
}

TEST(LawCounting, MemoryTracePrintsCreateAndDelete) {
    option_guard trace("law_mem_check", 1);
    output_capture out;
    FILE* saved = debug_file_ptr;
    (VORX_NEW constant_law(1.0))->remove();
    debug_file_ptr = saved;
    unsigned a1, a2;
    int n1, n2;
    ASSERT_EQ(std::sscanf(out.text(), "Create %x %d\nDelete %x %d\n", &a1, &n1, &a2, &n2), 4)
        << out.text();
    EXPECT_EQ(a1, a2);
    EXPECT_EQ(n1, n2 + 1);
}

TEST(LawTypes, IsaWalksTheBaseChain) {
    law_holder x(VORX_NEW identity_law(0, 'X'));
    law_holder p(VORX_NEW pair_law(x.get(), x.get()));
    EXPECT_TRUE(p->isa(pair_law::id()));
    EXPECT_TRUE(p->isa(binary_law::id()));
    EXPECT_TRUE(p->isa(law::id()));
    EXPECT_FALSE(p->isa(unary_law::id()));
    EXPECT_EQ(p->type(), pair_law::id());
    EXPECT_STREQ(p->class_name(), "pair_law");
}

// Constants compare within a tolerance, variables by index only (not by letter).
TEST(LawEquality, LeavesCompareByValueOrIndex) {
    struct {
        law *a, *b;
        bool equal;
    } rows[] = {{VORX_NEW constant_law(1.0), VORX_NEW constant_law(1.0 + 1e-15), true},
                {VORX_NEW constant_law(1.0), VORX_NEW constant_law(1.0 + 1e-13), false},
                {VORX_NEW identity_law(0, 'X'), VORX_NEW identity_law(0, 'T'), true},
                {VORX_NEW identity_law(0, 'X'), VORX_NEW identity_law(1, 'Y'), false}};
    for (auto& r : rows) {
        law_holder a(r.a), b(r.b);
        EXPECT_EQ(*a == *b, r.equal) << text_of(a.get()) << " " << text_of(b.get());
        EXPECT_EQ(*a != *b, !r.equal);
    }
}

TEST(LawEquality, CommutativeChainsIgnoreOrderOthersDoNot) {
    trees t;
    law *x = t.x, *y = t.y, *z = t.z;
    EXPECT_TRUE(*t.ac(t.ac(x, y), z) == *t.ac(z, t.ac(y, x)));
    // The same shapes with a plain operator differ.
    EXPECT_FALSE(*t.pair(x, y) == *t.pair(y, x));
    // A repeated operand must be matched as often as it occurs.
    EXPECT_FALSE(*t.ac(t.ac(x, x), y) == *t.ac(x, t.ac(y, y)));
    law* la[3] = {x, y, z};
    law* lb[3] = {z, x, y};
    EXPECT_TRUE(*t.own(VORX_NEW list_law(la, 3, 1)) == *t.own(VORX_NEW list_law(lb, 3, 1)));
    EXPECT_FALSE(*t.own(VORX_NEW list_law(la, 3, 0)) == *t.own(VORX_NEW list_law(lb, 3, 0)));
}

// Variables print their letter, with the input number when the letter does not imply it;
// constants in the fewest digits that read back to the same double.
TEST(LawText, VariablesAndConstants) {
    struct {
        int index;
        char letter;
        const char* text;
    } rows[] = {{0, 'X', "X"},  {1, 'X', "X2"}, {2, 'Z', "Z"}, {2, 'Y', "Y3"},
                {3, 'X', "X4"}, {0, 'A', "A1"}, {0, 'T', "T"}, {1, 'V', "V"}};
    for (auto& r : rows) {
        law_holder v(VORX_NEW identity_law(r.index, r.letter));
        EXPECT_EQ(text_of(v.get()), r.text);
    }
    struct {
        double value;
        const char* text;
    } constants[] = {{1.0 / 3.0, "0.3333333333333333"}, {0.1, "0.1"}, {3.0, "3"}};
    for (auto& c : constants) {
        law_holder l(VORX_NEW constant_law(c.value));
        EXPECT_EQ(text_of(l.get()), c.text);
    }
}

TEST(LawText, ParenthesesFollowPrecedenceAndAssociativity) {
    trees t;
    law *x = t.x, *y = t.y, *z = t.z;
    EXPECT_EQ(text_of(t.ac(t.ac(x, y), z)), "X&Y&Z");
    EXPECT_EQ(text_of(t.ac(x, t.ac(y, z))), "X&Y&Z");
    // Same precedence, not associative: both sides keep their parentheses.
    EXPECT_EQ(text_of(t.pair(t.pair(x, y), z)), "(X#Y)#Z");
    law* w = t.own(VORX_NEW wrap_law(t.ac(x, y)));
    EXPECT_EQ(text_of(w), "W(X&Y)");
    EXPECT_EQ(text_of(w, law_symbol_maple), "w(X&Y)");
    law* parts[3] = {x, y, z};
    law* l = t.own(VORX_NEW list_law(parts, 3));
    EXPECT_EQ(text_of(l), "L(X,Y,Z)");
    EXPECT_EQ(text_of(l, law_symbol_maple), "[X,Y,Z]");
}

TEST(LawData, PlaceholdersAreNumberedAndHandedBack) {
    law_data* d = VORX_NEW tag_data(5);
    law_data* both[2] = {d, d};
    law_holder l(VORX_NEW data_pair_law(both, 2));
    law_data** out = nullptr;
    int n = -1;
    char* text = l->string_and_data(&out, &n);
    EXPECT_STREQ(text, "DP(TAG1,TAG2)");
    ASSERT_EQ(n, 2);
    EXPECT_EQ(out[0], d);
    EXPECT_EQ(out[1], d);
    EXPECT_EQ(d->ref_count(), 1 + 2 + 2);  // creator, the law (twice), the returned array
    for (int i = 0; i < n; ++i) out[i]->remove();
    VORX_FREE(out);
    VORX_FREE(text);
    d->remove();

    law_holder x(VORX_NEW identity_law(0, 'X'));
    text = x->string_and_data(&out, &n);
    EXPECT_EQ(n, 0);
    EXPECT_NE(out, nullptr);
    VORX_FREE(out);
    VORX_FREE(text);
}

TEST(LawData, WrappedLawPrintsAsItsText) {
    law_holder x(VORX_NEW identity_law(1, 'Y'));
    law_data_holder w(VORX_NEW law_law_data(x.get()));
    char* s = w->string();
    EXPECT_STREQ(s, "Y");
    VORX_FREE(s);
    EXPECT_STREQ(w->symbol(law_symbol_default), "LAW");
}

TEST(LawDeepCopy, PreservesSharing) {
    law_holder x(VORX_NEW identity_law(0, 'X'));
    law_holder sum(VORX_NEW ac_law(x.get(), x.get()));
    law_holder copy(sum->deep_copy());
    ASSERT_TRUE(copy);
    const binary_law* c = static_cast<const binary_law*>(copy.get());
    EXPECT_NE(c, sum.get());
    EXPECT_NE(c->fleft(), x.get());
    EXPECT_EQ(c->fleft(), c->fright());
    EXPECT_TRUE(*copy == *sum);

    // Shared data stays shared as well, through several levels.
    law_data* d = VORX_NEW tag_data(1);
    law_data* both[2] = {d, d};
    law_holder dp(VORX_NEW data_pair_law(both, 2));
    d->remove();
    law_holder w(VORX_NEW wrap_law(dp.get()));
    law_holder pair(VORX_NEW pair_law(w.get(), dp.get()));
    law_holder pc(pair->deep_copy());
    const binary_law* b = static_cast<const binary_law*>(pc.get());
    EXPECT_EQ(static_cast<const unary_law*>(b->fleft())->fsub(), b->fright());
    const multiple_data_law* dc = static_cast<const multiple_data_law*>(b->fright());
    EXPECT_EQ(dc->fsubs()[0], dc->fsubs()[1]);
    EXPECT_NE(dc->fsubs()[0], d);
}

TEST(LawDeepCopy, UncopyableClassReportsAndLeaksNothing) {
    // The base class cannot be copied: the error passes through the composite's copy.
    class opaque_law : public law {
      public:
        void evaluate(const double*, double* y) const override { *y = 0; }
    };
    law_holder o(VORX_NEW opaque_law);
    law_holder x(VORX_NEW identity_law(0, 'X'));
    law_holder p(VORX_NEW pair_law(x.get(), o.get()));
    EXPECT_EQ(error_of([&] { law_holder bad(p->deep_copy()); }), "LAW_DEEP_COPY");
}

TEST(LawSearch, HasaVisitsChildrenFirst) {
    trees t;
    law* w = t.own(VORX_NEW wrap_law(t.pair(t.x, t.y)));
    VOID_LIST found;
    w->hasa(identity_law::id(), found);
    ASSERT_EQ(found.count(), 2);
    EXPECT_EQ(found[0], t.x);
    EXPECT_EQ(found[1], t.y);
    VOID_LIST all;
    w->hasa(law::id(), all);
    EXPECT_EQ(all.count(), 4);
    EXPECT_EQ(all[3], w);
}

// full_size walked again below every node already counted, and into the derivative
// caches of each path, so a shared tree took exponential time (the fourth derivative of
// SIN(COS(SIN(COS(X+1)+2)+3)+4)*EXP(-ABS(X)) took seconds).  In a tree 24 levels deep
// whose levels each use the one below twice, the leaf is now reached twice (from its one
// parent, which holds it twice), not 2^24 times.
TEST(LawSize, FullSizeWalksEachNodeOncePerCall) {
    struct counted_leaf : constant_law {
        counted_leaf() : constant_law(1.0) {}
        void full_size(SizeAccumulator& acc, int count_self) const override {
            ++walks;
            constant_law::full_size(acc, count_self);
        }
        mutable int walks = 0;
    };
    counted_leaf* leaf = VORX_NEW counted_leaf;
    law_holder level(leaf);
    for (int i = 0; i < 24; ++i) level.reset(VORX_NEW pair_law(level.get(), level.get()));
    SizeAccumulator acc;
    level->full_size(acc);
    EXPECT_EQ(leaf->walks, 2);
    EXPECT_EQ(acc.blocks(), 25);
    // Derivative cache slots are pointers of the platform's size (one slot here, beside
    // the derivative, a leaf counted as a law).
    law_holder x(VORX_NEW identity_law(0, 'X'));
    SizeAccumulator bare, cached;
    x->full_size(bare);
    law_holder dx(x->derivative(0));
    x->full_size(cached);
    EXPECT_EQ(cached.size() - bare.size() - sizeof(law), sizeof(law*));
}

// derivs_data is one cached sample (a parameter and four vectors); the root section of
// the thread context holds four of them.
TEST(LawData, DerivsDataCachesOneScaledSample) {
    law_holder helix(str_to_law("VEC(COS(X),SIN(X),X)"));
    derivs_data& d = law_context().root.derivs[3];
    d.set(helix.get(), 0.0, 2.0);
    vector p, d1, d2, d3;
    EXPECT_EQ(d.get(0.0, p, d1, d2, d3), 1);
    EXPECT_EQ(p.x(), 1.0);
    EXPECT_NEAR(d1.y(), 2.0, 1e-12);   // 2 * cos 0
    EXPECT_NEAR(d2.x(), -4.0, 1e-12);  // 4 * -cos 0
    EXPECT_NEAR(d3.z(), 0.0, 1e-12);
    EXPECT_EQ(d.get(-0.1), -1);  // the sample lies beyond: no later one can match
    EXPECT_EQ(d.get(0.1), 0);
    vector only;
    derivs_data fresh;
    fresh.eval(helix.get(), 0.0, 3.0, null_out_ref<vector>(), only);
    EXPECT_NEAR(only.y(), 3.0, 1e-12);
    d = derivs_data();
}

TEST(LawRegistry, PrototypesHaveUseCountZero) {
    for (law_list* n = law_list::head(); n; n = n->fnext())
        EXPECT_EQ(n->fthis()->ref_count(), 0) << n->fthis()->class_name();
    static law_data_prototype<tag_data> registered(3);
    EXPECT_EQ(registered.get()->ref_count(), 0);
    EXPECT_EQ(get_law_data("TAG"), registered.get());
    EXPECT_EQ(get_law_data("NO_SUCH"), nullptr);
}

TEST(LawLists, MakeListLawBuildsLeftNestedChains) {
    trees t;
    law* items[3] = {t.x, t.y, t.z};
    law_holder proto(VORX_NEW pair_law(nullptr, nullptr));
    law_holder chain(make_list_law(items, 3, static_cast<binary_law*>(proto.get())));
    EXPECT_EQ(text_of(chain.get()), "(X#Y)#Z");
    int n = 0;
    law_holder ac(VORX_NEW ac_law(nullptr, nullptr));
    law_holder c2(make_list_law(items, 3, static_cast<binary_law*>(ac.get())));
    law** flat = get_asso_list(static_cast<binary_law*>(c2.get()), &n);
    ASSERT_EQ(n, 3);
    EXPECT_EQ(flat[2], t.z);
    VORX_FREE(flat);
    EXPECT_EQ(same_law_list(nullptr, nullptr, 0), 1);
}
