// Context objects.  A library keeps its working state in a context object derived from
// context_callbacks; the base library notifies it of its own context events and asks it
// for diagnostic dumps.  Contexts belong to the thread that made them.
#pragma once

#include <cstdio>

#include "memory.hpp"

namespace vorx {

class toolkit_callback : public VORX_OBJECT {
  public:
    virtual ~toolkit_callback() = default;
};

class context_callbacks : public toolkit_callback {
  public:
    ~context_callbacks() override = default;
    // Print the context's diagnostic counters to `fp`.
    virtual void debug_dump(FILE* fp) const { (void)fp; }
    // The base library's notice that the thread's working state should be cleared.
    virtual void clear() {}
};

}  // namespace vorx
