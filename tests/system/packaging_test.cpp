// What is installed on a device: the package, who may say what on its bus, what its store lets in and survives.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "../temporary_directory.h"
#include "bringup/loop.h"
#include "bringup/process.h"
#include "protocol/names.h"

namespace {

namespace fs = std::filesystem;
using desk::Loop;

constexpr char kPackaging[] = SOURCE_DIRECTORY "/packaging";
constexpr char kBuild[] = BINARY_DIRECTORY "/..";

struct Outcome {
  int status = -1;
  std::string output;
};

Outcome Shell(const std::string& command) {
  Outcome outcome;
  FILE* const pipe = popen((command + " 2>&1").c_str(), "r");
  if (pipe == nullptr) return outcome;
  char part[4096];
  for (size_t size; (size = fread(part, 1, sizeof part, pipe)) > 0;) outcome.output.append(part, size);
  const int status = pclose(pipe);
  outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return outcome;
}

std::string ReadFile(const fs::path& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

TEST(Package, HoldsTheDeviceAndItsUnitsAreLockedDown) {
  const TemporaryDirectory directory;
  const std::string root = directory.path / "root";
  const std::string package = directory.path.string() + "/business-server_*.deb";
  ASSERT_EQ(Shell("cpack --config " + std::string(kBuild) + "/CPackConfig.cmake -B " + directory.path.string()).status,
            0);
  ASSERT_EQ(Shell("dpkg-deb -x " + package + " " + root).status, 0);
  const std::string needs = Shell("dpkg-deb -f " + package + " Depends").output;
  for (const char* name : {"libmosquitto1", "psmisc", "udev"}) {
    EXPECT_NE(needs.find(name), std::string::npos) << name << " in " << needs;
  }
  // Its users can be made.
  const Outcome users = Shell("systemd-sysusers --root=" + root + " business-server.conf");
  EXPECT_EQ(users.status, 0) << users.output;

  // The board's own paths, whatever this build is for.
  EXPECT_NE(ReadFile(root + "/usr/bin/business_server").find(std::string("\0/dev/ttyAMA%d\0", 15)), std::string::npos);
  for (const char* file : {"/usr/bin/parkctl", "/usr/share/bash-completion/completions/parkctl"}) {
    EXPECT_TRUE(fs::exists(root + file)) << file;
  }

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
      const size_t path = word.find('/');
      if (word.rfind("Exec", 0) != 0 && word.find("/etc/business-server/") == std::string::npos) continue;
      const std::string name = word.substr(path == std::string::npos ? 0 : path);
      if (name.find("business") == std::string::npos || name.find("/bus/") != std::string::npos) continue;
      EXPECT_TRUE(fs::exists(root + name)) << row.unit << " " << name;
    }
  }
}

// The device's broker and store as the package configures them, with the real daemon, in a directory of their own.
class InstalledDevice : public testing::Test {
 protected:
  InstalledDevice() : broker_(loop_, "broker"), store_(loop_, "store"), daemon_(loop_, "daemon") {
    const std::string here = directory_.path;
    EXPECT_EQ(Shell(std::string(kPackaging) + "/make-accounts " + here).status, 0);
    fs::create_directory(directory_.path / "log");
    fs::create_directory(directory_.path / "store");
    fs::copy(std::string(kPackaging) + "/device/bus.acl", directory_.path);
    std::string configuration = ReadFile(std::string(kBuild) + "/package/mosquitto.conf");
    const std::string installed = "/etc/business-server";
    for (size_t at; (at = configuration.find(installed)) != std::string::npos;) {
      configuration.replace(at, installed.size(), here);
    }
    // Started by root, the broker would give up root's rights, and with them the directory.
    std::ofstream(here + "/mosquitto.conf") << configuration << "user root\n";
    broker_.Configure({"mosquitto", "-c", here + "/mosquitto.conf"}, here);
    store_.Configure({"redis-server", std::string(kBuild) + "/package/redis.conf", "--dir", here + "/store"}, here);
    daemon_.Configure({BINARY_DIRECTORY "/business_server"}, here);
    setenv("CREDENTIALS_DIRECTORY", (here + "/bus").c_str(), 1);
  }
  ~InstalledDevice() override { unsetenv("CREDENTIALS_DIRECTORY"); }

  void Start(desk::Process& process, const char* ready) {
    bool said = false;
    process.OnLine([&](const std::string& line) { said = said || line.find(ready) != std::string::npos; });
    std::string problem;
    ASSERT_TRUE(process.Start(problem)) << problem;
    ASSERT_TRUE(loop_.RunUntil([&] { return said; }, Loop::Milliseconds(10000))) << process.name() << ": " << ready;
    process.OnLine(nullptr);
  }
  void StartStore() { Start(store_, "Ready to accept connections"); }
  void StartBroker() { Start(broker_, "running"); }

