// Sound files decoded with FFmpeg, apart from the player. A program on the shared platform
// library loads the decoder as a module (sorvel/libsorvel-decoder.so beside that library) at its
// first sound, so FFmpeg and the codec libraries it brings cost nothing until then: neither
// start-up time nor memory (the ad client asks for the audio route with every request, and gets
// it from the audio stack, audiostack.h, without them). The static platform links it in.
#pragma once

#include <QByteArray>
#include <QString>

namespace platform {

// A sound file's samples as a player plays them: the first audio stream, interleaved signed
// 16-bit at the stream's own rate, mono or stereo. Damaged packets are skipped; a file without
// a single decodable frame gives an error and no samples.
struct DecodedAudio {
    int sampleRate = 0;
    int channels = 0;
    QByteArray samples;
    QString error;
};

DecodedAudio decodeWithFFmpeg(const QString& path);

using AudioDecoder = DecodedAudio (*)(const QString& path);
// The decoder of this program; null, with `error` saying why, when its module cannot be loaded.
AudioDecoder audioDecoder(QString* error);

}  // namespace platform

// The module's entry: its decoder.
extern "C" platform::AudioDecoder sorvel_audio_decoder();
