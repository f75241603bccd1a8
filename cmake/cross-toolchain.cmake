# Cross build of the library, the platform and their unit tests (scripts/endian-check).
# SCHED_CROSS_TRIPLET names the Debian cross compiler (s390x-linux-gnu, i686-linux-gnu);
# SCHED_CROSS_SYSROOT is a tree of that architecture's dependency packages unpacked as they
# install, without their C library, which comes with the cross compiler.
set(CMAKE_SYSTEM_NAME Linux)
string(REGEX REPLACE "-.*" "" CMAKE_SYSTEM_PROCESSOR "${SCHED_CROSS_TRIPLET}")
set(CMAKE_C_COMPILER ${SCHED_CROSS_TRIPLET}-gcc)
set(CMAKE_CXX_COMPILER ${SCHED_CROSS_TRIPLET}-g++)
# Debian's library folders name the 32-bit x86 architecture i386, its compiler i686.
string(REPLACE "i686-" "i386-" CMAKE_LIBRARY_ARCHITECTURE "${SCHED_CROSS_TRIPLET}")
# The compiler checks re-read this file in a fresh project: hand the two settings on.
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES SCHED_CROSS_TRIPLET SCHED_CROSS_SYSROOT)

set(CMAKE_FIND_ROOT_PATH ${SCHED_CROSS_SYSROOT} /usr/${SCHED_CROSS_TRIPLET})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_PACKAGE ONLY)

set(ENV{PKG_CONFIG_LIBDIR}
  "${SCHED_CROSS_SYSROOT}/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}/pkgconfig:${SCHED_CROSS_SYSROOT}/usr/share/pkgconfig")
set(ENV{PKG_CONFIG_SYSROOT_DIR} "${SCHED_CROSS_SYSROOT}")

# The unpacked libraries need each other (GLib needs PCRE2, PAM needs libaudit) when a program
# is linked, and the test programs find them at run time the same way.
set(SCHED_CROSS_LIBRARY_PATH
  "${SCHED_CROSS_SYSROOT}/usr/lib/${CMAKE_LIBRARY_ARCHITECTURE}:${SCHED_CROSS_SYSROOT}/lib/${CMAKE_LIBRARY_ARCHITECTURE}")
string(APPEND CMAKE_EXE_LINKER_FLAGS_INIT " -Wl,-rpath-link,${SCHED_CROSS_LIBRARY_PATH}")
string(APPEND CMAKE_SHARED_LINKER_FLAGS_INIT " -Wl,-rpath-link,${SCHED_CROSS_LIBRARY_PATH}")

if(SCHED_CROSS_TRIPLET STREQUAL "i686-linux-gnu")
  # Runs natively, under the cross compiler's own loader and C library, so that the host needs
  # no 32-bit libraries installed.
  set(CMAKE_CROSSCOMPILING_EMULATOR /usr/${SCHED_CROSS_TRIPLET}/lib/ld-linux.so.2
    --library-path "${SCHED_CROSS_LIBRARY_PATH}:/usr/${SCHED_CROSS_TRIPLET}/lib")
else()
  # The static emulator, so that a test's LD_PRELOAD reaches only the emulated program. The
  # emulated program sees the tree as its root (scripts/endian-check links the cross C library
  # into its /lib), so that libraries loaded by fixed paths are found too.
  set(CMAKE_CROSSCOMPILING_EMULATOR qemu-${CMAKE_SYSTEM_PROCESSOR}-static -L ${SCHED_CROSS_SYSROOT})
endif()
