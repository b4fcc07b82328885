// A schema as a table for people.
#pragma once

#include <string>
#include <vector>

#include <json/value.h>

namespace contract {

// A member of a document, with the path to it: "body.pro_cfg[].header".
struct Member {
  std::string path;
  Json::Value schema;
  bool required;
};

// Every member below a schema, depth first, in the order in which they are written. Members of lists are those of one
// entry; of alternatives those of the first.
std::vector<Member> AllMembers(const Json::Value& schema);

// Title, purpose, and a row for each member: what it takes, its default, what it means. In lines that fit the width.
std::string Explain(const std::string& name, size_t width = 100);

}  // namespace contract
