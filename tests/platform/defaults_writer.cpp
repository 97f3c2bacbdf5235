// Helper for the user-defaults kill test: rewrites the store at argv[1] forever, each generation
// consistent with itself (a counter and a large blob derived from it), until it is killed.
#include "platform/userdefaults.h"

#include <QCoreApplication>
#include <QFile>

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    if (argc < 2) {
        return 2;
    }
    platform::UserDefaults defaults(QString::fromLocal8Bit(argv[1]));
    QFile ready(QString::fromLocal8Bit(argv[1]) + ".started");
    for (qint64 generation = defaults.objectForKey("generation").toLongLong() + 1;; ++generation) {
        defaults.setObjectForKey(generation, "generation");
        defaults.setObjectForKey(QByteArray(512 * 1024, static_cast<char>('a' + generation % 26)),
                                 "blob");
        defaults.setObjectForKey(QVariantMap{{"nested", QVariantList{generation, "text", true}}},
                                 "dict");
        defaults.synchronize();
        if (!ready.exists()) {
            ready.open(QIODevice::WriteOnly);
            ready.close();
        }
    }
}
