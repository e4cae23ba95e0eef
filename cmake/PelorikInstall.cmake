# What `cmake --install` puts where.

install(TARGETS pelorikutil LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}")
pelorik_install_run_path(pelorikutil "${CMAKE_INSTALL_LIBDIR}")

get_property(PELORIK_PUBLIC_HEADERS GLOBAL PROPERTY PELORIK_PUBLIC_HEADERS)
foreach(header IN LISTS PELORIK_PUBLIC_HEADERS ITEMS "${PROJECT_SOURCE_DIR}/pelorik/export.h")
  cmake_path(RELATIVE_PATH header BASE_DIRECTORY "${PROJECT_SOURCE_DIR}" OUTPUT_VARIABLE relative)
  cmake_path(GET relative PARENT_PATH folder)
  install(FILES "${header}" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}/pelorikutil/${folder}")
endforeach()

if(PELORIK_BUILD_TOOL)
  install(TARGETS pelorik RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}")
  pelorik_install_run_path(pelorik "${CMAKE_INSTALL_BINDIR}")
endif()

install(FILES "${PROJECT_SOURCE_DIR}/packaging/pelorik.tmpfiles.conf"
  DESTINATION lib/tmpfiles.d
  RENAME pelorik.conf)
