# What is made from a board's file (boards/).

# board_file(BOARD VARIABLE)  Puts the file of a board into the variable: boards/BOARD.cmake, or BOARD where that is a
# file itself.
function(board_file board variable)
  set(file "${CMAKE_CURRENT_FUNCTION_LIST_DIR}/../boards/${board}.cmake")
  if(IS_ABSOLUTE "${board}")
    set(file "${board}")
  endif()
  if(NOT EXISTS "${file}")
    message(FATAL_ERROR "BOARD is '${board}': it must be the name of a file of boards/ (desk, camera) or an absolute path")
  endif()
  get_filename_component(file "${file}" ABSOLUTE)
  set(${variable} "${file}" PARENT_SCOPE)
endfunction()

# board_files(BOARD DIRECTORY)  Makes, in the directory:
#   board_paths.cpp     where its devices are: what platform/include/board_paths.h declares
#   board_registers.h   where its registers are
#   board_devices.h     the names of its devices
#   device.rules        udev's rules for its devices
#   unit.conf           which devices the daemon's unit may open
function(board_files board directory)
  board_file("${board}" file)
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS "${file}")
  include("${file}")
  set(numbers PIN_MUX_BASE PIN_MUX_LENGTH PIN_MUX_OF_BEACON_PORT PIN_MUX_OF_SERIAL_PORTS PIN_MUX_OF_LEDS PIN_IS_SERIAL
              PIN_IS_GPIO LED_GPIO_BASE LED_GPIO_LENGTH GPIO_DATA GPIO_DIRECTION)
  foreach(name IN LISTS numbers)
    if(NOT "${BOARD_${name}}" MATCHES "^(0x[0-9A-Fa-f]+|[0-9]+)(;(0x[0-9A-Fa-f]+|[0-9]+))*$")
      message(FATAL_ERROR "${file}: BOARD_${name} is '${BOARD_${name}}': it must be numbers, each decimal or 0x and hexadecimal")
    endif()
    list(JOIN BOARD_${name} ", " BOARD_${name})
  endforeach()
  set(name "[A-Za-z0-9_./-]+")
  if(NOT "${BOARD_MEMORY_DEVICE}" MATCHES "^${name}$")
    message(FATAL_ERROR "${file}: BOARD_MEMORY_DEVICE is '${BOARD_MEMORY_DEVICE}': it must be a device's name")
  endif()
  # The serial driver keeps the name in 24 bytes.
  string(LENGTH "${BOARD_SERIAL_DEVICE}" length)
  if(NOT "${BOARD_SERIAL_DEVICE}" MATCHES "^${name}%d(${name})?$" OR length GREATER 23)
    message(FATAL_ERROR "${file}: BOARD_SERIAL_DEVICE is '${BOARD_SERIAL_DEVICE}': it must be a device's name of at most"
                        " 23 bytes with %d where the number of the serial controller goes")
  endif()
  get_filename_component(BOARD_MEMORY_KERNEL "${BOARD_MEMORY_DEVICE}" NAME)
  get_filename_component(BOARD_SERIAL_KERNEL "${BOARD_SERIAL_DEVICE}" NAME)
  string(REPLACE "%d" "[12]" BOARD_SERIAL_KERNEL "${BOARD_SERIAL_KERNEL}")
  foreach(number 1 2)
    string(REPLACE "%d" ${number} BOARD_SERIAL_${number} "${BOARD_SERIAL_DEVICE}")
  endforeach()
  get_filename_component(BOARD_FILE "${file}" NAME)
  set(BOARD_FILE "boards/${BOARD_FILE}")
  foreach(made board_paths.cpp board_registers.h board_devices.h device.rules unit.conf)
    configure_file("${CMAKE_CURRENT_FUNCTION_LIST_DIR}/../boards/${made}.in" "${directory}/${made}" @ONLY)
  endforeach()
endfunction()

# The board of this build; the one on the desk, which tests and simulator play; the one of the package: on a desk that
# is the camera's.
set(board_dir ${CMAKE_BINARY_DIR}/board)
board_files(${BOARD} ${board_dir})
set(desk_board_dir ${CMAKE_BINARY_DIR}/desk_board)
board_files(desk ${desk_board_dir})
set(packaged_board ${BOARD})
if(BOARD STREQUAL desk)
  set(packaged_board camera)
endif()
set(packaged_board_dir ${CMAKE_BINARY_DIR}/package/board)
board_files(${packaged_board} ${packaged_board_dir})
