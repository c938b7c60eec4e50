# The channels are those of the socket transport, which is found at run time.
add_dependencies(${program} socket)
