# Model databases are packed by the tool's own code, and read through the XML parsers among the built plug-ins.
target_sources(test_modelinfo PRIVATE "${PROJECT_SOURCE_DIR}/tools/dmf/ModelPack.cpp"
                                      "${PROJECT_SOURCE_DIR}/tools/dmf/ModelVerify.cpp")
target_include_directories(test_modelinfo PRIVATE "${PROJECT_SOURCE_DIR}")
get_property(bundles GLOBAL PROPERTY DMF_BUNDLES)
add_dependencies(test_modelinfo ${bundles})
