#include "platform/ui/controls.h"

#include <QHBoxLayout>
#include <QMouseEvent>
#include <QPainter>
#include <QStyle>
#include <QTimer>
#include <QToolButton>

#include <cmath>

namespace platform {

BarButtonItem* BarButtonItem::withSystemItem(int systemItem, Action action, QObject* parent) {
    auto* item = new BarButtonItem(parent);
    item->systemItem_ = systemItem;
    item->action_ = std::move(action);
    if (systemItem == BarButtonSystemItemDone) {
        item->title_ = QStringLiteral("Done");
        item->style_ = BarButtonItemStyleDone;
    } else if (systemItem == BarButtonSystemItemCancel) {
        item->title_ = QStringLiteral("Cancel");
    }
    return item;
}

BarButtonItem* BarButtonItem::withImage(const QImage& image, int style, Action action,
                                        QObject* parent) {
    auto* item = new BarButtonItem(parent);
    item->image_ = image;
    item->style_ = style;
    item->action_ = std::move(action);
    return item;
}

BarButtonItem* BarButtonItem::withCustomView(QWidget* view, QObject* parent) {
    auto* item = new BarButtonItem(parent);
    item->customView_ = view;
    return item;
}

void BarButtonItem::setStyle(int style) {
    style_ = style;
    emit changed();
}

void BarButtonItem::setEnabled(bool enabled) {
    if (enabled != enabled_) {
        enabled_ = enabled;
        emit changed();
    }
}

void BarButtonItem::setWidth(int width) {
    width_ = width;
    emit changed();
}

void BarButtonItem::setAccessibilityLabel(const QString& label) {
    accessibilityLabel_ = label;
    emit changed();
}

void BarButtonItem::setToolTip(const QString& toolTip) {
    toolTip_ = toolTip;
    emit changed();
}

void BarButtonItem::setIsAccessibilityElement(bool on) {
    accessibilityElement_ = on;
    emit changed();
}

void BarButtonItem::trigger() {
    if (enabled_ && action_) {
        action_();
    }
}

namespace {

// A bar button that shows when it has the keyboard focus, in its title's colour: flat buttons
// show none in most styles. A click does not take the focus, so the ring means the keyboard's.
class BarToolButton : public QToolButton {
  public:
    using QToolButton::QToolButton;

