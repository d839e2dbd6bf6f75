# The Debian packages: the library, what programs are built with, and the program. Scripts/package makes them.
find_program(TAVLO_GZIP gzip REQUIRED)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tavlo)
set(CPACK_PACKAGE_CONTACT "The Tavlo authors <authors@tavlo.example>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")  # each package has its own as its first line
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ
                                                WORLD_EXECUTE)
set(CPACK_COMPONENTS_ALL library development tool)

# A compressed copy that holds no time, so that the same tree makes the same packages.
function(tavlo_compressed source result)
  execute_process(COMMAND ${TAVLO_GZIP} -9 --no-name --stdout INPUT_FILE ${PROJECT_SOURCE_DIR}/${source}
                  OUTPUT_FILE ${PROJECT_BINARY_DIR}/${result} COMMAND_ERROR_IS_FATAL ANY)
endfunction()
tavlo_compressed(Packaging/debian/changelog changelog.gz)
tavlo_compressed(Packaging/tavlo.1 tavlo.1.gz)
install(FILES ${PROJECT_BINARY_DIR}/tavlo.1.gz DESTINATION share/man/man1 COMPONENT tool)

# What the three have in common.
function(tavlo_package component name section)
  string(TOUPPER ${component} key)
  set(CPACK_DEBIAN_${key}_PACKAGE_NAME ${name} PARENT_SCOPE)
  set(CPACK_DEBIAN_${key}_PACKAGE_SECTION ${section} PARENT_SCOPE)
  install(FILES Packaging/debian/copyright ${PROJECT_BINARY_DIR}/changelog.gz DESTINATION share/doc/${name}
          COMPONENT ${component})
endfunction()

set(libraryPackage libtavlo${TAVLO_SOVERSION})
tavlo_package(library ${libraryPackage} libs)
set(CPACK_COMPONENT_LIBRARY_DESCRIPTION "text template engine - shared library
Tavlo fills texts with data: a program compiles a template once and renders it
as often as it likes, with its own objects and functions in it.

This package holds the library that such programs are run with.")
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SHLIBDEPS ON)
configure_file(Packaging/debian/shlibs.in shlibs @ONLY)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_CONTROL_EXTRA ${PROJECT_BINARY_DIR}/shlibs ${PROJECT_SOURCE_DIR}/Packaging/debian/triggers)

tavlo_package(development libtavlo-dev libdevel)
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "text template engine - headers
Tavlo fills texts with data: a program compiles a template once and renders it
as often as it likes, with its own objects and functions in it.

This package holds what such programs are built with: the headers, and what
CMake and pkg-config ask for.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${libraryPackage} (= ${PROJECT_VERSION})")

tavlo_package(tool tavlo utils)
set(CPACK_COMPONENT_TOOL_DESCRIPTION "text template engine - program
Tavlo fills texts with data. This package holds the program that renders a
template with data from JSON files.")
set(CPACK_DEBIAN_TOOL_PACKAGE_SHLIBDEPS ON)

include(CPack)
