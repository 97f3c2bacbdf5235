#include "platform/ui/audiodecode.h"

#include <QFile>

#include <algorithm>
#include <memory>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libswresample/swresample.h>
}

namespace platform {

namespace {

// Longer sounds are refused rather than held in memory whole.
constexpr qint64 kLongestSoundSeconds = 600;

struct FormatCloser {
    void operator()(AVFormatContext* c) const { avformat_close_input(&c); }
};
struct CodecFreer {
    void operator()(AVCodecContext* c) const { avcodec_free_context(&c); }
};
struct ResamplerFreer {
    void operator()(SwrContext* c) const { swr_free(&c); }
};
struct PacketFreer {
    void operator()(AVPacket* p) const { av_packet_free(&p); }
};
struct FrameFreer {
    void operator()(AVFrame* f) const { av_frame_free(&f); }
};

}  // namespace

DecodedAudio decodeWithFFmpeg(const QString& path) {
    static const bool quiet = [] {
        av_log_set_level(AV_LOG_ERROR);  // FFmpeg's warnings about sound files are noise here
        return true;
    }();
    Q_UNUSED(quiet);
    DecodedAudio out;
    AVFormatContext* rawFormat = nullptr;
    if (avformat_open_input(&rawFormat, QFile::encodeName(path).constData(), nullptr, nullptr) <
        0) {
        out.error = QStringLiteral("Not an audio file: ") + path;
        return out;
    }
    std::unique_ptr<AVFormatContext, FormatCloser> format(rawFormat);
    if (avformat_find_stream_info(format.get(), nullptr) < 0) {
        out.error = QStringLiteral("Not an audio file: ") + path;
        return out;
    }
    const AVCodec* codec = nullptr;
    const int stream = av_find_best_stream(format.get(), AVMEDIA_TYPE_AUDIO, -1, -1, &codec, 0);
    if (stream < 0 || codec == nullptr) {
        out.error = QStringLiteral("No audio in ") + path;
        return out;
    }
    std::unique_ptr<AVCodecContext, CodecFreer> decoder(avcodec_alloc_context3(codec));
    if (!decoder ||
        avcodec_parameters_to_context(decoder.get(), format->streams[stream]->codecpar) < 0 ||
        avcodec_open2(decoder.get(), codec, nullptr) < 0) {
        out.error = QStringLiteral("Cannot decode ") + path;
        return out;
    }
    const int rate = decoder->sample_rate;
    const int channels = std::min(decoder->ch_layout.nb_channels, 2);
    if (rate <= 0 || rate > 384000 || channels <= 0) {
        out.error = QStringLiteral("Cannot decode ") + path;
        return out;
    }
    if (decoder->ch_layout.order == AV_CHANNEL_ORDER_UNSPEC) {
        const int count = decoder->ch_layout.nb_channels;
        av_channel_layout_uninit(&decoder->ch_layout);
        av_channel_layout_default(&decoder->ch_layout, count);
    }
    AVChannelLayout layout;
    av_channel_layout_default(&layout, channels);
    SwrContext* rawResampler = nullptr;
    if (swr_alloc_set_opts2(&rawResampler, &layout, AV_SAMPLE_FMT_S16, rate, &decoder->ch_layout,
                            decoder->sample_fmt, rate, 0, nullptr) < 0) {
        out.error = QStringLiteral("Cannot decode ") + path;
        return out;
    }
    std::unique_ptr<SwrContext, ResamplerFreer> resampler(rawResampler);
    if (swr_init(resampler.get()) < 0) {
        out.error = QStringLiteral("Cannot decode ") + path;
        return out;
    }

    const int frameBytes = channels * 2;
    const qint64 longest = kLongestSoundSeconds * rate * frameBytes;
    bool tooLong = false;
    // Converts one decoded frame (or, given none, what the resampler still holds).
    auto append = [&](const AVFrame* frame) {
        const int inSamples = frame != nullptr ? frame->nb_samples : 0;
        const int room = swr_get_out_samples(resampler.get(), inSamples);
        if (room <= 0) {
            return;
        }
        const qsizetype start = out.samples.size();
        if (start + qint64(room) * frameBytes > longest) {
            tooLong = true;
            return;
        }
        out.samples.resize(start + qsizetype(room) * frameBytes);
        auto* dest = reinterpret_cast<uint8_t*>(out.samples.data() + start);
        const int made = swr_convert(
            resampler.get(), &dest, room,
            frame != nullptr ? const_cast<const uint8_t**>(frame->extended_data) : nullptr,
            inSamples);
        out.samples.resize(start + qsizetype(std::max(made, 0)) * frameBytes);
    };
    std::unique_ptr<AVPacket, PacketFreer> packet(av_packet_alloc());
    std::unique_ptr<AVFrame, FrameFreer> frame(av_frame_alloc());
    auto receive = [&] {
        while (!tooLong && avcodec_receive_frame(decoder.get(), frame.get()) >= 0) {
            append(frame.get());
            av_frame_unref(frame.get());
        }
    };
    while (!tooLong && av_read_frame(format.get(), packet.get()) >= 0) {
        if (packet->stream_index == stream &&
            avcodec_send_packet(decoder.get(), packet.get()) >= 0) {
            receive();
        }
        av_packet_unref(packet.get());
    }
    avcodec_send_packet(decoder.get(), nullptr);
    receive();
    if (!tooLong) {
        append(nullptr);
    }
    if (tooLong) {
        out.error = QStringLiteral("Too long to play: ") + path;
        return out;
    }
    if (out.samples.isEmpty()) {
        out.error = QStringLiteral("No audio could be decoded from ") + path;
        return out;
    }
    out.sampleRate = rate;
    out.channels = channels;
    return out;
}

}  // namespace platform

extern "C" __attribute__((visibility("default"))) platform::AudioDecoder sorvel_audio_decoder() {
    return &platform::decodeWithFFmpeg;
}
