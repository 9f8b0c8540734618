// What a compositor can say about itself: whether a file is being loaded, how the last load ended,
// and what the last pull gave and why.
//
//   zel::Ref<ICompositorDiagnosis> diagnosis;
//   compositor->QueryInterface(IID_ICompositorDiagnosis, diagnosis.ReceiveVoid());
//   compositor->AddByFileName(name);
//   SDiagnosis now;
//   if (diagnosis->WaitForLoad(10'000) == S_OK && diagnosis->GetDiagnosis(&now) == S_OK) {
//     std::printf("the file %s\n", zel::DiagnosisText(now.load));
//   }
//
// The interface is an object of its own inside the compositor: its references are references on the
// compositor, and its QueryInterface is the compositor's.
#pragma once

#include <cstddef>
#include <cstdint>

#include "zel/base/Component.h"

/// 81BED904-DC30-4E01-A403-8E0269B816F3
inline constexpr _GUID IID_ICompositorDiagnosis = {
    0x81BED904, 0xDC30, 0x4E01, {0xA4, 0x03, 0x8E, 0x02, 0x69, 0xB8, 0x16, 0xF3}};

/// How the load of a file ended.
enum LOAD_RESULT : std::int32_t {
  LOAD_NONE = 0,        ///< No load has ended yet.
  LOAD_ADDED = 1,       ///< The file's sound is the second source.
  LOAD_NO_THREAD = 2,   ///< No thread could be made.
  LOAD_NO_MANAGER = 3,  ///< There is no decoder manager.
  LOAD_NO_FILE = 4,     ///< The manager does not open the file any more.
  LOAD_NO_PROGRAM = 5,  ///< The file has no program.
  LOAD_NO_DECODER = 6,  ///< The manager makes no decoder for the file.
  LOAD_NO_SOUND = 7,    ///< The decoder gives no audio stream.
  LOAD_REFUSED = 8,     ///< AddByMediaStream has refused the stream.
};

/// What a pull (the output's GetSampleEx) gave.
///
/// PULL_PASSED_...: the input's frame with its own sound. PULL_SILENT_...: the input's frame, its
/// bytes cleared. PULL_ENDED_...: null.
enum PULL_RESULT : std::int32_t {
  PULL_NONE = 0,                      ///< Nothing has been pulled yet.
  PULL_SOUND = 1,                     ///< The second source's sound, which may be silent itself.
  PULL_PASSED_NO_SOURCE = 2,          ///< There is no second source.
  PULL_PASSED_LOADING = 3,            ///< There is none, and a file is being loaded.
  PULL_PASSED_LOAD_FAILED = 4,        ///< There is none, because the last load failed.
  PULL_SILENT_BEFORE_DELAY = 5,       ///< The frame is before the delay.
  PULL_SILENT_NO_TIME = 6,            ///< The frame has no time stamp, which counts as before 0.
  PULL_SILENT_SOURCE_ENDED = 7,       ///< The source gives no frame: it has ended or failed.
  PULL_SILENT_NOT_AUDIO = 8,          ///< The source's block is a picture.
  PULL_SILENT_NOT_PCM16 = 9,          ///< The block's samples do not have 16 bits.
  PULL_SILENT_NO_FORMAT = 10,         ///< The block's rate or number of channels is 0 or negative.
  PULL_SILENT_BAD_DATA = 11,          ///< The block's size is negative, or its data null.
  PULL_SILENT_NO_OUTPUT_FORMAT = 12,  ///< The input's description has no rate or no channels.
  PULL_SILENT_CHANNELS = 13,          ///< The converter does not know this pair of channel counts.
  PULL_SILENT_NO_MEMORY = 14,         ///< No memory for the conversion.
  PULL_ENDED_NO_INPUT = 15,           ///< There is no input.
  PULL_ENDED_NO_DESCRIPTION = 16,     ///< The input has given no description.
  PULL_ENDED_INPUT = 17,              ///< The input gives no frame: it has ended or failed.
  PULL_ENDED_FRAME = 18,      ///< The input's frame has no sound: no data, no bytes, or a picture.
  PULL_ENDED_NO_MEMORY = 19,  ///< No memory for the output's sample.
};

/// The number of values of PULL_RESULT, for tables.
inline constexpr int kPullResults = 20;

/// What a compositor says of itself at one moment.
struct SDiagnosis {
  std::int32_t isLoading;  ///< 1 while a file is being loaded or waits, else 0.
  LOAD_RESULT load;        ///< How the last load ended.
  HRESULT loadCode;        ///< The failed operation's code, E_FAIL if it had none; or S_OK.
  std::uint32_t loads;     ///< Loads that have ended. A name that was replaced is not counted.
  PULL_RESULT pull;        ///< What the last pull gave.
};
static_assert(sizeof(SDiagnosis) == 20 && offsetof(SDiagnosis, load) == 4 &&
              offsetof(SDiagnosis, loadCode) == 8 && offsetof(SDiagnosis, loads) == 12 &&
              offsetof(SDiagnosis, pull) == 16);

/// Why a callback is called.
enum DIAGNOSIS_EVENT : std::int32_t {
  DIAGNOSIS_LOAD_ENDED = 1,    ///< A load has ended; `load` and `loadCode` are its own.
  DIAGNOSIS_PULL_CHANGED = 2,  ///< A pull gave something else than the one before.
};

