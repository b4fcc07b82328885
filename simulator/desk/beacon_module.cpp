#include "desk/beacon_module.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>

#include "plain_words.h"

namespace desk {
namespace {

constexpr char kAccepted[] = "MTD:OK\r\n";
constexpr char kRefused[] = "MTD:ERROR\r\n";
constexpr size_t kUuidBytes = 16;
constexpr size_t kClockDigits = 14;
constexpr size_t kLongestName = 20;
constexpr size_t kLongestCommand = 4096;

constexpr int kPeriods[] = {100, 200, 330, 500, 1000};
constexpr int kSendPowers[] = {-23, -6, -5, 0, 4, 12, 15, 18};

bool OneOf(const int* begin, const int* end, int value) { return std::find(begin, end, value) != end; }

bool ParseNumber(const std::string& text, int& value) {
  char* end = nullptr;
  value = static_cast<int>(strtol(text.c_str(), &end, 10));
  return !text.empty() && *end == '\0';
}

// "0x" and exactly that many bytes in hexadecimal.
bool ParseBytes(const std::string& text, size_t size, std::string& bytes) {
  return text.size() == 2 + 2 * size && text.compare(0, 2, "0x") == 0 && words::ParseHex(text.substr(2), bytes) &&
         bytes.size() == size;
}

bool SetIdentityWord(const std::string& text, uint16_t& word) {
  std::string bytes;
  if (!ParseBytes(text, 2, bytes)) return false;
  word = static_cast<uint16_t>(static_cast<uint8_t>(bytes[0]) << 8 | static_cast<uint8_t>(bytes[1]));
  return true;
}

bool SetUuid(const std::string& text, BeaconState& state) {
  std::string bytes;
  if (!ParseBytes(text, kUuidBytes, bytes)) return false;
  state.uuid = bytes;
  return true;
}

bool SetName(const std::string& text, BeaconState& state) {
  if (text.size() > kLongestName) return false;
  state.name = text;
  return true;
}

bool SetPeriod(const std::string& text, BeaconState& state) {
  int value = 0;
  if (!ParseNumber(text, value) || !OneOf(std::begin(kPeriods), std::end(kPeriods), value)) return false;
  state.period = value;
  return true;
}

bool SetSendPower(const std::string& text, BeaconState& state) {
  int value = 0;
  if (!ParseNumber(text, value) || !OneOf(std::begin(kSendPowers), std::end(kSendPowers), value)) return false;
  state.send_power = value;
  return true;
}

bool SetMeasuredPower(const std::string& text, BeaconState& state) {
  int value = 0;
  if (!ParseNumber(text, value) || value < -90 || value > -20) return false;
  state.measured_power = value;
  return true;
}

bool SetClock(const std::string& text, BeaconState& state) {
  if (text.size() != kClockDigits) return false;
  state.clock = text;
  return true;
}

struct Setting {
  const char* command;
  bool (*set)(const std::string& text, BeaconState& state);
};

const Setting kSettings[] = {
    {"DTM:UID-", SetUuid},
    {"DTM:MAJ-", [](const std::string& text, BeaconState& state) { return SetIdentityWord(text, state.major); }},
    {"DTM:MIN-", [](const std::string& text, BeaconState& state) { return SetIdentityWord(text, state.minor); }},
    {"DTM:NAM-", SetName},
    {"DTM:INT-", SetPeriod},
    {"DTM:TXP-", SetSendPower},
    {"DTM:MEA-", SetMeasuredPower},
    {"DTM:RTC-", SetClock},
};

std::string Hex(const std::string& bytes) {
  std::string text = words::HexText(bytes.data(), bytes.size());
  text.erase(std::remove(text.begin(), text.end(), ' '), text.end());
  return text;
}

std::string HexWord(uint16_t word) {
  return Hex(std::string{static_cast<char>(word >> 8), static_cast<char>(word & 0xFF)});
}

// Five lines that fit the 100 bytes in which the daemon looks for them.
std::string Identity(const BeaconState& state) {
  return "MTD:UID-0x" + Hex(state.uuid) + "\r\nMTD:MAJ-0x" + HexWord(state.major) + "\r\nMTD:MIN-0x" +
         HexWord(state.minor) + "\r\nMTD:MEA-" + std::to_string(state.measured_power) + "\r\nMTD:END\r\n";
}

}  // namespace

std::string IdentityText(const BeaconState& state) {
  return words::Printable(state.name) + "  " + words::Printable(state.uuid);
}

std::string SettingsText(const BeaconState& state) {
  return "major " + std::to_string(state.major) + "  minor " + std::to_string(state.minor) + "  " +
         std::to_string(state.period) + " ms  " + std::to_string(state.send_power) + " dBm  " +
         std::to_string(state.measured_power) + " dBm at 1 m";
}

std::string AnswerBeaconCommand(const std::string& command, BeaconState& state) {
  if (command == "DTM:INF") return Identity(state);
  if (command == "DTM:RTC-?") return "MTD:RTC-" + state.clock + "\r\n";
  for (const auto& setting : kSettings) {
    const std::string prefix = setting.command;
    if (command.compare(0, prefix.size(), prefix) != 0) continue;
    return setting.set(command.substr(prefix.size()), state) ? kAccepted : kRefused;
  }
  return kRefused;
}

BeaconModule::BeaconModule(Loop& loop, Pty& line) : loop_(loop), line_(line) {
  line_.OnReceive([this](const std::string& bytes) { Receive(bytes); });
}

void BeaconModule::Behave(BeaconManner manner, Loop::Milliseconds delay) {
  manner_ = manner;
  delay_ = delay;
}

void BeaconModule::Receive(const std::string& bytes) {
  received_ += bytes;
  for (size_t end; (end = received_.find("\r\n")) != std::string::npos;) {
    const std::string command = received_.substr(0, end);
    received_.erase(0, end + 2);
    std::string answer;
    if (plugged_ && manner_ != BeaconManner::kSilent) answer = AnswerBeaconCommand(command, state_);
    if (manner_ == BeaconManner::kGarbage && !answer.empty()) answer = "\x80?#MTD\xFF:OK??\r\n";
    Send(answer);
    if (handler_) handler_(command, answer);
  }
  if (received_.size() > kLongestCommand) received_.clear();
}

void BeaconModule::Send(const std::string& answer) {
  constexpr Loop::Milliseconds kSplitPause(15);
  constexpr size_t kNoise = 5000;
  if (answer.empty()) return;
  const auto later = [this](Loop::Milliseconds delay, const std::string& bytes) {
    loop_.After(delay, [this, bytes] { line_.Send(bytes); });
  };
  switch (manner_) {
    case BeaconManner::kSlow:
      later(delay_, answer);
      break;
    case BeaconManner::kSplit:
      line_.Send(answer.substr(0, 3));
      later(kSplitPause, answer.substr(3));
      break;
    case BeaconManner::kNoisy:
      line_.Send(std::string(kNoise, '~') + answer);
      break;
    default:
      line_.Send(answer);
      break;
  }
}

}  // namespace desk
