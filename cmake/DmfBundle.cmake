# dmf_add_bundle(NAME <name> SOURCES <files> [LIBRARIES <targets>] [DESCRIPTION <file>] [DESTINATION <folder>] [MOCK])
#
# Builds the plug-in <name> as <name>.bundle, with the object <name>.so and the description Info.plist that stands beside
# the CMake file, or <file>. In the build it lies in lib/dmf/PlugIns, which DMF_PLUGIN_PATH may name while it is
# developed. Installed, it lands in <folder>, by default where the library looks if both have the same prefix.
#
# MOCK ones get the folder MockPlugIns instead: programs look for mock plug-ins in /var/cache/DMF/MockPlugIns, where
# nothing is put unasked, or register them themselves.
function(dmf_add_bundle)
    cmake_parse_arguments(arg "MOCK" "NAME;DESCRIPTION;DESTINATION" "SOURCES;LIBRARIES" ${ARGN})
    if(NOT arg_NAME OR NOT arg_SOURCES OR arg_UNPARSED_ARGUMENTS)
        message(FATAL_ERROR "dmf_add_bundle needs NAME and SOURCES, and does not know: ${arg_UNPARSED_ARGUMENTS}")
    endif()
    set(kind PlugIns)
    if(arg_MOCK)
        set(kind MockPlugIns)
    endif()
    if(NOT arg_DESCRIPTION)
        set(arg_DESCRIPTION "${CMAKE_CURRENT_SOURCE_DIR}/Info.plist")
    endif()
    if(NOT arg_DESTINATION)
        get_property(home GLOBAL PROPERTY DMF_BUNDLE_HOME)
        set(arg_DESTINATION "${home}/${kind}")
    endif()
    set(folder "${CMAKE_BINARY_DIR}/lib/dmf/${kind}/${arg_NAME}.bundle")

    add_library(${arg_NAME} MODULE ${arg_SOURCES})
    set_property(GLOBAL APPEND PROPERTY DMF_BUNDLES ${arg_NAME})
    target_link_libraries(${arg_NAME} PRIVATE dmf::dmf $<TARGET_NAME_IF_EXISTS:dmf_options> ${arg_LIBRARIES})
    set_target_properties(${arg_NAME} PROPERTIES PREFIX "" SUFFIX ".so" LIBRARY_OUTPUT_DIRECTORY "${folder}"
                          CXX_VISIBILITY_PRESET hidden VISIBILITY_INLINES_HIDDEN ON)
    configure_file("${arg_DESCRIPTION}" "${folder}/Info.plist" COPYONLY)
    install(TARGETS ${arg_NAME} LIBRARY DESTINATION "${arg_DESTINATION}/${arg_NAME}.bundle")
    install(FILES "${folder}/Info.plist" DESTINATION "${arg_DESTINATION}/${arg_NAME}.bundle")
endfunction()
