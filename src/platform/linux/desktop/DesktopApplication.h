#pragma once

#include "platform/desktop/Application.h"
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
    /// The session bus is connected to on the first call. There is one item at a time.
    std::unique_ptr<StatusItem> makeStatusItem() override;
    bool hasApplicationIcon() const override;
    void openURL(const QUrl& url) override;
    void terminate() override;

    /// Without it no desktop can show the status item, and someone who started the program by hand should be told.
    bool sessionBusAvailable();
    /// Draws the user's eye to the status item, if there is one.
    void requestAttention();

  private:
    Q_DISABLE_COPY_MOVE(DesktopApplication)

    QDBusConnection statusItemBus();

    QPointer<DesktopStatusItem> statusItem_;
};

} // namespace skylet
