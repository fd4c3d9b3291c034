// The transcode command's own rules: its command line, the codecs a
// container gets by default, the names of split parts, and the bounded queue
// between its stages (order, bound, end and abort).
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "TranscodeOptions.h"
#include "TranscodeQueue.h"

namespace vctool {
namespace {

bool Parse(const std::vector<std::string>& args, TranscodeOptions* pOpts) {
  testing::internal::CaptureStderr();
  const bool bOk = ParseTranscodeArgs(args, pOpts);
  testing::internal::GetCapturedStderr();
  return bOk;
}

TEST(TranscodeRate, Suffixes_ScaleByThousandAndMillion) {
  long long ll = 0;
  ASSERT_TRUE(ParseRate("6M", &ll));
  EXPECT_EQ(ll, 6000000);
  ASSERT_TRUE(ParseRate("128k", &ll));
  EXPECT_EQ(ll, 128000);
  ASSERT_TRUE(ParseRate("1.5M", &ll));
  EXPECT_EQ(ll, 1500000);
  ASSERT_TRUE(ParseRate("96000", &ll));
  EXPECT_EQ(ll, 96000);
}

TEST(TranscodeRate, NonsenseAndZero_Refused) {
  long long ll = 7;
  for (const char* sz : {"", "k", "fast", "6G", "-1M", "0", "0k", "6 M", "nan"}) {
    EXPECT_FALSE(ParseRate(sz, &ll)) << sz;
  }
  EXPECT_EQ(ll, 7);
}

TEST(TranscodeDefaults, ContainerChoosesCodecs) {
  struct Case {
    const char* szOut;
    const char* szVideo;
    const char* szAudio;
  } cases[] = {{"a.mp4", "libx264", "aac"},          {"a.MKV", "libx264", "aac"},
               {"a.ts", "libx264", "aac"},           {"a.mov", "libx264", "aac"},
               {"a.flv", "libx264", "aac"},          {"a.webm", "libvpx-vp9", "libopus"},
               {"a.mxf", "mpeg2video", "pcm_s16le"}, {"a.avi", "mpeg4", "libmp3lame"},
               {"dir.v2/out", "libx264", "aac"}};
  for (const Case& c : cases) {
    const DefaultCodecs codecs = DefaultCodecsFor(c.szOut);
    EXPECT_STREQ(codecs.szVideo, c.szVideo) << c.szOut;
    EXPECT_STREQ(codecs.szAudio, c.szAudio) << c.szOut;
  }
}

TEST(TranscodeArgs, Defaults_FollowTheOutput) {
  TranscodeOptions opts;
  ASSERT_TRUE(Parse({"in.mp4", "out.webm", "--json"}, &opts));
  EXPECT_EQ(opts.strInput, "in.mp4");
  EXPECT_EQ(opts.strOutput, "out.webm");
  EXPECT_EQ(opts.strVideoCodec, "libvpx-vp9");
  EXPECT_EQ(opts.strAudioCodec, "libopus");
  EXPECT_TRUE(opts.bJson);
  EXPECT_EQ(opts.dblSplit, 0.0);
}

TEST(TranscodeArgs, EveryOption_Read) {
  TranscodeOptions opts;
  ASSERT_TRUE(Parse({"--vcodec", "n264", "in.ts", "--acodec", "copy", "--vbitrate", "6M", "--abitrate", "128k",
                     "--preset", "veryfast", "--size", "1280x720", "--rate", "29.97", "--streams", "2,0,2",
                     "--props", "gop=50", "--props", "threads=2", "--split", "5", "--report", "r.html", "out.mp4"},
                    &opts));
  EXPECT_EQ(opts.strVideoCodec, "n264");
  EXPECT_EQ(opts.strAudioCodec, "copy");
  EXPECT_EQ(opts.llVideoBitrate, 6000000);
  EXPECT_EQ(opts.llAudioBitrate, 128000);
  EXPECT_EQ(opts.strPreset, "veryfast");
  EXPECT_EQ(opts.nWidth, 1280);
  EXPECT_EQ(opts.nHeight, 720);
  EXPECT_DOUBLE_EQ(opts.dblRate, 29.97);
  EXPECT_EQ(opts.vecStreams, (std::vector<LONG>{2, 0}));
  EXPECT_EQ(opts.strProps, "gop=50 threads=2");
  EXPECT_EQ(opts.dblSplit, 5.0);
  EXPECT_EQ(opts.strReport, "r.html");
  EXPECT_EQ(opts.strOutput, "out.mp4");
}

TEST(TranscodeArgs, BadCommandLines_Refused) {
  const std::vector<std::vector<std::string>> bad = {
      {"in.mp4"},                                       // no output
      {"in.mp4", "out.mp4", "extra.mp4"},               // two outputs
      {"in.mp4", "in.mp4"},                             // would overwrite its input
      {"in.mp4", "out.mp4", "--speed", "2"},            // unknown option
      {"in.mp4", "out.mp4", "--size", "1280"},          // no height
      {"in.mp4", "out.mp4", "--size", "0x720"},         // no width
      {"in.mp4", "out.mp4", "--rate", "0"},             // no rate
      {"in.mp4", "out.mp4", "--split", "-5"},           // negative split
      {"in.mp4", "out.mp4", "--streams", "0,,1"},       // empty index
      {"in.mp4", "out.mp4", "--vcodec", "lib x264"},    // would break the configuration text
      {"in.mp4", "out.mp4", "--vbitrate"},              // value missing
      {"in.mp4", "out.mp4", "--vcodec", "copy", "--size", "640x360"},  // nothing to scale with
  };
  for (const auto& args : bad) {
    TranscodeOptions opts;
    std::string strLine;
    for (const std::string& str : args) strLine += str + " ";
    EXPECT_FALSE(Parse(args, &opts)) << strLine;
  }
}

TEST(TranscodeSplit, PartNumberBeforeTheExtension) {
  EXPECT_EQ(SplitPartPath("out.mp4", 1), "out-001.mp4");
  EXPECT_EQ(SplitPartPath("dir/x.y/out.mkv", 12), "dir/x.y/out-012.mkv");
  EXPECT_EQ(SplitPartPath("dir.v2/out", 3), "dir.v2/out-003");
  EXPECT_EQ(SplitPartPath("out.ts", 1234), "out-1234.ts");
}

TEST(TranscodeQueue, Close_DrainsInOrderThenEnds) {
  CBoundedQueue<std::unique_ptr<int>> queue(4);
  for (int i = 0; i < 3; ++i) ASSERT_TRUE(queue.Push(std::make_unique<int>(i)));
  queue.Close();
  EXPECT_FALSE(queue.Push(std::make_unique<int>(9)));
  std::unique_ptr<int> sp;
  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(queue.Pop(&sp));
    EXPECT_EQ(*sp, i);
  }
  EXPECT_FALSE(queue.Pop(&sp));
}

TEST(TranscodeQueue, FullQueue_HoldsTheProducerAtItsCapacity) {
  CBoundedQueue<int> queue(2);
  std::atomic<int> nPushed{0};
  std::thread producer([&]() {
    for (int i = 0; i < 10; ++i) {
      if (!queue.Push(i)) return;
      ++nPushed;
    }
    queue.Close();
  });
  const auto tGiveUp = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (nPushed.load() < 2 && std::chrono::steady_clock::now() < tGiveUp)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  std::this_thread::sleep_for(std::chrono::milliseconds(20));  // time to overrun, if it could
  EXPECT_EQ(nPushed.load(), 2);
  EXPECT_EQ(queue.Size(), 2u);
  std::vector<int> vecGot;
  int n = 0;
  while (queue.Pop(&n)) vecGot.push_back(n);
  producer.join();
  EXPECT_EQ(vecGot, (std::vector<int>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9}));
}

TEST(TranscodeQueue, Abort_WakesBothSides) {
  CBoundedQueue<int> full(1), empty(1);
  ASSERT_TRUE(full.Push(1));
  std::atomic<bool> bPushResult{true}, bPopResult{true};
  std::thread pusher([&]() { bPushResult = full.Push(2); });
  std::thread popper([&]() {
    int n = 0;
    bPopResult = empty.Pop(&n);
  });
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  full.Abort();
  empty.Abort();
  pusher.join();
  popper.join();
  EXPECT_FALSE(bPushResult.load());
  EXPECT_FALSE(bPopResult.load());
  int n = 0;
  EXPECT_FALSE(full.Pop(&n));  // what was queued is dropped
}

}  // namespace
}  // namespace vctool
