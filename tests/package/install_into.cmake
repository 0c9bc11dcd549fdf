# cmake -DBUILD_DIR=... -DPREFIX=... -P install_into.cmake
# Installs the build into an empty prefix.
file(REMOVE_RECURSE "${PREFIX}")
execute_process(COMMAND "${CMAKE_COMMAND}" --install "${BUILD_DIR}" --prefix "${PREFIX}"
                RESULT_VARIABLE result OUTPUT_QUIET)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "installing ${BUILD_DIR} into ${PREFIX} failed: ${result}")
endif()
