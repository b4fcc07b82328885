// Texts from strangers in the platform itself: log records stay one line of plain text, base64 is accepted only in
// the form in which it is written.
#include <string>

#include "base64.h"
#include "log_text.h"
#include "target.h"

FUZZ_TARGET(input) {
  const auto written = [](std::string_view text) {
    spdlog::memory_buf_t line;
    platform::AppendLogText(text, &line);
    return std::string(line.data(), line.size());
  };
  for (const char c : written(input)) MUST_HOLD(static_cast<uint8_t>(c) >= 0x20 && c != 0x7F);
  MUST_HOLD(written(written(input)) == written(input));

  int size = 0;
  const std::string data = lxbase::Base64::DecodeFromArray(input.data(), input.size(), 21, &size);
  MUST_HOLD(data.size() == static_cast<size_t>(size < 0 ? 0 : size));
  if (size >= 0) MUST_HOLD(lxbase::Base64::EncodeFromArray(data.data(), data.size()) == input);
}
