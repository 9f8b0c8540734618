#include "tools/zel/picture/PictureFile.h"

#include <png.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "tools/zel/files/PendingFile.h"
#include "tools/zel/text/Failure.h"
#include "zel/Common/Image/Bitmap.h"

namespace zel::tool {
namespace {

struct KnownFormat {
  const char* suffix;
  PictureFormat format;
};
constexpr KnownFormat kFormats[] = {
    {".png", PictureFormat::kPng},
    {".bmp", PictureFormat::kBmp},
    {".ppm", PictureFormat::kPpm},
};

/// A picture as bitmap files hold it: 3 bytes per pixel, rows of a multiple of 4 bytes, the bottom
/// row first.
struct PackedPicture {
  explicit PackedPicture(const PixelView& picture)
      : width(picture.width),
        height(picture.height),
        pitch((static_cast<std::size_t>(width) * 3 + 3) / 4 * 4),
        bytes(pitch * static_cast<std::size_t>(height)) {
    for (int y = 0; y < height; ++y) {
      const std::uint8_t* from = picture.top + y * picture.pitch;
      std::uint8_t* to = bytes.data() + static_cast<std::size_t>(height - 1 - y) * pitch;
      for (int x = 0; x < width; ++x) std::copy_n(from + 4 * x, 3, to + 3 * x);
    }
  }

  int width;
  int height;
  std::size_t pitch;
  std::vector<std::uint8_t> bytes;
};

void Put(PendingFile* file, const std::string& path, const void* data, std::size_t size) {
  const auto* bytes = static_cast<const std::uint8_t*>(data);
  while (size > 0) {
    const int piece = static_cast<int>(std::min<std::size_t>(size, 1 << 24));
    if (file->Write(bytes, piece) < 0) throw Failure(path, std::strerror(file->error()));
    bytes += piece;
    size -= static_cast<std::size_t>(piece);
  }
}

void PutBmp(PendingFile* file, const std::string& path, const PackedPicture& picture) {
  constexpr std::uint32_t kFileHeaderSize = 14;
  tagBITMAPINFOHEADER info{};
  info.biSize = sizeof(info);
  info.biWidth = picture.width;
  info.biHeight = picture.height;
  info.biPlanes = 1;
  info.biBitCount = 24;
  info.biSizeImage = static_cast<std::uint32_t>(picture.bytes.size());
  const std::uint32_t offset = kFileHeaderSize + info.biSize;
  const std::uint32_t numbers[] = {offset + info.biSizeImage, 0, offset};
  Put(file, path, "BM", 2);
  Put(file, path, numbers, sizeof(numbers));
  Put(file, path, &info, sizeof(info));
  Put(file, path, picture.bytes.data(), picture.bytes.size());
}

void PutPpm(PendingFile* file, const std::string& path, const PackedPicture& picture) {
  const std::string head =
      "P6\n" + std::to_string(picture.width) + " " + std::to_string(picture.height) + "\n255\n";
  const std::size_t pitch = 3 * static_cast<std::size_t>(picture.width);
  std::vector<std::uint8_t> rows(pitch * static_cast<std::size_t>(picture.height));
  for (int y = 0; y < picture.height; ++y) {
    const std::uint8_t* from =
        picture.bytes.data() + static_cast<std::size_t>(picture.height - 1 - y) * picture.pitch;
    std::uint8_t* to = rows.data() + static_cast<std::size_t>(y) * pitch;
    for (std::size_t i = 0; i < pitch; ++i) to[i] = from[i / 3 * 3 + 2 - i % 3];
  }
  Put(file, path, head.data(), head.size());
  Put(file, path, rows.data(), rows.size());
}

/// libpng's record of one picture, freed at the end.
struct PngImage {
  PngImage() { image.version = PNG_IMAGE_VERSION; }
  ~PngImage() { png_image_free(&image); }
  PngImage(const PngImage&) = delete;
  PngImage& operator=(const PngImage&) = delete;

