# Buses and keyrings are child processes.
if(TARGET test_auth)
    target_link_libraries(test_auth PRIVATE dmf_test_process)
endif()
