#include "service/offline/AudioDecoder.h"

#include <gtest/gtest.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include <cmath>
#include <fstream>
#include <iterator>
#include <numbers>

#include "Form.h"
#include "rig/process/TemporaryFolder.h"
#include "service/offline/SpeechEngine.h"

namespace nulo::service {
namespace {

constexpr auto limit = std::chrono::seconds(60);
const StillWanted wanted = [] { return true; };

std::string bytesOf(const std::filesystem::path& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// A tone on both channels, AAC in MPEG-4 with its index at the end.
std::string stereoTone(int rate, int seconds) {
    const TemporaryFolder folder;
    const std::string path = folder / "tone.m4a";
    AVFormatContext* file = nullptr;
    avformat_alloc_output_context2(&file, nullptr, "ipod", path.c_str());
    AVCodecContext* encoder = avcodec_alloc_context3(avcodec_find_encoder(AV_CODEC_ID_AAC));
    encoder->sample_fmt = AV_SAMPLE_FMT_FLTP;
    encoder->sample_rate = rate;
    encoder->bit_rate = 64000;
    encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    av_channel_layout_default(&encoder->ch_layout, 2);
    avcodec_open2(encoder, nullptr, nullptr);
    AVStream* stream = avformat_new_stream(file, nullptr);
    avcodec_parameters_from_context(stream->codecpar, encoder);
    stream->time_base = {1, rate};
    avio_open(&file->pb, path.c_str(), AVIO_FLAG_WRITE);
    EXPECT_GE(avformat_write_header(file, nullptr), 0);
    AVFrame* frame = av_frame_alloc();
    AVPacket* packet = av_packet_alloc();
    for (int at = 0; at <= rate * seconds; at += 1024) {
        const bool ended = at + 1024 > rate * seconds;
        frame->nb_samples = 1024;
        frame->format = encoder->sample_fmt;
        av_channel_layout_default(&frame->ch_layout, 2);
        frame->pts = at;
        av_frame_get_buffer(frame, 0);
        for (int i = 0; i < 1024; ++i)
            for (int channel = 0; channel < 2; ++channel)
                reinterpret_cast<float*>(frame->data[channel])[i] =
                    0.5F *
                    std::sin(2 * std::numbers::pi_v<float> * 440 * float(at + i) / float(rate));
        avcodec_send_frame(encoder, ended ? nullptr : frame);
        while (avcodec_receive_packet(encoder, packet) >= 0)
            av_interleaved_write_frame(file, packet);
        av_frame_unref(frame);
    }
    av_write_trailer(file);
    avio_closep(&file->pb);
    av_packet_free(&packet);
    av_frame_free(&frame);
    avcodec_free_context(&encoder);
    avformat_free_context(file);
    return bytesOf(path);
}

// Catches lost channels, a wrong rate, and a decoder or resampler that is not flushed.
TEST(AudioDecoder, makesSpeechSamplesOfAnM4aTake) {
    const auto samples = decodedSpeech(Spool(stereoTone(44100, 2)), limit, wanted);
    ASSERT_TRUE(samples) << samples.error().text;
    EXPECT_NEAR(double(samples.value().size()), 2.0 * speechRate, 800);
    double squares = 0;
    int crossings = 0;
    for (std::size_t i = 8001; i < 24000; ++i) {
        squares += std::pow(samples.value()[i] / 32768.0, 2);
        crossings += (samples.value()[i] < 0) != (samples.value()[i - 1] < 0);
    }
    EXPECT_NEAR(std::sqrt(squares / 16000), 0.5 / std::numbers::sqrt2, 0.03);
    EXPECT_NEAR(crossings, 880, 4);
}

/// Half a second of silence.
std::string wavOf(std::uint32_t rate) {
    return speechWav(std::vector<std::int16_t>(rate / 2 + 1), rate);
}

// At 1 Hz a file of 94 bytes was two gigabytes of sound.
TEST(AudioDecoder, refusesRatesThatNobodySpeaksAt) {
    for (const std::uint32_t rate : {1U, 3999U, 192001U})
        EXPECT_FALSE(decodedSpeech(Spool(wavOf(rate)), limit, wanted)) << rate;
    for (const std::uint32_t rate : {4000U, 16000U, 192000U})
        EXPECT_TRUE(decodedSpeech(Spool(wavOf(rate)), limit, wanted)) << rate;
}

TEST(AudioDecoder, refusesWhatIsNoWholeAudioFile) {
    const std::string tone = stereoTone(48000, 2);
    const TemporaryFolder folder;
    std::ofstream(folder / "real.m4a", std::ios::binary) << tone;
    const auto before = std::filesystem::current_path();
    std::filesystem::current_path(folder.path());
    const std::string bad[] = {
        "",
        "not audio at all, just a long enough line of text to be looked at closely",
        tone.substr(0, tone.size() / 2),  // its index is missing
        std::string(4096, '\0'),
        // Lists that would make the library open other files of this machine.
        "#EXTM3U\n#EXT-X-TARGETDURATION:2\n#EXTINF:2,\nreal.m4a\n#EXT-X-ENDLIST\n",
        "ffconcat version 1.0\nfile real.m4a\n",
    };
    for (const std::string& bytes : bad) {
        const auto samples = decodedSpeech(Spool(bytes), limit, wanted);
        EXPECT_EQ(samples ? 200 : samples.error().status, 415) << bytes.substr(0, 20);
    }
    std::filesystem::current_path(before);
    // Small when compressed, too long when decoded.
    EXPECT_EQ(decodedSpeech(Spool(tone), std::chrono::seconds(1), wanted).error().status, 413);
}

}  // namespace
}  // namespace nulo::service
