// The baseline of the board-first figure: a plain Qt Widgets program that opens a window the size
// of the sound board's, prints "drawn" on stderr at its first paint and quits.
#include <QApplication>
#include <QTimer>
#include <QWidget>

#include <cstdio>

namespace {
class PlainWindow : public QWidget {
  protected:
    void paintEvent(QPaintEvent*) override {
        if (!drawn_) {
            drawn_ = true;
            std::fprintf(stderr, "drawn\n");
            std::fflush(stderr);
            QTimer::singleShot(0, qApp, &QCoreApplication::quit);
        }
    }

  private:
    bool drawn_ = false;
};
}  // namespace

int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM") && qEnvironmentVariableIsEmpty("DISPLAY") &&
        qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    QApplication app(argc, argv);
    PlainWindow window;
    window.setFixedSize(320, 480);
    window.show();
    return app.exec();
}
