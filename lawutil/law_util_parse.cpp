// str_to_law: the reader of the law text form.
//
// A recursive splitter, not a grammar: the token at which to split a text is picked (the
// shallowest, then the lowest precedence), the law it names is built and the pieces of
// text around it are read recursively, each as if it were given alone.  The names it
// knows are the symbols of the registered prototypes.  The text is scanned once and the
// pieces are read in place, so reading takes O(n log n) time (see "One scan per text").
//
// Two front doors share this one splitter.  str_to_law prints what went wrong and returns
// null.  read_law prints nothing: while it runs, a per-thread fault record collects the
// first fault (its code, a short reason and the rest of the text where it happened); the
// rest of the text is located in the normalised top-level text, whose characters remember
// where they came from in the caller's text, and so becomes a column there.
#include <locale.h>

#include <algorithm>
#include <cctype>
#include <clocale>
#include <cmath>
#include <cstdint>
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
        const char* symbols[per_group];
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
        g.symbols[g.count] = sym;
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
        char small[64];
        char* copy = n < sizeof small ? small : VORX_ALLOC_ARRAY(char, n + 1);
        std::memcpy(copy, s, n);
        copy[n] = '\0';
        char* end = nullptr;
        double v = strtod_l(copy, &end, c_locale());
        bool read = end != copy;
        if (copy != small) VORX_FREE(copy);
        // A number beyond the doubles would print as "inf", which reads as no law.
        if (read && std::isfinite(v)) {
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
        const char* sym = g.symbols[i];
        if (k > t.length && (k == 1 || s[1] == sym[1]) && std::strncmp(s, sym, k) == 0 &&
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
    char upper[256];  // the locale's upper case, looked up once per text
    for (int c = 0; c < 256; ++c) upper[c] = (char)std::toupper(c);
    for (const char* p = in; *p; ++p)
        if (*p != ' ' && *p != '\n' && *p != '\t') {
            if (raw_origin) raw_origin[raw.size()] = (size_t)(p - in);
            raw.push(upper[(unsigned char)*p]);
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
void note_fault(int code, const char* reason, std::string_view tail) {
    fault_record* f = faults;
    if (!f || f->code) return;
    f->code = code;
    f->reason = reason;
    std::string_view top(f->top, f->top_size);
    // Usually a tail of the whole text; otherwise its last occurrence.
    size_t at = top.size() >= tail.size() && top.substr(top.size() - tail.size()) == tail
                    ? top.size() - tail.size()
                    : top.rfind(tail);
    // A fault at the end of the text is shown just after its last character, not after
    // the white space that may follow it.
    size_t byte = at == std::string_view::npos ? 0
                  : at < f->top_size           ? f->origin[at]
                  : f->top_size                ? f->origin[f->top_size - 1] + 1
                                               : std::strlen(f->user);
    // One column per character: UTF-8 continuation bytes take none.
    int column = 1;
    for (size_t i = 0; i < byte && f->user[i]; ++i)
        if (((unsigned char)f->user[i] & 0xC0) != 0x80) ++column;
    f->column = column;
}

law* bad_syntax(std::string_view rest, const char* reason = "bad syntax") {
    if (faults)
        note_fault(LAW_SYNTAX, reason, rest);
    else
        vorx_printf("Error bad syntax at %.*s\n", (int)rest.size(), rest.data());
    return nullptr;
}

law* law_not_given(int n, std::string_view rest) {
    if (faults)
        note_fault(LAW_DATA_UNKNOWN, "a LAW reference beyond the data given", rest);
    else
        vorx_printf("Error law %d was not given\n", n);
    return nullptr;
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

// A data argument named by LAWn or a data-prototype symbol and number, or null.
law_data* data_argument(const token& d, law_data** data, int count, const char* at) {
    if (d.index < 0 || d.index >= count || !data) {
        law_not_given(d.index + 1, at);
        return nullptr;
    }
    return data[d.index];
}

// The data laws read from a copy of their own text `s`, the law's symbol at `at`.
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

// ---- One scan per text
//
// The reader's rule is "read each piece as if it were given alone": a piece is normalised
// and scanned afresh, and its split token is the shallowest, then loosest, of its own
// tokens.  Done literally, every level of the law rescans all the text below it, which is
// quadratic for deep texts.  Instead the text is normalised and scanned once, and a piece
// is a range of that scan's tokens (a view) whenever reading it alone would give exactly
// those tokens; only then is it read in place:
//   - normalising the piece changes nothing: the scanned text is already normal, and a
//     piece's end can only matter within its last three characters ('2E' cut from '2E-3',
//     '2AN' cut from '2AND'), which are checked;
//   - its first token is the one a fresh scan would take where an operand is expected,
//     and its last token the one a scan that ends there would take (a data reference
//     needs the digits after it): both are scanned again and compared;
//   - the tokens between follow from the first, as the scan is left to right.
// A piece that fails a check (an argument split inside a number such as '4E,', a
// parenthesis that is part of a token) is copied and read afresh, as before.
//
// Within a view the split token is found by a range query over a segment tree of the
// tokens' (depth, rank) keys; the first and last tokens' ranks, which look at the
// neighbours a fresh scan would see, are worked out again.  Matching parentheses, the
// end of an unparenthesised argument and the top-level commas of a call come from tables
// over the characters, made in the same scan.  So a text of n characters reads in
// O(n log n), whatever its shape.

// What a range of tokens offers as a split: the smallest (depth, rank), the first token
// with it, and the last one with it that stands after an operand (or -1).  The scan's rule
// "shallowest, then loosest; equal ranks go to the last one standing after an operand,
// else to the first" is the fold of these over the range, left to right.
struct split_pick {
    int depth = 0;
    int rank = 0;
    long first = -1;
    long last_after_operand = -1;
    long winner() const { return last_after_operand >= 0 ? last_after_operand : first; }
};

split_pick combine(const split_pick& l, const split_pick& r) {
    if (l.first < 0) return r;
    if (r.first < 0) return l;
    if (l.depth != r.depth) return l.depth < r.depth ? l : r;
    if (l.rank != r.rank) return l.rank < r.rank ? l : r;
    split_pick both = l;
    if (r.last_after_operand >= 0) both.last_after_operand = r.last_after_operand;
    return both;
}

// A token that closes the operand before it, so that the next one stands after an
// operator ('+', 'MOD', and the prefix '-').
bool is_after_operator(const token& t) {
    return t.kind == tok_prototype && (t.proto->isa(binary_law::id()) ||
                                       std::strcmp(t.proto->symbol(law_symbol_default), "-") == 0);
}

// A token's rank as a split: its precedence (9 for operands).
int split_rank(const token& t, bool after_operator, char next) {
    int rank = t.kind == tok_prototype ? t.proto->precedence() : 9;
    // A prefix operator that binds loosely (NOT) takes in the rest of the text only where
    // it starts an operand and is not called like a function: 'NOT X=1' is NOT(X=1), while
    // 'NOT(X)=1' is (NOT(X))=1 and '1+NOT X' is 1+NOT(X); the text around the call is
    // never dropped.
    if (rank < 8 && t.kind == tok_prototype && !t.proto->isa(binary_law::id()) &&
        (after_operator || next == '('))
        rank = 8;
    return rank;
}

bool same_token(const token& a, const token& b) {
    return a.kind == b.kind && a.length == b.length && a.index == b.index && a.letter == b.letter &&
           a.proto == b.proto && std::memcmp(&a.value, &b.value, sizeof a.value) == 0;
}

// Tracked array of n elements, freed on scope exit.
template <class T>
struct tracked_array {
    T* p = nullptr;
    void allocate(size_t n) { p = VORX_ALLOC_ARRAY(T, n); }
    ~tracked_array() {
        if (p) VORX_FREE(p);
    }
    T& operator[](size_t i) const { return p[i]; }
};

// A normalised text, its tokens and the tables that let any range of them be read in place.
struct text_scan {
    char* s = nullptr;
    size_t n = 0;              // characters
    size_t count = 0;          // tokens
    tracked_array<size_t> at;  // start of token j; at[count] == n
    tracked_array<token> tokens;
    tracked_array<int> depth;              // '(' less ')' tokens before token j
    tracked_array<unsigned char> expects;  // an operand expected at token j
    tracked_array<int> opens;              // '(' less ')' characters before character i (i <= n; a
                                           // number such as '4E)' can hold a parenthesis)
    // Character positions in 32 bits, to keep the tables small.
    tracked_array<uint32_t> drop;            // first i' > i with opens[i'] < opens[i], or n + 1
    tracked_array<uint32_t> next_separator;  // for '(' or ',': the next ',' or ')' at its level
    tracked_array<uint32_t> token_at;        // the token starting at character i, or none
    static constexpr uint32_t none = 0xFFFFFFFF;
    tracked_array<split_pick> tree;  // segment tree over the tokens, leaves at count + j
};

split_pick leaf(const text_scan& sc, size_t j, bool after_operator, char next, bool expected) {
    split_pick p;
    const token& t = sc.tokens[j];
    if (t.kind == tok_open || t.kind == tok_close) return p;
    p.depth = sc.depth[j];
    p.rank = split_rank(t, after_operator, next);
    p.first = (long)j;
    if (!expected) p.last_after_operand = (long)j;
    return p;
}

// Scans `s` (normalised, n characters); false, after the message, on a token of length 0.
bool scan_text(char* s, size_t n, text_scan& sc) {
    sc.s = s;
    sc.n = n;
    if (n >= text_scan::none - 1) {  // 4 G characters: beyond the tables
        bad_syntax(s, "text too long");
        return false;
    }
    size_t cap = n / 4 + 16;
    sc.at.allocate(cap + 1);
    sc.tokens.allocate(cap + 1);
    bool operand_expected = true;
    size_t j = 0;
    for (size_t at = 0; s[at]; ++j) {
        token t = next_token(s + at, operand_expected);
        if (t.length == 0) {
            bad_syntax(s + at);
            return false;
        }
        if (j == cap) {  // grow both arrays
            tracked_array<size_t> at2;
            tracked_array<token> tokens2;
            at2.allocate(2 * cap + 1);
            tokens2.allocate(2 * cap + 1);
            std::memcpy(at2.p, sc.at.p, cap * sizeof(size_t));
            std::memcpy((void*)tokens2.p, (const void*)sc.tokens.p, cap * sizeof(token));
            std::swap(at2.p, sc.at.p);
            std::swap(tokens2.p, sc.tokens.p);
            cap *= 2;
        }
        sc.at[j] = at;
        sc.tokens[j] = t;
        operand_expected = t.kind == tok_open || t.kind == tok_comma || is_after_operator(t);
        at += t.length;
    }
    size_t count = sc.count = j;
    sc.at[count] = n;
    sc.depth.allocate(count + 1);
    sc.expects.allocate(count + 1);
    sc.tree.allocate(2 * count + 1);
    int depth = 0;
    bool after_operator = false;
    operand_expected = true;
    for (j = 0; j < count; ++j) {
        const token& t = sc.tokens[j];
        sc.depth[j] = depth;
        sc.expects[j] = operand_expected;
        sc.tree[count + j] = leaf(sc, j, after_operator, s[sc.at[j] + t.length], operand_expected);
        if (t.kind == tok_open) ++depth;
        if (t.kind == tok_close) --depth;
        after_operator = is_after_operator(t);
        operand_expected = t.kind == tok_open || t.kind == tok_comma || after_operator;
    }
    for (size_t i = count; i-- > 1;) sc.tree[i] = combine(sc.tree[2 * i], sc.tree[2 * i + 1]);

    // The character tables: depth in parentheses, where it first drops (next smaller
    // element, by a stack), and the separators of every call.
    sc.opens.allocate(n + 1);
    sc.drop.allocate(n + 1);
    sc.next_separator.allocate(n + 1);
    sc.token_at.allocate(n + 1);
    for (size_t i = 0; i <= n; ++i) sc.token_at[i] = text_scan::none;
    for (j = 0; j <= count; ++j) sc.token_at[sc.at[j]] = (uint32_t)j;
    tracked_array<uint32_t> stack;
    stack.allocate(n + 2);
    size_t top = 0;
    int opens = 0;
    for (size_t i = 0; i < n; ++i) {
        sc.opens[i] = opens;
        if (s[i] == '(') {
            ++opens;
            stack[top++] = (uint32_t)i;
        } else if (s[i] == ',' && top) {
            sc.next_separator[stack[top - 1]] = (uint32_t)i;
            stack[top - 1] = (uint32_t)i;
        } else if (s[i] == ')') {
            --opens;
            if (top) sc.next_separator[stack[--top]] = (uint32_t)i;
        }
    }
    sc.opens[n] = opens;
    top = 0;
    for (size_t i = n + 1; i-- > 0;) {
        while (top && sc.opens[stack[top - 1]] >= sc.opens[i]) --top;
        sc.drop[i] = top ? stack[top - 1] : (uint32_t)(n + 1);
        stack[top++] = (uint32_t)i;
    }
    return true;
}

// A range [a, b) of a scan's tokens, read as the text it spans.  A piece read afresh
// (`fresh_end`) has nothing after its last token; a prefix of a piece, whose split the
// old scan of the whole piece decided, still sees the character after it.
struct view {
    text_scan* sc;
    size_t a, b;
    bool fresh_end;
    size_t begin() const { return sc->at[a]; }
    size_t end() const { return sc->at[b]; }
    std::string_view text() const { return {sc->s + begin(), end() - begin()}; }
    std::string_view from(size_t i) const { return {sc->s + i, end() - i}; }
};

// The split token of a view: the fold of the leaves, with the first and last tokens'
// ranks worked out as a scan of the view alone would.
long split_of(const view& v) {
    const text_scan& sc = *v.sc;
    auto edge = [&](size_t j) {
        const token& t = sc.tokens[j];
        bool last = j + 1 == v.b && v.fresh_end;
        char next = last ? '\0' : sc.s[sc.at[j] + t.length];
        bool after_operator = j > v.a && is_after_operator(sc.tokens[j - 1]);
        return leaf(sc, j, after_operator, next, j == v.a ? true : sc.expects[j] != 0);
    };
    split_pick left = edge(v.a), right;
    if (v.b - v.a > 1) {
        right = edge(v.b - 1);
        split_pick mid_l, mid_r;
        for (size_t l = v.a + 1 + sc.count, r = v.b - 1 + sc.count; l < r; l >>= 1, r >>= 1) {
            if (l & 1) mid_l = combine(mid_l, sc.tree[l++]);
            if (r & 1) mid_r = combine(sc.tree[--r], mid_r);
        }
        left = combine(left, combine(mid_l, mid_r));
    }
    return combine(left, right).winner();
}

// Whether tokens [a, b) are what a fresh reading of their text would give (see above).
bool reads_alone(text_scan& sc, size_t a, size_t b) {
    if (a == b) return true;
    const char* s = sc.s;
    size_t begin = sc.at[a], end = sc.at[b];
    // Normalising: an inserted '*' or a dropped one near the end.
    for (size_t i = std::max(begin + 1, end >= 3 ? end - 3 : 0); i < end; ++i) {
        if (!std::isdigit((unsigned char)s[i - 1])) continue;
        char c = s[i], next = i + 1 < end ? s[i + 1] : '\0';
        if (c == 'E' && (next == '+' || next == '-')) continue;
        if (std::isupper((unsigned char)c) && c != 'O') {
            std::string_view rest(s + i, end - i);
            if (rest.substr(0, 3) != "AND" && rest.substr(0, 2) != "OR") return false;
        }
    }
    // The first and the last token, scanned again with the piece ended.
    char kept = sc.s[end];
    sc.s[end] = '\0';
    bool same = same_token(next_token(s + begin, true), sc.tokens[a]) &&
                (b - a == 1 || same_token(next_token(s + sc.at[b - 1], sc.expects[b - 1] != 0),
                                          sc.tokens[b - 1]));
    sc.s[end] = kept;
    return same;
}

law* read_view(const view& v, law_data** data, int count);

// Reads a copy of characters [begin, end) of the scanned text, the first or last blanked.
law* read_copy(const text_scan& sc, size_t begin, size_t end, bool blank_first, bool blank_last,
               law_data** data, int count) {
    piece p(sc.s, begin, end);
    if (blank_first && p.size()) p.get()[0] = ' ';
    if (blank_last && p.size()) p.get()[p.size() - 1] = ' ';
    return read_text(p.get(), data, count);
}

// Reads characters [begin, end) of the scanned text as a text of its own (str_to_law on a
// copy), with the first or last character blanked when asked: in place when the piece is
// a range of tokens that reads alone, else from a copy.
law* read_piece(text_scan& sc, size_t begin, size_t end, bool blank_first, bool blank_last,
                law_data** data, int count) {
    size_t from = begin + blank_first, to = end - blank_last;
    if (end - begin < (size_t)(blank_first + blank_last)) from = to = begin;
    uint32_t a = sc.token_at[from], b = sc.token_at[to];
    // Too deep: the copy's reading says so, naming the text as it would be copied.
    if (a == text_scan::none || b == text_scan::none || nesting + 1 > max_nesting ||
        !reads_alone(sc, a, b))
        return read_copy(sc, begin, end, blank_first, blank_last, data, count);
    nesting_guard guard;
    view v{&sc, a, b, true};
    if (v.text() == "NULL") return nullptr;
    if (v.a == v.b) return VORX_NEW constant_law(0.0);
    return read_view(v, data, count);
}

// The law of the first k tokens of a view, read with the split the view's own scan gives.
law* read_prefix(const view& v, size_t k, law_data** data, int count) {
    view p{v.sc, v.a, v.a + k, false};
    nesting_guard guard;
    if (nesting > max_nesting) return bad_syntax(p.text(), "nested too deeply (limit 2,500)");
    if (p.text() == "NULL") return nullptr;
    if (k == 0) return VORX_NEW constant_law(0.0);
    return read_view(p, data, count);
}

law* build_binary(const view& v, size_t split, law_data** data, int count) {
    text_scan& sc = *v.sc;
    const token& t = sc.tokens[split];
    size_t at = sc.at[split];
    size_t right_begin = sc.at[split + 1], end = v.end();
    bool right_open = sc.opens[end] != sc.opens[right_begin] && end > right_begin;
    law_holder l;
    // A left text that balances is the prefix before the split token, whose split the
    // scan knows; one that does not loses its first character and is read afresh.  (A
    // prefix ending before a '(' would see its last token's neighbour change: read afresh.)
    if (sc.opens[at] == sc.opens[v.begin()] && sc.s[at] != '(') {
        l.reset(read_prefix(v, split - v.a, data, count));
    } else {
        bool left_open = sc.opens[at] != sc.opens[v.begin()] && at > v.begin();
        l.reset(read_piece(sc, v.begin(), at, left_open, false, data, count));
    }
    if (!l) return nullptr;
    law_holder r(read_piece(sc, right_begin, end, false, right_open, data, count));
    if (!r) return nullptr;
    return static_cast<binary_law*>(t.proto)->make_one(l.get(), r.get());
}

// The ')' matching the '(' at `open` within the view, or npos.
size_t close_of(const view& v, size_t open) {
    size_t close = v.sc->drop[open + 1] - 1;
    return close < v.end() ? close : (size_t)-1;
}

law* build_unary(const view& v, size_t split, law_data** data, int count) {
    text_scan& sc = *v.sc;
    size_t from = sc.at[split + 1], end = v.end();
    size_t to;
    if (from < end && sc.s[from] == '(') {
        to = close_of(v, from);
        if (to == (size_t)-1) return bad_syntax(v.from(from));
        ++from;
    } else {
        // Up to the ')' that closes a group opened before the argument, or the end.
        to = std::min<size_t>(sc.drop[from] - 1, end);
    }
    law_holder a(read_piece(sc, from, to, false, false, data, count));
    if (!a) return nullptr;
    return static_cast<unary_law*>(sc.tokens[split].proto)->make_one(a.get());
}

law* build_multiple(const view& v, size_t split, law_data** data, int count) {
    text_scan& sc = *v.sc;
    size_t open = sc.at[split + 1];
    if (open >= v.end() || sc.s[open] != '(') return bad_syntax(v.from(open));
    size_t close = close_of(v, open);
    if (close == (size_t)-1) return bad_syntax(v.from(open));
    int n = 1;
    for (size_t p = open; (p = sc.next_separator[p]) != close;) ++n;
    law_array args(n);
    size_t start = open + 1;
    for (int k = 0; k < n; ++k) {
        size_t stop = sc.next_separator[start - 1];
        law* l = stop > start ? read_piece(sc, start, stop, false, false, data, count)
                              : VORX_NEW constant_law(0.0);
        if (!l) return nullptr;
        args.set(k, l);
        start = stop + 1;
    }
    return static_cast<multiple_law*>(sc.tokens[split].proto)->make_one(args.get(), n);
}

// The law of a view.
law* read_view(const view& v, law_data** data, int count) {
    long split = split_of(v);
    if (split < 0) return bad_syntax(v.text());
    text_scan& sc = *v.sc;
    const token& t = sc.tokens[split];
    std::string_view rest = v.from(sc.at[split]);
    switch (t.kind) {
        case tok_variable:
            return VORX_NEW identity_law(t.index, t.letter);
        case tok_number:
            return VORX_NEW constant_law(t.value);
        case tok_law_ref: {
            if (count < t.index + 1 || t.index < 0 || !data)
                return law_not_given(t.index + 1, rest);
            law_data* d = data[t.index];
            if (!d || !d->isa(law_law_data::id())) return bad_syntax(rest);
            law* l = static_cast<law_law_data*>(d)->data_law();
            law_add(l);
            return l;
        }
        case tok_prototype: {
            law* p = t.proto;
            if (p->isa(binary_law::id())) return build_binary(v, (size_t)split, data, count);
            if (p->isa(unary_law::id())) return build_unary(v, (size_t)split, data, count);
            if (p->isa(multiple_law::id())) return build_multiple(v, (size_t)split, data, count);
            if (p->isa(unary_data_law::id()) || p->isa(multiple_data_law::id())) {
                // Data laws are rare and shallow: read from a copy of the view's text.
                piece own(sc.s, v.begin(), v.end());
                size_t at = sc.at[split] - v.begin();
                if (p->isa(unary_data_law::id()))
                    return build_unary_data(own.get(), at, t, data, count);
                return build_multiple_data(own.get(), at, t, data, count);
            }
            if (p->isa(constant_law::id())) {
                double zero = 0.0, value = 0.0;
                p->evaluate(&zero, &value);
                return static_cast<constant_law*>(p)->make_one(value);
            }
            return nullptr;
        }
        default:
            // A ',' or a data reference standing alone.
            return bad_syntax(rest);
    }
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
    return read_view(view{&sc, 0, sc.count, true}, data, count);
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
