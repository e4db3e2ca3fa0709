#include "tools/keel/scene.h"

#include "keel/geometry/polytext.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>

#if KEEL_HAVE_JSON
#include <nlohmann/json.hpp>
#endif

namespace keel::tool {

bool HasJsonReader() {
#if KEEL_HAVE_JSON
    return true;
#else
    return false;
#endif
}

int RefuseWithoutJsonReader(std::string_view command) {
    if (HasJsonReader())
        return 0;
    std::fprintf(stderr,
                 "keel %.*s: this keel was built without a JSON reader (nlohmann-json3-dev)\n",
                 static_cast<int>(command.size()), command.data());
    return 2;
}

std::optional<QColour> ReadColour(std::string_view text) {
    if (text.size() != 7 || text[0] != '#' ||
        !std::all_of(text.begin() + 1, text.end(), [](char c) { return std::isxdigit(c & 0xFF); }))
        return std::nullopt;
    unsigned value = 0;
    std::from_chars(text.data() + 1, text.data() + text.size(), value, 16);
    return QColour{static_cast<std::uint8_t>(value >> 16), static_cast<std::uint8_t>(value >> 8),
                   static_cast<std::uint8_t>(value)};
}

#if KEEL_HAVE_JSON

namespace {

// A piece of input as a message shows it: quoted, at most 20 characters, anything outside
// printable ASCII as "?".
std::string Shown(std::string_view piece) {
    constexpr std::size_t c_longest = 20;
    std::string shown = "\"";
    for (const char c : piece.substr(0, c_longest))
        shown += (c >= ' ' && c <= '~') ? c : '?';
    return shown + (piece.size() > c_longest ? "...\"" : "\"");
}

std::string Number(double value) {
    char digits[32];
    std::snprintf(digits, sizeof digits, "%.10g", value);
    return digits;
}

std::optional<double> ReadCoordinate(std::string_view text) {
    if (!text.empty() && text.front() == '+')
        text.remove_prefix(1);
    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc() || end != text.data() + text.size() ||
        !std::isfinite(value) || std::fabs(value) > c_mostPolyTextMillimetres)
        return std::nullopt;
    return value;
}

// "x,y" in millimetres, as one point of polygon text.
std::optional<QWorldPoint> ReadPoint(std::string_view text) {
    const std::size_t comma = text.find(',');
    if (comma == std::string_view::npos)
        return std::nullopt;
    const auto x = ReadCoordinate(text.substr(0, comma));
    const auto y = ReadCoordinate(text.substr(comma + 1));
    if (!x || !y)
        return std::nullopt;
    return QWorldPoint(QLength(*x, QLength::LU_MM), QLength(*y, QLength::LU_MM));
}

using Json = nlohmann::json;

// What is wrong with the input, thrown from wherever it is found to the reader's entry.
struct Refusal {
    std::string message;
};

[[noreturn]] void Refuse(std::string message) {
    throw Refusal{std::move(message)};
}

// More values than this are refused before the tree of values is made.
constexpr long long c_mostJsonValues = 2000000;

// The reader's own words, without the tag of its exception, in printable ASCII.
std::string ReasonOf(const Json::exception& failure) {
    std::string_view reason = failure.what();
    if (const std::size_t tag = reason.find("] "); reason.starts_with("[") && tag != reason.npos)
        reason.remove_prefix(tag + 2);
    std::string shown;
    for (const char c : reason)
        shown += (c >= ' ' && c <= '~') ? c : '?';
    return shown;
}

// A first pass over the text that makes no values: it finds what the reader cannot read, nesting
// too deep and too many values, before the tree of values is made in a second pass.
class JsonLimits final : public nlohmann::json_sax<Json> {
public:
    const std::string& Message() const { return m_message; }

    bool null() override { return Value(); }
    bool boolean(bool) override { return Value(); }
    bool number_integer(number_integer_t) override { return Value(); }
    bool number_unsigned(number_unsigned_t) override { return Value(); }
    bool number_float(number_float_t, const string_t&) override { return Value(); }
    bool string(string_t&) override { return Value(); }
    bool binary(binary_t&) override { return Value(); }
    bool start_object(std::size_t) override { return Open(); }
    bool key(string_t&) override { return true; }
    bool end_object() override { return Close(); }
    bool start_array(std::size_t) override { return Open(); }
    bool end_array() override { return Close(); }
    bool parse_error(std::size_t, const std::string&, const Json::exception& failure) override {
        m_message = "it is not JSON: " + ReasonOf(failure);
        return false;
    }

private:
    bool Value() {
        if (++m_values <= c_mostJsonValues)
            return true;
        m_message = "it holds more than " + std::to_string(c_mostJsonValues) + " values";
        return false;
    }
    bool Open() {
        if (++m_depth <= c_deepestJson)
            return Value();
        m_message =
            "it nests arrays and objects deeper than " + std::to_string(c_deepestJson) + " levels";
        return false;
    }
    bool Close() {
        --m_depth;
        return true;
    }

