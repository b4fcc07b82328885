#include "site/csv.h"

#include <algorithm>
#include <cctype>

#include "plain_words.h"
#include "protocol/names.h"

namespace site {

namespace bs = businessserver;

namespace {

constexpr char kDeviceColumn[] = "device";

struct Row {
  size_t line = 0;
  std::vector<std::string> cells;
};

std::string Trimmed(const std::string& text) {
  const size_t begin = text.find_first_not_of(" \t");
  return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

// The separator is what stands most often in the first row.
char Separator(std::string_view text) {
  const std::string_view head = text.substr(0, text.find('\n'));
  char best = ',';
  for (const char c : {';', '\t'}) {
    if (std::count(head.begin(), head.end(), c) > std::count(head.begin(), head.end(), best)) best = c;
  }
  return best;
}

// Rows of cells; "a ""quoted"" cell" may hold separators and line ends. Rows without anything are left out.
std::vector<Row> Rows(std::string_view text) {
  const char separator = Separator(text);
  std::vector<Row> rows;
  Row row{1, {""}};
  size_t line = 1;
  bool quoted = false;
  const auto end_row = [&] {
    for (std::string& cell : row.cells) cell = Trimmed(cell);
    if (std::any_of(row.cells.begin(), row.cells.end(), [](const std::string& cell) { return !cell.empty(); })) {
      rows.push_back(row);
    }
    row = {line, {""}};
  };
  for (size_t at = 0; at < text.size(); ++at) {
    const char c = text[at];
    if (c == '\n') ++line;
    if (quoted && c == '"' && at + 1 < text.size() && text[at + 1] == '"') {
      row.cells.back() += text[++at];
    } else if (c == '"') {
      quoted = !quoted;
    } else if (!quoted && c == separator) {
      row.cells.emplace_back();
    } else if (!quoted && c == '\n') {
      end_row();
    } else if (quoted || c != '\r') {
      row.cells.back() += c;
    }
  }
  end_row();
  return rows;
}

std::string Lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

std::vector<std::string> Words(const std::string& cell) {
  constexpr char kBetween[] = " \t\r\n,;|";
  std::vector<std::string> words;
  for (size_t at = cell.find_first_not_of(kBetween); at < cell.size(); at = cell.find_first_not_of(kBetween, at)) {
    const size_t end = std::min(cell.find_first_of(kBetween, at), cell.size());
    words.push_back(cell.substr(at, end - at));
    at = end;
  }
  return words;
}

// The columns in their order; empty names for those that nobody wants.
std::vector<std::string> Columns(const Row& head, std::vector<Mistake>& mistakes) {
  std::vector<std::string> known = {kDeviceColumn, bs::kName, bs::kZone};
  known.insert(known.end(), bs::kDirectionNames.begin(), bs::kDirectionNames.end());
  std::vector<std::string> columns;
  for (const std::string& cell : head.cells) {
    const std::string name = Lower(cell);
    const bool good = std::find(known.begin(), known.end(), name) != known.end();
    if (!good && !name.empty()) {
      mistakes.push_back({"", "",
                          "there is no column '" + words::Printable(cell) +
                              "', only device, name, zone, left, right, front and group"});
    } else if (good && std::find(columns.begin(), columns.end(), name) != columns.end()) {
      mistakes.push_back({"", "", "the column " + name + " is there twice"});
    }
    columns.push_back(good ? name : "");
  }
  for (const char* needed : {kDeviceColumn, bs::kZone}) {
    if (std::find(columns.begin(), columns.end(), needed) == columns.end()) {
      mistakes.push_back({"", "", std::string("the column ") + needed + " is missing"});
    }
  }
  return columns;
}

// The plan of a row as it would stand in a site file: what is wrong with it is found there.
Json::Value PlanOf(const Row& row, const std::vector<std::string>& columns, std::string& device) {
  Json::Value plan(Json::objectValue);
  for (size_t i = 0; i < std::min(columns.size(), row.cells.size()); ++i) {
    const std::string& cell = row.cells[i];
    if (columns[i].empty() || cell.empty()) continue;
    if (columns[i] == kDeviceColumn) {
      device = cell;
    } else if (columns[i] == bs::kName || columns[i] == bs::kZone) {
      plan[columns[i]] = cell;
    } else {
      for (const std::string& zone : Words(cell)) plan[bs::kShows][columns[i]].append(zone);
    }
  }
  return plan;
}

}  // namespace

Site ImportCsv(std::string_view text, const std::string& site_name, std::vector<Mistake>& mistakes) {
  if (text.substr(0, 3) == "\xEF\xBB\xBF") text.remove_prefix(3);
  const std::vector<Row> rows = Rows(text);
  if (rows.empty()) {
    mistakes.push_back({"", "", "there is nothing in it"});
    return {};
  }
  const std::vector<std::string> columns = Columns(rows.front(), mistakes);
  if (!mistakes.empty()) return {};
  Json::Value document;
  document[bs::kSite] = site_name;
  document[bs::kDevices] = Json::objectValue;
  for (size_t i = 1; i < rows.size(); ++i) {
    const std::string line = "line " + std::to_string(rows[i].line);
    std::string device;
    const Json::Value plan = PlanOf(rows[i], columns, device);
    if (device.empty()) {
      mistakes.push_back({"", line, "no device"});
    } else if (rows[i].cells.size() > columns.size()) {
      mistakes.push_back({device, line, "more cells than columns: put cells with separators in quotes"});
    } else if (document[bs::kDevices].isMember(device)) {
      mistakes.push_back({device, line, "is there twice"});
    } else {
      document[bs::kDevices][device] = plan;
    }
  }
  return SiteOf(document, mistakes);
}

}  // namespace site
