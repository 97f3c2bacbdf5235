// Sound files decoded with FFmpeg, apart from the player; part of the audio stack (audiostack.h).
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

}  // namespace platform
