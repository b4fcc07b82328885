// Builds the frame that reports one space's result on the external serial line. Which fields it has, and in which
// order, comes from a configuration document: {"pro_cfg": [{"header": "BB88"}, {"enable": 1}, ...]}.
// Used from the event loop's thread only.
#pragma once

#include <json/value.h>

#include <array>
#include <boost/enable_shared_from_this.hpp>
#include <cstdint>
#include <memory>
#include <string>

#include "protocol/parking_result.h"
#include "rs485pro/frame_fields.h"

namespace businessserver {

class Rs485ProBuild : public boost::enable_shared_from_this<Rs485ProBuild> {
 public:
  Rs485ProBuild();
  ~Rs485ProBuild();

  // Applies a configuration; false when it is refused. A document that is no object, or whose list is no list or has
  // more than 20 entries, changes nothing. An entry that is refused ends the walk: the entries before it stay applied
  // until the caller applies another configuration. Without "pro_cfg" the frame is empty. Never throws.
  bool SetRs485Cfg(const Json::Value& cfg);
  bool SetRs485Str(const std::string& text);  // false also when the text is not JSON

  // Builds a frame; length receives its size in bytes. free_num and frame_num are counts of spaces. The result, valid
  // until the next call, is the builder's own buffer. Without a result the frame is empty.
  uint8_t* GetDevRs485ProData(unsigned int& length, unsigned int free_num, unsigned int frame_num,
                              const LX_ParkingResult* result);

  // The display frame for a count of spaces, in the same buffer.
  uint8_t* GetYBRs485ProData(unsigned int& length, unsigned int value, unsigned int address);

  // strcmp of two names; -1 when either is missing.
  static int CompareName(const char* const* a, const char* const* b);
  static uint8_t YbCheckXor(const uint8_t* data, int length);

  // Whether the last plate field began inside the checked range. Kept: one flag for all builders, cleared only when a
  // configuration is applied; receivers compute their check bytes by it.
  static uint8_t check_license_;

 private:
  friend struct BusinessServerTestAccess;

  struct Buffer {
    uint8_t bytes[kFrameCapacity];
  };
  struct Slot {
    uint32_t enabled = 0;
    const FrameField* field = nullptr;
  };

  bool ApplyFields(const Json::Value& fields);
  bool ApplyField(const Json::Value& entry, Slot& slot);

  std::unique_ptr<Buffer> buffer_;
  FrameSettings settings_;
  std::array<Slot, kFrameSlots> slots_ = {};
};

}  // namespace businessserver
