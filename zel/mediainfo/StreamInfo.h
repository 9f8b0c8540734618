// What a media file says about its streams: IStreamInfo for video and audio, ISubPicStreamInfo for
// subpictures, and the objects behind them.
//
//   auto stream = zel::MakeComponent<CStreamInfo>();
//   stream->GetStreamInfo()->audioInfo = {48000, 2, 16, {}};  // the record is written in place
//   wchar_t* name = nullptr;
//   if (stream->GetName(&name) == S_OK) SysFreeString(name);
//
// Threads: each operation says which of these holds. No object locks.
//   [any]     any thread, at any time;
//   [shared]  any thread, while nothing marked [alone] runs on the same object;
//   [alone]   no other operation on the same object runs at the same time.
#pragma once

#include "zel/base/Interfaces.h"
#include "zel/base/Unknown.h"
#include "zel/mediainfo/PointerList.h"
#include "zel/mediainfo/StreamRecords.h"
#include "zel/platform/COMSupport.h"

/// Describes one video or audio stream.
///
/// Strings belong to the caller, who frees them with SysFreeString. Pointers to records and bytes
/// belong to the object and stay valid until its record is replaced or it is destroyed. Each answer
/// is the record's field of that name (see StreamInfo). Without a record, each answer is the value
/// given here.
class ZEL_API IStreamInfo : public IUnknown {
 public:
  virtual std::int32_t GetType() = 0;     ///< [shared] AV_STREAM_TYPE; 0 without a record.
  virtual std::uint32_t GetID() = 0;      ///< [shared] 0 without a record.
  virtual std::uint32_t GetFourCC() = 0;  ///< [shared] 0 without a record.
  virtual std::int32_t GetState() = 0;    ///< [shared] -1 without a record.
  /// [shared] Hands out a copy of the name.
  /// @return S_OK; E_POINTER for a null `ppName`; E_FAIL, `*ppName` untouched, without a record;
  ///   E_OUTOFMEMORY.
  virtual HRESULT GetName(wchar_t** ppName) = 0;
  /// [shared] As GetName.
  virtual HRESULT GetDescription(wchar_t** ppDescription) = 0;
  virtual double GetLength() = 0;                ///< [shared] Seconds; 0 without a record.
  virtual std::uint32_t GetBitRate() = 0;        ///< [shared] Bits per second; 0 without a record.
  virtual AudioInfo* GetAudioInfo() = 0;         ///< [shared] Null without a record.
  virtual VideoInfo* GetVideoInfo() = 0;         ///< [shared] Null without a record.
  virtual VideoInfo* GetVideoSrcInfo() = 0;      ///< [shared] Null without a record.
  virtual std::int64_t GetStartPTS() = 0;        ///< [shared] 100-ns units; 0 without a record.
  virtual std::int64_t GetPTSOffset() = 0;       ///< [shared] 100-ns units; 0 without a record.
  virtual std::int32_t GetSourceScanType() = 0;  ///< [shared] 2 without a record.
  virtual std::uint32_t GetStreamPID() = 0;      ///< [shared] 0 without a record.
  virtual std::int32_t IsStreamSelected() = 0;   ///< [shared] 0 without a record.
  virtual std::int32_t IsLosslessProcess() = 0;  ///< [shared] 0 without a record.
  virtual std::int32_t GetChannelIndex() = 0;    ///< [shared] -1 without a record.
  virtual std::int64_t GetStreamDelay() = 0;     ///< [shared] The same field as GetPTSOffset.
  virtual std::uint32_t GetExtraDataLength() = 0;  ///< [shared] Bytes; 0 without a record.
  virtual unsigned char* GetExtraData() = 0;       ///< [shared] Codec-private data; may be null.
  virtual std::int64_t GetFirstPacketPos() = 0;    ///< [shared] Byte position; 0 without a record.
  virtual std::uint32_t GetStreamIndex() = 0;      ///< [shared] 0 without a record.
  virtual std::uint32_t GetExtraDataCount() = 0;   ///< [shared] Number of typed blocks.
  /// [shared] The typed block at 0-based `index`, or null past the end.
  virtual SStreamExtraData* GetExtraData(unsigned long index) = 0;
  /// [shared] As GetName.
  virtual HRESULT GetLanguageDesc(wchar_t** ppLanguage) = 0;
  virtual std::int32_t GetLosslessCapacity() = 0;  ///< [shared] 0 without a record.
  virtual std::int32_t GetProfileValue() = 0;      ///< [shared] 0 without a record.
  virtual std::int32_t GetLevelValue() = 0;        ///< [shared] 0 without a record.
  virtual std::int32_t GetMaxBFrames() = 0;        ///< [shared] 0 without a record.

