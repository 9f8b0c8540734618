// CMediaInfo describes one opened media file and holds a host's choices for it.
//
//   auto info = zel::MakeComponent<CMediaInfo>();
//   info->Fill(&fileRecord);               // programs, streams, texts
//   info->SelectStream(0x00010002, 0, 0);  // stream 2 of program 1
//   zel::Ref<IProgramInfos> programs;
//   info->GetIPrograms(programs.Receive());
//
// A decoder manager fills it from a MEDIA_FILE_INFO record; hosts query and adjust it through three
// interfaces. A choice (selected, lossless, channel index) is written into the record of the stream
// object, where every holder of that object sees it.
//
// Stream ids: bits 16 to 23 are the program's id, bits 0 to 15 the stream's number; bits 24 to 31
// do not matter.
//
// Threads: each operation says which of these holds. No object locks.
//   [shared]  any thread, while nothing marked [alone] runs on it or on its programs and streams;
//   [alone]   no other operation on it or on its programs and streams runs at the same time.
#pragma once

#include <memory>

#include "zel/base/Interfaces.h"
#include "zel/base/Unknown.h"
#include "zel/mediainfo/PointerList.h"
#include "zel/mediainfo/ProgramInfo.h"
#include "zel/mediainfo/ProgramRecords.h"

/// The host's demultiplexer manager; nothing of it is called.
class IDemuxMgrExBase;

/// Read access to the description of a media file.
class ZEL_API IMediaInfo : public IUnknown {
 public:
  virtual std::uint32_t GetFourCC() = 0;  ///< [shared]
  /// [shared] Hands out a copy of the name.
  /// @param out receives a string to be freed with SysFreeString.
  /// @return S_OK; E_POINTER for a null `out`; E_OUTOFMEMORY.
  virtual HRESULT GetFileName(wchar_t** out) = 0;
  /// [shared] As GetFileName.
  virtual HRESULT GetDescription(wchar_t** out) = 0;
  virtual double GetMediaLength() = 0;     ///< [shared] In the producer's unit.
  virtual std::uint32_t GetBitrate() = 0;  ///< [shared] Bits per second, overall.
  /// [shared] Hands out the list of programs, with one reference.
  /// @return S_OK; S_FALSE, with `*out` untouched, when there is none; E_POINTER for a null `out`.
  virtual HRESULT GetIPrograms(IProgramInfos** out) = 0;
  virtual std::int32_t IsFrameRateConstant() = 0;    ///< [shared] Not 0: constant; 1 before Fill.
  virtual std::int32_t GetSeekCapacity() = 0;        ///< [shared] 1 once filled, else 0.
  virtual std::uint32_t GetTrimSegmentNumber() = 0;  ///< [shared]
  /// [shared] A copy of the segment at 0-based `index`; zero-filled past the end.
  virtual STrimSegment GetTrimSegment(unsigned long index) = 0;

 protected:
  ~IMediaInfo() = default;
};

/// The host's choices. A stream is found by its id (see above) among the video, audio and
/// subpicture streams of its program, in that order.
class ZEL_API IMediaSetting : public IUnknown {
 public:
  /// [alone] Selects a stream and sets its choices.
  /// @return S_OK; S_FALSE, with nothing changed, when there is no such stream.
  virtual HRESULT SelectStream(unsigned long streamId, unsigned int lossless,
                               unsigned long channelIndex) = 0;
  /// [shared] Tells a stream's choices.
  /// @param lossless,channelIndex receive them and stay untouched when there is no such stream;
  ///   each may be null.
  /// @return not 0 when the stream is selected; 0 also when there is no such stream.
  virtual std::int32_t IsStreamSelected(unsigned long streamId, unsigned int* lossless,
                                        unsigned long* channelIndex) = 0;
  /// [alone] Selects a stream and sets its lossless flag; its channel index stays. Results as
  /// SelectStream.
  virtual HRESULT UpdateStreamSetting(unsigned long streamId, unsigned int lossless) = 0;
  /// [alone] Deselects a stream; its other choices stay. Results as SelectStream.
  virtual HRESULT ClearSelectStream(unsigned long streamId) = 0;
  /// [alone] Appends a copy of `segment`; the other arguments are not used. When memory is short
  /// nothing is appended. @return `segment`.
  virtual STrimSegment AddTrimSegment(STrimSegment segment, unsigned int, unsigned int) = 0;
  /// [alone] Frees all segments. @return S_OK.
  virtual HRESULT RemoveAllTrimSegments() = 0;
  /// [shared] Not implemented: changes nothing. @return E_ZEL_NOTIMPL.
  virtual HRESULT SetStreamIdentifier(unsigned long streamId, wchar_t* identifier) = 0;
  /// [shared] Not implemented: writes nothing. @return E_ZEL_NOTIMPL.
  virtual HRESULT GetStreamIndentifier(unsigned long streamId, wchar_t** out) = 0;
  /// [shared] The stream's codec-private data, owned by the stream's record.
  /// @param length receives the number of bytes. It stays untouched when the result is null.
  /// @return null when the stream has none, when there is no such stream, and for a null `length`.
  virtual unsigned char* GetExtraData(unsigned long streamId, unsigned long* length) = 0;

 protected:
  ~IMediaSetting() = default;
};

