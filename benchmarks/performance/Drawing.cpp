#include "benchmarks/performance/Drawing.h"

#include <algorithm>
#include <cmath>

#include "benchmarks/performance/Record.h"

namespace kelvane::benchmarks {
namespace {

std::string attribute(std::string_view name, std::string_view value) {
  return std::string(" ").append(name).append("=\"").append(value).append("\"");
}

std::string attribute(std::string_view name, double value) {
  return attribute(name, decimal(value, 1));
}

std::string escaped(std::string_view words) {
  std::string text;
  for (const char c : words) {
    if (c == '&')
      text += "&amp;";
    else if (c == '<')
      text += "&lt;";
    else if (c == '>')
      text += "&gt;";
    else
      text += c;
  }
  return text;
}

}  // namespace

const Palette& lightPalette() {
  static const Palette palette{
      "#ffffff", "#1f2328", "#656d76", "#d8dee4", {"#0b62c4", "#c2410c", "#0f8a5f", "#7c3aed"}};
  return palette;
}

const Palette& darkPalette() {
  static const Palette palette{
      "#0d1117", "#e6edf3", "#8d96a0", "#2f353d", {"#58a6ff", "#ff8f57", "#3fcf97", "#b794f6"}};
  return palette;
}

Drawing::Drawing(double width, double height, const Palette& palette) {
  const std::string size = decimal(width, 0) + " " + decimal(height, 0);
  svg_ = "<svg xmlns=\"http://www.w3.org/2000/svg\"" + attribute("viewBox", "0 0 " + size) + attribute("width", width) +
         attribute("height", height) + " font-family=\"system-ui, Helvetica, Arial, sans-serif\">\n" +
         "<rect width=\"100%\" height=\"100%\"" + attribute("fill", palette.paper) + "/>\n";
}

void Drawing::text(double x, double y, std::string_view words, const std::string& colour, Anchor anchor, double size,
                   bool isBold) {
  svg_ += "<text" + attribute("x", x) + attribute("y", y) + attribute("fill", colour) + attribute("font-size", size);
  if (anchor != Anchor::start) svg_ += attribute("text-anchor", anchor == Anchor::middle ? "middle" : "end");
  if (isBold) svg_ += attribute("font-weight", "600");
  svg_ += ">" + escaped(words) + "</text>\n";
}

void Drawing::line(double x1, double y1, double x2, double y2, const std::string& colour, double width, bool isDashed) {
  svg_ += "<line" + attribute("x1", x1) + attribute("y1", y1) + attribute("x2", x2) + attribute("y2", y2) +
          attribute("stroke", colour) + attribute("stroke-width", width);
  if (isDashed) svg_ += attribute("stroke-dasharray", "4 4");
  svg_ += "/>\n";
}

void Drawing::circle(double x, double y, double radius, const std::string& colour) {
  svg_ +=
      "<circle" + attribute("cx", x) + attribute("cy", y) + attribute("r", radius) + attribute("fill", colour) + "/>\n";
}

void Drawing::polyline(const std::string& points, const std::string& colour, double width) {
  svg_ += "<polyline" + attribute("points", points) + attribute("fill", "none") + attribute("stroke", colour) +
          attribute("stroke-width", width) + attribute("stroke-linejoin", "round") + "/>\n";
}

LogAxis::LogAxis(double low, double high, double from, double to)
    : low_(std::log10(low)), high_(std::log10(high)), from_(from), to_(to) {
}

double LogAxis::at(double value) const {
  const double share = (std::log10(value) - low_) / (high_ - low_);
  return from_ + std::clamp(share, 0.0, 1.0) * (to_ - from_);
}

}  // namespace kelvane::benchmarks
