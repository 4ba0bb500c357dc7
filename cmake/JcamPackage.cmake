# What `cmake --install` and CPack install: the library, its headers, the files by which CMake and
# pkg-config find them, and jlog, which reads what the library writes. A host build adds the stand-ins,
# which the library needs to load.

include(CMakePackageConfigHelpers)

set(targets jcam_jlog)
if(NOT ANDROID)
    list(APPEND targets jcam_platform jcam_liblog jlc_vnd)
    # The libraries are installed in one folder, wherever that is.
    set_target_properties(jcam_jlog jcam_platform jlc_vnd PROPERTIES INSTALL_RPATH "$ORIGIN")
    install(DIRECTORY
            ${PROJECT_SOURCE_DIR}/platform/include/
            ${PROJECT_SOURCE_DIR}/platform/liblog/include/
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/jcam_platform COMPONENT development)
endif()
install(TARGETS ${targets} EXPORT jcam_jlog
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime
    NAMELINK_COMPONENT development)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
install(FILES ${PROJECT_SOURCE_DIR}/README.md ${PROJECT_SOURCE_DIR}/CHANGELOG.md
    DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development)
# README refers to these.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/docs
    DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT development
    PATTERN Doxyfile EXCLUDE)
install(FILES ${PROJECT_SOURCE_DIR}/platform/README.md
    DESTINATION ${CMAKE_INSTALL_DOCDIR}/platform COMPONENT development)

if(JCAM_BUILD_TOOLS)
    install(PROGRAMS ${PROJECT_BINARY_DIR}/tools/jlog/jlog
        DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
    set(share ${PROJECT_SOURCE_DIR}/tools/jlog/share)
    install(FILES ${share}/jlog.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
    install(FILES ${share}/jlog.bash COMPONENT tools RENAME jlog
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions)
    install(FILES ${share}/jcam_jlog.lnav.json COMPONENT tools
        DESTINATION ${CMAKE_INSTALL_DATADIR}/jcam-jlog-tools)
endif()

# CMake: find_package(jcam_jlog), target jcam::jlog; on a host also jcam::platform and jcam::jlc_vnd.
set(configFolder ${CMAKE_INSTALL_LIBDIR}/cmake/jcam_jlog)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/jcam_jlogConfig.cmake.in
    ${PROJECT_BINARY_DIR}/jcam_jlogConfig.cmake INSTALL_DESTINATION ${configFolder})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/jcam_jlogConfigVersion.cmake
    # Before 1.0 a minor version may change everything.
    COMPATIBILITY SameMinorVersion)
install(EXPORT jcam_jlog NAMESPACE jcam:: DESTINATION ${configFolder} COMPONENT development
    FILE jcam_jlogTargets.cmake)
install(FILES
        ${PROJECT_BINARY_DIR}/jcam_jlogConfig.cmake
        ${PROJECT_BINARY_DIR}/jcam_jlogConfigVersion.cmake
    DESTINATION ${configFolder} COMPONENT development)

# pkg-config: jcam_jlog, and on a host jcam_platform for programs that call the stand-ins themselves.
# Paths are relative to the file, so that an installed tree may be moved, unless they were given as
# absolute ones.
file(RELATIVE_PATH JCAM_PC_PREFIX
    ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" JCAM_PC_PREFIX "${JCAM_PC_PREFIX}")
foreach(folder IN ITEMS LIBDIR INCLUDEDIR)
    set(JCAM_PC_${folder} "\${prefix}/${CMAKE_INSTALL_${folder}}")
    if(IS_ABSOLUTE "${CMAKE_INSTALL_${folder}}")
        set(JCAM_PC_${folder} "${CMAKE_INSTALL_${folder}}")
    endif()
endforeach()
foreach(module IN ITEMS jcam_jlog jcam_platform)
    if(module STREQUAL jcam_jlog OR NOT ANDROID)
        configure_file(${CMAKE_CURRENT_LIST_DIR}/${module}.pc.in ${PROJECT_BINARY_DIR}/${module}.pc
            @ONLY)
        install(FILES ${PROJECT_BINARY_DIR}/${module}.pc
            DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
    endif()
endforeach()

if(ANDROID)
    return()
endif()
# Debian packages of a host build, by `cpack`.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "The jcam_jlog maintainers")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime development)
if(JCAM_BUILD_TOOLS)
    list(APPEND CPACK_COMPONENTS_ALL tools)
endif()
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libjcam-jlog${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION
    "The shared library, and the stand-ins for Android's interfaces that it runs on here.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libjcam-jlog-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "libjcam-jlog${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION
    "What it takes to build a program with libjcam_jlog: headers, CMake package, pkg-config files.")
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME jcam-jlog-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_TOOLS_DESCRIPTION
    "jlog, which reads the log files of libjcam_jlog. It needs nothing of the library.")
# Where dpkg-shlibdeps finds the libraries of these packages.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
    ${PROJECT_BINARY_DIR}/platform ${PROJECT_BINARY_DIR}/jlog)
include(CPack)
