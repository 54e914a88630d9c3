// Writing a law as C++ source: code that rebuilds it, and code that evaluates it.
//
// Rebuilding (lawcode): one post-order walk of the law graph.  pastlawcode looks a node up in the
// map from each law already written to its variable number, so a shared node is written once,
// before its first parent, and every later parent names the same variable.  The statement for a
// node follows the shape of its argument-holding base, which fixes the constructor every concrete
// class has (it is how the registry builds its prototypes): (law*) for unary laws, (law*, law*) for
// binary laws, (law**, int) for multiple laws. The leaves write their own fields: the value of a
// constant with 17 significant digits (it reads back to the same double), the index and letter of a
// variable.  Named constants (PI, E, TRUE, FALSE) are built by their default constructors.
//
// Evaluating (law_to_c_function): a walk of the law graph that writes one statement
// "const double tN = <expression>;" per operation, over a dual number per node: the
// value and, when derivatives are asked for, one derivative per input (forward mode).
// Common subexpressions are taken out twice over: a node met again through sharing is
// looked up by address (the memo of duals), and an expression already written elsewhere
// is looked up by its text (the temps map), so SIN(X) written twice, or the COS(X) of
// SIN(X)'s derivative next to a COS(X) of the law, is computed once.  Operands that are
// known constants fold on the spot (0 + A, 1 * A, 0 * A, constant operations), which
// keeps the derivative statements as short as a hand-written derivative.  Domain checks
// come as "if (...) return <status>;" lines just before the operation they guard, unless
// the operand's range rules the error out: each statement carries bounds on its value
// (a square is at least 0, so X^2+1 is at least 1 and needs no check before SQRT, LN or
// a division), widened by one ulp at each step for the rounding of the bounds.  Last, the
// statements that no output and no check reads (the COSH computed beside a SINH whose
// slope was not asked for) are dropped.
#include "lawutil/lawcode.hpp"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

#include "lawutil/internal_law.hpp"
#include "lawutil/law_unary.hpp"
#include "lawutil/main_law_arith.hpp"

using namespace vorx;

