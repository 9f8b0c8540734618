#include "kernaldec/picture/PictureConverter.h"

#include <cstddef>
#include <cstring>
#include <new>

namespace zel::kernaldec {

bool PictureConverter::Convert(const AVFrame& picture, std::uint8_t* const planes[3],
                               const int pitches[3]) {
  const ColourCoding coding = CodingOf(picture);
  const bool isPlanar420 = coding.format == AV_PIX_FMT_YUV420P;
  if (!isPlanar420 && !Scale(picture, coding)) return false;
  const AVFrame& from = isPlanar420 ? picture : *scaled_;
  for (int plane = 0; plane < 3; ++plane) {
    const int columns = plane == 0 ? picture.width : (picture.width + 1) / 2;
    const int rows = plane == 0 ? picture.height : (picture.height + 1) / 2;
    for (int row = 0; row < rows; ++row) {
      std::memcpy(planes[plane] + static_cast<std::ptrdiff_t>(row) * pitches[plane],
                  from.data[plane] + static_cast<std::ptrdiff_t>(row) * from.linesize[plane],
                  static_cast<std::size_t>(columns));
    }
  }
  const StudioColours colours(coding);
  if (!colours.IsIdentity()) colours.Apply(planes, pitches, picture.width, picture.height);
  return true;
}

/// Converts `picture` to planar 4:2:0 of 8 bits in scaled_.
bool PictureConverter::Scale(const AVFrame& picture, const ColourCoding& coding) {
  if (scaled_->width != picture.width || scaled_->height != picture.height) {
    av_frame_unref(scaled_.get());
    scaled_->format = AV_PIX_FMT_YUV420P;
    scaled_->width = picture.width;
    scaled_->height = picture.height;
    if (av_frame_get_buffer(scaled_.get(), 0) < 0) {
      av_frame_unref(scaled_.get());
      throw std::bad_alloc();
    }
  }
  scaler_.reset(sws_getCachedContext(scaler_.release(), picture.width, picture.height,
                                     coding.format, picture.width, picture.height,
                                     AV_PIX_FMT_YUV420P, SWS_BICUBIC, nullptr, nullptr, nullptr));
  if (scaler_ == nullptr) return false;
  // The same range and matrix on both sides: StudioColours converts those. RGB becomes BT.601 with
  // studio range.
  const int* matrix = sws_getCoefficients(SWS_CS_ITU601);
  const int range = coding.fullRange ? 1 : 0;
  constexpr int kOne = 1 << 16;
  sws_setColorspaceDetails(scaler_.get(), matrix, range, matrix, range, 0, kOne, kOne);
  return sws_scale(scaler_.get(), picture.data, picture.linesize, 0, picture.height, scaled_->data,
                   scaled_->linesize) == picture.height;
}

}  // namespace zel::kernaldec
