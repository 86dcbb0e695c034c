// The view's orientation: a 4x4 matrix (column-major, as OpenGL takes it)
// that maps the axes of an alignment body onto the world's axes when bodies
// are drawn. It is built from three axis vectors and kept between runs in a
// one-line text file of 16 numbers.
#pragma once

#include <array>
#include <string>

#include "zorsock/geometry.h"

using OrientationMatrix = std::array<float, 16>;

OrientationMatrix IdentityOrientation();
// a, b and c become the first three columns; no translation.
OrientationMatrix AxesMatrix(const Vec3& a, const Vec3& b, const Vec3& c);

// Reads `fileName`: every line of 16 numbers replaces `m` (the last good line
// wins), other lines are skipped. False when the file holds no good line or
// cannot be opened (a missing file is no error: `m` stays).
bool ReadOrientationFile(const std::string& fileName, OrientationMatrix& m);
// One line of 16 numbers, each followed by a blank. Prints "unable to open: "
// and the name when the file cannot be written.
bool WriteOrientationFile(const std::string& fileName, const OrientationMatrix& m);
