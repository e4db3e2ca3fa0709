#pragma once

#include "keel/geometry/tpoly.h"

#include <string>
#include <string_view>

namespace keel {

// Reads a polygon written as points "x,y" in millimetres, separated by white space:
// "0,0 100,0 100,50". Each number is a decimal with an optional sign and exponent; a point takes
// no space inside. At least three points are needed, and no coordinate may be infinite, NaN or
// beyond c_mostPolyTextMillimetres. On failure the polygon is left alone and `message` says what
// was wrong and where.
bool ReadPolyText(std::string_view text, QWorldPoly& poly, std::string& message);

// The largest coordinate accepted, a thousand kilometres either way.
inline constexpr double c_mostPolyTextMillimetres = 1e9;

// The polygon as ReadPolyText reads it, each coordinate in millimetres in the shortest form that
// reads back to the same double.
std::string WritePolyText(const QWorldPoly& poly);

} // namespace keel
