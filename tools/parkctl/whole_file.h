// Files that are there whole or not at all, also when the power fails or the medium is full.
#pragma once

#include <string>

namespace parkctl {

// Puts a text into a file that only its owner may read. A file that was there is replaced by one rename, and untouched
// on failure. Empty when done, else what went wrong ("No space left on device").
std::string WriteWholeFile(const std::string& path, const std::string& text);

}  // namespace parkctl
