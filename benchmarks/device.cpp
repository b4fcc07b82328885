#include "device.h"

#include <fcntl.h>
#include <sched.h>
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

constexpr off_t kPage = 0x1000;
constexpr double kStartLimit = 15;
constexpr double kProfiledStartLimit = 120;
constexpr uint32_t kFirstNeighbour = 0x0A000001;

// A file of one page, mapped.
volatile uint32_t* MakeMappedCount(const std::string& path) {
  const int file = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
  void* page = MAP_FAILED;
  if (file >= 0 && ftruncate(file, kPage) == 0) {
    page = mmap(nullptr, kPage, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  }
  if (page == MAP_FAILED) throw std::runtime_error("cannot make " + path);
  close(file);
  return static_cast<uint32_t*>(page);
}

}  // namespace

const std::vector<LogMode>& LogModes() {
  static const std::vector<LogMode> modes = {
      {"as the service", {}, true}, {"level 1 to nowhere", {"-v", "1"}, false}, {"level 2", {"-v", "2"}, false}};
  return modes;
}

const LogMode& LevelOneToNowhere() { return LogModes()[1]; }

Device::Device(const Paths& paths)
    : paths_{fs::absolute(paths.programs), fs::absolute(paths.benchmarks), fs::absolute(paths.packaging)},
      device_(loop_, {temporary_.path, Program("business_server"), paths_.packaging}) {
  std::string problem;
  if (!device_.MakeFiles(problem)) throw std::runtime_error(problem);
  one_way_ = MakeMappedCount(OneWayFile());
  lines_ = std::make_unique<SerialLines>(device_.beacon_line.TakeFarEnd(), device_.external_line.TakeFarEnd());
  for (desk::Process* process : {&device_.store, &device_.broker}) {
    if (!device_.StartAndAwait(*process, problem)) throw std::runtime_error(problem);
  }
  bus_ = std::make_unique<Bus>(desk::kBusPort);
}

Device::~Device() {
  StopDaemon();
  bus_.reset();
  while (!helpers_.empty()) helpers_.pop_back();
  lines_.reset();
}

double Device::StartDaemon(const LogMode& mode, const std::vector<std::string>& wrapper) {
  StopDaemon();
  std::vector<std::string> command = wrapper;
  command.push_back(Program("business_server"));
  command.insert(command.end(), mode.options.begin(), mode.options.end());
  int log[] = {-1, -1};
  if (mode.to_reader) {
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, log) != 0) throw std::runtime_error("no socket for the log");
    log_reader_ = std::make_unique<Process>(std::vector<std::string>{"cat"}, directory(), Process::Streams{log[1], -1});
  }
  const double begin = Now();
  daemon_ = std::make_unique<Process>(command, directory(), Process::Streams{-1, log[0]});
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
  helpers_.push_back(std::make_unique<Process>(command, directory()));
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
    loop_.Turn(desk::Loop::Milliseconds(0));  // what the broker has to say
    if (Now() > limit) throw std::runtime_error(std::string("nobody answers on ") + topic);
    bus_->Request(topic, kReadingRequest, kAwaitTag);
    const double next = Now() + 0.001;
    while (!answered && Now() < next) bus_->Serve(1);
  }
  bus_->OnMessage(nullptr);
  bus_->Ask(topic, kReadingRequest, limit_seconds);  // behind all that were sent
}

void Device::EmptyStore() const { OutputOf("redis-cli -p " + std::to_string(desk::kStorePort) + " flushall"); }

bool Device::SetRealTime(bool on) {
  sched_param priority = {};
  priority.sched_priority = on ? 1 : 0;
  const int policy = on ? SCHED_FIFO : SCHED_OTHER;
  bool all = sched_setscheduler(0, policy, &priority) == 0;
  for (const desk::Process* process : {&device_.store, &device_.broker}) {
    all = sched_setscheduler(process->pid(), policy, &priority) == 0 && all;
  }
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