  protected:
    void paintEvent(QPaintEvent* event) override {
        QToolButton::paintEvent(event);
        if (!hasFocus()) {
            return;
        }
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(QPen(palette().color(QPalette::ButtonText), 2));
        painter.drawRoundedRect(QRectF(rect()).adjusted(1.5, 1.5, -1.5, -1.5), 4, 4);
    }
};

// A standard icon redrawn in one colour, so that it matches the bar's own one-colour glyphs.
QIcon inOneColour(const QIcon& icon, const QColor& colour) {
    QPixmap pixmap = icon.pixmap(QSize(20, 20));
    QPainter painter(&pixmap);
    painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
    painter.fillRect(pixmap.rect(), colour);
    return QIcon(pixmap);
}

// "Somewhere else": a box with an arrow leaving it up and to the right.
QIcon actionGlyph(const QColor& colour) {
    QPixmap pixmap(20, 20);
    pixmap.fill(Qt::transparent);
    QPainter painter(&pixmap);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(colour, 1.8, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
    painter.drawPolyline(QPolygonF({{9, 4}, {3.5, 4}, {3.5, 16.5}, {16, 16.5}, {16, 11}}));
    painter.drawLine(QPointF(9, 11), QPointF(17, 3));
    painter.drawPolyline(QPolygonF({{11.5, 3}, {17, 3}, {17, 8.5}}));
    return QIcon(pixmap);
}

}  // namespace

Toolbar::Toolbar(const QRect& frame, QWidget* parent) : View(frame, parent) {
    layout_ = new QHBoxLayout(this);
    layout_->setContentsMargins(6, 0, 6, 0);
    layout_->setSpacing(4);
    setBackgroundColor(tint_);
}

void Toolbar::setTintColor(const QColor& color) {
    tint_ = color;
    setBackgroundColor(color);
}

void Toolbar::setItems(const QList<BarButtonItem*>& items) {
    for (const auto& item : items_) {
        if (item != nullptr) {
            disconnect(item, nullptr, this, nullptr);
        }
    }
    items_.clear();
    for (BarButtonItem* item : items) {
        items_.append(item);
        if (item != nullptr) {
            connect(item, &BarButtonItem::changed, this, &Toolbar::rebuild, Qt::UniqueConnection);
        }
    }
    rebuild();
}

QList<BarButtonItem*> Toolbar::items() const {
    QList<BarButtonItem*> result;
    for (const auto& item : items_) {
        result.append(item.data());
    }
    return result;
}

QWidget* Toolbar::widgetAt(int index) const {
    return index >= 0 && index < widgets_.size() ? widgets_[index].data() : nullptr;
}

void Toolbar::rebuild() {
    // An item's button is kept from one set of items to the next, so that a press that began
    // before the bar changed (a page load starting or ending) still ends in a tap. Buttons of
    // items that went are deleted later: rebuilding often happens inside a button's own action.
    QHash<const BarButtonItem*, QPointer<QWidget>> previous = std::move(buttons_);
    buttons_.clear();
    while (QLayoutItem* old = layout_->takeAt(0)) {
        delete old;
    }
    widgets_.clear();
    for (const auto& item : items_) {
        if (item == nullptr || item->isFlexibleSpace()) {
            layout_->addStretch(1);
            widgets_.append(nullptr);
            continue;
        }
        if (item->systemItem() == BarButtonSystemItemFixedSpace) {
            layout_->addSpacing(item->width());
            widgets_.append(nullptr);
            continue;
        }
        QWidget* widget = item->customView();
        if (widget == nullptr) {
            auto* button = qobject_cast<QToolButton*>(previous.take(item).data());
            if (button == nullptr) {
                button = new BarToolButton(this);
                button->setProperty("sorvelBarButton", true);
                QPointer<BarButtonItem> target = item;
                connect(button, &QToolButton::clicked, this, [target] {
                    if (target != nullptr) {
                        target->trigger();
                    }
                });
            }
            buttons_.insert(item, button);
            // One look for the whole bar: every button flat until the pointer is on it; the
            // button that ends the screen is told apart by its bold title.
            button->setAutoRaise(true);
            QFont font = button->font();
            font.setBold(item->style() == BarButtonItemStyleDone);
            button->setFont(font);
            // Titles and glyphs in the colour that stands out from the bar's.
            const QColor ink = tint_.lightnessF() < 0.5 ? QColor(Qt::white) : QColor(Qt::black);
            QPalette palette = button->palette();
            palette.setColor(QPalette::ButtonText, ink);
            button->setPalette(palette);
            if (!item->image().isNull()) {
                button->setIcon(QIcon(QPixmap::fromImage(item->image())));
                const QSizeF logical = item->image().deviceIndependentSize();
                button->setIconSize(logical.toSize());
            } else if (item->systemItem() == BarButtonSystemItemRefresh) {
                button->setIcon(inOneColour(style()->standardIcon(QStyle::SP_BrowserReload), ink));
            } else if (item->systemItem() == BarButtonSystemItemStop) {
                button->setIcon(inOneColour(style()->standardIcon(QStyle::SP_BrowserStop), ink));
            } else if (item->systemItem() == BarButtonSystemItemAction) {
                button->setIcon(actionGlyph(ink));
            }
            button->setText(item->title());
            if (!item->title().isEmpty() && button->icon().isNull()) {
                button->setToolButtonStyle(Qt::ToolButtonTextOnly);
            }
            widget = button;
        } else {
            widget->setParent(this);
        }
        widget->setEnabled(item->isEnabled());
        widget->setAccessibleName(item->accessibilityLabel());
        widget->setToolTip(item->toolTip());
        widget->setProperty("accessibilityElement", item->isAccessibilityElement());
        if (item->width() > 0) {
            widget->setFixedWidth(item->width());
        }
        layout_->addWidget(widget, 0, Qt::AlignVCenter);
        const bool hiddenOnPurpose = widget->testAttribute(Qt::WA_WState_ExplicitShowHide) &&
                                     widget->testAttribute(Qt::WA_WState_Hidden);
        if (!hiddenOnPurpose) {
            widget->show();
        }
        widgets_.append(widget);
    }
    for (const QPointer<QWidget>& gone : std::as_const(previous)) {
        if (gone != nullptr) {
            gone->hide();
            gone->deleteLater();
        }
    }
}

ActivityIndicatorView::ActivityIndicatorView(int style, QWidget* parent)
    : View(parent), style_(style) {
    const int side = style == ActivityIndicatorViewStyleWhiteLarge ? 37 : 20;
    setFrame(QRect(0, 0, side, side));
    setAttribute(Qt::WA_TranslucentBackground);
    timer_ = new QTimer(this);
    timer_->setInterval(80);
    connect(timer_, &QTimer::timeout, this, [this] {
        phase_ = (phase_ + 1) % 12;
        update();
    });
    setHidden(true);
}

void ActivityIndicatorView::startAnimating() {
    timer_->start();
    setHidden(false);
}

void ActivityIndicatorView::stopAnimating() {
    timer_->stop();
    setHidden(true);
}

void ActivityIndicatorView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QColor base = style_ == ActivityIndicatorViewStyleGray ? Qt::gray : Qt::white;
    const double radius = std::min(width(), height()) / 2.0;
    painter.translate(width() / 2.0, height() / 2.0);
    for (int i = 0; i < 12; ++i) {
        QColor color = base;
        color.setAlphaF(0.25 + 0.75 * ((i - phase_ + 12) % 12) / 11.0);
        QPen pen(color, std::max(1.5, radius / 5));
        pen.setCapStyle(Qt::RoundCap);
        painter.setPen(pen);
        const double angle = i * M_PI / 6;
        painter.drawLine(QPointF(std::cos(angle) * radius * 0.45, std::sin(angle) * radius * 0.45),
                         QPointF(std::cos(angle) * radius * 0.85, std::sin(angle) * radius * 0.85));
    }
}

Button::Button(int type, QWidget* parent) : View(parent), type_(type) {
    setCursor(Qt::PointingHandCursor);
}

void Button::setImage(const QImage& image, int state) {
    (state == ControlStateHighlighted ? highlightedImage_ : normal_) = image;
    update();
}

QImage Button::imageForState(int state) const {
    if (state == ControlStateHighlighted && !highlightedImage_.isNull()) {
        return highlightedImage_;
    }
    return normal_;
}

void Button::addTarget(std::function<void()> action, int controlEvents) {
    actions_.append({controlEvents, std::move(action)});
}

void Button::send(int controlEvent) {
    const auto actions = actions_;  // an action may add targets
    for (const auto& [events, action] : actions) {
        if ((events & controlEvent) != 0 && action) {
            action();
        }
    }
}

void Button::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton || !isEnabled()) {
        return;
    }
    highlighted_ = true;
    update();
    send(ControlEventTouchDown);
}

