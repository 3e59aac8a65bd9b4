function(nyb_warnings target)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic)
  if(NYB_WERROR)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
  # GCC 12 at -O2/-O3 reports a false -Wrestrict inside libstdc++ for
  # "literal" + std::string (GCC bug 105329), in any file that concatenates so.
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU" AND CMAKE_CXX_COMPILER_VERSION VERSION_GREATER_EQUAL 12
     AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
    target_compile_options(${target} PRIVATE -Wno-restrict)
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
