// libFuzzer harness over the law reader.
//
// Every input either reads to null, with the reader's message, or to a law that prints,
// whose printed text reads back to a law printing the very same text, which evaluates at
// a few points (domain errors are fine, crashes are not) and which differentiates.  After
// each input every law and every tracked block made for it must be gone.
//
// A scalar law of at most max_inputs inputs (and its derivative) is also compiled, in
// exact mode and with rewrites, and each program is held to its contract at the same
// points: the exact program gives the tree's values bit for bit and both raise the tree's
// codes, the rewriting one within the bound of its rewrites; the gradient pass gives
// evaluate's value bit for bit, or raises where evaluate raises, with its code; a batch
// over the points, across a block edge, gives each point NaN and the code of the single
// point where it raises, else its value, bit for bit (with rewrites, within 1e-14 for a
// law of the functions a vector library may take).  The bounds of the rewrites hold
// where the law does not amplify the error of a step (see steady and flat_chain_power).
//
// A broken invariant prints its reason and calls __builtin_trap(), which libFuzzer
// reports as a crash with the input saved.
#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "base/errors.hpp"
#include "base/memory.hpp"
#include "base/output.hpp"
#include "lawutil/global_names.hpp"
#include "lawutil/lawutil.hpp"

namespace {

// Inputs longer than this are cut: the reader is quadratic in the length of its text.
constexpr size_t max_text = 4096;
// Laws of more inputs than this are not evaluated (the input vector would be huge).
constexpr int max_inputs = 8;

[[noreturn]] void fail(const char* what, const char* text, const char* detail = "") {
    std::fprintf(stderr, "fuzz_str_to_law: %s\n  input: '%s'\n  %s\n", what, text, detail);
    __builtin_trap();
}

// A string returned by the library, freed when it goes.
class lib_text {
  public:
    explicit lib_text(char* s) : s_(s) {}
    ~lib_text() { VORX_FREE(s_); }
    lib_text(const lib_text&) = delete;
    lib_text& operator=(const lib_text&) = delete;
    const char* get() const { return s_ ? s_ : ""; }

