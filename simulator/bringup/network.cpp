#include "bringup/network.h"

#include <fcntl.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>

namespace desk {
namespace {

constexpr char kHere[] = "/proc/thread-self/ns/net";

bool WriteTo(const char* file, const std::string& text) {
  std::ofstream stream(file);
  stream << text << std::flush;
  return stream.good();
}

// Nothing but IPv4 is needed, and interfaces that are silent until they are asked are easier to follow.
bool PrepareFreshNetwork(std::string& problem) {
  for (const char* which : {"all", "default"}) {
    WriteTo((std::string("/proc/sys/net/ipv6/conf/") + which + "/disable_ipv6").c_str(), "1");
  }
  return Network().Arrange("link set lo up\n", problem);
}

std::string Missing(const char* what) { return std::string("no ") + what + ": " + strerror(errno); }

}  // namespace

Network::~Network() {
  if (descriptor_ >= 0) close(descriptor_);
}

Network& Network::operator=(Network&& other) noexcept {
  std::swap(descriptor_, other.descriptor_);
  return *this;
}

bool Network::Make(std::string& problem) {
  const int before = open(kHere, O_RDONLY | O_CLOEXEC);
  if (before < 0 || unshare(CLONE_NEWNET) != 0) {
    problem = Missing("network of its own for a device");
    if (before >= 0) close(before);
    return false;
  }
  descriptor_ = open(kHere, O_RDONLY | O_CLOEXEC);
  const bool prepared = descriptor_ >= 0 && PrepareFreshNetwork(problem);
  const bool back = setns(before, CLONE_NEWNET) == 0;
  close(before);
  if (prepared && back) return true;
  if (problem.empty()) problem = Missing("way back from a device's network");
  return false;
}

bool Network::Enter() const { return descriptor_ < 0 || setns(descriptor_, CLONE_NEWNET) == 0; }

Network::Inside::Inside(const Network* network) {
  if (network == nullptr || network->descriptor_ < 0) return;
  back_ = open(kHere, O_RDONLY | O_CLOEXEC);
  network->Enter();
}

Network::Inside::~Inside() {
  if (back_ < 0) return;
  if (setns(back_, CLONE_NEWNET) != 0) _exit(127);  // nothing that follows would reach whom it means
  close(back_);
}

bool Network::Arrange(const std::string& lines, std::string& problem) const {
  const int script = memfd_create("ip", MFD_CLOEXEC);
  const bool written = script >= 0 && write(script, lines.data(), lines.size()) == static_cast<ssize_t>(lines.size()) &&
                       lseek(script, 0, SEEK_SET) == 0;
  const pid_t child = written ? fork() : -1;
  if (child == 0) {
    dup2(script, STDIN_FILENO);
    if (Enter()) execlp("ip", "ip", "-batch", "-", nullptr);
    _exit(127);
  }
  int status = -1;
  if (child > 0) waitpid(child, &status, 0);
  if (script >= 0) close(script);
  if (status == 0) return true;
  problem = status == 127 << 8 ? "there is no program ip (iproute2)" : "the network cannot be arranged: " + lines;
  return false;
}

std::string Network::Path() const { return "/proc/" + std::to_string(getpid()) + "/fd/" + std::to_string(descriptor_); }

bool EnterOwnNetwork(std::string& problem) {
  const uid_t user = geteuid();
  const gid_t group = getegid();
  if (unshare(CLONE_NEWNET) != 0) {
    if (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) {
      problem = Missing("network of its own");
      return false;
    }
    WriteTo("/proc/self/setgroups", "deny");
    WriteTo("/proc/self/uid_map", "0 " + std::to_string(user) + " 1");
    WriteTo("/proc/self/gid_map", "0 " + std::to_string(group) + " 1");
  }
  return PrepareFreshNetwork(problem);
}

std::string SiteWires::Address(int device) {
  const int number = device + 1;
  return "198." + std::to_string(18 + (number >> 16)) + "." + std::to_string(number >> 8 & 0xFF) + "." +
         std::to_string(number & 0xFF);
}

bool SiteWires::Start(std::string& problem) {
  return Network().Arrange("link add site type bridge\naddr add " + Address(0) + "/15 dev site\nlink set site up\n",
                           problem);
}

bool SiteWires::Join(int device, const Network& network, std::string& problem) {
  const std::string cable = "cable" + std::to_string(device);
  return Network().Arrange("link add " + cable + " type veth peer name eth0 netns " + network.Path() + "\nlink set " +
                               cable + " master site up\n",
                           problem) &&
         network.Arrange("addr add " + Address(device) + "/15 dev eth0\nlink set eth0 up\n", problem);
}

bool SiteWires::Pull(int device) {
  std::string problem;
  return Network().Arrange("link set cable" + std::to_string(device) + " down\n", problem);
}

bool SiteWires::Plug(int device) {
  std::string problem;
  return Network().Arrange("link set cable" + std::to_string(device) + " up\n", problem);
}

}  // namespace desk
