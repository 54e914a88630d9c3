// Affine transforms with a uniform scale.
//
// Points are rows: a position p maps to (p * affine) * scaling + translation, and a vector
// v to (v * affine) * scaling.  The affine part holds rotation, reflection and shear but
// no uniform scale: any uniform scale lives in `scaling`, which is always positive (a
// negative scale is a point inversion, kept as -I in the affine part).
//
// Composition reads left to right: p * (A * B) == (p * A) * B, i.e. A applies first.
#pragma once

#include "matrix.hpp"
#include "memory.hpp"
#include "position.hpp"

namespace vorx {

class transf : public VORX_OBJECT {
  public:
    // The identity.
    transf() : scaling_(1.0), rotate_(false), reflect_(false), shear_(false), identity_(true) {}
    // A general transform.  A uniform scale folded into `affine` (|det| != 1) is moved
    // into the scaling, and a negative `scale` becomes -I in the affine part, so the
    // stored parts keep the meaning stated above.
    transf(const matrix& affine, double scale, const vector& translation);

    const matrix& affine() const { return affine_; }
    const vector& translation() const { return translation_; }
    double scaling() const { return scaling_; }
    // The affine part differs from the identity (rotation, reflection or shear).
    bool rotate() const { return rotate_; }
    // The affine part turns handedness (negative determinant).
    bool reflect() const { return reflect_; }
    // The affine part is not orthogonal.
    bool shear() const { return shear_; }
    // Identity affine part, no translation, unit scaling.
    bool identity() const { return identity_; }

    // The transform that undoes this one.  A zero scaling has no inverse; it yields a
    // transform with infinite scaling.
    transf inverse() const;

    // The 13 numbers of the transform: [0..8] the affine part by rows, [9..11] the
    // translation, [12] the scaling.
    void to_array(double v13[13]) const;

    transf& operator*=(const transf& t);

  private:
    void set_flags();

    matrix affine_;
    vector translation_;
    double scaling_;
    bool rotate_;
    bool reflect_;
    bool shear_;
    bool identity_;
};

// Applies `a` first, then `b`.
transf operator*(const transf& a, const transf& b);
// Equal parts: affine within resnor, translation within resabs, scaling within resnor
// relative.
bool operator==(const transf& a, const transf& b);
inline bool operator!=(const transf& a, const transf& b) {
    return !(a == b);
}

inline vector operator*(const vector& v, const transf& t) {
    return (v * t.affine()) * t.scaling();
}
inline position operator*(const position& p, const transf& t) {
    vector v(p.x(), p.y(), p.z());
    return position((v * t.affine()) * t.scaling() + t.translation());
}
// Rotates the direction and renormalises it.
inline unit_vector operator*(const unit_vector& u, const transf& t) {
    return normalise(static_cast<const vector&>(u) * t.affine());
}

// The transform from 13 numbers laid out as by transf::to_array.  The affine part and
// scaling are normalised as by the general constructor.
transf transf_from_array(const double v13[13]);

// Translation by `v`.
transf translate_transf(const vector& v);
// Rotation by `angle` radians about `axis` through the origin, counterclockwise when
// seen from the tip of the axis.  A zero axis gives the identity.
transf rotate_transf(double angle, const vector& axis);
// Reflection in the plane through the origin normal to `normal`.  A zero normal gives
// the identity.
transf reflect_transf(const vector& normal);
// Uniform scaling about the origin.  A negative factor also inverts through the origin.
transf scale_transf(double s);
// From local coordinates to global: local (0,0,0) goes to `origin`, local (1,0,0) to
// origin + x_axis, local (0,0,1) to origin + z_axis, and local y to z_axis * x_axis.
// `x_axis` is first made perpendicular to `z_axis` (its component along z_axis dropped);
// it must not be parallel to `z_axis`.
transf coordinate_transf(const position& origin, const unit_vector& x_axis,
                         const unit_vector& z_axis);

}  // namespace vorx
