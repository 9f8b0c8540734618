// Long random sequences of a sample's operations against a plain model of them. The model keeps the
// record that the sample's frame must equal, over bytes of its own.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/allocations.h"
#include "zel/sample/Sample.h"

namespace {

using Bytes = std::vector<unsigned char>;

struct Planes {
  int sizes[3];
  int total;
};

Planes Packed(int w, int h) {
  const int chroma = ((w + 1) / 2) * ((h + 1) / 2);
  return {{w * h, chroma, chroma}, w * h + 2 * chroma};
}

bool IsKnown(int format) {
  return format >= IMAGE_FORMAT_RGB && format <= IMAGE_FORMAT_BUFFER;
}

unsigned char*& Block(MEDIA_FRAME& f) {
  if (f.nStreamType == AV_STREAM_AUDIO) return f.audio.pData;
  if (f.video.nImageFormat == IMAGE_FORMAT_RGB) return f.video.rgb.pBits;
  return f.video.nImageFormat == IMAGE_FORMAT_YUV ? f.video.yuv.pPlane[0] : f.video.buffer.pData;
}

/// A frame's bytes of valid data, and what its record says that it has room for.
int DataSize(const MEDIA_FRAME& f) {
  if (f.nStreamType == AV_STREAM_AUDIO) return f.audio.nDataSize;
  switch (f.video.nImageFormat) {
    case IMAGE_FORMAT_RGB:
      return static_cast<int>(f.video.rgb.bmiHeader.biSizeImage);
    case IMAGE_FORMAT_YUV:
      return Packed(f.video.yuv.nWidth, f.video.yuv.nHeight).total;
    default:
      return f.video.buffer.nDataSize;
  }
}

int StatedRoom(const MEDIA_FRAME& f) {
  if (f.nStreamType == AV_STREAM_AUDIO) return f.audio.nBufferSize;
  return f.video.nImageFormat == IMAGE_FORMAT_BUFFER ? f.video.buffer.nBufferSize : DataSize(f);
}

/// All fields of a frame in words, pointers as offsets into its block.
std::string Describe(const MEDIA_FRAME& f) {
  std::ostringstream out;
  out << "stream " << f.nStreamType << " frame " << f.nFrameType << " key " << f.bKeyFrame
      << " pts " << f.llPTS << " dts " << f.llDTS << " duration " << f.nDuration << " reserved "
      << std::count(std::begin(f.reserved), std::end(f.reserved), 0);
  const auto state = [&out](const unsigned char* p) -> std::ostream& {
    return out << (p != nullptr ? " data " : " none ");
  };
  if (f.nStreamType == AV_STREAM_AUDIO) {
    out << " rate " << f.audio.nSampleRate << " channels " << f.audio.nChannels << " bits "
        << f.audio.nBitsPerSample;
    state(f.audio.pData) << f.audio.nDataSize << " of " << f.audio.nBufferSize;
    return out.str();
  }
  out << " format " << f.video.nImageFormat;
  if (f.video.nImageFormat == IMAGE_FORMAT_BUFFER) {
    const MEDIA_FRAME_BUFFER& b = f.video.buffer;
    state(b.pData) << b.nDataSize << " of " << b.nBufferSize;
  } else if (f.video.nImageFormat == IMAGE_FORMAT_YUV) {
    const MEDIA_FRAME_YUV& y = f.video.yuv;
    out << " yuv " << y.nYuvFormat << " " << y.nWidth << "x" << y.nHeight;
    for (int i = 0; i < 4; ++i) {
      out << " stride " << y.nStride[i] << " plane ";
      if (y.pPlane[i] == nullptr) out << "none";
      if (y.pPlane[i] != nullptr) out << y.pPlane[i] - y.pPlane[0];
    }
  } else if (f.video.nImageFormat == IMAGE_FORMAT_RGB) {
    const tagBITMAPINFOHEADER& h = f.video.rgb.bmiHeader;
    state(f.video.rgb.pBits) << h.biWidth << "x" << h.biHeight << " size " << h.biSizeImage;
  }
  return out.str();
}

struct Model {
  AV_STREAM_TYPE streamType;
  FRAME_DATA_TYPE frameType;
  int imageFormat;
  bool hasFrame = false;
  bool isOwn = false;  ///< The sample itself allocated the block.
  MEDIA_FRAME frame{};
  Bytes bytes;  ///< The block; the first `known` of them are settled.
  std::size_t known = 0;
  int blockSize = 0;
  std::uint32_t sampleSize = 0;
  std::int64_t duration = 0;
  int keyFrame = 0;
  int type = 0;
  std::vector<int> packets = std::vector<int>(10);
  std::wstring text;

