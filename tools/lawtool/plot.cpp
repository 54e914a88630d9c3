// lawtool plot: an SVG plot of a law of one input, written without external tools.
//
// Sampling.  [A, B] is cut at the singular points the law reports (poles and jumps become
// breaks, kinks become exact sample points), each piece gets a uniform grid of 128 steps
// (fewer when there are more than four pieces: 512 in all, at least 2 each), and each step is
// halved while its midpoint lies more than a quarter pixel off the chord (to 16 halvings, 20,000
// evaluations in all).  The curve is broken where the law has no finite value (it raises, or is
// infinite or NaN) and where a step at the finest width still jumps by more than 4 pixels: a pole
// or a jump the law does not report itself.
//
// View.  The y range is that of the grid's finite values with the outer 2% on each side
// trimmed away when they lie far out (a pole would flatten everything else), then padded
// by 5%.  Points beyond the view are clamped one plot height past its edge, so the curve
// leaves the frame in the right direction, and the curve is clipped to the frame.
//
// Ticks are 1, 2 or 5 times a power of ten, about six per axis.  Every coordinate is
// printed with two decimals in the C locale, so the file is the same on every run.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "base/errors.hpp"
#include "base/memory.hpp"
#include "lawutil/global_names.hpp"
#include "lawutil/root_all.hpp"
#include "tools/lawtool/commands.hpp"
#include "tools/lawtool/law_text.hpp"
#include "tools/lawtool/numbers.hpp"
#include "tools/lawtool/numeric.hpp"

namespace {

const int grid_steps = 128;
const int max_halvings = 16;
const int max_evaluations = 20000;

struct sample {
    double x;
    double y;           // NaN where the law has no finite value
    bool break_before;  // no line from the previous sample
};

// Where data coordinates land on the page.
struct frame {
    double left, top, width, height;
    double x0, x1, y0, y1;
    double px(double x) const { return left + (x - x0) / (x1 - x0) * width; }
    double py(double y) const {
        double p = top + (y1 - y) / (y1 - y0) * height;
        return std::min(std::max(p, top - height), top + 2 * height);
    }
};

std::string fixed(double v, int decimals) {
    char buf[48];
    std::snprintf(buf, sizeof buf, "%.*f", decimals, v);
    std::string s = buf;
    if (s.find_first_not_of("-0.") == std::string::npos) s = s.substr(s[0] == '-' ? 1 : 0);
    return s;
}

std::string xml_escaped(const std::string& s) {
    std::string out;
    for (char c : s) {
        if (c == '&')
            out += "&amp;";
        else if (c == '<')
            out += "&lt;";
        else if (c == '>')
            out += "&gt;";
        else if (c == '"')
            out += "&quot;";
        else
            out += c;
    }
    return out;
}

// 1, 2 or 5 times a power of ten, giving about `target` steps over [lo, hi].
double nice_step(double lo, double hi, int target) {
    double raw = (hi - lo) / target;
    double magnitude = std::pow(10.0, std::floor(std::log10(raw)));
    double norm = raw / magnitude;
    double m = norm < 1.5 ? 1 : norm < 3 ? 2 : norm < 7 ? 5 : 10;
    return m * magnitude;
}

std::vector<double> ticks(double lo, double hi, double step) {
    std::vector<double> t;
    for (double k = std::ceil(lo / step - 1e-9); k * step <= hi + 1e-9 * step; k += 1)
        t.push_back(std::fabs(k) < 0.5 ? 0.0 : k * step);
    return t;
}

int tick_decimals(double step) {
    return std::max(0, (int)-std::floor(std::log10(step) + 1e-9));
}

class sampler {
  public:
    sampler(const law* f) : f_(f) {}

    double at(double x) {
        ++evaluations;
        return value_or_nan(f_, x);
    }

