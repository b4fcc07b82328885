# Each row: what is wrong in an otherwise good file, and the name that the error must say.
set(board_cmake ${CMAKE_CURRENT_LIST_DIR}/../../cmake/board.cmake)
foreach(row "BOARD_GPIO_DATA 0x3G" "BOARD_PIN_MUX_OF_LEDS" "BOARD_PIN_IS_GPIO -1" "BOARD_MEMORY_DEVICE" "BOARD_SERIAL_DEVICE /dev/ttyS1"
            "BOARD_SERIAL_DEVICE /dev/tty%s%d" "BOARD_SERIAL_DEVICE /dev/serial/by-path/line%d" "BOARD_MEMORY_DEVICE /dev/\"mem")
  string(REGEX MATCH "^[^ ]+" name "${row}")
  string(REGEX REPLACE "^[^ ]+ ?" "" value "${row}")
  file(WRITE ${SCRATCH}/board.cmake "include(${CMAKE_CURRENT_LIST_DIR}/board.cmake)\nset(${name} [[${value}]])\n")
  file(WRITE ${SCRATCH}/script.cmake "set(BOARD ${SCRATCH}/board.cmake)\ninclude(${board_cmake})\n")
  execute_process(COMMAND ${CMAKE_COMMAND} -P ${SCRATCH}/script.cmake WORKING_DIRECTORY ${SCRATCH}
                  RESULT_VARIABLE status ERROR_VARIABLE said OUTPUT_QUIET)
  string(REGEX REPLACE "[ \n]+" " " said "${said}")  # lines are broken where a path makes them long
  if(status EQUAL 0 OR NOT said MATCHES "${name} is" OR NOT said MATCHES "wrong/board.cmake")
    message(FATAL_ERROR "${row}: status ${status}: ${said}")
  endif()
endforeach()
