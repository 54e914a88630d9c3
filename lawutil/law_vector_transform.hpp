// Transforms applied to laws, and the unit normal of a surface.
//
// A transform T (a base_transform_law_data) maps a point p to p A s + t: A its affine
// part (a rotation, possibly with reflection or shear), s > 0 its scaling, t its
// translation.  A position law, a direction law and a length law each take T in their
// own way: a position moves with all of it, a displacement ignores t, a direction of a
// frame ignores s as well, a length only scales.
//
// Text form: the keyword, the law, then the transform, "TRANS(VEC(X,0,0),TRANS1)"; the
// parser reads it back when handed the same data array.  The law travels as a
// law_law_data, like the point of CURVEPERP.
//
// Derivatives.  Every map here is affine in the law it carries, so the derivative of a
// carried law is the derivative carried by the linear part: TRANS(P,T)' = VECTRANS(P',T),
// POSTRANS(P,T)' = VECTRANS(P',T^-1).  A vector law whose derivative came back as the
// scalar 0 (the zero vector) has the derivative 0.
//
// Errors, when a law is built: a data count other than 2 raises LAW_VEC_NUM,
// LAW_POS_NUM or LAW_SCALE_NUM for VECTRANS, POSTRANS and SCALETRANS (LAW_DATA_UNKNOWN
// for TRANS and ROTATE), data of the wrong kinds LAW_DATA_UNKNOWN, a carried law that
// is not a 3-vector (but for SCALETRANS) LAW_DIM, and a singular transform (zero or
// non-finite scaling, |det A| <= 1e-12) LAW_BAD_DOMAN: no law here carries a transform
// that has no inverse.
#pragma once

#include "lawutil/law_unary_data.hpp"

namespace lawutil {

// What the five transform laws share: data {law, transform}, and equality that compares
// transforms by value (two data objects holding equal transforms are the same law).
class transform_data_law : public multiple_data_law {
    LAWUTIL_TYPE_DECL(transform_data_law, multiple_data_law)
    transform_data_law(law_data** data, int count);

    // The carried law and the transform (null for the registered prototypes).
    law* carried() const;
    const base_transform_law_data* transform() const;

    int same(const law* a, const law* b) const override;

  protected:
    // The carried law's dimensions (1 and 3 for the prototypes).
    int carried_take() const;
    int carried_return() const;
    // The law of this class (VECTRANS when asked) over {carried', T}; 0 when carried' is
    // the zero vector.
    law* carried_deriv(int which, law_data* t, bool as_vectrans) const;
};

#define LAWUTIL_TRANSFORM_MEMBERS(cls)                    \
    LAWUTIL_TYPE_DECL(cls, ::lawutil::transform_data_law) \
    LAWUTIL_MULTIPLE_DATA_MEMBERS(cls)

// TRANS(P,T) = P A s + t: the position law P carried by T.
class transform_law : public transform_data_law {
    LAWUTIL_TRANSFORM_MEMBERS(transform_law)
    // TRANS(VEC(a,b,c),T) -> VEC of the three affine combinations ("trans(vec)=vec").
    law* sub_simplify(int level, const char*& what) const override;
};

// ROTATE(V,T) = V A: the direction law V turned by T's affine part only (a unit vector
// stays unit when A is a rotation).
class rotate_law : public transform_data_law {
    LAWUTIL_TRANSFORM_MEMBERS(rotate_law)
};

// VECTRANS(V,T) = V A s: the displacement law V carried by T (no translation).
class vectrans_law : public transform_data_law {
    LAWUTIL_TRANSFORM_MEMBERS(vectrans_law)
};

// POSTRANS(P,T) = (P - t) A^-1 / s: the position law P taken back into the frame T
// places, so POSTRANS(TRANS(P,T),T) = P.
class postrans_law : public transform_data_law {
    LAWUTIL_TRANSFORM_MEMBERS(postrans_law)
};

// SCALETRANS(F,T) = s F: a length (or any) law scaled as T scales lengths.
class scaletrans_law : public transform_data_law {
    LAWUTIL_TRANSFORM_MEMBERS(scaletrans_law)
};

// SURFNORM(S) = (Su x Sv) / |Su x Sv| at (u, v) = (x0, x1), read from the surface's
// eval_normal.  A normal that is not a finite unit vector (a degenerate point) raises
// LAW_BAD_UNIT_VECTOR.  Its derivative is that of NORM(CROSS(DSURF(S,1,0),DSURF(S,0,1))).
class surfnorm_law : public unary_data_law {
    LAWUTIL_TYPE_DECL(surfnorm_law, unary_data_law)
    LAWUTIL_UNARY_DATA_MEMBERS(surfnorm_law)
};

}  // namespace lawutil
