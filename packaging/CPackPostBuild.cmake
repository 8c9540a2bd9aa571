# Run by cpack on the finished packages. To a package with a shared library, cpack adds scripts that
# call ldconfig, beside the trigger that Debian requires for it.
foreach(package IN LISTS CPACK_PACKAGE_FILES)
    if(NOT package MATCHES
            "/(${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME}|${CPACK_DEBIAN_SHOW_PACKAGE_NAME})_[^/]*\\.deb$")
        continue()
    endif()
    set(content "${CPACK_TEMPORARY_DIRECTORY}/repacked")
    file(REMOVE_RECURSE "${content}")
    execute_process(COMMAND dpkg-deb --raw-extract "${package}" "${content}" COMMAND_ERROR_IS_FATAL ANY)
    file(REMOVE "${content}/DEBIAN/postinst" "${content}/DEBIAN/postrm")
    execute_process(
        COMMAND dpkg-deb --root-owner-group --build "${content}" "${package}"
        OUTPUT_QUIET COMMAND_ERROR_IS_FATAL ANY)
    file(REMOVE_RECURSE "${content}")
endforeach()
