// Several devices on one machine: what the ports of one network answer, and what is left of a network when its owner
// is killed.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <string>

#include "bringup/network.h"
#include "programs.h"

namespace {

using desk::Loop;
using desk::Network;
using desk::SiteWires;
using Milliseconds = Loop::Milliseconds;

// Whether a connection to the address comes about from there, within half a second.
bool Reaches(const Network& from, const std::string& address, int port) {
  const Network::Inside inside(&from);
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(static_cast<uint16_t>(port));
  inet_pton(AF_INET, address.c_str(), &to.sin_addr);
  const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const timeval limit = {0, 500000};
  setsockopt(probe, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  const bool reached = connect(probe, reinterpret_cast<const sockaddr*>(&to), sizeof to) == 0;
  close(probe);
  return reached;
}

size_t Interfaces() {
  std::ifstream lines("/proc/net/dev");
  size_t count = 0;
  for (std::string line; std::getline(lines, line);) count += line.find(':') != std::string::npos ? 1 : 0;
  return count;
}

TEST(Networks, EachHasItsPortsAndCablesCanBePulled) {
  std::string problem;
  Loop loop;
  SiteWires wires;
  ASSERT_TRUE(wires.Start(problem)) << problem;
  Network networks[2];
  const TemporaryDirectory directory;
  std::unique_ptr<desk::Device> devices[2];
  for (int i = 0; i < 2; ++i) {
    ASSERT_TRUE(networks[i].Make(problem) && wires.Join(i + 1, networks[i], problem)) << problem;
    devices[i] =
        std::make_unique<desk::Device>(loop, desk::DevicePlan{directory.path / std::to_string(i),
                                                              "unused",
                                                              SOURCE_DIRECTORY "/packaging",
                                                              false,
                                                              {},
                                                              "",
                                                              "listener 1883 " + SiteWires::Address(i + 1) + "\n",
                                                              &networks[i]});
    MakeFiles(*devices[i]);
    Launch(*devices[i], devices[i]->broker);
  }
  EXPECT_FALSE(Reaches(Network(), "127.0.0.1", desk::kBusPort)) << "the device's bus is out of sight";
  EXPECT_TRUE(Reaches(networks[0], SiteWires::Address(2), 1883));
  wires.Pull(2);
  EXPECT_FALSE(Reaches(networks[0], SiteWires::Address(2), 1883));
  wires.Plug(2);
  EXPECT_TRUE(loop.RunUntil([&] { return Reaches(networks[0], SiteWires::Address(2), 1883); }, Milliseconds(10000)));
}

TEST(Networks, VanishWithTheirOwnerEvenWhenItIsKilled) {
  std::string problem;
  SiteWires wires;
  ASSERT_TRUE(wires.Start(problem)) << problem;
  const size_t before = Interfaces();
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const pid_t owner = fork();
  if (owner == 0) {
    Network network;
    Loop loop;
    desk::Process sleeper(loop, "sleeper");
    const TemporaryDirectory directory;
    sleeper.Configure({"sleep", "1000"}, directory.path, &network);
    const bool made = network.Make(problem) && wires.Join(1, network, problem) && sleeper.Start(problem);
    if (write(ends[1], &made, sizeof made) < 0) _exit(1);
    pause();
    _exit(0);
  }
  bool made = false;
  ASSERT_EQ(read(ends[0], &made, sizeof made), 1);
  EXPECT_TRUE(made);
  EXPECT_EQ(Interfaces(), before + 1);
  kill(owner, SIGKILL);
  waitpid(owner, nullptr, 0);
  Loop loop;
  EXPECT_TRUE(loop.RunUntil([&] { return Interfaces() == before; }, Milliseconds(10000)));
  close(ends[0]);
  close(ends[1]);
}

}  // namespace
