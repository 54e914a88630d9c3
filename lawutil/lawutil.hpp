// The law library: everything a client needs, in one include.
#pragma once

#include "lawutil/compile.hpp"
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
