# Headers go below include/handheld/, so that `#include "power/PowerManager.h"` reads the same in
# the tree and when installed.
include(CMakePackageConfigHelpers)

set(HANDHELD_INCLUDE_DIR ${CMAKE_INSTALL_INCLUDEDIR}/handheld)
set(HANDHELD_CONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/handheld)

set(exported handheld)
if(TARGET gui)
  list(APPEND exported gui)
  install(DIRECTORY gui DESTINATION ${HANDHELD_INCLUDE_DIR} FILES_MATCHING PATTERN "*.h")
endif()
install(DIRECTORY src/ DESTINATION ${HANDHELD_INCLUDE_DIR} FILES_MATCHING PATTERN "*.h")
set_target_properties(${exported} PROPERTIES VERSION ${PROJECT_VERSION}
                                             SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
install(TARGETS ${exported} EXPORT handheldTargets INCLUDES DESTINATION ${HANDHELD_INCLUDE_DIR})
install(EXPORT handheldTargets NAMESPACE handheld:: DESTINATION ${HANDHELD_CONFIG_DIR})

configure_package_config_file(
  cmake/handheldConfig.cmake.in ${PROJECT_BINARY_DIR}/handheldConfig.cmake
  INSTALL_DESTINATION ${HANDHELD_CONFIG_DIR})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/handheldConfigVersion.cmake
                                 COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/handheldConfig.cmake
              ${PROJECT_BINARY_DIR}/handheldConfigVersion.cmake
        DESTINATION ${HANDHELD_CONFIG_DIR})

# The same for builds that do not use CMake. The file finds the rest from its own folder.
file(RELATIVE_PATH HANDHELD_PC_PREFIX /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix)
set(HANDHELD_PC_GUI -l${HANDHELD_GUI})
if(TARGET gui)
  set(HANDHELD_PC_GUI -lhandheld_gui)
endif()
configure_file(cmake/handheld.pc.in ${PROJECT_BINARY_DIR}/handheld.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/handheld.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

foreach(target terminal_sim terminal-sim terminalctl)
  if(NOT TARGET ${target})
    continue()
  endif()
  install(TARGETS ${target})
  if(EXISTS ${PROJECT_SOURCE_DIR}/docs/man/${target}.1)
    install(FILES docs/man/${target}.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  endif()
endforeach()
