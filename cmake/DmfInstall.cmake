include(CMakePackageConfigHelpers)

install(DIRECTORY "${PROJECT_SOURCE_DIR}/include/dmf" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}"
        FILES_MATCHING PATTERN "*.h")
install(EXPORT dmfTargets NAMESPACE dmf:: DESTINATION "${CMAKE_INSTALL_LIBDIR}/cmake/dmf")
configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/dmfConfig.cmake.in" "${PROJECT_BINARY_DIR}/dmfConfig.cmake"
                              INSTALL_DESTINATION "${CMAKE_INSTALL_LIBDIR}/cmake/dmf")
write_basic_package_version_file("${PROJECT_BINARY_DIR}/dmfConfigVersion.cmake" COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/dmfConfig.cmake" "${PROJECT_BINARY_DIR}/dmfConfigVersion.cmake"
        DESTINATION "${CMAKE_INSTALL_LIBDIR}/cmake/dmf")
file(RELATIVE_PATH dmf_include_from_pkgconfig "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/${CMAKE_INSTALL_INCLUDEDIR}")
configure_file("${PROJECT_SOURCE_DIR}/cmake/dmf.pc.in" "${PROJECT_BINARY_DIR}/dmf.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/dmf.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
