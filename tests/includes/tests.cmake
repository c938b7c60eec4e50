# Each installed header compiles alone: one source a header, that header twice and nothing else. The build is the test.
file(GLOB_RECURSE installed_headers CONFIGURE_DEPENDS RELATIVE "${PROJECT_SOURCE_DIR}/include"
     "${PROJECT_SOURCE_DIR}/include/dmf/*.h")
set(alone)
foreach(header ${installed_headers})
    string(MAKE_C_IDENTIFIER "${header}" name)
    set(file "${CMAKE_CURRENT_BINARY_DIR}/headers-alone/${name}.cpp")
    file(CONFIGURE OUTPUT "${file}" CONTENT "#include <@header@>\n#include <@header@>\n" @ONLY)
    list(APPEND alone "${file}")
endforeach()
if(DMF_TEST_HEADERS AND NOT DMF_SANITIZE) # sanitizers would only tell the same again
    add_library(headers-alone OBJECT ${alone})
    target_link_libraries(headers-alone PRIVATE dmf::dmf dmf_options)
    set_target_properties(headers-alone PROPERTIES UNITY_BUILD OFF)
endif()

find_package(Python3 REQUIRED COMPONENTS Interpreter)
set(check_includes "${Python3_EXECUTABLE}" "${PROJECT_SOURCE_DIR}/scripts/check-includes")
add_test(NAME include-direction COMMAND ${check_includes} "${PROJECT_SOURCE_DIR}")

# The check itself finds what it is there for: a lower folder that includes a higher one, folders of one level that know
# each other, a third-party header where none may be, an installed header and a bundle that reach inside.
set(faulty "${CMAKE_CURRENT_BINARY_DIR}/faulty-includes")
file(WRITE "${faulty}/src/foundation/Low.h" "#include \"service/High.h\"\n#include <glib.h>\n")
file(WRITE "${faulty}/src/service/High.h" "#include \"foundation/Low.h\"\n")
file(WRITE "${faulty}/src/plugins/Twin.h" "#include \"settings/Other.h\"\n")
file(WRITE "${faulty}/src/settings/Other.h" "#include <string>\n")
file(WRITE "${faulty}/include/dmf/Public.h" "#include <unistd.h>\n")
file(WRITE "${faulty}/bundles/one/One.cpp" "#include \"../../src/foundation/Low.h\"\n")
add_test(NAME include-direction-finds-faults COMMAND ${check_includes} "${faulty}")
string(JOIN "\n" expected
       "include/dmf/Public.h:1: [^\n]*"
       "src/foundation/Low.h:1: [^\n]*level 1. includes service .level 4.[^\n]*"
       "src/foundation/Low.h:2: [^\n]*third-party[^\n]*"
       "src/plugins/Twin.h:1: [^\n]*"
       "bundles/one/One.cpp:1: ")
set_tests_properties(include-direction-finds-faults PROPERTIES PASS_REGULAR_EXPRESSION "${expected}")

# The page that lists what is exported says what the headers say.
add_test(NAME reference-is-current COMMAND "${Python3_EXECUTABLE}" "${PROJECT_SOURCE_DIR}/scripts/list-api" --check)

# The picture of the rooms is that of the sources.
add_test(NAME picture-is-current COMMAND "${Python3_EXECUTABLE}" "${PROJECT_SOURCE_DIR}/scripts/draw-rooms" --check)
