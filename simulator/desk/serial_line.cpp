#include "desk/serial_line.h"

#include <algorithm>

#include "plain_words.h"
#include "protocol/json_text.h"
#include "protocol/names.h"
#include "protocol/stored_documents.h"

namespace desk {
namespace {

using businessserver::kExtTtyio;
using businessserver::kRs485pro;

constexpr Loop::Milliseconds kGap(5);  // a pause of this length ends a burst
constexpr size_t kLongestBurst = 65536;
constexpr size_t kMostBytesShown = 64;

const char* KindName(words::FrameKind kind) {
  switch (kind) {
    case words::FrameKind::kConfigurable:
      return "frame";
    case words::FrameKind::kDisplay:
      return "display";
    case words::FrameKind::kRelay:
      return "relay";
    case words::FrameKind::kUnknown:
      break;
  }
  return "unknown";
}

std::string FieldValue(const words::DecodedFrame& frame, const char* name) {
  for (const auto& field : frame.fields) {
    if (field.name == name) return field.value;
  }
  return "";
}

// Keeps the document as it was last seen while the store is away.
void Refresh(StoreClient& store, const businessserver::StoredDocument& row, Json::Value& document) {
  std::string text;
  Json::Value parsed;
  if (store.Get(row.key, text) && businessserver::ParseJson(text, parsed) && parsed.isObject()) document = parsed;
}

// The frame's words, and the bytes themselves where words fail.
std::string FrameText(const words::DecodedFrame& frame, const std::string& bytes) {
  if (frame.kind != words::FrameKind::kUnknown) return frame.Text();
  const size_t shown = std::min(bytes.size(), kMostBytesShown);
  const char* more = shown < bytes.size() ? " ..." : "";
  return words::HexText(bytes.data(), shown) + more + "  (" + frame.Text() + ")";
}

// Whether a display is switched on in the settings and answers to that address.
bool Listens(const Display& display, const std::string& address, const Json::Value& settings) {
  const Json::Value& enabled = settings[display.enabled_key];
  const Json::Value& own = settings[display.address_key];
  return enabled.isUInt() && enabled.asUInt() != 0 && own.isUInt() && std::to_string(own.asUInt() & 0xFF) == address;
}

}  // namespace

SerialLine::SerialLine(Loop& loop, Pty& line, StoreClient& store, Journal& journal)
    : loop_(loop),
      line_(line),
      store_(store),
      journal_(journal),
      displays_{{{"front", businessserver::kFEna, businessserver::kFAddr, ""},
                 {"left", businessserver::kLEna, businessserver::kLAddr, ""},
                 {"right", businessserver::kREna, businessserver::kRAddr, ""}}} {
  businessserver::ParseJson(businessserver::DefaultDocument(kRs485pro.default_index), field_list_);
  businessserver::ParseJson(businessserver::DefaultDocument(kExtTtyio.default_index), settings_);
  line_.OnReceive([this](const std::string& bytes) { Receive(bytes); });
}

SerialLine::~SerialLine() {
  line_.OnReceive({});
  loop_.Cancel(gap_timer_);
}

void SerialLine::Send(const std::string& bytes) {
  journal_.Add(Source::kSerialIn, words::HexText(bytes.data(), bytes.size()) + "  \"" + words::Printable(bytes) + "\"");
  line_.Send(bytes);
}

void SerialLine::Receive(const std::string& bytes) {
  burst_ += bytes;
  loop_.Cancel(gap_timer_);
  if (burst_.size() > kLongestBurst) {
    BurstEnded();
  } else {
    gap_timer_ = loop_.After(kGap, [this] { BurstEnded(); });
  }
}

void SerialLine::BurstEnded() {
  const std::string burst = std::move(burst_);
  burst_.clear();
  Refresh(store_, kRs485pro, field_list_);
  Refresh(store_, kExtTtyio, settings_);
  list_ = words::ReadFieldList(field_list_, list_.settings);
  const auto* bytes = reinterpret_cast<const uint8_t*>(burst.data());
  size_t at = 0;
  for (const auto& frame : words::DecodeBurst(bytes, burst.size(), list_)) {
    Report(frame, burst.substr(at, frame.size));
    at += frame.size;
  }
}

void SerialLine::Report(const words::DecodedFrame& frame, const std::string& bytes) {
  Facts facts = {{"kind", KindName(frame.kind)}, {"bytes", words::HexText(bytes.data(), bytes.size())}};
  for (const auto& field : frame.fields) facts.emplace_back(field.name, field.value);
  std::vector<const Display*> changed;
  if (frame.kind == words::FrameKind::kDisplay)
    changed = Show(FieldValue(frame, "address"), FieldValue(frame, "value"));
  // A display is told the same number again and again; only a new one is worth a line.
  if (frame.kind == words::FrameKind::kDisplay && changed.empty()) facts.emplace_back(kRepeated, "yes");
  journal_.Add(Source::kSerialOut, FrameText(frame, bytes), facts);
  for (const Display* display : changed) {
    journal_.Add(Source::kDisplay, std::string(display->name) + " shows " + display->digits,
                 {{"display", display->name}, {"shows", display->digits}});
  }
}

// The displays that took up digits which they did not show before.
std::vector<const Display*> SerialLine::Show(const std::string& address, const std::string& digits) {
  std::vector<const Display*> changed;
  for (auto& display : displays_) {
    if (!Listens(display, address, settings_) || display.digits == digits) continue;
    display.digits = digits;
    changed.push_back(&display);
  }
  return changed;
}

}  // namespace desk
