# Buses and keyrings are child processes, for which the tool's tests have the means.
if(TARGET test_auth)
    target_sources(test_auth PRIVATE "${PROJECT_SOURCE_DIR}/tests/tool/Process.cpp")
endif()
