// Descriptions of programs and the lists of streams and programs.
//
// A program holds up to three lists of streams (video, audio, subpictures); every stream object has
// its own copy of its record. Out-parameters receive one reference each. What a program drops lives
// on for those who hold references to it.
//
// Threads: no object locks. Building a program or a list must not overlap with any other use of it.
#pragma once

#include "zel/base/UnknownList.h"
#include "zel/mediainfo/ProgramRecords.h"
#include "zel/mediainfo/StreamInfo.h"
#include "zel/sample/MediaFrame.h"

class CProgramInfo;

/// An ordered list of video, audio or subpicture streams.
class ZEL_API IStreamInfos : public IUnknown {
 public:
  virtual int GetCount() = 0;
  /// @return S_OK; E_POINTER for a null `out`, or, with `*out` null, for an index out of range.
  virtual HRESULT GetItem(int index, IStreamInfo** out) = 0;

 protected:
  ~IStreamInfos() = default;
};

/// An ordered list of subpicture streams.
class ZEL_API ISubPicStreamInfos : public IUnknown {
 public:
  virtual int GetCount() = 0;
  /// As IStreamInfos::GetItem.
  virtual HRESULT GetItem(int index, ISubPicStreamInfo** out) = 0;

 protected:
  ~ISubPicStreamInfos() = default;
};

/// Describes one program. Each answer is the record's field of that name (see ProgramInfo), or 0
/// without a record.
class ZEL_API IProgramInfo : public IUnknown {
 public:
  virtual std::int32_t GetNumber() = 0;
  virtual std::uint32_t GetID() = 0;
  virtual double GetMediaLength() = 0;
  virtual std::uint32_t GetBitrate() = 0;
  virtual std::uint32_t GetTimeStampReferenceStreamID() = 0;
  /// @return S_OK; E_POINTER for a null `out`; E_FAIL, with `*out` null, without streams of that
  ///   kind.
  virtual HRESULT GetVideoStreamInfos(IStreamInfos** out) = 0;
  /// As GetVideoStreamInfos.
  virtual HRESULT GetAudioStreamInfos(IStreamInfos** out) = 0;
  /// As GetVideoStreamInfos.
  virtual HRESULT GetSubPicStreamInfos(IStreamInfos** out) = 0;

 protected:
  ~IProgramInfo() = default;
};

/// An ordered list of programs.
class ZEL_API IProgramInfos : public IUnknown {
 public:
  virtual int GetCount() = 0;
  /// As IStreamInfos::GetItem.
  virtual HRESULT GetItem(int index, IProgramInfo** out) = 0;

 protected:
  ~IProgramInfos() = default;
};

extern template class ZEL_API scombase::CUnknownList<CStreamInfo, IStreamInfo, IStreamInfos>;
extern template class ZEL_API
    scombase::CUnknownList<CSubPicStreamInfo, ISubPicStreamInfo, ISubPicStreamInfos>;
extern template class ZEL_API scombase::CUnknownList<CProgramInfo, IProgramInfo, IProgramInfos>;

/// The list behind IStreamInfos.
class ZEL_API CStreamInfos : public scombase::CUnknownList<CStreamInfo, IStreamInfo, IStreamInfos> {
 public:
  CStreamInfos();
  ~CStreamInfos() override;

  /// Appends a stream with a copy of `*info`.
  /// @return S_OK; E_POINTER, with nothing added, for null.
  /// @throws std::bad_alloc with nothing added.
  virtual HRESULT AddByStreamInfo(const StreamInfo* info);
  /// Appends a stream with a fresh record (see CStreamInfo::CStreamInfo).
  /// @return the record, to be filled in place; owned by the stream.
  /// @throws std::bad_alloc with nothing added.
  virtual StreamInfo* AddNewStream();
};

/// The list behind ISubPicStreamInfos.
class ZEL_API CSubPicStreamInfos
    : public scombase::CUnknownList<CSubPicStreamInfo, ISubPicStreamInfo, ISubPicStreamInfos> {
 public:
  CSubPicStreamInfos();
  ~CSubPicStreamInfos() override;

  /// Appends a stream with a copy of `*info`.
  /// @return S_OK; E_POINTER, with nothing added, for null.
  /// @throws std::bad_alloc with nothing added.
  virtual HRESULT AddBySubPicStreamInfo(const SubPicStreamInfo* info);
};

/// IProgramInfo over an own copy of a ProgramInfo record.
class ZEL_API CProgramInfo : public scombase::CUnknown, public IProgramInfo {
 public:
  /// Not aggregated, count 0, without a record and without streams.
  CProgramInfo();

  HRESULT NonDelegatingQueryInterface(const _GUID& riid, void** ppv) override;
  ~CProgramInfo() override;

  // IProgramInfo, in the order of its table.
  HRESULT QueryInterface(const _GUID& riid, void** ppv) override;
  ULONG AddRef() override;
  ULONG Release() override;
  std::int32_t GetNumber() override;
  std::uint32_t GetID() override;
  double GetMediaLength() override;
  std::uint32_t GetBitrate() override;
  std::uint32_t GetTimeStampReferenceStreamID() override;
  HRESULT GetVideoStreamInfos(IStreamInfos** out) override;
  HRESULT GetAudioStreamInfos(IStreamInfos** out) override;
  HRESULT GetSubPicStreamInfos(IStreamInfos** out) override;

  /// Replaces the record (through CloneProgramInfo and FreeProgramInfo) and all three lists.
  /// @return S_OK; E_POINTER, with nothing changed, for null; E_OUTOFMEMORY, with the program left
  ///   empty, when the record cannot be copied.
  /// @throws std::bad_alloc with the streams added that memory sufficed for.
  virtual HRESULT SetProgramInfo(const ProgramInfo* info);
  /// Appends a stream with a fresh record to the video (2) or audio (3) list; the program's record
  /// stays as it is.
  /// @return the stream's record, to be filled in place; null, with nothing added, for another
  /// type.
  /// @throws std::bad_alloc with nothing added.
  virtual StreamInfo* AddStream(AV_STREAM_TYPE type);

 private:
  ProgramInfo* m_pInfo = nullptr;
  CStreamInfos* m_pVideoStreams = nullptr;
  CStreamInfos* m_pAudioStreams = nullptr;
  CStreamInfos* m_pSubPicStreams = nullptr;
};

/// The list behind IProgramInfos.
class ZEL_API CProgramInfos
    : public scombase::CUnknownList<CProgramInfo, IProgramInfo, IProgramInfos> {
 public:
  CProgramInfos();
  ~CProgramInfos() override;

  /// Appends a program for each entry of `info->programs`; none for a count below 1.
  /// @return S_OK; E_POINTER, with nothing added, for null or for a count without an array;
  ///   E_OUTOFMEMORY, with the programs added that memory sufficed for.
  /// @throws std::bad_alloc in the same way.
  virtual HRESULT AddByMediaInfo(const MEDIA_FILE_INFO* info);
  /// Appends a program without a record. @return S_OK.
  /// @throws std::bad_alloc with nothing added.
  virtual HRESULT AddNewProgram();
};
