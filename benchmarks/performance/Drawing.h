#pragma once

#include <string>
#include <string_view>

/// The little of SVG that the charts need.
namespace kelvane::benchmarks {

/// The colours of a chart: one set for light pages, one for dark ones.
struct Palette {
  std::string paper, ink, faint, grid;
  std::string series[4];  // told apart by people who see few colours, too
};

const Palette& lightPalette();
const Palette& darkPalette();

/// A picture, in pixels from its upper left corner.
class Drawing {
 public:
  Drawing(double width, double height, const Palette& palette);

  enum class Anchor { start, middle, end };
  void text(double x, double y, std::string_view words, const std::string& colour, Anchor anchor = Anchor::start,
            double size = 12, bool isBold = false);
  void line(double x1, double y1, double x2, double y2, const std::string& colour, double width = 1,
            bool isDashed = false);
  void circle(double x, double y, double radius, const std::string& colour);
  /// A line through points, each "x,y", separated by spaces.
  void polyline(const std::string& points, const std::string& colour, double width);

  /// The whole file.
  std::string svg() const { return svg_ + "</svg>\n"; }

 private:
  std::string svg_;
};

/// An axis on which each factor of ten is equally long.
class LogAxis {
 public:
  /// From `low` at the pixel `from` to `high` at the pixel `to`.
  LogAxis(double low, double high, double from, double to);
  /// Where a value is; what lies outside is put on the end.
  double at(double value) const;

 private:
  double low_, high_, from_, to_;
};

}  // namespace kelvane::benchmarks