    // Halves [s0, s1] while its midpoint is off the chord by more than a quarter pixel,
    // appending the samples after s0 (s1 included) to `out`.
    void refine(const sample& s0, const sample& s1, const frame& fr, int depth,
                std::vector<sample>& out) {
        bool finite0 = !std::isnan(s0.y), finite1 = !std::isnan(s1.y);
        if (depth >= max_halvings || evaluations >= max_evaluations) {
            // Finest width: a step that still jumps is a pole or a jump.
            bool jump = finite0 && finite1 && std::fabs(fr.py(s1.y) - fr.py(s0.y)) > 4.0 &&
                        depth >= max_halvings;
            out.push_back({s1.x, s1.y, jump || s1.break_before});
            return;
        }
        double xm = 0.5 * (s0.x + s1.x);
        sample m{xm, at(xm), false};
        bool flat = finite0 && finite1 && !std::isnan(m.y) &&
                    std::fabs(fr.py(m.y) - 0.5 * (fr.py(s0.y) + fr.py(s1.y))) <= 0.25;
        if (!finite0 && !finite1 && std::isnan(m.y)) flat = true;  // nothing to draw
        if (flat && depth > 0) {
            out.push_back(m);
            out.push_back(s1);
            return;
        }
        refine(s0, m, fr, depth + 1, out);
        refine(m, s1, fr, depth + 1, out);
    }

    int evaluations = 0;

