// Definite integrals, the integral law and antiderivatives.
//
// Design.  Romberg keeps exactly two rows alive, each in tracked memory owned by a small
// holder, so an error the integrand raises releases them on its way out; nothing outlives
// a call.  The adaptive routine keeps its intervals in a heap ordered by estimated error
// (tracked memory through vorx_std_allocator); an interval is either open (a Kronrod
// estimate that may be halved) or closed (a tanh-sinh estimate, or an interval too small
// to halve), and closed ones only add to the running totals.  Its work is bounded by
// max_evaluations: the bound is checked before every halving and every tanh-sinh node.
// Piece ends are probed at most once each.  Break points found in the law's tree are
// only hints: a spurious one costs one more piece, never accuracy, so the search stays
// simple (arguments linear in X, read through hasa, which also looks inside composite
// laws whose inner variable is not X).
//
// Compiled evaluation.  Once an adaptive integration has spent law_evaluator's
// compile_after evaluations (compiling costs a few hundred tree evaluations, so a short
// one never pays for it), a scalar law of X of two instructions or more is compiled in
// exact mode, so every value is the tree's, bit for bit, and each Kronrod rule's nodes go
// through it as one batch, in the order the tree path samples them.  The first failing
// node is evaluated again by the tree, which raises there as it would have without the
// program.  Tanh-sinh nodes and probes stay on the tree: they come one at a time.
#include "lawutil/integrate.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <vector>

#include "lawutil/compile.hpp"
#include "lawutil/law_logic.hpp"
#include "lawutil/law_unary.hpp"
#include "lawutil/law_util.hpp"
#include "lawutil/law_vector.hpp"
#include "lawutil/main_law_arith.hpp"

using namespace vorx;

namespace lawutil {

LAWUTIL_TYPE_DEF(integrate_law)

namespace {

template <class T>
using tracked_vector = std::vector<T, vorx_std_allocator<T>>;

constexpr int romberg_level_limit = 10;
constexpr int romberg_min_level_cap = 20;
constexpr double split_pull_in = 1e-14;

// One Romberg row in tracked memory, released when it goes (also when an error passes).
class romberg_row {
  public:
    explicit romberg_row(int n = 0) : v_(n ? VORX_ALLOC_ARRAY(double, n) : nullptr) {}
    ~romberg_row() { VORX_FREE(v_); }
    romberg_row(const romberg_row&) = delete;
    romberg_row& operator=(const romberg_row&) = delete;
    void swap(romberg_row& o) { std::swap(v_, o.v_); }
    double& operator[](int i) { return v_[i]; }

