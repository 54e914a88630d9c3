// Root finding over laws of one input: every zero on a closed interval.
#pragma once

class law;

// Writes the default root-search tolerances into the calling thread's context (the
// leading flag is left alone).  root_far_ratio becomes 0.1, not the 1.0 a new context has.
void set_root_tol_default();
