# What every target of ours is compiled with. Floating point is behaviour: no contraction, no fast-math, and one
# baseline instruction set; wider code is compiled function by function and chosen at run time.
function(zorvan_target_settings target)
    target_compile_features(${target} PUBLIC cxx_std_20)
    set_target_properties(${target} PROPERTIES
        CXX_EXTENSIONS OFF
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON)
    target_compile_options(${target} PRIVATE
        -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Wold-style-cast -Wcast-qual -Wconversion
        -Wno-sign-conversion -Wno-psabi $<$<BOOL:${ZORVAN_WERROR}>:-Werror>
        -ffp-contract=off -msse4.2)
    if(ZORVAN_SANITIZE)
        target_compile_options(${target} PRIVATE
            -fsanitize=${ZORVAN_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
        if(ZORVAN_SANITIZE MATCHES "address.*undefined")
            # The address sanitizer reports both itself; without them clang takes a sixth less time.
            target_compile_options(${target} PRIVATE -fno-sanitize=null,object-size)
        endif()
        if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
            # g++ 12 takes <regex> for uninitialised once it is instrumented.
            target_compile_options(${target} PRIVATE -Wno-maybe-uninitialized)
        endif()
        target_link_options(${target} PUBLIC -fsanitize=${ZORVAN_SANITIZE})
    endif()
endfunction()

# zorvan_precompile(TARGET HEADER...): what most sources of the target include is parsed once. zorvan_precompile_sanitized
# does so with ZORVAN_PRECOMPILE only: the build that users take parses each source of the libraries and the program alone,
# so that each names what it needs.
function(zorvan_precompile target)
    target_precompile_headers(${target} PRIVATE
        <algorithm> <array> <cmath> <cstddef> <cstdint> <filesystem> <functional> <limits> <map> <memory> <optional>
        <random> <span> <sstream> <stdexcept> <string> <string_view> <utility> <vector> ${ARGN})
    set_target_properties(${target} PROPERTIES PCH_INSTANTIATE_TEMPLATES OFF) # clang 14 crashes on some
    # What ccache needs to see through them.
    target_compile_options(${target} PRIVATE
        $<$<CXX_COMPILER_ID:GNU>:-fpch-preprocess> $<$<CXX_COMPILER_ID:Clang>:SHELL:-Xclang -fno-pch-timestamp>)
endfunction()

function(zorvan_precompile_sanitized target)
    if(ZORVAN_PRECOMPILE)
        zorvan_precompile(${target} ${ARGN})
    endif()
endfunction()

# zorvan_unite_sanitized(TARGET FILE...): with ZORVAN_UNITE the sources of a folder are compiled as a few large ones, which
# takes a third of the time; not so the files named, which share names with their neighbours.
function(zorvan_unite_sanitized target)
    if(NOT ZORVAN_UNITE)
        return()
    endif()
    get_target_property(sources ${target} SOURCES)
    get_target_property(folder ${target} SOURCE_DIR)
    list(TRANSFORM ARGN PREPEND ${folder}/ OUTPUT_VARIABLE apart)
    foreach(source IN LISTS sources)
        cmake_path(ABSOLUTE_PATH source BASE_DIRECTORY ${folder} NORMALIZE)
        if(NOT source MATCHES "\\.cpp$" OR source IN_LIST apart)
            continue()
        endif()
        cmake_path(GET source PARENT_PATH room)
        cmake_path(GET room FILENAME room)
        math(EXPR count_${room} "0${count_${room}} + 1")
        math(EXPR part "${count_${room}} / 12")
        set_source_files_properties(${source} TARGET_DIRECTORY ${target} PROPERTIES UNITY_GROUP ${room}_${part})
    endforeach()
    set_target_properties(${target} PROPERTIES UNITY_BUILD ON UNITY_BUILD_MODE GROUP)
    # A name may hide one in the unnamed namespace of a neighbour, and such a namespace may look as if it stood in a header.
    target_compile_options(${target} PRIVATE -Wno-shadow $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
endfunction()

# zorvan_library(TARGET): what all installed libraries share. zorvan_<name> is zorvan::<name> for hosts. Headers of the
# file set HEADERS are installed, and `all_verify_interface_header_sets` compiles each of them alone.
function(zorvan_library target)
    string(REGEX REPLACE "^zorvan_" "" name ${target})
    add_library(zorvan::${name} ALIAS ${target})
    zorvan_target_settings(${target})
    # Interfaces may still change from one minor version to the next, so each has a name of its own for the loader.
    set_target_properties(${target} PROPERTIES
        EXPORT_NAME ${name}
        VERSION ${PROJECT_VERSION}
        SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR}
        INSTALL_RPATH "$ORIGIN"
        VERIFY_INTERFACE_HEADER_SETS ON)
    # Headers hold arithmetic whose order is behaviour, so hosts must not contract it either.
    target_compile_options(${target} INTERFACE -ffp-contract=off)
    target_include_directories(${target} PUBLIC
        $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}>
        $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
endfunction()

# Once all of its headers are listed.
function(zorvan_install_library target)
    install(TARGETS ${target} EXPORT zorvanTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development
        FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
endfunction()
