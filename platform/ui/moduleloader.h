// The shared platform library's modules: parts with heavy dependencies of their own (the audio
// decoder, the web engine) that live in "sorvel" beside the library and are loaded the first time
// they are needed, so that their libraries cost a program nothing until then.
#pragma once

#include <QString>

namespace platform {

// The address of `entry` in the module sorvel/`file` beside this library, loaded once and kept;
// null, with `error` saying why, when the module or its entry cannot be found.
void* moduleEntry(const QString& file, const char* entry, QString* error);

}  // namespace platform
