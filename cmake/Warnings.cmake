function(nyb_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic)
  if(NYB_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
endfunction()

# RapidJSON 1.1.0 (Debian 12) adds an offset to a null pointer when its internal
# stack is first used, which UndefinedBehaviorSanitizer reports on every parse
# and write. Only that check is turned off, and only in sanitizer builds.
function(nyb_rapidjson_ubsan target)
  if(CMAKE_CXX_FLAGS MATCHES "undefined")
    target_compile_options(${target} PRIVATE -fno-sanitize=pointer-overflow)
  endif()
endfunction()
