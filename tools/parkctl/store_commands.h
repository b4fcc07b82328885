// "parkctl store ...": the device's stored documents.
#pragma once

#include <cstdint>
#include <string>

namespace parkctl {

int ListDocuments(uint16_t store_port);
int GetDocument(uint16_t store_port, const std::string& name);

struct SetOptions {
  std::string name;
  std::string source;      // the document: text, @file or -
  bool only_show = false;  // say what would change, store nothing
  bool force = false;      // store it although it is not valid
};
// Shows what changes, and stores the document. One that the device cannot act on is not stored, unless forced.
int SetDocument(uint16_t store_port, const SetOptions& options);

int ShowUnreadable(uint16_t store_port);  // as they were, for their owner
int BringForward(uint16_t store_port);    // documents of earlier versions into the form of this one
int BackUpStore(uint16_t store_port);
int RestoreStore(uint16_t store_port);

}  // namespace parkctl
