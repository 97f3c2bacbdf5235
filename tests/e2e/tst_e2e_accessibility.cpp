// The sound board as a screen reader meets it: the real program in a real X window (a virtual
// screen), its accessibility bridge on, read back over the AT-SPI bus as assistive technology
// reads it. Every button has a name, the pads say their keys, and the banner is named.
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusInterface>
#include <QDBusMessage>
#include <QDBusReply>
#include <QDBusVariant>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

namespace {

// A node of the tree: the bus name of the application that serves it and its object path.
struct Node {
    QString service;
    QString path;
};

QList<Node> readNodes(const QDBusArgument& argument) {
    QList<Node> nodes;
    argument.beginArray();
    while (!argument.atEnd()) {
        Node node;
        QDBusObjectPath path;
        argument.beginStructure();
        argument >> node.service >> path;
        argument.endStructure();
        node.path = path.path();
        nodes.append(node);
    }
    argument.endArray();
    return nodes;
}

}  // namespace

class TestAccessibilityEndToEnd : public QObject {
    Q_OBJECT
    QProcess app;
    QTemporaryDir profile;
    QString output;
    QDBusConnection bus{QStringLiteral("none")};

    QDBusMessage call(const Node& node, const QString& interface, const QString& method,
                      const QVariantList& arguments = {}) {
        QDBusMessage message =
            QDBusMessage::createMethodCall(node.service, node.path, interface, method);
        message.setArguments(arguments);
        return bus.call(message, QDBus::Block, 5000);
    }
    QString property(const Node& node, const QString& name) {
        const QDBusMessage reply =
            call(node, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"),
                 {QStringLiteral("org.a11y.atspi.Accessible"), name});
        return reply.arguments().isEmpty()
                   ? QString()
                   : reply.arguments().first().value<QDBusVariant>().variant().toString();
    }
    QList<Node> children(const Node& node) {
        const QDBusMessage reply =
            call(node, QStringLiteral("org.a11y.atspi.Accessible"), QStringLiteral("GetChildren"));
        return reply.arguments().isEmpty()
                   ? QList<Node>()
                   : readNodes(reply.arguments().first().value<QDBusArgument>());
    }

  private slots:
    void initTestCase() {
        // Both come with the suite's command (xvfb-run, dbus-run-session) and scripts/setup's
        // packages (xvfb, at-spi2-core): without them the suite fails rather than passes unseen.
        QVERIFY2(!qEnvironmentVariableIsEmpty("DISPLAY"), "no X display: run under xvfb-run");
        const QDBusReply<QString> address =
            QDBusConnection::sessionBus().call(QDBusMessage::createMethodCall(
                QStringLiteral("org.a11y.Bus"), QStringLiteral("/org/a11y/bus"),
                QStringLiteral("org.a11y.Bus"), QStringLiteral("GetAddress")));
        QVERIFY2(address.isValid(), "no accessibility bus on the session bus (at-spi2-core)");
        bus = QDBusConnection::connectToBus(address.value(), QStringLiteral("a11y"));
        QVERIFY(bus.isConnected());

        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("QT_QPA_PLATFORM", "xcb");
        env.insert("QT_LINUX_ACCESSIBILITY_ALWAYS_ON", "1");
        for (const char* name : {"XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_DATA_HOME"}) {
            env.insert(name, profile.filePath(QString::fromLatin1(name)));
        }
        app.setProcessEnvironment(env);
        app.setProcessChannelMode(QProcess::MergedChannels);
        connect(&app, &QProcess::readyRead, this,
                [this] { output += QString::fromLocal8Bit(app.readAll()); });
        // Its own ad server, in the program, on loopback.
        app.start(QStringLiteral(BRINDLE_BINARY), {QStringLiteral("--new-instance")});
        QTRY_VERIFY2_WITH_TIMEOUT(output.contains("brindle-sounds: ad shown"), qPrintable(output),
                                  60000);
    }

    void cleanupTestCase() {
        if (app.state() != QProcess::NotRunning) {
            app.terminate();
            app.waitForFinished(20000);
        }
    }

    void everyButtonIsNamedAndThePadsSayTheirKeys() {
        // The application's root, as the desktop's registry lists it.
        QList<Node> applications;
        QTRY_VERIFY_WITH_TIMEOUT(
            !(applications = children({QStringLiteral("org.a11y.atspi.Registry"),
                                       QStringLiteral("/org/a11y/atspi/accessible/root")}))
                 .isEmpty(),
            20000);
        QStringList unnamedButtons;
        QStringList padKeys;
        bool bannerFound = false;
        int visited = 0;
        QList<Node> pending = applications;
        while (!pending.isEmpty() && visited < 5000) {
            const Node node = pending.takeFirst();
            ++visited;
            const QDBusMessage role = call(node, QStringLiteral("org.a11y.atspi.Accessible"),
                                           QStringLiteral("GetRoleName"));
            const QString roleName =
                role.arguments().isEmpty() ? QString() : role.arguments().first().toString();
            const QString name = property(node, QStringLiteral("Name"));
            if (roleName == QLatin1String("push button")) {
                if (name.trimmed().isEmpty()) {
                    unnamedButtons << node.path;
                }
                const QString description = property(node, QStringLiteral("Description"));
                if (description.startsWith(QLatin1String("Key "))) {
                    padKeys << name + QStringLiteral(": ") + description;
                }
            }
            bannerFound = bannerFound || name == QLatin1String("Advertisement");
            pending += children(node);
        }
        QVERIFY2(unnamedButtons.isEmpty(), qPrintable(unnamedButtons.join(", ")));
        QVERIFY2(padKeys.contains(QStringLiteral("Who needs 'em?: Key 1")),
                 qPrintable(padKeys.join(" | ")));
        QVERIFY2(!padKeys.filter(QStringLiteral("Be your lover: Key M")).isEmpty(),
                 qPrintable(padKeys.join(" | ")));
        QVERIFY(bannerFound);
    }
};

QTEST_GUILESS_MAIN(TestAccessibilityEndToEnd)
#include "tst_e2e_accessibility.moc"
