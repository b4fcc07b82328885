#include "site/repeated_keys.h"

#include <json/reader.h>

#include <memory>
#include <set>

namespace site {

namespace {

// The text's own words for a name: "\u0041" and "A" are the same member.
std::string Unescaped(std::string_view quoted) {
  if (quoted.find('\\') == std::string_view::npos) return std::string(quoted.substr(1, quoted.size() - 2));
  Json::Value name;
  const std::string list = "[" + std::string(quoted) + "]";
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  const bool read = reader->parse(list.data(), list.data() + list.size(), &name, nullptr);
  return read && name[0].isString() ? name[0].asString() : std::string(quoted);
}

struct Level {
  bool object;
  std::set<std::string> names;
  std::string name;  // of the member being read
};

}  // namespace

std::vector<RepeatedKey> RepeatedKeys(std::string_view text) {
  std::vector<RepeatedKey> repeated;
  std::vector<Level> levels;
  size_t line = 1;
  std::string_view last;  // the string read last
  for (size_t at = 0; at < text.size(); ++at) {
    switch (text[at]) {
      case '\n':
        ++line;
        break;
      case '"': {
        const size_t start = at++;
        while (at < text.size() && text[at] != '"') at += text[at] == '\\' ? 2 : 1;
        if (at >= text.size()) return repeated;
        last = text.substr(start, at + 1 - start);
        break;
      }
      case ':': {
        if (levels.empty() || !levels.back().object || last.empty()) break;
        levels.back().name = Unescaped(last);
        if (levels.back().names.insert(levels.back().name).second) break;
        RepeatedKey key{{}, line};
        for (const Level& level : levels) {
          if (level.object) key.path.push_back(level.name);
        }
        repeated.push_back(std::move(key));
        break;
      }
      case '{':
      case '[':
        levels.push_back({text[at] == '{', {}, ""});
        break;
      case '}':
      case ']':
        if (!levels.empty()) levels.pop_back();
        break;
      default:
        break;
    }
  }
  return repeated;
}

}  // namespace site
