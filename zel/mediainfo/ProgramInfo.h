// What a media file says about its programs, and the lists of streams and programs.
//
//   zel::Ref<IStreamInfos> sounds;
//   if (program->GetAudioStreamInfos(sounds.Receive()) == S_OK) {
//     zel::Ref<IStreamInfo> first;
//     sounds->GetItem(0, first.Receive());
//   }
//
// A program holds up to three lists of streams (video, audio, subpictures). Every stream object has
// its own copy of its record. Out-parameters receive one reference each. Streams and lists that a
// program drops live on for those who hold references to them.
//
// Threads: each operation says which of these holds. No object locks.
//   [shared]  any thread, while nothing marked [alone] runs on the same object;
//   [alone]   no other operation on the same object runs at the same time.
#pragma once

#include "zel/base/UnknownList.h"
#include "zel/mediainfo/ProgramRecords.h"
#include "zel/mediainfo/StreamInfo.h"
#include "zel/sample/MediaFrame.h"

class CProgramInfo;

/// An ordered list of video, audio or subpicture streams.
class ZEL_API IStreamInfos : public IUnknown {
 public:
  virtual int GetCount() = 0;  ///< [shared]
  /// [shared] Hands out the item at 0-based `index`.
  /// @return S_OK; E_POINTER for a null `out`, or, with `*out` null, for an index out of range.
  virtual HRESULT GetItem(int index, IStreamInfo** out) = 0;

 protected:
  ~IStreamInfos() = default;
};

/// An ordered list of subpicture streams.
class ZEL_API ISubPicStreamInfos : public IUnknown {
 public:
  virtual int GetCount() = 0;  ///< [shared]
  /// [shared] As IStreamInfos::GetItem.
  virtual HRESULT GetItem(int index, ISubPicStreamInfo** out) = 0;

 protected:
  ~ISubPicStreamInfos() = default;
};

/// Describes one program. Each answer is the record's field of that name (see ProgramInfo), or 0
/// without a record.
class ZEL_API IProgramInfo : public IUnknown {
 public:
  virtual std::int32_t GetNumber() = 0;                       ///< [shared]
  virtual std::uint32_t GetID() = 0;                          ///< [shared]
  virtual double GetMediaLength() = 0;                        ///< [shared]
  virtual std::uint32_t GetBitrate() = 0;                     ///< [shared]
  virtual std::uint32_t GetTimeStampReferenceStreamID() = 0;  ///< [shared]
  /// [shared] Hands out the list of the video streams.
  /// @return S_OK; E_POINTER for a null `out`; E_FAIL, with `*out` null, when there are none.
  virtual HRESULT GetVideoStreamInfos(IStreamInfos** out) = 0;
  /// [shared] As GetVideoStreamInfos.
  virtual HRESULT GetAudioStreamInfos(IStreamInfos** out) = 0;
  /// [shared] As GetVideoStreamInfos.
  virtual HRESULT GetSubPicStreamInfos(IStreamInfos** out) = 0;

 protected:
  ~IProgramInfo() = default;
};

/// An ordered list of programs.
class ZEL_API IProgramInfos : public IUnknown {
 public:
  virtual int GetCount() = 0;  ///< [shared]
  /// [shared] As IStreamInfos::GetItem.
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

  /// [alone] Appends a stream with a copy of `*info`.
  /// @return S_OK; E_POINTER, with nothing added, for null.
  /// @throws std::bad_alloc with nothing added.
  virtual HRESULT AddByStreamInfo(const StreamInfo* info);
  /// [alone] Appends a stream with a fresh record (see CStreamInfo::CStreamInfo).
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

  /// [alone] Appends a stream with a copy of `*info`.
  /// @return S_OK; E_POINTER, with nothing added, for null.
  /// @throws std::bad_alloc with nothing added.
  virtual HRESULT AddBySubPicStreamInfo(const SubPicStreamInfo* info);
};

/// IProgramInfo over its own copy of a ProgramInfo record. The operations of IProgramInfo follow
/// the thread rules given there.
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

  /// [alone] Replaces the record (through CloneProgramInfo and FreeProgramInfo) and all three
  /// lists.
  /// @return S_OK; E_POINTER, with nothing changed, for null; E_OUTOFMEMORY, with the program left
  ///   empty, when the record cannot be copied.
  /// @throws std::bad_alloc after adding as many streams as memory allowed.
  virtual HRESULT SetProgramInfo(const ProgramInfo* info);
  /// [alone] Appends a stream with a fresh record to the video (2) or audio (3) list; the program's
  /// record stays as it is.
  /// @return the stream's record, to be filled in place; null, with nothing added, for another
  ///   type.
  /// @throws std::bad_alloc with nothing added.
  virtual StreamInfo* AddStream(AV_STREAM_TYPE type);

 private:
  friend struct zel::Layout<CProgramInfo>;

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

  /// [alone] Appends a program for each entry of `info->programs`; none for a count below 1.
  /// @return S_OK; E_POINTER, with nothing added, for null or for a count without an array;
  ///   E_OUTOFMEMORY, after adding as many as memory allowed.
  /// @throws std::bad_alloc in the same way.
  virtual HRESULT AddByMediaInfo(const MEDIA_FILE_INFO* info);
  /// [alone] Appends a program without a record. @return S_OK.
  /// @throws std::bad_alloc with nothing added.
  virtual HRESULT AddNewProgram();
};

#if defined(__i386__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
template <>
struct zel::Layout<CProgramInfo> {
  using T = CProgramInfo;
  static_assert(sizeof(T) == 32);
  static_assert(offsetof(T, m_pInfo) == 16);
  static_assert(offsetof(T, m_pVideoStreams) == 20);
  static_assert(offsetof(T, m_pAudioStreams) == 24);
  static_assert(offsetof(T, m_pSubPicStreams) == 28);
};
template <>
struct zel::Layout<scombase::CUnknownList<CStreamInfo, IStreamInfo, IStreamInfos>> {
  using T = scombase::CUnknownList<CStreamInfo, IStreamInfo, IStreamInfos>;
  static_assert(sizeof(T) == 28);
  static_assert(offsetof(T, m_items) == 16);
};
template <>
struct zel::Layout<scombase::CUnknownList<CProgramInfo, IProgramInfo, IProgramInfos>> {
  using T = scombase::CUnknownList<CProgramInfo, IProgramInfo, IProgramInfos>;
  static_assert(sizeof(T) == 28);
  static_assert(offsetof(T, m_items) == 16);
};
#pragma GCC diagnostic pop
static_assert(sizeof(CStreamInfos) == 28 && sizeof(CSubPicStreamInfos) == 28 &&
              sizeof(CProgramInfos) == 28);
#endif
