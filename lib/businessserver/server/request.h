// One request on its way from the bus to its reply.
#pragma once

#include <json/value.h>

#include <string>

#include "dp_client.h"

namespace businessserver {

class BusinessServer;

struct ConfigRequest {
  const _TagDpMsg* msg;
  Json::Value body;  // null when the request has none
  Json::Value& reply;
  bool answered;  // the command has sent its own reply: no other follows
};

// What differs between the two ways in which requests arrive.
struct RequestPath {
  // Runs the command; -1 turns the reply into kSetError. An unknown name sets kErrorType itself.
  int (BusinessServer::*run)(const std::string& name, ConfigRequest& request);
  bool logs_traffic;
};

}  // namespace businessserver
