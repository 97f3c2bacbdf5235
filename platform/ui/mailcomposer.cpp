#include "platform/ui/mailcomposer.h"

#include "platform/log.h"
#include "platform/ui/application.h"
#include "platform/ui/notice.h"
#include "platform/ui/screen.h"

#include <QClipboard>
#include <QFormLayout>
#include <QGuiApplication>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

namespace platform {

namespace {

// A long address list shows its beginning, where the first addressee is, not its end.
void setFieldText(QLineEdit* field, const QString& text) {
    field->setText(text);
    field->setCursorPosition(0);
}

QStringList splitAddresses(const QString& text) {
    QStringList result;
    for (const QString& part : text.split(QLatin1Char(','), Qt::SkipEmptyParts)) {
        if (!part.trimmed().isEmpty()) {
            result << part.trimmed();
        }
    }
    return result;
}

QByteArray encode(const QString& value, const QByteArray& keep = {}) {
    return QUrl::toPercentEncoding(value, keep);
}

}  // namespace

MailComposeViewController::MailComposeViewController() = default;

void MailComposeViewController::loadView() {
    auto* view = new View(Screen::bounds());
    // The system's own colours, light or dark: the labels and fields take theirs from the same
    // palette, so a fixed light background would hide a dark theme's light text.
    view->setAutoFillBackground(true);
    auto* column = new QVBoxLayout(view);
    auto* bar = new QHBoxLayout;
    auto* cancelButton = new QPushButton(tr("Cancel"), view);
    auto* title = new QLabel(tr("New Message"), view);
    title->setAlignment(Qt::AlignCenter);
    auto* sendButton = new QPushButton(tr("Send"), view);
    sendButton->setObjectName(QStringLiteral("send"));
    cancelButton->setObjectName(QStringLiteral("cancel"));
    bar->addWidget(cancelButton);
    bar->addWidget(title, 1);
    bar->addWidget(sendButton);
    column->addLayout(bar);
    auto* form = new QFormLayout;
    toField_ = new QLineEdit(view);
    ccField_ = new QLineEdit(view);
    bccField_ = new QLineEdit(view);
    subjectField_ = new QLineEdit(view);
    setFieldText(toField_, to_.join(QStringLiteral(", ")));
    setFieldText(ccField_, cc_.join(QStringLiteral(", ")));
    setFieldText(bccField_, bcc_.join(QStringLiteral(", ")));
    setFieldText(subjectField_, subject_);
    form->addRow(tr("To:"), toField_);
    form->addRow(tr("Cc:"), ccField_);
    form->addRow(tr("Bcc:"), bccField_);
    form->addRow(tr("Subject:"), subjectField_);
    column->addLayout(form);
    bodyField_ = new QPlainTextEdit(body_, view);
    column->addWidget(bodyField_, 1);
    connect(sendButton, &QPushButton::clicked, this, &MailComposeViewController::send);
    connect(cancelButton, &QPushButton::clicked, this, &MailComposeViewController::cancel);
    setView(view);
}

void MailComposeViewController::setToRecipients(const QStringList& to) {
    to_ = to;
    if (toField_ != nullptr) {
        setFieldText(toField_, to.join(QStringLiteral(", ")));
    }
}
void MailComposeViewController::setCcRecipients(const QStringList& cc) {
    cc_ = cc;
    if (ccField_ != nullptr) {
        setFieldText(ccField_, cc.join(QStringLiteral(", ")));
    }
}
void MailComposeViewController::setBccRecipients(const QStringList& bcc) {
    bcc_ = bcc;
    if (bccField_ != nullptr) {
        setFieldText(bccField_, bcc.join(QStringLiteral(", ")));
    }
}
void MailComposeViewController::setSubject(const QString& subject) {
    subject_ = subject;
    if (subjectField_ != nullptr) {
        setFieldText(subjectField_, subject);
    }
}
void MailComposeViewController::setMessageBody(const QString& body, bool /*isHTML*/) {
    body_ = body;
    if (bodyField_ != nullptr) {
        bodyField_->setPlainText(body);
    }
}

// The form's fields are the truth once it exists: the user may have edited them.
QStringList MailComposeViewController::toRecipients() const {
    return toField_ != nullptr ? splitAddresses(toField_->text()) : to_;
}
QStringList MailComposeViewController::ccRecipients() const {
    return ccField_ != nullptr ? splitAddresses(ccField_->text()) : cc_;
}
QStringList MailComposeViewController::bccRecipients() const {
    return bccField_ != nullptr ? splitAddresses(bccField_->text()) : bcc_;
}
QString MailComposeViewController::subject() const {
    return subjectField_ != nullptr ? subjectField_->text() : subject_;
}
QString MailComposeViewController::messageBody() const {
    return bodyField_ != nullptr ? bodyField_->toPlainText() : body_;
}

QUrl MailComposeViewController::mailtoURL() const {
    QByteArray text = "mailto:";
    QByteArrayList to;
    for (const QString& address : toRecipients()) {
        to << encode(address, "@");
    }
    text += to.join(',');
    QByteArrayList fields;
    auto add = [&](const char* key, const QString& value, const QByteArray& keep = {}) {
        if (!value.isEmpty()) {
            fields << QByteArray(key) + '=' + encode(value, keep);
        }
    };
    add("cc", ccRecipients().join(QLatin1Char(',')), "@,");
    add("bcc", bccRecipients().join(QLatin1Char(',')), "@,");
    add("subject", subject());
    add("body", messageBody());
    if (!fields.isEmpty()) {
        text += '?' + fields.join('&');
    }
    return QUrl::fromEncoded(text, QUrl::StrictMode);
}

void MailComposeViewController::send() {
    Application* app = Application::sharedApplication();
    if (app != nullptr && app->openURL(mailtoURL())) {
        finish(MailComposeResultSent);
        return;
    }
    // The composer stays up when no mail program takes the message: closing it, as a failed
    // send would, loses what the user wrote. The notice offers the whole message to copy;
    // Cancel still closes.
    logLine(QStringLiteral("No mail program took the message"));
    Notice* notice = Notice::show(
        view(), tr("No mail program took the message. Copy it to send it another way."));
    notice->addAction(tr("Copy"),
                      [text = messageAsText()] { QGuiApplication::clipboard()->setText(text); });
}

QString MailComposeViewController::messageAsText() const {
    QStringList lines;
    const auto add = [&lines](const QString& name, const QStringList& values) {
        if (!values.isEmpty()) {
            lines << name + QStringLiteral(": ") + values.join(QStringLiteral(", "));
        }
    };
    add(QStringLiteral("To"), toRecipients());
    add(QStringLiteral("Cc"), ccRecipients());
    add(QStringLiteral("Bcc"), bccRecipients());
    add(QStringLiteral("Subject"), subject().isEmpty() ? QStringList() : QStringList{subject()});
    return lines.join(QLatin1Char('\n')) + QStringLiteral("\n\n") + messageBody();
}

void MailComposeViewController::cancel() {
    finish(MailComposeResultCancelled);
}

bool MailComposeViewController::escapePressed() {
    cancel();
    return true;
}

void MailComposeViewController::finish(int result, const Error& error) {
    if (MailComposeViewControllerDelegate* d = mailComposeDelegate()) {
        d->mailComposeControllerDidFinishWithResult(this, result, error);
    }
}

}  // namespace platform
