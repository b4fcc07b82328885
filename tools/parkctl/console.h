// How parkctl takes what a person gives it and answers a person.
#pragma once

#include <json/value.h>

#include <stdexcept>
#include <string>
#include <vector>

#include "contract/check.h"

#include "json_words.h"

namespace parkctl {

enum ExitStatus {
  kDone = 0,      // for a request: the device answered state 200
  kRefused = 1,   // another state, or nothing could be made of what was given
  kNoAnswer = 2,  // device, bus or store out of reach
  kMisused = 3,   // the command line itself
};

// What the user can mend: main prints the text and ends with kMisused.
class UserError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

void Note(const std::string& text);  // "parkctl: text" on standard error

enum class Paint { kNone, kGood, kBad, kFaint, kStrong, kBlue, kYellow, kMagenta };

// text in colour when standard output is a terminal (and NO_COLOR is not set), else text.
std::string Painted(Paint paint, const std::string& text);

using words::IndentedText;
using words::OneLineText;

// An argument: itself, the content of a file for "@file", standard input for "-".
std::string ReadSource(const std::string& argument);

// Comments are allowed. Throws UserError with the place of the mistake; what names the text, e.g. "the body".
Json::Value ParseUserJson(const std::string& text, const std::string& what);

// A line on standard error for each fault. True: there is none.
bool SayFaults(const std::vector<contract::Fault>& faults);

// A whole number between the limits, or UserError. what names it, e.g. "--confidence".
long long ParseNumber(const std::string& text, long long least, long long most, const std::string& what);

}  // namespace parkctl
