// Where the board's devices are. The build makes their definitions from the board's file (boards/).
#pragma once

namespace board {

extern const char kMemoryDevice[];
extern const char kSerialDeviceFormat[];  // printf format with one %d: the serial controller's number

}  // namespace board
