#include "tests/support/geometry.h"

#include "keel/geometry/worldpolywithheightrange.h"
#include "keel/geometry/worldpolywithheightrangeset.h"

#include <gtest/gtest.h>
#include <random>
#include <string>

namespace keel {

namespace {

using test::GridPolygons;
using test::PolyOf;
using test::Prism;
using test::Text;
using Set = QWorldPolyWithHeightRangeSet;

Set SetOf(std::initializer_list<QWorldPolyWithHeightRange> prisms) {
    Set set;
    for (const QWorldPolyWithHeightRange& prism : prisms)
        set.Add(prism);
    return set;
}

std::string PairsText(const QArray<Set::Collision>& pairs) {
    std::string text;
    for (const Set::Collision& pair : pairs)
        text += "(" + std::to_string(pair.first) + "," + std::to_string(pair.second) + ")";
    return text;
}

TEST(PrismTest, TheBoundingBoxNormalisesTheHeights) {
    const QWorldPolyWithHeightRange prism = Prism(PolyOf("10,20 50,20 30,60"), 5, -5);
    EXPECT_EQ(test::BoxText(prism.GetBoundingBox()), "10,20,-5 50,60,5");
}

TEST(PrismSetTest, OverallBoundingBox) {
    EXPECT_EQ(test::BoxText(Set().GetOverallBoundingBox()), "0,0,0 0,0,0");
    const Set set =
        SetOf({Prism(PolyOf("10,10 20,10 20,20"), 0, 5), Prism(PolyOf("-5,15 15,15 15,30"), 3, 8),
               // beyond by less than the tolerance: no change
               Prism(PolyOf("-5.009,15 20.009,15 15,30.009"), -0.009, 8.009)});
    EXPECT_EQ(test::BoxText(set.GetOverallBoundingBox()), "-5,10,0 20,30,8");
}

TEST(PrismSetTest, CollisionsAreTheCrossingPairsInOrder) {
    const Set a = SetOf({Prism(PolyOf("1000,1000 1100,1000 1100,1100"), 0, 100),
                         Prism(PolyOf("0,0 300,0 300,100 0,100"), 0, 100),
                         Prism(PolyOf("0,200 100,200 100,300 0,300"), 0, 100)});
    const Set b = SetOf({Prism(PolyOf("50,50 150,50 150,150 50,150"), 50, 150),
                         Prism(PolyOf("50,250 60,250 60,260"), 0, 100),
                         Prism(PolyOf("200,50 250,50 250,80"), 10, 20),
                         Prism(PolyOf("300,0 400,0 400,100 300,100"), 0, 100), // touches
                         Prism(PolyOf("0,0 300,0 300,100 0,100"), 100, 200)}); // on top
    const QArray<Set::Collision> collisions = Set::GetCollisions(a, b);
    EXPECT_EQ(PairsText(collisions), "(1,0)(1,2)(2,1)");
    EXPECT_EQ(PairsText(Set::GetCollisions(b, a)), "(0,1)(1,2)(2,1)");
    EXPECT_TRUE(Set::IsAnyCollisions(a, b));
    EXPECT_FALSE(Set::IsAnyCollisions(Set(), SetOf({Prism(PolyOf("-1,-1 1,-1 1,1 -1,1"), -1, 1)})))
        << "an empty set has no box about the zero point";
    // The far element of a lies outside b's box and is left marked as not present.
    EXPECT_FALSE(a[0].IsPresent());
    EXPECT_TRUE(a[1].IsPresent());
    EXPECT_TRUE(b[0].IsPresent());
}

TEST(PrismSetTest, ContainmentAndMerge) {
    const QWorldPolyWithHeightRange room = Prism(PolyOf("0,0 100,0 100,100 0,100"), 0, 100);
    const QWorldPolyWithHeightRange inside = Prism(PolyOf("10,10 20,10 20,20"), 10, 20);
    const QWorldPolyWithHeightRange outside = Prism(PolyOf("150,10 160,10 160,20"), 10, 20);
    Set set = SetOf({inside, outside, Prism(PolyOf("30,30 40,30 40,40"), 0, 50)});
    EXPECT_FALSE(set.FullyContains(room));
    EXPECT_TRUE(SetOf({outside, room}).FullyContains(inside));
    set.RemoveFullyContainedBy(room);
    ASSERT_EQ(set.GetCount(), 1);
    EXPECT_EQ(Text(set[0].Poly()), Text(outside.Poly()));

    Set merged = SetOf({inside});
    merged.Merge(SetOf({inside, outside, outside}));
    EXPECT_EQ(merged.GetCount(), 2);
    const QWorldPolyWithHeightRange absent = inside;
    absent.SetPresent(false);
    merged.Merge(SetOf({absent})); // differs by its flag alone
    ASSERT_EQ(merged.GetCount(), 3);
    EXPECT_FALSE(merged[2].IsPresent());
}

// The sweep over the boxes must find exactly the pairs of the plain loop over all present
// pairs, in the same order.
TEST(PrismSetTest, SweepFindsThePairsOfThePlainLoop) {
    const double c_nudges[] = {0, 0.005, -0.005, 0.011, -0.011, 0.015};
    GridPolygons grid(5);
    std::uniform_int_distribution<int> count(0, 12);
    std::uniform_int_distribution<int> place(0, 30);
    int collisions = 0;
    int emptyResults = 0;
    for (int round = 0; round < 300; ++round) {
        Set sets[2];
        for (Set& set : sets) {
            const int n = count(grid.Random());
            for (int i = 0; i < n; ++i) {
                // Shifted off the grid across, down and in height by less or more than the
                // tolerance now and then.
                const auto nudge = [&] { return c_nudges[grid.Coordinate() % 6]; };
                const double bottom = 10.0 * place(grid.Random()) + nudge();
                const double x = 10.0 * place(grid.Random()) + nudge();
                const double y = 10.0 * place(grid.Random()) + nudge();
                // Now and then a single vertex, which is classified as a point.
                const QWorldPoly plan =
                    grid.Coordinate() % 8 == 0 ? test::Poly({{x + 5, y + 5}}) : grid.Next(x, y);
                set.Add(Prism(plan, bottom, bottom + 10.0 * (1 + place(grid.Random())) + nudge()));
            }
        }
        const QArray<Set::Collision> swept = Set::GetCollisions(sets[0], sets[1]);
        const QArray<Set::Collision> plain = Set::GetCollisionsPairwise(sets[0], sets[1]);
        ASSERT_EQ(PairsText(swept), PairsText(plain)) << "round " << round;
        collisions += swept.GetCount();
        emptyResults += swept.IsEmpty() ? 1 : 0;
    }
    EXPECT_GT(collisions, 300);
    EXPECT_GT(emptyResults, 10);
}

} // namespace

} // namespace keel
