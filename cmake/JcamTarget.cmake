# Compiler options of every target: language level, warnings and, if a preset asks for them,
# sanitizers.

set(JCAM_SANITIZE "" CACHE STRING "Sanitizers for -fsanitize=, for example address,undefined")

option(JCAM_WERROR "Take warnings for errors" ${PROJECT_IS_TOP_LEVEL})

function(jcam_target_defaults target)
    # Installed headers need only C++17.
    target_compile_features(${target} PRIVATE cxx_std_20 INTERFACE cxx_std_17)
    set_target_properties(${target} PROPERTIES
        CXX_EXTENSIONS OFF
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON
        POSITION_INDEPENDENT_CODE ON)
    target_compile_options(${target} PRIVATE
        -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wnon-virtual-dtor
        -Wold-style-cast -Woverloaded-virtual -Wformat=2 -Wundef $<$<BOOL:${JCAM_WERROR}>:-Werror>
        # Lets the compiler inline calls within a library: no other one replaces the function.
        -fno-semantic-interposition)
    if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
        target_compile_options(${target} PRIVATE -Wthread-safety -Wthread-safety-beta)
    endif()
    if(JCAM_SANITIZE)
        target_compile_options(${target} PRIVATE
            -fsanitize=${JCAM_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
        target_link_options(${target} PRIVATE -fsanitize=${JCAM_SANITIZE})
        target_compile_definitions(${target} PRIVATE JCAM_SANITIZED)
        if(JCAM_SANITIZE MATCHES "thread" AND CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
            # ThreadSanitizer does not model fences. No order between two threads depends on a fence
            # alone: fences are for readers in a signal handler.
            target_compile_options(${target} PRIVATE -Wno-tsan)
        endif()
    endif()
endfunction()
