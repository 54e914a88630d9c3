#include "lawutil/internal_law.hpp"

#include <charconv>
#include <cstdio>
#include <cstring>
#include <initializer_list>

#include "base/interval.hpp"
#include "lawutil/law_data.hpp"
#include "lawutil/law_util.hpp"
#include "lawutil/polylaw.hpp"

using namespace vorx;

namespace lawutil {

LAWUTIL_TYPE_DEF(unary_law)
LAWUTIL_TYPE_DEF(binary_law)
LAWUTIL_TYPE_DEF(multiple_law)
LAWUTIL_TYPE_DEF(unary_data_law)
LAWUTIL_TYPE_DEF(multiple_data_law)
LAWUTIL_TYPE_DEF(constant_law)
LAWUTIL_TYPE_DEF(identity_law)

namespace {

// Owns a string made by a printer until it is handed on.
class text_ref {
  public:
    explicit text_ref(char* s = nullptr) : s_(s) {}
    ~text_ref() { VORX_FREE(s_); }
    text_ref(const text_ref&) = delete;
    text_ref& operator=(const text_ref&) = delete;
    const char* get() const { return s_ ? s_ : ""; }
    char* release() {
        char* t = s_;
        s_ = nullptr;
        return t;
    }

  private:
    char* s_;
};

// Printers pass the caller's counter and list down, or local ones when the caller gave
// the null sentinels; the local list is destroyed when the print is over.
class print_state {
  public:
    print_state(int& counter, law_data_node*& list)
        : counter_(is_null_out_ref(counter) ? local_counter_ : counter),
          list_(is_null_out_ref(list) ? local_list_ : list) {}
    ~print_state() { delete local_list_; }
    print_state(const print_state&) = delete;
    print_state& operator=(const print_state&) = delete;
    int& counter() { return counter_; }
    law_data_node*& list() { return list_; }

