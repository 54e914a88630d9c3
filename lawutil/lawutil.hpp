// The law library: everything a client needs, in one include, the value types that the
// evaluators take and return included.
#pragma once

#include "base/box.hpp"
#include "base/complex_number.hpp"
#include "base/interval.hpp"
#include "base/matrix.hpp"
#include "base/nvector.hpp"
#include "base/position.hpp"
#include "base/transf.hpp"
#include "lawutil/diff.hpp"
#include "lawutil/internal_law.hpp"
#include "lawutil/law_base.hpp"
#include "lawutil/law_data.hpp"
#include "lawutil/law_logic.hpp"
#include "lawutil/law_unary.hpp"
#include "lawutil/law_util.hpp"
#include "lawutil/law_vector.hpp"
#include "lawutil/main_law.hpp"
#include "lawutil/main_law_arith.hpp"
#include "lawutil/main_law_err.hpp"
#include "lawutil/root.hpp"
#include "lawutil/simplfy.hpp"
