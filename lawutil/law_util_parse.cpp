// str_to_law: the reader of the law text form.
//
// A recursive splitter, not a grammar: at each level the whole text is scanned once,
// token by token, the token at which to split is picked (the shallowest, then the lowest
// precedence), the law it names is built and the pieces of text around it are read
// recursively.  The names it knows are the symbols of the registered prototypes.
//
// Two front doors share this one splitter.  str_to_law prints what went wrong and returns
// null.  read_law prints nothing: while it runs, a per-thread fault record collects the
// first fault (its code, a short reason and the rest of the text where it happened); the
// rest of the text is located in the normalised top-level text, whose characters remember
// where they came from in the caller's text, and so becomes a column there.
#include <locale.h>

#include <cctype>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "base/output.hpp"
#include "lawutil/internal_law.hpp"
#include "lawutil/law_data.hpp"
#include "lawutil/law_util.hpp"
#include "lawutil/main_law_err.hpp"

using namespace vorx;

namespace lawutil {

namespace {

// Deeper nesting than this is refused rather than risking the stack.
constexpr int max_nesting = 2500;

thread_local int nesting = 0;

// The first fault of a read_law call, and what is needed to turn it into a column.
struct fault_record {
    const char* top = nullptr;       // the normalised top-level text
    const size_t* origin = nullptr;  // for each of its characters, the index in the user's text
    size_t top_size = 0;
    const char* user = nullptr;  // the user's text
    int code = 0;
    int column = 0;
    const char* reason = nullptr;
};

thread_local fault_record* faults = nullptr;

class nesting_guard {
  public:
    nesting_guard() { ++nesting; }
    ~nesting_guard() { --nesting; }
    nesting_guard(const nesting_guard&) = delete;
    nesting_guard& operator=(const nesting_guard&) = delete;
};

// A working copy of the text in tracked memory.
class text_buf {
  public:
    explicit text_buf(size_t cap) : s_(VORX_ALLOC_ARRAY(char, cap + 1)), n_(0) { s_[0] = '\0'; }
    ~text_buf() { VORX_FREE(s_); }
    text_buf(const text_buf&) = delete;
    text_buf& operator=(const text_buf&) = delete;
    void push(char c) {
        s_[n_++] = c;
        s_[n_] = '\0';
    }
    char* get() { return s_; }
    size_t size() const { return n_; }

  private:
    char* s_;
    size_t n_;
};

// A copy of text[begin, end) in tracked memory.
class piece {
  public:
    piece(const char* text, size_t begin, size_t end) : buf_(end - begin) {
        for (size_t i = begin; i < end; ++i) buf_.push(text[i]);
    }
    char* get() { return buf_.get(); }
    size_t size() const { return buf_.size(); }

