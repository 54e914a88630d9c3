// Root finding over laws of one input: every zero on a closed interval, the extrema built
// on it, and the singularity lists that laws report about themselves.
//
// Error model.  Nroot returns the points x of [a, b] where |f(x)| < root_f_tol (1e-7)
// that its probes reach; it is a search, not a proof: roots closer together than its
// merge rule allows come back as one, and a root beside a very steep slope near an end
// may be missing.  Every search is bounded (see root.cpp): a call never loops.  A point
// where the law raises its own error (a domain error, a pole) simply has no value there;
// any other error (an interrupt, which is polled) ends the call with the tolerance block
// restored to what it held on entry and every law made inside released.
//
// Bad arguments raise: a null law (LAW_EVAL), a law of more than one input or output
// (LAW_DIM), a NaN or infinite end (LAW_BAD_BOUNDS).
#pragma once

namespace lawutil {

class law;

// Writes the default root-search tolerances into the calling thread's context (the
// leading flag is left alone).  root_far_ratio becomes 0.1, not the 1.0 a new context has.
void set_root_tol_default();

// All roots of f on [a, b], ascending; the count goes to *n.  The array comes from the
// base array allocator (tag "root") and belongs to the caller (vorx_discard).  A law
// found constant returns [a] when it is 0 there, else null with count 0; otherwise an
// array is returned even when empty.  After the call every root tolerance of the thread's
// context holds its default.
double* Nroot(law* f, double a, double b, int* n);

// Where f = g on [a, b]: Nroot of f - g.
double* Nsolve(law* f, law* g, double a, double b, int* n);

// The position (not the value) of the largest value of f on [a, b]: the best of a, b,
// the critical points, and the singular points that f reports over the whole real line
// (deliberately not only those within [a, b]).  Ties keep the earlier candidate, in the
// order a, b, critical points, singular points.  A candidate that cannot be evaluated
// is passed over.
double Nmax(law* f, double a, double b);
// Nmax of -f: the position of the smallest value.
double Nmin(law* f, double a, double b);

// What the last Nroot call on this thread did, for tests and benchmarks: its probes of
// the explored set's gaps, the probes after which the explored set was unchanged (0:
// each probe marked part of its gap; see root.cpp), whether the probe bound stopped it,
// and the evaluations of the law and its derivatives (the recovery pass's too; after
// Nmax or Nmin, those of its derivative's Nroot plus its candidates).
struct nroot_stats {
    int probes = 0;
    int probes_without_mark = 0;
    int probe_bound_hit = 0;
    long evaluations = 0;
};
const nroot_stats& last_nroot_stats();

// Sorts the n pairs (where[i], kind[i]) by position and drops those more than resabs
// outside [lo, hi] and those within resabs of the pair before them in that order.  When something
// is dropped both arrays are replaced by new ones (null when nothing is kept); the
// result is the number kept.  The arrays belong to the caller (base array allocator).
int sort_singularities(double** where, int** kind, int n, double lo, double hi);

// ---- building singularity lists (for the singularities overrides of the laws) ----

// Kind codes that law::singularities reports with each position (see law_base.hpp for
// which laws report which).
enum law_singularity_kind {
    law_singular_pole = -1,  // the value grows without bound (1/X at 0, TAN(X) at pi/2)
    law_singular_jump = 0,   // the value jumps (STEP, FLOOR, a comparison at its switch)
    law_singular_break = 1,  // continuous, but a derivative may jump (ABS at 0, a STEP
                             // or PIECEWISE break whose two sides agree there)
};

// The coefficients of g(x) = c + s*x when g is a law of at most one input whose
// derivative is constant; false otherwise (also when g cannot be evaluated at 0).
bool linear_coefficients(const law* g, double& c, double& s);

// A growing list of singular points over a requested range, released when it goes (also
// when an error passes); finish() hands the arrays over in the form singularities
// returns them.
class singularity_list {
  public:
    // Lattices with more points than this in the range are listed over one period.
    static constexpr int max_listed = 1024;

    singularity_list(double lo, double hi);
    ~singularity_list();
    singularity_list(const singularity_list&) = delete;
    singularity_list& operator=(const singularity_list&) = delete;

    double lo() const { return lo_; }
    double hi() const { return hi_; }
    int count() const { return n_; }
    double position(int i) const { return where_[i]; }

    void add(double x, int kind);
    // The points x0 + k*period (k whole) in the range.  When more than max_listed lie in
    // it, only those of the one period around the range's centre are listed and the
    // period is reported with the list.
    void add_lattice(double x0, double period, int kind);
    // The points where g = v0 + k*step (k whole), for a linear g of one input.
    void add_linear_lattice(const law* g, double v0, double step, int kind);
    // The point where the linear law g is 0.
    void add_linear_zero(const law* g, int kind);
    // Everything `l` reports over the range (and its period).
    void add_law(const law* l);
    // Keeps, of the points from index `first` on, those where keep(x) holds.
    template <class Keep>
    void keep_from(int first, Keep keep) {
        int m = first;
        for (int i = first; i < n_; ++i)
            if (keep(where_[i])) {
                where_[m] = where_[i];
                kind_[m++] = kind_[i];
            }
        n_ = m;
    }
    // Sorted and cleaned (sort_singularities); the arrays go to the caller, who frees
    // them with vorx_discard.  `period` (when asked) gets a one-element array holding the
    // period of a truncated lattice, else null.  Returns the count.
    int finish(double** where, int** kind, double** period);

  private:
    void note_period(double p);
    double lo_, hi_;
    int n_ = 0, cap_ = 0;
    double* where_ = nullptr;
    int* kind_ = nullptr;
    double period_ = 0.0;  // 0: none; -1: lattices of different periods were mixed
};

// The singularities of a law of at most one input that passes on those of its operands
// (null operands are skipped): the union of what `a` and `b` report.  A law of more
// inputs reports none.
int operand_singularities(const law* self, const law* a, const law* b, double** where, int** kind,
                          double lo, double hi, double** period);

}  // namespace lawutil
