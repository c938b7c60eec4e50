# Buses, keyrings and the people whom they ask are child processes.
if(TARGET test_auth)
    add_executable(dmf_test_person "${CMAKE_CURRENT_LIST_DIR}/person/Person.cpp")
    target_compile_features(dmf_test_person PRIVATE cxx_std_20)
    target_link_libraries(dmf_test_person PRIVATE ${CMAKE_DL_LIBS})
    target_link_libraries(test_auth PRIVATE dmf_test_process PkgConfig::GLIB)
    add_dependencies(test_auth dmf_test_person)
endif()
