// The far ends of the device's two serial lines: a thread of their own keeps them empty, so that the daemon never
// waits for a reader. The one with the beacon module accepts every command at once.
#pragma once

#include <atomic>
#include <thread>

namespace bench {

class SerialLines {
 public:
  SerialLines(int beacon, int external);
  ~SerialLines();
  SerialLines(const SerialLines&) = delete;
  SerialLines& operator=(const SerialLines&) = delete;

  // Between the two calls the external line is the caller's to read.
  void TakeExternal();
  void GiveBackExternal();

  // Whatever there is, without waiting: its size.
  size_t ReadExternal() const;

 private:
  void Run();

  const int beacon_;
  const int external_;
  int wake_ = -1;
  std::atomic<bool> taken_{false};
  std::atomic<bool> let_go_{false};  // the thread's answer to taken_
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

}  // namespace bench
