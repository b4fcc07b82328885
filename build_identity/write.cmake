# Asks git which build this is, and writes it where it differs from what stands there.
#   cmake -DSOURCE=FOLDER -DNUMBER=1.0.0 -DOUTPUT=FOLDER -P write.cmake
# makes OUTPUT/build_texts.cpp (for programs) and OUTPUT/build_version.cmake (for packages).
cmake_minimum_required(VERSION 3.25)

function(ask_git status answer)
  execute_process(
    COMMAND ${CMAKE_COMMAND} -E env --unset=GIT_DIR --unset=GIT_WORK_TREE --unset=GIT_INDEX_FILE TZ=UTC
            git --no-optional-locks ${ARGN}
    WORKING_DIRECTORY ${SOURCE} RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_QUIET OUTPUT_STRIP_TRAILING_WHITESPACE)
  set(${status} "${result}" PARENT_SCOPE)
  set(${answer} "${output}" PARENT_SCOPE)
endfunction()

set(commit unknown)
set(version ${NUMBER}+unknown)
set(time 0)
# A tarball that was unpacked below somebody else's repository is not of that repository's commit.
ask_git(status top rev-parse --show-toplevel)
file(REAL_PATH "${SOURCE}" source)
if(status EQUAL 0 AND top STREQUAL source)
  ask_git(status whole rev-parse --verify HEAD)
  if(status EQUAL 0)
    string(SUBSTRING ${whole} 0 12 commit)
    ask_git(status date show -s --format=%cd --date=format-local:%Y%m%d%H%M%S HEAD)
    ask_git(status time show -s --format=%ct HEAD)
    ask_git(status changes status --porcelain --untracked-files=no)
    ask_git(released nothing merge-base --is-ancestor v${NUMBER} HEAD)
    ask_git(status tagged rev-parse --verify --quiet v${NUMBER}^{commit})
    set(changed "")
    if(changes)
      set(changed .changed)
    endif()
    if(tagged STREQUAL whole AND NOT changes)
      set(version ${NUMBER})
    elseif(released EQUAL 0)
      set(version ${NUMBER}+${date}.${commit}${changed})
    else()
      set(version ${NUMBER}~${date}.${commit}${changed})
    endif()
  endif()
endif()

file(CONFIGURE OUTPUT ${OUTPUT}/build_texts.cpp @ONLY NEWLINE_STYLE UNIX CONTENT [[
#include "build_identity/build.h"

namespace build {

const char kVersion[] = "@version@";
const char kCommit[] = "@commit@";

}  // namespace build
]])
file(CONFIGURE OUTPUT ${OUTPUT}/build_version.cmake @ONLY NEWLINE_STYLE UNIX CONTENT "set(BUILD_VERSION @version@)\nset(BUILD_TIME @time@)  # of the commit, in seconds since 1970\n")
