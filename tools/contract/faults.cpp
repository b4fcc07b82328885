#include "contract/faults.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <regex>

#include "contract/schemas.h"
#include "json_words.h"
#include "plain_words.h"

namespace contract {
namespace {

// "Text without control characters", in the words of Unicode and in those of UTF-8.
constexpr char kPrintable[] = R"(^[^\u0000-\u001f\u007f-\u009f]*$)";
constexpr char kPrintableBytes[] =
    "^(?:[\x20-\x7e]|\xc2[\xa0-\xbf]|[\xc3-\xdf][\x80-\xbf]|[\xe0-\xef][\x80-\xbf]{2}|[\xf0-\xf4][\x80-\xbf]{3})*$";

constexpr size_t kShownValue = 60;  // characters of a value that a fault repeats, or a little less

std::string Shown(const Json::Value& value) { return words::Beginning(words::OneLineText(value), kShownValue); }

size_t Characters(const std::string& text) {
  return static_cast<size_t>(std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; }));
}

bool IsOfType(const Json::Value& value, const std::string& type) {
  if (type == "object") return value.isObject();
  if (type == "array") return value.isArray();
  if (type == "string") return value.isString();
  if (type == "boolean") return value.isBool();
  if (type == "null") return value.isNull();
  if (!value.isNumeric()) return false;
  return type == "number" || value.isIntegral();
}

const char* KindOf(const Json::Value& value) {
  if (value.isObject()) return "an object";
  if (value.isArray()) return "a list";
  if (value.isString()) return "text";
  if (value.isBool()) return "true or false";
  if (value.isNull()) return "null";
  return value.isIntegral() ? "a whole number" : "a number";
}

bool IsSame(const Json::Value& a, const Json::Value& b) {
  if (a.isNumeric() && b.isNumeric()) return a.asDouble() == b.asDouble();
  return a == b;
}

std::string Number(const Json::Value& number) { return words::CompactText(number); }

std::string List(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
  return text;
}

// Bytes that a base64 text stands for, -1 for what is none.
int64_t DecodedBytes(const std::string& text) {
  const size_t digits = text.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/");
  const size_t padding = digits == std::string::npos ? 0 : text.size() - digits;
  if (text.size() % 4 != 0 || padding > 2 || text.substr(text.size() - padding) != std::string(padding, '=')) return -1;
  return static_cast<int64_t>(text.size() / 4 * 3 - padding);
}

class Walk {
 public:
  std::vector<Finding> findings;

  void Look(const Json::Value& schema, const Json::Value& value, const std::string& place) {
    if (schema.isBool()) {
      if (!schema.asBool()) Say(place, "is not allowed");
      return;
    }
    if (!LooksLikeIt(schema, value, place)) return;
    if (value.isNumeric()) LookAtNumber(schema, value, place);
    if (value.isString()) LookAtText(schema, value.asString(), place);
    if (value.isArray()) LookAtList(schema, value, place);
    if (value.isObject()) LookAtObject(schema, value, place);
    LookAtCombinations(schema, value, place);
  }

 private:
  void Say(const std::string& place, const std::string& reason, bool only_ours = false) {
    findings.push_back({{place, reason}, only_ours});
  }

  // Type, choice and constant: where one of them is wrong, the rest says nothing new.
  bool LooksLikeIt(const Json::Value& schema, const Json::Value& value, const std::string& place) {
    const Json::Value& choices = schema["enum"];
    const bool chosen =
        std::any_of(choices.begin(), choices.end(), [&](const Json::Value& choice) { return IsSame(choice, value); });
    if (choices.isArray() && !chosen) {
      Say(place, Shown(value) + " is none of " + Choices(schema));
      return false;
    }
    if (schema.isMember("const") && !IsSame(schema["const"], value)) {
      Say(place, Shown(value) + " is not " + Shown(schema["const"]));
      return false;
    }
    const Json::Value& type = schema["type"];
    bool fits = !type.isString() || IsOfType(value, type.asString());
    if (type.isArray()) {
      fits = std::any_of(type.begin(), type.end(),
                         [&](const Json::Value& name) { return IsOfType(value, name.asString()); });
    }
    if (fits) return true;
    Say(place, Shown(value) + " is " + KindOf(value) + ", " + Expected(schema) + " is needed");
    return false;
  }

  void LookAtNumber(const Json::Value& schema, const Json::Value& value, const std::string& place) {
    const bool below = schema.isMember("minimum") && value.asDouble() < schema["minimum"].asDouble();
    const bool above = schema.isMember("maximum") && value.asDouble() > schema["maximum"].asDouble();
    if (below || above) Say(place, Shown(value) + " is not " + Expected(schema));
  }

