#pragma once

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "audio/CaptureEngine.h"
#include "base/MainQueue.h"
#include "base/Print.h"
#include "base/Result.h"

struct pa_context;
struct pa_server_info;
struct pa_source_info;
struct pa_threaded_mainloop;
struct pa_time_event;

namespace nulo {

struct PulseTimings {
    std::chrono::milliseconds connectBound{2000};  // after which a server counts as hung
    std::chrono::milliseconds firstRetry{200};     // doubled after every failure
    std::chrono::milliseconds longestRetry{2000};
    std::chrono::milliseconds silenceBound{2000};  // without data while recording, until a notice
};

/// Holds libpulse's lock: keeps its thread from running callbacks meanwhile.
class PulseLock {
  public:
    explicit PulseLock(pa_threaded_mainloop* loop);
    ~PulseLock();
    PulseLock(const PulseLock&) = delete;
    PulseLock& operator=(const PulseLock&) = delete;

  private:
    pa_threaded_mainloop* m_loop;
};

/// The connection to the sound server: made in the background, kept, and made again when it is
/// lost. Knows the default microphone at all times, so that no caller waits for an answer.
class PulseConnection {
  public:
    explicit PulseConnection(const PulseTimings& timings);
    ~PulseConnection();
    PulseConnection(const PulseConnection&) = delete;
    PulseConnection& operator=(const PulseConnection&) = delete;

    /// Frames per second to record the default microphone at. Waits for a connection that is just
    /// being made, less than 10 ms.
    Result<unsigned> sampleRate();
    /// Of the default microphone, for a person; empty as long as that is not known.
    std::string description();
    bool isAccessDenied();
    /// Whether no sound server is there, as opposed to one that refuses or hangs.
    bool isServerMissing();

    pa_threaded_mainloop* loop() const { return m_loop; }
    /// Null when there is no connection. Under the lock.
    pa_context* context() const;

  private:
    struct Facts {
        bool known = false;  // false while the first connection is being made
        std::optional<Error> failure;
        bool accessDenied = false;
        bool serverMissing = false;
        unsigned sampleRate = 0;
        std::string description;
    };

    void connect();
    void stateChanged();
    void connectionLost(int code);
    void timerFired();
    void armTimer(std::chrono::milliseconds delay);
    void dropContext();
    void refreshSource();
    void serverAnswered(const pa_server_info* info);
    void sourceAnswered(const pa_source_info* info);
    void refreshed(const Facts& facts);
    void publish(const Facts& facts);

    const PulseTimings m_timings;
    pa_threaded_mainloop* m_loop;

    // Under libpulse's lock.
    pa_context* m_context = nullptr;
    pa_time_event* m_timer = nullptr;
    std::chrono::milliseconds m_retryDelay;
    bool m_triedBefore = false;
    bool m_isWaitingToRetry = false;
    bool m_isRefreshing = false;
    bool m_refreshAgain = false;
    Facts m_answer;

    std::mutex m_factsMutex;
    std::condition_variable m_factsChanged;
    Facts m_facts;
};

/// makePulseMicrophone() with other than the usual times.
std::unique_ptr<Microphone> makePulseMicrophone(MainQueue& mainQueue, Print print,
                                                const PulseTimings& timings);

}  // namespace nulo