namespace lawutil {

namespace {

using text_type = std::basic_string<char, std::char_traits<char>, vorx_std_allocator<char>>;

void append_format(text_type& out, const char* format, ...) __attribute__((format(printf, 2, 3)));
void append_format(text_type& out, const char* format, ...) {
    char buffer[128];
    va_list args;
    va_start(args, format);
    int n = std::vsnprintf(buffer, sizeof buffer, format, args);
    va_end(args);
    if (n > 0) out.append(buffer, n < (int)sizeof buffer ? n : (int)sizeof buffer - 1);
}

// The argument "lawN.get()", or "nullptr" for an absent argument.
void append_argument(text_type& out, int variable) {
    if (variable)
        append_format(out, "law%d.get()", variable);
    else
        out += "nullptr";
}

// A double literal that reads back to the same value.
void append_double(text_type& out, double v) {
    if (std::isnan(v))
        out += "std::nan(\"\")";
    else if (std::isinf(v))
        out += v > 0 ? "HUGE_VAL" : "-HUGE_VAL";
    else if (v == 0.0 && std::signbit(v))
        out += "-0.0";  // "-0" would be the integer 0
    else
        append_format(out, "%.17g", v);
}

// A character literal; letters and digits as themselves, anything else by its number.
void append_char(text_type& out, char c) {
    if (std::isalnum((unsigned char)c))
        append_format(out, "'%c'", c);
    else
        append_format(out, "static_cast<char>(%d)", (int)c);
}

// The law's text inside a // comment: no line break, and no backslash that would splice
// the next line into the comment.
void append_comment_text(text_type& out, const law* l) {
    if (!l) {
        out += "<null>";
        return;
    }
    char* text = l->string();
    for (const char* c = text; *c; ++c) out += (*c == '\n' || *c == '\r' || *c == '\\') ? ' ' : *c;
    VORX_FREE(text);
}

}  // namespace

int pastlawcode(const law* l, const law_code& code) {
    auto it = code.written_.find(l);
    return it == code.written_.end() ? 0 : it->second;
}

int codeline(const law* l, law_code& code) {
    if (!l) return 0;
    if (int past = pastlawcode(l, code)) return past;
    if (l->isa(unary_data_law::id()) || l->isa(multiple_data_law::id())) sys_error(LAW_DATA_SAVE);

    // The arguments first, so their variables exist when this node is built.
    text_type line;
    const char* cls = l->class_name();
    if (l->isa(unary_law::id())) {
        int a = codeline(static_cast<const unary_law*>(l)->fsub(), code);
        append_format(line, "VORX_NEW %s(", cls);
        append_argument(line, a);
        line += ")";
    } else if (l->isa(binary_law::id())) {
        const binary_law* b = static_cast<const binary_law*>(l);
        int left = codeline(b->fleft(), code);
        int right = codeline(b->fright(), code);
        append_format(line, "VORX_NEW %s(", cls);
        append_argument(line, left);
        line += ", ";
        append_argument(line, right);
        line += ")";
    } else if (l->isa(multiple_law::id())) {
        const multiple_law* m = static_cast<const multiple_law*>(l);
        int n = m->fsub_num();
        law** subs = m->fsub();
        if (!subs || n <= 0) {
            append_format(line, "VORX_NEW %s(nullptr, %d)", cls, n);
        } else {
            text_type parts;
            for (int i = 0; i < n; ++i) {
                int v = codeline(subs[i], code);
                if (i) parts += ", ";
                append_argument(parts, v);
            }
            // The constructor copies the array, so a local one does.
            append_format(code.text_, "    law* parts%d[] = {", code.count_ + 1);
            code.text_ += parts;
            code.text_ += "};\n";
            append_format(line, "VORX_NEW %s(parts%d, %d)", cls, code.count_ + 1, n);
        }
    } else if (l->type() == constant_law::id()) {
        line += "VORX_NEW constant_law(";
        append_double(line, static_cast<const constant_law*>(l)->value());
        line += ")";
    } else if (l->isa(constant_law::id())) {
        append_format(line, "VORX_NEW %s()", cls);
    } else if (l->type() == identity_law::id()) {
        const identity_law* v = static_cast<const identity_law*>(l);
        append_format(line, "VORX_NEW identity_law(%d, ", v->fwhich());
        append_char(line, v->fletter());
        line += ")";
    } else {
        sys_error(LAW_NO_SAVE);
    }

    int variable = ++code.count_;
    append_format(code.text_, "    law_holder law%d(", variable);
    code.text_ += line;
    code.text_ += ");\n";
    code.written_.emplace(l, variable);
    return variable;
}

char* lawcode(const law* l, const char* function_name) {
    law_code code;
    int result = codeline(l, code);
    text_type out = "// Automatic code for the law ";
    append_comment_text(out, l);
    out += "\nlaw* ";
    out += function_name ? function_name : "make_law";
    out += "() {\n";
    out += code.text();
    if (result)
        append_format(out, "    return law%d.release();\n}\n", result);
    else
        out += "    return nullptr;\n}\n";
    return VORX_STRDUP(out.c_str());
}

// ================================================================ evaluation code

namespace {

// An operand of a statement: the variable t<temp>, or a known constant when temp is 0.
struct operand {
    int temp;
    double value;
};

operand known(double v) {
    return {0, v};
}

bool is_known(operand a, double v) {
    return a.temp == 0 && a.value == v;
}

// The status a generated function returns for an error code: 1 + its local number.
int status_of(int code) {
    return code - LAW_EVAL + 1;
}

template <class T>
using tracked_vector = std::vector<T, vorx_std_allocator<T>>;
using dual = tracked_vector<operand>;  // [0] the value, [1 + i] the derivative in x[i]

// Below this size both parts of a quotient count as zero (the tree's own threshold).
constexpr double tiny = 1e-15;

class c_writer {
  public:
    c_writer(int inputs, bool gradient) : inputs_(inputs), gradient_(gradient) {}

