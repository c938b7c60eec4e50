# The run loop is tried against the contexts of the host's own loops.
target_link_libraries(test_platform PRIVATE PkgConfig::GLIB)
