// The tables of docs/ that the schemas already hold. A page marks the place of each:
//
//   <!-- table: members requests/set_ttyio_cfg -->
//   ...
//   <!-- end -->
#pragma once

#include <string>

namespace contract {

// The page with every marked table written anew. Throws std::runtime_error for a mark that names none, or has no end.
std::string WithTables(const std::string& page);

}  // namespace contract
