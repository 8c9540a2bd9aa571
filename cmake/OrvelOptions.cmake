# Compile options of all our own targets. Linked privately, so that they do not reach a project that
# uses the library.
add_library(orvel_options INTERFACE)
# A guarded member that is used without its lock is an error, see Vessa/Mutex.h. Only clang checks it.
set(ORVEL_LOCK_CHECKS -Wthread-safety -Werror=thread-safety)
target_compile_features(orvel_options INTERFACE cxx_std_20)
target_compile_options(orvel_options INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow $<$<COMPILE_LANGUAGE:CXX>:-Wnon-virtual-dtor> -Wcast-align
    -Wconversion -Wformat=2
    # clang's versions of these two are stricter than GCC's.
    $<$<CXX_COMPILER_ID:GNU>:-Wdouble-promotion>
    $<$<CXX_COMPILER_ID:Clang>:-Wno-sign-conversion>
    $<$<BOOL:${ORVEL_WARNINGS_AS_ERRORS}>:-Werror>
    "$<$<COMPILE_LANG_AND_ID:CXX,Clang>:${ORVEL_LOCK_CHECKS}>"
    # GCC 12 reports overlapping copies in "literal" + string when it optimises (its bug 105651).
    $<$<AND:$<COMPILE_LANG_AND_ID:CXX,GNU>,$<VERSION_LESS:$<CXX_COMPILER_VERSION>,13>>:-Wno-restrict>
    # Log lines name files relative to the source tree, and no build path ends up in a binary.
    -fmacro-prefix-map=${PROJECT_SOURCE_DIR}/=)
target_include_directories(orvel_options INTERFACE "${PROJECT_SOURCE_DIR}")
if(ORVEL_SANITIZE)
    target_compile_options(orvel_options INTERFACE
        -fsanitize=${ORVEL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(orvel_options INTERFACE -fsanitize=${ORVEL_SANITIZE})
    if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
        # The thread sanitizer does not understand Asio's fences; locks guard the same data.
        target_compile_options(orvel_options INTERFACE -Wno-tsan)
    endif()
endif()

find_program(ORVEL_CCACHE ccache)
if(ORVEL_CCACHE AND PROJECT_IS_TOP_LEVEL AND NOT CMAKE_CXX_COMPILER_LAUNCHER)
    set(CMAKE_CXX_COMPILER_LAUNCHER "${ORVEL_CCACHE}")
endif()

if(PROJECT_IS_TOP_LEVEL AND NOT CMAKE_BUILD_TYPE)
    set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "Build type" FORCE)
endif()
