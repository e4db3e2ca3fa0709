#include "tools/keel/commands.h"
#include "tools/keel/output.h"
#include "tools/keel/scene.h"
#include "tools/keel/wholefile.h"

#include "keel/geometry/classify.h"
#include "keel/geometry/polytext.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

namespace keel::tool {

namespace {

constexpr std::string_view c_geometryUsage =
    "geometry takes: info POLYGON [--json] | classify POLYGON POLYGON | "
    "offset POLYGON WIDTH [--json] | collide FILE [--json]";

const char* WordFor(CROSSTOUCHDISJOINT value) {
    switch (value) {
    case CROSS:
        return "cross";
    case TOUCH:
        return "touch";
    case DISJOINT:
        break;
    }
    return "disjoint";
}

// The shortest text that reads back as the same double.
std::string Number(double value) {
    char buffer[32];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    return std::string(buffer, result.ptr);
}

double Millimetres(const QLength& length) {
    return length.AsDouble(QLength::LU_MM);
}

// The polygon argument `number` (from 1), or a usage message.
std::optional<QWorldPoly> ReadPolyArgument(std::string_view text, int number, int& status) {
    QWorldPoly poly;
    std::string message;
    if (ReadPolyText(text, poly, message))
        return poly;
    status = UsageError("geometry", "polygon " + std::to_string(number) + ": " + message);
    return std::nullopt;
}

// The area of the ring the vertices make, in square millimetres, by the shoelace sum.
double RingArea(const QWorldPoly& poly) {
    double twice = 0;
    for (int i = 0; i < poly.GetCount(); ++i) {
        const QWorldPoly::Point& a = poly.Vertex(i);
        const QWorldPoly::Point& b = poly.Vertex((i + 1) % poly.GetCount());
        twice += Millimetres(a.x) * Millimetres(b.y) - Millimetres(b.x) * Millimetres(a.y);
    }
    return std::fabs(twice) / 2;
}

double RingPerimeter(const QWorldPoly& poly) {
    double length = 0;
    for (int i = 0; i < poly.GetCount(); ++i)
        length += Millimetres(poly.EdgeLength(i));
    return length;
}

// Splits off "--json" and says whether it was there; any other option is bad usage.
bool TakeJsonOption(std::span<const std::string_view> args, std::vector<std::string_view>& rest,
                    bool& json, int& status) {
    json = false;
    for (const std::string_view arg : args) {
        if (arg == "--json") {
            json = true;
        } else if (arg.size() > 2 && arg.starts_with("--")) {
            status = UsageError("geometry", "unknown option '" + std::string(arg) + "'");
            return false;
        } else {
            rest.push_back(arg);
        }
    }
    return true;
}

// `keel geometry info POLY`: area in square metres, perimeter and bounds in millimetres, and the
// orientation.
int RunInfo(std::span<const std::string_view> args) {
    std::vector<std::string_view> rest;
    bool json = false;
    int status = 2;
    if (!TakeJsonOption(args, rest, json, status))
        return status;
    if (rest.size() != 1)
        return UsageError("geometry", "info takes one polygon, as \"x,y x,y x,y ...\"");
    const std::optional<QWorldPoly> poly = ReadPolyArgument(rest[0], 1, status);
    if (!poly)
        return status;
    const std::string area = Number(RingArea(*poly) / 1e6);
    const std::string perimeter = Number(RingPerimeter(*poly));
    const std::string orientation = std::to_string(poly->Orientation());
    const auto& bounds = poly->GetBounds();
    const std::string corners[] = {
        Number(Millimetres(bounds.left)), Number(Millimetres(bounds.top)),
        Number(Millimetres(bounds.right)), Number(Millimetres(bounds.bottom))};
    if (json) {
        std::printf("{\"area\": %s, \"perimeter\": %s, \"orientation\": %s, "
                    "\"bounds\": [%s, %s, %s, %s]}\n",
                    area.c_str(), perimeter.c_str(), orientation.c_str(), corners[0].c_str(),
                    corners[1].c_str(), corners[2].c_str(), corners[3].c_str());
    } else {
        std::printf("area\t%s m2\nperimeter\t%s mm\norientation\t%s\nbounds\t%s,%s %s,%s\n",
                    area.c_str(), perimeter.c_str(), orientation.c_str(), corners[0].c_str(),
                    corners[1].c_str(), corners[2].c_str(), corners[3].c_str());
    }
    return 0;
}

// A width in millimetres, finite and within the range polygon text allows.
std::optional<double> ReadWidth(std::string_view text) {
    std::string_view digits = text;
    if (!digits.empty() && digits.front() == '+')
        digits.remove_prefix(1);
    double value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (digits.empty() || error != std::errc() || end != digits.data() + digits.size() ||
        !std::isfinite(value) || std::fabs(value) > c_mostPolyTextMillimetres)
        return std::nullopt;
    return value;
}

// `keel geometry offset POLY WIDTH`: every edge of the ring moved to the left of its direction by
// the width (inward for a counter-clockwise polygon).
int RunOffset(std::span<const std::string_view> args) {
    std::vector<std::string_view> rest;
    bool json = false;
    int status = 2;
    if (!TakeJsonOption(args, rest, json, status))
        return status;
    if (rest.size() != 2)
        return UsageError("geometry", "offset takes a polygon and a width in millimetres");
    std::optional<QWorldPoly> poly = ReadPolyArgument(rest[0], 1, status);
    if (!poly)
        return status;
    const std::optional<double> width = ReadWidth(rest[1]);
    if (!width)
        return UsageError("geometry", "width \"" + std::string(rest[1]) +
                                          "\" is not a number of millimetres within 1e9");
    poly->OffsetUniform(QLength(*width, QLength::LU_MM), true);
    const std::string text = WritePolyText(*poly);
    if (json) {
        std::string out = "{\"points\": ";
        AppendJsonString(out, text);
        std::printf("%s}\n", out.c_str());
    } else {
        std::printf("%s\n", text.c_str());
    }
    return 0;
}

// `keel geometry classify A B`: how two polygons of text lie, as one word.
int RunClassify(std::span<const std::string_view> args) {
    if (args.size() != 2)
        return UsageError("geometry", "classify takes two polygons, as \"x,y x,y x,y ...\"");
    int status = 2;
    const std::optional<QWorldPoly> a = ReadPolyArgument(args[0], 1, status);
    const std::optional<QWorldPoly> b = a ? ReadPolyArgument(args[1], 2, status) : std::nullopt;
    if (!b)
        return status;
    std::printf("%s\n", WordFor(ClassifyPolygons(*a, *b)));
    return 0;
}

// Two solids of the file, by index, that are not disjoint.
struct Meeting {
    int first;
    int second;
    CROSSTOUCHDISJOINT how;
};

// A solid's plan bounds, for the sweep.
struct Extent {
    double left;
    double right;
    double low;
    double high;
    int index;
};

// Bounds apart by Eps or more on either axis: the plans are disjoint, as ClassifyPolygons finds
// before it looks at an edge.
bool PlansApart(const Extent& a, const Extent& b) {
    using tolerance::Less;
    return Less(a.right, b.left) || Less(b.right, a.left) || Less(a.high, b.low) ||
           Less(b.high, a.low);
}

// Every pair that is not disjoint, ordered by the first index and then the second. The plans are
// swept in the order of their left sides: a solid is compared only with those that begin before
// it ends, so that solids far apart along x are never classified.
std::vector<Meeting> MeetingPairs(const std::vector<NamedSolid>& solids) {
    std::vector<Extent> extents;
    extents.reserve(solids.size());
    for (std::size_t i = 0; i < solids.size(); ++i) {
        const auto box = solids[i].solid.GetBoundingBox();
        extents.push_back({box.left.GetRaw(), box.right.GetRaw(), box.top.GetRaw(),
                           box.bottom.GetRaw(), static_cast<int>(i)});
    }
    std::sort(extents.begin(), extents.end(), [](const Extent& a, const Extent& b) {
        return a.left != b.left ? a.left < b.left : a.index < b.index;
    });
    std::vector<Meeting> meetings;
    for (std::size_t a = 0; a < extents.size(); ++a) {
        for (std::size_t b = a + 1;
             b < extents.size() && !tolerance::Less(extents[a].right, extents[b].left); ++b) {
            if (PlansApart(extents[a], extents[b]))
                continue;
            const int first = std::min(extents[a].index, extents[b].index);
            const int second = std::max(extents[a].index, extents[b].index);
            const CROSSTOUCHDISJOINT how = QWorldPolyWithHeightRange::CrossTouchDisjoint(
                solids[first].solid, solids[second].solid);
            if (how != DISJOINT)
                meetings.push_back({first, second, how});
        }
    }
    std::sort(meetings.begin(), meetings.end(), [](const Meeting& a, const Meeting& b) {
        return a.first != b.first ? a.first < b.first : a.second < b.second;
    });
    return meetings;
}

void PrintMeetings(const std::vector<NamedSolid>& solids, const std::vector<Meeting>& meetings,
                   bool json) {
    if (!json) {
        for (const Meeting& meeting : meetings)
            std::printf("%s\t%s\t%s\n", solids[meeting.first].name.c_str(),
                        solids[meeting.second].name.c_str(), WordFor(meeting.how));
        return;
    }
    std::string out = "[";
    for (std::size_t i = 0; i < meetings.size(); ++i) {
        out += i ? ", {\"first\": " : "{\"first\": ";
        AppendJsonString(out, solids[meetings[i].first].name);
        out += ", \"second\": ";
        AppendJsonString(out, solids[meetings[i].second].name);
        out += ", \"classification\": \"" + std::string(WordFor(meetings[i].how)) + "\"}";
    }
    std::printf("%s]\n", out.c_str());
}

// `keel geometry collide FILE`: the pairs of solids of a JSON file that cross or touch.
int RunCollide(std::span<const std::string_view> args) {
    std::vector<std::string_view> rest;
    bool json = false;
    int status = 2;
    if (!TakeJsonOption(args, rest, json, status))
        return status;
    if (rest.size() != 1)
        return UsageError("geometry", "collide takes one JSON file of solids");
    if (const int refused = RefuseWithoutJsonReader("geometry"))
        return refused;
    const std::string path(rest[0]);
    std::string text;
    std::string message;
    std::vector<NamedSolid> solids;
    if (!ReadWholeFile(path, text, message, c_mostJsonBytes)) {
        std::fprintf(stderr, "keel geometry: cannot read the solids '%s': %s\n", path.c_str(),
                     message.c_str());
        return 1;
    }
    if (!ReadSolids(text, solids, message)) {
        std::fprintf(stderr, "keel geometry: %s: %s\n", path.c_str(), message.c_str());
        return 1;
    }
    PrintMeetings(solids, MeetingPairs(solids), json);
    return 0;
}

} // namespace

int RunGeometry(std::span<const std::string_view> args) {
    if (!args.empty() && args.front() == "info")
        return RunInfo(args.subspan(1));
    if (!args.empty() && args.front() == "classify")
        return RunClassify(args.subspan(1));
    if (!args.empty() && args.front() == "offset")
        return RunOffset(args.subspan(1));
    if (!args.empty() && args.front() == "collide")
        return RunCollide(args.subspan(1));
    return UsageError(c_geometryUsage);
}

} // namespace keel::tool
