// The device's key-value store, seen from the desk: one hash whose fields are the keys, their counted NUL included.
// Every call is bounded; a store that does not answer is left alone for a second.
#pragma once

#include <string>

#include "bringup/loop.h"
#include "bringup/network.h"

struct redisContext;

namespace desk {

class StoreClient {
 public:
  explicit StoreClient(const Network* network = nullptr) : network_(network) {}
  ~StoreClient();
  StoreClient(const StoreClient&) = delete;
  StoreClient& operator=(const StoreClient&) = delete;

  // document is the name that the protocol's table gives it, or any other key, taken as it is. All return false when
  // the store does not answer; Get also when there is no such document.
  bool Get(const std::string& document, std::string& text);
  bool Set(const std::string& document, const std::string& text);
  bool Delete(const std::string& document);

  // Whether it answers now.
  bool Ping();

 private:
  bool Connect();
  bool Command(int count, const char** words, const size_t* sizes, std::string* text);

  const Network* const network_;
  redisContext* context_ = nullptr;
  Loop::Clock::time_point not_before_{};
};

}  // namespace desk