/// Further operations on the choices.
class ZEL_API IMediaSettingInternal : public IUnknown {
 public:
  /// [alone] Sets the lossless flag of every selected video and audio stream.
  /// @return S_OK; S_FALSE without a list of programs.
  virtual HRESULT UpdateAllStream(unsigned int lossless) = 0;
  /// [shared] Not implemented: `manager` is not called. @return E_ZEL_NOTIMPL.
  virtual HRESULT UpdateTrimSetting(IDemuxMgrExBase* manager) = 0;
  /// [shared] Number of selected video and audio streams.
  /// @param programNumber 1-based position of a program; 0xFFFFFFFF: all programs. Only 32 bits
  ///   count.
  /// @return 0 also for a number out of range.
  virtual std::int32_t GetSelectStreamNumber(unsigned long programNumber) = 0;
  /// [shared] The object's reference count, a momentary reading.
  virtual std::int32_t GetOjectReference() = 0;

 protected:
  ~IMediaSettingInternal() = default;
};

/// The description of a media file. A new one has no programs, empty texts, no trim segments, and a
/// constant frame rate. The interfaces' operations follow the thread rules given there. Any thread
/// may construct one; the destructor is [alone].
class ZEL_API CMediaInfo : public scombase::CUnknown,
                           public IMediaInfo,
                           public IMediaSetting,
                           public IMediaSettingInternal {
 public:
  /// Not aggregated, count 0.
  CMediaInfo();
  /// `phr` is left as it is.
  CMediaInfo(IUnknown* pUnkOuter, long* phr);

  HRESULT NonDelegatingQueryInterface(const _GUID& riid, void** ppv) override;
  ~CMediaInfo() override;

  HRESULT QueryInterface(const _GUID& riid, void** ppv) override;
  ULONG AddRef() override;
  ULONG Release() override;

  // IMediaInfo, in the order of its table.
  std::uint32_t GetFourCC() override;
  HRESULT GetFileName(wchar_t** out) override;
  HRESULT GetDescription(wchar_t** out) override;
  double GetMediaLength() override;
  std::uint32_t GetBitrate() override;
  HRESULT GetIPrograms(IProgramInfos** out) override;
  std::int32_t IsFrameRateConstant() override;
  std::int32_t GetSeekCapacity() override;
  std::uint32_t GetTrimSegmentNumber() override;
  STrimSegment GetTrimSegment(unsigned long index) override;

  // IMediaSetting, in the order of its table.
  HRESULT SelectStream(unsigned long streamId, unsigned int lossless,
                       unsigned long channelIndex) override;
  std::int32_t IsStreamSelected(unsigned long streamId, unsigned int* lossless,
                                unsigned long* channelIndex) override;
  HRESULT UpdateStreamSetting(unsigned long streamId, unsigned int lossless) override;
  HRESULT ClearSelectStream(unsigned long streamId) override;
  STrimSegment AddTrimSegment(STrimSegment segment, unsigned int, unsigned int) override;
  HRESULT RemoveAllTrimSegments() override;
  HRESULT SetStreamIdentifier(unsigned long streamId, wchar_t* identifier) override;
  HRESULT GetStreamIndentifier(unsigned long streamId, wchar_t** out) override;
  unsigned char* GetExtraData(unsigned long streamId, unsigned long* length) override;

  // IMediaSettingInternal, in the order of its table.
  HRESULT UpdateAllStream(unsigned int lossless) override;
  HRESULT UpdateTrimSetting(IDemuxMgrExBase* manager) override;
  std::int32_t GetSelectStreamNumber(unsigned long programNumber) override;
  std::int32_t GetOjectReference() override;

  /// [alone] Replaces programs, texts and figures with those of `*info`, drops all trim segments,
  /// and sets the seek capacity. `*info` is copied.
  /// @return S_OK; with nothing changed, E_POINTER for null or a program count without an array,
  ///   E_OUTOFMEMORY.
  /// @throws std::bad_alloc with nothing changed.
  HRESULT Fill(const MEDIA_FILE_INFO* info);
  /// [alone] Replaces all programs with one that has no record. @return S_OK.
  /// @throws std::bad_alloc with nothing changed.
  HRESULT AddProgram();
  /// [shared] The record of the stream with that id, owned by the stream; null when there is none.
  /// Streams of programs whose id exceeds 255 are not found.
  StreamInfo* FindStream(unsigned long streamId);
  /// [shared] The first stream of any program whose id equals `streamId` in the low 24 bits; no
  /// reference is taken. Null when there is none.
  CStreamInfo* GetStreamInfoObject(unsigned long streamId);

 private:
  friend struct zel::Layout<CMediaInfo>;

  [[gnu::visibility("hidden")]] void ReplacePrograms(std::unique_ptr<CProgramInfos> programs);

  zel::PointerList<STrimSegment> m_trimSegments;
  CProgramInfos* m_pPrograms = nullptr;
  std::uint32_t m_fourCC = 0;
  wchar_t m_fileName[512] = {};
  wchar_t m_description[128] = {};
  double m_mediaLength = 0.0;
  std::uint32_t m_bitrate = 0;
  std::int32_t m_frameRateConstant = 1;
  std::int32_t m_seekCapacity = 0;
};

#if defined(__i386__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
template <>
struct zel::Layout<CMediaInfo> {
  using T = CMediaInfo;
  static_assert(sizeof(T) == 2620);
  static_assert(offsetof(T, m_trimSegments) == 24);
  static_assert(offsetof(T, m_pPrograms) == 32);
  static_assert(offsetof(T, m_fourCC) == 36);
  static_assert(offsetof(T, m_fileName) == 40);
  static_assert(offsetof(T, m_description) == 2088);
  static_assert(offsetof(T, m_mediaLength) == 2600);
  static_assert(offsetof(T, m_bitrate) == 2608);
  static_assert(offsetof(T, m_frameRateConstant) == 2612);
  static_assert(offsetof(T, m_seekCapacity) == 2616);
};
#pragma GCC diagnostic pop
#endif
