#include "app/Recall.h"

#include <utility>

#include "app/FailureTexts.h"
#include "base/Text.h"

namespace nulo {
namespace {

Outcome noText(std::size_t back) {
    return Error{back == 1 ? "there is no text yet since Nulo was started"
                           : "there is no text number " + std::to_string(back) +
                                 ": Nulo remembers the last " + std::to_string(RecentTexts::most) +
                                 " since it was started"};
}

/// Without what the service says: it may quote a text.
std::string reasonOf(const TranscriptionFailure& failure) {
    const auto* error = std::get_if<TranscriptionError>(&failure);
    return error && error->statusCode() != 0
               ? "the service signals an error (" + std::to_string(error->statusCode()) + ")"
               : describe(failure);
}

}  // namespace

Recall::Recall(Dependencies dependencies)
    : m_dependencies(std::move(dependencies)),
      m_history(m_dependencies.stateFolder, m_dependencies.clock),
      m_takes(m_dependencies.stateFolder, m_dependencies.clock) {
    dropOld();
}

void Recall::dropOld() {
    m_history.dropOld();
    m_takes.dropOld();
}

void Recall::textDelivered(const std::string& text, const std::string& mode) {
    m_recent.add(text);
    const bool keepsHistory = m_dependencies.userDefaults.boolean("history").value_or(false);
    if (keepsHistory)
        if (const Outcome kept = m_history.add(text, mode); !kept)
            m_dependencies.log.log("ERROR: The text is not in the history: " +
                                   kept.error().description);
    dropOld();
}

bool Recall::keepTake(const std::filesystem::path& file, const TakeRoute& route) {
    if (!m_dependencies.userDefaults.boolean("keepFailedTakes").value_or(false))
        return false;
    const Outcome kept = m_takes.keep(file, route);
    m_dependencies.log.log(kept ? "The take is kept: nulo --retry sends it again"
                                : "ERROR: The take is not kept: " + kept.error().description);
    return kept.ok();
}

void Recall::pasteLast(std::size_t back, const Answer& answer) {
    const auto text = m_recent.text(back);
    if (!text)
        return answer(noText(back));
    m_dependencies.pipeline.paste(*text, [answer] { answer(Success{}); });
}

void Recall::copyLast(std::size_t back, const Answer& answer) {
    const auto text = m_recent.text(back);
    if (!text)
        return answer(noText(back));
    m_dependencies.pipeline.copy(*text, [answer] { answer(Success{}); });
}

void Recall::retry(const Answer& answer) {
    if (m_isRetrying)
        return answer(Error{"a take is being sent already"});
    const auto take = m_takes.newest();
    if (!take)
        return answer(Error{"no take is kept"});
    TranscriptionService* const service = m_dependencies.service();
    if (!service)
        return answer(Error{"there is no service: see nulo --doctor"});
    m_isRetrying = true;
    m_dependencies.log.log("Sending a kept take again");
    sendByRoute(*service, m_dependencies.mainQueue, m_lifetime, take->entry.file, take->route,
                [this, take = *take, answer](const RouteResult& result) {
                    m_isRetrying = false;
                    retried(take, result, answer);
                });
}

void Recall::retried(const KeptTakes::Take& take, const RouteResult& result, const Answer& answer) {
    if (!result.text) {
        const TranscriptionFailure& failure = result.text.error();
        m_dependencies.log.log("ERROR: " + describe(failure));
        m_dependencies.notifications.show(andTakeKept(requestFailed(failure)));
        return answer(Error{reasonOf(failure) + "; the take is still kept"});
    }
    m_takes.remove(take);
    const std::string& text = result.text.value();
    if (text.empty()) {
        m_dependencies.log.log("The kept take holds no words");
        m_dependencies.notifications.show(nothingRecognised());
        return answer(Error{"nothing was recognised in the take, which is removed"});
    }
    m_dependencies.pipeline.copy(text, m_lifetime.guard([this, text, take, result, answer] {
        m_dependencies.log.log(
            "Text of a kept take copied: " + std::to_string(characterCount(text)) + " chars");
        m_dependencies.notifications.show(result.cleanupFailure
                                              ? textRecoveredWithoutCleanup(*result.cleanupFailure)
                                              : textRecovered());
        answer(Success{});
        textDelivered(text, take.route.mode);
    }));
}

}  // namespace nulo
