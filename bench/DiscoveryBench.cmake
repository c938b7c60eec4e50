# The tests' fixture runs the daemon; the back end is found at run time.
target_sources(${program} PRIVATE "${PROJECT_SOURCE_DIR}/tests/support/Process.cpp")
target_include_directories(${program} PRIVATE "${PROJECT_SOURCE_DIR}/tests")
add_dependencies(${program} dnssd)
