# Installs to a folder of its own and builds the example against it, with the CMake package and with pkg-config; then
# the example prints to a simulated device with the installed library, bundles and database.
if(NOT DMF_SANITIZE) # it would only tell the same again
    add_test(NAME installed-package
             COMMAND "${CMAKE_CURRENT_LIST_DIR}/check-install" "${CMAKE_BINARY_DIR}" "${PROJECT_SOURCE_DIR}"
                     "${CMAKE_CXX_COMPILER}" "${DMF_SANITIZE}")
    set_tests_properties(installed-package PROPERTIES TIMEOUT 300)
endif()
