// Whether a document is valid by its schema, and what is wrong with it in words for people.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

namespace contract {

struct Fault {
  std::string place;   // "body.pro_cfg[3].header"; empty for the whole
  std::string reason;  // "12345 is none of 300, 1200, ... 115200"

  std::string Text() const { return place.empty() ? reason : place + ": " + reason; }
};

// Everything that is wrong, in the order of the schema; nothing for a valid document. name as in schemas.h; throws
// std::out_of_range for one that is none.
std::vector<Fault> Check(const std::string& name, const Json::Value& document);

}  // namespace contract
