// How free text is written into a log record.
#pragma once

#include <spdlog/common.h>

#include <string_view>

namespace platform {

// Appends text so that the record stays one line of valid UTF-8, whatever a peer sent: what ShownLength refuses
// becomes \n, \t or \xNN. A backslash stays as it is.
void AppendLogText(std::string_view text, spdlog::memory_buf_t* line);

}  // namespace platform
