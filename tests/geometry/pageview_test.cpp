#include "tests/support/pagescene.h"

#include "keel/platform/exceptions.h"

#include <gtest/gtest.h>

namespace keel::test {
namespace {

TEST(PageViewTest, AMetreOfPageIsTheScreensPixelsOfAMetreAtTheZoom) {
    const struct {
        int zoom, pixels;
    } cases[] = {{100, 3779}, {200, 7558}, {50, 1890}, {33, 1247}, {1, 38}, {100000, 3779000}};
    PageSetup setup(200, 150, 50);
    for (const auto& c : cases) {
        SCOPED_TRACE(c.zoom);
        setup.view->SetZoom(c.zoom, false);
        EXPECT_EQ(setup.view->PageToClient(QPageVector{Mm(1000), Mm(1000)}),
                  (QClientVector{c.pixels, -c.pixels}))
            << "y points down on the client";
    }
}

TEST(PageViewTest, PixelsAMetreAreMadeSquareWhenNearlyEqual) {
    const struct {
        QDeviceCaps caps; // pixels and millimetres wide and high
        QClientVector pixels;
    } cases[] = {
        {{3779, 3790, 1000, 1000}, {3785, 3785}}, // mean (3779+3790+1)/2
        {{1920, 1080, 508, 286}, {3778, 3778}},   // 3780 and 3776 first, then their mean
        {{3700, 3774, 1000, 1000}, {3737, 3737}}, // 0.99 of the mean: still square
        {{3700, 3776, 1000, 1000}, {3700, 3776}}, // just beyond 1 %
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.caps.widthPixels) + "/" +
                     std::to_string(c.caps.heightPixels));
        const QInfoDC dc(c.caps);
        EXPECT_EQ(PixelsPerMetre(&dc), c.pixels);
    }
    EXPECT_EQ(PixelsPerMetre(nullptr).x, 3779);
    SetDisplayDpi(192);
    EXPECT_EQ(PixelsPerMetre(nullptr).y, 7558);
    SetDisplayDpi(96);
    EXPECT_EQ(ScaleDimensionForDPI(3779, 144), 5669) << "5668.5 rounds up";
}

TEST(PageViewTest, PointsRunPageTopToClientTopAndOnToTheScreen) {
    PageSetup setup(200, 150, 50);
    QPageView& view = *setup.view;
    EXPECT_EQ(view.PageToClient(PagePt(0, 150)), QClientPoint(0, 0));
    EXPECT_EQ(view.PageToClient(PagePt(0, 0)), QClientPoint(0, 567)) << "150 mm is 566.85 px";
    EXPECT_EQ(view.PageToClient(PagePt(100, 75)), QClientPoint(378, 283));
    EXPECT_EQ(view.WorldToClient(WorldPt(5000, 3750)), QClientPoint(378, 283));
    EXPECT_EQ(view.ClientToScreen(QClientPoint(378, 283)), QScreenPoint(478, 333));
    EXPECT_EQ(view.ScreenToClient(QScreenPoint(478, 333)), QClientPoint(378, 283));
    const QClientRect rect = view.PageToClient(QPageRect(PagePt(10, 10), PagePt(20, 30)));
    EXPECT_LT(rect.top, rect.bottom) << "normalised on the client";
}

TEST(PageViewTest, FreeFunctionsWithoutAContextGiveLogicalUnits) {
    EXPECT_EQ(ClientPoint(PagePt(1.234, -0.005), nullptr), QClientPoint(123, 0));
    EXPECT_EQ(ClientPoint(PagePt(0.015, -0.015), nullptr), QClientPoint(2, -1));
    EXPECT_EQ(ClientPoint(WorldPt(500, 250), nullptr, 50), QClientPoint(1000, 500));
    EXPECT_EQ(PagePoint(QClientPoint(1000, -250), nullptr), PagePt(10, -2.5));
    EXPECT_EQ(WorldPoint(QClientPoint(1000, -250), nullptr, 20), WorldPt(200, -50));
}

TEST(PageViewTest, APrinterTakesNoZoom) {
    PageSetup setup(200, 150, 50);
    setup.view->SetZoom(250, false);
    QDeviceCaps caps;
    QInfoDC printer(caps, true);
    setup.view->PrepareDC(printer, {23622, 23622});
    EXPECT_EQ(printer.GetViewportExt(), (QClientVector{23622, -23622}));
    EXPECT_EQ(printer.GetWindowOrg().y, 15000);
    QInfoDC screen(caps);
    setup.view->PrepareDC(screen, {3779, 3779});
    EXPECT_EQ(screen.GetViewportExt().x, 9448) << "2.5 * 3779 = 9447.5 rounds up";
}

