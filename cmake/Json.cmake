# The JSON library of the console tool (Debian's nlohmann-json3-dev, header-only):
# the tool's code only, never the DLL. The cross build can't search /usr/include
# as a whole (its C headers are glibc's), so it gets a folder holding just the
# library's headers.
find_path(ZTPROP_JSON_INCLUDE nlohmann/json.hpp PATHS /usr/include /usr/local/include
          NO_DEFAULT_PATH NO_CMAKE_FIND_ROOT_PATH)
if(NOT ZTPROP_JSON_INCLUDE)
  message(FATAL_ERROR "nlohmann/json.hpp not found: install nlohmann-json3-dev (scripts/test-all does)")
endif()
add_library(ztprop_json INTERFACE)
if(CMAKE_CROSSCOMPILING)
  set(json_include ${CMAKE_BINARY_DIR}/json-include)
  file(MAKE_DIRECTORY ${json_include})
  file(CREATE_LINK ${ZTPROP_JSON_INCLUDE}/nlohmann ${json_include}/nlohmann SYMBOLIC)
  target_include_directories(ztprop_json SYSTEM INTERFACE ${json_include})
elseif(NOT ZTPROP_JSON_INCLUDE STREQUAL "/usr/include")
  # /usr/include itself stays off the list: as -isystem it breaks the C++ library's #include_next.
  target_include_directories(ztprop_json SYSTEM INTERFACE ${ZTPROP_JSON_INCLUDE})
endif()
