// What a bus message says, in one line. Takes whatever arrives: any type, any payload.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

#include "console.h"

namespace parkctl {

// The types worth watching, and where they are answered when the requester names no place of its own.
std::vector<std::string> WatchedTypes();

// field_list reads the serial bytes that some messages carry.
std::string MessageWords(const std::string& type, const std::string& data, const Json::Value& field_list);

// The same for machines: "type", "words", and "record", "document" or "hex", as the payload is.
Json::Value MessageJson(const std::string& type, const std::string& data, const Json::Value& field_list);

Paint MessagePaint(const std::string& type);

}  // namespace parkctl
