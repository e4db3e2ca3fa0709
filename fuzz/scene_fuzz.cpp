// Reads fuzzed JSON as the program reads its scenes and its solids, checking what a reader that
// accepts must hold: polygons of three points or more, texts of a height in range without control
// characters, solids named, each bottom below its top. A reader that refuses says why.
//
// Input: a first byte whose lowest bit chooses the solids (1) or a scene (0), then the JSON text.

#include "tools/keel/scene.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace keel::tool;

constexpr std::size_t c_maxInput = 1 << 16;

void Require(bool condition) {
    if (!condition)
        __builtin_trap();
}

bool HasControlCharacter(const std::string& text) {
    return std::any_of(text.begin(), text.end(), [](char c) { return c >= 0 && c < ' '; });
}

void CheckScene(std::string_view json) {
    Scene scene;
    std::string message;
    if (!ReadScene(json, scene, message)) {
        Require(!message.empty());
        Require(scene.polygons.empty() && scene.texts.empty());
        return;
    }
    for (const ScenePolygon& polygon : scene.polygons)
        Require(polygon.points.GetCount() >= 3);
    for (const SceneText& text : scene.texts) {
        Require(text.height > 0 && text.height <= c_tallestSceneText);
        Require(text.utf8.size() <= c_longestSceneText && !HasControlCharacter(text.utf8));
    }
}

void CheckSolids(std::string_view json) {
    std::vector<NamedSolid> solids;
    std::string message;
    if (!ReadSolids(json, solids, message)) {
        Require(!message.empty());
        Require(solids.empty());
        return;
    }
    for (const NamedSolid& solid : solids) {
        Require(!solid.name.empty() && !HasControlCharacter(solid.name));
        Require(solid.solid.Bottom.GetRaw() < solid.solid.Top.GetRaw());
        Require(solid.solid.Poly().GetCount() >= 3);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0 || size > c_maxInput)
        return 0;
    const std::string_view json(reinterpret_cast<const char*>(data + 1), size - 1);
    if (data[0] & 1)
        CheckSolids(json);
    else
        CheckScene(json);
    return 0;
}
