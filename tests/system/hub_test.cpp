// The hub of a site: who may say what, what it holds, what outlives it, and two of them as one.
#include "installed_hub.h"

#include <gtest/gtest.h>
#include <poll.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <set>
#include <vector>

#include "bus/caller.h"
#include "bus/kept.h"
#include "contract_watch.h"
#include "stranger.h"

namespace {

using bus::Caller;
using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

class InstalledHub : public testing::Test {
 protected:
  InstalledHub() { hub_.Accounts("--site garage device cam-1 cam-2"); }

  desk::Loop loop_;
  Hub hub_{loop_, "hub", ""};
};

TEST_F(InstalledHub, LetsEachRoleDoWhatIsItsAndNothingElse) {
  hub_.Accounts("device free");  // on all sites
  hub_.Accounts("--site garage planner anna");
  hub_.Accounts("--site garage integrator bert carl");
  hub_.Accounts("--site garage viewer vera");
  hub_.Accounts("--site garage planner,viewer paul");
  hub_.Accounts("--site garage bridge floor");
  const std::string accounts[] = {"cam-1", "cam-2", "free", "anna", "bert", "carl", "vera", "paul", "floor"};
  const struct {
    const char* topic;
    std::string write, read;
  } kRows[] = {
      {"park/garage/plan/cam-1", "anna paul", "cam-1 cam-2 free anna vera paul floor"},
      {"park/garage/plan/cam-1/more", "", ""},
      {"park/garage/counts/cam-1/L1/A", "cam-1 floor", "cam-1 cam-2 free vera paul floor"},
      {"park/garage/counts/cam-2/L1", "cam-2 floor", "cam-1 cam-2 free vera paul floor"},
      {"park/garage/counts/anna/L1", "floor", "cam-1 cam-2 free vera paul floor"},
      {"park/garage/counts/cam-1", "floor", "cam-1 cam-2 free vera paul floor"},
      {"park/garage/health/cam-1", "cam-1 floor", "cam-1 vera paul"},
      {"park/garage/health/cam-2", "cam-2 floor", "cam-2 vera paul"},
      {"park/garage/health/cam-1/more", "", ""},
      {"park/garage/request/cam-1", "bert carl", "cam-1 floor"},
      {"park/garage/request/cam-2", "bert carl", "cam-2 floor"},
      {"park/garage/request/cam-1/more", "", ""},
      {"park/garage/reply/bert/1", "cam-1 cam-2 free floor", "bert"},
      {"park/garage/reply/carl/1", "cam-1 cam-2 free floor", "carl"},
      {"park/garage/reply", "", ""},
      {"park/other/counts/free/L1", "free", "free"},
      {"park/other/counts/cam-1/L1", "", "free"},
      {"park/other/plan/cam-1", "", "free"},
      {"park/other/health/cam-1", "", ""},
      {"park/other/request/free", "", "free"},
      {"park/garage/anything", "", ""},
      {"anything", "", ""},
      {"$CONTROL/dynamic-security/v1", "", ""},
  };
  std::vector<std::unique_ptr<Caller>> listeners;
  for (const auto& account : accounts) {
    listeners.push_back(std::make_unique<Caller>(hub_.Account(account)));
    ASSERT_TRUE(listeners.back()->Connect()) << account << ": " << listeners.back()->problem();
    EXPECT_TRUE(listeners.back()->Listen({"#"})) << account;
  }
  for (const auto& account : accounts) {
    Caller caller(hub_.Account(account));
    ASSERT_TRUE(caller.Connect()) << account;
    for (const auto& row : kRows) {
      bus::Message message{row.topic, account};
      message.qos = 1;
      message.retained = true;
      const bool refused = caller.Publish(message) == Caller::Outcome::kRefused;
      EXPECT_EQ(!refused, Among(row.write, account)) << account << " " << row.topic;
    }
  }
  for (size_t i = 0; i < listeners.size(); ++i) {
    std::set<std::string> heard;
    for (bool more = true; more;) {
      more = false;
      listeners[i]->Receive(milliseconds(200), [&](const bus::Message& message) {
        heard.insert(message.topic);
        more = true;
      });
    }
    std::set<std::string> kept;
    Caller late(hub_.Account(accounts[i]));
    ASSERT_TRUE(late.Connect()) << accounts[i];
    late.Collect({"#"}, [&](const bus::Message& message) { kept.insert(message.topic); });
    for (const auto& row : kRows) {
      const bool written = !row.write.empty();
      EXPECT_EQ(heard.count(row.topic) == 1, written && Among(row.read, accounts[i]))
          << accounts[i] << " " << row.topic;
      EXPECT_EQ(kept.count(row.topic) == 1, written && Among(row.read, accounts[i]))
          << accounts[i] << " " << row.topic << ", kept";
    }
  }
}

TEST_F(InstalledHub, LetsInAccountsOnly) {
  bus::Options wrong = hub_.Account("cam-1"), nobody = wrong, plain = wrong;
  wrong.password += "x";
  nobody.user = nobody.password = "";
  plain.address.tls = false;
  for (const bus::Options& options : {wrong, nobody, plain}) EXPECT_FALSE(Caller(options).Connect());

  Caller removed(hub_.Account("cam-2"));
  ASSERT_TRUE(removed.Connect());
  const std::string before = hub_.Password("cam-1");
  EXPECT_EQ(hub_.Accounts("--remove cam-2").status, 0);
  EXPECT_TRUE(loop_.RunUntil([&] { return !removed.Receive(milliseconds(100), [](const bus::Message&) {}); },
                             milliseconds(5000)));
  EXPECT_FALSE(Caller(hub_.Account("cam-2")).Connect());
  EXPECT_TRUE(Caller(hub_.Account("cam-1")).Connect());
  EXPECT_EQ(hub_.Accounts("--list").output, "cam-1 device garage\n");

  // What is not to be is said, and changes nothing.
  for (const char* arguments :
       {"", "device", "driver x", "device ''", "device a/b", "device 'a b'", "device '#'", "device $(seq -s x 30)",
        "--site a/b device x", "--remove cam-2", "--what", "device, x"}) {
    EXPECT_EQ(hub_.Accounts(arguments).status, 2) << arguments;
  }
  EXPECT_EQ(hub_.Accounts("--list").output, "cam-1 device garage\n");
  EXPECT_EQ(hub_.Accounts("device cam-1").status, 0);
  EXPECT_NE(hub_.Password("cam-1"), before);
}

TEST_F(InstalledHub, ServesTheConsoleToBrowsersThroughTls) {
  hub_.StartConsole();
  const std::string page = "curl -s --cacert " + hub_.File("tls/ca.pem") + " ";
  EXPECT_EQ(Shell(page + "https://localhost:8443/").output, "<!doctype html>the console\n");
  const auto status = [&](const std::string& rest) {
    return Shell(page + "-o /dev/null -w %{http_code} --path-as-is https://localhost:8443" + rest).output;
  };
  for (const char* path : {"/passwords", "/../passwords", "/%2e%2e/passwords", "/../../etc/passwd", "/x"}) {
    EXPECT_EQ(status(path).find("200"), std::string::npos) << path;
  }
  const std::string upgrade =
      " --http1.1 -m 1 -H 'Connection: Upgrade' -H 'Upgrade: websocket' -H 'Sec-WebSocket-Version: 13'"
      " -H 'Sec-WebSocket-Protocol: mqtt' -H 'Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ=='";
  EXPECT_EQ(status("/ws" + upgrade), "101");
}

// Runs connections until the condition holds.
bool Serve(const std::vector<std::unique_ptr<bus::Connection>>& connections, const std::function<bool()>& condition,
           milliseconds limit) {
  auto ticked = Clock::now();
  for (const auto end = ticked + limit; !condition();) {
    std::vector<pollfd> waiting;
    for (const auto& connection : connections) {
      waiting.push_back(
          {connection->descriptor(), static_cast<short>(POLLIN | (connection->WantsWrite() ? POLLOUT : 0)), 0});
    }
    poll(waiting.data(), waiting.size(), 50);
    for (size_t i = 0; i < waiting.size(); ++i) {
      if (waiting[i].revents != 0) connections[i]->Serve();
    }
    if (Clock::now() > end) return false;
    if (Clock::now() - ticked > milliseconds(500)) {
      ticked = Clock::now();
      for (const auto& connection : connections) connection->Tick();
    }
  }
  return true;
}

TEST_F(InstalledHub, HoldsTwentyThousandKeptCountsForASubscriberWhoTakesThemSlowly) {
  constexpr size_t kCounts = 20000;
  bus::Connection sender(hub_.Account("cam-1"), {});
  std::vector<std::unique_ptr<bus::Connection>> clients;
  size_t sent = 0;
  clients.push_back(std::make_unique<bus::Connection>(hub_.Account("cam-1"), bus::Connection::Handlers{}));
  ASSERT_TRUE(clients[0]->Begin());
  ASSERT_TRUE(Serve(
      clients, [&] { return clients[0]->up(); }, milliseconds(10000)));
  ASSERT_TRUE(Serve(
      clients,
      [&] {
        for (int burst = 0; burst < 500 && sent < kCounts; ++burst, ++sent) {
          bus::Message message{"park/garage/counts/cam-1/L" + std::to_string(sent), "{\"spaces\": 3, \"free\": 1}"};
          message.retained = true;
          message.expiry_s = 90;
          clients[0]->Publish(message);
        }
        return sent == kCounts && !clients[0]->WantsWrite();
      },
      milliseconds(20000)));
  std::set<std::string> heard;
  bus::Connection::Handlers handlers;
  handlers.message = [&](const bus::Message& message) {
    heard.insert(message.topic);  // the last ones may still be on their way to the hub, and come live
  };
  clients.push_back(std::make_unique<bus::Connection>(hub_.Account("cam-2"), handlers));
  ASSERT_TRUE(clients[1]->Begin());
  ASSERT_TRUE(Serve(
      clients, [&] { return clients[1]->up(); }, milliseconds(10000)));
  clients[1]->Subscribe({"park/garage/counts/+/#"});
  clients[1]->Serve();
  loop_.RunFor(milliseconds(1000));
  EXPECT_TRUE(Serve(
      clients, [&] { return heard.size() == kCounts; }, milliseconds(20000)))
      << heard.size();
}

TEST_F(InstalledHub, LetsInAThousandRelaysThatComeAtOnce) {
  constexpr size_t kRelays = 1000;
  hub_.Accounts("--site garage device $(seq -f relay-%g 1000)");
  std::vector<std::unique_ptr<bus::Connection>> relays;
  for (size_t i = 1; i <= kRelays; ++i) {
    const std::string name = "relay-" + std::to_string(i);
    bus::Options options = hub_.Account(name);
    options.keep_alive_s = 20;
    relays.push_back(std::make_unique<bus::Connection>(options, bus::Connection::Handlers{}));
  }
  const auto began = Clock::now();
  for (const auto& relay : relays) relay->Begin();
  const auto up = [&] {
    return static_cast<size_t>(
        std::count_if(relays.begin(), relays.end(), [](const auto& relay) { return relay->up(); }));
  };
  EXPECT_TRUE(Serve(
      relays, [&] { return up() == kRelays; }, milliseconds(30000)))
      << up() << " are in";
  printf("a thousand relays are in after %.1f s, the hub takes %s kB\n",
         std::chrono::duration<double>(Clock::now() - began).count(),
         Shell("grep VmRSS /proc/" + std::to_string(hub_.process().pid()) + "/status | tr -dc 0-9").output.c_str());
}

TEST_F(InstalledHub, KeepsThePlansWhenItEnds) {
  hub_.Accounts("--site garage planner anna");
  {
    Caller anna(hub_.Account("anna"));
    ASSERT_TRUE(anna.Connect());
    bus::Message plan{"park/garage/plan/cam-1", "{\"zone\": \"L1\"}"};
    plan.retained = true;
    plan.qos = 1;
    anna.Publish(plan);
  }
  hub_.Stop();
  hub_.Start();
  std::string kept;
  Caller anna(hub_.Account("anna"));
  ASSERT_TRUE(anna.Connect());
  anna.Collect({"park/garage/plan/+"}, [&](const bus::Message& message) { kept = message.payload; });
  EXPECT_EQ(kept, "{\"zone\": \"L1\"}");
}

// The floor's hub as docs/hub.md says it, and the site's.
TEST(BridgedHubs, AreOneSite) {
  desk::Loop loop;
  Hub site(loop, "site", "");
  site.Accounts("--site garage bridge floor-2");
  site.Accounts("--site garage device cam-9");
  site.Accounts("--site garage planner,integrator,viewer anna");
  std::string bridge = ReadFile(SOURCE_DIRECTORY "/docs/hub.md");
  const size_t begin = bridge.find("```\nconnection ") + 4;
  bridge = bridge.substr(begin, bridge.find("```", begin) - begin);
  const std::pair<std::string, std::string> kFilledIn[] = {
      {"hub.example", "localhost"},
      {"THE-PASSWORD", site.Password("floor-2")},
      {"/etc/business-server-site/hub.d/site-ca.pem", site.File("tls/ca.pem")},
  };
  for (const auto& [from, to] : kFilledIn) {
    ASSERT_NE(bridge.find(from), std::string::npos) << from;
    bridge.replace(bridge.find(from), from.size(), to);
  }
  Hub floor(loop, "floor", bridge, 100);
  floor.Accounts("--site garage device cam-1 cam-2");

  using Heard = std::map<std::string, bus::Message>;
  struct Listener {
    explicit Listener(const bus::Options& options) : caller(options) {}
    Caller caller;
    Heard heard;
    std::map<std::string, int> times;
  };
  const auto listen = [](const bus::Options& options) {
    auto listener = std::make_unique<Listener>(options);
    EXPECT_TRUE(listener->caller.Connect() && listener->caller.Listen({"#"})) << options.user;
    return listener;
  };
  const auto anna = listen(site.Account("anna")), cam9 = listen(site.Account("cam-9"));
  const auto cam1 = listen(floor.Account("cam-1")), cam2 = listen(floor.Account("cam-2"));
  const auto hears = [&](Listener& listener, const std::string& topic, milliseconds limit = milliseconds(15000)) {
    return loop.RunUntil(
        [&] {
          listener.caller.Receive(milliseconds(20), [&](const bus::Message& message) {
            listener.heard[message.topic] = message;
            ++listener.times[message.topic];
          });
          return listener.heard.count(topic) == 1;
        },
        limit);
  };
  const auto kept = [](const std::string& topic, const std::string& text) {
    bus::Message message{topic, text};
    message.retained = true;
    message.expiry_s = 90;
    return message;
  };

  // Plans go down, as soon as the bridge stands; counts to everybody, health up.
  anna->caller.Publish(kept("park/garage/plan/cam-1", "{\"zone\": \"L2\"}"));
  EXPECT_TRUE(hears(*cam1, "park/garage/plan/cam-1"));
  cam1->caller.Publish(kept("park/garage/counts/cam-1/L2", "1"));
  cam1->caller.Publish(kept("park/garage/health/cam-1", "{}"));
  cam9->caller.Publish(kept("park/garage/counts/cam-9/L9", "9"));
  for (Listener* listener : {anna.get(), cam9.get(), cam2.get()}) {
    EXPECT_TRUE(hears(*listener, "park/garage/counts/cam-1/L2"));
    EXPECT_TRUE(hears(*listener, "park/garage/counts/cam-9/L9"));
  }
  EXPECT_TRUE(hears(*anna, "park/garage/health/cam-1"));

  // A request from above is answered from below.
  bus::Message request{"park/garage/request/cam-1", "{}", "park/garage/reply/anna/1", "seven"};
  anna->caller.Publish(request);
  ASSERT_TRUE(hears(*cam1, request.topic));
  const bus::Message asked = cam1->heard[request.topic];
  EXPECT_EQ(asked.response_topic, request.response_topic);
  cam1->caller.Publish({asked.response_topic, "done", "", asked.correlation});
  ASSERT_TRUE(hears(*anna, request.response_topic));
  EXPECT_EQ(anna->heard[request.response_topic].correlation, "seven");

  // Nothing went in a circle, and what is kept above still has its end.
  EXPECT_FALSE(hears(*cam2, "nothing more", milliseconds(1000)));
  for (const auto& [topic, times] : cam2->times) EXPECT_EQ(times, 1) << topic;
  const Outcome late =
      Shell("mosquitto_sub -V 5 -h localhost -p " + std::to_string(site.port) + " --cafile " + site.File("tls/ca.pem") +
            " -u anna -P " + site.Password("anna") + " -t park/garage/counts/cam-1/L2 -C 1 -W 5 -F %E");
  EXPECT_GT(std::atoi(late.output.c_str()), 60) << late.output;
}

// A device and a hub as their packages configure them, with the relay between them under its accounts.
class InstalledSite : public InstalledDevice {
 protected:
  Hub hub_{loop_, "hub", ""};
  desk::Process relay_{loop_, "relay"};
};

TEST_F(InstalledSite, CountsAndRequestsPassWithTheRightsOfTheirAccounts) {
  hub_.Accounts("--site garage device cam-1");
  hub_.Accounts("--site garage planner,viewer,integrator anna");
  for (desk::Process* program : {&device_.broker, &device_.store, &device_.daemon}) Start(*program);
  const std::string here = directory_.path;
  std::ofstream(here + "/site-password") << hub_.Password("cam-1") << "\nnot this\n";
  StoreSays(
      "hset kvdb relay_value '{\"site\": \"garage\", \"device\": \"cam-1\", \"broker\": \"mqtts://localhost:8883\", "
      "\"ca\": \"" +
      hub_.File("tls/ca.pem") + "\", \"remote\": \"read\"}'");
  relay_.Configure({BINARY_DIRECTORY "/park_relay", "--site-password", here + "/site-password"}, here);
  Launch(relay_);

  Caller anna(hub_.Account("anna"));
  ASSERT_TRUE(anna.Connect() && anna.Listen({"park/garage/#"}));
  bus::Message plan{"park/garage/plan/cam-1", "{\"zone\": \"L1\", \"shows\": {\"left\": [\"L2\"]}}"};
  plan.retained = true;
  anna.Publish(plan);
  std::map<std::string, std::string> heard;
  ContractWatch contract(loop_);
  const auto hears = [&](const std::string& topic, const std::string& words) {
    return loop_.RunUntil(
        [&] {
          anna.Receive(milliseconds(20), [&](const bus::Message& message) {
            contract.Expect(message.topic, message.payload);
            heard[message.topic] = message.payload;
          });
          return heard[topic].find(words) != std::string::npos;
        },
        milliseconds(20000));
  };
  EXPECT_TRUE(hears("park/garage/counts/cam-1/L1", "spaces")) << ReadFile(here + "/log/relay.log");
  EXPECT_TRUE(hears("park/garage/health/cam-1", "\"ok\""));

  // Asked from the site: what the document allows, until the owner takes the account away.
  const auto ask = [&](const std::string& command) {
    std::string answer;
    Caller caller(hub_.Account("anna"));
    EXPECT_TRUE(caller.Connect());
    caller.Request({"park/garage/request/cam-1", "{\"type\": \"" + command + "\"}", "park/garage/reply/anna/1"},
                   milliseconds(8000), answer);
    contract.Expect("park/garage/reply/anna/1", answer);
    return answer;
  };
  EXPECT_NE(ask("get_ttyio_cfg").find("200"), std::string::npos);
  EXPECT_NE(ask("set_ttyio_cfg").find("403"), std::string::npos);
  EXPECT_EQ(Shell("BUSINESS_SERVER_ETC=" + here + " " + kPackaging + "/remote-requests off").status, 0);
  kill(device_.broker.pid(), SIGHUP);
  relay_.Stop();
  Launch(relay_);
  heard.clear();
  EXPECT_TRUE(hears("park/garage/health/cam-1", "\"ok\""));
  EXPECT_NE(ask("get_ttyio_cfg").find("504"), std::string::npos);
}

// The hub under siege, from the network and by accounts of its own. A listener without TLS beside the packaged ones
// takes what is sent byte by byte; the limits are the same.
class HubSiege : public testing::Test {
 protected:
  HubSiege() { hub_.Accounts("--site garage device cam-1 cam-2"); }