  private:
    double* v_;
};

// The derivative in X, or null when a part of the law has no symbolic derivative.
law* derivative_or_null(const law* l) {
    try {
        return l->derivative(0);
    } catch (const vorx_exception&) {
        return nullptr;
    }
}

void check_limits(double a, double b) {
    if (!std::isfinite(a) || !std::isfinite(b)) sys_error(LAW_BAD_BOUNDS);
}

// The Romberg iteration over sample(t), t in [a, b].
template <class F>
int romberg(F sample, double a, double b, double* answer, double tol, int min_level) {
    check_limits(a, b);
    if (min_level > romberg_min_level_cap) min_level = romberg_min_level_cap;
    double h = b - a;
    romberg_row prev(1);
    // T = (f(a) + f(b)) h / 2
    prev[0] = (sample(a) + sample(b)) * h / 2;
    int prev_len = 1;
    long n = 1;
    for (;;) {
        double s = 0.0;
        for (long i = 1; i <= n; ++i) s += sample(a + (i - 0.5) * h);
        int len = prev_len + 1;
        romberg_row row(len);
        // refined trapezoid (S h + T) / 2
        row[0] = (s * h + prev[0]) / 2;
        // entry j = (4^(j-1) N - O) / (4^(j-1) - 1)
        double p = 4.0;
        for (int j = 1; j < len; ++j, p *= 4.0) row[j] = (p * row[j - 1] - prev[j - 1]) / (p - 1);
        bool more =
            (std::fabs(row[len - 1] - prev[prev_len - 1]) > tol && len < romberg_level_limit) ||
            len <= min_level;
        h /= 2;
        n *= 2;
        prev.swap(row);  // the old row goes with `row`
        int before = prev_len;
        prev_len = len;
        if (!more) {
            *answer = prev[len - 1];
            return before == romberg_level_limit - 1 ? 0 : len;
        }
    }
}

}  // namespace

int Nintegrate(law* f, double a, double b, double* answer, double tol, int min_level) {
    return romberg([f](double t) { return f->eval(t); }, a, b, answer, tol, min_level);
}

int Nintegrate_wrt(law* f, double a, double b, int which, double* x, double* answer, double tol,
                   int min_level) {
    return romberg(
        [f, which, x](double t) {
            x[which] = t;
            return f->evaluateM_R(x);
        },
        a, b, answer, tol, min_level);
}

int Nintegrate_wrt_and_split(law* f, double a, double b, int which, double* x, double* answer,
                             int n_splits, double* splits, double tol, int min_level) {
    *answer = 0.0;
    int result = 0;
    if (n_splits < 0 || !splits) n_splits = 0;
    for (int k = 0; k <= n_splits; ++k) {
        double lo = (k == 0 ? a : splits[k - 1]) + split_pull_in;
        double hi = (k == n_splits ? b : splits[k]) - split_pull_in;
        double piece = 0.0;
        int r = Nintegrate_wrt(f, lo, hi, which, x, &piece, tol, min_level);
        *answer += piece;
        if (r > result) result = r;
    }
    return result;
}

// ================================================================ adaptive

namespace {

// Gauss-Kronrod pairs on [-1, 1] (the QUADPACK constants): Kronrod abscissae in
// descending order ending with the centre, their weights, and the Gauss weights of the
// abscissae with odd index (then of the centre, when the Gauss rule has one).
const double xk15[8] = {0.991455371120812639206854697526329, 0.949107912342758524526189684047851,
                        0.864864423359769072789712788640926, 0.741531185599394439863864773280788,
                        0.586087235467691130294144845693013, 0.405845151377397166906606412076961,
                        0.207784955007898467600689403773245, 0.0};
const double wk15[8] = {0.022935322010529224963732008058970, 0.063092092629978553290700663189204,
                        0.104790010322250183839876322541518, 0.140653259715525918745189590510238,
                        0.169004726639267902826583426598550, 0.190350578064785409913256402421014,
                        0.204432940075298892414161999234649, 0.209482141084727828012999174891714};
const double wg7[4] = {0.129484966168869693270611432679082, 0.279705391489276667901467771423780,
                       0.381830050505118944950369775488975, 0.417959183673469387755102040816327};
const double xk21[11] = {0.995657163025808080735527280689003,
                         0.973906528517171720077964012084452,
                         0.930157491355708226001207180059508,
                         0.865063366688984510732096688423493,
                         0.780817726586416897063717578345042,
                         0.679409568299024406234327365114874,
                         0.562757134668604683339000099272694,
                         0.433395394129247190799265943165784,
                         0.294392862701460198131126603103866,
                         0.148874338981631210884826001129720,
                         0.0};
const double wk21[11] = {0.011694638867371874278064396062192, 0.032558162307964727478818972459390,
                         0.054755896574351996031381300244580, 0.075039674810919952767043140916190,
                         0.093125454583697605535065465083366, 0.109387158802297641899210590325805,
                         0.123491976262065851077208980081786, 0.134709217311473325928054001771707,
                         0.142775938577060080797094273138717, 0.147739104901338491374841515972068,
                         0.149445554002916905664936468389821};
const double wg10[5] = {0.066671344308688137593568809893332, 0.149451349150580593145776339657697,
                        0.219086362515982043995534934228163, 0.269266719309996355091226921569469,
                        0.295524224714752870173892994651338};

struct kronrod_rule {
    int half;  // abscissae on each side of the centre
    const double* xk;
    const double* wk;
    const double* wg;
    bool gauss_centre;
};

const kronrod_rule rule15 = {7, xk15, wk15, wg7, true};
const kronrod_rule rule21 = {10, xk21, wk21, wg10, false};

constexpr double eps = std::numeric_limits<double>::epsilon();

struct span {
    double l, r, value, error;
    int left_end, right_end;  // index of the piece end the span touches, or -1
};

bool less_error(const span& p, const span& q) {
    return p.error < q.error;
}

// End states.
enum { end_unknown = 0, end_regular = 1, end_singular = 2 };

class adaptive_engine {
  public:
    adaptive_engine(const law* f, const integrate_options& o)
        : f_(f), opt_(o), rule_(o.kronrod_points == 21 ? rule21 : rule15), evaluator_(f) {}
    adaptive_engine(const adaptive_engine&) = delete;
    adaptive_engine& operator=(const adaptive_engine&) = delete;

    integrate_result run(double a, double b, int n_splits, const double* splits);

  private:
    const law* f_;
    const integrate_options& opt_;
    const kronrod_rule& rule_;
    int evaluations_ = 0;
    law_evaluator evaluator_;  // compiles the law once the integration proves long enough
    tracked_vector<double> ends_;
    tracked_vector<int> end_state_;
    tracked_vector<span> open_;
    double closed_value_ = 0.0, closed_error_ = 0.0;