    std::string m_message;
    int m_depth = 0;
    long long m_values = 0;
};

// The values of the text, within the limits.
Json Parse(std::string_view text) {
    JsonLimits limits;
    if (!Json::sax_parse(text.begin(), text.end(), &limits))
        Refuse(limits.Message());
    try {
        return Json::parse(text.begin(), text.end());
    } catch (const Json::exception& failure) {
        Refuse("it is not JSON: " + ReasonOf(failure));
    }
}

// An object of the input whose fields are read by name; `item` names it in messages.
class Fields {
public:
    Fields(const Json& object, std::string item, std::initializer_list<std::string_view> known)
        : m_object(object), m_item(std::move(item)) {
        if (!object.is_object())
            Refuse(m_item + " is " + Article(object) + ", not an object");
        for (const auto& [key, value] : object.items())
            if (std::find(known.begin(), known.end(), key) == known.end())
                Refuse(m_item + ": unknown field " + Shown(key));
    }

    const std::string& Item() const { return m_item; }
    void Rename(std::string item) { m_item = std::move(item); }

    const Json* Find(const char* key) const {
        const auto found = m_object.find(key);
        return found == m_object.end() ? nullptr : &*found;
    }
    const Json& Required(const char* key) const {
        const Json* value = Find(key);
        if (!value)
            Refuse(m_item + ": \"" + key + "\" is missing");
        return *value;
    }
    const std::string& String(const Json& value, const char* key) const {
        if (!value.is_string())
            Refuse(m_item + ": \"" + key + "\" is " + Article(value) + ", not a string");
        return value.get_ref<const std::string&>();
    }
    const std::string& String(const char* key) const { return String(Required(key), key); }
    double Number(const char* key) const {
        const Json& value = Required(key);
        if (!value.is_number())
            Refuse(m_item + ": \"" + key + "\" is " + Article(value) + ", not a number");
        return value.get<double>();
    }
    std::optional<QColour> Colour(const char* key) const {
        const Json* value = Find(key);
        if (!value)
            return std::nullopt;
        const std::string& text = String(*value, key);
        const std::optional<QColour> colour = ReadColour(text);
        if (!colour)
            Refuse(m_item + ": \"" + key + "\" " + Shown(text) + " is not a colour #rrggbb");
        return colour;
    }