  // To be called while those who attack are still there.
  void ReportAndLogIn(const std::string& what) {
    const auto began = Clock::now();
    EXPECT_TRUE(Caller(hub_.Account("cam-2")).Connect()) << what;
    const auto took = Clock::now() - began;
    EXPECT_LT(took, std::chrono::seconds(5)) << what;
    const double peak = Resident(hub_.process(), "VmHWM:");
    EXPECT_GT(peak, 0) << what << ": the hub is gone";
    EXPECT_LT(peak, 600) << what;
    printf("%-86s hub %5.1f MB, a device logs in after %.1f s\n", what.c_str(), peak,
           std::chrono::duration<double>(took).count());
  }

  desk::Loop loop_;
  Hub hub_{loop_, "hub", "listener 1883 127.0.0.1\nmax_connections 4000\n"};
};

TEST_F(HubSiege, ALastWillMaySayNoMoreThanItsAccount) {
  hub_.Accounts("--site garage viewer vera");
  Caller vera(hub_.Account("vera"));
  ASSERT_TRUE(vera.Connect() && vera.Listen({"park/garage/#"}));
  mqtt::Login login;
  login.user = "cam-1";
  login.password = hub_.Password("cam-1");
  for (const char* topic : {"health/cam-2", "counts/cam-2/L1", "plan/cam-1", "health/cam-1"}) {
    login.will_topic = std::string("park/garage/") + topic;
    Stranger camera(1883);
    ASSERT_TRUE(camera.Send(mqtt::Connect(login)));
    loop_.RunFor(milliseconds(200));
  }  // gone without goodbye
  std::set<std::string> heard;
  EXPECT_TRUE(loop_.RunUntil(
      [&] {
        vera.Receive(milliseconds(20), [&](const bus::Message& message) { heard.insert(message.topic); });
        return heard.count("park/garage/health/cam-1") == 1;  // the last that died
      },
      milliseconds(10000)));
  EXPECT_EQ(heard.size(), 1U);
}

TEST_F(HubSiege, Strangers) {
  {
    const auto silent = Crowd(8883, 1100);
    ReportAndLogIn("1,100 connections that say nothing");
  }
  EXPECT_FALSE(TakesLargePacket(1883));
  const auto strangers = UnfinishedCrowd(1883, 3500);
  ReportAndLogIn("3,500 packets of 66 kB that lack a byte");
}

TEST_F(HubSiege, ACameraThatWasTakenOver) {
  mqtt::Login login;
  login.user = "cam-1";
  login.password = hub_.Password("cam-1");
  std::vector<Stranger> stalled;
  for (int i = 0; i < 4; ++i) {
    stalled.emplace_back(uint16_t{1883}, 4096);
    stalled.back().Send(mqtt::Connect(login) + mqtt::Subscribe({"#"}));
  }
  Stranger camera(1883);
  ASSERT_TRUE(camera.Send(mqtt::Connect(login)));
  mqtt::Message count{"park/garage/counts/cam-1/L1", std::string(65000, ' '), "", ""};
  const std::string flood = mqtt::Publish(count);
  for (int i = 0; i < 3000 && camera.Send(flood); ++i) {
  }
  ReportAndLogIn("a camera's account: 3,000 counts of 65 kB to four readers that stall");
  stalled.clear();
  Stranger keeper(1883);
  ASSERT_TRUE(keeper.Send(mqtt::Connect(login)));
  count.retain = true;
  for (int i = 0; i < 8000; ++i) {
    count.topic = "park/garage/counts/cam-1/L" + std::to_string(i);
    if (!keeper.Send(mqtt::Publish(count))) break;
  }
  ReportAndLogIn("a camera's account: 8,000 kept counts of 65 kB");
}

}  // namespace
