#include "contract/schemas.h"

#include <json/reader.h>

#include <algorithm>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>

#include "contract/schema_texts.h"

namespace contract {
namespace {

constexpr char kReference[] = "$ref";
constexpr char kDialect[] = "$schema";
constexpr char kProperties[] = "properties";
constexpr char kOrder[] = "x-order";  // this library's own: the names of "properties" as they are written
constexpr const char* kFolders[] = {"requests", "documents", "messages", "site", "parts", "replies"};
constexpr char kUsualEnding[] = "_value";

const SchemaText* FindText(std::string_view name) {
  const SchemaText* const end = kSchemaTexts + kSchemaTextCount;
  const SchemaText* found = std::find_if(kSchemaTexts, end, [&](const SchemaText& row) { return row.name == name; });
  return found == end ? nullptr : found;
}

// The file's own text, parsed once.
const Json::Value& File(const std::string& name) {
  static std::map<std::string, Json::Value> files;
  const auto known = files.find(name);
  if (known != files.end()) return known->second;
  const SchemaText* const row = FindText(name);
  if (row == nullptr) throw std::out_of_range("no schema " + name);
  const std::unique_ptr<Json::CharReader> reader(Json::CharReaderBuilder().newCharReader());
  Json::Value document;
  std::string errors;
  if (!reader->parse(row->text.data(), row->text.data() + row->text.size(), &document, &errors)) {
    throw std::logic_error("contract/" + name + ".json: " + errors);
  }
  return files.emplace(name, document).first->second;
}

Json::Value Whole(const Json::Value& schema, const std::string& file);

// The file that a reference names, "../parts/flag.json" in "requests/..." being "parts/flag".
std::string FileOf(std::string_view reference, const std::string& file) {
  const std::string_view path = reference.substr(0, reference.find('#'));
  if (path.empty()) return file;
  constexpr std::string_view kUp = "../";
  constexpr std::string_view kEnding = ".json";
  const bool up = path.substr(0, kUp.size()) == kUp;
  const std::string name(path.substr(up ? kUp.size() : 0, path.size() - (up ? kUp.size() : 0) - kEnding.size()));
  return up ? name : file.substr(0, file.find('/') + 1) + name;
}

Json::Value Referred(const std::string& reference, const std::string& file) {
  const std::string other = FileOf(reference, file);
  const Json::Value* place = &File(other);
  const size_t fragment = reference.find('#');
  for (size_t at = fragment == std::string::npos ? fragment : fragment + 1; at < reference.size();) {
    const size_t end = std::min(reference.find('/', at + 1), reference.size());
    const std::string member = reference.substr(at + 1, end - at - 1);
    if (!place->isMember(member)) throw std::logic_error(file + ": nothing at " + reference);
    place = &(*place)[member];
    at = end;
  }
  return Whole(*place, other);
}

Json::Value OrderOf(const Json::Value& properties) {
  std::vector<std::string> names = properties.getMemberNames();
  std::sort(names.begin(), names.end(), [&](const std::string& a, const std::string& b) {
    return properties[a].getOffsetStart() < properties[b].getOffsetStart();
  });
  Json::Value order(Json::arrayValue);
  for (const std::string& name : names) order.append(name);
  return order;
}

Json::Value Whole(const Json::Value& schema, const std::string& file) {
  Json::Value whole = schema;
  if (schema.isArray()) {
    for (Json::ArrayIndex i = 0; i < schema.size(); ++i) whole[i] = Whole(schema[i], file);
  }
  if (!schema.isObject()) return whole;
  if (schema.isMember(kReference)) {
    whole = Referred(schema[kReference].asString(), file);
    whole.removeMember(kDialect);
  }
  for (const std::string& name : schema.getMemberNames()) {
    if (name != kReference) whole[name] = Whole(schema[name], file);
  }
  if (schema[kProperties].isObject()) whole[kOrder] = OrderOf(schema[kProperties]);
  return whole;
}

// Characters to insert, drop or exchange to make one name of the other.
size_t Distance(const std::string& a, const std::string& b) {
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t exchanged = diagonal + (a[i - 1] == b[j - 1] ? 0 : 1);
      diagonal = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, exchanged});
    }
  }
  return row[b.size()];
}

}  // namespace

std::vector<std::string> Names(std::string_view folder) {
  std::vector<std::string> names;
  for (const SchemaText* row = kSchemaTexts; row != kSchemaTexts + kSchemaTextCount; ++row) {
    if (folder.empty() || row->name.substr(0, row->name.find('/')) == folder) names.emplace_back(row->name);
  }
  return names;
}

bool Has(std::string_view name) { return FindText(name) != nullptr; }

const Json::Value& Schema(std::string_view name) {
  static std::map<std::string, Json::Value, std::less<>> schemas;
  const auto known = schemas.find(name);
  if (known != schemas.end()) return known->second;
  const std::string file(name);
  return schemas.emplace(file, Whole(File(file), file)).first->second;
}

Json::Value Printed(const Json::Value& schema) {
  Json::Value printed = schema;
  if (schema.isObject()) printed.removeMember(kOrder);
  if (schema.isObject() || schema.isArray()) {
    for (Json::Value& value : printed) value = Printed(value);
  }
  return printed;
}

std::vector<std::string> Members(const Json::Value& schema) {
  std::vector<std::string> names;
  for (const Json::Value& name : schema[kOrder]) names.push_back(name.asString());
  return names;
}

std::string Find(const std::string& name) {
  if (Has(name)) return name;
  for (const char* folder : kFolders) {
    for (const char* ending : {"", kUsualEnding}) {
      std::string whole = std::string(folder) + "/" + name + ending;
      if (Has(whole)) return whole;
    }
  }
  return "";
}

std::string Nearest(const std::string& name, const std::vector<std::string>& names) {
  const size_t slips = std::min<size_t>(3, 1 + name.size() / 4);
  std::string nearest;
  size_t least = slips + 1;
  for (const std::string& other : names) {
    const size_t distance = Distance(name, other);
    if (distance >= least) continue;
    least = distance;
    nearest = other;
  }
  return nearest;
}

}  // namespace contract
