// JSON documents as text for people and programs.
#pragma once

#include <json/value.h>

#include <string>
#include <utility>
#include <vector>

namespace words {

std::string CompactText(const Json::Value& document);   // one line, characters as they are: for programs
std::string OneLineText(const Json::Value& document);   // one line that cannot steer a terminal
std::string IndentedText(const Json::Value& document);  // for people; lines that cannot steer a terminal

// Every value of a document by the path to it, "cm_dev.0.ip"; plain values before what lies deeper, for a list may be
// longer than the line. An empty list or object is a value. The document has to outlive what is returned.
std::vector<std::pair<std::string, const Json::Value*>> Leaves(const Json::Value& document);

// At most this many bytes, not cut within a character, with "..." for what is missing.
std::string Beginning(const std::string& utf8, size_t most);

}  // namespace words
