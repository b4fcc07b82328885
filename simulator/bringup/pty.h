// A serial line of the board: a pseudo-terminal in raw mode, its far end in our hands. The near end stays open here
// too, so that the line never hangs up, whoever else opens and closes it.
#pragma once

#include <functional>
#include <string>

#include "bringup/loop.h"

namespace desk {

class Pty {
 public:
  using Receiver = std::function<void(const std::string& bytes)>;

  explicit Pty(Loop& loop) : loop_(loop) {}
  ~Pty();
  Pty(const Pty&) = delete;
  Pty& operator=(const Pty&) = delete;

  // Opens the line and makes path a link to its near end. On failure problem says what went wrong.
  bool Open(const std::string& path, std::string& problem);

  // Everything that the daemon writes is read at once, wanted or not: a full line would stall it.
  void OnReceive(Receiver receiver) { receiver_ = std::move(receiver); }

  // Takes the far end off the loop: it is the caller's to read from now on, and stays open as long as this lives.
  int TakeFarEnd();

  // Queues bytes for the daemon. What it never reads is dropped beyond 64 KiB.
  void Send(const std::string& bytes);

 private:
  void Serve();
  void Flush();

  Loop& loop_;
  int far_ = -1;
  int near_ = -1;
  std::string path_;
  std::string unsent_;
  Receiver receiver_;
};

}  // namespace desk
