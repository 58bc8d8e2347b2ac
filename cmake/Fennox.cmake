# Build rules shared by all folders.

set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

# The server, the command line and the plug-in lie beside each other, the
# libraries in lib/ below them; they find each other wherever the folder goes.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/lib)
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)

set(FENNOX_SANITIZE "" CACHE STRING "Sanitizers to build with, as for -fsanitize=")

add_library(fennox_flags INTERFACE)
target_compile_options(fennox_flags INTERFACE -Wall -Wextra -Wpedantic -Werror)
target_compile_definitions(fennox_flags INTERFACE _GNU_SOURCE _FILE_OFFSET_BITS=64)
if(FENNOX_SANITIZE)
  target_compile_options(fennox_flags INTERFACE
    -fsanitize=${FENNOX_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(fennox_flags INTERFACE -fsanitize=${FENNOX_SANITIZE})
endif()

find_program(CCACHE ccache)
if(CCACHE)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${CCACHE})
endif()

# fennox_library(NAME SOURCES a.cpp… LINK lib…): the platform library
# fennox_NAME, a shared library whose public headers are in include/.
function(fennox_library NAME)
  cmake_parse_arguments(ARG "" "" "SOURCES;LINK;PRIVATE_LINK" ${ARGN})
  add_library(fennox_${NAME} SHARED ${ARG_SOURCES})
  target_include_directories(fennox_${NAME}
    PUBLIC ${CMAKE_CURRENT_SOURCE_DIR}/include
    PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
  target_link_libraries(fennox_${NAME}
    PUBLIC ${ARG_LINK} PRIVATE ${ARG_PRIVATE_LINK} fennox_flags)
endfunction()

# fennox_module_part(NAME SOURCES a.cpp…): one folder of the plug-in.
function(fennox_module_part NAME)
  cmake_parse_arguments(ARG "" "" "SOURCES" ${ARGN})
  add_library(module_${NAME} OBJECT ${ARG_SOURCES})
  target_compile_options(module_${NAME} PRIVATE -fvisibility=hidden -fvisibility-inlines-hidden)
  target_include_directories(module_${NAME} PUBLIC ${CMAKE_SOURCE_DIR})
  target_link_libraries(module_${NAME} PUBLIC
    fennox_core fennox_webapi fennox_tasks fennox_support fennox_fileop fennox_vfs fennox_cloud
    PRIVATE fennox_flags)
endfunction()

# Tests run in slots, six to each processor: a test that computes takes five of them, one that
# mostly waits takes one, so that waiting and computing overlap. The long ones start first (COST).
set(SLOTS_OF_COMPUTING 5)

# fennox_test(NAME SOURCES a.cpp… LINK target… [TIMEOUT s]): a GoogleTest binary
# that the runner lists test by test.
function(fennox_test NAME)
  cmake_parse_arguments(ARG "" "TIMEOUT" "SOURCES;LINK;LABELS" ${ARGN})
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 120)
  endif()
  add_executable(${NAME} ${ARG_SOURCES})
  set_target_properties(${NAME} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/tests)
  target_include_directories(${NAME} PRIVATE ${CMAKE_SOURCE_DIR})
  target_link_libraries(${NAME} PRIVATE ${ARG_LINK} GTest::gtest GTest::gmock GTest::gtest_main
    fennox_flags)
  # The product under test keeps the preset's optimisation; tests themselves compile in half the
  # time without, sanitizers included.
  target_compile_options(${NAME} PRIVATE $<$<CONFIG:Debug>:-O0>)
  include(GoogleTest)
  gtest_discover_tests(${NAME} TEST_PREFIX ${NAME}. DISCOVERY_TIMEOUT 60
    PROPERTIES TIMEOUT ${ARG_TIMEOUT} LABELS "${ARG_LABELS}" PROCESSORS ${SLOTS_OF_COMPUTING})
endfunction()

# fennox_pytest(NAME FILE [TIMEOUT s] [SLOTS n] [COST s]): a file of black-box tests, on what this
# build made. Their servers wait more than they compute: two slots unless told otherwise.
function(fennox_pytest NAME FILE)
  set(ARG_TIMEOUT 600)
  set(ARG_SLOTS 2)
  set(ARG_COST 20)
  cmake_parse_arguments(GIVEN "" "TIMEOUT;SLOTS;COST" "" ${ARGN})
  foreach(word TIMEOUT SLOTS COST)
    if(GIVEN_${word})
      set(ARG_${word} ${GIVEN_${word}})
    endif()
  endforeach()
  add_test(NAME ${NAME}
    COMMAND /usr/bin/python3 -m pytest -q -p no:cacheprovider -rsxX
      ${CMAKE_CURRENT_SOURCE_DIR}/${FILE})
  set_tests_properties(${NAME} PROPERTIES TIMEOUT ${ARG_TIMEOUT}
    PROCESSORS ${ARG_SLOTS} COST ${ARG_COST}
    ENVIRONMENT "FENNOX_BUILD=${CMAKE_BINARY_DIR};PYTHONDONTWRITEBYTECODE=1")
endfunction()
