# find_package(corvane) gives corvane::events, the module, and corvane::suite, its host on Linux.
include(${CMAKE_CURRENT_LIST_DIR}/CorvaneDependencies.cmake)
include(${CMAKE_CURRENT_LIST_DIR}/corvane-targets.cmake)
