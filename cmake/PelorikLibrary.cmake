# The library itself: the shared object that is shipped, an archive of the same objects, and the same units
# as a static library for tests, compiled without FORTIFY so that tests can stand in for the C library's
# calls.

add_library(pelorikutil SHARED)
add_library(pelorikutil::pelorikutil ALIAS pelorikutil)
add_library(pelorikutil_archive STATIC "$<TARGET_OBJECTS:pelorikutil>")
add_library(pelorikutil::pelorikutil_static ALIAS pelorikutil_archive)
add_library(pelorikutil_static STATIC EXCLUDE_FROM_ALL) # built for those who link it

foreach(target IN ITEMS pelorikutil pelorikutil_archive pelorikutil_static)
  target_compile_features(${target} INTERFACE cxx_std_11)
  target_include_directories(${target} PUBLIC
    "$<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>"
    "$<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/pelorikutil>")
endforeach()
pelorik_compile(pelorikutil)
pelorik_compile(pelorikutil_static)
pelorik_fortify(pelorikutil)

set_target_properties(pelorikutil_archive PROPERTIES
  LINKER_LANGUAGE CXX
  OUTPUT_NAME pelorikutil
  EXPORT_NAME pelorikutil_static
  ARCHIVE_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}")

set(PELORIK_VERSION_SCRIPT "${PROJECT_SOURCE_DIR}/packaging/pelorikutil.map")
set_target_properties(pelorikutil PROPERTIES
  VERSION ${PROJECT_VERSION}
  SOVERSION ${PROJECT_VERSION_MAJOR}
  LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}"
  LINK_DEPENDS "${PELORIK_VERSION_SCRIPT}")
# The library's own calls of its own functions are bound when it is linked.
target_link_options(pelorikutil PRIVATE
  -Wl,-Bsymbolic-functions
  "-Wl,--version-script=${PELORIK_VERSION_SCRIPT}")
pelorik_run_path(pelorikutil)

# pelorik_unit(NAME [PRIVATE_SOURCE...]): adds the unit NAME of the calling folder, its header and
# source under that name and any further private sources.
function(pelorik_unit name)
  list(TRANSFORM ARGN PREPEND "${CMAKE_CURRENT_SOURCE_DIR}/")
  foreach(target IN ITEMS pelorikutil pelorikutil_static)
    target_sources(${target} PRIVATE "${CMAKE_CURRENT_SOURCE_DIR}/${name}.cpp" ${ARGN})
  endforeach()
  set_property(GLOBAL APPEND PROPERTY PELORIK_PUBLIC_HEADERS
    "${CMAKE_CURRENT_SOURCE_DIR}/${name}.h")
endfunction()
