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

// What the device counts (the body of get_net_status), e.g. "3 free of 13: own 1 of 3, left 2 of 10".
std::string CountsByPosition(const Json::Value& counts);

// The same for machines: "type", "words", and "record", "document" or "hex", as the payload is.
Json::Value MessageJson(const std::string& type, const std::string& data, const Json::Value& field_list);

Paint MessagePaint(const std::string& type);

}  // namespace parkctl
