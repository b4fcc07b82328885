// What is installed on a device: the package, who may say what on its bus, what its store lets in and survives.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include "installed_device.h"
#include "protocol/names.h"

namespace {

namespace fs = std::filesystem;

TEST(Package, HoldsTheDeviceAndItsUnitsAreLockedDown) {
  const TemporaryDirectory directory;
  const std::string root = directory.path / "root";
  const std::string package = directory.path.string() + "/business-server_*.deb";
  const auto pack = [](const std::string& where) {
    return "cpack --config " + std::string(kBuild) + "/CPackConfig.cmake -B " + where;
  };
  ASSERT_EQ(Shell(pack(directory.path)).status, 0);
  // Whoever makes them, and when: the same bytes, and no path of who built them.
  const std::string again = directory.path / "again";
  ASSERT_EQ(Shell("umask 077; TZ=Asia/Tokyo " + pack(again)).status, 0);
  const Outcome same = Shell("cd " + again + " && for one in *.deb; do cmp $one ../$one || exit; done");
  EXPECT_EQ(same.status, 0) << same.output;
  for (const std::string& one : {package, directory.path.string() + "/business-server-site_*_all.deb"}) {
    ASSERT_EQ(Shell("dpkg-deb -x " + one + " " + root).status, 0) << one;
  }
  const std::string needs = Shell("dpkg-deb -f " + package + " Depends").output;
  for (const char* name : {"libmosquitto1", "psmisc", "udev"}) {
    EXPECT_NE(needs.find(name), std::string::npos) << name << " in " << needs;
  }
  EXPECT_EQ(Shell("grep -rlF " SOURCE_DIRECTORY " " + root).output, "");
  // Its users can be made.
  const Outcome users = Shell("systemd-sysusers --root=" + root + " business-server.conf business-server-site.conf");
  EXPECT_EQ(users.status, 0) << users.output;

  // The board's own paths, whatever this build is for.
  EXPECT_NE(ReadFile(root + "/usr/bin/business_server").find(std::string("\0/dev/ttyAMA%d\0", 15)), std::string::npos);
  const std::string devices = ReadFile(root + "/lib/systemd/system/business-server.service.d/board.conf");
  for (const char* device : {"/dev/mem", "/dev/ttyAMA1", "/dev/ttyAMA2"}) {
    EXPECT_NE(devices.find("\nDeviceAllow=" + std::string(device) + " rw\n"), std::string::npos) << devices;
  }
  for (const char* file : {"/usr/bin/parkctl", "/usr/share/bash-completion/completions/parkctl"}) {
    EXPECT_TRUE(fs::exists(root + file)) << file;
  }

  // The console is served when somebody wants it, and then no more.
  const std::string console =
      "BUSINESS_SERVER_ETC=" + root + "/etc/business-server " + root + "/usr/lib/business-server/console ";
  for (const char* wanted : {"off", "on localhost", "off"}) {
    EXPECT_EQ(Shell(console + wanted).status, 0) << wanted;
    const bool on = wanted[1] == 'n';
    EXPECT_EQ(Shell(console + "status").output, on ? "on\n" : "off\n");
    EXPECT_EQ(fs::exists(root + "/etc/business-server/bus.d/console.conf"), on);
  }
  EXPECT_TRUE(fs::exists(root + "/etc/business-server/console/hub.pem"));

  const struct {
    const char* unit;
    const char* must_have;
    std::string exposure;  // in tenths, at most
  } kUnits[] = {
      // More than was wanted, 15: a group beside its own, and shared memory that stays (0.1 each).
      {"business-server", "After=business-server-bus.service business-server-store.service\n", "16"},
      {"business-server", "ExecStartPre=+-/usr/bin/udevadm settle --timeout=5\n", "16"},
      {"business-server", "WatchdogSec=60\n", "16"},
      {"business-server-bus", "Type=notify\n", "15"},
      {"business-server-store", "ExecStartPre=/usr/lib/business-server/store-repair /var/lib/business-server/store\n",
       "15"},
      {"business-server-store", "ExecStartPost=-/usr/bin/parkctl store migrate\n", "15"},
      {"business-server-relay", "--site-password ${CREDENTIALS_DIRECTORY}/site-password\n", "15"},
      {"business-server-guard", "ExecStart=/usr/bin/parkctl config guard\n", "15"},
      {"business-server-console", "ExecStart=/usr/bin/stunnel4 /etc/business-server/console/console.conf\n", "15"},
      {"business-server-hub", "ExecStart=/usr/sbin/mosquitto -c /etc/business-server-site/mosquitto.conf\n", "15"},
      {"business-server-hub-console", "ExecStart=/usr/bin/stunnel4 /etc/business-server-site/console.conf\n", "15"},
  };
  for (const auto& row : kUnits) {
    const std::string file = root + "/lib/systemd/system/" + row.unit + ".service";
    const std::string text = ReadFile(file);
    EXPECT_NE(text.find(row.must_have), std::string::npos) << row.unit << " " << row.must_have;
    EXPECT_NE(text.find("\nRestart=always\n"), std::string::npos) << row.unit;
    const Outcome security =
        Shell("systemd-analyze security --no-pager --offline=true --threshold=" + row.exposure + " " + file);
    EXPECT_EQ(security.status, 0) << security.output;
    // Whatever a unit runs or reads of ours is in the package.
    std::istringstream words(text);
    for (std::string word; words >> word;) {
      if (word.rfind("LoadCredential=", 0) == 0) continue;  // made on the device
      const size_t path = word.find('/');
      if (word.rfind("Exec", 0) != 0 && word.find("/etc/business-server") == std::string::npos) continue;
      const std::string name = word.substr(path == std::string::npos ? 0 : path);
      if (name.find("business") == std::string::npos) continue;
      EXPECT_TRUE(fs::exists(root + name)) << row.unit << " " << name;
    }
  }
}

TEST_F(InstalledDevice, LetsEachRolePublishAndReadItsOwnTypesAndNoOther) {
  using namespace businessserver;
  Start(device_.broker);
  const std::string roles[] = {"recogniser",     "front_end",  "controller",   "relay",
                               "relay_requests", "integrator", "config_guard", "business_server"};
  const struct {
    std::string type, publish, read;
  } kRows[] = {
      {kAvsSimulatorTrigger, "recogniser", "integrator business_server"},
      {kAvsParkRectChange, "recogniser", "integrator business_server"},
      {kBusBroadlistenMessage, "controller", "integrator business_server"},
      {kSysDeviceNameChanged, "front_end", "integrator business_server"},
      {kBusRequestMessage, "front_end relay_requests integrator config_guard", "integrator business_server"},
      {kBusExtRequestMessage, "controller integrator", "integrator business_server"},
      {kBusNetPush, "relay", "integrator business_server"},
      {kHttpBroadcastMessageRoot, "front_end relay integrator config_guard", "relay integrator business_server"},
      {kBusBroadcastMessage, "business_server", "front_end controller relay integrator"},
      {kBusSimulatorTrigger, "business_server", "front_end controller integrator"},
      {kHttpRequestMessageRoot, "business_server", "front_end controller relay integrator"},
      {"BUS_REQUEST_MESSAGE/reply", "business_server", "front_end integrator"},
      {"BUS_EXT_REQUEST_MESSAGE/reply", "business_server", "controller integrator"},
      {"reply/front_end/1", "business_server config_guard", "front_end"},
      {"reply/controller/1", "business_server", "controller"},
      {"reply/relay_requests/1", "business_server", "relay_requests"},
      {"reply/integrator/1", "business_server config_guard", "integrator"},
      {"reply/config_guard/1", "business_server", "config_guard"},
      {"CHANGE_REQUEST_MESSAGE", "front_end integrator", "integrator config_guard"},
      {"reply/anyone", "business_server", ""},
      {"ANY_OTHER_MESSAGE", "", ""},
  };
  for (const auto& role : roles) EXPECT_EQ(Listen(role, "-E"), "") << role;
  for (const auto& row : kRows) {
    EXPECT_FALSE(MayPublish("", row.type)) << row.type;
    for (const auto& role : roles) {
      EXPECT_EQ(MayPublish(role, row.type), Among(row.publish, role)) << role << " " << row.type;
    }
  }
  for (const auto& role : roles) {
    std::string read = Listen(role, "-W 1");
    std::replace(read.begin(), read.end(), '\n', ' ');
    for (const auto& row : kRows) {
      EXPECT_EQ(Among(read, row.type), Among(row.read, role)) << role << " " << row.type;
    }
  }
  // A request that the broker kept would be carried out again at each reconnect.
  EXPECT_NE(Shell("mosquitto_pub -V 311 -q 1 -r -m {} -t BUS_REQUEST_MESSAGE" + Account("front_end")).status, 0);
}

// What a process listens on: "127.0.0.1:5291\n".
std::string ListeningAddresses(pid_t pid) {
  return Shell("ss -Htulnp | grep pid=" + std::to_string(pid) + ", | awk '{print $5}' | sort -u").output;
}

TEST_F(InstalledDevice, WorksWithItsAccountsAndListensOnLoopbackOnly) {
  Start(device_.broker);
  Start(device_.store);
  Start(device_.daemon);

  const std::string parkctl = BINARY_DIRECTORY "/parkctl ";
  const Outcome reply = Shell(parkctl + "request get_ttyio_cfg");
  EXPECT_EQ(reply.status, 0) << reply.output;
  const Outcome result = Shell(parkctl + "result --space 1 --occupied");
  EXPECT_EQ(result.status, 0) << result.output;
  const Outcome stranger = Shell("env -u CREDENTIALS_DIRECTORY " + parkctl + "request get_ttyio_cfg");
  EXPECT_EQ(stranger.status, 2);
  EXPECT_NE(stranger.output.find("account"), std::string::npos) << stranger.output;

  EXPECT_EQ(ListeningAddresses(device_.broker.pid()), "127.0.0.1:5291\n");
  EXPECT_EQ(ListeningAddresses(device_.store.pid()), "127.0.0.1:5299\n");
  EXPECT_EQ(ListeningAddresses(device_.daemon.pid()), "");

  for (const char* command :
       {"config get dir", "flushall", "shutdown", "set x y", "replicaof 127.0.0.1 1", "keys '*'"}) {
    EXPECT_EQ(StoreSays(command).rfind("NOPERM", 0), 0u) << command;
  }
}

// The console, logged in with an account of the bus, tries a change; its guard is ended, as is the machine.
TEST_F(InstalledDevice, TakesBackWhatTheConsoleTriesAlsoAfterARestart) {
  for (desk::Process* program : {&device_.broker, &device_.store, &device_.daemon}) Start(*program);
  desk::Process guard(loop_, "guard");
  guard.Configure({BINARY_DIRECTORY "/parkctl", "config", "guard"}, directory_.path);
  Launch(guard);
  const auto ask = [&](const std::string& role, const std::string& request) {
    return Shell("mosquitto_rr -V 5 -W 2 -t CHANGE_REQUEST_MESSAGE -e reply/" + role + "/1 -m '" + request + "'" +
                 Account(role))
        .output;
  };
  const auto answers = [&] { return ask("front_end", R"({"type":"get_change"})").find("200") != std::string::npos; };
  const auto position = [&] {
    return Shell(BINARY_DIRECTORY "/parkctl store get bus_dev_pos").output.find('3') != std::string::npos;
  };
  constexpr char kTry[] = R"({"type":"try_change","body":{"id":"page-1","seconds":3600,"changes":)"
                          R"([{"type":"set_dev_pos","body":{"pos":3}}]}})";
  EXPECT_TRUE(loop_.RunUntil(answers, desk::Loop::Milliseconds(30000)));
  EXPECT_NE(ask("front_end", kTry).find("\"state\":200"), std::string::npos);
  EXPECT_TRUE(position());
  EXPECT_NE(ask("integrator", R"({"type":"get_change"})").find("page-1"), std::string::npos);

  guard.Kill();
  Launch(guard);
  EXPECT_TRUE(loop_.RunUntil(answers, desk::Loop::Milliseconds(30000)));
  EXPECT_TRUE(position()) << "its time is not over";
  guard.Kill();
  const std::string kept = StoreSays("--raw hget kvdb config_change_value");
  const size_t boot = kept.find(R"("boot":")");
  ASSERT_NE(boot, std::string::npos) << kept;
  std::ofstream(directory_.path / "kept") << std::string(kept).replace(boot + 8, 4, "last");
  StoreSays("-x hset kvdb config_change_value <" + (directory_.path / "kept").string());
  Launch(guard);
  EXPECT_TRUE(loop_.RunUntil([&] { return !position(); }, desk::Loop::Milliseconds(30000)));
  EXPECT_TRUE(loop_.RunUntil([&] { return StoreSays("hget kvdb config_change_value").size() < 5; },
                             desk::Loop::Milliseconds(10000)));
}

TEST_F(InstalledDevice, StoreStartsAgainFromADamagedFile) {
  const fs::path store = directory_.path / "store", parts = store / "appendonlydir";
  const fs::path base = parts / "appendonly.aof.1.base.rdb", newest = parts / "appendonly.aof.1.incr.aof";
  const fs::path list = parts / "appendonly.aof.manifest";
  const auto lengthen = [](const fs::path& file, int by) { fs::resize_file(file, fs::file_size(file) + by); };
  const auto empty = [](const fs::path& file) { fs::resize_file(file, 0); };
  const auto change = [&](const std::string& text, const char* other) {  // where it stands first
    std::string bytes = ReadFile(newest);
    std::ofstream(newest, std::ios::binary) << bytes.replace(bytes.find(text), text.size(), other);
  };
  const struct {
    const char* name;
    std::function<void()> damage;
    const char* values;     // of the fields one and two afterwards; none: the repair tells nothing and does nothing
    std::string kept = "";  // where the files are as they were
    const char* tool = "exec /usr/bin/redis-check-aof \"$@\"";
  } kRows[] = {
      {"whole", [] {}, "1\n2\n"},
      {"torn record", [&] { lengthen(newest, -3); }, "1\n\n", ".torn"},
      {"zeros after a power cut", [&] { lengthen(newest, 4096); }, "1\n2\n", ".torn"},
      {"the tool is missing", [&] { lengthen(newest, -3); }, nullptr, "", "exit 127"},
      {"the tool is killed", [] {}, nullptr, "", "echo is not valid; kill -9 $$"},
      {"the tool gives no verdict", [] {}, nullptr, "", "exit 1"},
      {"a base that may have held documents", [&] { fs::resize_file(base, 300); }, "\n\n", ".damaged.1"},
      {"the first base is torn", [&] { lengthen(base, -5); }, "1\n2\n", ".torn"},
      {"the first base is empty", [&] { empty(base); }, "1\n2\n", ".torn"},
      {"no such command", [&] { change("hset", "hsat"); }, "\n2\n", ".torn"},
      {"no command at all", [&] { change("*4", "*0"); }, "\n\n", ".torn"},
      {"no list of parts", [&] { fs::remove(list); }, "1\n2\n", ".torn"},
      {"a list of zeros", [&] { empty(list), lengthen(list, 88); }, "1\n2\n", ".torn"},
      {"a list of the base alone", [&] { lengthen(list, -44); }, "1\n2\n", ".torn"},
      {"no list of three parts", [&] { empty(list), fs::copy(newest, parts / "appendonly.aof.2.incr.aof"); }, "\n\n",
       ".damaged.1"},
  };
  const auto repair = [&](const char* tool) {
    const fs::path fake = directory_.path / "redis-check-aof";
    std::ofstream(fake) << "#!/bin/sh\n" << tool << "\n";
    fs::permissions(fake, fs::perms::owner_all);
    return Shell("PATH=" + directory_.path.string() + ":" BINARY_DIRECTORY ":$PATH " + kPackaging + "/store-repair " +
                 store.string());
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.name);
    fs::remove_all(store);
    fs::create_directory(store);
    Start(device_.store);
    StoreSays("hset kvdb one 1");
    StoreSays("hset kvdb two 2");
    device_.store.Kill();
    row.damage();
    const std::string damaged = ReadFile(newest);
    const Outcome outcome = repair(row.tool);
    EXPECT_EQ(outcome.status == 0, row.values != nullptr) << outcome.output;
    EXPECT_EQ(outcome.output.empty(), row.values != nullptr && row.kept.empty()) << outcome.output;
    EXPECT_EQ(ReadFile(parts.string() + row.kept + "/" + newest.filename().string()), damaged);
    if (row.values == nullptr) continue;
    Start(device_.store);
    EXPECT_EQ(StoreSays("hget kvdb one") + StoreSays("hget kvdb two"), row.values);
    EXPECT_EQ(StoreSays("hset kvdb three 3"), "1\n");
    device_.store.Kill();
    const auto left = std::distance(fs::directory_iterator(store), fs::directory_iterator());
    EXPECT_EQ(left, row.kept.empty() ? 1 : 2);
  }

  // Of what was set aside whole, the first and the newest stay.
  fs::remove_all(store);
  fs::create_directory(store);
  for (const char* value : {"first", "second", "third"}) {
    Start(device_.store);
    StoreSays(std::string("hset kvdb one ") + value);
    device_.store.Kill();
    fs::resize_file(base, 300);
    EXPECT_EQ(repair(kRows[0].tool).status, 0) << value;
  }
  for (const auto& [kept, value] : {std::pair(".damaged.1", "first"), std::pair(".damaged.2", "third")}) {
    const std::string text = ReadFile(parts.string() + kept + "/" + newest.filename().string());
    EXPECT_NE(text.find(value), std::string::npos) << kept << ": " << text;
  }
}

}  // namespace
