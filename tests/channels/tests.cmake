# The tests of the socket bundle use the library that its code lies in. Their program is made after this file is read.
cmake_language(DEFER CALL target_link_libraries test_socket PRIVATE dmf_socket_transport)
