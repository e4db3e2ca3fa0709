#include "tests/support/pagescene.h"
#include "tests/support/paths.h"

#include "keel/platform/exceptions.h"

#include <gtest/gtest.h>

namespace keel::test {
namespace {

TEST(DeviceContextTest, MappingRoundsHalvesAwayFromZeroBothWays) {
    QRecordingDC dc(QDeviceCaps{});
    dc.SetMapMode(MM_ANISOTROPIC);
    dc.SetWindowExt(2, 4);
    dc.SetViewportExt(1, -3);
    dc.SetWindowOrg(10, 20);
    dc.SetViewportOrg(100, 200);
    const struct {
        QClientPoint logical, device;
    } cases[] = {
        {{10, 20}, {100, 200}}, {{11, 22}, {101, 198}},  // 0.5 up, -1.5 away from zero
        {{9, 18}, {99, 202}},   {{13, 21}, {102, 199}},  // -0.5 down, 1.5 and -0.75
        {{12, 24}, {101, 197}}, {{-10, -20}, {90, 230}}, //
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.logical.x) + "," + std::to_string(c.logical.y));
        EXPECT_EQ(dc.LPtoDP(c.logical), c.device);
    }
    EXPECT_EQ(dc.DPtoLP(QClientPoint(101, 197)), QClientPoint(12, 24));
    EXPECT_EQ(dc.DPtoLP(QClientPoint(100, 201)), QClientPoint(10, 19)) << "-1.33 to -1";
    EXPECT_DOUBLE_EQ(dc.LogicalToDeviceY(21), 199.25);
    EXPECT_DOUBLE_EQ(dc.DeviceToLogicalY(199.25), 21);

    EXPECT_EQ(dc.SetMapMode(MM_TEXT), MM_ANISOTROPIC);
    EXPECT_EQ(dc.LPtoDP(QClientPoint(11, 22)), QClientPoint(101, 202))
        << "text mode keeps the origins and drops the extents";
}

TEST(DeviceContextTest, BadModesAndExtentsAreRefused) {
    QRecordingDC dc(QDeviceCaps{});
    EXPECT_THROW(dc.SetMapMode(3), InvalidArgumentException);
    EXPECT_THROW(dc.SetWindowExt(0, 1), InvalidArgumentException);
    EXPECT_THROW(dc.SetViewportExt(1, 0), InvalidArgumentException);
    EXPECT_EQ(dc.GetMapMode(), MM_TEXT);
    const QClientPoint three[] = {{0, 0}, {1, 1}, {2, 2}};
    try {
        dc.PolyBezier(three);
        ADD_FAILURE();
    } catch (const InvalidArgumentException& failure) {
        EXPECT_STREQ(failure.what(), "Invalid argument: PolyBezier takes a start point and three "
                                     "points a curve, not 3");
    }
    const std::uint8_t types[] = {PT_MOVETO, PT_BEZIERTO, PT_BEZIERTO};
    EXPECT_THROW(dc.PolyDraw(three, types), InvalidArgumentException);
    const std::uint8_t unknown[] = {PT_MOVETO, 9, PT_LINETO};
    EXPECT_THROW(dc.PolyDraw(three, unknown), InvalidArgumentException);
}

QPagePoly PagePolyOf(std::initializer_list<std::pair<double, double>> vertices) {
    QPagePoly poly;
    for (const auto& [x, y] : vertices)
        poly.Add(PagePt(x, y));
    return poly;
}

