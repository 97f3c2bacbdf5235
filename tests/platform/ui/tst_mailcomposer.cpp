// The mailto: URL the composer hands to the desktop: fields set by the caller and typed into the
// form, escaped as a URL needs; a message the desktop refuses stays. Filling the form from an ad's
// mail link and cancelling it are proven end to end (tst_e2e_fullscreen, tst_e2e_waysout).
#include "platform/ui/mailcomposer.h"
#include "platform/ui/notice.h"
#include "platform/ui/window.h"
#include "uitestmain.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QLineEdit>
#include <QPushButton>

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

    Window window;
    std::shared_ptr<ViewController> root = std::make_shared<ViewController>();
    std::shared_ptr<MailComposeViewController> composer =
        std::make_shared<MailComposeViewController>();
    ResultDelegate delegate;
};

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

    // With no mail program to take it, the message is not lost: the composer stays up and a
    // notice offers it to copy.
    void aMessageNoProgramTakesStaysToBeCopied() {
        Application::sharedApplication()->setUrlOpener([](const QUrl&) { return false; });
        Presented p;
        p.composer->setSubject("Hi");
        p.composer->setMessageBody("Line 1\nLine 2", false);
        p.present();
        QTest::ignoreMessage(QtInfoMsg, "No mail program took the message");
        p.send();
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