  Model(AV_STREAM_TYPE stream, FRAME_DATA_TYPE data)
      : streamType(stream), frameType(data), imageFormat(data == 0 ? 2 : 1) {
    bytes.reserve(1024);  // More than any step needs: pointers into it stay good.
  }

  int Room() const { return isOwn ? blockSize : StatedRoom(frame); }
  unsigned char* NewBlock(std::size_t size) {
    bytes.assign(size, 0);
    known = 0;
    isOwn = true;
    blockSize = static_cast<int>(size);
    sampleSize = static_cast<std::uint32_t>(size);
    return bytes.data();
  }
  void Free() {
    hasFrame = false;
    sampleSize = 0;
    duration = 0;
    keyFrame = 0;
  }
  void NewFrame() {
    Free();
    hasFrame = true;
    frame = {};
    frame.nStreamType = streamType;
    frame.nFrameType = frameType;
  }

  HRESULT SetSampleSize(unsigned size) {
    if (sampleSize >= size) return S_OK;
    NewFrame();
    if (streamType == AV_STREAM_VIDEO) frame.video.nImageFormat = imageFormat;
    if (streamType == AV_STREAM_VIDEO && !IsKnown(imageFormat)) {
      frame.video.nImageFormat = 0;
      sampleSize = size;
      bytes.clear();
      known = 0;
      isOwn = false;
      return E_ZEL_STATE;
    }
    Block(frame) = NewBlock(size);
    const int bufferSize = static_cast<int>(size);
    if (streamType == AV_STREAM_AUDIO) {
      frame.audio.nBufferSize = bufferSize;
    } else if (imageFormat == IMAGE_FORMAT_BUFFER) {
      frame.video.buffer.nBufferSize = bufferSize;
    } else if (imageFormat == IMAGE_FORMAT_YUV) {
      frame.video.yuv.nYuvFormat = 2;
    }
    return S_OK;
  }

  HRESULT RemallocYUVFrame(int w, int h, int format) {
    if (streamType != AV_STREAM_VIDEO || frameType != FRAME_DATA_DECODED || format != 2) {
      return E_ZEL_STATE;
    }
    NewFrame();
    const int q = (w + 1) * (h + 1) / 4;
    frame.llPTS = frame.llDTS = -1;
    frame.video.nImageFormat = IMAGE_FORMAT_YUV;
    unsigned char* block = NewBlock(static_cast<std::size_t>(2 * w * h + q));
    frame.video.yuv = {2,
                       {block, block + w * h, block + w * h + q, nullptr},
                       w,
                       h,
                       {w, (w + 1) / 2, (w + 1) / 2, 0}};
    return S_OK;
  }

  /// Growth: to what the copy needs, or, of foreign memory that is too small, to what the sample
  /// says it has.
  void MakeRoom(const MEDIA_FRAME& from, int size) {
    const bool isVideo = streamType == AV_STREAM_VIDEO;
    const bool wasKnown = !isVideo || IsKnown(frame.video.nImageFormat);
    const bool isRgb = isVideo && from.video.nImageFormat == IMAGE_FORMAT_RGB;
    unsigned char* block = wasKnown ? Block(frame) : nullptr;
    const int room = block != nullptr ? Room() : 0;
    std::size_t fresh = 0;
    if (static_cast<unsigned>(size) > sampleSize) {
      fresh = static_cast<std::size_t>(isRgb ? 2 * size : size);
    } else if (size > room && (block != nullptr || !wasKnown || isRgb)) {
      fresh = sampleSize;
    }
    if (isVideo && frame.video.nImageFormat != from.video.nImageFormat) {
      frame.video = {};
      frame.video.nImageFormat = from.video.nImageFormat;
      Block(frame) = block;
      if (frame.video.nImageFormat == IMAGE_FORMAT_BUFFER) frame.video.buffer.nBufferSize = room;
    }
    if (fresh == 0) return;
    unsigned char* memory = NewBlock(fresh);
    const int bufferSize = static_cast<int>(fresh);
    if (!isVideo) {
      frame.audio.nBufferSize = bufferSize;
      frame.audio.nDataSize = std::min(frame.audio.nDataSize, bufferSize);
    } else if (frame.video.nImageFormat == IMAGE_FORMAT_BUFFER) {
      frame.video.buffer.nBufferSize = bufferSize;
      frame.video.buffer.nDataSize = std::min(frame.video.buffer.nDataSize, bufferSize);
    } else if (frame.video.nImageFormat == IMAGE_FORMAT_YUV) {
      std::fill_n(frame.video.yuv.pPlane, 4, nullptr);
    }
    Block(frame) = memory;
  }

