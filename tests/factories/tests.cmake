# The factory finds the socket transport where the build put it.
add_dependencies(test_factories socket)
