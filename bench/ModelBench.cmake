# The peers that a model file is opened with by hand.
target_link_libraries(bench_model PRIVATE PkgConfig::NETTLE PkgConfig::PUGIXML)
