// Polynomial laws: the law_polynomial value type, the way back to a law tree, and the
// integer and linear helpers of polynomial work.
//
// Representation.  A law_polynomial keeps parallel arrays of exponents and coefficients
// plus a counted reference on its variable law.  Every constructor normalises: terms
// sorted by ascending exponent, equal exponents summed (in their input order, so results
// do not depend on the sort), exact zeros dropped, the degree recomputed as the highest
// exponent left (0 when none is).  Arithmetic therefore only concatenates (sums) or
// forms all pairwise products (products) and hands the raw list to one normalisation
// path; a product whose exponent span is no wider than its pair count collects the
// products per power directly and skips the sort.  Powers go by repeated squaring, a
// single term straight to c^n x^(e n).
//
// Validity.  Degree -1 marks an invalid result: two operands written in different
// variable laws, a negative power, a degree beyond an int, a product of more than
// max_term_pairs term pairs (so (X+1)^INT_MAX stops at once instead of exhausting
// memory).  Invalid operands make invalid results, so a chain of arithmetic is tested
// once at its end.  A null variable (a constant) agrees with any variable.
//
// From laws.  law::polynomial(var) answers, for a tree of constants, the variable, +, -,
// *, unary minus and whole non-negative constant powers, the polynomial in `var` (or,
// for a null `var`, in the variable the law is written in); any other node answers null
// and so does every node above it.  Two different variables meet in an invalid result,
// which the law turns into null.  A chain of sums and differences is read in one walk
// that gathers its operands' terms and normalises once, so the left-deep sums that
// make_polynomial_law and the parser build cost linear, not quadratic, work.  A^0
// answers 1, the law's value wherever it has one (the law itself raises where A is 0).
// A power is expanded only while its term count stays within max_expanded_terms, so a
// short text such as (X+1)^1000000 costs bounded work: it answers null instead.
//
// Ownership.  Arrays come from the base array allocator; every temporary array or
// polynomial is held by an owner that frees it when an error passes.
#include "lawutil/polylaw.hpp"

#include <algorithm>
#include <climits>
#include <cmath>
#include <memory>
#include <vector>

#include "base/output.hpp"
#include "lawutil/internal_law.hpp"
#include "lawutil/law_util.hpp"
#include "lawutil/main_law_arith.hpp"

using namespace vorx;

