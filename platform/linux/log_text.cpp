#include "log_text.h"

#include "shown_text.h"

namespace platform {

namespace {

// Most of most records.
constexpr bool IsPlain(unsigned char byte) { return byte >= 0x20 && byte < 0x7F; }

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
    if (length == 0) length = ShownLength(text);
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
