// Standard base64 with padding (RFC 4648, section 4).
#pragma once

#include <cstddef>
#include <string>

namespace lxbase {

class Base64 {
 public:
  static std::string EncodeFromArray(const void* data, size_t size);

  // The flag is the codec's own. Returns the decoded bytes, empty when the text is malformed; *decoded_size, when
  // given, receives their number, or -1 for a malformed text.
  static std::string DecodeFromArray(const char* text, size_t size, int flag, int* decoded_size);
};

}  // namespace lxbase
