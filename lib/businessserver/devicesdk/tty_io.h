// One of the board's serial controllers as a raw line: settings, reads that end at a 30 ms gap, writes that go on
// until every byte is accepted. Opening a port also routes the pins to the serial controllers.
#pragma once

#include <pthread.h>
#include <termios.h>

#include <boost/enable_shared_from_this.hpp>
#include <cstdint>
#include <memory>
#include <string>

#include "devicesdk/register_block.h"

namespace businessserver {

// The value is the number in the device's path.
enum TTY_DEV_ID {
  TTY_DEV_UART1 = 1,  // beacon module
  TTY_DEV_UART2 = 2,  // external line
};

enum TTY_SRTYPE {
  TTY_SR_WAIT,
  TTY_SR_NO_WAIT,
};

// An open port.
struct TTY_INFO {
  int fd;  // -1 after close
  pthread_mutex_t lock;
  char device_path[24];
  termios current;  // what TTY_SetParity builds and applies
  termios saved;    // as found when the port was opened
  int second_fd;    // nothing opens it
  int device_number;
};

// Results of TTY_SetParity. The numbers are logged and handed on.
enum TtyCode {
  kTtyOk = 0,
  kTtyUnreadable = 1,  // the port is not open, or its settings cannot be read
  kTtyBadParity = 2,
  kTtyBadStopBits = 3,
  kTtyNotApplied = 4,
  kTtyBadDataBits = 5,
};

// Builds the settings of a raw line from nothing. parity: 0 none, 1 odd, 2 even, 115 ('s') space, handled as none.
// Checks in the order of the arguments; the first that fails decides the code and leaves the settings unfinished.
int BuildLineSettings(int databits, int parity, int stopbits, int baudrate, termios& settings);

// On a port that is not open, counts are 0 and codes are 1.
class TtyioControl : public boost::enable_shared_from_this<TtyioControl> {
 public:
  TtyioControl() = default;
  ~TtyioControl();
  TtyioControl(const TtyioControl&) = delete;
  TtyioControl& operator=(const TtyioControl&) = delete;

  // Routes the pins, opens the port and saves its settings. 1 when opened, else 0.
  int TTY_Ready(TTY_DEV_ID id);

  // Applies line settings, as in BuildLineSettings, any number of times. Returns a TtyCode.
  int TTY_SetParity(int databits, int parity, int stopbits, int baudrate);

  // Receives until a check made 30 ms after the last read finds nothing, or len bytes are stored; with nothing queued
  // it returns at once. Returns the bytes stored.
  int TTY_Recvn(char* buf, int len);

  // Takes what is queued now; of more than len bytes the newest. Returns the bytes stored, or -1 from a failed read.
  int TTY_RecvNB(char* buf, int len);

  // Returns when every byte is accepted, however long that takes: the bytes written.
  int TTY_SendnNB(const char* buf, int len);

  // As TTY_SendnNB, but drops unread input first, so that a reply read afterwards belongs to these bytes, and waits
  // until they have left.
  int TTY_Sendn(const char* buf, int len);

  // Milliseconds that so many bytes take on the line with its present settings; 0 on a port that is not open.
  int64_t TTY_SendTime(int len) const;

  // Advisory lock between processes. 1 when the port is not open, else 0 or -1.
  int TTY_Lock();
  int TTY_Unlock();

  void TTY_SetSendRecvType(TTY_SRTYPE type);  // does nothing; part of the interface

  // Puts the settings back as they were found and closes the port. The owner's last call.
  void TTY_Clean();

 private:
  bool IsOpen() const { return port_ != nullptr && port_->fd >= 0; }
  int QueuedBytes() const;

  int memory_fd_ = -1;  // never closed
  std::unique_ptr<TTY_INFO> port_;
  std::string device_path_;  // that was last tried, for the log
  RegisterBlock pin_mux_;
};

}  // namespace businessserver
