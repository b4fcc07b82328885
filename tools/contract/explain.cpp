#include "contract/explain.h"

#include <algorithm>
#include <sstream>

#include "contract/faults.h"
#include "contract/schemas.h"
#include "json_words.h"

namespace contract {
namespace {

void Collect(const Json::Value& schema, const std::string& path, std::vector<Member>& members) {
  if (!schema.isObject()) return;
  for (const Json::Value& part : schema["allOf"]) Collect(part, path, members);
  std::vector<std::string> required;
  for (const Json::Value& name : schema["required"]) required.push_back(name.asString());
  for (const std::string& name : Members(schema)) {
    const Json::Value& member = schema["properties"][name];
    const std::string whole = path + (path.empty() ? "" : ".") + name;
    const bool is_required = std::find(required.begin(), required.end(), name) != required.end();
    const auto known = std::find_if(members.begin(), members.end(), [&](const Member& m) { return m.path == whole; });
    if (known != members.end()) {
      known->schema = member;  // said again, more exactly
      known->required = known->required || is_required;
      continue;
    }
    members.push_back({whole, member, is_required});
    Collect(member, whole, members);
  }
  if (schema["additionalProperties"].isObject()) Collect(schema["additionalProperties"], path + ".*", members);
  if (schema["items"].isObject()) Collect(schema["items"], path + "[]", members);
  if (schema["anyOf"].isArray()) Collect(schema["anyOf"][0], path, members);
}

std::string Facts(const Member& member) {
  const Json::Value& schema = member.schema;
  std::string facts = Expected(schema);
  if (schema.isMember("x-max-bytes")) facts += ", at most " + words::CompactText(schema["x-max-bytes"]) + " bytes";
  if (!schema.isMember("x-max-bytes") && schema.isMember("maxLength")) {
    facts += ", at most " + words::CompactText(schema["maxLength"]) + " characters";
  }
  if (schema.isMember("maxItems")) facts += " of at most " + words::CompactText(schema["maxItems"]);
  if (!member.required) facts += "; may be missing";
  const bool leaf = !schema["default"].isObject() && !schema["default"].isArray();
  if (schema.isMember("default") && leaf) facts += "; default " + words::CompactText(schema["default"]);
  return facts;
}

void Append(std::string& out, const std::string& text, size_t indent, size_t width) {
  std::istringstream all(text);
  std::string line(indent, ' ');
  for (std::string word; all >> word;) {
    if (line.size() > indent && line.size() + 1 + word.size() > width) {
      out += line + "\n";
      line.assign(indent, ' ');
    }
    line += (line.size() > indent ? " " : "") + word;
  }
  out += line + "\n";
}

}  // namespace

std::vector<Member> AllMembers(const Json::Value& schema) {
  std::vector<Member> members;
  Collect(schema, "", members);
  return members;
}

std::string Explain(const std::string& name, size_t width) {
  constexpr size_t kIndent = 4;
  const Json::Value& schema = Schema(name);
  std::string text = name + ": " + schema["title"].asString() + "\n";
  Append(text, schema["description"].asString(), 0, width);
  if (schema.isMember("x-topic")) text += "topic " + schema["x-topic"].asString() + "\n";
  if (schema.isMember("x-document")) text += "document " + schema["x-document"].asString() + "\n";
  if (schema.isMember("x-key-length")) text += "key of " + words::CompactText(schema["x-key-length"]) + " bytes\n";
  for (const Member& member : AllMembers(schema)) {
    const bool says_itself = member.schema.isMember("const") || member.schema["properties"].isObject();
    if (says_itself) continue;
    text += "\n  " + member.path + "  (" + member.schema["title"].asString() + ")\n";
    Append(text, member.schema["description"].asString(), kIndent, width);
    Append(text, Facts(member), kIndent, width);
  }
  return text;
}

}  // namespace contract