    // What is known of an operand's value: lo <= value <= hi (NaN aside).
    struct range {
        double lo, hi;
    };
    static constexpr range everything = {-HUGE_VAL, HUGE_VAL};

    range bounds(operand a) const { return a.temp ? ranges_[a.temp] : range{a.value, a.value}; }

    int inputs() const { return inputs_; }
    int width() const { return gradient_ ? inputs_ + 1 : 1; }

    void append_operand(text_type& out, operand a) const {
        if (a.temp) {
            append_format(out, "t%d", a.temp);
        } else if (a.value < 0 || std::isnan(a.value)) {
            out += "(";
            append_double(out, a.value);
            out += ")";
        } else {
            append_double(out, a.value);
        }
    }

    // The variable holding `expression`, written now unless an equal one exists.
    operand statement(const text_type& expression, range r = everything) {
        auto it = temps_.find(expression);
        if (it != temps_.end()) return {it->second, 0.0};
        int t = ++count_;
        ranges_.push_back(r);
        text_type line;
        append_format(line, "    const double t%d = ", t);
        line += expression;
        line += ";\n";
        lines_.push_back({t, line});
        temps_.emplace(expression, t);
        return {t, 0.0};
    }

    operand input(int i) {
        text_type e;
        append_format(e, "x[%d]", i);
        return statement(e);
    }

    // a op b; the operands of + and * in a fixed order, so A+B and B+A are one statement.
    operand infix(operand a, const char* op, operand b, bool commutes) {
        if (commutes && (a.temp < b.temp || (a.temp == b.temp && a.value > b.value))) {
            operand t = a;
            a = b;
            b = t;
        }
        text_type e;
        append_operand(e, a);
        append_format(e, " %s ", op);
        append_operand(e, b);
        return statement(e, infix_range(a, *op, b));
    }

    operand call(const char* f, operand a, double (*fold)(double)) {
        if (!a.temp) return known(fold(a.value));
        text_type e = f;
        e += "(";
        append_operand(e, a);
        e += ")";
        // Monotone functions map the ends; the others have ranges of their own.
        range r = bounds(a), m = widen({fold(r.lo), fold(r.hi)});
        bool monotone = !std::strcmp(f, "std::exp") || !std::strcmp(f, "std::sinh") ||
                        !std::strcmp(f, "std::tanh") || !std::strcmp(f, "std::sqrt") ||
                        !std::strcmp(f, "std::log");
        if (!std::strcmp(f, "std::sqrt") && r.lo < 0) m.lo = 0;
        if (!std::strcmp(f, "std::log") && !(r.lo > 0)) m = everything;
        if (!monotone) m = everything;
        if (!std::strcmp(f, "std::sin") || !std::strcmp(f, "std::cos")) m = {-1.0, 1.0};
        if (!std::strcmp(f, "std::cosh")) m = {1.0, HUGE_VAL};
        if (!std::strcmp(f, "std::fabs")) m = {0.0, HUGE_VAL};
        return statement(e, m);
    }

