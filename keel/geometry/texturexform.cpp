#include "keel/geometry/texturexform.h"

namespace keel {

TextureXform::TextureXform(const Rect& textureRect, const Rect& targetRect, const Point& origin,
                           const QAngle& angle) {
    const double w = targetRect.Width().GetRaw();
    const double h = targetRect.Height().GetRaw();
    if (tolerance::NearZero(w) || tolerance::NearZero(h))
        return;
    const double tw = textureRect.Width().GetRaw();
    const double th = textureRect.Height().GetRaw();
    const double c = angle.Cos();
    const double s = angle.Sin();
    Set(0, 0, tw / w * c);
    Set(0, 1, -(th / w) * s);
    Set(0, 3, origin.x.GetRaw() / w);
    Set(1, 0, tw / h * s);
    Set(1, 1, th / h * c);
    Set(1, 3, origin.y.GetRaw() / h);
}

} // namespace keel
