# Installs the CMake package and the pkg-config files. Both are relocatable.
include(CMakePackageConfigHelpers)

set(package_folder "${CMAKE_INSTALL_LIBDIR}/cmake/pcm")
install(EXPORT pcm NAMESPACE pcm:: FILE pcm-targets.cmake DESTINATION "${package_folder}" COMPONENT development)
write_basic_package_version_file(pcm-config-version.cmake COMPATIBILITY SameMajorVersion)
install(FILES cmake/pcm-config.cmake cmake/samplerate.cmake "${PROJECT_BINARY_DIR}/pcm-config-version.cmake"
  DESTINATION "${package_folder}" COMPONENT development)

file(RELATIVE_PATH to_prefix "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
foreach(name kit pcm)
  configure_file(cmake/${name}.pc.in ${name}.pc @ONLY)
  install(FILES "${PROJECT_BINARY_DIR}/${name}.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig"
    COMPONENT development)
endforeach()
