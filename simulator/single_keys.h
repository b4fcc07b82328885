// Keys arrive one by one and unseen, as long as this lives.
#pragma once

#include <termios.h>
#include <unistd.h>

namespace desk {

class SingleKeys {
 public:
  SingleKeys() {
    if (tcgetattr(STDIN_FILENO, &before_) != 0) return;
    termios single = before_;
    single.c_lflag &= static_cast<tcflag_t>(~(ICANON | ECHO));
    tcsetattr(STDIN_FILENO, TCSANOW, &single);
    changed_ = true;
  }
  ~SingleKeys() {
    if (changed_) tcsetattr(STDIN_FILENO, TCSANOW, &before_);
  }
  SingleKeys(const SingleKeys&) = delete;
  SingleKeys& operator=(const SingleKeys&) = delete;

 private:
  termios before_{};
  bool changed_ = false;
};

}  // namespace desk