void Button::mouseReleaseEvent(QMouseEvent* event) {
    if (!highlighted_) {
        return;
    }
    highlighted_ = false;
    update();
    if (rect().contains(event->position().toPoint())) {
        emit touchUpInside();
        send(ControlEventTouchUpInside);
    }
}

void Button::paintEvent(QPaintEvent* event) {
    View::paintEvent(event);
    QPainter painter(this);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    if (type_ == TypeRoundedRect) {
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(QColor(120, 120, 120));
        painter.setBrush(Qt::white);
        painter.drawRoundedRect(QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5), 8, 8);
    }
    const QImage image = imageForState(highlighted_ ? ControlStateHighlighted : ControlStateNormal);
    if (!image.isNull()) {
        // Drawn at its own size, centred, as the phone's buttons draw their images; only an
        // image larger than the button is made smaller.
        QSizeF fitted = image.deviceIndependentSize();
        if (fitted.width() > width() || fitted.height() > height()) {
            fitted = fitted.scaled(QSizeF(width(), height()), Qt::KeepAspectRatio);
        }
        const QRectF target((width() - fitted.width()) / 2, (height() - fitted.height()) / 2,
                            fitted.width(), fitted.height());
        painter.drawImage(target, image);
    }
    if (highlighted_ && showsTouch_) {
        QRadialGradient glow(rect().center(), std::min(width(), height()) / 2.0);
        glow.setColorAt(0, QColor(255, 255, 255, 180));
        glow.setColorAt(1, QColor(255, 255, 255, 0));
        painter.fillRect(rect(), glow);
    }
}

}  // namespace platform
