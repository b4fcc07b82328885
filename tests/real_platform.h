// What tests of the platform's real libraries share.
#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <string>
#include <utility>

#include "temporary_directory.h"

using Clock = std::chrono::steady_clock;

inline double SecondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

inline bool OpenPipe(int (&ends)[2]) { return pipe2(ends, O_CLOEXEC) == 0; }
// What the journal gives a service.
inline bool OpenSocket(int (&ends)[2]) { return socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0; }

// Standard error goes into a pipe, or a socket, for as long as this lives.
class CapturedErrors {
 public:
  explicit CapturedErrors(bool (*open_ends)(int (&)[2]) = OpenPipe) : saved_(dup(STDERR_FILENO)) {
    int ends[2];
    if (!open_ends(ends)) abort();
    fcntl(ends[0], F_SETFL, O_NONBLOCK);
    dup2(ends[1], STDERR_FILENO);
    close(ends[1]);
    read_end_ = ends[0];
  }
  ~CapturedErrors() {
    dup2(saved_, STDERR_FILENO);
    close(saved_);
    close(read_end_);
  }
  std::string Read() const {
    std::string text(1 << 20, '\0');
    const ssize_t size = read(read_end_, text.data(), text.size());
    text.resize(size > 0 ? static_cast<size_t>(size) : 0);
    return text;
  }

 private:
  const int saved_;
  int read_end_;
};

inline bool Matches(const std::string& text, const std::string& glob) {
  return fnmatch(glob.c_str(), text.c_str(), 0) == 0;
}

// A socket of this machine with a port of its own.
inline std::pair<int, uint16_t> LoopbackSocket() {
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  bind(fd, reinterpret_cast<sockaddr*>(&address), size);
  getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
  return {fd, ntohs(address.sin_port)};
}

inline uint16_t FreePort() {
  const auto [fd, port] = LoopbackSocket();
  close(fd);
  return port;
}