TEST(PageViewTest, ZoomOutsideItsRangeIsRefusedWithTheReason) {
    PageSetup setup(200, 150, 50);
    try {
        setup.view->SetZoom(0, true);
        ADD_FAILURE();
    } catch (const InvalidArgumentException& failure) {
        EXPECT_STREQ(failure.what(), "Invalid argument: a zoom of 0% is outside 1 to 100000%");
    }
    EXPECT_THROW(setup.view->SetZoom(100001, true), InvalidArgumentException);
    EXPECT_EQ(setup.view->GetZoom(), 100);
    EXPECT_TRUE(setup.window->Invalidated().empty());
}

TEST(PageViewTest, ZoomToRectFitsTheTighterAxisAndCentres) {
    PageSetup setup(200, 150, 50, 800, 600);
    QPageView& view = *setup.view;
    // 800 px are 211.7 mm and 600 px 158.8 mm at zoom 100.
    EXPECT_EQ(view.CalcZoomToRect(QPageRect(PagePt(0, 0), PagePt(100, 50))), 212);
    EXPECT_EQ(view.CalcZoomToRect(QPageRect(PagePt(0, 0), PagePt(50, 100))), 159);
    EXPECT_EQ(view.CalcZoomToPage(), 106) << "158.8 / 150";
    EXPECT_EQ(view.CalcZoomToRectWorld(QWorldRect(WorldPt(0, 0), WorldPt(5000, 2500))), 212);
    EXPECT_THROW(view.CalcZoomToRect(QPageRect(PagePt(5, 0), PagePt(5, 50))),
                 InvalidArgumentException);
    EXPECT_EQ(view.CalcZoomToRect(QPageRect(PagePt(0, 0), PagePt(0.02, 0.02))), 100000)
        << "held at the largest zoom";

    const QPageRect target(PagePt(40, 30), PagePt(80, 60));
    view.ZoomToRect(target);
    const QClientPoint centre = view.PageToClient(PagePt(60, 45));
    EXPECT_NEAR(centre.x, 400, 1);
    EXPECT_NEAR(centre.y, 300, 1);
    EXPECT_FALSE(setup.window->Invalidated().empty());
}

TEST(PageViewTest, ZoomPreviousGoesBackInTheOrderOfTheZooms) {
    PageSetup setup(200, 150, 50, 800, 600);
    QPageView& view = *setup.view;
    view.ScrollToPosition(PagePt(10, 140), false);
    const QPagePoint start = view.GetScrollPositionPage();
    view.ZoomToRect(QPageRect(PagePt(0, 0), PagePt(100, 75)));
    view.ZoomToRect(QPageRect(PagePt(10, 10), PagePt(20, 20)));
    EXPECT_EQ(view.GetZoom(), 1588);
    ASSERT_EQ(view.ZoomStack().GetCount(), 2);
    EXPECT_EQ(view.ZoomStack().Top().zoom, 212);

    view.ZoomPrevious();
    EXPECT_EQ(view.GetZoom(), 212);
    view.ZoomPrevious();
    EXPECT_EQ(view.GetZoom(), 100);
    EXPECT_NEAR(view.GetScrollPositionPage().x.GetRaw(), start.x.GetRaw(), 0.3);
    EXPECT_NEAR(view.GetScrollPositionPage().y.GetRaw(), start.y.GetRaw(), 0.3);
    view.ZoomPrevious();
    EXPECT_EQ(view.GetZoom(), 100) << "an empty stack changes nothing";
}

TEST(PageViewTest, KeysAndTheWheelScrollByLinesAndPages) {
    const struct {
        ScrollKey key;
        QClientPoint position;
    } cases[] = {
        {ScrollKey::lineDown, {0, 60}}, {ScrollKey::lineLeft, {-80, 0}},
        {ScrollKey::pageUp, {0, -540}}, {ScrollKey::home, {0, 0}},
        {ScrollKey::end, {-44, -33}}, // 756 by 567 less the client
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(static_cast<int>(c.key));
        PageSetup setup(200, 150, 50, 800, 600);
        setup.view->KeyScroll(c.key);
        EXPECT_EQ(setup.view->UpdateBars().position, c.position);
        EXPECT_EQ(setup.window->Invalidated().size(), 1u);
    }
    PageSetup setup(200, 150, 50, 800, 600);
    const QScrollBars bars = setup.view->UpdateBars();
    EXPECT_EQ(bars.total, (QClientVector{756, 567}));
    EXPECT_EQ(bars.visible, (QClientVector{800, 600}));
    setup.view->DoMouseWheel(-240, false, QClientPoint(10, 10));
    EXPECT_EQ(setup.view->UpdateBars().position, QClientPoint(0, 360)) << "two notches down";
    setup.view->DoMouseWheel(60, false, QClientPoint(10, 10));
    EXPECT_EQ(setup.view->UpdateBars().position, QClientPoint(0, 360)) << "less than a notch";
    setup.view->DoScrollByUnits({Mm(10), Mm(10)}, false);
    EXPECT_EQ(setup.view->UpdateBars().position, QClientPoint(38, 322)) << "10 mm up the page";
}

