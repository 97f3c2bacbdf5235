#include "app/Brindle_SoundsViewController.h"

#include "ads/core/PXBBannerView.h"
#include "ads/core/PXBRequest.h"
#include "app/MainView.h"
#include "platform/ui/application.h"

#include <QShortcut>

#include <memory>
#include <vector>

namespace {
// The requests handed to banners stay alive for the whole process, as they always did on the
// phone (the banner keeps its own copy); held here so that leak checkers see them owned.
std::vector<std::shared_ptr<PXBRequest>>& requestsForTheProcess() {
    static std::vector<std::shared_ptr<PXBRequest>> requests;
    return requests;
}
}  // namespace

Brindle_SoundsViewController::Brindle_SoundsViewController(
    std::function<platform::View*()> makeView)
    : makeView_(std::move(makeView)) {}

Brindle_SoundsViewController::~Brindle_SoundsViewController() {
    if (Qarbo_ != nullptr) {
        // A late ad event must not reach a controller that is gone.
        Qarbo_->setDelegate(nullptr);
        delete Qarbo_.data();
    }
}

PXBBannerView* Brindle_SoundsViewController::Qarbo() const {
    return Qarbo_;
}

void Brindle_SoundsViewController::loadView() {
    if (makeView_) {
        setView(makeView_());
        return;
    }
    platform::ViewController::loadView();
}

void Brindle_SoundsViewController::viewDidLoad() {
    platform::ViewController::viewDidLoad();
    const QRect frame = view()->frame();
    // Flush with the bottom edge and always 320 wide, whatever the view's width.
    const float y = static_cast<float>(frame.height()) - 50.0f;
    Qarbo_ = new PXBBannerView(QRect(0, static_cast<int>(y), 320, 50));
    Qarbo_->setAdUnitID(kAdUnitID);
    Qarbo_->setRootViewController(this);
    view()->addSubview(Qarbo_);
    // A bare request: no keywords, location, birthday, gender or test flag. It goes once the
    // board is on screen: the banner's request and the engine its ad needs come after the first
    // thing the user sees, never in front of it.
    auto request = PXBRequest::create();
    requestsForTheProcess().push_back(request);
    PXBBannerView* banner = Qarbo_;
    platform::Application::sharedApplication()->whenFirstFrameDrawn(
        banner, [banner, request = request.get()] { banner->loadRequest(request); });
}

void Brindle_SoundsViewController::viewWillAppear(bool animated) {
    platform::ViewController::viewWillAppear(animated);
    setKeysEnabled(true);
}

void Brindle_SoundsViewController::viewWillDisappear(bool animated) {
    platform::ViewController::viewWillDisappear(animated);
    setKeysEnabled(false);
}

void Brindle_SoundsViewController::setKeysEnabled(bool enabled) {
    for (QShortcut* shortcut : view()->findChildren<QShortcut*>()) {
        shortcut->setEnabled(enabled);
    }
}

bool Brindle_SoundsViewController::escapePressed() {
    if (auto* board = qobject_cast<MainView*>(view())) {
        board->stopAllSounds();
        return true;
    }
    return false;
}

void Brindle_SoundsViewController::didReceiveMemoryWarning() {
    platform::ViewController::didReceiveMemoryWarning();
}

void Brindle_SoundsViewController::viewDidUnload() {
    // Deliberately empty: the banner is not released here.
}
