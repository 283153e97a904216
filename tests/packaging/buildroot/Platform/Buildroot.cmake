# Buildroot's systems have a name of their own for CMake, and are Linux all the same.
include(Platform/Linux)
