# The camera board on a desk: the same device, its files below the working directory.
include(${CMAKE_CURRENT_LIST_DIR}/camera.cmake)
foreach(device BOARD_MEMORY_DEVICE BOARD_SERIAL_DEVICE)
  string(REGEX REPLACE "^/" "" ${device} "${${device}}")
endforeach()