  private:
    char* s_;
};

// The text as the reader sees it: upper case, without white space.
bool names_null(const char* text) {
    std::vector<char> s;
    for (const char* p = text; *p; ++p)
        if (*p != ' ' && *p != '\n' && *p != '\t')
            s.push_back((char)std::toupper((unsigned char)*p));
    s.push_back('\0');
    return std::strstr(s.data(), "NULL") != nullptr;
}

bool starts_with(const char* s, const char* prefix) {
    return std::strncmp(s, prefix, std::strlen(prefix)) == 0;
}

// Printed texts that are known not to read back, accepted as they stand:
// - a digit, '*', 'E', a sign and a digit: the reader drops that '*' on purpose ('2*E-3'
//   is the number 2E-3), so a product by the constant E followed by a sum or difference,
//   printed as '2*E-3', reads back as a number;
// - the variable T before AND: operators are printed without separators and the reader
//   drops white space, so 'T AND X' prints 'TANDX', which reads as TAN(DX).
bool known_not_to_read_back(const char* s) {
    if (std::strstr(s, "TAND")) return true;
    for (size_t i = 0; s[i]; ++i)
        if (i > 0 && std::isdigit((unsigned char)s[i - 1]) && s[i] == '*' && s[i + 1] == 'E' &&
            (s[i + 2] == '+' || s[i + 2] == '-') && std::isdigit((unsigned char)s[i + 3]))
            return true;
    return false;
}

// True when the two trees have the same classes in the same places and bit-identical
// constants: then they compute the same thing the same way, and must give the same values.
bool identical_trees(const law* a, const law* b) {
    if (a == b) return true;
    if (!a || !b || a->type() != b->type()) return false;
    if (a->isa(constant_law::id())) {
        double x = static_cast<const constant_law*>(a)->value();
        double y = static_cast<const constant_law*>(b)->value();
        return std::memcmp(&x, &y, sizeof x) == 0;
    }
    if (a->isa(identity_law::id()))
        return static_cast<const identity_law*>(a)->fwhich() ==
               static_cast<const identity_law*>(b)->fwhich();
    if (a->isa(unary_law::id()))
        return identical_trees(static_cast<const unary_law*>(a)->fsub(),
                               static_cast<const unary_law*>(b)->fsub());
    if (a->isa(binary_law::id())) {
        const binary_law* p = static_cast<const binary_law*>(a);
        const binary_law* q = static_cast<const binary_law*>(b);
        return identical_trees(p->fleft(), q->fleft()) && identical_trees(p->fright(), q->fright());
    }
    if (a->isa(multiple_law::id())) {
        const multiple_law* p = static_cast<const multiple_law*>(a);
        const multiple_law* q = static_cast<const multiple_law*>(b);
        if (p->fsub_num() != q->fsub_num()) return false;
        for (int i = 0; i < p->fsub_num(); ++i)
            if (!identical_trees(p->fsub()[i], q->fsub()[i])) return false;
        return true;
    }
    return false;
}

// True when some node of the tree satisfies `pred`.
template <class P>
bool any_node(const law* l, const P& pred) {
    if (!l) return false;
    if (pred(l)) return true;
    if (l->isa(unary_law::id())) return any_node(static_cast<const unary_law*>(l)->fsub(), pred);
    if (l->isa(binary_law::id())) {
        const binary_law* b = static_cast<const binary_law*>(l);
        return any_node(b->fleft(), pred) || any_node(b->fright(), pred);
    }
    if (l->isa(multiple_law::id())) {
        const multiple_law* m = static_cast<const multiple_law*>(l);
        for (int i = 0; i < m->fsub_num(); ++i)
            if (any_node(m->fsub()[i], pred)) return true;
    }
    return false;
}

// Random numbers: two evaluations need not agree.
bool draws_random(const law* l) {
    return any_node(l, [](const law* n) { return n->isa(rand_law::id()) != 0; });
}

// The outcome of one evaluation: the values, or the error raised.
struct outcome {
    bool raised = false;
    int code = 0;
    std::vector<double> y;
};

const double sample_points[] = {0.5, -1.25, 2.0, 0.0};
constexpr int sample_count = sizeof sample_points / sizeof sample_points[0];

bool same_bits_or_both_nan(double a, double b) {
    if (std::isnan(a) && std::isnan(b)) return true;
    return std::memcmp(&a, &b, sizeof a) == 0;
}

// The raw evaluation into exactly return_dim() values from exactly take_dim() inputs, so
// that the address sanitizer sees any access past either; for a scalar law also the
// scalar path, which must agree with it.
outcome evaluate_at(const law* l, int point, const char* input) {
    outcome r;
    try {
        int n_in = l->take_dim();
        int n_out = l->return_dim();
        if (n_in > max_inputs || n_out < 0 || n_out > (int)max_text) {
            r.raised = true;
            return r;
        }
        std::vector<double> x((size_t)(n_in > 0 ? n_in : 1));
        for (size_t i = 0; i < x.size(); ++i) x[i] = sample_points[point] + 0.375 * (double)i;
        r.y.resize((size_t)n_out);
        l->evaluate(x.data(), r.y.data());
        if (n_out == 1 && !draws_random(l)) {
            double v = l->evaluateM_R(x.data());
            if (!same_bits_or_both_nan(v, r.y[0]))
                fail("the scalar evaluation disagrees with the raw one", input);
        }
    } catch (const vorx_exception& e) {
        r.raised = true;
        r.code = e.code();
    }
    return r;
}

// The value or the error of f().
template <class F>
outcome attempt(F f) {
    outcome r;
    try {
        r.y.push_back(f());
    } catch (const vorx_exception& e) {
        r.raised = true;
        r.code = e.code();
    }
    return r;
}

// a within `rel` of b relative to 1 + |b| (tests/test_compile.cpp bounds the rewrites by
// 1e-12, the batch's vector functions by 1e-14); two non-finite values agree.
bool within(double a, double b, double rel) {
    if (!std::isfinite(a) || !std::isfinite(b)) return !std::isfinite(a) && !std::isfinite(b);
    return a == b || std::fabs(a - b) <= rel * (1.0 + std::fabs(b));
}

// Those bounds are for a rewritten step (a few ulp of the step); the law carries such an
// error on, amplified as much as it amplifies.  A law holds to them where it does not
// amplify: where inputs moved by `nudge` relative move the tree's value v within `rel`.
bool steady(const law* l, int p, double v, double nudge, double rel) {
    double x[max_inputs + 1];
    for (double f : {1.0 + nudge, 1.0 - nudge}) {
        for (int i = 0; i < l->take_dim(); ++i) x[i] = (sample_points[p] + 0.375 * (double)i) * f;
        outcome o = attempt([&] { return l->evaluateM_R(x); });
        if (o.raised || !within(o.y[0], v, rel)) return false;
    }
    return true;
}

// With rewrites a whole power is a chain of products, rounded otherwise than the tree's.
// Where its base does not move with the inputs (FLOOR(X)+PI at 0.5), nudging the inputs
// cannot see how much a function of that power amplifies it (SIN((FLOOR(X)+PI)^42)).
bool flat_chain_power(const law* l, int p, double nudge) {
    return any_node(l, [&](const law* n) {
        if (!n->isa(exponent_law::id())) return false;
        const binary_law* b = static_cast<const binary_law*>(n);
        if (!b->fright()->isa(constant_law::id())) return false;
        double k = static_cast<const constant_law*>(b->fright())->value();
        if (k != std::floor(k) || (k < 3.0 && k > -1.0)) return false;
        double base[3];
        for (int j = 0; j < 3; ++j) {
            double f = j == 0 ? 1.0 : j == 1 ? 1.0 + nudge : 1.0 - nudge, x[max_inputs + 1];
            for (int i = 0; i < l->take_dim(); ++i)
                x[i] = (sample_points[p] + 0.375 * (double)i) * f;
            outcome o = attempt([&] { return b->fleft()->evaluateM_R(x); });
            if (o.raised) return false;
            base[j] = o.y[0];
        }
        return same_bits_or_both_nan(base[0], base[1]) && same_bits_or_both_nan(base[0], base[2]);
    });
}

// The classes a batch with rewrites may take from a vector library, a few ulp off the
// scalar functions; elsewhere a lane is a single point, bit for bit.
bool vector_functions(const law* l) {
    return any_node(l, [](const law* n) {
        return n->isa(sin_law::id()) || n->isa(cos_law::id()) || n->isa(exp_law::id()) ||
               n->isa(natural_log_law::id()) || n->isa(sinh_law::id()) || n->isa(cosh_law::id());
    });
}

// The contract of one program at the sample points, against the tree's outcomes.
void check_program(const law* l, int mode, const outcome* tree, const char* input) {
    int n = l->take_dim();
    bool exact = mode == law_program::exact;
    law_program* made = nullptr;
    try {
        made = VORX_NEW law_program(l, mode);
    } catch (const vorx_exception&) {
        fail("the law does not compile", input);
    }
    std::unique_ptr<law_program> held(made);
    const law_program& prog = *made;
    // The same program on the interpreter: the machine code's values and codes, bit for bit.
    law_program interpreted(l, mode | law_program::interpreted);
    // A batch of the points over and over, across a block edge into a short tail.
    constexpr int lanes = 133;
    std::vector<double> xs((size_t)(n > 0 ? n : 1) * lanes), ys(lanes);
    std::vector<int> codes(lanes);
    std::vector<const double*> rows((size_t)(n > 0 ? n : 1));
    for (int i = 0; i < n; ++i) {
        rows[(size_t)i] = xs.data() + (size_t)i * lanes;
        for (int k = 0; k < lanes; ++k)
            xs[(size_t)i * lanes + k] = sample_points[k % sample_count] + 0.375 * (double)i;
    }
    prog.evaluate_batch(lanes, rows.data(), ys.data(), codes.data());
    outcome single[sample_count];
    for (int p = 0; p < sample_count; ++p) {
        double x[max_inputs + 1], grad[max_inputs + 1];
        for (int i = 0; i < n; ++i) x[i] = sample_points[p] + 0.375 * (double)i;
        const outcome& t = tree[p];
        outcome& o = single[p] = attempt([&] { return prog.evaluate(x); });
        if (o.raised != t.raised || o.code != t.code)
            fail(exact ? "the exact program raises otherwise than the tree"
                       : "the rewriting program raises otherwise than the tree",
                 input);
        if (!t.raised &&
            (exact ? !same_bits_or_both_nan(o.y[0], t.y[0])
                   : !within(o.y[0], t.y[0], 1e-12) && steady(l, p, t.y[0], 0x1p-46, 1e-12) &&
                         !flat_chain_power(l, p, 0x1p-46)))
            fail(exact ? "the exact program's value is not the tree's"
                       : "the rewriting program's value is off the tree's",
                 input);
        outcome in = attempt([&] { return interpreted.evaluate(x); });
        if (in.raised != o.raised || in.code != o.code ||
            (!o.raised && !same_bits_or_both_nan(in.y[0], o.y[0])))
            fail("the machine code is not the interpreter", input);
        outcome g = attempt([&] { return prog.evaluate_with_gradient(x, grad); });
        if (g.raised != o.raised || g.code != o.code ||
            (!o.raised && !same_bits_or_both_nan(g.y[0], o.y[0])))
            fail("the gradient pass's value is not evaluate's", input);
    }
    bool vector = !exact && vector_functions(l);
    for (int k = 0; k < lanes; ++k) {
        int p = k % sample_count;
        const outcome& o = single[p];
        double y = ys[(size_t)k];
        bool same = o.raised ? codes[(size_t)k] == o.code && std::isnan(y)
                             : codes[(size_t)k] == 0 &&
                                   (same_bits_or_both_nan(y, o.y[0]) ||
                                    (vector && (within(y, o.y[0], 1e-14) ||
                                                !steady(l, p, o.y[0], 0x1p-50, 1e-14))));
        if (!same) fail("a batch point is not the single point", input);
    }
}

// Both programs of a scalar law that draws no random numbers.
void check_programs(const law* l, const char* input) {
    if (l->return_dim() != 1 || l->take_dim() > max_inputs || draws_random(l)) return;
    law_tiering_off pure_tree;  // against the tree itself, not its own compiled form
    outcome tree[sample_count];
    for (int p = 0; p < sample_count; ++p) tree[p] = evaluate_at(l, p, input);
    check_program(l, law_program::exact, tree, input);
    check_program(l, law_program::rewrite, tree, input);
}

// The printed text must read back to a law that prints the very same text; when the
// two trees are identical they must also be equal and evaluate alike, errors included.
void check_read_back(const law* l, const char* input, const char* printed) {
    law_holder back;
    try {
        output_capture quiet;
        back.reset(str_to_law(printed));
    } catch (const vorx_exception&) {
        fail("the printed text raises when read back", input, printed);
    }
    if (!back) fail("the printed text does not read back", input, printed);
    lib_text reprinted(back->string(law_symbol_default));
    if (std::strcmp(printed, reprinted.get()) != 0)
        fail("the printed text reads back to a law that prints differently", input, printed);

    if (!identical_trees(l, back.get())) return;
    if (!(*back == *l)) fail("the law read back is not equal to the law", input, printed);
    if (draws_random(l)) return;
    for (int p = 0; p < sample_count; ++p) {
        outcome a = evaluate_at(l, p, input);
        outcome b = evaluate_at(back.get(), p, input);
        bool same = a.raised == b.raised && a.code == b.code && a.y.size() == b.y.size();
        for (size_t i = 0; same && i < a.y.size(); ++i)
            same = same_bits_or_both_nan(a.y[i], b.y[i]);
        if (!same) fail("the law read back evaluates differently", input, printed);
    }
}

void check_law(const law* l, const char* input) {
    lib_text printed(l->string(law_symbol_default));
    lib_text maple(l->string(law_symbol_maple));
    if (!known_not_to_read_back(printed.get())) check_read_back(l, input, printed.get());

    for (int p = 0; p < sample_count; ++p) evaluate_at(l, p, input);
    check_programs(l, input);
    try {
        law_holder d(l->derivative(0));
        if (d) {
            evaluate_at(d.get(), 0, input);
            check_programs(d.get(), input);
        }
    } catch (const vorx_exception&) {
        // Some classes have no derivative (LAW_DERIV); a derivative may also be refused
        // for the shape of its law.
    }
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    initialize_law();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static char text[max_text + 1];
    if (size > max_text) size = max_text;
    std::memcpy(text, data, size);
    text[size] = '\0';

    int laws_before = law::how_many_laws;
    long blocks_before = vorx_live_allocations();
    {
        // Whatever the library prints about this input is collected, not shown.
        output_capture said;
        law_holder l;
        bool raised = false;
        try {
            l.reset(str_to_law(text));
        } catch (const vorx_exception&) {
            raised = true;  // a construction error such as STEP(X,1)
        }
        // Null only with the reader's message, or for a text naming NULL.
        if (!l && !raised && !names_null(text) &&
            !starts_with(said.text(), "Error bad syntax at ") &&
            !starts_with(said.text(), "Error law "))
            fail("null without the reader's message", text, said.text());
        if (l) check_law(l.get(), text);
    }
    if (law::how_many_laws != laws_before) fail("laws leaked", text);
    if (vorx_live_allocations() != blocks_before) fail("tracked blocks leaked", text);
    return 0;
}
