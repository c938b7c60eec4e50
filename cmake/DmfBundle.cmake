# dmf_add_bundle(NAME <name> SOURCES <files> [LIBRARIES <targets>] [MOCK])
#
# Builds the plug-in <name> as <name>.bundle with the Info.plist that stands beside the CMake file. Regular bundles land
# in the library's plug-in folder, MOCK ones in the folder MockPlugIns beside it: programs look for mock plug-ins in
# /var/cache/DMF/MockPlugIns, where nothing is put unasked, or register them themselves.
function(dmf_add_bundle)
    cmake_parse_arguments(arg "MOCK" "NAME" "SOURCES;LIBRARIES" ${ARGN})
    if(arg_MOCK)
        set(folder "${CMAKE_BINARY_DIR}/lib/dmf/MockPlugIns/${arg_NAME}.bundle")
        set(destination "${CMAKE_INSTALL_LIBDIR}/dmf/MockPlugIns/${arg_NAME}.bundle")
    else()
        set(folder "${CMAKE_BINARY_DIR}/lib/dmf/PlugIns/${arg_NAME}.bundle")
        set(destination "${CMAKE_INSTALL_LIBDIR}/dmf/PlugIns/${arg_NAME}.bundle")
    endif()
    add_library(${arg_NAME} MODULE ${arg_SOURCES})
    set_property(GLOBAL APPEND PROPERTY DMF_BUNDLES ${arg_NAME})
    target_link_libraries(${arg_NAME} PRIVATE dmf::dmf dmf_options ${arg_LIBRARIES})
    set_target_properties(${arg_NAME} PROPERTIES PREFIX "" LIBRARY_OUTPUT_DIRECTORY "${folder}")
    configure_file("${CMAKE_CURRENT_SOURCE_DIR}/Info.plist" "${folder}/Info.plist" COPYONLY)
    install(TARGETS ${arg_NAME} LIBRARY DESTINATION "${destination}")
    install(FILES "${folder}/Info.plist" DESTINATION "${destination}")
endfunction()
