// A small RGBA canvas that draws anti-aliased shapes given as signed distance functions.
// Deterministic: the same shapes give the same bytes, so generated icons can be compared to committed ones.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

namespace icongen {

// Straight (not premultiplied) colour, every channel in 0..1.
struct Color {
    double r = 0;
    double g = 0;
    double b = 0;
    double a = 1;
};

// A colour from 8-bit channels; constexpr so that named colours are constants.
constexpr Color rgb(int r, int g, int b, double a = 1.0) noexcept
{
    return {r / 255.0, g / 255.0, b / 255.0, a};
}

Color mix(const Color& from, const Color& to, double t);

struct Point {
    double x = 0;
    double y = 0;
};

// Distance from a pixel centre to a shape's edge: negative inside, positive outside.
using Shape = std::function<double(Point)>;
// Colour of a shape at a pixel centre, so fills can be gradients.
using Paint = std::function<Color(Point)>;

Shape disc(Point centre, double radius);
Shape ellipse(Point centre, double radiusX, double radiusY);
// A stroke of the given width along the points, with round joins and caps.
Shape polyline(std::vector<Point> points, double width);
Shape unite(Shape first, Shape second);

class Canvas {
public:
    Canvas(int width, int height);

    int width() const { return width_; }
    int height() const { return height_; }

    // Lays the shape over the canvas; an edge pixel is covered by the part of it inside the shape.
    void fill(const Shape& shape, const Paint& paint);
    void fill(const Shape& shape, const Color& color);

    // 8-bit blue, green, red, alpha per pixel, top row first.
    std::vector<std::uint8_t> bgra() const;

private:
    void blend_(int x, int y, const Color& color, double coverage);

    int width_;
    int height_;
    std::vector<Color> pixels_;
};

}  // namespace icongen