    double sample(double x) {
        ++evaluations_;
        return f_->evaluateM_R(&x);
    }
    double target(double total) const {
        double t = 50 * eps * std::fabs(total);
        if (opt_.abs_tol > 0) t = std::max(t, opt_.abs_tol);
        if (opt_.rel_tol > 0) t = std::max(t, opt_.rel_tol * std::fabs(total));
        return t;
    }
    span kronrod(double l, double r, int left_end, int right_end);
    void sample_rule(double c, double hw, double& fc, double* fv1, double* fv2);
    void collect_breaks(double a, double b);
    int probe(int end);
    int tanh_sinh(double l, double r, double needed, double& value, double& error);
    void push(const span& s) {
        open_.push_back(s);
        std::push_heap(open_.begin(), open_.end(), less_error);
    }
    void close(const span& s) {
        closed_value_ += s.value;
        closed_error_ += s.error;
    }
};

// The law at the rule's nodes around c: the centre, then c - dx and c + dx for each node
// from the outermost in.  Through the tree one by one, or through the program as one batch
// once the integration is long enough.
void adaptive_engine::sample_rule(double c, double hw, double& fc, double* fv1, double* fv2) {
    const kronrod_rule& k = rule_;
    const law_program* program = f_->take_dim() == 1 ? evaluator_.program(evaluations_) : nullptr;
    if (!program) {
        fc = sample(c);
        for (int j = 0; j < k.half; ++j) {
            double dx = hw * k.xk[j];
            fv1[j] = sample(c - dx);
            fv2[j] = sample(c + dx);
        }
        return;
    }
    double x[21], y[21];
    int err[21], n = 1 + 2 * k.half;
    x[0] = c;
    for (int j = 0; j < k.half; ++j) {
        double dx = hw * k.xk[j];
        x[1 + 2 * j] = c - dx;
        x[2 + 2 * j] = c + dx;
    }
    const double* in = x;
    program->evaluate_batch(n, &in, y, err);
    for (int i = 0; i < n; ++i) {
        if (err[i]) {
            // The tree raises its own exception, with whatever it carries besides the code.
            evaluations_ += i;
            sample(x[i]);
            sys_error(err[i]);
        }
    }
    evaluations_ += n;
    fc = y[0];
    for (int j = 0; j < k.half; ++j) {
        fv1[j] = y[1 + 2 * j];
        fv2[j] = y[2 + 2 * j];
    }
}

// One Kronrod rule on [l, r] with QUADPACK's error estimate: the Kronrod-Gauss difference,
// scaled by (200 |K - G| / resasc)^1.5 against the integral's variation, and never below
// the rounding of the sum.
span adaptive_engine::kronrod(double l, double r, int left_end, int right_end) {
    const kronrod_rule& k = rule_;
    double c = 0.5 * (l + r), hw = 0.5 * (r - l);
    double fv1[10], fv2[10], fc;
    sample_rule(c, hw, fc, fv1, fv2);
    double resk = fc * k.wk[k.half];
    double resg = k.gauss_centre ? fc * k.wg[k.half / 2] : 0.0;
    double resabs = std::fabs(resk);
    for (int j = 0; j < k.half; ++j) {
        double f1 = fv1[j], f2 = fv2[j];
        resk += k.wk[j] * (f1 + f2);
        resabs += k.wk[j] * (std::fabs(f1) + std::fabs(f2));
        if (j % 2 == 1) resg += k.wg[j / 2] * (f1 + f2);
    }
    double mean = 0.5 * resk;
    double resasc = k.wk[k.half] * std::fabs(fc - mean);
    for (int j = 0; j < k.half; ++j)
        resasc += k.wk[j] * (std::fabs(fv1[j] - mean) + std::fabs(fv2[j] - mean));
    resabs *= hw;
    resasc *= hw;
    double err = std::fabs((resk - resg) * hw);
    if (resasc != 0.0 && err != 0.0)
        err = resasc * std::min(1.0, std::pow(200 * err / resasc, 1.5));
    if (resabs > std::numeric_limits<double>::min() / (50 * eps))
        err = std::max(50 * eps * resabs, err);
    double value = resk * hw;
    if (!std::isfinite(value) || !std::isfinite(err)) err = std::numeric_limits<double>::infinity();
    return span{l, r, value, err, left_end, right_end};
}

// The root of g - h (h may be null) when both are linear in X, else NaN.  Asking
// linear() differentiates, which a part without a derivative refuses: no root then.
double linear_root(const law* g, const law* h) {
    const double none = std::numeric_limits<double>::quiet_NaN();
    try {
        for (const law* p : {g, h})
            if (p && (p->take_dim() > 1 || p->return_dim() != 1 || !p->linear())) return none;
        double x0 = 0.0, x1 = 1.0;
        double d0 = g->evaluateM_R(&x0) - (h ? h->evaluateM_R(&x0) : 0.0);
        double d1 = g->evaluateM_R(&x1) - (h ? h->evaluateM_R(&x1) : 0.0);
        return d1 != d0 ? -d0 / (d1 - d0) : none;
    } catch (const vorx_exception&) {
        return none;
    }
}

// Gathers the laws of one type in f's tree and calls take(law) for each.
template <class F>
void for_each_of_type(const law* f, int type_id, F take) {
    VOID_LIST list;
    f->hasa(type_id, list);
    for (int i = 0; i < list.count(); ++i) take(static_cast<const law*>(list[i]));
}

constexpr int max_breaks = 256;

void adaptive_engine::collect_breaks(double a, double b) {
    auto add = [&](double x) {
        if (std::isfinite(x) && x > a && x < b && (int)ends_.size() < max_breaks)
            ends_.push_back(x);
    };
    // The law's own singularities (the arrays belong to the caller).
    double* where = nullptr;
    int* kind = nullptr;
    double* period = nullptr;
    int n = f_->singularities(&where, &kind, a, b, &period);
    for (int i = 0; i < n && where; ++i) add(where[i]);
    VORX_FREE(where);
    VORX_FREE(kind);
    VORX_FREE(period);
    // ABS(g): a kink where g = 0.
    for_each_of_type(f_, abs_law::id(), [&](const law* l) {
        add(linear_root(static_cast<const unary_law*>(l)->fsub(), nullptr));
    });
    // A < B and the other comparisons (PIECEWISE conditions among them): a jump at A = B.
    for_each_of_type(f_, predicate_law::id(), [&](const law* l) {
        auto p = static_cast<const binary_law*>(l);
        add(linear_root(p->fleft(), p->fright()));
    });
    // MAX(A,B,...), MIN(A,B,...): a kink where two parts cross.
    for (int type_id : {max_law::id(), min_law::id()})
        for_each_of_type(f_, type_id, [&](const law* l) {
            auto m = static_cast<const multiple_law*>(l);
            int k = std::min(m->fsub_num(), 8);
            for (int i = 0; m->fsub() && i < k; ++i)
                for (int j = i + 1; j < k; ++j) add(linear_root(m->fsub()[i], m->fsub()[j]));
        });
    // STEP(A,c1,B,...): jumps at the constant breakpoints.
    for_each_of_type(f_, step_law::id(), [&](const law* l) {
        auto s = static_cast<const multiple_law*>(l);
        for (int i = 1; s->fsub() && i < s->fsub_num(); i += 2)
            if (s->fsub()[i]->take_dim() == 0) add(law_value_at_one(s->fsub()[i]));
    });
    // FLOOR(g), CEIL(g): jumps where g crosses an integer (a few dozen at most).
    for (int type_id : {floor_law::id(), ceil_law::id()})
        for_each_of_type(f_, type_id, [&](const law* l) {
            const law* g = static_cast<const unary_law*>(l)->fsub();
            double z = linear_root(g, nullptr);  // g = 0 at z: g(x) = s (x - z)
            if (!std::isfinite(z)) return;
            double one = z + 1.0, s = g->evaluateM_R(&one);
            double ga = s * (a - z), gb = s * (b - z);
            if (std::fabs(gb - ga) > 64) return;
            for (double k = std::ceil(std::min(ga, gb)); k <= std::max(ga, gb); k += 1.0)
                add(z + k / s);
        });
}

// Whether l is finite at x: out of its domain (asked first, as raising costs far more
// than the question), raising or not finite there answers no.
bool finite_at(const law* l, double x) {
    if (!l->in_domain(&x)) return false;
    try {
        return std::isfinite(l->evaluateM_R(&x));
    } catch (const vorx_exception&) {
        return false;
    }
}

// Whether the law or its derivative fails to be finite at a piece end: the mark of an
// end singularity.  Counts as evaluations.
int adaptive_engine::probe(int end) {
    if (end_state_[end] != end_unknown) return end_state_[end];
    if (evaluations_ + 2 > opt_.max_evaluations) return end_unknown;  // not worth the bound
    double x = ends_[end];
    law_holder d(derivative_or_null(f_));
    evaluations_ += d ? 2 : 1;
    bool regular = finite_at(f_, x) && (!d || finite_at(d.get(), x));
    return end_state_[end] = regular ? end_regular : end_singular;
}

// tanh-sinh on [l, r]: x = tanh(pi/2 sinh t), nodes t = k h with h halved per level.
// With q = exp(-pi sinh t) a node lies (r - l) q / (1 + q) from an end and weighs
// 2 pi cosh t q / (1 + q)^2 (times (r - l)/2 and h).  A side stops when its terms fall
// below 1e-18 of the sum, when a node would land on the end, or when the law raises or is
// not finite there.  Stopped early, the side leaves a tail unsampled, next to an end
// that is not at 0 (doubles near 1 are 1e-16 apart, so 1/SQRT(1-X) loses about 1e-8
// there): 4 d |f| from the last node, d from the end, which covers singularities up to
// d^(-3/4).  The error is the last level difference plus those tails.  Answers
// ts_converged, ts_tail_bound (the levels agree to `needed`, or to within twice the
// tails, but the tails exceed `needed`: the doubles cannot do better) or ts_failed (the
// budget or level 6 reached first).
enum { ts_failed = 0, ts_converged = 1, ts_tail_bound = 2 };

int adaptive_engine::tanh_sinh(double l, double r, double needed, double& value, double& error) {
    const double pi = 3.14159265358979323846;
    const double half = 0.5 * (r - l), c = 0.5 * (l + r);
    const int max_level = 6;
    double sum = 0.0, previous = 0.0;
    try {
        sum = pi / 2 * sample(c);
    } catch (const vorx_exception&) {
        return ts_failed;
    }
    if (!std::isfinite(sum)) return ts_failed;
    for (int level = 0; level <= max_level; ++level) {
        double h = std::ldexp(1.0, -level), tail = 0.0;
        int step = level == 0 ? 1 : 2;
        for (int side = 0; side < 2; ++side) {
            double last_d = 0.0, last_f = 0.0;
            for (int k = 1;; k += step) {
                double t = k * h;
                if (t > 6.5) break;
                double q = std::exp(-pi * std::sinh(t));
                double d = (r - l) * q / (1 + q);
                double w = 2 * pi * std::cosh(t) * q / ((1 + q) * (1 + q));
                double x = side == 0 ? l + d : r - d;
                double fx = 0.0;
                bool stop = !(x > l && x < r);
                if (!stop) {
                    if (evaluations_ >= opt_.max_evaluations) return ts_failed;
                    try {
                        fx = sample(x);
                    } catch (const vorx_exception&) {
                        stop = true;
                    }
                    stop = stop || !std::isfinite(fx);
                }
                if (stop) {
                    tail = std::max(tail, 4 * last_d * std::fabs(last_f));
                    break;
                }
                sum += w * fx;
                last_d = d;
                last_f = fx;
                if (t > 1 && std::fabs(w * fx) <= 1e-18 * std::fabs(sum)) break;
            }
        }
        double estimate = half * h * sum;
        double change = std::fabs(estimate - previous);
        error = change + tail;
        value = estimate;
        if (level >= 2 && change <= needed) return error <= needed ? ts_converged : ts_tail_bound;
        // Levels truncated at different nodes differ by about the tails: no level will
        // do better.
        if (level >= 3 && tail > 0 && change <= 2 * tail) return ts_tail_bound;
        previous = estimate;
    }
    return ts_failed;
}

integrate_result adaptive_engine::run(double a, double b, int n_splits, const double* splits) {
    integrate_result res;
    // Piece ends: a, the split points and breaks strictly inside, b; sorted, merged.
    ends_.push_back(a);
    for (int i = 0; splits && i < n_splits; ++i)
        if (std::isfinite(splits[i]) && splits[i] > a && splits[i] < b) ends_.push_back(splits[i]);
    if (opt_.use_breaks) collect_breaks(a, b);
    ends_.push_back(b);
    std::sort(ends_.begin(), ends_.end());
    ends_.erase(std::unique(ends_.begin(), ends_.end()), ends_.end());
    end_state_.assign(ends_.size(), end_unknown);
    res.pieces = (int)ends_.size() - 1;
    for (int i = 0; i + 1 < (int)ends_.size(); ++i) push(kronrod(ends_[i], ends_[i + 1], i, i + 1));

    for (;;) {
        double total = closed_value_, error = closed_error_;
        for (const span& s : open_) {
            total += s.value;
            error += s.error;
        }
        res.value = total;
        res.error = error;
        double goal = target(total);
        if (error <= goal && std::isfinite(error)) {
            res.status = integrate_converged;
            break;
        }
        if (open_.empty()) {
            res.status = integrate_resolution_limit;
            break;
        }
        std::pop_heap(open_.begin(), open_.end(), less_error);
        span worst = open_.back();
        open_.pop_back();

        // A singular piece end: the double-exponential rule over the whole span, once (the
        // halves of a span it failed on no longer count as touching a piece end).
        if (opt_.use_tanh_sinh) {
            bool singular = false;
            for (int end : {worst.left_end, worst.right_end})
                if (end >= 0 && probe(end) == end_singular) singular = true;
            double needed = std::max(goal - (error - worst.error), 0.1 * goal);
            double v = 0.0, e = 0.0;
            // At the tail bound halving would meet the same wall of doubles next to the end.
            int ts = singular ? tanh_sinh(worst.l, worst.r, needed, v, e) : ts_failed;
            if (ts != ts_failed) {
                close(span{worst.l, worst.r, v, e, -1, -1});
                continue;
            }
            if (singular) worst.left_end = worst.right_end = -1;
        }
        double mid = 0.5 * (worst.l + worst.r);
        if (!(mid > worst.l && mid < worst.r)) {
            close(worst);
            continue;
        }
        if (evaluations_ + 2 * rule_.half * 2 + 2 > opt_.max_evaluations) {
            push(worst);
            // Totals as they stand; the loop head computed them already.
            res.status = integrate_evaluation_limit;
            break;
        }
        push(kronrod(worst.l, mid, worst.left_end, -1));
        push(kronrod(mid, worst.r, -1, worst.right_end));
    }
    res.evaluations = evaluations_;
    return res;
}

}  // namespace

integrate_result Nintegrate_adaptive(const law* f, double a, double b,
                                     const integrate_options& options, int n_splits,
                                     const double* splits) {
    check_limits(a, b);
    if (!f || f->take_dim() > 1 || f->return_dim() != 1) sys_error(LAW_DIM);
    if (a == b) return integrate_result();
    double sign = 1.0;
    if (a > b) {
        std::swap(a, b);
        sign = -1.0;
    }
    adaptive_engine engine(f, options);
    integrate_result r = engine.run(a, b, n_splits, splits);
    r.value *= sign;
    return r;
}

// ================================================================ integrate_law

namespace {

// The part list (F, A, B, split laws...) in tracked memory, for the duration of a
// constructor call.
class integrate_parts {
  public:
    integrate_parts(law* f, law* lower, law* upper, int n_splits, law** splits)
        : n_(3 + (n_splits > 0 && splits ? n_splits : 0)), p_(VORX_ALLOC_ARRAY(law*, n_)) {
        p_[0] = f;
        p_[1] = lower;
        p_[2] = upper;
        for (int i = 3; i < n_; ++i) p_[i] = splits[i - 3];
    }
    ~integrate_parts() { VORX_FREE(p_); }
    integrate_parts(const integrate_parts&) = delete;
    integrate_parts& operator=(const integrate_parts&) = delete;
    law** get() const { return p_; }
    int size() const { return n_; }

