#include "app/ScrollView.h"

#include <QScrollArea>
#include <QScrollBar>

ScrollView::ScrollView(const QRect& frame, QWidget* parent) : platform::View(frame, parent) {
    area_ = new QScrollArea(this);
    area_->setFrameShape(QFrame::NoFrame);
    area_->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    area_->setVerticalScrollBarPolicy(Qt::ScrollBarAsNeeded);
    area_->setWidgetResizable(false);
    area_->viewport()->setAutoFillBackground(false);
    area_->setStyleSheet(QStringLiteral("QScrollArea { background: transparent; }"));
    content_ = new platform::View(QRect(QPoint(0, 0), frame.size()));
    area_->setWidget(content_);
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
