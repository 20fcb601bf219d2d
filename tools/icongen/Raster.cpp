// Shapes as signed distance functions and the canvas that blends them with one-pixel anti-aliasing.
#include "Raster.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace icongen {

namespace {

double clamp01(double value)
{
    return std::min(1.0, std::max(0.0, value));
}

std::uint8_t toByte(double value)
{
    return static_cast<std::uint8_t>(std::lround(clamp01(value) * 255.0));
}

double segmentDistance(Point p, Point a, Point b)
{
    const double dx = b.x - a.x;
    const double dy = b.y - a.y;
    const double lengthSquared = dx * dx + dy * dy;
    double t = 0;
    if (lengthSquared > 0) {
        t = clamp01(((p.x - a.x) * dx + (p.y - a.y) * dy) / lengthSquared);
    }
    return std::hypot(p.x - (a.x + t * dx), p.y - (a.y + t * dy));
}

}  // namespace

Color mix(const Color& from, const Color& to, double t)
{
    return {from.r + (to.r - from.r) * t, from.g + (to.g - from.g) * t, from.b + (to.b - from.b) * t,
            from.a + (to.a - from.a) * t};
}

Shape disc(Point centre, double radius)
{
    return [centre, radius](Point p) { return std::hypot(p.x - centre.x, p.y - centre.y) - radius; };
}

Shape ellipse(Point centre, double radiusX, double radiusY)
{
    // Scaled circle distance: exact enough for the soft highlights it draws.
    return [centre, radiusX, radiusY](Point p) {
        const double scale = std::min(radiusX, radiusY);
        return (std::hypot((p.x - centre.x) / radiusX, (p.y - centre.y) / radiusY) - 1.0) * scale;
    };
}

Shape polyline(std::vector<Point> points, double width)
{
    return [points = std::move(points), width](Point p) {
        double nearest = HUGE_VAL;
        for (std::size_t i = 0; i + 1 < points.size(); ++i) {
            nearest = std::min(nearest, segmentDistance(p, points[i], points[i + 1]));
        }
        if (points.size() == 1) {
            nearest = std::hypot(p.x - points[0].x, p.y - points[0].y);
        }
        return nearest - width / 2;
    };
}

Shape unite(Shape first, Shape second)
{
    return [first = std::move(first), second = std::move(second)](Point p) {
        return std::min(first(p), second(p));
    };
}

Canvas::Canvas(int width, int height)
    : width_(width),
      height_(height),
      pixels_(static_cast<std::size_t>(width) * static_cast<std::size_t>(height), Color{0, 0, 0, 0})
{
}

void Canvas::fill(const Shape& shape, const Paint& paint)
{
    for (int y = 0; y < height_; ++y) {
        for (int x = 0; x < width_; ++x) {
            const Point centre{x + 0.5, y + 0.5};
            const double coverage = clamp01(0.5 - shape(centre));
            if (coverage > 0) {
                blend_(x, y, paint(centre), coverage);
            }
        }
    }
}

void Canvas::fill(const Shape& shape, const Color& color)
{
    fill(shape, [color](Point) { return color; });
}

void Canvas::blend_(int x, int y, const Color& color, double coverage)
{
    Color& under = pixels_[static_cast<std::size_t>(y) * static_cast<std::size_t>(width_) + x];
    const double top = clamp01(color.a * coverage);
    const double alpha = top + under.a * (1 - top);
    if (alpha <= 0) {
        return;
    }
    const double below = under.a * (1 - top);
    under = {(color.r * top + under.r * below) / alpha, (color.g * top + under.g * below) / alpha,
             (color.b * top + under.b * below) / alpha, alpha};
}

std::vector<std::uint8_t> Canvas::bgra() const
{
    std::vector<std::uint8_t> bytes;
    bytes.reserve(pixels_.size() * 4);
    for (const Color& pixel : pixels_) {
        // A fully transparent pixel is stored as zeros, whatever colour it would have had.
        const std::uint8_t alpha = toByte(pixel.a);
        const double shown = alpha == 0 ? 0.0 : 1.0;
        bytes.push_back(toByte(pixel.b * shown));
        bytes.push_back(toByte(pixel.g * shown));
        bytes.push_back(toByte(pixel.r * shown));
        bytes.push_back(alpha);
    }
    return bytes;
}

}  // namespace icongen
