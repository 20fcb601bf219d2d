// icongen OUTDIR: draws the module's nine icons and writes them as .ico files into OUTDIR.
// The committed files in resources/icons are this program's output; a test keeps them in step.
#include <algorithm>
#include <cstdio>
#include <exception>
#include <string>
#include <utility>
#include <vector>

#include "IcoFile.h"
#include "Raster.h"

using namespace icongen;

namespace {

struct DiscColors {
    Color base;
    Color rim;
};

constexpr DiscColors green{rgb(46, 160, 67), rgb(27, 110, 42)};
constexpr DiscColors red{rgb(217, 52, 43), rgb(154, 29, 23)};
constexpr DiscColors yellow{rgb(242, 192, 30), rgb(176, 134, 11)};
constexpr DiscColors blue{rgb(43, 108, 212), rgb(26, 71, 147)};
constexpr DiscColors grey{rgb(154, 158, 164), rgb(106, 110, 116)};
constexpr Color white = rgb(255, 255, 255);

// Geometry of a disc that fills a square icon with half a pixel to spare.
struct DiscFrame {
    Point centre;
    double radius = 0;
};

DiscFrame frameOf(const Canvas& canvas)
{
    const double half = canvas.width() / 2.0;
    return {{half, half}, half - 0.5};
}

// A disc with a darker rim, lighter towards the top, and a soft highlight: reads as a lamp at 16 px.
void drawDisc(Canvas& canvas, const DiscColors& colors)
{
    const DiscFrame frame = frameOf(canvas);
    const double rim = std::max(1.0, frame.radius / 11.0);
    canvas.fill(disc(frame.centre, frame.radius), colors.rim);
    const Color light = mix(colors.base, white, 0.45);
    const double top = frame.centre.y - frame.radius;
    const double span = 2 * frame.radius;
    canvas.fill(disc(frame.centre, frame.radius - rim),
                [&](Point p) { return mix(light, colors.base, std::min(1.0, (p.y - top) / span * 1.6)); });
    const Point glowCentre{frame.centre.x, frame.centre.y - frame.radius * 0.45};
    const double glowTop = glowCentre.y - frame.radius * 0.36;
    canvas.fill(ellipse(glowCentre, frame.radius * 0.6, frame.radius * 0.36), [&](Point p) {
        Color glow = white;
        glow.a = 0.5 * (1.0 - std::min(1.0, (p.y - glowTop) / (frame.radius * 0.72)));
        return glow;
    });
}

Point at(const DiscFrame& frame, double x, double y)
{
    return {frame.centre.x + x * frame.radius, frame.centre.y + y * frame.radius};
}

void drawCheck(Canvas& canvas)
{
    const DiscFrame f = frameOf(canvas);
    canvas.fill(polyline({at(f, -0.48, 0.02), at(f, -0.14, 0.36), at(f, 0.5, -0.3)}, f.radius * 0.24), white);
}

void drawInformation(Canvas& canvas)
{
    const DiscFrame f = frameOf(canvas);
    canvas.fill(disc(at(f, 0, -0.46), f.radius * 0.15), white);
    canvas.fill(polyline({at(f, 0, -0.12), at(f, 0, 0.5)}, f.radius * 0.26), white);
}

IcoImage imageOf(const Canvas& canvas, int bitCount = 32)
{
    return {canvas.width(), canvas.height(), bitCount, canvas.bgra()};
}

// Strokes of one capital on a grid 4 units wide (2 for I) and 6 high, y downwards.
struct Glyph {
    char letter;
    double width;
    std::vector<std::vector<Point>> strokes;
};

const std::vector<Glyph>& glyphs()
{
    static const std::vector<Glyph> font = {
        {'A', 4, {{{0, 6}, {2, 0}, {4, 6}}, {{0.8, 3.8}, {3.2, 3.8}}}},
        {'C', 4, {{{4, 1}, {3, 0}, {1, 0}, {0, 1}, {0, 5}, {1, 6}, {3, 6}, {4, 5}}}},
        {'D', 4, {{{0, 0}, {2.5, 0}, {4, 1.5}, {4, 4.5}, {2.5, 6}, {0, 6}, {0, 0}}}},
        {'G', 4, {{{4, 1}, {3, 0}, {1, 0}, {0, 1}, {0, 5}, {1, 6}, {3, 6}, {4, 5}, {4, 3.5}, {2.3, 3.5}}}},
        {'I', 2, {{{1, 0}, {1, 6}}, {{0, 0}, {2, 0}}, {{0, 6}, {2, 6}}}},
        {'N', 4, {{{0, 6}, {0, 0}, {4, 6}, {4, 0}}}},
        {'O', 4, {{{1, 0}, {3, 0}, {4, 1}, {4, 5}, {3, 6}, {1, 6}, {0, 5}, {0, 1}, {1, 0}}}},
        {'S',
         4,
         {{{4, 1}, {3, 0}, {1, 0}, {0, 1}, {0, 2}, {1, 3}, {3, 3}, {4, 4}, {4, 5}, {3, 6}, {1, 6}, {0, 5}}}},
        {'T', 4, {{{0, 0}, {4, 0}}, {{2, 0}, {2, 6}}}},
        {'Z', 4, {{{0, 0}, {4, 0}, {0, 6}, {4, 6}}}},
    };
    return font;
}

const Glyph* glyphOf(char letter)
{
    for (const Glyph& glyph : glyphs()) {
        if (glyph.letter == letter) {
            return &glyph;
        }
    }
    return nullptr;
}

constexpr double letterGap = 1.6;  // grid units between two letters
constexpr double wordGap = 3.0;  // grid units a space adds

double textWidth(const std::string& text)
{
    double width = 0;
    for (char letter : text) {
        const Glyph* glyph = glyphOf(letter);
        width += (glyph != nullptr ? glyph->width : wordGap) + letterGap;
    }
    return width - letterGap;
}

// Draws text with its top-left corner at origin, scale pixels per grid unit and strokes weight units wide;
// returns where it ended.
double drawText(Canvas& canvas, const std::string& text, Point origin, double scale, double weight,
                const Color& color)
{
    double x = origin.x;
    for (char letter : text) {
        const Glyph* glyph = glyphOf(letter);
        if (glyph == nullptr) {
            x += (wordGap + letterGap) * scale;
            continue;
        }
        for (const auto& stroke : glyph->strokes) {
            std::vector<Point> points;
            points.reserve(stroke.size());
            for (const Point& p : stroke) {
                points.push_back({x + p.x * scale, origin.y + p.y * scale});
            }
            canvas.fill(polyline(std::move(points), scale * weight), color);
        }
        x += (glyph->width + letterGap) * scale;
    }
    return x - letterGap * scale;
}

// The word mark: "ZT" in the family's blue, "DIAGNOSTICS" in slate, over a fading blue rule.
Canvas drawBanner()
{
    Canvas canvas(238, 48);
    const Color brand = rgb(26, 86, 180);
    const Color slate = rgb(52, 60, 72);
    const std::string mark = "ZT";
    const std::string word = " DIAGNOSTICS";
    const double margin = 6;
    const double scale = (canvas.width() - 2 * margin) / (textWidth(mark) + letterGap + textWidth(word));
    const double textHeight = 6 * scale;
    const double top = (canvas.height() - textHeight) / 2 - 3;
    const double markEnd = drawText(canvas, mark, {margin, top}, scale, 1.25, brand);
    drawText(canvas, word, {markEnd + letterGap * scale, top}, scale, 0.9, slate);
    const double ruleY = top + textHeight + scale * 1.6;
    const double ruleStart = margin + scale * 0.4;
    const double ruleEnd = canvas.width() - margin - scale * 0.4;
    canvas.fill(polyline({{ruleStart, ruleY}, {ruleEnd, ruleY}}, 2.0), [&](Point p) {
        Color fading = brand;
        fading.a = 1.0 - 0.85 * (p.x - ruleStart) / (ruleEnd - ruleStart);
        return fading;
    });
    return canvas;
}

Canvas discIcon(int size, const DiscColors& colors, void (*sign)(Canvas&) = nullptr)
{
    Canvas canvas(size, size);
    drawDisc(canvas, colors);
    if (sign != nullptr) {
        sign(canvas);
    }
    return canvas;
}

// The blank icon: every size and depth a host might ask for, all transparent.
std::vector<IcoImage> blankImages()
{
    std::vector<IcoImage> images;
    for (int size : {16, 32, 48, 256}) {
        for (int bitCount : {4, 8, 32}) {
            images.push_back(imageOf(Canvas(size, size), bitCount));
        }
    }
    return images;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: icongen OUTDIR\n");
        return 2;
    }
    const std::string dir = argv[1];
    const std::vector<std::pair<std::string, std::vector<IcoImage>>> icons = {
        {"ok.ico", {imageOf(discIcon(32, green, drawCheck))}},
        {"error.ico", {imageOf(discIcon(32, red))}},
        {"warning.ico", {imageOf(discIcon(32, yellow))}},
        {"info.ico", {imageOf(discIcon(32, blue, drawInformation))}},
        {"banner.ico", {imageOf(drawBanner())}},
        {"lamp_ok.ico", {imageOf(discIcon(16, green))}},
        {"lamp_unknown.ico", {imageOf(discIcon(16, grey))}},
        {"blank.ico", blankImages()},
        {"lamp_high.ico", {imageOf(discIcon(16, yellow))}},
    };
    for (const auto& [name, images] : icons) {
        std::string path = dir;
        path.append("/").append(name);
        try {
            if (!writeIco(path, images)) {
                std::fprintf(stderr, "icongen: cannot write %s/%s\n", dir.c_str(), name.c_str());
                return 1;
            }
        } catch (const std::exception& error) {
            std::fprintf(stderr, "icongen: %s: %s\n", name.c_str(), error.what());
            return 1;
        }
    }
    return 0;
}
