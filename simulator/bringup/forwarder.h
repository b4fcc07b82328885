// A port of the machine's loopback that leads to a port of the network that the program has gone into.
#pragma once

#include <map>
#include <memory>
#include <string>

#include "bringup/loop.h"

namespace desk {

class Forwarder {
 public:
  explicit Forwarder(Loop& loop) : loop_(loop) {}
  ~Forwarder();
  Forwarder(const Forwarder&) = delete;
  Forwarder& operator=(const Forwarder&) = delete;

  // To be called before the program leaves the machine's network. False when the port is taken.
  bool Listen(int port);

  // From now on, where connections go.
  void Lead(const std::string& address, int port);

 private:
  struct Side {
    int descriptor = -1;
    std::string unsent;  // on its way to it
  };
  struct Link {
    Side near, far;
  };

  void Accept();
  void Watch(const std::shared_ptr<Link>& link, Side Link::*from, Side Link::*to);
  void Close(const std::shared_ptr<Link>& link);

  Loop& loop_;
  int listener_ = -1;
  std::string address_;
  int port_ = 0;
  std::map<int, std::shared_ptr<Link>> links_;  // by the near descriptor
};

}  // namespace desk
