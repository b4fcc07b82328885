// Relays between real daemons and a real hub: two devices in networks of their own, and a hub that they reach by cable.
#include <gtest/gtest.h>
#include <json/writer.h>

#include <ctime>
#include <string>

#include "bringup/network.h"
#include "bus/kept.h"
#include "contract_watch.h"
#include "desk/bus_client.h"
#include "desk/recogniser.h"
#include "desk/store_client.h"
#include "programs.h"
#include "protocol/json_text.h"
#include "protocol/names.h"

namespace {

namespace bs = businessserver;
using desk::SiteWires;
using Milliseconds = desk::Loop::Milliseconds;

constexpr Milliseconds kLong{30000};

// A device of the site "g" with everything that it has, and what its bus said last.
struct Camera {
  Camera(desk::Loop& loop, const std::string& directory, const std::string& name)
      : device(loop, {directory + "/" + name,
                      BINARY_DIRECTORY "/business_server",
                      SOURCE_DIRECTORY "/packaging",
                      false,
                      {},
                      BINARY_DIRECTORY "/park_relay",
                      "",
                      &network}),
        store(&network),
        bus(loop, &network),
        contract(loop, &network) {
    for (desk::Process* process : {&device.relay, &device.daemon}) {
      process->OnLine([this](const std::string& line) { log += line + "\n"; });
    }
    bus.OnMessage([this](const desk::BusMessage& message) {
      if (message.topic == bs::kBusBroadcastMessage) broadcast = message.payload;
      if (message.topic == bs::kBusNetPush) push = message.payload;
    });
  }

  bool Sees(const bs::LX_Parking_Result_Param& record) {
    return bus.Publish(bs::kAvsParkRectChange, std::string(reinterpret_cast<const char*>(&record), sizeof record));
  }
  bool CarArrives(size_t space) { return Sees(recogniser.Arrive(space, "AB123")); }
  bool CarLeaves(size_t space) { return Sees(recogniser.Leave(space)); }

  std::string broadcast, push, log;  // before what still speaks while it ends
  desk::Network network;
  desk::Device device;
  desk::StoreClient store;
  desk::BusClient bus;
  ContractWatch contract;
  desk::Recogniser recogniser;
};

class Relays : public testing::Test {
 protected:
  Relays() {
    std::string problem;
    EXPECT_TRUE(wires_.Start(problem)) << problem;
    hub_.Configure({"mosquitto", "-c", directory_.path / "hub.conf"}, directory_.path);
    std::filesystem::create_directory(directory_.path / "log");
    std::ofstream(directory_.path / "hub.conf") << "listener 1883\nallow_anonymous true\nuser root\n";
    Launch(hub_);
    client_.Start();
    EXPECT_TRUE(Eventually([this] { return client_.up(); })) << "no hub";
  }

  void Add(Camera& camera, int number) {
    std::string problem;
    ASSERT_TRUE(camera.network.Make(problem) && wires_.Join(number, camera.network, problem)) << problem;
    MakeFiles(camera.device);
    for (desk::Process* process : camera.device.Programs()) {
      if (process == &camera.device.relay) {
        ASSERT_TRUE(camera.store.Set("relay_value", R"({"site": "g", "device": ")" + Name(number) +
                                                        R"(", "broker": "mqtt://)" + SiteWires::Address(0) +
                                                        R"(", "remote": "configure"})"));
        Launch(*process);
      } else {
        Launch(camera.device, *process);
      }
    }
    camera.bus.Start();
    camera.contract.Start();
    ASSERT_TRUE(Eventually([&] { return camera.bus.connected() && camera.contract.connected(); }));
  }
  static std::string Name(int number) { return "c" + std::to_string(number); }

  bool Eventually(const desk::Loop::Condition& condition) { return loop_.RunUntil(condition, kLong); }

  void Plan(int number, const std::string& plan) {
    bus::Message message{"park/g/plan/" + Name(number), plan};
    message.retained = true;
    EXPECT_TRUE(client_.Publish(message));
  }

  // What the daemon of this camera holds as its left.
  static bool ShowsLeft(const Camera& camera, unsigned spaces, unsigned free) {
    Json::Value message;
    if (!bs::ParseJson(camera.broadcast, message)) return false;
    for (const Json::Value& entry : message[bs::kBody][bs::kCmDev]) {
      if (entry[bs::kIp] == 2) return entry[bs::kTn].asUInt() == spaces && entry[bs::kFn].asUInt() == free;
    }
    return false;
  }

  Json::Value Ask(int number, const std::string& request) {
    reply_.clear();
    bus::Message message{"park/g/request/" + Name(number), request, "park/g/reply/test", "1"};
    // A relay says that it is there before it listens: what came in between is asked again.
    for (int attempt = 0; attempt < 5 && reply_.empty(); ++attempt) {
      EXPECT_TRUE(client_.Publish(message));
      loop_.RunUntil([this] { return !reply_.empty(); }, Milliseconds(6000));
    }
    EXPECT_NE(reply_, "") << request;
    Json::Value reply;
    EXPECT_TRUE(bs::ParseJson(reply_, reply)) << reply_;
    return reply;
  }

