# The run loop is tried against the contexts of the host's own loops.
target_link_libraries(test_platform PRIVATE PkgConfig::GLIB)
# Started with more rights than its user has.
add_executable(dmf_test_raised "${CMAKE_CURRENT_LIST_DIR}/raised/Raised.cpp")
target_link_libraries(dmf_test_raised PRIVATE dmf::dmf dmf_options)
add_dependencies(test_platform dmf_test_raised)
