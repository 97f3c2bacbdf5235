// The mailto: URL the composer hands to the desktop: fields set by the caller and typed into the
// form, escaped as a URL needs; a message the desktop refuses stays. Filling the form from an ad's
// mail link and cancelling it are proven end to end (tst_e2e_fullscreen, tst_e2e_waysout).
#include "platform/ui/mailcomposer.h"
#include "platform/ui/notice.h"
#include "platform/ui/window.h"
#include "uitestmain.h"

#include <QApplication>
#include <QClipboard>
#include <QGuiApplication>
#include <QHash>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScopeGuard>

#include <algorithm>
#include <cmath>

using namespace platform;

namespace {

class ResultDelegate : public MailComposeViewControllerDelegate {
  public:
    void mailComposeControllerDidFinishWithResult(MailComposeViewController* c, int result,
                                                  const Error&) override {
        results << result;
        c->dismissModalViewControllerAnimated(false);
    }
    QList<int> results;
};

// A composer to a@example.com presented over a window's root, its results recorded.
struct Presented {
    Presented() {
        window.setRootViewController(root.get());
        window.makeKeyAndVisible();
        composer->setMailComposeDelegate(&delegate);
        composer->setToRecipients({"a@example.com"});
    }
    void present() { root->presentModalViewController(composer, false); }
    void send() { composer->view()->findChild<QPushButton*>("send")->click(); }
    // Presents a message and sends it where no mail program takes it: the composer stays up,
    // with the notice over it.
    void presentAndSendUntaken(const QString& subject, const QString& body) {
        Application::sharedApplication()->setUrlOpener([](const QUrl&) { return false; });
        composer->setSubject(subject);
        composer->setMessageBody(body, false);
        present();
        QTest::ignoreMessage(QtInfoMsg, "No mail program took the message");
        send();
    }

    Window window;
    std::shared_ptr<ViewController> root = std::make_shared<ViewController>();
    std::shared_ptr<MailComposeViewController> composer =
        std::make_shared<MailComposeViewController>();
    ResultDelegate delegate;
};

// Relative luminance and contrast ratio as WCAG defines them.
double luminance(QRgb rgb) {
    const auto channel = [](int value) {
        const double c = value / 255.0;
        return c <= 0.03928 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * channel(qRed(rgb)) + 0.7152 * channel(qGreen(rgb)) +
           0.0722 * channel(qBlue(rgb));
}
double contrast(QRgb a, QRgb b) {
    const double la = luminance(a);
    const double lb = luminance(b);
    return (std::max(la, lb) + 0.05) / (std::min(la, lb) + 0.05);
}

// How well the text drawn in `area` of `image` stands out: its most common colour is taken for the
// background, and the pixel that differs most from it for the ink.
double inkContrast(const QImage& image, const QRect& area) {
    QHash<QRgb, int> counts;
    for (int y = area.top(); y <= area.bottom(); ++y) {
        for (int x = area.left(); x <= area.right(); ++x) {
            ++counts[image.pixel(x, y) | 0xff000000];
        }
    }
    QRgb background = 0;
    int most = -1;
    for (auto it = counts.cbegin(); it != counts.cend(); ++it) {
        if (it.value() > most) {
            most = it.value();
            background = it.key();
        }
    }
    double best = 1;
    for (auto it = counts.cbegin(); it != counts.cend(); ++it) {
        best = std::max(best, contrast(it.key(), background));
    }
    return best;
}

QPalette darkPalette() {
    QPalette p;
    p.setColor(QPalette::Window, QColor(0x2b, 0x2b, 0x2b));
    p.setColor(QPalette::WindowText, QColor(0xee, 0xee, 0xee));
    p.setColor(QPalette::Base, QColor(0x1e, 0x1e, 0x1e));
    p.setColor(QPalette::AlternateBase, QColor(0x33, 0x33, 0x33));
    p.setColor(QPalette::Text, QColor(0xee, 0xee, 0xee));
    p.setColor(QPalette::Button, QColor(0x3a, 0x3a, 0x3a));
    p.setColor(QPalette::ButtonText, QColor(0xee, 0xee, 0xee));
    p.setColor(QPalette::PlaceholderText, QColor(0xa0, 0xa0, 0xa0));
    p.setColor(QPalette::Highlight, QColor(0x3d, 0x7a, 0xd6));
    p.setColor(QPalette::HighlightedText, Qt::white);
    return p;
}

QPalette highContrastPalette() {
    QPalette p;
    for (const auto role :
         {QPalette::Window, QPalette::Base, QPalette::AlternateBase, QPalette::Button}) {
        p.setColor(role, Qt::black);
    }
    for (const auto role :
         {QPalette::WindowText, QPalette::Text, QPalette::ButtonText, QPalette::PlaceholderText}) {
        p.setColor(role, Qt::white);
    }
    p.setColor(QPalette::Highlight, Qt::yellow);
    p.setColor(QPalette::HighlightedText, Qt::black);
    return p;
}

}  // namespace

class TestMailComposer : public QObject {
    Q_OBJECT
  private slots:
    void sendHandsTheFieldsToTheDesktop_data() {
        QTest::addColumn<QStringList>("cc");
        QTest::addColumn<QString>("subject");  // typed into the form
        QTest::addColumn<QString>("body");
        QTest::addColumn<QString>("expected");
        const QString to = QStringLiteral("mailto:a@example.com");
        // clang-format off
        QTest::newRow("recipient only") << QStringList{} << "" << "" << to;
        QTest::newRow("two copies and a subject") << QStringList{"b@example.com", "c@example.com"} << "Hello there" << ""
            << to + "?cc=b@example.com,c@example.com&subject=Hello%20there";
        QTest::newRow("fields needing escapes") << QStringList{} << "Q&A?" << "Line 1\nx=1 & 100%"
            << to + "?subject=Q%26A%3F&body=Line%201%0Ax%3D1%20%26%20100%25";
        // clang-format on
    }
    void sendHandsTheFieldsToTheDesktop() {
        QFETCH(QStringList, cc);
        QFETCH(QString, subject);
        QFETCH(QString, body);
        QFETCH(QString, expected);
        Application::sharedApplication()->setUrlOpener([](const QUrl&) { return true; });
        Application::sharedApplication()->clearOpenedURLs();
        Presented p;
        p.composer->setCcRecipients(cc);
        p.composer->setMessageBody(body, false);
        p.present();
        p.composer->view()->findChildren<QLineEdit*>().value(3)->setText(subject);
        p.send();
        QCOMPARE(p.delegate.results, QList<int>{MailComposeResultSent});
        QVERIFY(p.root->presentedViewController() == nullptr);
        const QList<QUrl>& urls = Application::sharedApplication()->openedURLs();
        QCOMPARE(urls.size(), 1);
        QCOMPARE(QString::fromLatin1(urls[0].toEncoded()), expected);
    }

