# Installable CMake package (find_package(QXFoundation)) and pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS QXFoundation EXPORT QXFoundationTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/QXFoundation
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
    FILES_MATCHING PATTERN "*.h")
install(FILES ${PROJECT_BINARY_DIR}/include/QXFoundation/qxfoundation_export.h
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/QXFoundation)

set(_qx_cmake_dir ${CMAKE_INSTALL_LIBDIR}/cmake/QXFoundation)
install(EXPORT QXFoundationTargets NAMESPACE QXFoundation:: DESTINATION ${_qx_cmake_dir})
export(EXPORT QXFoundationTargets NAMESPACE QXFoundation::
    FILE ${PROJECT_BINARY_DIR}/QXFoundationTargets.cmake)

configure_package_config_file(cmake/QXFoundationConfig.cmake.in
    ${PROJECT_BINARY_DIR}/QXFoundationConfig.cmake
    INSTALL_DESTINATION ${_qx_cmake_dir})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/QXFoundationConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/QXFoundationConfig.cmake
              ${PROJECT_BINARY_DIR}/QXFoundationConfigVersion.cmake
    DESTINATION ${_qx_cmake_dir})

# Relative to the .pc file, so the installed tree can be moved.
file(RELATIVE_PATH QX_PC_RELATIVE_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(cmake/QXFoundation.pc.in ${PROJECT_BINARY_DIR}/QXFoundation.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/QXFoundation.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
