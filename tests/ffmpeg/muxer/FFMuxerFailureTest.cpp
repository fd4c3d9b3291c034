// The general muxer when the file system says no: a full disk (a small tmpfs
// made by the test), a read-only folder, a path under a regular file, a
// switch to a path that cannot be written, and a close half-way. Each must
// give a clear code and a log line, and what was written before must stay
// readable.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <type_traits>
#include <vector>

#include "FFDecoderTestSource.h"
#include "FFMuxerTestUtil.h"
#include "VCCodecs/VCCodecsBase.h"
#include "VCLog.h"

namespace {

namespace fs = std::filesystem;
using namespace vc::fftest::mux;
using vc::CBstr;
using vc::ComPtr;
using vc::fftest::MediaExists;
using vc::fftest::MediaPath;

constexpr HRESULT kDiskFullHr = HRESULT_FROM_WIN32(112);     // ERROR_DISK_FULL
constexpr HRESULT kWriteProtectHr = HRESULT_FROM_WIN32(19);  // ERROR_WRITE_PROTECT
constexpr HRESULT kPathNotFoundHr = HRESULT_FROM_WIN32(3);   // ERROR_PATH_NOT_FOUND
constexpr size_t kTmpfsBytes = 256 * 1024;

bool WriteText(const char* szPath, const std::string& strText) {
  const int fd = open(szPath, O_WRONLY);
  if (fd < 0) return false;
  const bool bOk = write(fd, strText.data(), strText.size()) == static_cast<ssize_t>(strText.size());
  close(fd);
  return bOk;
}

bool MountTmpfs(const fs::path& dir, bool bReadOnly) {
  const std::string strOptions = "size=" + std::to_string(kTmpfsBytes);
  return mount("tmpfs", dir.c_str(), "tmpfs", bReadOnly ? MS_RDONLY : 0, strOptions.c_str()) == 0;
}

// In a forked child: a user namespace of its own (where it may mount) with
// a mount namespace, mapping the caller's ids so files can be created.
bool EnterNamespacesAndMount(const fs::path& dir, bool bReadOnly) {
  const uid_t uid = getuid();
  const gid_t gid = getgid();
  if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) return false;
  WriteText("/proc/self/setgroups", "deny");
  if (!WriteText("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1") ||
      !WriteText("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1"))
    return false;
  mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
  return MountTmpfs(dir, bReadOnly);
}

// Runs fn with a fresh tmpfs of kTmpfsBytes mounted at dir: in this process
// when it may mount, else in a child process in new user and mount
// namespaces, whose result comes back through a pipe (so T is plain data).
// Returns why neither was permitted, or an empty text when fn ran.
template <class T>
std::string RunOnTmpfs(const fs::path& dir, bool bReadOnly, const std::function<T()>& fn, T* pResult) {
  static_assert(std::is_trivially_copyable_v<T>);
  if (MountTmpfs(dir, bReadOnly)) {
    *pResult = fn();
    umount2(dir.c_str(), MNT_DETACH);
    return {};
  }
  const std::string strHere = std::strerror(errno);
  int fds[2];
  if (pipe(fds) != 0) return "mount(2): " + strHere + "; no pipe for a child";
  const pid_t pid = fork();
  if (pid == 0) {
    close(fds[0]);
    char cMounted = EnterNamespacesAndMount(dir, bReadOnly) ? 1 : 0;
    if (write(fds[1], &cMounted, 1) == 1 && cMounted) {
      const T result = fn();
      if (write(fds[1], &result, sizeof(result)) != static_cast<ssize_t>(sizeof(result))) _exit(1);
    }
    _exit(0);
  }
  close(fds[1]);
  char cMounted = 0;
  const bool bRead = pid > 0 && read(fds[0], &cMounted, 1) == 1 && cMounted &&
                     read(fds[0], pResult, sizeof(T)) == static_cast<ssize_t>(sizeof(T));
  close(fds[0]);
  if (pid > 0) waitpid(pid, nullptr, 0);
  if (bRead) return {};
  return "mount(2): " + strHere + "; a child in new user and mount namespaces could not mount either";
}

class FFMuxerFailureTest : public FFMuxerTestBase {
 protected:
  void SetUp() override {
    FFMuxerTestBase::SetUp();
    if (IsSkipped()) return;
    if (!MediaExists("h264_aac_20s.mp4")) GTEST_SKIP() << "h264_aac_20s.mp4 missing";
    ReadSource(MediaPath("h264_aac_20s.mp4"), &m_in);
    ASSERT_EQ(m_in.hrOpen, S_OK);
  }
  CSource m_in;
};

