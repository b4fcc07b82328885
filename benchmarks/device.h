// The device under measurement in a fresh directory: broker, store, registers, serial lines, and the daemon in the
// way of logging that a measurement asks for.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "bringup/device.h"
#include "bus.h"
#include "process.h"
#include "protocol/parking_result.h"
#include "serial_lines.h"
#include "temporary_directory.h"

namespace bench {

constexpr char kReadingRequest[] = R"({"type":"get_ttyio_cfg"})";
constexpr char kReadingKey[] = "device_ttyio_value";  // what it reads; its NUL counts
constexpr char kLiveRequest[] = R"({"type":"get_frame_status"})";
constexpr char kStoringRequest[] = R"({"type":"set_parking_reserve_cfg","body":{"reservecfg":{"reservenum":0}}})";

// How much the daemon logs, and where to: as the service does, over a socket to a program that reads all of it and
// drops it, or nowhere at once.
struct LogMode {
  const char* name;
  std::vector<std::string> options;
  bool to_reader;
};
const std::vector<LogMode>& LogModes();
const LogMode& LevelOneToNowhere();

struct Paths {
  std::string programs;    // the build's bin directory
  std::string benchmarks;  // the sources: the Python handler
  std::string packaging;   // the device's own broker and store configuration
};

class Device {
 public:
  explicit Device(const Paths& paths);
  ~Device();
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  // Starts it anew and returns the seconds from its start to its first answer. With a wrapper (a profiler) this waits
  // for minutes if need be.
  double StartDaemon(const LogMode& mode, const std::vector<std::string>& wrapper = {});
  void StopDaemon();
  Process& daemon() { return *daemon_; }

  // Programs that stay until the device goes.
  Process& StartHelper(const std::vector<std::string>& command);
  std::string Program(const char* name) const { return paths_.programs + "/" + name; }
  std::string Source(const char* name) const { return paths_.benchmarks + "/" + name; }

  // Asks until somebody answers on this topic.
  void Await(const char* topic, double limit_seconds);

  void EmptyStore() const;

  // Lets nothing else on the machine stand between the programs that are measured, those started later included. False
  // where this process may not.
  bool SetRealTime(bool on);

  Bus& bus() { return *bus_; }
  SerialLines& lines() { return *lines_; }
  std::string directory() const { return temporary_.path; }
  uint32_t LedRegister() const { return device_.board.LedData(); }
  uint32_t OneWayCount() const { return *one_way_; }
  std::string OneWayFile() const { return directory() + "/one_way"; }

 private:
  const Paths paths_;
  const TemporaryDirectory temporary_;
  desk::Loop loop_;
  desk::Device device_;  // its broker, store and lines; the daemon is started here
  volatile uint32_t* one_way_ = nullptr;
  std::unique_ptr<SerialLines> lines_;
  std::vector<std::unique_ptr<Process>> helpers_;
  std::unique_ptr<Bus> bus_;
  std::unique_ptr<Process> log_reader_;
  std::unique_ptr<Process> daemon_;
};

// A result with three valid spaces, all free or all occupied, that is shown, broadcast, sent to the line and
// republished.
businessserver::LX_Parking_Result_Param ResultRecord(bool occupied);

inline std::string_view Bytes(const businessserver::LX_Parking_Result_Param& record) {
  return {reinterpret_cast<const char*>(&record), sizeof record};
}

// A neighbour's counts; the first is number 0.
std::string PushText(unsigned neighbour, const std::string& cm_dev = "null");

}  // namespace bench
