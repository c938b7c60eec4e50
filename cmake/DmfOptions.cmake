# Compiler settings shared by every target: dmf_options.
add_library(dmf_options INTERFACE)
target_compile_options(dmf_options INTERFACE -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wnon-virtual-dtor
                                             -Woverloaded-virtual -Wimplicit-fallthrough)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    target_compile_options(dmf_options INTERFACE -Wno-restrict) # it takes "text" + string for a copy onto itself
endif()
if(CMAKE_UNITY_BUILD)
    target_compile_options(dmf_options INTERFACE -Wno-subobject-linkage) # GCC takes files that are included for headers
endif()
if(DMF_WARNINGS_AS_ERRORS)
    target_compile_options(dmf_options INTERFACE -Werror)
endif()
if(DMF_SANITIZE STREQUAL "address")
    target_compile_options(dmf_options INTERFACE -fsanitize=address,undefined -fno-sanitize-recover=all
                                                 -fno-omit-frame-pointer)
    target_link_options(dmf_options INTERFACE -fsanitize=address,undefined)
elseif(DMF_SANITIZE STREQUAL "thread")
    # libstdc++'s shared_ptr counts are atomics that the tool understands; fences are not, and none are used.
    target_compile_options(dmf_options INTERFACE -fsanitize=thread -fno-omit-frame-pointer)
    target_link_options(dmf_options INTERFACE -fsanitize=thread)
elseif(DMF_SANITIZE)
    message(FATAL_ERROR "DMF_SANITIZE must be empty, address or thread, not ${DMF_SANITIZE}")
endif()