// What the full-disk run saw, as plain data (it may run in a child).
struct CFullDiskRun {
  size_t nPut = 0;          // packets accepted before the first refusal
  HRESULT hrFail = S_OK;    // the first refusal
  HRESULT hrAfter = S_OK;   // the next packet's answer
  HRESULT hrClose = S_OK;
  bool bLogged = false;     // a log line named the cause
  int nBackRet = -1;        // reading the file again: 0, or the FFmpeg error
  size_t nBack = 0;         // packets read back
  size_t nBackStreams = 0;  // streams with at least one packet read back
  size_t nMismatch = 0;     // read-back packets that are not the input's, in order
  long long cbFile = 0;
};

TEST_F(FFMuxerFailureTest, FullDisk_FailsWithDiskFullAndWhatFittedStaysReadable) {
  // MPEG-TS is written as it goes, so what fitted reads back up to the cut;
  // the check is per stream: the packets read back are the first ones put,
  // in order, with their key flags and times (the payload is rewritten for
  // TS, so it is not compared), and the file filled the disk. What the I/O
  // buffer held when the write failed is lost: libavformat writes the file
  // in blocks of 256 KiB, so on this disk exactly the first block is there,
  // and the refusal comes with the packet that fills the second.
  const fs::path dir = m_dir / "small";
  fs::create_directories(dir);
  const std::string strPath = (dir / "full.ts").string();
  CFullDiskRun run;
  const std::string strWhy = RunOnTmpfs<CFullDiskRun>(
      dir, false,
      [&]() {
        CFullDiskRun r;
        vc::CLogCapture log(vc::eVCLL_Error);
        ComPtr<IVCMuxer> cpMuxer = NewMuxer();
        if (SetTarget(cpMuxer.Get(), strPath) != S_OK) return r;
        AddStreams(cpMuxer.Get(), m_in);
        size_t n = 0;
        for (; n < m_in.packets.size(); ++n) {
          r.hrFail = cpMuxer->MuxerPacketPut(-1, m_in.packets[n].Get(), nullptr);
          if (FAILED(r.hrFail)) break;
        }
        r.nPut = n;
        r.bLogged = log.Contains("No space left on device");
        if (n + 1 < m_in.packets.size()) r.hrAfter = cpMuxer->MuxerPacketPut(-1, m_in.packets[n + 1].Get(), nullptr);
        r.hrClose = cpMuxer->MuxerClose();
        std::error_code ec;
        r.cbFile = static_cast<long long>(fs::file_size(strPath, ec));
        // Read with libavformat itself: what is on the disk.
        std::vector<CPacketSummary> vecBack;
        r.nBackRet = ReadWithLibav(strPath, &vecBack);
        r.nBack = vecBack.size();
        for (size_t s = 0; s < m_in.streams.size(); ++s) {
          const std::vector<CPacketSummary> want = m_in.OfStream(static_cast<LONG>(s));
          std::vector<CPacketSummary> got;
          for (const CPacketSummary& back : vecBack)
            if (back.nStream == static_cast<LONG>(s)) got.push_back(back);
          if (got.empty()) continue;
          ++r.nBackStreams;
          const LONGLONG rtShift = got.front().rtStart - want.front().rtStart;
          for (size_t i = 0; i < got.size(); ++i) {
            if (i >= want.size() || got[i].bKey != want[i].bKey ||
                std::abs(got[i].rtStart - rtShift - want[i].rtStart) > kMs)
              ++r.nMismatch;
          }
        }
        return r;
      },
      &run);
  if (!strWhy.empty()) GTEST_SKIP() << "no small file system to fill: " << strWhy;

  EXPECT_EQ(run.hrFail, kDiskFullHr);
  EXPECT_GT(run.nPut, 0u);
  EXPECT_LT(run.nPut, m_in.packets.size());
  EXPECT_TRUE(run.bLogged) << "no log line named the full disk";
  EXPECT_TRUE(FAILED(run.hrAfter)) << "a packet after the refusal was taken";
  EXPECT_TRUE(FAILED(run.hrClose)) << "the close reported a complete file";
  EXPECT_GT(run.cbFile, static_cast<long long>(kTmpfsBytes / 2));
  EXPECT_EQ(run.nBackRet, 0);
  EXPECT_EQ(run.nBackStreams, m_in.streams.size());
  EXPECT_EQ(run.nMismatch, 0u);
  EXPECT_GT(run.nBack, 0u);
  EXPECT_LE(run.nBack, run.nPut) << run.cbFile << " bytes, " << run.nBack << " of " << run.nPut << " packets";
}

TEST_F(FFMuxerFailureTest, PathUnderARegularFile_FailsAtMuxerSetWithPathNotFound) {
  {
    std::ofstream file(Out("plain"));
    file << "not a folder";
  }
  ComPtr<IVCMuxer> cpMuxer = NewMuxer();
  vc::CLogCapture log(vc::eVCLL_Error);
  EXPECT_EQ(SetTarget(cpMuxer.Get(), Out("plain/a.mkv")), kPathNotFoundHr);
  EXPECT_TRUE(log.Contains("avio_open")) << "no log line for the refused path";
  LONG nIdx = 0;
  EXPECT_EQ(cpMuxer->MuxerStreamAdd(&m_in.infos[0], nullptr, &nIdx), vc::VC_E_EMPTY);
}

