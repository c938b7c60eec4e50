# The peers that a model file is opened with by hand.
target_link_libraries(bench_model PRIVATE PkgConfig::NETTLE PkgConfig::PUGIXML)
# Managers that have read nothing yet are not for programs to make.
target_include_directories(bench_model PRIVATE "${PROJECT_SOURCE_DIR}/src")
