# Run by CPack after it has made the packages.
foreach(package ${CPACK_PACKAGE_FILES})
  if(package MATCHES "\\.deb$")
    execute_process(COMMAND "${CMAKE_CURRENT_LIST_DIR}/finish_package" "${package}" "${CMAKE_CURRENT_LIST_DIR}/.."
      "${CPACK_PACKAGE_VERSION}" COMMAND_ERROR_IS_FATAL ANY)
  endif()
endforeach()
