// The daemon while it is busy with what somebody asked for, or with nothing: what its supervisor, its broker and a
// second daemon make of that. What takes minutes to see is called "...Long", and left to the night.
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <mutex>

#include "protocol/names.h"
#include "siege.h"

namespace {

namespace bs = businessserver;
using std::chrono::milliseconds;
using std::chrono::seconds;

// Whom the daemon tells that it gets on, for as long as this lives.
class Supervisor {
 public:
  using Clock = std::chrono::steady_clock;

  explicit Supervisor(const std::string& path) : socket_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    sockaddr_un address = {AF_UNIX, {}};
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    EXPECT_EQ(bind(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    setenv("NOTIFY_SOCKET", path.c_str(), 1);
    listener_ = std::thread([this] { Listen(); });
  }
  ~Supervisor() {
    unsetenv("NOTIFY_SOCKET");
    shutdown(socket_, SHUT_RDWR);
    listener_.join();
    close(socket_);
  }
  Supervisor(const Supervisor&) = delete;
  Supervisor& operator=(const Supervisor&) = delete;

  // From now on; until now. In seconds.
  void Begin() {
    const std::lock_guard lock(mutex_);
    fed_ = {Clock::now()};
  }
  double LongestSilence() {
    const std::lock_guard lock(mutex_);
    fed_.push_back(Clock::now());
    Clock::duration longest{};
    for (size_t i = 1; i < fed_.size(); ++i) longest = std::max(longest, fed_[i] - fed_[i - 1]);
    return std::chrono::duration<double>(longest).count();
  }

 private:
  void Listen() {
    char word[256];
    for (ssize_t size; (size = recv(socket_, word, sizeof word, 0)) > 0;) {
      if (std::string(word, static_cast<size_t>(size)) != "WATCHDOG=1") continue;
      const std::lock_guard lock(mutex_);
      fed_.push_back(Clock::now());
    }
  }

  const int socket_;
  std::mutex mutex_;
  std::vector<Clock::time_point> fed_;
  std::thread listener_;
};

// The supervisor's patience is 60 s, the daemon's own rhythm 4 s.
constexpr double kFedWithin = 9;

class BusyDaemon : public Siege {
 protected:
  // Starts it again, under a supervisor.
  BusyDaemon() : supervisor_(directory_.path / "notify") {
    device_.daemon.Kill();
    Bring(watched_[2]);
  }

  static double Since(Clock::time_point began) { return std::chrono::duration<double>(Clock::now() - began).count(); }

  // The reply to a shell command; empty for none within 70 s.
  std::string Run(const std::string& command) {
    bus::Caller front_end(Account("front_end"));
    std::string reply;
    if (!front_end.Connect()) return reply;
    front_end.Request(
        {bs::kBusRequestMessage, R"({"type":"cmd","body":{"cmdline":")" + command + "\"}}", "reply/front_end/run"},
        seconds(70), reply);
    return reply;
  }

  int TimesLost() const {
    const std::string log = ReadFile(directory_.path / "log/daemon");
    int times = 0;
    for (size_t at = 0; (at = log.find("connection is lost", at)) != std::string::npos; ++at) ++times;
    return times;
  }

