#pragma once

#include "platform/desktop/Application.h"
#include "platform/linux/desktop/WindowShade.h"
#include "platform/linux/statusitem/DesktopStatusItem.h"

#include <QPointer>

#include <memory>

namespace skylet {

/// The program on a Linux desktop. Needs a QApplication; makes it known to the desktop by its name and icon.
class DesktopApplication final : public Application {
  public:
    DesktopApplication();
    ~DesktopApplication() override;

    void becomeAccessory() override;
    /// There is one item at a time.
    std::unique_ptr<StatusItem> makeStatusItem() override;
    bool hasApplicationIcon() const override;
    void openURL(const QUrl& url) override;
    void terminate() override;

    /// The item's own connection to the session bus, made with the first call.
    static QDBusConnection statusItemBus();
    /// Draws the user's eye to the status item, if there is one. `activationToken`: may bring the next window to the
    /// front; may be empty. False: the item's menu is not open, so there may be nothing to be seen.
    bool requestAttention(const QString& activationToken);

  private:
    Q_DISABLE_COPY_MOVE(DesktopApplication)

    WindowShade windowShade_;
    QPointer<DesktopStatusItem> statusItem_;
};

} // namespace skylet