  private:
    const law* f_;
};

// The pieces' ends from the law's singular points, then a uniform grid on each; a cut
// end is pulled inward by a billionth of [a, b] so the pole itself is not sampled.
std::vector<sample> grid_samples(const law* f, double a, double b, sampler& s) {
    std::vector<sample> grid;
    double* where = nullptr;
    int* kind = nullptr;
    double* period = nullptr;
    int n = 0;
    try {
        n = f->singularities(&where, &kind, a, b, &period);
    } catch (const vorx_exception&) {
        n = 0;
    }
    std::vector<std::pair<double, bool>> ends = {{a, false}};  // (x, is a cut)
    for (int i = 0; i < n && where && kind; ++i)
        if (where[i] > a && where[i] < b) ends.push_back({where[i], kind[i] != 1});
    VORX_FREE(where);
    VORX_FREE(kind);
    VORX_FREE(period);
    ends.push_back({b, false});
    std::sort(ends.begin(), ends.end());
    double nudge = 1e-9 * (b - a);
    // Many pieces share the grid, so a law with thousands of breaks stays bounded.
    int steps = std::max(2, std::min(grid_steps, 4 * grid_steps / (int)(ends.size() - 1)));
    for (size_t p = 0; p + 1 < ends.size(); ++p) {
        double lo = ends[p].first + (ends[p].second ? nudge : 0.0);
        double hi = ends[p + 1].first - (ends[p + 1].second ? nudge : 0.0);
        if (!(hi > lo)) continue;
        for (int i = 0; i <= steps; ++i) {
            if (i == 0 && p > 0 && !ends[p].second) continue;  // a kink: already there
            double x = i == steps ? hi : lo + (hi - lo) * i / steps;
            grid.push_back({x, s.at(x), i == 0 && p > 0});
        }
    }
    return grid;
}

// The y range of the grid: all finite values, unless the outer 2% lie far out.
bool view_range(const std::vector<sample>& grid, double& lo, double& hi) {
    std::vector<double> v;
    for (const sample& s : grid)
        if (!std::isnan(s.y)) v.push_back(s.y);
    if (v.empty()) return false;
    std::sort(v.begin(), v.end());
    size_t k = v.size() / 50;
    double qlo = v[k], qhi = v[v.size() - 1 - k];
    double spread = std::max(qhi - qlo, 1e-300);
    lo = std::max(v.front(), qlo - spread);
    hi = std::min(v.back(), qhi + spread);
    if (hi - lo <= 1e-12 * std::max(std::fabs(lo), std::fabs(hi))) {
        double pad = lo == 0 ? 1.0 : 0.1 * std::fabs(lo);
        lo -= pad;
        hi += pad;
    } else {
        double pad = 0.05 * (hi - lo);
        lo -= pad;
        hi += pad;
    }
    return true;
}

struct marker {
    double x, y;
    const char* what;  // "root", "max", "min"
};

std::string render(const frame& fr, const std::string& title, const std::vector<sample>& curve,
                   const std::vector<marker>& marks, int w, int h, int& polylines) {
    std::string s;
    auto add = [&](const std::string& line) { s += line + "\n"; };
    add("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" + std::to_string(w) + "\" height=\"" +
        std::to_string(h) + "\" viewBox=\"0 0 " + std::to_string(w) + " " + std::to_string(h) +
        "\" font-family=\"sans-serif\" font-size=\"11\">");
    add("<title>" + xml_escaped(title) + "</title>");
    add("<rect width=\"" + std::to_string(w) + "\" height=\"" + std::to_string(h) +
        "\" fill=\"white\"/>");
    std::string box = "x=\"" + fixed(fr.left, 2) + "\" y=\"" + fixed(fr.top, 2) + "\" width=\"" +
                      fixed(fr.width, 2) + "\" height=\"" + fixed(fr.height, 2) + "\"";
    add("<defs><clipPath id=\"frame\"><rect " + box + "/></clipPath></defs>");

    double bottom = fr.top + fr.height, right = fr.left + fr.width;
    double xstep = nice_step(fr.x0, fr.x1, 6), ystep = nice_step(fr.y0, fr.y1, 6);
    std::vector<double> xt = ticks(fr.x0, fr.x1, xstep), yt = ticks(fr.y0, fr.y1, ystep);
    add("<g stroke=\"#e0e0e0\">");
    for (double x : xt)
        add("<line x1=\"" + fixed(fr.px(x), 2) + "\" y1=\"" + fixed(fr.top, 2) + "\" x2=\"" +
            fixed(fr.px(x), 2) + "\" y2=\"" + fixed(bottom, 2) + "\"/>");
    for (double y : yt)
        add("<line x1=\"" + fixed(fr.left, 2) + "\" y1=\"" + fixed(fr.py(y), 2) + "\" x2=\"" +
            fixed(right, 2) + "\" y2=\"" + fixed(fr.py(y), 2) + "\"/>");
    add("</g>");
    // The axes through zero, where zero is in view.
    add("<g stroke=\"#808080\">");
    if (fr.y0 < 0 && fr.y1 > 0)
        add("<line x1=\"" + fixed(fr.left, 2) + "\" y1=\"" + fixed(fr.py(0), 2) + "\" x2=\"" +
            fixed(right, 2) + "\" y2=\"" + fixed(fr.py(0), 2) + "\"/>");
    if (fr.x0 < 0 && fr.x1 > 0)
        add("<line x1=\"" + fixed(fr.px(0), 2) + "\" y1=\"" + fixed(fr.top, 2) + "\" x2=\"" +
            fixed(fr.px(0), 2) + "\" y2=\"" + fixed(bottom, 2) + "\"/>");
    add("</g>");
    add("<rect " + box + " fill=\"none\" stroke=\"black\"/>");
    add("<g text-anchor=\"middle\">");
    for (double x : xt)
        add("<text x=\"" + fixed(fr.px(x), 2) + "\" y=\"" + fixed(bottom + 15, 2) + "\">" +
            fixed(x, tick_decimals(xstep)) + "</text>");
    add("</g>");
    add("<g text-anchor=\"end\">");
    for (double y : yt)
        add("<text x=\"" + fixed(fr.left - 5, 2) + "\" y=\"" + fixed(fr.py(y) + 4, 2) + "\">" +
            fixed(y, tick_decimals(ystep)) + "</text>");
    add("</g>");

    add("<g clip-path=\"url(#frame)\" fill=\"none\" stroke=\"#1f77b4\" stroke-width=\"1.5\">");
    polylines = 0;
    // Points in pixels; a point on the line through its neighbours (within a hundredth of
    // a pixel) is dropped, so straight stretches cost two points.
    std::vector<std::pair<double, double>> line;
    auto flush = [&]() {
        if (line.size() >= 2) {
            std::string points;
            for (size_t i = 0; i < line.size(); ++i)
                points += (i ? " " : "") + fixed(line[i].first, 2) + "," + fixed(line[i].second, 2);
            add("<polyline points=\"" + points + "\"/>");
            ++polylines;
        }
        line.clear();
    };
    for (const sample& c : curve) {
        if (c.break_before || std::isnan(c.y)) flush();
        if (std::isnan(c.y)) continue;
        std::pair<double, double> p{fr.px(c.x), fr.py(c.y)};
        size_t n = line.size();
        if (n >= 2) {
            double ax = line[n - 2].first, ay = line[n - 2].second;
            double dx = p.first - ax, dy = p.second - ay;
            double len = std::hypot(dx, dy);
            double off = std::fabs((line[n - 1].first - ax) * dy - (line[n - 1].second - ay) * dx);
            bool between = (line[n - 1].first - ax) * dx + (line[n - 1].second - ay) * dy >= 0;
            if (len > 0 && between && off <= 0.01 * len) line.pop_back();
        }
        line.push_back(p);
    }
    flush();
    add("</g>");

    for (const marker& m : marks) {
        if (m.y < fr.y0 || m.y > fr.y1) continue;
        const char* colour = m.what[0] == 'r' ? "#d62728" : "#2ca02c";
        add("<circle cx=\"" + fixed(fr.px(m.x), 2) + "\" cy=\"" + fixed(fr.py(m.y), 2) +
            "\" r=\"4\" fill=\"none\" stroke=\"" + colour + "\" stroke-width=\"1.5\"><title>" +
            m.what + " at " + format_number(m.x) + "</title></circle>");
    }
    add("<text x=\"" + fixed(fr.left, 2) + "\" y=\"" + fixed(fr.top - 8, 2) + "\">" +
        xml_escaped(title) + "</text>");
    add("</svg>");
    return s;
}

}  // namespace

