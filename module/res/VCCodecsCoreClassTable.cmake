# The core module's classes in registration order: name | class identifier |
# description | registrar script resource. Each identifier is written here
# only. The build makes each class's registrar script from VCClass.rgs.in,
# the module's manifest lines and VCCodecsCoreClassTable.h from these rows,
# and refuses to configure when the IDL's coclasses differ from them; the
# class table in VCCodecsCoreClasses.cpp checks the C++ constants at compile
# time.
set(VC_CLASS_ROWS
  "VCSplitter|96EB1C14-4CC0-4830-9CC3-F064196B2626|VCSplitter Class|106"
  "VCDecoder|96EB1C64-4CC0-4830-9CC3-F064196B2626|VCDecoder Class|107"
  "VCEncoder|96EB1C94-4CC0-4830-9CC3-F064196B2626|VCEncoder Class|108"
  "VCMuxer|96EB1C74-4CC0-4830-9CC3-F064196B2626|VCMuxer Class|109")
