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
        -Wno-sign-conversion -Wno-psabi -Werror
        -ffp-contract=off -msse4.2)
    if(ZORVAN_SANITIZE)
        target_compile_options(${target} PRIVATE
            -fsanitize=${ZORVAN_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
        if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
            # g++ 12 takes <regex> for uninitialised once it is instrumented.
            target_compile_options(${target} PRIVATE -Wno-maybe-uninitialized)
        endif()
        target_link_options(${target} PUBLIC -fsanitize=${ZORVAN_SANITIZE})
    endif()
endfunction()
