# It reads one header of the library itself.
target_include_directories(${program} PRIVATE "${PROJECT_SOURCE_DIR}/src")
