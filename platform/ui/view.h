/// \file
/// The base of the ad client's widgets, platform::View, and its autoresizing mask bits.
#pragma once

#include "platform/export.h"

#include <QColor>
#include <QEvent>
#include <QRect>
#include <QWidget>

#include <functional>

namespace platform {

/// Autoresizing mask bits, with the phone's values.
enum AutoresizingMask : int {
    ViewAutoresizingNone = 0,                   ///< Keeps its frame.
    ViewAutoresizingFlexibleLeftMargin = 1,     ///< The left margin takes part of the change.
    ViewAutoresizingFlexibleWidth = 2,          ///< The width takes part of the change.
    ViewAutoresizingFlexibleRightMargin = 4,    ///< The right margin takes part of the change.
    ViewAutoresizingFlexibleTopMargin = 8,      ///< The top margin takes part of the change.
    ViewAutoresizingFlexibleHeight = 16,        ///< The height takes part of the change.
    ViewAutoresizingFlexibleBottomMargin = 32,  ///< The bottom margin takes part of the change.
};

/// A view is a QWidget with what the phone's views had and Qt lacks: autoresizing masks, a user
/// interaction switch and a hook that tells a view a touch or mouse press reached it.
class SORVEL_EXPORT View : public QWidget {
    Q_OBJECT
  public:
    /// A view with the geometry Qt gives a new widget.
    explicit View(QWidget* parent = nullptr);
    /// A view with `frame`, in the parent's coordinates.
    explicit View(const QRect& frame, QWidget* parent = nullptr);
    ~View() override;  ///< Destroys the view and its subviews.

    /// Frame in the superview's coordinates and bounds in the view's own. Setting the frame
    /// resizes the subviews by their masks at once, even while the view is hidden.
    QRect frame() const { return geometry(); }
    void setFrame(const QRect& frame);       ///< Sets frame(), resizing the subviews at once.
    QRect bounds() const { return rect(); }  ///< The view's own rectangle, at (0, 0).

    /// Adds `view` on top of the existing subviews; the view takes ownership.
    void addSubview(QWidget* view);
    /// Hides and detaches the view; the caller owns the view afterwards.
    void removeFromSuperview();
    /// The parent widget if it is a View, else null.
    View* superview() const { return qobject_cast<View*>(parentWidget()); }

    /// When the superview changes size, the flexible parts named by the mask share the change in
    /// proportion to their current sizes (equally when they are all zero), as the phone did. The
    /// mask is a combination of AutoresizingMask bits.
    int autoresizingMask() const { return autoresizingMask_; }
    void setAutoresizingMask(int mask);  ///< Sets autoresizingMask().
    /// Whether the view resizes its subviews by their masks when its own size changes (on by
    /// default).
    bool autoresizesSubviews() const { return autoresizesSubviews_; }
    /// Sets autoresizesSubviews().
    void setAutoresizesSubviews(bool on) { autoresizesSubviews_ = on; }

    /// A view without user interaction lets touches and clicks through to what lies beneath.
    bool isUserInteractionEnabled() const { return userInteractionEnabled_; }
    void setUserInteractionEnabled(bool enabled);  ///< Sets isUserInteractionEnabled().

    /// Whether the view is hidden, as QWidget has it.
    bool isHidden() const { return QWidget::isHidden(); }
    void setHidden(bool hidden) { QWidget::setHidden(hidden); }  ///< Hides or shows the view.

    /// An invalid colour means no background (the default); a transparent one is clear.
    QColor backgroundColor() const { return backgroundColor_; }
    virtual void setBackgroundColor(const QColor& color);  ///< Sets backgroundColor().
    /// Opaque tells the drawing code that the view fills its bounds; kept for callers that set it.
    bool isOpaque() const { return opaque_; }
    virtual void setOpaque(bool opaque);  ///< Sets isOpaque().
    /// Qt always clips subviews to their parent's bounds; the flag is kept for callers.
    bool clipsToBounds() const { return clipsToBounds_; }
    void setClipsToBounds(bool clips) { clipsToBounds_ = clips; }  ///< Sets clipsToBounds().

    /// What touchReached() calls by default.
    using TouchHook = std::function<void(QEvent::Type)>;
    /// Sets the hook that touchReached() calls.
    void setTouchHook(TouchHook hook);
    /// Called when a touch or a mouse press reaches this view or one of its subviews (including
    /// widgets Qt creates inside it, such as a web engine's render widget), or Enter or Space is
    /// pressed while one of them has the keyboard focus. `type` is the event type
    /// (QEvent::TouchBegin, QEvent::MouseButtonPress, QEvent::KeyPress, ...). Views without user
    /// interaction, or inside one without it, are not told. The default calls the hook set with
    /// setTouchHook().
    virtual void touchReached(QEvent::Type type);

    /// Resizes subviews by their masks as if this view had changed from `oldSize` to its size.
    void layoutSubviewsFrom(const QSize& oldSize);
    /// The frame that `mask` gives a view of `frame` when its superview goes from `from` to `to`.
    static QRect autoresizedFrame(const QRect& frame, int mask, const QSize& from, const QSize& to);

  protected:
    /// Makes sure touchReached() is called even without a hook (for subclasses that override it).
    static void watchTouches();
    /// Paints the background colour, if there is one.
    void paintEvent(QPaintEvent* event) override;
    /// Autoresizes the subviews to the new size.
    void resizeEvent(QResizeEvent* event) override;
    /// Autoresizes the subviews to the current size at once, where Qt would wait for the show.
    void catchUpLayout();

  private:
    int autoresizingMask_ = ViewAutoresizingNone;
    bool autoresizesSubviews_ = true;
    bool userInteractionEnabled_ = true;
    bool opaque_ = true;
    bool clipsToBounds_ = false;
    QColor backgroundColor_;
    TouchHook touchHook_;
    QSize laidOutSize_;
};

}  // namespace platform
