#pragma once

#include <functional>
#include <memory>
#include <span>
#include <string>

#include "base/Result.h"

namespace nulo {

/// One capture of the default microphone: mono float32 at the device's native rate. One engine a
/// take. Main thread, except for the tap.
class CaptureEngine {
  public:
    /// Called on the capture thread with 1,024 frames at a time, and by stop() with the last ones,
    /// which may be fewer. The frames are valid during the call only.
    using Tap = std::function<void(std::span<const float> frames)>;
    /// Called once, on the main thread, when capture ended by itself: the microphone was unplugged
    /// or the sound server died. The take so far is good; stop() is still to be called.
    using Interrupted = std::function<void(const Error& reason)>;

    virtual ~CaptureEngine() = default;
    /// Frames per second of the input device, always one that the AAC encoder takes. Waits at most
    /// 10 ms. Fails when there is no microphone, no sound server or no access to it.
    virtual Result<double> inputSampleRate() = 0;
    /// Opens the stream at inputSampleRate(). Returns at once; a failure that is only known later
    /// is reported through `interrupted`.
    virtual Outcome start(Tap tap, Interrupted interrupted) = 0;
    /// Hands on what was captured up to now, then ends the stream. No tap call begins after it
    /// returns. Waits a few milliseconds at most, also when the server hangs.
    virtual void stop() = 0;
};

enum class MicrophonePermission { notDetermined, restricted, denied, authorized };

/// The machine's microphones.
class Microphone {
  public:
    virtual ~Microphone() = default;
    virtual MicrophonePermission authorizationStatus() = 0;
    /// `answer` may come on any thread.
    virtual void requestAccess(std::function<void(bool granted)> answer) = 0;
    virtual std::unique_ptr<CaptureEngine> makeEngine() = 0;
    /// The default microphone's, for a person; empty when it is not known.
    virtual std::string name() { return {}; }
};

}  // namespace nulo
