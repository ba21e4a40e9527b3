#pragma once

#include "platform/desktop/StatusItem.h"

#include <QUrl>

#include <memory>

namespace skylet {

/// The program as the desktop sees it.
class Application {
  public:
    virtual ~Application() = default;
    /// No taskbar entry of its own, and closing the last window does not end the program.
    virtual void becomeAccessory() = 0;
    /// Never null.
    virtual std::unique_ptr<StatusItem> makeStatusItem() = 0;
    /// Whether the program's own icon was found; without it the build is broken.
    virtual bool hasApplicationIcon() const = 0;
    /// Shows a web page in the user's browser. Errors are ignored.
    virtual void openURL(const QUrl& url) = 0;
    /// Ends the event loop; the shut-down runs on the way out.
    virtual void terminate() = 0;
};

} // namespace skylet
