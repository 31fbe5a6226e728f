#include "encoder/LibavAacWriter.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <utility>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
}

namespace nulo {
namespace {

/// The index belongs in front of the sound. The sound of a take up to this length is moved behind
/// it at the end, in no time; a longer take's has room left in front, by which a short file would
/// grow.
constexpr int secondsWithoutRoom = 240;
/// How much longer a take may become before it is given more room.
constexpr int growthOfRoom = 4;

/// Four bytes are a packet's size, the rest is little.
std::int64_t roomForIndex(std::int64_t packets) {
    return 4096 + 5 * packets;
}

Error libavError(const std::string& what, int code) {
    char reason[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, reason, sizeof reason);
    return {what + ": " + reason};
}

class LibavAacWriter final : public AudioFileWriter {
  public:
    explicit LibavAacWriter(std::filesystem::path path) : m_path(std::move(path)) {}

    /// A writer that is dropped unclosed leaves what it had written so far.
    ~LibavAacWriter() override { release(); }

    LibavAacWriter(const LibavAacWriter&) = delete;
    LibavAacWriter& operator=(const LibavAacWriter&) = delete;

    Outcome open(const AudioFileSettings& settings) {
        const int rate = static_cast<int>(std::lround(settings.sampleRate));
        Outcome opened = openEncoder(rate, settings);
        if (opened)
            opened = openContainer(m_path, 0);
        m_framesWithRoom = std::int64_t{secondsWithoutRoom} * rate;
        return opened;
    }

    Outcome write(std::span<const float> frames) override {
        if (m_failure)
            return *m_failure;
        if (!m_container)
            return Error{"the file is closed"};
        while (!frames.empty()) {
            const std::size_t room = static_cast<std::size_t>(m_encoder->frame_size - m_filled);
            const std::span<const float> part = frames.first(std::min(room, frames.size()));
            // The encoder refuses a whole frame, and the next, for one sample that is not finite.
            std::transform(part.begin(), part.end(), samples() + m_filled,
                           [](float sample) { return std::isfinite(sample) ? sample : 0.0F; });
            m_filled += static_cast<int>(part.size());
            frames = frames.subspan(part.size());
            if (m_filled == m_encoder->frame_size)
                if (const int code = encodeFrame(); code < 0)
                    return remember("the sound cannot be written", code);
        }
        return Success{};
    }

    Outcome close() override {
        if (m_failure)
            return *m_failure;
        if (!m_container)
            return Error{"the file is closed already"};
        const int code = finish();
        release();
        return code < 0 ? Outcome(libavError("the file cannot be completed", code)) : Success{};
    }

  private:
    Outcome openEncoder(int rate, const AudioFileSettings& settings) {
        if (settings.channels != 1)
            return Error{"only mono can be encoded"};
        const AVCodec* codec = avcodec_find_encoder_by_name("aac");
        m_encoder = codec ? avcodec_alloc_context3(codec) : nullptr;
        if (!m_encoder)
            return Error{"libavcodec has no AAC encoder"};
        m_encoder->sample_fmt = AV_SAMPLE_FMT_FLTP;
        m_encoder->sample_rate = rate;
        m_encoder->ch_layout = AV_CHANNEL_LAYOUT_MONO;
        m_encoder->bit_rate = settings.bitRate;
        m_encoder->profile = FF_PROFILE_AAC_LOW;
        m_encoder->time_base = {1, rate};
        m_encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
        if (const int code = avcodec_open2(m_encoder, codec, nullptr); code < 0)
            return libavError("AAC cannot be encoded at " + std::to_string(rate) + " Hz", code);

        m_packet = av_packet_alloc();
        m_frame = av_frame_alloc();
        if (!m_packet || !m_frame)
            return Error{"out of memory"};
        m_frame->format = m_encoder->sample_fmt;
        m_frame->ch_layout = m_encoder->ch_layout;
        m_frame->sample_rate = rate;
        m_frame->nb_samples = m_encoder->frame_size;
        const int code = av_frame_get_buffer(m_frame, 0);
        return code < 0 ? Outcome(libavError("no buffer for the encoder", code)) : Success{};
    }

    // "file:" keeps a colon in the path from being read as a protocol's name.
    static std::string urlOf(const std::filesystem::path& path) { return "file:" + path.string(); }

    /// Leaves room in front for the index of that many packets; for none, the index is moved there
    /// at the end.
    Outcome openContainer(const std::filesystem::path& path, std::int64_t packets) {
        const std::string url = urlOf(path);
        int code = avformat_alloc_output_context2(&m_container, nullptr, "ipod", url.c_str());
        if (code < 0)
            return libavError("no MPEG-4 container", code);
        m_stream = avformat_new_stream(m_container, nullptr);
        if (!m_stream)
            return Error{"out of memory"};
        m_stream->time_base = m_encoder->time_base;
        code = avcodec_parameters_from_context(m_stream->codecpar, m_encoder);
        if (code >= 0)
            code = avio_open(&m_container->pb, url.c_str(), AVIO_FLAG_WRITE);
        if (code < 0)
            return libavError("cannot open " + path.string(), code);

        AVDictionary* options = nullptr;
        // The index in front makes the file readable through a pipe; the time scale keeps its
        // duration from being rounded to milliseconds.
        if (packets > 0)
            av_dict_set_int(&options, "moov_size", roomForIndex(packets), 0);
        else
            av_dict_set(&options, "movflags", "+faststart", 0);
        av_dict_set_int(&options, "movie_timescale", m_encoder->sample_rate, 0);
        code = avformat_write_header(m_container, &options);
        av_dict_free(&options);
        return code < 0 ? Outcome(libavError("cannot write " + path.string(), code)) : Success{};
    }

