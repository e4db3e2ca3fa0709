// Geometry beside Boost.Geometry: the collisions between two sets of 10 000 prisms (our sweep,
// and the R-tree of Boost's boxes queried with each prism's box, then Boost's `intersects` on the
// plans of the candidates whose heights overlap), one pair of 2 000-vertex polygons classified
// against Boost's `intersects`, and the offset of a 100 000-vertex ring. Clipper, the offset's
// peer, is not installed here, so the offset runs alone.
#include "keel/geometry/classify.h"
#include "keel/geometry/worldpolywithheightrangeset.h"

#include <benchmark/benchmark.h>
#include <boost/geometry.hpp>
#include <boost/geometry/geometries/box.hpp>
#include <boost/geometry/geometries/point_xy.hpp>
#include <boost/geometry/geometries/polygon.hpp>
#include <boost/geometry/index/rtree.hpp>
#include <cmath>
#include <numbers>
#include <random>
#include <utility>
#include <vector>

using namespace keel;

namespace {

namespace bg = boost::geometry;
namespace bgi = boost::geometry::index;
using BPoint = bg::model::d2::point_xy<double>;
using BPolygon = bg::model::polygon<BPoint, false, false>;
using BBox = bg::model::box<BPoint>;

constexpr int c_solids = 10000;
constexpr int c_bigPolygon = 2000;
constexpr int c_offsetVertices = 100000;

QWorldPoly::Point Pt(double x, double y) {
    return {QLength::FromRaw(x), QLength::FromRaw(y)};
}

// A turned rectangle of cabinet size somewhere on a floor of 100 by 100 metres.
std::vector<std::pair<double, double>> Cabinet(std::mt19937& random) {
    std::uniform_real_distribution<double> where(0, 100000), size(300, 900), turn(0, 3.14159);
    const double cx = where(random), cy = where(random);
    const double w = size(random) / 2, d = size(random) / 2, a = turn(random);
    const double c = std::cos(a), s = std::sin(a);
    std::vector<std::pair<double, double>> corners;
    for (const auto& [x, y] : {std::pair{-w, -d}, {w, -d}, {w, d}, {-w, d}})
        corners.emplace_back(cx + x * c - y * s, cy + x * s + y * c);
    return corners;
}

struct Solids {
    QWorldPolyWithHeightRangeSet ours;
    std::vector<BPolygon> plans;
    std::vector<std::pair<double, double>> heights;
};

Solids MakeSolids(unsigned seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> bottom(0, 2000), tall(300, 900);
    Solids solids;
    for (int i = 0; i < c_solids; ++i) {
        QWorldPoly poly;
        BPolygon plan;
        for (const auto& [x, y] : Cabinet(random)) {
            poly.Add(Pt(x, y));
            bg::append(plan.outer(), BPoint(x, y));
        }
        bg::correct(plan);
        const double low = bottom(random), high = low + tall(random);
        solids.ours.Add(
            QWorldPolyWithHeightRange(poly, QLength::FromRaw(high), QLength::FromRaw(low)));
        solids.plans.push_back(plan);
        solids.heights.emplace_back(low, high);
    }
    return solids;
}

const Solids& First() {
    static const Solids solids = MakeSolids(1);
    return solids;
}
const Solids& Second() {
    static const Solids solids = MakeSolids(2);
    return solids;
}

void GetCollisionsOurs(benchmark::State& state) {
    std::size_t pairs = 0;
    for (auto _ : state) {
        const auto collisions =
            QWorldPolyWithHeightRangeSet::GetCollisions(First().ours, Second().ours);
        pairs = static_cast<std::size_t>(collisions.GetCount());
        benchmark::DoNotOptimize(pairs);
    }
    state.counters["pairs"] = static_cast<double>(pairs);
}

// The R-tree is built in every iteration, as our sweep sorts in every call.
void GetCollisionsBoostRtree(benchmark::State& state) {
    const Solids& a = First();
    const Solids& b = Second();
    std::size_t pairs = 0;
    for (auto _ : state) {
        std::vector<std::pair<BBox, int>> boxes;
        boxes.reserve(b.plans.size());
        for (int j = 0; j < c_solids; ++j)
            boxes.emplace_back(bg::return_envelope<BBox>(b.plans[j]), j);
        const bgi::rtree<std::pair<BBox, int>, bgi::rstar<16>> tree(boxes);
        pairs = 0;
        std::vector<std::pair<BBox, int>> found;
        for (int i = 0; i < c_solids; ++i) {
            found.clear();
            tree.query(bgi::intersects(bg::return_envelope<BBox>(a.plans[i])),
                       std::back_inserter(found));
            for (const auto& [box, j] : found)
                if (a.heights[i].first < b.heights[j].second &&
                    b.heights[j].first < a.heights[i].second &&
                    bg::intersects(a.plans[i], b.plans[j]))
                    ++pairs;
        }
        benchmark::DoNotOptimize(pairs);
    }
    state.counters["pairs"] = static_cast<double>(pairs);
}

// Two star-shaped rings of 2 000 vertices that overlap in part.
std::pair<QWorldPoly, QWorldPoly> BigPair(std::vector<BPolygon>& plans) {
    std::mt19937 random(3);
    std::uniform_real_distribution<double> radius(800, 1000);
    QWorldPoly polys[2];
    plans.assign(2, BPolygon());
    for (int k = 0; k < 2; ++k) {
        for (int i = 0; i < c_bigPolygon; ++i) {
            const double angle = 2 * std::numbers::pi * i / c_bigPolygon;
            const double r = radius(random);
            const double x = 1500.0 * k + r * std::cos(angle), y = r * std::sin(angle);
            polys[k].Add(Pt(x, y));
            bg::append(plans[k].outer(), BPoint(x, y));
        }
        bg::correct(plans[k]);
    }
    return {polys[0], polys[1]};
}

void ClassifyBigPairOurs(benchmark::State& state) {
    std::vector<BPolygon> plans;
    const auto [a, b] = BigPair(plans);
    for (auto _ : state)
        benchmark::DoNotOptimize(ClassifyPolygons(a, b));
}

void ClassifyBigPairBoost(benchmark::State& state) {
    std::vector<BPolygon> plans;
    BigPair(plans);
    for (auto _ : state)
        benchmark::DoNotOptimize(bg::intersects(plans[0], plans[1]));
}

void OffsetLargeRingOurs(benchmark::State& state) {
    QWorldPoly ring;
    for (int i = 0; i < c_offsetVertices; ++i) {
        const double angle = 2 * std::numbers::pi * i / c_offsetVertices;
        ring.Add(Pt(100000 * std::cos(angle), 100000 * std::sin(angle)));
    }
    QArray<QLength> widths;
    widths.Add(QLength::FromRaw(20));
    for (auto _ : state) {
        QWorldPoly offset = ring;
        offset.OffsetEdges(widths, true, 1, true);
        benchmark::DoNotOptimize(offset.GetCount());
    }
}

} // namespace

BENCHMARK(GetCollisionsOurs)->Name("GetCollisions10000/keel")->Unit(benchmark::kMillisecond);
BENCHMARK(GetCollisionsBoostRtree)
    ->Name("GetCollisions10000/boost-rtree")
    ->Unit(benchmark::kMillisecond);
BENCHMARK(ClassifyBigPairOurs)->Name("Classify2000/keel")->Unit(benchmark::kMicrosecond);
BENCHMARK(ClassifyBigPairBoost)->Name("Classify2000/boost")->Unit(benchmark::kMicrosecond);
BENCHMARK(OffsetLargeRingOurs)->Name("Offset100000/keel")->Unit(benchmark::kMillisecond);
