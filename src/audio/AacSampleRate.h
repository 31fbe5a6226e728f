#pragma once

namespace nulo {

/// The rate to capture at on a device of `nativeRate` frames per second: its own when AAC has it,
/// else 48,000 (the sound system resamples).
constexpr unsigned aacSampleRate(unsigned nativeRate) {
    for (const unsigned rate : {7350U, 8000U, 11025U, 12000U, 16000U, 22050U, 24000U, 32000U,
                                44100U, 48000U, 64000U, 88200U, 96000U})
        if (rate == nativeRate)
            return rate;
    return 48000;
}

}  // namespace nulo
