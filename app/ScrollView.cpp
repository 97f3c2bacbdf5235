#include "app/ScrollView.h"

#include <QScrollArea>
#include <QScrollBar>

ScrollView::ScrollView(const QRect& frame, QWidget* parent) : platform::View(frame, parent) {
    area_ = new QScrollArea(this);
    area_->setFrameShape(QFrame::NoFrame);
    area_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    area_->setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    area_->setWidgetResizable(false);
    // The page beneath shows through: no background anywhere, and a slim, light scroll bar.
    area_->setStyleSheet(QStringLiteral(
        "QScrollArea, QScrollArea > QWidget { background: transparent; }"
        "QScrollBar:vertical { width: 6px; background: transparent; margin: 2px 0; }"
        "QScrollBar::handle:vertical { background: rgba(255, 255, 255, 90);"
        " border-radius: 3px; min-height: 30px; }"
        "QScrollBar::add-line:vertical, QScrollBar::sub-line:vertical { height: 0; }"
        "QScrollBar::add-page:vertical, QScrollBar::sub-page:vertical { background: none; }"));
    content_ = new platform::View(QRect(QPoint(0, 0), frame.size()));
    area_->setWidget(content_);
    // setWidget turns the content's background filling on; the page's gradient must show.
    content_->setAutoFillBackground(false);
    area_->viewport()->setAutoFillBackground(false);
    area_->setGeometry(rect());
}

QSize ScrollView::contentSize() const {
    return content_->size();
}

void ScrollView::setContentSize(const QSize& size) {
    content_->setFrame(QRect(content_->pos(), size));
}

QPoint ScrollView::contentOffset() const {
    return {area_->horizontalScrollBar()->value(), area_->verticalScrollBar()->value()};
}

void ScrollView::resizeEvent(QResizeEvent* event) {
    platform::View::resizeEvent(event);
    area_->setGeometry(rect());
}
