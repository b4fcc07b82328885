// The installed device with the limits of its units, watched: what its processes take, and how long the daemon is away.
#pragma once

#include <gtest/gtest.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "bus/caller.h"
#include "installed_device.h"
#include "stranger.h"

class Siege : public InstalledDevice {
 protected:
  using Clock = std::chrono::steady_clock;
  using milliseconds = std::chrono::milliseconds;

  static constexpr uint16_t kBus = 5291, kStore = 5299;
  // What the processes may take at any time, in MB.
  static constexpr double kBrokerLimit = 120, kStoreLimit = 128, kDaemonLimit = 24;
  static constexpr auto kBackWithin = std::chrono::seconds(5);

  Siege() {
    rlimit files{};
    getrlimit(RLIMIT_NOFILE, &files);
    files.rlim_cur = files.rlim_max;
    setrlimit(RLIMIT_NOFILE, &files);
    const std::string here = directory_.path;
    std::filesystem::create_directory(here + "/log");
    const auto configure = [&](desk::Process& process, const char* service, const std::string& command) {
      const std::string files = service == nullptr ? "" : "prlimit --nofile=" + UnitSays(service, "LimitNOFILE");
      process.Configure({"sh", "-c", "exec " + files + " " + command + " >>log/" + process.name() + " 2>&1"}, here);
    };
    configure(device_.broker, "bus", "mosquitto -c " + here + "/mosquitto.conf");
    configure(device_.store, "store", "redis-server " + here + "/etc/redis.conf --dir " + here + "/store");
    configure(device_.daemon, nullptr, BINARY_DIRECTORY "/business_server");
    watched_ = {{&device_.broker, " running\n", UnitMegabytes("bus"), 0},
                {&device_.store, "Ready to accept connections", UnitMegabytes("store"), 0},
                {&device_.daemon, "the bus is connected", 0, 0}};
    for (const Watched& row : watched_) Bring(row);
    began_ = Clock::now();
  }

  static std::string UnitSays(const std::string& service, const std::string& word) {
    const std::string unit = ReadFile(std::string(kPackaging) + "/systemd/business-server-" + service + ".service");
    const size_t at = unit.find("\n" + word + "=");
    if (at == std::string::npos) return "1024";
    const size_t value = at + word.size() + 2;
    return unit.substr(value, unit.find('\n', value) - value);
  }

  struct Watched {
    desk::Process* process;
    const char* ready;  // what its log then says
    double limit;       // MB, 0 for none
    double peak;
  };

  // Their logs go to files at once: nobody reads a pipe while the siege is on.
  void Bring(const Watched& row) {
    const auto log = directory_.path / "log" / row.process->name();
    const size_t before = ReadFile(log).size();
    Launch(*row.process);
    const auto end = Clock::now() + std::chrono::seconds(30);
    while (ReadFile(log).find(row.ready, before) == std::string::npos) {
      loop_.Turn(milliseconds(5));
      ASSERT_TRUE(row.process->running() && Clock::now() < end)
          << row.process->name() << " did not start: " << ReadFile(log).substr(before)
          << ReadFile(log.string() + ".log") << StateOf(*row.process);
    }
  }

  // What the kernel says of a process, for a failure that cannot be seen again.
  static std::string StateOf(const desk::Process& process) {
    if (!process.running()) return "it has ended";
    const std::string path = "/proc/" + std::to_string(process.pid()) + "/";
    return ReadFile(path + "cmdline") + "\n" + ReadFile(path + "status") + ReadFile(path + "stack");
  }

  static double UnitMegabytes(const std::string& service) {
    return std::stod(UnitSays(service, "MemoryMax")) * 1.048576;
  }

  // What the supervisor does with a program that ended by itself or took more than its unit allows.
  void Supervise() {
    loop_.Turn(milliseconds(0));
    for (const Watched& row : watched_) {
      if (row.process->running() && row.limit > 0 && Resident(*row.process, "VmRSS:") > row.limit) row.process->Kill();
      if (row.process->running()) continue;
      ++restarts_;
      Bring(row);
    }
  }

  // To be called while those who attack are still there: what was done, and what it cost.
  void Report(const std::string& what) {
    Sample();
    printf("%-86s", what.c_str());
    for (const Watched& row : watched_) printf(" %s %5.1f MB,", row.process->name().c_str(), row.peak);
    printf(" %d restarts, %.1f s\n", restarts_, std::chrono::duration<double>(Clock::now() - began_).count());
    EXPECT_LT(watched_[0].peak, kBrokerLimit);
    EXPECT_LT(watched_[1].peak, kStoreLimit);
    EXPECT_LT(watched_[2].peak, kDaemonLimit);
  }

  std::string Password(const std::string& role) const {
    std::string password;
    std::ifstream file(directory_.path / "bus" / role);
    std::getline(file, password);
    return password;
  }
  // A client of the bus under the account of a role.
  Stranger LogIn(const std::string& role, int receive_buffer = 0, mqtt::Login login = {}) const {
    Stranger client(kBus, receive_buffer);
    login.user = role;
    login.password = Password(role);
    client.Send(mqtt::Connect(login));
    EXPECT_EQ(client.ReadSome(milliseconds(5000)).substr(0, 1), "\x20") << role;
    return client;
  }

  // An honest one.
  bus::Options Account(const std::string& role) const {
    bus::Options options;
    options.address.port = kBus;
    options.user = role;
    options.password = Password(role);
    options.keep_alive_s = 60;
    return options;
  }
  // What comes under a filter, until there is nothing for this long.
  static void Hear(bus::Caller& caller, milliseconds silence, const std::function<void(const bus::Message&)>& handler) {
    for (bool more = true; more;) {
      more = false;
      caller.Receive(silence, [&](const bus::Message& message) {
        more = true;
        handler(message);
      });
    }
  }

  // Whether an honest client logs in, asks and gets its answer; how long that took in seconds.
  double AnswersAfter() {
    const auto began = Clock::now();
    do {
      Supervise();
      if (Shell(BINARY_DIRECTORY "/parkctl request get_ttyio_cfg").status == 0) {
        return std::chrono::duration<double>(Clock::now() - began).count();
      }
    } while (Clock::now() < began + kBackWithin);
    ADD_FAILURE() << "no answer within 5 s";
    return 99;
  }

  size_t LogSize() const { return std::filesystem::file_size(directory_.path / "log/daemon"); }

  // Takes note of what they took; what a process had that has ended since then is lost.
  void Sample() {
    for (Watched& row : watched_) row.peak = std::max(row.peak, Resident(*row.process, "VmHWM:"));
  }

  std::vector<Watched> watched_;
  int restarts_ = 0;
  Clock::time_point began_;
};
