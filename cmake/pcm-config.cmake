# Defines the targets pcm::pcm and pcm::kit. If the static libraries are installed, also defines pcm::pcm_static and
# pcm::kit_static; pcm::pcm_static requires libsamplerate's development files.
include("${CMAKE_CURRENT_LIST_DIR}/pcm-targets.cmake")
include("${CMAKE_CURRENT_LIST_DIR}/samplerate.cmake")
if(TARGET pcm::pcm_static AND NOT TARGET pcm::samplerate)
  if(NOT TARGET pcm::pcm)
    message(FATAL_ERROR "pcm::pcm_static needs libsamplerate, which neither pkg-config nor CMake finds")
  endif()
  message(STATUS "pcm::pcm_static cannot be linked: neither pkg-config nor CMake finds libsamplerate")
endif()

# The static libraries are written in C++ but do not need its runtime library, so a C host links them as C.
foreach(pcm_target pcm::pcm_static pcm::kit_static)
  if(TARGET ${pcm_target})
    get_target_property(pcm_builds ${pcm_target} IMPORTED_CONFIGURATIONS)
    foreach(pcm_build ${pcm_builds})
      set_target_properties(${pcm_target} PROPERTIES IMPORTED_LINK_INTERFACE_LANGUAGES_${pcm_build} C)
    endforeach()
  endif()
endforeach()
