// JSON that people write: strictly read, and what is wrong with it said in one line.
#pragma once

#include <json/value.h>

#include <string>
#include <string_view>

namespace contract {

enum class Comments { kAllowed, kRefused };

constexpr size_t kTextLimit = 16 * 1024 * 1024;  // no document of a device or a site is longer

// False, with the problem as the end of a sentence ("is cut off: ..."), for what is no JSON, or more than that: text
// behind it, a member twice, a byte-order mark, bytes that are no UTF-8, more than kTextLimit. Never throws.
bool ParseStrictly(std::string_view text, Comments comments, Json::Value& document, std::string& problem);

// Whether all of it is well-formed UTF-8.
bool IsUtf8(std::string_view text);

}  // namespace contract
