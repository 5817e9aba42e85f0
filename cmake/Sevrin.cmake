# What every target of the project shares: language level, warnings, sanitizers, tests.

include_guard(GLOBAL)
# On Debian, libraries of one kind of processor have a folder of their own, also below /usr/local.
if(EXISTS /etc/debian_version AND CMAKE_LIBRARY_ARCHITECTURE)
  set(CMAKE_INSTALL_LIBDIR lib/${CMAKE_LIBRARY_ARCHITECTURE} CACHE PATH "Where libraries go, from the prefix")
endif()
include(GNUInstallDirs)

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)

# Where ccache is installed, the second build of the same source is free, also when it lies in another folder. A launcher
# given by hand wins.
find_program(SEVRIN_CCACHE ccache)
mark_as_advanced(SEVRIN_CCACHE)
if(SEVRIN_CCACHE AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CMAKE_COMMAND} -E env CCACHE_BASEDIR=${CMAKE_SOURCE_DIR} CCACHE_NOHASHDIR=1
      ${SEVRIN_CCACHE})
endif()

option(SEVRIN_WERROR "Treat warnings as errors" ON)
set(SEVRIN_SANITIZE "" CACHE STRING "Sanitizers for everything, e.g. address,undefined or thread")

# Programs tell the dynamic linker their functions, so that the call stacks in the log have names.
set(CMAKE_ENABLE_EXPORTS ON)

# What the shared library shows (Platform/Export.h) is nobody's to replace, so it may be inlined like the rest.
add_compile_options(-fno-semantic-interposition)

# Frame pointers make capturing a call stack a walk along a list instead of an interpretation of tables.
add_compile_options(-Wall -Wextra -Wconversion -Wshadow -fno-omit-frame-pointer)
if(SEVRIN_WERROR)
  add_compile_options(-Werror)
endif()
if(SEVRIN_SANITIZE)
  add_compile_options(-fsanitize=${SEVRIN_SANITIZE} -fno-sanitize-recover=all)
  add_link_options(-fsanitize=${SEVRIN_SANITIZE})
  # This check asks with a pipe whether memory can be read, so it reports a fault of its own to a process that has run
  # out of descriptors, as some tests do. Objects that are gone are the address sanitizer's to find.
  if(SEVRIN_SANITIZE MATCHES undefined)
    add_compile_options(-fno-sanitize=vptr)
  endif()
  # The instrumentation hides from GCC that a value is always set; the release build has this warning on.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    add_compile_options(-Wno-maybe-uninitialized)
  endif()
endif()

# What nothing leads to is left out of the programs, function by function: the service has less to load and to hold.
if(NOT SEVRIN_SANITIZE AND NOT SEVRIN_FUZZ)
  add_compile_options(-ffunction-sections -fdata-sections)
  add_link_options(LINKER:--gc-sections)
endif()

find_package(Threads REQUIRED)

# sevrin_folder_sources(<variable>): the sources of the calling folder, its tests and mains left out.
function(sevrin_folder_sources variable)
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp ${ARGN})
  list(FILTER sources EXCLUDE REGEX "(Test|/main)\\.cpp$")
  set(${variable} ${sources} PARENT_SCOPE)
endfunction()

# sevrin_folder_tests(<target> <library>... [FOLDERS <subfolder>...]): one test program from every *Test.cpp of the
# folder and of the subfolders named. Each test is registered by itself, so that CTest runs them side by side; those of
# *SlowTest.cpp, whose suites are called so too, have the label "slow". Programs that may log do so in a home folder of
# their own.
function(sevrin_folder_tests target)
  if(NOT SEVRIN_TESTS)
    return()
  endif()
  cmake_parse_arguments(PARSE_ARGV 1 given "" "" "FOLDERS")
  find_package(GTest REQUIRED)
  include(GoogleTest)
  set(globs ${CMAKE_CURRENT_SOURCE_DIR}/*Test.cpp)
  foreach(folder IN LISTS given_FOLDERS)
    list(APPEND globs ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/*Test.cpp)
  endforeach()
  file(GLOB tests CONFIGURE_DEPENDS ${globs})
  if(NOT tests)
    return()
  endif()
  if(NOT given_UNPARSED_ARGUMENTS STREQUAL "SevrinPlatform")
    list(APPEND tests ${PROJECT_SOURCE_DIR}/Tests/Support/OwnHome.cpp)
  endif()
  add_executable(${target} ${tests})
  target_link_libraries(${target} PRIVATE ${given_UNPARSED_ARGUMENTS} GTest::gtest GTest::gmock GTest::gtest_main)
  set_target_properties(${target} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
  gtest_discover_tests(${target} DISCOVERY_TIMEOUT 60 TEST_FILTER "-*SlowTest.*" PROPERTIES TIMEOUT 180)
  if(tests MATCHES "SlowTest\\.cpp")
    gtest_discover_tests(${target} DISCOVERY_TIMEOUT 60 TEST_FILTER "*SlowTest.*" PROPERTIES TIMEOUT 600 LABELS slow)
  endif()
endfunction()
