// A hub on a desk: a real broker that keeps messages, with a plain listener and one with TLS, accounts and an access
// list, its files in a directory of its own.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <string>

#include "../temporary_directory.h"
#include "bringup/loop.h"
#include "bringup/process.h"
#include "bus/caller.h"

class HubOnDesk : public testing::Test {
 protected:
  static constexpr uint16_t kPlainPort = 18832;  // strangers may do everything
  static constexpr uint16_t kTlsPort = 18833;    // for the account planner, password "secret", below park/ only

  HubOnDesk() {
    const std::string here = directory_.path;
    std::filesystem::create_directory(directory_.path / "log");
    Write("hub.conf",
          "per_listener_settings true\npersistence false\nmax_queued_messages 20000\nuser root\n"
          "listener 18832 127.0.0.1\nallow_anonymous true\n"
          "listener 18833 127.0.0.1\nallow_anonymous false\npassword_file " +
              here +
              "/passwords\n"
              "acl_file " +
              here + "/acl\ncertfile " + here + "/hub.pem\nkeyfile " + here + "/hub.key\n");
    Write("acl", "user planner\ntopic readwrite park/+/plan/#\ntopic read park/#\n");
    Write("names", "subjectAltName=DNS:localhost\n");
    const std::string in = "cd " + here + " && exec 2>openssl.log; ";
    const std::string key = "-newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes ";
    EXPECT_EQ(system((in + "mosquitto_passwd -b -c passwords planner secret && openssl req -x509 " + key +
                      "-keyout ca.key -out ca.pem -days 30 -subj /CN=ca && openssl req " + key +
                      "-keyout hub.key -out hub.csr -subj /CN=hub && openssl x509 -req -in hub.csr -CA ca.pem -CAkey "
                      "ca.key -CAcreateserial -days 30 -extfile names -out hub.pem")
                         .c_str()),
              0)
        << here;
    hub_.Configure({"mosquitto", "-c", here + "/hub.conf"}, here);
    StartHub();
  }

  void StartHub() {
    std::string problem;
    EXPECT_TRUE(hub_.Start(problem)) << problem;
    const bool up = loop_.RunUntil([&] { return bus::Caller(Plain()).Connect(); }, desk::Loop::Milliseconds(10000));
    EXPECT_TRUE(up) << "no hub";
  }

  static bus::Options Plain() {
    bus::Options options;
    options.address.port = kPlainPort;
    return options;
  }

  bus::Options Tls() const {
    bus::Options options;
    options.address = {"localhost", kTlsPort, true, ""};
    options.user = "planner";
    options.password = "secret";
    options.ca = directory_.path / "ca.pem";
    return options;
  }

  void Write(const std::string& name, const std::string& text) const { std::ofstream(directory_.path / name) << text; }

  const TemporaryDirectory directory_;
  desk::Loop loop_;
  desk::Process hub_{loop_, "hub"};
};
