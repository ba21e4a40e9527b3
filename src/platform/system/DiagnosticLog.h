#pragma once

#include <QString>

namespace skylet {

/// A small text file for finding out afterwards how a start went. Never reports a failure and never keeps the file
/// open.
class DiagnosticLog {
  public:
    virtual ~DiagnosticLog() = default;
    /// Appends `line`, which ends in a line feed, as UTF-8.
    virtual void append(const QString& line) = 0;
};

} // namespace skylet
