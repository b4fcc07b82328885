#include "script/script.h"

#include <fstream>
#include <sstream>

#include "script/script_words.h"

namespace desk {
namespace {

Statement ParseStatement(const std::string& text) {
  Statement statement;
  statement.text = text;
  Words words(text);
  if (words.Take("wait")) {
    statement.kind = Statement::Kind::kWait;
    statement.wait = words.Duration();
    words.RequireEnd();
    return statement;
  }
  if (words.Take("expect")) {
    statement.kind = Statement::Kind::kExpect;
    statement.expectation = ParseExpectation(words);
    return statement;
  }
  const ActionWords* action = TakeActionWords(words);
  if (action == nullptr) {
    throw ScriptMistake("\"" + words.Peek() + "\" is not a word that scripts know; there are " + KnownActions());
  }
  try {
    statement.kind = action->kind;
    statement.act = action->parse(words);
    words.RequireEnd();
  } catch (const ScriptMistake& mistake) {
    throw ScriptMistake(std::string(mistake.what()) + "\n    usage: " + action->usage);
  }
  return statement;
}

std::string Trimmed(const std::string& line) {
  const size_t from = line.find_first_not_of(" \t\r");
  if (from == std::string::npos) return "";
  return line.substr(from, line.find_last_not_of(" \t\r") - from + 1);
}

}  // namespace

bool ParseScript(const std::string& file, const std::string& text, Script& script, std::vector<std::string>& mistakes) {
  script.file = file;
  const size_t mistakes_before = mistakes.size();
  std::istringstream lines(text);
  int number = 0;
  for (std::string line; std::getline(lines, line);) {
    const int first = ++number;
    std::string whole = Trimmed(line);
    while (!whole.empty() && whole.back() == '\\' && std::getline(lines, line)) {  // goes on in the next line
      whole.pop_back();
      whole = Trimmed(whole) + " " + Trimmed(line);
      ++number;
    }
    if (whole.empty() || whole[0] == '#') continue;
    try {
      script.statements.push_back(ParseStatement(whole));
      script.statements.back().line = first;
    } catch (const ScriptMistake& mistake) {
      mistakes.push_back(file + ":" + std::to_string(first) + ": " + mistake.what());
    }
  }
  return mistakes.size() == mistakes_before;
}

bool ReadScript(const std::string& file, Script& script, std::vector<std::string>& mistakes) {
  std::ifstream stream(file, std::ios::binary);
  std::ostringstream text;
  text << stream.rdbuf();
  if (stream.fail() || text.fail()) {
    mistakes.push_back(file + ": cannot be read");
    return false;
  }
  return ParseScript(file, text.str(), script, mistakes);
}

}  // namespace desk
