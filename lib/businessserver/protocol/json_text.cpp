#include "protocol/json_text.h"

#include <json/reader.h>
#include <json/writer.h>

#include <algorithm>
#include <exception>
#include <memory>
#include <sstream>

namespace businessserver {

namespace {

// The character after a comment or text that begins at the head of rest, as the reader sees them.
size_t CommentLength(std::string_view rest) {
  if (rest.substr(0, 2) == "/*") return std::min(rest.find("*/", 2), rest.size() - 2) + 2;
  return std::min(rest.find_first_of("\r\n"), rest.size());
}

size_t QuotedLength(std::string_view rest) {
  size_t at = 1;
  while (at < rest.size() && rest[at] != '"') at += rest[at] == '\\' ? 2 : 1;
  return std::min(at + 1, rest.size());
}

// Whether the document at the head of text keeps within the limits. Found out before it is read: what is read takes up
// to a hundred times the memory of its text, and its styled text grows with the square of its depth. Up to the first
// error this sees the same document as the reader, which goes no deeper after one.
bool KeepsLimits(std::string_view text) {
  size_t depth = 0, values = 1;
  for (size_t at = 0; at < text.size();) {
    const char c = text[at];
    const std::string_view rest = text.substr(at);
    if (c == '"') {
      at += QuotedLength(rest);
      continue;
    }
    if (c == '/' && (rest.substr(0, 2) == "/*" || rest.substr(0, 2) == "//")) {
      at += CommentLength(rest);
      continue;
    }
    ++at;
    if (c == '[' || c == '{') {
      if (++depth > kMaxJsonDepth || ++values > kMaxJsonValues) return false;
    } else if (c == ',') {
      if (++values > kMaxJsonValues) return false;
    } else if (c == ']' || c == '}') {
      if (depth <= 1) return true;  // what follows the document is not read
      --depth;
    }
  }
  return true;
}

bool IsPlain(const Json::Value& value) {
  return !value.hasComment(Json::commentBefore) && !value.hasComment(Json::commentAfterOnSameLine) &&
         !value.hasComment(Json::commentAfter);
}

bool AppendQuoted(const char* begin, const char* end, std::string& text) {
  const auto is_plain = [](char c) { return c >= ' ' && c < 0x7F && c != '"' && c != '\\'; };
  if (!std::all_of(begin, end, is_plain)) return false;
  text += '"';
  text.append(begin, end);
  text += '"';
  return true;
}

enum class Place { kOwnLine, kAfterName };

// The styled text of nearly every document of the device: whole numbers, truth values and ASCII texts, in lists and
// objects of any depth, in a third of the library's steps: its texts were a third of what a request or a result took.
// False for anything else, whose text is then unfinished. line_start is a line feed and the indentation.
bool AppendPlain(const Json::Value& value, Place place, const std::string& line_start, std::string& text) {
  if (!IsPlain(value)) return false;
  const char* begin = nullptr;
  const char* end = nullptr;
  switch (value.type()) {
    case Json::nullValue:
      text += "null";
      return true;
    case Json::booleanValue:
      text += value.asBool() ? "true" : "false";
      return true;
    case Json::intValue:
      text += std::to_string(value.asLargestInt());
      return true;
    case Json::uintValue:
      text += std::to_string(value.asLargestUInt());
      return true;
    case Json::stringValue:
      return value.getString(&begin, &end) && AppendQuoted(begin, end, text);
    case Json::arrayValue:
    case Json::objectValue:
      break;
    default:
      return false;
  }

  const bool is_object = value.isObject();
  if (value.empty()) {
    text += is_object ? "{}" : "[]";
    return true;
  }
  if (place == Place::kAfterName) text += line_start;
  text += is_object ? '{' : '[';
  const std::string member_start = line_start + '\t';
  for (auto member = value.begin(); member != value.end(); ++member) {
    if (member != value.begin()) text += ',';
    text += member_start;
    if (is_object) {
      begin = member.memberName(&end);
      if (!AppendQuoted(begin, end, text)) return false;
      text += " : ";
    }
    if (!AppendPlain(*member, is_object ? Place::kAfterName : Place::kOwnLine, member_start, text)) return false;
  }
  text += line_start;
  text += is_object ? '}' : ']';
  return true;
}

// The library quotes what is no number. Documents hold what is not everybody's to read.
std::string ErrorText(const std::string& message, ptrdiff_t offset) {
  const bool quotes = message.front() == '\'';
  return (quotes ? "No number" : message.substr(0, message.find_last_not_of(".\n") + 1)) + " at byte " +
         std::to_string(offset);
}

}  // namespace

bool ParseJson(std::string_view text, Json::Value& document, std::string* problem) {
  const auto fail = [problem](const std::string& what) {
    if (problem != nullptr) *problem = what;
    return false;
  };
  if (!KeepsLimits(text)) {
    document = Json::Value();
    return fail("more than " + std::to_string(kMaxJsonDepth) + " levels or " + std::to_string(kMaxJsonValues) +
                " values");
  }
// Kept: the library's newer reader accepts other texts, and stored documents depend on the difference.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  Json::Reader reader;
#pragma GCC diagnostic pop
  try {
    if (reader.parse(text.data(), text.data() + text.size(), document, true)) return true;
    const auto errors = reader.getStructuredErrors();
    return fail(errors.empty() ? "no JSON" : ErrorText(errors.front().message, errors.front().offset_start));
  } catch (const std::exception& error) {  // the library's own limits
    return fail(error.what());
  }
}

// What Json::Value::toStyledString gives. The library's writer serves the rare document; with a stream made once, since
// making one costs more than writing a reply.
std::string StyledText(const Json::Value& document) {
  std::string text;
  if (AppendPlain(document, Place::kOwnLine, "\n", text)) return text += '\n';
  static const std::unique_ptr<Json::StreamWriter> writer(Json::StreamWriterBuilder().newStreamWriter());
  static std::ostringstream stream;
  stream.str(std::string());
  stream.clear();
  if (document.hasComment(Json::commentBefore)) stream << '\n';
  writer->write(document, &stream);
  stream << '\n';
  return stream.str();
}

}  // namespace businessserver