TEST(PageViewTest, TheZoomWheelKeepsThePointUnderTheMouse) {
    PageSetup setup(200, 150, 50, 800, 600);
    QPageView& view = *setup.view;
    const QClientPoint mouse(300, 200);
    const QPagePoint underMouse = view.ClientToPage(mouse);
    view.DoMouseWheel(240, true, mouse);
    EXPECT_EQ(view.GetZoom(), 156) << "100 * 1.25 * 1.25";
    const QClientPoint after = view.PageToClient(underMouse);
    EXPECT_NEAR(after.x, mouse.x, 1);
    EXPECT_NEAR(after.y, mouse.y, 1);
    view.DoMouseWheel(-120, true, mouse);
    EXPECT_EQ(view.GetZoom(), 125);
    EXPECT_EQ(view.ZoomStack().GetCount(), 2);
    view.SetZoom(100000, false);
    view.DoMouseWheel(120, true, mouse);
    EXPECT_EQ(view.GetZoom(), 100000) << "held at the largest";
    EXPECT_EQ(view.ZoomStack().GetCount(), 2) << "nothing changed, nothing remembered";
}

TEST(PageViewTest, AnEmptyZoomStackHasNoTop) {
    QZoomPreviousStack stack;
    EXPECT_THROW(stack.Top(), InvalidArgumentException);
    EXPECT_THROW(stack.Pop(), InvalidArgumentException);
}

TEST(PageViewTest, ClientSnapPutsRectanglesOnWholePixels) {
    PageSetup setup(200, 150, 50);
    QPageView& view = *setup.view;
    const auto dc = view.ClientDC(true);
    const auto deviceX = [&](const QLength& x) { return dc->LogicalToDeviceX(x.GetRaw() / 0.01); };
    const QPageRect rect(PagePt(10.1, 20.3), PagePt(30.55, 40.9));
    EXPECT_NEAR(deviceX(view.ClientSnap(rect).left), 38, 1e-6) << "38.17";
    const QPageRect outward = view.ClientSnapPlus(rect);
    EXPECT_NEAR(deviceX(outward.right), 116, 1e-6) << "115.45 up";
    EXPECT_NEAR(deviceX(view.ClientSnapMinus(rect).right), 115, 1e-6) << "115.45 down";
    EXPECT_EQ(view.ClientSnapPlus(outward), outward) << "a snapped rectangle stays";
    EXPECT_EQ(view.ClientSnapPlus(view.PageToWorld(rect)), view.PageToWorld(outward));
    EXPECT_GT(ClientSnapPlus(PagePt(10.1, 20.3), *dc).y.GetRaw(), 20.3)
        << "plus is larger in page units, up the page";
    EXPECT_LT(ClientSnapMinus(PagePt(10.1, 20.3), *dc).y.GetRaw(), 20.3);
}

TEST(PageViewTest, FillsCoverTheRectangleOrTheBandsAroundItInTheClipBox) {
    const struct {
        int width, height;
        std::vector<std::string> fills;
    } cases[] = {
        {800,
         600,
         {
             "fill 76,302,227,453 #010203",  // the rectangle
             "fill 0,453,800,600 #040506",   // below it on the page
             "fill 0,0,800,302 #040506",     // above it
             "fill 0,302,76,453 #040506",    // left
             "fill 227,302,800,453 #040506", // right
         }},
        {400,
         300,
         {
             "fill 76,302,227,453 #010203",
             "fill 0,0,400,300 #040506", // the window shows only what lies above it
         }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.width);
        PageSetup setup(200, 150, 50, c.width, c.height);
        QRecordingDC dc(setup.window->ScreenCaps());
        setup.view->PrepareDCDefault(dc);
        const QPageRect rect(PagePt(20, 30), PagePt(60, 70));
        setup.view->FillInsideRect(dc, {1, 2, 3}, rect);
        setup.view->FillOutsideRect(dc, {4, 5, 6}, rect);
        EXPECT_EQ(dc.Lines(), c.fills);
        const QPageRect painting = setup.view->GetPaintingRectPage(dc);
        EXPECT_NEAR(painting.left.GetRaw(), 0, 0.01);
        EXPECT_NEAR(painting.top.GetRaw(), 150 - c.height * 1000.0 / 3779, 0.01);
    }
}

