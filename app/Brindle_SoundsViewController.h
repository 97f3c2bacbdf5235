// The main view controller: shows the sound board and places the ad banner flush with the
// bottom of its view, then asks it for an ad.
#pragma once

#include "platform/ui/viewcontroller.h"

#include <QPointer>

#include <functional>

class PXBBannerView;

class Brindle_SoundsViewController : public platform::ViewController {
    Q_OBJECT
  public:
    static inline const QString kAdUnitID = QStringLiteral("c3e91d07b4a2f68");

    // `makeView` builds the controller's view when it is first needed (the interface's job);
    // without one the view is an empty view of the application frame.
    explicit Brindle_SoundsViewController(std::function<platform::View*()> makeView = {});
    ~Brindle_SoundsViewController() override;

    void loadView() override;
    void viewDidLoad() override;
    void didReceiveMemoryWarning() override;
    void viewDidUnload() override;
    // The board's keys work only while the board is in front: a screen over it gets the
    // keyboard to itself.
    void viewWillAppear(bool animated) override;
    void viewWillDisappear(bool animated) override;
    // Escape, when no screen over the board took it, stops every sound.
    bool escapePressed() override;

    // The banner of the last viewDidLoad.
    PXBBannerView* Qarbo() const;

  private:
    void setKeysEnabled(bool enabled);

    std::function<platform::View*()> makeView_;
    // Owned; also a subview of the view, so it is gone with an unloaded view.
    QPointer<PXBBannerView> Qarbo_;
};
