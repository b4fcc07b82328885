// Accounts on the bus. A broker that wants to know who is who knows this device's roles by these names; a broker on a
// desk asks nobody.
#pragma once

#include <mosquitto.h>

#include <cstdlib>
#include <fstream>
#include <string>

namespace platform {

inline constexpr char kDaemonRole[] = "business_server";
inline constexpr char kRecogniserRole[] = "recogniser";
inline constexpr char kFrontEndRole[] = "front_end";
inline constexpr char kRelayRole[] = "relay";
inline constexpr char kRelayRequestsRole[] = "relay_requests";  // where the owner lets the site ask this device
inline constexpr char kIntegratorRole[] = "integrator";
inline constexpr char kConfigGuardRole[] = "config_guard";  // sets back the changes that nobody confirms

// Makes the client log in as a role. The password is the first line of the file of the role's name in the directory
// that the supervisor keeps credentials in for this process, or, without one, in otherwise (which may be null). Where
// there is no such file, or none that this process may read, the client stays nobody: false.
//
// The password goes to whoever listens on the broker's port. HoldLogin, connect, see that the peer is the broker's
// account (peer_owner.h), ReleaseLogin, in this order, lets nobody else have it.
inline bool UseBusAccount(mosquitto* client, const char* role, const char* otherwise) {
  const char* directory = std::getenv("CREDENTIALS_DIRECTORY");
  if (directory == nullptr) directory = otherwise;
  if (directory == nullptr) return false;
  std::ifstream file(std::string(directory) + "/" + role);
  std::string password;
  if (!std::getline(file, password)) return false;
  return mosquitto_username_pw_set(client, role, password.c_str()) == MOSQ_ERR_SUCCESS;
}

// From here on the library only queues what it would send, the login first of all: it leaves the writing to the thread
// that it believes to run its loop.
inline void HoldLogin(mosquitto* client) { mosquitto_threaded_set(client, true); }

// From here on it sends. What was queued goes out with the next mosquitto_loop_write.
inline void ReleaseLogin(mosquitto* client) { mosquitto_threaded_set(client, false); }

}  // namespace platform