TEST(PageViewTest, TheTotalRectangleFollowsThePageAndItsOffset) {
    PageSetup setup(200, 150, 50);
    EXPECT_EQ(setup.view->GetTotalRectPage(), QPageRect(PagePt(0, 0), PagePt(200, 150)));
    setup.view->SetPageOriginOffset({Mm(-10), Mm(-5)});
    EXPECT_EQ(setup.view->GetTotalRectPage(), QPageRect(PagePt(-10, -5), PagePt(190, 145)));
    EXPECT_EQ(setup.view->GetTotalSizeWorld(), (QWorldVector{Mm(10000), Mm(7500)}));
    setup.doc->SetScaleAndComputePageSize(50);
    QPageDoc::SetManualPageSize(PageSize(100, 100));
    setup.doc->ComputePageSize(nullptr, false, true);
    EXPECT_EQ(setup.view->GetTotalSizePage(), PageSize(100, 100)) << "the view follows the page";
}

TEST(MapFlatTest, ZoomedWorldMapCentresTheRectangleInsideTheMargin) {
    QMapFlat map;
    EXPECT_FALSE(map.SetZoomedWorldMap(QWorldRect(WorldPt(0, 0), WorldPt(1000, 500)),
                                       QClientRect(0, 0, 10, 60), 5));
    EXPECT_FALSE(map.IsValid()) << "no pixel left inside twice the margin";
    QClientPoint client;
    EXPECT_FALSE(map.MapMouse(client, WorldPt(0, 0)));
    EXPECT_FALSE(map.SetZoomedWorldMap(QWorldRect(WorldPt(0, 0), WorldPt(0, 500)),
                                       QClientRect(0, 0, 110, 60), 5));

    ASSERT_TRUE(map.SetZoomedWorldMap(QWorldRect(WorldPt(0, 0), WorldPt(1000, 500)),
                                      QClientRect(0, 0, 110, 60), 5));
    EXPECT_DOUBLE_EQ(map.ZoomRatio(), 1000);
    EXPECT_EQ(map.ViewportOrg(), QClientPoint(5, 55));
    const struct {
        double x, y;
        int clientX, clientY;
    } cases[] = {
        {0, 0, 5, 55},      {1000, 500, 105, 5},
        {500, 250, 55, 30}, {26, 0, 7, 55}, // 2.6 logical units take 0.01, not 0.5: 2
        {9.9, 0, 6, 55},                    // 0.99 + 0.01 reaches 1
        {9.8, 0, 5, 55},                    // 0.98 + 0.01 does not
        {-10.5, 0, 3, 55},                  // floor(-1.04) is -2
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.x));
        ASSERT_TRUE(map.MapMouse(client, WorldPt(c.x, c.y)));
        EXPECT_EQ(client, QClientPoint(c.clientX, c.clientY));
    }
    QWorldPoint world;
    ASSERT_TRUE(map.UnMapMouse(world, QClientPoint(55, 30)));
    EXPECT_EQ(world, WorldPt(500, 250));
    EXPECT_EQ(map.UnmapRect(QClientRect(5, 5, 105, 55)),
              QWorldRect(WorldPt(0, 0), WorldPt(1000, 500)));
}

TEST(PageDocTest, DefaultScaleIsAMultipleOfFiveFromTheSmallerSide) {
    const struct {
        double width, height;
        int scale;
    } cases[] = {
        {297, 210, 30},  // A4 either way round
        {420, 297, 20},  // A3: 6*210/297 = 4.24
        {0, 0, 30},      // no size: 210 is taken
        {210, 0.005, 30} // a side near zero counts as none
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::to_string(c.width) + " x " + std::to_string(c.height));
        PageStaticsScope statics;
        QPageDoc::SetManualPageSize(PageSize(c.width, c.height));
        const QPageDoc doc;
        EXPECT_EQ(doc.GetScale(), c.scale);
        EXPECT_EQ(QPageDoc::DefaultScaleFor(PageSize(c.width, c.height)), c.scale);
    }
}

