# Fails unless the DLL carries the page's dialog 107 with its 17 controls in order, dialog 108, the
# nine icons, the manifest (id 2) that asks for common controls 6, and the version block.
# Reads the resources back with windres; its rc output upper-cases class names (they are matched
# without regard to case by the window manager) and writes non-ASCII text as octal escapes.
execute_process(COMMAND ${WINDRES} -i ${DLL} -O rc OUTPUT_VARIABLE dump RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
  message(FATAL_ERROR "windres could not read the resources of ${DLL}")
endif()

function(expect text what)
  string(FIND "${dump}" "${text}" at)
  if(at EQUAL -1)
    message(FATAL_ERROR "missing ${what}: ${text}")
  endif()
endfunction()

# The body of one dialog, from its header to its END.
function(dialog_body id out)
  string(REGEX MATCH "\n${id} DIALOGEX [^\n]*\n(STYLE|CAPTION|FONT|EXSTYLE)[^\n]*\n.*" tail "${dump}")
  if(NOT tail)
    message(FATAL_ERROR "dialog ${id} is missing")
  endif()
  string(FIND "${tail}" "\nEND\n" end)
  string(SUBSTRING "${tail}" 0 ${end} body)
  set(${out} "${body}" PARENT_SCOPE)
endfunction()

dialog_body(107 page)
# Size, style (WS_CHILD WS_DISABLED WS_CAPTION DS_SETFONT DS_FIXEDSYS), no extended style, caption, font.
set(header [=[
107 DIALOGEX 0, 0, 221, 190
STYLE 0x48c00048
CAPTION "ZT Diagnostics"
FONT 8, "MS Shell Dlg", 400, 0, 0
BEGIN
]=])
string(FIND "${page}" "${header}" at)
if(NOT at EQUAL 1)
  message(FATAL_ERROR "dialog 107's header is not as expected:\n${page}")
endif()

# Every control: text or icon, id, class, styles with WS_CHILD, position, extended style.
set(expected
  [=[CONTROL "", 1002, "SYSLISTVIEW32", 0x5081c801, 7, 99, 207, 65]=]
  [=[CONTROL "Run cable diagnostics", 1003, "BUTTON", 0x50010000, 7, 169, 85, 14]=]
  [=[CONTROL "Cable diagnostics", 1005, "STATIC", 0x50020000, 7, 75, 56, 8]=]
  [=[CONTROL "", 1004, "STATIC", 0x50020010, 66, 79, 44, 1]=]
  [=[CONTROL "Status", 1006, "STATIC", 0x50020000, 30, 36, 72, 8]=]
  [=[CONTROL "Cable category", 1008, "STATIC", 0x50020000, 7, 86, 50, 8]=]
  [=[CONTROL "", 1007, "COMBOBOX", 0x50210103, 62, 84, 52, 30]=]
  [=[CONTROL 109, 1011, "STATIC", 0x50000803, 7, 7, 20, 20, 0x20, 0]=]
  [=[CONTROL "Link information", 1009, "STATIC", 0x50020000, 7, 27, 51, 8]=]
  [=[CONTROL "", 1010, "STATIC", 0x50020010, 62, 31, 44, 1]=]
  [=[CONTROL "Speed", 1012, "STATIC", 0x50020000, 7, 57, 94, 8]=]
  [=[CONTROL 110, 1013, "STATIC", 0x50000803, 7, 35, 20, 20, 0x20, 0]=]
  [=[CONTROL "Temperature <unknown>", 1014, "STATIC", 0x50020000, 130, 37, 84, 8]=]
  [=[CONTROL 110, 1015, "STATIC", 0x50000803, 119, 35, 20, 20, 0x20, 0]=]
  [=[CONTROL "Health", 1018, "STATIC", 0x50020000, 117, 27, 22, 8]=]
  [=[CONTROL "", 1019, "STATIC", 0x50020010, 142, 31, 73, 1]=]
  [=[CONTROL L"PHY: 100.00\260C\tMAC: 100.00\260C", 1020, "STATIC", 0x40020000, 111, 57, 103, 8]=])
string(REGEX MATCHALL "\n  CONTROL [^\n]*" rows "${page}")
list(TRANSFORM rows REPLACE "^\n  " "")
list(LENGTH rows count)
if(NOT count EQUAL 17)
  message(FATAL_ERROR "dialog 107 has ${count} controls, expected 17")
endif()
foreach(index RANGE 16)
  list(GET rows ${index} actual)
  list(GET expected ${index} wanted)
  if(NOT actual STREQUAL wanted)
    message(FATAL_ERROR "control ${index} of dialog 107 is\n  ${actual}\nexpected\n  ${wanted}")
  endif()
endforeach()

dialog_body(108 firmware)
string(FIND "${firmware}" "CAPTION \"ZT Firmware\"" at)
if(at EQUAL -1)
  message(FATAL_ERROR "dialog 108 lacks its caption")
endif()

# Icons: one group per id; the banner is one 238 by 48 image, the blank icon has twelve.
foreach(id 102 104 105 106 109 110 111 112 113)
  expect("\n${id} 14 /* RT_GROUP_ICON */" "icon ${id}")
endforeach()
string(REGEX MATCH "\n109 14 [^\n]*\nBEGIN\n[^\n]*Has 1 elements[^\n]*\n[^\n]*\n    \"\\\\356\\\\060" banner "${dump}")
if(NOT banner)
  message(FATAL_ERROR "icon 109 is not one image of 238 by 48")
endif()
string(REGEX MATCH "\n112 14 [^\n]*\nBEGIN\n[^\n]*Has 12 elements" blank "${dump}")
if(NOT blank)
  message(FATAL_ERROR "icon 112 does not hold twelve images")
endif()

# Its 256-pixel images are PNG files, as Windows stores them since Vista: each one's signature and
# header (256 by 256; 4 and 8 bits as a palette, 32 as RGBA), read from the little-endian words
# windres writes for an RT_ICON.
string(FIND "${dump}" "${blank}" at)
string(SUBSTRING "${dump}" ${at} -1 blank)
string(FIND "${blank}" "\nEND\n" end)
string(SUBSTRING "${blank}" 0 ${end} blank)
string(REGEX MATCHALL "\"\\\\000\\\\000[^\"]*\", 1, [0-9]+, 0x[0-9a-f]+L, [0-9]+" large "${blank}")
set(pngHeader 0x474e5089L 0xa1a0a0dL 0xd000000L 0x52444849L 0x10000L 0x10000L)
set(pngDepth_4 0x304L)
set(pngDepth_8 0x308L)
set(pngDepth_32 0x608L)
set(depths "")
foreach(entry IN LISTS large)
  string(REGEX MATCH ", 1, ([0-9]+), 0x[0-9a-f]+L, ([0-9]+)$" fields "${entry}")
  set(bits ${CMAKE_MATCH_1})
  string(REGEX MATCH "\n${CMAKE_MATCH_2} 3 /\\* RT_ICON \\*/\nBEGIN\n[^\n]*" data "${dump}")
  string(REGEX MATCHALL "0x[0-9a-f]+L" words "${data}")
  list(SUBLIST words 0 7 words)
  if(NOT words STREQUAL "${pngHeader};${pngDepth_${bits}}")
    message(FATAL_ERROR "icon 112's 256-pixel image of ${bits} bits is not a PNG of 256 by 256: ${words}")
  endif()
  list(APPEND depths ${bits})
endforeach()
if(NOT depths STREQUAL "4;8;32")
  message(FATAL_ERROR "icon 112's 256-pixel images have ${depths} bits, expected 4, 8 and 32")
endif()

# The manifest, its own identity and the common controls 6 dependency.
string(FIND "${dump}" "\n2 24 /* RT_MANIFEST */" at)
if(at EQUAL -1)
  message(FATAL_ERROR "the manifest (type 24, id 2) is missing")
endif()
string(SUBSTRING "${dump}" ${at} -1 manifest)
string(FIND "${manifest}" "\nEND\n" end)
string(SUBSTRING "${manifest}" 0 ${end} manifest)
# windres writes the text as quoted pieces of limited length, one per line: join them.
string(REPLACE "\"\n  \"" "" manifest "${manifest}")
foreach(text
    [=[manifestVersion=""1.0""]=]
    [=[<assemblyIdentity version=""1.0.0.0"" processorArchitecture=""*"" name=""Norvalis.Kestrune.ztprop"" type=""win32""/>]=]
    [=[<description>Norvalis Kestrune device property page.</description>]=]
    [=[<assemblyIdentity type=""win32"" name=""Microsoft.Windows.Common-Controls"" version=""6.0.0.0"" processorArchitecture=""*"" publicKeyToken=""6595b64144ccf1df"" language=""*""/>]=])
  string(FIND "${manifest}" "${text}" found)
  if(found EQUAL -1)
    message(FATAL_ERROR "the manifest lacks ${text}")
  endif()
endforeach()

# The version block: a DLL for NT, 2.2.3.0, no flags, one US English Unicode string table.
set(version [=[
1 VERSIONINFO
 FILEVERSION 2, 2, 3, 0
 PRODUCTVERSION 2, 2, 3, 0
 FILEFLAGSMASK 0x3f
 FILEOS 0x40004
 FILETYPE 0x2
BEGIN
  BLOCK "StringFileInfo"
  BEGIN
    BLOCK "040904B0"
    BEGIN
      VALUE "CompanyName", "Norvalis Corporation"
      VALUE "FileDescription", "Norvalis Kestrune Network Adapter Property Page"
      VALUE "FileVersion", "2.2.3.0"
      VALUE "InternalName", "ztprop"
      VALUE "OriginalFilename", "ztprop.dll"
      VALUE "ProductName", "Norvalis Kestrune Network Adapter"
      VALUE "ProductVersion", "2.2.3.0"
    END
  END
  BLOCK "VarFileInfo"
  BEGIN
    VALUE "Translation", 0x409, 1200
  END
END
]=])
expect("${version}" "the version block")
message(STATUS "dialogs 107 and 108, nine icons, manifest 2 and the version block are as expected")
