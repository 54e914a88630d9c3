#include "base/tolerance.hpp"

namespace vorx {

thread_local double resabs = 1e-6;
thread_local double resnor = 1e-10;
thread_local double resfit = 1e-3;
thread_local double resmch = 1e-11;

}  // namespace vorx
