#include "rs485pro/rs485pro.h"

#include <cstring>

#include "log.h"
#include "protocol/json_text.h"
#include "protocol/names.h"
#include "rs485pro/fixed_frames.h"

namespace businessserver {

namespace {

constexpr char kLogSource[] = "lib/businessserver/rs485pro/rs485pro";

}  // namespace

uint8_t Rs485ProBuild::check_license_ = 0;

Rs485ProBuild::Rs485ProBuild() : buffer_(std::make_unique<Buffer>()) {}

Rs485ProBuild::~Rs485ProBuild() { BS_LOG(kLifecycle) << "~Rs485ProBuild"; }

bool Rs485ProBuild::SetRs485Str(const std::string& text) {
  Json::Value cfg;
  return ParseJson(text, cfg) && SetRs485Cfg(cfg);
}

bool Rs485ProBuild::SetRs485Cfg(const Json::Value& cfg) {
  if (!cfg.isObject()) return false;
  const Json::Value& fields = cfg[kProCfg];
  if (!(fields.isNull() || fields.isArray()) || fields.size() > kFrameSlots) {
    BS_LOG(kError) << kProCfg << " is not a list of at most " << kFrameSlots << " entries";
    return false;
  }

  // Header, trailer and check settings stay until an entry names them.
  for (Slot& slot : slots_) slot = Slot();
  check_license_ = 0;
  bool applied = false;
  BS_GUARDED([&] { applied = ApplyFields(fields); });
  return applied;
}

bool Rs485ProBuild::ApplyFields(const Json::Value& fields) {
  for (Json::ArrayIndex i = 0; i < fields.size(); ++i) {
    if (!ApplyField(fields[i], slots_[i])) return false;
  }
  return true;
}

// An entry is an object with one key; of several, the first in alphabetical order counts.
bool Rs485ProBuild::ApplyField(const Json::Value& entry, Slot& slot) {
  const bool named = entry.isObject() && !entry.empty();
  const FrameField* const field = named ? FindFrameField(entry.begin().name().c_str()) : nullptr;
  if (field == nullptr) {
    BS_LOG(kError) << "No Such Rs485Cfg Name";
    return false;
  }
  const Json::Value& value = *entry.begin();
  if (field->setter == nullptr) {
    slot = {value.asUInt(), field};
    return true;
  }
  field->setter(value, settings_);
  if (field->handler != nullptr) slot = {1, field};
  return true;
}

uint8_t* Rs485ProBuild::GetDevRs485ProData(unsigned int& length, unsigned int free_num, unsigned int frame_num,
                                           const LX_ParkingResult* result) {
  ByteWriter frame(buffer_->bytes);
  if (result != nullptr) {
    const FrameInput input = {*result, settings_, free_num, frame_num};
    for (const Slot& slot : slots_) {
      if (slot.enabled == 0) continue;
      const size_t before = frame.size();
      slot.field->handler(input, frame);
      BS_ASSERT(slot.field->size == 0 || frame.size() - before == slot.field->size);
    }
  }
  length = static_cast<unsigned int>(frame.size());
  return buffer_->bytes;
}

uint8_t* Rs485ProBuild::GetYBRs485ProData(unsigned int& length, unsigned int value, unsigned int address) {
  ByteWriter frame(buffer_->bytes);
  EncodeDisplayFrame(value, address, frame);
  length = static_cast<unsigned int>(frame.size());
  return buffer_->bytes;
}

int Rs485ProBuild::CompareName(const char* const* a, const char* const* b) {
  if (a == nullptr || b == nullptr || *a == nullptr || *b == nullptr) return -1;
  return strcmp(*a, *b);
}

uint8_t Rs485ProBuild::YbCheckXor(const uint8_t* data, int length) { return businessserver::YbCheckXor(data, length); }

}  // namespace businessserver
