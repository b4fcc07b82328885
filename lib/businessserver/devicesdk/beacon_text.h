// The beacon module's language: commands begin "DTM:" and end with CR LF, replies begin "MTD:". Formats are the module
// manual's. Every text is made and read here, without a port.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace businessserver {

constexpr size_t kBeaconTextSize = 100;
constexpr size_t kBeaconUuidSize = 16;
constexpr size_t kBeaconTimeSize = 14;
constexpr int kBeaconNameLimit = 20;

constexpr char kBeaconUuidCommand[] = "DTM:UID-0x";
constexpr char kBeaconMajorCommand[] = "DTM:MAJ-0x";
constexpr char kBeaconMinorCommand[] = "DTM:MIN-0x";
constexpr char kBeaconNameCommand[] = "DTM:NAM-";
constexpr char kBeaconPeriodCommand[] = "DTM:INT-";
constexpr char kBeaconSendPowerCommand[] = "DTM:TXP-";
constexpr char kBeaconTestPowerCommand[] = "DTM:MEA-";
constexpr char kBeaconInfoCommand[] = "DTM:INF";
constexpr char kBeaconTimeCommand[] = "DTM:RTC-";
constexpr char kBeaconTimeQuery[] = "DTM:RTC-?";

constexpr char kBeaconAccepted[] = "MTD:OK";
constexpr char kBeaconIdentityReply[] = "MTD:UID";
constexpr char kBeaconTimeReply[] = "MTD:RTC";

// A command, or what the reads of an exchange left in one buffer. Unused bytes are 0; a full one has no terminator.
struct BeaconText {
  char bytes[kBeaconTextSize] = {};
  int size = 0;

  std::string_view Text() const;  // up to the first 0, at most size bytes
  bool BeginsWith(std::string_view prefix) const { return Text().substr(0, prefix.size()) == prefix; }
};

// ---- commands ----

BeaconText UuidCommand(const unsigned char* uuid);  // reads 16 bytes
BeaconText MajorCommand(uint16_t major);
BeaconText MinorCommand(uint16_t minor);
BeaconText NameCommand(std::string_view name);  // as it is, at most kBeaconNameLimit bytes of it
// A negative number follows the command's hyphen with its own: "DTM:MEA--55".
BeaconText PeriodCommand(int milliseconds);
BeaconText SendPowerCommand(int dbm);
BeaconText TestPowerCommand(int dbm);
BeaconText InfoCommand();
BeaconText TimeCommand(const unsigned char* time);  // reads 14 bytes
BeaconText TimeQuery();

// Values that the module takes.
bool IsBeaconPeriod(int milliseconds);
bool IsBeaconSendPower(int dbm);
bool IsBeaconTestPower(int dbm);

// ---- replies ----

// Reads the lines of an identity reply by position: UUID, major, minor, measured power. A line that is missing or ends
// within its prefix leaves its output alone, and so does a digit pair or number that is not hexadecimal; a measured
// power that is no number is 0. Null outputs are skipped. uuid receives 16 bytes.
void ReadIdentity(const BeaconText& reply, char* uuid, unsigned short* major, unsigned short* minor,
                  int* measured_power);

// Copies the 14 bytes after the reply's prefix.
void ReadTime(const BeaconText& reply, unsigned char* time);

}  // namespace businessserver
