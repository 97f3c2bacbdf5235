// The static platform's web engine: linked in.
#include "platform/ui/webengine.h"

namespace platform {

const WebEngine* webEngine(QString* /*error*/) {
    return sorvel_web_engine();
}

}  // namespace platform
