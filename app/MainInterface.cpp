#include "app/MainInterface.h"

#include "app/Brindle_SoundsAppDelegate.h"
#include "app/MainView.h"
#include "app/ScrollView.h"
#include "platform/ui/screen.h"

#include <QAbstractButton>
#include <QCoreApplication>
#include <QFontMetricsF>
#include <QHash>
#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>
#include <QPropertyAnimation>
#include <QShortcut>
#include <QTextLayout>
#include <QTimer>

#include <algorithm>
#include <cmath>

namespace {

constexpr int kPageHeight = 410;  // the 460-point view less the 50-point banner
constexpr int kHeaderHeight = 48;
constexpr int kMainSoundCount = 9;
constexpr int kPageSoundCount = 6;

const char* const kSoundKeys = "123456789QWERTYASDFGH";
// How long a button looks pressed after its key.
constexpr int kKeyPressShownMs = 100;

// Pad colours, cycled over the buttons of a page.
const QColor kPadColors[] = {
    QColor(0xff, 0x6b, 0x6b), QColor(0xff, 0xa9, 0x4d), QColor(0xf7, 0xc9, 0x48),
    QColor(0x4c, 0xd1, 0x9b), QColor(0x3b, 0xb2, 0xe8), QColor(0x8c, 0x7a, 0xf0),
    QColor(0xe8, 0x6a, 0xc6), QColor(0x2e, 0xc4, 0xb6), QColor(0xf2, 0x85, 0x5e),
};

// A page background: a vertical gradient between two colours.
class GradientView : public platform::View {
  public:
    GradientView(const QRect& frame, QColor top, QColor bottom)
        : platform::View(frame), top_(top), bottom_(bottom) {}

  protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        QLinearGradient gradient(0, 0, 0, height());
        gradient.setColorAt(0, top_);
        gradient.setColorAt(1, bottom_);
        painter.fillRect(rect(), gradient);
    }

  private:
    QColor top_;
    QColor bottom_;
};

// Relative luminance of a colour, as contrast ratios are worked out (WCAG 2).
double luminance(const QColor& color) {
    const auto channel = [](double c) {
        return c <= 0.03928 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * channel(color.redF()) + 0.7152 * channel(color.greenF()) +
           0.0722 * channel(color.blueF());
}

// White or near-black, whichever stands out more from `background`: white titles on the
// yellow and green pads read at less than 2:1.
QColor textColorOn(const QColor& background) {
    const QColor dark(0x14, 0x14, 0x14);
    const double l = luminance(background);
    const double onWhite = 1.05 / (l + 0.05);
    const double onDark = (l + 0.05) / (luminance(dark) + 0.05);
    return onWhite >= onDark ? QColor(Qt::white) : dark;
}

// Lays `title` out word-wrapped and centred in `box`, every line clear of `badge` (the key in the
// top right corner): a line level with the badge is narrowed on both sides, so that the title
// stays centred. Returns whether it fits: no word wider than its line, no line outside the box.
bool layOutTitle(QTextLayout& title, const QRectF& box, const QRectF& badge) {
    QTextOption option(Qt::AlignHCenter);
    option.setWrapMode(QTextOption::WordWrap);
    title.setTextOption(option);
    const double inset = badge.isEmpty() ? 0 : box.right() - badge.left() + 2;
    // Where the lines start depends on how many there are, and how many on which are narrowed:
    // a few rounds settle it.
    double top = box.top();
    double height = 0;
    for (int round = 0; round < 3; ++round) {
        title.beginLayout();
        double y = top;
        for (QTextLine line = title.createLine(); line.isValid(); line = title.createLine()) {
            const double lineHeight = QFontMetricsF(title.font()).height();
            const bool level = y < badge.bottom() && y + lineHeight > badge.top();
            const double side = level ? inset : 0;
            line.setLineWidth(box.width() - 2 * side);
            line.setPosition(QPointF(box.left() + side, y));
            y += line.height();
        }
        title.endLayout();
        height = y - top;
        top = box.top() + std::max(0.0, (box.height() - height) / 2);
    }
    if (height > box.height()) {
        return false;
    }
    for (int i = 0; i < title.lineCount(); ++i) {
        if (title.lineAt(i).naturalTextWidth() > title.lineAt(i).width() + 0.5) {
            return false;
        }
    }
    return true;
}

// A rounded, coloured pad with its title wrapped in the middle and its key in a corner.
class PadButton : public QAbstractButton {
  public:
    PadButton(const QString& title, QColor color, const QString& key, QWidget* parent)
        : QAbstractButton(parent), color_(color), key_(key) {
        setText(title);
        setCursor(Qt::PointingHandCursor);
        setFocusPolicy(Qt::NoFocus);
        // Screen readers say the title (the button's text) and then the key that plays it.
        if (!key.isEmpty()) {
            setAccessibleDescription(QCoreApplication::translate("PadButton", "Key %1").arg(key));
        }
    }
    void setTitleSize(int pixels) { titleSize_ = pixels; }

  protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        painter.setRenderHint(QPainter::Antialiasing);
        const QRectF box = QRectF(rect()).adjusted(1, 1, -1, -2);
        const QColor base = isDown() ? color_.darker(125) : color_;
        // A soft shadow under the pad, then the pad with a light top edge.
        QPainterPath shadow;
        shadow.addRoundedRect(box.translated(0, 2), 12, 12);
        painter.fillPath(shadow, QColor(0, 0, 0, 70));
        QPainterPath pad;
        pad.addRoundedRect(isDown() ? box.translated(0, 1) : box, 12, 12);
        QLinearGradient fill(0, 0, 0, height());
        fill.setColorAt(0, base.lighter(118));
        fill.setColorAt(1, base.darker(112));
        painter.fillPath(pad, fill);
        painter.setPen(QPen(QColor(255, 255, 255, 90), 1));
        painter.drawPath(pad);

        // The key's badge first, as the title keeps clear of it.
        QFont font = painter.font();
        font.setBold(true);
        QRectF badge;
        if (!key_.isEmpty()) {
            font.setPixelSize(11);
            const QFontMetricsF metrics(font);
            const double side = metrics.height() + 2;
            const double width = std::max(side, metrics.horizontalAdvance(key_) + 8);
            badge = QRectF(box.right() - 6 - width, box.top() + 5, width, side);
        }
        // The largest size up to the title size at which the wrapped title fits the pad.
        const QRectF textBox = box.adjusted(8, 6, -8, -6);
        QTextLayout title(text());
        for (int size = titleSize_; size >= 8; --size) {
            font.setPixelSize(size);
            title.setFont(font);
            if (layOutTitle(title, textBox, badge)) {
                break;
            }
        }
        const QColor ink = textColorOn(base);
        const bool darkInk = ink != QColor(Qt::white);
        painter.setPen(darkInk ? QColor(255, 255, 255, 70) : QColor(0, 0, 0, 60));
        title.draw(&painter, QPointF(0, 1));
        painter.setPen(ink);
        title.draw(&painter, QPointF(0, 0));
        if (!key_.isEmpty()) {
            // White on a dark badge: at least 6:1 on every pad colour, light or dark.
            font.setPixelSize(11);
            painter.setFont(font);
            QPainterPath badgePath;
            badgePath.addRoundedRect(badge, 5, 5);
            painter.fillPath(badgePath, QColor(0, 0, 0, 165));
            painter.setPen(Qt::white);
            painter.drawText(badge, Qt::AlignCenter, key_);
        }
    }

  private:
    QColor color_;
    QString key_;
    int titleSize_ = 13;
};

