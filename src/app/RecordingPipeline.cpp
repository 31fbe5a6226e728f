#include "app/RecordingPipeline.h"

#include <system_error>
#include <utility>

#include "app/FailureTexts.h"
#include "app/Routes.h"

namespace nulo {
namespace {

// A notice whose button was clicked goes first, and the desktop hears of the new text by another
// way than of the keys.
constexpr MainQueue::Delay keysAfterCopy(0.1);

}  // namespace

RecordingPipeline::RecordingPipeline(Dependencies dependencies)
    : m_dependencies(std::move(dependencies)),
      m_deliveries(m_dependencies.mainQueue, m_dependencies.clock, m_dependencies.pasteboard,
                   m_dependencies.pasteKeystroke) {
    m_deliveries.onFailure = [this](const Error& reason) {
        m_dependencies.print("Could not paste: " + reason.description);
        m_dependencies.onFailure(textNotPasted(reason));
    };
    m_deliveries.onReceipt = [this](const Deliveries::Receipt& receipt) { told(receipt); };
}

void RecordingPipeline::setTranscriptionService(TranscriptionService* service, Notice reason) {
    m_service = service;
    m_whyNoService = std::move(reason);
}

void RecordingPipeline::processRecording(const std::optional<std::filesystem::path>& file,
                                         Panel panel) {
    if (file && m_service) {
        m_dictations.emplace_front(m_dependencies, *m_service, m_deliveries, *file, panel);
        const auto dictation = m_dictations.begin();
        dictation->start([this, dictation] { m_dictations.erase(dictation); });
        return;
    }
    if (file) {
        m_dependencies.print("No transcription service configured.");
        const bool isKept = m_dependencies.keepTake &&
                            m_dependencies.keepTake(*file, routeOf(m_dependencies.loadConfig()));
        m_dependencies.onFailure(isKept ? andTakeKept(m_whyNoService) : m_whyNoService);
        std::error_code ignored;
        std::filesystem::remove(*file, ignored);
    }
    if (m_dependencies.overlay.panel() == panel)
        m_dependencies.overlay.hide();
}

void RecordingPipeline::paste(std::string text, std::function<void()> begun) {
    m_deliveries.await([this, text = std::move(text), begun = std::move(begun)] {
        m_deliveries.copy(text);
        begun();
        m_dependencies.mainQueue.asyncAfter(keysAfterCopy,
                                            m_lifetime.guard([this] { m_deliveries.paste(); }));
    });
}

void RecordingPipeline::copy(std::string text, std::function<void()> done) {
    m_deliveries.await([this, text = std::move(text), done = std::move(done)] {
        m_deliveries.copy(text);
        done();
        m_deliveries.leave();
    });
}

void RecordingPipeline::told(const Deliveries::Receipt& receipt) {
    using Verdict = Deliveries::Receipt::Verdict;
    switch (receipt.verdict) {
        case Verdict::readLate:
            if (m_dependencies.withdrawOffer)
                m_dependencies.withdrawOffer();
            [[fallthrough]];
        case Verdict::read:
            return m_dependencies.log.log("Paste read after " +
                                          std::to_string(wholeMilliseconds(receipt.after)) + " ms");
        case Verdict::notRead:
            m_dependencies.log.log("Paste not read");
            return offerAgain(textNotRead(), receipt.text);
        case Verdict::replaced:
            m_dependencies.log.log("Paste not read before the next text");
            return offerAgain(textReplaced(), receipt.text);
        case Verdict::notSeen:
            return m_dependencies.log.log("Paste not seen: the clipboard has another owner");
    }
}

void RecordingPipeline::offerAgain(const Notice& notice, const std::string& text) {
    if (m_dependencies.offer)
        m_dependencies.offer(notice, {std::string(pasteAgainLabel),
                                      m_lifetime.guard([this, text] { paste(text, [] {}); })});
}

}  // namespace nulo
