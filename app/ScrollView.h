// A scrolling page for the sound board: a view whose content view is larger than itself and is
// scrolled vertically (the phone's scroll view, as far as the board needs it).
#pragma once

#include "platform/ui/view.h"

class QScrollArea;

class ScrollView : public platform::View {
    Q_OBJECT
  public:
    explicit ScrollView(const QRect& frame, QWidget* parent = nullptr);

    // The view that scrolls; subviews go in here.
    platform::View* contentView() const { return content_; }
    QSize contentSize() const;
    // Resizes the content view; the part beyond the frame is reached by scrolling.
    void setContentSize(const QSize& size);
    QPoint contentOffset() const;

  protected:
    void resizeEvent(QResizeEvent* event) override;

  private:
    QScrollArea* area_ = nullptr;
    platform::View* content_ = nullptr;
};