    static std::string Article(const Json& value) {
        const std::string type = value.type_name();
        if (type == "null")
            return type;
        return (type == "object" || type == "array" ? "an " : "a ") + type;
    }

private:
    const Json& m_object;
    std::string m_item;
};

// The points of every polygon read so far, against the limit of them all.
class PointBudget {
public:
    // The polygon text of the field "points"; refused before it is read when it could hold more
    // points than are left.
    QWorldPoly Read(const Fields& fields) {
        const std::string& text = fields.String("points");
        m_points += std::count(text.begin(), text.end(), ',');
        if (m_points > c_mostJsonPoints)
            Refuse(fields.Item() + ": the polygons hold more than " +
                   std::to_string(c_mostJsonPoints) + " points in all");
        QWorldPoly poly;
        std::string message;
        if (!ReadPolyText(text, poly, message))
            Refuse(fields.Item() + ": \"points\": " + message);
        return poly;
    }

private:
    long long m_points = 0;
};

// The array of `key` in the scene, or none when it is left out.
const Json* ListOf(const Fields& scene, const char* key) {
    const Json* list = scene.Find(key);
    if (list && !list->is_array())
        Refuse("\"" + std::string(key) + "\" is " + Fields::Article(*list) + ", not an array");
    if (list && list->size() > c_mostJsonItems)
        Refuse("\"" + std::string(key) + "\" holds " + std::to_string(list->size()) +
               " items, more than " + std::to_string(c_mostJsonItems));
    return list;
}

// A text drawn or printed on one line: not too long, and no control characters in it.
void CheckLine(const Fields& fields, const char* key, const std::string& text) {
    if (text.size() > c_longestSceneText)
        Refuse(fields.Item() + ": \"" + key + "\" is longer than " +
               std::to_string(c_longestSceneText) + " bytes");
    if (std::any_of(text.begin(), text.end(), [](char c) { return c >= 0 && c < ' '; }))
        Refuse(fields.Item() + ": \"" + key +
               "\" holds a tab, line break or other control character");
}

SceneText ReadText(const Fields& fields) {
    SceneText text;
    const std::string& at = fields.String("at");
    const std::optional<QWorldPoint> point = ReadPoint(at);
    if (!point)
        Refuse(fields.Item() + ": \"at\" " + Shown(at) + " is not a point x,y in millimetres");
    text.at = *point;
    text.utf8 = fields.String("text");
    CheckLine(fields, "text", text.utf8);
    text.height = fields.Number("height");
    if (!(text.height > 0 && text.height <= c_tallestSceneText))
        Refuse(fields.Item() + ": \"height\" " + Number(text.height) +
               " is not above 0 and at most " + Number(c_tallestSceneText) + " mm");
    return text;
}

Scene ReadSceneOf(const Json& root) {
    const Fields scene(root, "the scene", {"polygons", "texts"});
    Scene read;
    PointBudget budget;
    if (const Json* polygons = ListOf(scene, "polygons")) {
        for (std::size_t i = 0; i < polygons->size(); ++i) {
            const Fields fields((*polygons)[i], "polygon " + std::to_string(i + 1),
                                {"points", "fill", "stroke"});
            ScenePolygon polygon;
            polygon.points = budget.Read(fields);
            polygon.fill = fields.Colour("fill");
            polygon.stroke = fields.Colour("stroke");
            read.polygons.push_back(std::move(polygon));
        }
    }
    if (const Json* texts = ListOf(scene, "texts"))
        for (std::size_t i = 0; i < texts->size(); ++i)
            read.texts.push_back(ReadText(
                Fields((*texts)[i], "text " + std::to_string(i + 1), {"at", "text", "height"})));
    return read;
}

double ReadHeight(const Fields& fields, const char* key) {
    const double height = fields.Number(key);
    if (std::fabs(height) > c_mostPolyTextMillimetres)
        Refuse(fields.Item() + ": \"" + key + "\" " + Number(height) + " lies beyond 1e9 mm");
    return height;
}

std::vector<NamedSolid> ReadSolidsOf(const Json& root) {
    if (!root.is_array())
        Refuse("the solids are " + Fields::Article(root) + ", not an array");
    if (root.size() > c_mostJsonItems)
        Refuse("there are " + std::to_string(root.size()) + " solids, more than " +
               std::to_string(c_mostJsonItems));
    std::vector<NamedSolid> solids;
    PointBudget budget;
    for (std::size_t i = 0; i < root.size(); ++i) {
        const std::string item = "solid " + std::to_string(i + 1);
        Fields fields(root[i], item, {"name", "points", "bottom", "top"});
        const std::string& name = fields.String("name");
        if (name.empty())
            Refuse(item + ": \"name\" is empty");
        CheckLine(fields, "name", name);
        fields.Rename(item + " (" + Shown(name) + ")");
        const QWorldPoly poly = budget.Read(fields);
        const double bottom = ReadHeight(fields, "bottom");
        const double top = ReadHeight(fields, "top");
        if (!(bottom < top))
            Refuse(fields.Item() + ": bottom " + Number(bottom) + " is not below top " +
                   Number(top));
        solids.push_back({name, QWorldPolyWithHeightRange(poly, QLength(top, QLength::LU_MM),
                                                          QLength(bottom, QLength::LU_MM))});
    }
    return solids;
}

} // namespace

bool ReadScene(std::string_view json, Scene& scene, std::string& message) {
    try {
        scene = ReadSceneOf(Parse(json));
        return true;
    } catch (const Refusal& refusal) {
        message = refusal.message;
    }
    return false;
}

bool ReadSolids(std::string_view json, std::vector<NamedSolid>& solids, std::string& message) {
    try {
        solids = ReadSolidsOf(Parse(json));
        return true;
    } catch (const Refusal& refusal) {
        message = refusal.message;
    }
    return false;
}

#else

bool ReadScene(std::string_view, Scene&, std::string& message) {
    message = "this keel was built without a JSON reader";
    return false;
}

bool ReadSolids(std::string_view, std::vector<NamedSolid>&, std::string& message) {
    message = "this keel was built without a JSON reader";
    return false;
}

#endif

} // namespace keel::tool
