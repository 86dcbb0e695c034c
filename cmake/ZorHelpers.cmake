# zor_library(<name> SOURCES <files...> [DEPS <targets...>] [PRIVATE_DEPS <targets...>])
# One static library per folder; include paths are rooted at the source tree so
# headers are included as "folder/header.h".
function(zor_library name)
  cmake_parse_arguments(ARG "" "" "SOURCES;DEPS;PRIVATE_DEPS" ${ARGN})
  add_library(${name} STATIC ${ARG_SOURCES})
  target_include_directories(${name} PUBLIC ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR})
  target_link_libraries(${name} PUBLIC ${ARG_DEPS} PRIVATE ${ARG_PRIVATE_DEPS})
endfunction()

# zor_test(<name> SOURCES <files...> [DEPS <targets...>] [LABELS <labels...>]
#          [TIMEOUT <seconds>] [GUI] [SERIAL])
# A GoogleTest executable registered with CTest. The environment tells tests
# where the built server and the shipped data are. GUI tests need a display
# (scripts/test runs ctest under xvfb-run). SERIAL tests never run alongside
# others (they open fixed ports or use much CPU).
function(zor_test name)
  cmake_parse_arguments(ARG "GUI;SERIAL" "TIMEOUT" "SOURCES;DEPS;LABELS" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_DEPS} GTest::gtest GTest::gtest_main GTest::gmock)
  add_test(NAME ${name} COMMAND ${name})
  if(NOT ARG_TIMEOUT)
    set(ARG_TIMEOUT 300)
  endif()
  set(env "ZOR_DATA_DIR=${ZOR_DATA_DIR}" "ZOR_BIN_DIR=${PROJECT_BINARY_DIR}/bin")
  set_tests_properties(${name} PROPERTIES TIMEOUT ${ARG_TIMEOUT} ENVIRONMENT "${env}")
  set(labels ${ARG_LABELS})
  if(ARG_GUI)
    list(APPEND labels gui)
  endif()
  if(labels)
    set_tests_properties(${name} PROPERTIES LABELS "${labels}")
  endif()
  if(ARG_SERIAL)
    set_tests_properties(${name} PROPERTIES RUN_SERIAL TRUE)
  endif()
endfunction()

# All executables land in one folder so tests and scripts can find them.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin CACHE PATH "" FORCE)
