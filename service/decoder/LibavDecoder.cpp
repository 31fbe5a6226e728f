#include "service/decoder/LibavDecoder.h"

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string>
#include <vector>

namespace nulo::service {
namespace {

/// Files of these kinds hold their own sound. Playlists and the like, which make the library open
/// other files and addresses, must never be among them.
constexpr const char* containers =
    "wav,w64,mov,mp4,m4a,aac,mp3,flac,ogg,matroska,webm,aiff,caf,au,amr,asf";
/// What such files hold when people record speech. The library knows hundreds of others, for games
/// and films, which fewer eyes have been on.
constexpr const char* codecs =
    "aac,aac_latm,mp3float,mp3,mp2float,mp2,flac,alac,opus,libopus,vorbis,libvorbis,speex,"
    "libspeex,amrnb,amrwb,wmav1,wmav2,adpcm_ima_wav,adpcm_ima_qt,adpcm_ms,pcm_alaw,pcm_mulaw,"
    "pcm_s8,pcm_u8,pcm_s16le,pcm_s16be,pcm_s24le,pcm_s24be,pcm_s32le,pcm_s32be,pcm_f32le,"
    "pcm_f32be,pcm_f64le,pcm_f64be,gsm,gsm_ms,libgsm,libgsm_ms";
constexpr int lowestRate = 4000;
constexpr int highestRate = 192000;
constexpr int mostChannels = 32;
constexpr int mostAtOnce = speechRate * 60;  // samples made of one frame

struct Free {
    void operator()(AVFormatContext* context) const { avformat_close_input(&context); }
    void operator()(AVIOContext* context) const {
        av_freep(&context->buffer);
        avio_context_free(&context);
    }
    void operator()(AVCodecContext* context) const { avcodec_free_context(&context); }
    void operator()(AVPacket* packet) const { av_packet_free(&packet); }
    void operator()(AVFrame* frame) const { av_frame_free(&frame); }
    void operator()(SwrContext* context) const { swr_free(&context); }
};
template <typename T>
using Owned = std::unique_ptr<T, Free>;

struct OpenFile {
    int descriptor;
    std::int64_t length;
    std::int64_t position = 0;

    static int read(void* opaque, std::uint8_t* target, int size) {
        auto& file = *static_cast<OpenFile*>(opaque);
        ssize_t count = 0;
        do
            count = pread(file.descriptor, target, static_cast<std::size_t>(size), file.position);
        while (count < 0 && errno == EINTR);
        if (count < 0)
            return AVERROR(EIO);
        if (count == 0)
            return AVERROR_EOF;
        file.position += count;
        return static_cast<int>(count);
    }

    static std::int64_t seek(void* opaque, std::int64_t offset, int whence) {
        auto& file = *static_cast<OpenFile*>(opaque);
        if (whence == AVSEEK_SIZE)
            return file.length;
        std::int64_t base = 0;
        if (whence == SEEK_CUR)
            base = file.position;
        if (whence == SEEK_END)
            base = file.length;
        if (offset < -base || offset > file.length - base)
            return AVERROR(EINVAL);
        return file.position = base + offset;
    }
};

std::string reason(int error) {
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(error, text, sizeof text);
    return text;
}

Failure undecodable(const std::string& why) {
    return {415, "The audio cannot be decoded (" + why +
                     "). Send a complete file in a usual format, such as WAV or MPEG-4 (AAC).\n"};
}

/// Makes the samples of decoded frames 16-bit, mono, at speechRate.
class Resampler {
  public:
    /// Below 0 on failure; libav's error then.
    int append(const AVFrame& frame, std::vector<std::int16_t>& samples) {
        // A low rate makes a great many samples of a small frame.
        if (frame.sample_rate < lowestRate || frame.sample_rate > highestRate ||
            frame.ch_layout.nb_channels > mostChannels)
            return AVERROR_INVALIDDATA;
        AVChannelLayout layout{};
        if (frame.ch_layout.order == AV_CHANNEL_ORDER_UNSPEC)
            av_channel_layout_default(&layout, frame.ch_layout.nb_channels);
        else if (const int error = av_channel_layout_copy(&layout, &frame.ch_layout); error < 0)
            return error;
        int result = 0;
        if (!m_context || frame.sample_rate != m_rate || frame.format != m_format ||
            av_channel_layout_compare(&layout, &m_layout) != 0)
            result = reopen(frame, layout, samples);
        av_channel_layout_uninit(&layout);
        return result < 0 ? result : convert(frame.extended_data, frame.nb_samples, samples);
    }

    int finish(std::vector<std::int16_t>& samples) {
        return m_context ? convert(nullptr, 0, samples) : 0;
    }

    ~Resampler() { av_channel_layout_uninit(&m_layout); }

