#include "platform/DecodedAudio.h"

#include <cmath>
#include <complex>
#include <memory>
#include <numbers>
#include <stdexcept>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

namespace nulo {
namespace {

int check(int code, const char* what) {
    if (code < 0)
        throw std::runtime_error(std::string(what) + " failed: " + std::to_string(code));
    return code;
}

struct Free {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
};
template <typename T>
using Owned = std::unique_ptr<T, Free>;

}  // namespace

DecodedAudio decodeAudioFile(const std::filesystem::path& path) {
    AVFormatContext* opened = nullptr;
    check(avformat_open_input(&opened, ("file:" + path.string()).c_str(), nullptr, nullptr),
          "open");
    const Owned<AVFormatContext> input(opened);
    check(avformat_find_stream_info(input.get(), nullptr), "stream info");
    if (input->nb_streams != 1)
        throw std::runtime_error("not exactly one stream in " + path.string());
    const AVCodecParameters* parameters = input->streams[0]->codecpar;
    const AVCodec* codec = avcodec_find_decoder(parameters->codec_id);
    const Owned<AVCodecContext> decoder(avcodec_alloc_context3(codec));
    check(avcodec_parameters_to_context(decoder.get(), parameters), "parameters");
    check(avcodec_open2(decoder.get(), codec, nullptr), "decoder");

    DecodedAudio audio;
    audio.codec = avcodec_get_name(parameters->codec_id);
    audio.sampleRate = parameters->sample_rate;
    audio.channels = parameters->ch_layout.nb_channels;
    audio.duration = static_cast<double>(input->duration) / AV_TIME_BASE;
    if (decoder->sample_fmt != AV_SAMPLE_FMT_FLTP)
        throw std::runtime_error("not decoded to planar float");

    const Owned<AVPacket> packet(av_packet_alloc());
    const Owned<AVFrame> frame(av_frame_alloc());
    for (bool more = true; more;) {
        more = av_read_frame(input.get(), packet.get()) >= 0;
        check(avcodec_send_packet(decoder.get(), more ? packet.get() : nullptr), "decode");
        av_packet_unref(packet.get());
        while (avcodec_receive_frame(decoder.get(), frame.get()) >= 0) {
            const auto* samples = reinterpret_cast<const float*>(frame->data[0]);
            audio.frames.insert(audio.frames.end(), samples, samples + frame->nb_samples);
        }
    }
    return audio;
}

double DecodedAudio::rootMeanSquare() const {
    double sum = 0;
    for (const double sample : frames)
        sum += sample * sample;
    return frames.empty() ? 0 : std::sqrt(sum / static_cast<double>(frames.size()));
}

double DecodedAudio::amplitudeAt(double frequency, double startSeconds) const {
    std::complex<double> sum;
    const auto start = static_cast<std::size_t>(startSeconds * sampleRate);
    for (std::size_t i = start; i < frames.size(); ++i)
        sum += std::polar(static_cast<double>(frames[i]),
                          2 * std::numbers::pi * frequency * static_cast<double>(i) / sampleRate);
    return start < frames.size() ? 2 * std::abs(sum) / static_cast<double>(frames.size() - start)
                                 : 0;
}

}  // namespace nulo
