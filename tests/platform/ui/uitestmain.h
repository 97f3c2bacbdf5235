// main() for the visual suites: the platform must be prepared before the QApplication exists,
// and the suite runs in a profile of its own (the web engine's cookies are kept in it).
#pragma once

#include "platform/ui/application.h"
#include "support/testenv.h"

#include <QApplication>
#include <QTest>

#define SORVEL_UI_TEST_MAIN(TestObject)                   \
    int main(int argc, char** argv) {                     \
        testsupport::TempHome home;                       \
        platform::prepareApplication();                   \
        QApplication app(argc, argv);                     \
        app.setApplicationName(QStringLiteral("sorvel")); \
        TestObject test;                                  \
        return QTest::qExec(&test, argc, argv);           \
    }
