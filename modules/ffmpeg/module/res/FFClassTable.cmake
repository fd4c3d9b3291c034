# The general media module's classes in registration order: name | class
# identifier | description | registrar script resource. Each identifier is
# written here only. The build makes each class's registrar script from
# FFClass.rgs.in, the module's manifest lines and FFClassTable.h from these
# rows; FFClasses.h takes its constants from that header, and FFModule.cpp
# checks the inner classes the facades name (VCCodecs/VCInnerClasses.h)
# against them at compile time.
set(VC_CLASS_ROWS
  "FFSplitter|96EB1F14-4CC0-4830-9CC3-F064196B2626|FFmpeg Splitter Class|201"
  "FFDecoder|96EB1F64-4CC0-4830-9CC3-F064196B2626|FFmpeg A/V Decoder Class|202"
  "FFDecoderNVidia|2CBD671C-8106-49EC-8ABB-9D67CF025301|NVidia Decoder Class|203"
  "FFDecoderQuickSync|BF23862C-7C7B-4CE3-8FE7-4CA5171D624E|Intel QuickSync Decoder Class|204"
  "FFFrame|96EB1F70-4CC0-4830-9CC3-F064196B2626|FFmpeg Frame Class|205"
  "FFAudioBuffer|96EB1F71-4CC0-4830-9CC3-F064196B2626|FFmpeg Audio Buffer Class|206"
  "FFPacket|96EB1F72-4CC0-4830-9CC3-F064196B2626|FFmpeg Packet Class|207"
  "FFEncoder|96EB1F26-4CC0-4830-9CC3-F064196B2626|FFmpeg Encoder Class|208"
  "FFEncoderNVEnc|D0C31F85-8131-48FD-82DA-1D2249FFBD53|NVEnc Encoder Class|209"
  "FFEncoderIntelQS|BE272839-CA83-42CA-931A-8273EFBDA9AE|IntelQS Encoder Class|210"
  "FFEncoderAMD|D5506CCF-973E-4C01-A25F-A4556DA73992|AMD Encoder Class|211"
  "FFConverter|0792B97B-E4CB-4140-B848-EE96C6660837|VCConverter Class|212"
  "FFMuxer|96EB1F23-4CC0-4830-9CC3-F064196B2626|FFmpeg Muxer Class|213")
