#include "tools/keel/commands.h"
#include "tools/keel/output.h"

#include "keel/geometry/classify.h"
#include "keel/geometry/polytext.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <optional>
#include <string>

namespace keel::tool {

namespace {

constexpr std::string_view c_geometryUsage =
    "geometry takes: info POLYGON [--json] | classify POLYGON POLYGON | "
    "offset POLYGON WIDTH [--json]";

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

} // namespace

int RunGeometry(std::span<const std::string_view> args) {
    if (!args.empty() && args.front() == "info")
        return RunInfo(args.subspan(1));
    if (!args.empty() && args.front() == "classify")
        return RunClassify(args.subspan(1));
    if (!args.empty() && args.front() == "offset")
        return RunOffset(args.subspan(1));
    return UsageError(c_geometryUsage);
}

} // namespace keel::tool