    operand add(operand a, operand b) {
        if (!a.temp && !b.temp) return known(a.value + b.value);
        if (is_known(a, 0.0)) return b;
        if (is_known(b, 0.0)) return a;
        return infix(a, "+", b, true);
    }
    operand sub(operand a, operand b) {
        if (!a.temp && !b.temp) return known(a.value - b.value);
        if (is_known(b, 0.0)) return a;
        if (is_known(a, 0.0)) return neg(b);
        return infix(a, "-", b, false);
    }
    operand mul(operand a, operand b) {
        if (!a.temp && !b.temp) return known(a.value * b.value);
        if (is_known(a, 0.0) || is_known(b, 0.0)) return known(0.0);
        if (is_known(a, 1.0)) return b;
        if (is_known(b, 1.0)) return a;
        if (is_known(a, -1.0)) return neg(b);
        if (is_known(b, -1.0)) return neg(a);
        return infix(a, "*", b, true);
    }
    operand div(operand a, operand b) {
        if (!a.temp && !b.temp) return known(a.value / b.value);
        if (is_known(b, 1.0)) return a;
        if (is_known(a, 0.0)) return known(0.0);
        // A / 2^k is A * 2^-k exactly: the multiplication is cheaper.
        int e;
        if (!b.temp && std::isfinite(b.value) && std::frexp(b.value, &e) == 0.5 && e > -1000 &&
            e < 1000)
            return mul(a, known(1.0 / b.value));
        return infix(a, "/", b, false);
    }
    operand neg(operand a) {
        if (!a.temp) return known(-a.value);
        text_type e = "-";
        append_operand(e, a);
        range r = bounds(a);
        return statement(e, {-r.hi, -r.lo});
    }

    // "if (<condition>) return <status>;", with @ standing for `a` and # for `b`.
    void check(const char* condition, operand a, operand b, int code) {
        text_type line = "    if (";
        for (const char* c = condition; *c; ++c) {
            if (*c == '@')
                append_operand(line, a);
            else if (*c == '#')
                append_operand(line, b);
            else
                line += *c;
        }
        append_format(line, ") return %d;\n", status_of(code));
        lines_.push_back({0, line});
    }

    // The statements that the outputs and the checks need, in order: a speculative one
    // (the COSH next to a SINH whose slope is not asked for) is left out.
    void append_live(text_type& out, const operand* outputs, int n) const {
        std::vector<char, vorx_std_allocator<char>> live(count_ + 1, 0);
        for (int i = 0; i < n; ++i) live[outputs[i].temp] = 1;
        for (size_t k = lines_.size(); k-- > 0;) {
            const line& l = lines_[k];
            if (l.temp && !live[l.temp]) continue;
            // The operands named in the line, past its own "tN =".
            const char* c = l.text.c_str();
            if (l.temp) c = std::strchr(c, '=');
            for (; *c; ++c)
                if (*c == 't' && std::isdigit((unsigned char)c[1]) &&
                    !std::isalnum((unsigned char)c[-1]))
                    live[std::atoi(c + 1)] = 1;
        }
        for (const line& l : lines_)
            if (!l.temp || live[l.temp]) out += l.text;
    }

  private:
    // One ulp outward on each side, for the rounding of the bounds themselves; NaN (from
    // 0 * inf or inf - inf) knows nothing.
    static range widen(range r) {
        if (std::isnan(r.lo) || std::isnan(r.hi)) return everything;
        return {std::nextafter(r.lo, -HUGE_VAL), std::nextafter(r.hi, HUGE_VAL)};
    }

    range infix_range(operand a, char op, operand b) const {
        range x = bounds(a), y = bounds(b);
        if (op == '+') return widen({x.lo + y.lo, x.hi + y.hi});
        if (op == '-') return widen({x.lo - y.hi, x.hi - y.lo});
        if (op != '*') return everything;
        // A square is never negative, whatever its factor's range.
        if (a.temp && a.temp == b.temp) {
            double l2 = x.lo * x.lo, h2 = x.hi * x.hi;
            range r = widen({std::min(l2, h2), std::max(l2, h2)});
            if (x.lo <= 0 && x.hi >= 0) r.lo = 0;
            return r;
        }
        double p[4] = {x.lo * y.lo, x.lo * y.hi, x.hi * y.lo, x.hi * y.hi};
        range r = {p[0], p[0]};
        for (double v : p) {
            if (std::isnan(v)) return everything;
            r.lo = std::min(r.lo, v);
            r.hi = std::max(r.hi, v);
        }
        return widen(r);
    }

