# Writes a header holding registrar scripts as string literals, for the Linux
# module (Windows keeps them as REGISTRY resources).
# Input: -DOUT=<header> -DSCRIPTS="<id>=<file>|<id>=<file>|..."
string(REPLACE "|" ";" SCRIPTS "${SCRIPTS}")
set(text "// Generated from module/res/*.rgs at build time; do not edit.\n#pragma once\n\nnamespace vc {\n\nstruct VCEmbeddedScript {\n  int nResource;\n  const char* szText;\n};\n\ninline constexpr VCEmbeddedScript kEmbeddedScripts[] = {\n")
foreach(item IN LISTS SCRIPTS)
  string(REPLACE "=" ";" parts "${item}")
  list(GET parts 0 id)
  list(GET parts 1 file)
  file(READ "${file}" body)
  string(APPEND text "    {${id}, R\"vcrgs(${body})vcrgs\"},\n")
endforeach()
string(APPEND text "};\n\n}  // namespace vc\n")
file(WRITE "${OUT}.tmp" "${text}")
file(COPY_FILE "${OUT}.tmp" "${OUT}" ONLY_IF_DIFFERENT)
