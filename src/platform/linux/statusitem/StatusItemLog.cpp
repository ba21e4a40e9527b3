#include "platform/linux/statusitem/StatusItemLog.h"

namespace skylet {

Q_LOGGING_CATEGORY(statusItemLog, "skylet.statusitem", QtWarningMsg)

} // namespace skylet
