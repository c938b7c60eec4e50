include(CMakePackageConfigHelpers)

install(DIRECTORY "${PROJECT_SOURCE_DIR}/include/dmf" DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}"
        FILES_MATCHING PATTERN "*.h")
set(dmf_package "${CMAKE_INSTALL_LIBDIR}/cmake/dmf")
set(dmf_plugin_dir "${CMAKE_INSTALL_LIBDIR}/dmf/PlugIns")
install(EXPORT dmfTargets NAMESPACE dmf:: DESTINATION "${dmf_package}")
configure_package_config_file("${PROJECT_SOURCE_DIR}/cmake/dmfConfig.cmake.in" "${PROJECT_BINARY_DIR}/dmfConfig.cmake"
                              INSTALL_DESTINATION "${dmf_package}" PATH_VARS dmf_plugin_dir)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/dmfConfigVersion.cmake" COMPATIBILITY SameMajorVersion)
install(FILES "${PROJECT_BINARY_DIR}/dmfConfig.cmake" "${PROJECT_BINARY_DIR}/dmfConfigVersion.cmake"
              "${PROJECT_SOURCE_DIR}/cmake/DmfBundle.cmake" DESTINATION "${dmf_package}")

# With a prefix that the system's loader does not search by itself, programs that are built by pkg-config's words find
# the library by their run path, as those built by CMake do. The prefix is known when it is installed.
file(RELATIVE_PATH dmf_include_from_pkgconfig "/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/${CMAKE_INSTALL_INCLUDEDIR}")
set(dmf_run_path "")
configure_file("${PROJECT_SOURCE_DIR}/cmake/dmf.pc.in" "${PROJECT_BINARY_DIR}/pkgconfig/system/dmf.pc" @ONLY)
set(dmf_run_path "-Wl,-rpath,\${libdir} ")
configure_file("${PROJECT_SOURCE_DIR}/cmake/dmf.pc.in" "${PROJECT_BINARY_DIR}/pkgconfig/own/dmf.pc" @ONLY)
install(CODE "
    set(kind own)
    if(CMAKE_INSTALL_PREFIX MATCHES \"^/usr/?$\")
        set(kind system)
    endif()
    file(INSTALL \"${PROJECT_BINARY_DIR}/pkgconfig/\${kind}/dmf.pc\"
         DESTINATION \"\${CMAKE_INSTALL_PREFIX}/${CMAKE_INSTALL_LIBDIR}/pkgconfig\")")
