# Compile settings shared by every target of the project.
add_library(vx_warnings INTERFACE)
target_compile_options(vx_warnings INTERFACE -Wall -Wextra)

add_library(vx_sanitize INTERFACE)
if(VX_BUILD_FUZZ)
  # Fuzzing instruments everything for coverage and checks it with the sanitizers.
  target_compile_options(vx_sanitize INTERFACE
    -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(vx_sanitize INTERFACE -fsanitize=address,undefined)
elseif(VX_SANITIZE)
  target_compile_options(vx_sanitize INTERFACE
    -fsanitize=address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(vx_sanitize INTERFACE -fsanitize=address,undefined)
endif()

# vx_apply_defaults(target): warnings and sanitizers, kept out of the exported interface.
function(vx_apply_defaults target)
  target_link_libraries(${target} PRIVATE $<BUILD_INTERFACE:vx_warnings> $<BUILD_INTERFACE:vx_sanitize>)
  target_compile_definitions(${target} PRIVATE QT_NO_KEYWORDS QT_DEPRECATED_WARNINGS)
endfunction()
