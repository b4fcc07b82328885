// "parkctl store export" and "parkctl store import": the whole store to a file and back.
#pragma once

#include <cstdint>
#include <string>

namespace parkctl {

struct TransferOptions {
  uint16_t store_port = 0;
  std::string file;           // "-" for standard output or input
  bool only_show = false;     // import: what would change, and nothing else
  bool other_device = false;  // import: the file may be of another device
};

// Each returns the exit status.
int ExportStore(const TransferOptions& options);
int ImportStore(const TransferOptions& options);

}  // namespace parkctl
