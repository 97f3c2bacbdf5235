// The button images the ad client carries inside itself: the web app screen's close button and
// the in-app browser's back and forward arrows, drawn for a screen scale of 2.
#pragma once

#include <QImage>
#include <QString>

class PXBIntrinsicImages {
  public:
    // Each is made on first use and kept for the life of the process.
    static const QImage& closeButton();
    static const QImage& browserBackButton();
    static const QImage& browserForwardButton();

    // The PNG in `base64` (standard alphabet, padded) as an image of scale 2, so that a 54-pixel
    // image is 27 points wide; a null image when the text or the PNG does not decode.
    static QImage createImageFromEncoding(const QString& base64);
};
