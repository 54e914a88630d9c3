// Numerical differentiation by repeated four-point differences; the error model is in
// diff.hpp.
#include "lawutil/diff.hpp"

#include "base/memory.hpp"
#include "lawutil/law_base.hpp"

using namespace vorx;

namespace lawutil {

namespace {

// Fixed, not scaled to x: values must not depend on where the point lies (see diff.hpp).
constexpr double step = 1e-4;

// Tables of at most this many doubles live on the stack; larger ones take one heap block.
constexpr int small_table = 64;

// The m x n table of samples, rows addressed through an array of row pointers, together
// with the borrowed coordinate of the caller's point.  Its destructor puts the coordinate
// back exactly and releases the storage, so an error raised by the law passes through
// with nothing leaked and the point intact.
class sample_table {
  public:
    sample_table(double* coordinate, int rows, int cols)
        : coordinate_(coordinate), saved_(*coordinate), heap_(false) {
        // long: a wide law must not wrap the product into the small case.
        if (rows <= small_table && static_cast<long>(rows) * cols <= small_table) {
            block_ = small_block_;
            row_ = small_rows_;
        } else {
            // One block for all rows, one array of row pointers.
            heap_ = true;
            block_ = VORX_ALLOC_ARRAY(double, static_cast<long>(rows) * cols);
            row_ = VORX_ALLOC_ARRAY(double*, rows);
        }
        for (int k = 0; k < rows; ++k) row_[k] = block_ + static_cast<long>(k) * cols;
    }
    ~sample_table() {
        *coordinate_ = saved_;
        if (heap_) {
            VORX_FREE(row_);
            VORX_FREE(block_);
        }
    }
    sample_table(const sample_table&) = delete;
    sample_table& operator=(const sample_table&) = delete;

    double x0() const { return saved_; }
    double* operator[](int k) const { return row_[k]; }

  private:
    double* coordinate_;
    double saved_;
    bool heap_;
    double* block_;
    double** row_;
    double small_block_[small_table];
    double* small_rows_[small_table];
};

// The coordinate is scratch space by design (see diff.hpp): the const is cast away here
// only, and sample_table restores the value.
double* borrowed_coordinate(const double* x, int which) {
    return const_cast<double*>(x) + which;
}

// Samples rows 0 .. 3*order of f, row k at coordinate first + k*s.
void take_samples(law* f, const double* x, double* coordinate, double first, double s,
                  const sample_table& table, int rows) {
    for (int k = 0; k < rows; ++k) {
        *coordinate = first + k * s;
        f->evaluate(x, table[k]);
    }
}

// `order` levels of in-place differencing; level l rewrites rows 0 .. 3*(order-l-1) in
// increasing k, each from rows k .. k+3 of the level before, so the rows it still needs
// are never overwritten first.
template <class rule>
void difference(const sample_table& table, int order, int cols, rule one_level) {
    for (int l = 0; l < order; ++l) {
        int last = 3 * (order - l - 1);
        for (int k = 0; k <= last; ++k) {
            double* r0 = table[k];
            const double* r1 = table[k + 1];
            const double* r2 = table[k + 2];
            const double* r3 = table[k + 3];
            for (int j = 0; j < cols; ++j) r0[j] = one_level(r0[j], r1[j], r2[j], r3[j]);
        }
    }
}

void copy_row(const double* row, double* answer, int cols) {
    for (int j = 0; j < cols; ++j) answer[j] = row[j];
}

}  // namespace

void Ndifferentiate(law* f, const double* x, int which, double* answer, int order) {
    if (order < 0) order = 0;
    int cols = f->return_dim();
    int rows = 3 * order + 1;
    double* coordinate = borrowed_coordinate(x, which);
    sample_table table(coordinate, rows, cols);

    // Samples symmetric about x0: after `order` levels of midpoint estimates row 0 sits
    // at x0.
    double first = table.x0() - (3 * order) * step / 2;
    take_samples(f, x, coordinate, first, step, table, rows);

    // (27(r2 - r1) - (r3 - r0)) / 24h, written with c = -1/27 as below; deliberate: the
    // grouping is kept for compatibility of values, to the last bit.
    const double c = -1.0 / 27.0;
    const double h = step;
    difference(table, order, cols, [c, h](double r0, double r1, double r2, double r3) {
        return ((r3 - r0) * c + (r2 - r1)) / (c * 3 * h + h);
    });
    copy_row(table[0], answer, cols);
}

void Ndifferentiate_sided(law* f, const double* x, int which, int side, double* answer, int order) {
    if (order < 0) order = 0;
    int cols = f->return_dim();
    int rows = 3 * order + 1;
    double* coordinate = borrowed_coordinate(x, which);
    sample_table table(coordinate, rows, cols);

    // Side 1 looks towards smaller values, so a law defined only up to x0 can be
    // differentiated there.  Each level's estimate belongs to the first row of its group,
    // so row 0 stays at x0.
    const double s = side == 1 ? -step : step;
    take_samples(f, x, coordinate, table.x0(), s, table, rows);

    // (-11 r0 + 18 r1 - 9 r2 + 2 r3) / 6s, grouped as below for the same reason.
    difference(table, order, cols, [s](double r0, double r1, double r2, double r3) {
        return -(9 * r2 + 11 * r0 - 18 * r1 - 2 * r3) / (6 * s);
    });
    copy_row(table[0], answer, cols);
}

}  // namespace lawutil
