// The static platform's audio stack: linked in.
#include "platform/ui/audiostack.h"

namespace platform {

const AudioStack* audioStack(QString* /*error*/) {
    return sorvel_audio();
}

}  // namespace platform
