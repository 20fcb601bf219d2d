# The module's folders reach only the folders below them, and the products' own
# code (not their demos, nor their Windows mains) only the module's folders they
# build on: each #include "folder/..." of such a file names a folder its layer may use. Run with -DSOURCE=<repository>.
cmake_minimum_required(VERSION 3.25)
set(reaches_trace trace)
set(reaches_wmi trace wmi)
set(reaches_ndis trace wmi ndis)
set(reaches_nic trace wmi ndis nic)
set(pages trace wmi ndis nic page_framework diag_page installer resources)
set(reaches_page_framework ${pages})
set(reaches_diag_page ${pages})
set(reaches_installer ${pages})
# The products built on the module: the panel reaches the page only through the
# DLL's export, so it lists and names adapters as the tool does, and no more.
set(reaches_ztdiag trace wmi ndis nic installer resources ztdiag)
set(reaches_ztpanel trace nic installer resources ztdiag ztpanel)

set(faults "")
foreach(folder trace wmi ndis nic page_framework diag_page installer ztdiag ztpanel)
  file(GLOB files RELATIVE "${SOURCE}" "${SOURCE}/${folder}/*.h" "${SOURCE}/${folder}/*.cpp")
  foreach(file IN LISTS files)
    file(STRINGS "${SOURCE}/${file}" includes REGEX "^#include \"")
    foreach(line IN LISTS includes)
      string(REGEX REPLACE "^#include \"([^\"]*)\".*" "\\1" header "${line}")
      string(REGEX REPLACE "/.*" "" root "${header}")
      if(NOT header MATCHES "^platform(\\.h|/Threading\\.h)$" AND NOT root IN_LIST reaches_${folder})
        string(APPEND faults "\n  ${file} includes ${header}")
      endif()
    endforeach()
  endforeach()
endforeach()
if(faults)
  message(FATAL_ERROR "module files reaching past their layer:${faults}")
endif()
