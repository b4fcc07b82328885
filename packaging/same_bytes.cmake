# Run by cpack before it makes the packages and after: whoever makes them, whenever, gets the same bytes. Neither the
# folders in them nor the packages' own parts keep the mode that this machine's umask gave them, or the time.
if(NOT CPACK_PACKAGE_FILES)
  file(CHMOD_RECURSE ${CPACK_TEMPORARY_DIRECTORY} DIRECTORY_PERMISSIONS
       OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
endif()
foreach(package IN LISTS CPACK_PACKAGE_FILES)
  set(scratch ${package}.members)
  file(MAKE_DIRECTORY ${scratch})
  execute_process(COMMAND ar x ${package} WORKING_DIRECTORY ${scratch} COMMAND_ERROR_IS_FATAL ANY)
  file(GLOB members RELATIVE ${scratch} ${scratch}/control.tar* ${scratch}/data.tar*)  # sorted; the form's version is first
  file(REMOVE ${package})
  execute_process(COMMAND ar rcDS ${package} debian-binary ${members} WORKING_DIRECTORY ${scratch} COMMAND_ERROR_IS_FATAL ANY)
  file(REMOVE_RECURSE ${scratch})
endforeach()
