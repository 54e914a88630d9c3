// The simplifier: the rule lists, one pass over a tree, the phase loops of law_simplify,
// the rules of the lists themselves and the per-law cache behind law::simplify.  The
// classes' own rules live with the classes (their sub_simplify overrides) and are
// reached through the driver rule.
//
// The simplifier's counter (printed with "%d" by the trace) is the number of nodes the
// running law_simplify has visited so far.  It lives in the calling thread, so
// simplifications on separate threads never touch each other's counter; a nested
// simplification (a derivative taken while folding a 0/0) counts from 0 and leaves the
// outer count as it was.
//
// Caching.  The per-law cache (law::simplified, law::simplify_level) holds the result
// of a whole simplification.  Every node of a result is marked as its own simplified
// form at the level it was made: rules are local, so a subtree of a finished form is
// finished too.  A pass does not walk into a finished node of more than small_tree
// nodes (its rules still apply to the node itself, so it can take part in its new
// parent's rules), and a node whose cached form is another law is replaced by that form.
// Derivatives are built from finished derivatives, so each one costs the size of what is new, not
// of the whole tree.  Within one pass, a node shared by several parents is simplified once and its
// result shared. Per-phase marks are not kept: a law has one cache slot, and the form of one phase
// is not the final one.
//
// Stable nodes.  A node that a pass of a phase walked and left unchanged is recorded
// (with a use, so its address is not reused) and answers itself in the later passes of
// that phase within the same law_simplify; with a trace every node is visited as before.
//
// Sharing.  Each new derivative goes through share_equal_subtrees: a table keyed by a
// structural hash (class, own parameters, identities of the already shared operands)
// makes subtrees of the same structure one object.  Only the same operands in the same
// order merge, so the text and values stay as they were; the table holds its uses and
// drops them when it goes, also when an error passes.
//
// Derivative builds.  A derivative of a tree is built node by node (each node's
// derivative from its operands' cached ones), so one build runs share_equal_subtrees
// and law_simplify once per node, over trees made mostly of the derivatives already
// built.  A derivative_build keeps, for the whole build and on its own thread:
//   - one sharing table, so each derivative costs its new nodes only, and a subtree
//     equal to one of an earlier derivative becomes that law;
//   - the result of each pass over a finished node (and over each node of a small
//     finished subtree, which is walked whole), per phase: such a result depends on the
//     node alone, since rules are local and a finished node's marks never change, and
//     sharing makes the nodes the build meets again the same objects;
//   - whether each finished node is small.
// Every table holds uses of its keys as well as of its laws, so no address is reused
// while it is recorded; all of it goes when the outermost scope ends, also when an
// error passes.  Sharing across derivatives may make a derivative reach the law that
// caches it (EXP(A)' holds EXP(A), SINH(A)' holds COSH(A) whose derivative holds
// SINH(A)), a cycle of uses; the build records every law that stores a derivative
// while it runs and, when it ends, drops each cache that closes a cycle (break_cycles),
// so nothing is kept alive for ever.  (A simplified form closes none: the law it is
// stored on is a derivative's fresh rule output, which no other law holds.)  The texts
// and the values of the derivatives stay as they were.
//
// Sizes.  Rules that look at pairs of operands of a chain (A+B+C+..., A*B*C*...) see at
// most max_chain operands; a longer chain is seen as its two operands, so the pair
// search stays quadratic in a bounded number.
#include "lawutil/simplfy.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <functional>
#include <utility>
#include <vector>

#include "base/output.hpp"
#include "lawutil/internal_law.hpp"
#include "lawutil/law_util.hpp"
#include "lawutil/law_vector.hpp"
#include "lawutil/main_law_arith.hpp"

using namespace vorx;

namespace lawutil {

namespace {

// The list heads are constant-initialised, so they are valid (empty) before any rule of
// any file is constructed.
SRule* list_head[3];
SRule* list_tail[3];

// Guards against a class whose rules undo each other: a loop stops after this many
// steps instead of running for ever.  Sound rules never come near it.
constexpr int max_steps = 500;

// Longest chain whose operands the pair rules see one by one.
constexpr int max_chain = law_chain::capacity;

// A finished subtree of at most this many nodes is walked like any other: it is cheap,
// and its parts then take the forms of the running phase, so they compare equal to the
// same parts built afresh elsewhere in the tree.
constexpr int small_tree = 256;

// An open-addressing table of laws under hashes, each entry holding one use of its law
// (and of its key, for a table that outlives the laws that were its keys): the sharing
// pass files thousands of nodes per derivative, and a node-based map paid one
// allocation for each.  An entry carries a small number of its own (`tag`).
class law_slots {
  public:
    struct slot {
        std::size_t hash;
        const law* key;
        law* value;
        int tag;
    };

    explicit law_slots(bool hold_keys = false) : hold_keys_(hold_keys) {}
    ~law_slots() {
        for (std::size_t i = 0; i < capacity_; ++i) {
            if (!slots_[i].key) continue;
            if (slots_[i].value) slots_[i].value->remove();
            if (hold_keys_) slots_[i].key->remove();
        }
        VORX_FREE(slots_);
    }
    law_slots(const law_slots&) = delete;
    law_slots& operator=(const law_slots&) = delete;

    // The first entry filed under `hash` for which `match(entry)` holds; null when none
    // does.
    template <class F>
    const slot* find(std::size_t hash, F match) const {
        if (!slots_) return nullptr;
        for (std::size_t i = hash & (capacity_ - 1); slots_[i].key; i = (i + 1) & (capacity_ - 1))
            if (slots_[i].hash == hash && match(slots_[i])) return &slots_[i];
        return nullptr;
    }
    // The law of the first entry filed under `hash` with key `key`, or null.
    law* find_key(std::size_t hash, const law* key) const {
        const slot* e = find(hash, [key](const slot& s) { return s.key == key; });
        return e ? e->value : nullptr;
    }
    // Calls `f` on the key of every entry.
    template <class F>
    void for_each(F f) const {
        for (std::size_t i = 0; i < capacity_; ++i)
            if (slots_[i].key) f(slots_[i].key);
    }
    // Files `value` (a use is added; it may be null) under `hash` and `key`.
    void insert(std::size_t hash, const law* key, law* value, int tag = 0) {
        if (2 * (used_ + 1) > capacity_) grow();
        std::size_t i = hash & (capacity_ - 1);
        while (slots_[i].key) i = (i + 1) & (capacity_ - 1);
        if (value) value->add();
        if (hold_keys_) key->add();
        slots_[i] = {hash, key, value, tag};
        ++used_;
    }

  private:
    void grow() {
        std::size_t n = capacity_ ? 2 * capacity_ : 64;
        slot* bigger = VORX_ALLOC_ARRAY(slot, n);
        std::memset(static_cast<void*>(bigger), 0, n * sizeof(slot));
        for (std::size_t i = 0; i < capacity_; ++i) {
            if (!slots_[i].key) continue;
            std::size_t j = slots_[i].hash & (n - 1);
            while (bigger[j].key) j = (j + 1) & (n - 1);
            bigger[j] = slots_[i];
        }
        VORX_FREE(slots_);
        slots_ = bigger;
        capacity_ = n;
    }
    slot* slots_ = nullptr;
    std::size_t capacity_ = 0;
    std::size_t used_ = 0;
    bool hold_keys_;
};

std::size_t pointer_hash(const law* l) {
    return std::hash<const law*>()(l);
}

// The results of one pass for the nodes that have several owners, so a shared subtree
// is simplified once per pass and stays shared.  Holds one use of each result.
class pass_memo {
  public:
    // The result recorded for `l` with a use for the caller, or null.
    law* find(const law* l) const {
        law* r = slots_.find_key(pointer_hash(l), l);
        return r ? law_holder::share(r).release() : nullptr;
    }
    void record(const law* l, law* result) { slots_.insert(pointer_hash(l), l, result); }

