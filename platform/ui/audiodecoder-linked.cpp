// The static platform's decoder: FFmpeg linked in.
#include "platform/ui/audiodecode.h"

namespace platform {

AudioDecoder audioDecoder(QString* /*error*/) {
    return &decodeWithFFmpeg;
}

}  // namespace platform