namespace lawutil {

namespace {

// Beyond this many terms a power of a law is not expanded (see the design note): the
// laws' answers stay cheap, well below what the arithmetic itself would accept.
constexpr int max_expanded_terms = 1024;
// A product of more term pairs than this is not formed: it is an invalid result.
constexpr long long max_term_pairs = 1 << 22;
// Below this a pivot of solve_linear makes the system singular.
constexpr double tiny_pivot = 1e-13;
// Ratios of the proportionality test agree within this (absolute).
constexpr double ratio_tolerance = 1e-15;

// An array from the base allocator, freed when its owner goes unless handed over.
struct tracked_free {
    void operator()(void* p) const { VORX_FREE(p); }
};
template <class T>
using owned_array = std::unique_ptr<T[], tracked_free>;
template <class T>
owned_array<T> allocate_owned(long long n) {
    return owned_array<T>(n > 0 ? VORX_ALLOC_ARRAY(T, n) : nullptr);
}

using polynomial_ptr = std::unique_ptr<law_polynomial>;

}  // namespace

struct law_polynomial::raw_term {
    int exponent;
    double coefficient;
    int order;  // position in the input, so equal exponents are summed in input order
};

namespace {

void sort_terms(law_polynomial::raw_term* raw, int count) {
    std::sort(raw, raw + count,
              [](const law_polynomial::raw_term& a, const law_polynomial::raw_term& b) {
                  return a.exponent != b.exponent ? a.exponent < b.exponent : a.order < b.order;
              });
}

}  // namespace

// ================================================================ law_polynomial

law_polynomial::law_polynomial()
    : degree_(0), terms_(0), coefficients_(nullptr), exponents_(nullptr), variable_(nullptr) {}

law_polynomial::law_polynomial(const int* exponents, const double* coefficients, int count,
                               law* var)
    : law_polynomial() {
    set_terms(exponents, coefficients, count);
    variable_ = var;
    law_add(variable_);
}

law_polynomial::law_polynomial(const law_polynomial& other) : law_polynomial() {
    owned_array<double> c = allocate_owned<double>(other.terms_);
    owned_array<int> e = allocate_owned<int>(other.terms_);
    std::copy(other.coefficients_, other.coefficients_ + other.terms_, c.get());
    std::copy(other.exponents_, other.exponents_ + other.terms_, e.get());
    degree_ = other.degree_;
    terms_ = other.terms_;
    coefficients_ = c.release();
    exponents_ = e.release();
    variable_ = other.variable_;
    law_add(variable_);
}

law_polynomial& law_polynomial::operator=(const law_polynomial& other) {
    // The copy takes its reference on the new variable before the old one is dropped.
    law_polynomial copy(other);
    std::swap(degree_, copy.degree_);
    std::swap(terms_, copy.terms_);
    std::swap(coefficients_, copy.coefficients_);
    std::swap(exponents_, copy.exponents_);
    std::swap(variable_, copy.variable_);
    return *this;
}

law_polynomial::~law_polynomial() {
    VORX_FREE(coefficients_);
    VORX_FREE(exponents_);
    law_remove(variable_);
}

void law_polynomial::set_terms(const int* exponents, const double* coefficients, int count) {
    if (count < 0 || (count > 0 && (!exponents || !coefficients))) sys_error(LAW_DIM);
    owned_array<raw_term> raw = allocate_owned<raw_term>(count);
    for (int i = 0; i < count; ++i) {
        if (exponents[i] < 0) sys_error(LAW_EXPONENT);
        raw[i] = {exponents[i], coefficients[i], i};
    }
    sort_terms(raw.get(), count);
    adopt_sorted(raw.get(), count);
}

void law_polynomial::adopt_sorted(raw_term* raw, int count) {
    // Sum runs of equal exponents in place; keep the non-zero sums.
    int kept = 0;
    for (int i = 0; i < count;) {
        int e = raw[i].exponent;
        double sum = 0.0;
        for (; i < count && raw[i].exponent == e; ++i) sum += raw[i].coefficient;
        if (sum != 0.0) raw[kept++] = {e, sum, 0};
    }
    owned_array<double> c = allocate_owned<double>(kept);
    owned_array<int> ex = allocate_owned<int>(kept);
    for (int i = 0; i < kept; ++i) {
        c[i] = raw[i].coefficient;
        ex[i] = raw[i].exponent;
    }
    degree_ = kept ? raw[kept - 1].exponent : 0;
    terms_ = kept;
    coefficients_ = c.release();
    exponents_ = ex.release();
}

double law_polynomial::coefficent(int e) const {
    for (int i = 0; i < terms_; ++i)
        if (exponents_[i] == e) return coefficients_[i];
    return 0.0;
}

law* law_polynomial::in() const {
    law_add(variable_);
    return variable_;
}

law* law_polynomial::expand() const {
    return in();
}

law* law_polynomial::factor() const {
    return in();
}

void law_polynomial::print() const {
    if (variable_) {
        char* text = variable_->string();
        vorx_printf("Polynomial in %s\n", text);
        VORX_FREE(text);
    } else
        vorx_printf("Polynomial\n");
    vorx_printf("Of degree %d\n", degree_);
    for (int i = 0; i < terms_; ++i) vorx_printf("Term %d = %f\n", exponents_[i], coefficients_[i]);
}

law_polynomial law_polynomial::invalid() {
    law_polynomial p;
    p.degree_ = -1;
    return p;
}

law* law_polynomial::common_variable(const law_polynomial& a, const law_polynomial& b, bool& ok) {
    ok = a.degree_ >= 0 && b.degree_ >= 0;
    if (!a.variable_) return b.variable_;
    if (!b.variable_ || a.variable_ == b.variable_ || *a.variable_ == *b.variable_)
        return a.variable_;
    ok = false;
    return nullptr;
}

law_polynomial law_polynomial::combined(const law_polynomial& other, double sign) const {
    bool ok;
    law* var = common_variable(*this, other, ok);
    if (!ok) return invalid();
    int n = terms_ + other.terms_;
    owned_array<int> e = allocate_owned<int>(n);
    owned_array<double> c = allocate_owned<double>(n);
    std::copy(exponents_, exponents_ + terms_, e.get());
    std::copy(coefficients_, coefficients_ + terms_, c.get());
    for (int i = 0; i < other.terms_; ++i) {
        e[terms_ + i] = other.exponents_[i];
        c[terms_ + i] = sign * other.coefficients_[i];
    }
    return law_polynomial(e.get(), c.get(), n, var);
}

law_polynomial law_polynomial::operator+(const law_polynomial& other) const {
    return combined(other, 1.0);
}

law_polynomial law_polynomial::operator-(const law_polynomial& other) const {
    return combined(other, -1.0);
}

law_polynomial law_polynomial::operator-() const {
    law_polynomial zero;
    return zero - *this;
}

law_polynomial law_polynomial::operator*(const law_polynomial& other) const {
    bool ok;
    law* var = common_variable(*this, other, ok);
    long long pairs = (long long)terms_ * other.terms_;
    if (!ok || (long long)degree_ + other.degree_ > INT_MAX || pairs > max_term_pairs)
        return invalid();
    law_polynomial result;
    result.variable_ = var;
    law_add(var);
    if (pairs == 0) return result;
    // (sum a_i x^i)(sum b_j x^j) = sum a_i b_j x^(i+j)
    int low = exponents_[0] + other.exponents_[0];
    long long span = (long long)degree_ + other.degree_ - low + 1;
    if (span <= pairs) {
        // Dense enough: each power collects its products in place, no sort.
        owned_array<raw_term> raw = allocate_owned<raw_term>((int)span);
        for (int k = 0; k < span; ++k) raw[k] = {low + k, 0.0, k};
        for (int i = 0; i < terms_; ++i)
            for (int j = 0; j < other.terms_; ++j)
                raw[exponents_[i] + other.exponents_[j] - low].coefficient +=
                    coefficients_[i] * other.coefficients_[j];
        result.adopt_sorted(raw.get(), (int)span);
        return result;
    }
    owned_array<raw_term> raw = allocate_owned<raw_term>((int)pairs);
    int k = 0;
    for (int i = 0; i < terms_; ++i)
        for (int j = 0; j < other.terms_; ++j, ++k)
            raw[k] = {exponents_[i] + other.exponents_[j],
                      coefficients_[i] * other.coefficients_[j], k};
    sort_terms(raw.get(), k);
    result.adopt_sorted(raw.get(), k);
    return result;
}

law_polynomial law_polynomial::operator^(int power) const {
    if (degree_ < 0 || power < 0 || (long long)degree_ * power > INT_MAX) return invalid();
    int zero = 0;
    double one = 1.0;
    if (terms_ == 1 && power > 0) {
        // (c x^e)^n = c^n x^(e n)
        int e = exponents_[0] * power;
        double c = std::pow(coefficients_[0], power);
        return law_polynomial(&e, &c, 1, variable_);
    }
    law_polynomial result(&zero, &one, 1, variable_);
    law_polynomial base(*this);
    // p^n by squaring: base runs through p^(2^k), result collects the set bits of n
    while (power) {
        if (power & 1) result = result * base;
        power >>= 1;
        if (power) base = base * base;
    }
    return result;
}

double law_polynomial::proportional(const law_polynomial& other) const {
    bool ok;
    common_variable(*this, other, ok);
    if (!ok || degree_ != other.degree_ || terms_ != other.terms_) return 0.0;
    double ratio = 0.0;
    for (int i = 0; i < terms_; ++i) {
        const int* hit = std::find(other.exponents_, other.exponents_ + terms_, exponents_[i]);
        if (hit == other.exponents_ + terms_) return 0.0;
        // Coefficients are never zero, so the ratio is defined.
        double r = coefficients_[i] / other.coefficients_[hit - other.exponents_];
        if (!std::isfinite(r)) return 0.0;
        if (i == 0)
            ratio = r;
        else if (std::fabs(r - ratio) > ratio_tolerance)
            return 0.0;
    }
    return ratio;
}

// ================================================================ make_polynomial_law

law* make_polynomial_law(double* c, int degree) {
    if (degree < 0 || !c) sys_error(LAW_DIM);
    if (degree == 0) return VORX_NEW constant_law(c[0]);
    law_holder x(VORX_NEW identity_law(0, 'X'));
    law_array terms(degree + 1);
    terms.set(0, VORX_NEW constant_law(c[0]));
    // Every term is built, zero coefficients too: c[1]*X, then c[i]*X^i
    for (int i = 1; i <= degree; ++i) {
        law_holder coefficient(VORX_NEW constant_law(c[i]));
        if (i == 1) {
            terms.set(1, VORX_NEW times_law(coefficient.get(), x.get()));
            continue;
        }
        law_holder power(VORX_NEW constant_law(i));
        law_holder x_to_i(VORX_NEW exponent_law(x.get(), power.get()));
        terms.set(i, VORX_NEW times_law(coefficient.get(), x_to_i.get()));
    }
    law_holder pattern(VORX_NEW plus_law(nullptr, nullptr));
    return make_list_law(terms.get(), degree + 1, static_cast<const binary_law*>(pattern.get()));
}

// ================================================================ integer helpers

namespace {

// One recorded prime of factor_int.
struct fact_list : public VORX_OBJECT {
    int prime;
    int power;
    fact_list* next;
};

// The recorded primes in the order found (ascending); the nodes go with the owner.
class fact_chain {
  public:
    fact_chain() = default;
    ~fact_chain() {
        while (head_) {
            fact_list* n = head_->next;
            delete head_;
            head_ = n;
        }
    }
    fact_chain(const fact_chain&) = delete;
    fact_chain& operator=(const fact_chain&) = delete;
    void append(int prime, int power) {
        fact_list* node = VORX_NEW fact_list{};
        node->prime = prime;
        node->power = power;
        node->next = nullptr;
        *tail_ = node;
        tail_ = &node->next;
        ++count_;
    }
    const fact_list* head() const { return head_; }
    int count() const { return count_; }

