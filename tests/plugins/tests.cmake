# Plug-in objects for the tests, one a name: NAME.so holds the classes NAMEProvider, NAMEService and NAMEOdd. The tests
# put them into folders of their own, with the description that each case needs.
# ThrowingClass throws as it announces its classes, ThrowingObject before that, Asking waits for another thread then.
foreach(name Alpha Beta Gamma Delta Refused ThrowingClass ThrowingObject Asking)
    if(name MATCHES "^Throwing")
        add_library(plugin_${name} MODULE "${CMAKE_CURRENT_LIST_DIR}/module/ThrowingPlugIn.cpp")
        target_compile_definitions(plugin_${name} PRIVATE $<$<STREQUAL:${name},ThrowingObject>:THROWS_IN_INITIALISER>)
    elseif(name STREQUAL "Asking")
        add_library(plugin_${name} MODULE "${CMAKE_CURRENT_LIST_DIR}/module/AskingPlugIn.cpp")
    else()
        add_library(plugin_${name} MODULE "${CMAKE_CURRENT_LIST_DIR}/module/TestPlugIn.cpp")
    endif()
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

# The library is loaded by a relative path, and the program goes elsewhere before it uses it.
add_executable(plugins_elsewhere "${CMAKE_CURRENT_LIST_DIR}/module/Elsewhere.cpp")
target_link_libraries(plugins_elsewhere PRIVATE dmf::dmf dmf_options)
target_link_libraries(test_plugins PRIVATE dmf_test_process)
add_dependencies(test_plugins plugins_elsewhere)