  Supervisor supervisor_;
};

// As long as one burst can be: the daemon listens to it and to nobody else.
TEST_F(BusyDaemon, ALineThatNeverFallsSilent) {
  constexpr int kBurst = 1024;
  int sent = 0;
  supervisor_.Begin();
  const uint64_t drip = loop_.Every(milliseconds(24), [&] {
    device_.external_line.Send("x");
    ++sent;
  });
  EXPECT_TRUE(loop_.RunUntil([&] { return sent >= kBurst; }, seconds(60)));
  loop_.Cancel(drip);
  EXPECT_LT(AnswersAfter(), 5);
  EXPECT_LT(supervisor_.LongestSilence(), kFedWithin);
  EXPECT_EQ(TimesLost(), 0);
  Report("a stranger on the line: a byte every 24 ms, 1,024 of them");
}

// By its settings the line takes this in 4 s; what hangs on it takes seven times that.
TEST_F(BusyDaemon, ALineThatTakesItsTime) {
  constexpr size_t kBytes = 45000, kTakenEach = 1500;
  const Outcome fast = Shell(
      BINARY_DIRECTORY
      R"(/parkctl request set_ttyio_cfg '{"ttyionum":2,"baudrate":115200,"checkbit":0,"databit":8,"stopbit":1}')");
  EXPECT_EQ(fast.status, 0) << fast.output;
  const int far = device_.external_line.TakeFarEnd();
  supervisor_.Begin();
  const auto began = Clock::now();
  LogIn("controller")
      .Send(mqtt::Publish({bs::kBusBroadlistenMessage,
                           "{\"type\": \"send_ttyio_data\", \"body\": {\"data_len\": " + std::to_string(kBytes) +
                               ", \"data\": \"" + std::string(kBytes / 3 * 4, 'A') + "\"}}",
                           "", ""}));
  std::string part(kTakenEach, '\0');
  size_t taken = 0;
  while (taken < kBytes && Since(began) < 60) {
    std::this_thread::sleep_for(seconds(1));
    taken += static_cast<size_t>(std::max<ssize_t>(read(far, part.data(), part.size()), 0));
  }
  EXPECT_EQ(taken, kBytes);
  EXPECT_LT(AnswersAfter(), 5);
  EXPECT_LT(supervisor_.LongestSilence(), kFedWithin);
  Report("45,000 bytes for a line that takes 1,500 a second");
}

// As many neighbours as there may be, and then pushes that list as many devices as a message holds.
TEST_F(Siege, NeighboursWithoutEnd) {
  constexpr int kNeighbours = 16384, kMore = 100;
  Stranger relay = LogIn("relay");
  const auto push = [&relay](int sender, const std::string& devices) {
    const std::string counts = "{\"s_addr\":" + std::to_string(sender) + ",\"totle\":1,\"free\":1,\"pos\":1,";
    relay.Send(mqtt::Publish({bs::kBusNetPush, counts + "\"cm_dev\":[" + devices + "]}", "", ""}));
  };
  for (int i = 0; i < kNeighbours + kMore; ++i) push(i + 2, "");
  const std::string all = "\"l_totles\": " + std::to_string(kNeighbours) + ",";
  std::string counts;
  const auto end = Clock::now() + seconds(60);
  while (counts.find(all) == std::string::npos && Clock::now() < end) {
    counts = Shell(BINARY_DIRECTORY "/parkctl request get_net_status --timeout 60").output;
  }
  EXPECT_NE(counts.find(all), std::string::npos) << counts;
  std::string devices = "{\"ip\":5}";
  for (int i = 6; devices.size() < 65000; ++i) devices += ",{\"ip\":" + std::to_string(i) + "}";
  for (int i = 0; i < 100; ++i) push(i + 2, devices);
  AnswersAfter();
  Report("16,484 neighbours, then 100 pushes with 4,000 devices each");
}

// 100 of these are the poll of the line.
TEST_F(Siege, AnIdleDaemonSleeps) {
  AnswersAfter();
  const auto wakes = [this] {
    const std::string status = ReadFile("/proc/" + std::to_string(device_.daemon.pid()) + "/status");
    return std::stol(status.substr(status.find("\nvoluntary_ctxt_switches:") + 25));
  };
  const long before = wakes();
  const auto began = Clock::now();
  std::this_thread::sleep_for(seconds(5));
  const double each_second =
      static_cast<double>(wakes() - before) / std::chrono::duration<double>(Clock::now() - began).count();
  EXPECT_LT(each_second, 110);
  Report("nothing: " + std::to_string(each_second).substr(0, 5) + " wake-ups a second");
}

TEST_F(Siege, ASecondDaemonEndsAndAKilledOneIsNotInTheWay) {
  const std::string second =
      "cd " + directory_.path.string() + " && timeout 5 " BINARY_DIRECTORY "/business_server -v 3";
  for (int i = 0; i < 6; ++i) {
    const Outcome outcome = Shell(second);
    EXPECT_EQ(outcome.status, 1) << i;
    EXPECT_NE(outcome.output.find(" 3 business_server/main"), std::string::npos) << outcome.output;
    EXPECT_EQ(std::count(outcome.output.begin(), outcome.output.end(), '\n'), 1) << outcome.output;
  }
  device_.daemon.Freeze();
  EXPECT_EQ(Shell(second).status, 1) << "beside one that stands still";
  for (int i = 0; i < 3; ++i) {
    device_.daemon.Kill();
    Bring(watched_[2]);
  }
  AnswersAfter();
  Report("seven second daemons, and the first killed three times");
}

// A new connection, one that has been silent for almost as long as the daemon bears without a question, a lost one.
TEST_F(BusyDaemon, ACommandOf50SecondsIsAnsweredLong) {
  for (const int silent : {0, 19, 39}) {
    std::this_thread::sleep_for(seconds(silent));
    supervisor_.Begin();
    EXPECT_NE(Run("sleep 50").find("200"), std::string::npos) << "after " << silent;
    EXPECT_LT(supervisor_.LongestSilence(), 59) << "after " << silent;
  }
  EXPECT_EQ(TimesLost(), 0);
  device_.broker.Kill();
  Bring(watched_[0]);
  AnswersAfter();
  EXPECT_NE(Run("sleep 50").find("200"), std::string::npos) << "after another broker";
  EXPECT_EQ(TimesLost(), 1);
  Report("four commands of 50 s");
}

TEST_F(BusyDaemon, AFrozenBrokerIsNoticedLong) {
  AnswersAfter();
  supervisor_.Begin();
  device_.broker.Freeze();
  const auto began = Clock::now();
  while (TimesLost() == 0 && Since(began) < 70) std::this_thread::sleep_for(milliseconds(100));
  const double noticed = Since(began);
  EXPECT_LT(noticed, 60);
  EXPECT_GT(noticed, 20) << "a broker may be busy";
  EXPECT_LT(supervisor_.LongestSilence(), kFedWithin);
  device_.broker.Thaw();
  AnswersAfter();
  Report("a broker that stands still, noticed after " + std::to_string(static_cast<int>(noticed)) + " s");
}

}  // namespace
