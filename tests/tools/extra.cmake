# The simulator is an object library of the tools; its tests link it beside the shared library.
target_link_libraries(${target} PRIVATE uvxsim)
