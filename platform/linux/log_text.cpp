#include "log_text.h"

#include <cstdint>

namespace platform {

namespace {

constexpr bool IsPlain(unsigned char byte) { return byte >= 0x20 && byte < 0x7F; }

// Length of the printable multi-byte character at the head of text, 0 when there is none: a stray or missing
// continuation byte, an overlong form, a surrogate, a value past U+10FFFF, or one of the control characters U+0080 to
// U+009F, which terminals obey.
size_t MultiByteLength(std::string_view text) {
  const auto byte = [&](size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned char lead = byte(0);
  const size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || text.size() < length) return 0;
  uint32_t code = lead & (0xFFu >> (length + 1));
  for (size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
    code = code << 6 | (byte(i) & 0x3F);
  }
  constexpr uint32_t kFirstOfLength[] = {0, 0, 0xA0, 0x800, 0x10000};
  const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
  return code < kFirstOfLength[length] || code > 0x10FFFF || surrogate ? 0 : length;
}

void AppendEscape(unsigned char byte, spdlog::memory_buf_t* line) {
  constexpr char kDigits[] = "0123456789ABCDEF";
  const char hex[] = {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 15]};
  const std::string_view escape = byte == '\n' ? "\\n" : byte == '\t' ? "\\t" : std::string_view(hex, sizeof hex);
  line->append(escape.data(), escape.data() + escape.size());
}

}  // namespace

void AppendLogText(std::string_view text, spdlog::memory_buf_t* line) {
  while (!text.empty()) {
    size_t length = 0;
    while (length < text.size() && IsPlain(static_cast<unsigned char>(text[length]))) ++length;
    if (length == 0 && static_cast<unsigned char>(text[0]) >= 0x80) length = MultiByteLength(text);
    if (length == 0) {
      AppendEscape(static_cast<unsigned char>(text[0]), line);
      length = 1;
    } else {
      line->append(text.data(), text.data() + length);
    }
    text.remove_prefix(length);
  }
}

}  // namespace platform
