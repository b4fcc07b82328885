#include "peer_owner.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <pwd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdio>
#include <memory>

#include "shell.h"

namespace platform {

namespace {

// Of this process: below it also where the rest of /proc is hidden.
constexpr char kConnections[] = "/proc/self/net/tcp";
constexpr unsigned kPauseMicroseconds = 1000;

struct FileCloser {
  void operator()(FILE* file) const { fclose(file); }
};

// An address as the table writes it.
std::string TableText(const sockaddr_in& address) {
  char text[16];
  snprintf(text, sizeof text, "%08" PRIX32 ":%04X", address.sin_addr.s_addr, ntohs(address.sin_port));
  return text;
}

}  // namespace

std::optional<uid_t> AccountId(const char* account) {
  const passwd* const entry = getpwnam(account);
  if (entry == nullptr) return std::nullopt;
  return entry->pw_uid;
}

std::optional<uid_t> PeerOwner(int fd) {
  sockaddr_in ours = {}, theirs = {};
  socklen_t size = sizeof ours;
  if (getsockname(fd, reinterpret_cast<sockaddr*>(&ours), &size) != 0 || ours.sin_family != AF_INET) return {};
  size = sizeof theirs;
  if (getpeername(fd, reinterpret_cast<sockaddr*>(&theirs), &size) != 0) return {};
  const std::string local = TableText(theirs), remote = TableText(ours);  // seen from the other end

  const std::unique_ptr<FILE, FileCloser> table(fopen(kConnections, "re"));
  char line[256];
  while (table && fgets(line, sizeof line, table.get()) != nullptr) {
    char from[16], to[16];
    unsigned uid = 0;
    unsigned long inode = 0;
    // "0: 0100007F:14AB 0100007F:8C3E 01 00000000:00000000 00:00000000 00000000  1000        0 48213 ..."
    if (sscanf(line, " %*u: %15s %15s %*x %*x:%*x %*x:%*x %*x %u %*u %lu", from, to, &uid, &inode) != 4) continue;
    if (local != from || remote != to) continue;
    if (inode == 0) return {};  // waits to be taken, and shows as root's
    return uid;
  }
  return {};
}

Peer CheckPeer(int fd, uid_t owner) {
  const std::optional<uid_t> found = PeerOwner(fd);
  if (!found) return Peer::kUnknownYet;
  return *found == owner || *found == 0 || *found == geteuid() ? Peer::kTrusted : Peer::kStranger;
}

Peer AwaitPeer(int fd, uid_t owner, int milliseconds) {
  Peer peer = CheckPeer(fd, owner);
  for (; peer == Peer::kUnknownYet && milliseconds > 0; --milliseconds) {
    SleepMicroseconds(kPauseMicroseconds);
    peer = CheckPeer(fd, owner);
  }
  return peer;
}

std::string StrangerText(int fd) {
  const std::optional<uid_t> found = PeerOwner(fd);
  return "the program that listens there runs as " + (found ? "user " + std::to_string(*found) : "nobody known");
}

}  // namespace platform
