#pragma once

#include "keel/geometry/devicecontext.h"

#include <string>
#include <vector>

namespace keel {

// A context that keeps every drawing call it receives as one line of text, with the device
// pixels the mapping gave: "lines 10,20 30,40", "polygon ...", "beziers ...", "ellipse l,t,r,b",
// "text x,y h=H "TEXT"", "fill l,t,r,b #RRGGBB", "pen #RRGGBB w=W", "brush #RRGGBB" or
// "brush none". Two drawings are the same when their lines are.
class QRecordingDC final : public QDeviceContext {
public:
    explicit QRecordingDC(const QDeviceCaps& caps, bool printing = false)
        : QDeviceContext(caps), m_printing(printing) {}

    bool IsPrinting() const override { return m_printing; }
    const std::vector<std::string>& Lines() const { return m_lines; }
    // The lines, each ended by a line break.
    std::string Text() const {
        std::string text;
        for (const std::string& line : m_lines)
            text += line + '\n';
        return text;
    }

protected:
    void DevicePen(const QColour& colour, int widthPixels) override {
        m_lines.push_back("pen " + Colour(colour) + " w=" + std::to_string(widthPixels));
    }
    void DeviceBrush(std::optional<QColour> colour) override {
        m_lines.push_back("brush " + (colour ? Colour(*colour) : std::string("none")));
    }
    void DeviceLines(std::span<const QClientPoint> points) override {
        m_lines.push_back("lines" + Points(points));
    }
    void DevicePolygon(std::span<const QClientPoint> points) override {
        m_lines.push_back("polygon" + Points(points));
    }
    void DeviceBeziers(std::span<const QClientPoint> points) override {
        m_lines.push_back("beziers" + Points(points));
    }
    void DeviceEllipse(const QClientRect& bounds) override {
        m_lines.push_back("ellipse " + Rect(bounds));
    }
    void DeviceText(const QClientPoint& topLeft, int heightPixels, const CString& text) override {
        m_lines.push_back("text " + Point(topLeft) + " h=" + std::to_string(heightPixels) + " \"" +
                          text.ToUtf8() + "\"");
    }
    void DeviceFill(const QClientRect& rect, const QColour& colour) override {
        m_lines.push_back("fill " + Rect(rect) + " " + Colour(colour));
    }

private:
    static std::string Point(const QClientPoint& point) {
        return std::to_string(point.x) + "," + std::to_string(point.y);
    }
    static std::string Points(std::span<const QClientPoint> points) {
        std::string text;
        for (const QClientPoint& point : points)
            text += " " + Point(point);
        return text;
    }
    static std::string Rect(const QClientRect& rect) {
        return std::to_string(rect.left) + "," + std::to_string(rect.top) + "," +
               std::to_string(rect.right) + "," + std::to_string(rect.bottom);
    }
    static std::string Colour(const QColour& colour) {
        static const char digits[] = "0123456789ABCDEF";
        std::string text = "#";
        for (const int part : {colour.red, colour.green, colour.blue}) {
            text += digits[part >> 4];
            text += digits[part & 15];
        }
        return text;
    }

    bool m_printing;
    std::vector<std::string> m_lines;
};

} // namespace keel