  bus::Connection::Handlers Handlers() {
    bus::Connection::Handlers handlers;
    handlers.up = [this] { client_.Subscribe({"park/g/health/#", "park/g/reply/test", "park/g/counts/#"}); };
    handlers.message = [this](const bus::Message& message) {
      contract_.Expect(message.topic, message.payload);
      if (message.topic == "park/g/reply/test") reply_ = message.payload;
      kept_[message.topic] = message.payload;
      ++heard_;
    };
    return handlers;
  }
  static bus::Options ToHub() {
    bus::Options options;
    options.address.port = 1883;
    return options;
  }

  const TemporaryDirectory directory_;
  desk::Loop loop_;
  SiteWires wires_;
  desk::Process hub_{loop_, "hub"};
  ContractWatch contract_{loop_};  // of what the hub carries
  std::string reply_;
  std::map<std::string, std::string> kept_;  // the last payload by topic
  unsigned heard_ = 0;
  bus::Kept<desk::Loop> client_{loop_, ToHub(), Handlers()};
};

TEST_F(Relays, CarryCountsFromCarToDisplayThroughWhatHappensToThem) {
  Camera shower(loop_, directory_.path, "shower"), leaf(loop_, directory_.path, "leaf");
  Add(shower, 1);
  Add(leaf, 2);
  Plan(1, R"({"zone": "L2/B", "shows": {"left": ["L2/C"]}})");
  Plan(2, R"({"zone": "L2/C/x"})");
  leaf.CarLeaves(3);
  EXPECT_TRUE(Eventually([&] { return ShowsLeft(shower, 3, 3); })) << shower.log;
  EXPECT_EQ(kept_["park/g/counts/c2/L2/C/x"], R"({"spaces": 3, "free": 3})");
  leaf.CarArrives(1);
  EXPECT_TRUE(Eventually([&] { return ShowsLeft(shower, 3, 2); }));
  shower.CarArrives(2);  // its own spaces, without what was pushed
  EXPECT_TRUE(Eventually([&] { return kept_["park/g/counts/c1/L2/B"] == R"({"spaces": 3, "free": 2})"; }));

  // The hub comes back without its memory.
  hub_.Kill();
  leaf.CarArrives(2);
  loop_.RunFor(Milliseconds(300));
  kept_.clear();
  Launch(hub_);
  EXPECT_TRUE(Eventually([&] { return ShowsLeft(shower, 3, 1); })) << shower.log;
  Plan(2, R"({"zone": "L2/C/x"})");

  // The daemon is started anew and forgot what was pushed.
  shower.device.daemon.Kill();
  shower.broadcast.clear();
  Launch(shower.device, shower.device.daemon);
  EXPECT_TRUE(Eventually([&] { return ShowsLeft(shower, 3, 1); }));

  // The device's bus is started anew.
  shower.device.broker.Kill();
  shower.push.clear();
  Launch(shower.device, shower.device.broker);
  EXPECT_TRUE(Eventually([&] { return !shower.push.empty(); }));

  // A cable is pulled: noticed at once by nobody, and yet the truth comes back with it.
  wires_.Pull(2);
  leaf.CarArrives(3);
  loop_.RunFor(Milliseconds(500));
  wires_.Plug(2);
  EXPECT_TRUE(Eventually([&] { return ShowsLeft(shower, 3, 0); })) << leaf.log;

  // The relay ends in order, its counts move, and it is killed: others hear of all of it.
  leaf.device.relay.Stop();
  EXPECT_TRUE(Eventually([&] { return kept_["park/g/health/c2"] == R"({"online": false})"; }));
  Launch(leaf.device.relay);
  EXPECT_TRUE(Eventually([&] { return kept_["park/g/health/c2"].find(R"("plan": "ok")") != std::string::npos; }));
  Plan(2, R"({"zone": "L9"})");
  EXPECT_TRUE(Eventually([&] { return ShowsLeft(shower, 0, 0); }));
  EXPECT_TRUE(Eventually([&] { return kept_["park/g/counts/c2/L9"] == R"({"spaces": 3, "free": 0})"; }));
  EXPECT_EQ(kept_["park/g/counts/c2/L2/C/x"], "");
  leaf.contract.LookIntoStore(leaf.store);
  leaf.device.relay.Kill();
  EXPECT_TRUE(Eventually([&] { return kept_["park/g/health/c2"] == R"({"online": false})"; }));
  Plan(2, R"({"zone": "L2/C"})");  // while nobody is there to hear it
  Launch(leaf.device.relay);
  EXPECT_TRUE(Eventually([&] { return kept_["park/g/counts/c2/L9"].empty(); })) << leaf.log;
  EXPECT_TRUE(Eventually([&] { return ShowsLeft(shower, 3, 0); }));
}

