// The decoded video stream as the outside sees it: IMediaStream over a PictureReader.
#pragma once

#include <cstdint>
#include <memory>

#include "kernaldec/file/Programs.h"
#include "kernaldec/picture/PictureConverter.h"
#include "kernaldec/picture/PictureReader.h"
#include "zel/base/Component.h"
#include "zel/compositor/MediaStream.h"
#include "zel/sample/Sample.h"

namespace zel::kernaldec {

/// Delivers planar 4:2:0 pictures of 8 bits without gaps between rows. They have the file's own
/// size and orientation, and pixels are not made square. Colours are BT.601 with studio range, as
/// the image routines expect them. Time 0 is that of the first picture, before which a new stream
/// stands. One thread at a time; every call reuses the same sample.
class VideoStream final : public Component<IMediaStream> {
 public:
  /// @param program the program of the reader's stream
  VideoStream(std::unique_ptr<PictureReader> reader, Program program);

  HRESULT GetStreamInfo(IStreamInfo** ppInfo) override;
  /// @return S_OK for 0, the only stream on offer; else E_INVALIDARG
  HRESULT ChangeStream(int index) override;
  CZelSample* GetSampleEx() override;
  /// @return 0; -1 at the end
  int Forward() override;
  /// Makes the picture that is shown at `seconds` the current one; it can be read without a
  /// Forward. Times before the first picture mean the first.
  /// @param mode ignored
  /// @return the picture's time; -1, with no current picture, past the end
  double Seek(double seconds, int mode) override;

 private:
  bool FillSample();
  bool MakeRoom(int width, int height);

  const std::unique_ptr<PictureReader> reader_;
  const Program program_;
  PictureConverter converter_;
  const Ref<CZelSample> sample_;
  bool filled_ = false;  ///< sample_ holds the reader's current picture.
  bool sought_ = false;  ///< A seek found a picture that nobody has read yet.
};

}  // namespace zel::kernaldec
