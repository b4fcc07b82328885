#include <charconv>
#include <cstring>
#include <string_view>

#include "devicesdk/beacon_text.h"
#include "plain_words.h"
#include "serial_decoder.h"

namespace words {

namespace {

using businessserver::BeaconText;

std::string Quoted(std::string_view text) { return '"' + Printable(text) + '"'; }

// The UUID's bytes are mostly the characters of a text; others are shown as digits.
std::string UuidWords(std::string_view bytes) {
  for (const char c : bytes) {
    if (c < 0x20 || c > 0x7E) return HexText(bytes.data(), bytes.size());
  }
  return Quoted(bytes);
}

std::string Uuid(std::string_view rest) {
  std::string bytes;
  if (rest.size() != 2 * businessserver::kBeaconUuidSize || !ParseHex(std::string(rest), bytes)) return Quoted(rest);
  return UuidWords(bytes);
}

std::string Hex16(std::string_view rest) {
  uint16_t number = 0;
  const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), number, 16);
  if (error != std::errc() || end != rest.data() + rest.size()) return Quoted(rest);
  return "0x" + std::string(rest) + " (" + std::to_string(number) + ")";
}

std::string Period(std::string_view rest) { return Printable(rest) + " ms"; }
std::string Power(std::string_view rest) { return Printable(rest) + " dBm"; }
std::string Nothing(std::string_view) { return ""; }

struct Command {
  std::string_view beginning;
  const char* words;
  std::string (*rest)(std::string_view rest);
};

constexpr Command kCommands[] = {
    {businessserver::kBeaconUuidCommand, "set uuid ", Uuid},
    {businessserver::kBeaconMajorCommand, "set major ", Hex16},
    {businessserver::kBeaconMinorCommand, "set minor ", Hex16},
    {businessserver::kBeaconNameCommand, "set name ", Quoted},
    {businessserver::kBeaconPeriodCommand, "set broadcast period ", Period},
    {businessserver::kBeaconSendPowerCommand, "set transmit power ", Power},
    {businessserver::kBeaconTestPowerCommand, "set measured power at 1 m ", Power},
    {businessserver::kBeaconInfoCommand, "ask for the identity", Nothing},
    {businessserver::kBeaconTimeQuery, "ask for the time", Nothing},
    {businessserver::kBeaconTimeCommand, "set time ", Printable},
    {businessserver::kBeaconAccepted, "accepted", Nothing},
};

BeaconText Received(std::string_view text) {
  BeaconText reply;
  reply.size = static_cast<int>(text.copy(reply.bytes, sizeof reply.bytes));
  return reply;
}

// As much of the identity as the reply holds: a line each for UUID, major, minor and measured power.
std::string Identity(std::string_view text) {
  char uuid[businessserver::kBeaconUuidSize] = {};
  unsigned short major = 0;
  unsigned short minor = 0;
  int power = 0;
  businessserver::ReadIdentity(Received(text), uuid, &major, &minor, &power);
  size_t lines = 1;
  for (size_t i = 0; i + 1 < text.size(); ++i) lines += text[i] == '\n' ? 1 : 0;
  std::string words = "identity: uuid " + UuidWords({uuid, sizeof uuid});
  if (lines > 1) words += ", major " + std::to_string(major);
  if (lines > 2) words += ", minor " + std::to_string(minor);
  if (lines > 3) words += ", measured power " + std::to_string(power) + " dBm";
  return words;
}

std::string ModuleTime(std::string_view text) {
  unsigned char time[businessserver::kBeaconTimeSize] = {};
  businessserver::ReadTime(Received(text), time);
  const char* chars = reinterpret_cast<const char*>(time);
  return "time " + Printable({chars, strnlen(chars, sizeof time)});
}

bool BeginsWith(std::string_view text, std::string_view beginning) {
  return text.substr(0, beginning.size()) == beginning;
}

}  // namespace

std::string DescribeBeaconLine(const std::string& line) {
  std::string_view text = line;
  while (!text.empty() && (text.back() == '\r' || text.back() == '\n')) text.remove_suffix(1);
  if (BeginsWith(text, businessserver::kBeaconIdentityReply)) return Identity(text);
  if (BeginsWith(text, businessserver::kBeaconTimeReply)) return ModuleTime(text);
  for (const Command& command : kCommands) {
    if (BeginsWith(text, command.beginning)) return command.words + command.rest(text.substr(command.beginning.size()));
  }
  return "";
}

}  // namespace words
