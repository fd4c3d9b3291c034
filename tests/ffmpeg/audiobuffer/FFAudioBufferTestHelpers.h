// Shared pieces of the audio buffer tests: a buffer fixture with short verbs
// for puts and gets, and an IVCFrame double that holds audio the way a frame
// does (VCAVPropsGet, VCAudioGetBytes, VCAudioAlloc, VCAudioSet, times) and
// answers E_NOTIMPL to everything else.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <vector>

#include "FrameDouble.h"
#include "FFClasses.h"
#include "VCCodecsCore.h"
#include "VCComPtr.h"
#include "VCStrings.h"

namespace vc::fftest {

inline K_AUD_PROPS Aud(LONG nChannels, LONG nBits, LONG nRate = 48000, LONG nSplit = 0) {
  return K_AUD_PROPS{nChannels, nRate, nBits, nSplit};
}

template <class T>
LONGLONG Addr(const std::vector<T>& vec) {
  return reinterpret_cast<LONGLONG>(vec.data());
}

// A frame that only holds audio and a time. Not thread-safe; tests use it on
// one thread.
class CTestFrame final : public vctest::CCountedFrameDouble {
 public:
  static ComPtr<CTestFrame> Make() {
    ComPtr<CTestFrame> cp;
    cp.Attach(new CTestFrame());
    return cp;
  }
  template <class T>
  static ComPtr<CTestFrame> WithAudio(const K_AUD_PROPS& props, const std::vector<T>& vecSamples) {
    ComPtr<CTestFrame> cp = Make();
    cp->m_props = props;
    cp->m_vecAudio.resize(vecSamples.size() * sizeof(T));
    std::memcpy(cp->m_vecAudio.data(), vecSamples.data(), cp->m_vecAudio.size());
    return cp;
  }

  template <class T>
  std::vector<T> Samples() const {
    std::vector<T> vec(m_vecAudio.size() / sizeof(T));
    std::memcpy(vec.data(), m_vecAudio.data(), vec.size() * sizeof(T));
    return vec;
  }
  LONG SampleCount() const {
    const size_t cbBlock = static_cast<size_t>(m_props.nChannels) * static_cast<size_t>(m_props.nBitsPerSample / 8);
    return cbBlock ? static_cast<LONG>(m_vecAudio.size() / cbBlock) : 0;
  }

  K_AUD_PROPS m_props{};
  std::vector<uint8_t> m_vecAudio;
  K_TIME m_time{};
  HRESULT m_hrPropsGet = S_OK;  // what VCAVPropsGet answers
  HRESULT m_hrAudioSet = S_OK;  // what VCAudioSet answers (failing ones change nothing)
  int m_nAudioSetCalls = 0;

  HRESULT STDMETHODCALLTYPE VCAVPropsGet(K_AV_PROPS* _pProps, LONG* _plAudioSamples) override {
    if (FAILED(m_hrPropsGet)) return m_hrPropsGet;
    *_pProps = K_AV_PROPS{};
    _pProps->audProps = m_props;
    if (_plAudioSamples) *_plAudioSamples = SampleCount();
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE VCTimeGet(K_TIME* _pTime) override {
    *_pTime = m_time;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE VCTimeSet(K_TIME* _pTime) override {
    m_time = *_pTime;
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE VCAudioGetBytes(LONG* _pcbSize, LONGLONG* _ppbAudio) override {
    *_pcbSize = static_cast<LONG>(m_vecAudio.size());
    *_ppbAudio = reinterpret_cast<LONGLONG>(m_vecAudio.data());
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE VCAudioAlloc(K_AUD_PROPS* _pAudProps, LONG _lSamples) override {
    m_props = *_pAudProps;
    m_vecAudio.assign(static_cast<size_t>(_lSamples) * static_cast<size_t>(m_props.nChannels) *
                          static_cast<size_t>(m_props.nBitsPerSample / 8),
                      0);
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE VCAudioSet(K_AUD_PROPS* _pAudProps, LONG _cbSize, LONGLONG _pbAudio) override {
    ++m_nAudioSetCalls;
    if (FAILED(m_hrAudioSet)) return m_hrAudioSet;
    m_props = *_pAudProps;
    const auto* pb = reinterpret_cast<const uint8_t*>(_pbAudio);
    m_vecAudio.assign(pb, pb + _cbSize);
    return S_OK;
  }

 private:
  CTestFrame() = default;
  ~CTestFrame() = default;
};

// A fresh buffer per test, with verbs in the caller's sample type.
class AudioBufferFixture : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(ff::CreateFFAudioBuffer(nullptr, IidOf<IVCAudioBuffer>(), reinterpret_cast<void**>(m_cpBuf.AddressOf())),
              S_OK);
  }

  template <class T>
  HRESULT Put(const char* pszLine, K_AUD_PROPS props, const std::vector<T>& vec, const char* pszChannels = "") {
    const LONG lSamples = static_cast<LONG>(vec.size() / static_cast<size_t>(props.nChannels));
    return m_cpBuf->BufferPutPtr(CBstr(std::string_view(pszLine)), &props, lSamples, Addr(vec),
                                 CBstr(std::string_view(pszChannels)));
  }
  template <class T>
  HRESULT PutAt(const char* pszLine, LONGLONG rtTime, K_AUD_PROPS props, const std::vector<T>& vec) {
    const LONG lSamples = static_cast<LONG>(vec.size() / static_cast<size_t>(props.nChannels));
    return m_cpBuf->BufferPutPtrEx(CBstr(std::string_view(pszLine)), rtTime, &props, lSamples, Addr(vec), 0, nullptr);
  }
  // Takes up to lSamples samples of nChannels (the channels the list picks)
  // into a vector of T; *phr gets the answer.
  template <class T>
  std::vector<T> Get(const char* pszLine, LONG lSamples, LONG nChannels, const char* pszChannels = "",
                     HRESULT* phr = nullptr) {
    std::vector<T> vec(static_cast<size_t>(lSamples) * static_cast<size_t>(nChannels));
    LONGLONG llAddr = Addr(vec);
    const HRESULT hr = m_cpBuf->BufferGet(CBstr(std::string_view(pszLine)), &lSamples, &llAddr, 0,
                                          CBstr(std::string_view(pszChannels)));
    if (phr) *phr = hr;
    vec.resize(FAILED(hr) ? 0 : static_cast<size_t>(lSamples) * static_cast<size_t>(nChannels));
    return vec;
  }
  LONG Count(const char* pszLine) {
    K_AUD_PROPS props{};
    LONG lSamples = -1;
    m_cpBuf->BufferPropsGet(CBstr(std::string_view(pszLine)), &props, &lSamples);
    return lSamples;
  }
  K_AUD_PROPS Props(const char* pszLine) {
    K_AUD_PROPS props{};
    m_cpBuf->BufferPropsGet(CBstr(std::string_view(pszLine)), &props, nullptr);
    return props;
  }

  ComPtr<IVCAudioBuffer> m_cpBuf;
};

}  // namespace vc::fftest
