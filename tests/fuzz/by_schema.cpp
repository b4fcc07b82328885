#include "by_schema.h"

#include <algorithm>
#include <iterator>

#include "base64.h"
#include "contract/faults.h"
#include "contract/schemas.h"
#include "json_words.h"

namespace fuzz {
namespace {

constexpr unsigned kUsualLength = 24;
constexpr unsigned kUsualEntries = 3;
constexpr unsigned kMostBytes = 256;

// What texts hold beside plain ASCII, as it is written: what is escaped, and two to four bytes of UTF-8.
constexpr const char* kCharacters[] = {R"(\")",    R"(\\)", R"(\/)",           "/", "é", "京", R"(\u4eac)",
                                       "\xC2\xA0", "😀",     R"(\ud83d\ude00)", "_", " "};
constexpr const char* kTexts[] = {"",         "A",           "L2/B",     "garage", "L2-B-014",           "mqtt://hub",
                                  "0a1b2c3d", "mqtts://h:1", "disabled", "AAAA",   "2026-01-31 08:05:09"};

int PlaceOf(const std::vector<std::string>& names, const Json::Value& name) {
  const auto found = std::find(names.begin(), names.end(), name.asString());
  return found == names.end() ? -1 : static_cast<int>(found - names.begin());
}

bool IsNamed(const Json::Value& list, const std::string& name) {
  return std::find(list.begin(), list.end(), Json::Value(name)) != list.end();
}

}  // namespace

uint8_t Bytes::Next() {
  if (rest_.empty()) return 0;
  const auto next = static_cast<uint8_t>(rest_.front());
  rest_.remove_prefix(1);
  return next;
}

Form::Form(const Json::Value& schema) {
  const Json::Value& types = schema["type"];
  const std::string type = types.isString() ? types.asString() : "";
  const std::string pattern = schema["pattern"].asString();
  if (schema.isMember("const") || schema.isMember("enum")) {
    kind_ = Kind::kFixed;
    for (const Json::Value& choice : schema["enum"]) choices_.push_back(words::CompactText(choice));
    if (choices_.empty()) choices_.push_back(words::CompactText(schema["const"]));
  } else if (types.isArray()) {
    kind_ = Kind::kOneOf;
    for (const Json::Value& one : types) {
      Json::Value alternative = schema;
      alternative["type"] = one;
      parts_.emplace_back(alternative);
    }
  } else if (schema.isMember("oneOf") && !schema.isMember("properties")) {
    kind_ = Kind::kOneOf;
    for (const Json::Value& alternative : schema["oneOf"]) parts_.emplace_back(alternative);
  } else if (type == "integer" || type == "number") {
    kind_ = Kind::kNumber;
    least_ = schema.get("minimum", -1000).asInt64();
    most_ = schema.get("maximum", 1000).asInt64();
  } else if (type == "boolean") {
    kind_ = Kind::kTruth;
  } else if (type == "null") {
    kind_ = Kind::kFixed;
    choices_.emplace_back("null");
  } else if (type == "string") {
    const bool hexadecimal = pattern.find("0[1-9A-Fa-f]") != std::string::npos;
    const bool any = pattern.empty() || pattern.find("[^") != std::string::npos;
    const bool base64 = schema.isMember("contentEncoding") || pattern.find("+/") != std::string::npos;
    kind_ = base64 ? Kind::kBase64 : hexadecimal ? Kind::kHexBytes : Kind::kText;
    least_ = schema.get("minLength", 0).asUInt();
    most_ = schema.get("maxLength", kUsualLength).asUInt();
    most_bytes_ = schema.get("x-max-bytes", kMostBytes).asUInt();
    for (const char* text : kTexts) {
      if (kind_ == Kind::kText && !any && contract::FindFaults(schema, text).empty())
        choices_.push_back(words::CompactText(text));
    }
  } else if (type == "array") {
    kind_ = Kind::kList;
    least_ = schema.get("minItems", 0).asUInt();
    most_ = schema.get("maxItems", kUsualEntries).asUInt();
    parts_.emplace_back(schema["items"]);
  } else {
    one_member_ = schema.isMember("maxProperties");
    const std::vector<std::string> names = contract::Members(schema);
    for (const std::string& name : names) {
      const Json::Value& member = schema["properties"][name];
      members_.push_back({name, IsNamed(schema["required"], name), PlaceOf(names, member["x-bytes-of"]),
                          PlaceOf(names, member["x-at-most"])});
      parts_.emplace_back(member);
    }
  }
}

std::string Form::Text(Bytes& bytes) const {
  std::string out;
  Write(bytes, out);
  return out;
}

int64_t Form::Write(Bytes& bytes, std::string& out) const {
  if (!choices_.empty()) {
    out += choices_[bytes.Below(choices_.size())];
    return 0;
  }
  switch (kind_) {
    case Kind::kOneOf:
      return parts_[bytes.Below(parts_.size())].Write(bytes, out);
    case Kind::kNumber:
      return WriteNumber(bytes, out);
    case Kind::kBase64:
      return WriteBase64(bytes, out);
    case Kind::kTruth:
      out += bytes.Next() % 2 == 1 ? "true" : "false";
      return 0;
    case Kind::kList:
      WriteList(bytes, out);
      return 0;
    case Kind::kObject:
      WriteObject(bytes, out);
      return 0;
    default:
      WriteText(bytes, out);
      return 0;
  }
}

// The edges are as likely as much that lies between them.
int64_t Form::WriteNumber(Bytes& bytes, std::string& out) const {
  const uint8_t choice = bytes.Next();
  int64_t value = choice < 16 ? least_ : most_;
  if (choice >= 32) {
    uint64_t number = choice;
    for (int i = 0; choice >= 128 && i < 4; ++i) number = number << 8 | bytes.Next();
    value = least_ + static_cast<int64_t>(number % (static_cast<uint64_t>(most_ - least_) + 1));
  }
  out += std::to_string(value);
  return value;
}

int64_t Form::WriteBase64(Bytes& bytes, std::string& out) const {
  std::string data;
  for (size_t left = bytes.Below(bytes.Next() % 4 == 0 ? kMostBytes : kUsualLength); left > 0; --left)
    data += static_cast<char>(bytes.Next());
  out += '"' + lxbase::Base64::EncodeFromArray(data.data(), data.size()) + '"';
  return static_cast<int64_t>(data.size());
}

size_t Form::Length(Bytes& bytes) const {
  const uint8_t choice = bytes.Next();
  if (choice < 32) return static_cast<size_t>(least_);
  if (choice < 64) return static_cast<size_t>(most_);
  return static_cast<size_t>(least_ + choice % (std::min<int64_t>(most_ - least_, kUsualLength) + 1));
}

void Form::WriteText(Bytes& bytes, std::string& out) const {
  out += '"';
  if (kind_ == Kind::kHexBytes) {
    for (size_t left = bytes.Below(static_cast<size_t>(most_) / 2 + 1); left > 0; --left) {
      out += "13579bDF"[bytes.Below(8)];
      out += "02468aCE"[bytes.Below(8)];
    }
  } else {
    const size_t end = out.size() + most_bytes_;
    for (size_t left = Length(bytes); left > 0 && out.size() < end; --left) {
      const uint8_t byte = bytes.Next();
      const bool plain = byte >= 0x20 && byte < 0x7F && byte != '"' && byte != '\\';
      const std::string character =
          plain ? std::string(1, static_cast<char>(byte)) : kCharacters[byte % std::size(kCharacters)];
      if (out.size() + character.size() <= end) out += character;
    }
  }
  out += '"';
}

void Form::WriteList(Bytes& bytes, std::string& out) const {
  const auto least = static_cast<size_t>(least_);
  const size_t size = least + bytes.Below(static_cast<size_t>(most_) - least + 1);
  for (size_t i = 0; i < size; ++i) {
    out += i == 0 ? '[' : ',';
    parts_[0].Write(bytes, out);
  }
  out += size == 0 ? "[]" : "]";
}

void Form::WriteObject(Bytes& bytes, std::string& out) const {
  std::vector<int64_t> values(members_.size());
  const size_t only = one_member_ ? bytes.Below(members_.size()) : 0;
  out += '{';
  for (size_t i = 0; i < members_.size(); ++i) {
    const Member& member = members_[i];
    if (one_member_ ? i != only : !member.required && bytes.Next() % 2 == 0) continue;
    if (out.back() != '{') out += ',';
    out += '"' + member.name + "\":";
    if (member.bytes_of >= 0) {
      out += std::to_string(values[static_cast<size_t>(member.bytes_of)]);
    } else if (member.at_most >= 0) {
      std::string number;
      values[i] = std::min(parts_[i].Write(bytes, number), values[static_cast<size_t>(member.at_most)]);
      out += std::to_string(values[i]);
    } else {
      values[i] = parts_[i].Write(bytes, out);
    }
  }
  out += '}';
}

}  // namespace fuzz
