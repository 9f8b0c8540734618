// CZelSample carries one frame of audio or video, with the facts that travel with it from component
// to component.
//
//   auto sample = zel::MakeComponent<CZelSample>(AV_STREAM_AUDIO, FRAME_DATA_DECODED);
//   sample->SetSampleSize(4096);                       // memory for 4,096 bytes of sound
//   sample->FrameCopy(&frame);                         // a copy of `frame`; grows if it must
//   const MEDIA_FRAME* copy = sample->GetMediaFrame();  // the sample's own, freed with it
//
// A sample owns its frame and the frame's data, planes or pixels. Frame memory only grows:
// GetSampleSize() bytes are allocated, and copies go by that number. The sample's time stamps and
// its frame's are separate; RefreshSampleInfo copies the frame's to the sample.
//
// Threads: each operation says which of these holds.
//   [any]    any thread, at any time;
//   [alone]  no other operation of the same object runs at the same time.
// Preconditions ("REQUIRES") are assertions that stay active in the shipped library, unless they
// concern memory that the library cannot know.
#pragma once

#include <memory>

#include "zel/base/Interfaces.h"
#include "zel/base/Unknown.h"
#include "zel/platform/COMSupport.h"
#include "zel/sample/MediaFrame.h"

class CFrameBuffer;
class CZelSample;

/// What components ask of a sample. All times are in 100-ns units, -1 for unknown. AddRef and
/// Release are [any], everything else is [alone].
class ZEL_API IZelSample : public IUnknown {
 public:
  virtual SAMPLE_TYPE GetSampleType() = 0;     ///< [alone]
  virtual FRAME_DATA_TYPE GetFrameType() = 0;  ///< [alone]
  virtual AV_STREAM_TYPE GetStreamType() = 0;  ///< [alone]
  virtual std::int32_t GetStreamID() = 0;      ///< -1 when none was given. [alone]
  virtual std::int32_t IsKeyFrame() = 0;       ///< 0 or 1. [alone]
  /// [alone] Sets what the sample is used for. @return 0.
  virtual HRESULT SetSampleType(SAMPLE_TYPE type) = 0;
  /// [alone] Bytes allocated for the frame's data; the valid ones may be fewer. This is the
  /// sample's own count. FrameAttach does not change it, and it stays when the frame takes on an
  /// unknown image format, which has no memory.
  virtual std::uint32_t GetSampleSize() = 0;
  /// [alone] The frame, owned by the sample; null when there is none.
  virtual MEDIA_FRAME* GetMediaFrame() = 0;
  /// [alone] Makes sure that at least `nSize` bytes are allocated for the frame's data. Up to
  /// GetSampleSize() nothing changes. Above, a new frame of `nSize` bytes replaces the old one,
  /// whose contents are lost.
  /// REQUIRES: `nSize` is not above GetSampleSize(), or the sample is audio or video. Without a
  /// stream type, a larger size aborts (assertion).
  /// @return 0; E_ZEL_STATE for video of an unknown image format (the new frame then has no memory)
  ///   and, with nothing changed, above 2^31 - 1 bytes.
  /// @throws std::bad_alloc with nothing changed.
  virtual HRESULT SetSampleSize(unsigned long nSize) = 0;
  virtual std::int64_t GetDuration() = 0;  ///< [alone]
  /// [alone] The frame's presentation time; -1 when there is no frame or it holds nothing.
  virtual std::int64_t GetCurrentPTS() = 0;
  /// [alone] The frame's decoding time; -1 when there is no frame or it holds nothing.
  virtual std::int64_t GetCurrentDTS() = 0;
  /// [alone] Sets the sample's own presentation time; the frame's stays. @return 0.
  virtual HRESULT SetCurrentPTS(long long pts) = 0;
  /// [alone] Sets the sample's own decoding time; the frame's stays. @return 0.
  virtual HRESULT SetCurrentDTS(long long dts) = 0;
  /// [alone] Sets the sample's own duration; the frame's stays. @return 0.
  virtual HRESULT SetDuration(long long duration) = 0;
  /// [alone] Hands the sample, with its frame, back to its pool. The sample type becomes 0.
  /// @return the pool's result; E_ZEL_STATE without a pool.
  virtual HRESULT ReturnSampleBack2Buffer() = 0;

 protected:
  ~IZelSample() = default;
};

/// A sample. A new one has a count of 0: whoever makes it takes the first reference, or deletes it.
/// The operations of IZelSample follow the thread rules given there. Constructors are [any], the
/// destructor is [alone].
class ZEL_API CZelSample : public scombase::CUnknown, public IZelSample {
 public:
  /// Makes a sample without a stream type. `phr` is left as it is.
  /// @param pUnkOuter the aggregating object (not referenced), or null.
  CZelSample(IUnknown* pUnkOuter, long* phr);
  /// Makes a sample for frames of one kind: plain buffers for encoded data, planes for decoded
  /// video.
  CZelSample(AV_STREAM_TYPE streamType, FRAME_DATA_TYPE frameType);
  /// Makes a sample without a stream type.
  CZelSample();