  private:
    law_slots slots_;
};

// The nodes that a pass of one phase walked and left as they were, per law_simplify.
// Rules are local and the same rules run in every pass of a phase, so such a node is its
// own answer in every later pass of that phase: the rounds that only confirm a fixed
// point then cost a lookup at the top of each unchanged subtree instead of a walk.
// Each entry holds one use of its law, so no address is reused while it is recorded.
class stable_set {
  public:
    bool has(const law* l, int phase) const {
        return phases_[phase].find_key(pointer_hash(l), l) != nullptr;
    }
    void record(const law* l, int phase) {
        if (!has(l, phase)) phases_[phase].insert(pointer_hash(l), l, const_cast<law*>(l));
    }

  private:
    law_slots phases_[3];
};

// The memo of the running derivative build on this thread (derivative_build), or null.
struct build_memo;
thread_local build_memo* current_build = nullptr;
law_slots* build_sizes(build_memo* build);
law* build_pass_find(build_memo* build, const law* l, int phase);
void build_pass_record(build_memo* build, const law* l, int phase, law* result);
void note_reuse(build_memo* build, const law* l);

struct simplify_state {
    int counter = 0;
    int trace = 0;
    int level = 1;
    pass_memo* memo = nullptr;
    law_slots* sizes = nullptr;    // finished nodes met so far, tagged 1 when small
    stable_set* stable = nullptr;  // null while tracing, so a trace shows every visit
    bool in_small = false;         // walking inside a small finished subtree
    // The running derivative build, whose memo of passes serves this simplification (at
    // level 1 and without a trace), or null.
    build_memo* build = nullptr;
};
thread_local simplify_state state;

// The state of one law_simplify: a fresh counter, its trace and level, the caller's
// state restored on the way out (also when an error passes).
class state_scope {
  public:
    state_scope(int level, int trace) : saved_(state) {
        state.counter = 0;
        state.trace = trace;
        state.level = level;
        state.memo = nullptr;
        build_memo* build = current_build;
        state.build = build && level == 1 && !trace ? build : nullptr;
        state.sizes = build ? build_sizes(build) : &sizes_;
        state.stable = trace ? nullptr : &stable_;
        state.in_small = false;
    }
    ~state_scope() { state = saved_; }
    state_scope(const state_scope&) = delete;
    state_scope& operator=(const state_scope&) = delete;

  private:
    simplify_state saved_;
    law_slots sizes_;
    stable_set stable_;
};

// The per-law cache fields are protected members of law; a class derived from law may
// name them, and hands the simplifier pointers to them.
struct cache_slots : law {
    static constexpr law* law::*form = &cache_slots::simplified;
    static constexpr int law::*made_at = &cache_slots::simplify_level;
    static constexpr law** law::*derivatives = &cache_slots::dlaw_cache;
    static constexpr int law::*derivative_count = &cache_slots::dlaw_cache_size;
    static constexpr law* law::*inverse = &cache_slots::inverse_law;
};

// The finished form of `l` at the running level: `l` itself when it is marked as its
// own simplified form, the cached form when that is another law; null when there is
// none at this level.
const law* finished_form(const law* l) {
    const law* f = l->*cache_slots::form;
    return f && l->*cache_slots::made_at >= state.level ? f : nullptr;
}

// The number of nodes of the tree `l` (a shared node counted at each place), or a
// number above `limit` as soon as it has more.
int tree_size(const law* l, int limit) {
    int n = 1;
    if (n > limit) return n;
    if (l->isa(binary_law::id())) {
        const binary_law* b = static_cast<const binary_law*>(l);
        if (b->fleft()) n += tree_size(b->fleft(), limit - n);
        if (n <= limit && b->fright()) n += tree_size(b->fright(), limit - n);
    } else if (l->isa(unary_law::id())) {
        const law* sub = static_cast<const unary_law*>(l)->fsub();
        if (sub) n += tree_size(sub, limit - n);
    } else if (l->isa(multiple_law::id())) {
        const multiple_law* ml = static_cast<const multiple_law*>(l);
        for (int i = 0; i < ml->fsub_num() && n <= limit; ++i)
            if (ml->fsub() && ml->fsub()[i]) n += tree_size(ml->fsub()[i], limit - n);
    }
    return n;
}

// True when the finished node `l` is small enough to be walked.
bool small_finished(const law* l) {
    std::size_t h = pointer_hash(l);
    if (const law_slots::slot* e =
            state.sizes->find(h, [l](const law_slots::slot& s) { return s.key == l; }))
        return e->tag != 0;
    bool small = tree_size(l, small_tree) <= small_tree;
    state.sizes->insert(h, l, nullptr, small ? 1 : 0);
    return small;
}

// Marks every node of `l` as its own simplified form at `level`, down to the nodes
// already finished at that level.  A node whose cache holds another law keeps it.
void mark_finished(const law* l, int level) {
    law* m = const_cast<law*>(l);
    if (m->*cache_slots::form == nullptr)
        m->*cache_slots::form = m;
    else if (m->*cache_slots::form != m || m->*cache_slots::made_at >= level)
        return;
    m->*cache_slots::made_at = level;
    if (l->isa(binary_law::id())) {
        const binary_law* b = static_cast<const binary_law*>(l);
        if (b->fleft()) mark_finished(b->fleft(), level);
        if (b->fright()) mark_finished(b->fright(), level);
    } else if (l->isa(unary_law::id())) {
        const law* sub = static_cast<const unary_law*>(l)->fsub();
        if (sub) mark_finished(sub, level);
    } else if (l->isa(multiple_law::id())) {
        const multiple_law* ml = static_cast<const multiple_law*>(l);
        for (int i = 0; i < ml->fsub_num(); ++i)
            if (ml->fsub() && ml->fsub()[i]) mark_finished(ml->fsub()[i], level);
    }
}

// The text of a law for the trace, freed when it goes.
class law_text {
  public:
    explicit law_text(const law* l) : s_(l->string()) {}
    ~law_text() { VORX_FREE(s_); }
    law_text(const law_text&) = delete;
    law_text& operator=(const law_text&) = delete;
    const char* get() const { return s_ ? s_ : ""; }

