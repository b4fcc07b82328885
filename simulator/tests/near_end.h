// The daemon's end of a serial line, for tests.
#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <string>

#include "../../tests/temporary_directory.h"

namespace desk {

class NearEnd {
 public:
  explicit NearEnd(const std::string& path) : descriptor_(open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK)) {}
  ~NearEnd() { close(descriptor_); }
  NearEnd(const NearEnd&) = delete;
  NearEnd& operator=(const NearEnd&) = delete;

  bool Write(const std::string& bytes) const {
    return write(descriptor_, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
  }
  std::string Read() const {
    char chunk[8192];
    const ssize_t size = read(descriptor_, chunk, sizeof chunk);
    return size > 0 ? std::string(chunk, static_cast<size_t>(size)) : "";
  }

 private:
  int descriptor_;
};

}  // namespace desk