  void CopyBytes(const unsigned char* from, int size) {
    known = 0;
    if (from == nullptr || Block(frame) == nullptr) return;
    known = static_cast<std::size_t>(size);
    bytes.resize(std::max(bytes.size(), known));
    std::copy_n(from, size, bytes.data());
  }

  HRESULT Copy(const MEDIA_FRAME& from) {
    frame.llDTS = from.llDTS;
    frame.llPTS = from.llPTS;
    frame.nDuration = from.nDuration;
    const int size = DataSize(from);
    if (streamType == AV_STREAM_AUDIO) {
      MakeRoom(from, size);
      CopyBytes(from.audio.pData, size);
      if (from.audio.pData == nullptr || frame.audio.pData == nullptr) return S_OK;
      frame.audio.nDataSize = size;
      frame.audio.nBitsPerSample = from.audio.nBitsPerSample;
      frame.audio.nChannels = from.audio.nChannels;
      frame.audio.nSampleRate = from.audio.nSampleRate;
      return S_OK;
    }
    frame.bKeyFrame = from.bKeyFrame;
    if (!IsKnown(from.video.nImageFormat)) {
      frame.video = {};
      frame.video.nImageFormat = from.video.nImageFormat;
      isOwn = false;
      known = 0;
      return S_OK;
    }
    MakeRoom(from, size);
    if (from.video.nImageFormat == IMAGE_FORMAT_BUFFER) {
      CopyBytes(from.video.buffer.pData, size);
      if (from.video.buffer.pData != nullptr && frame.video.buffer.pData != nullptr) {
        frame.video.buffer.nDataSize = size;
      }
    } else if (from.video.nImageFormat == IMAGE_FORMAT_RGB) {
      frame.video.rgb.bmiHeader = from.video.rgb.bmiHeader;
      CopyBytes(from.video.rgb.pBits, size);
    } else {
      CopyPlanes(from.video.yuv);
    }
    return S_OK;
  }

  void CopyPlanes(const MEDIA_FRAME_YUV& from) {
    MEDIA_FRAME_YUV& to = frame.video.yuv;
    const Planes planes = Packed(from.nWidth, from.nHeight);
    known = 0;
    to.nYuvFormat = from.nYuvFormat;
    if (to.pPlane[0] != nullptr && from.pPlane[0] != nullptr) {
      bytes.resize(std::max(bytes.size(), static_cast<std::size_t>(planes.total)));
      unsigned char* at = to.pPlane[0];
      for (int i = 0; i < 3 && from.pPlane[i] != nullptr; ++i) {
        std::copy_n(from.pPlane[i], planes.sizes[i], at);
        at += planes.sizes[i];
        if (i < 2) to.pPlane[i + 1] = at;
        known = static_cast<std::size_t>(at - to.pPlane[0]);
      }
    }
    to.nWidth = from.nWidth;
    to.nHeight = from.nHeight;
    std::copy_n(from.nStride, 3, to.nStride);
  }

