# What `cmake --install` puts where. The components are Library, Development and Tool.

include(CMakePackageConfigHelpers)

set(cmake_directory "${CMAKE_INSTALL_LIBDIR}/cmake/pelorikutil")

install(TARGETS pelorikutil EXPORT pelorikutilTargets
  LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
    COMPONENT Library NAMELINK_COMPONENT Development)
pelorik_install_run_path(pelorikutil "${CMAKE_INSTALL_LIBDIR}" Library)

install(TARGETS pelorikutil_archive EXPORT pelorikutilTargets
  ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT Development)

get_property(PELORIK_PUBLIC_HEADERS GLOBAL PROPERTY PELORIK_PUBLIC_HEADERS)
foreach(header IN LISTS PELORIK_PUBLIC_HEADERS ITEMS "${PROJECT_SOURCE_DIR}/pelorik/export.h")
  cmake_path(RELATIVE_PATH header BASE_DIRECTORY "${PROJECT_SOURCE_DIR}" OUTPUT_VARIABLE relative)
  cmake_path(GET relative PARENT_PATH folder)
  install(FILES "${header}"
    DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/pelorikutil/${folder}" COMPONENT Development)
endforeach()

# find_package(pelorikutil)
install(EXPORT pelorikutilTargets
  NAMESPACE pelorikutil:: DESTINATION "${cmake_directory}" COMPONENT Development)
configure_package_config_file(
  "${PROJECT_SOURCE_DIR}/packaging/pelorikutilConfig.cmake.in"
  "${PROJECT_BINARY_DIR}/pelorikutilConfig.cmake"
  INSTALL_DESTINATION "${cmake_directory}"
  NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(
  "${PROJECT_BINARY_DIR}/pelorikutilConfigVersion.cmake" COMPATIBILITY SameMajorVersion)
install(FILES
  "${PROJECT_BINARY_DIR}/pelorikutilConfig.cmake"
  "${PROJECT_BINARY_DIR}/pelorikutilConfigVersion.cmake"
  DESTINATION "${cmake_directory}" COMPONENT Development)

# pkg-config. The file tells where it lies itself, so that it may be moved with the rest. Programs find the
# library by their run path unless it stands where every program looks.
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX
  BASE_DIRECTORY "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" OUTPUT_VARIABLE PELORIK_PC_TO_PREFIX)
set(PELORIK_PC_RUN_PATH " -Wl,-rpath,\${libdir}")
if(CMAKE_INSTALL_FULL_LIBDIR MATCHES "^(/usr)?/lib(/|$)")
  set(PELORIK_PC_RUN_PATH "")
endif()
configure_file("${PROJECT_SOURCE_DIR}/packaging/pelorikutil.pc.in"
  "${PROJECT_BINARY_DIR}/pelorikutil.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/pelorikutil.pc"
  DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT Development)

install(FILES "${PROJECT_SOURCE_DIR}/docs/abi.md"
  DESTINATION "${CMAKE_INSTALL_DOCDIR}" COMPONENT Development)

if(PELORIK_BUILD_TOOL)
  install(TARGETS pelorik RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT Tool)
  pelorik_install_run_path(pelorik "${CMAKE_INSTALL_BINDIR}" Tool)
  install(FILES "${PROJECT_SOURCE_DIR}/packaging/pelorik.tmpfiles.conf"
    DESTINATION lib/tmpfiles.d RENAME pelorik.conf COMPONENT Tool)
endif()