  HRESULT NonDelegatingQueryInterface(const _GUID& riid, void** ppv) override;
  ~CZelSample() override;

  // IZelSample, in the order of its table.
  HRESULT QueryInterface(const _GUID& riid, void** ppv) override;
  ULONG AddRef() override;
  ULONG Release() override;
  SAMPLE_TYPE GetSampleType() override;
  FRAME_DATA_TYPE GetFrameType() override;
  AV_STREAM_TYPE GetStreamType() override;
  std::int32_t GetStreamID() override;
  std::int32_t IsKeyFrame() override;
  HRESULT SetSampleType(SAMPLE_TYPE type) override;
  std::uint32_t GetSampleSize() override;
  MEDIA_FRAME* GetMediaFrame() override;
  HRESULT SetSampleSize(unsigned long nSize) override;
  std::int64_t GetDuration() override;
  std::int64_t GetCurrentPTS() override;
  std::int64_t GetCurrentDTS() override;
  HRESULT SetCurrentPTS(long long pts) override;
  HRESULT SetCurrentDTS(long long dts) override;
  HRESULT SetDuration(long long duration) override;
  HRESULT ReturnSampleBack2Buffer() override;

  /// [alone] A second sample kept beside this one, neither owned nor released; null at first.
  virtual CZelSample* GetCompareFrame();
  /// [alone] Stores that sample, which may be null. @return 0.
  virtual HRESULT SetCompareFrame(CZelSample* sample);
  /// [alone] Copies `src`'s frame, with its data, and `src`'s stream id, sample type, key-frame
  /// flag and time stamps, but not its duration. Planes are copied as blocks: the rows of the
  /// source must lie without gaps. The source's data may overlap this frame's. A frame that takes
  /// on an unknown image format loses its memory.
  ///
  /// The frame keeps its block when the data fits into GetSampleSize() bytes and, for sound and
  /// plain buffers, into the frame's own `nBufferSize`. Otherwise the sample allocates another one.
  /// REQUIRES: this sample has a frame, and the block of a YUV or RGB frame has GetSampleSize()
  /// bytes (see FrameAttach).
  /// @return 0; E_ZEL_STATE, with nothing changed, for the sample itself, for a sample without a
  ///   frame or of another stream or data type, and for a frame whose size is negative, above
  ///   2^31 - 1 bytes, or that of a bitmap without pixels; E_ZEL_STATE, with all but the data
  ///   copied, when the two frames differ in stream type.
  /// @throws std::bad_alloc with nothing changed.
  virtual HRESULT FrameCopy(CZelSample& src);
  /// [alone] Copies a bare frame, with its data; duration and time stamps of the sample follow it.
  /// The rest is as above.
  /// REQUIRES: also, `src` is audio, or video of a known image format.
  /// @return 0; E_ZEL_STATE, with nothing changed, for null, the sample's own frame, a frame of
  ///   another stream or data type, and sizes as above.
  /// @throws std::bad_alloc with nothing changed.
  virtual HRESULT FrameCopy(const MEDIA_FRAME* src);
  /// [alone] Makes `frame` the sample's frame, to be freed by it (see FreeMediaFrame); null
  /// detaches. The previous frame is neither freed nor released, and GetSampleSize() stays.
  ///
  /// A YUV or RGB frame does not state how large its block is. To copy into one that was attached,
  /// make the sample's size true first: FreeMediaFrame(), FrameAttach(frame), RefreshSampleInfo().
  /// @return 0.
  virtual HRESULT FrameAttach(MEDIA_FRAME* frame);
  /// [alone] Brings time stamps, sizes and key-frame flag in line with a frame that someone filled.
  /// For planes the size only rises.
  /// REQUIRES: an audio sample, or a video sample whose frame is not an RGB bitmap. The frame's
  /// block has as many bytes as its record says.
  /// @return 0; E_ZEL_STATE without a frame, or, with the sizes as they were, for an unknown image
  ///   format and for sizes that are negative or above 2^31 - 1 bytes.
  virtual HRESULT RefreshSampleInfo();
  /// [alone] Stores a packet table: entry 0 is the number of packets n, entries 1 to n are their
  /// sizes in bytes. Null: no packets. The table may be this sample's own.
  /// @return 0; E_ZEL_STATE, with nothing changed, for a negative count.
  /// @throws std::bad_alloc with nothing changed.
  virtual HRESULT SetAudioPacketInfo(const int* pInfo);
  /// [alone] The packet table, owned by the sample. An empty one is first made to describe one
  /// packet that covers the whole frame, if there is one.
  virtual const int* GetAudioPakcetInfo();

