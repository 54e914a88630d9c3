#include "tools/lawtool/commands.hpp"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <exception>
#include <stdexcept>

#include "base/errors.hpp"
#include "base/output.hpp"
#include "lawutil/compile.hpp"
#include "lawutil/global_names.hpp"
#include "lawutil/law_base.hpp"
#include "lawutil/simplfy.hpp"
#include "tools/lawtool/law_text.hpp"
#include "tools/lawtool/numbers.hpp"
#include "tools/lawtool/tree.hpp"

namespace {

void put_line(const tool_streams& io, const std::string& line) {
    std::fputs(line.c_str(), io.out);
    std::fputc('\n', io.out);
}

std::string plural(size_t n, const char* word) {
    return std::to_string(n) + " " + word + (n == 1 ? "" : "s");
}

std::string joined(const std::vector<std::string>& names, const char* separator) {
    std::string s;
    for (size_t i = 0; i < names.size(); ++i) s += (i ? separator : "") + names[i];
    return s;
}

// The names of the law's inputs, "X,Y", shortened to "X,Y,Z,...,X300" past six.
std::string input_list(const law* l) {
    std::vector<std::string> names = input_names(l);
    if (names.size() > 6) {
        names.erase(names.begin() + 4, names.end() - 1);
        names[3] = "...";
    }
    return joined(names, ",");
}

// "1 input (X)", "2 inputs (X,Y)", "no inputs".
std::string inputs_phrase(const law* l) {
    int n = l->take_dim();
    if (n == 0) return "no inputs";
    return plural((size_t)n, "input") + " (" + input_list(l) + ")";
}

// A POINT fits a law that takes exactly as many inputs; a law of no inputs also takes a
// point of one coordinate, since a constant is also a law of X.  A point with missing or
// surplus coordinates is refused rather than padded: a silent 0 would hide the mistake.
void check_point(const law* l, const std::vector<double>& point, const std::string& text) {
    size_t n = (size_t)l->take_dim();
    if (point.size() == n || (n == 0 && point.size() == 1)) return;
    throw usage_error("POINT '" + text + "' has " + plural(point.size(), "coordinate") +
                      ", but the law takes " + inputs_phrase(l));
}

// The law's outputs at `point` (which check_point has accepted, or which may be longer
// than the law needs).
std::vector<double> evaluate_at(const law* l, std::vector<double> point) {
    point.resize(std::max<size_t>(point.size(), (size_t)std::max(l->take_dim(), 1)), 0.0);
    int m = l->return_dim();
    std::vector<double> y((size_t)std::max(m, 1), 0.0);
    l->evaluate(point.data(), y.data());
    y.resize((size_t)std::max(m, 0));
    return y;
}

std::vector<std::string> output_names(const law* l) {
    int m = l->return_dim();
    if (m == 1) return {"F"};
    std::vector<std::string> names;
    for (int i = 1; i <= m; ++i) names.push_back("F" + std::to_string(i));
    return names;
}

void eval_range(const law* l, const std::string& text, const tool_streams& io) {
    point_range r = parse_range(text);
    check_point(l, r.from, text.substr(0, text.find(':')));
    std::vector<std::string> header = input_names(l);
    for (const std::string& f : output_names(l)) header.push_back(f);
    put_line(io, joined(header, ","));
    // A long range of a scalar law compiles it (exact: the tree's values and errors).
    law_evaluator scalar(l);
    for (long i = 0; i < r.count; ++i) {
        std::vector<double> p = r.at(i);
        std::vector<double> row = p;
        // A point where the law raises an error gets nan and a note; the range goes on,
        // since one bad point must not cost the rest of the table.
        try {
            if (l->return_dim() == 1) {
                std::vector<double> x = p;
                x.resize(std::max<size_t>(x.size(), (size_t)std::max(l->take_dim(), 1)), 0.0);
                row.push_back(scalar.evaluate(x.data()));
            } else
                for (double v : evaluate_at(l, p)) row.push_back(v);
        } catch (const vorx_exception& e) {
            row.resize(p.size() + (size_t)std::max(l->return_dim(), 0), std::nan(""));
            std::fputs(("lawtool: nan at " + format_values(p, ",") + ": " + e.code_name() + ": " +
                        e.what() + "\n")
                           .c_str(),
                       io.err);
        }
        put_line(io, format_values(row, ","));
    }
}

}  // namespace

