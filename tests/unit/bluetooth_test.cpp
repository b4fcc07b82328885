#include "devicesdk/bluetooth.h"

#include <boost/shared_ptr.hpp>
#include <map>
#include <vector>

#include "pty_line.h"

namespace businessserver {
namespace {

const std::string kUuidLine = "MTD:UID-0x666F7572207061726B20626561636F6E\r\n";
const std::string kIdentity = kUuidLine + "MTD:MAJ-0x0065\r\nMTD:MIN-0xFFFE\r\nMTD:MEA--55\r\nMTD:OK\r\n";
const unsigned char kTime[] = "20240229235958 and more";
const char kLongName[] = "01234567890123456789 never read";
const unsigned char kUuid[] = "\x80\xFF\0 456789abcdef";

struct Identity {
  char uuid[18] = "----------------";
  unsigned short major = 7, minor = 8;
  int power = 9;

  std::string Text() const {
    return uuid + (' ' + std::to_string(major)) + ' ' + std::to_string(minor) + ' ' + std::to_string(power);
  }
};

TEST(BeaconText, IdentityReplies) {
  const std::tuple<const char*, std::string, std::string> rows[] = {
      {"whole", kIdentity, "four park beacon 101 65534 -55"},
      {"first line only", kUuidLine, "four park beacon 7 8 9"},
      {"an odd digit, then the line ends", "MTD:UID-0x414\nMTD:MAJ-0x1", "A\x04-------------- 1 8 9"},
      {"lines end within their prefixes", "MTD:UID\nMTD:\nM\nMTD:MEA", "---------------- 7 8 9"},
      {"not hex", "MTD:UID-0xZZ41G0 4\nMTD:MAJ-0xZZ\nMTD:MIN-0x1G", "-A-\x04------------ 7 1 9"},
      {"300 digits", "MTD:UID-0x" + std::string(300, '4'), "DDDDDDDDDDDDDDDD 7 8 9"},
      {"large", "----------\n----------12345\n----------" + std::string(30, 'F') + "\n--------9999999999",
       "---------------- 9029 65535 2147483647"},
      {"power is no number", "MTD:UID-0x\n\n\nMTD:MEA-x", "---------------- 7 8 0"},
  };
  for (const auto& [name, said, expected] : rows) {
    BeaconText reply;  // a full one has no terminator
    reply.size = static_cast<int>(said.copy(reply.bytes, sizeof reply.bytes));
    Identity identity;
    ReadIdentity(reply, identity.uuid, &identity.major, &identity.minor, &identity.power);
    EXPECT_EQ(expected, identity.Text()) << name;
    EXPECT_EQ(0, identity.uuid[kBeaconUuidSize]) << name;
  }
}

TEST(BeaconText, ValuesThatTheModuleTakes) {
  std::string taken;
  for (int ms = -1; ms < 2000; ++ms) taken += IsBeaconPeriod(ms) ? std::to_string(ms) + " " : "";
  for (int dbm = -100; dbm < 100; ++dbm) taken += IsBeaconSendPower(dbm) ? std::to_string(dbm) + " " : "";
  EXPECT_EQ("100 200 330 500 1000 -23 -6 -5 0 4 12 15 18 ", taken);
}

class BeaconTest : public BoardTest {
 protected:
  void SetUp() override {
    MakeMemoryDevice();
    ASSERT_EQ(0, beacon_->Uart1_Init());
  }
  // Lets the module say something while the driver sleeps for the n-th time.
  void Answer(const std::map<int, std::string>& answer_at_sleep) {
    sleeps_ = 0;
    Fake().log.clear();
    Fake().on_sleep = [this, answer_at_sleep](unsigned) {
      const auto answer = answer_at_sleep.find(++sleeps_);
      if (answer != answer_at_sleep.end()) line_.Say(answer->second);
    };
  }

