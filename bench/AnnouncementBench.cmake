# A machine of its own, whose plug-in's object only has to be one that loads.
target_include_directories(bench_announcement PRIVATE "${PROJECT_SOURCE_DIR}/src" "${PROJECT_SOURCE_DIR}/tests")
target_compile_definitions(bench_announcement PRIVATE DMF_ANY_OBJECT="$<TARGET_FILE:simulateddiscovery>")
add_dependencies(bench_announcement simulateddiscovery)
