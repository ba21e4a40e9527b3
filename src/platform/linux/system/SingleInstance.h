#pragma once

#include <QDBusConnection>
#include <QObject>

#include <chrono>
#include <functional>

namespace skylet {

/// Sees to it that a user runs the program once per session bus: the first start owns a name there, a later one brings
/// the first to attention and learns that it is the second. It ends no process itself.
class SingleInstance {
  public:
    enum class Role {
        /// This process is the one that runs.
        first,
        /// Another one runs and has been activated, or does not answer.
        second,
        /// Nobody can tell: there is no bus, or it refuses the name.
        noBus,
    };

    static constexpr auto serviceName = "com.vorn.skylet";
    static constexpr auto objectPath = "/com/vorn/skylet";
    static constexpr std::chrono::seconds defaultTimeout{2};

    /// `onActivated` runs from the event loop, for the first alone, each time another start is turned away, with the
    /// token by which the desktop lets that start bring a window to the front (XDG Activation protocol), or empty.
    SingleInstance(QDBusConnection bus, std::function<void(const QString& activationToken)> onActivated);

    /// Waits for the replies of the bus and of the other process, for `timeout` in all. To be called once, before the
    /// program begins to work.
    Role claim(std::chrono::milliseconds timeout = defaultTimeout);

  private:
    QDBusConnection bus_;
    /// What stands at `objectPath`.
    QObject object_;
};

} // namespace skylet