 protected:
  ~IStreamInfo() = default;
};

/// Describes one subpicture stream. Only identity and texts come from the record; the other answers
/// are fixed.
class ZEL_API ISubPicStreamInfo : public IUnknown {
 public:
  virtual std::int32_t GetType() = 0;     ///< [shared] 0 without a record.
  virtual std::uint32_t GetID() = 0;      ///< [shared] 0 without a record.
  virtual std::uint32_t GetFourCC() = 0;  ///< [shared] 0 without a record.
  /// [shared] Hands out a copy of the text.
  /// @param ppLanguage receives a string to be freed with SysFreeString; null after a failure.
  /// @return S_OK; E_POINTER for a null `ppLanguage`; E_FAIL without a record; E_OUTOFMEMORY.
  virtual HRESULT GetLanguage(wchar_t** ppLanguage) = 0;
  /// [shared] As GetLanguage.
  virtual HRESULT GetDescription(wchar_t** ppDescription) = 0;
  virtual VideoInfo* GetVideoInfo() = 0;           ///< [shared] Null.
  virtual std::int64_t GetStartPTS() = 0;          ///< [shared] 0.
  virtual std::int64_t GetPTSOffset() = 0;         ///< [shared] 0.
  virtual std::uint32_t GetStreamPID() = 0;        ///< [shared] 0.
  virtual std::int32_t IsStreamSelected() = 0;     ///< [shared] 0.
  virtual std::int32_t IsLosslessProcess() = 0;    ///< [shared] 0.
  virtual std::int32_t GetChannelIndex() = 0;      ///< [shared] 0.
  virtual std::int64_t GetStreamDelay() = 0;       ///< [shared] 0.
  virtual std::uint32_t GetExtraDataLength() = 0;  ///< [shared] 0.
  virtual unsigned char* GetExtraData() = 0;       ///< [shared] Null.
  virtual std::int64_t GetFirstPacketPos() = 0;    ///< [shared] 0.

 protected:
  ~ISubPicStreamInfo() = default;
};

/// IStreamInfo over a StreamInfo record of its own, with a list of typed extra-data blocks. The
/// operations of IStreamInfo follow the thread rules given there. Constructors are [any], the
/// destructor is [alone].
class ZEL_API CStreamInfo : public scombase::CUnknown, public IStreamInfo {
 public:
  /// Not aggregated, count 0, with a fresh record. The record is all zero but `id` 0xFFFFFFFF,
  /// `state` -1, `reserved0` 2, `sourceScanType` 2 and `channelIndex` -1.
  CStreamInfo();
  /// Without a record until SetStreamInfo. `phr` is left as it is.
  CStreamInfo(IUnknown* pUnkOuter, long* phr);

  HRESULT NonDelegatingQueryInterface(const _GUID& riid, void** ppv) override;
  ~CStreamInfo() override;

  // IStreamInfo, in the order of its table.
  HRESULT QueryInterface(const _GUID& riid, void** ppv) override;
  ULONG AddRef() override;
  ULONG Release() override;
  std::int32_t GetType() override;
  std::uint32_t GetID() override;
  std::uint32_t GetFourCC() override;
  std::int32_t GetState() override;
  HRESULT GetName(wchar_t** ppName) override;
  HRESULT GetDescription(wchar_t** ppDescription) override;
  double GetLength() override;
  std::uint32_t GetBitRate() override;
  AudioInfo* GetAudioInfo() override;
  VideoInfo* GetVideoInfo() override;
  VideoInfo* GetVideoSrcInfo() override;
  std::int64_t GetStartPTS() override;
  std::int64_t GetPTSOffset() override;
  std::int32_t GetSourceScanType() override;
  std::uint32_t GetStreamPID() override;
  std::int32_t IsStreamSelected() override;
  std::int32_t IsLosslessProcess() override;
  std::int32_t GetChannelIndex() override;
  std::int64_t GetStreamDelay() override;
  std::uint32_t GetExtraDataLength() override;
  unsigned char* GetExtraData() override;
  std::int64_t GetFirstPacketPos() override;
  std::uint32_t GetStreamIndex() override;
  std::uint32_t GetExtraDataCount() override;
  SStreamExtraData* GetExtraData(unsigned long index) override;
  HRESULT GetLanguageDesc(wchar_t** ppLanguage) override;
  std::int32_t GetLosslessCapacity() override;
  std::int32_t GetProfileValue() override;
  std::int32_t GetLevelValue() override;
  std::int32_t GetMaxBFrames() override;

