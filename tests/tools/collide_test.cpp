#include "tests/support/program.h"

#include "keel/geometry/polytext.h"
#include "keel/geometry/worldpolywithheightrange.h"

#include <gtest/gtest.h>
#include <iomanip>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace keel::test {
namespace {

// `keel geometry collide` sweeps the solids' bounds so that it classifies only the pairs whose
// plans may meet. Every pair it leaves out must be disjoint: its output is compared with the
// literal loop over all pairs, solid by solid, in the library.

struct SolidText {
    std::string name;
    std::string points;
    double bottom;
    double top;
};

std::string SolidsJson(const std::vector<SolidText>& solids) {
    std::ostringstream json;
    json << "[";
    for (std::size_t i = 0; i < solids.size(); ++i)
        json << (i ? ",\n" : "") << "{\"name\": \"" << solids[i].name << "\", \"points\": \""
             << solids[i].points << "\", \"bottom\": " << solids[i].bottom
             << ", \"top\": " << solids[i].top << "}";
    return json.str() + "]";
}

// The lines the program should print, from every pair in order.
std::string PairwiseLines(const std::vector<SolidText>& texts) {
    std::vector<QWorldPolyWithHeightRange> solids;
    for (const SolidText& text : texts) {
        QWorldPoly poly;
        std::string message;
        EXPECT_TRUE(ReadPolyText(text.points, poly, message)) << message;
        solids.emplace_back(poly, QLength(text.top, QLength::LU_MM),
                            QLength(text.bottom, QLength::LU_MM));
    }
    std::string lines;
    for (std::size_t i = 0; i < solids.size(); ++i)
        for (std::size_t j = i + 1; j < solids.size(); ++j) {
            const CROSSTOUCHDISJOINT how =
                QWorldPolyWithHeightRange::CrossTouchDisjoint(solids[i], solids[j]);
            if (how != DISJOINT)
                lines += texts[i].name + "\t" + texts[j].name + "\t" +
                         (how == CROSS ? "cross" : "touch") + "\n";
        }
    return lines;
}

// Each coordinate with the digits that read back as the same double.
std::string Point(double x, double y) {
    std::ostringstream text;
    text << std::setprecision(17) << x << ',' << y;
    return text.str();
}

// Rectangles and triangles on a 100 mm grid, so that many share edges and corners, with some
// nudged by less and by more than the tolerance; heights in steps so that some stack.
std::vector<SolidText> RandomSolids(int count, unsigned seed) {
    std::mt19937 random(seed);
    const auto grid = [&](int most) {
        return 100.0 * std::uniform_int_distribution(0, most)(random);
    };
    const double nudges[] = {0, 0, 0, 0.005, -0.005, 0.02, 0.3};
    std::vector<SolidText> solids;
    for (int i = 0; i < count; ++i) {
        const double nudge = nudges[std::uniform_int_distribution(0, 6)(random)];
        const double left = grid(80) + nudge;
        const double bottom = grid(80);
        const double width = grid(10) + 100;
        const double depth = grid(10) + 100;
        std::string points = Point(left, bottom) + " " + Point(left + width, bottom) + " " +
                             Point(left + width, bottom + depth);
        if (random() % 3 != 0)
            points += " " + Point(left, bottom + depth);
        const double low = 300.0 * std::uniform_int_distribution(0, 6)(random);
        const double high = low + 300.0 * std::uniform_int_distribution(1, 3)(random);
        solids.push_back({"s" + std::to_string(i + 1), points, low, high});
    }
    return solids;
}

class CollideProgram : public KeelProgramTest {
protected:
    void SetUp() override {
        KeelProgramTest::SetUp();
        if (!ProgramReadsJson())
            GTEST_SKIP() << "this keel was built without a JSON reader";
    }
};

TEST_F(CollideProgram, SweepGivesThePairsOfThePairwiseLoopInOrder) {
    for (const unsigned seed : {1u, 2u, 3u}) {
        SCOPED_TRACE(seed);
        const std::vector<SolidText> solids = RandomSolids(700, seed);
        const std::string file = FileOfTest("solids.json", SolidsJson(solids));
        const ProgramOutcome outcome = Run({"geometry", "collide", file});
        ASSERT_EQ(outcome.status, 0) << outcome.err;
        const std::string expected = PairwiseLines(solids);
        EXPECT_NE(expected.find("\ttouch\n"), std::string::npos);
        EXPECT_NE(expected.find("\tcross\n"), std::string::npos);
        EXPECT_EQ(outcome.out, expected);
    }
}

} // namespace
} // namespace keel::test
