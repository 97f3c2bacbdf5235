#include "platform/ui/mailcomposer.h"
#include "platform/ui/window.h"
#include "uitestmain.h"

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

}  // namespace

class TestMailComposer : public QObject {
    Q_OBJECT
  private slots:
    void init() {
        Application::sharedApplication()->setUrlOpener([](const QUrl&) { return true; });
        Application::sharedApplication()->clearOpenedURLs();
    }

    void mailtoUrlCarriesTheFields_data() {
        QTest::addColumn<QStringList>("to");
        QTest::addColumn<QStringList>("cc");
        QTest::addColumn<QString>("subject");
        QTest::addColumn<QString>("body");
        QTest::addColumn<QString>("expected");
        QTest::newRow("recipient only") << QStringList{"ads@example.com"} << QStringList{}
                                        << QString() << QString() << "mailto:ads@example.com";
        QTest::newRow("two copies and a subject")
            << QStringList{"a@example.com"} << QStringList{"b@example.com", "c@example.com"}
            << "Hello there" << QString()
            << "mailto:a@example.com?cc=b@example.com,c@example.com&subject=Hello%20there";
        QTest::newRow("body needing escapes")
            << QStringList{"a@example.com"} << QStringList{} << "Q&A?"
            << "Line 1\nx=1 & 100%"
            << "mailto:a@example.com?subject=Q%26A%3F&body=Line%201%0Ax%3D1%20%26%20100%25";
    }
    void mailtoUrlCarriesTheFields() {
        QFETCH(QStringList, to);
        QFETCH(QStringList, cc);
        QFETCH(QString, subject);
        QFETCH(QString, body);
        QFETCH(QString, expected);
        MailComposeViewController composer;
        composer.setToRecipients(to);
        composer.setCcRecipients(cc);
        composer.setSubject(subject);
        composer.setMessageBody(body, false);
        QCOMPARE(QString::fromLatin1(composer.mailtoURL().toEncoded()), expected);
        composer.view();  // the form shows the same fields
        QCOMPARE(composer.mailtoURL().toEncoded(), expected.toLatin1());
    }

    void sendHandsTheUrlToTheDesktopAndCancelDoesNot_data() {
        QTest::addColumn<QString>("button");
        QTest::addColumn<int>("result");
        QTest::addColumn<int>("opened");
        QTest::newRow("send") << "send" << int(MailComposeResultSent) << 1;
        QTest::newRow("cancel") << "cancel" << int(MailComposeResultCancelled) << 0;
    }
    void sendHandsTheUrlToTheDesktopAndCancelDoesNot() {
        QFETCH(QString, button);
        QFETCH(int, result);
        QFETCH(int, opened);
        Window window;
        auto root = std::make_shared<ViewController>();
        window.setRootViewController(root.get());
        window.makeKeyAndVisible();
        auto composer = std::make_shared<MailComposeViewController>();
        ResultDelegate delegate;
        composer->setMailComposeDelegate(&delegate);
        composer->setToRecipients({"ads@example.com"});
        root->presentModalViewController(composer, false);
        auto* subject = composer->view()->findChildren<QLineEdit*>().value(3);
        subject->setText("Typed by the user");
        composer->view()->findChild<QPushButton*>(button)->click();
        QCOMPARE(delegate.results, QList<int>{result});
        QVERIFY(root->modalViewController() == nullptr);
        const auto& urls = Application::sharedApplication()->openedURLs();
        QCOMPARE(urls.size(), opened);
        if (opened == 1) {
            QCOMPARE(urls[0], QUrl("mailto:ads@example.com?subject=Typed%20by%20the%20user"));
        }
    }
};

SORVEL_UI_TEST_MAIN(TestMailComposer)
#include "tst_mailcomposer.moc"