  static std::string StoreSays(const std::string& command) { return Shell("redis-cli -p 5299 " + command).output; }

  // The arguments that log a client in as a role, or as nobody.
  std::string Account(const std::string& role) const {
    if (role.empty()) return " -p 5291";
    return " -p 5291 -u " + role + " -P $(cat " + (directory_.path / "bus" / role).string() + ")";
  }
  bool MayPublish(const std::string& role, const std::string& type) const {
    const Outcome sent = Shell("mosquitto_pub -V 5 -q 1 -m {} -t '" + type + "'" + Account(role));
    const bool refused = sent.output.find("uthorized") != std::string::npos;
    EXPECT_TRUE(refused || sent.status == 0) << role << " " << type << ": " << sent.output;
    return !refused;
  }
  // All types, from now on or since the last call: the broker grants any subscription and then keeps back what the role
  // may not read, so only what arrives tells.
  std::string Listen(const std::string& role, const char* until) const {
    return Shell("mosquitto_sub -c -i " + role + " -q 1 -t '#' -F %t " + until + Account(role)).output;
  }

  const TemporaryDirectory directory_;
  Loop loop_;
  desk::Process broker_;
  desk::Process store_;
  desk::Process daemon_;
};

TEST_F(InstalledDevice, LetsEachRolePublishAndReadItsOwnTypesAndNoOther) {
  using namespace businessserver;
  StartBroker();
  const std::string roles[] = {"recogniser", "front_end", "relay", "integrator", "business_server"};
  const struct {
    std::string type, publish, read;
  } kRows[] = {
      {kAvsSimulatorTrigger, "recogniser", "integrator business_server"},
      {kAvsParkRectChange, "recogniser", "integrator business_server"},
      {kBusBroadlistenMessage, "relay", "integrator business_server"},
      {kSysDeviceNameChanged, "front_end", "integrator business_server"},
      {kBusRequestMessage, "front_end integrator", "integrator business_server"},
      {kBusExtRequestMessage, "relay integrator", "integrator business_server"},
      {kBusNetPush, "relay", "integrator business_server"},
      {kHttpBroadcastMessageRoot, "front_end", "integrator business_server"},
      {kBusBroadcastMessage, "business_server", "front_end relay integrator"},
      {kBusSimulatorTrigger, "business_server", "front_end relay integrator"},
      {kHttpRequestMessageRoot, "business_server", "front_end relay integrator"},
      {"BUS_REQUEST_MESSAGE/reply", "business_server", "front_end integrator"},
      {"BUS_EXT_REQUEST_MESSAGE/reply", "business_server", "relay integrator"},
      {"reply/anyone", "business_server", "front_end relay integrator"},
      {"ANY_OTHER_MESSAGE", "", ""},
  };
  const auto among = [](const std::string& names, const std::string& name) {
    return names.find(name) != std::string::npos;
  };
  for (const auto& role : roles) EXPECT_EQ(Listen(role, "-E"), "") << role;
  for (const auto& row : kRows) {
    EXPECT_FALSE(MayPublish("", row.type)) << row.type;
    for (const auto& role : roles) {
      EXPECT_EQ(MayPublish(role, row.type), among(row.publish, role)) << role << " " << row.type;
    }
  }
  for (const auto& role : roles) {
    const std::string read = "\n" + Listen(role, "-W 1");
    for (const auto& row : kRows) {
      EXPECT_EQ(among(read, "\n" + row.type + "\n"), among(row.read, role)) << role << " " << row.type;
    }
  }
  // A request that the broker kept would be carried out again at each reconnect.
  EXPECT_NE(Shell("mosquitto_pub -V 311 -q 1 -r -m {} -t BUS_REQUEST_MESSAGE" + Account("front_end")).status, 0);
}

// What a process listens on, as the kernel writes it: "0100007F:14AB" is port 5291 of the loopback interface.
std::set<std::string> ListeningAddresses(pid_t pid) {
  std::set<std::string> inodes, addresses;
  const std::string process = "/proc/" + std::to_string(pid);
  for (const auto& entry : fs::directory_iterator(process + "/fd")) {
    const std::string target = fs::read_symlink(entry.path());
    if (target.rfind("socket:[", 0) == 0) inodes.insert(target.substr(8, target.size() - 9));
  }
  for (const char* table : {"tcp", "tcp6", "udp", "udp6"}) {
    std::ifstream lines(process + "/net/" + table);
    std::string line;
    std::getline(lines, line);
    while (std::getline(lines, line)) {
      std::istringstream words(line);
      std::string number, local, remote, state, skipped, inode;
      words >> number >> local >> remote >> state >> skipped >> skipped >> skipped >> skipped >> skipped >> inode;
      const bool connected = table[0] == 't' && state != "0A";
      if (!connected && inodes.count(inode) == 1) addresses.insert(local);
    }
  }
  return addresses;
}

