// The mail composer: a form (to, cc, bcc, subject, plain body) presented like any view
// controller; sending hands the desktop a mailto: URL built from the fields.
#pragma once

#include "platform/error.h"
#include "platform/ui/viewcontroller.h"
#include "platform/weakref.h"

#include <QStringList>
#include <QUrl>

class QLineEdit;
class QPlainTextEdit;

namespace platform {

class MailComposeViewController;

enum MailComposeResult : int {
    MailComposeResultCancelled = 0,
    MailComposeResultSaved = 1,
    MailComposeResultSent = 2,
    MailComposeResultFailed = 3,
};

class MailComposeViewControllerDelegate : public Referenceable {
  public:
    // The composer does not dismiss itself: the delegate does.
    virtual void mailComposeControllerDidFinishWithResult(MailComposeViewController*,
                                                          int /*result*/, const Error&) {}
};

class MailComposeViewController : public ViewController {
    Q_OBJECT
  public:
    MailComposeViewController();

    // Not retained.
    MailComposeViewControllerDelegate* mailComposeDelegate() const { return delegate_.get(); }
    void setMailComposeDelegate(MailComposeViewControllerDelegate* d) { delegate_.reset(d); }

    void setToRecipients(const QStringList& to);
    void setCcRecipients(const QStringList& cc);
    void setBccRecipients(const QStringList& bcc);
    void setSubject(const QString& subject);
    // The body is sent as plain text either way.
    void setMessageBody(const QString& body, bool isHTML = false);

    QStringList toRecipients() const;
    QStringList ccRecipients() const;
    QStringList bccRecipients() const;
    QString subject() const;
    QString messageBody() const;

    // "mailto:" with the recipients, and "cc", "bcc", "subject" and "body" in the query, each
    // percent-encoded (RFC 6068); empty fields are left out.
    QUrl mailtoURL() const;

    // The form's two buttons: Send hands mailtoURL() to Application::openURL and reports Sent;
    // when the desktop refuses it the composer stays up with a notice offering the message to
    // copy. Cancel reports Cancelled.
    void send();
    void cancel();
    // Escape cancels, as the Cancel button does.
    bool escapePressed() override;

    void loadView() override;

  private:
    void finish(int result, const Error& error = {});
    // The fields as a plain message: "To: ...", "Cc: ...", "Subject: ...", a blank line, the body.
    QString messageAsText() const;

    WeakRef<MailComposeViewControllerDelegate> delegate_;
    QStringList to_, cc_, bcc_;
    QString subject_, body_;
    QLineEdit* toField_ = nullptr;
    QLineEdit* ccField_ = nullptr;
    QLineEdit* bccField_ = nullptr;
    QLineEdit* subjectField_ = nullptr;
    QPlainTextEdit* bodyField_ = nullptr;
};

}  // namespace platform