  private:
    int reopen(const AVFrame& frame, const AVChannelLayout& layout,
               std::vector<std::int16_t>& samples) {
        finish(samples);
        AVChannelLayout mono = AV_CHANNEL_LAYOUT_MONO;
        SwrContext* context = nullptr;
        m_rate = frame.sample_rate;
        m_format = static_cast<AVSampleFormat>(frame.format);
        if (const int error = av_channel_layout_copy(&m_layout, &layout); error < 0)
            return error;
        const int error = swr_alloc_set_opts2(&context, &mono, AV_SAMPLE_FMT_S16, speechRate,
                                              &m_layout, m_format, m_rate, 0, nullptr);
        m_context.reset(context);
        return error < 0 ? error : swr_init(m_context.get());
    }

    int convert(std::uint8_t* const* data, int count, std::vector<std::int16_t>& samples) {
        const int room = swr_get_out_samples(m_context.get(), count);
        if (room <= 0)
            return room;
        if (room > mostAtOnce)
            return AVERROR_INVALIDDATA;
        const std::size_t before = samples.size();
        samples.resize(before + static_cast<std::size_t>(room));
        auto* target = reinterpret_cast<std::uint8_t*>(samples.data() + before);
        auto** source = const_cast<const std::uint8_t**>(data);
        const int made = swr_convert(m_context.get(), &target, room, source, count);
        samples.resize(before + static_cast<std::size_t>(std::max(made, 0)));
        return made;
    }

    Owned<SwrContext> m_context;
    AVChannelLayout m_layout{};
    AVSampleFormat m_format = AV_SAMPLE_FMT_NONE;
    int m_rate = 0;
};

Owned<AVFormatContext> opened(AVIOContext* io, int& error) {
    AVFormatContext* context = avformat_alloc_context();
    context->pb = io;
    context->max_probe_packets = 8;  // of bare samples it would search thousands for other formats
    context->format_whitelist = av_strdup(containers);
    context->codec_whitelist = av_strdup(codecs);
    context->protocol_whitelist = av_strdup("none");
    error = avformat_open_input(&context, nullptr, nullptr, nullptr);  // frees it on failure
    if (error < 0)
        return nullptr;
    Owned<AVFormatContext> owned(context);
    error = avformat_find_stream_info(context, nullptr);
    return owned;
}

}  // namespace

std::optional<Failure> decodeFile(int descriptor, const TakeSamples& take) {
    av_log_set_level(AV_LOG_QUIET);
    struct stat facts {};
    if (fstat(descriptor, &facts) != 0 || facts.st_size == 0)
        return undecodable("the file is empty");
    OpenFile file{descriptor, facts.st_size};
    constexpr int bufferSize = 32768;
    const Owned<AVIOContext> io(
        avio_alloc_context(static_cast<unsigned char*>(av_malloc(bufferSize)), bufferSize, 0, &file,
                           &OpenFile::read, nullptr, &OpenFile::seek));
    int error = 0;
    const auto container = opened(io.get(), error);
    if (error < 0)
        return undecodable(reason(error));
    const AVCodec* codec = nullptr;
    const int index = av_find_best_stream(container.get(), AVMEDIA_TYPE_AUDIO, -1, -1, &codec, 0);
    if (index < 0)
        return undecodable("it holds no sound");
    const AVStream* stream = container->streams[index];
    const Owned<AVCodecContext> decoder(avcodec_alloc_context3(codec));
    avcodec_parameters_to_context(decoder.get(), stream->codecpar);
    decoder->pkt_timebase = stream->time_base;
    decoder->thread_count = 1;
    decoder->codec_whitelist = av_strdup(codecs);
    if (error = avcodec_open2(decoder.get(), codec, nullptr); error < 0)
        return undecodable(reason(error));

    bool isEmpty = true;
    std::vector<std::int16_t> samples;
    const auto handOver = [&] {
        isEmpty = isEmpty && samples.empty();
        const bool wanted = samples.empty() || take(samples);
        samples.clear();
        return wanted;
    };
    Resampler resampler;
    const Owned<AVPacket> packet(av_packet_alloc());
    const Owned<AVFrame> frame(av_frame_alloc());
    bool ended = false;
    while (!ended) {
        ended = av_read_frame(container.get(), packet.get()) < 0;
        if (!ended && packet->stream_index != index) {
            av_packet_unref(packet.get());
            continue;
        }
        // A damaged packet costs its own sound only.
        avcodec_send_packet(decoder.get(), ended ? nullptr : packet.get());
        av_packet_unref(packet.get());
        while (avcodec_receive_frame(decoder.get(), frame.get()) >= 0) {
            error = resampler.append(*frame, samples);
            av_frame_unref(frame.get());
            if (error < 0)
                return undecodable(reason(error));
            if (!handOver())
                return std::nullopt;
        }
    }
    resampler.finish(samples);
    handOver();
    if (isEmpty)
        return undecodable("it holds no sound");
    return std::nullopt;
}

}  // namespace nulo::service
