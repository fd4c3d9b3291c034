# Warning set shared by every target of the project.
function(vc_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wshadow
                                           -Wcast-align -Wunused -Woverloaded-virtual
                                           -Wformat=2 -Wimplicit-fallthrough)
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    target_compile_options(${target} PRIVATE -Wthread-safety)
  endif()
  if(VC_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()
