// "parkctl site": the plans of all devices of a site, from a file to its hub.
#pragma once

#include <string>

#include "device_link.h"

namespace parkctl {

// Each names every mistake of the file, one a line, on standard error, and ends with kRefused when there is one.
// A file is a path, or - for standard input.
int CheckSiteFile(const std::string& file);
int ShowSiteFile(const std::string& file, bool dot);

// A spreadsheet as a site file, on standard output. name: the site's; empty: the file's.
int ImportSiteFile(const std::string& file, const std::string& name);

struct ApplyOptions {
  SiteOptions site;
  std::string file;
  bool remove = false;       // devices that are not in the file
  bool yes = false;          // without asking
  bool only_differ = false;  // show what would change, and change nothing
};

// kDone: the hub holds what the file says (or now does). kRefused: it differs, or refused a plan.
int ApplySiteFile(const ApplyOptions& options);

}  // namespace parkctl
