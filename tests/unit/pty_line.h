// A board in a temporary directory: a memory device and serial lines whose far ends the test holds.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sched.h>
#include <stdlib.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <string>

#include "fake_platform/fake_platform.h"

// The serial line behind dev/ttyAMA<number>. Waits for bytes to cross, never for time to pass.
class PtyLine {
 public:
  explicit PtyLine(int number) : link_("dev/ttyAMA" + std::to_string(number)) {
    far_ = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK);
    EXPECT_EQ(0, grantpt(far_) | unlockpt(far_));
    near_ = open(ptsname(far_), O_RDWR | O_NOCTTY | O_NONBLOCK);  // holds the line up while no driver has it open
    termios raw = Settings();
    cfmakeraw(&raw);
    EXPECT_EQ(0, tcsetattr(near_, TCSANOW, &raw));
    std::filesystem::create_symlink(ptsname(far_), link_);
  }
  ~PtyLine() {
    close(near_);
    close(far_);
  }

  // The far end speaks; returns when all of it is queued at the driver's end.
  void Say(const std::string& bytes) {
    const int wanted = Queued() + static_cast<int>(bytes.size());
    ASSERT_EQ(static_cast<ssize_t>(bytes.size()), write(far_, bytes.data(), bytes.size()));
    for (long round = 0; Queued() < wanted; ++round) {
      ASSERT_LT(round, 10000000) << "the line lost bytes";
      sched_yield();
    }
  }
  // What the driver wrote: waits until it is `count` bytes, and takes no more.
  std::string Heard(size_t count) {
    std::string bytes;
    pollfd waiting = {far_, POLLIN, 0};
    char byte;
    while (bytes.size() < count && poll(&waiting, 1, 5000) == 1 && read(far_, &byte, 1) == 1) bytes += byte;
    return bytes;
  }
  int Queued() const {
    int queued = -1;
    ioctl(near_, FIONREAD, &queued);
    return queued;
  }
  termios Settings() const {
    termios settings = {};
    EXPECT_EQ(0, tcgetattr(near_, &settings));
    return settings;
  }

 private:
  const std::string link_;
  int far_ = -1;
  int near_ = -1;
};

class BoardTest : public testing::Test {
 protected:
  static constexpr off_t kPinMux = 0x200F0000;
  static constexpr off_t kLedGpio = 0x201B0000;

  BoardTest() {
    ResetFake();
    char name[] = "/tmp/board.XXXXXX";
    EXPECT_NE(nullptr, mkdtemp(name));
    std::filesystem::current_path(directory_ = name);
    std::filesystem::create_directory("dev");
  }
  ~BoardTest() override {
    ResetFake();
    std::filesystem::current_path(before_);
    std::filesystem::remove_all(directory_);
  }

  // Nothing but the touched pages takes up room.
  static void MakeMemoryDevice(off_t size = kLedGpio + 0x1000) {
    close(open("dev/mem", O_RDWR | O_CREAT, 0600));
    EXPECT_EQ(0, truncate("dev/mem", size));
  }
  static uint32_t Register(off_t address) {
    uint32_t value = 0xDEADBEEF;
    const int fd = open("dev/mem", O_RDONLY);
    EXPECT_EQ(4, pread(fd, &value, sizeof value, address));
    close(fd);
    return value;
  }
  // How often this process has a file open.
  static int OpenDescriptors(const char* path) {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
      std::error_code closed;
      count += std::filesystem::equivalent(entry, path, closed) ? 1 : 0;
    }
    return count;
  }
  static void SetRegister(off_t address, uint32_t value) {
    const int fd = open("dev/mem", O_RDWR);
    EXPECT_EQ(4, pwrite(fd, &value, sizeof value, address));
    close(fd);
  }

 private:
  const std::filesystem::path before_ = std::filesystem::current_path();
  std::filesystem::path directory_;
};
