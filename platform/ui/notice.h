// A short, non-modal message over the bottom of a window that goes away by itself: it says why
// something the user asked for did not happen (no sound, a link nothing on the desktop opens, a
// message no mail program took). One per window: a new notice replaces the one shown.
#pragma once

#include <QFrame>
#include <QPointer>
#include <QPushButton>

#include <functional>

class QLabel;

namespace platform {

class Notice : public QFrame {
    Q_OBJECT
  public:
    static constexpr int kShownMilliseconds = 5000;

    // Shows `text` over the bottom of `widget`'s window (clear of a bottom banner) for
    // kShownMilliseconds; null without a widget.
    static Notice* show(QWidget* widget, const QString& text);
    // The notice up in `widget`'s window, if any.
    static Notice* current(QWidget* widget);

    QString text() const;
    // A button after the text (e.g. "Copy"); pressing it runs `action` and closes the notice.
    void addAction(const QString& title, std::function<void()> action);
    QPushButton* actionButton() const { return button_; }

  protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    explicit Notice(QWidget* window, const QString& text);
    void place();

    QLabel* label_ = nullptr;
    QPointer<QPushButton> button_;
};

}  // namespace platform
