# Cross build for 64-bit Windows with Debian's mingw-w64, win32 thread model:
# no posix-threads runtime in the images, whose thread-exit callback would run
# (and take its locks) on every thread of the host process. Threads and locks
# are the platform's (platform/Threading.h).
set(CMAKE_SYSTEM_NAME Windows)
set(CMAKE_SYSTEM_PROCESSOR x86_64)

set(ZTPROP_MINGW_PREFIX x86_64-w64-mingw32)
set(CMAKE_C_COMPILER ${ZTPROP_MINGW_PREFIX}-gcc-win32)
set(CMAKE_CXX_COMPILER ${ZTPROP_MINGW_PREFIX}-g++-win32)
set(CMAKE_RC_COMPILER ${ZTPROP_MINGW_PREFIX}-windres)
set(CMAKE_OBJDUMP ${ZTPROP_MINGW_PREFIX}-objdump)

set(CMAKE_FIND_ROOT_PATH /usr/${ZTPROP_MINGW_PREFIX})
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE ONLY)
