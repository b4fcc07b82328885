#include "contract/json_text.h"

#include <json/reader.h>

#include <algorithm>
#include <exception>
#include <memory>
#include <vector>

#include "plain_words.h"

namespace contract {
namespace {

std::string Line(std::string_view text, size_t at) {
  const std::string_view before = text.substr(0, at);
  return "line " + std::to_string(1 + std::count(before.begin(), before.end(), '\n'));
}

// Bytes of the well-formed UTF-8 character at the head of text; 0 when there is none.
size_t CharacterBytes(std::string_view text) {
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
  const size_t length = byte(0) < 0x80 ? 1 : byte(0) < 0xC2 ? 0 : byte(0) < 0xE0 ? 2 : byte(0) < 0xF0 ? 3 : 4;
  if (length == 0 || byte(0) > 0xF4 || text.size() < length) return 0;
  for (size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
  }
  const bool overlong = (byte(0) == 0xE0 && byte(1) < 0xA0) || (byte(0) == 0xF0 && byte(1) < 0x90);
  const bool no_character = (byte(0) == 0xED && byte(1) > 0x9F) || (byte(0) == 0xF4 && byte(1) > 0x8F);
  return overlong || no_character ? 0 : length;
}

// What the bytes alone tell.
std::string ProblemOfBytes(std::string_view text) {
  if (text.size() > kTextLimit) return "is larger than 16 MiB: is it the right one?";
  if (text.substr(0, 3) == "\xEF\xBB\xBF") return "begins with a byte-order mark: save it as UTF-8 without one";
  if (text.substr(0, 2) == "\xFF\xFE" || text.substr(0, 2) == "\xFE\xFF") return "is UTF-16: save it as UTF-8";
  if (text.find_first_not_of(" \t\r\n") == std::string_view::npos) return "is empty";
  for (size_t at = 0; at < text.size();) {
    const size_t bytes = CharacterBytes(text.substr(at));
    if (bytes == 0) return "is not UTF-8, see " + Line(text, at);
    if (text[at] == '\0') return "holds a NUL character, see " + Line(text, at);
    at += bytes;
  }
  return "";
}

// Where the text ends inside of something: the place of what is never closed. npos for a text that ends outside.
size_t LeftOpen(std::string_view text) {
  std::vector<size_t> starts;
  for (size_t at = 0; at < text.size(); ++at) {
    const char c = text[at];
    if (c == '"') {
      const size_t start = at++;
      while (at < text.size() && text[at] != '"') at += text[at] == '\\' ? 2 : 1;
      if (at >= text.size()) return start;
    } else if (c == '{' || c == '[') {
      starts.push_back(at);
    } else if ((c == '}' || c == ']') && !starts.empty()) {
      starts.pop_back();
    }
  }
  return starts.empty() ? std::string_view::npos : starts.back();
}

// Outside of texts nothing but a comment has a slash.
bool HasComment(std::string_view text) {
  for (size_t at = 0; at < text.size(); ++at) {
    if (text[at] == '/') return true;
    if (text[at] != '"') continue;
    for (++at; at < text.size() && text[at] != '"'; ++at) at += text[at] == '\\' ? 1 : 0;
  }
  return false;
}

bool Parse(std::string_view text, bool comments, Json::Value& document, std::string& errors) {
  Json::CharReaderBuilder builder;
  builder["collectComments"] = false;
  builder["allowComments"] = comments;
  builder["allowTrailingCommas"] = false;
  builder["failIfExtra"] = true;
  builder["rejectDupKeys"] = true;
  const std::unique_ptr<Json::CharReader> reader(builder.newCharReader());
  try {
    return reader->parse(text.data(), text.data() + text.size(), &document, &errors);
  } catch (const std::exception& error) {  // nested too deep
    errors = error.what();
    return false;
  }
}

// The reader's "* Line 1, Column 10\n  Missing ...\n", as part of a sentence.
std::string OneLine(const std::string& errors) {
  std::string line;
  for (const char c : errors) {
    const bool blank = c == '\n' || c == ' ' || c == '*';
    if (!blank) {
      line += c;
    } else if (!line.empty() && line.back() != ' ') {
      line += ' ';
    }
  }
  while (!line.empty() && line.back() == ' ') line.pop_back();
  return words::Printable(line);
}

}  // namespace

bool IsUtf8(std::string_view text) {
  while (!text.empty()) {
    const size_t bytes = CharacterBytes(text);
    if (bytes == 0) return false;
    text.remove_prefix(bytes);
  }
  return true;
}

bool ParseStrictly(std::string_view text, Comments comments, Json::Value& document, std::string& problem) {
  problem = ProblemOfBytes(text);
  if (!problem.empty()) return false;
  std::string errors;
  // The reader lets comments between members pass, allowed or not.
  const bool commented = comments == Comments::kRefused && HasComment(text);
  if (Parse(text, true, document, errors) && !commented) return true;
  const size_t open = LeftOpen(text);
  if (commented && errors.empty()) {
    problem = "holds comments, which would be lost: take them out";
  } else if (open != std::string_view::npos) {
    problem = std::string("is cut off: the ") + text[open] + " of " + Line(text, open) + " is never closed";
  } else {
    problem = "is not JSON: " + OneLine(errors);
  }
  return false;
}

}  // namespace contract
