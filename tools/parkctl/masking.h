// What of a document may be told to whoever helps: everything but keys, passwords and plates.
#pragma once

#include <json/value.h>

#include <string>
#include <string_view>

namespace parkctl {

// Values of members that hold such things are "(masked)".
Json::Value Masked(const Json::Value& document);

// Of a text that is no JSON nothing tells what its values are: all is masked but names of members, numbers and
// punctuation. The place of a mistake can still be seen.
std::string MaskedText(std::string_view text);

}  // namespace parkctl
