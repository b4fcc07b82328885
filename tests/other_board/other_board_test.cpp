// The drivers on a made-up board (board.cmake) go by its file in everything; so do the files of the package.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <boost/make_shared.hpp>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "../temporary_directory.h"
#include "devicesdk/bluetooth.h"
#include "devicesdk/led_control.h"
#include "devicesdk/tty_io.h"
#include "fake_platform/fake_platform.h"

namespace businessserver {
namespace {

struct OtherBoard : testing::Test {
  OtherBoard() {
    ResetFake();
    std::filesystem::current_path(directory_.path);
    std::filesystem::create_directory("other");
    std::ofstream("other/registers").close();
    std::filesystem::resize_file("other/registers", 0x60000);
  }
  ~OtherBoard() override { std::filesystem::current_path(before_); }

  static uint32_t Register(off_t address) {
    uint32_t value = 0xDEADBEEF;
    const int fd = open("other/registers", O_RDONLY | O_CLOEXEC);
    EXPECT_EQ(4, pread(fd, &value, sizeof value, address));
    close(fd);
    return value;
  }

  const std::filesystem::path before_ = std::filesystem::current_path();
  const TemporaryDirectory directory_;
};

TEST_F(OtherBoard, LampAndLinesAreWhereItsFileSays) {
  const auto led = boost::make_shared<LedControl>();
  led->GPIO_Init();
  led->OpenLed(6);
  for (const off_t pin : {0x30014, 0x30018}) EXPECT_EQ(7u, Register(pin)) << pin;
  EXPECT_EQ(0x14u, Register(0x50040));
  EXPECT_EQ(0x1Cu, Register(0x50044));

  boost::make_shared<TtyioControl>()->TTY_Ready(TTY_DEV_UART2);
  EXPECT_TRUE(Fake().Logged(3, "Failed to open TTY FD other/port2-line"));
  for (const off_t pin : {0x30008, 0x3000C, 0x30010}) EXPECT_EQ(0x21u, Register(pin)) << pin;

  EXPECT_EQ(0u, Register(0x30004));
  boost::make_shared<BlueTooth>()->Uart1_Init();
  EXPECT_EQ(0x21u, Register(0x30004));
  EXPECT_TRUE(Fake().Logged(3, "Failed to open TTY FD other/port1-line"));
}

TEST_F(OtherBoard, UdevAndUnitKnowItsDevices) {
  const struct {
    const char *file, *line;
  } kRows[] = {
      {"device.rules", "\nKERNEL==\"registers\", SUBSYSTEM==\"mem\", GROUP=\"business-server\", MODE=\"0660\"\n"},
      {"device.rules", "\nKERNEL==\"port[12]-line\", SUBSYSTEM==\"tty\", GROUP=\"business-server\", MODE=\"0660\"\n"},
      {"unit.conf",
       "[Service]\nDeviceAllow=other/registers rw\nDeviceAllow=other/port1-line rw\nDeviceAllow=other/port2-line rw\n"},
  };
  for (const auto& row : kRows) {
    std::ifstream in(std::string(OTHER_BOARD "/") + row.file);
    const std::string text{std::istreambuf_iterator<char>(in), {}};
    EXPECT_NE(text.find(row.line), std::string::npos) << row.file << ": " << text;
  }
}

}  // namespace
}  // namespace businessserver