  /// [alone] Replaces the record with a copy of `*info`, its extra data included; the typed blocks
  /// stay. A length of 0 or a null `extraData` leaves the copy without extra data.
  /// @return 1; 0, with nothing changed, for null.
  /// @throws std::bad_alloc with nothing changed.
  int SetStreamInfo(const StreamInfo* info);
  /// [shared] The record, owned by the object; null when there is none. Writing to it is [alone].
  StreamInfo* GetStreamInfo();
  /// [alone] Appends a typed block: a copy of `size` bytes at `data`.
  /// @return 1; 0, with nothing added, for null data, size 0, and sizes above 2^32 - 1.
  /// @throws std::bad_alloc with nothing added.
  int AddExtraData(STREAM_EXTRA_DATA_TYPE type, unsigned long size, unsigned char* data);

 private:
  friend struct zel::Layout<CStreamInfo>;

  StreamInfo* m_pInfo;
  zel::PointerList<SStreamExtraData> m_extraList;
};

/// ISubPicStreamInfo over a SubPicStreamInfo record of its own. The operations of ISubPicStreamInfo
/// follow the thread rules given there.
class ZEL_API CSubPicStreamInfo : public scombase::CUnknown, public ISubPicStreamInfo {
 public:
  /// Not aggregated, count 0, without a record.
  CSubPicStreamInfo();
  /// Without a record. `phr` is left as it is.
  CSubPicStreamInfo(IUnknown* pUnkOuter, long* phr);

  HRESULT NonDelegatingQueryInterface(const _GUID& riid, void** ppv) override;
  ~CSubPicStreamInfo() override;

  // ISubPicStreamInfo, in the order of its table.
  HRESULT QueryInterface(const _GUID& riid, void** ppv) override;
  ULONG AddRef() override;
  ULONG Release() override;
  std::int32_t GetType() override;
  std::uint32_t GetID() override;
  std::uint32_t GetFourCC() override;
  HRESULT GetLanguage(wchar_t** ppLanguage) override;
  HRESULT GetDescription(wchar_t** ppDescription) override;
  VideoInfo* GetVideoInfo() override;
  std::int64_t GetStartPTS() override;
  std::int64_t GetPTSOffset() override;
  std::uint32_t GetStreamPID() override;
  std::int32_t IsStreamSelected() override;
  std::int32_t IsLosslessProcess() override;
  std::int32_t GetChannelIndex() override;
  std::int64_t GetStreamDelay() override;
  std::uint32_t GetExtraDataLength() override;
  unsigned char* GetExtraData() override;
  std::int64_t GetFirstPacketPos() override;

  /// [alone] Replaces the record with a copy of `*info`.
  /// @return S_OK; E_POINTER, with nothing changed, for null.
  /// @throws std::bad_alloc with nothing changed.
  virtual HRESULT SetSubPicStreamInfo(const SubPicStreamInfo* info);
  /// [any] Always null: the object does not hand out its record.
  SubPicStreamInfo* GetSubPicStreamInfo();

 private:
  friend struct zel::Layout<CSubPicStreamInfo>;

  SubPicStreamInfo* m_pInfo = nullptr;
};

#if defined(__i386__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
template <>
struct zel::Layout<CStreamInfo> {
  using T = CStreamInfo;
  static_assert(sizeof(T) == 28);
  static_assert(offsetof(T, m_pInfo) == 16);
  static_assert(offsetof(T, m_extraList) == 20);
};
template <>
struct zel::Layout<CSubPicStreamInfo> {
  static_assert(sizeof(CSubPicStreamInfo) == 20 && offsetof(CSubPicStreamInfo, m_pInfo) == 16);
};
#pragma GCC diagnostic pop
#endif