  private:
    char* s_;
};

// "name", padded with spaces to column 20, "old -> new", the counter when trace > 1.
void trace_rule(const char* name, const law* before, const law* after) {
    if (!state.trace || !name || !*name) return;
    vorx_printf("%s ", name);
    for (int col = (int)std::strlen(name) + 1; col < 20; ++col) vorx_printf(" ");
    law_text a(before);
    law_text b(after);
    vorx_printf("%s -> ", a.get());
    vorx_printf("%s ", b.get());
    if (state.trace > 1) vorx_printf("%d", state.counter);
    vorx_printf("\n\n");
}

void trace_law(const char* format, const law* l) {
    law_text t(l);
    vorx_printf(format, t.get(), state.counter);
}

bool is_constant(const law* l) {
    return l && l->isa(constant_law::id());
}

double constant_value(const law* l) {
    return static_cast<const constant_law*>(l)->value();
}

// The library's own law classes are the ones registered with the parser, and each of
// them is a pure function of its arguments' values.  A host's own classes may keep
// state or have side effects, and laws over law_data read more than their law
// arguments: neither is ever folded.
bool library_class(const law* l) {
    int t = l->type();
    for (law_list* n = law_list::head(); n; n = n->fnext())
        if (n->fthis() && n->fthis()->type() == t) return true;
    return false;
}

// The constant value of a law that reads no input, or null where folding would not keep
// its value: a non-scalar law, a law that reads an input (STEP reads one even over
// constant parts), a class that is not the library's, or a value that is not finite.
// Errors of the evaluation (LN(0)) pass to the caller.
law* fold(const law* l) {
    if (l->return_dim() != 1 || l->take_dim() != 0 || !library_class(l)) return nullptr;
    // take_dim is 0, so no input is read; the zeros guard a class that reads one anyway.
    double dummy[4] = {0.0, 0.0, 0.0, 0.0};
    double v = l->evaluateM_R(dummy);
    if (!std::isfinite(v)) return nullptr;
    return VORX_NEW constant_law(v);
}

// A tree of the library's classes only, so evaluating it has no effect but its value.
bool pure_tree(const law* l) {
    if (l->isa(constant_law::id()) || l->isa(identity_law::id())) return true;
    if (!library_class(l)) return false;
    if (l->isa(unary_law::id())) {
        const law* sub = static_cast<const unary_law*>(l)->fsub();
        return sub && pure_tree(sub);
    }
    if (l->isa(binary_law::id())) {
        const binary_law* b = static_cast<const binary_law*>(l);
        return b->fleft() && b->fright() && pure_tree(b->fleft()) && pure_tree(b->fright());
    }
    if (l->isa(multiple_law::id())) {
        const multiple_law* m = static_cast<const multiple_law*>(l);
        for (int i = 0; i < m->fsub_num(); ++i)
            if (!m->fsub() || !m->fsub()[i] || !pure_tree(m->fsub()[i])) return false;
        return true;
    }
    return false;
}

bool all_constant(law* const* parts, int n) {
    if (!parts || n < 1) return false;
    for (int i = 0; i < n; ++i)
        if (!is_constant(parts[i])) return false;
    return true;
}

// ---------------------------------------------------------------- one pass

law* simplify_pass(const law* in, int phase);

// A law whose argument slots are not all filled (a registered prototype) is left alone.
bool complete(const law* l) {
    if (l->isa(binary_law::id())) {
        const binary_law* b = static_cast<const binary_law*>(l);
        return b->fleft() && b->fright();
    }
    if (l->isa(unary_law::id())) return static_cast<const unary_law*>(l)->fsub() != nullptr;
    if (l->isa(multiple_law::id())) {
        const multiple_law* m = static_cast<const multiple_law*>(l);
        for (int i = 0; i < m->fsub_num(); ++i)
            if (!m->fsub() || !m->fsub()[i]) return false;
    }
    return true;
}

// The law rebuilt over its children's forms after this pass; null when no child changed
// or the class cannot rebuild itself.
law* pass_children(const law* l, int phase) {
    if (l->isa(binary_law::id())) {
        const binary_law* b = static_cast<const binary_law*>(l);
        law_holder left(simplify_pass(b->fleft(), phase));
        law_holder right(simplify_pass(b->fright(), phase));
        if (left.get() == b->fleft() && right.get() == b->fright()) return nullptr;
        return b->make_one(left.get(), right.get());
    }
    if (l->isa(unary_law::id())) {
        const unary_law* u = static_cast<const unary_law*>(l);
        law_holder sub(simplify_pass(u->fsub(), phase));
        if (sub.get() == u->fsub()) return nullptr;
        return u->make_one(sub.get());
    }
    if (l->isa(multiple_law::id())) {
        const multiple_law* m = static_cast<const multiple_law*>(l);
        int n = m->fsub_num();
        if (n < 1) return nullptr;
        law_array parts(n);
        bool changed = false;
        for (int i = 0; i < n; ++i) {
            parts.set(i, simplify_pass(m->fsub()[i], phase));
            changed = changed || parts[i] != m->fsub()[i];
        }
        if (!changed) return nullptr;
        return m->make_one(parts.get(), n);
    }
    return nullptr;
}

// One pass of phase `phase` over the tree: the children first, then every rule of the
// phase once, in list order, each on the law the previous ones left.  Answers the law
// itself (shared) when nothing changed.  A finished node is not walked into.
law* simplify_pass(const law* in, int phase) {
    if (!complete(in)) return law_holder::share(in).release();
    // (Not a node that now stands for another cached form: that form is its answer.)
    if (state.stable && state.stable->has(in, phase)) {
        const law* f = finished_form(in);
        if (!f || f == in) return law_holder::share(in).release();
    }
    const law* finished = state.in_small ? nullptr : finished_form(in);
    // The pass over a finished node, and over any node inside a small finished subtree
    // (walked whole), depends on that node alone: a derivative build keeps it (and so
    // the memo of this pass and the stable set need not).
    const law* built = state.build ? (state.in_small ? in : finished) : nullptr;
    bool shared = !built && in->ref_count() > 1 && state.memo;
    if (shared) {
        if (law* done = state.memo->find(in)) return done;
    }
    ++state.counter;
    if (state.trace > 2) trace_law("working on %s %d\n", in);
    if (built) {
        if (law* done = build_pass_find(state.build, built, phase)) {
            if (done != built) note_reuse(state.build, done);
            return done;
        }
    }
    law_holder cur = law_holder::share(finished ? finished : in);
    bool small = finished && small_finished(finished);
    if (!finished || small) {
        bool outer_small = state.in_small;
        state.in_small = outer_small || small;
        struct restore {
            bool value;
            ~restore() { state.in_small = value; }
        } back{outer_small};
        law_holder rebuilt(pass_children(cur.get(), phase));
        if (rebuilt) {
            cur = std::move(rebuilt);
            if (state.trace > 2) trace_law("answer %s %d\n", cur.get());
        }
    }
    for (const SRule* r = SRule::head(phase); r; r = r->fnext()) {
        law_holder next(r->apply(cur.get()));
        if (!next) continue;
        trace_rule(r->fname(), cur.get(), next.get());
        cur = std::move(next);
    }
    if (shared) state.memo->record(in, cur.get());
    if (built) build_pass_record(state.build, built, phase, cur.get());
    // Walked (or a leaf) and unchanged: stable for the rest of this law_simplify.
    if (state.stable && !built && cur.get() == in && (!finished || small))
        state.stable->record(in, phase);
    return cur.release();
}

// One pass over the whole tree, with its memo of shared nodes.
law* whole_pass(const law* in, int phase) {
    pass_memo memo;
    pass_memo* outer = state.memo;
    state.memo = &memo;
    struct restore {
        pass_memo* outer;
        ~restore() { state.memo = outer; }
    } back{outer};
    return simplify_pass(in, phase);
}

// ================================================================ phase 0

// Driver: the classes' own rules, applied while they apply; each step is traced with
// the name the class reports.
law* driver_rule(law* l) {
    law_holder cur;
    const law* at = l;
    for (int step = 0; step < max_steps; ++step) {
        const char* name = nullptr;
        law_holder next(at->sub_simplify(0, name));
        if (!next) break;
        trace_rule(name, at, next.get());
        cur = std::move(next);
        at = cur.get();
    }
    return cur.release();
}

// A op C = C op A, for the associative and commutative operators (constants go left)
law* commute_rule(law* l) {
    if (!l->isa(binary_law::id())) return nullptr;
    const binary_law* b = static_cast<const binary_law*>(l);
    if (!b->associative() || !b->commutative()) return nullptr;
    if (!is_constant(b->fright()) || is_constant(b->fleft())) return nullptr;
    return b->make_one(b->fright(), b->fleft());
}

// op(C) = C
law* unary_fold_rule(law* l) {
    if (!l->isa(unary_law::id())) return nullptr;
    if (!is_constant(static_cast<const unary_law*>(l)->fsub())) return nullptr;
    return fold(l);
}

// In a chain of one associative and commutative operator, the constants fold into one
// that stands at the front, the chain's left operand: C1 op A op C2 = (C1 op C2) op A,
// and (A op C) op B = C op (A op B), so that the constant of a product is where the
// sign rules of the last phase look for it.
law* fold_chain_constants(const binary_law* b) {
    if (!b->associative() || !b->commutative()) return nullptr;
    law_chain chain(b);
    int n = chain.size();
    int constants = 0;
    for (int i = 0; i < n; ++i) constants += is_constant(chain[i]);
    if (constants == 0 || (constants == 1 && is_constant(b->fleft()))) return nullptr;
    if (!library_class(b)) return nullptr;
    law_holder acc;
    law_array rest(n);
    int k = 0;
    for (int i = 0; i < n; ++i) {
        if (!is_constant(chain[i]))
            rest.set(k++, law_holder::share(chain[i]).release());
        else if (!acc)
            acc = law_holder::share(chain[i]);
        else {
            law_holder pair(b->make_one(acc.get(), chain[i]));
            law_holder value(fold(pair.get()));
            if (!value) return nullptr;
            acc = std::move(value);
        }
    }
    if (k == 0) return acc.release();
    law_holder others(make_list_law(rest.get(), k, b));
    return b->make_one(acc.get(), others.get());
}

// C op C = C; also a law of several parts that are all constants, a chain of one
// associative and commutative operator holding several constants, and f O C for an
// outer law f that reads no input but the inner value
law* binary_fold_rule(law* l) {
    if (l->isa(binary_law::id())) {
        const binary_law* b = static_cast<const binary_law*>(l);
        if (is_constant(b->fleft()) && is_constant(b->fright())) return fold(l);
        if (l->isa(composite_law::id()) && is_constant(b->fright()) && pure_tree(b->fleft()))
            return fold(l);
        return fold_chain_constants(b);
    }
    if (l->isa(multiple_law::id())) {
        const multiple_law* m = static_cast<const multiple_law*>(l);
        if (all_constant(m->fsub(), m->fsub_num())) return fold(l);
    }
    return nullptr;
}

// ================================================================ phase 1

bool scalar(const law* l) {
    return l && l->return_dim() == 1;
}

// mA/A = m
law* multiple_rule(law* l) {
    if (!scalar(l) || !(l->isa(times_law::id()) || l->isa(division_law::id()))) return nullptr;
    law_holder n(numerator(l));
    law_holder d(denominator(l));
    if (!n || !d || is_constant(n.get()) || is_constant(d.get())) return nullptr;
    double m = law_multiple(d.get(), n.get());
    if (m == 0.0 || !std::isfinite(m)) return nullptr;
    return VORX_NEW constant_law(m);
}

// A factor as base^exponent: B^E answers B and E, any other law itself and no exponent
// (it counts as exponent 1).
const law* power_base(const law* f, const law*& exponent) {
    if (f->isa(exponent_law::id())) {
        const binary_law* p = static_cast<const binary_law*>(f);
        exponent = p->fright();
        return p->fleft();
    }
    exponent = nullptr;
    return f;
}

// The exponent of a factor as a law of its own (1 when it has none); one use.
law* exponent_of(const law* e) {
    return e ? law_holder::share(e).release() : VORX_NEW constant_law(1.0);
}

bool integer_constant(const law* l) {
    if (!l) return true;  // no exponent: 1
    double v;
    return simplify_constant(l, v) && v == std::trunc(v);
}

// (m*A)^B * A^C = m^B * A^(B+C), where m > 0 or B is an integer, so that m^B is defined
// wherever (m*A)^B is.
law* merge_scaled_powers(const law* f1, const law* f2) {
    const law* b_exp;
    const law* c_exp;
    const law* base1 = power_base(f1, b_exp);
    const law* base2 = power_base(f2, c_exp);
    if (!scalar(base1) || !scalar(base2) || is_constant(base2)) return nullptr;
    law_holder rest;
    double m = simplify_coefficient(base1, rest);
    if (!rest || m == 1.0 || !(*rest == *base2)) return nullptr;
    if (!(m > 0.0 || integer_constant(b_exp))) return nullptr;
    law_holder b(exponent_of(b_exp));
    law_holder c(exponent_of(c_exp));
    law_holder mc(VORX_NEW constant_law(m));
    law_holder mb(VORX_NEW exponent_law(mc.get(), b.get()));
    law_holder sum(VORX_NEW plus_law(b.get(), c.get()));
    law_holder power(VORX_NEW exponent_law(rest.get(), sum.get()));
    return VORX_NEW times_law(mb.get(), power.get());
}

// c1^B * c2^B = (c1*c2)^B for positive constant bases.
law* merge_constant_bases(const law* f1, const law* f2) {
    if (!f1->isa(exponent_law::id()) || !f2->isa(exponent_law::id())) return nullptr;
    const binary_law* p1 = static_cast<const binary_law*>(f1);
    const binary_law* p2 = static_cast<const binary_law*>(f2);
    double c1, c2;
    if (!simplify_constant(p1->fleft(), c1) || !simplify_constant(p2->fleft(), c2)) return nullptr;
    if (!(c1 > 0.0 && c2 > 0.0) || !(*p1->fright() == *p2->fright())) return nullptr;
    if (!scalar(p1->fright())) return nullptr;
    law_holder base(VORX_NEW constant_law(c1 * c2));
    return VORX_NEW exponent_law(base.get(), p1->fright());
}

// mA^B*A^C=m^B*A^(B+C) over any two factors of a product; also powers of positive
// constant bases with one exponent
law* scaled_power_rule(law* l) {
    if (!l->isa(times_law::id()) || !scalar(l)) return nullptr;
    law_chain chain(static_cast<const binary_law*>(l));
    return chain.combine_pairs([](const law* a, const law* b) -> law* {
        law* r = merge_scaled_powers(a, b);
        if (!r) r = merge_scaled_powers(b, a);
        if (!r) r = merge_constant_bases(a, b);
        return r;
    });
}

// ================================================================ phase 2

// (-A)/B=-(A/B)
law* negated_quotient_rule(law* l) {
    if (!l->isa(division_law::id())) return nullptr;
    const binary_law* d = static_cast<const binary_law*>(l);
    if (!d->fleft()->isa(negate_law::id())) return nullptr;
    law* a = static_cast<const unary_law*>(d->fleft())->fsub();
    law_holder q(VORX_NEW division_law(a, d->fright()));
    return VORX_NEW negate_law(q.get());
}

// A-(-(B))=A+B
law* minus_negated_rule(law* l) {
    if (!l->isa(minus_law::id())) return nullptr;
    const binary_law* m = static_cast<const binary_law*>(l);
    if (!m->fright()->isa(negate_law::id())) return nullptr;
    return VORX_NEW plus_law(m->fleft(), static_cast<const unary_law*>(m->fright())->fsub());
}

// A+-(B)=A-B
law* plus_negated_rule(law* l) {
    if (!l->isa(plus_law::id())) return nullptr;
    const binary_law* p = static_cast<const binary_law*>(l);
    if (!p->fright()->isa(negate_law::id())) return nullptr;
    return VORX_NEW minus_law(p->fleft(), static_cast<const unary_law*>(p->fright())->fsub());
}

// (-c)*A=-(c*A); a factor within 1e-14 of -1 goes altogether
law* negative_factor_rule(law* l) {
    if (!l->isa(times_law::id())) return nullptr;
    const binary_law* t = static_cast<const binary_law*>(l);
    double c;
    if (!simplify_constant(t->fleft(), c) || !(c < 0.0)) return nullptr;
    if (std::fabs(c + 1.0) < 1e-14) return VORX_NEW negate_law(t->fright());
    law_holder positive(VORX_NEW constant_law(-c));
    law_holder product(VORX_NEW times_law(positive.get(), t->fright()));
    return VORX_NEW negate_law(product.get());
}

// ================================================================ the lists

// Every rule of the simplifier, in the order in which each list is tried.  The members
// are constructed in declaration order, which links them in this order.
struct rule_table {
    SRule driver{driver_rule, 0, ""};
    SRule commute{commute_rule, 0, "A op C = C op A"};
    SRule unary_fold{unary_fold_rule, 0, "opC=C"};
    SRule binary_fold{binary_fold_rule, 0, "C op C = C"};
    SRule multiple{multiple_rule, 1, "mA/A = m"};
    SRule scaled_power{scaled_power_rule, 1, "mA^B*A^C=m^B*A^(B+C)"};
    SRule negated_quotient{negated_quotient_rule, 2, "(-A)/B=-(A/B)"};
    SRule minus_negated{minus_negated_rule, 2, "A-(-(B))=A+B"};
    SRule plus_negated{plus_negated_rule, 2, "A+-(B)=A-B"};
    SRule negative_factor{negative_factor_rule, 2, "(-c)*A=-(c*A)"};
};

// Built on first use, so a static initialiser of another file that simplifies before
// this file's statics are made still finds the lists complete.
const rule_table& rules() {
    static const rule_table table;
    return table;
}

// And built at load in any case, so the lists are read-only once the library runs.
const rule_table& rules_at_load = rules();

}  // namespace

// ================================================================ SRule

SRule::SRule(rule_fn fn, int phase, const char* name)
    : fn_(fn), next_(nullptr), name_(name ? name : "") {
    if (phase < 0 || phase > 2) return;
    if (list_tail[phase])
        list_tail[phase]->next_ = this;
    else
        list_head[phase] = this;
    list_tail[phase] = this;
}

const SRule* SRule::head(int phase) {
    (void)rules();
    return phase >= 0 && phase <= 2 ? list_head[phase] : nullptr;
}

// ================================================================ law_simplify

// Phase 0 (and, from level 2, phase 1 after it) until a round changes nothing, then
// phase 2 until a pass changes nothing.  A round ends the loop only when neither of its
// passes changed the law: a factoring pass with nothing to do does not stop phase 0
// while it still has work.
law* law_simplify(const law* in, int level, int trace) {
    if (!in) return nullptr;
    (void)rules_at_load;
    state_scope scope(level, trace);
    // Like terms are matched with exact constants: a rule never merges two different
    // numbers (and so never makes 0 of 1-0.99999999999999).
    exact_constants_scope exact;
    if (trace) trace_law("\nSimplify %s\n", in);
    law_holder cur = law_holder::share(in);
    for (int round = 0; round < max_steps; ++round) {
        law_holder next(whole_pass(cur.get(), 0));
        bool changed = next.get() != cur.get();
        cur = std::move(next);
        if (trace > 2) trace_law("big answer %s %d\n", cur.get());
        if (level > 1) {
            law_holder factored(whole_pass(cur.get(), 1));
            changed = changed || factored.get() != cur.get();
            cur = std::move(factored);
            if (trace > 2) trace_law("big answer %s %d\n", cur.get());
        }
        if (!changed) break;
    }
    if (trace) {
        trace_law("\n%s\n", cur.get());
        vorx_printf("\nPost Simplify\n");
    }
    for (int round = 0; round < max_steps; ++round) {
        law_holder next(whole_pass(cur.get(), 2));
        bool changed = next.get() != cur.get();
        cur = std::move(next);
        if (trace > 2) trace_law("big answer %s %d\n", cur.get());
        if (!changed) break;
    }
    if (trace) vorx_printf("\n");
    mark_finished(cur.get(), level);
    return cur.release();
}

// The cached simplified form.  A form equal to the law is kept as the law itself (a
// self-pointer that holds no reference); a new form is marked as its own simplified
// form, so simplifying it again costs nothing.  A form made at a higher level serves a
// lower one.  With a trace the work is redone, so that it is printed.
law* law::simplify(int level, int trace) const {
    if (simplified && simplify_level >= level && !trace) {
        simplified->add();
        return simplified;
    }
    law_holder s(law_simplify(this, level, trace));
    // Marked as finished by law_simplify: this law is part of its form (or is it).
    if (simplified == this && simplify_level >= level) return s.release();
    if (s.get() != this && *s == *this) s = law_holder::share(this);
    store_cached(simplified, s.get());
    simplify_level = level;
    return s.release();
}

// ================================================================ sharing equal subtrees

namespace {

// A subtree deeper than this is kept as it is, so a tree thousands of levels deep costs
// no deeper recursion than the rest of the simplifier's.
constexpr int max_share_depth = 1000;

// Calls `f` on each operand of `l` (none for a leaf or a law over law_data).
template <class F>
void for_each_operand(const law* l, F f) {
    if (l->isa(unary_law::id())) {
        if (const law* sub = static_cast<const unary_law*>(l)->fsub()) f(sub);
    } else if (l->isa(binary_law::id())) {
        const binary_law* b = static_cast<const binary_law*>(l);
        if (b->fleft()) f(b->fleft());
        if (b->fright()) f(b->fright());
    } else if (l->isa(multiple_law::id())) {
        const multiple_law* m = static_cast<const multiple_law*>(l);
        for (int i = 0; i < m->fsub_num(); ++i)
            if (m->fsub() && m->fsub()[i]) f(m->fsub()[i]);
    }
}

// The table of one share_equal_subtrees, or of a whole derivative build: every subtree
// met so far under a structural hash (class, own parameters, identities of its already
// shared operands), and the answer for each node of the input, so a node the input
// shares is looked at once.  The tables drop their uses when they go, also when an
// error passes.
class share_table {
  public:
    // A table that outlives its inputs holds a use of each (so no address is reused
    // while it is recorded).
    explicit share_table(bool hold_inputs = false) : done_(hold_inputs) {}

