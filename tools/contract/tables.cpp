#include "contract/tables.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "contract/explain.h"
#include "contract/faults.h"
#include "contract/schemas.h"
#include "json_words.h"

namespace contract {
namespace {

constexpr char kBegin[] = "<!-- table: ";
constexpr char kBeginEnd[] = " -->";
constexpr char kEnd[] = "<!-- end -->";

using Rows = std::vector<std::vector<std::string>>;

std::string Row(const std::vector<std::string>& cells) {
  std::string line = "|";
  for (const std::string& cell : cells) line += (cell.empty() ? "" : " " + cell) + " |";
  return line + "\n";
}

// The first row is the heading.
std::string Table(const Rows& rows) {
  std::string text = Row(rows.front());
  for (size_t i = 0; i < rows.front().size(); ++i) text += i == 0 ? "|---|" : "---|";
  text += "\n";
  for (size_t i = 1; i < rows.size(); ++i) text += Row(rows[i]);
  return text;
}

std::string Code(const std::string& text) { return "`" + text + "`"; }

// Choices that pages show once, or that need no words.
struct KnownChoice {
  const char* schema;
  const char* words;
};
constexpr KnownChoice kKnownChoices[] = {
    {"parts/color", "a [colour](#message-types)"},
    {"parts/space_state", "a [state](#message-types)"},
    {"parts/flag", "0 or 1"},
};

// "0 none, 1 odd", "0 to 255", "at most 15 bytes".
std::string Takes(const Json::Value& schema) {
  if (schema.isMember("enum")) {
    for (const KnownChoice& known : kKnownChoices) {
      if (schema["x-enum-titles"] == Schema(known.schema)["x-enum-titles"]) return known.words;
    }
    std::string text = Choices(schema);
    for (const char c : {'(', ')'}) text.erase(std::remove(text.begin(), text.end(), c), text.end());
    return text;
  }
  if (schema.isMember("x-max-bytes")) return "at most " + schema["x-max-bytes"].asString() + " bytes";
  if (schema.isMember("maxItems")) return "at most " + schema["maxItems"].asString() + " entries";
  if (schema.isMember("minimum")) return schema["minimum"].asString() + " to " + schema["maximum"].asString();
  if (schema.isMember("maxLength")) return "at most " + schema["maxLength"].asString() + " characters";
  const std::string expected = Expected(schema);
  return expected == "a list" || expected == "an object" ? "" : expected;
}

std::string DefaultOf(const Json::Value& schema) {
  const Json::Value& value = schema["default"];
  return !schema.isMember("default") || value.isObject() || value.isArray() ? "" : words::CompactText(value);
}

std::string Last(const std::string& path) { return path.substr(path.rfind('.') + 1); }

// The members of a body, or of a document; those of lists too.
std::string MembersTable(const std::string& name) {
  Rows rows = {{"name", "takes", "default", "is"}};
  for (const Member& member : AllMembers(Schema(name))) {
    const bool says_itself = member.schema.isMember("const") || member.schema["properties"].isObject();
    if (says_itself) continue;
    rows.push_back({Code(Last(member.path)), Takes(member.schema), DefaultOf(member.schema),
                    member.schema["description"].asString()});
  }
  const bool has_defaults = std::any_of(rows.begin() + 1, rows.end(), [](const auto& row) { return !row[2].empty(); });
  for (auto& row : rows) {
    if (!has_defaults) row.erase(row.begin() + 2);
  }
  return Table(rows);
}

// The one member of each of several commands.
std::string CommandsTable(std::istringstream& names) {
  Rows rows = {{"command", "body", "is", "takes"}};
  for (std::string name; names >> name;) {
    std::string command = Code(name.substr(name.find('/') + 1));
    for (const Member& member : AllMembers(Schema(name))) {
      if (member.schema.isMember("const") || member.schema["properties"].isObject()) continue;
      rows.push_back({command, Code(Last(member.path)), member.schema["description"].asString(),
                      Takes(member.schema) + (member.required ? "" : "; may be missing")});
      command.clear();
    }
  }
  return Table(rows);
}

std::string FieldsTable(const std::string& name) {
  Rows rows = {{"field", "bytes", "what is sent", "value in the list"}};
  const Json::Value& schema = Schema(name);
  for (const std::string& field : Members(schema)) {
    const Json::Value& member = schema["properties"][field];
    const bool text = member["type"] == Json::Value("string");
    rows.push_back({Code(field), member["x-bytes"].asString(), member["description"].asString(),
                    text ? "at most " + member["maxLength"].asString() + " digits" : Takes(member)});
  }
  return Table(rows);
}

// The values of several choices side by side.
std::string ChoicesTable(std::istringstream& names) {
  Rows rows = {{"number"}};
  for (std::string name; names >> name;) {
    const Json::Value& schema = Schema(name);
    std::string title = schema["title"].asString();
    title[0] = static_cast<char>(tolower(title[0]));
    rows.front().push_back(title);
    for (Json::ArrayIndex i = 0; i < schema["enum"].size(); ++i) {
      if (rows.size() <= i + 1) rows.push_back({words::CompactText(schema["enum"][i])});
      rows[i + 1].resize(rows.front().size() - 1);
      rows[i + 1].push_back(schema["x-enum-titles"][i].asString());
    }
  }
  for (auto& row : rows) row.resize(rows.front().size());
  return Table(rows);
}

std::string StatesTable() {
  Rows rows = {{"state", "error_msg", "when"}};
  const Json::Value& members = Schema("parts/reply")["properties"];
  for (Json::ArrayIndex i = 0; i < members["state"]["enum"].size(); ++i) {
    rows.push_back({words::CompactText(members["state"]["enum"][i]), members["error_msg"]["enum"][i].asString(),
                    members["state"]["x-enum-titles"][i].asString()});
  }
  return Table(rows);
}

std::string RecordTable(const std::string& name) {
  Rows rows = {{"offset", "bytes", "field"}};
  for (const Json::Value& field : Schema(name)["x-fields"]) {
    rows.push_back({field["x-offset"].asString(), field["x-bytes"].asString(), field["description"].asString()});
  }
  return Table(rows);
}

std::string MessagesTable(std::istringstream& names) {
  Rows rows = {{"message", "type", "body", "is"}};
  for (std::string name; names >> name;) {
    const Json::Value& schema = Schema(name);
    std::string body;
    for (const std::string& member : Members(schema["properties"]["body"])) {
      body += (body.empty() ? "" : ", ") + Code(member);
    }
    rows.push_back({Code(schema["x-topic"].asString()), Code(schema["properties"]["type"]["const"].asString()), body,
                    schema["description"].asString()});
  }
  return Table(rows);
}

std::string DocumentsTable() {
  Rows rows = {{"key", "length", "NUL", "commands", "read by the device"}};
  for (const std::string& name : Names("documents")) {
    const Json::Value& schema = Schema(name);
    const std::string key = name.substr(name.find('/') + 1);
    std::string commands;
    for (const std::string& request : Names("requests")) {
      if (Schema(request)["x-document"] != Json::Value(key)) continue;
      commands += (commands.empty() ? "" : ", ") + Code(request.substr(request.find('/') + 1));
    }
    std::string read;
    for (const Json::Value& when : schema["x-read"]) {
      const std::string word = when.asString();
      const std::string message = "messages/" + word;
      read += (read.empty() ? "" : ", ") + (Has(message)        ? Code(Schema(message)["x-topic"].asString())
                                            : word == "start"   ? "at start"
                                            : word == "request" ? "on request"
                                                                : word);
    }
    const bool counts_nul = schema["x-key-length"].asUInt() > key.size();
    rows.push_back({Code(key), schema["x-key-length"].asString(), counts_nul ? "yes" : "no",
                    commands.empty() ? schema["description"].asString() : commands, read});
  }
  return Table(rows);
}

std::string TableFor(const std::string& mark) {
  std::istringstream words(mark);
  std::string kind, name;
  words >> kind;
  if (kind == "states") return StatesTable();
  if (kind == "documents") return DocumentsTable();
  if (kind == "choices") return ChoicesTable(words);
  if (kind == "commands") return CommandsTable(words);
  if (kind == "messages") return MessagesTable(words);
  words >> name;
  if (!Has(name)) throw std::runtime_error("no schema \"" + name + "\" for the table \"" + mark + "\"");
  if (kind == "members") return MembersTable(name);
  if (kind == "fields") return FieldsTable(name);
  if (kind == "record") return RecordTable(name);
  throw std::runtime_error("no table \"" + mark + "\"");
}

}  // namespace

std::string WithTables(const std::string& page) {
  std::string out;
  for (size_t at = 0;;) {
    const size_t begin = page.find(kBegin, at);
    if (begin == std::string::npos) return out + page.substr(at);
    const size_t mark = begin + sizeof kBegin - 1;
    const size_t mark_end = page.find(kBeginEnd, mark);
    const size_t end = page.find(kEnd, mark);
    if (end == std::string::npos || mark_end > end) {
      throw std::runtime_error("the table \"" + page.substr(mark, page.find('\n', mark) - mark) + "\" has no end");
    }
    const std::string name = page.substr(mark, mark_end - mark);
    out += page.substr(at, begin - at) + kBegin + name + kBeginEnd + "\n" + TableFor(name);
    at = end;
  }
}

}  // namespace contract
