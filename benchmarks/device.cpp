#include "device.h"

#include <fcntl.h>
#include <sched.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <stdexcept>

#include "protocol/names.h"

namespace bench {

namespace bs = businessserver;
namespace fs = std::filesystem;

namespace {

constexpr off_t kLedBlock = 0x201B0000;
constexpr size_t kLedData = 0x3FC;
constexpr size_t kPage = 0x1000;
constexpr double kStartLimit = 15;
constexpr double kProfiledStartLimit = 120;
constexpr uint32_t kFirstNeighbour = 0x0A000001;

// A file of this size, of which only what is touched takes room, mapped at the offset.
char* MakeMappedFile(const std::string& path, off_t offset) {
  const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  void* page = MAP_FAILED;
  if (file >= 0 && ftruncate(file, offset + static_cast<off_t>(kPage)) == 0) {
    page = mmap(nullptr, kPage, PROT_READ | PROT_WRITE, MAP_SHARED, file, offset);
  }
  if (page == MAP_FAILED) throw std::runtime_error("cannot make " + path);
  close(file);
  return static_cast<char*>(page);
}

}  // namespace

const std::vector<LogMode>& LogModes() {
  static const std::vector<LogMode> modes = {
      {"as the service", {}, true}, {"level 1 to nowhere", {"-v", "1"}, false}, {"level 2", {"-v", "2"}, false}};
  return modes;
}

const LogMode& LevelOneToNowhere() { return LogModes()[1]; }

Device::Device(const Paths& paths)
    : paths_{fs::absolute(paths.programs), fs::absolute(paths.benchmarks), fs::absolute(paths.packaging)} {
  char name[] = "/tmp/bench.XXXXXX";
  if (mkdtemp(name) == nullptr) throw std::runtime_error("cannot make a directory");
  directory_ = name;
  fs::create_directories(directory_ + "/dev");
  fs::create_directories(directory_ + "/store");
  led_register_ = reinterpret_cast<uint32_t*>(MakeMappedFile(directory_ + "/dev/mem", kLedBlock) + kLedData);
  one_way_ = reinterpret_cast<uint32_t*>(MakeMappedFile(OneWayFile(), 0));
  lines_ = std::make_unique<SerialLines>(directory_ + "/dev/ttyAMA1", directory_ + "/dev/ttyAMA2");

  fs::copy_file(paths_.packaging + "/mosquitto.conf", directory_ + "/mosquitto.conf");
  fs::permissions(directory_, fs::perms(0755));
  StartHelper({"mosquitto", "-c", directory_ + "/mosquitto.conf"});
  StartHelper({"redis-server", paths_.packaging + "/redis.conf", "--dir", directory_ + "/store"});
  bus_ = std::make_unique<Bus>(kBusPort);
  for (const auto& helper : helpers_) {
    if (!helper->IsRunning()) throw std::runtime_error("broker or store ended: are its ports taken?");
  }
}

Device::~Device() {
  StopDaemon();
  bus_.reset();
  while (!helpers_.empty()) helpers_.pop_back();
  lines_.reset();
  std::error_code error;
  fs::remove_all(directory_, error);
}

double Device::StartDaemon(const LogMode& mode, const std::vector<std::string>& wrapper) {
  StopDaemon();
  std::vector<std::string> command = wrapper;
  command.push_back(Program("business_server"));
  command.insert(command.end(), mode.options.begin(), mode.options.end());
  int log[] = {-1, -1};
  if (mode.to_reader) {
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, log) != 0) throw std::runtime_error("no socket for the log");
    log_reader_ = std::make_unique<Process>(std::vector<std::string>{"cat"}, directory_, Process::Streams{log[1], -1});
  }
  const double begin = Now();
  daemon_ = std::make_unique<Process>(command, directory_, Process::Streams{-1, log[0]});
  for (const int end : log) {
    if (end >= 0) close(end);
  }
  Await(bs::kBusRequestMessage, wrapper.empty() ? kStartLimit : kProfiledStartLimit);
  return Now() - begin;
}

void Device::StopDaemon() {
  daemon_.reset();
  log_reader_.reset();
}

Process& Device::StartHelper(const std::vector<std::string>& command) {
  helpers_.push_back(std::make_unique<Process>(command, directory_));
  return *helpers_.back();
}

// Requests that come before the subscription are lost: one goes out every millisecond, and all but one of the answers
// are thrown away.
void Device::Await(const char* topic, double limit_seconds) {
  constexpr uint32_t kAwaitTag = 0xFFFFFFFF;
  bool answered = false;
  bus_->OnMessage([&](const Message& message) { answered = answered || message.tag == kAwaitTag; });
  const double limit = Now() + limit_seconds;
  while (!answered) {
    if (Now() > limit) throw std::runtime_error(std::string("nobody answers on ") + topic);
    bus_->Request(topic, kReadingRequest, kAwaitTag);
    const double next = Now() + 0.001;
    while (!answered && Now() < next) bus_->Serve(1);
  }
  bus_->OnMessage(nullptr);
  bus_->Ask(topic, kReadingRequest, limit_seconds);  // behind all that were sent
}

void Device::EmptyStore() const { OutputOf("redis-cli -p " + std::to_string(kStorePort) + " flushall"); }

bool Device::SetRealTime(bool on) {
  sched_param priority = {};
  priority.sched_priority = on ? 1 : 0;
  const int policy = on ? SCHED_FIFO : SCHED_OTHER;
  bool all = sched_setscheduler(0, policy, &priority) == 0;
  for (const auto& helper : helpers_) all = sched_setscheduler(helper->pid(), policy, &priority) == 0 && all;
  return all;
}

bs::LX_Parking_Result_Param ResultRecord(bool occupied) {
  bs::LX_Parking_Result_Param record = {};
  int number = 1;
  for (bs::LX_ParkingResult& space : record.spaces) {
    snprintf(space.plate, sizeof space.plate, "%s",
             occupied ? "\xD4\xC1"
                        "B12345"
                      : "\x5F\xCE\xDE\x5F");
    space.plate_confidence = 97;
    space.plate_color = 1;
    space.time_stamp = 1700000000;
    space.valid = 1;
    space.second_flag = 1;
    space.space_status = occupied ? 1 : 0;
    snprintf(space.space_name, sizeof space.space_name, "A-%03d", number++);
    snprintf(space.extra_text, sizeof space.extra_text, "%s", "{\"camera\":\"north\"}");
  }
  return record;
}

std::string PushText(unsigned neighbour, const std::string& cm_dev) {
  return "{\"s_addr\":" + std::to_string(kFirstNeighbour + neighbour) +
         ",\"totle\":3,\"free\":" + std::to_string(neighbour % 4) + ",\"pos\":" + std::to_string(neighbour % 4) +
         ",\"cm_dev\":" + cm_dev + "}";
}

}  // namespace bench
