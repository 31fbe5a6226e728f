#include "service/offline/WhisperEngine.h"

#include "service/Sha256.h"

#ifdef NULO_HAS_WHISPER
#include <whisper.h>

#include <algorithm>
#include <stdexcept>
#include <thread>
#include <vector>

#include "base/Text.h"
#include "service/Strings.h"
#endif

namespace nulo::service {
namespace {

#ifdef NULO_HAS_WHISPER

struct Free {
    void operator()(whisper_context* context) const { whisper_free(context); }
    void operator()(whisper_state* state) const { whisper_free_state(state); }
};

class WhisperEngine final : public SpeechEngine {
  public:
    WhisperEngine(std::shared_ptr<whisper_context> model, whisper_state* state)
        : m_model(std::move(model)), m_state(state) {}

    Transcript hear(std::span<const std::int16_t> samples, const SpeechHints& hints) override {
        // Shorter takes are refused by the library.
        constexpr std::size_t least = speechRate * 11 / 10;
        std::vector<float> wave(std::max(samples.size(), least));
        std::transform(samples.begin(), samples.end(), wave.begin(),
                       [](std::int16_t sample) { return static_cast<float>(sample) / 32768.0F; });
        const std::string code = hints.language.substr(0, hints.language.find_first_of("-_"));
        const bool known = !code.empty() && whisper_lang_id(code.c_str()) >= 0;
        const bool speaksMore = whisper_is_multilingual(m_model.get()) != 0;
        whisper_full_params parameters = whisper_full_default_params(WHISPER_SAMPLING_GREEDY);
        parameters.n_threads =
            static_cast<int>(std::clamp(std::thread::hardware_concurrency(), 1U, 4U));
        parameters.language = !speaksMore ? "en" : known ? code.c_str() : "auto";
        parameters.no_context = true;
        parameters.initial_prompt = hints.prompt.c_str();
        parameters.no_timestamps = true;
        parameters.print_progress = false;
        parameters.print_realtime = false;
        parameters.print_timestamps = false;
        const int outcome = whisper_full_with_state(m_model.get(), m_state.get(), parameters,
                                                    wave.data(), static_cast<int>(wave.size()));
        if (outcome != 0)
            throw std::runtime_error("whisper.cpp gave up with " + std::to_string(outcome));
        std::string text;
        const int segments = whisper_full_n_segments_from_state(m_state.get());
        for (int i = 0; i < segments; ++i)
            text += whisper_full_get_segment_text_from_state(m_state.get(), i);
        const char* heard = whisper_lang_str(whisper_full_lang_id_from_state(m_state.get()));
        // A character may be cut between two tokens.
        return {trimmed(repairedUtf8(text)), heard ? heard : ""};
    }

  private:
    const std::shared_ptr<whisper_context> m_model;
    const std::unique_ptr<whisper_state, Free> m_state;
};

Result<MakeEngine> loaded(const std::filesystem::path& file) {
    whisper_log_set([](ggml_log_level, const char*, void*) {}, nullptr);
    whisper_context_params parameters = whisper_context_default_params();
    parameters.use_gpu = false;
    const std::shared_ptr<whisper_context> model(
        whisper_init_from_file_with_params_no_state(file.c_str(), parameters), Free{});
    if (!model)
        return Error{"offline.model: " + file.string() + " is no ggml model of whisper.cpp"};
    return MakeEngine([model]() -> Result<std::unique_ptr<SpeechEngine>> {
        whisper_state* state = whisper_init_state(model.get());
        if (!state)
            return Error{"there is not enough memory for the offline model"};
        return std::unique_ptr<SpeechEngine>(std::make_unique<WhisperEngine>(model, state));
    });
}

#else

Result<MakeEngine> loaded(const std::filesystem::path&) {
    return Error{
        "offline.model: this build has no whisper.cpp; run tools/whisper and build Nulo again"};
}

#endif

}  // namespace

Result<MakeEngine> loadWhisperModel(const OfflineModel& model) {
    const auto digest = sha256OfFile(model.file);
    if (!digest)
        return Error{"offline.model: " + model.file.string() +
                     " cannot be read: " + digest.error().description};
    if (digest.value() != model.sha256)
        return Error{"offline.sha256: " + model.file.string() +
                     " is another file than the one that was written down; its SHA-256 is " +
                     digest.value()};
    try {
        return loaded(model.file);
    } catch (const std::exception& error) {
        return Error{"offline.model: " + model.file.string() +
                     " cannot be loaded: " + error.what()};
    }
}

}  // namespace nulo::service
