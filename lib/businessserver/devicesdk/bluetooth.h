// The beacon module on the second serial port: sends it commands and waits for its answers, each exchange within
// about 50 ms. Blocks the event loop meanwhile.
#pragma once

#include <boost/enable_shared_from_this.hpp>
#include <boost/shared_ptr.hpp>
#include <string_view>

#include "devicesdk/beacon_text.h"
#include "devicesdk/register_block.h"
#include "devicesdk/tty_io.h"

namespace businessserver {

struct BeaconExchange;

// Operations return 0, or -1: the value is refused, the port is not open, or the module did not answer as it should.
// Each logs why, except a clock that was asked for and did not come.
class BlueTooth : public boost::enable_shared_from_this<BlueTooth> {
 public:
  BlueTooth();
  ~BlueTooth();
  BlueTooth(const BlueTooth&) = delete;
  BlueTooth& operator=(const BlueTooth&) = delete;

  // Routes the pins and opens the port at 115200 8N1. 0, -1 without a memory device, or a TtyCode.
  int Uart1_Init();

  int SetUUID(const unsigned char* uuid);  // 16 bytes, taken as they are
  int SetMajor(unsigned short major);
  int SetMinor(unsigned short minor);
  int SetBluetoothName(const char* name, int len);  // at most 20 bytes
  int SetBroardCastPeriod(int period);              // ms: 100, 200, 330, 500 or 1000
  int SetSendPower(int power);                      // dBm: -23, -6, -5, 0, 4, 12, 15 or 18
  int SetTestPower(int power);                      // dBm at 1 m: -90 to -20

  // Fills what the module's answer names, as in ReadIdentity; uuid holds at least 16 bytes.
  int GetDeviceInfo(char* uuid, unsigned short* major, unsigned short* minor, int* value);

  // Waits about 50 ms for the module's "accepted".
  int GetTtyioRet();

  // ---- interface only ----

  int SetRTCTime(const unsigned char* time);  // 14 bytes
  int GetRTCTime(unsigned char* time);        // 14 bytes

  // Raw access: bytes written; bytes read into at least 1024, also stored in *len.
  int BlueToothSendData(const char* data, int len);
  int BlueToothRecvData(char* buf, int* len);

 private:
  bool Send(const BeaconExchange& exchange, const BeaconText& command);
  int Set(const BeaconExchange& exchange, const BeaconText& command);
  bool AwaitReply(std::string_view beginning, BeaconText& reply);
  std::string_view Receive(BeaconText& reply);

  RegisterBlock pin_mux_;
  boost::shared_ptr<TtyioControl> tty_;
};

}  // namespace businessserver
