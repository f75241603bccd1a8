# Helpers for test and benchmark targets.
include(GoogleTest)

# sched_add_gtest(NAME SOURCES a.cc b.cc [LIBRARIES ...] [ENVIRONMENT VAR=VALUE ...])
# One GoogleTest executable; each test case becomes a CTest test, run with the given environment.
function(sched_add_gtest name)
  cmake_parse_arguments(ARG "" "" "SOURCES;LIBRARIES;ENVIRONMENT" ${ARGN})
  add_executable(${name} ${ARG_SOURCES})
  target_link_libraries(${name} PRIVATE ${ARG_LIBRARIES} GTest::gtest GTest::gtest_main GTest::gmock Threads::Threads)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests ${PROJECT_SOURCE_DIR}/lib)
  # Test discovery flattens a list-valued ENVIRONMENT property to its first entry, so the
  # environment is set by running every test (and the discovery) through `cmake -E env`.
  # A cross build's emulator (or loader) comes after the environment.
  if(ARG_ENVIRONMENT)
    set(launcher ${CMAKE_COMMAND} -E env ${ARG_ENVIRONMENT} ${CMAKE_CROSSCOMPILING_EMULATOR})
    set_target_properties(${name} PROPERTIES CROSSCOMPILING_EMULATOR "${launcher}")
  endif()
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60)
endfunction()
