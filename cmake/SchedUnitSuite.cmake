# The library, the platform and their unit tests only: what the cross builds of
# scripts/endian-check compile and run (no daemon, shell, end-to-end or fuzz tests).
include(${PROJECT_SOURCE_DIR}/cmake/SchedTesting.cmake)
file(GLOB SCHED_PLATFORM_TEST_AREAS LIST_DIRECTORIES true ${PROJECT_SOURCE_DIR}/tests/platform_*)
foreach(area db time pss cli acfg endian ${SCHED_PLATFORM_TEST_AREAS})
  get_filename_component(area ${area} NAME)
  add_subdirectory(${PROJECT_SOURCE_DIR}/tests/${area} ${PROJECT_BINARY_DIR}/tests/${area})
endforeach()