  private:
    int local_counter_ = 0;
    law_data_node* local_list_ = nullptr;
    int& counter_;
    law_data_node*& list_;
};

char* concat(std::initializer_list<const char*> parts) {
    size_t n = 1;
    for (const char* p : parts) n += std::strlen(p);
    char* r = VORX_ALLOC_ARRAY(char, n);
    char* w = r;
    for (const char* p : parts) {
        size_t k = std::strlen(p);
        std::memcpy(w, p, k);
        w += k;
    }
    *w = '\0';
    return r;
}

// Parenthesise an operand whose precedence does not bind tighter than the operator's,
// except a same-type operand of an associative operator (X+Y+Z needs none).
bool needs_parens(const binary_law* op, const law* side) {
    if (side->precedence() > op->precedence()) return false;
    if (side->type() == op->type() && op->associative()) return false;
    return true;
}

// Prints the comma-separated list of `n` laws (or data, through `print_one`).
template <class F>
char* join_args(int n, F print_one) {
    char* acc = VORX_STRDUP("");
    for (int i = 0; i < n; ++i) {
        text_ref prev(acc);
        text_ref one(print_one(i));
        acc = concat({prev.get(), i ? "," : "", one.get()});
    }
    return acc;
}

}  // namespace

char* number_string(double value) {
    // As "%.16g", but with a '.' whatever the process's locale.
    char* s = VORX_ALLOC_ARRAY(char, 32);
    std::to_chars_result r = std::to_chars(s, s + 31, value, std::chars_format::general, 16);
    *r.ptr = '\0';
    return s;
}

// ================================================================ unary_law

unary_law::unary_law(law* sub) : sub_(sub) {
    law_add(sub_);
}

unary_law::~unary_law() noexcept(false) {
    law_remove(sub_);
}

int unary_law::take_size() const {
    return sub_ ? sub_->take_dim() : 0;
}
int unary_law::return_size() const {
    return 1;
}

unary_law* unary_law::make_one(law*) const {
    return nullptr;
}

int unary_law::same(const law* a, const law* b) const {
    const law* sa = static_cast<const unary_law*>(a)->fsub();
    const law* sb = static_cast<const unary_law*>(b)->fsub();
    if (!sa || !sb) return sa == sb;
    return *sa == *sb;
}

char* unary_law::string(law_symbol_type type, int& counter, law_data_node*& list) const {
    print_state st(counter, list);
    const char* s = symbol(type);
    text_ref a(sub_ ? sub_->string(type, st.counter(), st.list()) : VORX_STRDUP("<null>"));
    // '-NOT(X)' would read as NOT(X): an argument that binds looser than a function keeps
    // its parentheses.
    if (std::strcmp(s, "-") == 0 &&
        !(sub_ && (sub_->isa(binary_law::id()) || sub_->precedence() < 8)))
        return concat({s, a.get()});
    return concat({s, "(", a.get(), ")"});
}

law* unary_law::deep_copy(pointer_map* pm) const {
    pointer_map_scope scope(pm);
    law_holder sub(pm_get_law(scope.get(), sub_));
    return make_one(sub.get());
}

int unary_law::term_domain(int which, interval& dom) const {
    return sub_ ? sub_->term_domain(which, dom) : 0;
}

int unary_law::in_domain(const double* x) const {
    return sub_ ? sub_->in_domain(x) : 1;
}

void unary_law::full_size(SizeAccumulator& acc, int count_self) const {
    if (count_self && !acc.addSize(this, sizeof(*this), __FILE__, __LINE__)) return;
    law::full_size(acc, 0);
    if (sub_) sub_->full_size(acc, 1);
}

void unary_law::hasa(int type_id, VOID_LIST& list) const {
    if (sub_) sub_->hasa(type_id, list);
    law::hasa(type_id, list);
}

// ================================================================ binary_law

binary_law::binary_law(law* left, law* right) : left_(left), right_(right) {
    law_add(left_);
    law_add(right_);
}

binary_law::~binary_law() noexcept(false) {
    law_remove(left_);
    law_remove(right_);
}

int binary_law::take_size() const {
    int a = left_ ? left_->take_dim() : 0;
    int b = right_ ? right_->take_dim() : 0;
    return a > b ? a : b;
}

int binary_law::return_size() const {
    int a = left_ ? left_->return_dim() : 1;
    int b = right_ ? right_->return_dim() : 1;
    return a > b ? a : b;
}

int binary_law::associative() const {
    return 0;
}
int binary_law::commutative() const {
    return 0;
}
binary_law* binary_law::make_one(law*, law*) const {
    return nullptr;
}

namespace {
bool same_or_both_null(const law* a, const law* b) {
    return (a && b) ? *a == *b : a == b;
}
}  // namespace

int binary_law::same(const law* a, const law* b) const {
    const binary_law* ba = static_cast<const binary_law*>(a);
    const binary_law* bb = static_cast<const binary_law*>(b);
    if (!(associative() && commutative()) || !ba->fleft() || !ba->fright() || !bb->fleft() ||
        !bb->fright())
        return same_or_both_null(ba->fleft(), bb->fleft()) &&
               same_or_both_null(ba->fright(), bb->fright());
    // X+Y+Z equals Z+(X+Y): compare the flattened operand lists, in any order.  Only
    // that: comparing side by side first and then again flattened would double the work
    // at every level of a nest of sums and products.
    int na = 0, nb = 0;
    law** la = get_asso_list(ba, &na);
    law** lb = get_asso_list(bb, &nb);
    int r = (na == nb) && same_law_list(la, lb, na);
    VORX_FREE(la);
    VORX_FREE(lb);
    return r;
}

char* binary_law::string(law_symbol_type type, int& counter, law_data_node*& list) const {
    print_state st(counter, list);
    const char* s = symbol(type);
    text_ref l(left_ ? left_->string(type, st.counter(), st.list()) : VORX_STRDUP("<null>"));
    text_ref r(right_ ? right_->string(type, st.counter(), st.list()) : VORX_STRDUP("<null>"));
    bool pl = left_ && needs_parens(this, left_);
    bool pr = right_ && needs_parens(this, right_);
    return concat(
        {pl ? "(" : "", l.get(), pl ? ")" : "", s, pr ? "(" : "", r.get(), pr ? ")" : ""});
}

law* binary_law::deep_copy(pointer_map* pm) const {
    pointer_map_scope scope(pm);
    law_holder l(pm_get_law(scope.get(), left_));
    law_holder r(pm_get_law(scope.get(), right_));
    return make_one(l.get(), r.get());
}

int binary_law::in_domain(const double* x) const {
    return (!left_ || left_->in_domain(x)) && (!right_ || right_->in_domain(x));
}

void binary_law::full_size(SizeAccumulator& acc, int count_self) const {
    if (count_self && !acc.addSize(this, sizeof(*this), __FILE__, __LINE__)) return;
    law::full_size(acc, 0);
    if (left_) left_->full_size(acc, 1);
    if (right_) right_->full_size(acc, 1);
}

void binary_law::hasa(int type_id, VOID_LIST& list) const {
    if (left_) left_->hasa(type_id, list);
    if (right_) right_->hasa(type_id, list);
    law::hasa(type_id, list);
}

// ================================================================ multiple_law

multiple_law::multiple_law(law** subs, int count) : subs_(nullptr), count_(count) {
    if (subs && count > 0) {
        subs_ = VORX_ALLOC_ARRAY(law*, count);
        for (int i = 0; i < count; ++i) {
            subs_[i] = subs[i];
            law_add(subs_[i]);
        }
    }
}

multiple_law::~multiple_law() noexcept(false) {
    if (subs_)
        for (int i = 0; i < count_; ++i) law_remove(subs_[i]);
    VORX_FREE(subs_);
}

int multiple_law::take_size() const {
    int m = 0;
    for (int i = 0; subs_ && i < count_; ++i)
        if (subs_[i] && subs_[i]->take_dim() > m) m = subs_[i]->take_dim();
    return m;
}

multiple_law* multiple_law::make_one(law**, int) const {
    return nullptr;
}
int multiple_law::commutative() const {
    return 0;
}

int multiple_law::same(const law* a, const law* b) const {
    const multiple_law* ma = static_cast<const multiple_law*>(a);
    const multiple_law* mb = static_cast<const multiple_law*>(b);
    if (ma->fsub_num() != mb->fsub_num()) return 0;
    if (!ma->fsub() || !mb->fsub()) return ma->fsub() == mb->fsub();
    if (commutative()) return same_law_list(ma->fsub(), mb->fsub(), ma->fsub_num());
    for (int i = 0; i < ma->fsub_num(); ++i)
        if (!same_or_both_null(ma->fsub()[i], mb->fsub()[i])) return 0;
    return 1;
}

char* multiple_law::string(law_symbol_type type, int& counter, law_data_node*& list) const {
    print_state st(counter, list);
    const char* s = symbol(type);
    text_ref args(join_args(subs_ ? count_ : 0, [&](int i) {
        return subs_[i] ? subs_[i]->string(type, st.counter(), st.list()) : VORX_STRDUP("<null>");
    }));
    // A Maple template such as "[#a]" says where the argument list goes.
    const char* mark = type != law_symbol_default ? std::strstr(s, "#a") : nullptr;
    if (mark) {
        text_ref head(VORX_ALLOC_ARRAY(char, mark - s + 1));
        std::memcpy(const_cast<char*>(head.get()), s, mark - s);
        const_cast<char*>(head.get())[mark - s] = '\0';
        return concat({head.get(), args.get(), mark + 2});
    }
    return concat({s, "(", args.get(), ")"});
}

law* multiple_law::deep_copy(pointer_map* pm) const {
    pointer_map_scope scope(pm);
    int n = subs_ ? count_ : 0;
    law_array copies(n);
    for (int i = 0; i < n; ++i) copies.set(i, pm_get_law(scope.get(), subs_[i]));
    return make_one(subs_ ? copies.get() : nullptr, count_);
}

int multiple_law::in_domain(const double* x) const {
    for (int i = 0; subs_ && i < count_; ++i)
        if (subs_[i] && !subs_[i]->in_domain(x)) return 0;
    return 1;
}

void multiple_law::full_size(SizeAccumulator& acc, int count_self) const {
    if (count_self && !acc.addSize(this, sizeof(*this), __FILE__, __LINE__)) return;
    law::full_size(acc, 0);
    if (subs_) {
        acc.addSize(subs_, (unsigned)(sizeof(law*) * count_), __FILE__, __LINE__);
        for (int i = 0; i < count_; ++i)
            if (subs_[i]) subs_[i]->full_size(acc, 1);
    }
}

void multiple_law::hasa(int type_id, VOID_LIST& list) const {
    for (int i = 0; subs_ && i < count_; ++i)
        if (subs_[i]) subs_[i]->hasa(type_id, list);
    law::hasa(type_id, list);
}

// ================================================================ unary_data_law

unary_data_law::unary_data_law(law_data* data) : data_(data) {
    law_data_add(data_);
}

unary_data_law::~unary_data_law() noexcept(false) {
    law_data_remove(data_);
}

// Data are compared by identity: two curves are one only as one object.  A law passed
// as data (an order, a bound) compares as a law.
static bool same_data(const law_data* a, const law_data* b) {
    if (a == b) return true;
    if (!a || !b || !a->isa(law_law_data::id()) || !b->isa(law_law_data::id())) return false;
    const law* la = static_cast<const law_law_data*>(a)->data_law();
    const law* lb = static_cast<const law_law_data*>(b)->data_law();
    return la == lb || (la && lb && *la == *lb);
}

int unary_data_law::same(const law* a, const law* b) const {
    return same_data(static_cast<const unary_data_law*>(a)->data_,
                     static_cast<const unary_data_law*>(b)->data_);
}

int multiple_data_law::same(const law* a, const law* b) const {
    const multiple_data_law* p = static_cast<const multiple_data_law*>(a);
    const multiple_data_law* q = static_cast<const multiple_data_law*>(b);
    if (p->count_ != q->count_ || !p->data_ != !q->data_) return 0;
    for (int i = 0; p->data_ && i < p->count_; ++i)
        if (!same_data(p->data_[i], q->data_[i])) return 0;
    return 1;
}

unary_data_law* unary_data_law::make_one(law_data*) const {
    return nullptr;
}

char* unary_data_law::string(law_symbol_type type, int& counter, law_data_node*& list) const {
    print_state st(counter, list);
    text_ref d(data_ ? data_->string(type, st.counter(), st.list()) : VORX_STRDUP("<null>"));
    return concat({symbol(type), "(", d.get(), ")"});
}

law* unary_data_law::deep_copy(pointer_map* pm) const {
    pointer_map_scope scope(pm);
    law_data_holder d(pm_get_law_data(scope.get(), data_));
    return make_one(d.get());
}

void unary_data_law::full_size(SizeAccumulator& acc, int count_self) const {
    if (count_self && !acc.addSize(this, sizeof(*this), __FILE__, __LINE__)) return;
    law::full_size(acc, 0);
    if (data_) data_->full_size(acc, 1);
}

// ================================================================ multiple_data_law

multiple_data_law::multiple_data_law(law_data** data, int count) : data_(nullptr), count_(count) {
    if (data && count > 0) {
        data_ = VORX_ALLOC_ARRAY(law_data*, count);
        for (int i = 0; i < count; ++i) {
            data_[i] = data[i];
            law_data_add(data_[i]);
        }
    }
}

multiple_data_law::~multiple_data_law() noexcept(false) {
    if (data_)
        for (int i = 0; i < count_; ++i) law_data_remove(data_[i]);
    VORX_FREE(data_);
}

multiple_data_law* multiple_data_law::make_one(law_data**, int) const {
    return nullptr;
}

char* multiple_data_law::string(law_symbol_type type, int& counter, law_data_node*& list) const {
    print_state st(counter, list);
    text_ref args(join_args(data_ ? count_ : 0, [&](int i) {
        return data_[i] ? data_[i]->string(type, st.counter(), st.list()) : VORX_STRDUP("<null>");
    }));
    return concat({symbol(type), "(", args.get(), ")"});
}

law* multiple_data_law::deep_copy(pointer_map* pm) const {
    pointer_map_scope scope(pm);
    int n = data_ ? count_ : 0;
    law_data_array copies(n);
    for (int i = 0; i < n; ++i) copies.set(i, pm_get_law_data(scope.get(), data_[i]));
    return make_one(data_ ? copies.get() : nullptr, count_);
}

void multiple_data_law::full_size(SizeAccumulator& acc, int count_self) const {
    if (count_self && !acc.addSize(this, sizeof(*this), __FILE__, __LINE__)) return;
    law::full_size(acc, 0);
    if (data_) {
        acc.addSize(data_, (unsigned)(sizeof(law_data*) * count_), __FILE__, __LINE__);
        for (int i = 0; i < count_; ++i)
            if (data_[i]) data_[i]->full_size(acc, 1);
    }
}

// ================================================================ constant_law

constant_law::constant_law(double value) : value_(value) {
    leaf_kind = leaf_constant;
    leaf_value = value;
}

const char* constant_law::symbol(law_symbol_type) const {
    return "";
}

namespace {
thread_local bool exact_constants = false;
}  // namespace

exact_constants_scope::exact_constants_scope() : saved_(exact_constants) {
    exact_constants = true;
}
exact_constants_scope::~exact_constants_scope() {
    exact_constants = saved_;
}

int constant_law::same(const law* a, const law* b) const {
    double x = 0.5, va, vb;
    a->evaluate(&x, &va);
    b->evaluate(&x, &vb);
    if (exact_constants) return va == vb;
    double d = va - vb;
    return (d < 0 ? -d : d) < 1e-14;
}

char* constant_law::string(law_symbol_type, int&, law_data_node*&) const {
    return number_string(value_);
}

law* constant_law::deep_copy(pointer_map*) const {
    return make_one(value_);
}

law_polynomial* constant_law::polynomial(law* var) const {
    return polynomial_of_constant(value_, var);
}

constant_law* constant_law::make_one(double value) const {
    return VORX_NEW constant_law(value);
}

law* constant_law::deriv(int) const {
    return VORX_NEW constant_law(0.0);
}

// ================================================================ identity_law

identity_law::identity_law(int index, char letter) : index_(index), letter_(letter) {
    leaf_kind = leaf_variable;
    leaf_index = index;
}

const char* identity_law::symbol(law_symbol_type) const {
    return "";
}

int identity_law::same(const law* a, const law* b) const {
    return static_cast<const identity_law*>(a)->fwhich() ==
           static_cast<const identity_law*>(b)->fwhich();
}

char* identity_law::string(law_symbol_type, int&, law_data_node*&) const {
    char* s = VORX_ALLOC_ARRAY(char, 16);
    bool bare = (index_ == 0 && (letter_ == 'X' || letter_ == 'U' || letter_ == 'T')) ||
                (index_ == 1 && (letter_ == 'Y' || letter_ == 'V')) ||
                (index_ == 2 && letter_ == 'Z');
    if (bare)
        std::snprintf(s, 16, "%c", letter_);
    else
        std::snprintf(s, 16, "%c%d", letter_, index_ + 1);
    return s;
}

law* identity_law::deep_copy(pointer_map*) const {
    return VORX_NEW identity_law(index_, letter_);
}

law_polynomial* identity_law::polynomial(law* var) const {
    return polynomial_of_variable(this, var);
}

law* identity_law::deriv(int which) const {
    return VORX_NEW constant_law(which == index_ ? 1.0 : 0.0);
}

law* identity_law::sub_inverse() const {
    add();
    return const_cast<identity_law*>(this);
}

}  // namespace lawutil
