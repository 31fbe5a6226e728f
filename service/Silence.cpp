#include "service/Silence.h"

#include "service/AudioDecoder.h"

namespace nulo::service {
namespace {

constexpr std::size_t frameLength = speechRate * 30 / 1000;
/// (10^(-50 / 20) of full scale)², summed up over a frame.
constexpr auto loudness = static_cast<std::int64_t>(1e-5 * 32768.0 * 32768.0 * frameLength);

}  // namespace

bool SilenceGate::isSilentAfter(std::span<const std::int16_t> samples) {
    for (const std::int16_t sample : samples) {
        m_squares += std::int64_t{sample} * sample;
        if (++m_count < frameLength)
            continue;
        m_loud = m_loud || m_squares > loudness;
        m_squares = 0;
        m_count = 0;
    }
    return !m_loud;
}

Result<bool, Failure> isSilent(const Spool& file, std::chrono::seconds longest,
                               const StillWanted& stillWanted) {
    SilenceGate gate;
    bool silent = true;
    const auto failure = decodeSpeech(file, longest, [&](std::span<const std::int16_t> samples) {
        silent = gate.isSilentAfter(samples);
        return silent && stillWanted();
    });
    if (failure)
        return *failure;
    return silent;
}

}  // namespace nulo::service
