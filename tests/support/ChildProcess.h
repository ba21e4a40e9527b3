#pragma once

#include <QProcess>

#include <sys/prctl.h>

#include <csignal>

namespace skylet::test {

/// Lets nothing stay behind, not even of a test that is killed: `process` ends when the one that starts it does.
inline void endWithThisProcess(QProcess& process) {
    process.setChildProcessModifier([] { prctl(PR_SET_PDEATHSIG, SIGKILL); });
}

} // namespace skylet::test
