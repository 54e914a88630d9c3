// Vector algebra and moving frames for sweeping: the cross product, unit vector and length
// of vector laws, the frames a profile is carried along a path with, and bending.
//
// Design.  Each law evaluates in closed form straight from its parts (no allocation on
// the evaluation path, except MINROT's one-time frame and vectors of more than 16
// components), and each symbolic derivative is built out of the algebra laws (VEC, DOT,
// CROSS, NORM, SIZE, +, -, *, /, SIN, COS, ARCTAN) over the parts and their derivatives,
// so it simplifies and prints like any other law.  A derivative never holds the law it
// differentiates (the law caches its derivative: that would be a cycle); where the
// derivative needs the law's own value it holds a fresh law of the same class.
//
// A vector whose derivative comes back as a scalar has the zero vector for derivative
// (the scalar 0 stands for it, as for DOT); such terms are dropped.
//
// Degenerate geometry raises, never returns a NaN: a zero vector under NORM, a zero
// tangent or a curvature too small to define the normal raise LAW_BAD_UNIT_VECTOR; wrong
// dimensions raise LAW_DIM.
#pragma once

#include "lawutil/internal_law.hpp"

namespace lawutil {

// The members every law of this file with parts and one 3-vector output declares: the
// constructor over the parts (null for the registered prototypes), evaluation, the
// symbol in both spellings, make_one (which checks the part count), the symbolic
// derivative and the output size.  Leaves access public.
#define LAWUTIL_VECTOR3_MEMBERS(cls)                                                    \
    cls(::lawutil::law** parts, int n);                                                 \
    void evaluate(const double* x, double* y) const override;                           \
    const char* symbol(::lawutil::law_symbol_type type = ::lawutil::law_symbol_default) \
        const override;                                                                 \
    ::lawutil::multiple_law* make_one(::lawutil::law** parts, int n) const override;    \
                                                                                        \
  protected:                                                                            \
    ::lawutil::law* deriv(int which) const override;                                    \
    int return_size() const override {                                                  \
        return 3;                                                                       \
    }                                                                                   \
                                                                                        \
  public:

// CROSS(A,B) = A x B for two 3-vector laws.  make_one (the parser's route) raises
// LAW_CROSS_NUM for a part count other than 2; a part that is not a 3-vector raises
// LAW_DIM when evaluated.
class cross_law : public multiple_law {
    LAWUTIL_TYPE_DECL(cross_law, multiple_law)
    LAWUTIL_VECTOR3_MEMBERS(cross_law)
    cross_law(law* a, law* b);

    law* sub_simplify(int level, const char*& what) const override;
};

// NORM(A) = A / |A|, of A's dimension (the sign of a scalar).  |A| = 0 raises
// LAW_BAD_UNIT_VECTOR.
class norm_law : public unary_law {
    LAWUTIL_TYPE_DECL(norm_law, unary_law)
    explicit norm_law(law* sub);

    void evaluate(const double* x, double* y) const override;
    const char* symbol(law_symbol_type type = law_symbol_default) const override;
    unary_law* make_one(law* sub) const override;
    law* sub_simplify(int level, const char*& what) const override;

  protected:
    law* deriv(int which) const override;
    int return_size() const override;
};

// SIZE(A) = |A| = sqrt(A.A), the Euclidean length (|a| of a scalar).  Maple: norm(A,2).
class size_law : public unary_law {
    LAWUTIL_TYPE_DECL(size_law, unary_law)
    explicit size_law(law* sub);

    void evaluate(const double* x, double* y) const override;
    const char* symbol(law_symbol_type type = law_symbol_default) const override;
    char* string(law_symbol_type type, int& counter, law_data_node*& list) const override;
    unary_law* make_one(law* sub) const override;
    law* sub_simplify(int level, const char*& what) const override;

