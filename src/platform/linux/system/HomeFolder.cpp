#include "platform/linux/system/HomeFolder.h"

#include <QByteArray>

#include <pwd.h>
#include <unistd.h>

namespace skylet {

void ensureHome() {
    for (const char* folder : {"HOME", "XDG_CONFIG_HOME", "XDG_RUNTIME_DIR"}) {
        if (!qgetenv(folder).startsWith('/')) {
            qunsetenv(folder);
        }
    }
    if (qEnvironmentVariableIsEmpty("HOME")) {
        const passwd* user = getpwuid(geteuid());
        // Nobody makes a folder inside a device.
        qputenv("HOME", QByteArray(user != nullptr ? user->pw_dir : "/dev/null"));
    }
}

} // namespace skylet
