# Every compiler- and linker-specific setting of the project, in one place.

# Warnings and definitions for the module's sources and their tests.
function(ztprop_compile_options target)
  if(MSVC)
    target_compile_options(${target} PRIVATE /W4 /permissive- /Zc:__cplusplus /Zc:preprocessor /utf-8)
    target_compile_definitions(${target} PRIVATE _CRT_SECURE_NO_WARNINGS)
  else()
    target_compile_options(${target} PRIVATE -Wall -Wextra -Wshadow -Wnon-virtual-dtor -Wconversion
                                             -Wno-sign-conversion)
  endif()
  if(CMAKE_CXX_COMPILER_ID STREQUAL "Clang")
    # ZT_TRACE's format is a constexpr array, which Clang doesn't take for a literal.
    target_compile_options(${target} PRIVATE -Wno-format-security)
  endif()
  if(WIN32 AND NOT MSVC)
    # COM objects end through Release, never through an interface's destructor.
    target_compile_options(${target} PRIVATE -Wno-non-virtual-dtor)
  endif()
  if(WIN32)
    target_compile_definitions(${target} PRIVATE UNICODE _UNICODE WIN32_LEAN_AND_MEAN NOMINMAX
                                                 _WIN32_WINNT=0x0601)
  endif()
endfunction()

# Sanitizers of the host presets apply to everything built, tests included.
if(ZTPROP_SANITIZER STREQUAL "address")
  add_compile_options(-fsanitize=address,undefined -fno-omit-frame-pointer -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
elseif(ZTPROP_SANITIZER STREQUAL "fuzzer")
  # Coverage for libFuzzer in everything; only the fuzz targets link its driver
  # (ztprop_fuzz_target).
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined -fno-omit-frame-pointer
                      -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
elseif(ZTPROP_SANITIZER STREQUAL "thread")
  add_compile_options(-fsanitize=thread -fno-omit-frame-pointer)
  add_link_options(-fsanitize=thread)
elseif(ZTPROP_SANITIZER)
  message(FATAL_ERROR "ZTPROP_SANITIZER must be address, thread or fuzzer")
endif()

# Code of the Windows images: each function and datum in a section of its own,
# so that the link drops what the image doesn't use.
function(ztprop_section_options target)
  if(NOT MSVC)
    target_compile_options(${target} PRIVATE -ffunction-sections -fdata-sections)
  endif()
endfunction()

# The Windows images (the DLL, the console tool): no runtime DLL of the
# toolchain, ASLR with high-entropy addresses, DEP, unused sections dropped.
# The link map beside each image tells the tests what the runtime brought in.
function(ztprop_image_link_options target)
  if(MSVC)
    set_target_properties(${target} PROPERTIES MSVC_RUNTIME_LIBRARY "MultiThreaded")
    target_link_options(${target} PRIVATE /DYNAMICBASE /HIGHENTROPYVA /NXCOMPAT)
  else()
    ztprop_section_options(${target})
    target_link_options(${target} PRIVATE -static -static-libgcc -static-libstdc++
                        -Wl,--dynamicbase,--high-entropy-va,--nxcompat,--gc-sections
                        -Wl,-Map=$<TARGET_FILE_DIR:${target}>/$<TARGET_FILE_BASE_NAME:${target}>.map
                        $<$<CONFIG:Release>:-s>)
  endif()
endfunction()

# A Windows program of the products or their demos, beside the DLL in the build
# folder: SUBSYSTEM is console or windows (GUI); its entry is wmain or wWinMain.
function(ztprop_program target subsystem)
  ztprop_compile_options(${target})
  ztprop_image_link_options(${target})
  set_target_properties(${target} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR})
  if(NOT MSVC)
    target_link_options(${target} PRIVATE -municode -m${subsystem})
  endif()
endfunction()

function(ztprop_dll_link_options target)
  set_target_properties(${target} PROPERTIES PREFIX "")
  ztprop_image_link_options(${target})
endfunction()