  HRESULT Refresh() {
    if (!hasFrame) return E_ZEL_STATE;
    if (streamType == AV_STREAM_AUDIO) {
      keyFrame = 1;
      sampleSize = static_cast<unsigned>(frame.audio.nBufferSize);
      return S_OK;
    }
    keyFrame = frame.bKeyFrame != 0 ? 1 : 0;
    if (!IsKnown(frame.video.nImageFormat)) return E_ZEL_STATE;
    const bool isYuv = frame.video.nImageFormat == IMAGE_FORMAT_YUV;
    sampleSize = isYuv ? std::max(sampleSize, static_cast<unsigned>(DataSize(frame)))
                       : static_cast<unsigned>(frame.video.buffer.nBufferSize);
    return S_OK;
  }
};

class World {
 public:
  World(unsigned seed, AV_STREAM_TYPE stream, FRAME_DATA_TYPE data)
      : m_random(seed), m_stream(stream), m_data(data) {
    for (Pair& pair : m_pairs) {
      pair.sample = new CZelSample(stream, data);
      pair.sample->AddRef();
      pair.model = std::make_unique<Model>(stream, data);
    }
  }
  ~World() {
    for (Pair& pair : m_pairs) EXPECT_EQ(pair.sample->Release(), 0U);
  }

  void Step() {
    Pair& pair = m_pairs[Pick(3)];
    CZelSample& sample = *pair.sample;
    Model& model = *pair.model;
    switch (Pick(12)) {
      case 0: {
        const auto size = static_cast<unsigned>(Pick(80));
        EXPECT_EQ(sample.SetSampleSize(size), model.SetSampleSize(size));
        Produce(pair);
        break;
      }
      case 1: {
        const int w = Pick(7), h = Pick(7), format = Pick(4) == 0 ? 1 : 2;
        EXPECT_EQ(sample.RemallocYUVFrame(static_cast<unsigned>(w), static_cast<unsigned>(h),
                                          static_cast<YUV_IMAGE_FORMAT>(format)),
                  model.RemallocYUVFrame(w, h, format));
        Produce(pair);
        break;
      }
      case 2:
      case 3:
      case 4:
        CopyBareFrame(pair);
        break;
      case 5:
      case 6:
        CopySample(pair);
        break;
      case 7: {
        std::vector<int> table(static_cast<std::size_t>(1 + Pick(30)));
        for (int& entry : table) entry = Pick(1000);
        table[0] = static_cast<int>(table.size()) - 1;
        const bool clear = Pick(5) == 0;
        EXPECT_EQ(sample.SetAudioPacketInfo(clear ? nullptr : table.data()), S_OK);
        if (clear) model.packets[0] = 0;
        if (!clear) model.packets = table;
        break;
      }
      case 8: {
        const std::wstring text(static_cast<std::size_t>(Pick(3) * 1000 + Pick(200)),
                                static_cast<wchar_t>(L'a' + Pick(26)));
        const bool clear = Pick(5) == 0;
        EXPECT_EQ(sample.SetSubStreamString(clear ? nullptr : text.c_str()), S_OK);
        model.text = clear ? L"" : text;
        break;
      }
      case 9:
        sample.FreeMediaFrame();
        model.Free();
        break;
      case 10:
        Attach(pair);
        break;
      default:
        if (Pick(2) == 0 && m_stream == AV_STREAM_VIDEO) {
          model.imageFormat = Pick(5) == 0 ? 9 : Pick(3);
          sample.SetVideoImageFormat(static_cast<IMAGE_FORMAT>(model.imageFormat));
        } else if (m_stream == AV_STREAM_AUDIO || !model.hasFrame ||
                   model.frame.video.nImageFormat != IMAGE_FORMAT_RGB) {
          EXPECT_EQ(sample.RefreshSampleInfo(), model.Refresh());
        }
        break;
    }
    for (Pair& each : m_pairs) Check(each);
  }

 private:
  struct Pair {
    CZelSample* sample;
    std::unique_ptr<Model> model;
  };
  struct Source {
    MEDIA_FRAME frame{};
    std::unique_ptr<unsigned char[]> block;
  };

  int Pick(int below) { return static_cast<int>(m_random() % static_cast<unsigned>(below)); }

