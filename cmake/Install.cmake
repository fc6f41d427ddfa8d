# SPDX-License-Identifier: Apache-2.0
# cmake --install: the client library as a CMake package and a pkg-config module, in the component
# `displayengine`, the media client's library likewise in `media`, and the platform's stand-in in
# the component `platform`. On a device the platform is the system's own and the last one does not
# apply. InstallTools.cmake has the rest.
include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/DisplayEngine)
set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

set_target_properties(displayengine_platform PROPERTIES
    EXPORT_NAME platform VERSION ${PROJECT_VERSION} SOVERSION ${PROJECT_VERSION_MAJOR})
# An installed library finds the stand-in beside it, wherever the tree is put.
set_target_properties(displayengine PROPERTIES INSTALL_RPATH $ORIGIN)

install(TARGETS displayengine EXPORT DisplayEngineTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT displayengine
    FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/displayengine COMPONENT displayengine)
install(EXPORT DisplayEngineTargets NAMESPACE DisplayEngine:: DESTINATION ${package_dir}
    COMPONENT displayengine)

install(TARGETS displayengine_media EXPORT DisplayEngineMediaTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT media
    FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/displayengine COMPONENT media)
install(EXPORT DisplayEngineMediaTargets NAMESPACE DisplayEngine:: DESTINATION ${package_dir}
    COMPONENT media)

install(TARGETS displayengine_platform EXPORT DisplayEnginePlatformTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT platform
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/displayengine-platform)
install(DIRECTORY platform/include/ COMPONENT platform
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/displayengine-platform FILES_MATCHING PATTERN *.h)
install(EXPORT DisplayEnginePlatformTargets NAMESPACE DisplayEngine:: DESTINATION ${package_dir}
    COMPONENT platform)

configure_package_config_file(cmake/DisplayEngineConfig.cmake.in
    ${PROJECT_BINARY_DIR}/package/DisplayEngineConfig.cmake INSTALL_DESTINATION ${package_dir}
    NO_SET_AND_CHECK_MACRO NO_CHECK_REQUIRED_COMPONENTS_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/package/DisplayEngineConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/package/DisplayEngineConfig.cmake
    ${PROJECT_BINARY_DIR}/package/DisplayEngineConfigVersion.cmake
    DESTINATION ${package_dir} COMPONENT displayengine)

# The modules name their folders relative to themselves: the prefix is known at installation only.
file(RELATIVE_PATH pc_libdir ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_FULL_LIBDIR})
file(RELATIVE_PATH pc_includedir ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig
     ${CMAKE_INSTALL_FULL_INCLUDEDIR})
foreach(module displayengine displayengine-media displayengine-platform)
    configure_file(cmake/${module}.pc.in ${PROJECT_BINARY_DIR}/package/${module}.pc @ONLY)
endforeach()
install(FILES ${PROJECT_BINARY_DIR}/package/displayengine.pc
    DESTINATION ${pkgconfig_dir} COMPONENT displayengine)
install(FILES ${PROJECT_BINARY_DIR}/package/displayengine-media.pc
    DESTINATION ${pkgconfig_dir} COMPONENT media)
install(FILES ${PROJECT_BINARY_DIR}/package/displayengine-platform.pc
    DESTINATION ${pkgconfig_dir} COMPONENT platform)
