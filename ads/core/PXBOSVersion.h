// The operating system's version as the ad core reads it: one place, so that a test can pose
// as another version.
#pragma once

#include <optional>

struct PXBOSVersion {
    int major = 0;
    int minor = 0;
    int bugFix = 0;

    // The running system's version, or the one a test has set.
    static PXBOSVersion current();
    // Poses as `version` until called again with nothing.
    static void setOverride(std::optional<PXBOSVersion> version);
};
