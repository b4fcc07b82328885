// "parkctl report": what whoever helps from afar asks for first, in one archive.
#pragma once

#include <cstdint>
#include <string>

#include "device_link.h"

namespace parkctl {

struct ReportOptions {
  DeviceOptions device{};
  uint16_t store_port = 0;
  std::string file;     // empty: a name of its own in the working directory; "-": standard output
  int limit_ms = 7000;  // for all parts together: the archive is then there within ten seconds
};

// Returns the exit status: kDone also where parts are missing, since the archive says which.
int MakeReport(const ReportOptions& options);

// One part of it, "documents", "unreadable" or "health", as text on standard output.
int PrintReportPart(const std::string& part, const ReportOptions& options);

}  // namespace parkctl
