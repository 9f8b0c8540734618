#include "media/AvErrors.h"

#include <cstdio>
#include <mutex>

extern "C" {
#include <libavutil/log.h>
}

namespace zel::tool {
namespace {

std::mutex g_logMutex;
std::string g_lastMessage;

void KeepMessage(void*, int level, const char* format, va_list arguments) {
  if (level > AV_LOG_ERROR) return;
  char text[256];
  std::vsnprintf(text, sizeof(text), format, arguments);
  std::string message = text;
  while (!message.empty() && (message.back() == '\n' || message.back() == '.')) message.pop_back();
  if (message.empty()) return;
  const std::lock_guard lock(g_logMutex);
  g_lastMessage = std::move(message);
}

}  // namespace

std::string AvText(int error) {
  char text[AV_ERROR_MAX_STRING_SIZE] = {};
  av_strerror(error, text, sizeof(text));
  const std::lock_guard lock(g_logMutex);
  // A system's error (disk full, no permission) says all by itself.
  const bool vague = error == AVERROR(EINVAL) || error == AVERROR_INVALIDDATA ||
                     error == AVERROR_UNKNOWN || error == AVERROR_EXTERNAL;
  if (!vague || g_lastMessage.empty()) return text;
  return std::string(text) + " (" + g_lastMessage + ")";
}

void CaptureAvLog() {
  av_log_set_callback(KeepMessage);
}

}  // namespace zel::tool
