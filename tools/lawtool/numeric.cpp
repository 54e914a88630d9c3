// lawtool roots, extrema and integrate: thin front ends over the library's root finders
// and integrators.  Each prints a short text for people and, with --json, one JSON object
// for scripts; a search that finds nothing is an answer (exit 0), not a failure.
#include "tools/lawtool/numeric.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "base/errors.hpp"
#include "base/memory.hpp"
#include "lawutil/global_names.hpp"
#include "lawutil/integrate.hpp"
#include "lawutil/root.hpp"
#include "lawutil/root_all.hpp"
#include "tools/lawtool/commands.hpp"
#include "tools/lawtool/law_text.hpp"
#include "tools/lawtool/numbers.hpp"

law* read_scalar_law(const std::string& text) {
    law_holder l(read_law_text(text));
    if (l->take_dim() > 1 || l->return_dim() != 1)
        throw usage_error("the law must take one input and return one output; '" + text +
                          "' takes " + std::to_string(l->take_dim()) + " and returns " +
                          std::to_string(l->return_dim()));
    return l.release();
}

double parse_end(const std::string& text, const char* which) {
    std::vector<double> p = parse_point(text);
    if (p.size() != 1 || !std::isfinite(p[0]))
        throw usage_error(std::string(which) + " must be one finite number, not '" + text + "'");
    return p[0];
}

double value_or_nan(const law* f, double x) {
    double in[1] = {x};
    double out[1] = {std::nan("")};
    try {
        f->evaluate(in, out);
    } catch (const vorx_exception&) {
        return std::nan("");
    }
    return std::isfinite(out[0]) ? out[0] : std::nan("");
}

std::vector<extremum> local_extrema(law* f, double a, double b, int* evaluations) {
    law_holder d(f->derivative(0));
    std::vector<extremum> found;
    if (!d) return found;
    root_search_info info;
    int n = 0;
    classified_root* r = Nroot_classified(d.get(), a, b, &n, &info);
    if (evaluations) *evaluations = info.evaluations;
    // The sign of f' is read this far on each side: far enough to leave the rounding noise
    // of a simple root, near enough not to reach the next critical point.
    double h = 1e-7 * std::max(1.0, std::fabs(b - a));
    for (int i = 0; i < n; ++i) {
        const classified_root& c = r[i];
        if (c.kind == root_everywhere || c.kind == root_even_multiple) continue;
        double v = value_or_nan(f, c.x);
        double left = value_or_nan(d.get(), c.x - h);
        double right = value_or_nan(d.get(), c.x + h);
        if (std::isnan(v) || std::isnan(left) || std::isnan(right)) continue;
        if (left > 0 && right < 0) found.push_back({c.x, v, true});
        if (left < 0 && right > 0) found.push_back({c.x, v, false});
    }
    VORX_FREE(r);
    return found;
}

std::string json_string(const std::string& s) {
    std::string out = "\"";
    for (char c : s) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
    }
    return out + "\"";
}

std::string json_number(double v) {
    return std::isfinite(v) ? format_number(v) : "null";
}

namespace {

void put_line(const tool_streams& io, const std::string& line) {
    std::fputs(line.c_str(), io.out);
    std::fputc('\n', io.out);
}

// The head of every JSON answer: the law as read and the interval.
std::string json_head(const law* f, double a, double b) {
    return "{\"law\":" + json_string(law_text(f)) + ",\"a\":" + json_number(a) +
           ",\"b\":" + json_number(b);
}

}  // namespace

void run_roots(const roots_options& o, const tool_streams& io) {
    law_holder f(read_scalar_law(o.law));
    double a = parse_end(o.a, "A"), b = parse_end(o.b, "B");
    if (o.prescribed) {
        int n = 0;
        double* r = Nroot(f.get(), a, b, &n);
        std::vector<double> roots(r, r + (r ? n : 0));
        VORX_FREE(r);
        if (o.json) {
            std::string s = json_head(f.get(), a, b) + ",\"roots\":[";
            for (size_t i = 0; i < roots.size(); ++i) s += (i ? "," : "") + json_number(roots[i]);
            put_line(io, s + "],\"evaluations\":" + std::to_string(last_nroot_stats().evaluations) +
                             "}");
        } else {
            for (double x : roots) put_line(io, format_number(x));
        }
        return;
    }
    root_search_info info;
    int n = 0;
    classified_root* r = Nroot_classified(f.get(), a, b, &n, &info, o.max_evaluations);
    std::vector<classified_root> found(r, r + (r ? n : 0));
    VORX_FREE(r);
    if (o.json) {
        std::string s = json_head(f.get(), a, b) + ",\"roots\":[";
        for (size_t i = 0; i < found.size(); ++i) {
            const classified_root& c = found[i];
            s += std::string(i ? "," : "") + "{\"x\":" + json_number(c.x);
            if (c.kind == root_everywhere) s += ",\"x_end\":" + json_number(c.x_end);
            s += ",\"kind\":" + json_string(root_kind_name(c.kind)) +
                 ",\"multiplicity\":" + std::to_string(c.multiplicity) +
                 ",\"is_root\":" + (is_root_kind(c.kind) ? "true" : "false") + "}";
        }
        put_line(io, s + "],\"evaluations\":" + std::to_string(info.evaluations) +
                         ",\"pieces\":" + std::to_string(info.pieces) +
                         ",\"unresolved\":" + std::to_string(info.unresolved) + "}");
        return;
    }
    for (const classified_root& c : found) {
        std::string line = format_number(c.x) + " " + root_kind_name(c.kind);
        if (c.kind == root_everywhere) line += " to " + format_number(c.x_end);
        if (c.multiplicity > 1)
            line += " (multiplicity " + std::string(c.multiplicity > 3 ? "4 or more" : "") +
                    (c.multiplicity > 3 ? "" : std::to_string(c.multiplicity)) + ")";
        put_line(io, line);
    }
    if (info.unresolved > 0)
        std::fprintf(io.err,
                     "lawtool roots: warning: %d piece%s not resolved, checked by sign only "
                     "(raise --max-evaluations)\n",
                     info.unresolved, info.unresolved == 1 ? "" : "s");
}

