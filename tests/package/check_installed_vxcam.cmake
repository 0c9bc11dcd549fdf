# cmake -DPREFIX=... -DBINDIR=... -DPLUGIN_DIR=... -P check_installed_vxcam.cmake
# The installed vxcam runs from the prefix, names the installed plug-in
# folder in its help and lists the plug-in installed there.
set(vxcam "${PREFIX}/${BINDIR}/vxcam")
set(plugins "${PREFIX}/${PLUGIN_DIR}")

execute_process(COMMAND "${vxcam}" --help RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE errors)
string(FIND "${output}" "plug-in folder: ${plugins} (installed beside vxcam)" at)
if(NOT result EQUAL 0 OR at EQUAL -1)
  message(FATAL_ERROR "vxcam --help (${result}) does not name ${plugins}:\n${output}${errors}")
endif()

execute_process(COMMAND "${vxcam}" cameras RESULT_VARIABLE result OUTPUT_VARIABLE output ERROR_VARIABLE errors)
if(NOT result EQUAL 0 OR NOT output MATCHES "^libfileidentifier.so: type 783")
  message(FATAL_ERROR "vxcam cameras (${result}) did not list the installed plug-in:\n${output}${errors}")
endif()