void run_eval(const eval_options& o, const tool_streams& io) {
    if (!o.range.empty() && !o.points.empty())
        throw usage_error("give POINTs or --range, not both");
    law_holder l(read_law_text(o.law));
    if (!o.range.empty()) return eval_range(l.get(), o.range, io);
    if (o.points.empty()) {
        if (l->take_dim() > 0)
            throw usage_error("no POINT given; the law takes " + inputs_phrase(l.get()));
        put_line(io, format_values(evaluate_at(l.get(), {}), " "));
        return;
    }
    // Every POINT is read before the first value is printed, so a mistyped point does
    // not leave half a result behind.
    std::vector<std::vector<double>> points;
    for (const std::string& text : o.points) {
        points.push_back(parse_point(text));
        check_point(l.get(), points.back(), text);
    }
    for (const std::vector<double>& p : points)
        put_line(io, format_values(evaluate_at(l.get(), p), " "));
}

namespace {

// What in a Maple text Maple cannot read, or "" when nothing: the library's no_maple(...)
// for a law without a Maple spelling, an indexed name applied without parentheses
// (log[2]X, mod[2]X) and a name with '?' (prime?(X)).
std::string maple_fault(const std::string& text) {
    size_t at = text.find("no_maple");
    if (at != std::string::npos) return "no_maple(...), a law that has no Maple spelling";
    for (size_t i = 0; i + 1 < text.size(); ++i) {
        char next = text[i + 1];
        if (text[i] == ']' && (std::isalnum((unsigned char)next) || next == '.'))
            return "an indexed function applied without parentheses";
        if (text[i] == '?' && next == '(') return "a name with '?'";
    }
    return "";
}

}  // namespace

void run_print(const print_options& o, const tool_streams& io) {
    law_holder l(read_law_text(o.law));
    std::string text = law_text(l.get(), o.maple ? law_symbol_maple : law_symbol_default);
    put_line(io, text);
    std::string fault = o.maple ? maple_fault(text) : "";
    if (!fault.empty() && !o.force)
        throw std::runtime_error("warning: Maple cannot read this text (it holds " + fault +
                                 "); --force accepts it");
}

void run_simplify(const simplify_options& o, const tool_streams& io) {
    law_holder l(read_law_text(o.law));
    law_holder s;
    std::string trace;
    std::exception_ptr failure;
    {
        output_capture capture;
        try {
            s.reset(law_simplify(l.get(), o.level, o.trace));
        } catch (...) {
            failure = std::current_exception();
        }
        trace = capture.text();
    }
    // The trace is shown also when simplifying fails: it tells where the error arose.
    if (o.trace > 0)
        std::fputs(trace.c_str(), io.out);
    else if (!trace.empty())
        vorx_printf("%s", trace.c_str());  // unasked for: the caller shows it as a note
    if (failure) std::rethrow_exception(failure);
    put_line(io, law_text(s.get()));
}

void run_diff(const diff_options& o, const tool_streams& io) {
    int which = parse_variable(o.var);
    law_holder l(read_law_text(o.law));
    std::vector<double> point;
    if (!o.at.empty()) {
        point = parse_point(o.at);
        check_point(l.get(), point, o.at);
    }
    law_holder d = law_holder::share(l.get());
    for (int k = 0; k < o.order; ++k) d.reset(d->derivative(which));
    // The value is found before anything is printed, so an error leaves no half result.
    std::string value = o.at.empty() ? "" : format_values(evaluate_at(d.get(), point), " ");
    put_line(io, law_text(d.get()));
    if (!o.at.empty()) put_line(io, value);
}

void run_info(const info_options& o, const tool_streams& io) {
    law_holder l(read_law_text(o.law));
    auto yes_no = [](int b) { return std::string(b ? "yes" : "no"); };
    // Labels padded to one width so the values line up.
    std::vector<std::pair<std::string, std::string>> rows = {
        {"law", law_text(l.get())},
        {"inputs", std::to_string(l->take_dim()) +
                       (l->take_dim() > 0 ? " (" + input_list(l.get()) + ")" : "")},
        {"outputs", std::to_string(l->return_dim())},
        {"constant", yes_no(l->constant())},
        {"linear", yes_no(l->linear())},
        {"zero", yes_no(l->zero())},
        {"nodes", std::to_string(count_nodes(l.get()))},
    };
    size_t width = 0;
    for (const auto& r : rows) width = std::max(width, r.first.size());
    for (const auto& r : rows)
        put_line(io, r.first + ":" + std::string(width + 2 - r.first.size(), ' ') + r.second);
    put_line(io, "tree:");
    std::string tree = draw_tree(l.get());
    for (size_t from = 0; from < tree.size();) {
        size_t end = tree.find('\n', from);
        put_line(io, "  " + tree.substr(from, end - from));
        from = end + 1;
    }
}
