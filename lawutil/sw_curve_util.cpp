#include "lawutil/sw_curve_util.hpp"

#include <cmath>

#include "base/errors.hpp"
#include "lawutil/law_base.hpp"
#include "lawutil/main_law_err.hpp"
#include "lawutil/sw_curve.hpp"

using namespace vorx;

namespace lawutil {

double sw_curve_accuracy(law* L, sw_curve* C) {
    if (!L || !C || L->take_dim() != 1 || L->return_dim() != 3) sys_error(LAW_DIM);
    const int m = 2 * C->get_num_control_points() + 2;
    const double lo = C->get_min_t(), hi = C->get_max_t();
    const double step = (hi - lo) / (m - 1);
    double worst = 0.0;
    for (int j = 0; j < m; ++j) {
        // The last sample is the maximum itself, not lo + (m - 1)·step rounded.
        const double t = j == m - 1 ? hi : lo + j * step;
        position on_curve;
        C->eval(t, &on_curve);
        const double d2 = (on_curve - L->evaluateR_P(t)).len_sq();
        if (d2 > worst) worst = d2;
    }
    return std::sqrt(worst);
}

}  // namespace lawutil
