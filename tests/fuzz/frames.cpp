// A frame configuration and, behind a NUL, a result: the frame fits its buffer, carries nothing of the frame before it,
// and the decoder accounts for every byte of it. A refused list is applied in part: its frame must fit all the same.
#include <climits>
#include <memory>

#include "fake_platform/fake_platform.h"
#include "protocol/json_text.h"
#include "rs485pro/rs485pro.h"
#include "serial_decoder.h"
#include "target.h"

namespace bs = businessserver;

FUZZ_TARGET(input) {
  Fake().least_level = INT_MAX;
  const std::string text(input.substr(0, input.find('\0')));
  input.remove_prefix(std::min(text.size() + 1, input.size()));
  const auto result = std::make_unique<bs::LX_ParkingResult>();
  memcpy(result.get(), input.data(), std::min(input.size(), sizeof *result));

  Json::Value list;
  bs::ParseJson(text, list);
  bs::Rs485ProBuild builder;
  builder.SetRs485Cfg(list);
  unsigned length = 0;
  const uint8_t* const frame = builder.GetDevRs485ProData(length, 3, 2, result.get());
  MUST_HOLD(length <= bs::kFrameCapacity);
  const std::vector<uint8_t> copy(frame, frame + length);
  static const auto other = [] {
    bs::LX_ParkingResult result;
    memset(&result, 0x7F, sizeof result);
    result.plate_type = bs::kLongPlateType;
    return result;
  }();
  builder.GetDevRs485ProData(length, ~0u, ~0u, &other);
  builder.GetDevRs485ProData(length, 3, 2, result.get());
  MUST_HOLD(std::vector<uint8_t>(frame, frame + length) == copy);

  size_t described = 0;
  for (const auto& part : words::DecodeBurst(copy.data(), copy.size(), list)) {
    MUST_HOLD(!part.Text().empty());
    described += part.size;
  }
  MUST_HOLD(described == length);
}
