// CZelSample: the reference-counted object that carries one frame and the facts that travel with
// it.
//
// 1. A sample owns its frame, and the frame's data, planes and pixels; FreeMediaFrame frees them
// all.
// 2. Frame memory only grows: `GetSampleSize()` bytes are allocated, `m_nDataSize` of them are
// valid.
// 3. The sample's own time stamps and its frame's are separate; RefreshSampleInfo brings the
// sample's in
//    line.
//
// Threads: a sample is used by one thread at a time; only its references may change on any thread.
// Preconditions are assertions that stay active in the shipped library.
#pragma once

#include <memory>

#include "zel/base/Interfaces.h"
#include "zel/base/Unknown.h"
#include "zel/platform/COMSupport.h"
#include "zel/sample/MediaFrame.h"

class CFrameBuffer;
class CZelSample;

/// What components ask of a sample. All times are in 100-ns units, -1 for unknown.
class ZEL_API IZelSample : public IUnknown {
 public:
  virtual SAMPLE_TYPE GetSampleType() = 0;
  virtual FRAME_DATA_TYPE GetFrameType() = 0;
  virtual AV_STREAM_TYPE GetStreamType() = 0;
  virtual std::int32_t GetStreamID() = 0;  ///< -1 when none was given.
  virtual std::int32_t IsKeyFrame() = 0;   ///< 0 or 1.
  /// @return 0.
  virtual HRESULT SetSampleType(SAMPLE_TYPE type) = 0;
  /// Bytes allocated for frame data (not the valid ones), as the sample counts them: video of an
  /// unknown image format has no memory and keeps the size of before or the one asked for, and
  /// FrameAttach leaves the size alone.
  virtual std::uint32_t GetSampleSize() = 0;
  /// The frame, owned by the sample; null when there is none.
  virtual MEDIA_FRAME* GetMediaFrame() = 0;
  /// Makes sure that at least `nSize` bytes of frame data are allocated, going by GetSampleSize():
  /// up to that nothing changes, also where there is no memory behind it; above, the frame held so
  /// far is discarded for one of the new size. (So after an unknown image format only a larger size
  /// in a known one is sure to bring memory.)
  /// @return 0; E_ZEL_STATE for video of an unknown image format (the new frame is then without
  ///   memory) and, with nothing changed, above 2^31 - 1 bytes.
  /// @throws std::bad_alloc with nothing changed.
  virtual HRESULT SetSampleSize(unsigned long nSize) = 0;
  virtual std::int64_t GetDuration() = 0;
  /// The frame's time stamps; -1 when there is no frame or it holds nothing.
  virtual std::int64_t GetCurrentPTS() = 0;
  virtual std::int64_t GetCurrentDTS() = 0;
  /// Set the sample's own time stamps; the frame's stay. @return 0.
  virtual HRESULT SetCurrentPTS(long long pts) = 0;
  virtual HRESULT SetCurrentDTS(long long dts) = 0;
  virtual HRESULT SetDuration(long long duration) = 0;
  /// Hands the sample, with its frame, back to its pool.
  /// @return the pool's result; E_ZEL_STATE without a pool. The sample type is 0 either way.
  virtual HRESULT ReturnSampleBack2Buffer() = 0;

 protected:
  ~IZelSample() = default;
};

/// A sample. A new one has a count of 0: whoever makes it takes the first reference, or deletes it.
class ZEL_API CZelSample : public scombase::CUnknown, public IZelSample {
 public:
  /// Stream type and frame data type stay 0. `phr` is left as it is.
  CZelSample(IUnknown* pUnkOuter, long* phr);
  /// Frames of encoded data are plain buffers, of decoded video planes.
  CZelSample(AV_STREAM_TYPE streamType, FRAME_DATA_TYPE frameType);
  /// Stream type and frame data type stay 0.
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

