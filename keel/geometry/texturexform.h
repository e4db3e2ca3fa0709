#pragma once

#include "keel/geometry/matrix.h"

namespace keel {

// The map of texture coordinates that lays the texture rectangle over the target rectangle,
// turned by the angle and shifted to the origin. Its translation is a fraction of the target,
// not a length.
class TextureXform : public QMatrix {
public:
    using Rect = TRect<QLength, c_worldSpace>;

    TextureXform() = default;
    // A target with no width or no height leaves the matrix identity.
    TextureXform(const Rect& textureRect, const Rect& targetRect, const Point& origin,
                 const QAngle& angle);
};

} // namespace keel
