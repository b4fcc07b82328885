// The validator's verdict.
#pragma once

#include <json/value.h>

#include <string>

namespace contract {

// Whether the document is valid by JSON Schema draft-07; problem is then untouched, else the validator's own words.
// name is the key under which the schema is kept for the next time.
bool IsValid(const std::string& name, const Json::Value& schema, const Json::Value& document, std::string& problem);

}  // namespace contract
