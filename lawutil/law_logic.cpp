#include "lawutil/law_logic.hpp"

#include <cmath>
#include <cstring>

#include "base/interval.hpp"
#include "base/tolerance.hpp"
#include "lawutil/diff.hpp"
#include "lawutil/law_data.hpp"
#include "lawutil/law_unary.hpp"
#include "lawutil/main_law_arith.hpp"
#include "lawutil/root.hpp"
#include "lawutil/simplfy.hpp"

using namespace vorx;

namespace lawutil {

LAWUTIL_TYPE_DEF(predicate_law)
LAWUTIL_TYPE_DEF(less_than_law)
LAWUTIL_TYPE_DEF(greater_than_law)
LAWUTIL_TYPE_DEF(less_than_or_equal_law)
LAWUTIL_TYPE_DEF(greater_than_or_equal_law)
LAWUTIL_TYPE_DEF(equal_law)
LAWUTIL_TYPE_DEF(not_equal_law)
LAWUTIL_TYPE_DEF(and_law)
LAWUTIL_TYPE_DEF(or_law)
LAWUTIL_TYPE_DEF(mod_law)
LAWUTIL_TYPE_DEF(step_law)
LAWUTIL_TYPE_DEF(piecewise_law)
LAWUTIL_TYPE_DEF(max_law)
LAWUTIL_TYPE_DEF(min_law)
LAWUTIL_TYPE_DEF(log_law)
LAWUTIL_TYPE_DEF(arctan_law)
LAWUTIL_TYPE_DEF(domain_law)
LAWUTIL_TYPE_DEF(permanent_domain_law)
LAWUTIL_TYPE_DEF(derivative_law)

namespace {

constexpr int stack_inputs = 16;

// Another reference to `l`, for an array that adopts it.
law* shared(law* l) {
    law_add(l);
    return l;
}

// Owns a string until it is handed on.
class owned_text {
  public:
    owned_text() = default;
    ~owned_text() { VORX_FREE(s_); }
    owned_text(const owned_text&) = delete;
    owned_text& operator=(const owned_text&) = delete;
    void reset(char* s) {
        VORX_FREE(s_);
        s_ = s;
    }
    const char* get() const { return s_ ? s_ : ""; }

