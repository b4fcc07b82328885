#include "console.h"

#include <unistd.h>

#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>

#include "contract/json_text.h"
#include "plain_words.h"

namespace parkctl {

namespace {

std::string ReadAll(std::istream& stream, const std::string& what) {
  std::string text;
  char buffer[4096];
  while (stream.read(buffer, sizeof buffer) || stream.gcount() > 0) {
    text.append(buffer, static_cast<size_t>(stream.gcount()));
    if (text.size() > contract::kTextLimit) throw UserError(what + " is larger than 16 MiB: is it the right one?");
  }
  if (stream.bad()) throw UserError(what + " cannot be read");
  return text;
}

}  // namespace

void Note(const std::string& text) { std::cerr << "parkctl: " << text << std::endl; }

std::string Painted(Paint paint, const std::string& text) {
  static const bool on_terminal = isatty(STDOUT_FILENO) == 1 && getenv("NO_COLOR") == nullptr;
  static constexpr const char* kCodes[] = {"", "32", "31", "2", "1", "36", "33", "35"};
  if (!on_terminal || paint == Paint::kNone) return text;
  return std::string("\033[") + kCodes[static_cast<int>(paint)] + "m" + text + "\033[0m";
}

std::string ReadSource(const std::string& argument) {
  if (argument == "-") return ReadAll(std::cin, "standard input");
  if (argument.empty() || argument[0] != '@') return argument;
  const std::string path = argument.substr(1);
  std::ifstream file(path, std::ios::binary);
  if (!file) throw UserError("cannot open '" + path + "'");
  return ReadAll(file, "'" + path + "'");
}

Json::Value ParseUserJson(const std::string& text, const std::string& what) {
  Json::Value document;
  std::string problem;
  if (contract::ParseStrictly(text, contract::Comments::kAllowed, document, problem)) return document;
  throw UserError(what + " " + problem);
}

bool SayFaults(const std::vector<contract::Fault>& faults) {
  for (const contract::Fault& fault : faults) std::cerr << fault.Text() << "\n";
  return faults.empty();
}

long long ParseNumber(const std::string& text, long long least, long long most, const std::string& what) {
  long long number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error == std::errc() && end == text.data() + text.size() && number >= least && number <= most) return number;
  throw UserError(what + ": '" + words::Printable(text) + "' is no number from " + std::to_string(least) + " to " +
                  std::to_string(most));
}

}  // namespace parkctl
