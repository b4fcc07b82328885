// docs/messages.md against the server: its examples are played in their order, and nothing that the server knows is
// missing from the page.
#include <fstream>
#include <regex>

#include "../document_examples.h"
#include "hex_bytes.h"
#include "protocol/commands.h"
#include "server_fixture.h"

namespace businessserver {
namespace {

constexpr char kPage[] = "messages.md";

class MessagesPage : public ServerTest {
 protected:
  void Act(const DocumentExample& example, const std::string& word, const std::string& type) {
    Fake().sent.clear();
    Fake().replies.clear();
    heard_ = 0;
    TakeExternal();
    told_.clear();
    if (word == "request") Fake().Deliver(kBusRequestMessage, example.text);
    if (word == "external") Fake().Deliver(kBusExtRequestMessage, example.text);
    if (word == "publish") Fake().Deliver(type, example.text);
    if (word == "arrives") external_.Say(std::string("\0\xFF\x10", 3)), Fake().Advance(10);
    if (word == "run") RunCommandLine(example);
  }

  // What the command lines of the page have other programs do.
  void RunCommandLine(const DocumentExample& example) {
    LX_ParkingResult space = Space(1,
                                   "\xBE\xA9"
                                   "A12345");
    space.second_flag = 0;
    strcpy(space.space_name, "A-101");
    if (example.text.find("parkctl result --space 1 --occupied --plate 京A12345") == 0) {
      Fake().Deliver(kAvsSimulatorTrigger, Record(space));
    } else if (example.text.find("parkctl result --space 1 --free") == 0) {
      Fake().Deliver(kAvsParkRectChange, Record(Space(0)));
    } else if (example.text.find("parkctl store set sys_device_name") == 0) {
      Fake().store["sys_device_name_value"] = R"({"devicename": "Level 2 East"})";
    } else {
      EXPECT_EQ(example.text, "parkctl latest 2>/dev/null") << example.place;
    }
  }

  // In the order of the page; what has not happened yet gets the time to.
  bool Hears(const std::string& type, const std::string& text) {
    for (int second = 0; second < 10; ++second, Fake().Advance(1000)) {
      for (size_t i = heard_; i < Fake().sent.size(); ++i) {
        if (Fake().sent[i].type != type || !Same(text, Fake().sent[i].data)) continue;
        heard_ = i + 1;
        return true;
      }
    }
    return false;
  }

  size_t heard_ = 0;
};

TEST_F(MessagesPage, ExamplesAreWhatTheServerSays) {
  AnswerAsModule();
  Run([&] {
    TakeBeacon();
    for (const DocumentExample& example : DocumentExamples(kPage)) {
      const std::string word = example.kind.substr(0, example.kind.find(' '));
      const std::string type = example.kind.substr(example.kind.find(' ') + 1);
      if (word == "reply") {
        ASSERT_EQ(Fake().replies.size(), 1u) << example.place;
        EXPECT_TRUE(Same(example.text, Fake().replies[0].data)) << example.place << "\n" << Fake().replies[0].data;
      } else if (word == "broadcast" || word == "bus") {
        EXPECT_TRUE(Hears(word == "bus" ? type : kBusBroadcastMessage, example.text)) << example.place;
      } else if (word == "line") {
        const std::string bytes = TakeExternal();
        EXPECT_EQ(HexBytes(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()), example.text)
            << example.place;
      } else if (word == "beacon") {
        told_ += TakeBeacon();
        EXPECT_NE(told_.find(example.text + "\r\n"), std::string::npos) << example.place << "\n" << told_;
      } else if (!word.empty() && word != "output") {
        Act(example, word, type);
      }
    }
  });
}

TEST(MessagesPageIsWhole, NamesEverythingThatCrossesTheBus) {
  const std::string page = DocumentText(kPage);
  std::string requests;
  for (const DocumentExample& example : DocumentExamples(kPage)) {
    if (example.kind == "request" || example.kind == "external") requests += example.text + "\n";
  }
  std::ifstream names(SOURCE_DIRECTORY "/lib/businessserver/protocol/names.h");
  std::string section;
  std::smatch match;
  for (std::string line; std::getline(names, line);) {
    if (std::regex_match(line, match, std::regex("// ---- (.*) ----"))) section = match[1];
    if (!std::regex_match(line, match, std::regex(R"re(inline constexpr char k\w+\[\] = "(\w+)";)re"))) continue;
    const std::string name = match[1];
    const bool is_type = section.find("message types") != std::string::npos;
    EXPECT_TRUE(!is_type || page.find('`' + name + '`') != std::string::npos) << name << " is not on the page";
  }
  for (const Command& command : kCommands) {
    EXPECT_NE(requests.find('"' + std::string(command.name) + '"'), std::string::npos)
        << command.name << " has no example";
  }

  for (const StoredDocument* document : kStoredDocuments) {
    std::string row = std::string("| `") + document->key + "` | " + std::to_string(document->key_length) + " |";
    row += document->key_length == strlen(document->key) ? " no |" : " yes |";
    for (const Command& command : kCommands) {
      if (command.document != document) continue;
      row += (row.back() == '|' ? " `" : ", `") + std::string(command.name) + '`';
    }
    EXPECT_NE(page.find(row), std::string::npos) << "no row " << row;
  }
  for (const RequestStatus& status :
       {kAllDone, kRequestDataError, kRequestNotJson, kErrorType, kSetError, kExternalControlOff}) {
    const std::string row = "| " + std::to_string(status.state) + " | " + status.error_msg + " |";
    EXPECT_NE(page.find(row), std::string::npos) << "no row " << row;
  }
  const std::string rights = DocumentText("../packaging/device/bus.acl");
  const std::string own = rights.substr(0, rights.find("user recogniser"));
  for (const char* type : DP_METHOD) {
    EXPECT_NE(own.find(std::string("topic read ") + type + "\n"), std::string::npos) << type;
  }
}

}  // namespace
}  // namespace businessserver