    float* samples() { return reinterpret_cast<float*>(m_frame->data[0]); }

    int encodeFrame() {
        m_frame->nb_samples = m_filled;
        m_frame->pts = m_framesSent;
        m_framesSent += m_filled;
        m_filled = 0;
        if (const int code = avcodec_send_frame(m_encoder, m_frame); code < 0)
            return code;
        int code = drainPackets();
        if (code >= 0 && m_framesSent >= m_framesWithRoom)
            code = makeRoom();
        if (code < 0)
            return code;
        m_frame->nb_samples = m_encoder->frame_size;
        return av_frame_make_writable(m_frame);
    }

    int drainPackets() {
        for (;;) {
            int code = avcodec_receive_packet(m_encoder, m_packet);
            if (code == AVERROR(EAGAIN) || code == AVERROR_EOF)
                return 0;
            if (code < 0)
                return code;
            av_packet_rescale_ts(m_packet, m_encoder->time_base, m_stream->time_base);
            code = writePacket();
            if (code < 0)
                return code;
        }
    }

    int writePacket() {
        m_packet->stream_index = m_stream->index;
        const int code = av_interleaved_write_frame(m_container, m_packet);
        return code < 0 ? code : m_container->pb->error;
    }

    /// Begins the file again with more room for its index. This happens amid the take, when no one
    /// waits for it.
    int makeRoom() {
        m_framesWithRoom *= growthOfRoom;
        if (const int code = completeContainer(); code < 0)
            return code;
        avformat_free_context(std::exchange(m_container, nullptr));
        AVFormatContext* begun = nullptr;
        if (const int code = avformat_open_input(&begun, urlOf(m_path).c_str(), nullptr, nullptr);
            code < 0)
            return code;
        // Its name is that of a take too, so that it is tidied up with the takes should this
        // process be killed.
        const std::filesystem::path again = m_path.parent_path() / (m_path.stem() += "-.m4a");
        int code = createFile(again);
        if (code >= 0 && !openContainer(again, m_framesWithRoom / m_encoder->frame_size))
            code = AVERROR(EIO);
        while (code >= 0 && (code = av_read_frame(begun, m_packet)) >= 0) {
            av_packet_rescale_ts(m_packet, begun->streams[0]->time_base, m_stream->time_base);
            code = writePacket();
        }
        avformat_close_input(&begun);
        if (code == AVERROR_EOF && std::rename(again.c_str(), m_path.c_str()) == 0)
            return 0;
        std::remove(again.c_str());
        return code == AVERROR_EOF ? AVERROR(errno) : code;
    }

    /// Makes a file that only its owner can read, like the one that it will replace.
    static int createFile(const std::filesystem::path& path) {
        const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
        return descriptor < 0 ? AVERROR(errno) : ::close(descriptor);
    }

    int finish() {
        // Without one frame there would be a container without a stream, which nothing can read.
        if (m_framesSent == 0 && m_filled == 0) {
            std::fill_n(samples(), m_encoder->frame_size, 0.0F);
            m_filled = m_encoder->frame_size;
        }
        int code = m_filled > 0 ? encodeFrame() : 0;
        if (code >= 0)
            code = avcodec_send_frame(m_encoder, nullptr);
        if (code >= 0)
            code = drainPackets();
        return code < 0 ? code : completeContainer();
    }

    int completeContainer() {
        int code = av_write_trailer(m_container);
        if (code >= 0)
            code = m_container->pb->error;
        const int closed = avio_closep(&m_container->pb);
        return code < 0 ? code : closed;
    }

    Error remember(const std::string& what, int code) {
        m_failure = libavError(what, code);
        return *m_failure;
    }

    void release() {
        if (m_container)
            avio_closep(&m_container->pb);
        avformat_free_context(m_container);
        avcodec_free_context(&m_encoder);
        av_frame_free(&m_frame);
        av_packet_free(&m_packet);
        m_container = nullptr;
        m_stream = nullptr;
    }

    const std::filesystem::path m_path;
    AVFormatContext* m_container = nullptr;
    AVStream* m_stream = nullptr;
    AVCodecContext* m_encoder = nullptr;
    AVFrame* m_frame = nullptr;
    AVPacket* m_packet = nullptr;
    int m_filled = 0;  // samples that wait in m_frame
    std::int64_t m_framesSent = 0;
    std::int64_t m_framesWithRoom = 0;  // of the index, or that need none
    std::optional<Error> m_failure;
};

}  // namespace

Result<std::unique_ptr<AudioFileWriter>> makeLibavAacWriter(const std::filesystem::path& path,
                                                            const AudioFileSettings& settings) {
    av_log_set_level(AV_LOG_QUIET);  // every failure is returned; nothing else belongs on stderr
    auto writer = std::make_unique<LibavAacWriter>(path);
    if (const Outcome opened = writer->open(settings); !opened)
        return opened.error();
    return std::unique_ptr<AudioFileWriter>(std::move(writer));
}

}  // namespace nulo
