// The installed device under siege. Every role, an account that does not exist and somebody without one do what the two
// servers allow before anybody is asked who he is, and whatever an account is good for. What counts is measured: the
// memory of the processes, how long the daemon is away, what reached whom.
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <set>
#include <thread>
#include <utility>

#include "protocol/names.h"
#include "protocol/stored_documents.h"
#include "siege.h"

namespace {

namespace bs = businessserver;
using std::chrono::milliseconds;

constexpr size_t kLongestMessage = 65536;

TEST_F(Siege, UnfinishedPacketsWithoutAnAccount) {
  EXPECT_FALSE(TakesLargePacket(kBus));
  const auto strangers = UnfinishedCrowd(kBus, 1600);
  Sample();
  AnswersAfter();
  Report("60 MB of a packet of 250 MB; 1,600 packets of 66 kB that lack a byte");
}

TEST_F(Siege, ReadersThatStall) {
  std::vector<Stranger> readers;
  readers.reserve(4);
  for (const char* role : {"integrator", "integrator", "front_end", "relay"}) {
    readers.push_back(LogIn(role, 4096));
    readers.back().Send(mqtt::Subscribe({"#"}));
  }
  Stranger sender = LogIn("integrator");
  const std::string message = mqtt::Publish({bs::kBusRequestMessage, std::string(kLongestMessage, 'x'), "", ""});
  device_.daemon.Freeze();
  for (int i = 0; i < 2000 && sender.Send(message); ++i) {
  }
  Sample();
  device_.daemon.Thaw();
  Report("2,000 messages of 64 kB to two readers that stall and a daemon that is busy");
  readers.clear();
  AnswersAfter();
}

TEST_F(Siege, KeptSessions) {
  std::string deep;
  for (int i = 0; i < 190; ++i) deep += "/a";
  for (int i = 0; i < 2000; ++i) {
    Stranger client(kBus);
    mqtt::Login login = {"kept" + std::to_string(i), "relay", Password("relay"), false, 0xFFFFFFFF};
    std::vector<std::string> filters;
    for (int j = 0; j < 5; ++j) filters.push_back(std::to_string(i * 5 + j) + deep);
    client.Send(mqtt::Connect(login) + mqtt::Subscribe(filters));
    std::string answers;  // to both
    for (std::string part; answers.size() < 15 && !(part = client.ReadSome(milliseconds(1000))).empty();)
      answers += part;
    if (answers.empty()) break;
    if (i % 10 == 0) Sample();
  }
  AnswersAfter();
  Report("2,000 kept sessions with five deep subscriptions each");
}

TEST_F(Siege, IdleConnections) {
  const auto at_the_bus = Crowd(kBus, 1100), at_the_store = Crowd(kStore, 1100);
  device_.daemon.Kill();
  const auto restarted = Clock::now();
  Bring(watched_[2]);
  EXPECT_LT(Clock::now() - restarted, kBackWithin);
  AnswersAfter();
  Report("1,100 idle connections to bus and store each, daemon restarted");
}

TEST_F(Siege, StoreWithoutAnAccount) {
  const auto set = [](const std::string& field, size_t size) {
    return "*4\r\n$4\r\nHSET\r\n$4\r\nkvdb\r\n$" + std::to_string(field.size()) + "\r\n" + field + "\r\n$" +
           std::to_string(size) + "\r\n";
  };
  StoreSays("hset kvdb one 1");
  EXPECT_NE(StoreSays("copy kvdb kvdb db 15").find("out of range"), std::string::npos);
  const std::string megabyte(1 << 20, 'x');
  for (const size_t size : {size_t{150} << 20, size_t{500} << 20}) {
    Stranger client(kStore);
    client.Send(set("large", size));
    for (size_t i = 0; i < size / 2 && client.Send(megabyte); i += megabyte.size()) {
    }
    EXPECT_FALSE(client.open()) << size;
  }
  // As much as the store takes, twice; and answers that nobody fetches.
  Stranger client(kStore);
  for (int i = 0; i < 80; ++i) client.Send(set(std::to_string(i), megabyte.size()) + megabyte + "\r\n");
  client.Read(milliseconds(200));
  StoreSays("copy kvdb kvdb:backup replace");
  Sample();
  std::vector<Stranger> readers;
  for (int i = 0; i < 6; ++i) {
    readers.emplace_back(kStore, 4096);
    readers.back().Send("*2\r\n$7\r\nHGETALL\r\n$4\r\nkvdb\r\n*2\r\n$7\r\nHGETALL\r\n$4\r\nkvdb\r\n");
  }
  const auto halves = Crowd(kStore, 300, set("half", megabyte.size()) + megabyte.substr(1));
  StoreSays("ping");
  AnswersAfter();
  device_.daemon.Kill();
  Bring(watched_[2]);
  Report("values of 150 and 500 MB, 80 of 1 MB, a copy, six unread answers, 300 halves");
}

// What is in the store belongs to whoever is on the device: the daemon reads it all the same, at its start too.
TEST_F(Siege, DocumentsThatAreTooLongOrTooDeep) {
  const std::string values[] = {std::string(1 << 20, 'x'), std::string(180000, '[') + std::string(180000, ']')};
  for (const std::string& value : values) {
    Stranger client(kStore);
    for (const bs::StoredDocument* document : bs::kStoredDocuments) {
      const std::string_view key(document->key, document->key_length);
      client.Send("*4\r\n$4\r\nHSET\r\n$4\r\nkvdb\r\n$" + std::to_string(key.size()) + "\r\n" + std::string(key) +
                  "\r\n$" + std::to_string(value.size()) + "\r\n" + value + "\r\n");
    }
    client.Read(milliseconds(300));
    device_.daemon.Kill();
    Bring(watched_[2]);
    AnswersAfter();
    Sample();
  }
  EXPECT_LT(LogSize(), 1000000u);
  Report("every document 1 MB long, then 180,000 arrays deep; daemon restarted");
}

TEST_F(Siege, RequestsThatWantTooMuch) {
  Stranger controller = LogIn("controller"), relay = LogIn("relay");
  bus::Caller front_end(Account("front_end"));
  ASSERT_TRUE(front_end.Connect());
  const auto ask = [&](const std::string& request) {
    std::string answer;
    front_end.Request({bs::kBusRequestMessage, request, "reply/front_end/1"}, milliseconds(5000), answer);
    return answer;
  };
  EXPECT_NE(ask("{\"type\": \"get_ttyio_cfg\"}").find("200"), std::string::npos);

  // A second command to the beacon module; a document that nobody can read again.
  const std::string renamed = ask("{\"type\": \"set_ibc_name\", \"body\": {\"name\": \"a\\r\\nDTM:RST\"}}");
  EXPECT_NE(renamed.find("error_msg"), std::string::npos);
  EXPECT_EQ(renamed.find("\"state\" : 200"), std::string::npos) << renamed;
  const std::string deep =
      "{\"type\": \"set_rs485pro_cfg\", \"body\": " + std::string(900, '[') + std::string(900, ']') + "}";
  EXPECT_EQ(ask(deep).find("\"state\" : 200"), std::string::npos);

  // More than ten seconds of the line's time.
  const double before = Resident(device_.daemon, "VmRSS:");
  controller.Send(mqtt::Publish({bs::kBusBroadlistenMessage,
                                 "{\"type\": \"send_ttyio_data\", \"body\": {\"data_len\": 48000, \"data\": \"" +
                                     std::string(64000, 'A') + "\"}}",
                                 "", ""}));
  EXPECT_NE(ask("{\"type\": \"get_ttyio_cfg\"}").find("200"), std::string::npos);

  // Types that are never answered, with as much to remember as fits; pushes as long as they may be.
  for (int i = 0; i < 300; ++i) {
    relay.Send(mqtt::Publish({bs::kBusNetPush, "{}", "reply/" + std::to_string(i), std::string(65000, 'c')}));
  }
  std::string push = "{\"s_addr\": 2, \"totle\": 1, \"free\": 1, \"pos\": 1, \"cm_dev\": [";
  for (int i = 0; push.size() < 65000; ++i)
    push += (i > 0 ? "," : "") + ("{\"ip\":" + std::to_string(i + 5)) + ",\"tn\":1,\"fn\":1}";
  push += "]}";
  for (int i = 0; i < 50; ++i) relay.Send(mqtt::Publish({bs::kBusNetPush, push, "", ""}));
  EXPECT_NE(ask("{\"type\": \"get_ttyio_cfg\"}").find("200"), std::string::npos);
  std::this_thread::sleep_for(milliseconds(300));
  EXPECT_LT(Resident(device_.daemon, "VmRSS:"), before + 6);
  Report("CR LF in a name, 900 arrays, 48 kB for the line, 300 correlations and 50 pushes of 65 kB");
}

TEST_F(Siege, AnswersWhereTheyAreNotWanted) {
  Stranger front_end = LogIn("front_end");
  bus::Caller watcher(Account("integrator"));
  ASSERT_TRUE(watcher.Connect() && watcher.Listen({"#"}));
  const char* const topics[] = {
      bs::kHttpRequestMessageRoot, bs::kBusBroadcastMessage, bs::kBusRequestMessage,         bs::kBusNetPush,
      bs::kAvsSimulatorTrigger,    bs::kBusSimulatorTrigger, "BUS_EXT_REQUEST_MESSAGE/reply"};
  for (const char* topic : topics) {
    front_end.Send(mqtt::Publish({bs::kBusRequestMessage, "{\"type\": \"get_ttyio_cfg\"}", topic, "forged"}));
  }
  int forged = 0;
  Hear(watcher, milliseconds(1000), [&](const bus::Message& message) {
    if (message.payload.find("error_msg") != std::string::npos && message.topic != "BUS_REQUEST_MESSAGE/reply")
      ++forged;
  });
  EXPECT_EQ(forged, 0);
  AnswersAfter();
  Report("requests that want their answer on seven topics of other processes");
}

TEST_F(Siege, RefusedCommandsFromOutside) {
  Stranger controller = LogIn("controller");
  bus::Caller listener(Account("controller"));
  ASSERT_TRUE(listener.Connect() && listener.Listen({"reply/controller/1"}));
  const auto parts = directory_.path / "store/appendonlydir/appendonly.aof.1.incr.aof";
  const auto before = std::filesystem::file_size(parts);
  constexpr int kCommands = 200;
  for (int i = 0; i < kCommands; ++i) {
    const std::string ip = std::string(1880, 'x') + std::to_string(i);
    controller.Send(mqtt::Publish(
        {bs::kBusExtRequestMessage,
         "{\"type\": \"external_control_framestatus\", \"body\": {\"ip\": \"" + ip + "\", \"frame_status\": 1}}",
         "reply/controller/1", std::to_string(i)}));
  }
  int answers = 0;
  Hear(listener, milliseconds(2000), [&](const bus::Message&) { ++answers; });
  EXPECT_EQ(answers, kCommands);
  const auto written = std::filesystem::file_size(parts) - before;
  EXPECT_LT(written, 200000u);
  Report("200 refused external commands with 1,900 bytes of address: " + std::to_string(written / 1000) +
         " kB written");
}

// Another user's program on the ports of bus and store, who says that whoever comes is welcome, and what he was told.
constexpr char kImpostor[] = R"(
import os, select, socket
os.setgid(65534)
os.setuid(65534)
welcome = {socket.create_server(("127.0.0.1", 5291)): b"\x20\x03\0\0\0", socket.create_server(("127.0.0.1", 5299)): b""}
print("listens", flush=True)
while True:
    for port in select.select(list(welcome), [], [])[0]:
        client = port.accept()[0]
        client.settimeout(1)
        try:
            client.sendall(welcome[port])
            told = client.recv(4096)
        except OSError:
            told = b""
        if told:
            print(told, flush=True)
        client.close()
)";

