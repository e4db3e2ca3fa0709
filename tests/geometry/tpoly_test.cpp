#include "tests/support/geometry.h"

#include "keel/geometry/tpoly.h"
#include "keel/platform/exceptions.h"

#include <climits>
#include <functional>
#include <gtest/gtest.h>
#include <string>

namespace keel {

namespace {

using test::Poly;
using test::Pt;
using test::Text;
using test::VerticesNear;

constexpr std::uint8_t c_orientation = QWorldPoly::c_orientationValid;
constexpr std::uint8_t c_bounds = QWorldPoly::c_boundsValid;

QWorldPoly Square() {
    return Poly({{0, 0}, {10, 0}, {10, 10}, {0, 10}});
}

TEST(PolyCacheTest, EachOperationKeepsOnlyTheCachesThatStayTrue) {
    const struct {
        const char* name;
        std::function<void(QWorldPoly&)> operation;
        std::uint8_t flags;
        int orientation;
    } rows[] = {
        {"Move",
         [](QWorldPoly& p) {
             p.Move({QLength::FromRaw(1), QLength::FromRaw(2)});
         },
         c_orientation | c_bounds, 1},
        {"Reverse", [](QWorldPoly& p) { p.Reverse(); }, c_orientation | c_bounds, -1},
        {"MirrorX", [](QWorldPoly& p) { p.MirrorX(Pt(3, 0)); }, c_orientation, -1},
        {"MirrorY", [](QWorldPoly& p) { p.MirrorY(Pt(0, 3)); }, c_orientation, -1},
        {"SortAlong", [](QWorldPoly& p) { p.SortAlong(1, 0); }, c_orientation, 1},
        {"RemoveDuplicates", [](QWorldPoly& p) { p.RemoveDuplicates(true); },
         c_orientation | c_bounds, 1},
        {"OffsetUniform", [](QWorldPoly& p) { p.OffsetUniform(QLength::FromRaw(1), true); },
         c_orientation, 1},
        {"SetSize to the same count", [](QWorldPoly& p) { p.SetSize(4); }, c_orientation | c_bounds,
         1},
        {"EnsureSize below the count", [](QWorldPoly& p) { p.EnsureSize(2); },
         c_orientation | c_bounds, 1},
        {"SetSize to another count", [](QWorldPoly& p) { p.SetSize(5); }, 0, 0},
        {"ElementAt", [](QWorldPoly& p) { p.ElementAt(0); }, 0, 1},
        {"ElementAtWrapped", [](QWorldPoly& p) { p.ElementAtWrapped(-1); }, 0, 1},
        {"ElementAtGrow", [](QWorldPoly& p) { p.ElementAtGrow(1); }, 0, 1},
        {"Add", [](QWorldPoly& p) { p.Add(Pt(-5, 5)); }, 0, 1},
        {"InsertAt", [](QWorldPoly& p) { p.InsertAt(1, Pt(5, -5)); }, 0, 1},
        {"RemoveAt", [](QWorldPoly& p) { p.RemoveAt(3); }, 0, 1},
        {"RemoveWrapped", [](QWorldPoly& p) { p.RemoveWrapped(-1, 1); }, 0, 1},
        {"FitToRect scaling",
         [](QWorldPoly& p) {
             p.FitToRect({Pt(0, 0), Pt(20, 5)});
         },
         0, 1},
        {"RemoveAll", [](QWorldPoly& p) { p.RemoveAll(); }, c_bounds, 0},
    };
    for (const auto& row : rows) {
        QWorldPoly poly = Square();
        ASSERT_EQ(poly.Orientation(), 1);
        poly.GetBounds();
        ASSERT_EQ(poly.CacheFlags(), c_orientation | c_bounds);
        row.operation(poly);
        EXPECT_EQ(poly.CacheFlags(), row.flags) << row.name;
        if (row.flags & c_orientation) {
            EXPECT_EQ(poly.Orientation(), row.orientation) << row.name;
        }
    }
}

TEST(PolyCacheTest, MovedBoundsStayValidAndCorrect) {
    QWorldPoly poly = Square();
    poly.GetBounds();
    poly.Move({QLength::FromRaw(1), QLength::FromRaw(-2)});
    EXPECT_EQ(poly.GetBounds(), (QWorldPoly::Rect(Pt(1, -2), Pt(11, 8))));
}

TEST(PolyCacheTest, TwoPointsHaveOrientationZeroAndReverseKeepsTheirFlags) {
    QWorldPoly poly;
    poly.SetTwoPoints(Pt(5, 5), Pt(0, 8));
    EXPECT_EQ(poly.CacheFlags(), 7);
    EXPECT_EQ(poly.GetBounds(), (QWorldPoly::Rect(Pt(0, 5), Pt(5, 8))));
    poly.Reverse();
    EXPECT_EQ(poly.CacheFlags(), 7);
    EXPECT_EQ(poly.Orientation(), 0);
    EXPECT_EQ(Poly({{0, 0}, {4, 4}}).Orientation(), 0);
}

TEST(PolyCacheTest, RemoveAllLeavesValidZeroBounds) {
    QWorldPoly poly = Poly({{3, 4}, {8, 9}, {1, 12}});
    poly.GetBounds();
    poly.RemoveAll();
    EXPECT_EQ(poly.CacheFlags(), c_bounds);
    EXPECT_EQ(poly.GetBounds(), (QWorldPoly::Rect(Pt(0, 0), Pt(0, 0))));
    EXPECT_EQ(QWorldPoly().GetBounds(), (QWorldPoly::Rect(Pt(0, 0), Pt(0, 0))));
}

TEST(PolyTest, ClosedWhenTheLastVertexEqualsTheFirstWithinEps) {
    const struct {
        double lastX;
        bool closed;
    } rows[] = {{0, true}, {0.01, true}, {-0.01, true}, {0.0100001, false}, {0.5, false}};
    for (const auto& row : rows)
        EXPECT_EQ(Poly({{0, 0}, {10, 0}, {10, 10}, {row.lastX, 0}}).IsClosed(), row.closed)
            << row.lastX;
    EXPECT_FALSE(Poly({{1, 1}}).IsClosed());
    EXPECT_FALSE(QWorldPoly().IsClosed());
}

TEST(PolyTest, WrappedReadsNeverFail) {
    const QWorldPoly poly = Poly({{1, 0}, {2, 0}, {3, 0}});
    const struct {
        int index;
        double x;
    } rows[] = {{0, 1}, {2, 3}, {3, 1}, {-1, 3}, {-3, 1}, {-4, 3}, {7, 2}};
    for (const auto& row : rows)
        EXPECT_EQ(poly.GetAt(row.index).x.GetRaw(), row.x) << row.index;
    const QWorldPoly empty;
    EXPECT_EQ(&empty.GetAt(5), &QWorldPoly().GetAt(-2)) << "one shared empty point";
    EXPECT_EQ(empty.GetAt(5), Pt(0, 0));
}

TEST(PolyTest, CheckedAccessThrowsOutsideTheVertices) {
    QWorldPoly poly = Poly({{1, 0}, {2, 0}});
    EXPECT_THROW(poly.ElementAt(2), InvalidArgumentException);
    EXPECT_THROW(poly.ElementAt(-1), InvalidArgumentException);
    EXPECT_THROW(poly.RemoveAt(1, 2), InvalidArgumentException);
    EXPECT_THROW(QWorldPoly().ElementAtWrapped(0), InvalidArgumentException);
    EXPECT_THROW(poly.ElementAtGrow(INT_MAX), InvalidArgumentException);
    EXPECT_EQ(Text(poly), "1,0 2,0");
}

TEST(PolyTest, GrowingAndInsertingNormaliseTheIndex) {
    const auto abc = [] { return Poly({{1, 0}, {2, 0}, {3, 0}}); };
    const struct {
        const char* name;
        std::function<void(QWorldPoly&)> operation;
        const char* result;
    } rows[] = {
        {"ElementAtGrow -1 is the last", [](QWorldPoly& p) { p.ElementAtGrow(-1) = Pt(9, 9); },
         "1,0 2,0 9,9"},
        {"ElementAtGrow past the end grows", [](QWorldPoly& p) { p.ElementAtGrow(4) = Pt(9, 9); },
         "1,0 2,0 3,0 0,0 9,9"},
        {"InsertAt -1 goes before the last", [](QWorldPoly& p) { p.InsertAt(-1, Pt(9, 9)); },
         "1,0 2,0 9,9 3,0"},
        {"InsertAt past the end fills with zero points",
         [](QWorldPoly& p) { p.InsertAt(4, Pt(9, 9)); }, "1,0 2,0 3,0 0,0 9,9"},
        {"InsertAfter -1 appends", [](QWorldPoly& p) { p.InsertAfter(-1, Pt(9, 9)); },
         "1,0 2,0 3,0 9,9"},
        {"InsertAfter wraps", [](QWorldPoly& p) { p.InsertAfter(4, Pt(9, 9)); }, "1,0 2,0 9,9 3,0"},
        {"InsertPolyAt",
         [](QWorldPoly& p) {
             p.InsertPolyAt(1, Poly({{8, 8}, {9, 9}}));
         },
         "1,0 8,8 9,9 2,0 3,0"},
        {"InsertPolyAfter -1",
         [](QWorldPoly& p) {
             p.InsertPolyAfter(-1, Poly({{8, 8}}));
         },
         "1,0 2,0 3,0 8,8"},
        {"Add returns the index", [](QWorldPoly& p) { EXPECT_EQ(p.Add(Pt(9, 9)), 3); },
         "1,0 2,0 3,0 9,9"},
    };
    for (const auto& row : rows) {
        QWorldPoly poly = abc();
        row.operation(poly);
        EXPECT_EQ(Text(poly), row.result) << row.name;
    }
}

TEST(PolyTest, InsertingIntoAnEmptyPolygon) {
    QWorldPoly empty;
    empty.ElementAtGrow(-3) = Pt(4, 4);
    EXPECT_EQ(Text(empty), "4,4");
    QWorldPoly grown;
    grown.InsertAt(2, Pt(4, 4));
    EXPECT_EQ(Text(grown), "0,0 0,0 4,4");
    QWorldPoly after;
    after.InsertAfter(7, Pt(4, 4));
    after.InsertPolyAfter(-9, Poly({{5, 5}}));
    EXPECT_EQ(Text(after), "4,4 5,5");
}

TEST(PolyTest, RemoveWrappedRunsFromTheTailOnToTheHead) {
    const struct {
        int index, count;
        const char* result;
    } rows[] = {
        {1, 2, "0,0 3,0 4,0"},
        {3, 4, "2,0"},
        {-1, 2, "1,0 2,0 3,0"},
        {0, 5, ""},
        {2, 9, ""},
        {2, 0, "0,0 1,0 2,0 3,0 4,0"},
        {7, 1, "0,0 1,0 3,0 4,0"},
    };
    for (const auto& row : rows) {
        QWorldPoly poly = Poly({{0, 0}, {1, 0}, {2, 0}, {3, 0}, {4, 0}});
        poly.RemoveWrapped(row.index, row.count);
        EXPECT_EQ(Text(poly), row.result) << row.index << " " << row.count;
    }
    QWorldPoly poly = Poly({{0, 0}, {1, 0}});
    poly.RemoveLast();
    EXPECT_EQ(Text(poly), "0,0");
    QWorldPoly empty;
    empty.RemoveLast();
    EXPECT_TRUE(empty.IsEmpty());
}

TEST(PolyTest, EqualityIsByIndexWithinEps) {
    EXPECT_TRUE(Square() == Poly({{0.01, 0}, {10, -0.01}, {10, 10}, {0, 10}}));
    EXPECT_TRUE(Square() != Poly({{0.02, 0}, {10, 0}, {10, 10}, {0, 10}}));
    EXPECT_TRUE(Square() != Poly({{0, 0}, {10, 0}, {10, 10}}));
    EXPECT_TRUE(Square() != Poly({{10, 0}, {10, 10}, {0, 10}, {0, 0}}));
    EXPECT_TRUE(QWorldPoly() == QWorldPoly());
}

TEST(PolyTest, SameOutlineForwardsOrBackwardsButNotRotated) {
    const QWorldPoly square = Square();
    const QWorldPoly closedSquare = Poly({{0, 0}, {10, 0}, {10, 10}, {0, 10}, {0, 0}});
    const struct {
        const char* name;
        QWorldPoly other;
        bool thisClosed, otherClosed;
        bool same;
    } rows[] = {
        {"itself", Square(), false, false, true},
        {"read backwards", Poly({{0, 10}, {10, 10}, {10, 0}, {0, 0}}), false, false, true},
        {"started at another corner", Poly({{10, 0}, {10, 10}, {0, 10}, {0, 0}}), false, false,
         false},
        {"reversed about its start", Poly({{0, 0}, {0, 10}, {10, 10}, {10, 0}}), false, false,
         false},
        {"closed by a repeated vertex against one declared closed", closedSquare, true, false,
         true},
        {"closed by a repeated vertex against an open one", closedSquare, false, false, false},
        {"declared closed against open", Square(), true, false, false},
        {"fewer vertices", Poly({{0, 0}, {10, 0}, {10, 10}}), false, false, false},
        {"within Eps", Poly({{0.01, 0}, {10, 0.01}, {10, 10}, {0, 10}}), false, false, true},
    };
    for (const auto& row : rows)
        EXPECT_EQ(square.IsSameOutline(row.other, row.thisClosed, row.otherClosed), row.same)
            << row.name;
    EXPECT_TRUE(QWorldPoly().IsSameOutline(QWorldPoly(), true, true));
    EXPECT_TRUE(Poly({{1, 1}, {1, 1}}).IsSameOutline(Poly({{1, 1}}), false, true))
        << "a count below 1 once the closing vertex is taken off";
}

TEST(PolyTest, AppendClosesLoopsAndMergesValidBounds) {
    QWorldPoly poly = Poly({{0, 0}, {1, 0}});
    QWorldPoly other = Poly({{5, 5}, {6, 5}, {6, 6}});
    poly.GetBounds();
    other.GetBounds();
    poly.Append(other, true);
    EXPECT_EQ(Text(poly), "0,0 1,0 0,0 5,5 6,5 6,6 5,5");
    EXPECT_EQ(poly.CacheFlags(), c_bounds);
    EXPECT_EQ(poly.GetBounds(), (QWorldPoly::Rect(Pt(0, 0), Pt(6, 6))));

    QWorldPoly single = Poly({{0, 0}});
    single.Append(Poly({{3, 3}}), true);
    EXPECT_EQ(Text(single), "0,0 3,3") << "a loop needs two vertices to be closed";
    EXPECT_EQ(single.CacheFlags(), 0) << "bounds of only one side were valid";

    QWorldPoly unchanged = Square();
    unchanged.Orientation();
    unchanged.Append(QWorldPoly(), true);
    EXPECT_EQ(unchanged.CacheFlags(), c_orientation | c_bounds);
    EXPECT_EQ(unchanged.GetCount(), 4);
}

TEST(PolyTest, AppendingAPolygonToItselfIsAnInvalidArgument) {
    QWorldPoly poly = Square();
    EXPECT_THROW(poly.Append(poly, false), InvalidArgumentException);
    EXPECT_EQ(poly.GetCount(), 4);
}

TEST(PolyTest, AppendReversedDoesNotDoubleTheJoint) {
    QWorldPoly path = Poly({{0, 0}, {5, 0}});
    path.AppendReversed(Poly({{5, 5}, {5.01, 0.005}}));
    EXPECT_EQ(Text(path), "0,0 5,0 5,5");
    path.AppendReversed(path);
    EXPECT_EQ(Text(path), "0,0 5,0 5,5 5,0 0,0");
    QWorldPoly empty;
    empty.AppendReversed(Poly({{1, 1}, {2, 2}}));
    EXPECT_EQ(Text(empty), "2,2 1,1");
}

TEST(PolyTest, RemoveDuplicatesDropsTheFirstOfEachEqualPair) {
    const struct {
        QWorldPoly poly;
        bool closed;
        const char* result;
    } rows[] = {
        {Poly({{0, 0}, {0, 0}, {5, 0}, {5.005, 0}, {5, 0.01}, {5, 5}}), false, "0,0 5,0.01 5,5"},
        {Poly({{0, 0}, {5, 0}, {5, 5}, {0, 0}}), false, "0,0 5,0 5,5 0,0"},
        {Poly({{0, 0}, {5, 0}, {5, 5}, {0.01, 0}}), true, "0,0 5,0 5,5"},
        {Poly({{0, 0}, {0, 0}}), true, "0,0"},
        {Poly({{0, 0}, {5, 0}, {5, 5}, {0.02, 0}}), true, "0,0 5,0 5,5 0.02,0"},
    };
    for (const auto& row : rows) {
        QWorldPoly poly = row.poly;
        poly.RemoveDuplicates(row.closed);
        EXPECT_EQ(Text(poly), row.result) << Text(row.poly);
    }
}

TEST(PolyTest, FitToRectMovesOrScalesOntoTheRectangle) {
    const struct {
        const char* name;
        QWorldPoly::Rect rect;
        const char* result;
    } rows[] = {
        {"the same bounds", {Pt(0, 0), Pt(10.01, 9.99)}, "0,0 10,0 10,10 0,10"},
        {"the same size", {Pt(5, -5), Pt(15.005, 5)}, "5,-5 15,-5 15,5 5,5"},
        {"scaled", {Pt(1, 2), Pt(21, 7)}, "1,2 21,2 21,7 1,7"},
    };
    for (const auto& row : rows) {
        QWorldPoly poly = Square();
        poly.FitToRect(row.rect);
        EXPECT_EQ(Text(poly), row.result) << row.name;
    }
    QWorldPoly flat = Poly({{0, 0}, {10, 0}, {5, 0.005}});
    flat.FitToRect({Pt(0, 0), Pt(20, 20)});
    EXPECT_EQ(Text(flat), "0,0 10,0 5,0.005") << "no height to scale";
}

TEST(PolyTest, SortAlongOrdersByTheDirection) {
    const struct {
        double dx, dy;
        const char* result;
    } rows[] = {
        {1, 0, "-3,1 0,5 2,-4 7,0"},  {-1, 0, "7,0 2,-4 0,5 -3,1"}, {0, 1, "2,-4 7,0 -3,1 0,5"},
        {0, -1, "0,5 -3,1 7,0 2,-4"}, {1, 1, "-3,1 2,-4 0,5 7,0"},  {-1, 2, "2,-4 7,0 -3,1 0,5"},
    };
    for (const auto& row : rows) {
        QWorldPoly poly = Poly({{0, 5}, {7, 0}, {-3, 1}, {2, -4}});
        poly.SortAlong(row.dx, row.dy);
        EXPECT_EQ(Text(poly), row.result) << row.dx << "," << row.dy;
    }
    QWorldPoly byAngle = Poly({{0, 5}, {7, 0}, {-3, 1}, {2, -4}});
    byAngle.SortAlong(QAngle(90, QAngle::ANGU_DEG));
    EXPECT_EQ(Text(byAngle), "2,-4 7,0 -3,1 0,5");
}

TEST(PolyTest, SortAlongKeepsNoOrderAmongEqualKeysButSortsTheRest) {
    QWorldPoly poly = Poly({{3, 0}, {1.005, 9}, {1, 8}, {0, 0}});
    poly.SortAlong(1, 0);
    EXPECT_EQ(poly.Vertex(0).x.GetRaw(), 0);
    EXPECT_EQ(poly.Vertex(1), Pt(1, poly.Vertex(1).y.GetRaw()));
    EXPECT_EQ(poly.Vertex(2), Pt(1, poly.Vertex(2).y.GetRaw()));
    EXPECT_EQ(poly.Vertex(3).x.GetRaw(), 3);
}

TEST(PolyOrientationTest, EqualsTheSignOfTheAreaAndFlipsWhenReversedOrMirrored) {
    const QWorldPoly polys[] = {
        Square(),
        Poly({{0, 0}, {10, 0}, {0, 10}}),
        Poly({{0, 0}, {10, 0}, {10, 10}, {5, 3}, {0, 10}}),
        Poly({{0, 0}, {0, 0}, {10, 0}, {10, 0}, {10, 10}, {0, 10}}),
        Poly({{0, 0}, {5, 0}, {10, 0}, {10, 5}, {10, 10}, {5, 10}, {0, 10}, {0, 5}}),
        Poly({{5, 0}, {6, 4}, {10, 5}, {6, 6}, {5, 10}, {4, 6}, {0, 5}, {4, 4}}),
        Poly({{100, 100}, {100.5, 300}, {-50, 200}}),
        Poly({{0, 0}, {1000, 1}, {2000, 0}, {1000, 500}}),
    };
    for (const QWorldPoly& original : polys) {
        const int sign = test::TwiceSignedArea(original) > 0 ? 1 : -1;
        EXPECT_EQ(original.Orientation(), sign) << Text(original);
        QWorldPoly reversed = original;
        reversed.Reverse();
        EXPECT_EQ(reversed.Orientation(), -sign) << "cached, " << Text(original);
        QWorldPoly fresh = Poly({});
        fresh.Append(reversed, false);
        EXPECT_EQ(fresh.Orientation(), -sign) << "computed again, " << Text(original);
        QWorldPoly mirrored = original;
        mirrored.MirrorY(Pt(0, 0));
        EXPECT_EQ(test::TwiceSignedArea(mirrored) > 0 ? 1 : -1, -sign);
        QWorldPoly again = Poly({});
        again.Append(mirrored, false);
        EXPECT_EQ(again.Orientation(), -sign) << Text(mirrored);
    }
}

TEST(PolyOrientationTest, NoCornerOnTheBoundsDecidesACollinearPolygon) {
    EXPECT_EQ(Poly({{0, 0}, {5, 5}, {10, 10}}).Orientation(), 0);
    EXPECT_EQ(Poly({{0, 0}, {0, 0}, {0, 0}}).Orientation(), 0);
    EXPECT_EQ(Poly({{0, 0}, {1000, 1}, {2000, 2.0001}}).Orientation(), 0)
        << "slopes within 0.0002 of each other";
    EXPECT_EQ(Poly({{0, 0}, {1000, 0.1}, {2000, 0}}).Orientation(), -1)
        << "an edge along an axis decides by the signs alone";
}

TEST(PolyTest, EdgeMeasuresAndTheCentreOfVertices) {
    const QWorldPoly poly = Poly({{0, 0}, {3, 4}, {3, 10}, {-2, 10}});
    EXPECT_DOUBLE_EQ(poly.EdgeLength(0).GetRaw(), 5);
    EXPECT_DOUBLE_EQ(poly.EdgeLength(-1).GetRaw(), std::hypot(2, 10));
    EXPECT_DOUBLE_EQ(poly.EdgeAngle(1).GetRaw(), 90);
    EXPECT_DOUBLE_EQ(poly.EdgeAngle(2).GetRaw(), 180);
    EXPECT_EQ(poly.EdgeMidpoint(3), Pt(-1, 5));
    EXPECT_EQ(poly.VertexCentre(), Pt(1, 6));
    EXPECT_EQ(QWorldPoly().EdgeLength(3), QLength::Zero);
    EXPECT_EQ(QWorldPoly().VertexCentre(), Pt(0, 0));
}

TEST(PolyTest, AssignmentCopiesTheValidCaches) {
    QWorldPoly source = Square();
    source.Orientation();
    source.Move({QLength::FromRaw(1), QLength::FromRaw(1)});
    QWorldPoly target = Poly({{1, 1}});
    target.GetBounds();
    target = source;
    EXPECT_EQ(target.CacheFlags(), c_orientation | c_bounds);
    EXPECT_EQ(target.Orientation(), 1);
    EXPECT_EQ(target.GetBounds(), (QWorldPoly::Rect(Pt(1, 1), Pt(11, 11))));
    EXPECT_EQ(Text(target), Text(source));
    const std::unique_ptr<QWorldPoly> clone = source.Clone();
    EXPECT_EQ(Text(*clone), Text(source));
    EXPECT_EQ(clone->CacheFlags(), c_orientation | c_bounds);
    QWorldPoly unsettled = Square();
    unsettled.ElementAt(0) = Pt(-1, -1);
    target = unsettled;
    EXPECT_EQ(target.CacheFlags(), 0);
    EXPECT_EQ(target.GetBounds(), (QWorldPoly::Rect(Pt(-1, -1), Pt(10, 10))));
}

} // namespace

} // namespace keel
