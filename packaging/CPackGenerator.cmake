# Read by cpack before each kind of package.
if(CPACK_GENERATOR STREQUAL DEB AND NOT CPACK_ORVEL_PREFIX STREQUAL "/usr")
    message(FATAL_ERROR
        "Debian packages install to /usr, but this build is for ${CPACK_ORVEL_PREFIX}. "
        "Configure with CMAKE_INSTALL_PREFIX=/usr, or run: cmake --workflow --preset package")
endif()
