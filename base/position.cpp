#include "base/position.hpp"

#include "base/transf.hpp"

namespace vorx {

// The in-place transforms live here, where `transf` is complete.

vector& vector::operator*=(const transf& t) {
    return *this = *this * t;
}

position& position::operator*=(const transf& t) {
    return *this = *this * t;
}

unit_vector& unit_vector::operator*=(const transf& t) {
    return *this = *this * t;
}

}  // namespace vorx
