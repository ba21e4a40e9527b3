#pragma once

#include <QLoggingCategory>

namespace skylet {

/// "skylet.statusitem": which hosts come and go, how the item is shown, whether it is registered. Off by default.
Q_DECLARE_LOGGING_CATEGORY(statusItemLog)

} // namespace skylet