// While broker and store are away somebody else takes their ports: he is told nothing, neither a password nor a request
// nor what is in the documents, by nobody.
TEST_F(Siege, AFalseBrokerAndAFalseStore) {
  if (geteuid() != 0 || unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
    GTEST_SKIP() << "needs root, for the package's accounts";
  }
  // The accounts that the package makes. Broker and store of this test are root's, which is trusted too.
  const std::string accounts = directory_.path / "passwd";
  std::ofstream(accounts) << ReadFile("/etc/passwd") << "business-server-bus:x:64990:64990::/:/bin/false\n"
                          << "business-server-store:x:64991:64991::/:/bin/false\n";
  ASSERT_EQ(mount(accounts.c_str(), "/etc/passwd", nullptr, MS_BIND, nullptr), 0);
  device_.daemon.Kill();
  Bring(watched_[2]);
  AnswersAfter();
  device_.store.Kill();
  device_.broker.Kill();
  std::string told;
  desk::Process impostor(loop_, "impostor");
  impostor.Configure({"python3", "-c", kImpostor}, directory_.path);
  impostor.OnLine([&](const std::string& line) { told += line; });
  Launch(impostor);
  EXPECT_TRUE(loop_.RunUntil([&] { return told == "listens"; }, milliseconds(10000))) << told;
  loop_.RunFor(milliseconds(2500));
  const std::string programs = BINARY_DIRECTORY "/";
  const std::string nobody = "env -u CREDENTIALS_DIRECTORY timeout 3 ";
  for (const std::string& command :
       {"timeout 3 " + programs + "parkctl request get_ttyio_cfg", "timeout 2 " + programs + "park_relay",
        nobody + programs + "parkctl request get_ttyio_cfg", nobody + programs + "parkctl store list",
        nobody + programs + "parkctl store set bus_dev_pos_value '{\"pos\":1}'"}) {
    const Outcome outcome = Shell(command);
    EXPECT_NE(outcome.status, 0) << command << ": " << outcome.output;
  }
  loop_.RunFor(milliseconds(100));
  EXPECT_TRUE(impostor.running());
  EXPECT_EQ(told, "listens");
  impostor.Kill();
  AnswersAfter();
  Report("another user's program on the ports of bus and store: nobody tells it a byte");
}

TEST_F(Siege, HonestBurst) {
  Stranger client = LogIn("front_end");
  bus::Caller listener(Account("front_end"));
  ASSERT_TRUE(listener.Connect() && listener.Listen({"reply/front_end/burst"}));
  const std::string request = "{\"type\":\"get_ttyio_cfg\"}";
  device_.daemon.Freeze();
  constexpr size_t kRequests = 20000;
  for (size_t i = 0; i < kRequests; ++i) {
    client.Send(mqtt::Publish({bs::kBusRequestMessage, request + std::string(500 - request.size(), ' '),
                               "reply/front_end/burst", std::to_string(i)}));
  }
  std::this_thread::sleep_for(std::chrono::seconds(2));
  device_.daemon.Thaw();
  std::set<std::string> answered;
  size_t answers = 0;
  Hear(listener, milliseconds(3000), [&](const bus::Message& message) {
    ++answers;
    answered.insert(message.correlation);
  });
  EXPECT_EQ(answers, kRequests);
  EXPECT_EQ(answered.size(), kRequests);
  Report("20,000 requests of 500 bytes to a daemon that stands still for 2 s, each answered once");
}

}  // namespace