// A page's title with a line of help under it, painted across the top of the page.
class Header : public QWidget {
  public:
    Header(QWidget* page, QString title, QString subtitle)
        : QWidget(page), title_(std::move(title)), subtitle_(std::move(subtitle)) {
        setGeometry(0, 0, 320, kHeaderHeight);
        setAttribute(Qt::WA_TransparentForMouseEvents);
    }

  protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        painter.setRenderHint(QPainter::TextAntialiasing);
        painter.fillRect(QRect(0, height() - 1, width(), 1), QColor(255, 255, 255, 30));
        QFont font = painter.font();
        font.setBold(true);
        font.setPixelSize(19);
        painter.setFont(font);
        painter.setPen(Qt::white);
        painter.drawText(QRect(0, 5, width(), 24), Qt::AlignCenter, title_);
        font.setBold(false);
        font.setPixelSize(10);
        painter.setFont(font);
        painter.setPen(QColor(255, 255, 255, 150));
        painter.drawText(QRect(0, 29, width(), 14), Qt::AlignCenter, subtitle_);
    }

  private:
    QString title_;
    QString subtitle_;
};

// Slides a page's views in from the right edge after the page action has placed them.
void slideIn(std::initializer_list<QWidget*> views) {
    for (QWidget* view : views) {
        if (view == nullptr) {
            continue;
        }
        const QPoint end(0, view->y());
        auto* slide = new QPropertyAnimation(view, "pos", view);
        slide->setDuration(220);
        slide->setStartValue(QPoint(view->width(), end.y()));
        slide->setEndValue(end);
        slide->setEasingCurve(QEasingCurve::OutCubic);
        slide->start(QAbstractAnimation::DeleteWhenStopped);
    }
}

