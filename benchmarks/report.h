// What was measured, as tables and goals, and where it goes: the terminal, the page of documentation, the plot.
#pragma once

#include <string>
#include <vector>

namespace bench {

struct Table {
  std::string title;
  std::vector<std::string> columns;
  std::vector<std::vector<std::string>> rows;
};

struct Goal {
  std::string name;
  double value;
  double limit;
  bool at_least;  // else at most
  std::string unit;
};

struct Curve {
  std::string name;
  std::vector<double> x, y;
};

// Fixed notation with so many decimals.
std::string Number(double value, int decimals = 2);

class Report {
 public:
  void Add(Table table) { tables_.push_back(std::move(table)); }
  void Add(Goal goal) { goals_.push_back(std::move(goal)); }
  void AddCurve(Curve curve) { curves_.push_back(std::move(curve)); }

  // In Markdown, with the columns aligned, goals first.
  std::string Text() const;

  // The curves on logarithmic axes, with a line of proportional growth.
  std::string Svg() const;

 private:
  std::vector<Table> tables_;
  std::vector<Goal> goals_;
  std::vector<Curve> curves_;
};

}  // namespace bench
