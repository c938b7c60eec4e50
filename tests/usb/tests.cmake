# The USB bundle's tests that need no device stand beside it and are made like those of every bundle. Those that talk to
# emulated devices make a program of their own, which runs under umockdev's library.
if(NOT TARGET dmf_usb_parts)
    return()
endif()
cmake_language(DEFER CALL target_link_libraries test_usb PRIVATE dmf_usb_parts)

pkg_check_modules(UMOCKDEV IMPORTED_TARGET umockdev-1.0)
if(NOT UMOCKDEV_FOUND)
    add_test(NAME usb-emulated COMMAND "${CMAKE_COMMAND}" -E echo "skipped: umockdev is missing, which emulates the USB")
    set_tests_properties(usb-emulated PROPERTIES SKIP_REGULAR_EXPRESSION "skipped:")
    return()
endif()

add_library(dmf_test_usb STATIC "${PROJECT_SOURCE_DIR}/tests/support/usb/EmulatedPrinter.cpp"
            "${PROJECT_SOURCE_DIR}/tests/support/usb/EmulatedUsb.cpp")
target_include_directories(dmf_test_usb PUBLIC "${PROJECT_SOURCE_DIR}/tests")
target_link_libraries(dmf_test_usb PRIVATE dmf_options PkgConfig::UMOCKDEV)
target_compile_features(dmf_test_usb PUBLIC cxx_std_20)

dmf_add_tests(usb_emulated "${PROJECT_SOURCE_DIR}/bundles/usb/tests/emulated")
target_link_libraries(test_usb_emulated PRIVATE dmf_usb_parts dmf_test_usb dmf_test_process)
get_property(bundles GLOBAL PROPERTY DMF_BUNDLES)
add_dependencies(test_usb_emulated ${bundles} dmf_tool dmf_models)
