// Whose program answers on a port of this machine. A port belongs to whoever binds it first, so whoever logs in, or
// believes what it is told, looks first. Unlike a Unix socket's, the other end of a TCP connection does not name its
// owner; the kernel's table of connections does.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>

namespace platform {

// The accounts of an installed device.
inline constexpr char kBusAccount[] = "business-server-bus";
inline constexpr char kStoreAccount[] = "business-server-store";

// The id of an account of this machine; nothing where there is no such account, as on a desk.
std::optional<uid_t> AccountId(const char* account);

// The owner of the socket at the other end of a connected IPv4 socket, this machine's own. Nothing while the other
// program has not taken the connection yet: until then it is nobody's.
std::optional<uid_t> PeerOwner(int fd);

enum class Peer { kTrusted, kStranger, kUnknownYet };

// Whether the other end is one that a program of the owner's, root's or this process's own user holds: the last can
// read what this process reads, and is who runs broker and store on a desk. The answer holds for this connection as
// long as it lives.
Peer CheckPeer(int fd, uid_t owner);

// Checks again and again until the other program has taken the connection, for at most so long.
Peer AwaitPeer(int fd, uid_t owner, int milliseconds);

// "the program that listens there runs as user 1000", for an error.
std::string StrangerText(int fd);

}  // namespace platform
