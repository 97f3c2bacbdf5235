// The process entry of brindle-sounds.
#include "app/AppOptions.h"
#include "app/Bundle.h"
#include "app/DesktopAppDelegate.h"
#include "app/MainInterface.h"
#include "app/SingleInstance.h"
#include "platform/ui/application.h"

#include <QCoreApplication>
#include <QStringList>

#include <cstdio>

int main(int argc, char** argv) {
    Bundle::setUpApplicationIdentity();
    QStringList arguments;
    for (int i = 0; i < argc; ++i) {
        arguments << QString::fromLocal8Bit(argv[i]);
    }
    QString error;
    const std::optional<AppOptions> options = AppOptions::parse(arguments, &error);
    if (!options) {
        std::fprintf(stderr, "brindle-sounds: %s (try --help)\n", qPrintable(error));
        return 2;
    }
    if (options->help) {
        std::printf("%s", qPrintable(AppOptions::helpText()));
        return 0;
    }
    if (options->version) {
        std::printf("%s", qPrintable(AppOptions::versionText()));
        return 0;
    }
    if (!options->newInstance) {
        QCoreApplication probe(argc, argv);
        if (SingleInstance::askRunningInstanceToShow()) {
            std::printf(
                "brindle-sounds: already running for this profile; brought its window to "
                "the front (--new-instance starts another)\n");
            return 0;
        }
    }
    // Without a display the window is drawn off screen, so screenshots still show it.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM") && qEnvironmentVariableIsEmpty("DISPLAY") &&
        qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    return platform::applicationMain(argc, argv, [&options] {
        auto delegate = std::make_unique<DesktopAppDelegate>(*options);
        MainInterface::connectOutlets(delegate.get());
        return delegate;
    });
}
