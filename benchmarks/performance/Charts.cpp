#include "benchmarks/performance/Charts.h"

#include <algorithm>
#include <map>
#include <utility>
#include <vector>

namespace kelvane::benchmarks {
namespace {

using Anchor = Drawing::Anchor;

constexpr double width = 860;
constexpr double rowHeight = 24;

/// Vertical lines at the values, with their words above.
void drawScale(Drawing& drawing, const LogAxis& axis, const std::vector<double>& values, double top, double bottom,
               const Palette& palette) {
  for (const double value : values) {
    drawing.line(axis.at(value), top, axis.at(value), bottom, palette.grid);
    drawing.text(axis.at(value), top - 6, decimal(value, value < 1 ? 1 : 0), palette.faint, Anchor::middle, 11);
  }
}

bool isReading(const std::string& tool) {
  return tool.starts_with("list_") || tool.starts_with("read_");
}

/// A short word for a size: "10 k", "3 M".
std::string sizeWord(double size) {
  if (size >= 1e6) return decimal(size / 1e6, 0) + "M";
  if (size >= 1e3) return decimal(size / 1e3, 0) + "k";
  return decimal(size, 0);
}

/// One field of the growth chart: all tools in one direction, both scales logarithmic.
void drawField(Drawing& drawing, const std::vector<Figure>& tools, double left, double top, const Palette& palette) {
  constexpr double fieldWidth = 226, fieldHeight = 190, fastest = 1e-5, slowest = 10;
  const std::vector<double> sizes = tools.front().numbers("sizes");
  const LogAxis x(sizes.front(), sizes.back(), left, left + fieldWidth);
  const LogAxis y(fastest, slowest, top + fieldHeight, top);
  drawing.text(left, top - 12, "The " + tools.front().string("direction"), palette.ink, Anchor::start, 13, true);
  for (const double time : {1e-5, 1e-4, 1e-3, 1e-2, 1e-1, 1.0, 10.0}) {
    drawing.line(left, y.at(time), left + fieldWidth, y.at(time), palette.grid);
    drawing.text(left - 6, y.at(time) + 4,
                 time < 1e-3 ? decimal(time * 1e6, 0) + " µs"
                 : time < 1  ? decimal(time * 1e3, 0) + " ms"
                             : decimal(time, 0) + " s",
                 palette.faint, Anchor::end, 10);
  }
  for (const double size : sizes)
    drawing.text(x.at(size), top + fieldHeight + 14, sizeWord(size), palette.faint, Anchor::middle, 10);
  // What follows the size exactly is as steep as this.
  const double factor = sizes.back() / sizes.front();
  drawing.line(x.at(sizes.front()), y.at(1e-5), x.at(sizes.back()), y.at(1e-5 * factor), palette.faint, 1, true);
  for (const Figure& tool : tools) {
    std::string points;
    const std::vector<double> seconds = tool.numbers("seconds");
    for (std::size_t at = 0; at < sizes.size(); ++at)
      points += decimal(x.at(sizes[at]), 1) + "," + decimal(y.at(seconds[at]), 1) + " ";
    drawing.polyline(points, palette.series[isReading(tool.string("tool")) ? 0 : 1], 1.3);
  }
}

}  // namespace

std::string floorsChart(const Record& record, const Palette& palette) {
  const std::vector<Figure> rows = record.part("floors");
  if (rows.empty()) return "";
  constexpr double left = 440, right = width - 60, top = 70;
  const double bottom = top + rowHeight * static_cast<double>(rows.size());
  Drawing drawing(width, bottom + 20, palette);
  drawing.text(16, 24, "Time over the floor's, the median of pairs", palette.ink, Anchor::start, 15, true);
  drawing.text(16, 42, "Bar: half of the pairs. Tick: what it must not exceed. Orange: it does.", palette.faint);
  const LogAxis axis(0.5, 100, left, right);
  drawScale(drawing, axis, {0.5, 1, 2, 5, 10, 20, 50, 100}, top, bottom, palette);
  drawing.line(axis.at(1), top, axis.at(1), bottom, palette.faint, 1.5);
  double y = top + rowHeight / 2;
  for (const Figure& row : rows) {
    const double ratio = row.number("ratio"), must = row.number("must");
    const std::string& colour = palette.series[row.flag("isMissed") ? 1 : 0];
    std::string what = row.string("what");
    if (row.number("cpus") > 1) what += " (2 CPUs)";
    drawing.text(left - 14, y + 4, what, palette.ink, Anchor::end, what.size() > 60 ? 10.5 : 12);
    drawing.line(axis.at(row.number("low")), y, axis.at(row.number("high")), y, colour, 3);
    drawing.circle(axis.at(ratio), y, 5, colour);
    if (must > 0) {
      const double at = axis.at(row.flag("isShare") ? 1 / must : must);
      drawing.line(at, y - 8, at, y + 8, palette.ink, 2);
    }
    drawing.text(right + 8, y + 4, decimal(ratio, ratio < 10 ? 2 : 1), palette.ink);
    y += rowHeight;
  }
  return drawing.svg();
}

std::string growthChart(const Record& record, const Palette& palette) {
  std::vector<std::pair<std::string, std::vector<Figure>>> fields;
  for (Figure& figure : record.part("growth")) {
    const std::string direction = figure.string("direction");
    if (fields.empty() || fields.back().first != direction) fields.push_back({direction, {}});
    fields.back().second.push_back(std::move(figure));
  }
  if (fields.empty()) return "";
  constexpr double fieldRight = 290, fieldDown = 250;
  const std::size_t columns = 3, rows = (fields.size() + columns - 1) / columns;
  Drawing drawing(width + 60, 80 + fieldDown * static_cast<double>(rows), palette);
  drawing.text(16, 24, "Processor time of one call as something grows", palette.ink, Anchor::start, 15, true);
  drawing.text(16, 42, "Tools that read", palette.series[0], Anchor::start, 12, true);
  drawing.text(124, 42, "Tools that write", palette.series[1], Anchor::start, 12, true);
  drawing.text(246, 42, "Dashed: as steep as linear growth. Bytes of messages and scripts; numbers of all else.",
               palette.faint);
  for (std::size_t field = 0; field < fields.size(); ++field) {
    drawField(drawing, fields[field].second, 54 + fieldRight * static_cast<double>(field % columns),
              90 + fieldDown * static_cast<double>(field / columns), palette);
  }
  return drawing.svg();
}

std::string jsonChart(const Record& record, const Palette& palette) {
  const std::vector<Figure> figures = record.part("json");
  if (figures.empty()) return "";
  std::vector<std::string> peers;
  std::vector<std::pair<std::string, std::vector<Figure>>> rows;
  for (const std::string task : {"decode", "encode"}) {
    for (const Figure& figure : figures) {
      if (figure.string("task") != task) continue;
      const std::string peer = figure.string("peer"), name = task + " " + figure.string("text");
      if (std::find(peers.begin(), peers.end(), peer) == peers.end()) peers.push_back(peer);
      if (rows.empty() || rows.back().first != name) rows.push_back({name, {}});
      rows.back().second.push_back(figure);
    }
  }
  constexpr double left = 160, right = width - 30, top = 90;
  const double bottom = top + rowHeight * static_cast<double>(rows.size());
  Drawing drawing(width, bottom + 20, palette);
  drawing.text(16, 24, "JSON: the peer's time over Kelvane's", palette.ink, Anchor::start, 15, true);
  drawing.text(16, 42, "To the right of 1 the peer takes longer.", palette.faint);
  const auto colourOf = [&](const std::string& peer) -> const std::string& {
    const auto at = static_cast<std::size_t>(std::find(peers.begin(), peers.end(), peer) - peers.begin());
    return palette.series[at % std::size(palette.series)];
  };
  double x = 300;
  for (const std::string& peer : peers) {
    drawing.circle(x, 38, 5, colourOf(peer));
    drawing.text(x + 10, 42, peer, palette.ink);
    x += 120;
  }
  const LogAxis axis(0.2, 50, left, right);
  drawScale(drawing, axis, {0.2, 0.5, 1, 2, 5, 10, 20, 50}, top, bottom, palette);
  drawing.line(axis.at(1), top, axis.at(1), bottom, palette.faint, 1.5);
  double y = top + rowHeight / 2;
  for (const auto& [name, points] : rows) {
    drawing.text(left - 14, y + 4, name, palette.ink, Anchor::end);
    for (const Figure& point : points)
      drawing.circle(axis.at(point.number("value")), y, 5, colourOf(point.string("peer")));
    y += rowHeight;
  }
  return drawing.svg();
}

}  // namespace kelvane::benchmarks
