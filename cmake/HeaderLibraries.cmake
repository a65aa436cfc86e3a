# header_library(NAME HEADER) gives the interface library NAME, for a library that is headers only, by
# one of them: CLI/CLI.hpp. A cross build uses the host's, and must not see the rest of /usr/include:
# hence the link.
function(header_library name header)
  if(TARGET ${name})
    return()
  endif()
  find_path(${name}_INCLUDE_DIR ${header} PATHS /usr/include REQUIRED NO_CMAKE_FIND_ROOT_PATH)
  mark_as_advanced(${name}_INCLUDE_DIR)
  get_filename_component(folder ${header} DIRECTORY)
  file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/headers/${name})
  file(CREATE_LINK ${${name}_INCLUDE_DIR}/${folder} ${PROJECT_BINARY_DIR}/headers/${name}/${folder}
       SYMBOLIC)
  add_library(${name} INTERFACE)
  target_include_directories(${name} SYSTEM INTERFACE ${PROJECT_BINARY_DIR}/headers/${name})
endfunction()
