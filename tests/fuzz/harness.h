// What the fuzz targets of the server share: a whole server with its real drivers on a board in memory, and the
// promises that everything it sends must keep. One server lives through all inputs; before each it is put back to how
// it was after its start.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "fake_platform/fake_platform.h"
#include "memory_board/memory_board.h"
#include "parts.h"
#include "protocol/commands.h"
#include "protocol/json_text.h"
#include "protocol/parking_result.h"
#include "target.h"

namespace fuzz {

using namespace businessserver;

// Serial lines, registers and the recording platform's clock. What the driver writes to a line is counted and
// forgotten; the beacon module at the other one takes every command, unless the target answers in its place.
class Board : public memory_board::MemoryBoard {
 public:
  Board();
  memory_board::Micros Now() const override { return Fake().now_ms * memory_board::kMillisecond; }
  void PassUntil(memory_board::Micros when) override;
  time_t WallClock() const override;
  void OnWrite(int, std::string_view) override {}

  void Say(int number, std::string_view bytes) { line(number).Arrive(bytes, Now()); }
  void DropInput(int number) { line(number).DropInput(Now()); }

  bool module_answers = true;
};
Board& TheBoard();

// Runs the script on the server that has started with the default documents. Some inputs, chosen by their bytes, run
// twice, the second time on a new server: what it publishes, answers, stores and writes must be the same, else
// something outlives its input here.
void WithServer(std::string_view input, const std::function<void()>& script);

// An empty store, lines at rest, nothing kept of the past.
void ResetWorld();

// Runs the script on a server that starts now, with what the recording platform's store holds.
void WithNewServer(const std::function<void()>& script);

Json::Value MustParse(const std::string& text);
void MustBeJson(const std::string& text);  // the same, cheaper for texts that were seen before

// What was published since the last call is whole.
void CheckPublished();

// Hands a message over in a block of exactly its size, as the bus does; a request gets one reply, the others none.
void Deliver(const std::string& type, std::string_view payload);
void Request(const std::string& command, std::string_view body, const char* path = kBusRequestMessage);

}  // namespace fuzz