  /// A frame of this world's stream type with random contents.
  Source MakeSource(bool complete) {
    Source source;
    MEDIA_FRAME& f = source.frame;
    f.nStreamType = m_stream;
    f.nFrameType = m_data;
    f.llPTS = Pick(1000);
    f.llDTS = Pick(1000);
    f.nDuration = Pick(1000) - 500;
    f.bKeyFrame = Pick(3);
    const bool isVideo = m_stream == AV_STREAM_VIDEO;
    if (isVideo) f.video.nImageFormat = Pick(3);
    const bool isYuv = isVideo && f.video.nImageFormat == IMAGE_FORMAT_YUV;
    const int w = Pick(7), h = Pick(7);
    const int size = isYuv ? Packed(w, h).total : Pick(80);
    source.block.reset(new unsigned char[static_cast<std::size_t>(size)]);
    std::generate_n(source.block.get(), size,
                    [&] { return static_cast<unsigned char>(Pick(256)); });
    unsigned char* block = complete || Pick(8) != 0 ? source.block.get() : nullptr;
    if (!isVideo) {
      f.audio = {Pick(48000), Pick(8), 16, block, size, size};
    } else if (f.video.nImageFormat == IMAGE_FORMAT_BUFFER) {
      f.video.buffer = {block, size, size};
    } else if (f.video.nImageFormat == IMAGE_FORMAT_RGB) {
      f.video.rgb.bmiHeader = {40, w, h, 1, 24, 0, static_cast<unsigned>(size), 0, 0, 0, 0};
      f.video.rgb.pBits = source.block.get();
    } else {
      const Planes planes = Packed(w, h);
      f.video.yuv = {2, {}, w, h, {w, (w + 1) / 2, (w + 1) / 2, Pick(9)}};
      // Planes may lie anywhere in a source; here, without gaps and sometimes the last ones
      // missing.
      const int present = complete ? 3 : std::min(3, Pick(8));
      unsigned char* at = source.block.get();
      for (int i = 0; i < present; ++i) {
        f.video.yuv.pPlane[i] = at;
        at += planes.sizes[i];
      }
    }
    return source;
  }

  void CopyBareFrame(Pair& pair) {
    if (!pair.model->hasFrame) return;
    const Source source = MakeSource(false);
    EXPECT_EQ(pair.sample->FrameCopy(&source.frame), S_OK);
    EXPECT_EQ(pair.model->Copy(source.frame), S_OK);
    if (m_stream == AV_STREAM_VIDEO) pair.model->keyFrame = source.frame.bKeyFrame;
    pair.model->duration = source.frame.nDuration;
  }

  void CopySample(Pair& pair) {
    Pair& from = m_pairs[Pick(3)];
    if (!pair.model->hasFrame || !from.model->hasFrame) return;
    if (&from == &pair) {
      EXPECT_EQ(pair.sample->FrameCopy(*from.sample), E_ZEL_STATE);
      return;
    }
    MEDIA_FRAME& frame = *from.sample->GetMediaFrame();
    // Without pixels there is nothing to copy, and an unknown format's size is none.
    if (m_stream == AV_STREAM_VIDEO && frame.video.nImageFormat == IMAGE_FORMAT_RGB &&
        frame.video.rgb.pBits == nullptr && frame.video.rgb.bmiHeader.biSizeImage != 0) {
      return;
    }
    const MEDIA_FRAME original = frame;
    const bool unknown = m_stream == AV_STREAM_VIDEO && Pick(6) == 0;
    if (unknown) frame.video.nImageFormat = 7;
    EXPECT_EQ(pair.sample->FrameCopy(*from.sample), S_OK);
    EXPECT_EQ(pair.model->Copy(frame), S_OK);
    frame = original;
    pair.model->keyFrame = from.model->keyFrame;
    pair.model->type = from.model->type;
  }

