#include "script/script_words.h"

#include <cctype>
#include <cstdlib>

#include "plain_words.h"
#include "protocol/parking_result.h"

namespace desk {
namespace {

constexpr double kLongestWait = 1e6;  // in the script's unit

bool IsBlank(char c) { return c == ' ' || c == '\t'; }

}  // namespace

size_t Words::SkipBlanks(size_t at) const {
  while (at < line_.size() && IsBlank(line_[at])) ++at;
  return at;
}

std::string Words::WordAt(size_t& at) const {
  at = SkipBlanks(at);
  std::string word;
  if (at < line_.size() && (line_[at] == '{' || line_[at] == '[')) {
    word = line_.substr(at);
    at = line_.size();
    return word;
  }
  for (bool quoted = false; at < line_.size() && (quoted || !IsBlank(line_[at])); ++at) {
    if (line_[at] == '"') {
      quoted = !quoted;
    } else {
      word += line_[at];
    }
  }
  return word;
}

bool Words::AtEnd() const { return SkipBlanks(at_) >= line_.size(); }

std::string Words::Peek() const {
  size_t at = at_;
  return WordAt(at);
}

std::string Words::Next(const std::string& what) {
  if (AtEnd()) throw ScriptMistake(what + " is missing");
  return WordAt(at_);
}

std::string Words::Rest() {
  const size_t from = SkipBlanks(at_);
  at_ = line_.size();
  size_t end = line_.size();
  while (end > from && IsBlank(line_[end - 1])) --end;
  return line_.substr(from, end - from);
}

bool Words::Take(const std::string& word) {
  size_t at = at_;
  if (AtEnd() || WordAt(at) != word) return false;
  at_ = at;
  return true;
}

void Words::Require(const std::string& word) {
  if (!Take(word)) throw ScriptMistake("\"" + word + "\" was expected, not \"" + Peek() + "\"");
}

uint32_t Words::Number(const std::string& what) {
  const std::string word = Next(what);
  char* end = nullptr;
  const unsigned long long value = strtoull(word.c_str(), &end, 10);
  if (!isdigit(static_cast<unsigned char>(word[0])) || *end != '\0' || value > UINT32_MAX) {
    throw ScriptMistake(what + " must be a number, not \"" + word + "\"");
  }
  return static_cast<uint32_t>(value);
}

size_t Words::Space() {
  Require("space");
  const uint32_t space = Number("the number of the space");
  if (space < 1 || space > businessserver::kSpaces) throw ScriptMistake("spaces are numbered 1 to 3");
  return space;
}

uint32_t Words::Address() {
  const std::string word = Next("an address");
  uint32_t ip = 0;
  if (!words::ParseAddress(word, ip)) throw ScriptMistake("\"" + word + "\" is no address like 192.168.1.20");
  return ip;
}

std::string Words::Hex() {
  std::string bytes;
  const std::string text = Rest();
  if (!words::ParseHex(text, bytes) || bytes.empty())
    throw ScriptMistake("\"" + text + "\" are no bytes like AA 01 17");
  return bytes;
}

Loop::Milliseconds Words::Duration() {
  const std::string word = Next("a number of seconds");
  char* end = nullptr;
  const double value = strtod(word.c_str(), &end);
  if (word.empty() || *end != '\0' || !(value >= 0 && value <= kLongestWait))
    throw ScriptMistake("\"" + word + "\" is no number of seconds");
  if (Take("ms")) return Loop::Milliseconds(static_cast<int64_t>(value));
  Require("s");
  return Loop::Milliseconds(static_cast<int64_t>(value * 1000));
}

Facts Words::FactsToCompare() {
  Facts facts;
  while (!AtEnd() && Peek() != "within" && Peek() != "for") {
    const std::string word = Next("");
    const size_t sign = word.find('=');
    if (sign == std::string::npos || sign == 0) throw ScriptMistake("name=value was expected, not \"" + word + "\"");
    facts.emplace_back(word.substr(0, sign), word.substr(sign + 1));
  }
  return facts;
}

void Words::RequireEnd() {
  if (!AtEnd()) throw ScriptMistake("nothing more was expected, but there is \"" + Rest() + "\"");
}

}  // namespace desk
