// What a host does with the decoder manager, for tests and for fuzzers.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

#include "media/Utf8.h"
#include "zel/zel.h"

namespace zel::test {

/// Ends the process when an interface breaks a promise.
inline void Require(bool kept, const char* promise) {
  if (kept) return;
  std::fprintf(stderr, "broken promise: %s\n", promise);
  std::abort();
}

/// Calls an operation whose last parameter receives an object.
/// @return the object, or null when the operation failed
template <class T, class Object, class Operation, class... Arguments>
Ref<T> Obtain(const Ref<Object>& object, Operation operation, Arguments... arguments) {
  Require(static_cast<bool>(object), "an object to ask");
  T* made = reinterpret_cast<T*>(1);
  const HRESULT result = (object.get()->*operation)(arguments..., &made);
  Require((made != nullptr) == (result == S_OK), "an object if, and only if, S_OK");
  return Ref<T>::Adopt(made);
}

/// The text that an operation hands out; empty without one.
template <class Object, class Operation>
std::wstring Text(const Ref<Object>& object, Operation operation) {
  wchar_t* text = nullptr;
  (object.get()->*operation)(&text);
  const std::wstring copy = text != nullptr ? text : L"";
  SysFreeString(text);
  return copy;
}

inline Ref<IMediaDecoderMgr> Manager() {
  Ref<IMediaDecoderMgr> manager;
  const HRESULT result = ZelCreateInstance(CLSID_CMediaDecoderMgr, nullptr, 0, IID_IMediaDecoderMgr,
                                           manager.ReceiveVoid());
  Require(result == S_OK, "a decoder manager");
  return manager;
}

/// @return null when the file is refused
inline Ref<IMediaDecoder> OpenFile(const std::string& path, DecoderSelection* selection = nullptr) {
  const std::wstring name = media::ToWide(path);
  return Obtain<IMediaDecoder>(Manager(), &IMediaDecoderMgr::CreateDecoder, name.c_str(), 0,
                               selection, 11);
}

/// @return null when the file is refused
inline Ref<IMediaInfo> Describe(const std::string& path) {
  const std::wstring name = media::ToWide(path);
  return Obtain<IMediaInfo>(Manager(), &IMediaDecoderMgr::OpenMediaInfo, name.c_str(), 11);
}

inline constexpr auto kVideo = &IProgramInfo::GetVideoStreamInfos;
inline constexpr auto kAudio = &IProgramInfo::GetAudioStreamInfos;
inline constexpr auto kText = &IProgramInfo::GetSubPicStreamInfos;

}  // namespace zel::test
