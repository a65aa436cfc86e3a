# Compiles through ccache where it is installed, unless another launcher was asked for.
find_program(CCACHE_PROGRAM ccache)
mark_as_advanced(CCACHE_PROGRAM)
foreach(language C CXX)
  if(CCACHE_PROGRAM AND NOT DEFINED CMAKE_${language}_COMPILER_LAUNCHER)
    set(CMAKE_${language}_COMPILER_LAUNCHER ${CCACHE_PROGRAM})
  endif()
endforeach()
