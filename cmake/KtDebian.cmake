# A pair of Debian packages, from a build that is configured for /usr: what programs need in order to run, and what building
# them needs. The preset `package` is such a build; `cpack` in its folder writes the packages.

set(runtime libclastool${PROJECT_VERSION_MAJOR})
# Debian asks for a name and an address: those of who makes the package, as Debian's own tools take them. The project has no address,
# so without them stands one of a domain that is kept for nobody; packaging/debian/copyright says how to reach the project.
if(DEFINED ENV{DEBFULLNAME} AND DEFINED ENV{DEBEMAIL})
    set(CPACK_PACKAGE_CONTACT "$ENV{DEBFULLNAME} <$ENV{DEBEMAIL}>")
else()
    set(CPACK_PACKAGE_CONTACT "The clastool authors <clastool@example.org>")
endif()

# What Debian asks of each package: the licence, and the changes, packed.
find_program(GZIP gzip REQUIRED)
foreach(package IN ITEMS ${runtime}:clastool-runtime libclastool-dev:clastool-dev)
    string(REPLACE ":" ";" package ${package})
    list(GET package 0 name)
    list(GET package 1 component)
    install(
        FILES packaging/debian/copyright
        DESTINATION share/doc/${name}
        COMPONENT ${component})
    install(
        FILES ${PROJECT_BINARY_DIR}/changelog.gz
        DESTINATION share/doc/${name}
        COMPONENT ${component})
endforeach()
string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
configure_file(packaging/debian/changelog.in ${PROJECT_BINARY_DIR}/changelog @ONLY)
execute_process(
    COMMAND ${GZIP} -9 -n -c ${PROJECT_BINARY_DIR}/changelog
    OUTPUT_FILE ${PROJECT_BINARY_DIR}/changelog.gz COMMAND_ERROR_IS_FATAL ANY)

set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL clastool-runtime clastool-dev)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)

# What the libraries need is read from the libraries; their own entry is for packages that need them.
set(CPACK_DEBIAN_CLASTOOL-RUNTIME_PACKAGE_NAME ${runtime})
set(CPACK_DEBIAN_CLASTOOL-RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_CLASTOOL-RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_CLASTOOL-RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/debian/triggers)
set(CPACK_DEBIAN_CLASTOOL-RUNTIME_DESCRIPTION
    "Sorts measured objects into categories: by probability densities or nearest\nneighbours learnt from labelled data, or by decision trees. This package holds\nthe shared libraries libclastool, libclastool-kit and libktfoundation.")

set(CPACK_DEBIAN_CLASTOOL-DEV_PACKAGE_NAME libclastool-dev)
set(CPACK_DEBIAN_CLASTOOL-DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_CLASTOOL-DEV_PACKAGE_DEPENDS "${runtime} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_CLASTOOL-DEV_DESCRIPTION
    "Sorts measured objects into categories: by probability densities or nearest\nneighbours learnt from labelled data, or by decision trees. This package holds\nwhat building programs takes: headers, CMake package, pkg-config files,\ndocuments and examples.")

include(CPack)
