# Run by CPack first. Without these programs, CPack would make packages without dependencies or stop in the middle.
if(CPACK_GENERATOR STREQUAL "DEB")
  foreach(tool dpkg-shlibdeps dpkg-deb file objdump)
    find_program(found_${tool} ${tool})
    if(NOT found_${tool})
      message(FATAL_ERROR "Debian packages need the program ${tool} (Debian: dpkg-dev, dpkg, file, binutils)")
    endif()
  endforeach()
endif()
