// Bytes that arrive on the external line, in bursts: all of them are broadcast, and the tools account for each.
#include "base64.h"
#include "devicesdk/tty_io.h"
#include "harness.h"
#include "plain_words.h"
#include "serial_decoder.h"

static void CheckTools(const std::string& bytes) {
  Json::Value fields;
  fuzz::ParseJson(fuzz::DefaultDocument(fuzz::kRs485pro.default_index), fields);
  const std::vector<uint8_t> copy(bytes.begin(), bytes.end());
  size_t described = 0;
  for (const auto& frame : words::DecodeBurst(copy.data(), copy.size(), fields)) {
    MUST_HOLD(frame.size >= 1 && !frame.Text().empty());
    described += frame.size;
  }
  MUST_HOLD(described == copy.size());
  std::string text;
  words::ParseHex(bytes, text);
  MUST_HOLD(words::ParseHex(words::HexText(copy.data(), copy.size()), text) && text == bytes);
  for (const char c : words::Printable(bytes + words::GbkToUtf8(bytes))) {
    MUST_HOLD(static_cast<uint8_t>(c) >= 0x20 && c != 0x7F);
  }
  words::Utf8ToGbk(bytes, text);
}

FUZZ_TARGET(input) {
  CheckTools(std::string(input));
  fuzz::WithServer(input, [&] {
    Fake().Advance(100);
    for (const std::string_view burst : fuzz::Parts(input)) {
      fuzz::CheckPublished();
      fuzz::TheBoard().Say(fuzz::TTY_DEV_UART2, burst);
      Fake().Advance(100);
      std::string heard;
      for (const auto& message : Fake().sent) {
        const Json::Value body = fuzz::MustParse(message.data)[fuzz::kBody];
        const std::string text = body[fuzz::kData].asString();
        heard += lxbase::Base64::DecodeFromArray(text.data(), text.size(), 21, nullptr);
      }
      MUST_HOLD(heard == burst);
    }
  });
}
