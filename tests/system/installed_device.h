// The device as the package configures it: real broker, store and daemon with accounts and access list, in a directory
// of their own; and what a person types.
#pragma once

#include <cstdlib>

#include "programs.h"

inline constexpr char kBuild[] = BINARY_DIRECTORY "/..";

// The device's broker and store as the package configures them, with the real daemon, in a directory of their own.
class InstalledDevice : public testing::Test {
 protected:
  InstalledDevice() {
    const std::string here = directory_.path;
    EXPECT_EQ(Shell("BUSINESS_SERVER_ETC=" + here + " " + kPackaging + "/remote-requests on").status, 0);
    std::filesystem::copy(std::string(kPackaging) + "/device/bus.acl", directory_.path);
    std::string configuration = ReadFile(std::string(kBuild) + "/package/mosquitto.conf");
    const std::string installed = "/etc/business-server";
    for (size_t at; (at = configuration.find(installed)) != std::string::npos;) {
      configuration.replace(at, installed.size(), here);
    }
    for (const char* made : {"etc", "bus.d"}) std::filesystem::create_directory(directory_.path / made);
    std::ofstream(here + "/etc/mosquitto.conf") << configuration;
    std::filesystem::copy(std::string(kBuild) + "/package/redis.conf", directory_.path / "etc");
    MakeFiles(device_);
    setenv("CREDENTIALS_DIRECTORY", (here + "/bus").c_str(), 1);
  }
  ~InstalledDevice() override { unsetenv("CREDENTIALS_DIRECTORY"); }

  void Start(desk::Process& process) { Launch(device_, process); }

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
  desk::Loop loop_;
  desk::Device device_{loop_, {directory_.path, BINARY_DIRECTORY "/business_server", directory_.path / "etc"}};
};
