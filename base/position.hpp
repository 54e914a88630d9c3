// Points, directions and parameter pairs of the kernel.
//
// `vector` is a displacement in model space, `position` a point, `unit_vector` a direction
// of length one, `par_pos` a (u, v) pair in a surface's parameter space.  Points and
// displacements are distinct types so the algebra stays honest: a position minus a
// position is a vector, a position plus a vector is a position, and two positions do not
// add.  All are plain values.
#pragma once

#include <cmath>

#include "tolerance.hpp"

namespace vorx {

class transf;
class position;

class vector {
  public:
    vector() : c_{0.0, 0.0, 0.0} {}
    vector(double x, double y, double z) : c_{x, y, z} {}
    explicit vector(const double xyz[3]) : c_{xyz[0], xyz[1], xyz[2]} {}

    double x() const { return c_[0]; }
    double y() const { return c_[1]; }
    double z() const { return c_[2]; }
    double component(int i) const { return c_[i]; }
    double operator[](int i) const { return c_[i]; }
    double& operator[](int i) { return c_[i]; }
    void set_x(double v) { c_[0] = v; }
    void set_y(double v) { c_[1] = v; }
    void set_z(double v) { c_[2] = v; }
    void set_component(int i, double v) { c_[i] = v; }

    double len_sq() const { return c_[0] * c_[0] + c_[1] * c_[1] + c_[2] * c_[2]; }
    double len() const { return std::sqrt(len_sq()); }
    // True when every component is within `tol` of zero.
    bool is_zero(double tol = resabs) const {
        return std::fabs(c_[0]) <= tol && std::fabs(c_[1]) <= tol && std::fabs(c_[2]) <= tol;
    }

    vector& operator+=(const vector& v) {
        c_[0] += v.c_[0];
        c_[1] += v.c_[1];
        c_[2] += v.c_[2];
        return *this;
    }
    vector& operator-=(const vector& v) {
        c_[0] -= v.c_[0];
        c_[1] -= v.c_[1];
        c_[2] -= v.c_[2];
        return *this;
    }
    vector& operator*=(double s) {
        c_[0] *= s;
        c_[1] *= s;
        c_[2] *= s;
        return *this;
    }
    vector& operator/=(double s) { return *this *= 1.0 / s; }
    // Transforms the direction: translation does not apply.
    vector& operator*=(const transf& t);

  private:
    double c_[3];
};

inline vector operator+(const vector& a, const vector& b) {
    return vector(a.x() + b.x(), a.y() + b.y(), a.z() + b.z());
}
inline vector operator-(const vector& a, const vector& b) {
    return vector(a.x() - b.x(), a.y() - b.y(), a.z() - b.z());
}
inline vector operator-(const vector& a) {
    return vector(-a.x(), -a.y(), -a.z());
}
inline vector operator*(const vector& a, double s) {
    return vector(a.x() * s, a.y() * s, a.z() * s);
}
inline vector operator*(double s, const vector& a) {
    return a * s;
}
inline vector operator/(const vector& a, double s) {
    return a * (1.0 / s);
}
// Cross product.
inline vector operator*(const vector& a, const vector& b) {
    return vector(a.y() * b.z() - a.z() * b.y(), a.z() * b.x() - a.x() * b.z(),
                  a.x() * b.y() - a.y() * b.x());
}
// Dot product.
inline double operator%(const vector& a, const vector& b) {
    return a.x() * b.x() + a.y() * b.y() + a.z() * b.z();
}

class position {
  public:
    position() : c_{0.0, 0.0, 0.0} {}
    position(double x, double y, double z) : c_{x, y, z} {}
    explicit position(const double xyz[3]) : c_{xyz[0], xyz[1], xyz[2]} {}
    // The point at `v` from the origin.
    explicit position(const vector& v) : c_{v.x(), v.y(), v.z()} {}

    double x() const { return c_[0]; }
    double y() const { return c_[1]; }
    double z() const { return c_[2]; }
    double component(int i) const { return c_[i]; }
    double operator[](int i) const { return c_[i]; }
    double& operator[](int i) { return c_[i]; }
    void set_x(double v) { c_[0] = v; }
    void set_y(double v) { c_[1] = v; }
    void set_z(double v) { c_[2] = v; }
    void set_component(int i, double v) { c_[i] = v; }

