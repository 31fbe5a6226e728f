#include "app/RecordingPipeline.h"

#include <system_error>
#include <utility>

#include "app/FailureTexts.h"

namespace nulo {

RecordingPipeline::RecordingPipeline(Dependencies dependencies)
    : m_dependencies(std::move(dependencies)),
      m_deliveries(m_dependencies.mainQueue, m_dependencies.pasteboard,
                   m_dependencies.pasteKeystroke) {
    m_deliveries.onFailure = [this](const Error& reason) {
        m_dependencies.print("Could not paste: " + reason.description);
        m_dependencies.onFailure(textNotPasted(reason));
    };
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
        m_dependencies.onFailure(m_whyNoService);
        std::error_code ignored;
        std::filesystem::remove(*file, ignored);
    }
    if (m_dependencies.overlay.panel() == panel)
        m_dependencies.overlay.hide();
}

}  // namespace nulo