// What the read-only run saw.
struct CReadOnlyRun {
  HRESULT hr = S_OK;
  bool bLogged = false;
  bool bCreated = true;
};

TEST_F(FFMuxerFailureTest, ReadOnlyFolder_FailsAtMuxerSetWithAClearCode) {
  // Permission bits do not stop root, so as root the folder is a read-only
  // mount instead; either way nothing may be created there.
  const fs::path dir = m_dir / "ro";
  fs::create_directories(dir);
  const std::string strPath = (dir / "a.mp4").string();
  const auto attempt = [&]() {
    CReadOnlyRun r;
    vc::CLogCapture log(vc::eVCLL_Error);
    ComPtr<IVCMuxer> cpMuxer = NewMuxer();
    r.hr = SetTarget(cpMuxer.Get(), strPath);
    r.bLogged = log.Contains("avio_open");
    r.bCreated = fs::exists(strPath);
    return r;
  };
  CReadOnlyRun run;
  HRESULT hrWant = E_ACCESSDENIED;
  if (geteuid() != 0) {
    fs::permissions(dir, fs::perms::owner_read | fs::perms::owner_exec);
    run = attempt();
  } else {
    const std::string strWhy = RunOnTmpfs<CReadOnlyRun>(dir, true, attempt, &run);
    if (!strWhy.empty()) GTEST_SKIP() << "running as root and no read-only mount: " << strWhy;
    hrWant = kWriteProtectHr;
  }
  EXPECT_EQ(run.hr, hrWant);
  EXPECT_TRUE(run.bLogged);
  EXPECT_FALSE(run.bCreated);
}

TEST_F(FFMuxerFailureTest, SwitchToAPathThatCannotBeWritten_FailsTheRequestAndTheFileGoesOn) {
  ComPtr<IVCMuxer> cpMuxer = NewMuxer();
  ASSERT_EQ(SetTarget(cpMuxer.Get(), Out("a.mkv")), S_OK);
  AddStreams(cpMuxer.Get(), m_in);
  vc::CLogCapture log(vc::eVCLL_Error);
  for (size_t n = 0; n < m_in.packets.size(); ++n) {
    if (n == m_in.packets.size() / 2) {
      EXPECT_EQ(SetTarget(cpMuxer.Get(), Out("missing/b.mkv"), "seamless_switch=true"), vc::VC_E_FILE_NOT_FOUND);
      EXPECT_TRUE(log.Contains("avio_open"));
    }
    ASSERT_EQ(cpMuxer->MuxerPacketPut(-1, m_in.packets[n].Get(), nullptr), S_OK);
  }
  ASSERT_EQ(cpMuxer->MuxerClose(), S_OK);
  CSource back;
  ReadSource(Out("a.mkv"), &back);
  ASSERT_EQ(back.hrOpen, S_OK);
  EXPECT_EQ(back.packets.size(), m_in.packets.size());
}

TEST_F(FFMuxerFailureTest, ClosedHalfWay_MkvPlaysToTheLastPacketPut) {
  // Matroska as a second container beside the mp4 case: the file closed at
  // an arbitrary packet (not a key frame) reads back to that packet and its
  // video decodes frame for packet.
  ComPtr<IVCMuxer> cpMuxer = NewMuxer();
  ASSERT_EQ(SetTarget(cpMuxer.Get(), Out("half.mkv")), S_OK);
  AddStreams(cpMuxer.Get(), m_in);
  const size_t nPut = m_in.packets.size() / 3 + 7;
  for (size_t n = 0; n < nPut; ++n) ASSERT_EQ(cpMuxer->MuxerPacketPut(-1, m_in.packets[n].Get(), nullptr), S_OK);
  ASSERT_EQ(cpMuxer->MuxerClose(), S_OK);
  CSource back;
  ReadSource(Out("half.mkv"), &back);
  ASSERT_EQ(back.hrOpen, S_OK);
  ASSERT_EQ(back.packets.size(), nPut);
  size_t nVideo = 0;
  for (size_t s = 0; s < m_in.streams.size(); ++s) {
    const std::vector<CPacketSummary> got = back.OfStream(static_cast<LONG>(s));
    const std::vector<CPacketSummary> want = m_in.OfStream(static_cast<LONG>(s));
    for (size_t i = 0; i < got.size(); ++i) EXPECT_EQ(got[i].llHash, want[i].llHash) << "stream " << s << " packet " << i;
    if (m_in.streams[s].eType == eVCMT_Video) nVideo = got.size();
  }
  EXPECT_EQ(vc::fftest::DecodeWithPlainLoop(Out("half.mkv"), AVMEDIA_TYPE_VIDEO).nFrames, static_cast<int>(nVideo));
}

}  // namespace
