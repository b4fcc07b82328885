// The documents in the device's store: their names as people write them, and what a change changes.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>
#include <vector>

#include "protocol/stored_documents.h"

namespace parkctl {

std::string DocumentName(const businessserver::StoredDocument& document);

// By its name, without "_value", or by a part that only one name has. Throws UserError.
const businessserver::StoredDocument& FindDocument(const std::string& name);

// One line for each value that differs: "~ baudrate: 9600 -> 115200", "+ ..." for a new one, "- ..." for a lost one.
std::vector<std::string> Changes(const Json::Value& before, const Json::Value& after);

// A connection to the store, for as long as the object lives.
class Store {
 public:
  enum class Found { kYes, kNo, kUnreachable };

  explicit Store(uint16_t port);
  ~Store();
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;

  bool IsUp() const { return is_up_; }
  Found Read(const businessserver::StoredDocument& document, std::string& text) const;
  bool Write(const businessserver::StoredDocument& document, const std::string& text) const;
  bool Erase(const businessserver::StoredDocument& document) const;  // true also where there was none

  int Explain() const;  // that it is out of reach; returns the exit status

 private:
  uint16_t port_;
  mutable bool is_up_;  // it has answered
};

// The field list that the device uses: the stored one, or the default, with a note when the store cannot be asked.
Json::Value CurrentFieldList(uint16_t store_port);

}  // namespace parkctl