  private:
    char* s_ = nullptr;
};

bool opens(char c) {
    return c == '[' || c == '(' || c == ',';
}
bool closes(char c) {
    return c == ']' || c == ')' || c == ',' || c == '\0';
}

// Fills `out` (when given) with the template's expansion and returns its length.
size_t expand_template(const char* tmpl, law* const* parts, int n, const owned_text* texts,
                       char* out) {
    size_t len = 0;
    auto put = [&](const char* s, size_t k) {
        if (out) std::memcpy(out + len, s, k);
        len += k;
    };
    for (const char* c = tmpl; *c; ++c) {
        int i = (c[0] == '#' && c[1] >= '1' && c[1] <= '9') ? c[1] - '1' : -1;
        if (i < 0 || i >= n) {
            put(c, 1);
            continue;
        }
        bool bare =
            (c > tmpl && opens(c[-1]) && closes(c[2])) || !parts[i] || parts[i]->precedence() >= 8;
        const char* t = texts[i].get();
        if (!bare) put("(", 1);
        put(t, std::strlen(t));
        if (!bare) put(")", 1);
        ++c;
    }
    return len;
}

}  // namespace

char* law_template_string(const char* tmpl, law* const* parts, int n, law_symbol_type type,
                          int& counter, law_data_node*& list) {
    // Local numbering when the caller passed the null sentinels (as law::string does).
    int local_counter = 0;
    law_data_node* local_list = nullptr;
    struct list_guard {
        law_data_node*& l;
        ~list_guard() { delete l; }
    } guard{local_list};
    int& cnt = is_null_out_ref(counter) ? local_counter : counter;
    law_data_node*& lst = is_null_out_ref(list) ? local_list : list;

    if (n > 9) n = 9;
    owned_text texts[9];
    for (int i = 0; i < n; ++i)
        texts[i].reset(parts[i] ? parts[i]->string(type, cnt, lst) : VORX_STRDUP("<null>"));
    size_t len = expand_template(tmpl, parts, n, texts, nullptr);
    char* out = VORX_ALLOC_ARRAY(char, len + 1);
    expand_template(tmpl, parts, n, texts, out);
    out[len] = '\0';
    return out;
}

double law_value_at_one(const law* l) {
    int n = l->take_dim();
    if (n <= 1) return l->eval(1.0);
    // A part that stands for a number reads no input; one that reads input 999999999 is
    // malformed, not a reason to allocate a billion ones.
    if (n > 4096) sys_error(LAW_DIM);
    law_scratch<stack_inputs> ones(n);
    for (int i = 0; i < n; ++i) ones[i] = 1.0;
    return l->evaluateM_R(ones.get());
}

// ================================================================ comparisons

predicate_law::predicate_law(law* left, law* right) : binary_law(left, right) {}

// d(A<B) = 0
law* predicate_law::deriv(int) const {
    return VORX_NEW constant_law(0.0);
}

// ---------------------------------------------------------------- <

less_than_law::less_than_law(law* left, law* right) : predicate_law(left, right) {}

void less_than_law::evaluate(const double* x, double* y) const {
    *y = left_->evaluateM_R(x) < right_->evaluateM_R(x) ? 1.0 : 0.0;
}

const char* less_than_law::symbol(law_symbol_type) const {
    return "<";
}

binary_law* less_than_law::make_one(law* left, law* right) const {
    return VORX_NEW less_than_law(left, right);
}

// ---------------------------------------------------------------- >

greater_than_law::greater_than_law(law* left, law* right) : predicate_law(left, right) {}

void greater_than_law::evaluate(const double* x, double* y) const {
    *y = left_->evaluateM_R(x) > right_->evaluateM_R(x) ? 1.0 : 0.0;
}

const char* greater_than_law::symbol(law_symbol_type) const {
    return ">";
}

binary_law* greater_than_law::make_one(law* left, law* right) const {
    return VORX_NEW greater_than_law(left, right);
}

// ---------------------------------------------------------------- <=

less_than_or_equal_law::less_than_or_equal_law(law* left, law* right)
    : predicate_law(left, right) {}

void less_than_or_equal_law::evaluate(const double* x, double* y) const {
    *y = left_->evaluateM_R(x) <= right_->evaluateM_R(x) ? 1.0 : 0.0;
}

const char* less_than_or_equal_law::symbol(law_symbol_type) const {
    return "<=";
}

binary_law* less_than_or_equal_law::make_one(law* left, law* right) const {
    return VORX_NEW less_than_or_equal_law(left, right);
}

// ---------------------------------------------------------------- >=

greater_than_or_equal_law::greater_than_or_equal_law(law* left, law* right)
    : predicate_law(left, right) {}

void greater_than_or_equal_law::evaluate(const double* x, double* y) const {
    *y = left_->evaluateM_R(x) >= right_->evaluateM_R(x) ? 1.0 : 0.0;
}

const char* greater_than_or_equal_law::symbol(law_symbol_type) const {
    return ">=";
}

binary_law* greater_than_or_equal_law::make_one(law* left, law* right) const {
    return VORX_NEW greater_than_or_equal_law(left, right);
}

// ---------------------------------------------------------------- =

equal_law::equal_law(law* left, law* right) : predicate_law(left, right) {}

void equal_law::evaluate(const double* x, double* y) const {
    // Exact on purpose: 0.1+0.2=0.3 is false.
    *y = left_->evaluateM_R(x) == right_->evaluateM_R(x) ? 1.0 : 0.0;
}

const char* equal_law::symbol(law_symbol_type) const {
    return "=";
}

binary_law* equal_law::make_one(law* left, law* right) const {
    return VORX_NEW equal_law(left, right);
}

// ---------------------------------------------------------------- !=

not_equal_law::not_equal_law(law* left, law* right) : predicate_law(left, right) {}

void not_equal_law::evaluate(const double* x, double* y) const {
    *y = left_->evaluateM_R(x) != right_->evaluateM_R(x) ? 1.0 : 0.0;
}

const char* not_equal_law::symbol(law_symbol_type type) const {
    return type == law_symbol_default ? "!=" : "<>";
}

binary_law* not_equal_law::make_one(law* left, law* right) const {
    return VORX_NEW not_equal_law(left, right);
}

// ---------------------------------------------------------------- AND, OR

and_law::and_law(law* left, law* right) : predicate_law(left, right) {}

void and_law::evaluate(const double* x, double* y) const {
    // Both operands are evaluated: an error in either is not hidden by the other.
    double a = left_->evaluateM_R(x);
    double b = right_->evaluateM_R(x);
    *y = (a != 0.0 && b != 0.0) ? 1.0 : 0.0;
}

const char* and_law::symbol(law_symbol_type type) const {
    return type == law_symbol_default ? "AND" : "and";
}

binary_law* and_law::make_one(law* left, law* right) const {
    return VORX_NEW and_law(left, right);
}

or_law::or_law(law* left, law* right) : predicate_law(left, right) {}

void or_law::evaluate(const double* x, double* y) const {
    double a = left_->evaluateM_R(x);
    double b = right_->evaluateM_R(x);
    *y = (a != 0.0 || b != 0.0) ? 1.0 : 0.0;
}

const char* or_law::symbol(law_symbol_type type) const {
    return type == law_symbol_default ? "OR" : "or";
}

binary_law* or_law::make_one(law* left, law* right) const {
    return VORX_NEW or_law(left, right);
}

// ================================================================ mod_law

mod_law::mod_law(law* left, law* right) : binary_law(left, right) {}

void mod_law::evaluate(const double* x, double* y) const {
    double a = left_->evaluateM_R(x);
    double b = right_->evaluateM_R(x);
    // Floored, not truncated: MOD(-1,3) = 2 and MOD(7,-3) = -2.
    *y = a - std::floor(a / b) * b;
}

const char* mod_law::symbol(law_symbol_type type) const {
    return type == law_symbol_default ? "MOD" : "mod[#2]#1";
}

char* mod_law::string(law_symbol_type type, int& counter, law_data_node*& list) const {
    if (type == law_symbol_default) return binary_law::string(type, counter, list);
    law* parts[2] = {left_, right_};
    return law_template_string(symbol(type), parts, 2, type, counter, list);
}

binary_law* mod_law::make_one(law* left, law* right) const {
    return VORX_NEW mod_law(left, right);
}

// MOD(A,B)' = 0: deliberately, the jumps are ignored and the slope of A is not passed on.
law* mod_law::deriv(int) const {
    return VORX_NEW constant_law(0.0);
}

// ================================================================ step_law

namespace {

// Checked before the law is built, so a rejected list leaves nothing behind.  The
// prototype (no parts) is not checked.
law** checked_step_parts(law** parts, int n) {
    if (!parts) return parts;
    if (n < 1 || n % 2 == 0) sys_error(LAW_STEP_NUM);
    double previous = -HUGE_VAL;
    for (int i = 1; i < n; i += 2) {
        if (!parts[i] || !parts[i]->isa(constant_law::id())) sys_error(LAW_STEP_ODD);
        double c = parts[i]->eval(1.0);
        // Equal breakpoints are allowed: the law between them is never chosen.
        if (c < previous) sys_error(LAW_STEP_ORDER);
        previous = c;
    }
    return parts;
}

// The widest output of the laws that a choice can select (parts first, first + step,
// ..., and `last` when it is not -1).
int widest_choice(law** parts, int n, int first, int step, int last) {
    int m = 1;
    for (int i = first; parts && i < n; i += step)
        if (parts[i] && parts[i]->return_dim() > m) m = parts[i]->return_dim();
    if (parts && last >= 0 && last < n && parts[last] && parts[last]->return_dim() > m)
        m = parts[last]->return_dim();
    return m;
}

// Evaluates the chosen law into an output of `width` entries, zero-filling what a
// narrower law does not write.
void evaluate_choice(const law* chosen, const double* x, double* y, int width) {
    int m = chosen->return_dim();
    for (int i = m; i < width; ++i) y[i] = 0.0;
    chosen->evaluate(x, y);
}

}  // namespace

step_law::step_law(law** parts, int n) : multiple_law(checked_step_parts(parts, n), n) {}

int step_law::take_size() const {
    int m = multiple_law::take_size();
    return m > 1 ? m : 1;
}

int step_law::return_size() const {
    return widest_choice(subs_, count_, 0, 2, -1);
}

void step_law::evaluate(const double* x, double* y) const {
    int chosen = count_ - 1;
    for (int i = 1; i < count_; i += 2)
        // At a breakpoint the law on its right is used.
        if (subs_[i]->evaluateM_R(x) > x[0]) {
            chosen = i - 1;
            break;
        }
    evaluate_choice(subs_[chosen], x, y, return_dim());
}

const char* step_law::symbol(law_symbol_type type) const {
    return type == law_symbol_default ? "STEP" : "no_maple";
}

multiple_law* step_law::make_one(law** parts, int n) const {
    return VORX_NEW step_law(parts, n);
}

// STEP(A,c,B)' = STEP(A',c,B')
law* step_law::deriv(int which) const {
    if (!subs_) return nullptr;
    law_array parts(count_);
    for (int i = 0; i < count_; ++i)
        parts.set(i, i % 2 == 0 ? subs_[i]->derivative(which) : shared(subs_[i]));
    return VORX_NEW step_law(parts.get(), count_);
}

// ================================================================ piecewise_law

piecewise_law::piecewise_law(law** parts, int n) : multiple_law(parts, n) {}

int piecewise_law::return_size() const {
    return widest_choice(subs_, count_, 1, 2, count_ % 2 ? count_ - 1 : -1);
}

void piecewise_law::evaluate(const double* x, double* y) const {
    for (int i = 0; i + 1 < count_; i += 2)
        if (subs_[i]->evaluateM_R(x) != 0.0) {
            evaluate_choice(subs_[i + 1], x, y, return_dim());
            return;
        }
    if (count_ % 2)
        evaluate_choice(subs_[count_ - 1], x, y, return_dim());
    else
        for (int i = 0; i < return_dim(); ++i) y[i] = 0.0;
}

const char* piecewise_law::symbol(law_symbol_type) const {
    return "PIECEWISE";
}

multiple_law* piecewise_law::make_one(law** parts, int n) const {
    return VORX_NEW piecewise_law(parts, n);
}

// PIECEWISE(c,A,D)' = PIECEWISE(c,A',D')
law* piecewise_law::deriv(int which) const {
    if (!subs_) return nullptr;
    law_array parts(count_);
    for (int i = 0; i < count_; ++i) {
        bool condition = i % 2 == 0 && i + 1 < count_;
        parts.set(i, condition ? shared(subs_[i]) : subs_[i]->derivative(which));
    }
    return VORX_NEW piecewise_law(parts.get(), count_);
}

// ================================================================ max_law, min_law

max_law::max_law(law** parts, int n) : multiple_law(parts, n) {}

void max_law::evaluate(const double* x, double* y) const {
    double best = count_ > 0 ? subs_[0]->evaluateM_R(x) : 0.0;
    for (int i = 1; i < count_; ++i) {
        double v = subs_[i]->evaluateM_R(x);
        // Strictly greater: ties keep the earlier part.
        if (v > best) best = v;
    }
    *y = best;
}

const char* max_law::symbol(law_symbol_type type) const {
    return type == law_symbol_default ? "MAX" : "max";
}

multiple_law* max_law::make_one(law** parts, int n) const {
    return VORX_NEW max_law(parts, n);
}

namespace {

// The derivative of the part that MAX (or MIN) currently selects.  With M_k the extreme
// of the parts before part k, part k takes over where SET(A_k - M_k) (MIN: SET(M_k - A_k))
// is 1, and the last part that takes over is the one selected; ties keep the earlier part:
//   MAX(A_0..A_n)' = PIECEWISE(SET(A_n - M_n), A_n', ..., SET(A_1 - M_1), A_1', A_0')
// A piecewise law evaluates one branch, so the cost grows with the square of the part
// count, not with 2^n as a sum of switched terms that reuse each other would.
template <class Extreme>
law* extreme_deriv(law** parts, int n, int which, bool is_max) {
    if (!parts || n < 1) return nullptr;
    if (n == 1) return parts[0]->derivative(which);
    law_array pieces(2 * (n - 1) + 1);
    int at = 0;
    for (int k = n - 1; k >= 1; --k) {
        law_holder before(k == 1 ? shared(parts[0]) : VORX_NEW Extreme(parts, k));
        law_holder gap(is_max ? VORX_NEW minus_law(parts[k], before.get())
                              : VORX_NEW minus_law(before.get(), parts[k]));
        pieces.set(at++, VORX_NEW set_law(gap.get()));
        pieces.set(at++, parts[k]->derivative(which));
    }
    pieces.set(at++, parts[0]->derivative(which));
    return VORX_NEW piecewise_law(pieces.get(), at);
}

}  // namespace

law* max_law::deriv(int which) const {
    return extreme_deriv<max_law>(subs_, count_, which, true);
}

min_law::min_law(law** parts, int n) : multiple_law(parts, n) {}

void min_law::evaluate(const double* x, double* y) const {
    double best = count_ > 0 ? subs_[0]->evaluateM_R(x) : 0.0;
    for (int i = 1; i < count_; ++i) {
        double v = subs_[i]->evaluateM_R(x);
        if (v < best) best = v;
    }
    *y = best;
}

const char* min_law::symbol(law_symbol_type type) const {
    return type == law_symbol_default ? "MIN" : "min";
}

multiple_law* min_law::make_one(law** parts, int n) const {
    return VORX_NEW min_law(parts, n);
}

law* min_law::deriv(int which) const {
    return extreme_deriv<min_law>(subs_, count_, which, false);
}

// ================================================================ log_law

// The parts with the base made explicit, checked before the law is built.  The default
// base 10 is held here until the law has taken its own reference.
struct log_law::parts_with_base {
    law* parts[2] = {nullptr, nullptr};
    law_holder ten;
    law** array = nullptr;
    int count = 0;

