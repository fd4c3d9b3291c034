# Warning set shared by every target of the project.
function(vc_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow
                                           -Wcast-align -Wunused -Woverloaded-virtual
                                           -Wformat=2 -Wimplicit-fallthrough)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    # FFmpeg's AV_TIME_BASE_Q is a C compound literal, which clang's
    # -Wpedantic flags in C++ wherever it is used.
    target_compile_options(${target} PRIVATE -Wthread-safety -Wno-c99-extensions)
  endif()
  if(VC_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