/// Receives an event and what the compositor says of itself. It must not throw. See SetCallback.
using DiagnosisCallback = void (*)(void* context, DIAGNOSIS_EVENT event, const SDiagnosis* now);

/// Tells what a compositor is doing, and why. Threads: any thread, any time.
class ZEL_API ICompositorDiagnosis : public IUnknown {
 public:
  /// Fills `*now`. Takes a lock for a few instructions, never one that a pull or a load holds while
  /// it calls anything.
  /// @return S_OK; E_POINTER.
  virtual HRESULT GetDiagnosis(SDiagnosis* now) = 0;
  /// Waits until no load is under way, and the callbacks that report loads have returned. A load
  /// waits for a pull that is under way.
  /// @param timeoutMs milliseconds; 0 only looks, 0xFFFFFFFF waits for ever.
  /// @return S_OK; S_FALSE when the time is over; E_ZEL_STATE inside a stream's call, on the
  ///   loading thread and inside a callback, where it might wait for itself.
  virtual HRESULT WaitForLoad(std::uint32_t timeoutMs) = 0;
  /// Makes `callback` the one function that is called with `context` after each event; null: none.
  ///
  /// A load's end is reported on the loading thread, or inside AddByFileName when no thread could
  /// be made; a pull on the pulling thread, before GetSampleEx returns. No lock of the compositor
  /// is held. Two threads may call at once. The callback may call the compositor and this
  /// interface. While a pull is reported, the output refuses Forward, GetSampleEx and Seek as the
  /// last two do inside a stream's call. In every callback, SetInputAudioStream may return
  /// E_ZEL_STATE, and the last reference must not be released.
  ///
  /// AddByFileName, SetInputAudioStream and the last Release wait for the callback that reports a
  /// load. The callback must not wait for a thread that may be in one of them.
  ///
  /// Do not call this with a lock held that the callback takes: it waits for callbacks that are
  /// under way.
  /// @return S_OK: the callback before is not called any more; S_FALSE inside a callback or a
  ///   stream's call: it may still be under way on another thread.
  virtual HRESULT SetCallback(DiagnosisCallback callback, void* context) = 0;

 protected:
  ~ICompositorDiagnosis() = default;
};

/// Lets a zel::Component expose the interface.
template <>
struct zel::InterfaceId<ICompositorDiagnosis> {
  static bool Equals(const _GUID& id) { return ZelIsEqualGUID(id, IID_ICompositorDiagnosis); }
};

namespace zel {

/// What became of the file, in words that follow "the file ". Threads: any.
constexpr const char* DiagnosisText(LOAD_RESULT load) {
  switch (load) {
    case LOAD_NONE:
      return "has not been loaded";
    case LOAD_ADDED:
      return "was loaded";
    case LOAD_NO_THREAD:
      return "was not loaded: no thread could be made";
    case LOAD_NO_MANAGER:
      return "was not loaded: there is no decoder manager";
    case LOAD_NO_FILE:
      return "was not loaded: it does not open any more";
    case LOAD_NO_PROGRAM:
      return "was not loaded: it has no program";
    case LOAD_NO_DECODER:
      return "was not loaded: there is no decoder for it";
    case LOAD_NO_SOUND:
      return "was not loaded: it gives no audio stream";
    case LOAD_REFUSED:
      return "was not loaded: its stream was refused";
  }
  return "ended in a way that this header does not know";
}

/// What a pull gave, in a few words. Threads: any.
constexpr const char* DiagnosisText(PULL_RESULT pull) {
  switch (pull) {
    case PULL_NONE:
      return "nothing pulled";
    case PULL_SOUND:
      return "sound of the second source";
    case PULL_PASSED_NO_SOURCE:
      return "own sound: no second source";
    case PULL_PASSED_LOADING:
      return "own sound: the file is being loaded";
    case PULL_PASSED_LOAD_FAILED:
      return "own sound: the file was not loaded";
    case PULL_SILENT_BEFORE_DELAY:
      return "silent: before the delay";
    case PULL_SILENT_NO_TIME:
      return "silent: no time stamp";
    case PULL_SILENT_SOURCE_ENDED:
      return "silent: after the second source";
    case PULL_SILENT_NOT_AUDIO:
      return "silent: the second source gave a picture";
    case PULL_SILENT_NOT_PCM16:
      return "silent: the second source is not 16-bit PCM";
    case PULL_SILENT_NO_FORMAT:
      return "silent: the second source gave no rate or no channels";
    case PULL_SILENT_BAD_DATA:
      return "silent: the second source gave a negative size or no data";
    case PULL_SILENT_NO_OUTPUT_FORMAT:
      return "silent: the input has no rate or no channels";
    case PULL_SILENT_CHANNELS:
      return "silent: these channel counts cannot be converted";
    case PULL_SILENT_NO_MEMORY:
      return "silent: out of memory";
    case PULL_ENDED_NO_INPUT:
      return "end: no input";
    case PULL_ENDED_NO_DESCRIPTION:
      return "end: the input has no description";
    case PULL_ENDED_INPUT:
      return "end: the input gave no frame";
    case PULL_ENDED_FRAME:
      return "end: the input's frame has no sound";
    case PULL_ENDED_NO_MEMORY:
      return "end: out of memory";
  }
  return "something that this header does not know";
}

}  // namespace zel
