#pragma once

#include "ui/PlainWindow.h"

#include <functional>

class QCheckBox;

namespace skylet {

/// The window of the first start: says where the status item is and what its colours mean, and offers to start the
/// program at login. Only the button has a consequence. In Hebrew the body and the check box run from right to left;
/// everything else stays where it is.
class WelcomePanel final : public PlainWindow {
    Q_OBJECT

  public:
    /// `loginBoxOn`: how the check box stands at first.
    WelcomePanel(bool loginBoxOn, std::function<void()> finishWelcome);

    bool loginBoxIsOn() const;

  private:
    QCheckBox* loginBox_;
};

} // namespace skylet
