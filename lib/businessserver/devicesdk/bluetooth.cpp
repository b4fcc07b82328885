#include "devicesdk/bluetooth.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "assertion.h"
#include "log.h"
#include "shell.h"

namespace businessserver {

// What an exchange leaves in the log: the command, before it is sent (where there is a text for it), and the count
// written when it was cut short.
struct BeaconExchange {
  int level;
  const char* announcement;
  const char* cut_short;
};

namespace {

constexpr char kLogSource[] = "lib/businessserver/devicesdk/bluetooth";
constexpr int kReplyPolls = 10;
constexpr unsigned kPollMicroseconds = 5000;
constexpr unsigned kIdentityMicroseconds = 50000;
constexpr int kRawReadLimit = 1024;
constexpr char kBadArgument[] = "input arg error!";

// Kept, the texts borrowed from other commands included: field logs are searched for them.
// clang-format off
//                                        level       announcement              cut short
constexpr BeaconExchange kSetUuid      = {kLifecycle, "send tty uuid : ",       "SetUUID Send Data failed "};
constexpr BeaconExchange kSetMajor     = {0,          nullptr,                  "SetUUID Send Data failed"};
constexpr BeaconExchange kSetMinor     = {0,          nullptr,                  "SetMinor Send Data failed "};
constexpr BeaconExchange kSetName      = {kError,     "devName = ",             "SetName Send Data failed "};
constexpr BeaconExchange kSetPeriod    = {kError,     "SetBroardCastPeriod = ", "SetBroardCastPeriod Send Data failed "};
constexpr BeaconExchange kSetSendPower = {0,          nullptr,                  "SetSendPower Send Data failed "};
constexpr BeaconExchange kSetTestPower = {0,          nullptr,                  "SetTestPower Send Data failed "};
constexpr BeaconExchange kSetTime      = {kError,     "SetRTCTime: ",           "SetName Send Data failed "};
constexpr BeaconExchange kGetTime      = {kError,     "GetRTCTime: ",           "GetRTCTime Send Data failed "};
constexpr BeaconExchange kGetInfo      = {0,          nullptr,                  "GetRTCTime Send Data failed "};
// clang-format on

int Refuse(const char* reason) {
  BS_LOG(kError) << reason;
  return -1;
}

int Refuse(const char* reason, int value) {
  BS_LOG(kError) << reason << value;
  return -1;
}

}  // namespace

BlueTooth::BlueTooth() : tty_(new TtyioControl) {}

BlueTooth::~BlueTooth() {
  tty_->TTY_Clean();
  BS_LOG(kLifecycle) << "~BlueTooth";
}

int BlueTooth::Uart1_Init() {
  const int memory_fd = OpenMemoryDevice();
  if (memory_fd < 0) return Refuse("open /dev/mem failed");
  pin_mux_.Map(memory_fd, kPinMuxBlock);
  pin_mux_.WriteEach(kPinMuxOfBeaconPort, kPinIsSerial);
  close(memory_fd);

  tty_->TTY_Ready(TTY_DEV_UART1);  // a failure shows in the next line
  const int code = tty_->TTY_SetParity(8, 0, 1, 115200);
  if (code != kTtyOk) BS_LOG(kError) << "ERR:TTY_SetParity fail errnum : " << code;
  return code;
}

// ---- the exchange ----

bool BlueTooth::Send(const BeaconExchange& exchange, const BeaconText& command) {
  if (exchange.announcement != nullptr) BS_LOG(exchange.level) << exchange.announcement << command.Text();
  const int written = BlueToothSendData(command.bytes, command.size);
  if (written >= command.size) return true;
  BS_LOG(kError) << exchange.cut_short << written;
  return false;
}

int BlueTooth::Set(const BeaconExchange& exchange, const BeaconText& command) {
  return Send(exchange, command) ? GetTtyioRet() : -1;
}

// One read over the head of what earlier reads left. Returns its bytes.
std::string_view BlueTooth::Receive(BeaconText& reply) {
  const int count = tty_->TTY_RecvNB(reply.bytes, kBeaconTextSize);
  BS_ASSERT(count <= static_cast<int>(kBeaconTextSize));
  reply.size = std::max(reply.size, count);
  return {reply.bytes, static_cast<size_t>(std::max(count, 0))};
}

// A reply counts only when one read returns its beginning first: bytes of two reads never make one.
bool BlueTooth::AwaitReply(std::string_view beginning, BeaconText& reply) {
  for (int poll = 0; poll < kReplyPolls; ++poll) {
    if (Receive(reply).substr(0, beginning.size()) == beginning) return true;
    SleepMicroseconds(kPollMicroseconds);
  }
  return false;
}

int BlueTooth::GetTtyioRet() {
  BeaconText reply;
  const bool accepted = AwaitReply(kBeaconAccepted, reply);
  BS_LOG(kError) << "Recv RetBuf : " << reply.Text();
  return accepted ? 0 : -1;
}

int BlueTooth::BlueToothSendData(const char* data, int len) { return tty_->TTY_Sendn(data, len); }

int BlueTooth::BlueToothRecvData(char* buf, int* len) {
  const int count = tty_->TTY_RecvNB(buf, kRawReadLimit);
  if (len != nullptr) *len = count;
  return count;
}

// ---- commands ----

int BlueTooth::SetUUID(const unsigned char* uuid) {
  if (uuid == nullptr) return Refuse(kBadArgument);
  return Set(kSetUuid, UuidCommand(uuid));
}

int BlueTooth::SetMajor(unsigned short major) { return Set(kSetMajor, MajorCommand(major)); }

int BlueTooth::SetMinor(unsigned short minor) { return Set(kSetMinor, MinorCommand(minor)); }

int BlueTooth::SetBluetoothName(const char* name, int len) {
  if (name == nullptr || len < 0 || len > kBeaconNameLimit) return Refuse(kBadArgument);
  // A line end would begin a command of its own.
  if (std::any_of(name, name + len, [](char c) { return static_cast<unsigned char>(c) < 0x20; })) {
    return Refuse(kBadArgument);
  }
  return Set(kSetName, NameCommand({name, static_cast<size_t>(len)}));
}

int BlueTooth::SetBroardCastPeriod(int period) {
  if (!IsBeaconPeriod(period)) return Refuse("unsupport BroardCastPeriod ", period);
  return Set(kSetPeriod, PeriodCommand(period));
}

int BlueTooth::SetSendPower(int power) {
  // Kept: the period's text, on purpose.
  if (!IsBeaconSendPower(power)) return Refuse("unsupport BroardCastPeriod ", power);
  return Set(kSetSendPower, SendPowerCommand(power));
}

int BlueTooth::SetTestPower(int power) {
  if (!IsBeaconTestPower(power)) return Refuse(kBadArgument);
  return Set(kSetTestPower, TestPowerCommand(power));
}

int BlueTooth::GetDeviceInfo(char* uuid, unsigned short* major, unsigned short* minor, int* value) {
  if (!Send(kGetInfo, InfoCommand())) return -1;
  BeaconText reply;
  SleepMicroseconds(kIdentityMicroseconds);
  Receive(reply);
  if (!reply.BeginsWith(kBeaconIdentityReply)) {
    BS_LOG(kError) << "GetUUID ERR " << reply.Text();
    return -1;
  }
  if (uuid == nullptr) puts(kBadArgument);
  ReadIdentity(reply, uuid, major, minor, value);
  return 0;
}

int BlueTooth::SetRTCTime(const unsigned char* time) {
  if (time == nullptr) return Refuse(kBadArgument);
  return Set(kSetTime, TimeCommand(time));
}

int BlueTooth::GetRTCTime(unsigned char* time) {
  if (time == nullptr) return Refuse(kBadArgument);
  BeaconText reply;
  if (!Send(kGetTime, TimeQuery()) || !AwaitReply(kBeaconTimeReply, reply)) return -1;
  ReadTime(reply, time);
  return 0;
}

}  // namespace businessserver
