// The phone's stock controls on Qt Widgets: toolbar with bar button items, activity indicator
// (spinner) and buttons with images.
#pragma once

#include "platform/ui/view.h"

#include <QHash>
#include <QImage>
#include <QList>
#include <QPointer>

#include <functional>

class QHBoxLayout;
class QTimer;
class QToolButton;

namespace platform {

enum BarButtonSystemItem : int {
    BarButtonSystemItemDone = 0,
    BarButtonSystemItemCancel = 1,
    BarButtonSystemItemFlexibleSpace = 5,
    BarButtonSystemItemFixedSpace = 6,
    BarButtonSystemItemAction = 9,
    BarButtonSystemItemRefresh = 13,
    BarButtonSystemItemStop = 14,
};

enum BarButtonItemStyle : int {
    BarButtonItemStylePlain = 0,
    BarButtonItemStyleBordered = 1,
    BarButtonItemStyleDone = 2,
};

// What a toolbar shows in one place: a system item, an image, a title or a custom view. An item
// may stand in several places of a bar (a flexible space usually does).
class BarButtonItem : public QObject {
    Q_OBJECT
  public:
    using Action = std::function<void()>;

    static BarButtonItem* withSystemItem(int systemItem, Action action = {},
                                         QObject* parent = nullptr);
    static BarButtonItem* withImage(const QImage& image, int style, Action action = {},
                                    QObject* parent = nullptr);
    // The custom view is shown by the bar (which becomes its parent while it is shown).
    static BarButtonItem* withCustomView(QWidget* view, QObject* parent = nullptr);

    int systemItem() const { return systemItem_; }  // -1 for other kinds
    bool isFlexibleSpace() const { return systemItem_ == BarButtonSystemItemFlexibleSpace; }
    QImage image() const { return image_; }
    QString title() const { return title_; }
    QWidget* customView() const { return customView_; }
    int style() const { return style_; }
    void setStyle(int style);

    bool isEnabled() const { return enabled_; }
    void setEnabled(bool enabled);
    // Width in points; 0 lets the bar choose.
    int width() const { return width_; }
    void setWidth(int width);
    QString accessibilityLabel() const { return accessibilityLabel_; }
    void setAccessibilityLabel(const QString& label);
    bool isAccessibilityElement() const { return accessibilityElement_; }
    void setIsAccessibilityElement(bool on);
    // What the pointer resting on the button tells; none by default.
    QString toolTip() const { return toolTip_; }
    void setToolTip(const QString& toolTip);

    // Runs the action if the item is enabled (what a tap does).
    void trigger();

  signals:
    void changed();

  private:
    explicit BarButtonItem(QObject* parent) : QObject(parent) {}

    int systemItem_ = -1;
    QImage image_;
    QString title_;
    QPointer<QWidget> customView_;
    int style_ = BarButtonItemStylePlain;
    bool enabled_ = true;
    int width_ = 0;
    QString accessibilityLabel_;
    QString toolTip_;
    bool accessibilityElement_ = false;
    Action action_;
};

class Toolbar : public View {
    Q_OBJECT
  public:
    explicit Toolbar(const QRect& frame = {}, QWidget* parent = nullptr);

    // Not owned; the bar follows changes of the items until they are replaced.
    void setItems(const QList<BarButtonItem*>& items);
    QList<BarButtonItem*> items() const;
    void setTintColor(const QColor& color);

    // The widget standing for the item at `index` of items() (a button, the custom view, or
    // nullptr for a space).
    QWidget* widgetAt(int index) const;

  private:
    void rebuild();

    QHBoxLayout* layout_ = nullptr;
    QList<QPointer<BarButtonItem>> items_;
    QList<QPointer<QWidget>> widgets_;
    QHash<const BarButtonItem*, QPointer<QWidget>> buttons_;  // the buttons made for items
    QColor tint_ = QColor(80, 80, 80);
};

enum ActivityIndicatorViewStyle : int {
    ActivityIndicatorViewStyleWhiteLarge = 0,
    ActivityIndicatorViewStyleWhite = 1,
    ActivityIndicatorViewStyleGray = 2,
};

// A spinning wheel; hidden while stopped.
class ActivityIndicatorView : public View {
    Q_OBJECT
  public:
    explicit ActivityIndicatorView(int style = ActivityIndicatorViewStyleWhite,
                                   QWidget* parent = nullptr);

    void startAnimating();
    void stopAnimating();

  protected:
    void paintEvent(QPaintEvent* event) override;

  private:
    int style_;
    int phase_ = 0;
    QTimer* timer_ = nullptr;
};

enum ControlEvent : int {
    ControlEventTouchDown = 1,
    ControlEventTouchUpInside = 64,
};

enum ControlState : int {
    ControlStateNormal = 0,
    ControlStateHighlighted = 1,
};

// A button drawing an image (per state); actions run on touch down or touch up inside.
class Button : public View {
    Q_OBJECT
  public:
    enum Type : int { TypeCustom = 0, TypeRoundedRect = 1 };

    explicit Button(int type = TypeCustom, QWidget* parent = nullptr);

    void setImage(const QImage& image, int state = ControlStateNormal);
    QImage imageForState(int state) const;
    void setShowsTouchWhenHighlighted(bool shows) { showsTouch_ = shows; }

    void addTarget(std::function<void()> action, int controlEvents);

  signals:
    void touchUpInside();

  protected:
    void paintEvent(QPaintEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;

  private:
    void send(int controlEvent);

    int type_;
    QImage normal_;
    QImage highlightedImage_;
    bool showsTouch_ = false;
    bool highlighted_ = false;
    QList<QPair<int, std::function<void()>>> actions_;
};

}  // namespace platform
