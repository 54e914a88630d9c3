// The kernel's geometric value types and helpers in one include.
#pragma once

#include "box.hpp"
#include "complex_number.hpp"
#include "geom_utils.hpp"
#include "interval.hpp"
#include "matrix.hpp"
#include "nvector.hpp"
#include "position.hpp"
#include "transf.hpp"

namespace vorx {}  // namespace vorx
