// The hub of a site as its package configures it, with TLS and its accounts, in a directory of its own. A listener
// without TLS is added where a test wants to speak byte by byte.
#pragma once

#include <map>

#include "bus/connection.h"
#include "installed_device.h"

class Hub {
 public:
  // More is added to its configuration. It starts at once; port_shift keeps two apart.
  Hub(desk::Loop& loop, const std::string& name, const std::string& more, int port_shift = 0)
      : port(static_cast<uint16_t>(8883 + port_shift)), loop_(loop), process_(loop, name), console_(loop, "console") {
    const std::string here = directory_.path, packaging = kPackaging;
    EXPECT_EQ(Shell(packaging + "/make-certificate " + here + "/tls root localhost 127.0.0.1").status, 0);
    for (const char* made : {"hub.d", "console", "log"}) std::filesystem::create_directory(directory_.path / made);
    std::ofstream(here + "/console/index.html") << "<!doctype html>the console\n";
    std::string configuration = ReadFile(packaging + "/site/mosquitto.conf");
    const std::pair<std::string, std::string> kMoved[] = {
        {"/etc/business-server-site", here},
        {"/usr/share/business-server-site", here},
        {"/var/lib/business-server-site", here},
        {"listener 8883", "listener " + std::to_string(port)},
        {"listener 8442", "listener " + std::to_string(8442 + port_shift)},
    };
    for (const auto& [from, to] : kMoved) {
      for (size_t at = 0; (at = configuration.find(from, at)) != std::string::npos; at += to.size()) {
        configuration.replace(at, from.size(), to);
      }
    }
    std::ofstream(here + "/mosquitto.conf") << configuration << "user root\n" << more;
    Shell("sed s#/etc/business-server-site#" + here + "# " + packaging + "/site/console.conf >" + here +
          "/console.conf");
    console_.Configure({"sh", "-c", "exec stunnel4 console.conf >>log/console 2>&1"}, here);
    process_.Configure({"sh", "-c", "exec prlimit --nofile=4600 mosquitto -c mosquitto.conf >>log/hub 2>&1"}, here);
    Accounts("--apply");
    Start();
  }

  // The answer of make-site-account; the passwords that it told are kept.
  Outcome Accounts(const std::string& arguments) {
    const Outcome outcome = Shell("BUSINESS_SERVER_SITE_ETC=" + directory_.path.string() + " " + kPackaging +
                                  "/site/make-site-account " + arguments);
    std::istringstream lines(outcome.output);
    for (std::string name, password; lines >> name >> password;) passwords_[name] = password;
    if (process_.running()) kill(process_.pid(), SIGHUP);
    return outcome;
  }

  void Start() {
    const auto log = directory_.path / "log/hub";
    const size_t before = ReadFile(log).size();
    Launch(process_);
    ASSERT_TRUE(loop_.RunUntil([&] { return ReadFile(log).find(" running\n", before) != std::string::npos; },
                               desk::Loop::Milliseconds(10000)))
        << ReadFile(log);
  }
  void StartConsole() {
    Launch(console_);
    ASSERT_TRUE(loop_.RunUntil([&] { return Shell("curl -sk https://localhost:8443/").status == 0; },
                               desk::Loop::Milliseconds(10000)))
        << ReadFile(File("log/console"));
  }
  void Stop() { process_.Stop(); }
  const desk::Process& process() const { return process_; }
  std::string File(const std::string& name) const { return directory_.path / name; }
  std::string Password(const std::string& account) const { return passwords_.at(account); }

  bus::Options Account(const std::string& account) const {
    bus::Options options;
    options.address = {"localhost", port, true, ""};
    options.user = account;
    if (passwords_.count(account) == 1) options.password = passwords_.at(account);
    options.ca = File("tls/ca.pem");
    return options;
  }

  const uint16_t port;

 private:
  const TemporaryDirectory directory_;
  desk::Loop& loop_;
  desk::Process process_, console_;
  std::map<std::string, std::string> passwords_;
};