    struct line {
        int temp;  // the variable the line defines; 0 for a check
        text_type text;
    };
    int inputs_;
    bool gradient_;
    int count_ = 0;
    std::vector<line, vorx_std_allocator<line>> lines_;
    std::vector<range, vorx_std_allocator<range>> ranges_ = {everything};
    struct text_hash {
        size_t operator()(const text_type& t) const {
            return std::hash<std::string_view>()(std::string_view(t.data(), t.size()));
        }
    };
    std::unordered_map<text_type, int, text_hash, std::equal_to<text_type>,
                       vorx_std_allocator<std::pair<const text_type, int>>>
        temps_;
};

double fold_sin(double v) {
    return std::sin(v);
}
double fold_cos(double v) {
    return std::cos(v);
}
double fold_exp(double v) {
    return std::exp(v);
}
double fold_log(double v) {
    return std::log(v);
}
double fold_sqrt(double v) {
    return std::sqrt(v);
}
double fold_fabs(double v) {
    return std::fabs(v);
}
double fold_sinh(double v) {
    return std::sinh(v);
}
double fold_cosh(double v) {
    return std::cosh(v);
}
double fold_tanh(double v) {
    return std::tanh(v);
}

// A sum that is a polynomial of constant coefficients in one input: coefficients[k] of
// x^k.  Accepts constants, the variable, + - and negation, constant multiples and whole
// constant powers of the variable.
constexpr int max_horner_degree = 64;

bool collect_polynomial(const law* l, double scale, int& variable, tracked_vector<double>& c) {
    if (l->isa(constant_law::id())) {
        c[0] += scale * static_cast<const constant_law*>(l)->value();
        return true;
    }
    if (l->type() == identity_law::id()) {
        int i = static_cast<const identity_law*>(l)->fwhich();
        if (variable >= 0 && variable != i) return false;
        variable = i;
        c[1] += scale;
        return true;
    }
    if (l->type() == negate_law::id())
        return collect_polynomial(static_cast<const unary_law*>(l)->fsub(), -scale, variable, c);
    if (!l->isa(binary_law::id())) return false;
    const law* a = static_cast<const binary_law*>(l)->fleft();
    const law* b = static_cast<const binary_law*>(l)->fright();
    if (!a || !b) return false;
    if (l->type() == plus_law::id() || l->type() == minus_law::id())
        return collect_polynomial(a, scale, variable, c) &&
               collect_polynomial(b, l->type() == plus_law::id() ? scale : -scale, variable, c);
    if (l->type() == times_law::id()) {
        if (a->isa(constant_law::id()))
            return collect_polynomial(b, scale * static_cast<const constant_law*>(a)->value(),
                                      variable, c);
        if (b->isa(constant_law::id()))
            return collect_polynomial(a, scale * static_cast<const constant_law*>(b)->value(),
                                      variable, c);
        return false;
    }
    if (l->type() == exponent_law::id() && a->type() == identity_law::id() &&
        b->isa(constant_law::id())) {
        double k = static_cast<const constant_law*>(b)->value();
        int i = static_cast<const identity_law*>(a)->fwhich();
        // X^0 stays out: the tree raises for 0^0.
        if (k < 1 || k > max_horner_degree || k != std::trunc(k)) return false;
        if (variable >= 0 && variable != i) return false;
        variable = i;
        c[(int)k] += scale;
        return true;
    }
    return false;
}

// Whether a value in `r` may lie below `tiny` in size.
bool might_be_tiny(c_writer::range r) {
    return !(r.lo >= tiny || r.hi <= -tiny);
}

class c_function_builder {
  public:
    c_function_builder(int inputs, bool gradient) : w(inputs, gradient) {}
    c_writer w;

    const dual& node(const law* l) {
        auto it = memo_.find(l);
        if (it != memo_.end()) return it->second;
        dual d = build(l);
        return memo_.emplace(l, std::move(d)).first->second;
    }

