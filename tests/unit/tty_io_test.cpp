#include "devicesdk/tty_io.h"

#include <boost/shared_ptr.hpp>
#include <cstring>
#include <thread>

#include "pty_line.h"

namespace businessserver {
namespace {

TEST(LineSettings, GoldenValues) {
  constexpr tcflag_t kLine = CREAD | CLOCAL;
  const std::tuple<const char*, int, int, int, int, int, tcflag_t> rows[] = {
      {"default of the external line", 8, 0, 1, 9600, 0, kLine | CS8 | B9600},
      {"beacon link", 8, 0, 1, 115200, 0, kLine | CS8 | B115200},
      {"odd", 8, 1, 1, 19200, 0, kLine | CS8 | PARENB | PARODD | B19200},
      {"even, 7 bits, 2 stop bits", 7, 2, 2, 1200, 0, kLine | CS7 | PARENB | CSTOPB | B1200},
      {"space keeps 2 stop bits", 8, 115, 2, 38400, 0, kLine | CS8 | CSTOPB | B38400},
      {"unlisted speed stops the line", 8, 0, 1, 57600, 0, kLine | CS8},
      {"data bits are checked first", 9, 3, 3, 9600, 5, 0},
      {"parity second", 8, 3, 3, 9600, 2, 0},
      {"stop bits last", 8, 0, 3, 9600, 3, 0},
  };
  for (const auto& [name, databits, parity, stopbits, baudrate, code, control] : rows) {
    SCOPED_TRACE(name);
    termios settings;
    memset(&settings, 0xA5, sizeof settings);
    ASSERT_EQ(code, BuildLineSettings(databits, parity, stopbits, baudrate, settings));
    if (code != 0) continue;
    termios expected = {};
    expected.c_iflag = IGNPAR;
    expected.c_cflag = control;
    expected.c_cc[VMIN] = 1;
    EXPECT_EQ(0, memcmp(&expected, &settings, sizeof settings));
  }
}

TEST(LineSettings, Speeds) {
  const std::pair<int, tcflag_t> rows[] = {{300, B300},   {1200, B1200},   {2400, B2400},   {4800, B4800},
                                           {9600, B9600}, {19200, B19200}, {38400, B38400}, {115200, B115200}};
  for (const auto& [baudrate, code] : rows) {
    termios settings;
    EXPECT_EQ(0, BuildLineSettings(8, 0, 1, baudrate, settings));
    EXPECT_EQ(code, settings.c_cflag & CBAUD) << baudrate;
  }
}

class TtyTest : public BoardTest {
 protected:
  void Open() {
    ASSERT_EQ(1, tty_->TTY_Ready(TTY_DEV_UART2));
    ASSERT_EQ(0, tty_->TTY_SetParity(8, 0, 1, 9600));
  }

