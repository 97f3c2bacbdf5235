#include "platform/ui/notice.h"

#include <QAccessible>
#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QTimer>

#include <algorithm>

namespace platform {

namespace {

// Room left at the bottom of the window: the height of a banner and a gap.
constexpr int kBottomClearance = 58;
constexpr int kSideMargin = 10;

}  // namespace

Notice::Notice(QWidget* window, const QString& text) : QFrame(window) {
    setObjectName(QStringLiteral("notice"));
    // The palette's tooltip pair: a light and a dark theme each give colours that go together.
    setAutoFillBackground(true);
    setBackgroundRole(QPalette::ToolTipBase);
    setForegroundRole(QPalette::ToolTipText);
    setFrameShape(QFrame::StyledPanel);
    auto* row = new QHBoxLayout(this);
    row->setContentsMargins(10, 8, 10, 8);
    label_ = new QLabel(text, this);
    label_->setWordWrap(true);
    label_->setForegroundRole(QPalette::ToolTipText);
    row->addWidget(label_, 1);
    setAccessibleName(text);
    window->installEventFilter(this);
    QTimer::singleShot(kShownMilliseconds, this, &QObject::deleteLater);
}

Notice* Notice::show(QWidget* widget, const QString& text) {
    if (widget == nullptr) {
        return nullptr;
    }
    QWidget* window = widget->window();
    delete current(window);
    auto* notice = new Notice(window, text);
    notice->place();
    notice->QFrame::show();
    notice->raise();
    QAccessibleEvent shown(notice, QAccessible::Alert);
    QAccessible::updateAccessibility(&shown);
    return notice;
}

Notice* Notice::current(QWidget* widget) {
    return widget != nullptr ? widget->window()->findChild<Notice*>(QStringLiteral("notice"),
                                                                    Qt::FindDirectChildrenOnly)
                             : nullptr;
}

QString Notice::text() const {
    return label_->text();
}

void Notice::addAction(const QString& title, std::function<void()> action) {
    delete button_.data();
    button_ = new QPushButton(title, this);
    layout()->addWidget(button_);
    connect(button_, &QPushButton::clicked, this, [this, action = std::move(action)] {
        action();
        deleteLater();
    });
    place();
}

bool Notice::eventFilter(QObject* watched, QEvent* event) {
    if (watched == parentWidget() && event->type() == QEvent::Resize) {
        place();
    }
    return QFrame::eventFilter(watched, event);
}

void Notice::place() {
    const QWidget* window = parentWidget();
    const int width = window->width() - 2 * kSideMargin;
    // The text wraps in what the margins and the button leave of the width.
    const QMargins margins = layout()->contentsMargins();
    int textWidth = width - margins.left() - margins.right();
    int height = 0;
    if (button_ != nullptr) {
        textWidth -= button_->sizeHint().width() + layout()->spacing();
        height = button_->sizeHint().height();
    }
    height = std::max(height, label_->heightForWidth(textWidth)) + margins.top() + margins.bottom();
    setGeometry(kSideMargin, window->height() - kBottomClearance - height, width, height);
    raise();
}

}  // namespace platform
