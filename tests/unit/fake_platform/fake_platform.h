// A platform that records instead of acting: what was published, replied, stored, logged and run in the shell, with
// a clock that tests turn by hand. One instance; make a fresh one at the head of each test with ResetFake().
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "dp_client.h"

struct FakePlatform {
  struct BusMessage {
    std::string type;
    uint32_t id;  // 0 for a publication
    std::string data;
  };
  struct LogRecord {
    int level;
    std::string source;
    std::string text;
  };

  // Bus
  std::vector<BusMessage> sent;
  std::vector<BusMessage> replies;
  std::vector<std::vector<std::string>> subscriptions;
  int reconnect_result = 1;
  int reconnects = 0;
  DpMsgCallback on_message = nullptr;
  DpStatusCallback on_status = nullptr;
  void* user = nullptr;
  std::function<void()> on_poll;  // one call for each DpClient_PollDpMessage; may throw to end a loop

  // Store: keys and values as counted bytes
  std::map<std::string, std::string> store;
  std::map<std::string, std::string> unreadable;  // what was kept of documents that were replaced
  std::vector<std::string> store_reads;           // keys in the order in which they were asked for
  int store_writes = 0;
  bool store_down = false;
  int store_refusals = 0;  // so many calls more are refused, then it is back

  // The rest
  bool keeps_trace = true;  // off, for speed: neither store_reads nor sleeps are kept
  int least_level = 0;      // of log records; those below are not shown
  std::vector<LogRecord> log;
  std::vector<std::string> shell;  // command lines, and "sleep N" for sleeps of N microseconds made between them
  std::vector<std::string> calls;  // platform calls whose order matters, e.g. "DpClient_Start(0)"
  uint32_t watchdog_key = 7;       // what RegisterWatchDogKey returns
  int feedings = 0;
  int progress_reports = 0;
  uint64_t now_ms = 0;
  std::function<void(unsigned)> on_sleep;  // microseconds; a test may let the world move on meanwhile

  // Turns the clock, firing each timer that falls due, in order. Repeating timers of a shorter period than
  // shortest_period stand still meanwhile, so that a day passes without its millions of polls.
  void Advance(uint64_t milliseconds, unsigned shortest_period = 0);

  // Hands a message to the server as the bus would: record and payload in one block of exactly their size plus NUL.
  void Deliver(const std::string& type, const std::string& data, uint32_t id = 1);

  // What the timers are armed for, to be put back later. No timer may be made or end in between.
  struct Arming {
    uint64_t due = 0;
    unsigned period = 0;
    bool armed = false;
  };
  static std::vector<Arming> Armings();  // in the order in which the timers were made
  static void Rearm(const std::vector<Arming>& armings);

  bool Logged(int level, const std::string& text) const;
  const BusMessage* LastSent(const std::string& type) const;
};

FakePlatform& Fake();
void ResetFake();