  png_image image{};
};

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};

void PutPng(PendingFile* file, const std::string& path, const PackedPicture& picture) {
  PngImage png;
  png.image.width = static_cast<png_uint_32>(picture.width);
  png.image.height = static_cast<png_uint_32>(picture.height);
  png.image.format = PNG_FORMAT_BGR;
  png_alloc_size_t size = PNG_IMAGE_PNG_SIZE_MAX(png.image);
  // Not a vector, which would touch all of it; most stays unused.
  const std::unique_ptr<std::uint8_t[]> bytes(new std::uint8_t[size]);
  // A negative pitch says that the bottom row comes first.
  if (png_image_write_to_memory(&png.image, bytes.get(), &size, 0, picture.bytes.data(),
                                -static_cast<png_int_32>(picture.pitch), nullptr) == 0) {
    throw Failure(path, png.image.message);
  }
  Put(file, path, bytes.get(), size);
}

}  // namespace

std::string SizeText(const PictureSize& size) {
  return std::to_string(size.width) + "x" + std::to_string(size.height);
}

std::string KnownPictureSuffixes() {
  std::string text;
  for (const KnownFormat& known : kFormats)
    text += (text.empty() ? "" : " ") + std::string(known.suffix);
  return text;
}

PictureFormat PictureFormatOf(const std::string& path) {
  std::string lower = path.substr(path.rfind('/') + 1);
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
  for (const KnownFormat& known : kFormats) {
    if (lower.size() > std::strlen(known.suffix) && lower.ends_with(known.suffix)) {
      return known.format;
    }
  }
  throw Failure(path, "the name tells no known picture format (" + KnownPictureSuffixes() + ")");
}

void WritePicture(const std::string& path, bool overwrite, const PixelView& picture) {
  const PictureFormat format = PictureFormatOf(path);
  PendingFile file(path, overwrite);
  const PackedPicture packed(picture);
  switch (format) {
    case PictureFormat::kPng:
      PutPng(&file, path, packed);
      break;
    case PictureFormat::kBmp:
      PutBmp(&file, path, packed);
      break;
    case PictureFormat::kPpm:
      PutPpm(&file, path, packed);
      break;
  }
  file.Commit();
}

AlphaPicture ReadPng(const std::string& path) {
  struct stat there = {};
  if (stat(path.c_str(), &there) != 0) throw Failure(path, std::strerror(errno));
  if (S_ISDIR(there.st_mode)) throw Failure(path, std::strerror(EISDIR));
  if (!S_ISREG(there.st_mode)) throw Failure(path, "not a regular file");
  if (there.st_size == 0) throw Failure(path, "the file is empty");

  const std::unique_ptr<std::FILE, CloseFile> file(std::fopen(path.c_str(), "rb"));
  if (file == nullptr) throw Failure(path, std::strerror(errno));
  png_byte head[8] = {};
  const std::size_t count = std::fread(head, 1, sizeof(head), file.get());
  if (count > 0 && png_sig_cmp(head, 0, count) != 0) throw Failure(path, "is no PNG file");
  std::rewind(file.get());
  PngImage png;
  // libpng's message does not tell whether the file is cut off, the disk failed or the picture is
  // bad.
  const auto check = [&](int done) {
    if (done != 0) return;
    throw Failure(path, std::ferror(file.get()) != 0 ? "reading failed"
                        : std::feof(file.get()) != 0 ? "the file is cut off"
                                                     : png.image.message);
  };
  check(png_image_begin_read_from_stdio(&png.image, file.get()));
  if (png.image.width > kMaxPictureSide || png.image.height > kMaxPictureSide) {
    throw Failure(path, "a picture of " + std::to_string(png.image.width) + "x" +
                            std::to_string(png.image.height) + " is too large");
  }
  AlphaPicture picture;
  picture.width = static_cast<int>(png.image.width);
  picture.height = static_cast<int>(png.image.height);
  png.image.format = PNG_FORMAT_BGRA;
  // Without this flag, libpng takes 16-bit files without a gamma for linear light.
  png.image.flags |= PNG_IMAGE_FLAG_16BIT_sRGB;
  picture.pixels.resize(4 * static_cast<std::size_t>(picture.width) * picture.height);
  check(png_image_finish_read(&png.image, nullptr, picture.pixels.data(), 0, nullptr));
  return picture;
}

}  // namespace zel::tool