    // The one law standing for the subtree `l`; one use.
    law* canonical(const law* l);

    // Whether an input was given a law (other than a leaf) filed from an earlier input.
    bool reused() const { return reused_; }

  private:
    law* canonical_node(const law* l, std::size_t& hash, bool& mergeable);
    static bool library(const law* l);

    int depth_ = 0;
    int input_ = 0;  // inputs so far; entries are tagged with the input that filed them
    bool reused_ = false;
    law_slots by_structure_;
    law_slots done_;
};

// A constant or a variable: no operands, and a derivative that holds nothing.
bool is_leaf(const law* l) {
    return l->isa(constant_law::id()) || l->isa(identity_law::id());
}

std::size_t mix(std::size_t h, std::size_t v) {
    return h ^ (v + 0x9e3779b97f4a7c15ull + (h << 6) + (h >> 2));
}

// A class registered with the parser is a pure function of its arguments, so two of its
// laws over the same operands are interchangeable; a host's class may hold more.
// The answer is kept per thread by class id (ids are small and never reused), since
// walking the registry for each class cost more than sharing a small derivative.
bool share_table::library(const law* l) {
    constexpr int known_ids = 1024;
    thread_local signed char known[known_ids] = {};  // 0 not asked yet, 1 yes, -1 no
    int t = l->type();
    if (t < 0 || t >= known_ids) return library_class(l);
    if (!known[t]) known[t] = library_class(l) ? 1 : -1;
    return known[t] > 0;
}

// The node `l` over its operands' canonical laws (`l` itself when they are its own),
// its hash, and whether it may be merged with an equal one.  One use.
law* share_table::canonical_node(const law* l, std::size_t& hash, bool& mergeable) {
    hash = mix(0, (std::size_t)l->type());
    mergeable = true;
    if (l->isa(constant_law::id())) {
        double v = constant_value(l);
        std::uint64_t bits;
        std::memcpy(&bits, &v, sizeof bits);
        hash = mix(hash, (std::size_t)bits);
        return law_holder::share(l).release();
    }
    if (l->isa(identity_law::id())) {
        const identity_law* x = static_cast<const identity_law*>(l);
        hash = mix(mix(hash, (std::size_t)x->fwhich()), (std::size_t)x->fletter());
        return law_holder::share(l).release();
    }
    mergeable = complete(l) && library(l);
    if (!mergeable) return law_holder::share(l).release();
    if (l->isa(unary_law::id())) {
        const unary_law* u = static_cast<const unary_law*>(l);
        law_holder sub(canonical(u->fsub()));
        hash = mix(hash, pointer_hash(sub.get()));
        if (sub.get() == u->fsub()) return law_holder::share(l).release();
        law* r = u->make_one(sub.get());
        return r ? r : law_holder::share(l).release();
    }
    if (l->isa(binary_law::id())) {
        const binary_law* b = static_cast<const binary_law*>(l);
        law_holder left(canonical(b->fleft()));
        law_holder right(canonical(b->fright()));
        hash = mix(mix(hash, pointer_hash(left.get())), pointer_hash(right.get()));
        if (left.get() == b->fleft() && right.get() == b->fright())
            return law_holder::share(l).release();
        law* r = b->make_one(left.get(), right.get());
        return r ? r : law_holder::share(l).release();
    }
    if (l->isa(multiple_law::id())) {
        const multiple_law* m = static_cast<const multiple_law*>(l);
        int n = m->fsub_num();
        if (n < 1 || !m->fsub()) return law_holder::share(l).release();
        law_array parts(n);
        bool changed = false;
        for (int i = 0; i < n; ++i) {
            parts.set(i, canonical(m->fsub()[i]));
            hash = mix(hash, pointer_hash(parts[i]));
            changed = changed || parts[i] != m->fsub()[i];
        }
        if (!changed) return law_holder::share(l).release();
        law* r = m->make_one(parts.get(), n);
        return r ? r : law_holder::share(l).release();
    }
    // A leaf of another kind, or a law over law_data: kept as it is.
    mergeable = false;
    return law_holder::share(l).release();
}

// The same operands (the very objects, in order) and the same own parameters.
bool same_structure(const law* a, const law* b) {
    if (a->type() != b->type()) return false;
    if (a->isa(constant_law::id())) {
        double va = constant_value(a), vb = constant_value(b);
        return std::memcmp(&va, &vb, sizeof va) == 0;
    }
    if (a->isa(identity_law::id()))
        return static_cast<const identity_law*>(a)->fwhich() ==
                   static_cast<const identity_law*>(b)->fwhich() &&
               static_cast<const identity_law*>(a)->fletter() ==
                   static_cast<const identity_law*>(b)->fletter();
    if (a->isa(unary_law::id())) {
        if (static_cast<const unary_law*>(a)->fsub() != static_cast<const unary_law*>(b)->fsub())
            return false;
    } else if (a->isa(binary_law::id())) {
        const binary_law* x = static_cast<const binary_law*>(a);
        const binary_law* y = static_cast<const binary_law*>(b);
        if (x->fleft() != y->fleft() || x->fright() != y->fright()) return false;
        // + and * have no parameters of their own, and their equality would flatten
        // both chains only to find the same operands.
        if (x->associative() && x->commutative()) return true;
    } else if (a->isa(multiple_law::id())) {
        const multiple_law* x = static_cast<const multiple_law*>(a);
        const multiple_law* y = static_cast<const multiple_law*>(b);
        if (x->fsub_num() != y->fsub_num()) return false;
        for (int i = 0; i < x->fsub_num(); ++i)
            if (x->fsub()[i] != y->fsub()[i]) return false;
    } else {
        return false;
    }
    // The class's own parameters, if it has any, through its equality.
    return *a == *b;
}

law* share_table::canonical(const law* l) {
    if (depth_ == 0) ++input_;
    std::size_t key_hash = pointer_hash(l);
    if (const law_slots::slot* seen =
            done_.find(key_hash, [l](const law_slots::slot& e) { return e.key == l; })) {
        if (seen->value != l && seen->tag < input_ && !is_leaf(seen->value)) reused_ = true;
        return law_holder::share(seen->value).release();
    }
    if (depth_ >= max_share_depth) return law_holder::share(l).release();
    struct nest {
        int& depth;
        explicit nest(int& d) : depth(d) { ++depth; }
        ~nest() { --depth; }
    } level(depth_);
    std::size_t hash;
    bool mergeable;
    law_holder node(canonical_node(l, hash, mergeable));
    if (mergeable) {
        const law* n = node.get();
        const law_slots::slot* found = by_structure_.find(
            hash, [n](const law_slots::slot& e) { return same_structure(e.value, n); });
        if (found) {
            if (found->value != n && found->tag < input_ && !is_leaf(n)) reused_ = true;
            node = law_holder::share(found->value);
        } else {
            by_structure_.insert(hash, n, node.get(), input_);
        }
    }
    done_.insert(key_hash, l, node.get(), input_);
    return node.release();
}

// The memo of one derivative build: every table in it holds uses of its keys, since
// the build outlives the laws it was asked about.
struct build_memo : VORX_OBJECT {
    share_table share{true};
    law_slots sizes{true};
    law_slots passes{true};   // the result of a pass, tagged with its phase
    law_slots cachers{true};  // the laws that stored a derivative during the build
    bool reused = false;      // a pass answered with a law (not a leaf) made by an earlier one
};

// The targets of the uses a law holds: its operands, then its caches (a cache holding
// the law itself holds no use).  Tagged 0 for an operand, 1 for the simplified form, 2
// for the inverse, 3 + i for the derivative in input i.
template <class F>
void for_each_use(const law* l, F f) {
    for_each_operand(l, [&f](const law* op) { f(op, 0); });
    const law* form = l->*cache_slots::form;
    if (form && form != l) f(form, 1);
    const law* inverse = l->*cache_slots::inverse;
    if (inverse && inverse != l) f(inverse, 2);
    for (int i = 0; i < l->*cache_slots::derivative_count; ++i) {
        const law* d = (l->*cache_slots::derivatives)[i];
        if (d && d != l) f(d, 3 + i);
    }
}

// Drops every cache that closes a cycle of uses among the laws reachable from
// `cachers`.  Sharing a whole build's subtrees may make a derivative reach the law that
// caches it (the derivative of EXP(A) holds EXP(A)), which would keep both alive for
// ever; no cycle can have formed before the build (each is closed by a cache stored in
// it, and its law is among `cachers`), and a dropped cache is only work to redo.  The
// strongly connected components of the graph of uses are found with Tarjan's
// algorithm, iteratively (trees may be thousands of levels deep); a cache whose law and
// target lie in one component closes a cycle, and every cycle has such a cache, since
// operands alone never form one.
void break_cycles(const law_slots& cachers) {
    struct use {
        const law* to;
        int kind;
        int target;  // its place in `nodes`, once looked at
    };
    struct node {
        const law* l;
        int low, component;
        bool on_stack;
        int first, end, next;  // its uses in `uses`, and the next one to look at
    };
    std::vector<use, vorx_std_allocator<use>> uses;
    std::vector<node, vorx_std_allocator<node>> nodes;  // a node's place is its index
    std::vector<int, vorx_std_allocator<int>> stack, path;
    uses.reserve(256);
    nodes.reserve(128);
    law_slots number;  // each law met, tagged with its place
    int components = 0;
    auto place = [&](const law* l) {
        const law_slots::slot* e =
            number.find(pointer_hash(l), [l](const law_slots::slot& s) { return s.key == l; });
        return e ? e->tag : -1;
    };
    auto visit = [&](const law* l) {
        int k = (int)nodes.size();
        int first = (int)uses.size();
        // (A leaf is on no cycle: what it holds is a leaf again, its derivative.)
        for_each_use(l, [&uses](const law* w, int kind) {
            if (!is_leaf(w)) uses.push_back({w, kind, -1});
        });
        nodes.push_back({l, k, -1, true, first, (int)uses.size(), first});
        number.insert(pointer_hash(l), l, nullptr, k);
        stack.push_back(k);
        path.push_back(k);
        return k;
    };
    cachers.for_each([&](const law* root) {
        if (place(root) >= 0) return;
        visit(root);
        while (!path.empty()) {
            int v = path.back();
            if (nodes[v].next < nodes[v].end) {
                int u = nodes[v].next++;
                int k = place(uses[u].to);
                if (k < 0) {
                    uses[u].target = visit(uses[u].to);
                    continue;
                }
                uses[u].target = k;
                if (nodes[k].on_stack) nodes[v].low = std::min(nodes[v].low, k);
                continue;
            }
            path.pop_back();
            if (!path.empty())
                nodes[path.back()].low = std::min(nodes[path.back()].low, nodes[v].low);
            if (nodes[v].low != v) continue;
            int w;
            do {
                w = stack.back();
                stack.pop_back();
                nodes[w].on_stack = false;
                nodes[w].component = components;
            } while (w != v);
            ++components;
        }
    });
    // The caches to drop, gathered first with a use of their laws: dropping one may
    // release the others.
    struct drop {
        law_holder l;
        int kind;
    };
    std::vector<drop, vorx_std_allocator<drop>> drops;
    for (const node& n : nodes)
        for (int u = n.first; u < n.end; ++u)
            if (uses[u].kind > 0 && nodes[uses[u].target].component == n.component)
                drops.push_back({law_holder::share(n.l), uses[u].kind});
    for (const drop& d : drops) {
        law* m = d.l.get();
        if (d.kind >= 3) {
            d.l->reset_derivative(d.kind - 3);
        } else if (d.kind == 2) {
            d.l->set_inverse(nullptr);
        } else if (law* form = m->*cache_slots::form) {
            m->*cache_slots::form = nullptr;
            m->*cache_slots::made_at = 0;
            form->remove();
        }
    }
}

law_slots* build_sizes(build_memo* build) {
    return &build->sizes;
}

std::size_t pass_hash(const law* l, int phase) {
    return mix(pointer_hash(l), (std::size_t)phase);
}

void note_reuse(build_memo* build, const law* l) {
    if (!is_leaf(l)) build->reused = true;
}

law* build_pass_find(build_memo* build, const law* l, int phase) {
    const law_slots::slot* e = build->passes.find(
        pass_hash(l, phase),
        [l, phase](const law_slots::slot& s) { return s.key == l && s.tag == phase; });
    return e ? law_holder::share(e->value).release() : nullptr;
}

void build_pass_record(build_memo* build, const law* l, int phase, law* result) {
    build->passes.insert(pass_hash(l, phase), l, result, phase);
}

}  // namespace

derivative_build::derivative_build() : outermost_(current_build == nullptr) {
    if (outermost_) current_build = VORX_NEW build_memo;
}

derivative_build::~derivative_build() {
    if (!outermost_) return;
    build_memo* done = current_build;
    current_build = nullptr;
    // Without a law of one derivative reused in another, every derivative holds only
    // laws of its own input or made for it, as without the memo: no cycle can form.
    // (A failure to allocate here leaves the cycles, a leak, rather than raising from a
    // destructor, perhaps while another error passes.)
    if (done->reused || done->share.reused()) {
        try {
            break_cycles(done->cachers);
        } catch (...) {
        }
    }
    delete done;
}

void derivative_build::note_cache(const law* l) {
    if (!current_build) return;
    law_slots& c = current_build->cachers;
    if (!c.find_key(pointer_hash(l), l)) c.insert(pointer_hash(l), l, nullptr);
}

law* share_equal_subtrees(const law* in, int level) {
    if (!in) return nullptr;
    law_holder r;
    if (current_build) {
        r.reset(current_build->share.canonical(in));
    } else {
        share_table table;
        r.reset(table.canonical(in));
    }
    mark_finished(r.get(), level);
    return r.release();
}

// ================================================================ factoring helpers

namespace {

bool is_product(const law* l) {
    return l->isa(times_law::id());
}

// A factor that stands in a denominator, B^-c with c > 0: its base and the positive
// power, B^c (B itself for c = 1); one use, or null for other factors.
law* denominator_part(const law* f) {
    if (!f->isa(exponent_law::id())) return nullptr;
    const binary_law* p = static_cast<const binary_law*>(f);
    double e;
    if (!simplify_constant(p->fright(), e) || !(e < 0.0)) return nullptr;
    if (e == -1.0) return law_holder::share(p->fleft()).release();
    law_holder positive(VORX_NEW constant_law(-e));
    return VORX_NEW exponent_law(p->fleft(), positive.get());
}

// The product of the laws in `parts` (the constant 1 for none); one use.
law* product_of(law_array& parts, int k) {
    if (k == 0) return VORX_NEW constant_law(1.0);
    law_holder acc = law_holder::share(parts[0]);
    for (int i = 1; i < k; ++i) acc.reset(VORX_NEW times_law(acc.get(), parts[i]));
    return acc.release();
}

}  // namespace

law* numerator(const law* l) {
    if (l->isa(division_law::id()))
        return law_holder::share(static_cast<const binary_law*>(l)->fleft()).release();
    if (!is_product(l)) {
        law_holder d(denominator_part(l));
        return d ? VORX_NEW constant_law(1.0) : law_holder::share(l).release();
    }
    law_chain chain(static_cast<const binary_law*>(l));
    law_array parts(chain.size());
    int k = 0;
    for (int i = 0; i < chain.size(); ++i) {
        law_holder d(denominator_part(chain[i]));
        if (!d) parts.set(k++, law_holder::share(chain[i]).release());
    }
    return product_of(parts, k);
}

law* denominator(const law* l) {
    if (l->isa(division_law::id()))
        return law_holder::share(static_cast<const binary_law*>(l)->fright()).release();
    if (!is_product(l)) {
        law* d = denominator_part(l);
        return d ? d : VORX_NEW constant_law(1.0);
    }
    law_chain chain(static_cast<const binary_law*>(l));
    law_array parts(chain.size());
    int k = 0;
    for (int i = 0; i < chain.size(); ++i) {
        law* d = denominator_part(chain[i]);
        if (d) parts.set(k++, d);
    }
    return product_of(parts, k);
}

namespace {

bool same_multiple(double a, double b) {
    return std::fabs(a - b) <= 1e-14 * std::fabs(a);
}

// Sums whose terms pair off, each term of `n` the same multiple of one term of `d`.
double sum_multiple(const law* d, const law* n) {
    law_chain dn(static_cast<const binary_law*>(d));
    law_chain nn(static_cast<const binary_law*>(n));
    int size = nn.size();
    if (dn.size() != size) return 0.0;
    char small[32];
    char* used = size <= 32 ? small : VORX_ALLOC_ARRAY(char, size);
    std::memset(used, 0, size);
    double m = 0.0;
    bool ok = true;
    for (int i = 0; i < size && ok; ++i) {
        int hit = -1;
        for (int j = 0; j < size && hit < 0; ++j) {
            if (used[j]) continue;
            double mj = law_multiple(dn[j], nn[i]);
            if (mj != 0.0 && (m == 0.0 || same_multiple(m, mj))) {
                hit = j;
                m = mj;
            }
        }
        if (hit < 0)
            ok = false;
        else
            used[hit] = 1;
    }
    if (used != small) VORX_FREE(used);
    return ok ? m : 0.0;
}

}  // namespace

double law_multiple(const law* d, const law* n) {
    if (!d || !n) return 0.0;
    if (*n == *d) return 1.0;
    if (n->isa(plus_law::id()) && d->isa(plus_law::id())) return sum_multiple(d, n);
    law_holder rn, rd;
    double cn = simplify_coefficient(n, rn);
    double cd = simplify_coefficient(d, rd);
    if (!rn || !rd || cd == 0.0 || (cn == 1.0 && cd == 1.0)) return 0.0;
    if (!(*rn == *rd)) return 0.0;
    double m = cn / cd;
    return std::isfinite(m) ? m : 0.0;
}

// ================================================================ rule helpers

law* simplify_fired(law* result, const char*& what, const char* name) {
    if (result && !is_null_out_ref(what)) what = name;
    return result;
}

int simplify_constant(const law* l, double& value) {
    if (!is_constant(l)) return 0;
    value = constant_value(l);
    return 1;
}

int simplify_is(const law* l, double value) {
    return is_constant(l) && constant_value(l) == value;
}

double simplify_coefficient(const law* l, law_holder& rest) {
    double c;
    if (simplify_constant(l, c)) {
        rest.reset();
        return c;
    }
    if (is_product(l)) {
        law_chain chain(static_cast<const binary_law*>(l));
        int found = -1;
        int constants = 0;
        for (int i = 0; i < chain.size(); ++i)
            if (is_constant(chain[i])) {
                ++constants;
                found = i;
            }
        if (constants == 1) {
            rest.reset(chain.rebuild(-1, nullptr, found));
            return constant_value(chain[found]);
        }
    }
    rest = law_holder::share(l);
    return 1.0;
}

law* simplify_zero_like(const law* like) {
    int n = like ? like->return_dim() : 1;
    if (n <= 1) return VORX_NEW constant_law(0.0);
    law_array parts(n);
    for (int i = 0; i < n; ++i) parts.set(i, VORX_NEW constant_law(0.0));
    return VORX_NEW vector_law(parts.get(), n);
}

namespace {

// The operands of `l` through nested laws of class `type`, into out[k...]; false when
// there are more than max_chain of them.
bool gather(law* l, int type, law** out, int& k) {
    if (l->type() != type || !l->isa(binary_law::id())) {
        if (k == max_chain) return false;
        out[k++] = l;
        return true;
    }
    const binary_law* b = static_cast<const binary_law*>(l);
    return gather(b->fleft(), type, out, k) && gather(b->fright(), type, out, k);
}

}  // namespace

law_chain::law_chain(const binary_law* l) : op_(l), n_(0) {
    if (!gather(l->fleft(), l->type(), items_, n_) || !gather(l->fright(), l->type(), items_, n_)) {
        // Too long to pair every operand: the chain is seen as its two operands.
        items_[0] = l->fleft();
        items_[1] = l->fright();
        n_ = 2;
    }
}

law_chain::law_chain(const law* l, int type_id) : op_(nullptr), n_(0) {
    if (l->type() == type_id && l->isa(binary_law::id())) {
        law_chain whole(static_cast<const binary_law*>(l));
        op_ = static_cast<const binary_law*>(l);
        for (int i = 0; i < whole.size(); ++i) items_[i] = whole[i];
        n_ = whole.size();
    } else {
        items_[0] = const_cast<law*>(l);
        n_ = 1;
    }
}

law* law_chain::rebuild(int i, law* with, int drop) const {
    law_array list(n_);
    int k = 0;
    for (int j = 0; j < n_; ++j) {
        if (j == drop) continue;
        list.set(k++, law_holder::share(j == i ? with : items_[j]).release());
    }
    if (k > 1 && !op_) return nullptr;
    return make_list_law(list.get(), k, op_);
}

}  // namespace lawutil
