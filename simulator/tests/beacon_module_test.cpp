#include "desk/beacon_module.h"

#include <gtest/gtest.h>

#include <vector>

#include "near_end.h"

namespace desk {
namespace {

using Milliseconds = Loop::Milliseconds;

TEST(BeaconAnswer, AcceptsWhatTheModuleAcceptsAndRefusesTheRest) {
  struct Row {
    const char* command;
    const char* answer;
  };
  const Row rows[] = {
      {"DTM:UID-0x50415243 - not hex", "MTD:ERROR\r\n"},
      {"DTM:UID-0x000102030405060708090A0B0C0D0E0F", "MTD:OK\r\n"},
      {"DTM:UID-0x000102030405060708090A0B0C0D0E", "MTD:ERROR\r\n"},
      {"DTM:MAJ-0x0065", "MTD:OK\r\n"},
      {"DTM:MAJ-0x65", "MTD:ERROR\r\n"},
      {"DTM:MIN-0xFFFF", "MTD:OK\r\n"},
      {"DTM:NAM-12345678901234567890", "MTD:OK\r\n"},
      {"DTM:NAM-123456789012345678901", "MTD:ERROR\r\n"},
      {"DTM:INT-330", "MTD:OK\r\n"},
      {"DTM:INT-300", "MTD:ERROR\r\n"},
      {"DTM:INT-", "MTD:ERROR\r\n"},
      {"DTM:TXP--23", "MTD:OK\r\n"},
      {"DTM:TXP--4", "MTD:ERROR\r\n"},
      {"DTM:MEA--55", "MTD:OK\r\n"},
      {"DTM:MEA--91", "MTD:ERROR\r\n"},
      {"DTM:RTC-20260301123456", "MTD:OK\r\n"},
      {"DTM:RTC-?", "MTD:RTC-20260301123456\r\n"},
      {"dtm:inf", "MTD:ERROR\r\n"},
      {"", "MTD:ERROR\r\n"},
  };
  BeaconState state;
  for (const auto& row : rows) EXPECT_EQ(AnswerBeaconCommand(row.command, state), row.answer) << row.command;
  EXPECT_EQ(state.uuid, std::string("\x00\x01\x02\x03\x04\x05\x06\x07\x08\x09\x0A\x0B\x0C\x0D\x0E\x0F", 16));
  EXPECT_EQ(state.major, 0x65);
  EXPECT_EQ(state.minor, 0xFFFF);
  EXPECT_EQ(state.name, "12345678901234567890");
  EXPECT_EQ(state.period, 330);
  EXPECT_EQ(state.send_power, -23);
  EXPECT_EQ(state.measured_power, -55);
}

TEST(BeaconAnswer, IdentityFitsTheBufferThatItIsReadInto) {
  BeaconState state;
  state.uuid = "PARKING-LEVEL-B1";
  state.major = 7;
  state.minor = 0xABCD;
  state.measured_power = -90;
  const std::string identity = AnswerBeaconCommand("DTM:INF", state);
  EXPECT_EQ(
      identity,
      "MTD:UID-0x5041524B494E472D4C4556454C2D4231\r\nMTD:MAJ-0x0007\r\nMTD:MIN-0xABCD\r\nMTD:MEA--90\r\nMTD:END\r\n");
  EXPECT_LE(identity.size(), 100u);
}

class BeaconLine : public testing::Test {
 protected:
  BeaconLine() : line_(loop_), module_(loop_, line_) {
    std::string problem;
    EXPECT_TRUE(line_.Open(directory_.path.string() + "/line", problem)) << problem;
    near_ = std::make_unique<NearEnd>(directory_.path.string() + "/line");
    module_.OnCommand([this](const std::string& command, const std::string&) { commands_.push_back(command); });
  }

  // What has come back some time after a command.
  std::string Exchange(const std::string& command, Milliseconds wait) {
    EXPECT_TRUE(near_->Write(command));
    loop_.RunFor(wait);
    return near_->Read();
  }

  // The same for an answer that has to come, on a busy machine too.
  std::string Answer(const std::string& command) {
    std::string answer = Exchange(command, Milliseconds(1));
    loop_.RunUntil([&] { return (answer += near_->Read()).find("\r\n") != std::string::npos; }, Milliseconds(5000));
    return answer;
  }

  TemporaryDirectory directory_;
  Loop loop_;
  Pty line_;
  BeaconModule module_;
  std::unique_ptr<NearEnd> near_;
  std::vector<std::string> commands_;
};

TEST_F(BeaconLine, CommandsAreTakenOneByOneHoweverTheyArrive) {
  EXPECT_EQ(Exchange("DTM:MAJ-0x0001\r\nDTM:BAD\r\nDTM:MI", Milliseconds(30)), "MTD:OK\r\nMTD:ERROR\r\n");
  EXPECT_EQ(Exchange("N-0x0002\r\n", Milliseconds(30)), "MTD:OK\r\n");
  EXPECT_EQ(commands_, (std::vector<std::string>{"DTM:MAJ-0x0001", "DTM:BAD", "DTM:MIN-0x0002"}));
}

TEST_F(BeaconLine, SilentAndUnpluggedModulesTakeNothingUp) {
  module_.Behave(BeaconManner::kSilent);
  EXPECT_EQ(Exchange("DTM:MAJ-0x0009\r\n", Milliseconds(30)), "");
  module_.Behave(BeaconManner::kPrompt);
  module_.Unplug();
  EXPECT_EQ(Exchange("DTM:MAJ-0x0009\r\n", Milliseconds(30)), "");
  EXPECT_EQ(module_.state().major, 1);
  module_.Plug();
  EXPECT_EQ(Answer("DTM:MAJ-0x0009\r\n"), "MTD:OK\r\n");
  EXPECT_EQ(module_.state().major, 9);
}

TEST_F(BeaconLine, AnswersComeLateInPiecesOrSpoilt) {
  module_.Behave(BeaconManner::kSlow, Milliseconds(200));
  EXPECT_EQ(Exchange("DTM:MAJ-0x0001\r\n", Milliseconds(50)), "");
  EXPECT_EQ(Answer(""), "MTD:OK\r\n");
  module_.Behave(BeaconManner::kGarbage);
  EXPECT_NE(Exchange("DTM:MAJ-0x0001\r\n", Milliseconds(30)).find("\x80?#"), std::string::npos);
  module_.Behave(BeaconManner::kSplit);
  EXPECT_TRUE(near_->Write("DTM:MAJ-0x0001\r\n"));
  std::vector<std::string> pieces;
  loop_.RunUntil(
      [&] {
        const std::string piece = near_->Read();
        if (!piece.empty()) pieces.push_back(piece);
        return pieces.size() == 2;
      },
      Milliseconds(500));
  EXPECT_EQ(pieces, (std::vector<std::string>{"MTD", ":OK\r\n"}));
}

}  // namespace
}  // namespace desk
