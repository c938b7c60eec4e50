# A machine of its own, so that the level that is configured here does not matter.
target_include_directories(bench_log PRIVATE "${PROJECT_SOURCE_DIR}/src" "${PROJECT_SOURCE_DIR}/tests")
