// Several devices on one machine: what the ports of one network answer, and what is left of a network when its owner
// is killed.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

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
  return Shell("timeout 0.5 bash -c '</dev/tcp/" + address + "/" + std::to_string(port) + "'").status == 0;
}

std::string Interfaces() { return Shell("grep : /proc/net/dev | cut -d : -f 1").output; }

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
  const std::string before = Interfaces();
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
  EXPECT_NE(Interfaces(), before);
  kill(owner, SIGKILL);
  waitpid(owner, nullptr, 0);
  Loop loop;
  EXPECT_TRUE(loop.RunUntil([&] { return Interfaces() == before; }, Milliseconds(10000)));
  close(ends[0]);
  close(ends[1]);
}

}  // namespace
