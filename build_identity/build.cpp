#include "build_identity/build.h"

namespace build {

std::string Line(const std::string& program) { return program + " " + kVersion + " (commit " + kCommit + ")"; }

}  // namespace build
