# Warnings are errors in every target of the project.
function(keel_warnings target)
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Werror)
    # GCC 12 reports impossible overlaps inside std::basic_string at -O2 and above (its bug 105329).
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        target_compile_options(${target} PRIVATE -Wno-restrict)
    endif()
endfunction()
