// What the fuzz targets share: a whole server on the recording platform, on a board whose serial lines are pipes, and
// the promises that everything it sends must keep. Inputs of several parts are split at the line "--".
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/shared_ptr.hpp>
#include <cstring>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "fake_platform/fake_platform.h"
#include "protocol/commands.h"
#include "protocol/json_text.h"
#include "server/business_server.h"
#include "target.h"

namespace businessserver {
struct BusinessServerTestAccess {
  static void FreeFrameBuilder(BusinessServer& server) {
    delete server.rs485_pro_;
  }  // else kept until the process ends
};
}  // namespace businessserver

namespace fuzz {

using namespace businessserver;

inline std::vector<std::string_view> Parts(std::string_view input, std::string_view mark = "\n--\n") {
  std::vector<std::string_view> parts;
  for (size_t end; (end = input.find(mark)) != std::string_view::npos; input.remove_prefix(end + mark.size())) {
    parts.push_back(input.substr(0, end));
  }
  parts.push_back(input);
  return parts;
}

// Cuts the first byte off and chooses by it: 'a' is the first of count.
inline size_t Choose(std::string_view& text, size_t count) {
  if (text.empty()) return 0;
  const size_t choice = static_cast<uint8_t>(text[0] - 'a') % count;
  text.remove_prefix(1);
  return choice;
}

// A serial line as a pipe: what the driver writes and what it is told lie in one queue, so it is emptied in between.
class Line {
 public:
  explicit Line(const char* path) {
    MUST_HOLD(mkfifo(path, 0600) == 0);
    fd_ = open(path, O_RDWR | O_NONBLOCK);
    fcntl(fd_, F_SETPIPE_SZ, 1 << 20);
  }
  void Say(std::string_view bytes) { MUST_HOLD(write(fd_, bytes.data(), bytes.size()) >= 0); }
  void Empty() {
    char chunk[4096];
    while (read(fd_, chunk, sizeof chunk) > 0) {
    }
  }

 private:
  int fd_;
};

// The memory device cannot be mapped: the registers are held in memory and leave no mappings behind.
struct Board {
  static std::string Directory() {
    static std::string name = std::filesystem::temp_directory_path() / "fuzz-board.XXXXXX";
    static const bool made = mkdtemp(name.data()) != nullptr && mkdir((name + "/dev").c_str(), 0700) == 0 &&
                             symlink("/dev/null", (name + "/dev/mem").c_str()) == 0 && chdir(name.c_str()) == 0 &&
                             atexit([] { std::filesystem::remove_all(Directory()); }) == 0;
    MUST_HOLD(made);
    return name;
  }
  const std::string directory = Directory();
  Line beacon{"dev/ttyAMA1"}, external{"dev/ttyAMA2"};
  const int first_free_descriptor = dup(0);
};

inline Board& TheBoard() {
  static Board board;
  return board;
}

// Runs the script in the event loop of a server that has just started.
template <typename Script>
void WithServer(Script script) {
  TheBoard().beacon.Empty();
  TheBoard().external.Empty();
  boost::shared_ptr<BusinessServer> server(new BusinessServer);
  bool ran = false;
  Fake().on_poll = [&] {
    script();
    ran = true;
    throw std::runtime_error("end of the input");
  };
  server->Start();
  MUST_HOLD(ran);  // else the start, or the script, let an exception out
  BusinessServerTestAccess::FreeFrameBuilder(*server);
  server.reset();
  close_range(static_cast<unsigned>(TheBoard().first_free_descriptor), ~0u, 0);  // the drivers keep theirs
}

inline Json::Value MustParse(const std::string& text) {
  Json::Value document;
  MUST_HOLD(ParseJson(text, document));
  return document;
}

// What was published since the last call is whole.
inline void CheckPublished() {
  for (const auto& message : Fake().sent) {
    if (message.type == kBusSimulatorTrigger) {
      MUST_HOLD(message.data.size() == sizeof(LX_Parking_Result_Param));
    } else {
      MUST_HOLD(message.type == kBusBroadcastMessage || message.type == kHttpRequestMessageRoot);
      MUST_HOLD(MustParse(message.data)[kType].isString());
    }
  }
  Fake().sent.clear();
  Fake().log.clear();
  TheBoard().external.Empty();
}

// Hands a message over in a block of exactly its size, as the bus does; a request gets one reply, the others none.
inline void Deliver(const std::string& type_text, std::string_view payload) {
  const std::unique_ptr<char[]> block(new char[sizeof(_TagDpMsg) + payload.size() + 1]());
  auto* const msg = reinterpret_cast<_TagDpMsg*>(block.get());
  msg->type_name_len = static_cast<uint8_t>(type_text.copy(msg->type_name, sizeof msg->type_name - 1));
  const std::string type = msg->type_name;
  msg->data_size = static_cast<uint32_t>(payload.size());
  memcpy(msg + 1, payload.data(), payload.size());
  Fake().replies.clear();
  Fake().on_message(nullptr, msg, Fake().user);
  MUST_HOLD(Fake().replies.size() == (type == kBusRequestMessage || type == kBusExtRequestMessage ? 1 : 0));
  for (const auto& reply : Fake().replies) {
    if (reply.data.size() == sizeof(LX_Parking_Result_Param)) continue;  // the latest result
    const int state = MustParse(reply.data)[kState].asInt();
    MUST_HOLD(reply.type == type && (state == 200 || (state >= 401 && state <= 405)));
  }
  CheckPublished();
}

inline void Request(const std::string& command, std::string_view body, const char* path = kBusRequestMessage) {
  Deliver(path, "{\"type\":\"" + command + "\",\"body\":" + std::string(body) + "}");
}

}  // namespace fuzz
