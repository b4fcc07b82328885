// The contract's schemas by name. A name is the path below contract/ without ".json": "requests/set_ttyio_cfg". They
// are read when first asked for, on one thread.
#pragma once

#include <json/value.h>

#include <string>
#include <string_view>
#include <vector>

namespace contract {

// Every schema of a folder ("requests"), or of all.
std::vector<std::string> Names(std::string_view folder = "");

bool Has(std::string_view name);

// The whole schema: what it refers to stands in it. Members that stand beside a reference (its own title, its own
// default) win over those referred to. Throws std::out_of_range for a name that is none.
const Json::Value& Schema(std::string_view name);

// The schema as it is written, without what only this library knows: for people and other programs.
Json::Value Printed(const Json::Value& schema);

// The members of an object's schema in the order in which they are written.
std::vector<std::string> Members(const Json::Value& schema);

// What a person may mean by a name: a whole one, or its last part, of which requests come first, then documents (whose
// "_value" may be left out), messages, the site's, parts, replies. Empty for none.
std::string Find(const std::string& name);

// The one of the names that is only slips of the keyboard away; empty for none.
std::string Nearest(const std::string& name, const std::vector<std::string>& names);

}  // namespace contract
