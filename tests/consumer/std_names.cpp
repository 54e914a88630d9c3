// The library's names stay in their namespaces: a file that says `using namespace std;`,
// and even one that also opens lawutil, includes the whole library and still means
// std::vector by `vector`.
#include <vector>

using namespace std;

#include "lawutil/lawutil.hpp"

using namespace lawutil;

int std_names_check() {
    vector<int> v(3, 1);
    law_holder f(str_to_law("X+1"));
    vorx::vector base_vector(1.0, 2.0, 3.0);
    return v.size() == 3 && f->eval(1.0) == 2.0 && base_vector.z() == 3.0 ? 0 : 1;
}