  PtyLine line_{1};
  boost::shared_ptr<BlueTooth> beacon_{new BlueTooth};
  int sleeps_ = 0;
};

using Operation = int (*)(BlueTooth&);

// What a command puts on the line, and what is logged of one that could not be sent.
const std::tuple<std::string, const char*, Operation> kOnTheLine[] = {
    {"DTM:UID-0x80FF0020343536373839616263646566\r\n", "2 send tty uuid : DTM:UID|3 SetUUID Send Data failed 0|",
     [](BlueTooth& b) { return b.SetUUID(kUuid); }},
    {"DTM:MAJ-0x0065\r\n", "3 SetUUID Send Data failed0|", [](BlueTooth& b) { return b.SetMajor(101); }},
    {"DTM:MIN-0xFFFE\r\n", "3 SetMinor Send Data failed 0|", [](BlueTooth& b) { return b.SetMinor(65534); }},
    {"DTM:NAM-01234567890123456789\r\n", "3 devName = DTM:NAM|3 SetName Send Data failed 0|",
     [](BlueTooth& b) { return b.SetBluetoothName(kLongName, 20); }},
    {"DTM:INT-330\r\n", "3 SetBroardCastPeriod = DTM:INT|3 SetBroardCastPeriod Send Data failed 0|",
     [](BlueTooth& b) { return b.SetBroardCastPeriod(330); }},
    {"DTM:TXP--5\r\n", "3 SetSendPower Send Data failed 0|", [](BlueTooth& b) { return b.SetSendPower(-5); }},
    {"DTM:MEA--90\r\n", "3 SetTestPower Send Data failed 0|", [](BlueTooth& b) { return b.SetTestPower(-90); }},
    {"DTM:MEA--20\r\n", "3 SetTestPower Send Data failed 0|", [](BlueTooth& b) { return b.SetTestPower(-20); }},
    {"DTM:RTC-20240229235958\r\n", "3 SetRTCTime: DTM:RTC|3 SetName Send Data failed 0|",
     [](BlueTooth& b) { return b.SetRTCTime(kTime); }},
};

TEST_F(BeaconTest, CommandsOnTheLine) {
  for (const auto& [bytes, unsent, run] : kOnTheLine) {
    SCOPED_TRACE(bytes);
    Answer({{1, "MTD:OK\r\n"}});
    line_.Say("MTD:ERR stale\r\n");
    EXPECT_EQ(0, run(*beacon_));
    EXPECT_EQ(bytes, line_.Heard(bytes.size()));
  }
}

TEST_F(BeaconTest, RefusedValuesSendNothing) {
  const std::pair<const char*, Operation> rows[] = {
      {"input arg error!", [](BlueTooth& b) { return b.SetUUID(nullptr); }},
      {"input arg error!", [](BlueTooth& b) { return b.SetBluetoothName(kLongName, 21); }},
      {"input arg error!", [](BlueTooth& b) { return b.SetBluetoothName(kLongName, -1); }},
      {"input arg error!", [](BlueTooth& b) { return b.SetBluetoothName("a\r\nDTM:TXP-18", 14); }},
      {"input arg error!", [](BlueTooth& b) { return b.SetBluetoothName("\0", 1); }},
      {"input arg error!", [](BlueTooth& b) { return b.SetTestPower(-19); }},
      {"input arg error!", [](BlueTooth& b) { return b.SetTestPower(-91); }},
      {"unsupport BroardCastPeriod 300", [](BlueTooth& b) { return b.SetBroardCastPeriod(300); }},
      {"unsupport BroardCastPeriod -4", [](BlueTooth& b) { return b.SetSendPower(-4); }},
  };
  for (const auto& [text, run] : rows) {
    Fake().log.clear();
    EXPECT_EQ(-1, run(*beacon_)) << text;
    EXPECT_TRUE(Fake().log.size() == 1 && Fake().Logged(3, text)) << text;
  }
  beacon_->SetSendPower(18);
  EXPECT_EQ("DTM:TXP-18\r\n", line_.Heard(12)) << "the first bytes on the line are the first accepted command's";
}

TEST_F(BeaconTest, AcceptedOnlyInTimeAndInOnePiece) {
  const std::string noise(4000, '\xA5');
  const std::tuple<const char*, std::map<int, std::string>, int, int, std::string> rows[] = {
      {"at the last poll", {{9, "MTD:OK\r\n"}}, 0, 9, "MTD:OK\r\n"},
      {"after the last poll", {{10, "MTD:OK\r\n"}}, -1, 10, ""},
      {"no line end", {{1, "MTD:OK"}}, 0, 1, "MTD:OK"},
      {"split", {{1, "MTD:O"}, {2, "K\r\n"}}, -1, 10, "K\r\n:O"},
      {"split so that old bytes would complete it", {{1, "xTD:OK"}, {2, "M"}}, -1, 10, "MTD:OK"},
      {"after noise", {{1, noise + "MTD:OK\r\n"}}, -1, 10, noise.substr(0, 92) + "MTD:OK\r\n"},
      {"refused, then accepted", {{2, "MTD:ERR\r\n"}, {3, "MTD:OK\r\n"}}, 0, 3, "MTD:OK\r\n\n"},
  };
  for (const auto& [name, answers, result, sleeps, kept] : rows) {
    Answer(answers);
    EXPECT_EQ(result, beacon_->SetMajor(1)) << name;
    EXPECT_EQ(sleeps, sleeps_) << name;
    EXPECT_EQ("sleep 5000", Fake().shell.back());
    EXPECT_TRUE(Fake().Logged(3, "Recv RetBuf : " + kept)) << name;
  }
}

TEST_F(BeaconTest, ReadsTheIdentityOnceAfter50Ms) {
  Identity identity;
  Answer({{1, kIdentity}});
  EXPECT_EQ(0, beacon_->GetDeviceInfo(identity.uuid, &identity.major, &identity.minor, &identity.power));
  EXPECT_EQ("DTM:INF\r\n", line_.Heard(9));
  EXPECT_EQ(std::vector<std::string>{"sleep 50000"}, Fake().shell);
  EXPECT_EQ("four park beacon 101 65534 -55", identity.Text());

  Answer({{1, "noise MTD:UID"}});
  EXPECT_EQ(-1, beacon_->GetDeviceInfo(identity.uuid, nullptr, nullptr, nullptr));
  EXPECT_TRUE(Fake().Logged(3, "GetUUID ERR noise MTD:UID"));

  Answer({{1, kIdentity}});
  testing::internal::CaptureStdout();
  EXPECT_EQ(0, beacon_->GetDeviceInfo(nullptr, nullptr, nullptr, nullptr));
  EXPECT_EQ("input arg error!\n", testing::internal::GetCapturedStdout());
}

TEST_F(BeaconTest, ReadsTheClock) {
  unsigned char time[15] = {};
  Answer({{1, "MTD:OK\r\n"}, {9, "MTD:RTC-20240229235958\r\n"}});
  EXPECT_EQ(0, beacon_->GetRTCTime(time));
  EXPECT_EQ("DTM:RTC-?\r\n", line_.Heard(11));
  EXPECT_STREQ("20240229235958", reinterpret_cast<char*>(time));
}

TEST_F(BoardTest, BeaconWithoutAPort) {
  boost::shared_ptr<BlueTooth> beacon(new BlueTooth);
  EXPECT_EQ(-1, beacon->Uart1_Init());
  EXPECT_TRUE(Fake().Logged(3, "open /dev/mem failed"));
  MakeMemoryDevice();
  EXPECT_EQ(1, beacon->Uart1_Init());
  EXPECT_TRUE(Fake().Logged(3, "ERR:TTY_SetParity fail errnum : 1"));
  EXPECT_EQ(3u, Register(kPinMux + 0xC0));
  EXPECT_EQ(3u, Register(kPinMux + 0xC8));
  EXPECT_EQ(2, OpenDescriptors("dev/mem")) << "the serial driver's two, none of its own";
  const auto check = [&](const char* unsent, Operation run) {
    Fake().log.clear();
    EXPECT_EQ(-1, run(*beacon)) << unsent;
    std::string logged;
    for (const auto& [level, source, text] : Fake().log) {
      if (level != 1) logged += std::to_string(level) + " " + text.substr(0, text.find('-')) + "|";
    }
    EXPECT_EQ(unsent, logged);
  };
  for (const auto& [bytes, unsent, run] : kOnTheLine) check(unsent, run);
  check("3 GetRTCTime: DTM:RTC|3 GetRTCTime Send Data failed 0|", [](BlueTooth& b) {
    unsigned char time[15];
    return b.GetRTCTime(time);
  });
  check("3 GetRTCTime Send Data failed 0|",
        [](BlueTooth& b) { return b.GetDeviceInfo(nullptr, nullptr, nullptr, nullptr); });
  EXPECT_TRUE(Fake().shell.empty()) << "waits for no answer to what was not sent";
}

}  // namespace
}  // namespace businessserver