  private:
    fact_list* head_ = nullptr;
    fact_list** tail_ = &head_;
    int count_ = 0;
};

// Divides `rest` by d as often as it goes; the count of divisions.
int divide_out(int& rest, int d) {
    int k = 0;
    for (; rest % d == 0; ++k) rest /= d;
    return k;
}

}  // namespace

int factor_int(int n, int** primes, int** powers) {
    if (primes) *primes = nullptr;
    if (powers) *powers = nullptr;
    // 0 would divide by 2 for ever; 1 and the negatives have no prime factors here.
    if (n < 2) return 0;
    // r is taken before any division, and odd divisors stop strictly below it: the
    // cofactor left at the end is never recorded (deliberate).
    int r = (int)std::floor(std::sqrt((double)n));
    int rest = n;
    fact_chain found;
    if (int k = divide_out(rest, 2)) found.append(2, k);
    if (r >= 4)
        for (int d = 3; d < r; d += 2)
            if (int k = divide_out(rest, d)) found.append(d, k);
    int count = found.count();
    owned_array<int> p = allocate_owned<int>(count), q = allocate_owned<int>(count);
    int i = 0;
    for (const fact_list* node = found.head(); node; node = node->next, ++i) {
        p[i] = node->prime;
        q[i] = node->power;
    }
    if (primes) *primes = p.release();
    if (powers) *powers = q.release();
    return count;
}

int pow_int(int a, int b) {
    // 0.5 added, then truncated toward zero: pow_int(-3, 3) is -26 (deliberate)
    double v = std::pow((double)a, (double)b) + 0.5;
    if (!(v > (double)INT_MIN - 1.0 && v < (double)INT_MAX + 1.0)) sys_error(LAW_EXPONENT);
    return (int)v;
}

int GCD_int(int* values, int n) {
    if (!values || n < 1) return 0;
    // Euclid over the magnitudes, wide enough for |INT_MIN|
    unsigned long long g = 0;
    for (int i = 0; i < n; ++i) {
        long long v = values[i];
        unsigned long long a = (unsigned long long)(v < 0 ? -v : v);
        while (a) {
            unsigned long long t = g % a;
            g = a;
            a = t;
        }
    }
    if (g > (unsigned long long)INT_MAX) sys_error(LAW_DIM);
    return (int)g;
}

// ================================================================ solve_linear

int solve_linear(double** rows, int n) {
    if (n < 0 || (n > 0 && !rows)) sys_error(LAW_DIM);
    for (int i = 0; i < n; ++i)
        if (!rows[i]) sys_error(LAW_DIM);
    for (int k = 0; k < n; ++k) {
        // The pivot row: largest |a[row][k]| at or below k, the first on a tie.
        int p = k;
        double best = std::fabs(rows[k][k]);
        for (int row = k + 1; row < n; ++row)
            if (std::fabs(rows[row][k]) > best) {
                best = std::fabs(rows[row][k]);
                p = row;
            }
        if (!std::isfinite(rows[p][k])) return 0;
        if (p != k)
            for (int j = k; j <= n; ++j) std::swap(rows[k][j], rows[p][j]);
        double pivot = rows[k][k];
        for (int row = k + 1; row < n; ++row) {
            // An exactly zero pivot leaves the rows below as they are (deliberate).
            if (pivot == 0.0) break;
            if (std::fabs(pivot) < tiny_pivot) return 0;
            double f = rows[row][k] / pivot;
            for (int j = k; j <= n; ++j) rows[row][j] -= f * rows[k][j];
        }
    }
    for (int k = n - 1; k >= 0; --k) {
        double s = rows[k][n];
        double scale = std::fabs(s);
        for (int j = k + 1; j < n; ++j) {
            double t = rows[k][j] * rows[j][n];
            s -= t;
            scale += std::fabs(t);
        }
        double pivot = rows[k][k];
        if (pivot == 0.0) {
            // A free unknown: 0 when the row holds without it, else no solution.
            if (std::fabs(s) > tiny_pivot * scale) return 0;
            rows[k][n] = 0.0;
            continue;
        }
        // The last pivot has no row below it, but is judged like the others.
        if (std::fabs(pivot) < tiny_pivot) return 0;
        double x = s / pivot;
        if (!std::isfinite(x)) return 0;
        rows[k][n] = x;
    }
    return 1;
}

// ================================================================ polynomials of laws

law_polynomial* polynomial_of_constant(double value, law* var) {
    int zero = 0;
    return VORX_NEW law_polynomial(&zero, &value, 1, var);
}

law_polynomial* polynomial_of_variable(const law* variable, law* var) {
    if (var && !(*variable == *var)) return nullptr;
    int one = 1;
    double unit = 1.0;
    return VORX_NEW law_polynomial(&one, &unit, 1, var ? var : const_cast<law*>(variable));
}

namespace {

// The result handed to the law, or null when it is invalid.
law_polynomial* valid_copy(const law_polynomial& p) {
    return p.degree() < 0 ? nullptr : VORX_NEW law_polynomial(p);
}

}  // namespace

namespace {

// The signed terms of a chain of sums and differences, in order, and the one variable
// they are written in.
struct sum_terms {
    std::vector<int, vorx_std_allocator<int>> exponents;
    std::vector<double, vorx_std_allocator<double>> coefficients;
    law_holder variable;
};

// Adds sign * l to `out`; false when l is not a polynomial in `var` or its variable
// differs from the one met so far.
bool gather_sum(const law* l, double sign, law* var, sum_terms& out) {
    if (!l) return false;
    bool plus = l->isa(plus_law::id());
    if (plus || l->isa(minus_law::id())) {
        const binary_law* b = static_cast<const binary_law*>(l);
        return gather_sum(b->fleft(), sign, var, out) &&
               gather_sum(b->fright(), plus ? sign : -sign, var, out);
    }
    polynomial_ptr p(l->polynomial(var));
    if (!p) return false;
    law_holder v(p->in());
    if (v && !out.variable)
        out.variable = v;
    else if (v && v.get() != out.variable.get() && !(*v == *out.variable))
        return false;
    for (int i = 0; i < p->terms(); ++i) {
        out.exponents.push_back(p->term_exponent(i));
        out.coefficients.push_back(sign * p->term_coefficient(i));
    }
    return true;
}

}  // namespace

law_polynomial* polynomial_of_sum(const law* sum, law* var) {
    // One pass over the chain: a left-deep sum of n terms (as make_polynomial_law and
    // the parser build them) costs its n terms, not n^2 term copies.
    sum_terms all;
    if (!gather_sum(sum, 1.0, var, all)) return nullptr;
    return VORX_NEW law_polynomial(all.exponents.data(), all.coefficients.data(),
                                   (int)all.exponents.size(), all.variable.get());
}

law_polynomial* polynomial_of_product(const law* left, const law* right, law* var) {
    if (!left || !right) return nullptr;
    polynomial_ptr a(left->polynomial(var));
    if (!a) return nullptr;
    polynomial_ptr b(right->polynomial(var));
    return b ? valid_copy(*a * *b) : nullptr;
}

law_polynomial* polynomial_of_negate(const law* sub, law* var) {
    if (!sub) return nullptr;
    polynomial_ptr a(sub->polynomial(var));
    return a ? valid_copy(-*a) : nullptr;
}

law_polynomial* polynomial_of_power(const law* base, const law* power, law* var) {
    if (!base || !power || !power->isa(constant_law::id())) return nullptr;
    double n = static_cast<const constant_law*>(power)->value();
    if (!(n >= 0.0 && n <= INT_MAX && n == std::floor(n))) return nullptr;
    polynomial_ptr a(base->polynomial(var));
    if (!a) return nullptr;
    // Bounded work: p^n has at most n * (highest - lowest exponent of p) + 1 terms.
    if (a->terms() > 1) {
        double span = a->term_exponent(a->terms() - 1) - a->term_exponent(0);
        if (n * span + 1.0 > max_expanded_terms) return nullptr;
    }
    return valid_copy(*a ^ (int)n);
}

}  // namespace lawutil