TEST_F(Relays, SetBackWhatWasTriedAndNotKept) {
  Camera camera(loop_, directory_.path, "camera");
  Add(camera, 1);
  ASSERT_TRUE(Eventually([this] { return kept_.count("park/g/health/c1") > 0; })) << camera.log;
  EXPECT_EQ(Ask(1, R"({"type": "cmd"})")["error_msg"], "not allowed from the site");
  const Json::Value before = Ask(1, R"({"type": "get_dev_pos"})");
  EXPECT_EQ(before["state"], 200) << before;

  const Json::Value tried = Ask(1, R"({"type": "try_change", "body": {"id": "t", "seconds": 5, "changes": [
      {"type": "set_dev_pos", "body": {"pos": 3}}, {"type": "set_ctr_mdl", "body": {"model": 1}}]}})");
  EXPECT_EQ(tried["state"], 200) << tried;
  EXPECT_EQ(tried["body"]["stored"][0]["body"]["pos"], 3) << tried;
  camera.device.relay.Kill();
  kept_.clear();
  Launch(camera.device.relay);
  ASSERT_TRUE(Eventually([this] { return kept_["park/g/health/c1"].find("true") != std::string::npos; }));
  EXPECT_TRUE(Eventually([&] { return Ask(1, R"({"type": "get_dev_pos"})") == before; })) << camera.log;
  EXPECT_TRUE(Eventually([&] { return Ask(1, R"({"type": "get_change"})")["body"].empty(); }));
  camera.contract.LookIntoStore(camera.store);
}

constexpr int64_t kFiftyYears = int64_t{18262} * 86400;

// The wall clock of the programs that are started while it lives; this one's stays.
class MovedClock {
 public:
  explicit MovedClock(const std::string& file) : file_(file, std::ios::binary) {
    Move(0);
    setenv("MOVED_CLOCK", file.c_str(), 1);
    setenv("LD_PRELOAD", MOVED_CLOCK_LIBRARY, 1);
  }
  ~MovedClock() {
    unsetenv("LD_PRELOAD");
    unsetenv("MOVED_CLOCK");
  }
  MovedClock(const MovedClock&) = delete;
  MovedClock& operator=(const MovedClock&) = delete;

  // So many seconds from the real one, from now on.
  void Move(int64_t seconds) {
    seconds_ = seconds;
    file_.seekp(0).write(reinterpret_cast<const char*>(&seconds), sizeof seconds).flush();
  }
  std::string Year() const {
    const time_t now = time(nullptr) + static_cast<time_t>(seconds_);
    tm parts = {};
    return std::to_string(localtime_r(&now, &parts)->tm_year + 1900);
  }

 private:
  std::ofstream file_;
  int64_t seconds_ = 0;
};