  void LookAtText(const Json::Value& schema, const std::string& text, const std::string& place) {
    const size_t bytes = text.size();
    const bool counts_bytes = schema.isMember("x-max-bytes");
    if (counts_bytes && bytes > schema["x-max-bytes"].asUInt()) {
      Say(place, std::to_string(bytes) + " bytes, at most " + Number(schema["x-max-bytes"]) + " fit", true);
    }
    const size_t characters = Characters(text);
    if (schema.isMember("maxLength") && characters > schema["maxLength"].asUInt()) {
      const bool said = counts_bytes && bytes > schema["x-max-bytes"].asUInt();
      if (said) findings.back().only_ours = false;
      if (!said)
        Say(place, std::to_string(characters) + " characters, at most " + Number(schema["maxLength"]) + " fit");
    }
    if (schema.isMember("minLength") && characters < schema["minLength"].asUInt()) {
      Say(place, (text.empty() ? "is empty, " : Shown(text) + " is too short, ") + Expected(schema) + " is needed");
    } else if (schema.isMember("pattern") && !Matches(schema["pattern"].asString(), text)) {
      Say(place, Shown(text) + " is not " + Expected(schema));
    }
  }

  void LookAtList(const Json::Value& schema, const Json::Value& list, const std::string& place) {
    if (schema.isMember("minItems") && list.size() < schema["minItems"].asUInt()) {
      Say(place, "has " + std::to_string(list.size()) + " entries, at least " + Number(schema["minItems"]) + " needed");
    }
    if (schema.isMember("maxItems") && list.size() > schema["maxItems"].asUInt()) {
      Say(place, "has " + std::to_string(list.size()) + " entries, at most " + Number(schema["maxItems"]) + " allowed");
    }
    if (!schema.isMember("items")) return;
    for (Json::ArrayIndex i = 0; i < list.size(); ++i) {
      Look(schema["items"], list[i], place + "[" + std::to_string(i) + "]");
    }
  }

  void LookAtObject(const Json::Value& schema, const Json::Value& object, const std::string& place) {
    const size_t limit = schema["x-max-bytes"].asUInt();
    const size_t bytes = limit == 0 ? 0 : words::CompactText(object).size();
    if (bytes > limit) {
      Say(place, std::to_string(bytes) + " bytes in all, at most " + std::to_string(limit) + " fit", true);
    }
    LookAtNumberOfMembers(schema, object, place);
    const Json::Value& properties = schema["properties"];
    for (const Json::Value& name : schema["required"]) {
      if (object.isMember(name.asString())) continue;
      const Json::Value& missing = properties[name.asString()];
      Say(Member(place, name.asString()),
          "missing" + (missing.isNull() ? "" : ", " + Expected(missing) + " is needed"));
    }
    for (const std::string& name : Members(schema)) {
      if (!object.isMember(name)) continue;
      Look(properties[name], object[name], Member(place, name));
      LookAtNeighbours(properties[name], object, name, Member(place, name));
    }
    for (const std::string& name : object.getMemberNames()) {
      if (schema.isMember("propertyNames")) Look(schema["propertyNames"], name, Member(place, name));
      if (properties.isMember(name) || !schema.isMember("additionalProperties")) continue;
      if (schema["additionalProperties"] == Json::Value(false)) {
        Say(Member(place, name), UnknownMember(name, Members(schema)));
      } else {
        Look(schema["additionalProperties"], object[name], Member(place, name));
      }
    }
  }

  void LookAtNumberOfMembers(const Json::Value& schema, const Json::Value& object, const std::string& place) {
    const size_t least = schema["minProperties"].asUInt();
    if (object.size() < least) Say(place, "names nothing, one of " + List(Members(schema)) + " is needed");
    if (!schema.isMember("maxProperties") || object.size() <= schema["maxProperties"].asUInt()) return;
    Say(place, "has the members " + words::Printable(List(object.getMemberNames())) + ", at most " +
                   Number(schema["maxProperties"]) + " allowed");
  }

  // Rules about two members of one object.
  void LookAtNeighbours(const Json::Value& schema, const Json::Value& object, const std::string& name,
                        const std::string& place) {
    const Json::Value& number = object[name];
    if (!schema.isObject() || !number.isNumeric()) return;
    const Json::Value& text = object[schema["x-bytes-of"].asString()];
    if (schema.isMember("x-bytes-of") && text.isString()) {
      const std::string other = schema["x-bytes-of"].asString();
      const int64_t bytes = DecodedBytes(text.asString());
      if (bytes < 0) {
        Say(place.substr(0, place.size() - name.size()) + other, Shown(text) + " is not base64", true);
      } else if (number.asDouble() != static_cast<double>(bytes)) {
        Say(place, Shown(number) + ", but " + other + " stands for " + std::to_string(bytes) + " bytes", true);
      }
    }
    const Json::Value& most = object[schema["x-at-most"].asString()];
    if (schema.isMember("x-at-most") && most.isNumeric() && number.asDouble() > most.asDouble()) {
      Say(place, Shown(number) + " is above " + schema["x-at-most"].asString() + ", " + Shown(most), true);
    }
  }

