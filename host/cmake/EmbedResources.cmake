# Writes OUTPUT, a C++ source that holds the bytes of INPUT (the module's
# compiled .res) as host::embeddedResources, the one copy the host reads.
file(READ "${INPUT}" hex HEX)
string(LENGTH "${hex}" digits)
math(EXPR size "${digits} / 2")
# Sixteen bytes a line keeps the generated file readable in a debugger.
string(REGEX REPLACE "([0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f][0-9a-f])" "\\1\n" hex "${hex}")
string(REGEX REPLACE "([0-9a-f][0-9a-f])" "0x\\1," bytes "${hex}")
file(WRITE "${OUTPUT}" "// Generated from ${INPUT}; do not edit.\n#include <cstddef>\n\nnamespace host {\n"
     "extern const unsigned char embeddedResources[];\nextern const std::size_t embeddedResourcesSize;\n"
     "const unsigned char embeddedResources[] = {\n${bytes}};\n"
     "const std::size_t embeddedResourcesSize = ${size};\n}  // namespace host\n")
