#include "devicesdk/beacon_text.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "byte_writer.h"

namespace businessserver {
namespace {

constexpr std::string_view kLineEnd = "\r\n";
constexpr size_t kHexPrefix = 10;     // "MTD:UID-0x", "MTD:MAJ-0x", "MTD:MIN-0x"
constexpr size_t kDecimalPrefix = 8;  // "MTD:MEA-"
constexpr size_t kReplyTimeAt = 8;    // after "MTD:RTC-"

constexpr int kPeriods[] = {100, 200, 330, 500, 1000};
constexpr int kSendPowers[] = {-23, -6, -5, 0, 4, 12, 15, 18};

static_assert(sizeof kBeaconUuidCommand - 1 + 2 * kBeaconUuidSize + kLineEnd.size() <= kBeaconTextSize);
static_assert(sizeof kBeaconNameCommand - 1 + kBeaconNameLimit + kLineEnd.size() <= kBeaconTextSize);
static_assert(sizeof kBeaconTimeCommand - 1 + kBeaconTimeSize + kLineEnd.size() <= kBeaconTextSize);
static_assert(kReplyTimeAt + kBeaconTimeSize <= kBeaconTextSize);

BeaconText CommandText(std::string_view head, std::string_view value) {
  BeaconText command;
  ByteWriter out(command.bytes, sizeof command.bytes);
  for (const std::string_view part : {head, value, kLineEnd}) out.Text(part);
  command.size = static_cast<int>(out.size());
  return command;
}

BeaconText DecimalCommand(std::string_view head, int value) { return CommandText(head, std::to_string(value)); }

BeaconText HexCommand(std::string_view head, uint16_t value) {
  char digits[sizeof "FFFFFFFF"];
  snprintf(digits, sizeof digits, "%04X", static_cast<unsigned>(value));
  return CommandText(head, digits);
}

// Cuts the next line off the head of rest; false when there is none.
bool NextLine(std::string_view& rest, std::string_view& line) {
  if (rest.empty()) return false;
  const size_t end = rest.find('\n');
  line = rest.substr(0, end);
  rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
  return true;
}

// As "%x": leading blanks, a sign and "0x" are allowed, the number ends where its digits do. False without digits.
bool ReadHex(std::string_view text, unsigned long long& value) {
  const std::string digits(text);
  char* end = nullptr;
  value = strtoull(digits.c_str(), &end, 16);
  return end != digits.c_str();
}

void ReadUuid(std::string_view digits, char* uuid) {
  for (size_t i = 0; i < kBeaconUuidSize && 2 * i < digits.size(); ++i) {
    unsigned long long byte = 0;
    if (ReadHex(digits.substr(2 * i, 2), byte)) {
      const auto value = static_cast<uint8_t>(byte);
      memcpy(uuid + i, &value, 1);
    }
  }
}

void ReadHex16(std::string_view digits, unsigned short* value) {
  unsigned long long number = 0;
  if (value != nullptr && ReadHex(digits, number)) *value = static_cast<uint16_t>(number);
}

int ReadDecimal(std::string_view text) {
  const long long number = strtoll(std::string(text).c_str(), nullptr, 10);
  return static_cast<int>(std::clamp<long long>(number, INT_MIN, INT_MAX));
}

template <size_t N>
bool IsOneOf(const int (&values)[N], int value) {
  return std::find(std::begin(values), std::end(values), value) != std::end(values);
}

}  // namespace

std::string_view BeaconText::Text() const {
  return {bytes, strnlen(bytes, std::min(static_cast<size_t>(std::max(size, 0)), sizeof bytes))};
}

BeaconText UuidCommand(const unsigned char* uuid) {
  char digits[2 * kBeaconUuidSize + 1];
  for (size_t i = 0; i < kBeaconUuidSize; ++i) {
    snprintf(digits + 2 * i, 3, "%02X", static_cast<unsigned>(uuid[i]));
  }
  return CommandText(kBeaconUuidCommand, digits);
}

BeaconText MajorCommand(uint16_t major) { return HexCommand(kBeaconMajorCommand, major); }
BeaconText MinorCommand(uint16_t minor) { return HexCommand(kBeaconMinorCommand, minor); }
BeaconText NameCommand(std::string_view name) {
  return CommandText(kBeaconNameCommand, name.substr(0, kBeaconNameLimit));
}
BeaconText PeriodCommand(int milliseconds) { return DecimalCommand(kBeaconPeriodCommand, milliseconds); }
BeaconText SendPowerCommand(int dbm) { return DecimalCommand(kBeaconSendPowerCommand, dbm); }
BeaconText TestPowerCommand(int dbm) { return DecimalCommand(kBeaconTestPowerCommand, dbm); }
BeaconText InfoCommand() { return CommandText(kBeaconInfoCommand, {}); }
BeaconText TimeCommand(const unsigned char* time) {
  return CommandText(kBeaconTimeCommand, {reinterpret_cast<const char*>(time), kBeaconTimeSize});
}
BeaconText TimeQuery() { return CommandText(kBeaconTimeQuery, {}); }

bool IsBeaconPeriod(int milliseconds) { return IsOneOf(kPeriods, milliseconds); }
bool IsBeaconSendPower(int dbm) { return IsOneOf(kSendPowers, dbm); }
bool IsBeaconTestPower(int dbm) { return dbm >= -90 && dbm <= -20; }

void ReadIdentity(const BeaconText& reply, char* uuid, unsigned short* major, unsigned short* minor,
                  int* measured_power) {
  std::string_view rest = reply.Text();
  std::string_view line;
  for (int number = 1; number <= 4 && NextLine(rest, line); ++number) {
    const size_t prefix = number == 4 ? kDecimalPrefix : kHexPrefix;
    if (line.size() < prefix) continue;
    line.remove_prefix(prefix);
    if (number == 1 && uuid != nullptr) ReadUuid(line, uuid);
    if (number == 2) ReadHex16(line, major);
    if (number == 3) ReadHex16(line, minor);
    if (number == 4 && measured_power != nullptr) *measured_power = ReadDecimal(line);
  }
}

void ReadTime(const BeaconText& reply, unsigned char* time) {
  memcpy(time, reply.bytes + kReplyTimeAt, kBeaconTimeSize);
}

}  // namespace businessserver
