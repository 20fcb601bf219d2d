# Fails if an image (DLL or program) links anything that registers work for a
# thread's end or pins the module there: C++ thread_local destructors
# (__cxa_thread_atexit), the posix-threads runtime (its TLS callback runs key
# destructors on every thread of the process, under the loader lock) or its
# keys. Reads the image's link map (MAP). What remains at thread exit is the
# C runtime's own TLS callback, listed for the log.
file(READ ${MAP} map)
foreach(symbol __cxa_thread_atexit __cxa_thread_atexit_impl libwinpthread pthread_key_create
               pthread_create _pthread_tls_init)
  string(FIND "${map}" "${symbol}" at)
  if(NOT at EQUAL -1)
    message(FATAL_ERROR "${MAP}: the image links ${symbol}, which runs work at a thread's end")
  endif()
endforeach()
string(REGEX MATCHALL "[(]lib64_libmingw32_a-tls[a-z]+\\.o[)]" crt "${map}")
list(REMOVE_DUPLICATES crt)
message(STATUS "thread-exit code linked: the C runtime's TLS support ${crt}")
