#include "report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <sstream>

namespace bench {

namespace {

std::string Markdown(const Table& table) {
  std::vector<size_t> widths;
  for (const std::string& column : table.columns) widths.push_back(column.size());
  for (const auto& row : table.rows) {
    for (size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], row[i].size());
  }
  std::ostringstream text;
  const auto line = [&](const std::vector<std::string>& cells) {
    for (size_t i = 0; i < cells.size(); ++i) {
      const std::string padding(widths[i] - cells[i].size(), ' ');
      text << (i == 0 ? "| " + cells[i] + padding : " | " + padding + cells[i]);
    }
    text << " |\n";
  };
  text << "### " << table.title << "\n\n";
  line(table.columns);
  for (size_t i = 0; i < widths.size(); ++i) {
    text << (i == 0 ? "| " : " | ") << std::string(widths[i] - (i == 0 ? 0 : 1), '-') << (i == 0 ? "" : ":");
  }
  text << " |\n";
  for (const auto& row : table.rows) line(row);
  text << "\n";
  return text.str();
}

// The plot's frame in pixels and its axes in powers of ten.
struct Frame {
  static constexpr double kLeft = 70, kTop = 30, kWidth = 520, kHeight = 330;
  int x_from, x_to, y_from, y_to;
  double X(double value) const { return kLeft + kWidth * (std::log10(value) - x_from) / (x_to - x_from); }
  double Y(double value) const { return kTop + kHeight - kHeight * (std::log10(value) - y_from) / (y_to - y_from); }
};

std::string PowerText(int power) { return Number(std::pow(10, power), std::max(0, -power)); }

void DrawAxes(const Frame& frame, std::ostringstream& svg) {
  const double bottom = Frame::kTop + Frame::kHeight, right = Frame::kLeft + Frame::kWidth;
  for (int power = frame.x_from; power <= frame.x_to; ++power) {
    const double x = frame.X(std::pow(10, power));
    svg << "<line class='grid' x1='" << x << "' y1='" << Frame::kTop << "' x2='" << x << "' y2='" << bottom << "'/>"
        << "<text x='" << x << "' y='" << bottom + 18 << "' text-anchor='middle'>" << PowerText(power) << "</text>\n";
  }
  for (int power = frame.y_from; power <= frame.y_to; ++power) {
    const double y = frame.Y(std::pow(10, power));
    svg << "<line class='grid' x1='" << Frame::kLeft << "' y1='" << y << "' x2='" << right << "' y2='" << y << "'/>"
        << "<text x='" << Frame::kLeft - 8 << "' y='" << y + 4 << "' text-anchor='end'>" << PowerText(power)
        << "</text>\n";
  }
  svg << "<text x='" << (Frame::kLeft + right) / 2 << "' y='" << bottom + 40
      << "' text-anchor='middle'>devices that push or are listed</text>\n"
      << "<text x='10' y='18'>processor time per event, microseconds</text>\n";
}

void DrawCurve(const Frame& frame, const Curve& curve, const std::string& color, const std::string& extra,
               std::ostringstream& svg) {
  svg << "<polyline fill='none' stroke='" << color << "' stroke-width='2' " << extra << " points='";
  for (size_t i = 0; i < curve.x.size(); ++i) svg << frame.X(curve.x[i]) << "," << frame.Y(curve.y[i]) << " ";
  svg << "'/>\n";
}

}  // namespace

std::string Number(double value, int decimals) {
  char text[64];
  snprintf(text, sizeof text, "%.*f", decimals, value);
  return text;
}

std::string Report::Text() const {
  Table goals{"Goals", {"goal", "measured", "limit", "met"}, {}};
  for (const Goal& goal : goals_) {
    const bool met = goal.at_least ? goal.value >= goal.limit : goal.value <= goal.limit;
    const std::string limit = (goal.at_least ? "at least " : "at most ") + Number(goal.limit) + goal.unit;
    goals.rows.push_back({goal.name, Number(goal.value) + goal.unit, limit, met ? "yes" : "no"});
  }
  std::string text = Markdown(goals);
  for (const Table& table : tables_) text += Markdown(table);
  return text;
}

std::string Report::Svg() const {
  double x_min = 1e300, x_max = 1e-300, y_min = 1e300, y_max = 1e-300;
  for (const Curve& curve : curves_) {
    for (const double x : curve.x) x_min = std::min(x_min, x), x_max = std::max(x_max, x);
    for (const double y : curve.y) y_min = std::min(y_min, y), y_max = std::max(y_max, y);
  }
  const auto below = [](double value) { return static_cast<int>(std::floor(std::log10(value))); };
  const auto above = [](double value) { return static_cast<int>(std::ceil(std::log10(value))); };
  const Frame frame = {below(x_min), above(x_max), below(y_min), above(y_max)};
  std::ostringstream svg;
  svg << "<svg xmlns='http://www.w3.org/2000/svg' width='800' height='420' font-family='sans-serif' font-size='12'>\n"
      << "<style>.grid{stroke:#ccc;stroke-width:0.5}</style>\n<rect width='800' height='420' fill='white'/>\n";
  DrawAxes(frame, svg);
  const char* const colors[] = {"#1b6ca8", "#c0392b", "#2e8b57", "#8e44ad"};
  double legend = Frame::kTop + 20;
  const auto name = [&](const std::string& text, const std::string& color) {
    svg << "<text x='" << Frame::kLeft + Frame::kWidth + 12 << "' y='" << legend << "' fill='" << color << "'>" << text
        << "</text>\n";
    legend += 20;
  };
  for (size_t i = 0; i < curves_.size(); ++i) {
    const std::string color = colors[i % (sizeof colors / sizeof colors[0])];
    DrawCurve(frame, curves_[i], color, "", svg);
    name(curves_[i].name, color);
  }
  // Proportional growth through the corner, as far as the frame goes.
  const double decades = std::min(frame.x_to - frame.x_from, frame.y_to - frame.y_from);
  const double x0 = std::pow(10, frame.x_from), y0 = std::pow(10, frame.y_from), times = std::pow(10, decades);
  DrawCurve(frame, {"", {x0, x0 * times}, {y0, y0 * times}}, "#999", "stroke-dasharray='4 4'", svg);
  name("proportional growth", "#999");
  svg << "</svg>\n";
  return svg.str();
}

}  // namespace bench
