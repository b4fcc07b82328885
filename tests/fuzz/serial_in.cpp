// Bytes that arrive on the external line, in bursts: all of them are broadcast.
#include "base64.h"
#include "devicesdk/tty_io.h"
#include "harness.h"

FUZZ_TARGET(input) {
  fuzz::WithServer(input, [&] {
    Fake().Advance(40);
    for (const std::string_view burst : fuzz::Parts(input)) {
      fuzz::CheckPublished();
      fuzz::TheBoard().Say(fuzz::TTY_DEV_UART2, burst);
      Fake().Advance(40);
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
