// The lamp's data register as colours and lines.
#pragma once

#include <cstdint>
#include <string>

namespace desk {

// The colour number that makes such a data register, or -1.
int LedColor(uint32_t data);

// The lamp lines that are lit: "1+3", "none", "1+2+3".
std::string LedLines(uint32_t data);

}  // namespace desk
