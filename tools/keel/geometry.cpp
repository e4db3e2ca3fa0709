#include "tools/keel/commands.h"

#include "keel/geometry/classify.h"
#include "keel/geometry/polytext.h"

#include <cstdio>
#include <string>

namespace keel::tool {

namespace {

constexpr std::string_view c_geometryUsage = "geometry takes: classify POLYGON POLYGON";

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

// `keel geometry classify A B`: how two polygons of text lie, as one word.
int RunClassify(std::span<const std::string_view> args) {
    if (args.size() != 2)
        return UsageError("geometry", "classify takes two polygons, as \"x,y x,y x,y ...\"");
    QWorldPoly polys[2];
    for (int i = 0; i < 2; ++i) {
        std::string message;
        if (!ReadPolyText(args[i], polys[i], message))
            return UsageError("geometry", "polygon " + std::to_string(i + 1) + ": " + message);
    }
    std::printf("%s\n", WordFor(ClassifyPolygons(polys[0], polys[1])));
    return 0;
}

} // namespace

int RunGeometry(std::span<const std::string_view> args) {
    if (!args.empty() && args.front() == "classify")
        return RunClassify(args.subspan(1));
    return UsageError(c_geometryUsage);
}

} // namespace keel::tool
