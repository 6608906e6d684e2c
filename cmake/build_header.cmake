# Writes a header with the version, time and flavour of the build:
#     cmake -DVERSION=... -DFLAVOUR=... -DOUTPUT=... -P build_header.cmake
# string(TIMESTAMP) uses SOURCE_DATE_EPOCH if it is set.
string(TIMESTAMP time "UTC %Y-%m-%d %H:%M:%S (%A)" UTC)
string(REPLACE "." ";" numbers "${VERSION}")
list(GET numbers 0 major)
list(GET numbers 1 minor)
list(GET numbers 2 patch)
file(WRITE "${OUTPUT}" "#define PCM_VERSION \"${VERSION}\"
#define PCM_VERSION_MAJOR ${major}
#define PCM_VERSION_MINOR ${minor}
#define PCM_VERSION_PATCH ${patch}
#define PCM_BUILD_TIME \"${time}\"
#define PCM_FLAVOUR \"${FLAVOUR}\"
")
