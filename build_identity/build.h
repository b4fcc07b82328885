// Which build a program is. The texts come from git when it is built, and change with every commit, so that no more
// than this is compiled again.
#pragma once

#include <string>

namespace build {

// "1.0.0" for the commit that bears the tag v1.0.0. Others have the commit's date and the commit in it, ordered as
// packages are: "1.0.0~20261123213045.d556de6f12ab" before that tag, "1.0.0+..." after it, ".changed" at the end where
// files were changed and not committed; "1.0.0+unknown" from a folder without history. Also the packages' version.
extern const char kVersion[];

// Twelve hexadecimal digits, or "unknown".
extern const char kCommit[];

// What --version prints and a log begins with: "park_relay 1.0.0 (commit d556de6f12ab)".
std::string Line(const std::string& program);

}  // namespace build
