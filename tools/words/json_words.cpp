#include "json_words.h"

#include <json/writer.h>

#include "plain_words.h"

namespace words {

namespace {

std::string Written(const Json::Value& document, const char* indentation) {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = indentation;
  builder["commentStyle"] = "None";
  builder["emitUTF8"] = true;
  builder["enableYAMLCompatibility"] = *indentation != '\0';  // "a": 1, not "a" : 1
  return Json::writeString(builder, document);
}

bool IsPlain(const Json::Value& value) { return (!value.isObject() && !value.isArray()) || value.empty(); }

void AddLeaves(const Json::Value& value, const std::string& path,
               std::vector<std::pair<std::string, const Json::Value*>>& leaves) {
  if (IsPlain(value)) {
    leaves.emplace_back(path, &value);
    return;
  }
  const std::string inner = path.empty() ? "" : path + ".";
  for (const bool plain : {true, false}) {
    Json::ArrayIndex index = 0;
    for (auto member = value.begin(); member != value.end(); ++member, ++index) {
      if (value.isObject() && IsPlain(*member) != plain) continue;
      if (value.isArray() && !plain) continue;  // a list keeps its order
      AddLeaves(*member, inner + (value.isArray() ? std::to_string(index) : Printable(member.name())), leaves);
    }
  }
}

}  // namespace

std::string CompactText(const Json::Value& document) { return Written(document, ""); }
std::string OneLineText(const Json::Value& document) { return Printable(Written(document, "")); }

std::string IndentedText(const Json::Value& document) {
  const std::string text = Written(document, "  ");
  std::string out;
  for (size_t at = 0; at < text.size();) {
    const size_t end = std::min(text.find('\n', at), text.size());
    out += Printable(std::string_view(text).substr(at, end - at));
    if (end < text.size()) out += '\n';
    at = end + 1;
  }
  return out;
}

std::vector<std::pair<std::string, const Json::Value*>> Leaves(const Json::Value& document) {
  std::vector<std::pair<std::string, const Json::Value*>> leaves;
  AddLeaves(document, "", leaves);
  return leaves;
}

std::string Beginning(const std::string& utf8, size_t most) {
  if (utf8.size() <= most) return utf8;
  while (most > 0 && (static_cast<unsigned char>(utf8[most]) & 0xC0) == 0x80) --most;
  return utf8.substr(0, most) + "...";
}

}  // namespace words