  /// A new frame made elsewhere; the one before it is the caller's again.
  void Attach(Pair& pair) {
    const bool detach = Pick(3) == 0;
    if (MEDIA_FRAME* old = pair.sample->GetMediaFrame(); old != nullptr) {
      if (m_stream == AV_STREAM_AUDIO || IsKnown(old->video.nImageFormat)) delete[] Block(*old);
      delete old;
    }
    Model& model = *pair.model;
    model.hasFrame = !detach;
    model.isOwn = false;
    model.known = 0;
    if (detach) {
      EXPECT_EQ(pair.sample->FrameAttach(nullptr), S_OK);
      return;
    }
    Source source = MakeSource(true);
    const auto size = static_cast<std::size_t>(DataSize(source.frame));
    model.frame = source.frame;
    model.bytes.assign(source.block.get(), source.block.get() + size);
    model.known = size;
    Block(model.frame) = model.bytes.data();
    if (m_stream == AV_STREAM_VIDEO && model.frame.video.nImageFormat == IMAGE_FORMAT_YUV) {
      MEDIA_FRAME_YUV& yuv = model.frame.video.yuv;
      const Planes planes = Packed(yuv.nWidth, yuv.nHeight);
      yuv.pPlane[1] = yuv.pPlane[0] + planes.sizes[0];
      yuv.pPlane[2] = yuv.pPlane[1] + planes.sizes[1];
    }
    EXPECT_EQ(pair.sample->FrameAttach(new MEDIA_FRAME(source.frame)), S_OK);
    source.block.release();
  }

  /// Fills the whole block, as a producer does: it must be as large as the sample says.
  void Produce(Pair& pair) {
    Model& model = *pair.model;
    if (!model.hasFrame || !model.isOwn) return;
    unsigned char* block = Block(*pair.sample->GetMediaFrame());
    for (std::size_t i = 0; i < model.bytes.size(); ++i) {
      block[i] = model.bytes[i] = static_cast<unsigned char>(Pick(256));
    }
    model.known = model.bytes.size();
  }

  void Check(Pair& pair) {
    CZelSample& sample = *pair.sample;
    Model& model = *pair.model;
    ASSERT_EQ(sample.GetSampleSize(), model.sampleSize);
    ASSERT_EQ(sample.GetDuration(), model.duration);
    ASSERT_EQ(sample.IsKeyFrame(), model.keyFrame);
    ASSERT_EQ(sample.GetSampleType(), model.type);
    ASSERT_EQ(sample.GetSubStreamString(), model.text);
    ASSERT_EQ(sample.GetMediaFrame() != nullptr, model.hasFrame);
    ASSERT_EQ(sample.GetCurrentPTS(), model.hasFrame ? model.frame.llPTS : -1);
    ASSERT_EQ(sample.GetCurrentDTS(), model.hasFrame ? model.frame.llDTS : -1);
    if (model.packets[0] != 0) {
      const int* table = sample.GetAudioPakcetInfo();
      ASSERT_TRUE(std::equal(table, table + table[0] + 1, model.packets.begin()));
    }
    if (!model.hasFrame) return;
    MEDIA_FRAME& frame = *sample.GetMediaFrame();
    ASSERT_EQ(Describe(frame), Describe(model.frame));
    if (model.known != 0) {
      ASSERT_EQ(std::memcmp(Block(frame), model.bytes.data(), model.known), 0);
    }
  }

  std::mt19937 m_random;
  AV_STREAM_TYPE m_stream;
  FRAME_DATA_TYPE m_data;
  Pair m_pairs[3];
};

class SampleModel : public testing::TestWithParam<std::pair<AV_STREAM_TYPE, FRAME_DATA_TYPE>> {};

TEST_P(SampleModel, AgreesOverLongSequences) {
  for (unsigned seed = 1; seed <= 25; ++seed) {
    const long before = LiveAllocations();
    {
      World world(seed, GetParam().first, GetParam().second);
      for (int step = 0; step < 1500; ++step) {
        world.Step();
        ASSERT_FALSE(HasFailure()) << "seed " << seed << " step " << step;
      }
    }
    ASSERT_EQ(LiveAllocations(), before) << "seed " << seed;
  }
}

INSTANTIATE_TEST_SUITE_P(Kinds, SampleModel,
                         testing::Values(std::pair(AV_STREAM_AUDIO, FRAME_DATA_DECODED),
                                         std::pair(AV_STREAM_AUDIO, FRAME_DATA_ENCODED),
                                         std::pair(AV_STREAM_VIDEO, FRAME_DATA_DECODED),
                                         std::pair(AV_STREAM_VIDEO, FRAME_DATA_ENCODED)));

}  // namespace