PadButton* addSoundButton(MainView* view, QWidget* parent, int index, const QRect& frame,
                          int colorIndex) {
    const MainView::Sound& sound = MainView::sounds()[index];
    const QString key = MainInterface::shortcutForSound(index).toString();
    auto* button = new PadButton(MainInterface::titleForClip(sound.clip),
                                 kPadColors[colorIndex % std::size(kPadColors)], key, parent);
    button->setGeometry(frame);
    button->setObjectName(QString::fromLatin1(sound.action));
    button->setProperty("action", QString::fromLatin1(sound.action));
    button->setProperty("clip", QString::fromLatin1(sound.clip));
    button->setToolTip(QStringLiteral("Plays \u201c%1\u201d \u2014 key %2")
                           .arg(MainInterface::titleForClip(sound.clip), key));
    QObject::connect(button, &QAbstractButton::clicked, view, sound.play);
    // The key works on every page and sounds at once; where the button is on screen it is also
    // seen pressed for a moment (a button's own animated click would only play on its release).
    auto* shortcut = new QShortcut(MainInterface::shortcutForSound(index), view);
    shortcut->setContext(Qt::WindowShortcut);
    QObject::connect(shortcut, &QShortcut::activated, view, [view, button, play = sound.play] {
        (view->*play)();
        if (button->isVisible()) {
            button->setDown(true);
            QTimer::singleShot(kKeyPressShownMs, button, [button] { button->setDown(false); });
        }
    });
    return button;
}

// A button that leads somewhere. Its key works only while its page is in front, as only then
// can the button be pressed: no page opens over another and no Back skips one.
PadButton* addNavigationButton(MainView* view, QWidget* parent, const QString& title,
                               const QRect& frame, QColor color, const QString& action,
                               const QKeySequence& key, bool keyOnPad = true) {
    auto* button = new PadButton(title, color, keyOnPad ? key.toString() : QString(), parent);
    button->setGeometry(frame);
    button->setObjectName(action);
    button->setProperty("action", action);
    button->setToolTip(QStringLiteral("%1 \u2014 key %2").arg(title, key.toString()));
    // The button's own, so that the Back of a page off screen does not compete with the one in
    // front for the same key.
    auto* shortcut = new QShortcut(key, button);
    shortcut->setContext(Qt::WindowShortcut);
    QObject::connect(shortcut, &QShortcut::activated, button, [view, button] {
        if (view->isInFrontPage(button)) {
            button->animateClick();
        }
    });
    return button;
}

// One extra page: the content view with its header and back button, and the scroll view with
// six pads, laid out for a content height of `contentHeight`.
void buildPage(MainView* view, const QString& title, int firstSound, int contentHeight, QColor top,
               QColor bottom, platform::View** extra, ScrollView** scroll,
               void (MainView::*back)(QObject*), const QString& backAction) {
    auto* page = new GradientView(QRect(0, 0, 320, kPageHeight), top, bottom);
    new Header(page, title, QStringLiteral("scroll for more"));
    auto* backButton = addNavigationButton(view, page, QStringLiteral("\u2039 Back"),
                                           QRect(8, 9, 64, 30), QColor(255, 255, 255, 60),
                                           backAction, QKeySequence(Qt::Key_Backspace), false);
    backButton->setTitleSize(12);
    QObject::connect(backButton, &QAbstractButton::clicked, view,
                     [view, backButton, back] { (view->*back)(backButton); });

    auto* scrollView = new ScrollView(QRect(0, kHeaderHeight, 320, kPageHeight - kHeaderHeight));
    scrollView->setContentSize(QSize(320, contentHeight));
    const int padWidth = 146;
    const int padHeight = 150;
    for (int i = 0; i < kPageSoundCount; ++i) {
        const QRect frame(10 + (i % 2) * (padWidth + 8), 10 + (i / 2) * (padHeight + 12), padWidth,
                          padHeight);
        PadButton* pad =
            addSoundButton(view, scrollView->contentView(), firstSound + i, frame, firstSound + i);
        pad->setTitleSize(16);
    }
    *extra = page;
    *scroll = scrollView;
}

}  // namespace

