# How every target of the project is compiled: language level, warnings, hardening, sanitizers.

# Compiles through ccache if it is installed. -DCMAKE_CXX_COMPILER_LAUNCHER= turns it off. A parent project
# chooses its own launcher.
if(PROJECT_IS_TOP_LEVEL AND NOT DEFINED CMAKE_CXX_COMPILER_LAUNCHER)
  find_program(PELORIK_CCACHE ccache NO_CACHE) # searched again if it was removed since
  if(PELORIK_CCACHE)
    set(CMAKE_CXX_COMPILER_LAUNCHER "${PELORIK_CCACHE}")
  endif()
endif()

set(PELORIK_WARNINGS
  -Wall
  -Wextra
  -Wpedantic
  -Wshadow
  -Wconversion
  -Wsign-conversion
  -Wold-style-cast
  -Wcast-qual
  -Wformat=2
  -Wnon-virtual-dtor
  -Wsuggest-override)

if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # clang 14 does not have these two.
  list(APPEND PELORIK_WARNINGS -Wduplicated-cond -Wlogical-op)
endif()

if(NOT PELORIK_SANITIZE)
  # With a sanitizer's checks in between, g++ 12 reports null dereferences inside the standard
  # library's own headers.
  list(APPEND PELORIK_WARNINGS -Wnull-dereference)
endif()

if(PELORIK_WERROR)
  list(APPEND PELORIK_WARNINGS -Werror)
endif()

set(PELORIK_HARDENING_COMPILE
  -fstack-protector-strong
  -fstack-clash-protection
  -fcf-protection=full
  -D_GLIBCXX_ASSERTIONS)
set(PELORIK_HARDENING_LINK
  -Wl,-z,relro
  -Wl,-z,now
  -Wl,-z,noexecstack
  -Wl,-z,defs
  -Wl,--as-needed)
# Kept apart, because it renames C library calls (fread becomes __fread_chk), which would hide them
# from tests that stand in for the system.
set(PELORIK_FORTIFY -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=3)

# pelorik_compile(TARGET): the flags that every target of this project gets.
function(pelorik_compile target)
  target_compile_features(${target} PRIVATE cxx_std_20)
  set_target_properties(${target} PROPERTIES
    CXX_STANDARD_REQUIRED ON
    CXX_EXTENSIONS OFF
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON
    POSITION_INDEPENDENT_CODE ON
    BUILD_RPATH_USE_ORIGIN ON)
  # No path of the build machine stands in what is built.
  target_compile_options(${target} PRIVATE
    ${PELORIK_WARNINGS}
    "-ffile-prefix-map=${PROJECT_SOURCE_DIR}=."
    "-ffile-prefix-map=${PROJECT_BINARY_DIR}=./build")
  if(PELORIK_HARDENING)
    target_compile_options(${target} PRIVATE ${PELORIK_HARDENING_COMPILE})
    target_link_options(${target} PRIVATE ${PELORIK_HARDENING_LINK})
  endif()
  if(PELORIK_SANITIZE)
    target_compile_options(${target} PRIVATE
      "-fsanitize=${PELORIK_SANITIZE}" -fno-omit-frame-pointer -fno-sanitize-recover=all)
    target_link_options(${target} PRIVATE "-fsanitize=${PELORIK_SANITIZE}")
  endif()
endfunction()

# pelorik_compile_test(TARGET): the flags of a target that only tests use. Its own sources are compiled with
# PELORIK_TEST_OPTIONS; the library that it links keeps the flags of the build type.
function(pelorik_compile_test target)
  pelorik_compile(${target})
  target_compile_options(${target} PRIVATE ${PELORIK_TEST_OPTIONS})
endfunction()

# pelorik_fortify(TARGET): for what is shipped.
function(pelorik_fortify target)
  if(PELORIK_HARDENING)
    target_compile_options(${target} PRIVATE ${PELORIK_FORTIFY})
  endif()
endfunction()

# Where the files of the build tree look for the library: beside themselves. The "/." make the text long
# enough to be replaced by the installation's.
string(LENGTH "${CMAKE_INSTALL_FULL_LIBDIR}" length)
math(EXPR length "${length} / 2")
string(REPEAT "/." ${length} PELORIK_BUILD_RUN_PATH)
string(PREPEND PELORIK_BUILD_RUN_PATH "$ORIGIN")
# In a file of options, since neither CMake nor the shell leaves a dollar sign alone.
set(PELORIK_RUN_PATH_OPTIONS "${PROJECT_BINARY_DIR}/run-path.options")
file(CONFIGURE OUTPUT "${PELORIK_RUN_PATH_OPTIONS}"
  CONTENT "-Wl,--enable-new-dtags,-rpath,@PELORIK_BUILD_RUN_PATH@\n" @ONLY)

# pelorik_run_path(TARGET): for what is shipped. CMake's own run path ends in a colon in the build tree,
# and the empty entry behind it stands for the current directory.
function(pelorik_run_path target)
  set_target_properties(${target} PROPERTIES SKIP_BUILD_RPATH ON)
  target_link_options(${target} PRIVATE "@${PELORIK_RUN_PATH_OPTIONS}")
endfunction()

# pelorik_install_run_path(TARGET DIRECTORY COMPONENT): gives a file that was just installed into DIRECTORY
# the run path of the installation.
function(pelorik_install_run_path target directory component)
  install(CODE "file(RPATH_CHANGE
    FILE \"\$ENV{DESTDIR}\${CMAKE_INSTALL_PREFIX}/${directory}/$<TARGET_FILE_NAME:${target}>\"
    OLD_RPATH [[${PELORIK_BUILD_RUN_PATH}]]
    NEW_RPATH [[${CMAKE_INSTALL_FULL_LIBDIR}]])"
    COMPONENT ${component})
endfunction()
