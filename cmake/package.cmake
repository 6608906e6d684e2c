# Debian packages, built with `cpack -G DEB`: the libraries, development files, example programs and Python package.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_PACKAGE_VENDOR "The pcm authors")
set(CPACK_PACKAGE_CONTACT "The pcm authors <pcm@pcm.invalid>")
set(CPACK_STRIP_FILES ON)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_COMPONENTS_ALL runtime development)
if(PCM_PYTHON)
  list(APPEND CPACK_COMPONENTS_ALL python)
endif()
if(PCM_EXAMPLES)
  list(APPEND CPACK_COMPONENTS_ALL tools)
endif()

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 0pcm1) # not a package of Debian's own
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}/lib")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libpcm${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libpcm-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS libsamplerate0-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME pcm-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION sound)
set(CPACK_DEBIAN_TOOLS_PACKAGE_RECOMMENDS gnuplot-nox)
set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-pcm)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
if(PCM_PYTHON)
  math(EXPR next_minor "${Python_VERSION_MINOR} + 1")
  set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS
    "python3 (>= 3.${Python_VERSION_MINOR}), python3 (<< 3.${next_minor}), python3-numpy")
endif()


set(CPACK_PROJECT_CONFIG_FILE "${PROJECT_SOURCE_DIR}/cmake/check_tools.cmake")
set(CPACK_POST_BUILD_SCRIPTS "${PROJECT_SOURCE_DIR}/cmake/finish_packages.cmake")
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ
  WORLD_EXECUTE)

# The first line is the synopsis.
set(purpose "pcm keeps audio in packets, reference-counted and copy-on-write objects of
32-bit float frames. It cuts and joins packets, converts them to and from
bytes (8 to 32-bit integers, floats, G.711), queues, filters and resamples
them, adjusts levels, and generates tones, noise and silence.")
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "PCM audio in memory, for telephony (libraries)
${purpose}
.
This package contains the shared libraries pcm and kit, also in builds for
newer processors, which the loader selects.")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "PCM audio in memory, for telephony (development files)
${purpose}
.
This package contains the headers for C and C++, the static libraries, the
files for CMake and pkg-config, and the manual.")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "PCM audio in memory, for telephony (programs)
${purpose}
.
This package contains programs that convert and mix recordings, plot the
responses of filters, generate the tones of telephone networks, and connect
softphones in conference rooms.")
set(CPACK_DEBIAN_PYTHON_DESCRIPTION "PCM audio in memory, for telephony (Python 3)
${purpose}
.
This package contains the Python module pcm, which shares samples with NumPy,
and a replacement of the module audioop that Python 3.13 removed.")
include(CPack)
cpack_add_component(runtime)
cpack_add_component(development DEPENDS runtime)
cpack_add_component(tools DEPENDS runtime)
if(PCM_PYTHON)
  cpack_add_component(python)
endif()
