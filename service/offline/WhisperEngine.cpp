#include "service/offline/WhisperEngine.h"

#include "service/Sha256.h"

#ifdef NULO_HAS_WHISPER
#include <sys/stat.h>
#include <whisper.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <stdexcept>
#include <tuple>
#include <vector>

#include "base/Text.h"
#include "service/Strings.h"
#include "service/offline/MeantWords.h"
#include "service/offline/PhysicalCores.h"
#include "service/offline/WhisperLibrary.h"
#endif

namespace nulo::service {
namespace {

Outcome checkDigest(const OfflineModel& model) {
    const auto digest = sha256OfFile(model.file);
    if (!digest)
        return Error{"offline.model: " + model.file.string() +
                     " cannot be read: " + digest.error().description};
    if (digest.value() != model.sha256)
        return Error{"offline.sha256: " + model.file.string() +
                     " is another file than the one that was written down; its SHA-256 is " +
                     digest.value()};
    return Success{};
}

#ifdef NULO_HAS_WHISPER

/// By what a file is told from one that was put in its place.
using FileState = std::tuple<dev_t, ino_t, off_t, time_t, long, time_t, long>;

FileState stateOf(const std::filesystem::path& file) {
    struct stat facts {};
    if (stat(file.c_str(), &facts) != 0)
        return {};
    return {facts.st_dev,          facts.st_ino,         facts.st_size,        facts.st_mtim.tv_sec,
            facts.st_mtim.tv_nsec, facts.st_ctim.tv_sec, facts.st_ctim.tv_nsec};
}

struct Free {
    void operator()(whisper_context* context) const { whisper_free(context); }
    void operator()(whisper_state* state) const { whisper_free_state(state); }
};
using Weights = std::shared_ptr<whisper_context>;
using Tokens = std::vector<whisper_token>;

/// How many hear at this moment share the cores: each of them waits for all its threads at every
/// step, which takes far longer than the step where there are more threads than cores.
class SharedCores {
  public:
    class Share {
      public:
        explicit Share(SharedCores& cores)
            : m_cores(cores),
              m_threads(static_cast<int>(std::max(1U, cores.m_count / ++cores.m_busy))) {}
        ~Share() { --m_cores.m_busy; }
        Share(const Share&) = delete;
        Share& operator=(const Share&) = delete;
        int threads() const { return m_threads; }

      private:
        SharedCores& m_cores;
        const int m_threads;
    };

  private:
    const unsigned m_count = physicalCores();
    std::atomic<unsigned> m_busy = 0;
};

class WhisperEngine final : public SpeechEngine {
  public:
    WhisperEngine(Weights weights, whisper_state* state, SharedCores& cores)
        : m_weights(std::move(weights)), m_state(state), m_cores(cores) {}

    Transcript hear(std::span<const std::int16_t> samples, const SpeechHints& hints,
                    const StillWanted& stillWanted) override {
        // Shorter takes are refused by the library.
        constexpr std::size_t least = speechRate * 11 / 10;
        std::vector<float> wave(std::max(samples.size(), least));
        std::transform(samples.begin(), samples.end(), wave.begin(),
                       [](std::int16_t sample) { return static_cast<float>(sample) / 32768.0F; });
        const std::string code = hints.language.substr(0, hints.language.find_first_of("-_"));
        const bool known = !code.empty() && whisper_lang_id(code.c_str()) >= 0;
        const bool speaksMore = whisper_is_multilingual(m_weights.get()) != 0;
        const Tokens prompt = promptOf(hints);
        const SharedCores::Share share(m_cores);
        StoppableWork work(stillWanted);
        whisper_full_params parameters = whisper_full_default_params(WHISPER_SAMPLING_GREEDY);
        parameters.n_threads = share.threads();
        parameters.language = !speaksMore ? "en" : known ? code.c_str() : "auto";
        parameters.no_context = true;
        parameters.prompt_tokens = prompt.data();
        parameters.prompt_n_tokens = static_cast<int>(prompt.size());
        parameters.no_timestamps = true;
        parameters.print_progress = false;
        parameters.print_realtime = false;
        parameters.print_timestamps = false;
        parameters.abort_callback = &StoppableWork::shouldStop;
        parameters.abort_callback_user_data = &work;
        const int outcome = whisper_full_with_state(m_weights.get(), m_state.get(), parameters,
                                                    wave.data(), static_cast<int>(wave.size()));
        if (work.isStopped())
            return {};
        if (outcome != 0)
            throw std::runtime_error("whisper.cpp gave up with " + std::to_string(outcome));
        const char* language = whisper_lang_str(whisper_full_lang_id_from_state(m_state.get()));
        return {heardText(), language ? language : ""};
    }