namespace MainInterface {

QKeySequence shortcutForSound(int index) {
    if (index < 0 || index >= static_cast<int>(qstrlen(kSoundKeys))) {
        return {};
    }
    return QKeySequence(QString(QLatin1Char(kSoundKeys[index])));
}

QString titleForClip(const QString& clip) {
    // The clips' names are file names, without their punctuation; a pad shows the line as
    // it is said.
    static const QHash<QString, QString> kWritten{
        {QStringLiteral("buttonEffect"), QStringLiteral("Button Effect")},
        {QStringLiteral("who needs em"), QStringLiteral("Who needs 'em?")},
        {QStringLiteral("havent seen a newspaper"), QStringLiteral("Haven't seen a newspaper")},
        {QStringLiteral("Thats Sounds Fun"), QStringLiteral("That's Sounds Fun")},
        {QStringLiteral("You like popsicles"), QStringLiteral("You like popsicles?")},
        {QStringLiteral("Why the long face"), QStringLiteral("Why the long face?")},
        {QStringLiteral("guess who"), QStringLiteral("Guess who?")},
        {QStringLiteral("hey there fella"), QStringLiteral("Hey there, fella")},
        {QStringLiteral("Dont make me beg"), QStringLiteral("Don't make me beg")},
    };
    if (const auto written = kWritten.constFind(clip); written != kWritten.constEnd()) {
        return *written;
    }
    QString title = clip;
    if (!title.isEmpty()) {
        title[0] = title[0].toUpper();
    }
    return title;
}

MainView* buildMainView(const QRect& frame) {
    auto* view = new MainView(frame);
    view->setBackgroundColor(QColor(0x14, 0x18, 0x2b));

    // The main page: nine pads, the music track and the two ways to the other pages.
    auto* main = new GradientView(QRect(0, 0, 320, kPageHeight), QColor(0x22, 0x2a, 0x4a),
                                  QColor(0x12, 0x15, 0x26));
    new Header(main, QStringLiteral("Brindle Sounds"),
               QStringLiteral("tap a pad or press its key \u2022 Esc stops all"));
    const int padWidth = 94;
    const int padHeight = 64;
    for (int i = 0; i < kMainSoundCount; ++i) {
        const QRect pad(10 + (i % 3) * (padWidth + 9), 56 + (i / 3) * (padHeight + 8), padWidth,
                        padHeight);
        addSoundButton(view, main, i, pad, i);
    }
    auto* music = addNavigationButton(view, main, QStringLiteral("\u266b  Be your lover"),
                                      QRect(10, 276, 300, 52), QColor(0x6c, 0x4b, 0xd8),
                                      QStringLiteral("canemurder"), QKeySequence(Qt::Key_M));
    music->setTitleSize(16);
    music->setToolTip(QStringLiteral("Plays the music track \u2014 key M"));
    QObject::connect(music, &QAbstractButton::clicked, view, &MainView::canemurder);

    platform::View* extra = nullptr;
    ScrollView* scroll = nullptr;
    platform::View* oneExtra = nullptr;
    ScrollView* oneScroll = nullptr;
    buildPage(view, QStringLiteral("More Sounds"), kMainSoundCount, 563, QColor(0x0f, 0x4c, 0x5c),
              QColor(0x0b, 0x1f, 0x2e), &extra, &scroll, &MainView::pushback,
              QStringLiteral("pushback"));
    buildPage(view, QStringLiteral("Even More"), kMainSoundCount + kPageSoundCount, 569,
              QColor(0x5c, 0x1f, 0x4c), QColor(0x26, 0x0b, 0x22), &oneExtra, &oneScroll,
              &MainView::pushback1, QStringLiteral("pushback1"));

    auto* more = addNavigationButton(view, main, QStringLiteral("More sounds \u203a"),
                                     QRect(10, 340, 146, 52), QColor(0x1f, 0x8a, 0x9e),
                                     QStringLiteral("gotoscrollview"), QKeySequence(Qt::Key_N));
    QObject::connect(more, &QAbstractButton::clicked, view, [view, more] {
        view->gotoscrollview(more);
        slideIn({view->myextraview(), view->myscrollview()});
    });
    auto* evenMore = addNavigationButton(
        view, main, QStringLiteral("Even more \u203a"), QRect(164, 340, 146, 52),
        QColor(0xb0, 0x3a, 0x8c), QStringLiteral("gotoscrollview1"), QKeySequence(Qt::Key_B));
    QObject::connect(evenMore, &QAbstractButton::clicked, view, [view, evenMore] {
        view->gotoscrollview1(evenMore);
        slideIn({view->onemyextraview(), view->onemyscrollview()});
    });

    view->addSubview(main);
    view->setOutlets(main, extra, scroll, oneExtra, oneScroll);
    return view;
}

QAbstractButton* buttonForAction(const MainView* view, const QString& action, int occurrence) {
    // Pages that are off screen are not children of the view: search every page.
    const QWidget* pages[] = {view->mymainview(), view->myextraview(), view->myscrollview(),
                              view->onemyextraview(), view->onemyscrollview()};
    for (const QWidget* page : pages) {
        if (page == nullptr) {
            continue;
        }
        for (QAbstractButton* button : page->findChildren<QAbstractButton*>()) {
            if (button->property("action").toString() == action && occurrence-- == 0) {
                return button;
            }
        }
    }
    return nullptr;
}

void connectOutlets(Brindle_SoundsAppDelegate* delegate) {
    auto window = std::make_unique<platform::Window>();
    auto controller = std::make_shared<Brindle_SoundsViewController>(
        [] { return buildMainView(platform::Screen::applicationFrame()); });
    window->setWindowTitle(QStringLiteral("Brindle Sounds"));
    delegate->setWindow(std::move(window));
    delegate->setViewController(std::move(controller));
}

}  // namespace MainInterface
