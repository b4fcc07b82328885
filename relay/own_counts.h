// What this device sees itself, told from what the daemon broadcasts: its sums contain what the relay has pushed, and
// name it.
#pragma once

#include <array>
#include <optional>
#include <string_view>

#include "relay/documents.h"

namespace relay {

// What one broadcast says.
struct Frame {
  std::optional<Counts> own;                                // none when more was pushed than the sums hold
  std::array<std::optional<Counts>, kDirections> reflects;  // what the daemon holds of what was pushed, by direction
};

// A push names its direction as device 1 to 4.
constexpr uint32_t PushAddress(size_t direction) { return static_cast<uint32_t>(direction) + 1; }

// Reads a message of BUS_BROADCAST_MESSAGE. Nothing for one that is no frame_changed, or none that can be read.
std::optional<Frame> ReadFrame(std::string_view text);

// The text of BUS_NET_PUSH for a direction.
std::string PushText(size_t direction, const Counts& counts);

}  // namespace relay