// Each shape drawn on a context in text mode, where logical units are the recorded pixels.
TEST(DeviceContextTest, ShapesBecomeTheirPlatformCalls) {
    const struct {
        const char* name;
        std::function<void(QDeviceContext&)> draw;
        std::vector<std::string> lines;
    } cases[] = {
        {"empty polygon", [](QDeviceContext& dc) { DrawPoly(dc, QPagePoly()); }, {}},
        {"polygon of one point",
         [](QDeviceContext& dc) {
             DrawPoly(dc, PagePolyOf({{1, 2}}));
         },
         {"polygon 100,200"}},
        {"world polygon over two scales",
         [](QDeviceContext& dc) {
             QWorldPoly poly;
             poly.Add(WorldPt(100, 100));
             poly.Add(WorldPt(300, 50));
             DrawPoly(dc, poly, 10, 5);
         },
         {"polygon 1000,2000 3000,1000"}},
        {"edges",
         [](QDeviceContext& dc) {
             DrawEdges(dc, PagePolyOf({{0, 0}, {1, 0}, {1, 1}}));
         },
         {"lines 0,0 100,0 100,100"}},
        {"edges with types",
         [](QDeviceContext& dc) {
             const std::uint8_t types[] = {PT_MOVETO,   PT_LINETO | PT_CLOSEFIGURE,
                                           PT_MOVETO,   PT_BEZIERTO,
                                           PT_BEZIERTO, PT_BEZIERTO,
                                           PT_LINETO};
             DrawEdges(dc, PagePolyOf({{0, 0}, {1, 0}, {2, 2}, {3, 3}, {4, 3}, {5, 2}, {6, 0}}),
                       types);
         },
         {"lines 0,0 100,0", "lines 100,0 0,0", "beziers 200,200 300,300 400,300 500,200",
          "lines 500,200 600,0"}},
        {"curve of 4",
         [](QDeviceContext& dc) {
             DrawCurved(dc, PagePolyOf({{0, 0}, {1, 1}, {2, 1}, {3, 0}}));
         },
         {"beziers 0,0 100,100 200,100 300,0"}},
        {"curve of 5: a line for the one left",
         [](QDeviceContext& dc) {
             DrawCurved(dc, PagePolyOf({{0, 0}, {1, 1}, {2, 1}, {3, 0}, {4, 0}}));
         },
         {"beziers 0,0 100,100 200,100 300,0", "lines 300,0 400,0"}},
        {"curve of 6: one more cubic for the two left",
         [](QDeviceContext& dc) {
             DrawCurved(dc, PagePolyOf({{0, 0}, {1, 1}, {2, 1}, {3, 0}, {4, 0}, {5, 1}}));
         },
         {"beziers 0,0 100,100 200,100 300,0", "beziers 300,0 400,0 400,0 500,100"}},
        {"curve of 2",
         [](QDeviceContext& dc) {
             DrawCurved(dc, PagePolyOf({{0, 0}, {1, 1}}));
         },
         {"lines 0,0 100,100"}},
        {"arrow",
         [](QDeviceContext& dc) { DrawArrow(dc, PagePt(10, 0), PagePt(0, 0), Mm(2), Mm(2)); },
         {"lines 1000,0 800,100", "lines 800,100 800,-100", "lines 800,-100 1000,0"}},
        {"world arrow at 1:10",
         [](QDeviceContext& dc) {
             DrawArrow(dc, WorldPt(0, 100), WorldPt(0, 0), Mm(20), Mm(40), 10);
         },
         {"lines 0,1000 -200,800", "lines -200,800 200,800", "lines 200,800 0,1000"}},
        {"edges with an arrow at the end",
         [](QDeviceContext& dc) {
             DrawEdgesWithArrows(dc, PagePolyOf({{0, 0}, {10, 0}}), false, true, Mm(2), Mm(2));
         },
         {"lines 0,0 1000,0", "lines 1000,0 800,100", "lines 800,100 800,-100",
          "lines 800,-100 1000,0"}},
        {"no arrows on one vertex",
         [](QDeviceContext& dc) {
             DrawCurvedWithArrows(dc, PagePolyOf({{0, 0}}), true, true, Mm(2), Mm(2));
         },
         {}},
        {"text, pen, brush, fill, ellipse",
         [](QDeviceContext& dc) {
             dc.SetPen({255, 0, 16}, 0);
             dc.SetBrush(std::nullopt);
             dc.SetTextHeight(12);
             dc.TextOut(QClientPoint(5, 6), u"Größe");
             dc.FillRect(QClientRect(10, 0, 0, 10), {0, 0, 0});
             dc.Ellipse(QClientRect(0, 0, 20, 10));
         },
         {"pen #FF0010 w=1", "brush none", "text 5,6 h=12 \"Größe\"", "fill 0,0,10,10 #000000",
          "ellipse 0,0,20,10"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        QRecordingDC dc(QDeviceCaps{});
        c.draw(dc);
        EXPECT_EQ(dc.Lines(), c.lines);
    }
}

std::string GoldenPath(const std::string& name) {
    return TestDataFolder() + "/geometry/scenes/" + name;
}

// The whole test page at two scales and three zooms, against the drawing calls kept beside the
// tests. KEEL_WRITE_GOLDEN=1 writes them anew.
TEST(DeviceContextTest, ScenePagesMatchTheirRecordedCalls) {
    for (const int scale : {50, 100}) {
        for (const int zoom : {50, 100, 200}) {
            const std::string name =
                "scene-scale" + std::to_string(scale) + "-zoom" + std::to_string(zoom) + ".txt";
            SCOPED_TRACE(name);
            PageSetup setup(200, 150, scale);
            const std::string recorded = RecordScene(setup, zoom);
            if (std::getenv("KEEL_WRITE_GOLDEN"))
                WriteFileBytes(GoldenPath(name), recorded);
            EXPECT_EQ(recorded, ReadFileBytes(GoldenPath(name)));
        }
    }
}

} // namespace
} // namespace keel::test
