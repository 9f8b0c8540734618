// Descriptions of elementary streams: the interfaces IStreamInfo and ISubPicStreamInfo and the
// objects behind them.
//
// Threads: no object locks. Changes (SetStreamInfo, AddExtraData, and a host's selection of
// streams) must not overlap with any other use of the same object.
#pragma once

#include <list>

#include "zel/base/Interfaces.h"
#include "zel/base/Unknown.h"
#include "zel/mediainfo/StreamRecords.h"
#include "zel/platform/COMSupport.h"

/// Describes one video or audio stream.
///
/// Strings are the caller's, to be freed with SysFreeString. Pointers to records and bytes belong
/// to the object and are good until its record is replaced or it is destroyed. Each answer is the
/// record's field of that name (see StreamInfo), or, for an object without a record, the value
/// given here.
class ZEL_API IStreamInfo : public IUnknown {
 public:
  virtual std::int32_t GetType() = 0;     ///< AV_STREAM_TYPE; 0 without a record.
  virtual std::uint32_t GetID() = 0;      ///< 0 without a record.
  virtual std::uint32_t GetFourCC() = 0;  ///< 0 without a record.
  virtual std::int32_t GetState() = 0;    ///< -1 without a record.
  /// @return S_OK; E_POINTER for a null `ppName`; E_FAIL, `*ppName` untouched, without a record;
  ///   E_OUTOFMEMORY.
  virtual HRESULT GetName(wchar_t** ppName) = 0;
  /// As GetName.
  virtual HRESULT GetDescription(wchar_t** ppDescription) = 0;
  virtual double GetLength() = 0;                  ///< Seconds; 0 without a record.
  virtual std::uint32_t GetBitRate() = 0;          ///< Bits per second; 0 without a record.
  virtual AudioInfo* GetAudioInfo() = 0;           ///< Null without a record.
  virtual VideoInfo* GetVideoInfo() = 0;           ///< Null without a record.
  virtual VideoInfo* GetVideoSrcInfo() = 0;        ///< Null without a record.
  virtual std::int64_t GetStartPTS() = 0;          ///< 100-ns units; 0 without a record.
  virtual std::int64_t GetPTSOffset() = 0;         ///< 100-ns units; 0 without a record.
  virtual std::int32_t GetSourceScanType() = 0;    ///< 2 without a record.
  virtual std::uint32_t GetStreamPID() = 0;        ///< 0 without a record.
  virtual std::int32_t IsStreamSelected() = 0;     ///< 0 without a record.
  virtual std::int32_t IsLosslessProcess() = 0;    ///< 0 without a record.
  virtual std::int32_t GetChannelIndex() = 0;      ///< -1 without a record.
  virtual std::int64_t GetStreamDelay() = 0;       ///< The same field as GetPTSOffset.
  virtual std::uint32_t GetExtraDataLength() = 0;  ///< Bytes at GetExtraData(); 0 without a record.
  virtual unsigned char* GetExtraData() = 0;       ///< Codec-private data; may be null.
  virtual std::int64_t GetFirstPacketPos() = 0;    ///< Byte position; 0 without a record.
  virtual std::uint32_t GetStreamIndex() = 0;      ///< 0 without a record.
  virtual std::uint32_t GetExtraDataCount() = 0;   ///< Number of typed blocks.
  /// The typed block at 0-based `index`, or null past the end.
  virtual SStreamExtraData* GetExtraData(unsigned long index) = 0;
  /// As GetName.
  virtual HRESULT GetLanguageDesc(wchar_t** ppLanguage) = 0;
  virtual std::int32_t GetLosslessCapacity() = 0;  ///< 0 without a record.
  virtual std::int32_t GetProfileValue() = 0;      ///< 0 without a record.
  virtual std::int32_t GetLevelValue() = 0;        ///< 0 without a record.
  virtual std::int32_t GetMaxBFrames() = 0;        ///< 0 without a record.

 protected:
  ~IStreamInfo() = default;
};

/// Describes one subpicture stream. Only identity and texts come from the record; the other answers
/// are fixed.
class ZEL_API ISubPicStreamInfo : public IUnknown {
 public:
  virtual std::int32_t GetType() = 0;     ///< 0 without a record.
  virtual std::uint32_t GetID() = 0;      ///< 0 without a record.
  virtual std::uint32_t GetFourCC() = 0;  ///< 0 without a record.
  /// @param ppLanguage receives a string to be freed with SysFreeString; null after a failure.
  /// @return S_OK; E_POINTER for a null `ppLanguage`; E_FAIL without a record; E_OUTOFMEMORY.
  virtual HRESULT GetLanguage(wchar_t** ppLanguage) = 0;
  /// As GetLanguage.
  virtual HRESULT GetDescription(wchar_t** ppDescription) = 0;
  virtual VideoInfo* GetVideoInfo() = 0;           ///< Null.
  virtual std::int64_t GetStartPTS() = 0;          ///< 0.
  virtual std::int64_t GetPTSOffset() = 0;         ///< 0.
  virtual std::uint32_t GetStreamPID() = 0;        ///< 0.
  virtual std::int32_t IsStreamSelected() = 0;     ///< 0.
  virtual std::int32_t IsLosslessProcess() = 0;    ///< 0.
  virtual std::int32_t GetChannelIndex() = 0;      ///< 0.
  virtual std::int64_t GetStreamDelay() = 0;       ///< 0.
  virtual std::uint32_t GetExtraDataLength() = 0;  ///< 0.
  virtual unsigned char* GetExtraData() = 0;       ///< Null.
  virtual std::int64_t GetFirstPacketPos() = 0;    ///< 0.

 protected:
  ~ISubPicStreamInfo() = default;
};

/// IStreamInfo over an owned StreamInfo record, and a list of typed extra-data blocks.
class ZEL_API CStreamInfo : public scombase::CUnknown, public IStreamInfo {
 public:
  /// Not aggregated, count 0, with a fresh record: all zero but `id` 0xFFFFFFFF, `state` -1,
  /// `reserved0` 2, `sourceScanType` 2 and `channelIndex` -1.
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

  /// Replaces the record with a copy of `*info`, its extra data included; the typed blocks stay. A
  /// length of 0 or a null `extraData` leaves the copy without extra data.
  /// @return 1; 0, with nothing changed, for null.
  int SetStreamInfo(const StreamInfo* info);
  /// The record, to be read and written in place; owned by the object. May be null.
  StreamInfo* GetStreamInfo();
  /// Appends a copy of `size` bytes at `data`.
  /// @return 1; 0, with nothing added, for null data or size 0.
  int AddExtraData(STREAM_EXTRA_DATA_TYPE type, unsigned long size, unsigned char* data);

 private:
  StreamInfo* m_pInfo;
  std::list<SStreamExtraData*> m_extraList;
};

/// ISubPicStreamInfo over an owned SubPicStreamInfo record.
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

  /// Replaces the record with a copy of `*info`.
  /// @return S_OK; E_POINTER, with nothing changed, for null.
  virtual HRESULT SetSubPicStreamInfo(const SubPicStreamInfo* info);
  /// Null: the record is not handed out.
  SubPicStreamInfo* GetSubPicStreamInfo();

 private:
  SubPicStreamInfo* m_pInfo = nullptr;
};