    // The composer and its notice take the desktop's palette, light, dark or high-contrast: every
    // label and field, and the notice's text, read at 4.5:1 or better.
    void everyTextReadsInTheDesktopsPalette_data() {
        QTest::addColumn<QPalette>("palette");
        QTest::newRow("light") << QPalette(QColor(0xef, 0xef, 0xef));
        QTest::newRow("dark") << darkPalette();
        QTest::newRow("high contrast") << highContrastPalette();
    }
    void everyTextReadsInTheDesktopsPalette() {
        QFETCH(QPalette, palette);
        const QPalette before = QGuiApplication::palette();
        QApplication::setPalette(palette);
        const auto restore = qScopeGuard([&] { QApplication::setPalette(before); });
        Presented p;
        p.presentAndSendUntaken("Table for two", "Hello!");
        QVERIFY(Notice::current(&p.window) != nullptr);
        const QImage shot = p.window.grab().toImage();
        QStringList faint;
        int measured = 0;
        for (QWidget* w : p.window.findChildren<QWidget*>()) {
            const bool reads = qobject_cast<QLabel*>(w) != nullptr ||
                               (qobject_cast<QLineEdit*>(w) != nullptr &&
                                !static_cast<QLineEdit*>(w)->text().isEmpty());
            if (!reads || !w->isVisible()) {
                continue;
            }
            ++measured;
            const QRect area(w->mapTo(&p.window, QPoint(0, 0)), w->size());
            const double ratio = inkContrast(shot, area & shot.rect());
            if (ratio < 4.5) {
                faint << QStringLiteral("%1 \"%2\" %3:1")
                             .arg(w->metaObject()->className(),
                                  qobject_cast<QLabel*>(w) != nullptr
                                      ? static_cast<QLabel*>(w)->text()
                                      : static_cast<QLineEdit*>(w)->text())
                             .arg(ratio, 0, 'f', 1);
            }
        }
        QVERIFY2(faint.isEmpty(), qPrintable(faint.join(", ")));
        QVERIFY(measured >= 5);  // the title, the field labels, the filled fields, the notice
    }

    // With no mail program to take it, the message is not lost: the composer stays up and a
    // notice offers it to copy.
    void aMessageNoProgramTakesStaysToBeCopied() {
        Presented p;
        p.presentAndSendUntaken("Hi", "Line 1\nLine 2");
        QVERIFY(p.delegate.results.isEmpty());
        QCOMPARE(p.root->presentedViewController(), p.composer.get());
        QPointer<Notice> notice = Notice::current(&p.window);
        QVERIFY(notice != nullptr && notice->isVisible());
        QVERIFY(notice->text().contains("No mail program"));
        notice->actionButton()->click();
        QCOMPARE(QGuiApplication::clipboard()->text(),
                 QStringLiteral("To: a@example.com\nSubject: Hi\n\nLine 1\nLine 2"));
        QTRY_VERIFY(notice == nullptr);
    }
};

SORVEL_UI_TEST_MAIN(TestMailComposer)
#include "tst_mailcomposer.moc"
