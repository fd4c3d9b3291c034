# The SDK as a package: CorvaneCodecsConfig.cmake with its version file (for
# find_package) and corvane-codecs.pc (for pkg-config), both installed with
# paths relative to where they lie, so the installed tree can be moved.
# Included from the top-level CMakeLists.txt after the install folders are set.
include(CMakePackageConfigHelpers)

set(VC_PACKAGE_DIR ${CMAKE_CURRENT_LIST_DIR})
set(VC_PACKAGE_BUILD_DIR ${CMAKE_BINARY_DIR}/install)

if(WIN32)
  # The platform's own component runtime.
  set(VC_RUNTIME_FILE "")
  set(VC_RUNTIME_SYSTEM_LIBS ole32 oleaut32 uuid)
else()
  set(VC_RUNTIME_FILE ${CMAKE_SHARED_LIBRARY_PREFIX}vcrt${CMAKE_SHARED_LIBRARY_SUFFIX})
  set(VC_RUNTIME_SYSTEM_LIBS "")
endif()
set(VC_TOOL_FILE vccodecs${CMAKE_EXECUTABLE_SUFFIX})

configure_package_config_file(${VC_PACKAGE_DIR}/CorvaneCodecsConfig.cmake.in
  ${VC_PACKAGE_BUILD_DIR}/CorvaneCodecsConfig.cmake
  INSTALL_DESTINATION ${VC_INSTALL_CMAKEDIR}
  PATH_VARS VC_INSTALL_INCLUDEDIR VC_INSTALL_MODULEDIR CMAKE_INSTALL_LIBDIR CMAKE_INSTALL_BINDIR)
# A host built against 1.x runs with any later 1.y: the interfaces only grow.
write_basic_package_version_file(${VC_PACKAGE_BUILD_DIR}/CorvaneCodecsConfigVersion.cmake
  VERSION ${PROJECT_VERSION}
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${VC_PACKAGE_BUILD_DIR}/CorvaneCodecsConfig.cmake
  ${VC_PACKAGE_BUILD_DIR}/CorvaneCodecsConfigVersion.cmake
  DESTINATION ${VC_INSTALL_CMAKEDIR})

# pkg-config: the prefix is found from the .pc file's own folder.
set(VC_PC_INSTALLDIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH VC_PC_PREFIX_FROM_PCDIR /prefix/${VC_PC_INSTALLDIR} /prefix)
string(REGEX REPLACE "/$" "" VC_PC_PREFIX_FROM_PCDIR "${VC_PC_PREFIX_FROM_PCDIR}")
if(WIN32)
  set(VC_PC_LIBS "-lole32 -loleaut32 -luuid")
else()
  set(VC_PC_LIBS "-L\${libdir} -lvcrt")
endif()
configure_file(${VC_PACKAGE_DIR}/corvane-codecs.pc.in ${VC_PACKAGE_BUILD_DIR}/corvane-codecs.pc @ONLY)
install(FILES ${VC_PACKAGE_BUILD_DIR}/corvane-codecs.pc DESTINATION ${VC_PC_INSTALLDIR})
