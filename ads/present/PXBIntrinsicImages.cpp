#include "ads/present/PXBIntrinsicImages.h"

#include "ads/device/HLXStringEncoding.h"

namespace {

// Made by scripts/make-intrinsic-images; run it again to change the artwork.
constexpr char kCloseButtonPNG[] =
    "iVBORw0KGgoAAAANSUhEUgAAADIAAAAyCAYAAAAeP4ixAAACH0lEQVR42u2ay43CMBCGKSF1cOJGBdwjGiAN0AMd"
    "cOKMlAbSQCRK4MiREiKh3L3+UZwl3rE9NobdHTHSSIjYjr/My7Ezm31EqCilCq2l1r3Wk9ar+inX4dp+aFv8JYBK"
    "a6PSBX2r33z6O62dyifdMGbxLojS4TajXC4X1batOhwOE8V/uBYQjF2+2gpH6s632001TaO2262az+csRVv0QV+H"
    "HLNbZ4A4UwB40svlkg1gK/piDAfQORuMHmhBxUJd108BUEAY0xE7ixyW6GwrbDabbAC2YmzCOl2yZSh3QqCuVquX"
    "QRjFPYikkOZmdmBj4JyuxHE1AuaYkmIn7vQOS1CWIdysjHGpSZ3wxcR6vb5r6mRD/XFvos4UHJCdnZ1cE3g0PX7H"
    "AMX0J7LZjgPSPbqUKy6oCo32HBi0oeoGxnTFi9W+4ywAR0Ghck3EJSEYF4QRV1/MxZLKB9JwrOED8cGEIHwghFUa"
    "X5B/t9LrIJ97hBZ/NgwHwuVaRjEnS4pgyg0tADkTMzAxbUMLzWAqHt7aRuFmntAE+76/67MQRi3ZUyAnroljYXJB"
    "EC59okDGIogXoNiilgITCwHF3B6LIwUSTLs5YVIgqDScHcTAhOLBxE3qsuYD8h9dS0ywi0m/YgqimCWKjEWjmGW8"
    "qBcrMa+60jYfZGwHidmgE7VlKmoTW8yxgqiDHlFHb6IOQ0UdT4v7YEDUJxwiP6r5SGb5AqZlJ3+7MUlQAAAAAElF"
    "TkSuQmCC";

constexpr char kBrowserBackButtonPNG[] =
    "iVBORw0KGgoAAAANSUhEUgAAADYAAAA2CAYAAACMRWrdAAAAtklEQVR42u2YwQnDMBAEVUJKSCkuxaWkk5TiUlxC"
    "SrjcQwFjbHBsQbSbGbi/BsSetKUAAAAAAAgSEUPO5CR0z3lGxUHothSSF6tCj5xXbKAqtSskKZbnHXPmOIBS0h0S"
    "khD7RHecoOfoPiXUpdh6F8mLLaK7GV3vIkmxGt3NhX4m9s0ukhC7Et2IcRUJD+L+Pxa0/ZPK/hFs/22x/2jaVwP2"
    "ZY59/WZdmNpX3HsrogAAAAAANOQNLMTpb0tB3eUAAAAASUVORK5CYII=";

constexpr char kBrowserForwardButtonPNG[] =
    "iVBORw0KGgoAAAANSUhEUgAAADYAAAA2CAYAAACMRWrdAAAArklEQVR42u3ZUQ2DMBSFYSQgYVKQgpQ5mRSkTAIS"
    "zrolTXjiZQW6f/+XXAEnIT3tZRgkSZKkhpIsZSZisOpR5kYMtg04EoO9rWXuPx0w+z4BicGqZ5mZGGwbcCIGq/qv"
    "iHxn6bYi0kZ/HZi2+qmItNdHB+Y466UVkeNd04E5z7kVYTA/Re7hgTzucQWNu1LhLsG4ZwvuoYlbDeCWOcj1G25h"
    "iltxM39KSJIk6S+8AOGh6W/VDRCnAAAAAElFTkSuQmCC";

}  // namespace

QImage PXBIntrinsicImages::createImageFromEncoding(const QString& base64) {
    const std::optional<QByteArray> png =
        PXB_HLXStringEncoding::rfc4648Base64StringEncoding().decode(base64);
    if (!png) {
        return {};
    }
    QImage image = QImage::fromData(*png, "PNG");
    image.setDevicePixelRatio(2.0);
    return image;
}

const QImage& PXBIntrinsicImages::closeButton() {
    static const QImage image = createImageFromEncoding(QString::fromLatin1(kCloseButtonPNG));
    return image;
}

const QImage& PXBIntrinsicImages::browserBackButton() {
    static const QImage image = createImageFromEncoding(QString::fromLatin1(kBrowserBackButtonPNG));
    return image;
}

const QImage& PXBIntrinsicImages::browserForwardButton() {
    static const QImage image =
        createImageFromEncoding(QString::fromLatin1(kBrowserForwardButtonPNG));
    return image;
}
