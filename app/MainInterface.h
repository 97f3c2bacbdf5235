// The main interface, made in code: the sound board's three pages with their buttons wired to
// MainView's actions, the keyboard shortcuts of the desktop, and the window with its controller.
#pragma once

#include <QKeySequence>
#include <QRect>
#include <QString>

#include <memory>

class Brindle_SoundsAppDelegate;
class MainView;
class QAbstractButton;

namespace MainInterface {

// The key that plays a sound action's clip ("1" ... "9", "Q" ... "Y", "A" ... "H").
QKeySequence shortcutForSound(int index);
// A clip's name as its button shows it: written with its punctuation, first letter capitalised.
QString titleForClip(const QString& clip);

// The board with its pages and buttons; `frame` is the controller's view frame.
MainView* buildMainView(const QRect& frame);
// The button of a MainView that triggers `action` (a sound, "canemurder" or a page action).
QAbstractButton* buttonForAction(const MainView* view, const QString& action, int occurrence = 0);

// The delegate with its window and main view controller connected, as the interface file
// gave them on the phone.
void connectOutlets(Brindle_SoundsAppDelegate* delegate);

}  // namespace MainInterface