  private:
    /// A character may be cut between two tokens.
    std::string heardText() const {
        std::string text;
        const int segments = whisper_full_n_segments_from_state(m_state.get());
        for (int i = 0; i < segments; ++i) {
            const char* segment = whisper_full_get_segment_text_from_state(m_state.get(), i);
            const float silence =
                whisper_full_get_segment_no_speech_prob_from_state(m_state.get(), i);
            if (silence < 0.5F || !isFilmEnding(segment))
                text += segment;
        }
        return trimmed(repairedUtf8(text));
    }

    /// The model reads half as many tokens as it writes at most: the beginning of the vocabulary
    /// and the end of what was said have room in that together.
    Tokens promptOf(const SpeechHints& hints) const {
        const auto most = static_cast<std::size_t>(whisper_n_text_ctx(m_weights.get())) / 4;
        Tokens prompt = tokensOf(hints.prompt.substr(0, mostPromptBytes));
        prompt.resize(std::min(prompt.size(), most));
        const std::size_t start =
            hints.before.size() - std::min(hints.before.size(), mostPromptBytes);
        const Tokens before = tokensOf(hints.before.substr(start));
        prompt.insert(prompt.end(),
                      before.end() - static_cast<std::ptrdiff_t>(std::min(before.size(), most - 1)),
                      before.end());
        return prompt;
    }

    /// Of at most mostPromptBytes: the library splits it with an expression whose search goes a
    /// call deeper with each letter.
    Tokens tokensOf(const std::string& bytes) const {
        const std::string text = trimmed(repairedUtf8(bytes));
        Tokens tokens(3 * mostPromptBytes);
        const int count = text.empty()
                              ? 0
                              : whisper_tokenize(m_weights.get(), (" " + text).c_str(),
                                                 tokens.data(), static_cast<int>(tokens.size()));
        tokens.resize(static_cast<std::size_t>(std::max(0, count)));
        std::erase_if(tokens, [end = whisper_token_eot(m_weights.get())](whisper_token token) {
            return token >= end;
        });
        return tokens;
    }

    static constexpr std::size_t mostPromptBytes = 1000;

    const Weights m_weights;
    const std::unique_ptr<whisper_state, Free> m_state;
    SharedCores& m_cores;
};

Weights weightsIn(const std::filesystem::path& file) {
    whisper_context_params parameters = whisper_context_default_params();
    parameters.use_gpu = loadWhisperVariant();
    whisper_context* weights =
        whisper_init_from_file_with_params_no_state(file.c_str(), parameters);
    if (!weights && parameters.use_gpu) {  // cards have less memory
        parameters.use_gpu = false;
        weights = whisper_init_from_file_with_params_no_state(file.c_str(), parameters);
    }
    return {weights, Free{}};
}

class WhisperModel {
  public:
    explicit WhisperModel(OfflineModel model)
        : m_model(std::move(model)), m_checked(stateOf(m_model.file)) {}

    Result<std::unique_ptr<SpeechEngine>> makeEngine() {
        const std::scoped_lock lock(m_mutex);
        try {
            Weights weights = m_weights.lock();
            if (!weights) {
                if (const FileState state = stateOf(m_model.file); state != m_checked) {
                    if (auto unchanged = checkDigest(m_model); !unchanged)
                        return unchanged.error();
                    m_checked = state;
                }
                weights = weightsIn(m_model.file);
            }
            if (!weights)
                return Error{"offline.model: " + m_model.file.string() +
                             " is no ggml model of whisper.cpp, or there is not enough memory for "
                             "it"};
            m_weights = weights;
            whisper_state* state = whisper_init_state(weights.get());
            if (!state)
                return Error{"there is not enough memory for the offline model"};
            return std::unique_ptr<SpeechEngine>(
                std::make_unique<WhisperEngine>(std::move(weights), state, m_cores));
        } catch (const std::exception& error) {
            return Error{"offline.model: " + m_model.file.string() +
                         " cannot be loaded: " + error.what()};
        }
    }

  private:
    const OfflineModel m_model;
    SharedCores m_cores;
    std::mutex m_mutex;  // guards the rest
    FileState m_checked;
    std::weak_ptr<whisper_context> m_weights;
};

#endif

}  // namespace

Result<MakeEngine> whisperEngines(const OfflineModel& model) {
#ifdef NULO_HAS_WHISPER
    const auto engines = std::make_shared<WhisperModel>(model);
    if (auto right = checkDigest(model); !right)
        return right.error();
    return MakeEngine([engines] { return engines->makeEngine(); });
#else
    if (auto right = checkDigest(model); !right)
        return right.error();
    return Error{
        "offline.model: this build has no whisper.cpp; run tools/whisper and build Nulo again"};
#endif
}

}  // namespace nulo::service
