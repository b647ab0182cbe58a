# What an installation holds. Component `clastool-runtime` is what a program needs in order to run, `clastool-dev` what
# building one needs beside that.

include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/clastool)

install(
    TARGETS ktfoundation clastool clastool-kit
    EXPORT clastool-targets
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT clastool-runtime
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
            COMPONENT clastool-runtime
            NAMELINK_COMPONENT clastool-dev
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT clastool-dev)
install(
    DIRECTORY foundation/include/kt include/clastool kit/include/clastool
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
    COMPONENT clastool-dev
    FILES_MATCHING
    PATTERN "*.h")

# Who copies the headers alone has the licence with them.
install(
    FILES LICENSE
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/clastool
    COMPONENT clastool-dev)

install(
    EXPORT clastool-targets
    NAMESPACE clastool::
    DESTINATION ${package_dir}
    COMPONENT clastool-dev)
configure_package_config_file(
    ${CMAKE_CURRENT_LIST_DIR}/clastool-config.cmake.in ${PROJECT_BINARY_DIR}/clastool-config.cmake
    INSTALL_DESTINATION ${package_dir}
    NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/clastool-config-version.cmake COMPATIBILITY SameMajorVersion)
install(
    FILES ${PROJECT_BINARY_DIR}/clastool-config.cmake ${PROJECT_BINARY_DIR}/clastool-config-version.cmake
    DESTINATION ${package_dir}
    COMPONENT clastool-dev)

# The .pc file finds the other folders from where it lies itself, so that an installation can be moved. That takes
# folders below the prefix; where one was given as an absolute path, all stay where they are.
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}" OR IS_ABSOLUTE "${CMAKE_INSTALL_INCLUDEDIR}")
    set(pc_prefix "${CMAKE_INSTALL_PREFIX}")
    set(pc_libdir "${CMAKE_INSTALL_FULL_LIBDIR}")
    set(pc_includedir "${CMAKE_INSTALL_FULL_INCLUDEDIR}")
else()
    file(RELATIVE_PATH up "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/")
    string(REGEX REPLACE "/$" "" up "${up}")
    set(pc_prefix "\${pcfiledir}/${up}")
    set(pc_libdir "\${prefix}/${CMAKE_INSTALL_LIBDIR}")
    set(pc_includedir "\${prefix}/${CMAKE_INSTALL_INCLUDEDIR}")
endif()
get_target_property(pc_libs clastool KT_PC_LIBS)
get_target_property(definitions ktfoundation INTERFACE_COMPILE_DEFINITIONS)
set(pc_cflags "")
if(definitions)
    list(JOIN definitions " -D" pc_cflags)
    string(PREPEND pc_cflags " -D")
endif()
configure_file(${CMAKE_CURRENT_LIST_DIR}/clastool.pc.in ${PROJECT_BINARY_DIR}/clastool.pc @ONLY)
configure_file(${CMAKE_CURRENT_LIST_DIR}/clastool-kit.pc.in ${PROJECT_BINARY_DIR}/clastool-kit.pc @ONLY)
install(
    FILES ${PROJECT_BINARY_DIR}/clastool.pc ${PROJECT_BINARY_DIR}/clastool-kit.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
    COMPONENT clastool-dev)

# The documents refer to each other and to the examples, so they keep their places.
if(KT_DEBIAN_PACKAGES)
    set(CMAKE_INSTALL_DOCDIR share/doc/libclastool-dev)
endif()
install(
    FILES README.md CHANGELOG.md LICENSE SECURITY.md
    DESTINATION ${CMAKE_INSTALL_DOCDIR}
    COMPONENT clastool-dev)
install(
    DIRECTORY docs examples
    DESTINATION ${CMAKE_INSTALL_DOCDIR}
    COMPONENT clastool-dev
    FILES_MATCHING
    REGEX "\\.(md|svg|png|cpp|h|csv|txt|args)$"
    PATTERN CMakeLists.txt EXCLUDE
    PATTERN __pycache__ EXCLUDE
    PATTERN known_words.txt EXCLUDE)