  private:
    text_buf buf_;
};

enum token_kind {
    tok_none = 0,
    tok_open = 1,
    tok_close = 2,
    tok_variable = 3,
    tok_law_ref = 4,
    tok_number = 5,
    tok_prototype = 6,
    tok_comma = 7,
    tok_data_ref = 8
};

struct token {
    token_kind kind = tok_none;
    size_t length = 0;
    int index = 0;     // variable index, or data index for kinds 4 and 8
    char letter = 0;   // variable letter
    double value = 0;  // number
    law* proto = nullptr;
};

// Numbers are read in the C locale whatever the process's locale: '2.5' is always 2.5.
locale_t c_locale() {
    static locale_t c = newlocale(LC_ALL_MASK, "C", (locale_t)0);
    return c;
}

bool starts_with(const char* s, const char* prefix) {
    return std::strncmp(s, prefix, std::strlen(prefix)) == 0;
}

// Length of the run of digits at s.
size_t digits_at(const char* s) {
    size_t n = 0;
    while (std::isdigit((unsigned char)s[n])) ++n;
    return n;
}

// A decimal integer read from the digits at s (saturating, so a huge index fails later).
int read_index(const char* s, size_t n) {
    long v = 0;
    for (size_t i = 0; i < n; ++i) {
        v = v * 10 + (s[i] - '0');
        if (v > 1000000000) v = 1000000000;
    }
    return (int)v;
}

// Which prototypes may start where: operators only after an operand, everything else
// only where an operand is expected.
bool accepts(const law* proto, bool operand_expected) {
    if (proto->isa(binary_law::id())) return !operand_expected;
    if (!operand_expected) return false;
    return proto->isa(unary_law::id()) || proto->isa(unary_data_law::id()) ||
           proto->isa(multiple_law::id()) || proto->isa(multiple_data_law::id()) ||
           proto->isa(constant_law::id());
}

// The registered prototypes grouped by the first letter of their symbol (one more group
// for symbols that start with anything else), in list order, so a token is matched
// against a handful of symbols rather than all of them.  Rebuilt, per thread and without
// locks, whenever the registry's head changes.
struct prototype_index {
    static constexpr int groups = 27;
    static constexpr int per_group = 40;
    struct group {
        int count = 0;
        law* protos[per_group];
        unsigned char lengths[per_group];
    };
    const law_list* head = nullptr;
    group by_first[groups];

