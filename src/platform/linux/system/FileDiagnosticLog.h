#pragma once

#include "platform/system/DiagnosticLog.h"

#include <string>

namespace skylet {

/// A log file in a folder that others may write to. It appends to a plain file of this user's own, or puts a new one
/// there as a whole. It never writes to, through or over anything else that stands under the name: a link, a pipe, a
/// folder, another user's file. The line is then dropped.
class FileDiagnosticLog : public DiagnosticLog {
  public:
    static constexpr auto defaultPath = "/tmp/skylet.log";

    explicit FileDiagnosticLog(std::string path = defaultPath);

    void append(const QString& line) override;

  private:
    std::string path_;
};

} // namespace skylet
