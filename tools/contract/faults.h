// The words of check.h: walks a document along its schema and says what does not fit. It knows the keywords that
// contract/ uses, those of the contract's own ("x-...") included.
#pragma once

#include <json/value.h>

#include <string>
#include <string_view>
#include <vector>

#include "contract/check.h"

namespace contract {

struct Finding {
  Fault fault;
  bool only_ours;  // of a rule that JSON Schema does not know
};

std::vector<Finding> FindFaults(const Json::Value& schema, const Json::Value& document);

// What a schema asks for, as part of a sentence: "a whole number from 0 to 255".
std::string Expected(const Json::Value& schema);

// The values of a choice with their meanings: "0 (off), 1 (on)".
std::string Choices(const Json::Value& schema);

// A pattern of the contract for a matcher of bytes. Texts beyond kMatchedBytes match none: the matcher's memory grows
// with them.
constexpr size_t kMatchedBytes = 4096;
std::string BytePattern(const std::string& pattern);
bool Matches(const std::string& pattern, const std::string& text);

}  // namespace contract
