# A module's class table: one file names each class once (name, identifier,
# description, registrar script number), and everything that would otherwise
# repeat the identifier is made from it at configure time: a registrar script
# per class from the module's template, the module's lines in
# corvane.manifest, and a C++ header of the rows that the module's sources
# check their own constants against at compile time.
#
# vc_class_table(TABLE <file> TEMPLATE <file> MODULE_FILE <file name>
#                HEADER <file> NAMESPACE <ns> ARRAY <name> SCRIPTS_VAR <var>
#                [IDL <file>])
#   TABLE        sets VC_CLASS_ROWS, one "Name|identifier|Description|number"
#                item per class in registration order (identifier unbraced)
#   TEMPLATE     registrar script text with @VC_CLASS_ID@ (braced) and
#                @VC_CLASS_DESCRIPTION@; copied byte for byte otherwise (CR LF)
#   MODULE_FILE  the module's file name as the manifest names it
#   HEADER       the generated C++ header (kept when unchanged, so a
#                reconfigure rebuilds nothing)
#   SCRIPTS_VAR  set in the caller's scope to "<number>=<script path>" items
#   IDL          every row must be a coclass of the same name and identifier
#                there, and every coclass a row
function(vc_class_table)
  cmake_parse_arguments(ARG "" "TABLE;TEMPLATE;MODULE_FILE;HEADER;NAMESPACE;ARRAY;SCRIPTS_VAR;IDL" "" ${ARGN})
  set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS ${ARG_TABLE} ${ARG_TEMPLATE} ${ARG_IDL})
  unset(VC_CLASS_ROWS)
  include(${ARG_TABLE})
  if(NOT VC_CLASS_ROWS)
    message(FATAL_ERROR "${ARG_TABLE}: VC_CLASS_ROWS is empty")
  endif()
  file(READ ${ARG_TEMPLATE} template)
  get_filename_component(table_name ${ARG_TABLE} NAME)
  get_filename_component(script_dir ${ARG_HEADER} DIRECTORY)

  set(hex4 "[0-9A-F][0-9A-F][0-9A-F][0-9A-F]")
  set(guid_regex "^${hex4}${hex4}-${hex4}-${hex4}-${hex4}-${hex4}${hex4}${hex4}$")
  set(scripts "")
  set(manifest "")
  set(rows_cpp "")
  set(names "")
  foreach(row IN LISTS VC_CLASS_ROWS)
    string(REPLACE "|" ";" fields "${row}")
    list(LENGTH fields n)
    if(NOT n EQUAL 4)
      message(FATAL_ERROR "${ARG_TABLE}: \"${row}\" is not Name|identifier|Description|number")
    endif()
    list(GET fields 0 name)
    list(GET fields 1 id)
    list(GET fields 2 description)
    list(GET fields 3 number)
    # Upper case only: the scripts, the manifest and the C++ text must agree
    # character for character, and the IDL is compared as text too.
    if(NOT id MATCHES "${guid_regex}")
      message(FATAL_ERROR "${ARG_TABLE}: ${name}: \"${id}\" is not an upper-case class identifier")
    endif()
    if(NOT number MATCHES "^[1-9][0-9]*$" OR description MATCHES "['\"\\\\]")
      message(FATAL_ERROR "${ARG_TABLE}: ${name}: bad script number or quote in the description")
    endif()
    if(name IN_LIST names)
      message(FATAL_ERROR "${ARG_TABLE}: ${name} is listed twice")
    endif()
    list(APPEND names ${name})

    set(VC_CLASS_ID "{${id}}")
    set(VC_CLASS_DESCRIPTION "${description}")
    string(CONFIGURE "${template}" text @ONLY)
    # file(READ) drops the CRs of the template's line ends; the registrar
    # reads either, but the scripts are published with CR LF.
    string(REPLACE "\n" "\r\n" text "${text}")
    set(script "${script_dir}/res/${name}.rgs")
    file(WRITE "${script}.tmp" "${text}")
    file(COPY_FILE "${script}.tmp" "${script}" ONLY_IF_DIFFERENT)
    file(REMOVE "${script}.tmp")

    list(APPEND scripts "${number}=${script}")
    list(APPEND manifest "{${id}} ${ARG_MODULE_FILE}")
    string(APPEND rows_cpp "    {\"${name}\", vc::MakeGuid(\"${id}\"), \"${description}\", ${number}},\n")
  endforeach()

  if(ARG_IDL)
    file(READ ${ARG_IDL} idl)
    # Square brackets would keep CMake from splitting the list of matches.
    string(REGEX REPLACE "[][]" " " idl "${idl}")
    # A coclass's attribute block holds its uuid; no brace or semicolon lies
    # between them, while one always ends an interface or library block.
    string(REGEX MATCHALL "uuid\\([0-9A-Fa-f-]+\\)[^;{}]*coclass[ \t\r\n]+[A-Za-z_][A-Za-z0-9_]*" coclasses "${idl}")
    set(idl_names "")
    foreach(coclass IN LISTS coclasses)
      string(REGEX REPLACE "^uuid\\(([0-9A-Fa-f-]+)\\).*coclass[ \t\r\n]+([A-Za-z0-9_]+)$" "\\2" name "${coclass}")
      string(REGEX REPLACE "^uuid\\(([0-9A-Fa-f-]+)\\).*$" "\\1" id "${coclass}")
      string(TOUPPER "${id}" id)
      list(APPEND idl_names ${name})
      if(NOT "{${id}} ${ARG_MODULE_FILE}" IN_LIST manifest)
        message(FATAL_ERROR "${ARG_IDL}: coclass ${name} {${id}} is not a row of ${ARG_TABLE} with that identifier")
      endif()
      list(FIND names ${name} index)
      list(FIND manifest "{${id}} ${ARG_MODULE_FILE}" id_index)
      if(NOT index EQUAL id_index)
        message(FATAL_ERROR "${ARG_IDL}: coclass ${name} has {${id}}, ${ARG_TABLE} gives that identifier another name")
      endif()
    endforeach()
    foreach(name IN LISTS names)
      if(NOT name IN_LIST idl_names)
        message(FATAL_ERROR "${ARG_TABLE}: ${name} is not a coclass of ${ARG_IDL}")
      endif()
    endforeach()
  endif()

  set(header "// Generated from ${table_name} at configure time; do not edit.\n#pragma once\n\n#include \"VCClassTable.h\"\n\nnamespace ${ARG_NAMESPACE} {\n\ninline constexpr vc::VCClassTableEntry ${ARG_ARRAY}[] = {\n${rows_cpp}};\n\n}  // namespace ${ARG_NAMESPACE}\n")
  file(WRITE "${ARG_HEADER}.tmp" "${header}")
  file(COPY_FILE "${ARG_HEADER}.tmp" "${ARG_HEADER}" ONLY_IF_DIFFERENT)
  file(REMOVE "${ARG_HEADER}.tmp")

  set_property(GLOBAL APPEND PROPERTY VC_MANIFEST_LINES ${manifest})
  set(${ARG_SCRIPTS_VAR} ${scripts} PARENT_SCOPE)
endfunction()
