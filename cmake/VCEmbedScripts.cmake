# Writes a header holding registrar scripts byte for byte (CR LF included,
# which a raw string literal would lose), for the Linux module; Windows keeps
# them as REGISTRY resources.
# Input: -DOUT=<header> -DSCRIPTS="<id>=<file>|<id>=<file>|..."
string(REPLACE "|" ";" SCRIPTS "${SCRIPTS}")
set(text "// Generated from the module's registrar scripts at build time; do not edit.\n#pragma once\n\n#include <string_view>\n\nnamespace vc {\n\n")
set(table "")
set(n 0)
foreach(item IN LISTS SCRIPTS)
  string(REPLACE "=" ";" parts "${item}")
  list(GET parts 0 id)
  list(GET parts 1 file)
  file(READ "${file}" hex HEX)
  string(LENGTH "${hex}" hexlen)
  math(EXPR len "${hexlen} / 2")
  string(REGEX REPLACE "([0-9a-f][0-9a-f])" "'\\\\x\\1'," bytes "${hex}")
  string(APPEND text "inline constexpr char kEmbeddedScript${n}[] = {${bytes}'\\0'};\n")
  string(APPEND table "    {${id}, std::string_view(kEmbeddedScript${n}, ${len})},\n")
  math(EXPR n "${n} + 1")
endforeach()
string(APPEND text "\nstruct VCEmbeddedScript {\n  int nResource;\n  std::string_view text;\n};\n\ninline constexpr VCEmbeddedScript kEmbeddedScripts[] = {\n${table}};\n\n}  // namespace vc\n")
file(WRITE "${OUT}.tmp" "${text}")
file(COPY_FILE "${OUT}.tmp" "${OUT}" ONLY_IF_DIFFERENT)
