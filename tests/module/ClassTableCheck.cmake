# Runs the class-table generator on a table that disagrees with the IDL in one
# way (CASE) and prints what configuring would stop with. The build's own
# tables must pass the same checks, so this shows the checks can fail.
# Input: -DCASE=<name> -DSOURCE_DIR=<repository> -DWORK_DIR=<scratch folder>
cmake_minimum_required(VERSION 3.25)
include(${SOURCE_DIR}/cmake/VCClassTable.cmake)

set(good
  "VCSplitter|96EB1C14-4CC0-4830-9CC3-F064196B2626|VCSplitter Class|106"
  "VCDecoder|96EB1C64-4CC0-4830-9CC3-F064196B2626|VCDecoder Class|107"
  "VCEncoder|96EB1C94-4CC0-4830-9CC3-F064196B2626|VCEncoder Class|108"
  "VCMuxer|96EB1C74-4CC0-4830-9CC3-F064196B2626|VCMuxer Class|109")
set(rows ${good})
if(CASE STREQUAL "good")
elseif(CASE STREQUAL "wrong_id")
  list(TRANSFORM rows REPLACE "96EB1C64" "96EB1C65")
elseif(CASE STREQUAL "swapped_names")
  list(TRANSFORM rows REPLACE "^VCEncoder" "VCX")
  list(TRANSFORM rows REPLACE "^VCMuxer" "VCEncoder")
  list(TRANSFORM rows REPLACE "^VCX" "VCMuxer")
elseif(CASE STREQUAL "missing_row")
  list(REMOVE_AT rows 3)
elseif(CASE STREQUAL "extra_row")
  list(APPEND rows "VCCaptions|96EB1C99-4CC0-4830-9CC3-F064196B2626|VCCaptions Class|110")
elseif(CASE STREQUAL "lower_case")
  list(TRANSFORM rows REPLACE "F064196B2626\\|VCSplitter" "f064196b2626|VCSplitter")
else()
  message(FATAL_ERROR "unknown case ${CASE}")
endif()

list(JOIN rows "\"\n  \"" text)
file(WRITE ${WORK_DIR}/${CASE}/Table.cmake "set(VC_CLASS_ROWS\n  \"${text}\")\n")
vc_class_table(
  TABLE ${WORK_DIR}/${CASE}/Table.cmake
  TEMPLATE ${SOURCE_DIR}/module/res/VCClass.rgs.in
  MODULE_FILE test.so
  HEADER ${WORK_DIR}/${CASE}/Table.h
  NAMESPACE vc
  ARRAY kTable
  SCRIPTS_VAR scripts
  IDL ${SOURCE_DIR}/Include/VCCodecsCore.idl)
message("class table accepted: ${scripts}")
