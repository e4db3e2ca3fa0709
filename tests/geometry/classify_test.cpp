#include "tests/support/geometry.h"

#include "keel/geometry/classify.h"
#include "keel/geometry/tpoly.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <string>

namespace keel {

namespace {

using test::ClassName;
using test::GridPolygons;
using test::Text;

// For two axis-parallel rectangles the answer is known without the algorithm: they cross when
// both ranges overlap by more than a point, touch when the ranges meet without that.
TEST(ClassifyPolygonsTest, RectanglesAgreeWithTheirRanges) {
    GridPolygons grid(11);
    int counts[3] = {};
    for (int i = 0; i < 3000; ++i) {
        const QWorldPoly a = grid.NextRectangle();
        const QWorldPoly b = grid.NextRectangle();
        const QWorldPoly::Rect& ra = a.GetBounds();
        const QWorldPoly::Rect& rb = b.GetBounds();
        const double overlapX = std::min(ra.right.GetRaw(), rb.right.GetRaw()) -
                                std::max(ra.left.GetRaw(), rb.left.GetRaw());
        const double overlapY = std::min(ra.bottom.GetRaw(), rb.bottom.GetRaw()) -
                                std::max(ra.top.GetRaw(), rb.top.GetRaw());
        const CROSSTOUCHDISJOINT expected = overlapX < 0 || overlapY < 0     ? DISJOINT
                                            : overlapX == 0 || overlapY == 0 ? TOUCH
                                                                             : CROSS;
        ++counts[expected + 1];
        ASSERT_STREQ(ClassName(ClassifyPolygons(a, b)), ClassName(expected))
            << Text(a) << " | " << Text(b);
    }
    for (int count : counts)
        EXPECT_GT(count, 100);
}

} // namespace

} // namespace keel
