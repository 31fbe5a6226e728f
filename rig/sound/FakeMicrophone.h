#pragma once

#include <algorithm>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "audio/CaptureEngine.h"

namespace nulo {

/// A microphone whose buffers and faults the test brings about. Outlives its engines.
class FakeMicrophone final : public Microphone {
  public:
    MicrophonePermission permission = MicrophonePermission::authorized;
    Result<double> sampleRate{48000.0};
    Outcome startOutcome{Success{}};
    std::vector<float> framesAtStop;  // what a stop hands on last
    int enginesMade = 0;

    MicrophonePermission authorizationStatus() override { return permission; }
    void requestAccess(std::function<void(bool)> answer) override { m_answer = std::move(answer); }
    std::unique_ptr<CaptureEngine> makeEngine() override {
        ++enginesMade;
        return std::make_unique<Engine>(*this);
    }

    void answerAccess(bool granted) { std::exchange(m_answer, nullptr)(granted); }
    bool isRunning() const { return m_running != nullptr; }
    void capture(const std::vector<float>& frames) { m_running->tap(frames); }
    /// What the engine does on the main thread when capture ends by itself.
    void interrupt(const Error& reason) {
        const auto interrupted = m_running->interrupted;
        interrupted(reason);
    }

  private:
    struct Engine final : CaptureEngine {
        explicit Engine(FakeMicrophone& owner) : microphone(owner) {}
        ~Engine() override { stop(); }
        Result<double> inputSampleRate() override { return microphone.sampleRate; }
        Outcome start(Tap newTap, Interrupted newInterrupted) override {
            tap = std::move(newTap);
            interrupted = std::move(newInterrupted);
            if (microphone.startOutcome)
                microphone.m_running = this;
            return microphone.startOutcome;
        }
        void stop() override {
            if (microphone.m_running != this)
                return;
            if (!microphone.framesAtStop.empty())
                tap(microphone.framesAtStop);
            microphone.m_running = nullptr;
        }

        FakeMicrophone& microphone;
        Tap tap;
        Interrupted interrupted;
    };

    Engine* m_running = nullptr;
    std::function<void(bool)> m_answer;
};

}  // namespace nulo
