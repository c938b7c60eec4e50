# These run the tool as a child process, with the plug-ins and models that were built beside it.
if(TARGET test_tool)
    find_package(nlohmann_json REQUIRED)
    target_link_libraries(test_tool PRIVATE dmf_test_process nlohmann_json::nlohmann_json
                          dmf_socket_transport)
    get_property(bundles GLOBAL PROPERTY DMF_BUNDLES)
    add_dependencies(test_tool dmf_tool dmf_models ${bundles})
endif()
