#pragma once

#include "keel/exchange/importexport.h"
#include "keel/platform/archive.h"
#include "keel/platform/cstring.h"
#include "keel/values/length.h"

#include <cmath>
#include <type_traits>
#include <utility>
#include <vector>

// Points, vectors and rectangles of the plane and of space, each tagged with the coordinate space
// it lives in, so that a value of one space cannot be passed where another is expected. Every
// comparison is a tolerance comparison on raw values against QLength::Eps; on whole numbers that
// is the same as an exact one.

namespace keel {

// The space tags.
inline constexpr char c_worldSpace = 'W';  // the model's own plan coordinates
inline constexpr char c_pageSpace = 'P';   // paper coordinates of a page document
inline constexpr char c_clientSpace = 'C'; // device pixels of a client area, or logical units
inline constexpr char c_screenSpace = 'S'; // device pixels of the desktop
inline constexpr char c_himetricSpace = 'H';
inline constexpr char c_logical3DSpace = 'D';

namespace tolerance {

inline bool Equal(double a, double b) {
    const double difference = a - b;
    return difference <= QLength::Eps && difference >= -QLength::Eps;
}
inline bool Less(double a, double b) {
    return a - b <= -QLength::Eps;
}
inline bool Greater(double a, double b) {
    return a - b >= QLength::Eps;
}
inline bool NearZero(double a) {
    return Equal(a, 0);
}
inline bool NonNegative(double a) {
    return a > -QLength::Eps;
}

} // namespace tolerance

inline double RawOf(const QLength& value) {
    return value.GetRaw();
}
inline double RawOf(double value) {
    return value;
}
inline double RawOf(int value) {
    return value;
}

// The sign of the cross product ux·vy-uy·vx, decided with tolerance: 0 for a vector near zero,
// for equal or opposite vectors and for two vectors both near an axis; otherwise the sign, or 0
// when the inverse slopes differ by no more than 0.0002 of the flatter one.
int SenseOfRaw(double ux, double uy, double vx, double vy);

// What the points of all spaces of one scalar share: the two coordinates and their exchange under
// the names "x" and "y".
template <class T>
class TPointShared : public QImportableExportable {
public:
    TPointShared() = default;
    TPointShared(T xValue, T yValue) : x(xValue), y(yValue) {}
    TPointShared(const TPointShared&) = default;
    TPointShared& operator=(const TPointShared&) = default;

    bool AddAttributesAndChildrenToExport(QExportFormatLevel& level) const override;
    bool ImportAttributesAndChildren(QImportFormatLevel& level) override;

    T x{};
    T y{};
};

extern template class TPointShared<QLength>;
extern template class TPointShared<int>;
extern template class TPointShared<double>;

// A displacement; it is neither archived nor exchanged.
template <class T, char tag>
struct TVector {
    T x{};
    T y{};

    friend TVector operator-(const TVector& v) { return {-v.x, -v.y}; }
    friend bool operator==(const TVector& a, const TVector& b) {
        return tolerance::Equal(RawOf(a.x), RawOf(b.x)) && tolerance::Equal(RawOf(a.y), RawOf(b.y));
    }
    bool IsNearZero() const {
        return tolerance::NearZero(RawOf(x)) && tolerance::NearZero(RawOf(y));
    }
};

template <class T, char tag>
int Sense(const TVector<T, tag>& u, const TVector<T, tag>& v) {
    return SenseOfRaw(RawOf(u.x), RawOf(u.y), RawOf(v.x), RawOf(v.y));
}

template <class T, char tag>
class TPoint : public TPointShared<T> {
public:
    using Vector = TVector<T, tag>;

    TPoint() = default;
    TPoint(T xValue, T yValue) : TPointShared<T>(xValue, yValue) {}

    // Both coordinates equal within the tolerance; never a Euclidean distance.
    friend bool operator==(const TPoint& a, const TPoint& b) {
        return tolerance::Equal(RawOf(a.x), RawOf(b.x)) && tolerance::Equal(RawOf(a.y), RawOf(b.y));
    }
    friend TPoint operator+(const TPoint& p, const Vector& v) { return {p.x + v.x, p.y + v.y}; }
    friend TPoint operator-(const TPoint& p, const Vector& v) { return {p.x - v.x, p.y - v.y}; }
    friend Vector operator-(const TPoint& a, const TPoint& b) { return {a.x - b.x, a.y - b.y}; }
    TPoint& operator+=(const Vector& v) {
        this->x += v.x;
        this->y += v.y;
        return *this;
    }
};

// x, then y, each by its own archive form.
template <class T, char tag>
CArchive& operator<<(CArchive& archive, const TPoint<T, tag>& point) {
    return archive << point.x << point.y;
}
template <class T, char tag>
CArchive& operator>>(CArchive& archive, TPoint<T, tag>& point) {
    return archive >> point.x >> point.y;
}

// left, top, right, bottom: the minimum and maximum of x and of y. A pair is swapped when it is
// built or changed only if its minimum exceeds its maximum by Eps or more, so a rectangle may
// stay inverted by less than the tolerance.
template <class T, char tag>
struct TRect {
    using Point = TPoint<T, tag>;

    T left{};
    T top{};
    T right{};
    T bottom{};

    TRect() = default;
    TRect(T l, T t, T r, T b) : left(l), top(t), right(r), bottom(b) { Normalize(); }
    TRect(const Point& a, const Point& b) : TRect(a.x, a.y, b.x, b.y) {}

