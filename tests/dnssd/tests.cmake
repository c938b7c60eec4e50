# The tests of the DNS-SD bundle reach into the library that its code lies in. Their program is made after this file is
# read.
cmake_language(DEFER CALL target_link_libraries test_dnssd PRIVATE dmf_dnssd_parts dmf_test_process)
