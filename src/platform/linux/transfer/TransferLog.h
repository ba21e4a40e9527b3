#pragma once

#include <QLoggingCategory>

namespace skylet {

/// "skylet.transfer": look-ups, proxies, connections and how requests end. Off by default.
Q_DECLARE_LOGGING_CATEGORY(transferLog)

} // namespace skylet