    void Normalize() {
        if (RawOf(left) - RawOf(right) >= QLength::Eps)
            std::swap(left, right);
        if (RawOf(top) - RawOf(bottom) >= QLength::Eps)
            std::swap(top, bottom);
    }
    // Widens the rectangle to take in the point where it lies beyond a side by Eps or more.
    void ExtendBy(const Point& point) {
        if (tolerance::Less(RawOf(point.x), RawOf(left)))
            left = point.x;
        if (tolerance::Greater(RawOf(point.x), RawOf(right)))
            right = point.x;
        if (tolerance::Less(RawOf(point.y), RawOf(top)))
            top = point.y;
        if (tolerance::Greater(RawOf(point.y), RawOf(bottom)))
            bottom = point.y;
    }
    void Merge(const TRect& other) {
        ExtendBy(Point(other.left, other.top));
        ExtendBy(Point(other.right, other.bottom));
    }
    void Offset(const TVector<T, tag>& by) {
        left += by.x;
        right += by.x;
        top += by.y;
        bottom += by.y;
    }
    T Width() const { return right - left; }
    T Height() const { return bottom - top; }
    Point TopLeft() const { return {left, top}; }
    Point BottomRight() const { return {right, bottom}; }

    friend bool operator==(const TRect& a, const TRect& b) {
        return tolerance::Equal(RawOf(a.left), RawOf(b.left)) &&
               tolerance::Equal(RawOf(a.top), RawOf(b.top)) &&
               tolerance::Equal(RawOf(a.right), RawOf(b.right)) &&
               tolerance::Equal(RawOf(a.bottom), RawOf(b.bottom));
    }
};

// A point of space. operator^ is the cross product, formed from the raw values of the left
// operand and the values of the right one in the default units.
template <class T, char tag>
struct TPoint3D {
    T x{};
    T y{};
    T z{};

    friend bool operator==(const TPoint3D& a, const TPoint3D& b) {
        return tolerance::Equal(RawOf(a.x), RawOf(b.x)) &&
               tolerance::Equal(RawOf(a.y), RawOf(b.y)) && tolerance::Equal(RawOf(a.z), RawOf(b.z));
    }
    friend TPoint3D operator^(const TPoint3D& a, const TPoint3D& b) {
        const double bx = InDefaultUnits(b.x);
        const double by = InDefaultUnits(b.y);
        const double bz = InDefaultUnits(b.z);
        return {FromRawValue(RawOf(a.y) * bz - RawOf(a.z) * by),
                FromRawValue(RawOf(a.z) * bx - RawOf(a.x) * bz),
                FromRawValue(RawOf(a.x) * by - RawOf(a.y) * bx)};
    }

private:
    static double InDefaultUnits(const T& value) {
        if constexpr (std::is_same_v<T, QLength>)
            return QLength::raw_to_double(value.GetRaw());
        else
            return static_cast<double>(value);
    }
    static T FromRawValue(double raw) {
        if constexpr (std::is_same_v<T, QLength>)
            return QLength::FromRaw(raw);
        else
            return static_cast<T>(raw);
    }
};

QLength Distance(const TPoint3D<QLength, c_worldSpace>& a,
                 const TPoint3D<QLength, c_worldSpace>& b);
// "x;y;z;", each coordinate with QLength::Format.
CString FormatHops(const TPoint3D<QLength, c_worldSpace>& point);

// left, top, low, right, bottom, high: the minimum of x, y and z, then their maximum, each pair
// normalised as a plane rectangle's.
template <class T, char tag>
struct TRect3D {
    using Point = TPoint3D<T, tag>;

    T left{};
    T top{};
    T low{};
    T right{};
    T bottom{};
    T high{};

    TRect3D() = default;
    TRect3D(const Point& a, const Point& b)
        : left(a.x), top(a.y), low(a.z), right(b.x), bottom(b.y), high(b.z) {
        Normalize();
    }

    void Normalize() {
        if (RawOf(left) - RawOf(right) >= QLength::Eps)
            std::swap(left, right);
        if (RawOf(top) - RawOf(bottom) >= QLength::Eps)
            std::swap(top, bottom);
        if (RawOf(low) - RawOf(high) >= QLength::Eps)
            std::swap(low, high);
    }
    void ExtendBy(const Point& point) {
        Widen(left, right, point.x);
        Widen(top, bottom, point.y);
        Widen(low, high, point.z);
    }

private:
    static void Widen(T& minimum, T& maximum, const T& value) {
        if (tolerance::Less(RawOf(value), RawOf(minimum)))
            minimum = value;
        if (tolerance::Greater(RawOf(value), RawOf(maximum)))
            maximum = value;
    }
};

// The vertices of a path in space and the box around them.
template <class T, char tag>
class TPoly3D {
public:
    using Point = TPoint3D<T, tag>;

    int GetCount() const { return static_cast<int>(m_points.size()); }
    const Point& GetAt(int index) const { return m_points.at(static_cast<std::size_t>(index)); }
    Point& ElementAt(int index) { return m_points.at(static_cast<std::size_t>(index)); }
    int Add(const Point& point) {
        m_points.push_back(point);
        return GetCount() - 1;
    }
    // (0,0,0,0,0,0) for no vertices.
    TRect3D<T, tag> GetBounds() const {
        if (m_points.empty())
            return {};
        TRect3D<T, tag> bounds(m_points.front(), m_points.front());
        for (const Point& point : m_points)
            bounds.ExtendBy(point);
        return bounds;
    }

private:
    std::vector<Point> m_points;
};

} // namespace keel