  /// [alone] Sets every member to its initial value and frees nothing. Every constructor calls it;
  /// on a finished sample it loses the frame and the buffers.
  void InitClassMember();
  /// [alone] Frees the frame and all that it points to (data blocks as arrays of bytes, the record
  /// as a single object), and clears sizes, time stamps, duration and key-frame flag. The memory of
  /// an unknown image format stays with whoever set that format.
  /// REQUIRES: a frame, if any, is audio or video.
  void FreeMediaFrame();
  /// [alone] Makes `pool` the pool that the sample goes back to, and holds one reference on it. The
  /// reference on the previous pool goes first: the caller holds one of its own on `pool`.
  /// @return 0; E_ZEL_STATE, with nothing changed, for null.
  HRESULT SetFrameBuffer(CFrameBuffer* pool);
  /// [alone] Replaces the frame by a planar 4:2:0 frame of `nWidth` x `nHeight` luma pixels, time
  /// stamps -1. Its block has room for twice the luma plane and one chroma plane.
  /// @return 0; E_ZEL_STATE, with nothing changed, unless the sample is decoded video, `eFormat` is
  ///   4:2:0, and the block is smaller than 2^32 bytes.
  /// @throws std::bad_alloc with nothing changed.
  HRESULT RemallocYUVFrame(unsigned long nWidth, unsigned long nHeight, YUV_IMAGE_FORMAT eFormat);
  /// [alone] Chooses the layout that the next SetSampleSize allocates for video. @return 0.
  HRESULT SetVideoImageFormat(IMAGE_FORMAT format);
  /// [alone] Stores a copy of a zero-terminated text, which may be this sample's own; null empties
  /// it.
  /// @return 0; E_ZEL_STATE, with nothing changed, above 2^31 - 1025 characters.
  /// @throws std::bad_alloc with nothing changed.
  HRESULT SetSubStreamString(const wchar_t* text);
  /// [alone] The text, owned by the sample; never null.
  const wchar_t* GetSubStreamString();

 private:
  friend struct zel::Layout<CZelSample>;

  [[gnu::visibility("hidden")]] void AdoptFrame(std::unique_ptr<MEDIA_FRAME> frame,
                                                std::uint32_t size);
  [[gnu::visibility("hidden")]] std::unique_ptr<unsigned char[]> MakeRoom(const MEDIA_FRAME& from,
                                                                          std::uint32_t size);
  [[gnu::visibility("hidden")]] void CopyData(const MEDIA_FRAME& from, std::uint32_t size);
  [[gnu::visibility("hidden")]] void CopySound(const MEDIA_FRAME& from, std::uint32_t size);
  [[gnu::visibility("hidden")]] void CopyBytes(const MEDIA_FRAME& from, std::uint32_t size);
  [[gnu::visibility("hidden")]] void CopyPlanes(const MEDIA_FRAME& from, std::uint32_t size);
  [[gnu::visibility("hidden")]] void CopyBitmap(const MEDIA_FRAME& from, std::uint32_t size);

  std::int32_t m_bKeyFrame;
  std::int32_t m_nStreamID;
  std::uint32_t m_nSampleSize;
  std::uint32_t m_nDataSize;
  SAMPLE_TYPE m_eSampleType;
  FRAME_DATA_TYPE m_eFrameType;
  AV_STREAM_TYPE m_eStreamType;
  IMAGE_FORMAT m_eImageFormat;
  MEDIA_FRAME* m_pMediaFrame;
  std::int64_t m_llPTS;
  std::int64_t m_llDTS;
  std::int64_t m_llDuration;
  CZelSample* m_pCompareFrame;
  CFrameBuffer* m_pFrameBuffer;
  std::int32_t* m_pAudioPacketInfo;
  std::int32_t m_nAudioPacketInfoSize;
  wchar_t* m_pSubStreamString;
  std::int32_t m_nSubStreamStringSize;
};

#if defined(__i386__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
template <>
struct zel::Layout<CZelSample> {
  using T = CZelSample;
  static_assert(sizeof(T) == 100);
  static_assert(offsetof(T, m_bKeyFrame) == 16 && offsetof(T, m_nStreamID) == 20);
  static_assert(offsetof(T, m_nSampleSize) == 24 && offsetof(T, m_nDataSize) == 28);
  static_assert(offsetof(T, m_eSampleType) == 32 && offsetof(T, m_eFrameType) == 36);
  static_assert(offsetof(T, m_eStreamType) == 40 && offsetof(T, m_eImageFormat) == 44);
  static_assert(offsetof(T, m_pMediaFrame) == 48 && offsetof(T, m_llPTS) == 52);
  static_assert(offsetof(T, m_llDTS) == 60 && offsetof(T, m_llDuration) == 68);
  static_assert(offsetof(T, m_pCompareFrame) == 76 && offsetof(T, m_pFrameBuffer) == 80);
  static_assert(offsetof(T, m_pAudioPacketInfo) == 84);
  static_assert(offsetof(T, m_nAudioPacketInfoSize) == 88);
  static_assert(offsetof(T, m_pSubStreamString) == 92);
  static_assert(offsetof(T, m_nSubStreamStringSize) == 96);
};
#pragma GCC diagnostic pop
#endif