void run_plot(const plot_options& o, const tool_streams& io) {
    if (o.output.empty()) throw usage_error("give the SVG file with -o FILE (- for stdout)");
    if (o.json && o.output == "-")
        throw usage_error("--json needs -o FILE: the SVG would mix with it");
    if (o.width < 200 || o.height < 150 || o.width > 10000 || o.height > 10000)
        throw usage_error("--size takes a width of 200 to 10000 and a height of 150 to 10000");
    law_holder f(read_scalar_law(o.law));
    double a = parse_end(o.a, "A"), b = parse_end(o.b, "B");
    if (a > b) std::swap(a, b);
    if (!(b > a)) throw usage_error("A and B must differ");

    sampler s(f.get());
    std::vector<sample> grid = grid_samples(f.get(), a, b, s);
    frame fr{60.0, 30.0, o.width - 80.0, o.height - 70.0, a, b, -1.0, 1.0};
    bool any = view_range(grid, fr.y0, fr.y1);
    std::vector<sample> curve;
    for (size_t i = 0; i < grid.size(); ++i) {
        if (i == 0 || grid[i].break_before)
            curve.push_back(grid[i]);
        else
            s.refine(grid[i - 1], grid[i], fr, 0, curve);
    }

    std::vector<marker> marks;
    if (o.roots) {
        int n = 0;
        classified_root* r = Nroot_classified(f.get(), a, b, &n);
        for (int i = 0; i < n && r; ++i)
            if (is_root_kind(r[i].kind)) marks.push_back({r[i].x, 0.0, "root"});
        VORX_FREE(r);
    }
    if (o.extrema)
        for (const extremum& e : local_extrema(f.get(), a, b, nullptr))
            marks.push_back({e.x, e.value, e.maximum ? "max" : "min"});

    int polylines = 0;
    std::string title = law_text(f.get());
    std::string svg = render(fr, title, curve, marks, o.width, o.height, polylines);
    if (o.output == "-") {
        std::fputs(svg.c_str(), io.out);
    } else {
        FILE* file = std::fopen(o.output.c_str(), "w");
        if (!file) throw std::runtime_error("cannot write '" + o.output + "'");
        bool ok = std::fputs(svg.c_str(), file) >= 0;
        ok = std::fclose(file) == 0 && ok;
        if (!ok) throw std::runtime_error("cannot write '" + o.output + "'");
    }
    if (!any) std::fputs("lawtool plot: warning: the law has no finite value on [A, B]\n", io.err);
    int breaks = polylines > 0 ? polylines - 1 : 0;
    if (o.json) {
        std::string m = "[";
        for (size_t i = 0; i < marks.size(); ++i)
            m += std::string(i ? "," : "") + "{\"x\":" + json_number(marks[i].x) +
                 ",\"y\":" + json_number(marks[i].y) + ",\"kind\":" + json_string(marks[i].what) +
                 "}";
        std::string out = "{\"file\":" + json_string(o.output) + ",\"law\":" + json_string(title) +
                          ",\"a\":" + json_number(a) + ",\"b\":" + json_number(b) +
                          ",\"y_view\":[" + json_number(fr.y0) + "," + json_number(fr.y1) +
                          "],\"samples\":" + std::to_string(s.evaluations) +
                          ",\"polylines\":" + std::to_string(polylines) +
                          ",\"breaks\":" + std::to_string(breaks) + ",\"marks\":" + m + "]}\n";
        std::fputs(out.c_str(), io.out);
    } else if (o.output != "-") {
        std::fprintf(io.out, "wrote %s: %d samples, %d polyline%s, %zu mark%s\n", o.output.c_str(),
                     s.evaluations, polylines, polylines == 1 ? "" : "s", marks.size(),
                     marks.size() == 1 ? "" : "s");
    }
}
