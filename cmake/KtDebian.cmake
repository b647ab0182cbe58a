# A pair of Debian packages, from a build that is configured for /usr: what programs need in order to run, and what building
# them needs. The preset `package` is such a build; `cpack` in its folder writes the packages.

set(runtime libclastool${PROJECT_VERSION_MAJOR})
install(
    FILES CHANGELOG.md
    DESTINATION share/doc/${runtime}
    RENAME changelog
    COMPONENT clastool-runtime)

set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL clastool-runtime clastool-dev)
set(CPACK_STRIP_FILES ON)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_PACKAGE_CONTACT "The clastool developers")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)

# What the libraries need is read from the libraries; their own entry is for packages that need them.
set(CPACK_DEBIAN_CLASTOOL-RUNTIME_PACKAGE_NAME ${runtime})
set(CPACK_DEBIAN_CLASTOOL-RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_CLASTOOL-RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_COMPONENT_CLASTOOL-RUNTIME_DESCRIPTION "The shared libraries libclastool and libktfoundation.")

set(CPACK_DEBIAN_CLASTOOL-DEV_PACKAGE_NAME libclastool-dev)
set(CPACK_DEBIAN_CLASTOOL-DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_CLASTOOL-DEV_PACKAGE_DEPENDS "${runtime} (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_CLASTOOL-DEV_DESCRIPTION
    "What building programs with libclastool takes: headers, CMake package, pkg-config file, documents, examples.")

include(CPack)