  private:
    std::unordered_map<const law*, dual, std::hash<const law*>, std::equal_to<const law*>,
                       vorx_std_allocator<std::pair<const law* const, dual>>>
        memo_;

    dual zero() { return dual(w.width(), known(0.0)); }

    // f(u) with f' given as an operand: value and chain rule.
    dual chain(const dual& u, operand value, operand slope) {
        dual r = zero();
        r[0] = value;
        for (int i = 1; i < w.width(); ++i) r[i] = w.mul(slope, u[i]);
        return r;
    }

    bool gradient() const { return w.width() > 1; }

    // u^k for a whole k >= 1, by squaring (the statements are shared with lower powers).
    operand whole_power(operand u, int k) {
        if (k == 1) return u;
        operand half = whole_power(u, k / 2);
        operand sq = w.mul(half, half);
        return k % 2 ? w.mul(sq, u) : sq;
    }

    dual horner(int variable, const tracked_vector<double>& c, int degree) {
        operand x = w.input(variable);
        operand p = known(c[degree]), dp = known(0.0);
        for (int k = degree - 1; k >= 0; --k) {
            // p' = p' x + p, then p = p x + c[k]: the value and its slope in one loop.
            if (gradient()) dp = w.add(w.mul(dp, x), p);
            p = w.add(w.mul(p, x), known(c[k]));
        }
        dual r = zero();
        r[0] = p;
        if (gradient()) r[1 + variable] = dp;
        return r;
    }

