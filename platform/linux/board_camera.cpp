#include "board_paths.h"

namespace board {

const char kMemoryDevice[] = "/dev/mem";
const char kSerialDeviceFormat[] = "/dev/ttyAMA%d";

}  // namespace board
