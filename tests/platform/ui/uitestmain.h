// main() for the visual suites: the platform must be prepared before the QApplication exists.
#pragma once

#include "platform/ui/application.h"

#include <QApplication>
#include <QTest>

#define SORVEL_UI_TEST_MAIN(TestObject)                   \
    int main(int argc, char** argv) {                     \
        platform::prepareApplication();                   \
        QApplication app(argc, argv);                     \
        app.setApplicationName(QStringLiteral("sorvel")); \
        TestObject test;                                  \
        return QTest::qExec(&test, argc, argv);           \
    }
