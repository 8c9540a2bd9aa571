# Installation: the library with its headers in one folder, package files for CMake and pkg-config,
# and the tool. Components: runtime, show, development, tool.
include(CMakePackageConfigHelpers)

set(orvel_cmake_dir "${CMAKE_INSTALL_LIBDIR}/cmake/Orvel")
set(orvel_header_dir "${CMAKE_INSTALL_INCLUDEDIR}/orvel")

# A library with its headers: orvel_install_library(TARGET EXPORT COMPONENT)
function(orvel_install_library target export component)
    install(TARGETS ${target}
        EXPORT ${export}
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
            COMPONENT ${component} NAMELINK_COMPONENT development
        FILE_SET HEADERS DESTINATION ${orvel_header_dir} COMPONENT development
        FILE_SET generated_headers DESTINATION ${orvel_header_dir} COMPONENT development)
    install(EXPORT ${export}
        NAMESPACE Orvel::
        DESTINATION ${orvel_cmake_dir}
        COMPONENT development)
endfunction()
orvel_install_library(orvel OrvelTargets runtime)
if(TARGET orvel_show)
    orvel_install_library(orvel_show OrvelShowTargets show)
    # It finds liborvel beside itself, wherever the prefix is; in /usr the system does.
    if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
        set_target_properties(orvel_show PROPERTIES INSTALL_RPATH "$ORIGIN")
    endif()
endif()
configure_package_config_file(
    "${CMAKE_CURRENT_LIST_DIR}/OrvelConfig.cmake.in" "${PROJECT_BINARY_DIR}/OrvelConfig.cmake"
    INSTALL_DESTINATION ${orvel_cmake_dir})
# Before 1.0 a new minor version may change the interface.
write_basic_package_version_file(
    "${PROJECT_BINARY_DIR}/OrvelConfigVersion.cmake" COMPATIBILITY SameMinorVersion)
install(FILES
    "${PROJECT_BINARY_DIR}/OrvelConfig.cmake" "${PROJECT_BINARY_DIR}/OrvelConfigVersion.cmake"
    DESTINATION ${orvel_cmake_dir}
    COMPONENT development)

# The prefix is computed from the file's location, so that an installed tree can be moved.
set(orvel_pc_dir "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
file(RELATIVE_PATH orvel_pc_prefix "/${orvel_pc_dir}" "/")
configure_file("${CMAKE_CURRENT_LIST_DIR}/orvel.pc.in" "${PROJECT_BINARY_DIR}/orvel.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/orvel.pc"
    DESTINATION ${orvel_pc_dir} COMPONENT development)
if(TARGET orvel_show)
    configure_file(
        "${CMAKE_CURRENT_LIST_DIR}/orvel-show.pc.in" "${PROJECT_BINARY_DIR}/orvel-show.pc" @ONLY)
    install(FILES "${PROJECT_BINARY_DIR}/orvel-show.pc"
        DESTINATION ${orvel_pc_dir} COMPONENT development)
endif()

if(TARGET orvel_cli)
    install(TARGETS orvel_cli RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tool)
    install(FILES "${PROJECT_SOURCE_DIR}/apps/orvel/completion/orvel.bash"
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
        RENAME orvel COMPONENT tool)
    install(DIRECTORY "${PROJECT_SOURCE_DIR}/examples/scenes"
        DESTINATION ${CMAKE_INSTALL_DATADIR}/orvel COMPONENT tool)
    install(FILES "${PROJECT_SOURCE_DIR}/docs/scene.schema.json"
        DESTINATION ${CMAKE_INSTALL_DATADIR}/orvel COMPONENT tool)
    # Manual pages, compressed as man expects them.
    find_program(ORVEL_GZIP gzip REQUIRED)
    file(GLOB pages CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/docs/man/*.1")
    foreach(source IN LISTS pages)
        get_filename_component(page "${source}" NAME)
        set(compressed "${PROJECT_BINARY_DIR}/man/${page}.gz")
        add_custom_command(OUTPUT "${compressed}"
            COMMAND ${CMAKE_COMMAND} -E make_directory "${PROJECT_BINARY_DIR}/man"
            COMMAND ${ORVEL_GZIP} -9nc "${source}" > "${compressed}"
            DEPENDS "${source}" VERBATIM)
        list(APPEND orvel_man_pages "${compressed}")
    endforeach()
    add_custom_target(man ALL DEPENDS ${orvel_man_pages})
    install(FILES ${orvel_man_pages} DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tool)

    # The tool finds the library relative to itself in any prefix; in /usr the system does.
    if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
        file(RELATIVE_PATH orvel_bin_to_lib "/${CMAKE_INSTALL_BINDIR}" "/${CMAKE_INSTALL_LIBDIR}")
        set_target_properties(orvel_cli PROPERTIES INSTALL_RPATH "$ORIGIN/${orvel_bin_to_lib}")
    endif()

    # The service and its options, written for the prefix.
    set(orvel_sysconfdir "${CMAKE_INSTALL_SYSCONFDIR}")
    if(CMAKE_INSTALL_PREFIX STREQUAL "/usr")
        set(orvel_sysconfdir "${CMAKE_INSTALL_FULL_SYSCONFDIR}")
    endif()
    install(CODE "
        set(bindir \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_BINDIR}\")
        set(sysconfdir \"${orvel_sysconfdir}\")
        cmake_path(ABSOLUTE_PATH sysconfdir BASE_DIRECTORY \"\${CMAKE_INSTALL_PREFIX}\")
        configure_file(
            \"${PROJECT_SOURCE_DIR}/packaging/orvel.service.in\"
            \"${PROJECT_BINARY_DIR}/orvel.service\" @ONLY)"
        COMPONENT tool)
    install(FILES "${PROJECT_BINARY_DIR}/orvel.service"
        DESTINATION lib/systemd/system COMPONENT tool)
    install(FILES "${PROJECT_SOURCE_DIR}/packaging/orvel.default"
        DESTINATION ${orvel_sysconfdir}/default RENAME orvel COMPONENT tool)
endif()