TEST_F(InstalledDevice, WorksWithItsAccountsAndListensOnLoopbackOnly) {
  StartBroker();
  StartStore();
  Start(daemon_, "the bus is connected");

  const std::string parkctl = BINARY_DIRECTORY "/parkctl ";
  const Outcome reply = Shell(parkctl + "request get_ttyio_cfg");
  EXPECT_EQ(reply.status, 0) << reply.output;
  const Outcome result = Shell(parkctl + "result --space 1 --occupied");
  EXPECT_EQ(result.status, 0) << result.output;
  const Outcome stranger = Shell("env -u CREDENTIALS_DIRECTORY " + parkctl + "request get_ttyio_cfg");
  EXPECT_EQ(stranger.status, 2);
  EXPECT_NE(stranger.output.find("account"), std::string::npos) << stranger.output;

  EXPECT_EQ(ListeningAddresses(broker_.pid()), std::set<std::string>{"0100007F:14AB"});
  EXPECT_EQ(ListeningAddresses(store_.pid()), std::set<std::string>{"0100007F:14B3"});
  EXPECT_EQ(ListeningAddresses(daemon_.pid()), std::set<std::string>{});

  for (const char* command :
       {"config get dir", "flushall", "shutdown", "set x y", "replicaof 127.0.0.1 1", "keys '*'"}) {
    EXPECT_EQ(StoreSays(command).rfind("NOPERM", 0), 0u) << command;
  }
}

TEST_F(InstalledDevice, StoreStartsAgainFromADamagedFile) {
  const fs::path store = directory_.path / "store", parts = store / "appendonlydir";
  const fs::path base = parts / "appendonly.aof.1.base.rdb", newest = parts / "appendonly.aof.1.incr.aof";
  const fs::path list = parts / "appendonly.aof.manifest";
  const auto lengthen = [](const fs::path& file, int by) { fs::resize_file(file, fs::file_size(file) + by); };
  const auto empty = [](const fs::path& file) { fs::resize_file(file, 0); };
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
      {"beyond repair", [&] { fs::resize_file(base, 5); }, "\n\n", ".damaged.1"},
      {"the base is torn", [&] { lengthen(base, -5); }, "\n\n", ".damaged.1"},
      {"the base is empty", [&] { empty(base); }, "\n\n", ".damaged.1"},
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
    return Shell("PATH=" + directory_.path.string() + ":$PATH " + kPackaging + "/store-repair " + store.string());
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.name);
    fs::remove_all(store);
    fs::create_directory(store);
    StartStore();
    StoreSays("hset kvdb one 1");
    StoreSays("hset kvdb two 2");
    store_.Kill();
    row.damage();
    const std::string damaged = ReadFile(newest);
    const Outcome outcome = repair(row.tool);
    EXPECT_EQ(outcome.status == 0, row.values != nullptr) << outcome.output;
    EXPECT_EQ(outcome.output.empty(), row.values != nullptr && row.kept.empty()) << outcome.output;
    EXPECT_EQ(ReadFile(parts.string() + row.kept + "/" + newest.filename().string()), damaged);
    if (row.values == nullptr) continue;
    StartStore();
    EXPECT_EQ(StoreSays("hget kvdb one") + StoreSays("hget kvdb two"), row.values);
    EXPECT_EQ(StoreSays("hset kvdb three 3"), "1\n");
    store_.Kill();
    const auto left = std::distance(fs::directory_iterator(store), fs::directory_iterator());
    EXPECT_EQ(left, row.kept.empty() ? 1 : 2);
  }

  // Of what was set aside whole, the first and the newest stay.
  fs::remove_all(store);
  fs::create_directory(store);
  for (const char* value : {"first", "second", "third"}) {
    StartStore();
    StoreSays(std::string("hset kvdb one ") + value);
    store_.Kill();
    empty(base);
    EXPECT_EQ(repair(kRows[0].tool).status, 0) << value;
  }
  for (const auto& [kept, value] : {std::pair(".damaged.1", "first"), std::pair(".damaged.2", "third")}) {
    const std::string text = ReadFile(parts.string() + kept + "/" + newest.filename().string());
    EXPECT_NE(text.find(value), std::string::npos) << kept << ": " << text;
  }
}

}  // namespace
