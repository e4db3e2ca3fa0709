#pragma once

#include "keel/geometry/devicecontext.h"
#include "keel/geometry/pagedoc.h"
#include "keel/geometry/worldpolywithheightrange.h"

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The JSON inputs of the program: scenes to draw and solids to test for collisions. The JSON
// reader is optional; a program built without it refuses the commands that need it.

namespace keel::tool {

// Whether the program was built with its JSON reader.
bool HasJsonReader();
// 0 when the program reads JSON; otherwise says so on stderr for `command` and gives 2.
int RefuseWithoutJsonReader(std::string_view command);

// The largest JSON file read, the deepest nesting of arrays and objects in it, the most items
// (polygons and texts, or solids) and points of all its polygons together.
inline constexpr std::size_t c_mostJsonBytes = std::size_t{64} << 20;
inline constexpr int c_deepestJson = 32;
inline constexpr std::size_t c_mostJsonItems = 200000;
inline constexpr long long c_mostJsonPoints = 4000000;
// The longest text of a scene, in bytes, and its greatest height in millimetres.
inline constexpr std::size_t c_longestSceneText = 1000;
inline constexpr double c_tallestSceneText = 1e6;

// A closed polygon, filled and outlined with the colours it has.
struct ScenePolygon {
    QWorldPoly points;
    std::optional<QColour> fill;
    std::optional<QColour> stroke;
};

// A line of text whose top-left corner is at a world point, its height in world millimetres.
struct SceneText {
    QWorldPoint at;
    std::string utf8;
    double height = 0;
};

struct Scene {
    std::vector<ScenePolygon> polygons;
    std::vector<SceneText> texts;
};

// Reads {"polygons": [{"points": "x,y ...", "fill": "#rrggbb", "stroke": "#rrggbb"}], "texts":
// [{"at": "x,y", "text": "...", "height": mm}]}; either list may be left out, and so may either
// colour. False with a message naming the item and what is wrong with it; the scene is then
// left as it was.
bool ReadScene(std::string_view json, Scene& scene, std::string& message);

struct NamedSolid {
    std::string name;
    QWorldPolyWithHeightRange solid;
};

// Reads [{"name": "...", "points": "x,y ...", "bottom": mm, "top": mm}, ...], each bottom below
// its top. False with a message naming the solid and what is wrong with it.
bool ReadSolids(std::string_view json, std::vector<NamedSolid>& solids, std::string& message);

// "#rrggbb", either case.
std::optional<QColour> ReadColour(std::string_view text);

} // namespace keel::tool
