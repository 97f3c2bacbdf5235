/// \file
/// Marks the classes and functions the shared ad client library exports. The library is built
/// with every other symbol hidden, so that only its public interface binds to applications. The
/// platform library it stands on exports everything; the mark there names what the ad client's
/// public interface shows of it.
#pragma once

/// Exports a class (`class SORVEL_EXPORT Name`) or a function from the shared library.
#define SORVEL_EXPORT __attribute__((visibility("default")))
