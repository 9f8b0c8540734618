#include "media/Ffmpeg.h"

extern "C" {
#include <libavutil/error.h>
#include <libavutil/log.h>
}

#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <utility>

namespace zel::media {
namespace {

std::mutex g_logMutex;
std::string g_lastMessage;

// What FFmpeg says when a picture has more than max_pixels. Its error code is that of any damage.
constexpr const char* kTooManyPixels = "exceeds specified max pixel count";
std::atomic<bool> g_sawLargePicture{false};

void KeepMessage(void*, int level, const char* format, va_list arguments) {
  if (level > AV_LOG_ERROR) return;
  if (std::strstr(format, kTooManyPixels) != nullptr) g_sawLargePicture = true;
  char text[256];
  std::vsnprintf(text, sizeof(text), format, arguments);
  std::string message = text;
  while (!message.empty() && (message.back() == '\n' || message.back() == '.')) message.pop_back();
  if (message.empty()) return;
  const std::lock_guard lock(g_logMutex);
  g_lastMessage = std::move(message);
}

/// True for the codes that FFmpeg returns for many different faults.
bool IsVague(int error) {
  return error == AVERROR(EINVAL) || error == AVERROR_INVALIDDATA || error == AVERROR_UNKNOWN ||
         error == AVERROR_EXTERNAL;
}

}  // namespace

CodecContext OpenDecoder(const AVStream& stream) {
  const AVCodec* codec = avcodec_find_decoder(stream.codecpar->codec_id);
  if (codec == nullptr) return nullptr;
  CodecContext context(NotNull(avcodec_alloc_context3(codec)));
  const int described = avcodec_parameters_to_context(context.get(), stream.codecpar);
  if (described == AVERROR(ENOMEM)) throw std::bad_alloc();
  if (described < 0) return nullptr;
  // The decoder needs it to move a frame's time stamp when it cuts off priming samples.
  context->pkt_timebase = stream.time_base;
  context->thread_count = 1;
  context->max_pixels = kMostPixels;
  const int opened = avcodec_open2(context.get(), codec, nullptr);
  if (opened == AVERROR(ENOMEM)) throw std::bad_alloc();
  if (opened < 0) return nullptr;
  return context;
}

std::string ErrorText(int error) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(error, text, sizeof(text));
  const std::lock_guard lock(g_logMutex);
  if (!IsVague(error) || g_lastMessage.empty()) return text;
  return std::string(text) + " (" + g_lastMessage + ")";
}

bool SawLargePicture() {
  return g_sawLargePicture;
}

void CaptureLog() {
  av_log_set_callback(KeepMessage);
}

}  // namespace zel::media
