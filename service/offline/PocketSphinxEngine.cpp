#include "service/offline/PocketSphinxEngine.h"

#include <pocketsphinx.h>
#include <sphinxbase/err.h>

namespace nulo::service {
namespace {

struct FreeConfiguration {
    void operator()(cmd_ln_t* configuration) const { cmd_ln_free_r(configuration); }
};
struct FreeDecoder {
    void operator()(ps_decoder_t* decoder) const { ps_free(decoder); }
};

class PocketSphinxEngine final : public SpeechEngine {
  public:
    explicit PocketSphinxEngine(ps_decoder_t* decoder) : m_decoder(decoder) {}

    bool knowsEnglishOnly() const override { return true; }
    Transcript hear(std::span<const std::int16_t> samples, const SpeechHints&,
                    const StillWanted&) override {
        ps_decoder_t* decoder = m_decoder.get();
        if (ps_start_stream(decoder) < 0 || ps_start_utt(decoder) < 0)
            return {};
        // The whole take at once: its loudness is then normalised by itself alone, and not by what
        // this decoder heard from somebody else before.
        constexpr int search = 0;
        constexpr int wholeUtterance = 1;
        ps_process_raw(decoder, samples.data(), samples.size(), search, wholeUtterance);
        ps_end_utt(decoder);
        std::int32_t score = 0;
        const char* text = ps_get_hyp(decoder, &score);
        return {text ? text : "", "en"};
    }

  private:
    std::unique_ptr<ps_decoder_t, FreeDecoder> m_decoder;
};

}  // namespace

std::filesystem::path installedModelFolder() {
    return NULO_MODEL_FOLDER;
}

Result<std::unique_ptr<SpeechEngine>> makePocketSphinxEngine(const std::filesystem::path& folder) {
    const auto acoustics = folder / "en-us";
    const auto words = folder / "en-us.lm.bin";
    const auto sounds = folder / "cmudict-en-us.dict";
    for (const auto& file : {acoustics / "mdef", words, sounds}) {
        std::error_code ignored;
        if (!std::filesystem::is_regular_file(file, ignored))
            return Error{"no speech model: " + file.string() +
                         " is missing; install the Debian package pocketsphinx-en-us or name its "
                         "folder with --model-dir"};
    }
    err_set_logfp(nullptr);
    const std::unique_ptr<cmd_ln_t, FreeConfiguration> configuration(
        cmd_ln_init(nullptr, ps_args(), 1, "-hmm", acoustics.c_str(), "-lm", words.c_str(), "-dict",
                    sounds.c_str(), nullptr));
    ps_decoder_t* decoder = configuration ? ps_init(configuration.get()) : nullptr;
    if (!decoder)
        return Error{"the speech model in " + folder.string() +
                     " cannot be loaded; reinstall the Debian package pocketsphinx-en-us"};
    return std::unique_ptr<SpeechEngine>(std::make_unique<PocketSphinxEngine>(decoder));
}

}  // namespace nulo::service
