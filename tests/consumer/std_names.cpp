// The library's names stay in their namespaces: a file that says `using namespace std;`,
// and even one that also opens lawutil, includes the whole library and still means
// std::vector by `vector`.  A law class of the host's own namespace uses the library's
// macros, which name what they need fully qualified.
#include <vector>

using namespace std;

#include "lawutil/lawutil.hpp"

namespace host {

// x^2 - 1, raising LAW_SQRT below -2.
class host_law : public lawutil::law {
    LAWUTIL_TYPE_DECL(host_law, lawutil::law)
    void evaluate(const double* x, double* y) const override {
        if (x[0] < -2) vorx::sys_error(LAW_SQRT);
        *y = x[0] * x[0] - 1;
    }

  protected:
    lawutil::law* deriv(int) const override { return lawutil::str_to_law("2*X"); }
    int take_size() const override { return 1; }
    int return_size() const override { return 1; }
};
LAWUTIL_TYPE_DEF(host_law)

}  // namespace host

using namespace lawutil;

int std_names_check() {
    vector<int> v(3, 1);
    law_holder f(str_to_law("X+1"));
    law_holder g(VORX_NEW host::host_law);
    vorx::vector base_vector(1.0, 2.0, 3.0);
    int failures = v.size() != 3 || f->eval(1.0) != 2.0 || base_vector.z() != 3.0;
    failures += g->eval(3.0) != 8.0 || !g->isa(law::id()) || g->type() != host::host_law::id();
    try {
        g->eval(-3.0);
        ++failures;
    } catch (const vorx::vorx_exception& e) {
        failures += e.code() != LAW_SQRT;
    }
    return failures;
}
