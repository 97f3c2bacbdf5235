// The phone screen this desktop port imitates: its size in points, its scale and the status-bar
// strip. One point is one device-independent pixel of the desktop.
#pragma once

#include <QRect>
#include <QSize>

namespace platform {

// Interface orientations, numbered as the phone numbered them.
enum InterfaceOrientation : int {
    InterfaceOrientationPortrait = 1,
    InterfaceOrientationPortraitUpsideDown = 2,
    InterfaceOrientationLandscapeRight = 3,
    InterfaceOrientationLandscapeLeft = 4,
};

inline bool isLandscape(int orientation) {
    return orientation == InterfaceOrientationLandscapeRight ||
           orientation == InterfaceOrientationLandscapeLeft;
}

// The phone window in portrait: 320 x 480 points, of which the top 20 are the status bar.
inline constexpr int kPhoneScreenWidth = 320;
inline constexpr int kPhoneScreenHeight = 480;
inline constexpr int kStatusBarHeight = 20;

class Screen {
  public:
    // Pixels per point of the desktop screen the phone window is on (Qt's device pixel ratio:
    // 1.0 on an ordinary screen and headless, 2.0 on a high-density one).
    static double scale();
    // The whole screen in points, in the current interface orientation (320 x 480 or 480 x 320).
    static QRect bounds();
    // The part of the screen below the status bar, in the current interface orientation:
    // (0, 20, 320, 460) in portrait with the status bar shown, the whole bounds when hidden.
    static QRect applicationFrame();
    // Size of the screen for an orientation, in points.
    static QSize sizeForOrientation(int orientation);
};

}  // namespace platform
