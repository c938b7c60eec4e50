# Plug-in objects for the tests, one a name: NAME.so holds the classes NAMEProvider, NAMEService and NAMEOdd. The tests
# put them into folders of their own, with the description that each case needs.
foreach(name Alpha Beta Gamma Delta Refused)
    add_library(plugin_${name} MODULE "${CMAKE_CURRENT_LIST_DIR}/module/TestPlugIn.cpp")
    target_link_libraries(plugin_${name} PRIVATE dmf::dmf dmf_options)
    target_compile_definitions(plugin_${name} PRIVATE TEST_PLUGIN_PROVIDER=${name}Provider
                               TEST_PLUGIN_SERVICE=${name}Service TEST_PLUGIN_ODD=${name}Odd)
    set_target_properties(plugin_${name} PROPERTIES PREFIX "" OUTPUT_NAME ${name}
                          LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}/test-plugins")
    foreach(area platform plugins discovery devices factories)
        if(TARGET test_${area})
            add_dependencies(test_${area} plugin_${name})
        endif()
    endforeach()
endforeach()
