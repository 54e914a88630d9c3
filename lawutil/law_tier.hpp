// Tiered evaluation: a law of the arithmetic and function families that evaluateM_R
// evaluates often compiles itself into its exact program and runs that from then on,
// with the tree's values and errors (see law_tier.cpp).  The scope below keeps laws on
// their tree, for comparing the tree with its compiled form, or timing the tree alone.
#pragma once

namespace lawutil {

// While one lives, evaluateM_R runs every law's tree: no law compiles itself, and one
// that has compiled leaves its program unused.  Scopes nest.  The switch is process-wide
// (a relaxed atomic count: reading a thread's context costs every compiled evaluation a
// call), so a scope on one thread also slows laws on others, without changing a value.
class law_tiering_off {
  public:
    law_tiering_off();
    ~law_tiering_off();
    law_tiering_off(const law_tiering_off&) = delete;
    law_tiering_off& operator=(const law_tiering_off&) = delete;
};

// False while a law_tiering_off scope lives.
bool law_tiering_on();

}  // namespace lawutil