TEST(PageDocTest, WorldAndPageConvertBothWaysForAnyScale) {
    for (const int scale : {1, 7, 50, 1250}) {
        SCOPED_TRACE(scale);
        PageSetup setup(210, 297, scale);
        const QPageDoc& doc = *setup.doc;
        const QWorldPoint world = WorldPt(1234.5, -987.25);
        EXPECT_EQ(doc.PageToWorld(doc.WorldToPage(world)), world);
        EXPECT_DOUBLE_EQ(doc.WorldToPage(world).x.GetRaw(), 1234.5 / scale);
        const QWorldRect rect(WorldPt(500, 800), WorldPt(-100, 200));
        const QPageRect page = doc.WorldToPage(rect);
        EXPECT_LE(page.left.GetRaw(), page.right.GetRaw()) << "stays normalised";
        EXPECT_EQ(doc.PageToWorld(page), rect);
        EXPECT_EQ(doc.GetWorldRect(),
                  QWorldRect(WorldPt(0, 0), WorldPt(210.0 * scale, 297.0 * scale)));
    }
}

TEST(PageDocTest, HimetricSizeRoundsHundredthsHalfUp) {
    PageSetup setup(210.004, 296.996, 50);
    EXPECT_EQ(setup.doc->GetHIMETRICSize(), (QHimetricVector{21000, 29700}));
}

// A printer that reports a page and counts the contexts asked of it.
class FakePrinter : public IPrinter {
public:
    FakePrinter(int widthMm, int heightMm) : m_widthMm(widthMm), m_heightMm(heightMm) {}
    CString DriverName() const override { return u"HPPCL.DLL"; }
    CString DriverVersion() const override { return u"1.0"; }
    std::unique_ptr<QDeviceContext> CreateDC() override {
        ++asked;
        const QDeviceCaps caps{m_widthMm * 24, m_heightMm * 24, m_widthMm, m_heightMm};
        return std::make_unique<QInfoDC>(caps, true);
    }
    int asked = 0;

private:
    int m_widthMm, m_heightMm;
};

TEST(PageDocTest, ComputePageSizeAsksThePrinterAndKeepsTheDrawingOnPaper) {
    PageStaticsScope statics;
    QPageDoc::SetManualPageSize({});
    QPageDoc doc;
    FakePrinter printer(210, 297);
    SetDefaultPrinter(&printer);
    ASSERT_EQ(doc.GetScale(), 30);

    EXPECT_TRUE(doc.ComputePageSize(nullptr, false, true));
    EXPECT_EQ(printer.asked, 1);
    EXPECT_EQ(doc.GetPageSize(), PageSize(210, 297));
    EXPECT_EQ(doc.GetScale(), 30) << "kept";

    FakePrinter bigger(420, 594);
    SetDefaultPrinter(&bigger);
    EXPECT_TRUE(doc.ComputePageSize(nullptr, false, false));
    EXPECT_EQ(doc.GetPageSize(), PageSize(420, 594));
    EXPECT_EQ(doc.GetScale(), 15) << "30 * 210 / 420";

    QPageDoc::SetManualPageSizeA4();
    EXPECT_TRUE(QPageDoc::IsManualPageSizeA4());
    EXPECT_TRUE(doc.ComputePageSize(nullptr, false, false));
    EXPECT_EQ(bigger.asked, 1) << "a manual size is not asked of the printer";
    EXPECT_EQ(doc.GetPageSize(), PageSize(210, 297));
    EXPECT_EQ(doc.GetScale(), 15) << "a manual size keeps the scale";
}

TEST(PageDocTest, ComputePageSizeMeasuresAGivenContext) {
    PageStaticsScope statics;
    QPageDoc::SetManualPageSize({});
    QPageDoc doc;
    QInfoDC a4(QDeviceCaps{0, 0, 210, 297}, true);
    QInfoDC a3(QDeviceCaps{0, 0, 297, 420}, true);
    EXPECT_TRUE(doc.ComputePageSize(&a4, false, false));
    EXPECT_EQ(doc.GetScale(), 30);
    EXPECT_TRUE(doc.ComputePageSize(&a3, false, false));
    EXPECT_EQ(doc.GetPageSize(), PageSize(297, 420));
    EXPECT_EQ(doc.GetScale(), 21) << "30 * 210 / 297";
}

TEST(PageDocTest, SetScaleRefusesAScaleThatIsNotPositive) {
    PageSetup setup(210, 297, 30);
    EXPECT_THROW(setup.doc->SetScaleAndComputePageSize(0), InvalidArgumentException);
    EXPECT_EQ(setup.doc->GetScale(), 30);
}

} // namespace
} // namespace keel::test