  /// A second sample kept beside this one, neither owned nor released.
  virtual CZelSample* GetCompareFrame();
  virtual HRESULT SetCompareFrame(CZelSample* sample);
  /// Deep copy of `src`'s frame and of its stream id, sample type, key-frame flag and time stamps
  /// (not its duration). YUV planes are copied as packed blocks: a source's rows must lie without
  /// gaps. The source's data may overlap this frame's. A frame that takes on an image format which
  /// is not known loses its memory. REQUIRES: this sample has a frame.
  /// @return 0; E_ZEL_STATE, with nothing changed, for itself, a sample without a frame or of
  ///   another stream or data type, and a frame whose sizes are none (negative, above 2^31 - 1
  ///   bytes, or a bitmap without pixels); E_ZEL_STATE, with all but the data copied, when the two
  ///   frames differ in stream type.
  /// @throws std::bad_alloc with nothing changed.
  virtual HRESULT FrameCopy(CZelSample& src);
  /// Deep copy of a bare frame; duration and time stamps of the sample follow it.
  /// REQUIRES: this sample has a frame; `src` is audio, or video of a known image format.
  /// @return 0; E_ZEL_STATE, with nothing changed, for null, the own frame, another type, and sizes
  ///   that are none.
  /// @throws std::bad_alloc with nothing changed.
  virtual HRESULT FrameCopy(const MEDIA_FRAME* src);
  /// Makes `frame` the sample's frame, to be freed by it (see FreeMediaFrame); null detaches. The
  /// frame before it is neither freed nor released, and the sample's sizes stay.
  /// @return 0.
  virtual HRESULT FrameAttach(MEDIA_FRAME* frame);
  /// Brings time stamps, sizes and key-frame flag in line with a frame that someone filled.
  /// REQUIRES: an audio sample, or a video sample whose frame is no RGB bitmap.
  /// @return 0; E_ZEL_STATE without a frame, or, with the sizes as they were, for an unknown image
  ///   format and for sizes that are negative or above 2^31 - 1 bytes.
  virtual HRESULT RefreshSampleInfo();
  /// Stores a packet table: entry 0 is the number of packets n, entries 1 to n are their sizes in
  /// bytes. Null: no packets. The table may be this sample's own.
  /// @return 0; E_ZEL_STATE, with nothing changed, for a negative count.
  /// @throws std::bad_alloc with nothing changed.
  virtual HRESULT SetAudioPacketInfo(const int* pInfo);
  /// The packet table, owned by the sample. An empty one is first made to describe one packet that
  /// covers the whole frame, if there is one.
  virtual const int* GetAudioPakcetInfo();

  /// Sets every member to its initial value, freeing nothing: for a sample that is being built.
  void InitClassMember();
  /// Frees the frame and all that it points to (data blocks as arrays of bytes, the record as a
  /// single object), and clears sizes, time stamps, duration and key-frame flag. Video of an
  /// unknown image format keeps its memory: whoever set the format has it. REQUIRES: a frame, if
  /// any, is audio or video.
  void FreeMediaFrame();
  /// Makes `pool` (one reference held) the pool that the sample goes back to.
  /// @return 0; E_ZEL_STATE, with nothing changed, for null.
  HRESULT SetFrameBuffer(CFrameBuffer* pool);
  /// Replaces the frame by a planar 4:2:0 frame of `nWidth` x `nHeight` luma pixels, time stamps
  /// -1.
  /// @return 0; E_ZEL_STATE, with nothing changed, unless the sample is decoded video, `eFormat`
  ///   4:2:0, and the memory (twice the luma plane and one chroma plane) below 2^32 bytes.
  /// @throws std::bad_alloc with nothing changed.
  HRESULT RemallocYUVFrame(unsigned long nWidth, unsigned long nHeight, YUV_IMAGE_FORMAT eFormat);
  /// Chooses the layout that the next SetSampleSize allocates for video. @return 0.
  HRESULT SetVideoImageFormat(IMAGE_FORMAT format);
  /// Stores a copy of a zero-terminated text, which may be this sample's own; null empties it.
  /// @return 0; E_ZEL_STATE, with nothing changed, above 2^31 - 1025 characters.
  /// @throws std::bad_alloc with nothing changed.
  HRESULT SetSubStreamString(const wchar_t* text);
  /// The text, owned by the sample; never null.
  const wchar_t* GetSubStreamString();

 private:
  [[gnu::visibility("hidden")]] void AdoptFrame(std::unique_ptr<MEDIA_FRAME> frame,
                                                std::unique_ptr<unsigned char[]> block,
                                                std::uint32_t size);
  [[gnu::visibility("hidden")]] std::unique_ptr<unsigned char[]> MakeRoom(const MEDIA_FRAME& from,
                                                                          std::uint32_t size);
  [[gnu::visibility("hidden")]] void CopyData(const MEDIA_FRAME& from, std::uint32_t size);
  [[gnu::visibility("hidden")]] void CopyPlanes(const MEDIA_FRAME& from, std::uint32_t size);

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
  // What this sample itself allocated for its frame's data. FrameAttach and producers may put other
  // memory there, of which only the record tells the size.
  unsigned char* m_pBlock;
  std::uint32_t m_nBlockSize;
};
