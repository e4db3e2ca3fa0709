#pragma once

namespace keel {

// How two shapes lie: their interiors overlap, only their boundaries meet, or nothing is shared.
// The values are computed with, so they are fixed.
enum CROSSTOUCHDISJOINT { CROSS = -1, TOUCH = 0, DISJOINT = 1 };

} // namespace keel
