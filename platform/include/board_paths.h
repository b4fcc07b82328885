// Where the board's devices are. The desk build has the same names relative to its working directory.
#pragma once

namespace board {

extern const char kMemoryDevice[];
extern const char kSerialDeviceFormat[];  // printf format with one %d: the serial controller's number

}  // namespace board
