# What is installed, where, and the packages made of it: the library, what programs are built with, and the program.
include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

set(packageFolder ${CMAKE_INSTALL_LIBDIR}/cmake/Tavlo)

install(TARGETS ${TAVLO_LIBRARY} EXPORT Tavlo
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library NAMELINK_COMPONENT development
        ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_BINARY_DIR}/include/tavlo DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)

# find_package(Tavlo CONFIG)
install(EXPORT Tavlo NAMESPACE Tavlo:: FILE TavloTargets.cmake DESTINATION ${packageFolder} COMPONENT development)
configure_package_config_file(Packaging/TavloConfig.cmake.in TavloConfig.cmake INSTALL_DESTINATION ${packageFolder}
                              NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(TavloConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/TavloConfig.cmake ${CMAKE_CURRENT_BINARY_DIR}/TavloConfigVersion.cmake
        DESTINATION ${packageFolder} COMPONENT development)

# pkg-config tavlo. Paths are told from the place of the file, so that what is installed may be moved.
file(RELATIVE_PATH TAVLO_ROOT ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
set(TAVLO_PRIVATE_REQUIREMENTS "")
if(NOT TAVLO_SHARED)
  set(TAVLO_PRIVATE_REQUIREMENTS "Requires.private: oniguruma, libutf8proc\nLibs.private: -pthread")
endif()
configure_file(Packaging/tavlo.pc.in tavlo.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/tavlo.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

# In the system's own folders are the files of a package.
set(isForSystem FALSE)
if(PROJECT_IS_TOP_LEVEL AND CMAKE_INSTALL_PREFIX STREQUAL "/usr")
  set(isForSystem TRUE)
endif()
if(TAVLO_TOOL)
  install(TARGETS tavlo RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tool)
endif()
if(TAVLO_TOOL AND NOT isForSystem)
  install(FILES Packaging/tavlo.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tool)
endif()
if(isForSystem)
  include(Packaging/Debian.cmake)
endif()