  void LookAtCombinations(const Json::Value& schema, const Json::Value& value, const std::string& place) {
    for (const Json::Value& part : schema["allOf"]) Look(part, value, place);
    if (schema.isMember("not") && FindFaults(schema["not"], value).empty()) {
      Say(place, Shown(value) + " is not allowed");
    }
    if (schema.isMember("anyOf")) LookAtAlternatives(schema["anyOf"], value, place, false);
    if (schema.isMember("oneOf")) LookAtAlternatives(schema["oneOf"], value, place, true);
    if (!schema.isMember("if")) return;
    const char* const branch = FindFaults(schema["if"], value).empty() ? "then" : "else";
    if (schema.isMember(branch)) Look(schema[branch], value, place);
  }

  void LookAtAlternatives(const Json::Value& alternatives, const Json::Value& value, const std::string& place,
                          bool exactly_one) {
    const auto fits = [&](const Json::Value& alternative) { return FindFaults(alternative, value).empty(); };
    const auto count = std::count_if(alternatives.begin(), alternatives.end(), fits);
    if (count == 1 || (count > 1 && !exactly_one)) return;
    // The one that is meant is told by its name, where it has one.
    std::vector<std::string> names;
    for (const Json::Value& alternative : alternatives) {
      const Json::Value& name = alternative["properties"]["type"]["const"];
      if (!name.isString()) continue;
      names.push_back(name.asString());
      if (value.isObject() && value["type"] == name) return Look(alternative, value, place);
    }
    const bool named = value.isObject() && value.isMember("type");
    if (names.empty()) return Say(place, Shown(value) + " fits no form that it can have");
    Say(named ? Member(place, "type") : place, Shown(named ? value["type"] : value) + " is none of " + List(names));
  }

  static std::string Member(const std::string& place, const std::string& name) {
    return place + (place.empty() ? "" : ".") + words::Printable(name);
  }

  static std::string UnknownMember(const std::string& name, const std::vector<std::string>& known) {
    const std::string nearest = Nearest(name, known);
    if (!nearest.empty()) return "no such member, did you mean " + nearest + "?";
    return known.empty() ? "no members here" : "no such member, there are " + List(known);
  }
};

}  // namespace

std::vector<Finding> FindFaults(const Json::Value& schema, const Json::Value& document) {
  Walk walk;
  walk.Look(schema, document, "");
  return walk.findings;
}

std::string Choices(const Json::Value& schema) {
  const Json::Value& titles = schema["x-enum-titles"];
  std::string text;
  for (Json::ArrayIndex i = 0; i < schema["enum"].size(); ++i) {
    const std::string value = Shown(schema["enum"][i]);
    const std::string title = titles.isArray() ? titles[i].asString() : value;
    // "9600 baud" tells no more than 9600.
    const bool adds = title.find(value) == std::string::npos;
    text += (text.empty() ? "" : ", ") + value + (adds ? " (" + title + ")" : "");
  }
  return text;
}

std::string Expected(const Json::Value& schema) {
  if (schema.isMember("enum")) return "one of " + Choices(schema);
  if (schema.isMember("const")) return Shown(schema["const"]);
  if (schema.isMember("x-form")) return schema["x-form"].asString();
  const Json::Value& type = schema["type"];
  const std::string name = type.isArray() ? type[0].asString() : type.asString();
  if (name == "object") return "an object";
  if (name == "array") return "a list";
  if (name == "boolean") return "true or false";
  if (name == "string") return "text";
  if (name != "integer") return "another value";
  const bool least = schema.isMember("minimum");
  const bool most = schema.isMember("maximum");
  return std::string("a whole number") + (least ? " from " + Number(schema["minimum"]) : "") +
         (most    ? " to " + Number(schema["maximum"])
          : least ? " up"
                  : "");
}

std::string BytePattern(const std::string& pattern) { return pattern == kPrintable ? kPrintableBytes : pattern; }

bool Matches(const std::string& pattern, const std::string& text) {
  static std::map<std::string, std::regex> compiled;
  if (text.size() > kMatchedBytes) return false;
  auto known = compiled.find(pattern);
  if (known == compiled.end()) known = compiled.emplace(pattern, std::regex(BytePattern(pattern))).first;
  return std::regex_search(text, known->second);
}

}  // namespace contract
