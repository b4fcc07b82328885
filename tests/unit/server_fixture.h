// A whole server on the recording platform, with a board in a temporary directory: registers in dev/mem, the external
// line and the beacon link as pseudo-terminals.
#pragma once

#include <gtest/gtest.h>

#include <boost/shared_ptr.hpp>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include "devicesdk/register_block.h"
#include "fake_platform/fake_platform.h"
#include "protocol/json_text.h"
#include "protocol/names.h"
#include "protocol/parking_result.h"
#include "protocol/stored_documents.h"
#include "pty_line.h"
#include "server/business_server.h"

namespace businessserver {

// The key as the store sees it.
inline std::string KeyOf(const StoredDocument& stored) { return std::string(stored.key, stored.key_length); }

// A default as the store holds it, its NUL counted.
inline std::string DefaultOf(const StoredDocument& stored) {
  const std::string_view text = DefaultDocument(stored.default_index);
  return std::string(text.data(), text.size() + 1);
}

inline Json::Value Parsed(const std::string& text) {
  Json::Value document;
  EXPECT_TRUE(ParseJson(text, document)) << text;
  return document;
}

inline LX_ParkingResult Space(int status, const char* plate = kNoPlate, int trigger = 0) {
  LX_ParkingResult space = {};
  strncpy(space.plate, plate, sizeof space.plate);
  space.valid = 1;
  space.second_flag = 1;
  space.space_status = status;
  space.trigger = trigger;
  return space;
}

inline std::string Record(const LX_ParkingResult& first, const LX_ParkingResult& second = {},
                          const LX_ParkingResult& third = {}) {
  const LX_Parking_Result_Param record = {{first, second, third}, {}};
  return std::string(reinterpret_cast<const char*>(&record), sizeof record);
}

class ServerTest : public BoardTest {
 protected:
  ServerTest() { MakeMemoryDevice(); }

  // Starts the server and runs the script in its event loop, with all timers alive; then the loop ends. The server
  // catches what leaves the loop, a fault of the script included: the script must reach its end.
  void Run(const std::function<void()>& script) {
    boost::shared_ptr<BusinessServer> server(new BusinessServer);
    bool ended = false;
    Fake().on_poll = [&] {
      script();
      ended = true;
      throw std::runtime_error("end of test");
    };
    EXPECT_EQ(server->Start(), 0);
    EXPECT_TRUE(ended) << "the script threw: " << Fake().log.back().text;
  }

  // Sends a request and returns its one reply.
  Json::Value Request(const std::string& text, const char* type = kBusRequestMessage) {
    Fake().replies.clear();
    Fake().Deliver(type, text, 77);
    EXPECT_EQ(Fake().replies.size(), 1u) << text;
    if (Fake().replies.empty()) return Json::Value();
    EXPECT_EQ(Fake().replies[0].id, 77u);
    EXPECT_EQ(Fake().replies[0].type, type);
    return Parsed(Fake().replies[0].data);
  }

  // The state of the reply to a command, its body as JSON text.
  int StateOf(const std::string& command, const std::string& body, const char* type = kBusRequestMessage) {
    return Request(R"({"type":")" + command + R"(","body":)" + body + "}", type)["state"].asInt();
  }
  Json::Value BodyOf(const std::string& command) { return Request(R"({"type":")" + command + "\"}")["body"]; }

  // The documents broadcast since the last call, of one "type".
  std::vector<Json::Value> Broadcasts(const std::string& type) {
    std::vector<Json::Value> found;
    for (const auto& message : Fake().sent) {
      if (message.type != kBusBroadcastMessage) continue;
      const Json::Value document = Parsed(message.data);
      if (document[kType].asString() == type) found.push_back(document[kBody]);
    }
    Fake().sent.clear();
    return found;
  }

  static uint32_t LedRegister() { return Register(kLedGpioBlock.base + kGpioData); }

  // Everything that the server wrote to a line since the last call.
  std::string TakeBeacon() { return TakeAll("dev/ttyAMA1", beacon_); }
  std::string TakeExternal() { return TakeAll("dev/ttyAMA2", external_); }

  // The beacon module takes every command from now on, and knows its identity.
  void AnswerAsModule() {
    Fake().on_sleep = [this](unsigned) {
      std::string heard = TakeBeacon();
      told_ += heard;
      for (size_t end; (end = heard.find("\r\n")) != std::string::npos; heard.erase(0, end + 2)) {
        const std::string command = heard.substr(0, end);
        if (command.compare(0, 10, "DTM:UID-0x") == 0) identity_[0] = command.substr(10);
        if (command.compare(0, 10, "DTM:MAJ-0x") == 0) identity_[1] = command.substr(10);
        if (command.compare(0, 10, "DTM:MIN-0x") == 0) identity_[2] = command.substr(10);
        beacon_.Say(command != "DTM:INF" ? "MTD:OK\r\n"
                                         : "MTD:UID-0x" + identity_[0] + "\r\nMTD:MAJ-0x" + identity_[1] +
                                               "\r\nMTD:MIN-0x" + identity_[2] + "\r\nMTD:MEA--55\r\n");
      }
    };
  }
  std::string told_;  // what the module was told
  std::string identity_[3] = {"464143544F52592D4944454E54495459", "0001", "0002"};

  PtyLine beacon_{TTY_DEV_UART1};
  PtyLine external_{TTY_DEV_UART2};

 private:
  // A mark written behind the server's bytes tells where they end.
  static std::string TakeAll(const char* path, PtyLine& line) {
    const std::string mark = "\x01<end>\x02";
    const int fd = open(path, O_WRONLY | O_NOCTTY);
    EXPECT_EQ(write(fd, mark.data(), mark.size()), static_cast<ssize_t>(mark.size()));
    close(fd);
    std::string bytes;
    do {
      const std::string next = line.Heard(1);
      if (next.empty()) {
        ADD_FAILURE() << "the mark was lost";
        return bytes;
      }
      bytes += next;
    } while (bytes.size() < mark.size() || bytes.compare(bytes.size() - mark.size(), mark.size(), mark) != 0);
    return bytes.substr(0, bytes.size() - mark.size());
  }
};

}  // namespace businessserver