  protected:
    law* deriv(int which) const override;
};

// ---------------------------------------------------------------- frames along a curve
// A curve law C maps its first input t to a point of R^3.  Its tangent is read from the
// symbolic derivatives C' and C'' in that input.

// FRENET(C,i) = T, N or B for i = 1, 2, 3: T = C'/|C'|, B = (C' x C'')/|C' x C''|,
// N = B x T.  One 3-vector output per law: the selector keeps each output a vector the
// other vector laws take (the frame is the three laws FRENET(C,1..3)).  The selector is
// read at the input 1.0 and truncated like TERM's index.  A zero tangent, or (for N and
// B) |C' x C''| <= 1e-12 |C'| |C''| (a straight line, an inflection), raises
// LAW_BAD_UNIT_VECTOR; a selector other than 1, 2, 3 raises LAW_DIM when evaluated,
// a part count other than 2 when built.
class frenet_law : public multiple_law {
    LAWUTIL_TYPE_DECL(frenet_law, multiple_law)
    // Its derivative is that of the closed form above, built from NORM and CROSS.
    LAWUTIL_VECTOR3_MEMBERS(frenet_law)
};

// MINROT(C,R0,T0,T1) = r(t) on [T0,T1], the rotation-minimising unit normal along C:
// r(T0) is R0 made perpendicular to the tangent and unit, r . T = 0 and
// r' = -((r . C'')/(C' . C')) C' (r turns only as much as the tangent forces it to).
//
// The frame is integrated once, at the first evaluation, over "min_rot_samples" equal
// steps of [T0,T1] (both read then, like the "fast_euler" choice below); a value
// between samples is one more step from the sample below.  With "fast_euler" on (the
// default) a step is the double reflection x1-x0 then T1-TL (fourth-order, no
// trigonometry); off, it is the rotation about T0 x T1 that takes T0 to T1 (the older
// rotation method, second order, one atan2 and sin/cos per step).  Both keep r unit and
// perpendicular to the tangent to round-off.
//
// Over a closed curve the frame does not close in general: closing_twist() reports the
// angle it misses by; the law does not spread it (TWISTPATH can, explicitly).
// Errors: a part count other than 4 raises LAW_MR_NUM (when built), T1 <= T0 or a t
// outside [T0,T1] raises LAW_MR, a zero tangent or R0 along the start tangent
// LAW_BAD_UNIT_VECTOR.  The derivative is r' above, over a fresh MINROT of the same parts.
class min_rotation_law : public multiple_law {
    LAWUTIL_TYPE_DECL(min_rotation_law, multiple_law)
    LAWUTIL_VECTOR3_MEMBERS(min_rotation_law)
    ~min_rotation_law() noexcept(false) override;
    // The frame cache is owned: no copies by value.
    min_rotation_law(const min_rotation_law&) = delete;
    min_rotation_law& operator=(const min_rotation_law&) = delete;

    // The signed angle, about the tangent at T1, from R0 (made perpendicular to that
    // tangent) to r(T1): for a closed curve, by how much the frame fails to close.
    double closing_twist() const;
    // The number of steps the frame was integrated with (0 before the first evaluation).
    int samples() const { return samples_; }
    // Counts the integrated frame as well.
    void full_size(vorx::SizeAccumulator& acc, int count_self = 1) const override;

  private:
    void integrate() const;
    // Cache: per sample the point, the unit tangent and r, 9 doubles; filled once.
    mutable double* frame_ = nullptr;
    mutable int samples_ = 0;
    mutable double t0_ = 0.0, t1_ = 0.0;
    mutable bool reflect_ = true;
};

// TWISTPATH(R,C,A) = R cos A + (T x R) sin A + T (T . R)(1 - cos A), T = C'/|C'|: the
// vector law R turned about the tangent of the curve C by the angle law A (Rodrigues).
// A part count other than 3 raises LAW_TWIST_NUM; a zero tangent LAW_BAD_UNIT_VECTOR.
class twist_path_law : public multiple_law {
    LAWUTIL_TYPE_DECL(twist_path_law, multiple_law)
    LAWUTIL_VECTOR3_MEMBERS(twist_path_law)
};

// ---------------------------------------------------------------- bending
// BEND and UNBEND take five parts (P,O,A,D,R): the point law P, the root point O, the
// axis direction A, the bending direction D (its part along A is dropped) and the
// radius R, all evaluated at the law's input.  With a = A/|A|, d the unit part of D
// across a and n = a x d, a point is P = O + u d + v n + w a.  The plane through O
// spanned by d and a is wrapped onto the cylinder of radius |R| about the line
// O + R n + s a, length along d kept: u becomes the angle u/R.  Bending is defined
// everywhere and one to one on the slab sign(R)(R - v) > 0, |u| < pi |R|; UNBEND is
// its inverse there (UNBEND(BEND(P)) = P to round-off) and maps every other point to
// that slab.
// Errors: A and D parallel raise LAW_BEND_PARALLEL, a zero A LAW_BAD_UNIT_VECTOR, R = 0
// (and, for UNBEND, a point on the cylinder's axis) LAW_BAD_DOMAN, a part count other
// than 5 LAW_DIM when built.

// What BEND and UNBEND share: the frame read from their parts.  When O, A, D and R take
// no input (the usual case) the frame is made at the first evaluation and kept.
class bend_frame_law : public multiple_law {
    LAWUTIL_TYPE_DECL(bend_frame_law, multiple_law)
    bend_frame_law(law** parts, int n);

    struct frame {
        vorx::vector o, a, d, n;
        double r;
    };

  protected:
    // The frame at x; raises for a bad frame as the header comment above says.
    frame frame_at(const double* x) const;

  private:
    mutable frame cached_;
    mutable bool cached_valid_ = false;
};

// BEND(P,O,A,D,R) = O + R n + (R - v)(sin(u/R) d - cos(u/R) n) + w a
class bend_law : public bend_frame_law {
    LAWUTIL_TYPE_DECL(bend_law, bend_frame_law)
    LAWUTIL_VECTOR3_MEMBERS(bend_law)
};

// UNBEND(P,O,A,D,R) = O + R t d + (R - s r) n + w a, where q = P - O - R n, s = sign R,
// r = |(q.d, q.n)|, t = atan2(s q.d, -s q.n), w = q.a
class unbend_law : public bend_frame_law {
    LAWUTIL_TYPE_DECL(unbend_law, bend_frame_law)
    LAWUTIL_VECTOR3_MEMBERS(unbend_law)
};

}  // namespace lawutil
