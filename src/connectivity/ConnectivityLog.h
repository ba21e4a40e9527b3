#pragma once

#include <QLoggingCategory>

namespace skylet {

/// "skylet.connectivity": every state with its reason, and what came of each probe. Off by default.
Q_DECLARE_LOGGING_CATEGORY(connectivityLog)

} // namespace skylet
