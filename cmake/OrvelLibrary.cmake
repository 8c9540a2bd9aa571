# What our shared libraries have in common.
include(GenerateExportHeader)

# The objects of a library are a target of their own, so that tests can link them with stand-ins and reach
# what the shared library hides: orvel_library_objects(TARGET sources...)
function(orvel_library_objects target)
    add_library(${target} OBJECT ${ARGN})
    set_target_properties(${target} PROPERTIES
        POSITION_INDEPENDENT_CODE ON
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON
        CXX_EXTENSIONS OFF)
    target_include_directories(${target}
        PUBLIC ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR}/include)
    target_link_libraries(${target} PRIVATE orvel_options)
endfunction()

# The shared library of the objects TARGET_objects: orvel_shared_library(TARGET headers...). It exports what
# cmake/TARGET.map says. The caller links what it needs.
function(orvel_shared_library target)
    set(export_header ${PROJECT_BINARY_DIR}/include/${target}_export.h)
    add_library(${target} SHARED)
    target_sources(${target}
        PRIVATE $<TARGET_OBJECTS:${target}_objects>
        PUBLIC FILE_SET HEADERS
            BASE_DIRS ${PROJECT_SOURCE_DIR}
            FILES ${ARGN}
        # A separate file set, because a build folder within the source tree makes its base a subfolder
        # of the other one, which CMake does not allow in one set.
        PUBLIC FILE_SET generated_headers TYPE HEADERS
            BASE_DIRS ${PROJECT_BINARY_DIR}/include
            FILES ${export_header})
    generate_export_header(${target} BASE_NAME ${target} EXPORT_FILE_NAME ${export_header})
    target_compile_features(${target} PUBLIC cxx_std_20)
    target_link_libraries(${target} PRIVATE $<BUILD_INTERFACE:orvel_options>)
    set(symbols ${PROJECT_SOURCE_DIR}/cmake/${target}.map)
    # A host may unload the library while threads of ours or of OpenAL, or back ends of its kinds, are
    # alive: it then stays loaded.
    # Calls of our own exported functions are bound at link time, not by the procedure linkage table.
    target_link_options(${target} PRIVATE
        -Wl,--as-needed -Wl,--version-script=${symbols} -Wl,-z,nodelete -Wl,-Bsymbolic-functions)
    # Undefined symbols are errors, except with sanitizers, whose symbols clang links into programs only.
    if(NOT (ORVEL_SANITIZE AND CMAKE_CXX_COMPILER_ID MATCHES "Clang"))
        target_link_options(${target} PRIVATE -Wl,-z,defs)
    endif()
    set_target_properties(${target} PROPERTIES
        LINK_DEPENDS ${symbols}
        LINKER_LANGUAGE CXX
        VERSION ${PROJECT_VERSION}
        # Before 1.0, minor versions may break the interface.
        SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}
        VERIFY_INTERFACE_HEADER_SETS ON)
endfunction()