    parts_with_base(law** given, int n) : count(n) {
        if (!given) return;  // the prototype
        if (n == 1) {
            ten.reset(VORX_NEW constant_law(10.0));
            parts[0] = given[0];
            parts[1] = ten.get();
        } else if (n == 2) {
            parts[0] = given[0];
            parts[1] = given[1];
        } else {
            sys_error(LAW_BASE_C);
        }
        if (!parts[1] || !parts[1]->isa(constant_law::id())) sys_error(LAW_BASE_C);
        // A base of exactly 0 is let through (its logarithm follows floating point).
        if (parts[1]->eval(1.0) < 0.0) sys_error(LAW_BASE_P);
        array = parts;
        count = 2;
    }
};

log_law::log_law(law** parts, int n) : log_law(parts_with_base(parts, n)) {}

log_law::log_law(const parts_with_base& p) : multiple_law(p.array, p.count) {}

void log_law::evaluate(const double* x, double* y) const {
    *y = std::log(subs_[0]->evaluateM_R(x)) / std::log(subs_[1]->evaluateM_R(x));
}

int log_law::in_domain(const double* x) const {
    return multiple_law::in_domain(x) && subs_ && subs_[0]->evaluateM_R(x) > 0.0;
}

const char* log_law::symbol(law_symbol_type type) const {
    return type == law_symbol_default ? "LOG" : "log[#2]#1";
}

char* log_law::string(law_symbol_type type, int& counter, law_data_node*& list) const {
    if (type == law_symbol_default || !subs_ || count_ != 2)
        return multiple_law::string(law_symbol_default, counter, list);
    return law_template_string(symbol(type), subs_, count_, type, counter, list);
}

multiple_law* log_law::make_one(law** parts, int n) const {
    return VORX_NEW log_law(parts, n);
}

// LOG(A,b)' = (1/ln b)*((1/A)*A')
law* log_law::deriv(int which) const {
    if (!subs_ || count_ != 2) return nullptr;
    law_holder da(subs_[0]->derivative(which));
    law_holder one(VORX_NEW constant_law(1.0));
    law_holder inverse(VORX_NEW division_law(one.get(), subs_[0]));
    law_holder slope(VORX_NEW times_law(inverse.get(), da.get()));
    law_holder scale(VORX_NEW constant_law(1.0 / std::log(law_value_at_one(subs_[1]))));
    return VORX_NEW times_law(scale.get(), slope.get());
}

// ================================================================ arctan_law

arctan_law::arctan_law(law** parts, int n) : multiple_law(parts, n) {}

void arctan_law::evaluate(const double* x, double* y) const {
    if (count_ < 2) {
        *y = count_ == 1 ? std::atan(subs_[0]->evaluateM_R(x)) : 0.0;
        return;
    }
    double v = subs_[0]->evaluateM_R(x);
    double u = subs_[1]->evaluateM_R(x);
    // The angle of the origin is undefined.
    if (v == 0.0 && u == 0.0) sys_error(LAW_BAD_DOMAN);
    *y = std::atan2(v, u);
}

int arctan_law::in_domain(const double* x) const {
    if (!multiple_law::in_domain(x)) return 0;
    if (count_ < 2 || !subs_) return 1;
    return subs_[0]->evaluateM_R(x) != 0.0 || subs_[1]->evaluateM_R(x) != 0.0;
}

const char* arctan_law::symbol(law_symbol_type type) const {
    return type == law_symbol_default ? "ARCTAN" : "arctan";
}

multiple_law* arctan_law::make_one(law** parts, int n) const {
    return VORX_NEW arctan_law(parts, n);
}

law* arctan_law::deriv(int which) const {
    if (!subs_ || count_ < 1) return nullptr;
    law_holder two(VORX_NEW constant_law(2.0));
    if (count_ == 1) {
        // ARCTAN(G)' = (1/(1+G*G))*G'
        law* g = subs_[0];
        law_holder dg(g->derivative(which));
        law_holder one(VORX_NEW constant_law(1.0));
        law_holder square(VORX_NEW times_law(g, g));
        law_holder below(VORX_NEW plus_law(one.get(), square.get()));
        law_holder factor(VORX_NEW division_law(one.get(), below.get()));
        return VORX_NEW times_law(factor.get(), dg.get());
    }
    // ARCTAN(Y,X)' = (X*Y'-Y*X')/(X^2+Y^2)
    law* y = subs_[0];
    law* x = subs_[1];
    law_holder dy(y->derivative(which));
    law_holder dx(x->derivative(which));
    law_holder xdy(VORX_NEW times_law(x, dy.get()));
    law_holder ydx(VORX_NEW times_law(y, dx.get()));
    law_holder above(VORX_NEW minus_law(xdy.get(), ydx.get()));
    law_holder xx(VORX_NEW exponent_law(x, two.get()));
    law_holder yy(VORX_NEW exponent_law(y, two.get()));
    law_holder below(VORX_NEW plus_law(xx.get(), yy.get()));
    return VORX_NEW division_law(above.get(), below.get());
}

// ================================================================ domain laws

// domain_law and permanent_domain_law differ only in what simplification does with them,
// so they share these.
namespace {

int domain_take_size(const multiple_law* d, int own) {
    // A lone last bound still bounds an input.
    int pairs = d->fsub_num() / 2;
    if (!d->fsub()) return own;
    return own > pairs ? own : pairs;
}

int domain_return_size(const multiple_law* d) {
    return d->fsub() && d->fsub()[0] ? d->fsub()[0]->return_dim() : 1;
}

int domain_in_domain(const multiple_law* d, const double* x) {
    law** parts = d->fsub();
    int n = d->fsub_num();
    if (!parts) return 1;
    if (parts[0] && !parts[0]->in_domain(x)) return 0;
    for (int i = 1; i < n; i += 2) {
        double v = x[(i - 1) / 2];
        if (std::isnan(v)) return 0;
        // An end at or beyond +-law_domain_unbounded bounds nothing.
        double lo = parts[i]->evaluateM_R(x);
        if (lo > -law_domain_unbounded && v < lo) return 0;
        if (i + 1 < n) {
            double hi = parts[i + 1]->evaluateM_R(x);
            if (hi < law_domain_unbounded && v > hi) return 0;
        }
    }
    return 1;
}

// A bound that does not depend on the inputs and lies within +-law_domain_unbounded.
bool read_bound(const law* b, double& value) {
    if (!b || b->take_dim() > 0 || b->return_dim() != 1) return false;
    double dummy = 0.0;
    value = b->evaluateM_R(&dummy);
    return std::fabs(value) < law_domain_unbounded;
}

int domain_term_domain(const multiple_law* d, int which, interval& dom) {
    law** parts = d->fsub();
    int n = d->fsub_num();
    if (!parts) return 0;
    int lo_at = 1 + 2 * which;
    if (which < 0 || lo_at >= n) return parts[0] ? parts[0]->term_domain(which, dom) : 0;
    double lo = 0.0, hi = 0.0;
    bool has_lo = read_bound(parts[lo_at], lo);
    bool has_hi = lo_at + 1 < n && read_bound(parts[lo_at + 1], hi);
    interval own;
    if (has_lo && has_hi)
        own = interval(interval_finite, lo, hi);
    else if (has_lo)
        own = interval(interval_finite_below, lo, lo);
    else if (has_hi)
        own = interval(interval_finite_above, hi, hi);
    else
        own = interval(interval_infinite, 0.0, 0.0);
    interval inner;
    if (parts[0] && parts[0]->term_domain(which, inner)) own &= inner;
    dom = own;
    return 1;
}

char* domain_string(const multiple_law* d, law_symbol_type type, int& counter,
                    law_data_node*& list) {
    // Maple has no form for the restriction: the wrapped law alone.
    if (type == law_symbol_default || !d->fsub() || !d->fsub()[0])
        return d->multiple_law::string(law_symbol_default, counter, list);
    return d->fsub()[0]->string(type, counter, list);
}

// The same restriction over F' in place of F.
template <class D>
law* domain_deriv(const D* d, int which) {
    law** parts = d->fsub();
    int n = d->fsub_num();
    if (!parts || !parts[0]) return nullptr;
    law_array dparts(n);
    dparts.set(0, parts[0]->derivative(which));
    for (int i = 1; i < n; ++i) dparts.set(i, shared(parts[i]));
    return VORX_NEW D(dparts.get(), n);
}

}  // namespace

domain_law::domain_law(law** parts, int n) : multiple_law(parts, n) {}

void domain_law::evaluate(const double* x, double* y) const {
    subs_[0]->evaluate(x, y);
}
void domain_law::evaluate_with_side(const double* x, double* y, const int* side) const {
    subs_[0]->evaluate_with_side(x, y, side);
}
void domain_law::evaluate_with_guess(const double* x, double* y, const double* guess) const {
    subs_[0]->evaluate_with_guess(x, y, guess);
}

const char* domain_law::symbol(law_symbol_type type) const {
    return type == law_symbol_default ? "DOMAIN" : "";
}

char* domain_law::string(law_symbol_type type, int& counter, law_data_node*& list) const {
    return domain_string(this, type, counter, list);
}

int domain_law::term_domain(int which, interval& dom) const {
    return domain_term_domain(this, which, dom);
}

int domain_law::in_domain(const double* x) const {
    return domain_in_domain(this, x);
}

multiple_law* domain_law::make_one(law** parts, int n) const {
    return VORX_NEW domain_law(parts, n);
}

law* domain_law::deriv(int which) const {
    return domain_deriv(this, which);
}

int domain_law::take_size() const {
    return domain_take_size(this, multiple_law::take_size());
}

int domain_law::return_size() const {
    return domain_return_size(this);
}

// domain(A)=A: the restriction only concerns the numerical routines, the value is A's
law* domain_law::sub_simplify(int, const char*& what) const {
    if (!subs_ || count_ < 1 || !subs_[0]) return nullptr;
    return simplify_fired(law_holder::share(subs_[0]).release(), what, "domain(A)=A");
}

permanent_domain_law::permanent_domain_law(law** parts, int n) : multiple_law(parts, n) {}

void permanent_domain_law::evaluate(const double* x, double* y) const {
    subs_[0]->evaluate(x, y);
}
void permanent_domain_law::evaluate_with_side(const double* x, double* y, const int* side) const {
    subs_[0]->evaluate_with_side(x, y, side);
}
void permanent_domain_law::evaluate_with_guess(const double* x, double* y,
                                               const double* guess) const {
    subs_[0]->evaluate_with_guess(x, y, guess);
}

const char* permanent_domain_law::symbol(law_symbol_type type) const {
    return type == law_symbol_default ? "PDOMAIN" : "";
}

char* permanent_domain_law::string(law_symbol_type type, int& counter, law_data_node*& list) const {
    return domain_string(this, type, counter, list);
}

int permanent_domain_law::term_domain(int which, interval& dom) const {
    return domain_term_domain(this, which, dom);
}

int permanent_domain_law::in_domain(const double* x) const {
    return domain_in_domain(this, x);
}

multiple_law* permanent_domain_law::make_one(law** parts, int n) const {
    return VORX_NEW permanent_domain_law(parts, n);
}

law* permanent_domain_law::deriv(int which) const {
    return domain_deriv(this, which);
}

int permanent_domain_law::take_size() const {
    return domain_take_size(this, multiple_law::take_size());
}

int permanent_domain_law::return_size() const {
    return domain_return_size(this);
}

// Any law restricted to `dom` (one interval per input; null leaves every input
// unbounded): DOMAIN, or PDOMAIN when `flag` is set, over the law itself and a constant
// for each end of each input's interval.  An unbounded end is written as
// +-law_domain_unbounded, which reads back from text.
law* law::set_domain(interval* dom, int flag) const {
    int n = take_dim();
    if (n < 1) n = 1;
    int count = 2 * n + 1;
    law_array parts(count);
    parts.set(0, shared(const_cast<law*>(this)));
    for (int i = 0; i < n; ++i) {
        bool below = dom && !dom[i].empty() && dom[i].bounded_below();
        bool above = dom && !dom[i].empty() && dom[i].bounded_above();
        double lo = below ? dom[i].start_pt() : -law_domain_unbounded;
        double hi = above ? dom[i].end_pt() : law_domain_unbounded;
        parts.set(1 + 2 * i, VORX_NEW constant_law(lo));
        parts.set(2 + 2 * i, VORX_NEW constant_law(hi));
    }
    if (flag) return VORX_NEW permanent_domain_law(parts.get(), count);
    return VORX_NEW domain_law(parts.get(), count);
}

// ================================================================ derivative_law

namespace {

law** checked_derivative_parts(law** parts, int n) {
    if (parts && (n < 1 || n > 3)) sys_error(LAW_DL_NUM);
    return parts;
}

// A part read as a whole number; out of the int range (or NaN) reads as `bad`.
int whole_part(const law* l, int bad) {
    double v = std::trunc(law_value_at_one(l));
    return (v > -1e9 && v < 1e9) ? (int)v : bad;
}

}  // namespace

derivative_law::derivative_law(law** parts, int n)
    : multiple_law(checked_derivative_parts(parts, n), n) {}

int derivative_law::return_size() const {
    return subs_ && subs_[0] ? subs_[0]->return_dim() : 1;
}

namespace {

constexpr int max_numerical_order = 16;

// What a D law asks for: F, the input differentiated and the order.
struct derivative_request {
    law* f;
    int var;
    int order;
};

derivative_request read_request(law** parts, int n) {
    derivative_request r{parts[0], n >= 2 ? whole_part(parts[1], -1) : 0,
                         n >= 3 ? whole_part(parts[2], 0) : 1};
    // Past a few orders finite differences on a fixed step give only rounding noise, and
    // the work grows with the order: a huge order is refused rather than ground through.
    if (r.var < 0 || r.order > max_numerical_order) sys_error(LAW_DIM);
    return r;
}

// Shared by the centred and the one-sided evaluation.  The differentiation routines use
// the point as scratch space, so they get a copy: the caller's input may be read-only.
template <class Differentiate>
void differentiate_at(const derivative_law* d, const double* x, double* y, Differentiate diff) {
    derivative_request r = read_request(d->fsub(), d->fsub_num());
    int m = r.f->return_dim();
    if (r.order <= 0) {
        r.f->evaluate(x, y);
        return;
    }
    int inputs = d->take_dim();
    if (r.var >= inputs) {
        // F does not read that input, so every sample would be F(x): F is evaluated once,
        // its errors passed on, and the differences of equal samples are 0 (NaN where F
        // is not finite).
        r.f->evaluate(x, y);
        for (int i = 0; i < m; ++i) y[i] -= y[i];
        return;
    }
    law_scratch<stack_inputs> at(inputs);
    for (int i = 0; i < inputs; ++i) at[i] = x[i];
    diff(r, at.get(), y);
}

}  // namespace

void derivative_law::evaluate(const double* x, double* y) const {
    differentiate_at(this, x, y, [](const derivative_request& r, double* at, double* out) {
        Ndifferentiate(r.f, at, r.var, out, r.order);
    });
}

void derivative_law::evaluate_with_side(const double* x, double* y, const int* side) const {
    differentiate_at(this, x, y, [side](const derivative_request& r, double* at, double* out) {
        Ndifferentiate_sided(r.f, at, r.var, side[r.var], out, r.order);
    });
}

const char* derivative_law::symbol(law_symbol_type) const {
    return "D";
}

multiple_law* derivative_law::make_one(law** parts, int n) const {
    return VORX_NEW derivative_law(parts, n);
}

law* derivative_law::deriv(int which) const {
    if (!subs_ || !subs_[0]) return nullptr;
    law* f = subs_[0];
    int var = count_ >= 2 ? whole_part(subs_[1], -1) : 0;
    int order = count_ >= 3 ? whole_part(subs_[2], 0) : 1;
    if (var < 0) return nullptr;
    law_array parts(3);
    if (which == var) {
        // D(F,i,k) in input i: D(F,i,k+1)
        parts.set(0, shared(f));
        parts.set(1, VORX_NEW constant_law(var));
        parts.set(2, VORX_NEW constant_law(order > 0 ? order + 1 : 1));
    } else if (f->has_derivative(which)) {
        // D(F,i,k) in input j: D(dF/dj,i,k)
        parts.set(0, f->derivative(which));
        parts.set(1, VORX_NEW constant_law(var));
        parts.set(2, VORX_NEW constant_law(order));
    } else {
        // D(F,i,k) in input j: D(D(F,i,k),j,1).  The inner D is a new law over the same
        // parts: this law itself would be held by its own derivative cache, a cycle.
        parts.set(0, VORX_NEW derivative_law(subs_, count_));
        parts.set(1, VORX_NEW constant_law(which));
        parts.set(2, VORX_NEW constant_law(1));
    }
    return VORX_NEW derivative_law(parts.get(), 3);
}

// ================================================================ singular points

namespace {

// The value of a scalar law at x, or NaN where it cannot be evaluated there.
double value_or_nan(const law* l, double x) {
    try {
        return l->eval(x);
    } catch (const vorx_exception&) {
        return std::nan("");
    }
}

// The kind of a break at x between two scalar parts (null: the value 0).
int break_kind(const law* left, const law* right, double x) {
    double a = left ? value_or_nan(left, x) : 0.0;
    double b = right ? value_or_nan(right, x) : 0.0;
    return std::fabs(a - b) <= resabs ? law_singular_break : law_singular_jump;
}

}  // namespace

// A<B and the other comparisons of linear sides: a jump where they cross.
// AND, OR: their conditions' points.
int predicate_law::singularities(double** where, int** kind, double lo, double hi,
                                 double** period) const {
    if (isa(and_law::id()) || isa(or_law::id()))
        return operand_singularities(this, left_, right_, where, kind, lo, hi, period);
    singularity_list s(lo, hi);
    double cl, sl, cr, sr;
    if (take_dim() <= 1 && linear_coefficients(left_, cl, sl) &&
        linear_coefficients(right_, cr, sr) && sl != sr)
        s.add((cr - cl) / (sl - sr), law_singular_jump);
    return s.finish(where, kind, period);
}

// A MOD c: jumps where A is a whole multiple of the constant c
int mod_law::singularities(double** where, int** kind, double lo, double hi,
                           double** period) const {
    singularity_list s(lo, hi);
    double c, slope;
    if (take_dim() <= 1 && linear_coefficients(right_, c, slope) && slope == 0.0 && c != 0.0)
        s.add_linear_lattice(left_, 0.0, std::fabs(c), law_singular_jump);
    return s.finish(where, kind, period);
}

// STEP(A,c1,B,...): each breakpoint, a jump unless its two sides agree there; each
// part's own points within its piece.
int step_law::singularities(double** where, int** kind, double lo, double hi,
                            double** period) const {
    singularity_list s(lo, hi);
    if (!subs_ || take_dim() > 1) return s.finish(where, kind, period);
    // The part in force at x (just below x when `below`).
    auto part_at = [this](double x, bool below) {
        for (int i = 1; i < count_; i += 2) {
            double c = subs_[i]->eval(0.0);
            if (below ? c >= x : c > x) return i - 1;
        }
        return count_ - 1;
    };
    bool scalar = returns_scalar();
    for (int i = 1; i < count_; i += 2) {
        double c = subs_[i]->eval(0.0);
        int left = part_at(c, true), right = part_at(c, false);
        if (left == right) continue;
        s.add(c, scalar ? break_kind(subs_[left], subs_[right], c) : law_singular_jump);
    }
    for (int j = 0; j < count_; j += 2) {
        int first = s.count();
        s.add_law(subs_[j]);
        s.keep_from(first, [&](double x) { return part_at(x, false) == j; });
    }
    return s.finish(where, kind, period);
}

// PIECEWISE(c1,A,...,D): where a condition switches the part in force, a jump unless
// the two parts agree there; each part's own points where it is in force.
int piecewise_law::singularities(double** where, int** kind, double lo, double hi,
                                 double** period) const {
    singularity_list s(lo, hi);
    if (!subs_ || take_dim() > 1) return s.finish(where, kind, period);
    // The index of the part in force at x; -1 for the value 0, -2 where a condition
    // cannot be evaluated.
    auto part_at = [this](double x) {
        for (int i = 0; i + 1 < count_; i += 2) {
            double c = value_or_nan(subs_[i], x);
            if (std::isnan(c)) return -2;
            if (c != 0.0) return i + 1;
        }
        return count_ % 2 ? count_ - 1 : -1;
    };
    singularity_list conditions(lo, hi);
    for (int i = 0; i + 1 < count_; i += 2) conditions.add_law(subs_[i]);
    bool scalar = returns_scalar();
    for (int k = 0; k < conditions.count(); ++k) {
        double x = conditions.position(k);
        double d = resabs * 0.5 + std::fabs(x) * 1e-12;
        int left = part_at(x - d), right = part_at(x + d);
        if (left == right && left != -2) continue;
        int kind_here = law_singular_jump;
        if (scalar && left >= -1 && right >= -1)
            kind_here = break_kind(left >= 0 ? subs_[left] : nullptr,
                                   right >= 0 ? subs_[right] : nullptr, x);
        s.add(x, kind_here);
    }
    for (int j = 1; j < count_; j += 2) {
        int first = s.count();
        s.add_law(subs_[j]);
        s.keep_from(first, [&](double x) { return part_at(x) == j; });
    }
    if (count_ % 2) {
        int first = s.count();
        s.add_law(subs_[count_ - 1]);
        s.keep_from(first, [&](double x) { return part_at(x) == count_ - 1; });
    }
    return s.finish(where, kind, period);
}

// ================================================================ registration

static law_prototype<less_than_law> less_than_law_prototype(nullptr, nullptr);
static law_prototype<greater_than_law> greater_than_law_prototype(nullptr, nullptr);
static law_prototype<less_than_or_equal_law> less_than_or_equal_law_prototype(nullptr, nullptr);
static law_prototype<greater_than_or_equal_law> greater_than_or_equal_law_prototype(nullptr,
                                                                                    nullptr);
static law_prototype<equal_law> equal_law_prototype(nullptr, nullptr);
static law_prototype<not_equal_law> not_equal_law_prototype(nullptr, nullptr);
static law_prototype<and_law> and_law_prototype(nullptr, nullptr);
static law_prototype<or_law> or_law_prototype(nullptr, nullptr);
static law_prototype<mod_law> mod_law_prototype(nullptr, nullptr);
static law_prototype<step_law> step_law_prototype(nullptr, 0);
static law_prototype<piecewise_law> piecewise_law_prototype(nullptr, 0);
static law_prototype<max_law> max_law_prototype(nullptr, 0);
static law_prototype<min_law> min_law_prototype(nullptr, 0);
static law_prototype<log_law> log_law_prototype(static_cast<law**>(nullptr), 0);
static law_prototype<arctan_law> arctan_law_prototype(nullptr, 0);
static law_prototype<domain_law> domain_law_prototype(nullptr, 0);
static law_prototype<permanent_domain_law> permanent_domain_law_prototype(nullptr, 0);
static law_prototype<derivative_law> derivative_law_prototype(nullptr, 0);

}  // namespace lawutil
