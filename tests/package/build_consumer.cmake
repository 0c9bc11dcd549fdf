# cmake -DPREFIX=... -DSOURCE_DIR=... -DWORK_DIR=... -DGENERATOR=... -DCXX=... [-DFLAGS=...] -P build_consumer.cmake
# Checks the installed package: its headers and exported targets name no
# library that vxcore links privately, and a consumer builds and runs.

# Only Qt and the standard library may show in the installed headers.
file(GLOB_RECURSE headers "${PREFIX}/include/vxcore/*.h")
if(NOT headers)
  message(FATAL_ERROR "no headers installed under ${PREFIX}/include/vxcore")
endif()
foreach(header ${headers})
  file(STRINGS "${header}" includes REGEX "^[ \t]*#[ \t]*include[ \t]*<(mxml|quazip|zlib)")
  if(includes)
    message(FATAL_ERROR "${header} includes a private dependency: ${includes}")
  endif()
endforeach()

file(GLOB targets "${PREFIX}/lib*/cmake/vxcore/vxcoreTargets.cmake" "${PREFIX}/lib/*/cmake/vxcore/vxcoreTargets.cmake")
if(NOT targets)
  message(FATAL_ERROR "no vxcoreTargets.cmake under ${PREFIX}")
endif()
file(READ "${targets}" exported)
if(exported MATCHES "MXML|QuaZip|mxml|quazip")
  message(FATAL_ERROR "the exported targets still link a private dependency (${targets})")
endif()

file(REMOVE_RECURSE "${WORK_DIR}")
execute_process(
  COMMAND "${CMAKE_COMMAND}" -S "${SOURCE_DIR}" -B "${WORK_DIR}" -G "${GENERATOR}"
          "-DCMAKE_CXX_COMPILER=${CXX}" "-DCMAKE_PREFIX_PATH=${PREFIX}" "-DCMAKE_CXX_FLAGS=${FLAGS}"
          "-DCMAKE_EXE_LINKER_FLAGS=${FLAGS}"
  RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "configuring the consumer failed:\n${output}")
endif()
execute_process(COMMAND "${CMAKE_COMMAND}" --build "${WORK_DIR}"
                RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
if(NOT result EQUAL 0)
  message(FATAL_ERROR "building the consumer failed:\n${output}")
endif()
execute_process(COMMAND "${WORK_DIR}/consumer" RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE output)
if(NOT result EQUAL 0 OR NOT output STREQUAL "ok\n")
  message(FATAL_ERROR "the consumer failed (${result}):\n${output}")
endif()