  PtyLine line_{2};
  boost::shared_ptr<TtyioControl> tty_{new TtyioControl};
  char buf_[1024] = {};
};

TEST_F(TtyTest, RoutesThePinsOfAllPortsAndLeavesThePortAsFound) {
  const termios found = line_.Settings();
  MakeMemoryDevice(kPinMux);
  Open();  // with a memory device too short to map
  MakeMemoryDevice();
  Open();
  EXPECT_EQ(3u, Register(kPinMux + 0xCC));
  EXPECT_EQ(3u, Register(kPinMux + 0xD0));
  ASSERT_NE(found.c_cflag, line_.Settings().c_cflag);
  line_.Say("at the old speed");
  EXPECT_EQ(0, tty_->TTY_SetParity(8, 0, 1, 1200));
  EXPECT_EQ(0, line_.Queued());
  tty_->TTY_Clean();
  EXPECT_EQ(found.c_cflag, line_.Settings().c_cflag);
  EXPECT_EQ(found.c_iflag, line_.Settings().c_iflag);
}

TEST_F(TtyTest, ReceivesUntilAGapOrTheLimit) {
  Open();
  EXPECT_EQ(0, tty_->TTY_Recvn(buf_, 1024));
  EXPECT_TRUE(Fake().shell.empty()) << "slept on a silent line";

  Fake().on_sleep = [&](unsigned) {
    if (Fake().shell.size() == 1) line_.Say("second");
  };
  line_.Say("first ");
  EXPECT_EQ(9, tty_->TTY_Recvn(buf_, 9));
  EXPECT_STREQ("first sec", buf_);
  EXPECT_EQ(3, tty_->TTY_Recvn(buf_, 1024));
  EXPECT_EQ((std::vector<std::string>{"sleep 30000", "sleep 30000"}), Fake().shell);

  line_.Say("Xabcdefgh");
  EXPECT_EQ(1, tty_->TTY_Recvn(buf_, 1));
  EXPECT_EQ(5, tty_->TTY_Recvn(buf_, 5));
  EXPECT_EQ("abcde", std::string(buf_, 5));
  EXPECT_EQ(0, tty_->TTY_Recvn(buf_, 0) + tty_->TTY_RecvNB(buf_, 0)) << "must not try to make room for nothing";
  EXPECT_EQ(3, line_.Queued());
}

TEST_F(TtyTest, KeepsTheNewestOfWhatIsQueued) {
  Open();
  const std::string newest(1024, 'n');
  line_.Say(std::string(476, 'o') + newest);
  EXPECT_EQ(1024, tty_->TTY_RecvNB(buf_, 1024));
  EXPECT_EQ(newest, std::string(buf_, 1024));
  for (const size_t older : {3000, 1}) {
    line_.Say(std::string(older, 'o') + "tail");
    EXPECT_EQ(4, tty_->TTY_RecvNB(buf_, 4));
    EXPECT_EQ("tail", std::string(buf_, 4));
  }
}

TEST_F(TtyTest, SendingDropsStaleInputOnlyWhenAskedTo) {
  Open();
  const std::string frame("\x00\xFF\r\n\x11\x13\x03", 7);  // nothing on the way may change a byte
  line_.Say("stale");
  EXPECT_EQ(7, tty_->TTY_SendnNB(frame.data(), 7));
  EXPECT_EQ(5, line_.Queued());
  EXPECT_EQ(7, tty_->TTY_Sendn(frame.data(), 7));
  EXPECT_EQ(0, line_.Queued());
  EXPECT_EQ(frame + frame, line_.Heard(14));
  EXPECT_EQ(1, tty_->TTY_SendnNB("x", 1));
  EXPECT_EQ(0, tty_->TTY_SendnNB(frame.data(), 0));
  EXPECT_TRUE(Fake().Logged(1, "SEND bytes : 0"));
}

TEST_F(TtyTest, SendsMoreThanTheLineTakesAtOnce) {
  Open();
  std::string sent;
  for (int i = 0; i < 100000; ++i) sent += static_cast<char>(i % 251);
  std::string heard;
  std::thread far_end([&] { heard = line_.Heard(sent.size()); });
  EXPECT_EQ(100000, tty_->TTY_SendnNB(sent.data(), 100000));
  far_end.join();
  EXPECT_EQ(sent, heard);
}

TEST_F(TtyTest, LongWorkIsReportedWhileItGoesOn) {
  Open();
  Fake().progress_reports = 0;
  EXPECT_EQ(100, tty_->TTY_SendnNB(buf_, 100));
  EXPECT_GE(Fake().progress_reports, 1);
  Fake().progress_reports = 0;
  Fake().on_sleep = [this, said = 0](unsigned) mutable {
    if (said++ < 3) line_.Say("x");
  };
  line_.Say("x");
  EXPECT_EQ(4, tty_->TTY_Recvn(buf_, 1024));
  EXPECT_GE(Fake().progress_reports, 4) << "one for each read";
}

TEST_F(TtyTest, KnowsHowLongBytesTake) {
  EXPECT_EQ(0, tty_->TTY_SendTime(1000)) << "not open";
  Open();
  const std::tuple<int, int, int, int, int> rows[] = {
      {8, 0, 1, 9600, 1041},  // pseudo-terminals know neither parity nor 7 bits
      {8, 0, 2, 9600, 1145},
      {8, 0, 1, 300, 33333},
      {8, 0, 1, 115200, 86},
      {8, 0, 1, 57600, 1041}};
  for (const auto& [databits, parity, stopbits, baudrate, milliseconds] : rows) {
    ASSERT_EQ(0, tty_->TTY_SetParity(databits, parity, stopbits, baudrate));
    EXPECT_EQ(milliseconds, tty_->TTY_SendTime(1000)) << baudrate;
  }
}

TEST_F(TtyTest, CleanNeverClosesStandardInput) {
  const int kept = dup(0);
  close(0);
  EXPECT_EQ(1, tty_->TTY_Ready(TTY_DEV_UART2));
  ASSERT_EQ(1, isatty(0)) << "the port was to get descriptor 0";
  tty_->TTY_Clean();
  EXPECT_NE(-1, fcntl(0, F_GETFD));
  dup2(kept, 0);
  close(kept);
}

TEST_F(TtyTest, APortThatIsNotOpenFailsHarmlessly) {
  for (const char* state : {"never opened", "open failed", "closed"}) {
    SCOPED_TRACE(state);
    EXPECT_EQ(1, tty_->TTY_SetParity(8, 0, 1, 9600));
    EXPECT_EQ(0, tty_->TTY_Recvn(buf_, 8) + tty_->TTY_RecvNB(buf_, 8));
    EXPECT_EQ(0, tty_->TTY_Sendn("x", 1) + tty_->TTY_SendnNB("x", 1));
    EXPECT_EQ(2, tty_->TTY_Lock() + tty_->TTY_Unlock());
    tty_->TTY_Clean();
    if (std::string(state) == "open failed") Open();
    EXPECT_EQ(0, tty_->TTY_Ready(TTY_DEV_UART1));
    EXPECT_TRUE(Fake().Logged(3, "Failed to open TTY FD dev/ttyAMA1"));
  }
}

}  // namespace
}  // namespace businessserver