// Everything that waits, ages or repeats goes by the clock that nobody sets; the event log and certificates by the
// other.
TEST_F(Relays, GoOnOnADayOnWhichTheClockJumpsByFiftyYears) {
  MovedClock clock(directory_.path / "clock");
  hub_.Kill();
  Launch(hub_);
  Camera shower(loop_, directory_.path, "shower"), leaf(loop_, directory_.path, "leaf");
  Add(shower, 1);
  Add(leaf, 2);
  Plan(1, R"({"zone": "L2/B", "shows": {"left": ["L2/C"]}})");
  Plan(2, R"({"zone": "L2/C"})");
  leaf.CarLeaves(3);
  ASSERT_TRUE(Eventually([&] { return ShowsLeft(shower, 3, 3); })) << shower.log;
  const auto lives = [this](int number) { return kept_["park/g/health/" + Name(number)].substr(0, 33); };
  const std::string lives_before[] = {lives(1), lives(2)};
  EXPECT_EQ(lives_before[0].rfind(R"({"online": true, "run": ")", 0), 0u) << lives_before[0];

  unsigned state = 0;
  for (const int64_t seconds : {kFiftyYears, int64_t{0}, -kFiftyYears, int64_t{0}}) {
    clock.Move(seconds);
    if (state % 2 == 0) {
      leaf.CarArrives(1);
    } else {
      leaf.CarLeaves(1);
    }
    EXPECT_TRUE(Eventually([&] { return ShowsLeft(shower, 3, state % 2 == 0 ? 2 : 3); })) << seconds << shower.log;
    leaf.bus.Publish(bs::kBusExtRequestMessage, R"({"type": "external_control_framestatus", "body": {"ip": "10.0.0.1",)"
                                                R"( "frame_status": )" +
                                                    std::to_string(state) + "}}");
    EXPECT_TRUE(Eventually([&] {
      const std::string log = bs::StyledText(Ask(2, R"({"type": "quary_controled_log"})"));
      return log.find("\"" + clock.Year() + "-") != std::string::npos;
    })) << seconds;
    // Nothing repeats at once, for all that seems to be late.
    heard_ = 0;
    loop_.RunFor(Milliseconds(1500));
    EXPECT_LE(heard_, 4u) << seconds;
    ++state;
    if (seconds >= 0) continue;
    // What is repeated every 25 s does not wait for fifty years.
    kept_.clear();
    EXPECT_TRUE(
        Eventually([&] { return kept_.count("park/g/counts/c2/L2/C") > 0 && kept_.count("park/g/health/c1") > 0; }));
  }
  ASSERT_TRUE(Eventually([&] { return kept_.count("park/g/health/c1") > 0 && kept_.count("park/g/health/c2") > 0; }));
  EXPECT_EQ(lives(1), lives_before[0]);
  EXPECT_EQ(lives(2), lives_before[1]);
  // Each was let in by its hub and its bus once, and lost neither.
  for (const Camera* camera : {&shower, &leaf})
    EXPECT_EQ(camera->log.find(" is lost: "), std::string::npos) << camera->log;
  for (Camera* camera : {&shower, &leaf}) {
    for (desk::Process* program : camera->device.Programs()) EXPECT_TRUE(program->running()) << program->name();
  }
}

// Only the relay, its bus and its store: what it says of hubs that it cannot join.
TEST_F(Relays, SayWhyAHubCannotBeJoined) {
  const std::string here = directory_.path;
  ASSERT_EQ(Shell(kPackaging + ("/make-certificate " + here) + "/tls root localhost").status, 0);
  ASSERT_EQ(Shell("openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 30 -subj /CN=other "
                  "-keyout " +
                  here + "/other.key -out " + here + "/other.pem")
                .status,
            0);
  std::ofstream(here + "/tls.conf") << "allow_anonymous true\nuser root\nlistener 8883 127.0.0.1\ncertfile " + here +
                                           "/tls/hub.pem\nkeyfile " + here + "/tls/hub.key\n";
  MovedClock clock(here + "/clock");
  desk::Device device(loop_, {here + "/device", "unused", SOURCE_DIRECTORY "/packaging"});
  desk::Process tls(loop_, "tls"), relay(loop_, "relay");
  tls.Configure({"mosquitto", "-c", here + "/tls.conf"}, here);
  relay.Configure({BINARY_DIRECTORY "/park_relay"}, here);
  std::string log;
  relay.OnLine([&](const std::string& line) { log += line + "\n"; });
  MakeFiles(device);
  for (desk::Process* process : {&device.store, &device.broker}) Launch(device, *process);
  for (desk::Process* process : {&tls, &relay}) Launch(*process);
  desk::StoreClient store;
  desk::BusClient bus(loop_);
  bus.Start();
  ASSERT_TRUE(Eventually([&] { return bus.connected(); }));

  const struct {
    const char* broker;
    const char* ca;
    const char* says;
    int64_t clock = 0;  // seconds from the real one
  } kCases[] = {
      {"mqtts://localhost:8883", "tls/ca.pem", "the hub is connected"},
      {"mqtts://127.0.0.1:8883", "tls/ca.pem", "IP address mismatch"},
      {"mqtts://localhost:8883", "other.pem", "its certificate is refused: unable to get local issuer certificate"},
      {"mqtts://localhost:8883", "tls/ca.pem", "certificate is not yet valid (by this device's clock it is 19",
       -kFiftyYears},
      {"mqtts://localhost:8883", "nowhere.pem", "no certificates can be read from"},
      {"mqtts://localhost:1883", "tls/ca.pem", "the hub cannot be reached: "},
      {"mqtts://localhost:9", "tls/ca.pem", "the hub cannot be reached: "},
      {"mqtt://127.0.0.1:9", "tls/ca.pem", "the hub cannot be reached: Connection refused"},
      {"mqtt://localhost:8883", "tls/ca.pem", "the hub cannot be reached: "},
  };
  for (const auto& c : kCases) {
    clock.Move(c.clock);
    log.clear();
    ASSERT_TRUE(store.Set("relay_value", std::string(R"({"site": "g", "device": "c1", "broker": ")") + c.broker +
                                             R"(", "ca": ")" + here + "/" + c.ca + "\"}"));
    ASSERT_TRUE(bus.Publish(bs::kHttpBroadcastMessageRoot, R"({"type": "changed"})"));
    EXPECT_TRUE(Eventually([&] { return log.find(c.says) != std::string::npos; })) << c.broker << "\n" << log;
    EXPECT_EQ(log.find("[warn]"), std::string::npos) << c.broker << "\n" << log;  // of the event loop
  }
}

}  // namespace
