// The fenced blocks of a page in docs/, in their order: "```json reply" is a block of kind "reply".
#pragma once

#include <json/value.h>

#include <algorithm>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "protocol/json_text.h"

struct DocumentExample {
  std::string place;  // "messages.md:42, Line settings"
  std::string kind;   // the words after the language, e.g. "publish BUS_NET_PUSH"; empty for none
  std::string text;   // without its last line end
};

inline std::string DocumentText(const std::string& page) {
  std::ostringstream text;
  text << std::ifstream(SOURCE_DIRECTORY "/docs/" + page).rdbuf();
  return text.str();
}

inline std::vector<DocumentExample> DocumentExamples(const std::string& page) {
  std::vector<DocumentExample> examples;
  std::istringstream lines(DocumentText(page));
  std::string section;
  bool inside = false;
  int number = 0;
  for (std::string line; std::getline(lines, line);) {
    ++number;
    if (line.compare(0, 3, "```") == 0) {
      inside = !inside;
      if (!inside) continue;
      const size_t blank = line.find(' ');
      const std::string place = page + ":" + std::to_string(number) + ", " + section;
      examples.push_back({place, blank == std::string::npos ? "" : line.substr(blank + 1), ""});
    } else if (inside) {
      std::string& text = examples.back().text;
      text += (text.empty() ? "" : "\n") + line;
    } else if (line[0] == '#') {
      section = line.substr(line.find(' ') + 1);
    }
  }
  return examples;
}

// Whether what came is what the page shows; "<...>" on the page stands for a value that varies.
inline bool Same(const Json::Value& shown, const Json::Value& came) {
  if (shown.isString() && shown.asString()[0] == '<') return !came.isNull();
  if (shown.type() != came.type() || shown.size() != came.size()) return false;
  if (shown.isObject()) {
    const auto names = shown.getMemberNames();
    return std::all_of(names.begin(), names.end(),
                       [&](const std::string& name) { return came.isMember(name) && Same(shown[name], came[name]); });
  }
  for (Json::ArrayIndex i = 0; shown.isArray() && i < shown.size(); ++i) {
    if (!Same(shown[i], came[i])) return false;
  }
  return shown.isArray() || shown == came;
}

inline bool Same(const std::string& shown, const std::string& came) {
  if (shown == "<" + std::to_string(came.size()) + " bytes>") return true;
  Json::Value shown_document;
  Json::Value came_document;
  if (!businessserver::ParseJson(shown, shown_document) || !businessserver::ParseJson(came, came_document))
    return false;
  return Same(shown_document, came_document);
}