void run_extrema(const extrema_options& o, const tool_streams& io) {
    law_holder f(read_scalar_law(o.law));
    double a = parse_end(o.a, "A"), b = parse_end(o.b, "B");
    if (a > b) std::swap(a, b);
    if (o.prescribed) {
        // The library's Nmax and Nmin: positions only, the largest and smallest value.
        double hi = Nmax(f.get(), a, b), lo = Nmin(f.get(), a, b);
        double vhi = value_or_nan(f.get(), hi), vlo = value_or_nan(f.get(), lo);
        if (o.json)
            put_line(io, json_head(f.get(), a, b) + ",\"max\":{\"x\":" + json_number(hi) +
                             ",\"value\":" + json_number(vhi) + "},\"min\":{\"x\":" +
                             json_number(lo) + ",\"value\":" + json_number(vlo) + "}}");
        else {
            put_line(io, "max at " + format_number(hi) + ": " + format_number(vhi));
            put_line(io, "min at " + format_number(lo) + ": " + format_number(vlo));
        }
        return;
    }
    int evaluations = 0;
    std::vector<extremum> local = local_extrema(f.get(), a, b, &evaluations);
    // The global ones: the best of the ends and the local extrema, the first on a tie.
    std::vector<extremum> candidates = {{a, value_or_nan(f.get(), a), false}};
    for (const extremum& e : local) candidates.push_back(e);
    candidates.push_back({b, value_or_nan(f.get(), b), false});
    const extremum* top = nullptr;
    const extremum* bottom = nullptr;
    for (const extremum& c : candidates) {
        if (std::isnan(c.value)) continue;
        if (!top || c.value > top->value) top = &c;
        if (!bottom || c.value < bottom->value) bottom = &c;
    }
    if (o.json) {
        std::string s = json_head(f.get(), a, b) + ",\"local\":[";
        for (size_t i = 0; i < local.size(); ++i)
            s += std::string(i ? "," : "") + "{\"x\":" + json_number(local[i].x) +
                 ",\"value\":" + json_number(local[i].value) +
                 ",\"kind\":" + (local[i].maximum ? "\"max\"" : "\"min\"") + "}";
        auto global = [](const extremum* e) {
            return e ? "{\"x\":" + json_number(e->x) + ",\"value\":" + json_number(e->value) + "}"
                     : std::string("null");
        };
        put_line(io, s + "],\"max\":" + global(top) + ",\"min\":" + global(bottom) +
                         ",\"evaluations\":" + std::to_string(evaluations) + "}");
        return;
    }
    for (const extremum& e : local)
        put_line(io, std::string(e.maximum ? "local max" : "local min") + " at " +
                         format_number(e.x) + ": " + format_number(e.value));
    if (top)
        put_line(io, "global max at " + format_number(top->x) + ": " + format_number(top->value));
    if (bottom)
        put_line(io,
                 "global min at " + format_number(bottom->x) + ": " + format_number(bottom->value));
    // Sampled ends only: a pole inside the interval makes the true bounds infinite.
    if (!top)
        std::fputs("lawtool extrema: the law has no finite value at the candidates\n", io.err);
}

void run_integrate(const integrate_options_cli& o, const tool_streams& io) {
    law_holder f(read_scalar_law(o.law));
    double a = parse_end(o.a, "A"), b = parse_end(o.b, "B");
    if (o.romberg) {
        double value = 0.0;
        int levels = Nintegrate(f.get(), a, b, &value, std::max(o.abs_tol, o.rel_tol), 0);
        if (o.json) {
            put_line(io, json_head(f.get(), a, b) + ",\"value\":" + json_number(value) +
                             ",\"levels\":" + std::to_string(levels) +
                             ",\"converged\":" + (levels > 0 ? "true" : "false") + "}");
        } else {
            put_line(io, "value: " + format_number(value));
            put_line(io, "levels: " + std::to_string(levels) +
                             (levels > 0 ? "" : " (not converged in 10 levels)"));
        }
        return;
    }
    integrate_options opts;
    opts.rel_tol = o.rel_tol;
    opts.abs_tol = o.abs_tol;
    opts.max_evaluations = o.max_evaluations;
    integrate_result r = Nintegrate_adaptive(f.get(), a, b, opts);
    const char* status = integrate_status_name(r.status);
    char error[32];
    std::snprintf(error, sizeof error, "%.2e", r.error);
    if (o.json) {
        put_line(io, json_head(f.get(), a, b) + ",\"value\":" + json_number(r.value) +
                         ",\"error\":" + error + ",\"evaluations\":" +
                         std::to_string(r.evaluations) + ",\"pieces\":" + std::to_string(r.pieces) +
                         ",\"status\":" + json_string(status) + "}");
        return;
    }
    put_line(io, "value: " + format_number(r.value));
    put_line(io, std::string("error: ") + error);
    put_line(io, "evaluations: " + std::to_string(r.evaluations));
    put_line(io, std::string("status: ") + status);
    if (r.status != integrate_converged)
        std::fprintf(io.err,
                     "lawtool integrate: warning: stopped at the %s; the error estimate "
                     "exceeds the tolerance\n",
                     status);
}
