// The kernel's geometric value types and helpers in one include.
#pragma once

#include "base/box.hpp"
#include "base/complex_number.hpp"
#include "base/geom_utils.hpp"
#include "base/interval.hpp"
#include "base/matrix.hpp"
#include "base/nvector.hpp"
#include "base/position.hpp"
#include "base/transf.hpp"