    position& operator+=(const vector& v) {
        c_[0] += v.x();
        c_[1] += v.y();
        c_[2] += v.z();
        return *this;
    }
    position& operator-=(const vector& v) {
        c_[0] -= v.x();
        c_[1] -= v.y();
        c_[2] -= v.z();
        return *this;
    }
    position& operator*=(const transf& t);

  private:
    double c_[3];
};

inline position operator+(const position& p, const vector& v) {
    return position(p.x() + v.x(), p.y() + v.y(), p.z() + v.z());
}
inline position operator+(const vector& v, const position& p) {
    return p + v;
}
inline position operator-(const position& p, const vector& v) {
    return position(p.x() - v.x(), p.y() - v.y(), p.z() - v.z());
}
inline vector operator-(const position& a, const position& b) {
    return vector(a.x() - b.x(), a.y() - b.y(), a.z() - b.z());
}

// A direction of length one.  The mutating operations of `vector` are hidden, so a
// unit_vector stays unit unless it is deliberately converted.  The one exception is the
// zero vector, which has no direction: normalising it yields (0, 0, 0) rather than an
// error, and callers that care test `is_zero()`.
class unit_vector : public vector {
  public:
    // The z direction, so a default unit_vector is still of length one.
    unit_vector() : vector(0.0, 0.0, 1.0) {}
    // Normalises (x, y, z); all zeros give (0, 0, 0).
    unit_vector(double x, double y, double z) : vector(unit(x, y, z)) {}

    unit_vector& operator+=(const vector&) = delete;
    unit_vector& operator-=(const vector&) = delete;
    unit_vector& operator*=(double) = delete;
    unit_vector& operator/=(double) = delete;
    void set_x(double) = delete;
    void set_y(double) = delete;
    void set_z(double) = delete;
    void set_component(int, double) = delete;
    // Read-only: hides the writable subscript of `vector`.
    double operator[](int i) const { return component(i); }
    // Rotates (or reflects) the direction and renormalises, so scaling and shear leave a
    // unit result.
    unit_vector& operator*=(const transf& t);

  private:
    static vector unit(double x, double y, double z) {
        double l = std::sqrt(x * x + y * y + z * z);
        if (l == 0.0) return vector();
        return vector(x / l, y / l, z / l);
    }
};

// `v` scaled to length one; the zero vector gives (0, 0, 0).
inline unit_vector normalise(const vector& v) {
    return unit_vector(v.x(), v.y(), v.z());
}
inline unit_vector operator-(const unit_vector& u) {
    return unit_vector(-u.x(), -u.y(), -u.z());
}

// A point of a parameter plane.
class par_pos {
  public:
    par_pos() : u_(0.0), v_(0.0) {}
    par_pos(double u, double v) : u_(u), v_(v) {}

    double u() const { return u_; }
    double v() const { return v_; }
    void set_u(double u) { u_ = u; }
    void set_v(double v) { v_ = v; }
    double len() const { return std::sqrt(u_ * u_ + v_ * v_); }

    par_pos& operator+=(const par_pos& p) {
        u_ += p.u_;
        v_ += p.v_;
        return *this;
    }
    par_pos& operator-=(const par_pos& p) {
        u_ -= p.u_;
        v_ -= p.v_;
        return *this;
    }

  private:
    double u_, v_;
};

inline par_pos operator+(const par_pos& a, const par_pos& b) {
    return par_pos(a.u() + b.u(), a.v() + b.v());
}
inline par_pos operator-(const par_pos& a, const par_pos& b) {
    return par_pos(a.u() - b.u(), a.v() - b.v());
}
inline par_pos operator-(const par_pos& a) {
    return par_pos(-a.u(), -a.v());
}
inline par_pos operator*(const par_pos& a, double s) {
    return par_pos(a.u() * s, a.v() * s);
}
inline par_pos operator*(double s, const par_pos& a) {
    return a * s;
}

// Both parameters within `tol` of each other.
inline bool same_par_pos(const par_pos& a, const par_pos& b, double tol = resabs) {
    return std::fabs(a.u() - b.u()) <= tol && std::fabs(a.v() - b.v()) <= tol;
}
// Equality within resabs, as parameter values come out of iterative solvers.
inline bool operator==(const par_pos& a, const par_pos& b) {
    return same_par_pos(a, b);
}
inline bool operator!=(const par_pos& a, const par_pos& b) {
    return !same_par_pos(a, b);
}

}  // namespace vorx
