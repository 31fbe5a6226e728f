#pragma once

#include <chrono>

#include "service/StillWanted.h"

namespace nulo::service {

/// Loads what whisper.cpp computes with: the variant that is made for this machine's processor, and
/// the one for graphics cards where there is a card that this program may use. Any thread; does so
/// once. Returns whether there is a card that it can compute on.
bool loadWhisperVariant();

/// While it lives, what whisper.cpp computes on this thread ends within a step of some milliseconds
/// when it is no longer wanted.
class StoppableWork {
  public:
    explicit StoppableWork(const StillWanted& stillWanted);
    ~StoppableWork();
    StoppableWork(const StoppableWork&) = delete;
    StoppableWork& operator=(const StoppableWork&) = delete;

    bool isStopped() const { return m_stopped; }
    /// As whisper.cpp calls back: true to stop. Called a great many times.
    static bool shouldStop(void* work);

  private:
    const StillWanted& m_stillWanted;
    std::chrono::steady_clock::time_point m_nextQuestion;
    bool m_stopped = false;
};

}  // namespace nulo::service
