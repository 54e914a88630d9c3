// The blend-sweep laws: conic cross-sections between two boundary points, and Dupin
// cyclide patches, the two shapes a rolling-ball or chamfer blend between two surfaces is
// swept with.
//
// Design.  Every law here is a law over its parts (no law data): the parts are
// evaluated at the law's input, so a parameter may vary along the sweep.  Values are
// computed in closed form; each symbolic derivative is the derivative of the same closed
// form built out of the algebra laws over the parts (as for BEND), except CYCLIDEPERP,
// the result of an iteration, whose derivative is a numerical D.  Points and directions
// are 3-vector laws (another dimension raises LAW_DIM); scalars are read with
// evaluateM_R.
#pragma once

#include "lawutil/law_vector_frame.hpp"

namespace lawutil {

// ---------------------------------------------------------------- conic sections
// CONICLINE(P0,P1,A,RHO,T), P0, P1, A 3-vectors, RHO and T scalars: the rational
// quadratic from P0 (T = 0) to P1 (T = 1) whose end tangents point at the apex A,
//   C(T) = ((1-T)^2 P0 + 2T(1-T) w A + T^2 P1) / ((1-T)^2 + 2T(1-T) w + T^2),
//   w = RHO/(1-RHO),
// an ellipse arc for RHO < 1/2, a parabola for RHO = 1/2, a hyperbola above.  Its
// shoulder C(1/2) = M + RHO (A - M), M = (P0+P1)/2.  RHO outside (0,1) raises
// LAW_BAD_DOMAN; a part count other than 5 LAW_DIM.
class conic_line_law : public multiple_law {
    LAWUTIL_TYPE_DECL(conic_line_law, multiple_law)
    LAWUTIL_VECTOR3_MEMBERS(conic_line_law)
};

// CONICTROUGH(P0,T0,P1,T1,RHO,T) = CONICLINE(P0,P1,A,RHO,T) with the apex A the
// intersection of the tangent lines P0 + s T0 and P1 + r T1: for skew lines, the
// midpoint of their closest points,
//   A = (P0 + s T0 + P1 + r T1)/2, q = P0 - P1, a = T0.T0, b = T0.T1, c = T1.T1,
//   d = T0.q, e = T1.q, s = (b e - c d)/(a c - b^2), r = (a e - b d)/(a c - b^2).
// Parallel (or zero) tangents, a c - b^2 <= 1e-12 a c, raise LAW_BAD_DOMAN; a part
// count other than 6 LAW_DIM.
class conic_trough_line_law : public multiple_law {
    LAWUTIL_TYPE_DECL(conic_trough_line_law, multiple_law)
    LAWUTIL_VECTOR3_MEMBERS(conic_trough_line_law)
};

// ---------------------------------------------------------------- Dupin cyclides
// A Dupin cyclide in its standard position, parameters a > |c| (b^2 = a^2 - c^2 > 0)
// and mu, angles u and v, with D = a - c cos u cos v:
//   x = (mu (c - a cos u cos v) + b^2 cos u) / D
//   y = b sin u (a - mu cos v) / D
//   z = b sin v (c cos u - mu) / D.
// Its lines of curvature are the circles u = const and v = const.  It is placed by the
// frame (O,X,Z): the point is O + x X' + y Y' + z Z', Z' = Z/|Z|, X' the unit part of X
// across Z', Y' = Z' x X'.  b^2 <= 0 raises LAW_BAD_DOMAN (this is also every case of
// D = 0: |c cos u cos v| <= |c| < |a| once b^2 > 0; D is still guarded, with
// LAW_DIVISION, against round-off), a zero Z or X along Z LAW_BAD_UNIT_VECTOR, a wrong
// part count LAW_DIM.

// CYCLIDE(O,X,Z,A,C,MU,U,V): the point of the placed cyclide at (U,V).
class cyclide_law : public multiple_law {
    LAWUTIL_TYPE_DECL(cyclide_law, multiple_law)
    LAWUTIL_VECTOR3_MEMBERS(cyclide_law)
};

// DCYCLIDE(O,X,Z,A,C,MU,U,V,I,J) = d^(I+J) CYCLIDE / du^I dv^J at (U,V), the orders I
// and J read at the input 1.0 and truncated (negative raise LAW_DIM).  I = J = 0 is
// CYCLIDE; otherwise the origin O drops out.  The partials come from the symbolic
// derivatives of the standard cyclide as a law of (a,c,mu,u,v), built once per law.
class dcyclide_law : public multiple_law {
    LAWUTIL_TYPE_DECL(dcyclide_law, multiple_law)
    LAWUTIL_VECTOR3_MEMBERS(dcyclide_law)

  private:
    // The standard cyclide's partial, one law of the 5 inputs (a,c,mu,u,v) per component.
    mutable law_holder local_[3];
};

// CYCLIDEPERP(O,X,Z,A,C,MU,P): the foot of the perpendicular from the point P onto the
// placed cyclide, the cyclide point nearest P.  The start is the nearest of a 24 x 24
// grid of (u,v) over [-pi,pi)^2; from there a guarded Gauss-Newton iteration on
// (S(u,v) - P) . S_u = (S(u,v) - P) . S_v = 0 (a step that does not bring the point
// nearer is halved, at most 40 steps) with central-difference partials.  Its
// derivative is the numerical D.
class cyclide_perp_law : public multiple_law {
    LAWUTIL_TYPE_DECL(cyclide_perp_law, multiple_law)
    LAWUTIL_VECTOR3_MEMBERS(cyclide_perp_law)
};

}  // namespace lawutil