    static int group_of(char c) { return (c >= 'A' && c <= 'Z') ? c - 'A' : groups - 1; }
};

const prototype_index& prototypes_by_first_char() {
    thread_local prototype_index index;
    const law_list* head = law_list::head();
    if (index.head == head && head) return index;
    for (auto& g : index.by_first) g.count = 0;
    for (const law_list* p = head; p; p = p->fnext()) {
        law* proto = p->fthis();
        const char* sym = proto->symbol(law_symbol_default);
        size_t k = sym ? std::strlen(sym) : 0;
        if (k == 0 || k > 255) continue;
        prototype_index::group& g = index.by_first[prototype_index::group_of(sym[0])];
        if (g.count == prototype_index::per_group) continue;  // far beyond any real registry
        g.protos[g.count] = proto;
        g.lengths[g.count] = (unsigned char)k;
        ++g.count;
    }
    index.head = head;
    return index;
}

token next_token(const char* s, bool operand_expected) {
    token t;
    size_t refused = 0;  // length of a variable beyond law_max_variable
    char c = s[0];
    if (c == '\0') return t;
    if (c == ',') {
        t.kind = tok_comma;
        t.length = 1;
    } else if (c == '(') {
        t.kind = tok_open;
        t.length = 1;
    } else if (c == ')') {
        t.kind = tok_close;
        t.length = 1;
    }
    // Variables: X, U, T (input 0), Y, V (input 1), Z (input 2); then a letter and a
    // number n (input n-1).
    if (c == 'X' || c == 'U' || c == 'T' || c == 'Y' || c == 'V' || c == 'Z') {
        t.kind = tok_variable;
        t.length = 1;
        t.letter = c;
        t.index = (c == 'Y' || c == 'V') ? 1 : (c == 'Z' ? 2 : 0);
    }
    if (std::isupper((unsigned char)c)) {
        size_t nd = digits_at(s + 1);
        if (nd > 0) {
            int n = read_index(s + 1, nd);
            // Past the last input a text may name, the variable is no token at all (bad
            // syntax, unless a longer symbol matches), rather than a law that makes every
            // evaluation allocate for that many inputs.
            if (n > law_max_variable) refused = 1 + nd;
            if (n >= 1 && n <= law_max_variable) {
                t.kind = tok_variable;
                t.length = 1 + nd;
                t.letter = c;
                t.index = n - 1;
            }
        }
    }
    // Numbers never start with E; an E always takes the character after it as its sign.
    if (std::isdigit((unsigned char)c) || c == '.') {
        size_t n = 0;
        while (s[n] && std::strchr(".0123456789EE", s[n])) {
            if (s[n] == 'E' && s[n + 1]) ++n;
            ++n;
        }
        piece run(s, 0, n);
        char* end = nullptr;
        double v = strtod_l(run.get(), &end, c_locale());
        // A number beyond the doubles would print as "inf", which reads as no law.
        if (end != run.get() && std::isfinite(v)) {
            t.kind = tok_number;
            t.length = n;
            t.value = v;
        }
    }
    if (starts_with(s, "LAW")) {
        size_t nd = digits_at(s + 3);
        t.kind = tok_law_ref;
        t.length = 3 + nd;
        t.index = nd ? read_index(s + 3, nd) - 1 : 0;
        t.proto = nullptr;
    }
    for (law_data_list* d = law_data_list::head(); d; d = d->fnext()) {
        const char* sym = d->fthis()->symbol(law_symbol_default);
        size_t k = std::strlen(sym);
        if (k > t.length && starts_with(s, sym)) {
            size_t nd = digits_at(s + k);
            if (nd) {
                t.kind = tok_data_ref;
                t.length = k;
                t.index = read_index(s + k, nd) - 1;
            }
        }
    }
    // Longest symbol wins; among equal lengths the first in list order.
    const prototype_index::group& g =
        prototypes_by_first_char().by_first[prototype_index::group_of(c)];
    for (int i = 0; i < g.count; ++i) {
        law* proto = g.protos[i];
        size_t k = g.lengths[i];
        if (k > t.length && std::strncmp(s, proto->symbol(law_symbol_default), k) == 0 &&
            accepts(proto, operand_expected)) {
            t.kind = tok_prototype;
            t.length = k;
            t.proto = proto;
        }
    }
    if (t.length < refused) return token();
    return t;
}

// Upper-case, drop white space, and make implied products explicit ("2X" is 2*X).
// When `origin` is given (room for twice the text's length), it receives for each output
// character the index of the input character it stands for (an inserted '*' stands for
// the character it precedes).
void normalise(const char* in, text_buf& out, size_t* origin = nullptr) {
    size_t in_size = std::strlen(in);
    text_buf raw(in_size);
    size_t* raw_origin = origin ? VORX_ALLOC_ARRAY(size_t, in_size + 1) : nullptr;
    for (const char* p = in; *p; ++p)
        if (*p != ' ' && *p != '\n' && *p != '\t') {
            if (raw_origin) raw_origin[raw.size()] = (size_t)(p - in);
            raw.push((char)std::toupper((unsigned char)*p));
        }
    const char* s = raw.get();
    size_t n = raw.size();
    auto push = [&](char c, size_t i) {
        if (origin) origin[out.size()] = raw_origin[i];
        out.push(c);
    };
    for (size_t i = 0; i < n; ++i) {
        char c = s[i];
        if (i > 0 && std::isdigit((unsigned char)s[i - 1])) {
            char next = i + 1 < n ? s[i + 1] : '\0';
            if (c == 'E' && (next == '+' || next == '-')) {
                push(c, i);  // an exponent
                continue;
            }
            // '2*E-3' is the number 2E-3: deliberate.
            if (c == '*' && next == 'E' && i + 2 < n && (s[i + 2] == '+' || s[i + 2] == '-') &&
                i + 3 < n && std::isdigit((unsigned char)s[i + 3]))
                continue;
            if (std::isupper((unsigned char)c) && c != 'O' && !starts_with(s + i, "AND") &&
                !starts_with(s + i, "OR"))
                push('*', i);
        }
        push(c, i);
    }
    if (raw_origin) VORX_FREE(raw_origin);
}

// Notes the first fault of a read_law call: its code, its reason and the column where
// `rest` (a tail of some piece of the text) starts in the user's text.
void note_fault(int code, const char* reason, const char* rest) {
    fault_record* f = faults;
    if (!f || f->code) return;
    f->code = code;
    f->reason = reason;
    std::string_view top(f->top, f->top_size), tail(rest);
    // Usually a tail of the whole text; otherwise its last occurrence.
    size_t at = top.size() >= tail.size() && top.substr(top.size() - tail.size()) == tail
                    ? top.size() - tail.size()
                    : top.rfind(tail);
    size_t byte = at == std::string_view::npos ? 0
                  : at < f->top_size           ? f->origin[at]
                                               : std::strlen(f->user);
    // One column per character: UTF-8 continuation bytes take none.
    int column = 1;
    for (size_t i = 0; i < byte && f->user[i]; ++i)
        if (((unsigned char)f->user[i] & 0xC0) != 0x80) ++column;
    f->column = column;
}

law* bad_syntax(const char* rest, const char* reason = "bad syntax") {
    if (faults)
        note_fault(LAW_SYNTAX, reason, rest);
    else
        vorx_printf("Error bad syntax at %s\n", rest);
    return nullptr;
}

law* law_not_given(int n, const char* rest) {
    if (faults)
        note_fault(LAW_DATA_UNKNOWN, "a LAW reference beyond the data given", rest);
    else
        vorx_printf("Error law %d was not given\n", n);
    return nullptr;
}

bool balanced(const char* s, size_t n) {
    int depth = 0;
    for (size_t i = 0; i < n; ++i) {
        if (s[i] == '(') ++depth;
        if (s[i] == ')') --depth;
    }
    return depth == 0;
}

// Index of the ')' matching the '(' at `open`, or npos.
size_t matching_close(const char* s, size_t open) {
    int depth = 0;
    for (size_t i = open; s[i]; ++i) {
        if (s[i] == '(') ++depth;
        if (s[i] == ')' && --depth == 0) return i;
    }
    return (size_t)-1;
}

law* read_text(const char* text, law_data** data, int count);

// The arguments of NAME(a,b,...) starting at the '(' at `open`, split at top-level
// commas: the closing ')' counts as a final comma, so every argument ends in one.
// Calls take(piece text) for each; returns false when the ')' is missing.
template <class F>
bool for_each_argument(const char* s, size_t open, F take) {
    size_t close = matching_close(s, open);
    if (close == (size_t)-1) return false;
    int depth = 0;
    size_t start = open + 1;
    for (size_t i = open + 1; i <= close; ++i) {
        char c = s[i];
        if (c == '(') ++depth;
        if (c == ')' && i != close) --depth;
        if ((c == ',' && depth == 0) || i == close) {
            piece arg(s, start, i);
            if (!take(arg.get())) return true;
            start = i + 1;
        }
    }
    return true;
}

law* build_unary(const char* s, size_t at, const token& t, law_data** data, int count) {
    size_t from = at + t.length;
    size_t to;
    if (s[from] == '(') {
        to = matching_close(s, from);
        if (to == (size_t)-1) return bad_syntax(s + from);
        ++from;
    } else {
        int depth = 0;
        for (to = from; s[to]; ++to) {
            if (s[to] == '(') ++depth;
            if (s[to] == ')' && --depth < 0) break;
        }
    }
    piece arg(s, from, to);
    law_holder a(read_text(arg.get(), data, count));
    if (!a) return nullptr;
    return static_cast<unary_law*>(t.proto)->make_one(a.get());
}

law* build_multiple(const char* s, size_t at, const token& t, law_data** data, int count) {
    size_t open = at + t.length;
    if (s[open] != '(') return bad_syntax(s + open);
    int n = 0;
    for_each_argument(s, open, [&](const char*) { return ++n, true; });
    law_array args(n);
    int k = 0;
    bool ok = true;
    if (!for_each_argument(s, open, [&](const char* a) {
            law* l = *a ? read_text(a, data, count) : VORX_NEW constant_law(0.0);
            if (!l) return ok = false;
            args.set(k++, l);
            return true;
        }))
        return bad_syntax(s + open);
    if (!ok) return nullptr;
    return static_cast<multiple_law*>(t.proto)->make_one(args.get(), n);
}

// A data argument named by LAWn or a data-prototype symbol and number, or null.
law_data* data_argument(const token& d, law_data** data, int count, const char* at) {
    if (d.index < 0 || d.index >= count || !data) {
        law_not_given(d.index + 1, at);
        return nullptr;
    }
    return data[d.index];
}

law* build_unary_data(const char* s, size_t at, const token& t, law_data** data, int count) {
    size_t open = at + t.length;
    if (s[open] != '(') return bad_syntax(s + open);
    token d = next_token(s + open + 1, false);
    if (d.kind != tok_data_ref && d.kind != tok_law_ref) return bad_syntax(s + open + 1);
    law_data* arg = data_argument(d, data, count, s + open + 1);
    if (!arg) return nullptr;
    return static_cast<unary_data_law*>(t.proto)->make_one(arg);
}

law* build_multiple_data(const char* s, size_t at, const token& t, law_data** data, int count) {
    size_t open = at + t.length;
    if (s[open] != '(') return bad_syntax(s + open);
    int n = 0;
    for_each_argument(s, open, [&](const char*) { return ++n, true; });
    law_data_array args(n);
    int k = 0;
    bool ok = true;
    for_each_argument(s, open, [&](const char* a) {
        token d = next_token(a, true);
        if (d.kind == tok_data_ref && a[d.length + digits_at(a + d.length)] == '\0') {
            law_data* arg = data_argument(d, data, count, a);
            if (!arg) return ok = false;
            arg->add();
            args.set(k++, arg);
            return true;
        }
        law_holder l(*a ? read_text(a, data, count) : VORX_NEW constant_law(0.0));
        if (!l) return ok = false;
        args.set(k++, VORX_NEW law_law_data(l.get()));
        return true;
    });
    if (!ok) return nullptr;
    return static_cast<multiple_data_law*>(t.proto)->make_one(args.get(), n);
}

// The tokens of one normalised text and, for every prefix that ends at a token boundary,
// the split token that a scan of that prefix alone would pick.  The left text of a binary
// split is such a prefix whenever its parentheses balance, so a left-nested chain
// (X+X+...+X) is scanned once, not once per level.
struct text_scan {
    char* s = nullptr;
    size_t count = 0;      // tokens
    size_t* at = nullptr;  // start of token j; at[count] is the text's length
    token* tokens = nullptr;
    int* depth = nullptr;   // nesting depth before token j
    int* parens = nullptr;  // '(' less ')' characters before token j (a number such as
                            // '4E)' can hold a parenthesis)
    long* best = nullptr;   // split token of the prefix of j tokens, or -1
    ~text_scan() {
        VORX_FREE(at);
        VORX_FREE(tokens);
        VORX_FREE(depth);
        VORX_FREE(parens);
        VORX_FREE(best);
    }
};

// Scans `s` (normalised); false, after the message, on a token of length 0.
bool scan_text(char* s, size_t n, text_scan& sc) {
    sc.s = s;
    sc.at = VORX_ALLOC_ARRAY(size_t, n + 1);
    sc.tokens = VORX_ALLOC_ARRAY(token, n + 1);
    sc.depth = VORX_ALLOC_ARRAY(int, n + 1);
    sc.parens = VORX_ALLOC_ARRAY(int, n + 1);
    int parens = 0;
    sc.best = VORX_ALLOC_ARRAY(long, n + 1);
    // Pick the split token: shallowest, then lowest rank; equal ranks go to the last one
    // standing after an operand (operators associate to the left) and to the first one
    // standing where an operand is expected.
    bool operand_expected = true;
    int depth = 0;
    long best = -1;
    int best_depth = 0, best_rank = 0;
    bool after_operator = false;
    size_t j = 0;
    sc.best[0] = -1;
    for (size_t at = 0; s[at]; ++j) {
        token t = next_token(s + at, operand_expected);
        if (t.length == 0) {
            bad_syntax(s + at);
            return false;
        }
        sc.at[j] = at;
        sc.tokens[j] = t;
        sc.depth[j] = depth;
        sc.parens[j] = parens;
        for (size_t i = at; i < at + t.length; ++i) parens += (s[i] == '(') - (s[i] == ')');
        if (t.kind != tok_open && t.kind != tok_close) {
            int rank = t.kind == tok_prototype ? t.proto->precedence() : 9;
            // A prefix operator that binds loosely (NOT) takes in the rest of the text only
            // where it starts an operand and is not called like a function: 'NOT X=1' is
            // NOT(X=1), while 'NOT(X)=1' is (NOT(X))=1 and '1+NOT X' is 1+NOT(X); the
            // text around the call is never dropped.
            if (rank < 8 && t.kind == tok_prototype && !t.proto->isa(binary_law::id()) &&
                (after_operator || s[at + t.length] == '('))
                rank = 8;
            bool better = best == -1 || depth < best_depth ||
                          (depth == best_depth &&
                           (rank < best_rank || (rank == best_rank && !operand_expected)));
            if (better) {
                best = (long)j;
                best_depth = depth;
                best_rank = rank;
            }
        }
        sc.best[j + 1] = best;
        if (t.kind == tok_open) ++depth;
        if (t.kind == tok_close) --depth;
        after_operator =
            t.kind == tok_prototype && (t.proto->isa(binary_law::id()) ||
                                        std::strcmp(t.proto->symbol(law_symbol_default), "-") == 0);
        operand_expected = t.kind == tok_open || t.kind == tok_comma || after_operator;
        at += t.length;
    }
    sc.count = j;
    sc.at[j] = n;
    sc.depth[j] = depth;
    sc.parens[j] = parens;
    return true;
}

law* build_prefix(text_scan& sc, size_t k, law_data** data, int count);

// The law of the first k tokens, read as if that prefix had been given alone: it is
// ended in place for the while.
law* read_prefix(text_scan& sc, size_t k, law_data** data, int count) {
    struct end_here {
        char* p;
        char kept;
        explicit end_here(char* q) : p(q), kept(*q) { *q = '\0'; }
        ~end_here() { *p = kept; }
    } end(sc.s + sc.at[k]);
    nesting_guard guard;
    if (nesting > max_nesting) return bad_syntax(sc.s, "nested too deeply (limit 2,500)");
    if (std::strcmp(sc.s, "NULL") == 0) return nullptr;
    if (k == 0) return VORX_NEW constant_law(0.0);
    return build_prefix(sc, k, data, count);
}

law* build_binary(text_scan& sc, size_t k, size_t split, law_data** data, int count) {
    const char* s = sc.s;
    const token& t = sc.tokens[split];
    size_t at = sc.at[split];
    piece right(s, at + t.length, sc.at[k]);
    if (!balanced(right.get(), right.size()) && right.size()) right.get()[right.size() - 1] = ' ';
    law_holder l;
    // A left text that balances is the prefix before the split token, whose split the
    // scan knows; one that does not loses its first character and is read afresh.  (A
    // prefix ending before a '(' would see its last token's neighbour change: read afresh.)
    if (sc.parens[split] == 0 && s[at] != '(') {
        l.reset(read_prefix(sc, split, data, count));
    } else {
        piece left(s, 0, at);
        if (!balanced(left.get(), left.size()) && left.size()) left.get()[0] = ' ';
        l.reset(read_text(left.get(), data, count));
    }
    if (!l) return nullptr;
    law_holder r(read_text(right.get(), data, count));
    if (!r) return nullptr;
    return static_cast<binary_law*>(t.proto)->make_one(l.get(), r.get());
}

law* read_text(const char* in, law_data** data, int count) {
    nesting_guard guard;
    if (nesting > max_nesting) return bad_syntax(in, "nested too deeply (limit 2,500)");

    text_buf text(2 * std::strlen(in) + 1);
    normalise(in, text);
    char* s = text.get();
    if (std::strcmp(s, "NULL") == 0) return nullptr;
    if (*s == '\0') return VORX_NEW constant_law(0.0);
    text_scan sc;
    if (!scan_text(s, text.size(), sc)) return nullptr;
    return build_prefix(sc, sc.count, data, count);
}

// The law of the first k tokens of the scanned text, ended after them.
law* build_prefix(text_scan& sc, size_t k, law_data** data, int count) {
    const char* s = sc.s;
    long split = sc.best[k];
    if (split < 0) return bad_syntax(s);
    size_t best_at = sc.at[split];
    const token& t = sc.tokens[split];
    switch (t.kind) {
        case tok_variable:
            return VORX_NEW identity_law(t.index, t.letter);
        case tok_number:
            return VORX_NEW constant_law(t.value);
        case tok_law_ref: {
            if (count < t.index + 1 || t.index < 0 || !data)
                return law_not_given(t.index + 1, s + best_at);
            law_data* d = data[t.index];
            if (!d || !d->isa(law_law_data::id())) return bad_syntax(s + best_at);
            law* l = static_cast<law_law_data*>(d)->data_law();
            law_add(l);
            return l;
        }
        case tok_prototype: {
            law* p = t.proto;
            if (p->isa(binary_law::id())) return build_binary(sc, k, (size_t)split, data, count);
            if (p->isa(unary_law::id())) return build_unary(s, best_at, t, data, count);
            if (p->isa(multiple_law::id())) return build_multiple(s, best_at, t, data, count);
            if (p->isa(unary_data_law::id())) return build_unary_data(s, best_at, t, data, count);
            if (p->isa(multiple_data_law::id()))
                return build_multiple_data(s, best_at, t, data, count);
            if (p->isa(constant_law::id())) {
                double zero = 0.0, v = 0.0;
                p->evaluate(&zero, &v);
                return static_cast<constant_law*>(p)->make_one(v);
            }
            return nullptr;
        }
        default:
            // A ',' or a data reference standing alone.
            return bad_syntax(s + best_at);
    }
}

}  // namespace

law* str_to_law(const char* text, law_data** data, int count) {
    if (!text) return nullptr;
    return read_text(text, data, count);
}

law_read_result read_law(const char* text, law_data** data, int count) {
    law_read_result result;
    if (!text) {
        result.code = LAW_SYNTAX;
        result.reason = "no text";
        return result;
    }
    size_t n = std::strlen(text);
    text_buf top(2 * n + 1);
    size_t* origin = VORX_ALLOC_ARRAY(size_t, 2 * n + 1);
    normalise(text, top, origin);
    fault_record record;
    record.top = top.get();
    record.origin = origin;
    record.top_size = top.size();
    record.user = text;
    fault_record* outer = faults;
    faults = &record;
    law* l = nullptr;
    try {
        l = read_text(text, data, count);
    } catch (const vorx_exception& e) {
        // The text was read but a law refused its arguments (STEP(X,1)).
        if (!record.code) {
            record.code = e.code();
            record.reason = "a law refused its arguments";
        }
    }
    faults = outer;
    VORX_FREE(origin);
    if (l && record.code) law_remove(l);  // cannot happen: a fault ends the read
    if (record.code) {
        result.code = record.code;
        result.column = record.column;
        result.reason = record.reason;
        return result;
    }
    result.value = l;
    // Null without a fault: the text is NULL, or a part of it reads as no law ('X+NULL').
    if (!l && std::strcmp(top.get(), "NULL") != 0) {
        result.code = LAW_SYNTAX;
        result.column = 1;
        result.reason = "a part of the text names no law";
    }
    return result;
}

}  // namespace lawutil
