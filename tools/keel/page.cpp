#include "tools/keel/commands.h"

#include "keel/geometry/pagedoc.h"
#include "keel/geometry/pageview.h"
#include "keel/platform/exceptions.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>

namespace keel::tool {

namespace {

constexpr std::string_view c_pageUsage =
    "page takes: convert --scale N --zoom Z --world X,Y [--page W,H] [--origin X,Y] [--json]";
// The page sizes the command takes, in millimetres a side.
constexpr double c_smallestPage = 1;
constexpr double c_largestPage = 100000;
// The client area the view is shown in.
constexpr int c_clientWidth = 800;
constexpr int c_clientHeight = 600;

std::optional<double> Number(std::string_view text) {
    const std::string copy(text);
    char* end = nullptr;
    const double value = std::strtod(copy.c_str(), &end);
    if (copy.empty() || *end != '\0' || !std::isfinite(value))
        return std::nullopt;
    return value;
}

// "X,Y" as two finite numbers.
bool ReadPair(std::string_view text, double& x, double& y) {
    const std::size_t comma = text.find(',');
    if (comma == std::string_view::npos)
        return false;
    const auto first = Number(text.substr(0, comma));
    const auto second = Number(text.substr(comma + 1));
    if (!first || !second)
        return false;
    x = *first;
    y = *second;
    return true;
}

std::string Decimal(double value) {
    char digits[32];
    std::snprintf(digits, sizeof digits, "%.10g", value);
    return digits;
}

bool ReadWhole(std::string_view text, int& value) {
    const auto number = Number(text);
    if (!number || *number != std::floor(*number) || std::fabs(*number) > 1e9)
        return false;
    value = static_cast<int>(*number);
    return true;
}

struct ConvertOptions {
    int scale = 0;
    int zoom = 0;
    double worldX = 0;
    double worldY = 0;
    double pageWidth = 210;
    double pageHeight = 297;
    // Where the client area lies on the screen.
    double originX = 0;
    double originY = 0;
    bool json = false;
};

int ParseConvert(std::span<const std::string_view> args, ConvertOptions& options) {
    bool scale = false, zoom = false, world = false;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string_view arg = args[i];
        if (arg == "--json") {
            options.json = true;
            continue;
        }
        if (i + 1 >= args.size())
            return UsageError("page", "convert: " + std::string(arg) + " needs a value");
        const std::string_view value = args[++i];
        if (arg == "--scale" && ReadWhole(value, options.scale))
            scale = true;
        else if (arg == "--zoom" && ReadWhole(value, options.zoom))
            zoom = true;
        else if (arg == "--world" && ReadPair(value, options.worldX, options.worldY))
            world = true;
        else if (arg == "--origin" && ReadPair(value, options.originX, options.originY) &&
                 std::fabs(options.originX) <= 1e6 && std::fabs(options.originY) <= 1e6)
            continue;
        else if (arg != "--page" || !ReadPair(value, options.pageWidth, options.pageHeight))
            return UsageError("page",
                              "convert: bad " + std::string(arg) + " '" + std::string(value) + "'");
    }
    if (!scale || !zoom || !world)
        return UsageError("page", "convert needs --scale, --zoom and --world");
    if (options.scale < 1)
        return UsageError("page", "convert: a scale of " + std::to_string(options.scale) +
                                      " is not a positive whole number");
    if (options.zoom < QPageView::c_smallestZoom || options.zoom > QPageView::c_largestZoom)
        return UsageError("page", "convert: a zoom of " + std::to_string(options.zoom) +
                                      "% is outside 1 to 100000%");
    for (const double side : {options.pageWidth, options.pageHeight})
        if (side < c_smallestPage || side > c_largestPage)
            return UsageError("page", "convert: a page side of " + Decimal(side) +
                                          " mm is outside 1 to 100000 mm");
    return 0;
}

struct Line {
    const char* name;
    std::string x;
    std::string y;
};

void Print(const std::vector<Line>& lines, bool json) {
    if (!json) {
        for (const Line& line : lines)
            std::printf("%-8s %s %s\n", line.name, line.x.c_str(), line.y.c_str());
        return;
    }
    std::string out = "{";
    for (std::size_t i = 0; i < lines.size(); ++i) {
        out += (i ? ", \"" : "\"") + std::string(lines[i].name) + "\": {\"x\": " + lines[i].x +
               ", \"y\": " + lines[i].y + "}";
    }
    std::printf("%s}\n", out.c_str());
}

// `keel page convert`: one world point through page, logical units, client and screen pixels,
// on a page of the size at the scale, in a view of 800 by 600 pixels at the zoom.
int RunConvert(std::span<const std::string_view> args) {
    ConvertOptions options;
    if (const int status = ParseConvert(args, options))
        return status;
    const QPageVector pageSize{QLength::FromRaw(options.pageWidth),
                               QLength::FromRaw(options.pageHeight)};
    QPageDoc::SetManualPageSize(pageSize);
    QPageDoc doc;
    doc.SetScaleAndComputePageSize(options.scale);
    QFixedWindow window(
        c_clientWidth, c_clientHeight,
        QScreenPoint(static_cast<int>(options.originX), static_cast<int>(options.originY)));
    QPageView view(doc, window);
    view.SetPageSize(pageSize, false);
    view.SetZoom(options.zoom, false);

    const QWorldPoint world(QLength::FromRaw(options.worldX), QLength::FromRaw(options.worldY));
    const QPagePoint page = view.WorldToPage(world);
    const QClientPoint logical = ClientPoint(page, nullptr);
    const QClientPoint client = view.PageToClient(page);
    const QScreenPoint screen = view.ClientToScreen(client);
    Print({{"world", Decimal(world.x.GetRaw()), Decimal(world.y.GetRaw())},
           {"page", Decimal(page.x.GetRaw()), Decimal(page.y.GetRaw())},
           {"logical", std::to_string(logical.x), std::to_string(logical.y)},
           {"client", std::to_string(client.x), std::to_string(client.y)},
           {"screen", std::to_string(screen.x), std::to_string(screen.y)}},
          options.json);
    return 0;
}

} // namespace

int RunPage(std::span<const std::string_view> args) {
    if (!args.empty() && args.front() == "convert")
        return RunConvert(args.subspan(1));
    return UsageError(c_pageUsage);
}

} // namespace keel::tool
