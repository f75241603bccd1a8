# Read by cpack at packaging time: a Debian package must be built for the /usr layout, where
# PAM, systemd and the dynamic linker look.
if(CPACK_GENERATOR STREQUAL "DEB" AND NOT CPACK_SCHED_INSTALL_PREFIX STREQUAL "/usr")
  message(FATAL_ERROR "The build tree is configured for ${CPACK_SCHED_INSTALL_PREFIX}; "
                      "reconfigure it with -DCMAKE_INSTALL_PREFIX=/usr to build the Debian package")
endif()