  private:
    int n_;
    law** p_;
};

// F reads X and Y, the limits and split laws X only; all are scalar.
law** checked_integrate_parts(law** parts, int n) {
    if (!parts) return parts;  // the registered prototype
    if (n < 3) sys_error(LAW_DIM);
    for (int i = 0; i < n; ++i)
        if (parts[i] && (parts[i]->take_dim() > (i == 0 ? 2 : 1) || parts[i]->return_dim() != 1))
            sys_error(LAW_DIM);
    return parts;
}

}  // namespace

integrate_law::integrate_law(law** parts, int n, double tol, int min_level)
    : multiple_law(checked_integrate_parts(parts, n), n), tol_(tol), min_level_(min_level) {}

integrate_law::integrate_law(law* integrand, law* lower, law* upper, int n_splits, law** splits,
                             double tol, int min_level)
    : integrate_law(integrate_parts(integrand, lower, upper, n_splits, splits).get(),
                    3 + (n_splits > 0 && splits ? n_splits : 0), tol, min_level) {}

void integrate_law::evaluate(const double* x, double* y) const {
    if (!subs_) sys_error(LAW_EVAL);  // the registered prototype
    int n = fsplit_count();
    law** s = subs_ + 3;
    law_scratch<8> at(n > 0 ? n : 1);
    for (int i = 0; i < n; ++i) at[i] = s[i]->evaluateM_R(x);
    // Neighbour exchanges until a pass makes none; the laws keep the new order.
    for (bool swapped = true; swapped;) {
        swapped = false;
        for (int i = 1; i < n; ++i)
            if (at[i] < at[i - 1]) {
                std::swap(at[i], at[i - 1]);
                std::swap(s[i], s[i - 1]);
                swapped = true;
            }
    }
    double hi = fupper()->evaluateM_R(x);
    double lo = flower()->evaluateM_R(x);
    double point[2] = {x[0], 0.0};
    Nintegrate_wrt_and_split(fintegrand(), lo, hi, 1, point, y, n, at.get(), tol_, min_level_);
}

const char* integrate_law::symbol(law_symbol_type type) const {
    return type == law_symbol_default ? "INTEGRATE" : "int";
}

char* integrate_law::string(law_symbol_type type, int& counter, law_data_node*& list) const {
    if (!subs_) return multiple_law::string(type, counter, list);
    const char* tmpl = type == law_symbol_default ? "Integrate(#1,#2,#3)" : "int(#1,Y=#2..#3)";
    return law_template_string(tmpl, subs_, 3, type, counter, list);
}

int integrate_law::same(const law* a, const law* b) const {
    auto p = static_cast<const integrate_law*>(a);
    auto q = static_cast<const integrate_law*>(b);
    if (p->count_ != q->count_ || p->tol_ != q->tol_ || p->min_level_ != q->min_level_) return 0;
    if (!p->subs_ || !q->subs_) return p->subs_ == q->subs_;
    for (int i = 0; i < 3; ++i) {
        const law *u = p->subs_[i], *v = q->subs_[i];
        if (u && v ? !(*u == *v) : u != v) return 0;
    }
    // The split laws as a set: evaluation sorts them in place.
    return p->fsplit_count() == 0 || same_law_list(p->fsplits(), q->fsplits(), p->fsplit_count());
}

int integrate_law::in_domain(const double* x) const {
    for (int i = 1; subs_ && i < count_; ++i)
        if (subs_[i] && !subs_[i]->in_domain(x)) return 0;
    return 1;
}

multiple_law* integrate_law::make_one(law** parts, int n) const {
    return VORX_NEW integrate_law(parts, n, tol_, min_level_);
}

namespace {

// Whether the law reads input 0 (X): a composite law reads what its inner law reads;
// laws of other shapes are assumed to.
bool reads_x(const law* l) {
    if (!l) return false;
    if (l->isa(identity_law::id())) return static_cast<const identity_law*>(l)->fwhich() == 0;
    if (l->take_dim() == 0) return false;
    if (l->isa(composite_law::id())) return reads_x(static_cast<const binary_law*>(l)->fright());
    if (l->isa(unary_law::id())) return reads_x(static_cast<const unary_law*>(l)->fsub());
    if (l->isa(binary_law::id())) {
        auto b = static_cast<const binary_law*>(l);
        return reads_x(b->fleft()) || reads_x(b->fright());
    }
    if (l->isa(multiple_law::id())) {
        auto m = static_cast<const multiple_law*>(l);
        for (int i = 0; m->fsub() && i < m->fsub_num(); ++i)
            if (reads_x(m->fsub()[i])) return true;
        return false;
    }
    return true;
}

// F(X, L(X)) * L'(X), or null when L is constant.
law* limit_term(law* f, law* limit, const law_holder& dl) {
    if (dl->zero()) return nullptr;
    law_holder x(VORX_NEW identity_law(0, 'X'));
    law* point[2] = {x.get(), limit};
    law_holder at(VORX_NEW vector_law(point, 2));
    law_holder value(VORX_NEW composite_law(f, at.get()));
    return VORX_NEW times_law(value.get(), dl.get());
}

}  // namespace

law* integrate_law::deriv(int which) const {
    // d/dY of a law of X alone
    if (which != 0) return VORX_NEW constant_law(0.0);
    if (!subs_) return nullptr;
    law* f = fintegrand();
    law_holder dupper(derivative_or_null(fupper())), dlower(derivative_or_null(flower()));
    // dF/dX = 0 when F does not read X (the antiderivatives of law_integrate)
    bool moves = reads_x(f);
    law_holder df(moves ? derivative_or_null(f) : nullptr);
    if (!dupper || !dlower || (moves && !df)) return nullptr;
    // d/dX Integrate(F,A,B) = F(X,B) B' - F(X,A) A' + Integrate(dF/dX,A,B)
    law_holder up(limit_term(f, fupper(), dupper));
    law_holder down(limit_term(f, flower(), dlower));
    law_holder inner(!df || df->zero()
                         ? nullptr
                         : VORX_NEW integrate_law(df.get(), flower(), fupper(), fsplit_count(),
                                                  fsplits(), tol_, min_level_));
    law_holder sum(up ? up.share_out() : VORX_NEW constant_law(0.0));
    if (down) sum.reset(VORX_NEW minus_law(sum.get(), down.get()));
    if (inner) sum.reset(VORX_NEW plus_law(sum.get(), inner.get()));
    return sum.release();
}

// ================================================================ law_integrate

namespace {

law* x_law() {
    return VORX_NEW identity_law(0, 'X');
}
law* number(double v) {
    return VORX_NEW constant_law(v);
}

// The slope a of g = a X + b, when g is a law of at most X, linear, with a != 0 (a part
// without a derivative makes it not linear).
bool slope_of(const law* g, double& a) {
    try {
        if (g->take_dim() != 1 || g->return_dim() != 1 || !g->linear()) return false;
        law_holder d(g->derivative(0));
        double zero = 0.0;
        a = d->evaluateM_R(&zero);
    } catch (const vorx_exception&) {
        return false;
    }
    return a != 0.0 && std::isfinite(a);
}

// Coefficients (lowest first) of a law built from constants, X, +, -, negation, * and
// whole non-negative constant powers, or false.  Degrees stay below 64.
using coefficients = tracked_vector<double>;
constexpr int max_poly_degree = 63;

bool poly_of(const law* f, coefficients& c) {
    c.clear();
    if (f->take_dim() == 0 && f->return_dim() == 1) {
        double zero = 0.0;
        c.push_back(f->evaluateM_R(&zero));
        return true;
    }
    if (f->isa(identity_law::id()) && static_cast<const identity_law*>(f)->fwhich() == 0) {
        c = {0.0, 1.0};
        return true;
    }
    if (f->isa(negate_law::id())) {
        if (!poly_of(static_cast<const unary_law*>(f)->fsub(), c)) return false;
        for (double& v : c) v = -v;
        return true;
    }
    if (!f->isa(binary_law::id())) return false;
    auto bl = static_cast<const binary_law*>(f);
    coefficients p, q;
    bool plus = f->isa(plus_law::id()), minus = f->isa(minus_law::id());
    if (plus || minus || f->isa(times_law::id())) {
        if (!poly_of(bl->fleft(), p) || !poly_of(bl->fright(), q)) return false;
        if (plus || minus) {
            c.assign(std::max(p.size(), q.size()), 0.0);
            for (size_t i = 0; i < p.size(); ++i) c[i] += p[i];
            for (size_t i = 0; i < q.size(); ++i) c[i] += minus ? -q[i] : q[i];
            return true;
        }
        if (p.size() + q.size() - 2 > max_poly_degree) return false;
        c.assign(p.size() + q.size() - 1, 0.0);
        for (size_t i = 0; i < p.size(); ++i)
            for (size_t j = 0; j < q.size(); ++j) c[i + j] += p[i] * q[j];
        return true;
    }
    if (f->isa(exponent_law::id()) && bl->fright()->take_dim() == 0) {
        double zero = 0.0, n = bl->fright()->evaluateM_R(&zero);
        if (!(n >= 0 && n == std::floor(n) && n <= max_poly_degree)) return false;
        if (!poly_of(bl->fleft(), p)) return false;
        if ((p.size() - 1) * n > max_poly_degree) return false;
        c = {1.0};
        for (int k = 0; k < (int)n; ++k) {
            q.assign(c.size() + p.size() - 1, 0.0);
            for (size_t i = 0; i < c.size(); ++i)
                for (size_t j = 0; j < p.size(); ++j) q[i + j] += c[i] * p[j];
            c.swap(q);
        }
        return true;
    }
    return false;
}

// sum of c_k X^(k+1) / (k+1) over the non-zero coefficients
law* poly_antiderivative(const coefficients& c) {
    law_holder sum;
    for (size_t k = 0; k < c.size(); ++k) {
        if (c[k] == 0.0) continue;
        law_holder x(x_law());
        law_holder power(k == 0
                             ? x.share_out()
                             : VORX_NEW exponent_law(x.get(), law_holder(number(k + 1.0)).get()));
        law_holder term(VORX_NEW times_law(law_holder(number(c[k] / (k + 1))).get(), power.get()));
        sum.reset(sum ? VORX_NEW plus_law(sum.get(), term.get()) : term.release());
    }
    return sum ? sum.release() : number(0.0);
}

law* over(law* numerator, double a) {
    law_holder n(numerator);
    if (a == 1.0) return n.release();
    return VORX_NEW division_law(n.get(), law_holder(number(a)).get());
}

law* symbolic_antiderivative(const law* f);

// An elementary function F of a linear argument g = a X + b: G(g) / a.
law* of_linear_argument(const unary_law* u) {
    law* g = u->fsub();
    double a;
    if (!g || !slope_of(g, a)) return nullptr;
    law_holder r;
    // SIN(g) -> -COS(g)/a
    if (u->isa(sin_law::id())) r.reset(VORX_NEW negate_law(law_holder(VORX_NEW cos_law(g)).get()));
    // COS(g) -> SIN(g)/a
    else if (u->isa(cos_law::id()))
        r.reset(VORX_NEW sin_law(g));
    // TAN(g) -> -LN(ABS(COS(g)))/a
    else if (u->isa(tan_law::id())) {
        law_holder c(VORX_NEW cos_law(g));
        law_holder ab(VORX_NEW abs_law(c.get()));
        r.reset(VORX_NEW negate_law(law_holder(VORX_NEW natural_log_law(ab.get())).get()));
    }
    // COT(g) -> LN(ABS(SIN(g)))/a
    else if (u->isa(cot_law::id())) {
        law_holder s(VORX_NEW sin_law(g));
        r.reset(VORX_NEW natural_log_law(law_holder(VORX_NEW abs_law(s.get())).get()));
    }
    // EXP(g) -> EXP(g)/a
    else if (u->isa(exp_law::id()))
        r.reset(VORX_NEW exp_law(g));
    // LN(g) -> (g*LN(g)-g)/a
    else if (u->isa(natural_log_law::id())) {
        law_holder gl(VORX_NEW times_law(g, const_cast<unary_law*>(u)));
        r.reset(VORX_NEW minus_law(gl.get(), g));
    }
    // SQRT(g) -> 2*g*SQRT(g)/(3a)
    else if (u->isa(sqrt_law::id())) {
        law_holder gs(VORX_NEW times_law(g, const_cast<unary_law*>(u)));
        r.reset(VORX_NEW times_law(law_holder(number(2.0 / 3.0)).get(), gs.get()));
    }
    // SINH(g) -> COSH(g)/a
    else if (u->isa(sinh_law::id()))
        r.reset(VORX_NEW cosh_law(g));
    // COSH(g) -> SINH(g)/a
    else if (u->isa(cosh_law::id()))
        r.reset(VORX_NEW sinh_law(g));
    // TANH(g) -> LN(COSH(g))/a
    else if (u->isa(tanh_law::id()))
        r.reset(VORX_NEW natural_log_law(law_holder(VORX_NEW cosh_law(g)).get()));
    if (!r) return nullptr;
    return over(r.release(), a);
}

law* of_binary(const binary_law* f) {
    law* l = f->fleft();
    law* r = f->fright();
    double a;
    // A+B -> INT(A)+INT(B), A-B -> INT(A)-INT(B)
    if (f->isa(plus_law::id()) || f->isa(minus_law::id())) {
        law_holder p(symbolic_antiderivative(l));
        law_holder q(p ? symbolic_antiderivative(r) : nullptr);
        if (!q) return nullptr;
        return f->make_one(p.get(), q.get());
    }
    // c*A -> c*INT(A), A*c -> INT(A)*c
    if (f->isa(times_law::id())) {
        bool left_constant = l->take_dim() == 0;
        if (!left_constant && r->take_dim() != 0) return nullptr;
        law_holder p(symbolic_antiderivative(left_constant ? r : l));
        if (!p) return nullptr;
        return left_constant ? VORX_NEW times_law(l, p.get()) : VORX_NEW times_law(p.get(), r);
    }
    if (f->isa(division_law::id())) {
        // A/c -> INT(A)/c
        if (r->take_dim() == 0) {
            law_holder p(symbolic_antiderivative(l));
            return p ? VORX_NEW division_law(p.get(), r) : nullptr;
        }
        // c/g -> c*LN(ABS(g))/a
        if (l->take_dim() == 0 && slope_of(r, a)) {
            law_holder ln(VORX_NEW natural_log_law(law_holder(VORX_NEW abs_law(r)).get()));
            return over(VORX_NEW times_law(l, ln.get()), a);
        }
        return nullptr;
    }
    if (f->isa(exponent_law::id())) {
        double zero = 0.0;
        // g^n -> g^(n+1)/((n+1)a), g^-1 -> LN(ABS(g))/a
        if (r->take_dim() == 0 && slope_of(l, a)) {
            double n = r->evaluateM_R(&zero);
            if (n == -1.0)
                return over(VORX_NEW natural_log_law(law_holder(VORX_NEW abs_law(l)).get()), a);
            law_holder p(VORX_NEW exponent_law(l, law_holder(number(n + 1)).get()));
            return over(p.release(), (n + 1) * a);
        }
        // c^g -> c^g/(a LN(c)), c > 0, c != 1
        if (l->take_dim() == 0 && slope_of(r, a)) {
            double c = l->evaluateM_R(&zero);
            if (!(c > 0 && c != 1.0)) return nullptr;
            law_holder p = law_holder::share(f);
            return over(p.release(), a * std::log(c));
        }
    }
    return nullptr;
}

// G with G' = f built from the rules above, or null.
law* symbolic_antiderivative(const law* f) {
    if (f->take_dim() > 1 || f->return_dim() != 1) return nullptr;
    // c -> c*X
    if (f->take_dim() == 0)
        return VORX_NEW times_law(const_cast<law*>(f), law_holder(x_law()).get());
    coefficients c;
    if (poly_of(f, c)) return poly_antiderivative(c);
    // -A -> -INT(A)
    if (f->isa(negate_law::id())) {
        law_holder p(symbolic_antiderivative(static_cast<const unary_law*>(f)->fsub()));
        return p ? VORX_NEW negate_law(p.get()) : nullptr;
    }
    if (f->isa(binary_law::id())) return of_binary(static_cast<const binary_law*>(f));
    if (f->isa(unary_law::id())) return of_linear_argument(static_cast<const unary_law*>(f));
    return nullptr;
}

}  // namespace

law* law_integrate(const law* f, double base) {
    if (!f || f->take_dim() > 1 || f->return_dim() != 1) sys_error(LAW_DIM);
    law_holder g(symbolic_antiderivative(f));
    if (!g) {
        // Integrate((f)O(Y), base, X)
        law_holder y(VORX_NEW identity_law(1, 'Y'));
        law_holder fy(VORX_NEW composite_law(const_cast<law*>(f), y.get()));
        law_holder from(number(base));
        law_holder x(x_law());
        return VORX_NEW integrate_law(fy.get(), from.get(), x.get(), 0, nullptr,
                                      integrate_law::default_tol, integrate_law::default_min_level);
    }
    double at_base = 0.0;
    try {
        at_base = g->eval(base);
    } catch (const vorx_exception&) {
        at_base = 0.0;  // G is not defined at base: keep its own constant
    }
    if (std::isfinite(at_base) && at_base != 0.0)
        g.reset(VORX_NEW minus_law(g.get(), law_holder(number(at_base)).get()));
    return g->simplify(1, 0);
}

static law_prototype<integrate_law> integrate_law_prototype(static_cast<law**>(nullptr), 0);

}  // namespace lawutil
