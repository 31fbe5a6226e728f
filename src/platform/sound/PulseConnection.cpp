#include "platform/sound/PulseConnection.h"

#include <pulse/pulseaudio.h>

#include <algorithm>
#include <new>
#include <string>

#include "audio/AacSampleRate.h"

namespace nulo {
namespace {

constexpr std::chrono::milliseconds longestWait(8);

PulseConnection* self(void* data) {
    return static_cast<PulseConnection*>(data);
}

bool meansNoServer(int code) {
    return code == PA_ERR_CONNECTIONREFUSED || code == PA_ERR_INVALIDSERVER ||
           code == PA_ERR_CONNECTIONTERMINATED;
}

Error connectionError(int code) {
    if (meansNoServer(code))
        return {"no sound server is running"};
    switch (code) {
        case PA_ERR_TIMEOUT:
            return {"the sound server does not answer"};
        case PA_ERR_ACCESS:
            return {"the sound server refuses access"};
        default:
            return {std::string("no connection to the sound server: ") + pa_strerror(code)};
    }
}

void forget(pa_operation* operation) {
    if (operation)
        pa_operation_unref(operation);
}

}  // namespace

PulseLock::PulseLock(pa_threaded_mainloop* loop) : m_loop(loop) {
    pa_threaded_mainloop_lock(m_loop);
}

PulseLock::~PulseLock() {
    pa_threaded_mainloop_unlock(m_loop);
}

PulseConnection::PulseConnection(const PulseTimings& timings)
    : m_timings(timings), m_loop(pa_threaded_mainloop_new()), m_retryDelay(timings.firstRetry) {
    if (!m_loop)
        throw std::bad_alloc();
    // On the loop's thread from the beginning: connecting may start a sound server and wait for it.
    pa_mainloop_api_once(
        pa_threaded_mainloop_get_api(m_loop),
        [](pa_mainloop_api*, void* data) { self(data)->connect(); }, this);
    pa_threaded_mainloop_start(m_loop);
}

PulseConnection::~PulseConnection() {
    pa_threaded_mainloop_stop(m_loop);
    dropContext();
    pa_threaded_mainloop_free(m_loop);
}

Result<unsigned> PulseConnection::sampleRate() {
    std::unique_lock lock(m_factsMutex);
    if (!m_factsChanged.wait_for(lock, longestWait, [this] { return m_facts.known; }))
        return connectionError(PA_ERR_TIMEOUT);
    if (m_facts.failure)
        return *m_facts.failure;
    return m_facts.sampleRate;
}

std::string PulseConnection::description() {
    const std::lock_guard lock(m_factsMutex);
    return m_facts.description;
}

bool PulseConnection::isAccessDenied() {
    const std::lock_guard lock(m_factsMutex);
    return m_facts.accessDenied;
}

bool PulseConnection::isServerMissing() {
    const std::lock_guard lock(m_factsMutex);
    return m_facts.serverMissing;
}

pa_context* PulseConnection::context() const {
    return m_context && pa_context_get_state(m_context) == PA_CONTEXT_READY ? m_context : nullptr;
}

void PulseConnection::connect() {
    dropContext();
    m_isWaitingToRetry = false;
    m_isRefreshing = m_refreshAgain = false;
    m_context = pa_context_new(pa_threaded_mainloop_get_api(m_loop), "Nulo");
    if (!m_context)
        throw std::bad_alloc();
    pa_context_set_state_callback(
        m_context, [](pa_context*, void* data) { self(data)->stateChanged(); }, this);
    pa_context_set_subscribe_callback(
        m_context,
        [](pa_context*, pa_subscription_event_type_t, uint32_t, void* data) {
            self(data)->refreshSource();
        },
        this);
    armTimer(m_timings.connectBound);
    // A server that the user stopped is not started again and again.
    const pa_context_flags_t flags = m_triedBefore ? PA_CONTEXT_NOAUTOSPAWN : PA_CONTEXT_NOFLAGS;
    m_triedBefore = true;
    if (pa_context_connect(m_context, nullptr, flags, nullptr) < 0)
        connectionLost(pa_context_errno(m_context));
}

void PulseConnection::stateChanged() {
    switch (pa_context_get_state(m_context)) {
        case PA_CONTEXT_READY:
            pa_threaded_mainloop_get_api(m_loop)->time_free(m_timer);
            m_timer = nullptr;
            m_retryDelay = m_timings.firstRetry;
            forget(pa_context_subscribe(
                m_context,
                static_cast<pa_subscription_mask_t>(PA_SUBSCRIPTION_MASK_SERVER |
                                                    PA_SUBSCRIPTION_MASK_SOURCE),
                nullptr, nullptr));
            refreshSource();
            break;
        case PA_CONTEXT_FAILED:
        case PA_CONTEXT_TERMINATED:
            connectionLost(pa_context_errno(m_context));
            break;
        default:
            break;
    }
}

void PulseConnection::connectionLost(int code) {
    if (m_isWaitingToRetry)
        return;
    m_isWaitingToRetry = true;
    publish({.known = true,
             .failure = connectionError(code),
             .accessDenied = code == PA_ERR_ACCESS,
             .serverMissing = meansNoServer(code)});
    armTimer(m_retryDelay);
    m_retryDelay = std::min(2 * m_retryDelay, m_timings.longestRetry);
}

void PulseConnection::timerFired() {
    if (m_isWaitingToRetry)
        return connect();
    pa_context_set_state_callback(m_context, nullptr, nullptr);
    pa_context_disconnect(m_context);
    connectionLost(PA_ERR_TIMEOUT);
}

void PulseConnection::armTimer(std::chrono::milliseconds delay) {
    if (m_timer)
        pa_threaded_mainloop_get_api(m_loop)->time_free(m_timer);
    const pa_usec_t due = pa_rtclock_now() + static_cast<pa_usec_t>(delay.count()) * 1000;
    m_timer = pa_context_rttime_new(
        m_context, due,
        [](pa_mainloop_api*, pa_time_event*, const timeval*, void* data) {
            self(data)->timerFired();
        },
        this);
}

void PulseConnection::dropContext() {
    if (m_timer)
        pa_threaded_mainloop_get_api(m_loop)->time_free(m_timer);
    m_timer = nullptr;
    if (!m_context)
        return;
    pa_context_set_state_callback(m_context, nullptr, nullptr);
    pa_context_set_subscribe_callback(m_context, nullptr, nullptr);
    pa_context_disconnect(m_context);
    pa_context_unref(m_context);
    m_context = nullptr;
}

void PulseConnection::refreshSource() {
    m_refreshAgain = m_isRefreshing;
    if (m_isRefreshing)
        return;
    m_isRefreshing = true;
    forget(pa_context_get_server_info(
        m_context,
        [](pa_context*, const pa_server_info* info, void* data) {
            self(data)->serverAnswered(info);
        },
        this));
}

void PulseConnection::serverAnswered(const pa_server_info* info) {
    m_answer = {.known = true, .failure = Error{"no microphone is connected"}};
    pa_operation* query = nullptr;
    if (info && info->default_source_name)
        query = pa_context_get_source_info_by_name(
            m_context, info->default_source_name,
            [](pa_context*, const pa_source_info* source, int end, void* data) {
                self(data)->sourceAnswered(end ? nullptr : source);
            },
            this);
    if (query)
        pa_operation_unref(query);
    else
        refreshed(m_answer);
}

void PulseConnection::sourceAnswered(const pa_source_info* info) {
    if (!info)
        return refreshed(m_answer);
    // Where there is no microphone, the default source is what the speakers play.
    if (info->monitor_of_sink != PA_INVALID_INDEX)
        return;
    m_answer.failure.reset();
    m_answer.sampleRate = aacSampleRate(info->sample_spec.rate);
    m_answer.description = info->description ? info->description : "";
}

void PulseConnection::refreshed(const Facts& facts) {
    publish(facts);
    m_isRefreshing = false;
    if (m_refreshAgain)
        refreshSource();
}

void PulseConnection::publish(const Facts& facts) {
    const std::lock_guard lock(m_factsMutex);
    m_facts = facts;
    m_factsChanged.notify_all();
}

}  // namespace nulo
