# Programs that use the library for long, or while the machine fails it; their short forms are tests. They work with the
# plug-ins and models that were built beside them.
get_property(bundles GLOBAL PROPERTY DMF_BUNDLES)
foreach(program soak faults)
    add_executable(dmf_${program} "${CMAKE_CURRENT_LIST_DIR}/${program}.cpp" "${CMAKE_CURRENT_LIST_DIR}/Works.cpp")
    target_link_libraries(dmf_${program} PRIVATE dmf_test_support)
    target_precompile_headers(dmf_${program} REUSE_FROM dmf_test_headers)
    add_dependencies(dmf_${program} ${bundles})
    if(TARGET dmf_models)
        add_dependencies(dmf_${program} dmf_models)
    endif()
endforeach()
add_test(NAME soak COMMAND dmf_soak 3)
add_test(NAME faults COMMAND dmf_faults)
set_tests_properties(soak faults PROPERTIES TIMEOUT 300)
if(DMF_SANITIZE STREQUAL "thread") # which ends copies of a program that start threads
    set_tests_properties(faults PROPERTIES ENVIRONMENT "TSAN_OPTIONS=ignore_noninstrumented_modules=1:die_after_fork=0")
endif()