    dual build(const law* l);
    dual power(const law* l, const dual& a, const dual& b);
};

dual c_function_builder::power(const law* l, const dual& a, const dual& b) {
    dual r = zero();
    operand u = a[0], e = b[0];
    bool fixed_exponent = !e.temp;
    for (int i = 1; i < w.width(); ++i) fixed_exponent = fixed_exponent && is_known(b[i], 0.0);
    if (fixed_exponent) {
        double k = e.value;
        // The tree's domain: 0 to a power <= 0, a negative base to a non-integral power.
        c_writer::range ru = w.bounds(u);
        if (k <= 0 && !(ru.lo > 0 || ru.hi < 0)) w.check("@ == 0.0", u, u, LAW_EXPONENT);
        if (k != std::trunc(k) && !(ru.lo >= 0)) w.check("@ < 0.0", u, u, LAW_EXPONENT);
        if (k == std::trunc(k) && std::fabs(k) <= max_horner_degree) {
            int n = (int)std::fabs(k);
            if (n == 0) {
                r[0] = known(1.0);
                return r;
            }
            operand un = whole_power(u, n);
            r[0] = k > 0 ? un : w.div(known(1.0), un);
            if (!gradient()) return r;
            // (u^k)' = k u^(k-1) u'
            operand slope = k > 0 ? w.mul(known(k), n == 1 ? known(1.0) : whole_power(u, n - 1))
                                  : w.div(known(k), w.mul(un, u));
            for (int i = 1; i < w.width(); ++i) r[i] = w.mul(slope, a[i]);
            return r;
        }
        if (k == 0.5) {
            r[0] = w.call("std::sqrt", u, fold_sqrt);
            if (!gradient()) return r;
            operand slope = w.div(known(0.5), r[0]);
            for (int i = 1; i < w.width(); ++i) r[i] = w.mul(slope, a[i]);
            return r;
        }
    } else {
        w.check("(@ == 0.0 && # <= 0.0) || (@ < 0.0 && # != std::trunc(#))", u, e, LAW_EXPONENT);
    }
    (void)l;
    text_type call = "std::pow(";
    w.append_operand(call, u);
    call += ", ";
    w.append_operand(call, e);
    call += ")";
    r[0] = (!u.temp && !e.temp) ? known(std::pow(u.value, e.value)) : w.statement(call);
    if (!gradient()) return r;
    // (u^e)' = e u^(e-1) u' + u^e ln(u) e'
    text_type lower = "std::pow(";
    w.append_operand(lower, u);
    lower += ", ";
    w.append_operand(lower, w.sub(e, known(1.0)));
    lower += ")";
    operand slope = w.mul(e, w.statement(lower));
    operand log_u = fixed_exponent ? known(0.0) : w.call("std::log", u, fold_log);
    for (int i = 1; i < w.width(); ++i)
        r[i] = w.add(w.mul(slope, a[i]), w.mul(w.mul(r[0], log_u), b[i]));
    return r;
}

dual c_function_builder::build(const law* l) {
    if (l->return_dim() != 1) sys_error(LAW_EVALS);
    dual r = zero();
    if (l->isa(constant_law::id())) {
        r[0] = known(static_cast<const constant_law*>(l)->value());
        return r;
    }
    if (l->type() == identity_law::id()) {
        int i = static_cast<const identity_law*>(l)->fwhich();
        r[0] = w.input(i);
        if (gradient()) r[1 + i] = known(1.0);
        return r;
    }
    int t = l->type();
    if (l->isa(unary_law::id()) && static_cast<const unary_law*>(l)->fsub()) {
        const dual& a = node(static_cast<const unary_law*>(l)->fsub());
        operand u = a[0];
        // NEG: (-u)' = -u'
        if (t == negate_law::id()) {
            for (int i = 0; i < w.width(); ++i) r[i] = w.neg(a[i]);
            return r;
        }
        // SIN: sin(u)' = cos(u) u'
        if (t == sin_law::id())
            return chain(a, w.call("std::sin", u, fold_sin),
                         gradient() ? w.call("std::cos", u, fold_cos) : known(0.0));
        // COS: cos(u)' = -sin(u) u'
        if (t == cos_law::id())
            return chain(a, w.call("std::cos", u, fold_cos),
                         gradient() ? w.neg(w.call("std::sin", u, fold_sin)) : known(0.0));
        // EXP: exp(u)' = exp(u) u'
        if (t == exp_law::id()) {
            operand v = w.call("std::exp", u, fold_exp);
            return chain(a, v, v);
        }
        // LN: ln(u)' = u' / u, for u > 0
        if (t == natural_log_law::id()) {
            if (!(w.bounds(u).lo > 0.0)) w.check("@ <= 0.0", u, u, LAW_LN);
            return chain(a, w.call("std::log", u, fold_log),
                         gradient() ? w.div(known(1.0), u) : known(0.0));
        }
        // SQRT: sqrt(u)' = u' / (2 sqrt(u)), for u >= 0
        if (t == sqrt_law::id()) {
            if (!(w.bounds(u).lo >= 0.0)) w.check("@ < 0.0", u, u, LAW_SQRT);
            operand v = w.call("std::sqrt", u, fold_sqrt);
            return chain(a, v, gradient() ? w.div(known(0.5), v) : known(0.0));
        }
        // ABS: |u|' = sign(u) u'
        if (t == abs_law::id()) {
            // The tree's slope is SET(u) - (1 - SET(u)): -1 at u = 0.
            operand sign = known(u.value > 0 ? 1.0 : -1.0);
            if (u.temp && gradient()) {
                text_type e;
                w.append_operand(e, u);
                e += " > 0.0 ? 1.0 : -1.0";
                sign = w.statement(e);
            }
            return chain(a, w.call("std::fabs", u, fold_fabs), sign);
        }
        // SINH: sinh(u)' = cosh(u) u'; COSH: cosh(u)' = sinh(u) u'
        if (t == sinh_law::id() || t == cosh_law::id()) {
            bool s = t == sinh_law::id();
            operand sh = w.call("std::sinh", u, fold_sinh);
            operand ch = w.call("std::cosh", u, fold_cosh);
            return chain(a, s ? sh : ch, s ? ch : sh);
        }
        // TANH: tanh(u)' = (1 - tanh(u)^2) u'
        if (t == tanh_law::id()) {
            operand v = w.call("std::tanh", u, fold_tanh);
            return chain(a, v, gradient() ? w.sub(known(1.0), w.mul(v, v)) : known(0.0));
        }
    } else if (l->isa(binary_law::id()) && static_cast<const binary_law*>(l)->fleft() &&
               static_cast<const binary_law*>(l)->fright()) {
        const binary_law* b = static_cast<const binary_law*>(l);
        if (t == plus_law::id() || t == minus_law::id()) {
            int variable = -1;
            tracked_vector<double> c(max_horner_degree + 1, 0.0);
            if (collect_polynomial(l, 1.0, variable, c) && variable >= 0) {
                int degree = max_horner_degree;
                while (degree > 0 && c[degree] == 0.0) --degree;
                if (degree >= 2) return horner(variable, c, degree);
            }
        }
        const dual& da = node(b->fleft());
        const dual& db = node(b->fright());
        if (b->fleft()->return_dim() != 1 || b->fright()->return_dim() != 1) sys_error(LAW_EVALS);
        // (a + b)' = a' + b'; (a - b)' = a' - b'
        if (t == plus_law::id() || t == minus_law::id()) {
            bool plus = t == plus_law::id();
            for (int i = 0; i < w.width(); ++i)
                r[i] = plus ? w.add(da[i], db[i]) : w.sub(da[i], db[i]);
            return r;
        }
        // (a b)' = a' b + a b'
        if (t == times_law::id()) {
            r[0] = w.mul(da[0], db[0]);
            for (int i = 1; i < w.width(); ++i)
                r[i] = w.add(w.mul(da[i], db[0]), w.mul(da[0], db[i]));
            return r;
        }
        // (a / b)' = (a' - (a/b) b') / b; 0/0 is the tree's limit step, reported here.
        if (t == division_law::id()) {
            operand na = da[0], nb = db[0];
            if (might_be_tiny(w.bounds(na)) && might_be_tiny(w.bounds(nb)))
                w.check("std::fabs(@) < 1e-15 && std::fabs(#) < 1e-15", na, nb, LAW_LHOSPITAL);
            r[0] = w.div(na, nb);
            for (int i = 1; i < w.width(); ++i) r[i] = w.div(w.sub(da[i], w.mul(r[0], db[i])), nb);
            return r;
        }
        if (t == exponent_law::id()) return power(l, da, db);
    }
    sys_error(LAW_NO_SAVE);
}

}  // namespace

char* law_to_c_function(const law* l, const char* function_name, int with_gradient) {
    if (!l) sys_error(LAW_NO_SAVE);
    if (l->return_dim() != 1) sys_error(LAW_EVALS);
    int n = l->take_dim();
    c_function_builder b(n, with_gradient != 0);
    dual result = b.node(l);

    text_type out = "// Automatic code for the law ";
    append_comment_text(out, l);
    out += with_gradient ? ": value and first derivatives\ninline int " : ": value\ninline int ";
    out += function_name ? function_name : "law_function";
    out += with_gradient ? "(const double* x, double* value, double* gradient) {\n"
                         : "(const double* x, double* value) {\n";
    out += "    (void)x;\n";
    if (with_gradient) out += "    (void)gradient;\n";
    b.w.append_live(out, result.data(), with_gradient ? n + 1 : 1);
    out += "    value[0] = ";
    b.w.append_operand(out, result[0]);
    out += ";\n";
    for (int i = 0; with_gradient && i < n; ++i) {
        append_format(out, "    gradient[%d] = ", i);
        b.w.append_operand(out, result[1 + i]);
        out += ";\n";
    }
    out += "    return 0;\n}\n";
    return VORX_STRDUP(out.c_str());
}

int law_c_status_error(int status) {
    return status > 0 ? lawutil_main_law_errmod.message_code(status - 1) : 0;
}

}  // namespace lawutil
