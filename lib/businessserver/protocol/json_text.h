// JSON texts in and out, in the one dialect that the device's documents rely on: the classic reader (comments kept,
// trailing commas refused, text after the document ignored) and the styled writer (tabs, one value a line).
#pragma once

#include <json/value.h>

#include <string>
#include <string_view>

namespace businessserver {

// Deeper or of more values than anything that the device keeps or says: such a text is no JSON to it.
constexpr size_t kMaxJsonDepth = 64;
constexpr size_t kMaxJsonValues = 32768;

// Parses text into document. False when it is not JSON, the document then holding what the reader had built before it
// met the error, or beyond the limits above, the document then being null. Never throws. problem, where it is wanted,
// is what was wrong, without a word of the text: "Missing ',' or '}' in object declaration at byte 17".
bool ParseJson(std::string_view text, Json::Value& document, std::string* problem = nullptr);

// The styled text of a document, ending in a line feed.
std::string StyledText(const Json::Value& document);

}  // namespace businessserver
