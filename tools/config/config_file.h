// A device's configuration in one file: every document that has a command of its own to set it, and the relay's.
//
//   {"version": 1, "device": "L2-B-014", "documents": {"device_ttyio_value": {...}, ..., "relay_value": {...}}}
//
// "device" is its name in its site, missing where it belongs to none. The form is parkctl's own.
#pragma once

#include <json/value.h>

#include <string>
#include <string_view>
#include <vector>

namespace config {

constexpr int kFileVersion = 1;

// A document that a configuration can hold.
struct Part {
  std::string name;             // its key, e.g. "device_ttyio_value"
  std::string storing_command;  // "set_ttyio_cfg"
  std::string reading_command;  // "get_ttyio_cfg"
};

// In the order in which they are set: what can cut the device off comes last, the relay's document after all others.
const std::vector<Part>& Parts();
const Part* FindPart(std::string_view name);
constexpr char kRelayDocument[] = "relay_value";

struct Document {
  const Part* part;
  Json::Value value;
};

struct Configuration {
  std::string device;               // empty: it has no name
  std::vector<Document> documents;  // in the order of Parts()
};

// The request that stores a document.
Json::Value StoringRequest(const Part& part, const Json::Value& value);

// Everything that is wrong with a file, one sentence each with the place before it; nothing for one that is good. It
// is strict: unknown members are mistakes.
std::vector<std::string> ReadFile(std::string_view text, Configuration& configuration);

std::string FileText(const Configuration& configuration);

// The name by which a configuration calls its device: that of its relay's document.
std::string DeviceNameIn(const Configuration& configuration);

struct Change {
  const Part* part;
  Json::Value before;  // null where nothing is known to be stored
  Json::Value after;
};

// What has to be set on a device that holds the one to make it hold the other. Documents that `wanted` does not name
// stay as they are.
std::vector<Change> Difference(const Configuration& held, const Configuration& wanted);

}  // namespace config
