#include "tests/support/archivebytes.h"
#include "tests/support/geometry.h"
#include "tests/support/pagescene.h"
#include "tests/support/paths.h"

#include "keel/geometry/classify.h"
#include "keel/geometry/polytext.h"
#include "keel/geometry/q3dspec.h"
#include "keel/geometry/worldpolywithheightrange.h"
#include "keel/platform/exceptions.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

namespace keel {
namespace {

namespace fs = std::filesystem;
using test::ClassName;
using Words = std::vector<std::string>;

// Geometry cases from the files of tests/data/geometry/, one a line: an operation, its arguments
// and what it gives, separated by " | "; "#" opens a comment line, and the head of each file
// names the operations it uses. A point is "x,y" in millimetres, a polygon its points separated
// by spaces ("-" for none), a box "x,y,z x,y,z", a prism a plan and then "bottom top". Relations
// of two things are checked both ways round. The operations "edit", "orientation-after", "bounds"
// and "count" run a command (see Edit) on a polygon; "edit" gives what the command answers, if
// anything, and "; ", or "error: " and the exception's text and "; ", then the vertices after it
// to 4 decimals.

Words Split(const std::string& text, const std::string& separator) {
    Words words;
    std::size_t start = 0;
    for (std::size_t at; (at = text.find(separator, start)) != std::string::npos;
         start = at + separator.size())
        words.push_back(text.substr(start, at - start));
    words.push_back(text.substr(start));
    return words;
}

test::WPoint PointOf(const std::string& text) {
    const Words xy = Split(text, ",");
    if (xy.size() != 2)
        throw std::invalid_argument("not a point: " + text);
    return test::Pt(std::stod(xy[0]), std::stod(xy[1]));
}

// The polygon of the words from `first` on; "-" for none.
QWorldPoly PolygonOf(const Words& words, std::size_t first) {
    QWorldPoly poly;
    for (std::size_t i = first; i < words.size() && words[i] != "-"; ++i)
        poly.Add(PointOf(words[i]));
    return poly;
}

QWorldPoly PolygonOf(const std::string& text) {
    return PolygonOf(Split(text, " "), 0);
}

QWorldPoly::Rect RectOf(const std::string& text) {
    const QWorldPoly corners = PolygonOf(text);
    return {corners.Vertex(0), corners.Vertex(1)};
}

TRect3D<QLength, c_worldSpace> BoxOf(const std::string& text) {
    const Words corners = Split(text, " ");
    const auto corner = [&](int i) {
        const Words xyz = Split(corners.at(i), ",");
        return TPoint3D<QLength, c_worldSpace>{QLength::FromRaw(std::stod(xyz.at(0))),
                                               QLength::FromRaw(std::stod(xyz.at(1))),
                                               QLength::FromRaw(std::stod(xyz.at(2)))};
    };
    return {corner(0), corner(1)};
}

QWorldPolyWithHeightRange PrismOf(const std::string& plan, const std::string& heights) {
    const Words range = Split(heights, " ");
    return test::Prism(PolygonOf(plan), std::stod(range.at(0)), std::stod(range.at(1)));
}

QLength LengthOf(const std::string& text) {
    return QLength::FromRaw(std::stod(text));
}

QArray<QLength> WidthsOf(const std::string& text) {
    QArray<QLength> widths;
    if (text != "-")
        for (const std::string& width : Split(text, ","))
            widths.Add(LengthOf(width));
    return widths;
}

bool IsClosed(const std::string& word) {
    if (word != "open" && word != "closed")
        throw std::invalid_argument("neither open nor closed: " + word);
    return word == "closed";
}

std::string Bool(bool value) {
    return value ? "true" : "false";
}

// The class, or both when the relation taken the other way round gives another.
std::string Both(CROSSTOUCHDISJOINT one, CROSSTOUCHDISJOINT other) {
    return one == other ? ClassName(one)
                        : std::string(ClassName(one)) + " but " + ClassName(other) + " reversed";
}

// A coordinate to 4 decimals, without trailing zeros or a negative zero.
std::string Rounded(double value) {
    char text[64];
    std::snprintf(text, sizeof text, "%.4f", value);
    std::string rounded = text;
    rounded.erase(rounded.find_last_not_of('0') + 1);
    if (rounded.back() == '.')
        rounded.pop_back();
    return rounded == "-0" ? "0" : rounded;
}

std::string RoundedText(const QWorldPoly& poly) {
    if (poly.IsEmpty())
        return "-";
    std::string text;
    for (int i = 0; i < poly.GetCount(); ++i) {
        const test::RawXY vertex(poly.Vertex(i));
        text += (i > 0 ? " " : "") + Rounded(vertex.x) + "," + Rounded(vertex.y);
    }
    return text;
}

std::string HexOf(const test::Bytes& bytes) {
    std::string text;
    char pair[4];
    for (const std::uint8_t byte : bytes) {
        std::snprintf(pair, sizeof pair, "%02x", byte);
        text += (text.empty() ? "" : " ") + std::string(pair);
    }
    return text;
}

test::Bytes BytesOf(const std::string& hex) {
    return test::Hex(hex == "-" ? "" : hex.c_str());
}

// What the object read from the bytes with the schema holds (`describe`), or the failure; then
// whether bytes were left, and the bytes it writes back.
std::string Reread(const std::string& schema, const std::string& hex, const char16_t* file,
                   const std::function<void(CArchive&)>& serialize,
                   const std::function<std::string()>& describe) {
    test::Loading loading(BytesOf(hex), 4096, file, std::stoul(schema));
    try {
        serialize(loading.archive);
    } catch (const CArchiveException& error) {
        return "error: cause " + std::to_string(error.m_cause) + " in " +
               error.m_strFileName.ToUtf8();
    }
    return describe() + (loading.archive.IsBufferEmpty() ? "" : "; bytes left") + "; writes " +
           HexOf(test::Stored(serialize));
}

// A polygon, whose caches were valid before.
std::string ArchiveResult(const std::string& schema, const std::string& hex) {
    QWorldPoly poly = test::Poly({{9, 9}});
    poly.GetBounds();
    return Reread(
        schema, hex, u"poly.drw", [&](CArchive& archive) { poly.Serialize(archive); },
        [&] { return test::Text(poly) + (poly.CacheFlags() == 0 ? "" : "; caches kept"); });
}

// A camera whose field of view was 60 degrees before.
std::string CameraResult(const std::string& schema, const std::string& hex) {
    Q3DSpec camera;
    camera.SetFOV(QAngle::FromRaw(60));
    const TPoint3D<QLength, c_worldSpace> centre{QLength::FromRaw(7), QLength::FromRaw(8),
                                                 QLength::FromRaw(9)};
    camera.SetCenterOfRotation(centre);
    return Reread(
        schema, hex, u"view.drw", [&](CArchive& archive) { camera.Serialize(archive); },
        [&] { return camera.CenterOfRotation() == centre ? "centre kept" : "the centre moved"; });
}

// A header read into a page of 10 by 10 mm at 1:40; a header without a size takes 297 by 210
// below 1:25 and 841 by 594 from it.
std::string PageHeaderResult(const std::string& schema, const std::string& hex) {
    test::PageSetup setup(10, 10, 40);
    QPageDoc::SetFallbackPageSizes(test::PageSize(297, 210), test::PageSize(841, 594));
    return Reread(
        schema, hex, u"page.doc", [&](CArchive& archive) { setup.doc->SerializeHeader(archive); },
        [&] {
            const QPageVector size = setup.doc->GetPageSize();
            return "scale " + std::to_string(setup.doc->GetScale()) + "; page " +
                   Rounded(size.x.GetRaw()) + "," + Rounded(size.y.GetRaw());
        });
}

// Runs one editing command on the polygon, or several joined by " & "; gives what the (last)
// operation answers, if anything.
std::string Edit(QWorldPoly& poly, const std::string& command) {
    if (const std::size_t and_ = command.find(" & "); and_ != std::string::npos) {
        Edit(poly, command.substr(0, and_));
        return Edit(poly, command.substr(and_ + 3));
    }
    const Words w = Split(command, " ");
    const std::string& verb = w[0];
    const auto at = [&w](std::size_t i) { return w.at(i); };
    const auto index = [&w](std::size_t i) { return std::stoi(w.at(i)); };
    if (verb == "move") {
        poly.Move(PointOf(at(1)) - test::Pt(0, 0));
    } else if (verb == "sort") {
        const test::RawXY along(PointOf(at(1)));
        poly.SortAlong(along.x, along.y);
    } else if (verb == "reverse")
        poly.Reverse();
    else if (verb == "mirror-x")
        poly.MirrorX(PointOf(at(1)));
    else if (verb == "sort-angle")
        poly.SortAlong(QAngle(std::stod(at(1)), QAngle::ANGU_DEG));
    else if (verb == "remove-duplicates")
        poly.RemoveDuplicates(IsClosed(at(1)));
    else if (verb == "element-at")
        poly.ElementAt(index(1)) = PointOf(at(2));
    else if (verb == "element-at-wrapped")
        poly.ElementAtWrapped(index(1)) = PointOf(at(2));
    else if (verb == "grow")
        poly.ElementAtGrow(index(1)) = PointOf(at(2));
    else if (verb == "add")
        return std::to_string(poly.Add(PointOf(at(1))));
    else if (verb == "insert-at")
        poly.InsertAt(index(1), PointOf(at(2)));
    else if (verb == "insert-after")
        poly.InsertAfter(index(1), PointOf(at(2)));
    else if (verb == "insert-poly-at")
        poly.InsertPolyAt(index(1), PolygonOf(w, 2));
    else if (verb == "insert-poly-after")
        poly.InsertPolyAfter(index(1), PolygonOf(w, 2));
    else if (verb == "remove-at")
        poly.RemoveAt(index(1), index(2));
    else if (verb == "remove-wrapped")
        poly.RemoveWrapped(index(1), index(2));
    else if (verb == "remove-last")
        poly.RemoveLast();
    else if (verb == "remove-all")
        poly.RemoveAll();
    else if (verb == "fit")
        poly.FitToRect(QWorldPoly::Rect(PointOf(at(1)), PointOf(at(2))));
    else if (verb == "append-closing")
        poly.Append(PolygonOf(w, 1), true);
    else if (verb == "append-bounded") {
        const QWorldPoly other = PolygonOf(w, 1);
        other.GetBounds();
        poly.Append(other, true);
    } else if (verb == "append-reversed")
        poly.AppendReversed(PolygonOf(w, 1));
    else if (verb == "append-itself")
        poly.Append(poly, false);
    else if (verb == "append-itself-reversed")
        poly.AppendReversed(poly);
    else if (verb == "two-points")
        poly.SetTwoPoints(PointOf(at(1)), PointOf(at(2)));
    else if (verb == "offset")
        poly.OffsetEdges(WidthsOf(at(1)), at(2) == "uniform", index(3), IsClosed(at(4)));
    else if (verb == "offset-uniform")
        poly.OffsetUniform(LengthOf(at(1)), IsClosed(at(2)));
    else if (verb == "band")
        poly.RebuildBand(WidthsOf(at(1)), at(2) == "uniform");
    else if (verb == "chamfer")
        return Bool(poly.ChamferCorner(index(1), LengthOf(at(2))));
    else if (verb == "arc-edge")
        poly.ArcEdge(index(1), LengthOf(at(2)), index(3));
    else if (verb == "fillet")
        return Bool(poly.FilletCorner(index(1), LengthOf(at(2)), index(3)));
    else if (verb == "ortho-quad")
        MakeOrthoQuad(poly, PointOf(at(1)), PointOf(at(2)), LengthOf(at(3)), LengthOf(at(4)));
    else if (verb == "quad") {
        MakeQuadFromLengths(poly, LengthOf(at(4)), LengthOf(at(5)), LengthOf(at(6)),
                            WidthsOf(at(7)), PointOf(at(1)), QAngle::FromRaw(std::stod(at(2))),
                            at(3) == "left");
        return std::to_string(poly.Orientation());
    } else
        throw std::invalid_argument("no command " + verb);
    return "";
}

std::string Result(const Words& f) {
    const std::string& op = f[0];
    const auto a = [&f](std::size_t i) { return PolygonOf(f.at(i)); };
    if (op == "point") {
        const test::WPoint p = PointOf(f.at(2));
        return Both(a(1).ClassifyPoint(p), test::Reversed(a(1)).ClassifyPoint(p));
    }
    if (op == "on-segment")
        return std::to_string(
            PositionOnSegment(PointOf(f.at(1)), PointOf(f.at(2)), PointOf(f.at(3))));
    if (op == "segments") {
        const QWorldPoly ab = a(1);
        const QWorldPoly cd = a(2);
        return Both(ClassifySegments(ab.Vertex(0), ab.Vertex(1), cd.Vertex(0), cd.Vertex(1)),
                    ClassifySegments(cd.Vertex(0), cd.Vertex(1), ab.Vertex(1), ab.Vertex(0)));
    }
    if (op == "segment-in-bounds") {
        const QWorldPoly ab = a(2);
        return ClassName(ClassifySegmentAndBounds(ab.Vertex(0), ab.Vertex(1), RectOf(f.at(1))));
    }
    if (op == "segment") {
        const QWorldPoly ab = a(2);
        return Both(a(1).ClassifySegment(ab.Vertex(0), ab.Vertex(1)),
                    a(1).ClassifySegment(ab.Vertex(1), ab.Vertex(0)));
    }
    if (op == "polygons")
        return Both(ClassifyPolygons(a(1), a(2)), ClassifyPolygons(a(2), a(1)));
    if (op == "contains")
        return Bool(a(1).Contains(a(2), false)) + " " + Bool(a(1).Contains(a(2), true));
    if (op == "boxes")
        return Both(ClassifyBoxes(BoxOf(f.at(1)), BoxOf(f.at(2))),
                    ClassifyBoxes(BoxOf(f.at(2)), BoxOf(f.at(1))));
    if (op == "prisms" || op == "prism-contains") {
        const QWorldPolyWithHeightRange first = PrismOf(f.at(1), f.at(2));
        const QWorldPolyWithHeightRange second = PrismOf(f.at(3), f.at(4));
        if (op == "prism-contains")
            return Bool(first.FullyContains(second));
        return Both(QWorldPolyWithHeightRange::CrossTouchDisjoint(first, second),
                    QWorldPolyWithHeightRange::CrossTouchDisjoint(second, first));
    }
    if (op == "sense")
        return std::to_string(
            Sense(PointOf(f.at(1)) - test::Pt(0, 0), PointOf(f.at(2)) - test::Pt(0, 0)));
    if (op == "point-equal" || op == "equal") {
        const bool equal = op == "equal" ? a(1) == a(2) : PointOf(f.at(1)) == PointOf(f.at(2));
        const bool unequal = op == "equal" ? a(1) != a(2) : PointOf(f.at(1)) != PointOf(f.at(2));
        return equal == !unequal ? Bool(equal) : "== and != disagree";
    }
    if (op == "rect") {
        const QWorldPoly::Rect rect(PointOf(f.at(1)), PointOf(f.at(2)));
        return test::Text(test::Poly({{rect.left.GetRaw(), rect.top.GetRaw()},
                                      {rect.right.GetRaw(), rect.bottom.GetRaw()}}));
    }
    if (op == "orientation")
        return std::to_string(a(1).Orientation());
    if (op == "closed")
        return Bool(a(1).IsClosed());
    if (op == "vertex") {
        const test::RawXY vertex(a(1).GetAt(std::stoi(f.at(2))));
        return Rounded(vertex.x) + "," + Rounded(vertex.y);
    }
    if (op == "same-outline")
        return Bool(a(1).IsSameOutline(a(3), IsClosed(f.at(2)), IsClosed(f.at(4))));
    if (op == "archive")
        return ArchiveResult(f.at(1), f.at(2));
    if (op == "camera")
        return CameraResult(f.at(1), f.at(2));
    if (op == "page-header")
        return PageHeaderResult(f.at(1), f.at(2));
    if (op == "read") {
        QWorldPoly poly = test::Poly({{5, 5}});
        std::string message;
        if (!ReadPolyText(f.at(1), poly, message))
            return "error: " + message + (test::Text(poly) == "5,5" ? "" : "; changed the polygon");
        return test::Text(poly) + (message.empty() ? "" : "; a message: " + message);
    }
    if (op == "arc") {
        const TPolyArc<QLength, c_worldSpace> arc(PointOf(f.at(1)), PointOf(f.at(2)),
                                                  std::stoi(f.at(3)), LengthOf(f.at(4)));
        const test::RawXY centre(arc.Centre());
        return RoundedText(arc) + "; centre " + Rounded(centre.x) + "," + Rounded(centre.y) +
               "; arc " + Rounded(arc.ArcLength().GetRaw()) + "; chord " +
               Rounded(arc.ChordLength().GetRaw()) + "; " + std::to_string(arc.Segments()) +
               " segments";
    }
    QWorldPoly poly = a(1);
    if (op == "count") {
        Edit(poly, f.at(2));
        return std::to_string(poly.GetCount());
    }
    if (op == "bounds") {
        poly.GetBounds();
        Edit(poly, f.at(2));
        const QWorldPoly::Rect& bounds = poly.GetBounds();
        return RoundedText(test::Poly({{bounds.left.GetRaw(), bounds.top.GetRaw()},
                                       {bounds.right.GetRaw(), bounds.bottom.GetRaw()}}));
    }
    if (op == "orientation-after") {
        poly.Orientation();
        Edit(poly, f.at(2));
        return std::to_string(poly.Orientation());
    }
    if (op != "edit")
        throw std::invalid_argument("no operation " + op);
    std::string answer;
    try {
        answer = Edit(poly, f.at(2));
    } catch (const InvalidArgumentException& error) {
        answer = std::string("error: ") + error.what();
    }
    return (answer.empty() ? "" : answer + "; ") + RoundedText(poly);
}

TEST(GeometryCasesTest, EveryCaseGivesItsResult) {
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(fs::path(test::TestDataFolder()) / "geometry"))
        if (entry.path().extension() == ".txt")
            files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    int cases = 0;
    for (const fs::path& file : files) {
        std::ifstream in(file);
        std::string line;
        for (int number = 1; std::getline(in, line); ++number) {
            if (line.empty() || line[0] == '#')
                continue;
            SCOPED_TRACE(file.filename().string() + ":" + std::to_string(number) + ": " + line);
            Words fields = Split(line, " | ");
            if (fields.size() < 2) {
                ADD_FAILURE()
                    << "a case is an operation, its arguments and the result, between \" | \"";
                continue;
            }
            const std::string expected = fields.back();
            fields.pop_back();
            try {
                EXPECT_EQ(Result(fields), expected);
            } catch (const std::exception& error) {
                ADD_FAILURE() << "a bad case: " << error.what();
            }
            ++cases;
        }
    }
    EXPECT_GT(cases, 250);
}

} // namespace
} // namespace keel
