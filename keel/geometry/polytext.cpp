#include "keel/geometry/polytext.h"

#include <charconv>
#include <cmath>
#include <optional>

namespace keel {

namespace {

constexpr int c_fewestPoints = 3;

bool IsSpace(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f';
}

// The printable form of a piece of input for a message: at most 20 characters, anything outside
// printable ASCII as "?".
std::string Quoted(std::string_view piece) {
    constexpr std::size_t c_longest = 20;
    std::string shown;
    for (const char c : piece.substr(0, c_longest))
        shown += (c >= ' ' && c <= '~') ? c : '?';
    if (piece.size() > c_longest)
        shown += "...";
    return "\"" + shown + "\"";
}

// One coordinate, the whole of `text`, or a message.
std::optional<double> ReadCoordinate(std::string_view text, const char* axis, int point,
                                     std::string& message) {
    std::string_view digits = text;
    if (!digits.empty() && digits.front() == '+')
        digits.remove_prefix(1);
    double value = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    const std::string where = "point " + std::to_string(point) + ": " + axis + " " + Quoted(text);
    if (digits.empty() || (error != std::errc() && error != std::errc::result_out_of_range) ||
        end != digits.data() + digits.size()) {
        message = where + " is not a number";
        return std::nullopt;
    }
    if (error == std::errc::result_out_of_range || !std::isfinite(value)) {
        message = where + " is not a finite number";
        return std::nullopt;
    }
    if (std::fabs(value) > c_mostPolyTextMillimetres) {
        message = where + " lies beyond 1e9 mm";
        return std::nullopt;
    }
    return value;
}

} // namespace

bool ReadPolyText(std::string_view text, QWorldPoly& poly, std::string& message) {
    QWorldPoly read;
    std::size_t at = 0;
    while (true) {
        while (at < text.size() && IsSpace(text[at]))
            ++at;
        if (at == text.size())
            break;
        std::size_t end = at;
        while (end < text.size() && !IsSpace(text[end]))
            ++end;
        const std::string_view token = text.substr(at, end - at);
        at = end;
        const int number = read.GetCount() + 1;
        const std::size_t comma = token.find(',');
        if (comma == std::string_view::npos ||
            token.find(',', comma + 1) != std::string_view::npos) {
            message = "point " + std::to_string(number) + ": " + Quoted(token) +
                      " is not of the form x,y";
            return false;
        }
        const auto x = ReadCoordinate(token.substr(0, comma), "x", number, message);
        if (!x)
            return false;
        const auto y = ReadCoordinate(token.substr(comma + 1), "y", number, message);
        if (!y)
            return false;
        read.Add(QWorldPoly::Point(QLength(*x, QLength::LU_MM), QLength(*y, QLength::LU_MM)));
    }
    if (read.GetCount() < c_fewestPoints) {
        message = "a polygon needs at least 3 points, not " + std::to_string(read.GetCount());
        return false;
    }
    poly = read;
    return true;
}

std::string WritePolyText(const QWorldPoly& poly) {
    std::string text;
    char buffer[32];
    const auto append = [&](double millimetres) {
        const auto result = std::to_chars(buffer, buffer + sizeof buffer, millimetres);
        text.append(buffer, result.ptr);
    };
    for (int i = 0; i < poly.GetCount(); ++i) {
        const QWorldPoly::Point& vertex = poly.Vertex(i);
        if (i > 0)
            text += ' ';
        append(vertex.x.AsDouble(QLength::LU_MM));
        text += ',';
        append(vertex.y.AsDouble(QLength::LU_MM));
    }
    return text;
}

} // namespace keel
