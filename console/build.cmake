# Fetches the packages of the lock file when they are not those that are installed, and builds the page.
#   cmake -DNODE=... -DNPM=... -DPAGE=... -DLIST=... -P build.cmake      in the folder console
set(installed node_modules/.package-lock.json)
if(NOT EXISTS ${CMAKE_SOURCE_DIR}/${installed} OR ${CMAKE_SOURCE_DIR}/package-lock.json IS_NEWER_THAN ${CMAKE_SOURCE_DIR}/${installed})
  execute_process(COMMAND ${NPM} ci --ignore-scripts --no-audit --no-fund --fetch-retries=1
    RESULT_VARIABLE failed OUTPUT_VARIABLE said ERROR_VARIABLE said)
  if(failed)
    file(REMOVE ${PAGE} ${LIST})
    message(WARNING "console: left out, its packages could not be fetched:\n${said}")
    return()
  endif()
  file(TOUCH ${CMAKE_SOURCE_DIR}/${installed})
endif()
execute_process(COMMAND ${NODE} build.mjs ${PAGE} ${LIST} RESULT_VARIABLE failed)
if(failed)
  message(FATAL_ERROR "console: the page could not be built")
endif()
