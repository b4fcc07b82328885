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

#include "loop.h"
#include "process.h"
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

struct TemporaryDirectory {
  TemporaryDirectory() {
    char name[] = "/tmp/packaging_test.XXXXXX";
    path = mkdtemp(name);
  }
  ~TemporaryDirectory() { fs::remove_all(path); }
  fs::path path;
};

TEST(Package, HoldsTheDeviceAndItsUnitsAreLockedDown) {
  const TemporaryDirectory directory;
  const std::string root = directory.path / "root";
  ASSERT_EQ(Shell("cpack --config " + std::string(kBuild) + "/CPackConfig.cmake -B " + directory.path.string()).status,
            0);
  ASSERT_EQ(Shell("dpkg-deb -x " + directory.path.string() + "/business-server_*.deb " + root).status, 0);

  // The board's own paths, whatever this build is for.
  EXPECT_NE(ReadFile(root + "/usr/bin/business_server").find(std::string("\0/dev/ttyAMA%d\0", 15)), std::string::npos);
  for (const char* file : {"/usr/bin/parkctl", "/usr/share/bash-completion/completions/parkctl"}) {
    EXPECT_TRUE(fs::exists(root + file)) << file;
  }

  const struct {
    const char* unit;
    const char* must_have;
  } kUnits[] = {
      {"business-server", "Type=notify"},
      {"business-server-bus", "SocketBindAllow=ipv4:tcp:5291"},
      {"business-server-store", "SocketBindAllow=ipv4:tcp:5299"},
  };
  for (const auto& row : kUnits) {
    const std::string file = root + "/lib/systemd/system/" + row.unit + ".service";
    const std::string text = ReadFile(file);
    EXPECT_NE(text.find(row.must_have), std::string::npos) << row.unit;
    EXPECT_NE(text.find("\nRestart=always\n"), std::string::npos) << row.unit;
    const Outcome security = Shell("systemd-analyze security --no-pager --offline=true --threshold=15 " + file);
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

  // As a role, or as nobody.
  bool MayPublish(const std::string& role, const std::string& type) const {
    std::string account;
    if (!role.empty()) account = " -u " + role + " -P $(cat " + (directory_.path / "bus" / role).string() + ")";
    const Outcome sent = Shell("mosquitto_pub -V 5 -q 1 -p 5291 -m {} -t '" + type + "'" + account);
    const bool refused = sent.output.find("uthorized") != std::string::npos;
    EXPECT_TRUE(refused || sent.status == 0) << role << " " << type << ": " << sent.output;
    return !refused;
  }

  const TemporaryDirectory directory_;
  Loop loop_;
  desk::Process broker_;
  desk::Process store_;
  desk::Process daemon_;
};

TEST_F(InstalledDevice, LetsEachRolePublishItsOwnTypesAndNoOther) {
  using namespace businessserver;
  StartBroker();
  const std::vector<std::string> types = {
      kAvsSimulatorTrigger,
      kAvsParkRectChange,
      kBusBroadlistenMessage,
      kSysDeviceNameChanged,
      kBusRequestMessage,
      kBusExtRequestMessage,
      kBusNetPush,
      kHttpBroadcastMessageRoot,
      kBusBroadcastMessage,
      kBusSimulatorTrigger,
      kHttpRequestMessageRoot,
      "BUS_REQUEST_MESSAGE/reply",
      "BUS_EXT_REQUEST_MESSAGE/reply",
      "reply/anyone",
      "ANY_OTHER_MESSAGE",
  };
  const struct {
    const char* role;
    std::set<std::string> own;
  } kRows[] = {
      {"recogniser", {kAvsSimulatorTrigger, kAvsParkRectChange}},
      {"front_end", {kBusRequestMessage, kHttpBroadcastMessageRoot, kSysDeviceNameChanged}},
      {"relay", {kBusNetPush, kBusExtRequestMessage, kBusBroadlistenMessage}},
      {"integrator", {kBusRequestMessage, kBusExtRequestMessage}},
      {"business_server",
       {kBusBroadcastMessage, kBusSimulatorTrigger, kHttpRequestMessageRoot, "BUS_REQUEST_MESSAGE/reply",
        "BUS_EXT_REQUEST_MESSAGE/reply", "reply/anyone"}},
      {"", {}},
  };
  for (const auto& row : kRows) {
    for (const std::string& type : types) {
      EXPECT_EQ(MayPublish(row.role, type), row.own.count(type) == 1) << row.role << " " << type;
    }
  }
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
  const fs::path parts = directory_.path / "store/appendonlydir";
  const fs::path newest = parts / "appendonly.aof.1.incr.aof";
  const struct {
    const char* name;
    std::function<void()> damage;
    const char* values;  // of the fields one and two afterwards
  } kRows[] = {
      {"whole", [] {}, "1\n2\n"},
      {"torn record", [&] { fs::resize_file(newest, fs::file_size(newest) - 3); }, "1\n\n"},
      {"zeros after a power cut", [&] { fs::resize_file(newest, fs::file_size(newest) + 4096); }, "1\n2\n"},
      {"beyond repair", [&] { fs::resize_file(parts / "appendonly.aof.1.base.rdb", 5); }, "\n\n"},
      {"no list of parts", [&] { fs::resize_file(parts / "appendonly.aof.manifest", 0); }, "\n\n"},
  };
  for (const auto& row : kRows) {
    SCOPED_TRACE(row.name);
    fs::remove_all(directory_.path / "store");
    fs::create_directory(directory_.path / "store");
    StartStore();
    StoreSays("hset kvdb one 1");
    StoreSays("hset kvdb two 2");
    store_.Kill();
    row.damage();
    const std::string damaged = ReadFile(newest);
    const Outcome repair = Shell(std::string(kPackaging) + "/store-repair " + (directory_.path / "store").string());
    EXPECT_EQ(repair.status, 0) << repair.output;
    StartStore();
    EXPECT_EQ(StoreSays("hget kvdb one") + StoreSays("hget kvdb two"), row.values);
    EXPECT_EQ(StoreSays("hset kvdb three 3"), "1\n");
    const fs::path kept = parts.string() + ".damaged";
    EXPECT_EQ(fs::exists(kept), repair.output != "");
    if (fs::exists(kept)) {
      EXPECT_EQ(ReadFile(kept / newest.filename()), damaged);
    }
    store_.Kill();
  }
}

}  // namespace
