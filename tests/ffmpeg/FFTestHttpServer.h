// A small HTTP server for the network tests: serves one body from
// 127.0.0.1 on a port the system picks, with byte ranges, and misbehaves on
// command: never answers, answers part of the body and then goes silent
// (as a file, or as a live source that cannot seek), answers 404, or resets
// the connection. Every connection gets its own
// thread; Stop (or the destructor) closes every socket, which also ends a
// silent connection, so a test that went wrong cannot hang on the server.
//
// Also here: the port of a socket nobody listens on, and an audio-only
// MPEG-TS made from a test file in memory.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <future>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace vc::fftest {

class CTestHttpServer {
 public:
  enum class eMode {
    Serve,     // the body, whole or by range
    Silent,    // accept, read the request, never answer
    StallAt,   // header and the body up to the stall offset, then nothing
    LiveStallAt,  // the same as a live source: no length, no ranges, so no seeks
    NotFound,  // 404
    Reset,     // read the request, then reset the connection
  };

  // Binds and listens; Port() is 0 when that failed.
  explicit CTestHttpServer(std::vector<uint8_t> vecBody, eMode eHow = eMode::Serve, size_t nStallAt = 0);
  ~CTestHttpServer();
  CTestHttpServer(const CTestHttpServer&) = delete;
  CTestHttpServer& operator=(const CTestHttpServer&) = delete;

  int Port() const { return m_nPort; }
  // "http://127.0.0.1:PORT/NAME".
  std::string Url(const std::string& strName) const;
  // Requests that reached the server so far.
  int Requests() const { return m_nRequests.load(); }
  // Closes the listening socket and every connection, and joins the threads.
  void Stop();

 private:
  void _AcceptLoop();
  void _Serve(int nSocket);
  bool _ReadRequest(int nSocket, std::string* pstrRequest);
  bool _SendAll(int nSocket, const void* pData, size_t cb);
  void _HoldUntilStopped();

  const std::vector<uint8_t> m_vecBody;
  const eMode m_eMode;
  const size_t m_nStallAt;
  int m_nListen = -1;
  int m_nPort = 0;
  std::atomic<bool> m_bStop{false};
  std::atomic<int> m_nRequests{0};
  std::mutex m_mtx;
  std::vector<int> m_vecSockets;             // guarded by m_mtx
  std::vector<std::thread> m_vecThreads;     // guarded by m_mtx
  std::thread m_thAccept;
};

// Longest a network test lets one call run before it calls it a hang.
inline constexpr auto kWatchdog = std::chrono::seconds(20);

// Runs fn on another thread; a call that is still running at the watchdog
// fails the test, and stopping the server (if given) then lets it return.
template <class F>
auto Guarded(CTestHttpServer* pServer, F fn) {
  auto future = std::async(std::launch::async, fn);
  if (future.wait_for(kWatchdog) != std::future_status::ready) {
    ADD_FAILURE() << "the call did not return within the watchdog";
    if (pServer) pServer->Stop();
  }
  return future.get();
}

// A loopback port that refuses connections: bound once by us and let go.
int RefusingPort();

// A file's whole content; empty when it cannot be read.
std::vector<uint8_t> ReadFileBytes(const std::string& strPath);

// The files the network tests serve: the two-program TS, and a Matroska
// file (Matroska probes its streams from the first 32 KB, so a server that
// stalls past that lets an open finish and the reads run into the stall).
// Fails the calling test when either is missing or short.
void LoadServedMedia(std::vector<uint8_t>* pvecTs, std::vector<uint8_t>* pvecMkv);

// The first audio stream of a media file, remuxed alone into MPEG-TS in
// memory; its time stamps start well after 0 (as in a broadcast), which is
// what the network time offset is about. Empty on failure.
std::vector<uint8_t> AudioOnlyTs(const std::string& strPath);

}  // namespace vc::fftest
