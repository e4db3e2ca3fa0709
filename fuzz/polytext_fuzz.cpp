// Reads fuzzed polygon text and puts what it reads through the shaping operations, checking the
// rules that hold for any polygon: the text written back reads to the same doubles, offsetting
// keeps the count, a band holds twice its path, reversing twice changes nothing, and how the
// polygon and its offset lie is the same taken either way round. Reversing one of them may change
// that within the tolerance: the sense of two vectors tests each component against Eps, so a long
// edge passing a vertex closely can touch one way and cross the other. Equality
// within the tolerance is not transitive, so neighbours left by RemoveDuplicates may still be
// equal (0 and 0.006 around a removed 0.015); only its count is checked.
//
// Input: a first byte whose bits choose closed (1), uniform widths (2) and direction -1 (4), then
// the polygon text.

#include "keel/geometry/classify.h"
#include "keel/geometry/polytext.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace {

using keel::QArray;
using keel::QLength;
using keel::QWorldPoly;

constexpr std::size_t c_maxInput = 4096;

void Require(bool condition) {
    if (!condition)
        __builtin_trap();
}

bool SameDoubles(const QWorldPoly& a, const QWorldPoly& b) {
    if (a.GetCount() != b.GetCount())
        return false;
    for (int i = 0; i < a.GetCount(); ++i)
        if (a.Vertex(i).x.GetRaw() != b.Vertex(i).x.GetRaw() ||
            a.Vertex(i).y.GetRaw() != b.Vertex(i).y.GetRaw())
            return false;
    return true;
}

QArray<QLength> WidthsFor(int edges, bool uniform) {
    constexpr double c_widths[] = {1.5, -2, 0.25, 30, 0, -0.5};
    QArray<QLength> widths;
    const int count = uniform ? 1 : edges;
    for (int i = 0; i < count; ++i)
        widths.Add(QLength::FromRaw(c_widths[i % 6]));
    return widths;
}

void CheckClassification(const QWorldPoly& a, const QWorldPoly& b) {
    const keel::CROSSTOUCHDISJOINT way = keel::ClassifyPolygons(a, b);
    Require(keel::ClassifyPolygons(b, a) == way);
}

void CheckShaping(const QWorldPoly& read, bool closed, bool uniform, int direction) {
    QWorldPoly written;
    std::string message;
    Require(keel::ReadPolyText(keel::WritePolyText(read), written, message));
    Require(SameDoubles(read, written));

    const int orientation = read.Orientation();
    Require(orientation >= -1 && orientation <= 1);

    QWorldPoly reversed = read;
    reversed.Reverse();
    reversed.Reverse();
    Require(SameDoubles(reversed, read));

    QWorldPoly offset = read;
    offset.OffsetEdges(WidthsFor(read.GetCount(), uniform), uniform, direction, closed);
    Require(offset.GetCount() == read.GetCount());
    CheckClassification(read, offset);

    QWorldPoly band = read;
    band.RebuildBand(WidthsFor(read.GetCount(), uniform), uniform);
    Require(band.GetCount() == read.GetCount() / 2 * 2);

    QWorldPoly unique = read;
    unique.RemoveDuplicates(closed);
    Require(unique.GetCount() >= 1 && unique.GetCount() <= read.GetCount());

    QWorldPoly rounded = read;
    rounded.FilletCorner(1, QLength::FromRaw(2), 2);
    QWorldPoly cut = read;
    cut.ChamferCorner(-1, QLength::FromRaw(1));
    Require(keel::LogicalPoints(read, 2.0).GetCount() == read.GetCount());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0 || size > c_maxInput)
        return 0;
    const std::uint8_t choice = data[0];
    const std::string_view text(reinterpret_cast<const char*>(data + 1), size - 1);
    QWorldPoly poly;
    std::string message;
    if (!keel::ReadPolyText(text, poly, message)) {
        Require(!message.empty());
        return 0;
    }
    Require(poly.GetCount() >= 3);
    CheckShaping(poly, choice & 1, choice & 2, choice & 4 ? -1 : 1);
    return 0;
}
