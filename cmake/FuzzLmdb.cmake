# The fuzzing build's LMDB: the system's static archive with its allocation calls renamed, so
# that they reach tests/fuzz/lmdb_block_cache.cc (which says why) rather than the sanitizer's
# allocator. The archive is not built for a shared library, so each harness links it whole;
# SCHED_FUZZ_LMDB is what to link.
get_filename_component(lmdb_directory ${LMDB_LIBRARY} DIRECTORY)
find_file(LMDB_STATIC_LIBRARY liblmdb.a HINTS ${lmdb_directory} REQUIRED)
if(NOT CMAKE_OBJCOPY)
  message(FATAL_ERROR "the fuzzing build needs objcopy")
endif()

set(renamed_archive ${PROJECT_BINARY_DIR}/fuzz-lmdb/liblmdb-block-cache.a)
set(renames)
foreach(function malloc calloc realloc free posix_memalign)
  list(APPEND renames --redefine-sym ${function}=fuzz_lmdb_${function})
endforeach()
add_custom_command(OUTPUT ${renamed_archive}
  COMMAND ${CMAKE_COMMAND} -E make_directory ${PROJECT_BINARY_DIR}/fuzz-lmdb
  COMMAND ${CMAKE_OBJCOPY} ${renames} ${LMDB_STATIC_LIBRARY} ${renamed_archive}
  DEPENDS ${LMDB_STATIC_LIBRARY}
  VERBATIM)
add_custom_target(fuzz_lmdb_archive DEPENDS ${renamed_archive})
add_library(fuzz_lmdb STATIC IMPORTED)
set_target_properties(fuzz_lmdb PROPERTIES IMPORTED_LOCATION ${renamed_archive})
add_dependencies(fuzz_lmdb fuzz_lmdb_archive)
add_library(fuzz_lmdb_block_cache STATIC ${PROJECT_SOURCE_DIR}/tests/fuzz/lmdb_block_cache.cc)
# Without coverage: the cache's own branches say nothing about the code under test.
target_compile_options(fuzz_lmdb_block_cache PRIVATE -fno-sanitize=fuzzer-no-link)

set(SCHED_FUZZ_LMDB "$<LINK_LIBRARY:WHOLE_ARCHIVE,fuzz_lmdb>" fuzz_lmdb_block_cache)
