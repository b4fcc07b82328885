// The way to the board's external serial line and its indicator LEDs. Polls the line on the server's event loop and
// hands each received burst to one consumer.
#pragma once

#include <boost/enable_shared_from_this.hpp>
#include <boost/shared_ptr.hpp>

#include "devicesdk/led_control.h"
#include "devicesdk/tty_io.h"
#include "evt_timer.h"

namespace businessserver {

class DeviceSdk : public boost::enable_shared_from_this<DeviceSdk> {
 public:
  // data is valid during the call only.
  using Consumer = void (*)(void* data, int len, void* arg);

  DeviceSdk();
  ~DeviceSdk();
  DeviceSdk(const DeviceSdk&) = delete;
  DeviceSdk& operator=(const DeviceSdk&) = delete;

  int Init();       // LEDs, then the line: the result of InitTtyio
  int InitTtyio();  // opens the external line at 9600 8N1; a TtyCode, 1 when it could not be opened

  // Returns a TtyCode; arguments as in BuildLineSettings.
  int SetTtyioParity(int databits, int parity, int stopbits, int baudrate);

  // Drops unread input, writes everything, waits until it has left. Returns the bytes written.
  int SendTtyioData(const char* data, int len);

  // Milliseconds that so many bytes take on the line as it is set now; 0 where there is none.
  int64_t SendTime(int len) const;

  void OpenLed(int colour);

  // Polls the line every 10 ms from now on, while this object lives.
  void SetTtyioReadDataCallback(Consumer consumer, void* arg, lxconn::EVT_LOOP* loop);

  // The poll: at most 1024 bytes of one burst; the rest of a longer one comes with the next poll. Always 0.
  static int HandleReadTtyioData(int fd, short events, const void* self);

  // ---- interface only ----

  void InitLed();  // LEDs only

 private:
  void* consumer_arg_ = nullptr;
  boost::shared_ptr<LedControl> led_;
  boost::shared_ptr<TtyioControl> tty_;
  lxconn::EVT_TIMER poll_timer_;
  Consumer consumer_ = nullptr;
};

}  // namespace businessserver
